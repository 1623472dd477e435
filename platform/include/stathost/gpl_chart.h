// Charts of the output document: the GPL statements of a chart item read into a small model,
// and the model drawn as inline SVG. Only the statement forms the procedures write are read:
// SOURCE, DATA, GRAPH, GUIDE (axis, title, footnotes, legend), SCALE (linear, cat, colour
// maps), COORD (rect, transpose, cluster) and the point, line, interval and edge elements.
#ifndef STATHOST_GPL_CHART_H_
#define STATHOST_GPL_CHART_H_

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace stathost {
namespace gpl {

// A chart that cannot be read or drawn. The message says why, in a few words.
class ChartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// DATA: name = col(source(s), name("column") [, unit.category()])
struct Variable {
  std::string name;
  std::string column;
  bool category = false;
};

// GUIDE: axis(dim(n), label("...")) or axis(dim(n), null()).
struct AxisGuide {
  bool hidden = false;
  std::string label;
};

enum class ScaleKind { kUnset, kLinear, kCategorical };

// SCALE: linear(dim(n), min(v), max(v), include(v, ...)) or cat(dim(n), sort.data(), reverse()).
struct ScaleModel {
  ScaleKind kind = ScaleKind::kUnset;
  std::optional<double> min;
  std::optional<double> max;
  std::vector<double> include;
  bool sortData = false;
  bool reverse = false;
};

// SCALE: cat(aesthetic(aesthetic.color[.interior]), include("a", ...), map(("a", color.x), ...)).
// Colours are CSS colours ("#1f77b4"); `aesthetic` is "color", "color.interior" or
// "color.exterior".
struct ColorMap {
  std::string aesthetic;
  std::vector<std::string> include;
  std::vector<std::pair<std::string, std::string>> entries;
};

// GUIDE: legend(aesthetic(aesthetic.x), label("...") | null()).
struct LegendGuide {
  std::string aesthetic;
  std::string label;
  bool hidden = false;
};

// One operand of a position: a declared variable or a number (possibly not finite).
struct Operand {
  bool isVariable = false;
  std::string variable;
  double number = 0;
};

enum class PositionForm {
  kPlain,         // a*b or a*b*c
  kSmoothLinear,  // smooth.linear(x*y): the least-squares line
  kSpreadRange,   // region.spread.range(x*(lo+hi)[*c]): one interval per row
  kLinkJoin,      // link.join(x1*y1+x2*y2): one edge per row
};

struct Position {
  PositionForm form = PositionForm::kPlain;
  // One operand per dimension (index 0 is dim 1). For kSpreadRange the range's own slot holds
  // a placeholder; for kLinkJoin these are the start of the edge.
  std::vector<Operand> dims;
  int rangeDim = -1;  // kSpreadRange: which dimension carries low..high
  Operand low;
  Operand high;
  std::vector<Operand> to;  // kLinkJoin: the end of the edge
};

// An aesthetic of an element: unset, a constant ("red" for color.red, "8pt" for size."8pt",
// "square" for shape.square, the text of a label) or a declared variable.
struct Aesthetic {
  bool set = false;
  bool isVariable = false;
  std::string value;
};

enum class ElementType { kPoint, kLine, kPath, kInterval, kEdge };

struct Element {
  ElementType type = ElementType::kPoint;
  int line = 0;  // line of the statement in the GPL text, 1-based
  Position position;
  Aesthetic color;
  Aesthetic colorInterior;
  Aesthetic colorExterior;
  Aesthetic size;
  Aesthetic shape;
  Aesthetic shapeInterior;
  Aesthetic transparency;
  Aesthetic label;
  Aesthetic split;
};

// Everything the statements say, before any data is looked at.
struct ChartModel {
  std::string source;
  std::vector<Variable> variables;
  AxisGuide axes[2];  // dims 1 and 2
  ScaleModel scales[2];
  std::string title;
  std::vector<std::string> footnotes;
  std::vector<std::string> subfootnotes;
  std::vector<LegendGuide> legends;
  std::vector<ColorMap> colorMaps;
  bool transpose = false;
  bool sameRatio = false;
  int clusterDim = 0;  // COORD: rect(dim(1,2), cluster(3)) gives 3
  std::vector<Element> elements;
  std::vector<std::string> skipped;  // statements read but not drawn (unsupported forms)

  const Variable* findVariable(const std::string& name) const;
};

// Reads the statements, one per line (a line that starts no statement continues the one
// before). Throws ChartError on text that cannot be read; forms outside the supported subset
// are listed in `skipped` and otherwise ignored.
ChartModel parseChart(const std::string& gpl);

// The CSS colour of a GPL colour name ("blue" from color.blue), or "" when it is unknown.
std::string cssColor(const std::string& gplName);

// Result of drawing a chart item ({"title", "gpl", "data"}).
struct ChartDrawing {
  bool ok = false;
  std::string svg;                   // an <svg> element when ok
  std::string problem;               // why the chart could not be drawn, when not ok
  std::vector<std::string> omitted;  // elements left out of a drawn chart, and why
};

// Draws a chart item as an inline, viewBox-scalable SVG element. Never throws.
ChartDrawing drawChart(const nlohmann::json& chart);

}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_GPL_CHART_H_

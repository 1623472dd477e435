// The marks of a chart in page pixels, before they are written out as SVG: elements become
// shapes, node boxes, edges and text, in statement order.
#ifndef STATHOST_OUTPUT_GPL_SCENE_H_
#define STATHOST_OUTPUT_GPL_SCENE_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "gpl_data.h"
#include "gpl_frame.h"
#include "stathost/gpl_chart.h"

namespace stathost {
namespace gpl {
namespace detail {

struct Point {
  double x = 0;
  double y = 0;
};

// A large square or circle marker (a node of a diagram). Labels centred on it widen it, and
// edges that end inside it stop at its border.
struct NodeMark {
  Point center;
  double width = 0;
  double height = 0;
  bool round = false;
  std::string fill;
  std::string stroke;
  double opacity = 1;
};

struct EdgeMark {
  Point from;
  Point to;
  std::string color;
  double width = 1.5;
  bool arrow = false;
  std::string dash;
};

struct TextMark {
  Point at;
  std::string text;       // may hold line breaks
  bool centered = true;   // centred on `at`; otherwise starts at `at`
  bool alignEnd = false;  // ends at `at`
  std::string color = "#222222";
  double size = 11.5;
  bool halo = false;  // a white outline that keeps the text readable over lines
};

// A label of a reference line.
struct ReferenceLabel {
  double position = 0;  // x of a vertical line, y of a horizontal one
  bool vertical = true;
  std::string text;
  std::string color;
};

struct Layer {
  enum class Kind { kSvg, kNode, kEdge };
  Kind kind = Kind::kSvg;
  std::string svg;
  std::size_t index = 0;
};

struct Scene {
  std::vector<std::string> underlay;  // reference lines, beneath the data
  std::vector<Layer> layers;
  std::vector<NodeMark> nodes;
  std::vector<EdgeMark> edges;
  std::vector<TextMark> texts;
  std::vector<ReferenceLabel> references;
  int drawn = 0;  // marks with a position

  void add(std::string svg) { layers.push_back({Layer::Kind::kSvg, std::move(svg), 0}); }
};

// The plot area and everything the marks are placed by.
struct Plot {
  const ChartModel* model = nullptr;
  const std::vector<BoundElement>* elements = nullptr;
  Frame frame;
  std::map<std::size_t, ColorScale> colors;  // by element index, for colour variables
  double left = 0;
  double right = 0;
  double top = 0;
  double bottom = 0;
};

// Turns every element into marks.
void drawElements(const Plot& plot, Scene* scene);

// Widens nodes to their labels and stops edges at node borders.
void fitNodesAndEdges(Scene* scene);

// One text mark as an SVG <text> element (a line break starts a new line).
std::string textSvg(const TextMark& mark);

// Writes the scene's marks as SVG, layers in order and text on top.
std::string writeScene(const Scene& scene);

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_OUTPUT_GPL_SCENE_H_

// Elements to marks: points, lines, reference lines, bars, error bars and edges.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "gpl_scene.h"
#include "gpl_style.h"

namespace stathost {
namespace gpl {
namespace detail {

namespace {

using style::attr;
using style::coordinate;
using style::num;

constexpr double kDefaultPointSize = 7;
constexpr double kDefaultLineWidth = 1.5;
constexpr const char* kDefaultFill = "#3b6fb6";
constexpr const char* kDefaultLine = "#333333";

std::string constantColor(const Aesthetic& aesthetic) {
  if (!aesthetic.set || aesthetic.isVariable) return "";
  return cssColor(aesthetic.value);
}

std::string dashOf(const Aesthetic& shape) {
  if (!shape.set || shape.isVariable) return "";
  const std::string& name = shape.value;
  if (name == "dash" || name == "dashed") return "6 4";
  if (name == "dot" || name == "dotted") return "1.5 3";
  if (name == "dash_dot" || name == "dashdot") return "6 3 1.5 3";
  if (name.find("dash") != std::string::npos) return "8 4";
  return "";
}

double opacityOf(const Aesthetic& transparency) {
  if (!transparency.set || transparency.isVariable) return 1;
  char* end = nullptr;
  const double value = std::strtod(transparency.value.c_str(), &end);
  if (end == transparency.value.c_str() || !std::isfinite(value)) return 1;
  return 1 - std::clamp(value, 0.0, 1.0);
}

// Clips the segment a-b to the rectangle; false when nothing is left.
bool clipSegment(Point* a, Point* b, double left, double top, double right, double bottom) {
  double t0 = 0;
  double t1 = 1;
  const double dx = b->x - a->x;
  const double dy = b->y - a->y;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {a->x - left, right - a->x, a->y - top, bottom - a->y};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return false;
      continue;
    }
    const double t = q[i] / p[i];
    if (p[i] < 0) {
      t0 = std::max(t0, t);
    } else {
      t1 = std::min(t1, t);
    }
    if (t0 > t1) return false;
  }
  const Point start = *a;
  *a = {start.x + t0 * dx, start.y + t0 * dy};
  *b = {start.x + t1 * dx, start.y + t1 * dy};
  return true;
}

class MarkMaker {
 public:
  MarkMaker(const Plot& plot, Scene* scene) : plot_(plot), frame_(plot.frame), scene_(*scene) {}

  void element(std::size_t index);

 private:
  std::optional<double> coord(const BoundElement& element, int d, std::size_t row) const;
  std::optional<Point> position(const BoundElement& element, std::size_t row) const;
  std::optional<double> clusterCoord(int outer, int inner) const;
  Point page(double along0, double along1) const;
  double barWidth(const BoundElement& element) const;
  bool inside(const Point& p, double slack = 1) const;
  std::string variableColor(std::size_t index, std::size_t row) const;
  std::string labelOf(const BoundElement& element, std::size_t row) const;
  std::string polyline(const std::vector<Point>& points) const;

  void points(std::size_t index);
  void lines(std::size_t index);
  void reference(std::size_t index, int valueDim);
  void smooth(std::size_t index);
  void intervals(std::size_t index);
  void ranges(std::size_t index);
  void edges(std::size_t index);

  const Plot& plot_;
  const Frame& frame_;
  Scene& scene_;
};

std::optional<double> MarkMaker::clusterCoord(int outer, int inner) const {
  const Axis& axis = frame_.axes[0];
  if (outer < 0 || inner < 0) return std::nullopt;
  const double n = static_cast<double>(std::max<std::size_t>(1, axis.categories.size()));
  const double m = static_cast<double>(std::max<std::size_t>(1, frame_.inner.size()));
  const double direction = axis.to >= axis.from ? 1 : -1;
  const double start = axis.from + (axis.to - axis.from) * outer / n;
  const double band = axis.band();
  return start + direction * (band * 0.1 + band * 0.8 * (inner + 0.5) / m);
}

std::optional<double> MarkMaker::coord(const BoundElement& element, int d, std::size_t row) const {
  const Axis& axis = frame_.axes[d];
  if (axis.categorical) {
    if (d == 0 && frame_.clustered && usesCluster(*plot_.model, element)) {
      if (element.dims[2].missing(row) || element.dims[0].missing(row)) return std::nullopt;
      return clusterCoord(axis.index(element.dims[2].text(row)),
                          frame_.innerIndex(element.dims[0].text(row)));
    }
    if (d >= static_cast<int>(element.dims.size()) || element.dims[d].missing(row)) {
      return std::nullopt;
    }
    const int i = axis.index(element.dims[d].text(row));
    if (i < 0) return std::nullopt;
    return axis.center(i);
  }
  if (d >= static_cast<int>(element.dims.size())) return std::nullopt;
  const double pixel = axis.pixel(element.dims[d].number(row));
  if (!std::isfinite(pixel)) return std::nullopt;
  return pixel;
}

Point MarkMaker::page(double along0, double along1) const {
  return frame_.horizontal == 0 ? Point{along0, along1} : Point{along1, along0};
}

std::optional<Point> MarkMaker::position(const BoundElement& element, std::size_t row) const {
  const auto c0 = coord(element, 0, row);
  const auto c1 = coord(element, 1, row);
  if (!c0 || !c1) return std::nullopt;
  return page(*c0, *c1);
}

double MarkMaker::barWidth(const BoundElement& element) const {
  const Axis& axis = frame_.axes[0].categorical ? frame_.axes[0] : frame_.axes[1];
  if (!axis.categorical) return 10;
  if (frame_.clustered && usesCluster(*plot_.model, element)) {
    const double m = static_cast<double>(std::max<std::size_t>(1, frame_.inner.size()));
    return axis.band() * 0.8 / m * 0.92;
  }
  return std::min(axis.band() * 0.62, 120.0);
}

bool MarkMaker::inside(const Point& p, double slack) const {
  return p.x >= plot_.left - slack && p.x <= plot_.right + slack && p.y >= plot_.top - slack &&
         p.y <= plot_.bottom + slack;
}

std::string MarkMaker::variableColor(std::size_t index, std::size_t row) const {
  const auto scale = plot_.colors.find(index);
  if (scale == plot_.colors.end()) return "";
  return scale->second.colorOf((*plot_.elements)[index].color, row);
}

std::string MarkMaker::labelOf(const BoundElement& element, std::size_t row) const {
  if (element.hasLabelVariable) {
    const Binding& label = element.label;
    if (label.missing(row)) return "";
    if (label.column->text) return label.text(row);
    return style::formatValue(label.number(row));
  }
  const Aesthetic& label = element.parsed->label;
  return label.set && !label.isVariable ? label.value : "";
}

std::string MarkMaker::polyline(const std::vector<Point>& points) const {
  std::string d;
  bool open = false;
  for (std::size_t i = 1; i < points.size(); ++i) {
    Point a = points[i - 1];
    Point b = points[i];
    const bool startsInside = inside(a, 0.5);
    if (!clipSegment(&a, &b, plot_.left, plot_.top, plot_.right, plot_.bottom)) {
      open = false;
      continue;
    }
    if (!open || !startsInside) d += "M" + coordinate(a.x) + " " + coordinate(a.y);
    d += "L" + coordinate(b.x) + " " + coordinate(b.y);
    open = inside(points[i], 0.5);
  }
  return d;
}

void MarkMaker::element(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  const bool categorical[2] = {frame_.axes[0].categorical, frame_.axes[1].categorical};
  switch (element.parsed->type) {
    case ElementType::kPoint:
      return points(index);
    case ElementType::kLine:
    case ElementType::kPath:
      if (frame_.reference[index]) return reference(index, referenceDim(element, categorical));
      if (element.parsed->position.form == PositionForm::kSmoothLinear) return smooth(index);
      return lines(index);
    case ElementType::kInterval:
      if (element.parsed->position.form == PositionForm::kSpreadRange) return ranges(index);
      return intervals(index);
    case ElementType::kEdge:
      return edges(index);
  }
}

std::string markerSvg(const std::string& shape, const Point& p, double size) {
  const double r = size / 2;
  const std::string x = coordinate(p.x);
  const std::string y = coordinate(p.y);
  if (shape == "square") {
    return "<rect" + num("x", p.x - r) + num("y", p.y - r) + num("width", size) +
           num("height", size);
  }
  if (shape == "diamond") {
    return "<path d=\"M" + x + " " + coordinate(p.y - r * 1.2) + "L" + coordinate(p.x + r * 1.2) +
           " " + y + "L" + x + " " + coordinate(p.y + r * 1.2) + "L" + coordinate(p.x - r * 1.2) +
           " " + y + "Z\"";
  }
  if (shape == "triangle") {
    return "<path d=\"M" + x + " " + coordinate(p.y - r * 1.15) + "L" + coordinate(p.x + r * 1.1) +
           " " + coordinate(p.y + r * 0.8) + "L" + coordinate(p.x - r * 1.1) + " " +
           coordinate(p.y + r * 0.8) + "Z\"";
  }
  if (shape == "cross" || shape == "plus") {
    const bool plus = shape == "plus";
    const double k = plus ? r : r * 0.75;
    if (plus) {
      return "<path fill=\"none\" d=\"M" + coordinate(p.x - k) + " " + y + "H" +
             coordinate(p.x + k) + "M" + x + " " + coordinate(p.y - k) + "V" + coordinate(p.y + k) +
             "\"";
    }
    return "<path fill=\"none\" d=\"M" + coordinate(p.x - k) + " " + coordinate(p.y - k) + "L" +
           coordinate(p.x + k) + " " + coordinate(p.y + k) + "M" + coordinate(p.x - k) + " " +
           coordinate(p.y + k) + "L" + coordinate(p.x + k) + " " + coordinate(p.y - k) + "\"";
  }
  return "<circle" + num("cx", p.x) + num("cy", p.y) + num("r", r);
}

void MarkMaker::points(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  const Element& parsed = *element.parsed;
  const double size =
      parsed.size.set && !parsed.size.isVariable
          ? style::sizeInPixels(parsed.size.value, kDefaultPointSize, plot_.right - plot_.left)
          : kDefaultPointSize;
  const Aesthetic& shapeAesthetic = parsed.shapeInterior.set ? parsed.shapeInterior : parsed.shape;
  const std::string shape =
      shapeAesthetic.set && !shapeAesthetic.isVariable ? shapeAesthetic.value : "circle";
  const double opacity = opacityOf(parsed.transparency);
  const bool visible = size >= 0.5 && opacity > 0.001;
  const bool many = element.rows > 200;
  const std::string fixedFill = !constantColor(parsed.colorInterior).empty()
                                    ? constantColor(parsed.colorInterior)
                                    : constantColor(parsed.color);
  const std::string fixedStroke = !constantColor(parsed.colorExterior).empty()
                                      ? constantColor(parsed.colorExterior)
                                      : constantColor(parsed.color);
  std::string svg;
  for (std::size_t row = 0; row < element.rows; ++row) {
    const auto p = position(element, row);
    if (!p || !inside(*p)) continue;
    const std::string mapped = element.hasColorVariable ? variableColor(index, row) : "";
    const bool mapsFill = !mapped.empty() && element.colorAesthetic != "color.exterior";
    const bool mapsStroke = !mapped.empty() && element.colorAesthetic != "color.interior";
    std::string fill = mapsFill ? mapped : fixedFill;
    if (fill.empty()) fill = kDefaultFill;
    std::string stroke = mapsStroke ? mapped : fixedStroke;
    if (stroke.empty()) stroke = fill;
    ++scene_.drawn;
    if (visible && size >= 18 && (shape == "square" || shape == "circle")) {
      NodeMark node;
      node.center = *p;
      node.width = node.height = size;
      node.round = shape == "circle";
      node.fill = fill;
      node.stroke = stroke;
      node.opacity = opacity;
      scene_.nodes.push_back(node);
      scene_.layers.push_back({Layer::Kind::kNode, "", scene_.nodes.size() - 1});
    } else if (visible) {
      const bool line = shape == "cross" || shape == "plus";
      svg += markerSvg(shape, *p, size) + attr("fill", line ? "none" : fill) +
             attr("stroke", stroke) + num("stroke-width", line ? 1.6 : (many ? 0.6 : 1)) +
             (opacity < 1 ? num("opacity", opacity) : "") +
             (many && !line ? " fill-opacity=\"0.7\"" : "") + "/>";
    }
    const std::string text = labelOf(element, row);
    if (text.empty()) continue;
    TextMark mark;
    mark.text = text;
    if (visible) {
      mark.at = {p->x + size / 2 + 4, p->y};
      mark.centered = false;
    } else {
      mark.at = *p;
      mark.halo = true;
      const std::string color = !fixedStroke.empty() ? fixedStroke : mapped;
      if (!color.empty()) mark.color = color;
    }
    scene_.texts.push_back(mark);
  }
  if (!svg.empty()) scene_.add("<g class=\"points\">" + svg + "</g>");
}

std::string lineStyle(const std::string& color, double width, const std::string& dash) {
  return attr("stroke", color) + num("stroke-width", width) +
         (dash.empty() ? "" : attr("stroke-dasharray", dash)) +
         " fill=\"none\" stroke-linejoin=\"round\" stroke-linecap=\"" +
         (dash.empty() ? "round" : "butt") + "\"";
}

double lineWidthOf(const Element& parsed, double percentOf) {
  return parsed.size.set && !parsed.size.isVariable
             ? style::sizeInPixels(parsed.size.value, kDefaultLineWidth, percentOf)
             : kDefaultLineWidth;
}

void MarkMaker::lines(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  const Element& parsed = *element.parsed;
  const double width = lineWidthOf(parsed, plot_.right - plot_.left);
  const std::string dash = dashOf(parsed.shape);
  const std::string fixed = constantColor(parsed.color);
  struct Group {
    std::string key;
    std::string color;
    std::vector<std::pair<double, Point>> points;
  };
  std::vector<Group> groups;
  for (std::size_t row = 0; row < element.rows; ++row) {
    const auto p = position(element, row);
    if (!p) continue;
    std::string key = element.hasSplit ? element.split.text(row) : "";
    if (element.hasSplit && element.split.missing(row)) continue;
    const std::string mapped = element.hasColorVariable ? variableColor(index, row) : "";
    key += '\x1f' + mapped;
    auto group =
        std::find_if(groups.begin(), groups.end(), [&key](const Group& g) { return g.key == key; });
    if (group == groups.end()) {
      groups.push_back({key, !mapped.empty() ? mapped : fixed.empty() ? kDefaultLine : fixed, {}});
      group = groups.end() - 1;
    }
    // Lines run along data dimension 1; paths keep the row order.
    double order = static_cast<double>(row);
    if (parsed.type == ElementType::kLine) {
      const Axis& axis = frame_.axes[0];
      if (axis.categorical) {
        const bool cluster = frame_.clustered && usesCluster(*plot_.model, element);
        order = axis.index((cluster ? element.dims[2] : element.dims[0]).text(row));
      } else {
        order = element.dims[0].number(row);
      }
    }
    group->points.push_back({order, *p});
  }
  std::string svg;
  Point last;
  bool any = false;
  std::string lastColor;
  for (Group& group : groups) {
    std::stable_sort(group.points.begin(), group.points.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Point> points;
    for (const auto& entry : group.points) points.push_back(entry.second);
    const std::string d = polyline(points);
    if (d.empty()) continue;
    scene_.drawn += static_cast<int>(points.size());
    svg += "<path d=\"" + d + "\"" + lineStyle(group.color, width, dash) + "/>";
    last = points.back();
    lastColor = group.color;
    any = true;
  }
  if (svg.empty()) return;
  scene_.add("<g class=\"lines\">" + svg + "</g>");
  const std::string text = labelOf(element, 0);
  if (any && !text.empty() && !element.hasLabelVariable) {
    TextMark mark;
    mark.text = text;
    mark.centered = false;
    mark.at = {last.x + 5, last.y};
    if (last.x > plot_.right - 60) {
      mark.alignEnd = true;
      mark.at = {last.x, last.y - 9};
    }
    mark.color = lastColor;
    mark.halo = true;
    scene_.texts.push_back(mark);
  }
}

void MarkMaker::reference(std::size_t index, int valueDim) {
  const BoundElement& element = (*plot_.elements)[index];
  const Element& parsed = *element.parsed;
  const double value = referenceValue(element, valueDim);
  const double pixel = frame_.axes[valueDim].pixel(value);
  if (!std::isfinite(pixel)) return;
  const bool vertical = valueDim == frame_.horizontal;
  if (vertical ? (pixel < plot_.left - 0.5 || pixel > plot_.right + 0.5)
               : (pixel < plot_.top - 0.5 || pixel > plot_.bottom + 0.5)) {
    return;
  }
  const std::string color =
      constantColor(parsed.color).empty() ? "#555555" : constantColor(parsed.color);
  const Point a = vertical ? Point{pixel, plot_.top} : Point{plot_.left, pixel};
  const Point b = vertical ? Point{pixel, plot_.bottom} : Point{plot_.right, pixel};
  ++scene_.drawn;
  scene_.underlay.push_back(
      "<path class=\"reference\" d=\"M" + coordinate(a.x) + " " + coordinate(a.y) + "L" +
      coordinate(b.x) + " " + coordinate(b.y) + "\"" +
      lineStyle(color, lineWidthOf(parsed, plot_.right - plot_.left), dashOf(parsed.shape)) + "/>");
  const std::string text = labelOf(element, 0);
  if (!text.empty() && !element.hasLabelVariable) {
    scene_.references.push_back({pixel, vertical, text, color});
  }
}

void MarkMaker::smooth(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  if (frame_.axes[0].categorical || frame_.axes[1].categorical) return;
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  double low = INFINITY, high = -INFINITY;
  for (std::size_t row = 0; row < element.rows; ++row) {
    const double x = element.dims[0].number(row);
    const double y = element.dims[1].number(row);
    if (!std::isfinite(x) || !std::isfinite(y)) continue;
    n += 1;
    sx += x;
    sy += y;
    sxx += x * x;
    sxy += x * y;
    low = std::min(low, x);
    high = std::max(high, x);
  }
  if (n < 2 || !(high > low)) return;
  const double meanX = sx / n;
  const double meanY = sy / n;
  const double sxxc = sxx - n * meanX * meanX;
  if (!(sxxc > 0)) return;
  const double slope = (sxy - n * meanX * meanY) / sxxc;
  const double intercept = meanY - slope * meanX;
  const Axis& ax = frame_.axes[0];
  const Axis& ay = frame_.axes[1];
  const std::vector<Point> line = {page(ax.pixel(low), ay.pixel(intercept + slope * low)),
                                   page(ax.pixel(high), ay.pixel(intercept + slope * high))};
  const std::string d = polyline(line);
  if (d.empty()) return;
  const Element& parsed = *element.parsed;
  const std::string color =
      constantColor(parsed.color).empty() ? kDefaultLine : constantColor(parsed.color);
  ++scene_.drawn;
  scene_.add("<path class=\"fit\" d=\"" + d + "\"" +
             lineStyle(color, lineWidthOf(parsed, plot_.right - plot_.left), dashOf(parsed.shape)) +
             "/>");
}

void MarkMaker::intervals(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  const Element& parsed = *element.parsed;
  // The value runs along the linear dimension (dim 2 when both are of one kind).
  const int valueDim = frame_.axes[1].categorical && !frame_.axes[0].categorical ? 0 : 1;
  const Axis& value = frame_.axes[valueDim];
  if (value.categorical) return;
  const double base = value.pixel(std::clamp(0.0, value.low, value.high));
  const double width = barWidth(element);
  const std::string fixedFill = !constantColor(parsed.colorInterior).empty()
                                    ? constantColor(parsed.colorInterior)
                                    : constantColor(parsed.color);
  const std::string fixedStroke = !constantColor(parsed.colorExterior).empty()
                                      ? constantColor(parsed.colorExterior)
                                      : constantColor(parsed.color);
  const bool across = valueDim == frame_.horizontal;  // bars grow across the page
  std::string svg;
  for (std::size_t row = 0; row < element.rows; ++row) {
    const auto along = coord(element, 1 - valueDim, row);
    const auto end = coord(element, valueDim, row);
    if (!along || !end) continue;
    const double clippedEnd = across ? std::clamp(*end, plot_.left, plot_.right)
                                     : std::clamp(*end, plot_.top, plot_.bottom);
    const std::string mapped = element.hasColorVariable ? variableColor(index, row) : "";
    std::string fill =
        !mapped.empty() && element.colorAesthetic != "color.exterior" ? mapped : fixedFill;
    if (fill.empty()) fill = style::paletteColor(0);
    const std::string stroke = fixedStroke.empty() ? "none" : fixedStroke;
    double x, y, w, h;
    if (across) {
      x = std::min(base, clippedEnd);
      w = std::fabs(clippedEnd - base);
      y = *along - width / 2;
      h = width;
    } else {
      y = std::min(base, clippedEnd);
      h = std::fabs(clippedEnd - base);
      x = *along - width / 2;
      w = width;
    }
    ++scene_.drawn;
    svg += "<rect" + num("x", x) + num("y", y) + num("width", w) + num("height", h) +
           attr("fill", fill) + attr("stroke", stroke) + " stroke-width=\"1\"/>";
    const std::string text = labelOf(element, row);
    if (text.empty()) continue;
    TextMark mark;
    mark.text = text;
    mark.size = 11;
    const bool forward = across ? *end >= base : *end <= base;
    if (across) {
      mark.at = {clippedEnd + (forward ? 5 : -5), *along};
      mark.centered = false;
      mark.alignEnd = !forward;
    } else {
      mark.at = {*along, clippedEnd + (forward ? -9 : 9)};
    }
    scene_.texts.push_back(mark);
  }
  if (!svg.empty()) scene_.add("<g class=\"bars\">" + svg + "</g>");
}

void MarkMaker::ranges(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  const Element& parsed = *element.parsed;
  const int valueDim = element.parsed->position.rangeDim;
  if (valueDim < 0 || valueDim > 1 || frame_.axes[valueDim].categorical) return;
  const Axis& value = frame_.axes[valueDim];
  const bool across = valueDim == frame_.horizontal;
  const double width = barWidth(element);
  const bool ibeam = (parsed.shapeInterior.set && parsed.shapeInterior.value == "ibeam") ||
                     (parsed.shape.set && parsed.shape.value == "ibeam");
  double cap = width * 0.4;
  if (parsed.size.set && !parsed.size.isVariable) {
    cap = std::min(style::sizeInPixels(parsed.size.value, cap, width), width * 0.45);
  }
  std::string color = !constantColor(parsed.colorInterior).empty()
                          ? constantColor(parsed.colorInterior)
                          : constantColor(parsed.color);
  if (color.empty()) color = "#222222";
  const double lineWidth = 1.4;
  std::string svg;
  for (std::size_t row = 0; row < element.rows; ++row) {
    const auto along = coord(element, 1 - valueDim, row);
    if (!along) continue;
    const double low = value.pixel(element.low.number(row));
    const double high = value.pixel(element.high.number(row));
    if (!std::isfinite(low) || !std::isfinite(high)) continue;
    const std::string mapped = element.hasColorVariable ? variableColor(index, row) : "";
    const std::string rowColor = mapped.empty() ? color : mapped;
    Point a = page(*along, low);
    Point b = page(*along, high);
    if (!clipSegment(&a, &b, plot_.left, plot_.top, plot_.right, plot_.bottom)) continue;
    ++scene_.drawn;
    if (!ibeam) {
      const double half = width * 0.3;
      const double x = across ? std::min(a.x, b.x) : a.x - half;
      const double y = across ? a.y - half : std::min(a.y, b.y);
      svg += "<rect" + num("x", x) + num("y", y) +
             num("width", across ? std::fabs(b.x - a.x) : 2 * half) +
             num("height", across ? 2 * half : std::fabs(b.y - a.y)) + attr("fill", rowColor) +
             " fill-opacity=\"0.35\"/>";
      continue;
    }
    std::string d = "M" + coordinate(a.x) + " " + coordinate(a.y) + "L" + coordinate(b.x) + " " +
                    coordinate(b.y);
    for (const Point& end : {a, b}) {
      if (across) {
        d += "M" + coordinate(end.x) + " " + coordinate(end.y - cap / 2) + "V" +
             coordinate(end.y + cap / 2);
      } else {
        d += "M" + coordinate(end.x - cap / 2) + " " + coordinate(end.y) + "H" +
             coordinate(end.x + cap / 2);
      }
    }
    svg += "<path d=\"" + d + "\"" + lineStyle(rowColor, lineWidth, "") + "/>";
  }
  if (!svg.empty()) scene_.add("<g class=\"ranges\">" + svg + "</g>");
}

void MarkMaker::edges(std::size_t index) {
  const BoundElement& element = (*plot_.elements)[index];
  const Element& parsed = *element.parsed;
  if (element.dims.size() != 2 || element.to.size() != 2) return;
  const Axis& a0 = frame_.axes[0];
  const Axis& a1 = frame_.axes[1];
  const auto at = [](const Axis& axis, const Binding& binding, std::size_t row) {
    if (axis.categorical) {
      const int i = binding.missing(row) ? -1 : axis.index(binding.text(row));
      return i < 0 ? NAN : axis.center(i);
    }
    return axis.pixel(binding.number(row));
  };
  const std::string fixed = constantColor(parsed.color);
  const bool arrow = parsed.shape.set && !parsed.shape.isVariable &&
                     parsed.shape.value.find("arrow") != std::string::npos;
  for (std::size_t row = 0; row < element.rows; ++row) {
    const double x1 = at(a0, element.dims[0], row);
    const double y1 = at(a1, element.dims[1], row);
    const double x2 = at(a0, element.to[0], row);
    const double y2 = at(a1, element.to[1], row);
    if (!std::isfinite(x1) || !std::isfinite(y1) || !std::isfinite(x2) || !std::isfinite(y2)) {
      continue;
    }
    EdgeMark edge;
    edge.from = page(x1, y1);
    edge.to = page(x2, y2);
    const std::string mapped = element.hasColorVariable ? variableColor(index, row) : "";
    edge.color = !mapped.empty() ? mapped : fixed.empty() ? kDefaultLine : fixed;
    edge.width = lineWidthOf(parsed, plot_.right - plot_.left);
    edge.arrow = arrow;
    edge.dash = dashOf(parsed.shape);
    ++scene_.drawn;
    scene_.edges.push_back(edge);
    scene_.layers.push_back({Layer::Kind::kEdge, "", scene_.edges.size() - 1});
  }
}

}  // namespace

void drawElements(const Plot& plot, Scene* scene) {
  MarkMaker maker(plot, scene);
  for (std::size_t i = 0; i < plot.elements->size(); ++i) maker.element(i);
}

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

// Node boxes fitted to their labels, edges stopped at node borders, and the scene as SVG.
#include "gpl_scene.h"

#include <algorithm>
#include <cmath>

#include "gpl_style.h"
#include "stathost/render.h"

namespace stathost {
namespace gpl {
namespace detail {

namespace {

using style::attr;
using style::coordinate;
using style::num;

constexpr double kNodePadding = 14;
constexpr double kEdgeGap = 3;

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find('\n', start);
    out.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return out;
}

double widestLine(const std::string& text, double size) {
  double widest = 0;
  for (const std::string& line : lines(text))
    widest = std::max(widest, style::textWidth(line, size));
  return widest;
}

bool within(const NodeMark& node, const Point& p) {
  return std::fabs(p.x - node.center.x) <= node.width / 2 + 0.5 &&
         std::fabs(p.y - node.center.y) <= node.height / 2 + 0.5;
}

bool insideShape(const NodeMark& node, const Point& p) {
  const double dx = p.x - node.center.x;
  const double dy = p.y - node.center.y;
  if (!node.round) return std::fabs(dx) < node.width / 2 && std::fabs(dy) < node.height / 2;
  const double a = node.width / 2;
  const double b = node.height / 2;
  return (dx * dx) / (a * a) + (dy * dy) / (b * b) < 1;
}

// How far along from->to (0..1) the segment leaves the node that holds `from`.
double exitAlong(const NodeMark& node, const Point& from, const Point& to) {
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const double px = from.x - node.center.x;
  const double py = from.y - node.center.y;
  if (!node.round) {
    double t = 1;
    const double hw = node.width / 2;
    const double hh = node.height / 2;
    if (dx > 0) t = std::min(t, (hw - px) / dx);
    if (dx < 0) t = std::min(t, (-hw - px) / dx);
    if (dy > 0) t = std::min(t, (hh - py) / dy);
    if (dy < 0) t = std::min(t, (-hh - py) / dy);
    return std::max(0.0, t);
  }
  // Ellipse: solve ((px + t dx) / a)^2 + ((py + t dy) / b)^2 = 1 for the positive root.
  const double a2 = node.width * node.width / 4;
  const double b2 = node.height * node.height / 4;
  const double qa = dx * dx / a2 + dy * dy / b2;
  const double qb = 2 * (px * dx / a2 + py * dy / b2);
  const double qc = px * px / a2 + py * py / b2 - 1;
  if (qa <= 0) return 0;
  const double disc = qb * qb - 4 * qa * qc;
  if (disc < 0) return 0;
  return std::max(0.0, (-qb + std::sqrt(disc)) / (2 * qa));
}

// Moves `end` (inside a node) to the node's border, a little outside it.
void stopAtBorder(const std::vector<NodeMark>& nodes, Point* end, const Point& other) {
  for (const NodeMark& node : nodes) {
    if (!insideShape(node, *end) || insideShape(node, other)) continue;
    const double length = std::hypot(other.x - end->x, other.y - end->y);
    if (length <= 0) return;
    const double t = std::min(1.0, exitAlong(node, *end, other) + kEdgeGap / length);
    *end = {end->x + t * (other.x - end->x), end->y + t * (other.y - end->y)};
    return;
  }
}

std::string nodeSvg(const NodeMark& node) {
  const double x = node.center.x - node.width / 2;
  const double y = node.center.y - node.height / 2;
  std::string paint = attr("fill", node.fill) + attr("stroke", node.stroke) +
                      " stroke-width=\"1.3\"" +
                      (node.opacity < 1 ? num("opacity", node.opacity) : std::string());
  if (node.round && std::fabs(node.width - node.height) < 0.5) {
    return "<circle" + num("cx", node.center.x) + num("cy", node.center.y) +
           num("r", node.width / 2) + paint + "/>";
  }
  const double radius = node.round ? node.height / 2 : 2;
  return "<rect" + num("x", x) + num("y", y) + num("width", node.width) +
         num("height", node.height) + num("rx", radius) + paint + "/>";
}

std::string edgeSvg(const EdgeMark& edge) {
  const double dx = edge.to.x - edge.from.x;
  const double dy = edge.to.y - edge.from.y;
  const double length = std::hypot(dx, dy);
  if (!(length > 0.5)) return "";
  const double ux = dx / length;
  const double uy = dy / length;
  const std::string stroke = attr("stroke", edge.color) + num("stroke-width", edge.width) +
                             (edge.dash.empty() ? "" : attr("stroke-dasharray", edge.dash)) +
                             " stroke-linecap=\"round\"";
  if (!edge.arrow) {
    return "<line" + num("x1", edge.from.x) + num("y1", edge.from.y) + num("x2", edge.to.x) +
           num("y2", edge.to.y) + stroke + "/>";
  }
  const double headLength = std::min(5 + 2.8 * edge.width, length * 0.6);
  const double headHalf = headLength * 0.42;
  const Point base{edge.to.x - ux * headLength, edge.to.y - uy * headLength};
  std::string out;
  if (length > headLength) {
    out += "<line" + num("x1", edge.from.x) + num("y1", edge.from.y) +
           num("x2", base.x + ux * 0.8) + num("y2", base.y + uy * 0.8) + stroke + "/>";
  }
  out += "<path d=\"M" + coordinate(edge.to.x) + " " + coordinate(edge.to.y) + "L" +
         coordinate(base.x - uy * headHalf) + " " + coordinate(base.y + ux * headHalf) + "L" +
         coordinate(base.x + uy * headHalf) + " " + coordinate(base.y - ux * headHalf) + "Z\"" +
         attr("fill", edge.color) + "/>";
  return out;
}

}  // namespace

std::string textSvg(const TextMark& mark) {
  const std::vector<std::string> parts = lines(mark.text);
  const char* anchor = mark.centered ? "middle" : mark.alignEnd ? "end" : "start";
  const double lineHeight = mark.size * 1.2;
  const double firstY = mark.at.y - (parts.size() - 1) * lineHeight / 2;
  std::string out = "<text" + num("x", mark.at.x) + num("y", firstY) + attr("text-anchor", anchor) +
                    num("font-size", mark.size) + attr("fill", mark.color);
  if (mark.halo) {
    out +=
        " stroke=\"#ffffff\" stroke-width=\"3\" stroke-linejoin=\"round\" paint-order=\"stroke\"";
  }
  out += " xml:space=\"preserve\">";
  if (parts.size() == 1)
    return out + "<tspan dy=\".35em\">" + htmlEscape(parts[0]) + "</tspan></text>";
  for (std::size_t i = 0; i < parts.size(); ++i) {
    out += "<tspan" + num("x", mark.at.x) +
           (i == 0 ? std::string(" dy=\".35em\"") : num("dy", lineHeight)) + ">" +
           htmlEscape(parts[i]) + "</tspan>";
  }
  return out + "</text>";
}

void fitNodesAndEdges(Scene* scene) {
  for (NodeMark& node : scene->nodes) {
    const NodeMark original = node;
    for (TextMark& text : scene->texts) {
      if (!text.centered || !within(original, text.at)) continue;
      text.halo = false;
      node.width = std::max(node.width, widestLine(text.text, text.size) + kNodePadding);
    }
  }
  for (EdgeMark& edge : scene->edges) {
    const Point from = edge.from;
    stopAtBorder(scene->nodes, &edge.from, edge.to);
    stopAtBorder(scene->nodes, &edge.to, from);
  }
}

std::string writeScene(const Scene& scene) {
  std::string out;
  for (const std::string& svg : scene.underlay) out += svg + "\n";
  for (const Layer& layer : scene.layers) {
    switch (layer.kind) {
      case Layer::Kind::kSvg:
        out += layer.svg;
        break;
      case Layer::Kind::kNode:
        out += nodeSvg(scene.nodes[layer.index]);
        break;
      case Layer::Kind::kEdge:
        out += edgeSvg(scene.edges[layer.index]);
        break;
    }
    out += "\n";
  }
  if (!scene.texts.empty()) {
    out += "<g class=\"labels\">";
    for (const TextMark& text : scene.texts) out += textSvg(text);
    out += "</g>\n";
  }
  return out;
}

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

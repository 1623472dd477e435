#include "stathost/gpl_chart.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/render.h"

namespace {

using nlohmann::json;
using stathost::gpl::ChartError;
using stathost::gpl::ChartModel;
using stathost::gpl::drawChart;
using stathost::gpl::ElementType;
using stathost::gpl::parseChart;
using stathost::gpl::PositionForm;
using stathost::gpl::ScaleKind;

const std::string kSource = "SOURCE: s = userSource(id(\"Mediation Analysis\"))\n";

std::string data(const std::string& name, bool category = false) {
  return "DATA: " + name + " = col(source(s), name(\"" + name + "\")" +
         (category ? ", unit.category())\n" : ")\n");
}

json numbers(const std::string& name, const std::vector<double>& values) {
  json column = {{"name", name}, {"kind", "double"}, {"values", json::array()}};
  for (double v : values) column["values"].push_back(std::isfinite(v) ? json(v) : json(nullptr));
  return column;
}

json strings(const std::string& name, const std::vector<std::string>& values) {
  return {{"name", name}, {"kind", "string"}, {"values", values}};
}

json chart(const std::string& gpl, const json& columns, const std::string& title = "Chart") {
  return {{"type", "chart"}, {"title", title}, {"gpl", gpl}, {"data", columns}};
}

std::string svgOf(const json& item) {
  const auto drawing = drawChart(item);
  EXPECT_TRUE(drawing.ok) << drawing.problem;
  return drawing.svg;
}

int count(const std::string& text, const std::string& needle) {
  int n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

// The content of the first <g class="name">...</g> group (groups of marks are not nested).
std::string group(const std::string& svg, const std::string& name) {
  const std::string open = "<g class=\"" + name + "\">";
  const size_t start = svg.find(open);
  if (start == std::string::npos) return "";
  const size_t end = svg.find("</g>", start);
  return svg.substr(start + open.size(), end - start - open.size());
}

// Opening tags <name ...> in order, each with the text that follows it up to the next tag.
struct Tag {
  std::string tag;
  std::string content;
};

std::vector<Tag> tags(const std::string& svg, const std::string& name) {
  std::vector<Tag> out;
  const std::string open = "<" + name + " ";
  for (size_t at = svg.find(open); at != std::string::npos; at = svg.find(open, at + 1)) {
    const size_t close = svg.find('>', at);
    if (close == std::string::npos) break;
    Tag tag{svg.substr(at, close + 1 - at), ""};
    size_t text = close + 1;
    if (svg.compare(text, 6, "<tspan") == 0) text = svg.find('>', text) + 1;
    tag.content = svg.substr(text, svg.find('<', text) - text);
    out.push_back(tag);
  }
  return out;
}

// The value of attribute `name` in an opening tag, or "".
std::string attribute(const std::string& tag, const std::string& name) {
  const std::string key = " " + name + "=\"";
  const size_t at = tag.find(key);
  if (at == std::string::npos) return "";
  const size_t start = at + key.size();
  return tag.substr(start, tag.find('"', start) - start);
}

double numberAttribute(const std::string& tag, const std::string& name) {
  const std::string value = attribute(tag, name);
  return value.empty() ? std::numeric_limits<double>::quiet_NaN() : std::stod(value);
}

struct Segment {
  double x1, y1, x2, y2;
};

// Paths drawn as one straight segment "Mx yLx y" whose opening tag contains `marker`.
std::vector<Segment> segments(const std::string& svg, const std::string& marker) {
  std::vector<Segment> out;
  for (const Tag& path : tags(svg, "path")) {
    if (path.tag.find(marker) == std::string::npos) continue;
    const std::string d = attribute(path.tag, "d");
    Segment s{};
    int used = 0;
    if (std::sscanf(d.c_str(), "M%lf %lfL%lf %lf%n", &s.x1, &s.y1, &s.x2, &s.y2, &used) == 4 &&
        used == static_cast<int>(d.size())) {
      out.push_back(s);
    }
  }
  return out;
}

// The x or y of the first <text> whose content is `content`, or NaN.
double textAttribute(const std::string& svg, const std::string& content, const char* name) {
  for (const Tag& text : tags(svg, "text")) {
    if (text.content == content) return numberAttribute(text.tag, name);
  }
  return std::numeric_limits<double>::quiet_NaN();
}

double textY(const std::string& svg, const std::string& content) {
  return textAttribute(svg, content, "y");
}

double textX(const std::string& svg, const std::string& content) {
  return textAttribute(svg, content, "x");
}

struct Box {
  double x, y, width, height;
  std::string fill;
};

// Rectangles placed by x and y (the background, sized in percent, is left out).
std::vector<Box> rects(const std::string& svg) {
  std::vector<Box> out;
  for (const Tag& rect : tags(svg, "rect")) {
    if (attribute(rect.tag, "x").empty()) continue;
    out.push_back({numberAttribute(rect.tag, "x"), numberAttribute(rect.tag, "y"),
                   numberAttribute(rect.tag, "width"), numberAttribute(rect.tag, "height"),
                   attribute(rect.tag, "fill")});
  }
  return out;
}

// The points "Mx y" and "Lx y" of a path's d attribute (other commands are skipped).
std::vector<std::pair<double, double>> pathPoints(const std::string& d) {
  std::vector<std::pair<double, double>> out;
  for (size_t at = 0; at < d.size(); ++at) {
    if (d[at] != 'M' && d[at] != 'L') continue;
    double x = 0, y = 0;
    if (std::sscanf(d.c_str() + at + 1, "%lf %lf", &x, &y) == 2) out.emplace_back(x, y);
  }
  return out;
}

// ---- the forest plot, as the procedure writes it -----------------------------------------

struct ForestRow {
  std::string label;
  double estimate, lower, upper;
};

std::vector<ForestRow> forestRows() {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  return {{"x -> m (a)", 0.6, 0.3, 0.9},
          {"Mediator not available", nan, nan, nan},
          {"NIE (Natural Indirect)", 0.7, 0.4, 1.1},
          {"TE (Total Effect)", 1.2, 0.7, 1.6}};
}

json forestColumns() {
  std::vector<std::string> effect;
  std::vector<double> point, range, null, total;
  for (const ForestRow& row : forestRows()) {
    for (double end : {row.lower, row.upper}) {
      effect.push_back(row.label);
      point.push_back(row.estimate);
      range.push_back(end);
      null.push_back(0);
      total.push_back(1.2);
    }
  }
  return {strings("effect", effect), numbers("pointLoc", point),     strings("effectDup", effect),
          numbers("ciRange", range), strings("effectRange", effect), numbers("xNull", null),
          numbers("xTotal", total)};
}

std::string forestHead() {
  return kSource + data("effect", true) + data("pointLoc") + data("effectDup", true) +
         data("ciRange") + data("effectRange", true) + data("xNull") + data("xTotal");
}

std::string forestGuides() {
  return "GUIDE: axis(dim(1), label(\"\"))\n"
         "GUIDE: axis(dim(2), label(\"Effect Estimate\"))\n"
         "GUIDE: text.title(label(\"Mediation Analysis Forest Plot\"))\n"
         "GUIDE: text.footnote(label(\"95% Point Estimate  -Confidence Interval\"))\n";
}

json transposedForest() {
  const std::string gpl =
      forestHead() + "COORD: transpose()\nSCALE: cat(dim(1), sort.data(), reverse())\n" +
      "SCALE: linear(dim(2), include(0))\n" + forestGuides() +
      "ELEMENT: line(position(ciRange*effectDup), color(color.blue), size(size.\"2pt\"), "
      "split(effectDup))\n"
      "ELEMENT: point(position(pointLoc*effect), size(size.\"8pt\"), shape(shape.square), "
      "color(color.black))\n"
      "ELEMENT: line(position(0*effectRange), color(color.grey), size(size.\"2px\"), "
      "shape(shape.dash), label(\"Null Effect (0)\"))\n"
      "ELEMENT: line(position(1.2000*effectRange), color(color.red), size(size.\"2px\"), "
      "shape(shape.dash), label(\"Total Effect (1.2000)\"))\n";
  return chart(gpl, forestColumns(), "Mediation Analysis Forest Plot");
}

json plainForest() {
  const std::string gpl =
      forestHead() + "SCALE: cat(dim(1))\nSCALE: linear(dim(2), include(0))\n" + forestGuides() +
      "ELEMENT: line(position(effectDup*ciRange), color(color.blue), size(size.\"2pt\"), "
      "split(effectDup))\n"
      "ELEMENT: point(position(effect*pointLoc), size(size.\"8pt\"), shape(shape.square), "
      "color(color.black))\n"
      "ELEMENT: line(position(effectRange*xNull), color(color.grey), size(size.\"2px\"), "
      "shape(shape.dash), label(\"Null Effect (0)\"))\n"
      "ELEMENT: line(position(effectRange*xTotal), color(color.red), size(size.\"2px\"), "
      "shape(shape.dash), label(\"Total Effect (1.2)\"))\n";
  return chart(gpl, forestColumns(), "Mediation Analysis Forest Plot");
}

// ---- parsing -------------------------------------------------------------------------------

TEST(GplParse, SourceAndDataStatements) {
  const ChartModel model = parseChart(kSource + data("xdata") + data("level", true) +
                                      "DATA: nieName=col(source(s), name(\"nie_name\"), "
                                      "unit.category())\nGRAPH: begin()\nGRAPH: end()\n");
  EXPECT_EQ(model.source, "Mediation Analysis");
  ASSERT_EQ(model.variables.size(), 3u);
  EXPECT_EQ(model.variables[0].name, "xdata");
  EXPECT_EQ(model.variables[0].column, "xdata");
  EXPECT_FALSE(model.variables[0].category);
  EXPECT_TRUE(model.variables[1].category);
  EXPECT_EQ(model.variables[2].name, "nieName");
  EXPECT_EQ(model.variables[2].column, "nie_name");
  EXPECT_TRUE(model.variables[2].category);
  EXPECT_TRUE(model.skipped.empty());
  EXPECT_TRUE(model.elements.empty());
}

TEST(GplParse, Guides) {
  const ChartModel model = parseChart(
      "GUIDE: axis(dim(1), label(\"stress\"))\n"
      "GUIDE: axis(dim(2), null())\n"
      "GUIDE: text.title(label(\"Scatter Plot: y vs x\"))\n"
      "GUIDE: text.footnote(label(\"95% Point Estimate  -Confidence Interval\"))\n"
      "GUIDE: text.subfootnote(label(\"Note: mixed scales\"))\n"
      "GUIDE: legend(aesthetic(aesthetic.color.interior), label(\"group\"))\n"
      "GUIDE: legend(aesthetic(aesthetic.color), null())\n");
  EXPECT_EQ(model.axes[0].label, "stress");
  EXPECT_FALSE(model.axes[0].hidden);
  EXPECT_TRUE(model.axes[1].hidden);
  EXPECT_EQ(model.title, "Scatter Plot: y vs x");
  ASSERT_EQ(model.footnotes.size(), 1u);
  EXPECT_EQ(model.footnotes[0], "95% Point Estimate  -Confidence Interval");
  ASSERT_EQ(model.subfootnotes.size(), 1u);
  EXPECT_EQ(model.subfootnotes[0], "Note: mixed scales");
  ASSERT_EQ(model.legends.size(), 2u);
  EXPECT_EQ(model.legends[0].aesthetic, "color.interior");
  EXPECT_EQ(model.legends[0].label, "group");
  EXPECT_FALSE(model.legends[0].hidden);
  EXPECT_EQ(model.legends[1].aesthetic, "color");
  EXPECT_TRUE(model.legends[1].hidden);
}

TEST(GplParse, ScalesAndCoordinates) {
  const ChartModel model = parseChart(
      "SCALE: linear(dim(1), min(0), max(100))\n"
      "SCALE: cat(dim(2), sort.data(), reverse())\n"
      "COORD: rect(dim(1,2), sameRatio(), cluster(3))\n"
      "COORD: transpose()\n");
  EXPECT_EQ(model.scales[0].kind, ScaleKind::kLinear);
  ASSERT_TRUE(model.scales[0].min.has_value());
  EXPECT_EQ(*model.scales[0].min, 0);
  EXPECT_EQ(*model.scales[0].max, 100);
  EXPECT_EQ(model.scales[1].kind, ScaleKind::kCategorical);
  EXPECT_TRUE(model.scales[1].sortData);
  EXPECT_TRUE(model.scales[1].reverse);
  EXPECT_TRUE(model.sameRatio);
  EXPECT_EQ(model.clusterDim, 3);
  EXPECT_TRUE(model.transpose);

  const ChartModel include = parseChart("SCALE: linear(dim(2), include(1.0))\n");
  ASSERT_EQ(include.scales[1].include.size(), 1u);
  EXPECT_EQ(include.scales[1].include[0], 1.0);
}

TEST(GplParse, ColorMaps) {
  const ChartModel model = parseChart(
      "SCALE: cat(aesthetic(aesthetic.color), include(\"0\", \"1\", \"2\", \"3\"), "
      "map((\"0\", color.black), (\"1\", color.blue), (\"2\", color.green), (\"3\", color.red)))\n"
      "SCALE: cat(aesthetic(aesthetic.color.interior), map((\"y=0\", color.lightcoral), "
      "(\"y=1\", color.steelblue)))\n");
  ASSERT_EQ(model.colorMaps.size(), 2u);
  EXPECT_EQ(model.colorMaps[0].aesthetic, "color");
  EXPECT_EQ(model.colorMaps[0].include, (std::vector<std::string>{"0", "1", "2", "3"}));
  ASSERT_EQ(model.colorMaps[0].entries.size(), 4u);
  EXPECT_EQ(model.colorMaps[0].entries[0].second, "#000000");
  EXPECT_EQ(model.colorMaps[1].aesthetic, "color.interior");
  EXPECT_EQ(model.colorMaps[1].entries[0].first, "y=0");
  EXPECT_EQ(model.colorMaps[1].entries[0].second, "#f08080");
  EXPECT_EQ(model.colorMaps[1].entries[1].second, "#4682b4");
}

TEST(GplParse, PointElementAesthetics) {
  const ChartModel model = parseChart(
      data("nodeX") + data("nodeY") + data("nodeName", true) +
      "ELEMENT: point(position(nodeX*nodeY), size(size.\"40pt\"), shape.interior(shape.square), "
      "color.interior(color.white), color.exterior(color.black))\n"
      "ELEMENT: point(position(nodeX*nodeY), label(nodeName), size(size.\"0pt\"), "
      "color(color.black), transparency(transparency.\"1\"))\n"
      "ELEMENT: point(position(nodeX*nodeY), label(nodeName), size(size.tiny), "
      "shape(shape.circle))\n");
  ASSERT_EQ(model.elements.size(), 3u);
  const auto& node = model.elements[0];
  EXPECT_EQ(node.type, ElementType::kPoint);
  EXPECT_EQ(node.line, 4);
  ASSERT_EQ(node.position.dims.size(), 2u);
  EXPECT_TRUE(node.position.dims[0].isVariable);
  EXPECT_EQ(node.position.dims[0].variable, "nodeX");
  EXPECT_EQ(node.size.value, "40pt");
  EXPECT_EQ(node.shapeInterior.value, "square");
  EXPECT_EQ(node.colorInterior.value, "white");
  EXPECT_FALSE(node.colorInterior.isVariable);
  EXPECT_EQ(node.colorExterior.value, "black");
  const auto& label = model.elements[1];
  EXPECT_TRUE(label.label.isVariable);
  EXPECT_EQ(label.label.value, "nodeName");
  EXPECT_EQ(label.size.value, "0pt");
  EXPECT_EQ(label.transparency.value, "1");
  EXPECT_EQ(label.color.value, "black");
  EXPECT_EQ(model.elements[2].size.value, "tiny");
  EXPECT_EQ(model.elements[2].shape.value, "circle");
}

TEST(GplParse, LineForms) {
  const ChartModel model = parseChart(
      data("x") + data("y") + data("effectRange", true) + data("ciRange") +
      data("effectDup", true) +
      "ELEMENT: line(position(smooth.linear(x*y)), color(color.black), size(size.\"2px\"))\n"
      "ELEMENT: line(position(0*effectRange), color(color.grey), size(size.\"2px\"), "
      "shape(shape.dash), label(\"Null Effect (0)\"))\n"
      "ELEMENT: line(position(-0.3512*effectRange), color(color.red), label(\"TE\"))\n"
      "ELEMENT: line(position(ciRange*effectDup), color(color.blue), size(size.\"2pt\"), "
      "split(effectDup))\n");
  ASSERT_EQ(model.elements.size(), 4u);
  EXPECT_EQ(model.elements[0].position.form, PositionForm::kSmoothLinear);
  EXPECT_EQ(model.elements[0].position.dims[1].variable, "y");
  const auto& null = model.elements[1];
  EXPECT_FALSE(null.position.dims[0].isVariable);
  EXPECT_EQ(null.position.dims[0].number, 0);
  EXPECT_EQ(null.shape.value, "dash");
  EXPECT_FALSE(null.label.isVariable);
  EXPECT_EQ(null.label.value, "Null Effect (0)");
  EXPECT_DOUBLE_EQ(model.elements[2].position.dims[0].number, -0.3512);
  EXPECT_TRUE(model.elements[3].split.isVariable);
  EXPECT_EQ(model.elements[3].split.value, "effectDup");
}

TEST(GplParse, IntervalAndEdgeForms) {
  const ChartModel model = parseChart(
      data("outcome_level", true) + data("proportion") + data("mediator_level", true) +
      data("ci_lower") + data("ci_upper") + data("x1") + data("y1") + data("x2") + data("y2") +
      "ELEMENT: interval(position(outcome_level*proportion*mediator_level), "
      "color.interior(outcome_level), color.exterior(color.black))\n"
      "ELEMENT: interval(position(region.spread.range(outcome_level*(ci_lower+ci_upper)*"
      "mediator_level)), shape.interior(shape.ibeam), color.interior(color.black), "
      "size(size.\"0.4in\"))\n"
      "ELEMENT: edge(position(link.join(x1*y1+x2*y2)), color(color.black), size(size.\"2pt\"), "
      "shape(shape.arrow))\n");
  ASSERT_EQ(model.elements.size(), 3u);
  const auto& bars = model.elements[0];
  EXPECT_EQ(bars.type, ElementType::kInterval);
  ASSERT_EQ(bars.position.dims.size(), 3u);
  EXPECT_EQ(bars.position.dims[2].variable, "mediator_level");
  EXPECT_TRUE(bars.colorInterior.isVariable);
  const auto& range = model.elements[1];
  EXPECT_EQ(range.position.form, PositionForm::kSpreadRange);
  EXPECT_EQ(range.position.rangeDim, 1);
  EXPECT_EQ(range.position.low.variable, "ci_lower");
  EXPECT_EQ(range.position.high.variable, "ci_upper");
  EXPECT_EQ(range.shapeInterior.value, "ibeam");
  EXPECT_EQ(range.size.value, "0.4in");
  const auto& edge = model.elements[2];
  EXPECT_EQ(edge.type, ElementType::kEdge);
  EXPECT_EQ(edge.position.form, PositionForm::kLinkJoin);
  EXPECT_EQ(edge.position.dims[1].variable, "y1");
  ASSERT_EQ(edge.position.to.size(), 2u);
  EXPECT_EQ(edge.position.to[0].variable, "x2");
  EXPECT_EQ(edge.shape.value, "arrow");
}

TEST(GplParse, ToleratesUnclosedSizeAndQuotesInLabels) {
  const ChartModel model =
      parseChart(data("a") + data("b") +
                 "ELEMENT: edge(position(link.join(a*b+a*b)), size(size.\"1pt), color(color.gray), "
                 "shape(shape.arrow))\n"
                 "GUIDE: text.title(label(\"Mean of \"score\" by group\"))\n"
                 "GUIDE: axis(dim(1), label(\"a \\\"b\\\" c\"))\n");
  ASSERT_EQ(model.elements.size(), 1u);
  EXPECT_EQ(model.elements[0].size.value, "1pt");
  EXPECT_EQ(model.elements[0].color.value, "gray");
  EXPECT_EQ(model.elements[0].shape.value, "arrow");
  EXPECT_EQ(model.title, "Mean of \"score\" by group");
  EXPECT_EQ(model.axes[0].label, "a \"b\" c");
}

TEST(GplParse, UnsupportedFormsAreSkipped) {
  const ChartModel model =
      parseChart(data("a") + data("b") + "ELEMENT: area(position(a*b))\nTRANS: c = eval(a+1)\n");
  EXPECT_TRUE(model.elements.empty());
  EXPECT_EQ(model.skipped.size(), 2u);
}

TEST(GplParse, SyntaxErrorsNameTheLine) {
  try {
    parseChart(kSource + "ELEMENT: point(position(a*b)\n");
    FAIL() << "no error";
  } catch (const ChartError& error) {
    EXPECT_NE(std::string(error.what()).find("line 2"), std::string::npos) << error.what();
  }
  EXPECT_THROW(parseChart("DATA: = col(source(s))\n"), ChartError);
  EXPECT_THROW(parseChart("GUIDE: axis(dim(1), label(\"open))\n"), ChartError);
  EXPECT_THROW(parseChart("something that is no statement\n"), ChartError);
  EXPECT_THROW(parseChart("COORD: polar.theta()\n"), ChartError);
  EXPECT_THROW(parseChart("ELEMENT: point(position(a*b) @)\n"), ChartError);
}

TEST(GplParse, ContinuationLinesJoinTheirStatement) {
  const ChartModel model =
      parseChart(data("a") + data("b") + "ELEMENT: point(position(a*b),\n  color(color.red))\n");
  ASSERT_EQ(model.elements.size(), 1u);
  EXPECT_EQ(model.elements[0].color.value, "red");
}

TEST(GplColor, NamesAndUnknowns) {
  EXPECT_EQ(stathost::gpl::cssColor("black"), "#000000");
  EXPECT_EQ(stathost::gpl::cssColor("grey"), stathost::gpl::cssColor("gray"));
  EXPECT_EQ(stathost::gpl::cssColor("lightgray"), "#d3d3d3");
  EXPECT_EQ(stathost::gpl::cssColor("steelblue"), "#4682b4");
  EXPECT_EQ(stathost::gpl::cssColor("LightCoral"), "#f08080");
  EXPECT_FALSE(stathost::gpl::cssColor("blue").empty());
  EXPECT_EQ(stathost::gpl::cssColor("notacolour"), "");
}

// ---- drawing -------------------------------------------------------------------------------

TEST(GplDraw, SvgIsScalableAndTitled) {
  const std::string svg = svgOf(transposedForest());
  EXPECT_EQ(svg.rfind("<svg", 0), 0u);
  EXPECT_NE(svg.find("viewBox=\"0 0 640 "), std::string::npos);
  EXPECT_NE(svg.find("width=\"640\""), std::string::npos);
  EXPECT_NE(svg.find(">Mediation Analysis Forest Plot</text>"), std::string::npos);
  EXPECT_NE(svg.find(">Effect Estimate</text>"), std::string::npos);
  EXPECT_NE(svg.find("95% Point Estimate  -Confidence Interval"), std::string::npos);
  EXPECT_EQ(svg.find("nan"), std::string::npos);
}

TEST(GplDraw, TransposedForestRunsCategoriesDownTheSide) {
  const std::string svg = svgOf(transposedForest());
  // Categories top to bottom in data order (reverse() puts the first at the top).
  const std::vector<ForestRow> rows = forestRows();
  double previousY = -1;
  double labelX = std::numeric_limits<double>::quiet_NaN();
  for (const ForestRow& row : rows) {
    const std::string label = stathost::htmlEscape(row.label);
    const double y = textY(svg, label);
    ASSERT_TRUE(std::isfinite(y)) << row.label;
    EXPECT_GT(y, previousY) << row.label;
    previousY = y;
    const double x = textX(svg, label);
    if (std::isfinite(labelX)) {
      EXPECT_DOUBLE_EQ(x, labelX);
    }
    labelX = x;
  }
  // Interval lines run across the page, one per category with finite limits.
  const std::vector<Segment> intervals = segments(group(svg, "lines"), "stroke");
  ASSERT_EQ(intervals.size(), 3u);
  for (const Segment& s : intervals) {
    EXPECT_DOUBLE_EQ(s.y1, s.y2);
    EXPECT_LT(s.x1, s.x2);
    EXPECT_GT(s.x1, labelX);
  }
  // Reference lines are vertical; the null line sits left of the total-effect line.
  const std::vector<Segment> references = segments(svg, "class=\"reference\"");
  ASSERT_EQ(references.size(), 2u);
  EXPECT_DOUBLE_EQ(references[0].x1, references[0].x2);
  EXPECT_DOUBLE_EQ(references[1].x1, references[1].x2);
  EXPECT_LT(references[0].x1, references[1].x1);
  EXPECT_LT(references[0].y1, textY(svg, stathost::htmlEscape(rows.front().label)));
  EXPECT_GT(references[0].y2, textY(svg, stathost::htmlEscape(rows.back().label)));
  EXPECT_NE(svg.find("stroke-dasharray"), std::string::npos);
  EXPECT_NE(svg.find(">Null Effect (0)</text>"), std::string::npos);
  EXPECT_NE(svg.find(">Total Effect (1.2000)</text>"), std::string::npos);
  // Squares for the three finite estimates (each written on two rows); the missing row has none.
  EXPECT_EQ(count(group(svg, "points"), "<rect"), 6);
}

TEST(GplDraw, PlainForestRunsCategoriesAlongTheBottom) {
  const std::string svg = svgOf(plainForest());
  const std::vector<Segment> intervals = segments(group(svg, "lines"), "stroke");
  ASSERT_EQ(intervals.size(), 3u);
  for (const Segment& s : intervals) EXPECT_DOUBLE_EQ(s.x1, s.x2);
  const std::vector<Segment> references = segments(svg, "class=\"reference\"");
  ASSERT_EQ(references.size(), 2u);
  for (const Segment& s : references) EXPECT_DOUBLE_EQ(s.y1, s.y2);
  // The null line (0) lies below the total-effect line (1.2).
  EXPECT_GT(references[0].y1, references[1].y1);
  EXPECT_NE(svg.find(">Total Effect (1.2)</text>"), std::string::npos);
}

json groupedBars(const std::vector<std::string>& outcomeLevels) {
  const std::string gpl =
      kSource + data("mediator_level", true) + data("outcome_level", true) + data("proportion") +
      data("ci_lower") + data("ci_upper") +
      "COORD: rect(dim(1,2), cluster(3))\nSCALE: cat(dim(1))\nSCALE: linear(dim(2), include(0))\n"
      "GUIDE: axis(dim(2), label(\"Proportion (%)\"))\nGUIDE: axis(dim(1), label(\"y\"))\n"
      "GUIDE: text.title(label(\"y by m Quartiles\"))\n"
      "GUIDE: legend(aesthetic(aesthetic.color.interior), label(\"y\"))\n"
      "SCALE: cat(aesthetic(aesthetic.color.interior), map((\"y=0\", color.lightcoral), "
      "(\"y=1\", color.steelblue)))\n"
      "ELEMENT: interval(position(outcome_level*proportion*mediator_level), "
      "color.interior(outcome_level), color.exterior(color.black))\n"
      "ELEMENT: interval(position(region.spread.range(outcome_level*(ci_lower+ci_upper)*"
      "mediator_level)), shape.interior(shape.ibeam), color.interior(color.black), "
      "size(size.\"0.4in\"))\n";
  std::vector<std::string> mediator, outcome;
  std::vector<double> proportion, lower, upper;
  const std::vector<std::string> quartiles = {"M=0: Q1 [1, 2]", "M=1: Q2 [2, 3]", "M=2: Q3 [3, 4]",
                                              "M=3: Q4 [4, 9]"};
  for (size_t q = 0; q < quartiles.size(); ++q) {
    for (size_t k = 0; k < 2; ++k) {
      mediator.push_back(quartiles[q]);
      outcome.push_back(outcomeLevels[k]);
      const double p = k == 0 ? 70.0 - 10 * q : 30.0 + 10 * q;
      proportion.push_back(p);
      lower.push_back(p - 5);
      upper.push_back(p + 5);
    }
  }
  return chart(gpl, {strings("mediator_level", mediator), strings("outcome_level", outcome),
                     numbers("proportion", proportion), numbers("ci_lower", lower),
                     numbers("ci_upper", upper)});
}

TEST(GplDraw, GroupedBarsClusterByMediatorLevel) {
  const std::string svg = svgOf(groupedBars({"y=0", "y=1"}));
  std::vector<Box> bars = rects(group(svg, "bars"));
  ASSERT_EQ(bars.size(), 8u);
  // Rows alternate y=0, y=1 within each quartile: colours follow the map, and each pair sits
  // side by side, left of the next pair.
  for (size_t i = 0; i < bars.size(); ++i) {
    EXPECT_EQ(bars[i].fill, i % 2 == 0 ? "#f08080" : "#4682b4") << i;
    if (i > 0) {
      EXPECT_GT(bars[i].x, bars[i - 1].x + bars[i - 1].width - 0.5) << i;
    }
  }
  const double gapInPair = bars[1].x - (bars[0].x + bars[0].width);
  const double gapBetweenPairs = bars[2].x - (bars[1].x + bars[1].width);
  EXPECT_LT(gapInPair, gapBetweenPairs);
  // All bars stand on one baseline; taller proportions give taller bars.
  EXPECT_NEAR(bars[0].y + bars[0].height, bars[1].y + bars[1].height, 0.2);
  EXPECT_GT(bars[0].height, bars[1].height);
  // The four quartiles label the axis once each; the legend shows the outcome levels.
  EXPECT_EQ(count(svg, ">M=0: Q1 [1, 2]<"), 1);
  EXPECT_NE(group(svg, "legend").find(">y=0</text>"), std::string::npos);
  EXPECT_NE(group(svg, "legend").find(">y=1</text>"), std::string::npos);
  // One error bar (stem and two caps) per bar, centred on it.
  const std::string ranges = group(svg, "ranges");
  EXPECT_EQ(count(ranges, "<path"), 8);
  const std::vector<Tag> stems = tags(ranges, "path");
  ASSERT_FALSE(stems.empty());
  const auto stem = pathPoints(attribute(stems.front().tag, "d"));
  ASSERT_FALSE(stem.empty());
  EXPECT_NEAR(stem.front().first, bars[0].x + bars[0].width / 2, 0.2);
}

TEST(GplDraw, ColourMapKeysMatchByLevelCode) {
  // Levels written as "0"/"1" still take the colours of the map's "y=0"/"y=1".
  std::string svg = svgOf(groupedBars({"0", "1"}));
  std::vector<Box> bars = rects(group(svg, "bars"));
  ASSERT_EQ(bars.size(), 8u);
  EXPECT_EQ(bars[0].fill, "#f08080");
  EXPECT_EQ(bars[1].fill, "#4682b4");
  // Unrelated names take the map's colours in order.
  svg = svgOf(groupedBars({"No", "Yes"}));
  bars = rects(group(svg, "bars"));
  ASSERT_EQ(bars.size(), 8u);
  EXPECT_EQ(bars[0].fill, "#f08080");
  EXPECT_EQ(bars[1].fill, "#4682b4");
}

TEST(GplDraw, MeanBarsCarryValueLabels) {
  const std::string gpl =
      kSource + data("mediator_level", true) + data("outcome_mean") +
      "GUIDE: axis(dim(1), label(\"m (Binary)\"))\nSCALE: cat(dim(1))\n"
      "SCALE: linear(dim(2), include(0))\n"
      "SCALE: cat(aesthetic(aesthetic.color.interior), map((\"m=0\", color.blue), (\"m=1\", "
      "color.orange)))\n"
      "ELEMENT: interval(position(mediator_level*outcome_mean), color.interior(mediator_level), "
      "color.exterior(color.black), shape.interior(shape.square), label(outcome_mean))\n";
  const std::string svg = svgOf(chart(
      gpl, {strings("mediator_level", {"m=0", "m=1"}), numbers("outcome_mean", {12.3456, 15})}));
  const std::vector<Box> bars = rects(group(svg, "bars"));
  ASSERT_EQ(bars.size(), 2u);
  EXPECT_EQ(bars[0].fill, stathost::gpl::cssColor("blue"));
  EXPECT_EQ(bars[1].fill, stathost::gpl::cssColor("orange"));
  EXPECT_NE(svg.find(">12.35<"), std::string::npos);
  EXPECT_NE(svg.find(">15<"), std::string::npos);
  // The colours repeat the axis categories, so no legend is drawn.
  EXPECT_EQ(svg.find("class=\"legend\""), std::string::npos);
}

json pathDiagram(bool typeColours) {
  std::string gpl = kSource +
                    "COORD: rect(dim(1,2), sameRatio())\nSCALE: linear(dim(1), min(0), max(100))\n"
                    "SCALE: linear(dim(2), min(0), max(100))\nGUIDE: axis(dim(1), null())\n"
                    "GUIDE: axis(dim(2), null())\n"
                    "GUIDE: text.title(label(\"Mediation Analysis Path Diagram\"))\n" +
                    data("nodeName", true) + data("nodeX") + data("nodeY") +
                    "ELEMENT: point(position(nodeX*nodeY), size(size.\"40pt\"), "
                    "shape.interior(shape.square), color.interior(color.white), "
                    "color.exterior(color.black))\n"
                    "ELEMENT: point(position(nodeX*nodeY), label(nodeName), size(size.\"0pt\"), "
                    "color(color.black), transparency(transparency.\"1\"))\n" +
                    data("pathX1") + data("pathY1") + data("pathX2") + data("pathY2") +
                    data("pathColorCat", true) + data("pathLabel", true) + data("labelX") +
                    data("labelY");
  if (typeColours) {
    gpl +=
        "SCALE: cat(aesthetic(aesthetic.color), include(\"0\", \"1\", \"2\", \"3\"), "
        "map((\"0\", color.black), (\"1\", color.blue), (\"2\", color.green), (\"3\", "
        "color.red)))\nGUIDE: legend(aesthetic(aesthetic.color), null())\n"
        "ELEMENT: edge(position(link.join(pathX1*pathY1+pathX2*pathY2)), color(pathColorCat), "
        "size(size.\"2pt\"), shape(shape.arrow))\n";
  } else {
    gpl +=
        "ELEMENT: edge(position(link.join(pathX1*pathY1+pathX2*pathY2)), color(color.black), "
        "size(size.\"2pt\"), shape(shape.arrow))\n";
  }
  gpl +=
      "ELEMENT: point(position(labelX*labelY), label(pathLabel), size(size.tiny), "
      "color(color.black), transparency(transparency.\"1\"))\n"
      "DATA: nieX=col(source(s), name(\"nieX\"))\nDATA: nieY=col(source(s), name(\"nieY\"))\n"
      "DATA: nieName=col(source(s), name(\"nieName\"), unit.category())\n"
      "ELEMENT: point(position(nieX*nieY), size(size.\"40pt\"), shape.interior(shape.circle), "
      "color.interior(color.yellow), color.exterior(color.black))\n"
      "ELEMENT: point(position(nieX*nieY), label(nieName), size(size.\"0pt\"), "
      "color(color.black), transparency(transparency.\"1\"))\n";
  return chart(gpl, {strings("nodeName", {"treatment_group_long_name", "m", "y"}),
                     numbers("nodeX", {12, 50, 88}), numbers("nodeY", {40, 80, 40}),
                     numbers("pathX1", {12, 50, 12}), numbers("pathY1", {40, 80, 40}),
                     numbers("pathX2", {50, 88, 88}), numbers("pathY2", {80, 40, 40}),
                     strings("pathColorCat", {"1", "2", "3"}),
                     strings("pathLabel", {"a = 0.5", "b = 0.7", "c' = 0.2"}),
                     numbers("labelX", {28, 72, 50}), numbers("labelY", {62, 62, 36}),
                     numbers("nieX", {50}), numbers("nieY", {15}), strings("nieName", {"NIE"})});
}

TEST(GplDraw, PathDiagramDrawsNodesArrowsAndLabels) {
  const std::string svg = svgOf(pathDiagram(true));
  // No axes on the path diagram.
  EXPECT_EQ(svg.find("class=\"axis\""), std::string::npos);
  // Three node boxes, the first widened to its long name; one circle for the effect node.
  const std::vector<Box> boxes = rects(svg);
  std::vector<Box> nodes;
  for (const Box& box : boxes) {
    if (box.fill == "#ffffff" && box.width < 600) nodes.push_back(box);
  }
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_GT(nodes[0].width, nodes[1].width + 40);
  EXPECT_NEAR(nodes[1].width, 40 * 4.0 / 3.0, 0.2);
  EXPECT_NE(svg.find("<circle"), std::string::npos);
  EXPECT_NE(svg.find(">treatment_group_long_name<"), std::string::npos);
  EXPECT_NE(svg.find(">NIE<"), std::string::npos);
  EXPECT_NE(svg.find(">c&#39; = 0.2<"), std::string::npos);
  // Three arrows: shafts and heads in the mapped colours, no legend (null()).
  const std::vector<Tag> shafts = tags(svg, "line");
  ASSERT_EQ(shafts.size(), 3u);
  EXPECT_EQ(attribute(shafts[0].tag, "stroke"), stathost::gpl::cssColor("blue"));
  EXPECT_EQ(attribute(shafts[1].tag, "stroke"), stathost::gpl::cssColor("green"));
  EXPECT_EQ(attribute(shafts[2].tag, "stroke"), stathost::gpl::cssColor("red"));
  EXPECT_EQ(count(svg, "Z\" fill=\""), 3);
  EXPECT_EQ(svg.find("class=\"legend\""), std::string::npos);
  // The direct path starts at the widened exposure box's right edge, not inside it.
  const double startX = numberAttribute(shafts[2].tag, "x1");
  EXPECT_GE(startX, nodes[0].x + nodes[0].width);
  // The plane keeps one scale both ways: the mediator sits above the other two.
  EXPECT_LT(nodes[1].y, nodes[0].y);
  EXPECT_NEAR(nodes[0].y, nodes[2].y, 0.2);
}

TEST(GplDraw, UniformEdgesAreBlack) {
  const std::string svg = svgOf(pathDiagram(false));
  EXPECT_EQ(count(svg, "stroke=\"#000000\" stroke-width=\"2.7\""), 3);
}

json scatter(const std::vector<double>& x, const std::vector<double>& y,
             const std::vector<double>& exposure, const std::string& legend) {
  const std::string gpl = kSource + data("xdata") + data("ydata") + data("exposure") +
                          "GRAPH: begin()\nGUIDE: axis(dim(2), label(\"y\"))\n"
                          "GUIDE: axis(dim(1), label(\"m\"))\n"
                          "GUIDE: text.title(label(\"Scatter Plot: y vs m\"))\n" +
                          legend +
                          "ELEMENT: line(position(smooth.linear(xdata*ydata)), "
                          "color(color.black), size(size.\"2px\"))\n"
                          "ELEMENT: point(position(xdata*ydata), color(exposure))\nGRAPH: end()\n";
  return chart(gpl, {numbers("xdata", x), numbers("ydata", y), numbers("exposure", exposure)});
}

TEST(GplDraw, ScatterSkipsMissingValues) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::string svg =
      svgOf(scatter({1, 2, nan, 4, 5, 6}, {2, 4.1, 5, nan, 9.8, 12.2}, {0, 1, 0, 1, nan, 1},
                    "GUIDE: legend(aesthetic(aesthetic.color), label(\"x\"))\n"));
  // Rows 3 and 4 have a missing coordinate; row 5 has no colour but is still drawn.
  EXPECT_EQ(count(group(svg, "points"), "<circle"), 4);
  EXPECT_NE(svg.find("class=\"fit\""), std::string::npos);
  EXPECT_EQ(svg.find("nan"), std::string::npos);
  EXPECT_EQ(svg.find("NaN"), std::string::npos);
  EXPECT_EQ(svg.find("inf"), std::string::npos);
  // Exposure codes 0 and 1 get a legend titled by the guide.
  const std::string legend = group(svg, "legend");
  EXPECT_NE(legend.find(">x</text>"), std::string::npos);
  EXPECT_NE(legend.find(">0</text>"), std::string::npos);
  EXPECT_NE(legend.find(">1</text>"), std::string::npos);
}

TEST(GplDraw, LinearAxisTicksAreRoundNumbers) {
  const std::string svg = svgOf(scatter({0.13, 7.9}, {-3.2, 48.7}, {0, 1}, ""));
  const std::string axes = group(svg, "axes");
  for (const char* tick : {">0<", ">2<", ">4<", ">6<", ">0</text>", ">20<", ">40<"}) {
    EXPECT_NE(axes.find(tick), std::string::npos) << tick;
  }
  EXPECT_EQ(axes.find(">0.13<"), std::string::npos);
}

TEST(GplDraw, LegendNullHidesTheLegend) {
  const std::string svg = svgOf(scatter({1, 2, 3}, {1, 2, 3}, {0, 1, 0},
                                        "GUIDE: legend(aesthetic(aesthetic.color), null())\n"));
  EXPECT_EQ(svg.find("class=\"legend\""), std::string::npos);
}

TEST(GplDraw, ManyExposureValuesGetAColourRamp) {
  std::vector<double> x, y, e;
  for (int i = 0; i < 30; ++i) {
    x.push_back(i);
    y.push_back(2 * i + 1);
    e.push_back(i * 1.5);
  }
  const std::string svg = svgOf(scatter(x, y, e, ""));
  const std::string legend = group(svg, "legend");
  EXPECT_GE(count(legend, "<rect"), 20);
  EXPECT_NE(legend.find(">43.5<"), std::string::npos);
  EXPECT_NE(legend.find(">0<"), std::string::npos);
}

TEST(GplDraw, LabelsAreEscaped) {
  const std::string gpl = kSource + data("g", true) + data("v") +
                          "GUIDE: axis(dim(1), label(\"a < b & \\\"c\\\"\"))\n"
                          "GUIDE: text.title(label(\"<script>x</script> & co\"))\n"
                          "GUIDE: text.footnote(label(\"5 < 6 & 7 > 3\"))\n"
                          "ELEMENT: interval(position(g*v), label(g))\n";
  const std::string svg =
      svgOf(chart(gpl, {strings("g", {"<b>bold</b>", "x&y", "\"q\""}), numbers("v", {1, 2, 3})}));
  EXPECT_EQ(svg.find("<script"), std::string::npos);
  EXPECT_EQ(svg.find("<b>"), std::string::npos);
  EXPECT_NE(svg.find("&lt;script&gt;x&lt;/script&gt; &amp; co"), std::string::npos);
  EXPECT_NE(svg.find("a &lt; b &amp; &quot;c&quot;"), std::string::npos);
  EXPECT_NE(svg.find("&lt;b&gt;bold&lt;/b&gt;"), std::string::npos);
  EXPECT_NE(svg.find("x&amp;y"), std::string::npos);
  EXPECT_NE(svg.find("&quot;q&quot;"), std::string::npos);
  EXPECT_NE(svg.find("5 &lt; 6 &amp; 7 &gt; 3"), std::string::npos);
}

TEST(GplDraw, ProblemsGiveAReasonNotAnException) {
  const std::vector<json> broken = {
      json(nullptr),
      json::array(),
      chart("", json::array()),
      chart(kSource + "ELEMENT: point(position(a*b)", json::array()),
      chart(kSource + "ELEMENT: point(position(a*b))", json::array()),
      chart(kSource + data("a") + data("b") + "ELEMENT: point(position(a*b))",
            json::array({numbers("a", {1, 2})})),
      chart(kSource + data("a") + data("b") + "ELEMENT: point(position(a*b))",
            {numbers("a", {NAN, NAN}), numbers("b", {1, NAN})}),
      chart(kSource + data("a") + data("b"), {numbers("a", {1}), numbers("b", {2})}),
      chart(kSource + data("a") + data("b") + "ELEMENT: point(position(a*b))",
            {{{"name", "a"}, {"kind", "double"}, {"values", "oops"}}, 7}),
      chart("GUIDE: text.title(label(\"\xff\xfe\"))\nELEMENT: interval(position(1*2))",
            json::array()),
  };
  for (size_t i = 0; i < broken.size(); ++i) {
    stathost::gpl::ChartDrawing drawing;
    ASSERT_NO_THROW(drawing = drawChart(broken[i])) << i;
    if (!drawing.ok) {
      EXPECT_FALSE(drawing.problem.empty()) << i;
      EXPECT_EQ(drawing.problem.find("nan"), std::string::npos) << i;
    }
  }
  EXPECT_FALSE(drawChart(broken[3]).ok);
  EXPECT_FALSE(drawChart(broken[4]).ok);
  EXPECT_NE(drawChart(broken[4]).problem.find("\"a\""), std::string::npos);
  EXPECT_FALSE(drawChart(broken[5]).ok);
  EXPECT_NE(drawChart(broken[5]).problem.find("\"b\""), std::string::npos);
  EXPECT_FALSE(drawChart(broken[6]).ok);
  EXPECT_FALSE(drawChart(broken[7]).ok);
}

TEST(GplDraw, ElementsThatCannotBeDrawnAreListed) {
  const std::string gpl = kSource + data("a") + data("b") +
                          "ELEMENT: point(position(a*b))\n"
                          "ELEMENT: area(position(a*b))\n"
                          "ELEMENT: line(position(a*c))\n";
  const json item = chart(gpl, {numbers("a", {1, 2}), numbers("b", {3, 4})});
  const auto drawing = drawChart(item);
  ASSERT_TRUE(drawing.ok) << drawing.problem;
  ASSERT_EQ(drawing.omitted.size(), 2u);
  EXPECT_NE(drawing.omitted[0].find("line 6"), std::string::npos) << drawing.omitted[0];
  EXPECT_NE(drawing.omitted[1].find("area"), std::string::npos) << drawing.omitted[1];
  const std::string html = stathost::renderChartHtml(item);
  EXPECT_NE(html.find("Not drawn: line 6"), std::string::npos);
  EXPECT_NE(html.find("<svg"), std::string::npos);
}

TEST(GplDraw, MalformedChartShowsANoteInTheReport) {
  const json item = chart(kSource + "ELEMENT: point(position(a*b)", json::array(), "Broken <one>");
  const std::string html = stathost::renderChartHtml(item);
  EXPECT_NE(html.find("This chart could not be drawn: line 2"), std::string::npos);
  EXPECT_EQ(html.find("<svg"), std::string::npos);
  EXPECT_NE(html.find("Broken &lt;one&gt;"), std::string::npos);
  EXPECT_NE(html.find("<details class=\"gpl\">"), std::string::npos);
}

TEST(GplDraw, ReportShowsTheDrawingAboveFoldedSource) {
  const std::string html = stathost::renderChartHtml(transposedForest());
  const size_t svg = html.find("<svg");
  ASSERT_NE(svg, std::string::npos);
  const size_t dataBlock = html.find("<details class=\"chart-data-block\">");
  const size_t gpl = html.find("<details class=\"gpl\">");
  ASSERT_NE(dataBlock, std::string::npos);
  ASSERT_NE(gpl, std::string::npos);
  EXPECT_LT(svg, dataBlock);
  EXPECT_LT(dataBlock, gpl);
  EXPECT_EQ(html.find("<details class=\"chart-data-block\" open"), std::string::npos);
  EXPECT_EQ(html.find("could not be drawn"), std::string::npos);
}

TEST(GplDraw, FixedScaleClipsLinesToThePlot) {
  const std::string gpl = kSource + data("x") + data("y") +
                          "SCALE: linear(dim(1), min(0), max(10))\n"
                          "SCALE: linear(dim(2), min(0), max(10))\n"
                          "ELEMENT: line(position(x*y))\nELEMENT: point(position(x*y))\n";
  const std::string svg = svgOf(chart(gpl, {numbers("x", {-5, 5, 20}), numbers("y", {5, 5, 5})}));
  // The horizontal axis line is the longest "Mx yHx" run of the axis path.
  const std::vector<Tag> axis = tags(group(svg, "axes"), "path");
  ASSERT_FALSE(axis.empty());
  const std::string runs = attribute(axis.front().tag, "d");
  double left = 0, right = 0;
  for (size_t at = runs.find('M'); at != std::string::npos; at = runs.find('M', at + 1)) {
    double a = 0, y = 0, b = 0;
    if (std::sscanf(runs.c_str() + at, "M%lf %lfH%lf", &a, &y, &b) == 3 && b - a > right - left) {
      left = a;
      right = b;
    }
  }
  ASSERT_GT(right, left);
  int points = 0;
  for (const Tag& path : tags(group(svg, "lines"), "path")) {
    for (const auto& [x, y] : pathPoints(attribute(path.tag, "d"))) {
      EXPECT_GE(x, left - 0.1);
      EXPECT_LE(x, right + 0.1);
      ++points;
    }
  }
  EXPECT_GE(points, 2);
  // Only the point inside the scale is drawn.
  EXPECT_EQ(count(group(svg, "points"), "<circle"), 1);
}

}  // namespace

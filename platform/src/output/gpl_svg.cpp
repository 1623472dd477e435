// A chart item drawn as SVG: the page layout (title, plot area, axes, legend, footnotes) around
// the marks of its elements.
#include <algorithm>
#include <cmath>
#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "gpl_data.h"
#include "gpl_frame.h"
#include "gpl_legend.h"
#include "gpl_scene.h"
#include "gpl_style.h"
#include "stathost/gpl_chart.h"
#include "stathost/render.h"

namespace stathost {
namespace gpl {

namespace {

using detail::Axis;
using detail::BoundElement;
using detail::DataTable;
using detail::Plot;
using detail::Scene;
using style::attr;
using style::coordinate;
using style::num;
using style::text;
using style::textWidth;

constexpr double kWidth = 640;
constexpr double kPad = 14;
constexpr double kTitleSize = 15;
constexpr double kTickSize = 11;
constexpr double kAxisTitleSize = 12;
constexpr double kFootSize = 11;
constexpr double kCategoryLabelMax = 230;
constexpr double kDiagramInset = 30;
constexpr double kBoldFactor = 1.07;
constexpr const char* kInk = "#1c2430";
constexpr const char* kMuted = "#5a6675";
constexpr const char* kAxisColor = "#4a4f57";
constexpr const char* kGridColor = "#e6e9ee";
constexpr const char* kFont =
    "system-ui, -apple-system, 'Segoe UI', Roboto, 'Helvetica Neue', Arial, 'Noto Sans', "
    "'Liberation Sans', 'DejaVu Sans', sans-serif";

struct FootLine {
  std::string text;
  bool sub = false;
};

class ChartPainter {
 public:
  explicit ChartPainter(const nlohmann::json& chart) : chart_(chart), table_(dataOf(chart)) {}

  std::string paint();
  const std::vector<std::string>& omitted() const { return omitted_; }

 private:
  static const nlohmann::json& dataOf(const nlohmann::json& chart);
  void bind();
  void layout();
  std::vector<int> stackReferenceLabels(const Scene& scene) const;
  const Axis& horizontalAxis() const { return plot_.frame.axes[plot_.frame.horizontal]; }
  const Axis& verticalAxis() const { return plot_.frame.axes[plot_.frame.vertical()]; }
  Axis& horizontalAxis() { return plot_.frame.axes[plot_.frame.horizontal]; }
  Axis& verticalAxis() { return plot_.frame.axes[plot_.frame.vertical()]; }

  std::string gridSvg() const;
  std::string axesSvg() const;
  std::string referenceLabelsSvg(const Scene& scene) const;
  std::string titleSvg() const;
  std::string footSvg() const;

  const nlohmann::json& chart_;
  DataTable table_;
  ChartModel model_;
  std::vector<BoundElement> elements_;
  Plot plot_;
  std::vector<detail::Legend> legends_;
  std::string title_;
  std::vector<std::string> titleLines_;
  std::vector<FootLine> footLines_;
  std::vector<std::vector<std::string>> categoryLines_;  // horizontal categorical tick labels
  std::vector<std::string> verticalLabels_;              // vertical categorical tick labels
  double legendWidth_ = 0;
  double tickBlock_ = 0;  // height of the horizontal axis's tick labels
  double height_ = 0;
  bool diagram_ = false;  // both axes hidden
  std::vector<std::string> omitted_;
};

const nlohmann::json& ChartPainter::dataOf(const nlohmann::json& chart) {
  static const nlohmann::json kEmpty = nlohmann::json::array();
  if (!chart.is_object()) return kEmpty;
  const auto data = chart.find("data");
  return data == chart.end() ? kEmpty : *data;
}

void ChartPainter::bind() {
  std::string firstProblem;
  for (const Element& element : model_.elements) {
    try {
      elements_.push_back(detail::bindElement(model_, table_, element));
    } catch (const ChartError& error) {
      if (firstProblem.empty()) firstProblem = error.what();
      omitted_.push_back("line " + std::to_string(element.line) + ": " + error.what());
    }
  }
  for (const std::string& statement : model_.skipped) {
    if (statement.compare(0, 8, "ELEMENT:") != 0) continue;
    omitted_.push_back("not supported: " + style::fitText(statement, 11, 420));
  }
  if (elements_.empty()) {
    if (!firstProblem.empty()) throw ChartError(firstProblem);
    if (!model_.skipped.empty()) {
      throw ChartError("no element of a supported kind (point, line, interval, edge)");
    }
    throw ChartError("the chart has no ELEMENT statement");
  }
  plot_.model = &model_;
  plot_.elements = &elements_;
  plot_.frame = detail::buildFrame(model_, elements_);
  std::map<std::string, std::size_t> byVariable;
  for (std::size_t i = 0; i < elements_.size(); ++i) {
    const BoundElement& element = elements_[i];
    if (!element.hasColorVariable) continue;
    const std::string key = element.color.variable + "\x1f" + element.colorAesthetic;
    const auto known = byVariable.find(key);
    if (known != byVariable.end()) {
      plot_.colors[i] = plot_.colors[known->second];
    } else {
      plot_.colors[i] = detail::buildColorScale(model_, element);
      byVariable[key] = i;
    }
  }
}

std::vector<int> ChartPainter::stackReferenceLabels(const Scene& scene) const {
  std::vector<int> rows(scene.references.size(), -1);
  std::vector<std::vector<std::pair<double, double>>> taken;
  for (std::size_t i = 0; i < scene.references.size(); ++i) {
    const detail::ReferenceLabel& label = scene.references[i];
    if (!label.vertical) continue;
    const double width = textWidth(label.text, kTickSize);
    const double center = std::clamp(label.position, kPad + width / 2, kWidth - kPad - width / 2);
    const double left = center - width / 2 - 4;
    const double right = center + width / 2 + 4;
    int row = 0;
    for (;; ++row) {
      if (row == static_cast<int>(taken.size())) taken.emplace_back();
      bool free = true;
      for (const auto& [l, r] : taken[row]) {
        if (left < r && l < right) free = false;
      }
      if (free) break;
    }
    taken[row].push_back({left, right});
    rows[i] = row;
  }
  return rows;
}

void ChartPainter::layout() {
  // Title and footnotes.
  title_ = model_.title;
  if (title_.empty() && chart_.is_object()) title_ = chart_.value("title", std::string());
  if (!title_.empty()) {
    titleLines_ = style::wrapText(title_, kTitleSize * kBoldFactor, kWidth - 2 * kPad);
  }
  for (const std::string& note : model_.footnotes) {
    for (const std::string& line : style::wrapText(note, kFootSize, kWidth - 2 * kPad)) {
      footLines_.push_back({line, false});
    }
  }
  for (const std::string& note : model_.subfootnotes) {
    for (const std::string& line : style::wrapText(note, kFootSize - 0.5, kWidth - 2 * kPad)) {
      footLines_.push_back({line, true});
    }
  }
  Axis& across = horizontalAxis();
  Axis& down = verticalAxis();
  diagram_ = across.hidden && down.hidden;

  // Left margin: the vertical axis's labels and title.
  double left = kPad;
  if (!down.hidden) {
    double widest = 0;
    if (down.categorical) {
      for (const std::string& category : down.categories) {
        verticalLabels_.push_back(style::fitText(category, kTickSize, kCategoryLabelMax));
        widest = std::max(widest, textWidth(verticalLabels_.back(), kTickSize));
      }
    } else {
      for (double tick : down.ticks.values) {
        widest =
            std::max(widest, textWidth(style::tickLabel(tick, down.ticks.decimals), kTickSize));
      }
    }
    left += widest + 10;
    if (!down.label.empty()) left += 20;
  }
  double right = kWidth - kPad;
  if (!legends_.empty()) right -= legendWidth_ + 18;
  if (!across.hidden && !across.categorical && !across.ticks.values.empty()) {
    const double first =
        textWidth(style::tickLabel(across.ticks.values.front(), across.ticks.decimals), kTickSize);
    const double last =
        textWidth(style::tickLabel(across.ticks.values.back(), across.ticks.decimals), kTickSize);
    left = std::max(left, kPad + first / 2);
    if (legends_.empty()) right = std::min(right, kWidth - kPad - last / 2);
  }
  if (diagram_) {
    left += kDiagramInset;
    right -= kDiagramInset;
  }

  // Sizes of the plot area.
  double plotWidth = right - left;
  double plotHeight = 320;
  if (model_.sameRatio && !across.categorical && !down.categorical) {
    const double ratio = (down.high - down.low) / (across.high - across.low);
    plotHeight = std::max(plotWidth * ratio, 60.0);
    if (plotHeight > 500) {
      plotHeight = 500;
      const double narrower = plotHeight / ratio;
      left += (plotWidth - narrower) / 2;
      plotWidth = narrower;
      right = left + plotWidth;
    }
  } else if (down.categorical) {
    const double n = static_cast<double>(std::max<std::size_t>(1, down.categories.size()));
    const bool clustered = plot_.frame.clustered && plot_.frame.vertical() == 0;
    const double perCategory =
        clustered ? 16.0 * std::max<std::size_t>(1, plot_.frame.inner.size()) + 14 : 30;
    plotHeight = std::clamp(n * perCategory, 90.0, 1400.0);
  }
  plot_.left = left;
  plot_.right = right;
  across.from = left;
  across.to = right;

  // The horizontal axis's tick labels.
  tickBlock_ = 0;
  if (!across.hidden) {
    std::size_t lineCount = 1;
    if (across.categorical) {
      // Lines are wrapped with room to spare; a single long word may use the whole band.
      const double band = across.band();
      for (const std::string& category : across.categories) {
        std::vector<std::string> lines = style::wrapText(category, kTickSize, band - 14);
        if (lines.size() > 3) {
          std::string rest;
          for (std::size_t i = 2; i < lines.size(); ++i) rest += (i > 2 ? " " : "") + lines[i];
          lines.resize(2);
          lines.push_back(rest);
        }
        for (std::string& line : lines) {
          line = style::fitText(line, kTickSize, std::max(band - 2, 24.0));
        }
        lineCount = std::max(lineCount, lines.size());
        categoryLines_.push_back(lines);
      }
    }
    tickBlock_ = 8 + 13.0 * lineCount + 2;
  }

  // Top: the title, then the labels of vertical reference lines above the plot.
  double top = kPad + (titleLines_.empty() ? 0 : 19.0 * titleLines_.size() + 10);
  plot_.top = top;
  plot_.bottom = top + plotHeight;
  down.from = plot_.bottom;
  down.to = plot_.top;
  Scene trial;
  detail::drawElements(plot_, &trial);
  const std::vector<int> rows = stackReferenceLabels(trial);
  const int rowCount = rows.empty() ? 0 : *std::max_element(rows.begin(), rows.end()) + 1;
  if (rowCount > 0) top += 14.0 * rowCount + 4;
  if (diagram_) top += kDiagramInset;
  plot_.top = top;
  plot_.bottom = top + plotHeight;
  down.from = plot_.bottom;
  down.to = plot_.top;

  double bottom = plot_.bottom;
  if (!across.hidden) bottom += tickBlock_ + (across.label.empty() ? 0 : 20);
  if (diagram_) bottom += kDiagramInset;
  if (!footLines_.empty()) bottom += 12 + 14.0 * footLines_.size();
  double legendBottom = plot_.top;
  for (const detail::Legend& legend : legends_) legendBottom += legend.height() + 12;
  height_ = std::max(bottom, legendBottom) + kPad;
}

std::string ChartPainter::gridSvg() const {
  std::string d;
  const Axis& across = horizontalAxis();
  const Axis& down = verticalAxis();
  if (!across.hidden && !across.categorical) {
    for (double tick : across.ticks.values) {
      const double x = across.pixel(tick);
      if (std::fabs(x - plot_.left) < 0.5 && !down.hidden) continue;
      d += "M" + coordinate(x) + " " + coordinate(plot_.top) + "V" + coordinate(plot_.bottom);
    }
  }
  if (!down.hidden && !down.categorical) {
    for (double tick : down.ticks.values) {
      const double y = down.pixel(tick);
      if (std::fabs(y - plot_.bottom) < 0.5 && !across.hidden) continue;
      d += "M" + coordinate(plot_.left) + " " + coordinate(y) + "H" + coordinate(plot_.right);
    }
  }
  if (d.empty()) return "";
  return "<path class=\"grid\" d=\"" + d + "\"" + attr("stroke", kGridColor) +
         " stroke-width=\"1\" fill=\"none\"/>\n";
}

std::string ChartPainter::axesSvg() const {
  std::string out;
  const Axis& across = horizontalAxis();
  const Axis& down = verticalAxis();
  std::string lines;
  if (!down.hidden) {
    lines +=
        "M" + coordinate(plot_.left) + " " + coordinate(plot_.top) + "V" + coordinate(plot_.bottom);
    const std::size_t count = down.categorical ? down.categories.size() : down.ticks.values.size();
    for (std::size_t i = 0; i < count; ++i) {
      const double y =
          down.categorical ? down.center(static_cast<int>(i)) : down.pixel(down.ticks.values[i]);
      lines +=
          "M" + coordinate(plot_.left - 4) + " " + coordinate(y) + "H" + coordinate(plot_.left);
      const std::string label = down.categorical
                                    ? verticalLabels_[i]
                                    : style::tickLabel(down.ticks.values[i], down.ticks.decimals);
      std::string extra = " dy=\".32em\"";
      if (down.categorical && label != down.categories[i]) {
        out += "<g><title>" + htmlEscape(down.categories[i]) + "</title>";
      }
      out += text(plot_.left - 7, y, label, kTickSize, "end", kInk, extra);
      if (down.categorical && label != down.categories[i]) out += "</g>";
    }
    if (!down.label.empty()) {
      const double x = kPad + 9;
      const double y = (plot_.top + plot_.bottom) / 2;
      out += text(
          x, y, down.label, kAxisTitleSize, "middle", kInk,
          " dy=\".35em\" transform=\"rotate(-90 " + coordinate(x) + " " + coordinate(y) + ")\"");
    }
  }
  if (!across.hidden) {
    lines += "M" + coordinate(plot_.left) + " " + coordinate(plot_.bottom) + "H" +
             coordinate(plot_.right);
    const std::size_t count =
        across.categorical ? across.categories.size() : across.ticks.values.size();
    for (std::size_t i = 0; i < count; ++i) {
      const double x = across.categorical ? across.center(static_cast<int>(i))
                                          : across.pixel(across.ticks.values[i]);
      lines +=
          "M" + coordinate(x) + " " + coordinate(plot_.bottom) + "V" + coordinate(plot_.bottom + 4);
      if (across.categorical) {
        const std::vector<std::string>& parts = categoryLines_[i];
        for (std::size_t k = 0; k < parts.size(); ++k) {
          out += text(x, plot_.bottom + 18 + 13.0 * k, parts[k], kTickSize, "middle", kInk);
        }
      } else {
        out += text(x, plot_.bottom + 18,
                    style::tickLabel(across.ticks.values[i], across.ticks.decimals), kTickSize,
                    "middle", kInk);
      }
    }
    if (!across.label.empty()) {
      out += text((plot_.left + plot_.right) / 2, plot_.bottom + tickBlock_ + 15, across.label,
                  kAxisTitleSize, "middle", kInk);
    }
  }
  if (!lines.empty()) {
    out = "<path class=\"axis\" d=\"" + lines + "\"" + attr("stroke", kAxisColor) +
          " stroke-width=\"1\" fill=\"none\"/>\n" + out;
  }
  return out.empty() ? "" : "<g class=\"axes\">" + out + "</g>\n";
}

std::string ChartPainter::referenceLabelsSvg(const Scene& scene) const {
  const std::vector<int> rows = stackReferenceLabels(scene);
  std::string out;
  std::vector<double> usedY;
  for (std::size_t i = 0; i < scene.references.size(); ++i) {
    const detail::ReferenceLabel& label = scene.references[i];
    if (label.vertical) {
      const double width = textWidth(label.text, kTickSize);
      const double x = std::clamp(label.position, kPad + width / 2, kWidth - kPad - width / 2);
      out += text(x, plot_.top - 6 - 14.0 * rows[i], label.text, kTickSize, "middle", label.color);
      continue;
    }
    double y = label.position - 5;
    for (double used : usedY) {
      if (std::fabs(used - y) < 13) y = label.position + 14;
    }
    usedY.push_back(y);
    out += text(plot_.right - 4, y, label.text, kTickSize, "end", label.color,
                " stroke=\"#ffffff\" stroke-width=\"3\" stroke-linejoin=\"round\" "
                "paint-order=\"stroke\"");
  }
  return out.empty() ? "" : "<g class=\"reference-labels\">" + out + "</g>\n";
}

std::string ChartPainter::titleSvg() const {
  std::string out;
  for (std::size_t i = 0; i < titleLines_.size(); ++i) {
    out += text(kWidth / 2, kPad + 13 + 19.0 * i, titleLines_[i], kTitleSize, "middle", kInk,
                " font-weight=\"600\"");
  }
  return out.empty() ? "" : "<g class=\"title\">" + out + "</g>\n";
}

std::string ChartPainter::footSvg() const {
  if (footLines_.empty()) return "";
  std::string out;
  double y = height_ - kPad - 14.0 * footLines_.size() + 10;
  for (const FootLine& line : footLines_) {
    out += text(kPad, y, line.text, line.sub ? kFootSize - 0.5 : kFootSize, "start", kMuted,
                line.sub ? " font-style=\"italic\"" : "");
    y += 14;
  }
  return "<g class=\"footnotes\">" + out + "</g>\n";
}

std::string ChartPainter::paint() {
  if (!chart_.is_object()) throw ChartError("the chart item is not an object");
  const auto gpl = chart_.find("gpl");
  if (gpl == chart_.end() || !gpl->is_string() || gpl->get<std::string>().empty()) {
    throw ChartError("the chart has no GPL statements");
  }
  model_ = parseChart(gpl->get<std::string>());
  bind();
  legends_ = detail::buildLegends(plot_);
  legendWidth_ = detail::legendsWidth(legends_);
  layout();
  Scene scene;
  detail::drawElements(plot_, &scene);
  if (scene.drawn == 0) throw ChartError("every value is missing, so there is nothing to draw");
  detail::fitNodesAndEdges(&scene);

  std::string out = "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"gpl-chart\" viewBox=\"0 0 " +
                    coordinate(kWidth) + " " + coordinate(height_) + "\"" + num("width", kWidth) +
                    num("height", height_) + " role=\"img\"" + attr("aria-label", title_) +
                    attr("font-family", kFont) + ">\n";
  if (!title_.empty()) out += "<title>" + htmlEscape(title_) + "</title>\n";
  out += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  out += titleSvg() + gridSvg();
  out += "<g class=\"marks\">\n" + detail::writeScene(scene) + "</g>\n";
  out += axesSvg() + referenceLabelsSvg(scene) +
         detail::legendsSvg(legends_, plot_.right + 18, plot_.top) + footSvg();
  return out + "</svg>";
}

}  // namespace

ChartDrawing drawChart(const nlohmann::json& chart) {
  ChartDrawing drawing;
  try {
    ChartPainter painter(chart);
    drawing.svg = painter.paint();
    drawing.omitted = painter.omitted();
    drawing.ok = true;
  } catch (const ChartError& error) {
    drawing.problem = error.what();
  } catch (const std::exception& error) {
    drawing.problem = std::string("unexpected failure: ") + error.what();
  }
  return drawing;
}

}  // namespace gpl
}  // namespace stathost

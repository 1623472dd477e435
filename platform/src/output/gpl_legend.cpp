#include "gpl_legend.h"

#include <algorithm>

#include "gpl_style.h"

namespace stathost {
namespace gpl {
namespace detail {

namespace {

using style::attr;
using style::coordinate;
using style::num;
using style::text;
using style::textWidth;

constexpr double kSize = 11;
constexpr double kMaxWidth = 170;
constexpr double kBoldFactor = 1.07;
constexpr double kRowHeight = 17;
constexpr double kRampHeight = 100;
constexpr double kGap = 12;
constexpr const char* kInk = "#1c2430";

const LegendGuide* findLegendGuide(const ChartModel& model, const std::string& aesthetic) {
  for (const LegendGuide& guide : model.legends) {
    if (guide.aesthetic == aesthetic) return &guide;
  }
  for (const LegendGuide& guide : model.legends) {
    if (guide.aesthetic.compare(0, 5, "color") == 0) return &guide;
  }
  return nullptr;
}

double titleHeight(const Legend& legend) { return legend.title.empty() ? 0 : kRowHeight; }

}  // namespace

double Legend::height() const {
  const double body = continuous ? kRampHeight + kGap : kRowHeight * entries.size();
  return titleHeight(*this) + body;
}

std::vector<Legend> buildLegends(const Plot& plot) {
  std::vector<Legend> legends;
  std::vector<std::string> done;
  const std::vector<BoundElement>& elements = *plot.elements;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const BoundElement& element = elements[i];
    if (!element.hasColorVariable) continue;
    if (std::find(done.begin(), done.end(), element.color.variable) != done.end()) continue;
    done.push_back(element.color.variable);
    const LegendGuide* guide = findLegendGuide(*plot.model, element.colorAesthetic);
    if (guide != nullptr && guide->hidden) continue;
    // Colours that only repeat the categories of an axis need no legend of their own.
    bool repeatsAxis = false;
    for (const Binding& dim : element.dims) {
      if (dim.column == element.color.column && !dim.isConstant()) repeatsAxis = true;
    }
    if (repeatsAxis && (guide == nullptr || guide->label.empty())) continue;
    const ColorScale& scale = plot.colors.at(i);
    Legend legend;
    legend.title =
        guide != nullptr && !guide->label.empty() ? guide->label : element.color.variable;
    legend.title = style::fitText(legend.title, kSize * kBoldFactor, kMaxWidth);
    const ElementType type = element.parsed->type;
    legend.swatch = type == ElementType::kInterval ? 'b' : type == ElementType::kPoint ? 'c' : 'l';
    legend.continuous = scale.continuous;
    legend.low = scale.low;
    legend.high = scale.high;
    for (std::size_t k = 0; k < scale.keys.size(); ++k) {
      legend.entries.push_back(
          {style::fitText(scale.keys[k], kSize, kMaxWidth - 18), scale.colors[k]});
    }
    legends.push_back(legend);
  }
  return legends;
}

double legendsWidth(const std::vector<Legend>& legends) {
  double widest = 0;
  for (const Legend& legend : legends) {
    double width = textWidth(legend.title, kSize) * kBoldFactor;
    for (const LegendEntry& entry : legend.entries) {
      width = std::max(width, 18 + textWidth(entry.label, kSize));
    }
    if (legend.continuous) {
      for (double value : {legend.low, legend.high}) {
        width = std::max(width, 20 + textWidth(style::formatValue(value), kSize));
      }
    }
    widest = std::max(widest, std::min(width, kMaxWidth));
  }
  return widest;
}

std::string legendsSvg(const std::vector<Legend>& legends, double x, double y) {
  std::string out;
  for (const Legend& legend : legends) {
    if (!legend.title.empty()) {
      out += text(x, y + 11, legend.title, kSize, "start", kInk, " font-weight=\"600\"");
      y += kRowHeight;
    }
    if (legend.continuous) {
      const int steps = 24;
      for (int s = 0; s < steps; ++s) {
        const double t = 1 - (s + 0.5) / steps;
        out += "<rect" + num("x", x) + num("y", y + 4 + kRampHeight * s / steps) + " width=\"12\"" +
               num("height", kRampHeight / steps + 0.6) + attr("fill", style::rampColor(t)) + "/>";
      }
      const double values[3] = {legend.high, (legend.low + legend.high) / 2, legend.low};
      for (int k = 0; k < 3; ++k) {
        out += text(x + 18, y + 4 + kRampHeight * k / 2, style::formatValue(values[k]), kSize,
                    "start", kInk, " dy=\".32em\"");
      }
      y += kRampHeight + kGap + kGap;
      continue;
    }
    for (const LegendEntry& entry : legend.entries) {
      const double cy = y + 8;
      if (legend.swatch == 'c') {
        out += "<circle" + num("cx", x + 6) + num("cy", cy) + " r=\"5\"" +
               attr("fill", entry.color) + "/>";
      } else if (legend.swatch == 'l') {
        out += "<path d=\"M" + coordinate(x) + " " + coordinate(cy) + "h13\"" +
               attr("stroke", entry.color) + " stroke-width=\"2.5\"/>";
      } else {
        out += "<rect" + num("x", x) + num("y", cy - 6) + " width=\"12\" height=\"12\"" +
               attr("fill", entry.color) + " stroke=\"#333333\" stroke-width=\"0.6\"/>";
      }
      out += text(x + 18, cy, entry.label, kSize, "start", kInk, " dy=\".32em\"");
      y += kRowHeight;
    }
    y += kGap;
  }
  return out.empty() ? "" : "<g class=\"legend\">" + out + "</g>\n";
}

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

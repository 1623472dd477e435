#include "gpl_style.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "stathost/gpl_chart.h"
#include "stathost/render.h"

namespace stathost {
namespace gpl {

std::string cssColor(const std::string& gplName) {
  // Pure primaries are toned down a little so that they print well; the rest are the CSS
  // colours of the same name.
  static const std::map<std::string, std::string> kColors = {
      {"black", "#000000"},       {"white", "#ffffff"},      {"red", "#d62728"},
      {"green", "#2ca02c"},       {"blue", "#1f5fbf"},       {"yellow", "#ffe45c"},
      {"orange", "#ff8c1a"},      {"pink", "#ffc0cb"},       {"purple", "#7b3fa0"},
      {"brown", "#8c564b"},       {"gray", "#808080"},       {"grey", "#808080"},
      {"lightgray", "#d3d3d3"},   {"lightgrey", "#d3d3d3"},  {"darkgray", "#a9a9a9"},
      {"darkgrey", "#a9a9a9"},    {"dimgray", "#696969"},    {"silver", "#c0c0c0"},
      {"steelblue", "#4682b4"},   {"lightcoral", "#f08080"}, {"lightblue", "#add8e6"},
      {"darkblue", "#00008b"},    {"navy", "#000080"},       {"darkred", "#8b0000"},
      {"darkgreen", "#006400"},   {"lightgreen", "#90ee90"}, {"teal", "#008080"},
      {"cyan", "#00bcd4"},        {"aqua", "#00bcd4"},       {"magenta", "#c2185b"},
      {"fuchsia", "#c2185b"},     {"gold", "#ffd700"},       {"lime", "#32cd32"},
      {"maroon", "#800000"},      {"olive", "#808000"},      {"salmon", "#fa8072"},
      {"violet", "#ee82ee"},      {"tan", "#d2b48c"},        {"beige", "#f5f5dc"},
      {"lightyellow", "#ffffe0"}, {"ivory", "#fffff0"},      {"coral", "#ff7f50"},
      {"tomato", "#ff6347"},      {"crimson", "#dc143c"},    {"indigo", "#4b0082"},
      {"turquoise", "#40e0d0"},   {"skyblue", "#87ceeb"},    {"khaki", "#f0e68c"},
      {"orchid", "#da70d6"},      {"plum", "#dda0dd"},       {"lavender", "#e6e6fa"},
      {"darkorange", "#ff8c00"},  {"firebrick", "#b22222"},  {"royalblue", "#4169e1"},
      {"slategray", "#708090"},   {"seagreen", "#2e8b57"},   {"chocolate", "#d2691e"},
  };
  std::string key;
  for (char c : gplName) {
    if (c != '_' && c != ' ') key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  const auto found = kColors.find(key);
  if (found != kColors.end()) return found->second;
  // #rrggbb passes as it is.
  if (key.size() == 7 && key[0] == '#' &&
      std::all_of(key.begin() + 1, key.end(), [](char c) { return std::isxdigit(c) != 0; })) {
    return key;
  }
  return "";
}

namespace style {

std::string paletteColor(std::size_t index) {
  static const char* const kPalette[] = {"#3b6fb6", "#e8833a", "#3a9a5b", "#c8423f", "#8464b0",
                                         "#8c6a4f", "#d673b6", "#7f7f7f", "#b5b534", "#35a8b8"};
  return kPalette[index % (sizeof kPalette / sizeof kPalette[0])];
}

std::string rampColor(double t) {
  // Dark blue through teal to yellow.
  static const double kStops[][3] = {
      {68, 1, 84}, {59, 82, 139}, {33, 145, 140}, {94, 201, 98}, {253, 231, 37}};
  if (!std::isfinite(t)) t = 0;
  t = std::clamp(t, 0.0, 1.0) * 4;
  const int i = std::min(3, static_cast<int>(t));
  const double f = t - i;
  char buffer[8];
  int rgb[3];
  for (int c = 0; c < 3; ++c) {
    rgb[c] = static_cast<int>(std::lround(kStops[i][c] + f * (kStops[i + 1][c] - kStops[i][c])));
  }
  std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x", rgb[0], rgb[1], rgb[2]);
  return buffer;
}

double sizeInPixels(const std::string& size, double fallback, double percentOf) {
  static const std::map<std::string, double> kNamed = {
      {"tiny", 2.7}, {"small", 5.3}, {"medium", 8}, {"large", 13.3}, {"huge", 21.3}};
  const auto named = kNamed.find(size);
  if (named != kNamed.end()) return named->second;
  const char* start = size.c_str();
  char* end = nullptr;
  const double value = std::strtod(start, &end);
  if (end == start || !std::isfinite(value) || value < 0) return fallback;
  std::string unit(end);
  unit.erase(std::remove_if(unit.begin(), unit.end(),
                            [](char c) { return std::isspace(static_cast<unsigned char>(c)); }),
             unit.end());
  if (unit.empty() || unit == "px") return value;
  if (unit == "pt") return value * 4.0 / 3.0;
  if (unit == "in") return value * 96.0;
  if (unit == "cm") return value * 96.0 / 2.54;
  if (unit == "mm") return value * 96.0 / 25.4;
  if (unit == "%") return value / 100.0 * percentOf;
  return fallback;
}

double textWidth(const std::string& text, double fontSize) {
  // Advance widths in em of a common sans-serif face, for the printable ASCII range.
  static const double kWidths[95] = {
      .278, .278, .355, .556, .556,  .889, .667, .191, .333, .333, .389, .584, .278, .333,
      .278, .278, .556, .556, .556,  .556, .556, .556, .556, .556, .556, .556, .278, .278,
      .584, .584, .584, .556, 1.015, .667, .667, .722, .722, .667, .611, .778, .722, .278,
      .5,   .667, .556, .833, .722,  .778, .667, .778, .722, .667, .611, .722, .667, .944,
      .667, .667, .611, .278, .278,  .278, .469, .556, .333, .556, .556, .5,   .556, .556,
      .278, .556, .556, .222, .222,  .5,   .222, .833, .556, .556, .556, .556, .333, .5,
      .278, .556, .5,   .722, .5,    .5,   .5,   .334, .26,  .334, .584};
  double em = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 32 && c < 127) {
      em += kWidths[c - 32];
    } else if ((c & 0xC0) != 0x80) {
      em += 0.6;  // the first byte of any other code point
    }
  }
  // System faces run a little wider than the table.
  return em * fontSize * 1.12;
}

std::vector<std::string> wrapText(const std::string& text, double fontSize, double maxWidth) {
  // Lines are cut at blanks only; the blanks inside a line are kept as written.
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start < text.size() && text[start] == ' ') ++start;
  while (start < text.size()) {
    std::size_t end = text.find(' ', start);
    if (end == std::string::npos) end = text.size();
    while (end < text.size()) {
      std::size_t next = end;
      while (next < text.size() && text[next] == ' ') ++next;
      if (next >= text.size()) break;
      std::size_t wordEnd = text.find(' ', next);
      if (wordEnd == std::string::npos) wordEnd = text.size();
      if (textWidth(text.substr(start, wordEnd - start), fontSize) > maxWidth) break;
      end = wordEnd;
    }
    lines.push_back(text.substr(start, end - start));
    start = end;
    while (start < text.size() && text[start] == ' ') ++start;
  }
  if (lines.empty()) lines.push_back("");
  return lines;
}

std::string fitText(const std::string& text, double fontSize, double maxWidth) {
  if (textWidth(text, fontSize) <= maxWidth) return text;
  const std::string ellipsis = "\xE2\x80\xA6";
  std::string cut = text;
  while (!cut.empty() && textWidth(cut + ellipsis, fontSize) > maxWidth) {
    cut.pop_back();
    while (!cut.empty() && (static_cast<unsigned char>(cut.back()) & 0xC0) == 0x80) cut.pop_back();
    if (!cut.empty() && static_cast<unsigned char>(cut.back()) >= 0xC0) cut.pop_back();
  }
  return cut + ellipsis;
}

namespace {

std::string withoutNegativeZero(std::string text) {
  bool zero = text.size() > 1 && text[0] == '-';
  for (std::size_t i = 1; zero && i < text.size(); ++i) {
    if (text[i] != '0' && text[i] != '.') zero = false;
  }
  return zero ? text.substr(1) : text;
}

std::string stripZeros(std::string text) {
  if (text.find('.') == std::string::npos) return text;
  while (!text.empty() && text.back() == '0') text.pop_back();
  if (!text.empty() && text.back() == '.') text.pop_back();
  return text;
}

}  // namespace

std::string formatValue(double value) {
  if (!std::isfinite(value)) return "";
  if (value == 0) return "0";
  const double magnitude = std::fabs(value);
  char buffer[64];
  if (magnitude >= 1e7 || magnitude < 1e-4) {
    std::snprintf(buffer, sizeof buffer, "%.3g", value);
    return buffer;
  }
  const int decimals = std::clamp(3 - static_cast<int>(std::floor(std::log10(magnitude))), 0, 4);
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  return withoutNegativeZero(stripZeros(buffer));
}

std::string coordinate(double value) {
  if (!std::isfinite(value)) return "0";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.1f", value);
  std::string text = buffer;
  if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
  return withoutNegativeZero(text);
}

double niceStep(double span, int target) {
  if (!(span > 0) || !std::isfinite(span)) return 1;
  const double raw = span / std::max(1, target);
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double normal = raw / magnitude;
  double step = 10;
  if (normal < 1.5) {
    step = 1;
  } else if (normal < 2.25) {
    step = 2;
  } else if (normal < 3.5) {
    step = 2.5;
  } else if (normal < 7.5) {
    step = 5;
  }
  return step * magnitude;
}

Ticks niceTicks(double* low, double* high, bool fixedLow, bool fixedHigh, int target) {
  Ticks ticks;
  if (!(*high > *low)) {
    const double pad = *low == 0 ? 1 : std::fabs(*low) * 0.1;
    if (!fixedLow) *low -= pad;
    if (!fixedHigh) *high += pad;
    if (!(*high > *low)) *high = *low + 1;
  }
  const double step = niceStep(*high - *low, target);
  const double epsilon = step * 1e-9;
  if (!fixedLow) *low = std::floor(*low / step + 1e-9) * step;
  if (!fixedHigh) *high = std::ceil(*high / step - 1e-9) * step;
  const double first = std::ceil(*low / step - 1e-9) * step;
  for (int i = 0; i < 200; ++i) {
    double value = first + i * step;
    if (value > *high + epsilon) break;
    if (std::fabs(value) < epsilon) value = 0;
    ticks.values.push_back(value);
  }
  for (ticks.decimals = 0; ticks.decimals < 10; ++ticks.decimals) {
    const double scaled = step * std::pow(10.0, ticks.decimals);
    if (std::fabs(scaled - std::round(scaled)) < 1e-6 * std::max(1.0, scaled)) break;
  }
  return ticks;
}

std::string tickLabel(double value, int decimals) {
  if (!std::isfinite(value)) return "";
  char buffer[64];
  if (std::fabs(value) >= 1e9) {
    std::snprintf(buffer, sizeof buffer, "%.3g", value);
  } else {
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  }
  return withoutNegativeZero(buffer);
}

std::string attr(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + htmlEscape(value) + "\"";
}

std::string num(const char* name, double value) {
  return std::string(" ") + name + "=\"" + coordinate(value) + "\"";
}

std::string text(double x, double y, const std::string& content, double size, const char* anchor,
                 const std::string& color, const std::string& extra) {
  return "<text" + num("x", x) + num("y", y) + attr("text-anchor", anchor) +
         num("font-size", size) + attr("fill", color) + extra + " xml:space=\"preserve\">" +
         htmlEscape(content) + "</text>";
}

}  // namespace style
}  // namespace gpl
}  // namespace stathost

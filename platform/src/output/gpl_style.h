// Look of the drawn charts: colours, sizes, text metrics, number display, axis ticks and the
// small pieces of SVG every part writes.
#ifndef STATHOST_OUTPUT_GPL_STYLE_H_
#define STATHOST_OUTPUT_GPL_STYLE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace stathost {
namespace gpl {
namespace style {

// Colour i of the palette used when a category has no colour of its own.
std::string paletteColor(std::size_t index);

// A colour on the ramp of a continuous colour scale; t in [0, 1].
std::string rampColor(double t);

// Pixels of a GPL size: "8pt", "2px", "0.4in", "3" (pixels), "tiny", "small", ... . Returns
// fallback when the size is not understood; a percentage is taken of `percentOf`.
double sizeInPixels(const std::string& size, double fallback, double percentOf = 100);

// Estimated width in pixels of a text in the chart's sans-serif face at fontSize pixels.
double textWidth(const std::string& text, double fontSize);

// Splits text into lines no wider than maxWidth (words longer than that stay whole).
std::vector<std::string> wrapText(const std::string& text, double fontSize, double maxWidth);

// Cuts text to maxWidth pixels, ending it with an ellipsis when cut.
std::string fitText(const std::string& text, double fontSize, double maxWidth);

// A data value for display: about four significant digits, no trailing zeros, "" when not
// finite.
std::string formatValue(double value);

// Coordinates in SVG: one decimal, no "-0", "0" for a value that is not finite.
std::string coordinate(double value);

// Tick values of a linear axis over [low, high] and the decimals their labels need.
struct Ticks {
  std::vector<double> values;
  int decimals = 0;
};

// A round step for about `target` intervals over span.
double niceStep(double span, int target);

// Widens [*low, *high] to whole steps (when the ends are not fixed) and lists the ticks.
Ticks niceTicks(double* low, double* high, bool fixedLow, bool fixedHigh, int target);

std::string tickLabel(double value, int decimals);

// Pieces of SVG: ` name="value"` (escaped), ` name="1.5"` (a coordinate), and one line of
// text with its blanks kept.
std::string attr(const char* name, const std::string& value);
std::string num(const char* name, double value);
std::string text(double x, double y, const std::string& content, double size, const char* anchor,
                 const std::string& color, const std::string& extra = "");

}  // namespace style
}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_OUTPUT_GPL_STYLE_H_

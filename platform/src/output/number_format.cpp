#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

#include "stathost/format.h"

namespace stathost {

std::string formatShortest(double value) {
  if (!std::isfinite(value)) return ".";
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string formatNumber(double value, STAX_Format::FormatType type, int width, int decimals) {
  if (!std::isfinite(value)) return ".";
  (void)width;  // the width is a display hint; renderers align the text
  const int d = decimals < 0 ? 0 : (decimals > 16 ? 16 : decimals);
  char buffer[512];
  switch (type) {
    case STAX_Format::FMT_INTEGER:
      std::snprintf(buffer, sizeof buffer, "%.0f", value);
      break;
    case STAX_Format::FMT_SCIENTIFIC:
      std::snprintf(buffer, sizeof buffer, "%.*E", d, value);
      break;
    case STAX_Format::FMT_PERCENT:
      std::snprintf(buffer, sizeof buffer, "%.*f%%", d, value);
      break;
    case STAX_Format::FMT_FIXED:
      // Very large magnitudes would print hundreds of digits; switch to scientific.
      if (std::fabs(value) >= 1e15) {
        std::snprintf(buffer, sizeof buffer, "%.*E", d, value);
      } else {
        std::snprintf(buffer, sizeof buffer, "%.*f", d, value);
      }
      break;
    case STAX_Format::FMT_GENERAL:
    case STAX_Format::FMT_STRING:
    default:
      return formatShortest(value);
  }
  std::string text(buffer);
  // "-0.0000" reads as a sign without a value; show it as zero.
  if (text[0] == '-' && text.find_first_not_of("-0.,%") == std::string::npos) text.erase(0, 1);
  return text;
}

std::string formatSignificant(double value, int digits) {
  char text[40];
  std::snprintf(text, sizeof text, "%.*g", digits, value);
  return text;
}

}  // namespace stathost

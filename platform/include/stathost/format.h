// Number formats shared by variable dictionaries and table cells.
#pragma once

#include <string>

namespace stathost {

struct STAX_Format {
  enum FormatType {
    FMT_STRING = 0,
    FMT_GENERAL = 1,  // shortest text that reads back as the same double
    FMT_INTEGER = 2,
    FMT_SCIENTIFIC = 3,
    FMT_PERCENT = 4,
    FMT_FIXED = 5,  // fixed number of decimals
  };
  FormatType type = FMT_FIXED;
  short width = 8;
  short decimals = 2;
};

// Display text of a number; a value that is not finite shows as ".".
std::string formatNumber(double value, STAX_Format::FormatType type, int width, int decimals);

// Shortest text that reads back as the same double ("0.1", "1e-12", "3").
std::string formatShortest(double value);

// A number with `digits` significant digits, for values quoted in a sentence ("8.255",
// "4.005", "1e-150").
std::string formatSignificant(double value, int digits);

}  // namespace stathost

// The host's in-memory data set: typed columns with their dictionary information.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace stathost {

enum class VarType { kNumeric, kString };

// Numbering follows the usual nominal/ordinal/scale order; kUnknown means "not recorded".
enum class MeasureLevel { kUnknown = 0, kNominal = 1, kOrdinal = 2, kScale = 3 };

const char* measureLevelName(MeasureLevel level);

// Display format of a variable: "F8.2" for numbers, "A12" for strings.
struct VarFormat {
  std::string type = "F";
  int width = 8;
  int decimals = 2;
  std::string toString() const;
};

// User-missing value declarations of one variable.
struct MissingSpec {
  std::vector<double> values;
  std::vector<std::pair<double, double>> ranges;
  std::vector<std::string> strings;

  bool empty() const { return values.empty() && ranges.empty() && strings.empty(); }
  bool isMissing(double value) const;
  bool isMissing(const std::string& value) const;
  std::string describe() const;
};

struct Column {
  std::string name;
  std::string label;
  VarType type = VarType::kNumeric;
  MeasureLevel level = MeasureLevel::kUnknown;
  VarFormat format;
  MissingSpec missing;
  std::vector<std::pair<double, std::string>> numericLabels;
  std::vector<std::pair<std::string, std::string>> stringLabels;
  // Numeric data; a system-missing value is NaN.
  std::vector<double> numbers;
  // String data; an empty string is missing.
  std::vector<std::string> strings;
  // A string column read from a text file: the line of its first field that is not a
  // number, and that field (0 and empty when unknown).
  int firstTextLine = 0;
  std::string firstText;

  bool isNumeric() const { return type == VarType::kNumeric; }
  // True when the value of the case is system- or user-missing.
  bool isMissing(std::size_t row) const;
  std::optional<std::string> valueLabel(double value) const;
};

class Dataset {
 public:
  std::string sourcePath;
  std::vector<Column> columns;
  // The variable the file names as its case weight (a frequency weight); empty when none.
  std::string weightVariable;

  std::size_t caseCount() const;
  // Case-insensitive lookup; -1 when no column has that name.
  int findColumn(const std::string& name) const;
};

// Case-insensitive equality of ASCII names.
bool namesEqual(const std::string& a, const std::string& b);
std::string toUpperAscii(std::string text);

}  // namespace stathost

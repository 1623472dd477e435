#include "stathost/dataset.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <sstream>

#include "stathost/format.h"

namespace stathost {

const char* measureLevelName(MeasureLevel level) {
  switch (level) {
    case MeasureLevel::kNominal:
      return "nominal";
    case MeasureLevel::kOrdinal:
      return "ordinal";
    case MeasureLevel::kScale:
      return "scale";
    case MeasureLevel::kUnknown:
      break;
  }
  return "unknown";
}

std::string VarFormat::toString() const {
  if (type == "A") return "A" + std::to_string(width);
  return type + std::to_string(width) + "." + std::to_string(decimals);
}

bool MissingSpec::isMissing(double value) const {
  if (std::find(values.begin(), values.end(), value) != values.end()) return true;
  return std::any_of(ranges.begin(), ranges.end(),
                     [value](const auto& r) { return value >= r.first && value <= r.second; });
}

bool MissingSpec::isMissing(const std::string& value) const {
  return std::find(strings.begin(), strings.end(), value) != strings.end();
}

std::string MissingSpec::describe() const {
  std::ostringstream out;
  const char* sep = "";
  for (double v : values) {
    out << sep << formatShortest(v);
    sep = ", ";
  }
  for (const auto& r : ranges) {
    out << sep << formatShortest(r.first) << " thru " << formatShortest(r.second);
    sep = ", ";
  }
  for (const auto& s : strings) {
    out << sep << '\'' << s << '\'';
    sep = ", ";
  }
  return out.str();
}

bool Column::isMissing(std::size_t row) const {
  if (isNumeric()) {
    const double v = numbers[row];
    return std::isnan(v) || missing.isMissing(v);
  }
  const std::string& s = strings[row];
  return s.empty() || missing.isMissing(s);
}

std::optional<std::string> Column::valueLabel(double value) const {
  for (const auto& [v, text] : numericLabels) {
    if (v == value) return text;
  }
  return std::nullopt;
}

std::size_t Dataset::caseCount() const {
  if (columns.empty()) return 0;
  const Column& c = columns.front();
  return c.isNumeric() ? c.numbers.size() : c.strings.size();
}

int Dataset::findColumn(const std::string& name) const {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (namesEqual(columns[i].name, name)) return static_cast<int>(i);
  }
  return -1;
}

bool namesEqual(const std::string& a, const std::string& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
           return std::toupper(x) == std::toupper(y);
         });
}

std::string toUpperAscii(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace stathost

#include <cmath>
#include <set>

#include "stathost/data_readers.h"

namespace stathost {
namespace {

bool endsWithCi(const std::string& path, const std::string& ext) {
  return path.size() >= ext.size() &&
         toUpperAscii(path.substr(path.size() - ext.size())) == toUpperAscii(ext);
}

}  // namespace

std::shared_ptr<Dataset> readDataFile(const std::string& path, const ReadOptions& options) {
  for (const char* ext : {".sav", ".zsav", ".dta", ".sas7bdat"}) {
    if (endsWithCi(path, ext)) return readStatFile(path, options);
  }
  return readDelimitedFile(path, options);
}

MeasureLevel inferMeasureLevel(const Column& column) {
  if (!column.isNumeric()) return MeasureLevel::kNominal;
  std::set<double> distinct;
  for (std::size_t i = 0; i < column.numbers.size(); ++i) {
    if (column.isMissing(i)) continue;
    const double v = column.numbers[i];
    if (v != std::floor(v)) return MeasureLevel::kScale;
    distinct.insert(v);
    if (distinct.size() > 24) return MeasureLevel::kScale;
  }
  return MeasureLevel::kNominal;
}

void applyLevelOverrides(Dataset& data, const std::vector<std::string>& names, MeasureLevel level) {
  for (const std::string& name : names) {
    const int index = data.findColumn(name);
    if (index < 0) {
      throw DataError("Variable '" + name + "' named with --" + measureLevelName(level) +
                      " is not in the data file '" + data.sourcePath + "'.");
    }
    Column& c = data.columns[static_cast<std::size_t>(index)];
    if (level == MeasureLevel::kScale && !c.isNumeric()) {
      throw DataError("Variable '" + c.name + "' holds text and cannot be scale.");
    }
    c.level = level;
  }
}

}  // namespace stathost

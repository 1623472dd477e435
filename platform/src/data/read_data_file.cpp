#include <array>
#include <cmath>
#include <set>

#include "stathost/data_readers.h"
#include "stathost/text_encoding.h"

namespace stathost {
namespace {

bool endsWithCi(const std::string& path, const std::string& ext) {
  return path.size() >= ext.size() &&
         toUpperAscii(path.substr(path.size() - ext.size())) == toUpperAscii(ext);
}

// Decodes every text of the data set (see decodeText); `where` names the first text that
// needed the fallback.
class TextDecoder {
 public:
  void decode(std::string& text, const std::string& where) {
    bool fellBack = false;
    if (isValidUtf8(text)) return;
    text = decodeText(text, &fellBack);
    if (fellBack && first_.empty()) first_ = where;
  }
  const std::string& first() const { return first_; }

 private:
  std::string first_;
};

void decodeDatasetText(Dataset& data, std::vector<std::string>* warnings) {
  TextDecoder decoder;
  for (Column& c : data.columns) decoder.decode(c.name, "a variable name");
  for (Column& c : data.columns) {
    decoder.decode(c.label, "the label of " + c.name);
    for (auto& [value, label] : c.numericLabels)
      decoder.decode(label, "a value label of " + c.name);
    for (auto& [value, label] : c.stringLabels) {
      decoder.decode(value, "a labelled value of " + c.name);
      decoder.decode(label, "a value label of " + c.name);
    }
    for (std::string& s : c.missing.strings) decoder.decode(s, "a missing value of " + c.name);
    c.firstText = decodeText(c.firstText);  // a copy of one of the values below
    for (std::size_t row = 0; row < c.strings.size(); ++row) {
      if (isValidUtf8(c.strings[row])) continue;
      decoder.decode(c.strings[row],
                     "the value of " + c.name + " in case " + std::to_string(row + 1));
    }
  }
  decoder.decode(data.weightVariable, "the weight variable's name");
  if (!decoder.first().empty() && warnings) {
    warnings->push_back(data.sourcePath +
                        ": text that is not UTF-8 was read as Windows-1252 (Latin-1), first " +
                        decoder.first() + ".");
  }
}

// A variable named like a keyword gets "_" appended (then "_2", "_3" ... while taken).
void renameReservedNames(Dataset& data, std::vector<std::string>* warnings) {
  std::set<std::string> taken;
  for (const Column& c : data.columns) taken.insert(toUpperAscii(c.name));
  for (Column& c : data.columns) {
    if (!isReservedName(c.name)) continue;
    std::string name = c.name + "_";
    for (int k = 2; taken.count(toUpperAscii(name)); ++k) name = c.name + "_" + std::to_string(k);
    taken.insert(toUpperAscii(name));
    if (warnings) {
      warnings->push_back(data.sourcePath + ": the variable name '" + c.name +
                          "' is a keyword of the command language and cannot name a variable "
                          "in a command; the variable is renamed " +
                          name + ".");
    }
    if (namesEqual(data.weightVariable, c.name)) data.weightVariable = name;
    c.name = name;
  }
}

}  // namespace

bool isReservedName(const std::string& name) {
  static const std::array<const char*, 13> kReserved = {
      "ALL", "AND", "BY", "EQ", "GE", "GT", "LE", "LT", "NE", "NOT", "OR", "TO", "WITH"};
  for (const char* word : kReserved) {
    if (namesEqual(name, word)) return true;
  }
  return false;
}

std::shared_ptr<Dataset> readDataFile(const std::string& path, const ReadOptions& options) {
  std::shared_ptr<Dataset> data;
  for (const char* ext : {".sav", ".zsav", ".dta", ".sas7bdat"}) {
    if (endsWithCi(path, ext)) data = readStatFile(path, options);
  }
  if (!data) data = readDelimitedFile(path, options);
  decodeDatasetText(*data, options.warnings);
  renameReservedNames(*data, options.warnings);
  return data;
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

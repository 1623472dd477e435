// Statistical system files (.sav, .zsav, .dta, .sas7bdat) through ReadStat.
#include <readstat.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>

#include "stathost/data_readers.h"
#include "stathost/text_encoding.h"

namespace stathost {
namespace {

struct ReadContext {
  Dataset* data = nullptr;
  long rowCount = -1;
  // Rows a file of this size can hold (each row takes at least a bit of it): a header that
  // claims more, or a value past it, is damage, not a reason to allocate without bound.
  std::size_t maxRows = 0;
  std::map<int, std::string> labelSetOfColumn;
  std::map<std::string, std::vector<std::pair<double, std::string>>> numericSets;
  std::map<std::string, std::vector<std::pair<std::string, std::string>>> stringSets;
  std::vector<std::string> errors;
  std::string fileEncoding;  // as the file records it; empty when it records none
};

// "F8.2" (system files), "%9.2f" / "%10.0g" (Stata); anything else keeps the default.
VarFormat parseFormat(const char* text, bool numeric, int storageWidth) {
  VarFormat f;
  if (!numeric) return VarFormat{"A", storageWidth > 0 ? storageWidth : 8, 0};
  if (!text || !*text) return f;
  int width = 0, decimals = 0;
  char type[8] = {0};
  if (std::sscanf(text, "%%%d.%d", &width, &decimals) == 2 && width > 0) {
    return VarFormat{"F", width, decimals};
  }
  if (std::sscanf(text, "%7[A-Za-z]%d.%d", type, &width, &decimals) == 3 && width > 0) {
    return VarFormat{"F", width, decimals};
  }
  if (std::sscanf(text, "%7[A-Za-z]%d", type, &width) == 2 && width > 0) {
    return VarFormat{"F", width, 0};
  }
  return f;
}

double numericValue(readstat_value_t value) {
  switch (readstat_value_type(value)) {
    case READSTAT_TYPE_INT8:
      return readstat_int8_value(value);
    case READSTAT_TYPE_INT16:
      return readstat_int16_value(value);
    case READSTAT_TYPE_INT32:
      return readstat_int32_value(value);
    case READSTAT_TYPE_FLOAT:
      return static_cast<double>(readstat_float_value(value));
    case READSTAT_TYPE_DOUBLE:
      return readstat_double_value(value);
    default:
      return std::nan("");
  }
}

int onMetadata(readstat_metadata_t* metadata, void* ctx) {
  auto* c = static_cast<ReadContext*>(ctx);
  c->rowCount = readstat_get_row_count(metadata);
  if (const char* encoding = readstat_get_file_encoding(metadata)) c->fileEncoding = encoding;
  return READSTAT_HANDLER_OK;
}

int onWeightVariable(readstat_variable_t* variable, void* ctx) {
  // A damaged file can point its weight at no variable.
  if (!variable) return READSTAT_HANDLER_OK;
  auto* c = static_cast<ReadContext*>(ctx);
  const char* name = readstat_variable_get_name(variable);
  const int index = readstat_variable_get_index(variable);
  if (name && *name) {
    c->data->weightVariable = name;
  } else if (index >= 0) {
    c->data->weightVariable = "V" + std::to_string(index + 1);
  }
  return READSTAT_HANDLER_OK;
}

// ReadStat hands over the file's bytes unconverted (its own conversion drops the rest of a
// value label at the first byte it cannot convert, and ends the read at such a byte in a
// value): the text is converted here from the encoding the file records. Text that is not
// valid in it stays as it is, for readDataFile's fallback.
void convertFromFileEncoding(Dataset& data, const std::string& encoding) {
  const std::string upper = toUpperAscii(encoding);
  if (upper.empty() || upper == "UTF-8" || upper == "UTF8") return;
  const Utf8Converter converter(encoding);
  if (!converter.usable()) return;
  const auto convert = [&](std::string& text) {
    if (text.empty()) return;
    std::string out;
    if (converter.convert(text, out)) text = std::move(out);
  };
  for (Column& c : data.columns) {
    convert(c.name);
    convert(c.label);
    for (auto& entry : c.numericLabels) convert(entry.second);
    for (auto& [value, label] : c.stringLabels) {
      convert(value);
      convert(label);
    }
    for (std::string& s : c.missing.strings) convert(s);
    for (std::string& s : c.strings) convert(s);
  }
  convert(data.weightVariable);
}

int onVariable(int index, readstat_variable_t* variable, const char* labelSet, void* ctx) {
  auto* c = static_cast<ReadContext*>(ctx);
  Column col;
  // A damaged file can leave a variable without a name; it is then named by position.
  const char* name = readstat_variable_get_name(variable);
  col.name = name && *name ? std::string(name) : "V" + std::to_string(index + 1);
  if (const char* label = readstat_variable_get_label(variable)) col.label = label;
  const bool numeric = readstat_variable_get_type_class(variable) == READSTAT_TYPE_CLASS_NUMERIC;
  col.type = numeric ? VarType::kNumeric : VarType::kString;
  col.format = parseFormat(readstat_variable_get_format(variable), numeric,
                           static_cast<int>(readstat_variable_get_storage_width(variable)));
  switch (readstat_variable_get_measure(variable)) {
    case READSTAT_MEASURE_NOMINAL:
      col.level = MeasureLevel::kNominal;
      break;
    case READSTAT_MEASURE_ORDINAL:
      col.level = MeasureLevel::kOrdinal;
      break;
    case READSTAT_MEASURE_SCALE:
      col.level = MeasureLevel::kScale;
      break;
    default:
      col.level = MeasureLevel::kUnknown;
      break;
  }
  const int ranges = readstat_variable_get_missing_ranges_count(variable);
  for (int i = 0; i < ranges; ++i) {
    readstat_value_t lo = readstat_variable_get_missing_range_lo(variable, i);
    readstat_value_t hi = readstat_variable_get_missing_range_hi(variable, i);
    if (numeric) {
      const double a = numericValue(lo), b = numericValue(hi);
      if (a == b) {
        col.missing.values.push_back(a);
      } else {
        col.missing.ranges.emplace_back(a, b);
      }
    } else if (const char* s = readstat_string_value(lo)) {
      col.missing.strings.emplace_back(s);
    }
  }
  if (c->rowCount > 0 && static_cast<std::size_t>(c->rowCount) <= c->maxRows) {
    if (numeric) {
      col.numbers.assign(static_cast<std::size_t>(c->rowCount), std::nan(""));
    } else {
      col.strings.assign(static_cast<std::size_t>(c->rowCount), std::string());
    }
  }
  if (labelSet && *labelSet) c->labelSetOfColumn[index] = labelSet;
  c->data->columns.push_back(std::move(col));
  return READSTAT_HANDLER_OK;
}

int onValue(int obsIndex, readstat_variable_t* variable, readstat_value_t value, void* ctx) {
  auto* c = static_cast<ReadContext*>(ctx);
  const int index = readstat_variable_get_index(variable);
  if (index < 0 || static_cast<std::size_t>(index) >= c->data->columns.size() || obsIndex < 0) {
    return READSTAT_HANDLER_OK;
  }
  Column& col = c->data->columns[static_cast<std::size_t>(index)];
  const auto row = static_cast<std::size_t>(obsIndex);
  if (row >= c->maxRows) {
    c->errors.emplace_back("more rows than the file can hold");
    return READSTAT_HANDLER_ABORT;
  }
  if (col.isNumeric()) {
    if (col.numbers.size() <= row) col.numbers.resize(row + 1, std::nan(""));
    const bool sysmis =
        readstat_value_is_system_missing(value) || readstat_value_is_tagged_missing(value);
    col.numbers[row] = sysmis ? std::nan("") : numericValue(value);
  } else {
    if (col.strings.size() <= row) col.strings.resize(row + 1);
    const char* s = readstat_string_value(value);
    col.strings[row] = s ? s : "";
  }
  return READSTAT_HANDLER_OK;
}

int onValueLabel(const char* set, readstat_value_t value, const char* label, void* ctx) {
  auto* c = static_cast<ReadContext*>(ctx);
  if (!set || !label) return READSTAT_HANDLER_OK;
  if (readstat_value_type_class(value) == READSTAT_TYPE_CLASS_STRING) {
    const char* s = readstat_string_value(value);
    c->stringSets[set].emplace_back(s ? s : "", label);
  } else if (!readstat_value_is_tagged_missing(value)) {
    c->numericSets[set].emplace_back(numericValue(value), label);
  }
  return READSTAT_HANDLER_OK;
}

void onError(const char* message, void* ctx) {
  static_cast<ReadContext*>(ctx)->errors.emplace_back(message ? message : "");
}

bool hasExtension(const std::string& path, const std::string& ext) {
  return path.size() >= ext.size() &&
         toUpperAscii(path.substr(path.size() - ext.size())) == toUpperAscii(ext);
}

}  // namespace

std::shared_ptr<Dataset> readStatFile(const std::string& path, const ReadOptions&) {
  auto data = std::make_shared<Dataset>();
  data->sourcePath = path;
  ReadContext ctx;
  ctx.data = data.get();
  std::error_code sizeError;
  const auto bytes = std::filesystem::file_size(path, sizeError);
  ctx.maxRows = sizeError ? 0 : static_cast<std::size_t>(bytes) * 8 + 1024;

  readstat_parser_t* parser = readstat_parser_init();
  if (!parser) throw DataError("Cannot read data file '" + path + "': out of memory.");
  readstat_set_metadata_handler(parser, onMetadata);
  readstat_set_variable_handler(parser, onVariable);
  readstat_set_value_handler(parser, onValue);
  readstat_set_value_label_handler(parser, onValueLabel);
  readstat_set_error_handler(parser, onError);
  readstat_set_fweight_handler(parser, onWeightVariable);
  readstat_set_handler_character_encoding(parser, nullptr);

  readstat_error_t status;
  if (hasExtension(path, ".sav") || hasExtension(path, ".zsav")) {
    // An uncompressed file may give its case count as -1 (unknown); ReadStat then reads no
    // case unless a row limit is set, and with one it reads the cases there are.
    readstat_set_row_limit(parser, static_cast<long>(std::min<std::size_t>(ctx.maxRows, LONG_MAX)));
    status = readstat_parse_sav(parser, path.c_str(), &ctx);
  } else if (hasExtension(path, ".dta")) {
    status = readstat_parse_dta(parser, path.c_str(), &ctx);
  } else if (hasExtension(path, ".sas7bdat")) {
    status = readstat_parse_sas7bdat(parser, path.c_str(), &ctx);
  } else {
    readstat_parser_free(parser);
    throw DataError("Cannot read data file '" + path + "': unknown file type.");
  }
  readstat_parser_free(parser);
  if (status != READSTAT_OK) {
    std::string why = readstat_error_message(status);
    if (!ctx.errors.empty()) why += " (" + ctx.errors.front() + ")";
    throw DataError("Cannot read data file '" + path + "': " + why + ".");
  }

  // Columns can end up with different lengths when the file has fewer rows than its
  // header says; pad to the longest so every case has a value (missing) for each column.
  std::size_t rows = 0;
  for (const Column& c : data->columns)
    rows = std::max(rows, c.isNumeric() ? c.numbers.size() : c.strings.size());
  for (std::size_t i = 0; i < data->columns.size(); ++i) {
    Column& c = data->columns[i];
    if (c.isNumeric()) {
      c.numbers.resize(rows, std::nan(""));
    } else {
      c.strings.resize(rows);
    }
    auto set = ctx.labelSetOfColumn.find(static_cast<int>(i));
    if (set != ctx.labelSetOfColumn.end()) {
      c.numericLabels = ctx.numericSets[set->second];
      c.stringLabels = ctx.stringSets[set->second];
    }
    if (c.level == MeasureLevel::kUnknown) c.level = inferMeasureLevel(c);
  }
  convertFromFileEncoding(*data, ctx.fileEncoding);
  return data;
}

}  // namespace stathost

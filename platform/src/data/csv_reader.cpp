// Delimited text files through libcsv (RFC 4180 quoting). Two passes: the first finds
// each column's type, the second stores the values, so no column is held twice.
#include <csv.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>

#include "stathost/data_readers.h"
#include "stathost/format.h"
#include "stathost/text_encoding.h"

namespace stathost {
namespace {

struct Field {
  std::string text;
  bool quoted;
};

using RecordHandler = std::function<void(const std::vector<Field>&, int line)>;

// The delimiter value that stands for "runs of blanks": fields separated by one or more
// spaces or tabs, with blanks at the ends of a line ignored.
constexpr char kWhitespace = ' ';

// Runs of blanks outside quotes as one space, blanks at either end dropped; `quoted`
// carries an open quote over to the next line.
std::string collapseBlanks(const std::string& line, bool& quoted) {
  std::string out;
  out.reserve(line.size());
  bool pendingBlank = false;
  for (char c : line) {
    if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
      pendingBlank = !out.empty();
      continue;
    }
    if (pendingBlank) out.push_back(' ');
    pendingBlank = false;
    if (c == '"') quoted = !quoted;
    out.push_back(c);
  }
  return out;
}

// Feeds the file to libcsv one line at a time so that every record knows the line on
// which it started. A UTF-8 byte-order mark at the start of the file is not data.
class CsvScanner {
 public:
  CsvScanner(const std::string& path, char delimiter) : path_(path), delimiter_(delimiter) {}

  void scan(const RecordHandler& onRecord) {
    std::ifstream in(path_, std::ios::binary);
    if (!in) {
      throw DataError("Cannot open data file '" + path_ + "': " + std::strerror(errno) + ".");
    }
    csv_parser parser;
    if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI | CSV_APPEND_NULL) != 0) {
      throw DataError("Cannot read data file '" + path_ + "': out of memory.");
    }
    csv_set_delim(&parser, static_cast<unsigned char>(delimiter_));
    if (delimiter_ == '\t') {
      csv_set_space_func(&parser, [](unsigned char c) { return c == ' ' ? 1 : 0; });
    }
    onRecord_ = &onRecord;
    record_.clear();
    lastEndLine_ = 0;
    std::string line;
    bool quoted = false;
    try {
      currentLine_ = 0;
      while (std::getline(in, line)) {
        ++currentLine_;
        if (currentLine_ == 1) stripByteOrderMark(line);
        if (delimiter_ == kWhitespace) line = collapseBlanks(line, quoted);
        line.push_back('\n');
        if (csv_parse(&parser, line.data(), line.size(), &CsvScanner::onField,
                      &CsvScanner::onRecordEnd, this) != line.size()) {
          throw DataError(path_ + ", line " + std::to_string(currentLine_) + ", column " +
                          std::to_string(record_.size() + 1) +
                          ": malformed quoted field (a quote inside an unquoted field, or text "
                          "after a closing quote).");
        }
      }
      if (in.bad()) throw DataError("Error while reading data file '" + path_ + "'.");
      if (csv_fini(&parser, &CsvScanner::onField, &CsvScanner::onRecordEnd, this) != 0) {
        throw DataError(path_ + ", line " + std::to_string(lastEndLine_ + 1) + ", column " +
                        std::to_string(record_.size() + 1) +
                        ": a quoted field is not terminated before the end of the file.");
      }
    } catch (...) {
      csv_free(&parser);
      throw;
    }
    csv_free(&parser);
  }

 private:
  static void onField(void* data, std::size_t length, void* self) {
    auto* me = static_cast<CsvScanner*>(self);
    if (me->record_.empty()) me->recordLine_ = me->currentLine_;
    const char* text = static_cast<const char*>(data);
    me->record_.push_back({std::string(text ? text : "", text ? length : 0), false});
  }
  static void onRecordEnd(int, void* self) {
    auto* me = static_cast<CsvScanner*>(self);
    // A line holding only blanks is a blank line, not a record of one empty field.
    const bool blank = me->record_.size() == 1 && me->record_[0].text.empty();
    if (!blank) (*me->onRecord_)(me->record_, me->recordLine_);
    me->record_.clear();
    me->lastEndLine_ = me->currentLine_;
  }

  std::string path_;
  char delimiter_;
  const RecordHandler* onRecord_ = nullptr;
  std::vector<Field> record_;
  int currentLine_ = 0;
  int recordLine_ = 1;
  int lastEndLine_ = 0;
};

std::string trim(const std::string& s) {
  const auto b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  const auto e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

bool isMissingToken(const std::string& t) { return t.empty() || t == "NA" || t == "."; }

enum class NumberParse { kNumber, kNonFinite, kNotNumber };

NumberParse parseNumber(const std::string& t, double& value) {
  const char* begin = t.c_str();
  char* end = nullptr;
  errno = 0;
  value = std::strtod(begin, &end);
  if (end == begin || *end != '\0') return NumberParse::kNotNumber;
  // strtod accepts hexadecimal floats; data files do not mean them.
  if (t.find_first_of("xX") != std::string::npos) return NumberParse::kNotNumber;
  if (!std::isfinite(value)) return NumberParse::kNonFinite;
  return NumberParse::kNumber;
}

int decimalsOf(const std::string& t) {
  if (t.find_first_of("eE") != std::string::npos) return 2;
  const auto dot = t.find('.');
  return dot == std::string::npos ? 0 : static_cast<int>(t.size() - dot - 1);
}

bool isValidName(const std::string& name) {
  if (name.empty()) return false;
  const unsigned char first = static_cast<unsigned char>(name[0]);
  if (!std::isalpha(first) && first != '_' && first != '@' && first != '#' && first != '$' &&
      first < 0x80) {
    return false;
  }
  return std::all_of(name.begin(), name.end(),
                     [](unsigned char c) {
                       return std::isalnum(c) || c == '_' || c == '.' || c == '@' || c == '#' ||
                              c == '$' || c >= 0x80;
                     }) &&
         name.back() != '.';
}

struct ColumnSurvey {
  bool numeric = true;
  int decimals = 0;
  int width = 1;
  int firstTextLine = 0;  // the line of the first field that is not a number
  std::string firstText;
};

bool holdsNul(const std::string& field) { return field.find('\0') != std::string::npos; }

// Delimiters counted outside double quotes.
struct DelimiterCounts {
  std::size_t comma = 0, semicolon = 0, tab = 0;
  bool blankBetweenWords = false;
};

DelimiterCounts countDelimiters(const std::string& header) {
  DelimiterCounts n;
  bool quoted = false;
  bool sawWord = false, blankAfterWord = false;
  for (char c : header) {
    if (c == '"') quoted = !quoted;
    if (quoted) continue;
    if (c == ',') ++n.comma;
    if (c == ';') ++n.semicolon;
    if (c == '\t') ++n.tab;
    if (c == ' ' || c == '\t' || c == '\r') {
      blankAfterWord = sawWord;
    } else {
      if (blankAfterWord) n.blankBetweenWords = true;
      sawWord = true;
    }
  }
  return n;
}

// The first line of the file, without a byte-order mark; empty when there is none.
std::string headerLine(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  std::getline(in, line);
  stripByteOrderMark(line);
  return line;
}

// How the fields of a line are separated, in words for messages.
std::string delimiterName(char delimiter) {
  switch (delimiter) {
    case ',':
      return "commas";
    case ';':
      return "semicolons";
    case '\t':
      return "tabs";
    case kWhitespace:
      return "blanks";
    default:
      return std::string("'") + delimiter + "'";
  }
}

// The delimiter asked for; tab for .tsv and .tab; otherwise the one the header line uses:
// the most frequent of comma, semicolon and tab (a tie goes to the earlier of the three),
// or runs of blanks when the header holds none of them but blank-separated names.
char chooseDelimiter(const std::string& path, char requested) {
  if (requested != 0) return requested;
  auto endsWith = [&](const char* ext) {
    const std::size_t n = std::strlen(ext);
    if (path.size() < n) return false;
    std::string tail = path.substr(path.size() - n);
    return toUpperAscii(tail) == toUpperAscii(ext);
  };
  if (endsWith(".tsv") || endsWith(".tab")) return '\t';
  const DelimiterCounts n = countDelimiters(headerLine(path));
  if (n.comma == 0 && n.semicolon == 0 && n.tab == 0) {
    return n.blankBetweenWords ? kWhitespace : ',';
  }
  if (n.comma >= n.semicolon && n.comma >= n.tab) return ',';
  return n.semicolon >= n.tab ? ';' : '\t';
}

}  // namespace

std::shared_ptr<Dataset> readDelimitedFile(const std::string& path, const ReadOptions& options) {
  const char delimiter = chooseDelimiter(path, options.delimiter);
  CsvScanner scanner(path, delimiter);
  auto data = std::make_shared<Dataset>();
  data->sourcePath = path;

  // Pass 1: header, record shape and column types.
  std::vector<std::string> names;
  std::vector<ColumnSurvey> survey;
  std::size_t rows = 0;
  bool haveHeader = false;
  scanner.scan([&](const std::vector<Field>& record, int line) {
    if (!haveHeader) {
      haveHeader = true;
      std::set<std::string> seen;
      for (std::size_t i = 0; i < record.size(); ++i) {
        std::string name = trim(record[i].text);
        const std::string where =
            path + ", line " + std::to_string(line) + ", column " + std::to_string(i + 1) + ": ";
        if (name.empty()) throw DataError(where + "the header has an empty variable name.");
        if (!isValidName(name)) {
          throw DelimiterError(where + "'" + name +
                               "' is not a valid variable name (use letters, digits and _ . @ # "
                               "$, starting with a letter). The header was split at " +
                               delimiterName(delimiter) + ".");
        }
        if (!seen.insert(toUpperAscii(name)).second) {
          throw DataError(where + "the variable name '" + name +
                          "' occurs twice in the header (names ignore case).");
        }
        names.push_back(name);
      }
      survey.resize(names.size());
      return;
    }
    if (record.size() != names.size()) {
      throw DataError(path + ", line " + std::to_string(line) + ": the row has " +
                      std::to_string(record.size()) + " fields, but the header has " +
                      std::to_string(names.size()) + ".");
    }
    for (std::size_t i = 0; i < record.size(); ++i) {
      const std::string t = trim(record[i].text);
      ColumnSurvey& s = survey[i];
      s.width = std::max<int>(s.width, static_cast<int>(std::min<std::size_t>(t.size(), 32767)));
      if (!s.numeric || isMissingToken(t)) continue;
      double v;
      const NumberParse kind = holdsNul(t) ? NumberParse::kNotNumber : parseNumber(t, v);
      if (kind == NumberParse::kNotNumber) {
        s.numeric = false;
        s.firstTextLine = line;
        s.firstText = t;
        if (holdsNul(t) && options.warnings) {
          options.warnings->push_back(path + ", line " + std::to_string(line) + ", column " +
                                      std::to_string(i + 1) + " (" + names[i] +
                                      "): the field holds a NUL byte, so it is not a number; " +
                                      names[i] + " is read as text.");
        }
      } else if (kind == NumberParse::kNumber) {
        s.decimals = std::max(s.decimals, std::min(decimalsOf(t), 16));
      }
    }
    ++rows;
  });
  if (!haveHeader) {
    throw DataError("The data file '" + path + "' is empty: it has no header row.");
  }

  // Pass 2: values.
  data->columns.resize(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    Column& c = data->columns[i];
    c.name = names[i];
    c.type = survey[i].numeric ? VarType::kNumeric : VarType::kString;
    if (c.isNumeric()) {
      c.format = VarFormat{"F", std::max(8, survey[i].width), survey[i].decimals};
      c.numbers.reserve(rows);
    } else {
      c.format = VarFormat{"A", survey[i].width, 0};
      c.strings.reserve(rows);
      c.firstTextLine = survey[i].firstTextLine;
      c.firstText = survey[i].firstText;
    }
  }
  bool header = true;
  scanner.scan([&](const std::vector<Field>& record, int line) {
    if (header) {
      header = false;
      return;
    }
    for (std::size_t i = 0; i < record.size(); ++i) {
      Column& c = data->columns[i];
      const std::string t = trim(record[i].text);
      if (!c.isNumeric()) {
        c.strings.push_back(t == "NA" || t == "." ? std::string() : t);
        continue;
      }
      double v = std::nan("");
      if (!isMissingToken(t) && parseNumber(t, v) != NumberParse::kNumber) {
        v = std::nan("");
        if (options.warnings) {
          options.warnings->push_back(path + ", line " + std::to_string(line) + ", column " +
                                      std::to_string(i + 1) + " (" + c.name + "): the value '" + t +
                                      "' is not a finite number and is treated as missing.");
        }
      }
      c.numbers.push_back(v);
    }
  });
  for (Column& c : data->columns) c.level = inferMeasureLevel(c);
  return data;
}

}  // namespace stathost

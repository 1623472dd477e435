// Readers that load a data file into a Dataset.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "stathost/dataset.h"

namespace stathost {

// A data problem the user must fix; the text names the file and, where it applies, the
// line and column.
class DataError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The header row of a delimited file does not split into variable names at the delimiter
// used: most often the file uses another one.
class DelimiterError : public DataError {
 public:
  using DataError::DataError;
};

struct ReadOptions {
  // Field delimiter for text files; 0 chooses by extension (tab for .tsv/.tab) or else by
  // the header line (the most frequent of comma, semicolon and tab; runs of blanks when it
  // has none of them). ' ' means runs of blanks.
  char delimiter = 0;
  // Warnings found while reading (non-finite numbers treated as missing and the like).
  std::vector<std::string>* warnings = nullptr;
};

// Reads .csv/.txt/.tsv/.tab as delimited text and .sav/.zsav/.dta/.sas7bdat through ReadStat,
// then makes its text UTF-8 (text that is not is read as Windows-1252, with a warning) and
// renames variables whose names are keywords of the command language (with a warning).
std::shared_ptr<Dataset> readDataFile(const std::string& path, const ReadOptions& options = {});
std::shared_ptr<Dataset> readDelimitedFile(const std::string& path, const ReadOptions& options);
std::shared_ptr<Dataset> readStatFile(const std::string& path, const ReadOptions& options);

// Names that commands reserve as keywords (BY, WITH, TO, ALL and the logical and
// relational operators): no variable can be named so in a command.
bool isReservedName(const std::string& name);

// Sets the measurement level of the named variables; throws DataError naming an unknown
// variable or a string variable declared scale.
void applyLevelOverrides(Dataset& data, const std::vector<std::string>& names, MeasureLevel level);

// Level for a variable whose file records none: strings are nominal, whole numbers with at
// most 24 distinct values nominal, other numbers scale.
MeasureLevel inferMeasureLevel(const Column& column);

}  // namespace stathost

// Bytes as a delimited text file: header, quoting, numbers, missing values, ragged rows.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "stathost/data_readers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string path = fuzzsupport::writeTemporary(bytes, size, ".csv");
  std::vector<std::string> warnings;
  stathost::ReadOptions options;
  options.warnings = &warnings;
  try {
    const auto data = stathost::readDataFile(path, options);
    for (const stathost::Column& c : data->columns) {
      for (std::size_t row = 0; row < data->caseCount() && row < 64; ++row) (void)c.isMissing(row);
    }
  } catch (const stathost::DataError&) {
    // A refused file is the expected answer to most inputs.
  }
  return 0;
}

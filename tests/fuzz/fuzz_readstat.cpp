// Bytes as a binary data file, read through the ReadStat path: the first byte picks the
// format (.sav, .zsav, .dta or .sas7bdat), the rest is the file.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "stathost/data_readers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size < 1) return 0;
  static const char* const kExtensions[] = {".sav", ".zsav", ".dta", ".sas7bdat"};
  const std::string path =
      fuzzsupport::writeTemporary(bytes + 1, size - 1, kExtensions[bytes[0] % 4]);
  try {
    const auto data = stathost::readDataFile(path);
    for (const stathost::Column& c : data->columns) {
      for (std::size_t row = 0; row < data->caseCount() && row < 64; ++row) (void)c.isMissing(row);
    }
  } catch (const stathost::DataError&) {
  }
  return 0;
}

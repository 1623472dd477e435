#include "sav_file.h"

#include <readstat.h>

#include <cmath>
#include <cstdio>
#include <fstream>

namespace testsupport {
namespace {

ssize_t writeBytes(const void* bytes, size_t length, void* ctx) {
  return static_cast<ssize_t>(std::fwrite(bytes, 1, length, static_cast<FILE*>(ctx)));
}

// The case count of an uncompressed .sav header: a 4-byte integer after the record type
// (4), product name (60), layout code (4), case size (4), compression (4) and weight
// index (4).
constexpr std::streamoff kCaseCountOffset = 80;

}  // namespace

bool writeSavFile(const std::string& path, const SavFile& options, int cases) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  readstat_writer_t* writer = readstat_writer_init();
  readstat_set_data_writer(writer, writeBytes);
  readstat_label_set_t* labels = readstat_add_label_set(writer, READSTAT_TYPE_DOUBLE, "xlbl");
  readstat_label_double_value(labels, 1, options.latin1Text ? "caf\xE9" : "cafe");
  readstat_label_double_value(labels, 2, "tea");
  readstat_variable_t* x = readstat_add_variable(writer, "x", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_label_set(x, labels);
  readstat_variable_set_measure(x, READSTAT_MEASURE_NOMINAL);
  readstat_variable_t* m = readstat_add_variable(writer, "m", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_measure(m, READSTAT_MEASURE_SCALE);
  readstat_variable_t* y = readstat_add_variable(writer, "y", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_measure(y, READSTAT_MEASURE_SCALE);
  readstat_variable_t* wt = readstat_add_variable(writer, "wt", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_t* s = readstat_add_variable(writer, "s", READSTAT_TYPE_STRING, 8);
  if (options.weight) readstat_writer_set_fweight_variable(writer, wt);
  readstat_begin_writing_sav(writer, file, cases);
  for (int i = 0; i < cases; ++i) {
    readstat_begin_row(writer);
    const double mediator = 0.5 * (i % 2) + std::cos(1.3 * i);
    readstat_insert_double_value(writer, x, 1 + i % 2);
    readstat_insert_double_value(writer, m, mediator);
    readstat_insert_double_value(writer, y, 0.4 * mediator + 0.3 * (i % 2) + std::sin(0.9 * i));
    readstat_insert_double_value(writer, wt, 2);
    readstat_insert_string_value(writer, s, options.latin1Text ? "na\xEFve" : "plain");
    readstat_end_row(writer);
  }
  readstat_end_writing(writer);
  readstat_writer_free(writer);
  std::fclose(file);
  if (options.unknownCaseCount) {
    std::fstream patch(path, std::ios::binary | std::ios::in | std::ios::out);
    patch.seekp(kCaseCountOffset);
    const char minusOne[4] = {'\xFF', '\xFF', '\xFF', '\xFF'};
    patch.write(minusOne, 4);
    if (!patch) return false;
  }
  return true;
}

}  // namespace testsupport

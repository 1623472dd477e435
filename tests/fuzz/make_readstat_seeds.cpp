// Writes the seed files of the ReadStat fuzz target with ReadStat's own writer: a small
// .sav (plain and compressed) and .dta with labels, user-missing values, a string and a
// missing value. Each file starts with the byte that selects its format in the target.
// Usage: make_readstat_seeds <folder>
#include <readstat.h>

#include <cstdio>
#include <string>

namespace {

ssize_t writeBytes(const void* bytes, size_t length, void* ctx) {
  return static_cast<ssize_t>(std::fwrite(bytes, 1, length, static_cast<FILE*>(ctx)));
}

enum class Kind { kSav = 0, kZsav = 1, kDta = 2 };

bool writeSeed(const std::string& path, Kind kind, int rows) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  const unsigned char selector = static_cast<unsigned char>(kind);
  std::fwrite(&selector, 1, 1, file);
  readstat_writer_t* writer = readstat_writer_init();
  readstat_set_data_writer(writer, writeBytes);
  if (kind == Kind::kZsav) readstat_writer_set_compression(writer, READSTAT_COMPRESS_BINARY);
  readstat_label_set_t* labels = readstat_add_label_set(writer, READSTAT_TYPE_DOUBLE, "grouplbl");
  readstat_label_double_value(labels, 0, "control");
  readstat_label_double_value(labels, 1, "treated");
  const bool spss = kind != Kind::kDta;
  readstat_variable_t* y = readstat_add_variable(writer, "y", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_label(y, "Outcome");
  if (spss) readstat_variable_add_missing_double_value(y, 99);
  readstat_variable_t* m = readstat_add_variable(writer, "m", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_t* x = readstat_add_variable(writer, "x", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_label_set(x, labels);
  if (spss) readstat_variable_set_measure(x, READSTAT_MEASURE_NOMINAL);
  readstat_variable_t* name = readstat_add_variable(writer, "name", READSTAT_TYPE_STRING, 8);
  if (spss) {
    readstat_begin_writing_sav(writer, file, rows);
  } else {
    readstat_begin_writing_dta(writer, file, rows);
  }
  for (int i = 0; i < rows; ++i) {
    readstat_begin_row(writer);
    readstat_insert_double_value(writer, y, i == 3 && spss ? 99 : 0.5 * i);
    if (i == 5) {
      readstat_insert_missing_value(writer, m);
    } else {
      readstat_insert_double_value(writer, m, 0.25 * i - 1);
    }
    readstat_insert_double_value(writer, x, i % 2);
    readstat_insert_string_value(writer, name, i % 3 ? "ann" : "");
    readstat_end_row(writer);
  }
  const bool ok = readstat_end_writing(writer) == READSTAT_OK;
  readstat_writer_free(writer);
  std::fclose(file);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  bool ok = writeSeed(dir + "/small.sav", Kind::kSav, 12) &&
            writeSeed(dir + "/small.zsav", Kind::kZsav, 12) &&
            writeSeed(dir + "/small.dta", Kind::kDta, 12) &&
            writeSeed(dir + "/empty.sav", Kind::kSav, 0);
  return ok ? 0 : 1;
}

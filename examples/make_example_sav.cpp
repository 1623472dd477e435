// Writes example.sav from example.csv with ReadStat's writer: the same cases, with the
// variable labels, value labels and measurement levels a data file from a survey office
// would carry. Usage: make_example_sav example.csv example.sav
#include <readstat.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

ssize_t writeBytes(const void* bytes, size_t length, void* file) {
  return static_cast<ssize_t>(std::fwrite(bytes, 1, length, static_cast<FILE*>(file)));
}

struct ColumnInfo {
  const char* name;
  const char* label;
  readstat_measure_t measure;
  const char* format;
};

// The columns of example.csv, in order.
const ColumnInfo kVariables[] = {
    {"id", "Employee number", READSTAT_MEASURE_NOMINAL, "F4.0"},
    {"training", "Attended the training programme", READSTAT_MEASURE_NOMINAL, "F1.0"},
    {"skills", "Skills-test score after the programme", READSTAT_MEASURE_SCALE, "F6.2"},
    {"wage", "Hourly wage a year later", READSTAT_MEASURE_SCALE, "F6.2"},
    {"age", "Age in years", READSTAT_MEASURE_SCALE, "F5.1"},
    {"tenure", "Years with the employer", READSTAT_MEASURE_SCALE, "F5.1"},
    {"region", "Region", READSTAT_MEASURE_NOMINAL, "F1.0"},
};

std::vector<std::vector<double>> readCsv(const char* path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);  // header
  std::vector<std::vector<double>> rows;
  while (std::getline(in, line)) {
    std::vector<double> row;
    std::stringstream fields(line);
    std::string field;
    while (std::getline(fields, field, ',')) row.push_back(field.empty() ? NAN : std::stod(field));
    while (row.size() < std::size(kVariables)) row.push_back(NAN);  // a trailing empty field
    rows.push_back(row);
  }
  return rows;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s example.csv example.sav\n", argv[0]);
    return 2;
  }
  const std::vector<std::vector<double>> rows = readCsv(argv[1]);
  FILE* file = std::fopen(argv[2], "wb");
  if (!file) {
    std::perror(argv[2]);
    return 1;
  }
  readstat_writer_t* writer = readstat_writer_init();
  readstat_set_data_writer(writer, writeBytes);
  readstat_writer_set_file_label(writer, "Job-training programme evaluation (simulated)");
  readstat_label_set_t* yesNo = readstat_add_label_set(writer, READSTAT_TYPE_DOUBLE, "yesno");
  readstat_label_double_value(yesNo, 0, "no");
  readstat_label_double_value(yesNo, 1, "yes");
  readstat_label_set_t* regions = readstat_add_label_set(writer, READSTAT_TYPE_DOUBLE, "region");
  readstat_label_double_value(regions, 1, "north");
  readstat_label_double_value(regions, 2, "centre");
  readstat_label_double_value(regions, 3, "south");
  std::vector<readstat_variable_t*> variables;
  for (const ColumnInfo& column : kVariables) {
    readstat_variable_t* v = readstat_add_variable(writer, column.name, READSTAT_TYPE_DOUBLE, 0);
    readstat_variable_set_label(v, column.label);
    readstat_variable_set_measure(v, column.measure);
    readstat_variable_set_format(v, column.format);
    if (std::string(column.name) == "training") readstat_variable_set_label_set(v, yesNo);
    if (std::string(column.name) == "region") readstat_variable_set_label_set(v, regions);
    variables.push_back(v);
  }
  readstat_begin_writing_sav(writer, file, static_cast<long>(rows.size()));
  for (const std::vector<double>& row : rows) {
    readstat_begin_row(writer);
    for (std::size_t j = 0; j < variables.size(); ++j) {
      if (std::isnan(row[j])) {
        readstat_insert_missing_value(writer, variables[j]);
      } else {
        readstat_insert_double_value(writer, variables[j], row[j]);
      }
    }
    readstat_end_row(writer);
  }
  const readstat_error_t status = readstat_end_writing(writer);
  readstat_writer_free(writer);
  std::fclose(file);
  if (status != READSTAT_OK) {
    std::fprintf(stderr, "%s\n", readstat_error_message(status));
    return 1;
  }
  return 0;
}

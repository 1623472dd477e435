#include <gtest/gtest.h>
#include <readstat.h>

#include <cmath>
#include <cstdio>

#include "sav_file.h"
#include "stathost/case_adapter.h"
#include "stathost/data_readers.h"
#include "test_util.h"

namespace {

using namespace stathost;

ssize_t writeBytes(const void* bytes, size_t length, void* ctx) {
  return static_cast<ssize_t>(std::fwrite(bytes, 1, length, static_cast<FILE*>(ctx)));
}

// Writes a small file with ReadStat's own writer: a scale score with the user-missing
// value 99, a labelled nominal group and a string.
void writeSample(const std::string& path, bool spss) {
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  readstat_writer_t* writer = readstat_writer_init();
  readstat_set_data_writer(writer, writeBytes);
  readstat_label_set_t* labels = readstat_add_label_set(writer, READSTAT_TYPE_DOUBLE, "grouplbl");
  readstat_label_double_value(labels, 1, "control");
  readstat_label_double_value(labels, 2, "treated");
  readstat_variable_t* score = readstat_add_variable(writer, "score", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_label(score, "Test score");
  readstat_variable_set_format(score, spss ? "F8.2" : "%9.2f");
  if (spss) {
    readstat_variable_set_measure(score, READSTAT_MEASURE_SCALE);
    readstat_variable_add_missing_double_value(score, 99);
  }
  readstat_variable_t* group = readstat_add_variable(writer, "group", READSTAT_TYPE_DOUBLE, 0);
  readstat_variable_set_label_set(group, labels);
  if (spss) readstat_variable_set_measure(group, READSTAT_MEASURE_NOMINAL);
  readstat_variable_t* name = readstat_add_variable(writer, "name", READSTAT_TYPE_STRING, 8);
  const double scores[] = {1.5, 99, 3.25};
  const char* names[] = {"ann", "bob", "cy"};
  if (spss) {
    readstat_begin_writing_sav(writer, file, 3);
  } else {
    readstat_begin_writing_dta(writer, file, 3);
  }
  for (int i = 0; i < 3; ++i) {
    readstat_begin_row(writer);
    readstat_insert_double_value(writer, score, scores[i]);
    if (i == 2) {
      readstat_insert_missing_value(writer, group);
    } else {
      readstat_insert_double_value(writer, group, i + 1);
    }
    readstat_insert_string_value(writer, name, names[i]);
    readstat_end_row(writer);
  }
  readstat_end_writing(writer);
  readstat_writer_free(writer);
  std::fclose(file);
}

TEST(ReadStatReader, SavKeepsLabelsLevelsAndUserMissingValues) {
  testsupport::TempDir dir;
  const std::string path = dir.path("sample.sav");
  writeSample(path, true);
  auto data = readDataFile(path);
  ASSERT_EQ(data->columns.size(), 3u);
  ASSERT_EQ(data->caseCount(), 3u);
  const Column& score = data->columns[0];
  EXPECT_EQ(score.label, "Test score");
  EXPECT_EQ(score.level, MeasureLevel::kScale);
  EXPECT_EQ(score.format.toString(), "F8.2");
  ASSERT_EQ(score.missing.values.size(), 1u);
  EXPECT_DOUBLE_EQ(score.missing.values[0], 99);
  EXPECT_DOUBLE_EQ(score.numbers[1], 99);  // stored as in the file
  EXPECT_TRUE(score.isMissing(1));         // but missing for analysis
  const Column& group = data->columns[1];
  EXPECT_EQ(group.level, MeasureLevel::kNominal);
  EXPECT_EQ(group.valueLabel(2).value_or(""), "treated");
  EXPECT_TRUE(std::isnan(group.numbers[2]));
  EXPECT_EQ(data->columns[2].strings[2], "cy");

  // The case adapter delivers both kinds of missing value as the most negative double.
  auto owned = std::shared_ptr<Dataset>(std::move(data));
  HostSession::instance().setActiveDataset(owned);
  ProcedureDataSource source;
  ACAVarValidSpecs specs(true, true, true);
  specs.AddVariable(0);
  specs.AddVariable(1);
  ACAInputAdapter adapter(&specs, source);
  ACAProcDataSourceIter it(adapter, true);
  std::vector<std::vector<double>> cases;
  while (it.HasMore()) {
    const ACARecord* r = it.Next();
    cases.push_back({r->GetAll()[0], r->GetAll()[1]});
  }
  HostSession::instance().setActiveDataset(nullptr);
  ASSERT_EQ(cases.size(), 3u);
  EXPECT_EQ(cases[1][0], kMissingValue);
  EXPECT_EQ(cases[2][1], kMissingValue);
  EXPECT_DOUBLE_EQ(cases[2][0], 3.25);
}

TEST(ReadStatReader, DtaWithoutLevelsInfersThem) {
  testsupport::TempDir dir;
  const std::string path = dir.path("sample.dta");
  writeSample(path, false);
  auto data = readDataFile(path);
  ASSERT_EQ(data->columns.size(), 3u);
  EXPECT_EQ(data->columns[0].level, MeasureLevel::kScale);    // 1.5 is not whole
  EXPECT_EQ(data->columns[1].level, MeasureLevel::kNominal);  // 1, 2
  EXPECT_EQ(data->columns[1].valueLabel(1).value_or(""), "control");
  EXPECT_EQ(data->columns[0].format.decimals, 2);
}

TEST(ReadStatReader, Latin1TextInAFileThatSaysUtf8IsReadAsWindows1252) {
  testsupport::TempDir dir;
  const std::string path = dir.path("latin1.sav");
  ASSERT_TRUE(testsupport::writeSavFile(path, {true, false, false}));
  std::vector<std::string> warnings;
  ReadOptions options;
  options.warnings = &warnings;
  auto data = readDataFile(path, options);
  ASSERT_EQ(data->caseCount(), 3u);
  EXPECT_EQ(data->columns[0].valueLabel(1).value_or(""), "caf\xC3\xA9");
  EXPECT_EQ(data->columns[4].strings[0], "na\xC3\xAFve");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0], path +
                             ": text that is not UTF-8 was read as Windows-1252 (Latin-1), first "
                             "a value label of x.");
}

TEST(ReadStatReader, UncompressedSavWithAnUnknownCaseCountHasItsCases) {
  testsupport::TempDir dir;
  const std::string path = dir.path("unknown.sav");
  ASSERT_TRUE(testsupport::writeSavFile(path, {false, false, true}, 5));
  auto data = readDataFile(path);
  ASSERT_EQ(data->caseCount(), 5u);
  EXPECT_DOUBLE_EQ(data->columns[0].numbers[4], 1.0);
  EXPECT_EQ(data->columns[4].strings[4], "plain");
}

TEST(ReadStatReader, TheFilesWeightVariableIsNamed) {
  testsupport::TempDir dir;
  const std::string weighted = dir.path("weighted.sav");
  const std::string plain = dir.path("plain.sav");
  ASSERT_TRUE(testsupport::writeSavFile(weighted, {false, true, false}));
  ASSERT_TRUE(testsupport::writeSavFile(plain, {}));
  EXPECT_EQ(readDataFile(weighted)->weightVariable, "wt");
  EXPECT_EQ(readDataFile(plain)->weightVariable, "");
}

TEST(ReadStatReader, UnreadableFileNamesItself) {
  testsupport::TempDir dir;
  const std::string path = dir.file("broken.sav", "this is not a system file");
  try {
    readDataFile(path);
    FAIL();
  } catch (const DataError& e) {
    EXPECT_NE(std::string(e.what()).find("Cannot read data file '" + path + "'"), std::string::npos)
        << e.what();
  }
}

}  // namespace

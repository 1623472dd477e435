#include <gtest/gtest.h>

#include <cmath>

#include "stathost/data_readers.h"
#include "stathost/format.h"
#include "test_util.h"

namespace {

using namespace stathost;

TEST(CsvReader, ReadsTypesLevelsAndMissingValues) {
  testsupport::TempDir dir;
  const std::string path = dir.file("d.csv",
                                    "id,score,group,name,note\n"
                                    "1,2.50,1,\"Smith, J\",\"two\nlines\"\n"
                                    "2,,2,Lee,NA\n"
                                    "3,NA,1,.,x\n"
                                    "4,1e2,3,Kim,y\n");
  auto data = readDataFile(path);
  ASSERT_EQ(data->columns.size(), 5u);
  ASSERT_EQ(data->caseCount(), 4u);
  const Column& score = data->columns[1];
  EXPECT_TRUE(score.isNumeric());
  EXPECT_DOUBLE_EQ(score.numbers[0], 2.5);
  EXPECT_TRUE(std::isnan(score.numbers[1]));  // empty field
  EXPECT_TRUE(std::isnan(score.numbers[2]));  // NA
  EXPECT_DOUBLE_EQ(score.numbers[3], 100.0);
  EXPECT_EQ(score.level, MeasureLevel::kScale);
  EXPECT_EQ(score.format.decimals, 2);
  EXPECT_EQ(data->columns[2].level, MeasureLevel::kNominal);  // few whole numbers
  const Column& name = data->columns[3];
  EXPECT_FALSE(name.isNumeric());
  EXPECT_EQ(name.strings[0], "Smith, J");
  EXPECT_TRUE(name.isMissing(2));
  EXPECT_EQ(data->columns[4].strings[0], "two\nlines");
  EXPECT_EQ(data->findColumn("SCORE"), 1);
}

TEST(CsvReader, ManyDistinctWholeNumbersAreScale) {
  testsupport::TempDir dir;
  std::string text = "n\n";
  for (int i = 0; i < 25; ++i) text += std::to_string(i) + "\n";
  EXPECT_EQ(readDataFile(dir.file("d.csv", text))->columns[0].level, MeasureLevel::kScale);
  text = "n\n";
  for (int i = 0; i < 24; ++i) text += std::to_string(i) + "\n";
  EXPECT_EQ(readDataFile(dir.file("e.csv", text))->columns[0].level, MeasureLevel::kNominal);
}

TEST(CsvReader, NonFiniteNumbersBecomeMissingWithAWarning) {
  testsupport::TempDir dir;
  std::vector<std::string> warnings;
  ReadOptions options;
  options.warnings = &warnings;
  auto data = readDataFile(dir.file("d.csv", "a,b\n1,2\nInf,3\n1e999,4\n"), options);
  EXPECT_TRUE(data->columns[0].isNumeric());
  EXPECT_TRUE(std::isnan(data->columns[0].numbers[1]));
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_NE(warnings[0].find("line 3, column 1 (a): the value 'Inf' is not a finite number"),
            std::string::npos)
      << warnings[0];
}

TEST(CsvReader, TabDelimitedByExtension) {
  testsupport::TempDir dir;
  auto data = readDataFile(dir.file("d.tsv", "a\tb\n1\tx y\n"));
  ASSERT_EQ(data->columns.size(), 2u);
  EXPECT_EQ(data->columns[1].strings[0], "x y");
}

struct BadFile {
  const char* name;
  const char* content;  // nullptr: the file does not exist
  const char* message;
  friend std::ostream& operator<<(std::ostream& os, const BadFile& c) { return os << c.name; }
};

class CsvReaderRefuses : public ::testing::TestWithParam<BadFile> {};

TEST_P(CsvReaderRefuses, WithFileLineAndColumn) {
  testsupport::TempDir dir;
  const std::string path =
      GetParam().content ? dir.file("bad.csv", GetParam().content) : dir.path("missing.csv");
  try {
    readDataFile(path);
    FAIL() << "no error";
  } catch (const DataError& e) {
    const std::string text = e.what();
    EXPECT_NE(text.find(path), std::string::npos) << text;
    EXPECT_NE(text.find(GetParam().message), std::string::npos) << text;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CsvReaderRefuses,
    ::testing::Values(
        BadFile{"Missing", nullptr, "Cannot open data file"},
        BadFile{"Empty", "", "is empty: it has no header row"},
        BadFile{"Ragged", "a,b,c\n1,2,3\n4,5\n",
                "line 3: the row has 2 fields, but the header has 3"},
        BadFile{"Unterminated", "a,b\n1,2\n3,\"open\n4,5\n",
                "line 3, column 2: a quoted field is not terminated"},
        BadFile{"QuoteInsideField", "a,b\n1,x\"y\n", "line 2, column 2: malformed quoted field"},
        BadFile{"DuplicateHeader", "a,b,A\n1,2,3\n",
                "line 1, column 3: the variable name 'A' occurs twice"},
        BadFile{"EmptyHeaderName", "a,,c\n1,2,3\n",
                "line 1, column 2: the header has an empty variable name"},
        BadFile{"InvalidName", "a,my var\n1,2\n", "'my var' is not a valid variable name"}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST(CsvReader, AByteOrderMarkIsNotPartOfTheFirstName) {
  testsupport::TempDir dir;
  auto data = readDataFile(dir.file("d.csv",
                                    "\xEF\xBB\xBF"
                                    "a,b\n1,2\n"));
  EXPECT_EQ(data->columns[0].name, "a");
  EXPECT_EQ(data->findColumn("a"), 0);
}

TEST(CsvReader, AFieldWithANulByteIsNotANumber) {
  testsupport::TempDir dir;
  std::vector<std::string> warnings;
  ReadOptions options;
  options.warnings = &warnings;
  static const char kContent[] = "a,b\n1,2\n0\0 5544,3\n";
  auto data = readDataFile(dir.file("d.csv", std::string(kContent, sizeof kContent - 1)), options);
  EXPECT_FALSE(data->columns[0].isNumeric());
  EXPECT_TRUE(data->columns[1].isNumeric());
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("line 3, column 1 (a): the field holds a NUL byte, so it is not a "
                             "number; a is read as text."),
            std::string::npos)
      << warnings[0];
}

struct DelimiterCase {
  const char* name;
  const char* file;
  std::string content;
  char delimiter;  // as given with --delimiter; 0 to let the reader find it
  std::vector<std::string> names;
  std::vector<std::string> firstRow;  // the first case's values as text
  friend std::ostream& operator<<(std::ostream& os, const DelimiterCase& c) { return os << c.name; }
};

class CsvDelimiters : public ::testing::TestWithParam<DelimiterCase> {};

TEST_P(CsvDelimiters, SplitTheHeaderAndTheRows) {
  const DelimiterCase& c = GetParam();
  testsupport::TempDir dir;
  ReadOptions options;
  options.delimiter = c.delimiter;
  auto data = readDataFile(dir.file(c.file, c.content), options);
  ASSERT_EQ(data->columns.size(), c.names.size());
  for (std::size_t i = 0; i < c.names.size(); ++i) {
    const Column& col = data->columns[i];
    EXPECT_EQ(col.name, c.names[i]);
    EXPECT_EQ(col.isNumeric() ? formatShortest(col.numbers[0]) : col.strings[0], c.firstRow[i])
        << col.name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CsvDelimiters,
    ::testing::Values(
        DelimiterCase{
            "Comma", "d.csv", "id,x,m\n1,2.5,3\n", 0, {"id", "x", "m"}, {"1", "2.5", "3"}},
        DelimiterCase{
            "Semicolon", "d.csv", "id;x;m\n1;2,5;3\n", 0, {"id", "x", "m"}, {"1", "2,5", "3"}},
        DelimiterCase{"TabInACsvFile",
                      "d.csv",
                      "id\tx\tm\n1\t2.5\t3\n",
                      0,
                      {"id", "x", "m"},
                      {"1", "2.5", "3"}},
        DelimiterCase{"Whitespace",
                      "d.txt",
                      "id  x   m  cens c\n 1 2.5  3 0 \"a b\"\n",
                      0,
                      {"id", "x", "m", "cens", "c"},
                      {"1", "2.5", "3", "0", "a b"}},
        DelimiterCase{
            "QuotedNames", "d.csv", "\"a\";\"b\"\n1;\"x;y\"\n", 0, {"a", "b"}, {"1", "x;y"}},
        DelimiterCase{"TsvByExtension", "d.tsv", "a\tb\n1\tx y\n", 0, {"a", "b"}, {"1", "x y"}},
        DelimiterCase{"GivenDelimiterWins", "d.csv", "a|b\n1|2\n", '|', {"a", "b"}, {"1", "2"}},
        DelimiterCase{"GivenWhitespace", "d.csv", "a b\n1  2\n", ' ', {"a", "b"}, {"1", "2"}},
        DelimiterCase{"OneColumn", "d.csv", "a\n1\n", 0, {"a"}, {"1"}}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST(CsvReader, AHeaderThatDoesNotSplitSaysWhereItWasSplit) {
  testsupport::TempDir dir;
  try {
    readDataFile(dir.file("d.csv", "a|b|c\n1|2|3\n"));
    FAIL() << "no error";
  } catch (const DelimiterError& e) {
    EXPECT_NE(std::string(e.what()).find("'a|b|c' is not a valid variable name (use letters, "
                                         "digits and _ . @ # $, starting with a letter). The "
                                         "header was split at commas."),
              std::string::npos)
        << e.what();
  }
}

TEST(CsvReader, TextColumnsRememberWhereTheyStoppedBeingNumbers) {
  testsupport::TempDir dir;
  auto data = readDataFile(dir.file("d.csv", "x;y;name\n1;2.5;ann\n2;1.234,5;bob\n"));
  const Column& y = data->columns[1];
  EXPECT_FALSE(y.isNumeric());
  EXPECT_EQ(y.firstTextLine, 3);
  EXPECT_EQ(y.firstText, "1.234,5");
  EXPECT_EQ(data->columns[2].firstTextLine, 2);
  EXPECT_EQ(data->columns[0].firstTextLine, 0);
}

TEST(CsvReader, TextThatIsNotUtf8IsReadAsWindows1252WithAWarning) {
  testsupport::TempDir dir;
  std::vector<std::string> warnings;
  ReadOptions options;
  options.warnings = &warnings;
  const std::string path = dir.file("d.csv", "grp,caf\xE9\nna\xEFve,1\nplain,2\n");
  auto data = readDataFile(path, options);
  EXPECT_EQ(data->columns[1].name, "caf\xC3\xA9");
  EXPECT_EQ(data->columns[0].strings[0], "na\xC3\xAFve");
  EXPECT_EQ(data->columns[0].strings[1], "plain");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0], path +
                             ": text that is not UTF-8 was read as Windows-1252 (Latin-1), "
                             "first a variable name.");
}

TEST(CsvReader, KeywordsAsNamesAreRenamedWithAWarning) {
  testsupport::TempDir dir;
  std::vector<std::string> warnings;
  ReadOptions options;
  options.warnings = &warnings;
  const std::string path = dir.file("d.csv", "id,BY,with,To,all,BY_\n1,2,3,4,5,6\n");
  auto data = readDataFile(path, options);
  std::vector<std::string> names;
  for (const Column& c : data->columns) names.push_back(c.name);
  EXPECT_EQ(names, (std::vector<std::string>{"id", "BY_2", "with_", "To_", "all_", "BY_"}));
  ASSERT_EQ(warnings.size(), 4u);
  EXPECT_EQ(warnings[0], path +
                             ": the variable name 'BY' is a keyword of the command language and "
                             "cannot name a variable in a command; the variable is renamed BY_2.");
}

TEST(LevelOverrides, SetLevelsOrNameTheUnknownVariable) {
  testsupport::TempDir dir;
  auto data = readDataFile(dir.file("d.csv", "a,s\n1.5,x\n2.5,y\n"));
  applyLevelOverrides(*data, {"A"}, MeasureLevel::kOrdinal);
  EXPECT_EQ(data->columns[0].level, MeasureLevel::kOrdinal);
  EXPECT_THROW(applyLevelOverrides(*data, {"zz"}, MeasureLevel::kNominal), DataError);
  EXPECT_THROW(applyLevelOverrides(*data, {"s"}, MeasureLevel::kScale), DataError);
}

}  // namespace

#include "data/case_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "stathost/case_adapter.h"
#include "test_util.h"

namespace {

using namespace medanlys;
using stathost::Column;
using testsupport::numericColumn;

// Registers outcome, mediator, predictor, one covariate, one factor and a weight, reads
// and cleans. Throws as cleaning does.
VariableRoleMapper readAndClean() {
  stathost::ProcedureDataSource source;
  VariableRoleMapper mapper;
  mapper.setRoleName("OUTCOMEVAR", "y");
  mapper.setRoleName("MEDIATORVAR", "m");
  mapper.setRoleName("PREDICTORVAR", "x");
  mapper.setListNames("WITH", {"c"});
  mapper.setListNames("BY", {"f"});
  mapper.setRoleName("MEDMODEL_SCALEWEIGHT", "w");
  std::vector<int> all;
  for (const char* name : {"y", "m", "x", "c", "f", "w"}) {
    mapper.setIndex(name, source.findVariable(name));
    all.push_back(source.findVariable(name));
  }
  mapper.setAllIndices(all);
  EXPECT_TRUE(readCases(source, mapper));
  stathost::ParserMessage messages;
  cleanCases(mapper, messages);
  return mapper;
}

// 14 cases; case k (0-based) is spoiled in role k for k < 6 by a system-missing value and,
// for cases 6 and 7, by a user-missing value; the weights include 0.4, 0.5 and 2.5.
std::vector<Column> spoiledData() {
  std::vector<std::vector<double>> v(6, std::vector<double>(14, 1.0));
  for (int i = 0; i < 14; ++i) {
    v[0][i] = 10 + i;  // y
    v[1][i] = 20 + i;  // m
  }
  for (int role = 0; role < 6; ++role) v[role][role] = NAN;
  v[2][6] = 99;  // user-missing predictor
  v[3][7] = 99;  // user-missing covariate
  v[5][8] = 0.4;
  v[5][9] = 0.5;
  v[5][10] = 2.5;
  v[5][11] = -2.5;
  std::vector<Column> columns;
  const char* names[] = {"y", "m", "x", "c", "f", "w"};
  for (int role = 0; role < 6; ++role) {
    Column c = numericColumn(names[role], v[role]);
    if (role == 2 || role == 3) c.missing.values = {99};
    columns.push_back(c);
  }
  return columns;
}

TEST(CaseReading, ListwiseDeletionAndWeightRounding) {
  std::vector<Column> columns = spoiledData();
  // Four cases of the 14 survive; six clean ones make 10.
  for (Column& c : columns) {
    for (int i = 0; i < 6; ++i) c.numbers.push_back(c.name == "y" ? 100 + i : 1.0);
  }
  testsupport::ActiveData data(columns);
  const VariableRoleMapper mapper = readAndClean();
  EXPECT_EQ(mapper.casesRead, 20);
  // Out: cases 0-5 (system-missing in each role), 6-7 (user-missing), 8 (weight 0.4),
  // 11 (negative weight).
  EXPECT_EQ(mapper.casesValid, 10);
  EXPECT_EQ(mapper.roleData("OUTCOMEVAR"),
            (std::vector<double>{19, 20, 22, 23, 100, 101, 102, 103, 104, 105}));
  EXPECT_EQ(mapper.roleData("MEDMODEL_SCALEWEIGHT"),
            (std::vector<double>{1, 3, 1, 1, 1, 1, 1, 1, 1, 1}));  // 0.5 -> 1, 2.5 -> 3
  ASSERT_EQ(mapper.listData("WITH").size(), 1u);
  EXPECT_EQ(mapper.listData("WITH")[0].size(), 10u);
  EXPECT_EQ(mapper.listData("BY")[0].size(), 10u);
}

TEST(CaseReading, NineValidCasesAreRefusedWithTheCount) {
  std::vector<Column> columns = spoiledData();
  for (Column& c : columns) {
    for (int i = 0; i < 5; ++i) c.numbers.push_back(1.0);
  }
  testsupport::ActiveData data(columns);
  try {
    readAndClean();
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "Insufficient sample size (9) after cleaning. Minimum 10 valid cases required for "
                 "mediation analysis.");
  }
  const stathost::RunRecord record = stathost::HostSession::instance().endRun();
  ASSERT_EQ(record.messages.size(), 1u);
  EXPECT_EQ(record.messages[0].text,
            "Insufficient sample size after cleaning. Minimum 10 valid cases required for "
            "mediation analysis.");
}

TEST(CaseReading, CleanDataIsLeftUnchanged) {
  std::vector<Column> columns;
  for (const char* name : {"y", "m", "x", "c", "f", "w"}) {
    std::vector<double> values;
    for (int i = 0; i < 12; ++i) values.push_back(std::string(name) == "w" ? 2.0 : i + 0.25);
    columns.push_back(numericColumn(name, values));
  }
  testsupport::ActiveData data(columns);
  const VariableRoleMapper mapper = readAndClean();
  EXPECT_EQ(mapper.casesValid, 12);
  EXPECT_EQ(mapper.roleData("MEDIATORVAR")[3], 3.25);
}

TEST(CaseReading, NoCasesAtAllIsNotAnErrorHere) {
  std::vector<Column> columns;
  for (const char* name : {"y", "m", "x", "c", "f", "w"})
    columns.push_back(numericColumn(name, {}));
  testsupport::ActiveData data(columns);
  const VariableRoleMapper mapper = readAndClean();
  EXPECT_EQ(mapper.casesRead, 0);
  EXPECT_EQ(mapper.casesValid, 0);
}

TEST(VariableRoleMapperDump, EmptyMapperPrintsHeadersOnly) {
  std::ostringstream out;
  VariableRoleMapper().dump(out);
  EXPECT_EQ(out.str(),
            "===== VariableRoleMapper Debug Info =====\n"
            "\n-- Single Variable Roles --\n"
            "\n-- Variable List Roles --\n"
            "\n-- Index Mapping --\n"
            "\n-- All Indices --\n[  ]\n"
            "===== End of Debug Info =====\n");
}

TEST(VariableRoleMapperDump, FullContentInKeyOrder) {
  VariableRoleMapper mapper;
  mapper.setRoleName("PREDICTORVAR", "x");
  mapper.setRoleName("OUTCOMEVAR", "y");
  mapper.setRoleData("OUTCOMEVAR", {1.5, 2});
  mapper.setListNames("WITH", {"c1", "c2"});
  mapper.setListData("WITH", {{1, 2}, {3, 4}});
  mapper.setIndex("y", 0);
  mapper.setIndex("x", 2);
  mapper.setAllIndices({0, 2});
  std::ostringstream out;
  mapper.dump(out);
  EXPECT_EQ(out.str(),
            "===== VariableRoleMapper Debug Info =====\n"
            "\n-- Single Variable Roles --\n"
            "Role: OUTCOMEVAR, VarName: y, Data: 1.5, 2\n"
            "Role: PREDICTORVAR, VarName: x\n"
            "\n-- Variable List Roles --\n"
            "Role: WITH, VarNames: [c1, c2]\n"
            "  Row 0: 1, 2\n"
            "  Row 1: 3, 4\n"
            "\n-- Index Mapping --\n"
            "VarName: x, Index: 2\n"
            "VarName: y, Index: 0\n"
            "\n-- All Indices --\n[ 0, 2 ]\n"
            "===== End of Debug Info =====\n");
}

TEST(VariableRoleMapperLookup, MissingKeyRaisesOutOfRange) {
  VariableRoleMapper mapper;
  EXPECT_FALSE(mapper.hasRoleData("OUTCOMEVAR"));
  try {
    mapper.roleData("OUTCOMEVAR");
    FAIL();
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid map<K, T> key");
  }
}

}  // namespace

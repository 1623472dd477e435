#include "data/case_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "stathost/case_adapter.h"
#include "stathost/host_session.h"
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

// 20 cases. Case k < 6 has a system-missing value in role k, case 6 + k a user-missing
// value (99, declared missing for every variable) in role k; cases 12 to 15 have the
// weights 0.4, 0.5, 2.5 and -2.5; cases 16 to 19 are clean. Six cases survive.
std::vector<Column> spoiledData() {
  std::vector<std::vector<double>> v(6, std::vector<double>(20, 1.0));
  for (int i = 0; i < 20; ++i) {
    v[0][i] = 10 + i;  // y
    v[1][i] = 20 + i;  // m
  }
  for (int role = 0; role < 6; ++role) {
    v[role][role] = NAN;
    v[role][6 + role] = 99;
  }
  v[5][12] = 0.4;
  v[5][13] = 0.5;
  v[5][14] = 2.5;
  v[5][15] = -2.5;
  std::vector<Column> columns;
  const char* names[] = {"y", "m", "x", "c", "f", "w"};
  for (int role = 0; role < 6; ++role) {
    Column c = numericColumn(names[role], v[role]);
    c.missing.values = {99};
    columns.push_back(c);
  }
  return columns;
}

void appendCleanCases(std::vector<Column>& columns, int count) {
  for (Column& c : columns) {
    for (int i = 0; i < count; ++i) c.numbers.push_back(c.name == "y" ? 100 + i : 1.0);
  }
}

TEST(CaseReading, ListwiseDeletionAndWeightRounding) {
  std::vector<Column> columns = spoiledData();
  appendCleanCases(columns, 4);
  testsupport::ActiveData data(columns);
  stathost::HostSession::instance().endRun();  // nothing of earlier tests
  const VariableRoleMapper mapper = readAndClean();
  // The cases the weights took away are announced, with the weight variable.
  const stathost::RunRecord record = stathost::HostSession::instance().endRun();
  ASSERT_EQ(record.messages.size(), 1u);
  EXPECT_EQ(record.messages[0].level, stathost::MessageLevel::kWarning);
  EXPECT_EQ(record.messages[0].text,
            "4 cases were left out because their scale weight w is missing or below 0.5 "
            "(weights are rounded to whole replication counts).");
  EXPECT_EQ(mapper.casesRead, 24);
  EXPECT_EQ(mapper.casesValid, 10);
  EXPECT_EQ(mapper.roleData("OUTCOMEVAR"),
            (std::vector<double>{23, 24, 26, 27, 28, 29, 100, 101, 102, 103}));
  // 0.5 becomes 1 and 2.5 becomes 3; 0.4 and -2.5 left their cases out.
  EXPECT_EQ(mapper.roleData("MEDMODEL_SCALEWEIGHT"),
            (std::vector<double>{1, 3, 1, 1, 1, 1, 1, 1, 1, 1}));
  // Left out for the weight: system- and user-missing (cases 5 and 11), 0.4 and -2.5.
  // Rounded among the kept cases: 0.5 and 2.5, each by +0.5.
  EXPECT_EQ(mapper.casesDroppedForWeight, 4);
  EXPECT_EQ(mapper.weightsRounded, 2);
  EXPECT_DOUBLE_EQ(mapper.weightChangeByRounding, 1.0);
  ASSERT_EQ(mapper.listData("WITH").size(), 1u);
  EXPECT_EQ(mapper.listData("WITH")[0].size(), 10u);
  EXPECT_EQ(mapper.listData("BY")[0].size(), 10u);
}

TEST(CaseReading, NineValidCasesAreRefusedWithTheCount) {
  std::vector<Column> columns = spoiledData();
  appendCleanCases(columns, 3);
  testsupport::ActiveData data(columns);
  stathost::HostSession::instance().endRun();
  try {
    readAndClean();
    FAIL() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "Insufficient sample size (9) after cleaning. Minimum 10 valid cases required for "
                 "mediation analysis.");
  }
  // The weights' share of the loss comes first, then the refusal.
  const stathost::RunRecord record = stathost::HostSession::instance().endRun();
  ASSERT_EQ(record.messages.size(), 2u);
  EXPECT_EQ(record.messages[0].text,
            "4 cases were left out because their scale weight w is missing or below 0.5 "
            "(weights are rounded to whole replication counts).");
  EXPECT_EQ(record.messages[1].text,
            "Insufficient sample size after cleaning. Minimum 10 valid cases required for "
            "mediation analysis.");
}

TEST(CaseReading, OneCaseLeftOutForItsWeightIsNamedInTheSingular) {
  EXPECT_EQ(weightDropWarning(1, "freq"),
            "1 case was left out because its scale weight freq is missing or below 0.5 (weights "
            "are rounded to whole replication counts).");
}

TEST(CaseReading, CleanDataIsLeftUnchanged) {
  std::vector<Column> columns;
  for (const char* name : {"y", "m", "x", "c", "f", "w"}) {
    std::vector<double> values;
    for (int i = 0; i < 12; ++i) values.push_back(std::string(name) == "w" ? 2.0 : i + 0.25);
    columns.push_back(numericColumn(name, values));
  }
  testsupport::ActiveData data(columns);
  stathost::HostSession::instance().endRun();
  const VariableRoleMapper mapper = readAndClean();
  EXPECT_EQ(mapper.casesValid, 12);
  EXPECT_EQ(mapper.roleData("MEDIATORVAR")[3], 3.25);
  // No weight left a case out: nothing to say.
  EXPECT_TRUE(stathost::HostSession::instance().endRun().messages.empty());
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

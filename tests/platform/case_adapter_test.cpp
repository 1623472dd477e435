#include "stathost/case_adapter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "stathost/parsed_command.h"
#include "stathost/stop_processor.h"
#include "test_util.h"

namespace {

using namespace stathost;
using testsupport::numericColumn;
using testsupport::stringColumn;

std::vector<std::vector<double>> readAll(const std::vector<int>& indices) {
  ProcedureDataSource source;
  ACAVarValidSpecs specs(true, true, true);
  for (int i : indices) EXPECT_EQ(specs.AddVariable(i), 0);
  ACAInputAdapter adapter(&specs, source);
  ACAProcDataSourceIter it(adapter, true);
  std::vector<std::vector<double>> rows;
  while (it.HasMore()) {
    const ACARecord* r = it.Next();
    rows.emplace_back(r->GetAll(), r->GetAll() + r->Size());
  }
  EXPECT_EQ(it.Next(), nullptr);
  return rows;
}

TEST(CaseAdapter, ValuesComeInRegistrationOrderWithStringCodes) {
  testsupport::ActiveData data({numericColumn("a", {1, 2, NAN}), stringColumn("s", {"b", "", "a"}),
                                numericColumn("c", {10, 20, 30})});
  const auto rows = readAll({2, 0, 1});
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0], (std::vector<double>{10, 1, 2}));  // "b" is the second distinct value
  EXPECT_EQ(rows[1], (std::vector<double>{20, 2, kMissingValue}));
  EXPECT_EQ(rows[2], (std::vector<double>{30, kMissingValue, 1}));
}

TEST(CaseAdapter, UserMissingValuesAreMissing) {
  Column c = numericColumn("a", {1, 8, 9, 5});
  c.missing.values = {9};
  c.missing.ranges = {{7.5, 8.5}};
  testsupport::ActiveData data({c});
  const auto rows = readAll({0});
  EXPECT_EQ(rows[1][0], kMissingValue);
  EXPECT_EQ(rows[2][0], kMissingValue);
  EXPECT_EQ(rows[3][0], 5);
}

TEST(CaseAdapter, RefusesAnIndexOutsideTheData) {
  testsupport::ActiveData data({numericColumn("a", {1})});
  ProcedureDataSource source;
  ACAVarValidSpecs specs(true, true, true);
  EXPECT_EQ(specs.AddVariable(-1), 1);
  specs.AddVariable(3);
  EXPECT_THROW(ACAInputAdapter(&specs, source), std::invalid_argument);
}

TEST(SplitGroups, OneGroupAtATimeInValueOrder) {
  Column g = numericColumn("g", {2, 1, 2, NAN, 1}, MeasureLevel::kNominal);
  g.numericLabels = {{1, "one"}};
  testsupport::ActiveData data({g, numericColumn("v", {10, 11, 12, 13, 14})});
  const auto groups = computeSplitGroups(data.data(), {0});
  ASSERT_EQ(groups.size(), 3u);
  EXPECT_EQ(groups[0].label, "g = 1 (one)");
  EXPECT_EQ(groups[1].label, "g = 2");
  EXPECT_EQ(groups[2].label, "g = missing");
  EXPECT_EQ(groups[0].rows, (std::vector<std::size_t>{1, 4}));

  HostSession::instance().setSplitColumns({0});
  HostSession::instance().setCurrentGroup(&groups[1]);
  ProcedureDataSource source;
  EXPECT_EQ(source.getCaseCount(), 2);
  const auto rows = readAll({1});
  EXPECT_EQ(rows, (std::vector<std::vector<double>>{{10}, {12}}));
  VarSpecObj split("SPLIT FILE", source, "", "", 0);
  EXPECT_EQ(split.getNames(), std::vector<std::string>{"g"});
  HostSession::instance().setCurrentGroup(nullptr);
}

TEST(DataSource, DictionaryEntries) {
  Column c = numericColumn("Age", {30, 40}, MeasureLevel::kOrdinal);
  c.label = "Age in years";
  testsupport::ActiveData data({c, stringColumn("city", {"x", "y"})});
  ProcedureDataSource source;
  ASSERT_EQ(source.getVariableCount(), 2);
  EXPECT_EQ(source.findVariable("AGE"), 0);
  EXPECT_EQ(source.findVariable("nope"), -1);
  EXPECT_EQ(source.getVariable(5), nullptr);
  const STAX_Variable* age = source.getVariable(0);
  EXPECT_TRUE(age->isNumeric());
  EXPECT_TRUE(age->isCategorical());
  EXPECT_EQ(age->getLabel(), "Age in years");
  double v = 0;
  EXPECT_TRUE(age->parseValue("2.5", v));
  EXPECT_FALSE(age->parseValue("abc", v));
  const STAX_Variable* city = source.getVariable(1);
  EXPECT_TRUE(city->parseValue("y", v));
  EXPECT_EQ(v, 2);
  EXPECT_FALSE(city->parseValue("z", v));
}

TEST(StopProcessor, AnswersTheHostCancelFlag) {
  testsupport::ActiveData data({numericColumn("a", {1})});
  ACAStopProcessor stop(0.0);
  EXPECT_FALSE(stop.CheckCancel());
  EXPECT_FALSE(stop.GetCancel());
  HostSession::instance().requestCancel();
  EXPECT_TRUE(stop.CheckCancel());
  EXPECT_TRUE(stop.GetCancel());
}

}  // namespace

// The chart specifications a run writes, under each PLOT setting.
#include <gtest/gtest.h>

#include "entry/medanlys_entry.h"
#include "reference_data.h"
#include "stathost/host_session.h"

namespace {

using nlohmann::json;

json chartsOf(const std::string& dataset, const std::string& command) {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setActiveDataset(testsupport::referenceData(dataset));
  session.setCurrentCommand(command, 1, "test");
  session.beginRun();
  MEDANLYS();
  const stathost::RunRecord record = session.endRun();
  session.setActiveDataset(nullptr);
  json charts = json::array();
  for (const json& item : record.items) {
    if (item["type"] == "chart") charts.push_back(item);
  }
  return charts;
}

std::string command(const std::string& models, const std::string& criteria, const std::string& plot,
                    const std::string& predictor = "A(BLEVEL=0 ELEVEL=1)") {
  return "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=" + predictor +
         " WITH C1 C2 " + models +
         " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=" + criteria +
         " /PRINT /PLOT " + plot + ".";
}

const std::string kContinuous = "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL";
const std::string kBinaryMediator = "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL";

bool has(const json& chart, const std::string& statement) {
  return chart["gpl"].get<std::string>().find(statement) != std::string::npos;
}

TEST(Charts, ContinuousAnalysisWritesScatterForestAndPathInOrder) {
  const json charts =
      chartsOf("nn_binA", command(kContinuous, "CAUSAL", "PATH_DIAGRAM SCATTER_PLOT FOREST_PLOT"));
  ASSERT_EQ(charts.size(), 3u);
  EXPECT_EQ(charts[0]["title"], "Scatter Plot: Y vs M");
  EXPECT_EQ(charts[1]["title"], "Mediation Analysis Forest Plot");
  EXPECT_EQ(charts[2]["title"], "Mediation Analysis Path Diagram");
  EXPECT_EQ(charts[0]["gpl"].get<std::string>().rfind(
                "SOURCE: s = userSource(id(\"Mediation Analysis\"))\n", 0),
            0u);
  EXPECT_TRUE(has(charts[0],
                  "ELEMENT: line(position(smooth.linear(xdata*ydata)), color(color.black), "
                  "size(size.\"2px\"))"));
  EXPECT_TRUE(has(charts[1], "COORD: transpose()"));
  EXPECT_TRUE(
      has(charts[1], "GUIDE: text.footnote(label(\"95% Point Estimate  -Confidence Interval\"))"));
  EXPECT_TRUE(has(charts[1], "label(\"Null Effect (0)\"))"));
  EXPECT_TRUE(has(charts[2], "DATA: nieNodeX=col(source(s), name(\"nieNodeX\"))"));
  EXPECT_TRUE(has(charts[2], "DATA: covX=col(source(s), name(\"covX\"))"));
  EXPECT_TRUE(
      has(charts[2], "SCALE: cat(aesthetic(aesthetic.color), include(\"0\", \"1\", \"2\", \"3\")"));
  // The forest plot's rows: three paths and four effects, two data rows each.
  EXPECT_EQ(charts[1]["data"][0]["values"].size(), 14u);
  EXPECT_EQ(charts[1]["data"][0]["values"][0], "A -> M (a)");
}

TEST(Charts, PathDiagramQualifiersAndTraditionalAnalysis) {
  const json hidden =
      chartsOf("nn_binA", command(kContinuous, "TRADITIONAL",
                                  "PATH_DIAGRAM(HIDE_COVARIATE_EFFECTS=TRUE EDGE_COLOR=UNIFORM)"));
  ASSERT_EQ(hidden.size(), 1u);
  EXPECT_FALSE(has(hidden[0], "covX"));
  EXPECT_FALSE(has(hidden[0], "nieNodeX"));
  EXPECT_FALSE(has(hidden[0], "aesthetic.color)"));
  EXPECT_TRUE(has(hidden[0], "color(color.black), size(size.\"2pt\"), shape(shape.arrow))"));
}

TEST(Charts, BinaryMediatorWritesBarsAndInterceptsButNoScatter) {
  const json charts =
      chartsOf("bn", command(kBinaryMediator, "CAUSAL", "SCATTER_PLOT BAR_PLOT FOREST_PLOT"));
  ASSERT_EQ(charts.size(), 2u);
  EXPECT_EQ(charts[0]["title"], "Y by M Level");
  EXPECT_TRUE(has(charts[0], "map((\"M=0\", color.blue), (\"M=1\", color.orange))"));
  EXPECT_EQ(charts[1]["data"][0]["values"][0], "(M intercept) Beta0");
}

}  // namespace

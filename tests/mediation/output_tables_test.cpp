// The tables of a run: a golden document for a full continuous analysis, and one test per
// condition that adds or removes a table.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "entry/medanlys_entry.h"
#include "reference_data.h"
#include "stathost/host_session.h"
#include "test_util.h"

namespace {

using nlohmann::json;

const std::string kAllTables =
    "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 C2\n"
    " /MEDMODEL DISTRIBUTION=NORMAL\n /OUTMODEL DISTRIBUTION=NORMAL\n"
    " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL\n"
    " /PRINT CASE_SUMMARY DESCRIPTIVES MEDIATION_REGRESSION_MODEL OUTCOME_REGRESSION_MODEL\n"
    "        EXPOSURE_STATS DECOMP_RESULTS INTERACTION_EFFECTS RATIO_STATS COV_MATRIX";

// Runs a command through MEDANLYS on the given data and returns its items.
json runOn(std::shared_ptr<const stathost::Dataset> data, const std::string& command) {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setActiveDataset(std::move(data));
  session.setCurrentCommand(command, 1, "test");
  session.beginRun();
  MEDANLYS();
  stathost::RunRecord record = session.endRun();
  session.setActiveDataset(nullptr);
  return record.items;
}

json runReference(const std::string& command) {
  return runOn(testsupport::referenceData("nn_binA"), command);
}

// What a reader sees of each table: title, footnotes, header paths and cell texts (numbers
// to 4 decimals). The notes (file paths) are left out.
json readable(const json& items) {
  json out = json::array();
  for (const json& item : items) {
    if (item["type"] != "table") continue;
    json cells = json::array();
    for (const json& row : item["cells"]) {
      json texts = json::array();
      for (const json& cell : row) texts.push_back(cell["text"]);
      cells.push_back(texts);
    }
    out.push_back({{"title", item["title"]},
                   {"footnotes", item["footnotes"]},
                   {"columns", item["columns"]},
                   {"rows", item["rows"]},
                   {"cells", cells}});
  }
  return out;
}

std::vector<std::string> titles(const json& items) {
  std::vector<std::string> t;
  for (const json& item : items) {
    if (item["type"] == "table") t.push_back(item["title"]);
  }
  return t;
}

bool hasTitle(const json& items, const std::string& title) {
  const auto t = titles(items);
  return std::find(t.begin(), t.end(), title) != t.end();
}

TEST(OutputGolden, FullContinuousAnalysis) {
  const json actual = readable(runReference(kAllTables + "."));
  const std::string path = std::string(MEDANLYS_TEST_DATA) + "/golden/nn_binA_all_tables.json";
  if (std::getenv("MEDANLYS_UPDATE_GOLDEN")) {
    std::ofstream(path) << actual.dump(1) << "\n";
    GTEST_SKIP() << "golden file written";
  }
  std::ifstream in(path);
  ASSERT_TRUE(in) << "missing " << path << " (run with MEDANLYS_UPDATE_GOLDEN=1 to write it)";
  const json expected = json::parse(in);
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(actual[i], expected[i]) << "table " << expected[i]["title"];
  }
}

TEST(OutputTables, OrderOfTheFullRun) {
  EXPECT_EQ(
      titles(runReference(kAllTables + ".")),
      (std::vector<std::string>{
          "Case Processing Summary", "Variable Descriptives", "Mediation Regression Model Summary",
          "Outcome Regression Model Summary", "Exposure Level Comparison Statistics",
          "Decomposition Analysis (Delta method)", "Interaction Effects Analysis",
          "Ratio Statistics (All Decomposition Proportions)", "Effect Interpretation",
          "Covariance matrix - mediator", "Covariance matrix - outcome"}));
}

TEST(OutputTables, TraditionalAnalysisHasNoEffectTables) {
  std::string command = kAllTables + ".";
  command.replace(command.find("CAUSAL"), 6, "TRADITIONAL");
  EXPECT_EQ(
      titles(runReference(command)),
      (std::vector<std::string>{
          "Case Processing Summary", "Variable Descriptives", "Mediation Regression Model Summary",
          "Outcome Regression Model Summary", "Exposure Level Comparison Statistics",
          "Covariance matrix - mediator", "Covariance matrix - outcome"}));
}

TEST(OutputTables, WithoutInteractionNoInteractionTable) {
  std::string command = kAllTables + ".";
  command.replace(command.find("ELEVEL=1)"), 9, "ELEVEL=1 INTERACTION=FALSE)");
  const json items = runReference(command);
  EXPECT_FALSE(hasTitle(items, "Interaction Effects Analysis"));
  EXPECT_TRUE(hasTitle(items, "Decomposition Analysis (Delta method)"));
}

// Five replicates cannot give a 95% percentile interval: the bootstrap does not succeed.
TEST(OutputTables, BootstrapRequestedButNotSucceededShowsEstimatesOnly) {
  const json items = runReference(kAllTables + "\n /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=5).");
  ASSERT_TRUE(hasTitle(items, "Decomposition Analysis"));
  for (const json& item : items) {
    if (item["title"] == "Decomposition Analysis") {
      EXPECT_EQ(item["columns"], json::parse(R"([["Estimate"]])"));
      EXPECT_EQ(item["rows"].size(), 8u);
    }
  }
  EXPECT_FALSE(hasTitle(items, "Decomposition Analysis Results(Bootstrap method)"));
  EXPECT_TRUE(hasTitle(items, "Effect Interpretation"));
}

TEST(OutputTables, SucceededBootstrapReplacesTheDeltaMethodTables) {
  const json items =
      runReference(kAllTables + "\n /BOOTSTRAP CRITERIA(CILEVEL=90 NSAMPLES=400 SEED=3).");
  EXPECT_EQ(
      titles(items),
      (std::vector<std::string>{
          "Case Processing Summary", "Variable Descriptives", "Mediation Regression Model Summary",
          "Outcome Regression Model Summary", "Exposure Level Comparison Statistics",
          "Effect Interpretation", "Covariance matrix - mediator", "Covariance matrix - outcome",
          "Decomposition Analysis Results(Bootstrap method)",
          "Interaction Effects Analysis (Bootstrap method)",
          "Ratio Statistics (Bootstrap method)"}));
  for (const json& item : items) {
    if (item["title"] != "Decomposition Analysis Results(Bootstrap method)") continue;
    EXPECT_EQ(
        item["footnotes"][0]["text"],
        "Bootstrap confidence intervals for effects are based on 400 resamples (bias-corrected "
        "method).");
    EXPECT_EQ(item["columns"][4][0], "90% Confidence Interval");
  }
}

// An outcome that does not depend on the exposure: TE is 0 up to rounding, and the
// proportions of TE are not formed.
TEST(OutputTables, RatioStatisticsUnavailableWhenTotalEffectVanishes) {
  std::vector<stathost::Column> columns;
  std::vector<double> a, m, y;
  for (int i = 0; i < 40; ++i) {
    a.push_back(i % 2);
    m.push_back(std::sin(1.3 * i));  // unrelated to the exposure within each level
    y.push_back(std::cos(0.7 * i));
  }
  // Make the mediator and outcome means equal in both exposure groups exactly.
  for (int i = 0; i < 40; i += 2) {
    m[i + 1] = m[i];
    y[i + 1] = y[i];
  }
  auto data = std::make_shared<stathost::Dataset>();
  data->columns = {testsupport::numericColumn("A", a), testsupport::numericColumn("M", m),
                   testsupport::numericColumn("Y", y)};
  const json items =
      runOn(data,
            "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A /MEDMODEL "
            "DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
            "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS RATIO_STATS.");
  EXPECT_TRUE(hasTitle(items, "Decomposition Analysis (Delta method)"));
  EXPECT_FALSE(hasTitle(items, "Ratio Statistics (All Decomposition Proportions)"));
  // The proportion mediated in the interpretation is not finite: shown as ".".
  for (const json& item : items) {
    if (item["title"] == "Effect Interpretation") {
      EXPECT_EQ(item["cells"][4][1]["text"], ".");
    }
  }
}

// 99 covariates: the mediator model has 101 parameters, the outcome model 103.
TEST(OutputTables, CovarianceMatrixIsCutAtOneHundred) {
  const int n = 140, p = 99;
  auto data = std::make_shared<stathost::Dataset>();
  std::vector<double> a(n), m(n), y(n);
  std::string with;
  for (int j = 0; j < p; ++j) {
    std::vector<double> c(n);
    for (int i = 0; i < n; ++i) c[i] = std::sin(0.37 * (j + 1) * i + j);
    data->columns.push_back(testsupport::numericColumn("c" + std::to_string(j), c));
    with += " c" + std::to_string(j);
  }
  for (int i = 0; i < n; ++i) {
    a[i] = i % 2;
    m[i] = 0.5 * a[i] + std::cos(1.1 * i);
    y[i] = a[i] + m[i] + std::sin(2.3 * i);
  }
  data->columns.push_back(testsupport::numericColumn("A", a));
  data->columns.push_back(testsupport::numericColumn("M", m));
  data->columns.push_back(testsupport::numericColumn("Y", y));
  const json items =
      runOn(data, "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A WITH" + with +
                      " /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA "
                      "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT COV_MATRIX.");
  ASSERT_TRUE(hasTitle(items, "Covariance matrix - mediator"));
  for (const json& item : items) {
    if (item["title"] != "Covariance matrix - mediator") continue;
    EXPECT_EQ(item["rows"].size(), 100u);
    EXPECT_EQ(item["columns"].size(), 100u);
    EXPECT_EQ(item["footnotes"][0]["text"], "First 100 rows and columns are printed.");
    EXPECT_EQ(item["footnotes"][1]["text"], "Covariance matrix of parameter estimates.");
    EXPECT_EQ(item["layout"]["min_data_column_width"], 70);
  }
}

}  // namespace

// The tables of a run: a golden document for a full continuous analysis, and one test per
// condition that adds or removes a table.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <random>

#include "algorithm/med_analysis_algo.h"
#include "entry/medanlys_entry.h"
#include "output/output_context.h"
#include "reference_data.h"
#include "stathost/host_session.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"
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

// ---- helpers of the tests below -------------------------------------------------------------

// The n-th table of the items with this title, or nullptr.
const json* tableTitled(const json& items, const std::string& title, int occurrence = 0) {
  for (const json& item : items) {
    if (item["type"] == "table" && item["title"] == title && occurrence-- == 0) return &item;
  }
  return nullptr;
}

std::vector<std::string> footnoteTexts(const json& table) {
  std::vector<std::string> texts;
  for (const json& f : table["footnotes"]) texts.push_back(f["text"]);
  return texts;
}

bool hasFootnote(const json& table, const std::string& text) {
  const auto texts = footnoteTexts(table);
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// The columns of a reference data set, with `extra` added.
std::vector<stathost::Column> referenceColumns(const std::string& dataset,
                                               std::vector<stathost::Column> extra = {}) {
  std::vector<stathost::Column> columns = testsupport::referenceData(dataset)->columns;
  for (stathost::Column& c : extra) columns.push_back(std::move(c));
  return columns;
}

std::shared_ptr<stathost::Dataset> datasetOf(std::vector<stathost::Column> columns) {
  auto data = std::make_shared<stathost::Dataset>();
  data->columns = std::move(columns);
  return data;
}

using Adjust = std::function<void(medanlys::MediationSettings&, medanlys::MediationCaseData&)>;
using Writer = std::function<void(const medanlys::OutputContext&)>;

// Reads the settings of `command` on `columns` (the case reading included), runs the analysis
// when `analyse` is set, lets `adjust` change settings and results, and returns the items
// that `writer` writes.
json writeTables(std::vector<stathost::Column> columns, const std::string& command, bool analyse,
                 const Adjust& adjust, const Writer& writer) {
  using namespace medanlys;
  testsupport::ActiveData active(std::move(columns));
  stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
  CommandDescriptionBuilder builder(grammar);
  for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
  stathost::STAX_TokenSequence tokens(command, 1);
  stathost::CommandSpec parsed;
  stathost::UniversalParser parser(tokens, parsed, grammar);
  EXPECT_EQ(parser.getCommandSpecifications(), 0);
  stathost::ProcedureDataSource source;
  MediationSettings settings(parsed, grammar, source);
  for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i)
    EXPECT_TRUE(settings.prepareInputSetting(i));
  EXPECT_TRUE(settings.finalizeSettings());
  MediationCaseData results;
  if (analyse) {
    MedAnalysisAlgo algo(settings, results);
    EXPECT_EQ(algo.start(), 0);
  }
  adjust(settings, results);
  stathost::StatJSONGenerator generator("Mediation Analysis");
  writer(OutputContext{generator, settings, results});
  return json::parse(generator.getProcedureStatJSON())["items"];
}

const std::string kContinuousCommand =
    "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 C2\n"
    " /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL\n"
    " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.";

// ---- covariance matrices of logistic and generalised linear models ---------------------------

struct CovarianceCase {
  const char* name;
  const char* dataset;
  const char* models;
  const char* reference;  // model in the reference values
  bool outcome;           // the outcome's table (else the mediator's)
  bool robust;
};
void PrintTo(const CovarianceCase& c, std::ostream* os) { *os << c.name; }

class GlmCovarianceTable : public ::testing::TestWithParam<CovarianceCase> {};

// Covariances agree with R to the precision of the fits themselves (glm_reference_test).
constexpr double kCovarianceTol = 1e-5;
constexpr double kCovarianceFloor = 1e-7;

TEST_P(GlmCovarianceTable, PrintsTheFittedModelsCovarianceLabelledLikeTheLinearOne) {
  const CovarianceCase& c = GetParam();
  const std::string covb = c.robust ? "ROBUST" : "MODEL";
  const json items =
      runOn(testsupport::referenceData(c.dataset),
            std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 "
                        "ELEVEL=1) WITH C1 C2 ") +
                c.models + " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=" + covb +
                " ANALYSISTYPE=CAUSAL /PRINT COV_MATRIX.");
  const json* table = tableTitled(
      items, c.outcome ? "Covariance matrix - outcome" : "Covariance matrix - mediator");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ((*table)["column_header"]["label"], c.robust ? "Robust" : "Model-based");
  EXPECT_EQ(footnoteTexts(*table),
            (std::vector<std::string>{"Covariance matrix of parameter estimates.",
                                      c.outcome ? "Covariate 4 = C1; Covariate 5 = C2."
                                                : "Covariate 2 = C1; Covariate 3 = C2."}));
  const std::vector<std::string> labels =
      c.outcome ? std::vector<std::string>{"Intercept",
                                           "A (Theta1)",
                                           "M (Theta2)",
                                           "A x M (Theta3)",
                                           "Covariate 4 (Theta4)",
                                           "Covariate 5 (Theta5)"}
                : std::vector<std::string>{"Intercept", "A (Beta1)", "Covariate 2 (Beta2)",
                                           "Covariate 3 (Beta3)"};
  const std::vector<std::string> names =
      c.outcome ? std::vector<std::string>{"(Intercept)", "A", "M", "A:M", "C1", "C2"}
                : std::vector<std::string>{"(Intercept)", "A", "C1", "C2"};
  ASSERT_EQ((*table)["rows"].size(), labels.size());
  ASSERT_EQ((*table)["columns"].size(), labels.size());
  const json reference = testsupport::referenceValues(
      c.dataset)["models"][c.reference][c.robust ? "vcov_hc0" : "vcov_model"];
  const std::vector<std::string> referenceNames = reference["names"];
  auto at = [&](const std::string& name) {
    return std::find(referenceNames.begin(), referenceNames.end(), name) - referenceNames.begin();
  };
  for (std::size_t i = 0; i < labels.size(); ++i) {
    EXPECT_EQ((*table)["rows"][i][0], labels[i]);
    EXPECT_EQ((*table)["columns"][i].back(), labels[i]);
    for (std::size_t j = 0; j < labels.size(); ++j) {
      const double expected = reference["matrix"][at(names[i])][at(names[j])];
      EXPECT_TRUE(testsupport::IsClose((*table)["cells"][i][j]["value"].get<double>(), expected,
                                       kCovarianceTol, kCovarianceFloor))
          << labels[i] << ", " << labels[j];
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Models, GlmCovarianceTable,
    ::testing::Values(
        CovarianceCase{"LogisticOutcomeModelBased", "nb_logit",
                       "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT",
                       "outcome_logistic_interaction", true, false},
        CovarianceCase{"LogisticOutcomeRobust", "nb_logit",
                       "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT",
                       "outcome_logistic_interaction", true, true},
        CovarianceCase{"PoissonOutcomeModelBased", "np_count",
                       "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=POISSON LINK=LOG",
                       "outcome_poisson_interaction", true, false},
        CovarianceCase{"PoissonOutcomeRobust", "np_count",
                       "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=POISSON LINK=LOG",
                       "outcome_poisson_interaction", true, true},
        CovarianceCase{"NegativeBinomialEstimatedK", "nnb_count",
                       "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NEGBIN(MLE) LINK=LOG",
                       "outcome_negbin_mle_interaction", true, false},
        CovarianceCase{"NegativeBinomialFixedKRobust", "nnb_count",
                       "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NEGBIN(1) LINK=LOG",
                       "outcome_negbin_fixed_k1_interaction", true, true},
        CovarianceCase{"LogisticMediatorModelBased", "bn",
                       "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL",
                       "mediator_logistic", false, false},
        CovarianceCase{"LogisticMediatorRobust", "bn",
                       "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL",
                       "mediator_logistic", false, true}),
    [](const ::testing::TestParamInfo<CovarianceCase>& param) { return param.param.name; });

// Labels follow the model the command defines; a matrix of another order is still printed,
// its extra rows and columns numbered, and the note says so (also for an empty matrix).
TEST(CovarianceLabels, MismatchNoteOnAGlmMatrixOfTheWrongOrder) {
  for (const std::size_t order : {std::size_t{0}, std::size_t{3}, std::size_t{7}}) {
    const json items = writeTables(
        referenceColumns("nb_logit"),
        "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 "
        "C2 /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /CRITERIA "
        "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT COV_MATRIX.",
        true,
        [&](medanlys::MediationSettings&, medanlys::MediationCaseData& r) {
          r.outcomeGlmFit.covModel = medanlys::Matrix(order, order);
          for (std::size_t i = 0; i < order; ++i)
            for (std::size_t j = 0; j < order; ++j) r.outcomeGlmFit.covModel(i, j) = 1.0 + i + j;
        },
        [](const medanlys::OutputContext& out) { medanlys::writeCovarianceMatrices(out); });
    const json* outcome = tableTitled(items, "Covariance matrix - outcome");
    ASSERT_NE(outcome, nullptr);
    EXPECT_TRUE(hasFootnote(*outcome,
                            "Note: Parameter names provided do not match matrix "
                            "dimensions."))
        << order;
    ASSERT_EQ((*outcome)["rows"].size(), order);
    if (order == 7) {
      EXPECT_EQ((*outcome)["rows"][5][0], "Covariate 5 (Theta5)");
      EXPECT_EQ((*outcome)["rows"][6][0], "7");
      EXPECT_EQ((*outcome)["cells"][6][6]["value"], 13.0);
    }
    // The mediator's matrix matches its six labels: no note.
    const json* mediator = tableTitled(items, "Covariance matrix - mediator");
    ASSERT_NE(mediator, nullptr);
    EXPECT_FALSE(hasFootnote(*mediator,
                             "Note: Parameter names provided do not match matrix "
                             "dimensions."));
  }
}

// ---- the variable behind each "Covariate k" row ----------------------------------------------

struct CovariateKeyCase {
  const char* name;
  const char* dataset;
  const char* variables;  // BY and WITH lists, or nothing
  const char* models;     // the /MEDMODEL and /OUTMODEL subcommands
  const char* print;
  const char* title;
  const char* note;  // "" when the table has no covariate rows
};
void PrintTo(const CovariateKeyCase& c, std::ostream* os) { *os << c.name; }

class CovariateKey : public ::testing::TestWithParam<CovariateKeyCase> {};

// Every model and covariance table names the variable (or factor level) behind each of its
// "Covariate k" rows, numbered as the rows are: from Beta2 in the mediator model, from
// Theta4 in the outcome model, factor indicators first.
TEST_P(CovariateKey, FootnoteNamesEveryCovariateRow) {
  const CovariateKeyCase& c = GetParam();
  const std::size_t n = testsupport::referenceData(c.dataset)->columns[0].numbers.size();
  std::vector<double> g;
  for (std::size_t i = 0; i < n; ++i) g.push_back(1.0 + static_cast<double>(i % 3));
  const json items =
      runOn(datasetOf(referenceColumns(
                c.dataset, {testsupport::numericColumn("G", g, stathost::MeasureLevel::kNominal)})),
            std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 "
                        "ELEVEL=1) ") +
                c.variables + " " + c.models +
                " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT " +
                c.print + ".");
  const json* table = tableTitled(items, c.title);
  ASSERT_NE(table, nullptr);
  const std::vector<std::string> notes = footnoteTexts(*table);
  std::string key;
  for (const std::string& f : notes) {
    if (f.rfind("Covariate ", 0) == 0) key = f;
  }
  EXPECT_EQ(key, c.note) << testing::PrintToString(notes);
  // Each "Covariate k (...)" row label has its "Covariate k = " entry.
  std::size_t rows = 0;
  for (const json& row : (*table)["rows"]) {
    const std::string label = row.back();
    if (label.rfind("Covariate ", 0) != 0) continue;
    ++rows;
    const std::string number = label.substr(0, label.find(' ', 10));
    EXPECT_NE(key.find(number + " = "), std::string::npos) << label;
  }
  EXPECT_EQ(rows == 0, std::string(c.note).empty());
}

constexpr const char* kNormalModels = "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL";
constexpr const char* kMediatorKey =
    "Covariate 2 = G=2; Covariate 3 = G=3; Covariate 4 = C1; Covariate 5 = C2.";
constexpr const char* kOutcomeKey =
    "Covariate 4 = G=2; Covariate 5 = G=3; Covariate 6 = C1; Covariate 7 = C2.";
INSTANTIATE_TEST_SUITE_P(
    Tables, CovariateKey,
    ::testing::Values(
        CovariateKeyCase{"LinearMediatorModel", "nn_binA", "BY G WITH C1 C2", kNormalModels,
                         "MEDIATION_REGRESSION_MODEL", "Mediation Regression Model Summary",
                         kMediatorKey},
        CovariateKeyCase{"LinearOutcomeModel", "nn_binA", "BY G WITH C1 C2", kNormalModels,
                         "OUTCOME_REGRESSION_MODEL", "Outcome Regression Model Summary",
                         kOutcomeKey},
        CovariateKeyCase{"LogisticMediatorModel", "bn", "BY G WITH C1 C2",
                         "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL",
                         "MEDIATION_REGRESSION_MODEL", "Mediation Regression Model Summary",
                         kMediatorKey},
        CovariateKeyCase{"GlmOutcomeModel", "nb_logit", "BY G WITH C1 C2",
                         "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT",
                         "OUTCOME_REGRESSION_MODEL", "Outcome Regression Model Summary",
                         kOutcomeKey},
        CovariateKeyCase{"LinearCovarianceMediator", "nn_binA", "BY G WITH C1 C2", kNormalModels,
                         "COV_MATRIX", "Covariance matrix - mediator", kMediatorKey},
        CovariateKeyCase{"LinearCovarianceOutcome", "nn_binA", "BY G WITH C1 C2", kNormalModels,
                         "COV_MATRIX", "Covariance matrix - outcome", kOutcomeKey},
        CovariateKeyCase{"GlmCovarianceOutcome", "nb_logit", "BY G WITH C1 C2",
                         "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT",
                         "COV_MATRIX", "Covariance matrix - outcome", kOutcomeKey},
        CovariateKeyCase{"LogisticCovarianceMediator", "bn", "WITH C2",
                         "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL",
                         "COV_MATRIX", "Covariance matrix - mediator", "Covariate 2 = C2."},
        CovariateKeyCase{"FactorOnly", "nn_binA", "BY G", kNormalModels,
                         "MEDIATION_REGRESSION_MODEL", "Mediation Regression Model Summary",
                         "Covariate 2 = G=2; Covariate 3 = G=3."},
        CovariateKeyCase{"NoCovariates", "nn_binA", "", kNormalModels, "OUTCOME_REGRESSION_MODEL",
                         "Outcome Regression Model Summary", ""}),
    [](const ::testing::TestParamInfo<CovariateKeyCase>& param) { return param.param.name; });

// Without the interaction the outcome's covariates keep their numbers (Theta3 is the
// interaction's), and a covariate transformed for its skewness is named by its formula.
TEST(CovariateKeyNumbers, WithoutInteractionAndWithATransformedCovariate) {
  const json items = writeTables(
      referenceColumns("nn_binA"),
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1 "
      "INTERACTION=FALSE) WITH C1 C2 /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL "
      "/CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
      true,
      [](medanlys::MediationSettings&, medanlys::MediationCaseData& r) {
        medanlys::TransformationRecord t;
        t.name = "log";
        r.transformations["Covariate_1"] = t;
      },
      [](const medanlys::OutputContext& out) {
        medanlys::writeLinearMediatorModel(out);
        medanlys::writeLinearOutcomeModel(out);
        medanlys::writeCovarianceMatrices(out);
      });
  const json* outcome = tableTitled(items, "Outcome Regression Model Summary");
  ASSERT_NE(outcome, nullptr);
  EXPECT_EQ((*outcome)["rows"][3][0], "Covariate 4 (Theta4)");
  EXPECT_TRUE(hasFootnote(*outcome, "Covariate 4 = C1; Covariate 5 = log(C2)."))
      << testing::PrintToString(footnoteTexts(*outcome));
  EXPECT_TRUE(hasFootnote(*tableTitled(items, "Covariance matrix - outcome"),
                          "Covariate 4 = C1; Covariate 5 = log(C2)."));
  EXPECT_TRUE(hasFootnote(*tableTitled(items, "Mediation Regression Model Summary"),
                          "Covariate 2 = C1; Covariate 3 = log(C2)."));
}

// ---- the level of every interval ------------------------------------------------------------

std::string intervalHeader(const json& table) {
  for (const json& column : table["columns"]) {
    if (column.size() == 2 && column[1] == "Lower") return column[0];
  }
  return "";
}

// CITYPE=BOOTSTRAP without the BOOTSTRAP subcommand bootstraps at the CRITERIA level: the
// headers say so, and the limits are those of the same level asked through BOOTSTRAP.
TEST(IntervalLevel, BootstrapTablesShowTheLevelTheLimitsWereComputedAt) {
  const std::string print = " /PRINT DECOMP_RESULTS INTERACTION_EFFECTS RATIO_STATS";
  const std::string head =
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
      "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL ";
  // One thread, so that the two runs draw the same resamples.
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const json criteriaOnly = runReference(
      head + "/CRITERIA CILEVEL=90 CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL" + print + ".");
  const json subcommand =
      runReference(head + "/CRITERIA CILEVEL=95 CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL" +
                   print + " /BOOTSTRAP CRITERIA(CILEVEL=90).");
  omp_set_num_threads(threads);
  for (const char* title :
       {"Decomposition Analysis Results(Bootstrap method)",
        "Interaction Effects Analysis (Bootstrap method)", "Ratio Statistics (Bootstrap method)"}) {
    const json* a = tableTitled(criteriaOnly, title);
    const json* b = tableTitled(subcommand, title);
    ASSERT_NE(a, nullptr) << title;
    ASSERT_NE(b, nullptr) << title;
    EXPECT_EQ(intervalHeader(*a), "90% Confidence Interval") << title;
    EXPECT_EQ(intervalHeader(*b), "90% Confidence Interval") << title;
    EXPECT_EQ((*a)["cells"], (*b)["cells"]) << title;
  }
}

struct LevelCase {
  const char* name;
  const char* dataset;
  const char* models;
  const char* title;
};
void PrintTo(const LevelCase& c, std::ostream* os) { *os << c.name; }

class DeltaIntervalLevel : public ::testing::TestWithParam<LevelCase> {};

TEST_P(DeltaIntervalLevel, HeaderShowsTheCriteriaLevel) {
  const LevelCase& c = GetParam();
  const json items =
      runOn(testsupport::referenceData(c.dataset),
            std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 "
                        "ELEVEL=1) ") +
                c.models +
                " /CRITERIA CILEVEL=90 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT "
                "MEDIATION_REGRESSION_MODEL OUTCOME_REGRESSION_MODEL DECOMP_RESULTS "
                "INTERACTION_EFFECTS RATIO_STATS.");
  const json* table = tableTitled(items, c.title);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(intervalHeader(*table), "90% Confidence Interval");
}

INSTANTIATE_TEST_SUITE_P(
    Tables, DeltaIntervalLevel,
    ::testing::Values(
        LevelCase{"Decomposition", "nn_binA", kNormalModels,
                  "Decomposition Analysis (Delta method)"},
        LevelCase{"Interaction", "nn_binA", kNormalModels, "Interaction Effects Analysis"},
        LevelCase{"Ratios", "nn_binA", kNormalModels,
                  "Ratio Statistics (All Decomposition Proportions)"},
        LevelCase{"LogisticMediator", "bn",
                  "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL",
                  "Mediation Regression Model Summary"},
        LevelCase{"GlmOutcome", "nb_logit",
                  "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT",
                  "Outcome Regression Model Summary"}),
    [](const ::testing::TestParamInfo<LevelCase>& param) { return param.param.name; });

// ---- which bootstrap interval is shown ------------------------------------------------------

struct IntervalCase {
  const char* name;
  medanlys::BootstrapInterval interval;
  double lower, upper;
  const char* note;
};
void PrintTo(const IntervalCase& c, std::ostream* os) { *os << c.name; }

class BootstrapIntervalShown : public ::testing::TestWithParam<IntervalCase> {};

TEST_P(BootstrapIntervalShown, TablesShowTheChosenLimitsAndNameThem) {
  const IntervalCase& c = GetParam();
  const json items = writeTables(
      referenceColumns("nn_binA"), kContinuousCommand, false,
      [&](medanlys::MediationSettings& s, medanlys::MediationCaseData& r) {
        s.bootstrapInterval = c.interval;
        r.bootstrapReplicates = 500;
        r.flags[medanlys::FLAG_BOOTSTRAP_SUCCEEDED] = true;
        for (const char* key :
             {"CDE", "NDE", "NIE", "TE", "PIE", "PE", "TDE", "PAI", "INT_med", "INT_ref", "PM"}) {
          r.bootstrap[key] = {{"estimate", 1.0},
                              {"se", 0.5},
                              {"p_value", 0.04},
                              {"percentile_ci_lower", 0.1},
                              {"percentile_ci_upper", 1.1},
                              {"bca_ci_lower", 0.2},
                              {"bca_interval_upper", 1.2},
                              {"normal_ci_lower", 0.3},
                              {"normal_ci_upper", 1.3}};
        }
      },
      [](const medanlys::OutputContext& out) {
        medanlys::writeDecomposition(out, true);
        medanlys::writeInteractionEffects(out, true);
        medanlys::writeRatioStatistics(out, true);
      });
  ASSERT_EQ(items.size(), 3u);
  for (const json& table : items) {
    EXPECT_EQ(table["cells"][0][4]["value"], c.lower) << table["title"];
    EXPECT_EQ(table["cells"][0][5]["value"], c.upper) << table["title"];
    EXPECT_TRUE(hasFootnote(table, c.note)) << table["title"];
  }
  // The specified footnote stays first; the interval is named right after it.
  EXPECT_EQ(items[0]["footnotes"][0]["text"],
            "Bootstrap confidence intervals for effects are based on 500 resamples "
            "(bias-corrected method).");
  EXPECT_EQ(items[0]["footnotes"][1]["text"], c.note);
}

INSTANTIATE_TEST_SUITE_P(
    Intervals, BootstrapIntervalShown,
    ::testing::Values(
        IntervalCase{"Percentile", medanlys::BootstrapInterval::kPercentile, 0.1, 1.1,
                     "Limits shown are bootstrap percentile intervals."},
        IntervalCase{"Bca", medanlys::BootstrapInterval::kBca, 0.2, 1.2,
                     "Limits shown are bootstrap bias-corrected and accelerated (BCa) "
                     "intervals."},
        IntervalCase{"Normal", medanlys::BootstrapInterval::kNormal, 0.3, 1.3,
                     "Limits shown are bootstrap normal-approximation intervals (estimate "
                     "\u00b1 z \u00d7 bootstrap SE; for a ratio, on the log scale)."}),
    [](const ::testing::TestParamInfo<IntervalCase>& param) { return param.param.name; });

// The command chooses the interval; the default run shows and names the percentile one.
TEST(BootstrapIntervalShownByCommand, IntervalKeywordChoosesTheLimitsAndTheirNote) {
  const std::string head =
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
      "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
      "CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS /BOOTSTRAP "
      "CRITERIA(CILEVEL=95 NSAMPLES=400";
  const std::string title = "Decomposition Analysis Results(Bootstrap method)";
  const json defaultRun = runReference(head + ").");
  const json* plain = tableTitled(defaultRun, title);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ((*plain)["footnotes"][1]["text"], "Limits shown are bootstrap percentile intervals.");
  const json normalRun = runReference(head + " INTERVAL=NORMAL).");
  const json* normal = tableTitled(normalRun, title);
  ASSERT_NE(normal, nullptr);
  EXPECT_EQ((*normal)["footnotes"][1]["text"],
            "Limits shown are bootstrap normal-approximation intervals (estimate \u00b1 z \u00d7 "
            "bootstrap SE; for a ratio, on the log scale).");
  // The normal interval is centred on the estimate, 1.96 bootstrap SEs either side.
  constexpr double kNormalTol = 1e-3;  // z to three decimals
  for (const json& row : (*normal)["cells"]) {
    const double estimate = row[0]["value"], se = row[1]["value"];
    EXPECT_NEAR(row[4]["value"].get<double>(), estimate - 1.96 * se, kNormalTol * se);
    EXPECT_NEAR(row[5]["value"].get<double>(), estimate + 1.96 * se, kNormalTol * se);
  }
  const json bcaRun = runReference(head + " INTERVAL=BCA).");
  const json* bca = tableTitled(bcaRun, title);
  ASSERT_NE(bca, nullptr);
  EXPECT_EQ((*bca)["footnotes"][1]["text"],
            "Limits shown are bootstrap bias-corrected and accelerated (BCa) intervals.");
}

// ---- case processing summary with weight repairs ---------------------------------------------

TEST(CaseSummaryWeights, RemovedIsTheDifferenceAndTheRepairsAreFootnoted) {
  std::vector<double> w(300, 1.0);
  const json items = writeTables(
      referenceColumns("nn_binA", {testsupport::numericColumn("W", w)}),
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) /MEDMODEL "
      "DISTRIBUTION=NORMAL SCALEWEIGHT=W /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
      "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT CASE_SUMMARY.",
      false,
      [](medanlys::MediationSettings& s, medanlys::MediationCaseData&) {
        // 30 cases of weight 0.3 left out, 60 weights of 1.6 rounded up to 2.
        s.casesRead = 300;
        s.casesValid = 270;
        s.totalWeightRead = 315.0;
        s.totalWeightValid = 330.0;
        s.casesDroppedForWeight = 30;
        s.weightsRounded = 60;
        s.weightChangeByRounding = 24.0;
      },
      [](const medanlys::OutputContext& out) { medanlys::writeCaseSummary(out); });
  ASSERT_EQ(items.size(), 1u);
  const json& t = items[0];
  EXPECT_EQ(t["cells"][1][1]["value"], 315.0);
  EXPECT_EQ(t["cells"][1][2]["value"], 330.0);
  EXPECT_EQ(t["cells"][1][3]["value"], -15.0);
  EXPECT_EQ(footnoteTexts(t),
            (std::vector<std::string>{
                "30 cases were left out because their scale weight W was missing or below 0.5. A "
                "missing or negative weight counts as 0 in the Original total weight.",
                "Scale weights of 60 cases were rounded to whole numbers (halves away from zero); "
                "the Cleaned total weight is the sum of the rounded weights. Rounding raised the "
                "total weight, so Removed (Original minus Cleaned) is negative. Removed is the "
                "9.0000 that the removed cases weighed as read minus the 24.0000 that rounding "
                "added to the kept cases."}));
}

TEST(CaseSummaryWeights, OneCaseAndNoRoundingUpGiveTheShortForms) {
  const json items = writeTables(
      referenceColumns("nn_binA", {testsupport::numericColumn("W", std::vector<double>(300, 1.0))}),
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) /MEDMODEL "
      "DISTRIBUTION=NORMAL SCALEWEIGHT=W /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
      "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT CASE_SUMMARY.",
      false,
      [](medanlys::MediationSettings& s, medanlys::MediationCaseData&) {
        s.casesRead = 300;
        s.casesValid = 299;
        s.totalWeightRead = 300.2;
        s.totalWeightValid = 299.0;
        s.casesDroppedForWeight = 1;
        s.weightsRounded = 1;
        s.weightChangeByRounding = -0.3;
      },
      [](const medanlys::OutputContext& out) { medanlys::writeCaseSummary(out); });
  EXPECT_EQ(footnoteTexts(items[0]),
            (std::vector<std::string>{
                "1 case was left out because its scale weight W was missing or below 0.5. A "
                "missing or negative weight counts as 0 in the Original total weight.",
                "Scale weights of 1 case were rounded to whole numbers (halves away from zero); "
                "the Cleaned total weight is the sum of the rounded weights. Removed is the "
                "0.9000 that the removed cases weighed as read plus the 0.3000 that rounding "
                "took from the kept cases."}));
}

// A file whose weights leave cases out (0.3, missing, -1), round others (1.6 up, 2.4 down)
// and that has missing values besides: the footnotes account for every removed case and
// for the whole Removed weight.
TEST(CaseSummaryWeights, FootnotesReconcileBothRowsOfARealFile) {
  std::vector<double> w, k;
  for (int i = 0; i < 300; ++i) {
    const double weights[] = {0.3, NAN, -1.0, 1.6, 2.4, 1.0, 1.0, 1.0, 1.0, 1.0};
    w.push_back(weights[i % 10]);
    // Missing for 12 cases whose weights are usable: six of 2.4, six of 1.
    k.push_back(i % 25 == 4 ? NAN : std::sin(0.3 * i));
  }
  const json items = runOn(
      datasetOf(referenceColumns(
          "nn_binA", {testsupport::numericColumn("W", w), testsupport::numericColumn("K", k)})),
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
      "WITH K /MEDMODEL DISTRIBUTION=NORMAL SCALEWEIGHT=W /OUTMODEL DISTRIBUTION=NORMAL "
      "/CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT "
      "CASE_SUMMARY.");
  const json* t = tableTitled(items, "Case Processing Summary");
  ASSERT_NE(t, nullptr);
  // 300 read; 90 left out for the weight and 12 for K: 198 kept.
  EXPECT_EQ((*t)["cells"][0][1]["value"], 300.0);
  EXPECT_EQ((*t)["cells"][0][2]["value"], 198.0);
  EXPECT_EQ((*t)["cells"][0][3]["value"], 102.0);
  // As read: 30 x 0.3 + 30 x 1.6 + 30 x 2.4 + 150 x 1 = 279 (missing and -1 count 0).
  // Kept and rounded: 30 x 2 + 24 x 2 + 144 x 1 = 252. Rounding added 30 x 0.4 - 24 x 0.4.
  constexpr double kSumTol = 1e-9;
  EXPECT_NEAR((*t)["cells"][1][1]["value"].get<double>(), 279.0, kSumTol);
  EXPECT_NEAR((*t)["cells"][1][2]["value"].get<double>(), 252.0, kSumTol);
  EXPECT_NEAR((*t)["cells"][1][3]["value"].get<double>(), 27.0, kSumTol);
  EXPECT_EQ(footnoteTexts(*t),
            (std::vector<std::string>{
                "Of the 102 cases removed, 90 were left out because their scale weight W was "
                "missing or below 0.5 and 12 because a value of an analysis variable was missing. "
                "A missing or negative weight counts as 0 in the Original total weight.",
                "Scale weights of 54 cases were rounded to whole numbers (halves away from zero); "
                "the Cleaned total weight is the sum of the rounded weights. Removed is the "
                "29.4000 that the removed cases weighed as read minus the 2.4000 that rounding "
                "added to the kept cases."}));
}

// ---- what a scale weight does ---------------------------------------------------------------

// A weight of 2 on every case: estimates and robust SEs equal those of the data with every
// case twice, model-based SEs those of the unweighted data (the residual variance divides by
// the number of cases). The footnote says exactly this.
TEST(ScaleWeight, FootnoteSaysWhatTheWeightDoesToTheStandardErrors) {
  const auto base = testsupport::referenceData("nn_binA");
  std::vector<stathost::Column> doubled;
  for (const char* name : {"A", "M", "Y"}) {
    std::vector<double> v = testsupport::referenceColumn(*base, name), twice;
    for (double x : v) twice.insert(twice.end(), {x, x});
    doubled.push_back(testsupport::numericColumn(name, twice));
  }
  const std::string head =
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) /MEDMODEL "
      "DISTRIBUTION=NORMAL";
  const std::string tail =
      " /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL "
      "ANALYSISTYPE=CAUSAL /PRINT MEDIATION_REGRESSION_MODEL OUTCOME_REGRESSION_MODEL "
      "DECOMP_RESULTS.";
  const json weighted =
      runOn(datasetOf(referenceColumns(
                "nn_binA", {testsupport::numericColumn("W", std::vector<double>(300, 2.0))})),
            head + " SCALEWEIGHT=W" + tail);
  const json plain = runReference(head + tail);
  const json twice = runOn(datasetOf(doubled), head + tail);
  const json* w = tableTitled(weighted, "Mediation Regression Model Summary");
  const json* p = tableTitled(plain, "Mediation Regression Model Summary");
  const json* d = tableTitled(twice, "Mediation Regression Model Summary");
  ASSERT_TRUE(w && p && d);
  constexpr double kSameTol = 1e-9;
  const auto cell = [](const json* t, int row, int column) {
    return (*t)["cells"][row][column]["value"].get<double>();
  };
  // Row 1 is the exposure: columns Estimate, Robust SE, t | Estimate, Model SE, t.
  EXPECT_TRUE(testsupport::IsClose(cell(w, 1, 0), cell(d, 1, 0), kSameTol));
  EXPECT_TRUE(testsupport::IsClose(cell(w, 1, 1), cell(d, 1, 1), kSameTol));
  EXPECT_TRUE(testsupport::IsClose(cell(w, 1, 4), cell(p, 1, 4), kSameTol));
  EXPECT_GT(cell(w, 1, 4), 1.4 * cell(d, 1, 4));
  const std::string linear =
      "Cases are weighted by W: a case of weight k counts as k cases in the estimates and the "
      "robust SEs, but the model-based SEs take the sample size as the 300 cases, not the total "
      "weight 600.";
  EXPECT_TRUE(hasFootnote(*w, linear));
  EXPECT_TRUE(hasFootnote(*tableTitled(weighted, "Outcome Regression Model Summary"), linear));
  EXPECT_TRUE(hasFootnote(*tableTitled(weighted, "Decomposition Analysis (Delta method)"),
                          "Cases are weighted by W: a case of weight k counts as k cases in the "
                          "estimates; the model-based covariance of the linear models takes the "
                          "sample size as the 300 cases, not the total weight 600."));
  // Unweighted runs carry no weight note.
  for (const json& item : plain) {
    if (item["type"] != "table") continue;
    for (const std::string& f : footnoteTexts(item))
      EXPECT_EQ(f.find("weighted"), std::string::npos) << item["title"];
  }
}

struct WeightCase {
  const char* name;
  const char* medmodel;
  const char* outmodel;
  const char* covb;
  const char* title;
  bool bootstrap;
  const char* note;
};
void PrintTo(const WeightCase& c, std::ostream* os) { *os << c.name; }

class ScaleWeightNote : public ::testing::TestWithParam<WeightCase> {};

TEST_P(ScaleWeightNote, NamesWhatTheWeightDoesInThisTable) {
  const WeightCase& c = GetParam();
  const std::string dataset = std::string(c.medmodel).find("BINOMIAL") != std::string::npos ? "bn"
                              : std::string(c.outmodel).find("BINOMIAL") != std::string::npos
                                  ? "nb_logit"
                                  : "nn_binA";
  const std::size_t n = testsupport::referenceData(dataset)->columns[0].numbers.size();
  const json items = writeTables(
      referenceColumns(dataset, {testsupport::numericColumn("W", std::vector<double>(n, 1.0))}),
      std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 "
                  "ELEVEL=1) /MEDMODEL ") +
          c.medmodel + " SCALEWEIGHT=W /OUTMODEL " + c.outmodel +
          " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=" + c.covb +
          " ANALYSISTYPE=CAUSAL /PRINT MEDIATION_REGRESSION_MODEL OUTCOME_REGRESSION_MODEL "
          "DECOMP_RESULTS.",
      true,
      [&](medanlys::MediationSettings& s, medanlys::MediationCaseData& r) {
        s.casesValid = 250;
        s.totalWeightValid = 412.5;
        if (c.bootstrap) {
          r.bootstrapReplicates = 100;
          r.flags[medanlys::FLAG_BOOTSTRAP_SUCCEEDED] = true;
        }
      },
      [&](const medanlys::OutputContext& out) {
        const bool binaryMediator = out.settings.mediatorDistribution == medanlys::BINOMIAL;
        const bool normalOutcome = out.settings.outcomeDistribution == medanlys::NORMAL;
        if (binaryMediator) {
          medanlys::writeLogisticMediatorModel(out, medanlys::logisticTable(out));
        } else {
          medanlys::writeLinearMediatorModel(out);
        }
        if (normalOutcome) {
          medanlys::writeLinearOutcomeModel(out);
        } else {
          medanlys::writeGlmOutcomeModel(out, medanlys::glmOutcomeTable(out));
        }
        medanlys::writeDecomposition(out, c.bootstrap);
      });
  const json* table = tableTitled(items, c.title);
  ASSERT_NE(table, nullptr);
  EXPECT_TRUE(hasFootnote(*table, c.note)) << testing::PrintToString(footnoteTexts(*table));
}

constexpr const char* kGlmWeightNote =
    "Cases are weighted by W: a case of weight k counts as k cases in the estimates and in both "
    "standard errors.";
INSTANTIATE_TEST_SUITE_P(
    Tables, ScaleWeightNote,
    ::testing::Values(
        WeightCase{"LogisticMediatorModel", "DISTRIBUTION=BINOMIAL", "DISTRIBUTION=NORMAL", "MODEL",
                   "Mediation Regression Model Summary", false, kGlmWeightNote},
        WeightCase{"GlmOutcomeModel", "DISTRIBUTION=NORMAL", "DISTRIBUTION=BINOMIAL LINK=LOGIT",
                   "MODEL", "Outcome Regression Model Summary", false, kGlmWeightNote},
        WeightCase{"DeltaWithLinearOutcomeOnly", "DISTRIBUTION=BINOMIAL", "DISTRIBUTION=NORMAL",
                   "MODEL", "Decomposition Analysis (Delta method)", false,
                   "Cases are weighted by W: a case of weight k counts as k cases in the "
                   "estimates; the model-based covariance of the linear outcome model takes the "
                   "sample size as the 250 cases, not the total weight 412.5."},
        WeightCase{"DeltaWithLinearMediatorOnly", "DISTRIBUTION=NORMAL",
                   "DISTRIBUTION=BINOMIAL LINK=LOGIT", "MODEL",
                   "Decomposition Analysis (Delta method)", false,
                   "Cases are weighted by W: a case of weight k counts as k cases in the "
                   "estimates; the model-based covariance of the linear mediator model takes the "
                   "sample size as the 250 cases, not the total weight 412.5."},
        WeightCase{"DeltaWithLinearMediatorOnlyRobust", "DISTRIBUTION=NORMAL",
                   "DISTRIBUTION=BINOMIAL LINK=LOGIT", "ROBUST",
                   "Decomposition Analysis (Delta method)", false,
                   "Cases are weighted by W: a case of weight k counts as k cases in the "
                   "estimates and in the standard errors."},
        WeightCase{"BootstrapWithLinearMediatorOnly", "DISTRIBUTION=NORMAL",
                   "DISTRIBUTION=BINOMIAL LINK=LOGIT", "MODEL",
                   "Decomposition Analysis Results(Bootstrap method)", true,
                   "Cases are weighted by W: a case of weight k counts as k cases in the "
                   "estimates; each resample draws 250 cases, so the bootstrap limits reflect a "
                   "sample of that size, not the total weight 412.5."},
        WeightCase{"DeltaRobust", "DISTRIBUTION=NORMAL", "DISTRIBUTION=NORMAL", "ROBUST",
                   "Decomposition Analysis (Delta method)", false,
                   "Cases are weighted by W: a case of weight k counts as k cases in the "
                   "estimates and in the standard errors."},
        WeightCase{"Bootstrap", "DISTRIBUTION=NORMAL", "DISTRIBUTION=NORMAL", "MODEL",
                   "Decomposition Analysis Results(Bootstrap method)", true,
                   "Cases are weighted by W: a case of weight k counts as k cases in the "
                   "estimates; each resample draws 250 cases, so the bootstrap limits reflect a "
                   "sample of that size, not the total weight 412.5."}),
    [](const ::testing::TestParamInfo<WeightCase>& param) { return param.param.name; });

// ---- proportions of a total effect near zero -------------------------------------------------

// A direct effect that cancels the indirect one: TE is near 0 and its interval contains 0,
// so PM and the other proportions can take any value. With the interaction in the outcome
// model and no covariates, TE is the difference of the outcome's means between the two
// exposure groups, which the data set to 0.02.
std::shared_ptr<stathost::Dataset> cancellingEffects() {
  std::vector<double> a, m, y;
  std::mt19937 generator(5);
  auto normal = [&] {
    const double u = (generator() + 0.5) / 4294967296.0, v = (generator() + 0.5) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
  };
  double sum[2] = {0.0, 0.0};
  for (int i = 0; i < 200; ++i) {
    a.push_back(i % 2);
    m.push_back(a.back() + normal());
    y.push_back(m.back() - a.back() + 0.5 * normal());
    sum[i % 2] += y.back();
  }
  const double shift = (sum[1] - sum[0]) / 100.0 - 0.02;
  for (int i = 1; i < 200; i += 2) y[i] -= shift;
  return datasetOf({testsupport::numericColumn("A", a), testsupport::numericColumn("M", m),
                    testsupport::numericColumn("Y", y)});
}

// The note quotes the TE interval of the decomposition table the report shows, delta
// method or bootstrap, and stands on the ratio table and the interpretation table.
TEST(TotalEffectNote, ProportionsOfATotalEffectNearZeroAreFlagged) {
  const std::string command =
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) /MEDMODEL "
      "DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=90 CITYPE=DELTA "
      "COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS RATIO_STATS";
  struct Run {
    const char* suffix;
    const char* decomposition;
    const char* ratios;
    const char* interval;
  };
  for (const Run& run :
       {Run{".", "Decomposition Analysis (Delta method)",
            "Ratio Statistics (All Decomposition Proportions)", "90% confidence interval"},
        Run{" /BOOTSTRAP CRITERIA(CILEVEL=80 NSAMPLES=300 SEED=5 INTERVAL=BCA).",
            "Decomposition Analysis Results(Bootstrap method)",
            "Ratio Statistics (Bootstrap method)",
            "80% bootstrap bias-corrected and accelerated (BCa) interval"}}) {
    const json items = runOn(cancellingEffects(), command + run.suffix);
    const json* decomposition = tableTitled(items, run.decomposition);
    ASSERT_NE(decomposition, nullptr) << run.suffix;
    // The TE row: Estimate, SE, z, p-value, Lower, Upper.
    const json& te = (*decomposition)["cells"][3];
    ASSERT_EQ((*decomposition)["rows"][3][0], "TE");
    const std::string note =
        "The total effect TE = " + te[0]["text"].get<std::string>() +
        " is not distinguishable from zero: its " + run.interval + ", " +
        te[4]["text"].get<std::string>() + " to " + te[5]["text"].get<std::string>() +
        ", contains 0. Proportions of a total effect that is not distinguishable from zero are "
        "not interpretable: they can lie far outside 0\u2013100% and change sign with small "
        "changes in the data.";
    ASSERT_LT(te[4]["value"].get<double>(), 0.0);
    ASSERT_GT(te[5]["value"].get<double>(), 0.0);
    const json* ratios = tableTitled(items, run.ratios);
    ASSERT_NE(ratios, nullptr) << run.suffix;
    // The number is kept, far outside 0-100%.
    ASSERT_EQ((*ratios)["rows"][0][0], "PM (NIE/TE)");
    EXPECT_GT(std::fabs((*ratios)["cells"][0][0]["value"].get<double>()), 100.0);
    EXPECT_TRUE(hasFootnote(*ratios, note)) << testing::PrintToString(footnoteTexts(*ratios));
    const json* interpretation = tableTitled(items, "Effect Interpretation");
    ASSERT_NE(interpretation, nullptr);
    EXPECT_TRUE(hasFootnote(*interpretation, note))
        << testing::PrintToString(footnoteTexts(*interpretation));
  }
  // A total effect whose interval excludes 0 gives no note.
  const json items = runReference(kAllTables + ".");
  for (const char* title :
       {"Ratio Statistics (All Decomposition Proportions)", "Effect Interpretation"}) {
    const json* t = tableTitled(items, title);
    ASSERT_NE(t, nullptr);
    for (const std::string& f : footnoteTexts(*t))
      EXPECT_EQ(f.find("not distinguishable from zero"), std::string::npos) << title;
  }
}

// ---- the mediator's scaling and the skewness transformations ---------------------------------

// A mediator in the thousands is divided by 100 before fitting: every table that shows a
// rescaled value says so.
TEST(MediatorScale, TablesWithRescaledValuesCarryTheFactor) {
  std::vector<double> a, m, y;
  std::mt19937 generator(7);
  for (int i = 0; i < 120; ++i) {
    const double u = (generator() + 0.5) / 4294967296.0, v = (generator() + 0.5) / 4294967296.0;
    const double noise = std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
    a.push_back(i % 2);
    m.push_back(1000.0 + 300.0 * a.back() + 60.0 * noise);
    y.push_back(0.01 * m.back() + a.back() + std::sin(1.7 * i));
  }
  const json items =
      runOn(datasetOf({testsupport::numericColumn("A", a), testsupport::numericColumn("M", m),
                       testsupport::numericColumn("Y", y)}),
            "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
            "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
            "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT MEDIATION_REGRESSION_MODEL "
            "OUTCOME_REGRESSION_MODEL EXPOSURE_STATS DECOMP_RESULTS COV_MATRIX.");
  const std::string coefficients =
      "The mediator M was divided by 100 before fitting; coefficients involving it are on that "
      "scale.";
  for (const char* title :
       {"Mediation Regression Model Summary", "Outcome Regression Model Summary",
        "Covariance matrix - mediator", "Covariance matrix - outcome"}) {
    const json* t = tableTitled(items, title);
    ASSERT_NE(t, nullptr) << title;
    EXPECT_TRUE(hasFootnote(*t, coefficients)) << title;
  }
  const json* exposure = tableTitled(items, "Exposure Level Comparison Statistics");
  ASSERT_NE(exposure, nullptr);
  EXPECT_TRUE(hasFootnote(*exposure,
                          "The mediator M was divided by 100 before fitting; m* is shown on that "
                          "scale (100 times it is the value in M's units)."));
  // The effects are on the outcome's scale: nothing to say there.
  EXPECT_TRUE(footnoteTexts(*tableTitled(items, "Decomposition Analysis (Delta method)")).empty());
}

// A strongly left-skewed outcome is replaced by the reflected log: every table of effects
// says that its scale runs the other way.
TEST(Transformations, ReflectedOutcomeIsFootnotedOnEveryEffectTable) {
  std::vector<double> a, m, y;
  std::mt19937 generator(11);
  auto normal = [&] {
    const double u = (generator() + 0.5) / 4294967296.0, v = (generator() + 0.5) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
  };
  for (int i = 0; i < 200; ++i) {
    a.push_back(i % 2);
    m.push_back(0.8 * a.back() + normal());
    // 10 minus a log-normal: a long tail towards low values, rising with A and M.
    y.push_back(10.0 - std::exp(-0.4 * a.back() - 0.3 * m.back() + 0.8 * normal()));
  }
  const double yMax = *std::max_element(y.begin(), y.end());
  char formula[64];
  std::snprintf(formula, sizeof formula, "log(%.6g - Y)", yMax + 1.0);
  const json items =
      runOn(datasetOf({testsupport::numericColumn("A", a), testsupport::numericColumn("M", m),
                       testsupport::numericColumn("Y", y)}),
            "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
            "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
            "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT OUTCOME_REGRESSION_MODEL "
            "DECOMP_RESULTS INTERACTION_EFFECTS RATIO_STATS COV_MATRIX /PLOT PATH_DIAGRAM.");
  const std::string effects = std::string("The outcome Y was transformed to ") + formula +
                              " for its skewness: higher values on this scale are lower values "
                              "of Y. Effects are on the transformed scale and their signs are "
                              "reversed relative to Y.";
  for (const char* title : {"Decomposition Analysis (Delta method)", "Interaction Effects Analysis",
                            "Effect Interpretation"}) {
    const json* t = tableTitled(items, title);
    ASSERT_NE(t, nullptr) << title;
    EXPECT_TRUE(hasFootnote(*t, effects)) << title << testing::PrintToString(footnoteTexts(*t));
  }
  // The path diagram shows the NIE and TE: its footnotes say the same.
  bool diagram = false;
  for (const json& item : items) {
    if (item["type"] != "chart") continue;
    diagram = true;
    EXPECT_NE(
        item["gpl"].get<std::string>().find("GUIDE: text.footnote(label(\"" + effects + "\"))"),
        std::string::npos);
  }
  EXPECT_TRUE(diagram);
  const std::string coefficients = std::string("The outcome Y was transformed to ") + formula +
                                   " for its skewness: higher values on this scale are lower "
                                   "values of Y. Coefficients are on the transformed scale and "
                                   "their signs are reversed relative to Y.";
  EXPECT_TRUE(hasFootnote(*tableTitled(items, "Outcome Regression Model Summary"), coefficients));
  EXPECT_TRUE(hasFootnote(*tableTitled(items, "Covariance matrix - outcome"), coefficients));
  const json* ratios = tableTitled(items, "Ratio Statistics (All Decomposition Proportions)");
  ASSERT_NE(ratios, nullptr);
  EXPECT_TRUE(hasFootnote(*ratios, std::string("The outcome Y was transformed to ") + formula +
                                       " for its skewness: higher values on this scale are lower "
                                       "values of Y. The proportions are of effects on the "
                                       "transformed scale; reversing the scale does not change "
                                       "their sign."));
  // The effect on Y is positive, so on the reversed scale it is negative, and the sentence
  // says both.
  const json* interpretation = tableTitled(items, "Effect Interpretation");
  const std::string nde = (*interpretation)["cells"][1][2]["text"];
  EXPECT_EQ(nde.rfind("Exposure decreases the outcome by ", 0), 0u) << nde;
  EXPECT_NE(
      nde.find(std::string(" units of ") + formula + ", a reversed scale: that is, it raises Y"),
      std::string::npos)
      << nde;
}

struct TransformCase {
  const char* name;
  const char* role;
  const char* transformation;
  const char* title;
  const char* note;
};
void PrintTo(const TransformCase& c, std::ostream* os) { *os << c.name; }

class TransformationNote : public ::testing::TestWithParam<TransformCase> {};

TEST_P(TransformationNote, NamesTheVariableTheTransformationAndTheScale) {
  const TransformCase& c = GetParam();
  const json items = writeTables(
      referenceColumns("nn_binA"), kContinuousCommand, true,
      [&](medanlys::MediationSettings&, medanlys::MediationCaseData& r) {
        medanlys::TransformationRecord t;
        t.name = c.transformation;
        t.skewness = -1.5;
        t.minimum = 0.5;
        t.maximum = 9.0;
        r.transformations[c.role] = t;
      },
      [](const medanlys::OutputContext& out) {
        medanlys::writeLinearMediatorModel(out);
        medanlys::writeLinearOutcomeModel(out);
        medanlys::writeExposureStatistics(out);
        medanlys::writeDecomposition(out, false);
      });
  const json* table = tableTitled(items, c.title);
  ASSERT_NE(table, nullptr);
  EXPECT_TRUE(hasFootnote(*table, c.note)) << testing::PrintToString(footnoteTexts(*table));
}

INSTANTIATE_TEST_SUITE_P(
    Roles, TransformationNote,
    ::testing::Values(
        TransformCase{"LogOutcomeEffects", "Outcome", "log",
                      "Decomposition Analysis (Delta method)",
                      "The outcome Y was transformed to log(Y) for its skewness. Effects are on "
                      "the transformed scale."},
        TransformCase{"SquaredOutcomeModel", "Outcome", "power", "Outcome Regression Model Summary",
                      "The outcome Y was transformed to Y squared for its skewness. Coefficients "
                      "are on the scale of Y squared, which does not keep the order of values of "
                      "opposite sign."},
        TransformCase{"SqrtExposureModel", "Exposure", "sqrt", "Mediation Regression Model Summary",
                      "The exposure A was transformed to sqrt(A) for its skewness: the "
                      "coefficients of A are per unit of the transformed scale."},
        TransformCase{"ReflectedExposureEffects", "Exposure", "reflected_log",
                      "Decomposition Analysis (Delta method)",
                      "The exposure A was transformed to log(10 - A) for its skewness (higher "
                      "values on this scale are lower values of A): the control and treatment "
                      "levels were carried to that scale, so the effects compare the levels as "
                      "given."},
        TransformCase{"LogExposureLevels", "Exposure", "log",
                      "Exposure Level Comparison Statistics",
                      "The exposure A was transformed to log(A) for its skewness: a* and a-hat "
                      "are shown on that scale (0 and 1 in A's units)."},
        TransformCase{"ReflectedMediatorModel", "Mediator", "reflected_log",
                      "Outcome Regression Model Summary",
                      "The mediator M was transformed to log(10 - M) for its skewness: higher "
                      "values on this scale are lower values of M, and coefficients involving M "
                      "are on the transformed scale, with their signs reversed relative to M."},
        TransformCase{"ReflectedMediatorEffects", "Mediator", "reflected_log",
                      "Decomposition Analysis (Delta method)",
                      "The mediator M was transformed to log(10 - M) for its skewness: higher "
                      "values on this scale are lower values of M. The mediator model and m* are "
                      "on the transformed scale; the effects are on the outcome's scale and keep "
                      "their direction."},
        TransformCase{"LogMediatorLevel", "Mediator", "log", "Exposure Level Comparison Statistics",
                      "The mediator M was transformed to log(M) for its skewness: m* is shown on "
                      "the transformed scale."}),
    [](const ::testing::TestParamInfo<TransformCase>& param) { return param.param.name; });

}  // namespace

// The chart specifications a run writes, under each PLOT setting.
#include "output/charts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <tuple>

#include "entry/medanlys_entry.h"
#include "module_fixture.h"
#include "output/sensitivity.h"
#include "reference_data.h"
#include "stathost/gpl_chart.h"
#include "stathost/host_session.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"

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

constexpr const char* kContinuousText =
    "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL";
constexpr const char* kBinaryMediatorText =
    "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL";
constexpr const char* kLogitOutcomeText =
    "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT";
const std::string kContinuous = kContinuousText;
const std::string kBinaryMediator = kBinaryMediatorText;
const std::string kLogitOutcome = kLogitOutcomeText;
const std::string kPoissonOutcome =
    "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=POISSON LINK=LOG";

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

TEST(Charts, RatioOutcomeWritesForestBeforeQuartileBarsOnAMixedAxis) {
  const json charts =
      chartsOf("nb_logit",
               command(kLogitOutcome, "CAUSAL", "PATH_DIAGRAM BAR_PLOT FOREST_PLOT SCATTER_PLOT"));
  ASSERT_EQ(charts.size(), 3u);
  EXPECT_EQ(charts[0]["title"], "Mediation Analysis Forest Plot");
  EXPECT_EQ(charts[1]["title"], "Y by M Quartiles");
  EXPECT_EQ(charts[2]["title"], "Mediation Analysis Path Diagram");
  const json& forest = charts[0];
  EXPECT_TRUE(has(forest, "GUIDE: axis(dim(2), label(\"Effect Size (Mixed: Linear + Ratios)\"))"));
  EXPECT_TRUE(has(forest, "DATA: xOR = col(source(s), name(\"xOR\"))"));
  EXPECT_TRUE(has(forest, "label(\"OR=1\"))"));
  EXPECT_TRUE(has(forest, "label(\"Null Effect (0)\"))"));
  EXPECT_TRUE(has(forest, "Note: Mixed scales - Intercepts on linear scale (ref=0)"));
  // Intercepts, three paths and four effects; the outcome paths as odds ratios.
  const json& labels = forest["data"][0]["values"];
  ASSERT_EQ(labels.size(), 18u);
  EXPECT_EQ(labels[0], "(M intercept) Beta0");
  EXPECT_EQ(labels[6], "M -> Y (Theta2)");
  const json reference = testsupport::referenceValues("nb_logit")["models"];
  const double theta2 = reference["outcome_logistic_interaction"]["coef"]["M"];
  EXPECT_NEAR(forest["data"][1]["values"][6].get<double>(), std::exp(theta2), 1e-6);
  // Eight bars: the two outcome levels in each quartile group, as percentages.
  const json& bars = charts[1];
  ASSERT_EQ(bars["data"][0]["values"].size(), 8u);
  EXPECT_EQ(bars["data"][0]["values"][0].get<std::string>().rfind("M=0: Q1 [", 0), 0u);
  EXPECT_EQ(bars["data"][1]["values"][1], "Y=1");
  EXPECT_TRUE(has(bars, "COORD: rect(dim(1,2), cluster(3))"));
}

TEST(Charts, RatioScaleWithoutPathsUsesThePlainLayout) {
  const json charts =
      chartsOf("np_count",
               command(kPoissonOutcome, "CAUSAL", "BAR_PLOT FOREST_PLOT(PATH_COEFFICIENTS=FALSE)"));
  // A count outcome has no proportions to draw.
  ASSERT_EQ(charts.size(), 1u);
  const json& forest = charts[0];
  EXPECT_FALSE(has(forest, "COORD: transpose()"));
  EXPECT_TRUE(has(forest, "SCALE: cat(dim(1))\n"));
  EXPECT_TRUE(has(forest, "SCALE: linear(dim(2), include(1.0))"));
  EXPECT_TRUE(has(forest, "label(\"Incidence Rate Ratio Scale\"))"));
  EXPECT_TRUE(has(forest, "position(effectRange*xOR)"));
  EXPECT_FALSE(has(forest, "Null Effect (0)"));
  EXPECT_TRUE(has(forest, "Note: Effect sizes may appear compressed initially."));
}

// Quartile groups and Wilson limits of the outcome proportions.
TEST(ChartData, ProportionsByQuartile) {
  const medanlys::Vector m = {1, 2, 3, 4, 5, 6, 7, 8}, y = {0, 0, 0, 1, 0, 1, 1, 1}, w(8, 1.0);
  const auto bars = medanlys::proportionsByQuartile(m, y, w, 1.0, "Y", 95);
  ASSERT_EQ(bars.size(), 8u);
  EXPECT_EQ(bars[0].mediatorLevel, "M=0: Q1 [1, 2]");
  EXPECT_EQ(bars[6].mediatorLevel, "M=3: Q4 [7, 8]");
  EXPECT_EQ(bars[2].outcomeLevel, "Y=0");
  EXPECT_DOUBLE_EQ(bars[3].value, 50.0);  // one event among cases 3 and 4
  // Wilson 95% interval for 1 of 2 (R: prop.test(1, 2, correct = FALSE)$conf.int).
  EXPECT_NEAR(bars[3].lower, 9.4531, 1e-3);
  EXPECT_NEAR(bars[3].upper, 90.5469, 1e-3);
  EXPECT_DOUBLE_EQ(bars[7].value, 100.0);
}

// Each chart form against its checked-in GPL (MEDANLYS_UPDATE_GOLDEN=1 rewrites them).
struct GoldenChart {
  const char* file;
  const char* dataset;
  const char* models;
  const char* plot;
  int index;
};

class ChartGolden : public ::testing::TestWithParam<GoldenChart> {};

TEST_P(ChartGolden, GplMatchesTheCheckedInText) {
  const GoldenChart& g = GetParam();
  const json charts = chartsOf(g.dataset, command(g.models, "CAUSAL", g.plot));
  ASSERT_GT(charts.size(), static_cast<std::size_t>(g.index));
  const std::string gpl = charts[g.index]["gpl"];
  const std::string path = std::string(MEDANLYS_TEST_DATA) + "/golden/charts/" + g.file;
  if (std::getenv("MEDANLYS_UPDATE_GOLDEN")) {
    std::ofstream(path) << gpl;
    GTEST_SKIP() << "golden file written";
  }
  std::ifstream in(path);
  ASSERT_TRUE(in) << "missing " << path << " (run with MEDANLYS_UPDATE_GOLDEN=1 to write it)";
  std::stringstream expected;
  expected << in.rdbuf();
  EXPECT_EQ(gpl, expected.str());
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ChartGolden,
    ::testing::Values(
        GoldenChart{"scatter.gpl", "nn_binA", kContinuousText, "SCATTER_PLOT", 0},
        GoldenChart{"forest_linear_transposed.gpl", "nn_binA", kContinuousText, "FOREST_PLOT", 0},
        GoldenChart{"path_diagram.gpl", "nn_binA", kContinuousText, "PATH_DIAGRAM", 0},
        GoldenChart{"bar_means.gpl", "bn", kBinaryMediatorText, "BAR_PLOT", 0},
        GoldenChart{"forest_mixed.gpl", "nb_logit", kLogitOutcomeText, "FOREST_PLOT", 0},
        GoldenChart{"forest_ratio_plain.gpl", "nb_logit", kLogitOutcomeText,
                    "FOREST_PLOT(PATH_COEFFICIENTS=FALSE)", 0},
        GoldenChart{"bar_quartiles.gpl", "nb_logit", kLogitOutcomeText, "BAR_PLOT", 0}),
    [](const ::testing::TestParamInfo<GoldenChart>& param) {
      std::string name = param.param.file;
      return name.substr(0, name.find('.'));
    });

// Paths that cannot be read become labelled rows instead of stopping the chart.
class ForestRowsWithoutModels : public testsupport::ModuleTest {};

TEST_F(ForestRowsWithoutModels, LabelTheMissingPaths) {
  using namespace medanlys;
  stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
  CommandDescriptionBuilder builder(grammar);
  for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
  stathost::STAX_TokenSequence tokens(
      testsupport::validCommand("", "", "", "", " /PLOT FOREST_PLOT"), 1);
  stathost::CommandSpec parsed;
  stathost::UniversalParser parser(tokens, parsed, grammar);
  ASSERT_EQ(parser.getCommandSpecifications(), 0);
  stathost::ProcedureDataSource source;
  MediationSettings settings(parsed, grammar, source);
  for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i)
    settings.prepareInputSetting(i);
  MediationCaseData results;  // no fitted coefficients
  results.effects["TE"] = EffectInference{0.5, 0.1, 5.0, 0.0, 0.3, 0.7};
  stathost::StatJSONGenerator generator("Mediation Analysis");
  const OutputContext out{generator, settings, results};
  const auto rows = forestRows(out);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].label, "Exposure not available");
  EXPECT_EQ(rows[1].label, "Mediator not available");
  EXPECT_EQ(rows[2].label, "TE (Total Effect)");
  const ForestForm form = forestForm(out, rows.size());
  EXPECT_FALSE(form.transposed);  // three rows fit side by side
  EXPECT_EQ(form.scale, ForestScale::kLinear);
  EXPECT_DOUBLE_EQ(form.totalEffect, 0.5);
}

// ---- intervals: level and kind ---------------------------------------------------------------

json tablesAndChartsOf(std::shared_ptr<const stathost::Dataset> data, const std::string& command) {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setActiveDataset(std::move(data));
  session.setCurrentCommand(command, 1, "test");
  session.beginRun();
  MEDANLYS();
  const stathost::RunRecord record = session.endRun();
  session.setActiveDataset(nullptr);
  return record.items;
}

const json* itemTitled(const json& items, const std::string& title) {
  for (const json& item : items) {
    if (item["title"] == title) return &item;
  }
  return nullptr;
}

// The values of a chart's data column.
json column(const json& chart, const std::string& name) {
  for (const json& c : chart["data"]) {
    if (c["name"] == name) return c["values"];
  }
  return json();
}

// After a successful bootstrap the forest plot shows the bootstrap limits of the tables, and
// every interval in it is at the bootstrap's level, which the footnote states.
TEST(ForestIntervals, BootstrapRunShowsTheBootstrapLimitsAtTheirLevel) {
  const std::string head =
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 C2 "
      "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL ";
  const json items = tablesAndChartsOf(
      testsupport::referenceData("nn_binA"),
      head +
          "/CRITERIA CILEVEL=95 CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT "
          "DECOMP_RESULTS /PLOT FOREST_PLOT /BOOTSTRAP CRITERIA(CILEVEL=90 NSAMPLES=500).");
  const json* table = itemTitled(items, "Decomposition Analysis Results(Bootstrap method)");
  const json* forest = itemTitled(items, "Mediation Analysis Forest Plot");
  ASSERT_TRUE(table && forest);
  EXPECT_TRUE(has(*forest,
                  "GUIDE: text.footnote(label(\"90% Point Estimate  -Confidence "
                  "Interval\"))"));
  EXPECT_TRUE(has(*forest,
                  "GUIDE: text.footnote(label(\"Effect limits are bootstrap percentile intervals; "
                  "coefficient limits are normal-theory limits from the model covariance.\"))"));
  // Effect rows: NIE is the 4th row of the chart (after three paths), 3rd of the table.
  const json effect = column(*forest, "effect");
  const json limits = column(*forest, "ciRange");
  ASSERT_EQ(effect[6], "NIE (Natural Indirect)");
  EXPECT_EQ(limits[6], (*table)["cells"][2][4]["value"]);
  EXPECT_EQ(limits[7], (*table)["cells"][2][5]["value"]);
  // Path rows at 90% too: the same as in a delta-method run at 90%.
  const json delta = tablesAndChartsOf(
      testsupport::referenceData("nn_binA"),
      head +
          "/CRITERIA CILEVEL=90 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT /PLOT "
          "FOREST_PLOT.");
  const json* deltaForest = itemTitled(delta, "Mediation Analysis Forest Plot");
  ASSERT_NE(deltaForest, nullptr);
  for (int i = 0; i < 6; ++i) {
    EXPECT_DOUBLE_EQ(limits[i].get<double>(), column(*deltaForest, "ciRange")[i].get<double>());
  }
}

TEST(ForestIntervals, DeltaRunShowsTheCriteriaLevelWithoutAnIntervalNote) {
  const json charts =
      chartsOf("nn_binA",
               "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
               "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=90 "
               "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT /PLOT FOREST_PLOT.");
  ASSERT_EQ(charts.size(), 1u);
  EXPECT_TRUE(has(charts[0],
                  "GUIDE: text.footnote(label(\"90% Point Estimate  -Confidence "
                  "Interval\"))"));
  EXPECT_FALSE(has(charts[0], "bootstrap"));
}

// Error bars of the outcome proportions are at the CRITERIA level, as their footnote says.
TEST(BarIntervals, ProportionLimitsAndFootnoteUseTheCriteriaLevel) {
  const json charts =
      chartsOf("nb_logit",
               "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) "
               "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /CRITERIA "
               "CILEVEL=90 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT /PLOT BAR_PLOT.");
  ASSERT_EQ(charts.size(), 1u);
  EXPECT_TRUE(has(charts[0], "Grouped bars show proportions with 90% confidence intervals"));
  const auto data = testsupport::referenceData("nb_logit");
  const auto bars = medanlys::proportionsByQuartile(
      testsupport::referenceColumn(*data, "M"), testsupport::referenceColumn(*data, "Y"),
      medanlys::Vector(data->columns[0].numbers.size(), 1.0), 1.0, "Y", 90);
  const json lower = column(charts[0], "ci_lower");
  ASSERT_EQ(lower.size(), bars.size());
  for (std::size_t i = 0; i < bars.size(); ++i)
    EXPECT_DOUBLE_EQ(lower[i].get<double>(), bars[i].lower);
}

class ForestRowsFromResults : public testsupport::ModuleTest {
 protected:
  // The forest rows of hand-made results under the default settings, adjusted.
  std::vector<medanlys::MediationForestPlot::Row> rows(
      const std::function<void(medanlys::MediationSettings&, medanlys::MediationCaseData&)>& adjust,
      medanlys::ForestForm* form = nullptr) {
    using namespace medanlys;
    stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
    CommandDescriptionBuilder builder(grammar);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
    stathost::STAX_TokenSequence tokens(
        testsupport::validCommand("", "", "", "", " /PLOT FOREST_PLOT(PATH_COEFFICIENTS=FALSE)"),
        1);
    stathost::CommandSpec parsed;
    stathost::UniversalParser parser(tokens, parsed, grammar);
    EXPECT_EQ(parser.getCommandSpecifications(), 0);
    stathost::ProcedureDataSource source;
    MediationSettings settings(parsed, grammar, source);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i)
      settings.prepareInputSetting(i);
    MediationCaseData results;
    results.effects["NIE"] = EffectInference{0.5, 0.1, 5.0, 0.0, 0.3, 0.7};
    adjust(settings, results);
    stathost::StatJSONGenerator generator("Mediation Analysis");
    const OutputContext out{generator, settings, results};
    auto r = forestRows(out);
    if (form) *form = forestForm(out, r.size());
    return r;
  }
};

TEST_F(ForestRowsFromResults, ShowTheBootstrapIntervalTheUserChose) {
  using namespace medanlys;
  for (const auto& [interval, lower, upper, name] :
       std::vector<std::tuple<BootstrapInterval, double, double, std::string>>{
           {BootstrapInterval::kPercentile, 0.1, 0.9, "percentile"},
           {BootstrapInterval::kBca, 0.2, 0.8, "bias-corrected and accelerated (BCa)"},
           {BootstrapInterval::kNormal, 0.25, 0.75, "normal-approximation"}}) {
    ForestForm form;
    const auto r = rows(
        [&](MediationSettings& s, MediationCaseData& results) {
          s.bootstrapInterval = interval;
          s.bootstrapGiven = true;
          s.bootstrapCiLevel = 80;
          results.flags[FLAG_BOOTSTRAP_SUCCEEDED] = true;
          results.bootstrap["NIE"] = {
              {"estimate", 0.5},        {"percentile_ci_lower", 0.1}, {"percentile_ci_upper", 0.9},
              {"bca_ci_lower", 0.2},    {"bca_interval_upper", 0.8},  {"normal_ci_lower", 0.25},
              {"normal_ci_upper", 0.75}};
        },
        &form);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].lower, lower) << name;
    EXPECT_EQ(r[0].upper, upper) << name;
    EXPECT_EQ(form.level, 80);
    EXPECT_EQ(form.notes,
              std::vector<std::string>{"Effect limits are bootstrap " + name + " intervals."});
  }
  // Without a successful bootstrap: the delta-method limits at the CRITERIA level.
  ForestForm form;
  const auto r = rows([](MediationSettings&, MediationCaseData&) {}, &form);
  EXPECT_EQ(r[0].lower, 0.3);
  EXPECT_EQ(form.level, 95);
  EXPECT_TRUE(form.notes.empty());
}

TEST_F(ForestRowsFromResults, ReflectedOutcomeIsNotedUnderTheChart) {
  using namespace medanlys;
  ForestForm form;
  rows(
      [](MediationSettings&, MediationCaseData& results) {
        TransformationRecord t;
        t.name = "reflected_log";
        t.maximum = 4.0;
        results.transformations["Outcome"] = t;
      },
      &form);
  EXPECT_EQ(form.notes, std::vector<std::string>{
                            "The outcome y was transformed to log(5 - y) for its skewness: higher "
                            "values on this scale are lower values of y. Effects are on the "
                            "transformed scale and their signs are reversed relative to y."});
}

// ---- E-value curves (PRINT SENSITIVITY) ---------------------------------------------------

struct EValueChartCase {
  const char* dataset;
  const char* models;
  const char* prefix;  // of the effects' rows in the sensitivity table
};

class EValueCurves : public ::testing::TestWithParam<EValueChartCase> {};

// The items of a run with PRINT SENSITIVITY and the forest plot and path diagram.
json sensitivityItems(const EValueChartCase& c, const std::string& analysis = "CAUSAL") {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setActiveDataset(testsupport::referenceData(c.dataset));
  session.setCurrentCommand(
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 "
      "C2 " +
          std::string(c.models) + " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=" +
          analysis + " /PRINT SENSITIVITY /PLOT FOREST_PLOT PATH_DIAGRAM.",
      1, "test");
  session.beginRun();
  MEDANLYS();
  const stathost::RunRecord record = session.endRun();
  session.setActiveDataset(nullptr);
  return record.items;
}

TEST_P(EValueCurves, EachCurveExplainsItsEffectAwayAndTheRendererDrawsIt) {
  const EValueChartCase& c = GetParam();
  const json items = sensitivityItems(c);
  std::vector<std::string> charts;
  const json* chart = nullptr;
  const json* table = nullptr;
  for (const json& item : items) {
    if (item["type"] == "chart") charts.push_back(item["title"]);
    if (item["title"] == "Sensitivity Analysis: E-value Curves") chart = &item;
    if (item["title"] == "Sensitivity Analysis (E-values)") table = &item;
  }
  // Before the path diagram, which stays last.
  EXPECT_EQ(charts, (std::vector<std::string>{"Mediation Analysis Forest Plot",
                                              "Sensitivity Analysis: E-value Curves",
                                              "Mediation Analysis Path Diagram"}));
  ASSERT_TRUE(chart && table);
  // The effects' risk ratios and E-values as the table gives them.
  std::map<std::string, std::pair<double, double>> effects;
  for (std::size_t i = 0; i < (*table)["rows"].size(); ++i) {
    const std::string label = (*table)["rows"][i][0];
    const json& cells = (*table)["cells"][i];
    effects[label.substr(std::string(c.prefix).size())] = {cells[0]["value"], cells[3]["value"]};
  }
  const json eu = column(*chart, "rrEU"), ud = column(*chart, "rrUD"),
             curve = column(*chart, "curve");
  ASSERT_EQ(eu.size(), ud.size());
  ASSERT_EQ(eu.size(), curve.size());
  std::map<std::string, int> points;
  double top = 0.0;
  for (double v : column(*chart, "diagonalX")) top = std::max(top, v);
  for (std::size_t i = 0; i < eu.size(); ++i) {
    const double x = eu[i], y = ud[i];
    const double rr = effects.at(curve[i]).first;
    // The bias factor of VanderWeele and Ding (2017) at every point equals the effect.
    EXPECT_NEAR(x * y / (x + y - 1.0), rr < 1.0 ? 1.0 / rr : rr, 1e-9) << curve[i];
    EXPECT_GE(x, 1.0);
    EXPECT_LE(x, top + 1e-9);
    EXPECT_GE(y, 1.0);
    EXPECT_LE(y, top + 1e-9);
    ++points[curve[i]];
  }
  EXPECT_EQ(points.size(), 3u);  // TE, NDE and NIE
  // The E-values marked on the diagonal, labelled with two decimals.
  const json ex = column(*chart, "eValueX"), ey = column(*chart, "eValueY"),
             labels = column(*chart, "eValueLabel");
  ASSERT_EQ(ex.size(), 3u);
  const char* order[] = {"TE", "NDE", "NIE"};
  for (int k = 0; k < 3; ++k) {
    const double e = effects.at(order[k]).second;
    EXPECT_NEAR(ex[k].get<double>(), e, 1e-12);
    EXPECT_NEAR(ey[k].get<double>(), e, 1e-12);
    char text[64];
    std::snprintf(text, sizeof text, "%s: E = %.2f", order[k], e);
    EXPECT_EQ(labels[k], text);
  }
  EXPECT_TRUE(has(*chart, "SCALE: linear(dim(1), min(1), max("));
  EXPECT_TRUE(has(*chart, "GUIDE: legend(aesthetic(aesthetic.color), label(\"Effect\"))"));
  EXPECT_TRUE(has(*chart, "ELEMENT: line(position(rrEU*rrUD), color(curve), split(curve)"));
  EXPECT_TRUE(has(*chart, "label(eValueLabel))"));
  // Every statement is one the renderer draws.
  EXPECT_TRUE(stathost::gpl::parseChart((*chart)["gpl"]).skipped.empty());
  const stathost::gpl::ChartDrawing drawing = stathost::gpl::drawChart(*chart);
  EXPECT_TRUE(drawing.ok) << drawing.problem;
  EXPECT_TRUE(drawing.omitted.empty());
}

INSTANTIATE_TEST_SUITE_P(Strategies, EValueCurves,
                         ::testing::Values(EValueChartCase{"nn_binA", kContinuousText, ""},
                                           EValueChartCase{"bn", kBinaryMediatorText, ""},
                                           EValueChartCase{"nb_logit", kLogitOutcomeText, "OR_"},
                                           EValueChartCase{
                                               "np_count",
                                               "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL "
                                               "DISTRIBUTION=POISSON LINK=LOG",
                                               "IRR_"}),
                         [](const ::testing::TestParamInfo<EValueChartCase>& param) {
                           return std::string(param.param.dataset);
                         });

TEST(EValueCurvesAbsent, WithoutSensitivityOrWithoutEffects) {
  // No SENSITIVITY: the charts PLOT asks for and nothing else.
  const json charts = chartsOf("nn_binA", command(kContinuous, "CAUSAL", "FOREST_PLOT"));
  ASSERT_EQ(charts.size(), 1u);
  EXPECT_EQ(charts[0]["title"], "Mediation Analysis Forest Plot");
  // A traditional analysis has no effects.
  for (const json& item : sensitivityItems({"nn_binA", kContinuousText, ""}, "TRADITIONAL")) {
    EXPECT_NE(item["title"], "Sensitivity Analysis: E-value Curves");
  }
}

class EValueCurvesFromResults : public testsupport::ModuleTest {
 protected:
  // The E-value chart of hand-made effects of a continuous outcome with SD 1, or null.
  json chart(const std::map<std::string, double>& estimates) {
    using namespace medanlys;
    stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
    CommandDescriptionBuilder builder(grammar);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
    stathost::STAX_TokenSequence tokens(testsupport::validCommand("", "", "", "", " SENSITIVITY"),
                                        1);
    stathost::CommandSpec parsed;
    stathost::UniversalParser parser(tokens, parsed, grammar);
    EXPECT_EQ(parser.getCommandSpecifications(), 0);
    stathost::ProcedureDataSource source;
    MediationSettings settings(parsed, grammar, source);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i)
      settings.prepareInputSetting(i);
    MediationCaseData results;
    results.outcomeSd = 1.0;
    for (const auto& [name, value] : estimates) {
      results.effects[name] = EffectInference{value, 0.1, 0.0, 0.0, value - 0.2, value + 0.2};
    }
    stathost::StatJSONGenerator generator("Mediation Analysis");
    int status = -1;
    const bool written = writeEValuePlot(OutputContext{generator, settings, results}, status);
    const json items = json::parse(generator.getProcedureStatJSON())["items"];
    EXPECT_EQ(written, !items.empty());
    if (written) {
      EXPECT_EQ(status, 0);
    }
    return items.empty() ? json() : items[0];
  }
};

TEST_F(EValueCurvesFromResults, RatiosBelowOneAreDrawnAsTheirReciprocalAndNullEffectsAreNamed) {
  // NDE: exp(0.91 x -1) < 1; TE: exactly 1; NIE: absent.
  const json c = chart({{"NDE", -1.0}, {"TE", 0.0}});
  ASSERT_FALSE(c.is_null());
  const double rr = std::exp(-0.91);
  const double e = medanlys::eValue(rr);
  char label[64];
  std::snprintf(label, sizeof label, "NDE: E = %.2f (1/RR)", e);
  EXPECT_EQ(column(c, "eValueLabel"), json::array({label}));
  for (const json& name : column(c, "curve")) EXPECT_EQ(name, "NDE");
  // Both axes from 1 to the whole number at or above 1.6 E (at least 3).
  EXPECT_EQ(column(c, "diagonalX"), json::array({1.0, std::ceil(std::max(3.0, 1.6 * e))}));
  EXPECT_TRUE(has(c, "Not drawn: TE and NIE have a risk ratio of 1 or none, so no curve."));
  EXPECT_TRUE(has(c, "SD(y) = 1.0000"));
}

TEST_F(EValueCurvesFromResults, NoChartWhenNoEffectCanBeDrawn) {
  EXPECT_TRUE(chart({{"TE", 0.0}, {"NDE", 0.0}}).is_null());
}

}  // namespace

// The sensitivity analysis to unmeasured confounding (PRINT SENSITIVITY): the E-values
// against the closed forms computed outside the program (tests/data/reference/evalues.json,
// written by evalues_reference.py beside it), the conversions to the risk-ratio scale, the
// table, the sentences of "Effect Interpretation", the limits it takes and the switch.
#include "output/sensitivity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "entry/medanlys_entry.h"
#include "module_fixture.h"
#include "output/evalues.h"
#include "reference_data.h"
#include "stathost/host_session.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::IsClose;

// The same inputs through the same closed forms: agreement to rounding.
constexpr double kEValueTol = 1e-10;
// The program's effects against R's regmedint on the reference data, as in the effect
// reference tests.
constexpr double kEffectAgreementTol = 1e-6;
// A number derived twice from the same doubles.
constexpr double kSameNumberTol = 1e-12;

constexpr const char* kTableTitle = "Sensitivity Analysis (E-values)";
constexpr const char* kChartTitle = "Sensitivity Analysis: E-value Curves";

json evalueReference() {
  std::ifstream in(testsupport::referencePath("evalues.json"));
  return json::parse(in);
}

std::size_t referenceCount(const char* part) {
  try {
    return evalueReference()[part].size();
  } catch (const std::exception&) {
    return 0;  // the suites below then report that they have no cases
  }
}

RiskRatioConversion conversionNamed(const std::string& name) {
  if (name == "standardised_difference") return RiskRatioConversion::kStandardisedDifference;
  if (name == "rare_outcome_odds") return RiskRatioConversion::kRareOutcomeOdds;
  if (name == "common_outcome_odds") return RiskRatioConversion::kCommonOutcomeOdds;
  if (name == "rate_ratio") return RiskRatioConversion::kRateRatio;
  EXPECT_EQ(name, "risk_ratio");
  return RiskRatioConversion::kRiskRatio;
}

RiskRatioScale scaleOf(const json& config) {
  RiskRatioScale scale;
  scale.conversion = conversionNamed(config["conversion"]);
  if (config.contains("outcome_sd")) scale.outcomeSd = config["outcome_sd"];
  return scale;
}

// ---- the formulas -----------------------------------------------------------------------

class EValueFormula : public ::testing::TestWithParam<std::size_t> {};

TEST_P(EValueFormula, MatchesTheClosedFormsComputedOutsideTheProgram) {
  const json c = evalueReference()["formula"][GetParam()];
  EXPECT_TRUE(IsClose(eValue(c["rr"]), c["evalue"], kEValueTol)) << c;
  EXPECT_TRUE(IsClose(eValueOfLimit(c["lower"], c["upper"]), c["evalue_limit"], kEValueTol)) << c;
}

INSTANTIATE_TEST_SUITE_P(Reference, EValueFormula,
                         ::testing::Range<std::size_t>(0, referenceCount("formula")));

TEST(EValue, IsOneAtNoEffectAndTheSameForARatioAndItsReciprocal) {
  EXPECT_EQ(eValue(1.0), 1.0);
  for (double rr : {1.01, 1.7, 3.0, 12.5}) {
    EXPECT_TRUE(IsClose(eValue(1.0 / rr), eValue(rr), kSameNumberTol)) << rr;
    EXPECT_GT(eValue(rr), rr);  // a confounder must be stronger than the effect it explains
  }
}

TEST(EValue, NotDefinedForARatioThatIsNotPositiveAndFinite) {
  for (double rr : {0.0, -1.5, double(NAN), double(INFINITY)})
    EXPECT_TRUE(std::isnan(eValue(rr))) << rr;
  EXPECT_TRUE(std::isnan(eValueOfLimit(NAN, 2.0)));
  EXPECT_TRUE(std::isnan(eValueOfLimit(1.5, INFINITY)));
}

TEST(EValue, OfTheLimitCloserToOne) {
  EXPECT_EQ(eValueOfLimit(1.2, 3.0), eValue(1.2));  // above 1: the lower limit
  EXPECT_EQ(eValueOfLimit(0.2, 0.8), eValue(0.8));  // below 1: the upper limit
  EXPECT_EQ(eValueOfLimit(0.9, 1.3), 1.0);          // containing 1
  EXPECT_EQ(eValueOfLimit(1.0, 1.3), 1.0);          // touching 1
}

TEST(Conversion, EachScaleAsVanderWeeleAndDingPutIt) {
  EXPECT_EQ(toRiskRatio(2.25, {RiskRatioConversion::kCommonOutcomeOdds}), 1.5);
  EXPECT_EQ(toRiskRatio(2.25, {RiskRatioConversion::kRareOutcomeOdds}), 2.25);
  EXPECT_EQ(toRiskRatio(2.25, {RiskRatioConversion::kRateRatio}), 2.25);
  EXPECT_EQ(toRiskRatio(2.25, {RiskRatioConversion::kRiskRatio}), 2.25);
  const RiskRatioScale continuous{RiskRatioConversion::kStandardisedDifference, 2.0};
  EXPECT_TRUE(IsClose(toRiskRatio(0.5, continuous), std::exp(0.91 * 0.25), kSameNumberTol));
  EXPECT_TRUE(IsClose(toRiskRatio(-0.5, continuous), std::exp(-0.91 * 0.25), kSameNumberTol));
  // Nothing to convert with.
  for (double sd : {0.0, -1.0, double(NAN)}) {
    EXPECT_TRUE(std::isnan(toRiskRatio(0.5, {RiskRatioConversion::kStandardisedDifference, sd})));
  }
  EXPECT_TRUE(std::isnan(toRiskRatio(-0.3, {RiskRatioConversion::kCommonOutcomeOdds})));
  EXPECT_TRUE(std::isnan(toRiskRatio(0.0, {RiskRatioConversion::kRateRatio})));
}

TEST(Conversion, TheRareOutcomeRuleIsThatOfTheWarning) {
  EXPECT_EQ(oddsRatioConversion(0.05), RiskRatioConversion::kRareOutcomeOdds);
  EXPECT_EQ(oddsRatioConversion(0.10), RiskRatioConversion::kRareOutcomeOdds);
  EXPECT_EQ(oddsRatioConversion(0.1000001), RiskRatioConversion::kCommonOutcomeOdds);
  EXPECT_EQ(oddsRatioConversion(0.6), RiskRatioConversion::kCommonOutcomeOdds);
  // Not known: the conversion that does not overstate the effect.
  EXPECT_EQ(oddsRatioConversion(NAN), RiskRatioConversion::kCommonOutcomeOdds);
}

TEST(EValueCurve, EveryPointExplainsTheEffectAwayExactly) {
  for (double rr : {1.3, 2.5, 0.4}) {
    const double r = rr < 1.0 ? 1.0 / rr : rr;
    const double e = eValue(rr);
    EXPECT_TRUE(IsClose(eValueCurve(rr, e), e, kSameNumberTol)) << rr;  // through (E, E)
    double previous = INFINITY;
    for (double x = r * 1.001; x < 40.0; x *= 1.37) {
      const double y = eValueCurve(rr, x);
      // The bias factor of VanderWeele and Ding (2017) equals the effect.
      EXPECT_TRUE(IsClose(x * y / (x + y - 1.0), r, kSameNumberTol)) << rr << " at " << x;
      EXPECT_LT(y, previous);
      previous = y;
    }
    EXPECT_TRUE(std::isnan(eValueCurve(rr, r)));
    EXPECT_TRUE(std::isnan(eValueCurve(rr, 0.9 * r)));
  }
}

TEST(SensitivitySentence, SaysWhatEachEValueMeans) {
  EXPECT_EQ(sensitivitySentence("the natural direct effect", false, 2.31, 1.42),
            "An unmeasured confounder associated with both the exposure and the outcome by a "
            "risk ratio of 2.31 each, above the measured covariates, could explain away the "
            "natural direct effect; one of 1.42 could move its confidence interval to include no "
            "effect.");
  EXPECT_EQ(sensitivitySentence("the natural indirect effect", true, 1.8, 1.0),
            "An unmeasured confounder associated with both the mediator and the outcome by a "
            "risk ratio of 1.80 each, above the measured covariates, could explain away the "
            "natural indirect effect; its confidence interval already includes no effect.");
  EXPECT_EQ(sensitivitySentence("the total effect", false, 1.0, 1.0),
            "On the risk-ratio scale the total effect is null (E-value 1): there is no effect for "
            "a confounder to explain away.");
  EXPECT_EQ(sensitivitySentence("the total effect", false, NAN, NAN),
            "The E-value of the total effect cannot be computed: its risk ratio is not "
            "available.");
  EXPECT_EQ(sensitivitySentence("the total effect", false, 2.0, NAN),
            "An unmeasured confounder associated with both the exposure and the outcome by a "
            "risk ratio of 2.00 each, above the measured covariates, could explain away the total "
            "effect; its confidence interval is not available.");
}

// ---- runs on the reference data ---------------------------------------------------------

json itemsOf(const std::string& dataset, const std::string& command,
             std::vector<std::string>* warnings = nullptr) {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setActiveDataset(testsupport::referenceData(dataset));
  session.setCurrentCommand(command, 1, "test");
  session.beginRun();
  MEDANLYS();
  const stathost::RunRecord record = session.endRun();
  session.setActiveDataset(nullptr);
  if (warnings) {
    for (const auto& m : record.messages) {
      if (m.level == stathost::MessageLevel::kWarning) warnings->push_back(m.text);
    }
  }
  return record.items;
}

const json* itemTitled(const json& items, const std::string& title) {
  for (const json& item : items) {
    if (item.contains("title") && item["title"] == title) return &item;
  }
  return nullptr;
}

std::vector<std::string> titlesOf(const json& items) {
  std::vector<std::string> titles;
  for (const json& item : items) {
    if (item["type"] != "notes") titles.push_back(item["title"]);
  }
  return titles;
}

// The row of a table by its label, or nullptr.
const json* rowOf(const json& table, const std::string& label) {
  for (std::size_t i = 0; i < table["rows"].size(); ++i) {
    if (table["rows"][i].back() == label) return &table["cells"][i];
  }
  return nullptr;
}

std::string twoDecimals(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", v);
  return text;
}

double valueOf(const json& cell) {
  return cell["value"].is_null() ? NAN : cell["value"].get<double>();
}

std::string modelsOf(const std::string& analysis) {
  if (analysis == "continuous") return "";  // chosen by the data set below
  if (analysis == "binary_logit")
    return "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT";
  if (analysis == "binary_log")
    return "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOG";
  return "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=POISSON LINK=LOG";
}

std::string referenceCommand(const json& config, const std::string& print,
                             const std::string& rest = "") {
  std::string models = modelsOf(config["analysis"]);
  if (models.empty()) {
    models = config["dataset"] == "bn"
                 ? "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL"
                 : "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL";
  }
  return "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 "
         "C2 " +
         models + " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT " +
         print + rest + ".";
}

class EValueReference : public ::testing::TestWithParam<std::size_t> {
 protected:
  json config() const { return evalueReference()["configurations"][GetParam()]; }
};

// The reference effects (R's) through the program's conversion and E-values.
TEST_P(EValueReference, TheReferenceEffectsGiveTheReferenceEValues) {
  const json c = config();
  const RiskRatioScale scale = scaleOf(c);
  if (c.contains("event_share")) {
    // The program's rule picks the conversion the reference used.
    EXPECT_EQ(oddsRatioConversion(c["event_share"]), scale.conversion);
  }
  for (const json& e : c["effects"]) {
    const EValueResult r = eValues(e["estimate"], e["lower"], e["upper"], scale);
    EXPECT_TRUE(IsClose(r.rr, e["rr"], kEValueTol)) << e["key"];
    EXPECT_TRUE(IsClose(r.rrLower, e["rr_lower"], kEValueTol)) << e["key"];
    EXPECT_TRUE(IsClose(r.rrUpper, e["rr_upper"], kEValueTol)) << e["key"];
    EXPECT_TRUE(IsClose(r.eValue, e["evalue"], kEValueTol)) << e["key"];
    EXPECT_TRUE(IsClose(r.eValueLimit, e["evalue_limit"], kEValueTol)) << e["key"];
  }
}

// A run of the program on the same data: the table holds the reference E-values (to the
// agreement of the effects themselves), and the E-values of its own effects to rounding.
TEST_P(EValueReference, TheTableOfARunHoldsTheReferenceEValues) {
  const json c = config();
  const RiskRatioScale scale = scaleOf(c);
  const json items = itemsOf(c["dataset"], referenceCommand(c, "DECOMP_RESULTS SENSITIVITY"));
  ASSERT_TRUE(itemTitled(items, kTableTitle));
  ASSERT_TRUE(itemTitled(items, "Decomposition Analysis (Delta method)"));
  const json& table = *itemTitled(items, kTableTitle);
  const json* decomposition = itemTitled(items, "Decomposition Analysis (Delta method)");
  EXPECT_EQ(table["columns"],
            json::parse(R"([["RR"],["95% Confidence Interval","Lower"],)"
                        R"(["95% Confidence Interval","Upper"],["E-value","Estimate"],)"
                        R"(["E-value","CI Limit"],["Conversion"]])"));
  // One row per reference effect, in its order; no excess relative risks.
  ASSERT_EQ(table["rows"].size(), c["effects"].size());
  for (std::size_t i = 0; i < c["effects"].size(); ++i) {
    const json& e = c["effects"][i];
    const std::string key = e["key"];
    EXPECT_EQ(table["rows"][i][0], key);
    const json& cells = table["cells"][i];
    EXPECT_TRUE(IsClose(valueOf(cells[0]), e["rr"], kEffectAgreementTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[1]), e["rr_lower"], kEffectAgreementTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[2]), e["rr_upper"], kEffectAgreementTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[3]), e["evalue"], kEffectAgreementTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[4]), e["evalue_limit"], kEffectAgreementTol)) << key;
    // The run's own effects, limits and (for a continuous outcome) the data's SD.
    const json* effect = rowOf(*decomposition, key);
    ASSERT_TRUE(effect) << key;
    const EValueResult own =
        eValues(valueOf((*effect)[0]), valueOf((*effect)[4]), valueOf((*effect)[5]), scale);
    EXPECT_TRUE(IsClose(valueOf(cells[0]), own.rr, kEValueTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[1]), own.rrLower, kEValueTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[2]), own.rrUpper, kEValueTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[3]), own.eValue, kEValueTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[4]), own.eValueLimit, kEValueTol)) << key;
  }
  // The conversion, named in the column and in a footnote.
  const std::string first = c["effects"][0]["key"];
  const std::string cell = table["cells"][0][5]["text"];
  const std::string note = table["footnotes"][1]["text"];
  const std::string conversion = c["conversion"];
  if (conversion == "standardised_difference") {
    EXPECT_EQ(cell, "exp(0.91 \u00d7 CDE / SD(Y))");
    EXPECT_NE(note.find("SD(Y) = " + std::string(c["dataset"] == "bn" ? "1.2954" : "1.1909")),
              std::string::npos)
        << note;
  } else if (conversion == "common_outcome_odds") {
    EXPECT_EQ(cell, "sqrt(OR_CDE)");
    EXPECT_NE(note.find("is common (events in 30.90% of the total weight"), std::string::npos);
  } else if (conversion == "rare_outcome_odds") {
    EXPECT_EQ(cell, "OR_CDE (rare outcome)");
    EXPECT_NE(note.find("is rare (events in 5.05% of the total weight"), std::string::npos);
  } else if (conversion == "rate_ratio") {
    EXPECT_EQ(cell, "IRR_CDE as RR");
    EXPECT_NE(note.find("are rate ratios, used as risk ratios"), std::string::npos);
  } else {
    EXPECT_EQ(cell, "RR_CDE");
    EXPECT_NE(note.find("are risk ratios (log link)"), std::string::npos);
  }
  EXPECT_EQ(table["footnotes"].size(), 4u);
  EXPECT_EQ(table["footnotes"][3]["text"],
            "The CI limits are those of the 95% delta-method confidence intervals of the "
            "decomposition table.");
}

// The sentences of "Effect Interpretation" restate the table's E-values.
TEST_P(EValueReference, TheInterpretationTableGainsOneSentencePerEffect) {
  const json c = config();
  const json items = itemsOf(c["dataset"], referenceCommand(c, "SENSITIVITY"));
  // Only what SENSITIVITY adds (and the interpretation table, which every causal run has).
  EXPECT_EQ(titlesOf(items),
            (std::vector<std::string>{kTableTitle, "Effect Interpretation", kChartTitle}));
  const json& table = *itemTitled(items, kTableTitle);
  const json& interpretation = *itemTitled(items, "Effect Interpretation");
  ASSERT_EQ(interpretation["cells"].size(), 8u);
  const std::string prefix =
      std::string(c["effects"][0]["key"]).substr(0, std::string(c["effects"][0]["key"]).size() - 3);
  const char* effects[] = {"NDE", "NIE", "TE"};
  for (int k = 0; k < 3; ++k) {
    const json& cells = interpretation["cells"][5 + k];
    EXPECT_EQ(cells[0]["text"], std::string("Sensitivity (") + effects[k] + ")");
    const json& row = *rowOf(table, prefix + effects[k]);
    EXPECT_EQ(valueOf(cells[1]), valueOf(row[3]));
    const std::string sentence = cells[2]["text"];
    EXPECT_NE(sentence.find("by a risk ratio of " + twoDecimals(valueOf(row[3])) + " each"),
              std::string::npos)
        << sentence;
    EXPECT_NE(sentence.find(k == 1 ? "both the mediator and the outcome"
                                   : "both the exposure and the outcome"),
              std::string::npos);
  }
  EXPECT_EQ(interpretation["footnotes"].back()["text"],
            "The Sensitivity rows give E-values (VanderWeele and Ding 2017) on the risk-ratio "
            "scale, with the delta-method limits at 95%; the table \"Sensitivity Analysis "
            "(E-values)\" gives the conversion and the limits.");
}

INSTANTIATE_TEST_SUITE_P(Reference, EValueReference,
                         ::testing::Range<std::size_t>(0, referenceCount("configurations")),
                         [](const ::testing::TestParamInfo<std::size_t>& param) {
                           const json c = evalueReference()["configurations"][param.param];
                           return std::string(c["dataset"]) + "_" + std::string(c["analysis"]);
                         });

// The SD of a continuous outcome on the effects' scale is that of the data (no
// transformation here), as R's sd() gives it.
TEST(SensitivityScale, OutcomeSdIsThatOfTheData) {
  for (const char* dataset : {"nn_binA", "bn"}) {
    testsupport::ActiveReference active(dataset);
    MediationCaseData results;
    const std::string models = std::string(dataset) == "bn"
                                   ? "/MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL DISTRIBUTION=NORMAL"
                                   : "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL";
    ASSERT_EQ(
        testsupport::analyseCommand(
            "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A WITH C1 C2 " + models +
                " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
            results),
        0);
    const double sd = testsupport::referenceValues(dataset)["data_summary"]["Y"]["sd"];
    EXPECT_TRUE(IsClose(results.outcomeSd, sd, 1e-12)) << dataset;
    EXPECT_TRUE(std::isnan(results.outcomeEventShare));
  }
}

TEST(SensitivityScale, EventShareOfABinaryOutcome) {
  for (const char* link : {"LOGIT", "LOG"}) {
    testsupport::ActiveReference active("nb_common");
    MediationCaseData results;
    ASSERT_EQ(
        testsupport::analyseCommand(
            std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A WITH "
                        "C1 C2 /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL "
                        "DISTRIBUTION=BINOMIAL LINK=") +
                link + " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
            results),
        0);
    EXPECT_EQ(results.outcomeEventShare, 0.309) << link;  // 309 events in 1000 cases
    EXPECT_TRUE(std::isnan(results.outcomeSd));
  }
}

// With the bootstrap the limits are those of the interval the bootstrap tables show.
class SensitivityBootstrap : public ::testing::TestWithParam<const char*> {};

TEST_P(SensitivityBootstrap, LimitsAreThoseOfTheIntervalTheTablesShow) {
  const std::string interval = GetParam();
  const json c = evalueReference()["configurations"][0];
  ASSERT_EQ(c["dataset"], "nn_binA");
  const json items = itemsOf(
      "nn_binA", referenceCommand(c, "DECOMP_RESULTS SENSITIVITY",
                                  " /BOOTSTRAP CRITERIA(CILEVEL=90 NSAMPLES=200 SEED=11 INTERVAL=" +
                                      interval + ")"));
  ASSERT_TRUE(itemTitled(items, kTableTitle));
  ASSERT_TRUE(itemTitled(items, "Decomposition Analysis Results(Bootstrap method)"));
  const json& table = *itemTitled(items, kTableTitle);
  const json* bootstrap = itemTitled(items, "Decomposition Analysis Results(Bootstrap method)");
  // After the bootstrap tables whose limits it uses.
  const std::vector<std::string> titles = titlesOf(items);
  EXPECT_EQ(titles, (std::vector<std::string>{"Effect Interpretation",
                                              "Decomposition Analysis Results(Bootstrap method)",
                                              kTableTitle, kChartTitle}));
  EXPECT_EQ(table["columns"][1][0], "90% Confidence Interval");
  const std::string name = interval == "BCA"      ? "bias-corrected and accelerated (BCa)"
                           : interval == "NORMAL" ? "normal-approximation"
                                                  : "percentile";
  EXPECT_EQ(table["footnotes"][3]["text"], "The CI limits are those of the 90% bootstrap " + name +
                                               " intervals that the bootstrap decomposition "
                                               "table shows.");
  const RiskRatioScale scale = scaleOf(c);
  for (std::size_t i = 0; i < table["rows"].size(); ++i) {
    const std::string key = table["rows"][i][0];
    const json& effect = *rowOf(*bootstrap, key);
    const EValueResult own =
        eValues(valueOf(effect[0]), valueOf(effect[4]), valueOf(effect[5]), scale);
    const json& cells = table["cells"][i];
    EXPECT_TRUE(IsClose(valueOf(cells[1]), own.rrLower, kEValueTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[2]), own.rrUpper, kEValueTol)) << key;
    EXPECT_TRUE(IsClose(valueOf(cells[4]), own.eValueLimit, kEValueTol)) << key;
  }
  // The sentences take the same limits.
  const json& interpretation = *itemTitled(items, "Effect Interpretation");
  EXPECT_NE(interpretation["footnotes"].back()["text"].get<std::string>().find(
                "with the bootstrap limits at 90%"),
            std::string::npos);
  const std::string teSentence = interpretation["cells"][7][2]["text"];
  const double teLimit = valueOf((*rowOf(table, "TE"))[4]);
  ASSERT_GT(teLimit, 1.0);
  EXPECT_NE(teSentence.find("; one of " + twoDecimals(teLimit) + " could move"), std::string::npos)
      << teSentence;
}

INSTANTIATE_TEST_SUITE_P(Intervals, SensitivityBootstrap,
                         ::testing::Values("PERCENTILE", "BCA", "NORMAL"));

// Five replicates cannot give a 95% interval: the report shows estimates only, and the
// sensitivity table says that its limits are the delta method's.
TEST(SensitivityBootstrapFailed, TakesTheDeltaMethodLimitsAndSaysSo) {
  const json c = evalueReference()["configurations"][0];
  const json items = itemsOf(
      "nn_binA", referenceCommand(c, "SENSITIVITY", " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=5)"));
  ASSERT_TRUE(itemTitled(items, kTableTitle));
  const json& table = *itemTitled(items, kTableTitle);
  EXPECT_EQ(table["footnotes"][3]["text"],
            "The bootstrap did not succeed, so the CI limits are those of the 95% delta-method "
            "confidence intervals.");
  const json& te = c["effects"][3];
  ASSERT_EQ(te["effect"], "TE");
  EXPECT_TRUE(IsClose(valueOf((*rowOf(table, "TE"))[4]), te["evalue_limit"], kEffectAgreementTol));
}

// A right-skewed continuous outcome is analysed on the log scale: the SD that standardises
// the effects is that of log(y), and the footnote and the column say so.
TEST(SensitivityScale, TransformedOutcomeUsesTheSdOfItsScale) {
  std::vector<double> x, m, y;
  for (int i = 0; i < 60; ++i) {
    x.push_back(i % 2);
    m.push_back(0.05 * i + 0.4 * (i % 2) + 0.1 * std::sin(i));
    y.push_back(std::exp(0.06 * i + 0.5 * (i % 2) + 0.3 * std::cos(1.7 * i)));
  }
  std::vector<double> logY;
  for (double v : y) logY.push_back(std::log(v));
  testsupport::ActiveData data({testsupport::numericColumn("y", y),
                                testsupport::numericColumn("m", m),
                                testsupport::numericColumn("x", x)});
  MediationCaseData results;
  ASSERT_EQ(testsupport::analyseCommand(testsupport::validCommand("", "", "", "", " SENSITIVITY"),
                                        results),
            0);
  ASSERT_EQ(results.transformations["Outcome"].name, "log");
  EXPECT_TRUE(IsClose(results.outcomeSd,
                      weightedStandardDeviation(logY, std::vector<double>(60, 1.0)),
                      kSameNumberTol));

  stathost::HostSession& session = stathost::HostSession::instance();
  session.setCurrentCommand(testsupport::validCommand("", "", "", "", " SENSITIVITY"), 1, "test");
  session.beginRun();
  MEDANLYS();
  const json items = session.endRun().items;
  ASSERT_TRUE(itemTitled(items, kTableTitle));
  const json& table = *itemTitled(items, kTableTitle);
  EXPECT_EQ(table["cells"][0][5]["text"], "exp(0.91 \u00d7 CDE / SD(log(y)))");
  const std::string note = table["footnotes"][1]["text"];
  EXPECT_EQ(note.rfind("The outcome y was transformed to log(y) for its skewness, so the effects "
                       "are differences on that scale and SD(log(y)) = ",
                       0),
            0u)
      << note;
  EXPECT_NE(note.find("is the standard deviation on the transformed scale."), std::string::npos);
  // The table's risk ratios use that SD.
  const EValueResult te = eValues(
      results.effects["TE"].estimate, results.effects["TE"].lower, results.effects["TE"].upper,
      {RiskRatioConversion::kStandardisedDifference, results.outcomeSd});
  EXPECT_TRUE(IsClose(valueOf((*rowOf(table, "TE"))[0]), te.rr, kSameNumberTol));
  EXPECT_TRUE(IsClose(valueOf((*rowOf(table, "TE"))[3]), te.eValue, kSameNumberTol));
}

// ---- the switch -------------------------------------------------------------------------

class SensitivitySwitch : public testsupport::ModuleTest {
 protected:
  // The PRINT switches a command sets.
  std::vector<bool> printSwitches(const std::string& print) {
    stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
    CommandDescriptionBuilder builder(grammar);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
    stathost::STAX_TokenSequence tokens(testsupport::validCommand("", "", "", "", print), 1);
    stathost::CommandSpec parsed;
    stathost::UniversalParser parser(tokens, parsed, grammar);
    EXPECT_EQ(parser.getCommandSpecifications(), 0);
    stathost::ProcedureDataSource source;
    MediationSettings settings(parsed, grammar, source);
    EXPECT_TRUE(settings.prepareInputSetting(4));
    return std::vector<bool>(settings.print, settings.print + PRINT_SWITCH_COUNT);
  }
};

TEST_F(SensitivitySwitch, TheNineKeepTheirPlacesAndABarePrintLeavesItOff) {
  ASSERT_EQ(PRINT_SENSITIVITY, 9);
  EXPECT_STREQ(kPrintKeywords[PRINT_DESCRIPTIVES], "DESCRIPTIVES");
  EXPECT_STREQ(kPrintKeywords[PRINT_SENSITIVITY], "SENSITIVITY");
  EXPECT_EQ(printSwitches(""),
            (std::vector<bool>{true, true, true, false, false, false, false, false, false, false}));
  EXPECT_EQ(printSwitches(" SENSITIVITY"), (std::vector<bool>{false, false, false, false, false,
                                                              false, false, false, false, true}));
  EXPECT_EQ(
      printSwitches(" sensitivity DESCRIPTIVES"),
      (std::vector<bool>{false, false, false, false, false, false, false, false, true, true}));
}

// Everything a run writes without SENSITIVITY is written the same with it; it only adds its
// table (after the decomposition table), three rows and a footnote of "Effect
// Interpretation", and its chart (before the path diagram, which stays last).
TEST_F(SensitivitySwitch, AddsOnlyItsOwnItems) {
  const std::string plot = " /PLOT FOREST_PLOT PATH_DIAGRAM";
  const std::string without = testsupport::validCommand("", "", "", "", " DECOMP_RESULTS" + plot);
  const std::string with =
      testsupport::validCommand("", "", "", "", " DECOMP_RESULTS SENSITIVITY" + plot);
  const json a = run(without).items;
  const json b = run(with).items;
  EXPECT_EQ(titlesOf(a), (std::vector<std::string>{
                             "Decomposition Analysis (Delta method)", "Effect Interpretation",
                             "Mediation Analysis Forest Plot", "Mediation Analysis Path Diagram"}));
  EXPECT_EQ(titlesOf(b),
            (std::vector<std::string>{"Decomposition Analysis (Delta method)", kTableTitle,
                                      "Effect Interpretation", "Mediation Analysis Forest Plot",
                                      kChartTitle, "Mediation Analysis Path Diagram"}));
  json rest = json::array();
  for (const json& item : b) {
    if (item.contains("title") && (item["title"] == kTableTitle || item["title"] == kChartTitle))
      continue;
    json copy = item;
    if (copy.contains("title") && copy["title"] == "Effect Interpretation") {
      ASSERT_EQ(copy["cells"].size(), 8u);
      for (json* rows : {&copy["cells"], &copy["rows"], &copy["row_header"]["children"]}) {
        rows->erase(rows->begin() + 5, rows->end());
      }
      copy["footnotes"].erase(copy["footnotes"].end() - 1);
    }
    rest.push_back(copy);
  }
  ASSERT_EQ(rest.size(), a.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i]["type"] == "notes") continue;  // the command text differs
    EXPECT_EQ(rest[i], a[i]) << a[i]["title"];
  }
}

TEST_F(SensitivitySwitch, ATraditionalAnalysisHasNoEffectsToAnalyse) {
  const stathost::RunRecord record = run(testsupport::validCommand(
      "", "", "", "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=TRADITIONAL", " SENSITIVITY"));
  EXPECT_EQ(errors(record), "");
  EXPECT_FALSE(itemTitled(record.items, kTableTitle));
  EXPECT_FALSE(itemTitled(record.items, kChartTitle));
  EXPECT_NE(testsupport::messageTexts(record).find(
                "SENSITIVITY gives the E-values of the effects; ANALYSISTYPE=TRADITIONAL "
                "estimates no effects, so there is no sensitivity analysis."),
            std::string::npos);
}

}  // namespace

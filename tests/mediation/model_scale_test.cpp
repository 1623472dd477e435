// The model scale of the analysis: exposure levels and mediator levels follow their
// variable's skewness transformation in every analysis, repairs of the command and of the
// data are announced, and inference that cannot be formed is said so.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "algorithm/mediation_case_data.h"
#include "module_fixture.h"
#include "stathost/host_session.h"

namespace {

using namespace medanlys;
using stathost::Column;
using testsupport::numericColumn;

constexpr std::size_t kCases = 300;
constexpr double kInvariantTol = 1e-8;  // the same fit reached on two parametrisations

// Quantiles of the unit exponential distribution in a fixed scrambled order: skewed data
// that do not depend on a random generator.
Vector exponentialScores() {
  Vector e(kCases);
  for (std::size_t i = 0; i < kCases; ++i) {
    const std::size_t k = (i * 137) % kCases;
    e[i] = -std::log(1.0 - (static_cast<double>(k) + 0.5) / kCases);
  }
  return e;
}

// An exposure built from the scores, a symmetric covariate and mediator, and an outcome of
// the kind the analysis needs.
struct ScaleData {
  Vector a, m, y, c;
};

enum class OutcomeKind { kContinuous, kBinary };

ScaleData makeData(const std::function<double(double)>& exposureOfScore, OutcomeKind outcome,
                   bool binaryMediator) {
  const Vector e = exponentialScores();
  ScaleData d;
  for (std::size_t i = 0; i < kCases; ++i) {
    const double t = static_cast<double>(i);
    const double a = exposureOfScore(e[i]);
    const double c = std::sin(1.7 * t);
    double m = 0.3 * std::tanh(a) + 0.6 * c + std::cos(2.3 * t) + 0.4 * std::sin(0.37 * t);
    if (binaryMediator) m = m > 0.1 ? 1.0 : 0.0;
    const double signal = 0.4 * std::tanh(a) + 0.5 * m + 0.3 * c + std::cos(3.1 * t);
    d.a.push_back(a);
    d.c.push_back(c);
    d.m.push_back(m);
    d.y.push_back(outcome == OutcomeKind::kBinary ? (signal > 0.6 ? 1.0 : 0.0)
                                                  : signal + 0.5 * std::sin(5.3 * t));
  }
  return d;
}

// The observed exposure value at quantile p, so that a level always matches the data.
double observedQuantile(Vector a, double p) {
  std::sort(a.begin(), a.end());
  return a[static_cast<std::size_t>(p * static_cast<double>(a.size() - 1))];
}

std::string exact(double v) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", v);
  return text;
}

// Runs a command on the data and keeps the results and the messages.
struct AnalysisRun {
  int status = 1;
  MediationCaseData results;
  stathost::RunRecord record;
};

AnalysisRun analyse(const std::vector<Column>& columns, const std::string& command) {
  testsupport::ActiveData data(columns);
  AnalysisRun run;
  stathost::HostSession& session = stathost::HostSession::instance();
  session.beginRun();
  run.status = testsupport::analyseCommand(command, run.results);
  run.record = session.endRun();
  return run;
}

std::string messages(const AnalysisRun& run) { return testsupport::messageTexts(run.record); }

std::string command(const std::string& exposure, double aStar, double aHat, bool binaryMediator,
                    OutcomeKind outcome, const std::string& transform) {
  return "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=" + exposure +
         "(BLEVEL=" + exact(aStar) + " ELEVEL=" + exact(aHat) + ") WITH c /MEDMODEL " +
         (binaryMediator ? "DISTRIBUTION=BINOMIAL" : "DISTRIBUTION=NORMAL") + " /OUTMODEL " +
         (outcome == OutcomeKind::kBinary ? "DISTRIBUTION=BINOMIAL LINK=LOGIT"
                                          : "DISTRIBUTION=NORMAL") +
         " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL TRANSFORM=" +
         transform + " /PRINT.";
}

// One skewness transformation of the exposure: how the data make the rule choose it, and
// the same transformation written as an increasing function, which a user could apply by
// hand (effects do not change when the exposure is replaced by an increasing affine image
// of its model-scale values and the levels go along).
struct TransformCase {
  const char* name;
  std::function<double(double)> exposureOfScore;
  std::function<double(double, double)> byHand;  // (value, data maximum) -> model scale
  double lowQuantile, highQuantile;
};

const std::vector<TransformCase>& transformCases() {
  static const std::vector<TransformCase> cases = {
      {"reflected_log", [](double e) { return 10.0 - e; },
       [](double v, double max) { return -std::log(max + 1.0 - v); }, 0.4, 0.8},
      {"power", [](double e) { return 1.5 - 0.8 * e; },
       [](double v, double) { return v * v; }, 0.7, 0.95},
      {"log", [](double e) { return 0.2 + e; }, [](double v, double) { return std::log(v); },
       0.3, 0.7},
      {"sqrt", [](double e) { return e - 0.05; },
       [](double v, double) { return std::sqrt(std::max(v, 0.0)); }, 0.4, 0.8},
  };
  return cases;
}

struct Analysis {
  const char* name;
  bool binaryMediator;
  OutcomeKind outcome;
};

void PrintTo(const TransformCase& c, std::ostream* os) { *os << c.name; }
void PrintTo(const Analysis& a, std::ostream* os) { *os << a.name; }

class ExposureLevelsFollowTheTransformation
    : public ::testing::TestWithParam<std::tuple<Analysis, TransformCase>> {};

TEST_P(ExposureLevelsFollowTheTransformation, EffectsEqualThoseOfTheTransformationByHand) {
  const auto& [analysis, transform] = GetParam();
  const ScaleData d = makeData(transform.exposureOfScore, analysis.outcome,
                               analysis.binaryMediator);
  const double max = *std::max_element(d.a.begin(), d.a.end());
  const double aStar = observedQuantile(d.a, transform.lowQuantile);
  const double aHat = observedQuantile(d.a, transform.highQuantile);
  Vector byHand;
  for (double v : d.a) byHand.push_back(transform.byHand(v, max));
  const std::vector<Column> columns = {
      numericColumn("y", d.y), numericColumn("m", d.m), numericColumn("a", d.a),
      numericColumn("h", byHand), numericColumn("c", d.c)};

  const AnalysisRun automatic = analyse(columns, command("a", aStar, aHat, analysis.binaryMediator,
                                                 analysis.outcome, "AUTO"));
  ASSERT_EQ(automatic.status, 0) << messages(automatic);
  // The data must make the rule transform the exposure, and nothing else.
  for (const auto& [role, record] : automatic.results.transformations) {
    EXPECT_EQ(record.name, role == "Exposure" ? transform.name : "none") << role;
  }
  const AnalysisRun manual = analyse(columns, command("h", transform.byHand(aStar, max),
                                              transform.byHand(aHat, max),
                                              analysis.binaryMediator, analysis.outcome, "NONE"));
  ASSERT_EQ(manual.status, 0) << messages(manual);
  ASSERT_FALSE(automatic.results.effects.empty());
  for (const auto& [name, expected] : manual.results.effects) {
    SCOPED_TRACE(name);
    const EffectInference& got = automatic.results.effects.at(name);
    EXPECT_NEAR(got.estimate, expected.estimate, kInvariantTol * (1.0 + std::fabs(expected.estimate)));
    EXPECT_NEAR(got.se, expected.se, kInvariantTol * (1.0 + std::fabs(expected.se)));
  }
  EXPECT_NE(messages(automatic).find("a to "), std::string::npos)
      << "the transformation is announced";
}

INSTANTIATE_TEST_SUITE_P(
    EveryAnalysis, ExposureLevelsFollowTheTransformation,
    ::testing::Combine(::testing::Values(Analysis{"ContinuousBoth", false, OutcomeKind::kContinuous},
                                         Analysis{"BinaryOutcome", false, OutcomeKind::kBinary},
                                         Analysis{"BinaryMediator", true,
                                                  OutcomeKind::kContinuous}),
                       ::testing::ValuesIn(transformCases())),
    [](const auto& param) {
      return std::string(std::get<0>(param.param).name) + "_" + std::get<1>(param.param).name;
    });

// ---- refusals and notices ---------------------------------------------------------------

// The columns y, m, a, c of makeData, and a 30/30/40% factor f.
std::vector<Column> columnsOf(const ScaleData& d) {
  Vector f;
  for (std::size_t i = 0; i < d.a.size(); ++i) f.push_back(i % 10 < 3 ? 1 : (i % 10 < 6 ? 2 : 3));
  return {numericColumn("y", d.y), numericColumn("m", d.m), numericColumn("a", d.a),
          numericColumn("c", d.c), numericColumn("f", f, stathost::MeasureLevel::kNominal)};
}

std::vector<Column> continuousData(const std::function<double(double)>& exposureOfScore) {
  return columnsOf(makeData(exposureOfScore, OutcomeKind::kContinuous, false));
}
std::vector<Column> binaryOutcomeData(const std::function<double(double)>& exposureOfScore) {
  return columnsOf(makeData(exposureOfScore, OutcomeKind::kBinary, false));
}

// The mediator replaced by a right-skewed positive one (log-transformed by the rule).
std::vector<Column> logMediatorData(OutcomeKind outcome) {
  ScaleData d = makeData([](double e) { return std::round(4.0 * std::tanh(e)); }, outcome, false);
  const Vector e = exponentialScores();
  for (std::size_t i = 0; i < d.m.size(); ++i) d.m[i] = 0.3 + 2.0 * e[(i * 7) % kCases];
  return columnsOf(d);
}

// The outcome multiplied by `scale`.
std::vector<Column> scaledOutcomeData(double scale) {
  ScaleData d = makeData([](double e) { return std::round(4.0 * std::tanh(e)); },
                         OutcomeKind::kContinuous, false);
  for (double& y : d.y) y *= scale;
  return columnsOf(d);
}

struct MessageCase {
  const char* name;
  std::function<std::vector<Column>()> columns;
  std::string command;
  int status;              // 0: the analysis runs, 1: it is refused
  const char* message;     // a part of the message that must appear
};

void PrintTo(const MessageCase& c, std::ostream* os) { *os << c.name; }

std::string cmd(const std::string& variables, const std::string& models,
                const std::string& extra = "") {
  return "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m" + variables + " " + models +
         " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT" + extra + ".";
}
const std::string kNormalModels = "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL";
const std::string kLogitModels =
    "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT";

const std::vector<MessageCase>& messageCases() {
  static const auto rightSkewed = [](double e) { return std::round(10.0 * (e - 0.1)) / 10.0; };
  static const auto squared = [](double e) { return std::round(10.0 * (1.5 - 0.8 * e)) / 10.0; };
  static const auto fewValues = [](double e) { return e < 2.5 ? 1.0 : std::round(e); };
  static const auto symmetric = [](double e) { return std::round(4.0 * std::tanh(e)); };
  static const auto longTail = [](double e) { return std::round(2.0 * e); };
  static const std::vector<MessageCase> cases = {
      {"SqrtExposureNegativeLevel", [] { return continuousData(rightSkewed); },
       cmd(" PREDICTORVAR=a(BLEVEL=-0.1 ELEVEL=1) WITH c", kNormalModels), 1,
       "Exposure levels must be non-negative for sqrt transformation"},
      {"SquaredExposureLevelsWithOneSquare", [] { return continuousData(squared); },
       cmd(" PREDICTORVAR=a(BLEVEL=-1 ELEVEL=1) WITH c", kNormalModels), 1,
       "have the same square"},
      {"MediatorLevelBelowTheLogMediatorsRange",
       [] { return logMediatorData(OutcomeKind::kContinuous); },
       cmd("(MLEVEL=VALUE(0)) PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) WITH c", kNormalModels), 1,
       "MLEVEL value outside mediator data range"},
      {"MediatorLevelOutsideTheLogDomain", [] { return logMediatorData(OutcomeKind::kBinary); },
       cmd("(MLEVEL=VALUE(0)) PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) WITH c", kLogitModels), 1,
       "MLEVEL value 0 cannot be used: the mediator m was transformed to log(m)"},
      {"ExtrapolationRepairWithoutContrast", [] { return binaryOutcomeData(fewValues); },
       cmd(" PREDICTORVAR=a(BLEVEL=1 ELEVEL=3) WITH c", kLogitModels), 1,
       "so no contrast is left to estimate"},
      {"ExtrapolatedLevelsReplaced", [] { return binaryOutcomeData(longTail); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=10) WITH c", kLogitModels), 0,
       "The exposure levels 0 and 10 of a were replaced because their difference 10 exceeds 3 "
       "interquartile ranges, 6: the analysis uses its quartiles 1 (a*) and 3 (a) instead"},
      {"SkewedExposureTransformed", [] { return continuousData(rightSkewed); },
       cmd(" PREDICTORVAR=a(BLEVEL=0.1 ELEVEL=1) WITH c", kNormalModels), 0,
       "Skewed variables were transformed before the models were fitted: a to sqrt(a)"},
      {"NormalOutcomeLinkUnused", [] { return continuousData(symmetric); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) WITH c",
           "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL LINK=LOG"),
       0, "LINK=LOG on /OUTMODEL is not used: a NORMAL outcome is fitted by a linear model"},
      {"NormalMediatorLinkUnused", [] { return continuousData(symmetric); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) WITH c",
           "/MEDMODEL DISTRIBUTION=NORMAL LINK=LOGIT /OUTMODEL DISTRIBUTION=NORMAL"),
       0, "LINK=LOGIT on /MEDMODEL is not used"},
      {"BinaryMediatorLinkUnused",
       [] { return columnsOf(makeData(symmetric, OutcomeKind::kContinuous, true)); },
       cmd("(MLEVEL=VALUE(0)) PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) WITH c",
           "/MEDMODEL DISTRIBUTION=BINOMIAL LINK=IDENTITY /OUTMODEL DISTRIBUTION=NORMAL"),
       0, "a BINOMIAL mediator is fitted by a logistic model (logit link)"},
      {"FactorReferenceIsNotTheCommonLevel", [] { return continuousData(symmetric); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) BY f", kNormalModels), 0,
       "holds factor f at level 1 (30.0% of the cases), not at its most common level 3 (40.0%"},
      {"TooFewReplicatesForTheLevel", [] { return continuousData(symmetric); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1)", kNormalModels,
           " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=39)"),
       0, "The bootstrap had 39 usable replicates, too few for 95% percentile limits (at least "
          "40 are needed)"},
      {"DefaultLevelsOfAContinuousExposure", [] { return continuousData(symmetric); },
       cmd(" PREDICTORVAR=a WITH c", kNormalModels), 0,
       "BLEVEL and ELEVEL were not given, so the control and treatment levels of a are 0 and 1, "
       "its two lowest observed values"},
      {"DefaultTreatmentLevel", [] { return continuousData(symmetric); },
       cmd(" PREDICTORVAR=a(BLEVEL=0) WITH c", kNormalModels), 0,
       "ELEVEL was not given, so the control and treatment levels of a are 0 and 1"},
      {"StandardErrorsBelowTheThreshold", [] { return scaledOutcomeData(1e-100); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1)", kNormalModels), 0,
       "are below 1e-12, so their z, p and confidence limits are not computed"},
      {"ValuesTooSmallToAnalyse", [] { return scaledOutcomeData(1e-300); },
       cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1)", kNormalModels), 1,
       "Values of y are too small to analyse"},
  };
  return cases;
}

class RepairsAndRefusals : public ::testing::TestWithParam<MessageCase> {};

TEST_P(RepairsAndRefusals, AreSaidInPlainWords) {
  const MessageCase& c = GetParam();
  const AnalysisRun run = analyse(c.columns(), c.command);
  EXPECT_EQ(run.status, c.status) << messages(run);
  EXPECT_NE(messages(run).find(c.message), std::string::npos) << messages(run);
}

INSTANTIATE_TEST_SUITE_P(Analysis, RepairsAndRefusals, ::testing::ValuesIn(messageCases()),
                         [](const auto& param) { return std::string(param.param.name); });

// Without the interaction the interaction ratios are 1 with a standard error of 0 by
// construction: no notice about small standard errors.
TEST(SmallStandardErrors, EffectsFixedByTheModelAreNotAnnounced) {
  const AnalysisRun run =
      analyse(binaryOutcomeData([](double e) { return std::round(4.0 * std::tanh(e)); }),
              cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1 INTERACTION=FALSE) WITH c", kLogitModels));
  ASSERT_EQ(run.status, 0) << messages(run);
  EXPECT_EQ(messages(run).find("below 1e-12"), std::string::npos) << messages(run);
}

// Two values need no suggestion: the defaults are the only contrast there is.
TEST(DefaultLevels, BinaryExposureGetsNoSuggestion) {
  const ScaleData d = makeData([](double e) { return e > 0.7 ? 1.0 : 0.0; },
                               OutcomeKind::kContinuous, false);
  const AnalysisRun run = analyse(columnsOf(d), cmd(" PREDICTORVAR=a WITH c", kNormalModels));
  ASSERT_EQ(run.status, 0) << messages(run);
  EXPECT_EQ(messages(run).find("were not given"), std::string::npos) << messages(run);
}

// Outcome values near 1e100 overflowed the fourth moments of the normality test.
TEST(ExtremeScale, LargeOutcomeValuesGiveTheirDiagnostics) {
  const AnalysisRun run = analyse(scaledOutcomeData(1e100),
                                  cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1)", kNormalModels));
  ASSERT_EQ(run.status, 0) << messages(run);
  EXPECT_TRUE(std::isfinite(run.results.outcomeFit.diagnostics.jarqueBeraP));
  const AnalysisRun unit = analyse(scaledOutcomeData(1.0),
                                   cmd(" PREDICTORVAR=a(BLEVEL=0 ELEVEL=1)", kNormalModels));
  ASSERT_EQ(unit.status, 0);
  EXPECT_NEAR(run.results.outcomeFit.diagnostics.jarqueBeraP,
              unit.results.outcomeFit.diagnostics.jarqueBeraP, 1e-9);
  EXPECT_NEAR(run.results.effects.at("TE").z, unit.results.effects.at("TE").z, 1e-8);
}

// Weights are replication counts: a weight of 2 on every case gives the effect estimates of
// the data entered twice (the mediator's residual variance enters the ratio effects).
TEST(ReplicationWeights, DoubledWeightsGiveTheEffectsOfDuplicatedData) {
  const ScaleData d = makeData([](double e) { return std::round(4.0 * std::tanh(e)); },
                               OutcomeKind::kBinary, false);
  auto columns = [](const ScaleData& data, int copies, double weight) {
    ScaleData out;
    Vector w;
    for (int k = 0; k < copies; ++k) {
      out.a.insert(out.a.end(), data.a.begin(), data.a.end());
      out.m.insert(out.m.end(), data.m.begin(), data.m.end());
      out.y.insert(out.y.end(), data.y.begin(), data.y.end());
      out.c.insert(out.c.end(), data.c.begin(), data.c.end());
    }
    w.assign(out.a.size(), weight);
    std::vector<Column> result = columnsOf(out);
    result.push_back(numericColumn("w", w));
    return result;
  };
  const std::string models =
      "/MEDMODEL DISTRIBUTION=NORMAL SCALEWEIGHT=w /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT";
  const std::string command = cmd(" PREDICTORVAR=a(BLEVEL=1 ELEVEL=2) WITH c", models);
  const AnalysisRun weighted = analyse(columns(d, 1, 2.0), command);
  const AnalysisRun duplicated = analyse(columns(d, 2, 1.0), command);
  ASSERT_EQ(weighted.status, 0) << messages(weighted);
  ASSERT_EQ(duplicated.status, 0) << messages(duplicated);
  for (const char* name : {"OR_CDE", "OR_NDE", "OR_NIE", "OR_TE", "OR_PIE", "PM"}) {
    SCOPED_TRACE(name);
    EXPECT_NEAR(weighted.results.effects.at(name).estimate,
                duplicated.results.effects.at(name).estimate, 1e-9);
  }
}

}  // namespace

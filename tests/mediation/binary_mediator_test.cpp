// The binary-mediator analysis: effects against regmedint, the pilot and failure policy of
// its bootstrap (failures injected through the replicate seam), and its refusals.
#include <gtest/gtest.h>

#include "algorithm/med_analysis_algo.h"
#include "effects/binary_bootstrap.h"
#include "effects/binary_mediator_effects.h"
#include "models/glm.h"
#include "module_fixture.h"
#include "reference_data.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::IsClose;

constexpr double kEffectTol = 1e-6;

int analyse(const std::string& command, MediationCaseData& results) {
  return testsupport::analyseCommand(command, results);
}

// regmedint's names for ours.
const std::vector<std::pair<const char*, const char*>> kNames = {
    {"CDE", "cde"},  {"NDE", "pnde"}, {"NIE", "tnie"}, {"TDE", "tnde"},
    {"PIE", "pnie"}, {"TE", "te"},    {"PM", "pm"}};

class BinaryMediatorReference : public ::testing::TestWithParam<int> {
 protected:
  testsupport::ActiveReference data_{"bn"};
};

TEST_P(BinaryMediatorReference, EffectsAndDeltaMethodMatchRegmedint) {
  const json config = testsupport::referenceValues("bn")["configs"][GetParam()];
  const bool interaction = config["interaction"];
  MediationCaseData results;
  ASSERT_EQ(analyse(std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M(MLEVEL=VALUE(0)) "
                                "PREDICTORVAR=A(BLEVEL=0 ELEVEL=1 INTERACTION=") +
                        (interaction ? "TRUE" : "FALSE") +
                        ") WITH C1 C2 /MEDMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /OUTMODEL "
                        "DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL "
                        "ANALYSISTYPE=CAUSAL /PRINT.",
                    results),
            0);
  const json& expected = config["regmedint"]["effects"];
  for (const auto& [ours, theirs] : kNames) {
    SCOPED_TRACE(ours);
    const double scale = std::string(ours) == "PM" ? 100.0 : 1.0;  // PM in percent
    EXPECT_TRUE(IsClose(results.effects.at(ours).estimate,
                        scale * expected[theirs]["est"].get<double>(), kEffectTol));
    EXPECT_TRUE(IsClose(results.effects.at(ours).se, scale * expected[theirs]["se"].get<double>(),
                        kEffectTol));
  }
  const auto est = [&](const char* n) { return results.effects.at(n).estimate; };
  EXPECT_NEAR(est("TE"), est("CDE") + est("INT_ref") + est("INT_med") + est("PIE"), 1e-12);
  EXPECT_NEAR(est("TE"), est("NDE") + est("NIE"), 1e-12);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutInteraction, BinaryMediatorReference,
                         ::testing::Values(0, 2));

// With Firth's estimates for the mediator model the effects follow regmedint's Firth run.
TEST(BinaryMediatorFirth, EffectsAtTheFirthEstimates) {
  const json values = testsupport::referenceValues("bn");
  const json& config = values["configs"][1];  // logistic_firth_linear_interaction
  const auto data = testsupport::referenceData("bn");
  const Vector a = testsupport::referenceColumn(*data, "A"),
               m = testsupport::referenceColumn(*data, "M"),
               y = testsupport::referenceColumn(*data, "Y");
  const Columns c = {testsupport::referenceColumn(*data, "C1"),
                     testsupport::referenceColumn(*data, "C2")};
  const Vector w(a.size(), 1.0);
  GlmOptions options;
  options.firth = true;
  const GlmFit mediator = fitLogisticNR_Variant2(buildMediatorDesignMatrix(a, c), m, w, options);
  ASSERT_TRUE(mediator.converged);
  const WlsFit outcome = fitOutcomeWls(a, m, y, c, w, true);
  ContinuousModelParameters p;
  p.beta_0 = mediator.coefficients[0];
  p.beta_1 = mediator.coefficients[1];
  p.beta_2 = {mediator.coefficients[2], mediator.coefficients[3]};
  p.theta_0 = outcome.coefficients[0];
  p.theta_1 = outcome.coefficients[1];
  p.theta_2 = outcome.coefficients[2];
  p.theta_3 = outcome.coefficients[3];
  p.theta_4 = {outcome.coefficients[4], outcome.coefficients[5]};
  const ReferencePoint r{0.0, 1.0, 0.0, {config["c_cond"]["C1"], config["c_cond"]["C2"]}};
  const EffectEstimates e = computeBinaryMediatorEffects(p, r);
  const EffectMap inference = deltaMethodInference(
      e, binaryMediatorGradients(p, r, e),
      jointCovariance(mediator.covModel, outcome.covModel, p.mediatorSize(), p.outcomeSize()), 95);
  for (const auto& [ours, theirs] : kNames) {
    SCOPED_TRACE(ours);
    const double scale = std::string(ours) == "PM" ? 100.0 : 1.0;
    EXPECT_TRUE(IsClose(inference.at(ours).estimate,
                        scale * config["regmedint"]["effects"][theirs]["est"].get<double>(),
                        kEffectTol));
    EXPECT_TRUE(IsClose(inference.at(ours).se,
                        scale * config["regmedint"]["effects"][theirs]["se"].get<double>(),
                        kEffectTol));
  }
}

// ---- the bootstrap policy, with failures injected by replicate number ----

BootstrapCases smallCases() {
  BootstrapCases c;
  c.n = 50;
  c.p = 0;
  for (std::size_t i = 0; i < c.n; ++i) {
    c.exposure.push_back(i % 2);
    c.mediator.push_back((i / 2) % 2);
    c.outcome.push_back(0.1 * i);
    c.weights.push_back(1.0);
  }
  return c;
}

ReplicateFitter failingBelow(long count) {
  return [count](long index, const Vector&, bool) {
    ReplicateResult r;
    r.ok = index >= count;
    if (!r.ok) r.reason = "Mediator regression failed in bootstrap iteration.";
    return r;
  };
}

struct PilotCase {
  long failures;
  bool firth;
};

class Pilot : public ::testing::TestWithParam<PilotCase> {};

TEST_P(Pilot, MoreThanTenPercentFailuresSwitchOnFirth) {
  std::vector<std::string> log;
  EXPECT_EQ(pilotBootstrap(smallCases(), failingBelow(GetParam().failures), 1, nullptr, log),
            GetParam().firth);
  EXPECT_EQ(
      log.back(),
      GetParam().firth
          ? "Pilot run failure rate (11.0%) > 10%; enabling Firth's penalized logistic regression"
          : "Pilot run failure rate (10.0%) <= 10%; using standard MLE");
}

INSTANTIATE_TEST_SUITE_P(Rates, Pilot,
                         ::testing::Values(PilotCase{10, false}, PilotCase{11, true}));

TEST(BinaryBootstrapValidation, NumberOfResamples) {
  std::vector<std::string> log;
  try {
    validateBinaryBootstrap(99, 95, log);
    FAIL();
  } catch (const FitError& e) {
    EXPECT_EQ(e.userMessage(), "Bootstrap samples (NB) must be at least 100.");
  }
  EXPECT_EQ(validateBinaryBootstrap(200, 95, log), 1000);
  EXPECT_EQ(log.back(), "Warning: NB < 500; increased to 1000 for precision");
  EXPECT_EQ(validateBinaryBootstrap(500, 95, log), 500);
  EXPECT_THROW(validateBinaryBootstrap(1000, 100, log), FitError);
}

TEST(BinaryBootstrapPolicy, AbandonAboveTwentyPercentWarnAboveTen) {
  std::vector<std::string> log;
  std::string warning;
  const auto warn = [&](const std::string& text) { warning = text; };
  const BinaryBootstrapRun bad =
      mainBootstrap(smallCases(), failingBelow(201), 1000, 1, false, nullptr, nullptr, log);
  EXPECT_EQ(bad.failures, 201);
  EXPECT_EQ(bad.successes + bad.failures, 1000);
  EXPECT_THROW(applyFailurePolicy(bad, 1000, log, warn), std::runtime_error);
  EXPECT_EQ(
      warning.rfind(
          "High failure rate (20.1%) or too few successes (799). Try:\n1. Set use_firth=True", 0),
      0u)
      << warning;

  log.clear();
  warning.clear();
  const BinaryBootstrapRun moderate =
      mainBootstrap(smallCases(), failingBelow(150), 1000, 1, false, nullptr, nullptr, log);
  EXPECT_NO_THROW(applyFailurePolicy(moderate, 1000, log, warn));
  EXPECT_TRUE(warning.empty());
  EXPECT_NE(std::find(log.begin(), log.end(),
                      "Warning: Moderate failure rate (15.0%). Results may be less reliable."),
            log.end());
  EXPECT_NE(std::find(log.begin(), log.end(),
                      "Bootstrap finished: 850 successes, 150 failures (out of 1000)"),
            log.end());
  EXPECT_NE(std::find(log.begin(), log.end(), "First few failure reasons (up to 5):"), log.end());

  log.clear();
  const BinaryBootstrapRun clean =
      mainBootstrap(smallCases(), failingBelow(0), 1000, 1, false, nullptr, nullptr, log);
  applyFailurePolicy(clean, 1000, log, warn);
  EXPECT_EQ(std::find(log.begin(), log.end(), "First few failure reasons (up to 5):"), log.end());
}

class BinaryMediatorRefusals : public testsupport::ModuleTest {};

TEST_F(BinaryMediatorRefusals, ThreeValuedMediator) {
  const stathost::RunRecord record = run(testsupport::validCommand(
      "OUTCOMEVAR=y MEDIATORVAR=ord PREDICTORVAR=x", "DISTRIBUTION=BINOMIAL LINK=LOGIT"));
  EXPECT_EQ(errors(record), "Mediator must be binary (0/1 only). Recode or check data values.\n");
}

}  // namespace

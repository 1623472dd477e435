// Effects of a continuous mediator on a binary or count outcome against the closed forms
// evaluated in R at the exact maximum-likelihood fits (the reference's lab_closed_form).
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "effects/ratio_effects.h"
#include "models/glm.h"
#include "module_fixture.h"
#include "reference_data.h"
#include "stathost/host_session.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::IsClose;

constexpr double kEffectTol = 1e-6;
constexpr double kPTol = 1e-5;

struct RatioCase {
  const char* dataset;
  int config;
  GlmFamily family;
  bool estimateK;      // negative binomial with k estimated
  bool robustOutcome;  // modified Poisson: HC0 outcome covariance
  const char* prefix;
  friend std::ostream& operator<<(std::ostream& os, const RatioCase& c) {
    return os << c.dataset << "#" << c.config;
  }
};

class RatioEffectsReference : public ::testing::TestWithParam<RatioCase> {};

// The parameters with the k-th of (beta, sigma2, theta) moved by h.
RatioModelParameters moved(RatioModelParameters p, std::size_t k, double h) {
  ContinuousModelParameters& m = p.models;
  std::vector<double*> slots = {&m.beta_0, &m.beta_1};
  for (double& b : m.beta_2) slots.push_back(&b);
  slots.push_back(&p.sigma2);
  for (double* t : {&m.theta_0, &m.theta_1, &m.theta_2}) slots.push_back(t);
  if (m.interaction) slots.push_back(&m.theta_3);
  for (double& t : m.theta_4) slots.push_back(&t);
  *slots.at(k) += h;
  return p;
}

// The automatic-differentiation gradients (of log R for a ratio) against central
// differences of the formulas; relative 1e-6 with an absolute floor for tiny entries.
void expectGradientsMatchCentralDifferences(const RatioModelParameters& p, const ReferencePoint& r,
                                            const std::string& prefix,
                                            const std::vector<RatioEffectValue>& effects) {
  for (std::size_t k = 0; k < p.size(); ++k) {
    const double h = 1e-5;
    const auto up = computeRatioEffects(moved(p, k, h), r, prefix, false);
    const auto down = computeRatioEffects(moved(p, k, -h), r, prefix, false);
    for (std::size_t e = 0; e < effects.size(); ++e) {
      if (!std::isfinite(effects[e].estimate)) continue;
      const auto f = [&](double v) { return effects[e].ratio ? std::log(v) : v; };
      const double numeric = (f(up[e].estimate) - f(down[e].estimate)) / (2 * h);
      EXPECT_NEAR(effects[e].gradient[k], numeric, 1e-6 * std::max(1.0, std::fabs(numeric)))
          << effects[e].name << " d/dparameter " << k;
    }
  }
}

TEST_P(RatioEffectsReference, AllEffectsWithDeltaMethod) {
  const RatioCase& c = GetParam();
  const json values = testsupport::referenceValues(c.dataset);
  const json& config = values["configs"][c.config];
  const bool interaction = config["interaction"];
  const auto data = testsupport::referenceData(c.dataset);
  const Vector a = testsupport::referenceColumn(*data, "A"),
               m = testsupport::referenceColumn(*data, "M"),
               y = testsupport::referenceColumn(*data, "Y");
  const Columns covariates = {testsupport::referenceColumn(*data, "C1"),
                              testsupport::referenceColumn(*data, "C2")};
  const Vector w(a.size(), 1.0);

  const WlsFit mediator = fitMediatorWls(a, covariates, m, w);
  const OutcomeDesign design = buildOutcomeDesignMatrix(a, m, y, covariates, interaction);
  const GlmFit outcome = c.estimateK ? fitNegativeBinomialMle(design.X, y, w, GlmOptions())
                                     : fitGlm(design.X, y, w, Family{c.family, 1.0}, GlmOptions());
  ASSERT_TRUE(outcome.converged) << outcome.message;

  RatioModelParameters p;
  ContinuousModelParameters& mp = p.models;
  mp.interaction = interaction;
  mp.beta_0 = mediator.coefficients[0];
  mp.beta_1 = mediator.coefficients[1];
  mp.beta_2.assign(mediator.coefficients.begin() + 2, mediator.coefficients.end());
  const Vector& t = outcome.coefficients;
  mp.theta_0 = t[0];
  mp.theta_1 = t[1];
  mp.theta_2 = t[2];
  mp.theta_3 = interaction ? t[3] : 0.0;
  mp.theta_4.assign(t.begin() + (interaction ? 4 : 3), t.end());
  p.sigma2 = mediator.sigma2;
  const json& lab = config["lab_closed_form"];
  EXPECT_TRUE(IsClose(p.sigma2, lab["sigma2"], 1e-9));

  const ReferencePoint r{config["a_star"],
                         config["a"],
                         config["m_cde"],
                         {config["c_cond"]["C1"], config["c_cond"]["C2"]}};
  const std::size_t qm = mp.mediatorSize(), qo = mp.outcomeSize();
  Matrix sigma = zeroMatrix(qm + 1 + qo, qm + 1 + qo);
  for (std::size_t i = 0; i < qm; ++i) {
    for (std::size_t j = 0; j < qm; ++j) sigma(i, j) = mediator.covModel(i, j);
  }
  const double n = static_cast<double>(a.size());
  sigma(qm, qm) = 2.0 * p.sigma2 * p.sigma2 / (n - static_cast<double>(qm));
  EXPECT_TRUE(IsClose(sigma(qm, qm), lab["var_sigma2"], 1e-9));
  const Matrix& outcomeCov = c.robustOutcome ? outcome.covRobust : outcome.covModel;
  for (std::size_t i = 0; i < qo; ++i) {
    for (std::size_t j = 0; j < qo; ++j) sigma(qm + 1 + i, qm + 1 + j) = outcomeCov(i, j);
  }

  // The four-way decomposition adds up on the ratio scale.
  const std::vector<RatioEffectValue> effects = computeRatioEffects(p, r, c.prefix, true);
  std::map<std::string, double> value;
  for (const RatioEffectValue& e : effects) value[e.name] = e.estimate;
  EXPECT_NEAR(
      value[std::string(c.prefix) + "TE"] - 1.0,
      value["excRR_CDE"] + value["excRR_INTref"] + value["excRR_INTmed"] + value["excRR_PIE"],
      1e-12);
  expectGradientsMatchCentralDifferences(p, r, c.prefix, effects);

  for (int level : {95, 90}) {
    const EffectMap result =
        ratioEffectInference(computeRatioEffects(p, r, c.prefix, true), sigma, level);
    const std::string suffix = std::to_string(level);
    for (const auto& [name, ref] : lab["effects"].items()) {
      SCOPED_TRACE(name + " at " + suffix);
      ASSERT_TRUE(result.count(name)) << name;
      const EffectInference& e = result.at(name);
      EXPECT_TRUE(IsClose(e.estimate, ref["est"], kEffectTol));
      if (ref["z"].is_null()) {  // a ratio fixed at 1 without the interaction: no test
        EXPECT_TRUE(std::isnan(e.z));
        continue;
      }
      EXPECT_TRUE(IsClose(e.se, ref["se"], kEffectTol));
      EXPECT_TRUE(IsClose(e.z, ref["z"], kEffectTol));
      EXPECT_TRUE(IsClose(e.p, ref["p"], kPTol, 1e-300));
      EXPECT_TRUE(IsClose(e.lower, ref["lower" + suffix], kEffectTol));
      EXPECT_TRUE(IsClose(e.upper, ref["upper" + suffix], kEffectTol));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, RatioEffectsReference,
    ::testing::Values(RatioCase{"nb_logit", 0, GlmFamily::kBinomialLogit, false, false, "OR_"},
                      RatioCase{"nb_logit", 1, GlmFamily::kBinomialLogit, false, false, "OR_"},
                      RatioCase{"nb_common", 1, GlmFamily::kPoissonLog, false, true, "RR_"},
                      RatioCase{"nb_common", 2, GlmFamily::kBinomialLog, false, false, "RR_"},
                      RatioCase{"nb_common", 5, GlmFamily::kBinomialLog, false, false, "RR_"},
                      RatioCase{"np_count", 0, GlmFamily::kPoissonLog, false, false, "IRR_"},
                      RatioCase{"np_count", 1, GlmFamily::kPoissonLog, false, false, "IRR_"},
                      RatioCase{"nnb_count", 0, GlmFamily::kNegBinLog, true, false, "IRR_"},
                      RatioCase{"nnb_count", 1, GlmFamily::kNegBinLog, false, false, "IRR_"},
                      RatioCase{"nnb_count", 2, GlmFamily::kNegBinLog, true, false, "IRR_"}));

// The whole analysis from the command: the strategy's preparation, fits and inference give
// the same numbers.
struct CommandCase {
  const char* dataset;
  int config;
  const char* outmodel;
  friend std::ostream& operator<<(std::ostream& os, const CommandCase& c) {
    return os << c.dataset << "#" << c.config;
  }
};

class RatioAnalysisFromCommand : public ::testing::TestWithParam<CommandCase> {
 protected:
  testsupport::ActiveReference data_{GetParam().dataset};
};

TEST_P(RatioAnalysisFromCommand, MatchesTheClosedForms) {
  const json config =
      testsupport::referenceValues(GetParam().dataset)["configs"][GetParam().config];
  const bool interaction = config["interaction"];
  MediationCaseData results;
  ASSERT_EQ(
      testsupport::analyseCommand(
          std::string(
              "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1 "
              "INTERACTION=") +
              (interaction ? "TRUE" : "FALSE") +
              ") WITH C1 C2 /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL " + GetParam().outmodel +
              " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
          results),
      0);
  for (const auto& [name, ref] : config["lab_closed_form"]["effects"].items()) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(results.effects.count(name));
    EXPECT_TRUE(IsClose(results.effects.at(name).estimate, ref["est"], kEffectTol));
    if (!ref["se"].is_null()) {
      EXPECT_TRUE(IsClose(results.effects.at(name).se, ref["se"], kEffectTol));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, RatioAnalysisFromCommand,
    ::testing::Values(CommandCase{"nb_logit", 0, "DISTRIBUTION=BINOMIAL LINK=LOGIT"},
                      CommandCase{"np_count", 1, "DISTRIBUTION=POISSON LINK=LOG"},
                      CommandCase{"nnb_count", 0, "DISTRIBUTION=NEGBIN(MLE) LINK=LOG"},
                      CommandCase{"nnb_count", 1, "DISTRIBUTION=NEGBIN(1) LINK=LOG"}));

}  // namespace

// The logistic and generalised linear fits against R (glm, MASS::glm.nb, sandwich HC0,
// brglm2 for the Firth penalty) on the reference data sets.
#include <gtest/gtest.h>

#include "models/glm.h"
#include "reference_data.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::IsClose;

constexpr double kCoefTol = 1e-6;  // coefficients, both standard errors
constexpr double kFitTol = 1e-6;   // log-likelihood, deviance, AIC, BIC, pseudo R square
constexpr double kDispersionTol = 1e-4;

enum class Kind { kLogistic, kFirth, kLogBinomial, kPoisson, kNegBinFixed, kNegBinMle };

struct GlmCase {
  const char* dataset;
  const char* model;
  Kind kind;
  friend std::ostream& operator<<(std::ostream& os, const GlmCase& c) {
    return os << c.dataset << "/" << c.model;
  }
};

class GlmReference : public ::testing::TestWithParam<GlmCase> {};

TEST_P(GlmReference, MatchesR) {
  const GlmCase& c = GetParam();
  const json ref = testsupport::referenceValues(c.dataset)["models"][c.model];
  const auto data = testsupport::referenceData(c.dataset);
  // The response is the left side of the formula; the columns are R's coefficient names.
  const std::string formula = ref["formula"];
  const std::string response = formula.substr(0, formula.find(' '));
  std::vector<std::string> names;
  for (const auto& [name, value] : ref["coef"].items()) {
    (void)value;
    names.push_back(name);
  }
  // R orders A:M last; keep R's order and build the columns accordingly.
  DesignMatrix X;
  X.n = data->caseCount();
  X.q = names.size();
  X.values.resize(X.n * X.q);
  for (std::size_t j = 0; j < names.size(); ++j) {
    Vector column(X.n, 1.0);
    if (names[j] == "A:M") {
      const Vector a = testsupport::referenceColumn(*data, "A"),
                   m = testsupport::referenceColumn(*data, "M");
      for (std::size_t i = 0; i < X.n; ++i) column[i] = a[i] * m[i];
    } else if (names[j] != "(Intercept)") {
      column = testsupport::referenceColumn(*data, names[j]);
    }
    for (std::size_t i = 0; i < X.n; ++i) X.values[i * X.q + j] = column[i];
  }
  const Vector y = testsupport::referenceColumn(*data, response);
  const Vector w(X.n, 1.0);
  GlmOptions options;
  GlmFit fit;
  switch (c.kind) {
    case Kind::kLogistic:
      fit = fitLogisticNR_Variant2(X, y, w, options);
      break;
    case Kind::kFirth:
      options.firth = true;
      fit = fitLogisticNR_Variant2(X, y, w, options);
      break;
    case Kind::kLogBinomial:
      fit = fitGlm(X, y, w, Family{GlmFamily::kBinomialLog, 1.0}, options);
      break;
    case Kind::kPoisson:
      fit = fitGlm(X, y, w, Family{GlmFamily::kPoissonLog, 1.0}, options);
      break;
    case Kind::kNegBinFixed:
      fit = fitGlm(X, y, w, Family{GlmFamily::kNegBinLog, 1.0}, options);
      break;
    case Kind::kNegBinMle:
      fit = fitNegativeBinomialMle(X, y, w, options);
      break;
  }
  ASSERT_TRUE(fit.converged) << fit.message;
  const bool firth = c.kind == Kind::kFirth;
  for (std::size_t j = 0; j < names.size(); ++j) {
    SCOPED_TRACE(names[j]);
    EXPECT_TRUE(IsClose(fit.coefficients[j], ref["coef"][names[j]], kCoefTol));
    EXPECT_TRUE(IsClose(fit.seModel[j], ref[firth ? "se" : "se_model"][names[j]], kCoefTol));
    if (!firth) {
      EXPECT_TRUE(IsClose(fit.seRobust[j], ref["se_hc0"][names[j]], kCoefTol));
    }
  }
  if (firth) return;  // brglm2 reports coefficients and their covariance only
  EXPECT_TRUE(IsClose(fit.logLik, ref["loglik"], kFitTol));
  EXPECT_TRUE(IsClose(fit.deviance, ref["deviance"], kFitTol));
  EXPECT_TRUE(IsClose(fit.aic, ref["aic"], kFitTol));
  EXPECT_TRUE(IsClose(fit.bic, ref["bic"], kFitTol));
  EXPECT_TRUE(IsClose(fit.pseudoR2, ref["mcfadden_r2"], kFitTol));
  if (c.kind == Kind::kNegBinMle) {
    EXPECT_TRUE(IsClose(fit.dispersion, ref["k"], kDispersionTol));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Models, GlmReference,
    ::testing::Values(
        GlmCase{"bn", "mediator_logistic", Kind::kLogistic},
        GlmCase{"bn", "mediator_logistic_firth", Kind::kFirth},
        GlmCase{"nb_logit", "outcome_logistic_interaction", Kind::kLogistic},
        GlmCase{"nb_logit", "outcome_logistic_no_interaction", Kind::kLogistic},
        GlmCase{"nb_logit", "outcome_logistic_firth_interaction", Kind::kFirth},
        GlmCase{"nb_common", "outcome_log_binomial_interaction", Kind::kLogBinomial},
        GlmCase{"nb_common", "outcome_log_binomial_no_interaction", Kind::kLogBinomial},
        GlmCase{"nb_common", "outcome_modified_poisson_interaction", Kind::kPoisson},
        GlmCase{"np_count", "outcome_poisson_interaction", Kind::kPoisson},
        GlmCase{"np_count", "outcome_poisson_no_interaction", Kind::kPoisson},
        GlmCase{"nnb_count", "outcome_negbin_fixed_k1_interaction", Kind::kNegBinFixed},
        GlmCase{"nnb_count", "outcome_negbin_mle_interaction", Kind::kNegBinMle},
        GlmCase{"nnb_count", "outcome_negbin_mle_no_interaction", Kind::kNegBinMle}));

}  // namespace

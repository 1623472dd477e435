// The weighted least squares fits against R's lm, sandwich (HC0), lmtest and tseries on
// the reference data sets.
#include <gtest/gtest.h>

#include "models/wls.h"
#include "reference_data.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::IsClose;

constexpr double kCoefTol = 1e-8;  // coefficients, standard errors, R^2
constexpr double kDiagTol = 1e-8;  // Durbin-Watson, VIF, Jarque-Bera p

struct ModelCase {
  const char* dataset;
  const char* model;  // key under "models"
  friend std::ostream& operator<<(std::ostream& os, const ModelCase& c) {
    return os << c.dataset << "/" << c.model;
  }
};

// The columns of an R formula "Y ~ A + M + A:M + C1 ..." in R's coefficient order.
struct Terms {
  std::vector<std::string> covariates;  // after the A, M and A:M terms
  bool interaction = false;
};

Terms termsOf(const json& model) {
  Terms t;
  for (const auto& [name, value] : model["coef"].items()) {
    (void)value;
    if (name == "(Intercept)" || name == "A" || name == "M") continue;
    if (name == "A:M") {
      t.interaction = true;
      continue;
    }
    t.covariates.push_back(name);
  }
  return t;
}

class WlsReference : public ::testing::TestWithParam<ModelCase> {};

TEST_P(WlsReference, MatchesR) {
  const json values = testsupport::referenceValues(GetParam().dataset);
  const json& ref = values["models"][GetParam().model];
  const auto data = testsupport::referenceData(GetParam().dataset);
  const Vector a = testsupport::referenceColumn(*data, "A");
  const Vector m = testsupport::referenceColumn(*data, "M");
  const Vector y = testsupport::referenceColumn(*data, "Y");
  const Terms terms = termsOf(ref);
  Columns covariates;
  for (const std::string& name : terms.covariates)
    covariates.push_back(testsupport::referenceColumn(*data, name));
  const bool mediatorModel = std::string(GetParam().model) == "mediator_lm";
  const WlsFit fit =
      mediatorModel ? fitMediatorWls(a, covariates, m, Vector(a.size(), 1.0))
                    : fitOutcomeWls(a, m, y, covariates, Vector(a.size(), 1.0), terms.interaction);
  ASSERT_TRUE(fit.success);

  // Our coefficient order: 1, A, [M, A:M], covariates.
  std::vector<std::string> names = {"(Intercept)", "A"};
  if (!mediatorModel) names.push_back("M");
  if (terms.interaction) names.push_back("A:M");
  names.insert(names.end(), terms.covariates.begin(), terms.covariates.end());
  ASSERT_EQ(fit.coefficients.size(), names.size());
  for (std::size_t j = 0; j < names.size(); ++j) {
    SCOPED_TRACE(names[j]);
    EXPECT_TRUE(IsClose(fit.coefficients[j], ref["coef"][names[j]], kCoefTol));
    EXPECT_TRUE(IsClose(fit.seModel[j], ref["se_model"][names[j]], kCoefTol));
    EXPECT_TRUE(IsClose(fit.seRobust[j], ref["se_hc0"][names[j]], kCoefTol));
    EXPECT_TRUE(IsClose(fit.tModel[j], ref["t_model"][names[j]], kCoefTol));
  }
  EXPECT_TRUE(IsClose(fit.r2, ref["r2"], kCoefTol));
  EXPECT_TRUE(IsClose(fit.adjR2, ref["adj_r2"], kCoefTol));
  EXPECT_TRUE(IsClose(fit.sigma2, ref["sigma2"], kCoefTol));
  EXPECT_TRUE(IsClose(fit.ssr, ref["ssr"], kCoefTol));
  EXPECT_TRUE(IsClose(fit.diagnostics.durbinWatson, ref["durbin_watson"], kDiagTol));
  EXPECT_TRUE(IsClose(fit.diagnostics.vifMax, ref["vif_max"], kDiagTol));
  EXPECT_TRUE(IsClose(fit.diagnostics.jarqueBeraP, ref["jarque_bera"]["p_value"], kDiagTol));
  EXPECT_EQ(fit.diagnostics.influentialCases, ref["cooks_count_gt_4_over_n"].get<int>());
}

INSTANTIATE_TEST_SUITE_P(Models, WlsReference,
                         ::testing::Values(ModelCase{"nn_small", "mediator_lm"},
                                           ModelCase{"nn_small", "outcome_lm_interaction"},
                                           ModelCase{"nn_small", "outcome_lm_no_interaction"},
                                           ModelCase{"nn_binA", "mediator_lm"},
                                           ModelCase{"nn_binA", "outcome_lm_interaction"},
                                           ModelCase{"nn_binA", "outcome_lm_no_interaction"}));

// Frequency weights are replication counts: weight 2 is the case entered twice.
TEST(WlsWeights, WeightTwoEqualsADuplicatedCase) {
  const Vector a = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  const Vector m = {0.1, 0.9, 2.2, 2.8, 4.1, 5.3, 5.9, 7.2, 7.7, 9.4, 10.1, 10.8};
  const Vector y = {1, 2, 2.5, 4, 5.5, 5.9, 7.1, 8.4, 8.8, 10.2, 11.5, 11.9};
  Vector w(a.size(), 1.0);
  w[3] = 2.0;
  Vector a2 = a, m2 = m, y2 = y;
  a2.push_back(a[3]);
  m2.push_back(m[3]);
  y2.push_back(y[3]);
  const WlsFit weighted = fitOutcomeWls(a, m, y, {}, w, true);
  const WlsFit duplicated = fitOutcomeWls(a2, m2, y2, {}, Vector(a2.size(), 1.0), true);
  for (std::size_t j = 0; j < weighted.coefficients.size(); ++j) {
    EXPECT_TRUE(IsClose(weighted.coefficients[j], duplicated.coefficients[j], 1e-10));
    EXPECT_TRUE(IsClose(weighted.covRobust(j, j), duplicated.covRobust(j, j), 1e-10));
  }
}

}  // namespace

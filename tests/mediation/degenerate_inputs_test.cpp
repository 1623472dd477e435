// Edge cases of the linear fits and the continuous effects.
#include <gtest/gtest.h>

#include <cmath>

#include "effects/continuous_effects.h"
#include "models/fit_error.h"
#include "models/wls.h"

namespace {

using namespace medanlys;

Vector sequence(std::size_t n, double scale = 1.0, double offset = 0.0) {
  Vector v;
  for (std::size_t i = 0; i < n; ++i)
    // The frequency depends on the scale: sequences of different scales are not collinear.
    v.push_back(offset + scale * std::sin(1.0 + (1.7 + scale) * static_cast<double>(i)));
  return v;
}

std::string userMessageOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const FitError& e) {
    return e.userMessage() + " | " + e.what();
  }
  return "no failure";
}

TEST(MediatorFit, NeedsTenCasesMoreThanCovariates) {
  const std::size_t p = 3;
  Columns c = {sequence(12, 1, 0.1), sequence(12, 2, 0.3), sequence(12, 3, -0.2)};
  for (auto& col : c) col.resize(p + 9);
  EXPECT_EQ(userMessageOf([&] { fitMediatorWls(sequence(p + 9), c, sequence(p + 9, 0.5), {}); }),
            "Sample too small for regression (N < k + 10). | Sample too small for regression (N < "
            "k + 10).");
  for (std::size_t j = 0; j < p; ++j) c[j] = sequence(p + 10, static_cast<double>(j) + 1, 0.1 * j);
  EXPECT_TRUE(fitMediatorWls(sequence(p + 10, 1.3), c, sequence(p + 10, 0.5, 1), {}).success);
}

TEST(MediatorFit, ConstantExposureIsSingular) {
  EXPECT_EQ(userMessageOf([&] { fitMediatorWls(Vector(15, 2.0), {}, sequence(15), {}); }),
            "Outcome model singular. Check for perfect collinearity. | Design matrix X^T W X is "
            "singular");
}

TEST(WeightedMean, AllWeightsZero) {
  EXPECT_EQ(
      userMessageOf([] {
        weightedMean({1, 2}, {0, 0});
      }),
      "Total weight is zero. Check weight specification. | Total weight is zero. Cannot compute "
      "weighted mean.");
}

TEST(RSquaredForms, ConstantResponseAndFewDegreesOfFreedom) {
  const Vector y(5, 3.0), e(5, 0.0);
  RSquared r = computeRSquared(e, y, {}, 3.0, 5, 1);
  EXPECT_EQ(r.r2, 0.0);
  EXPECT_EQ(r.adjR2, 0.0);
  r = computeRSquared(e, y, {}, 5, 2);
  EXPECT_EQ(r.r2, 0.0);
  const Vector y2 = {1, 2, 4}, e2 = {0.1, -0.2, 0.1};
  r = computeRSquared(e2, y2, {}, 7.0 / 3.0, 3, 1);  // d = 3 - 1 - 2 = 0
  EXPECT_EQ(r.adjR2, r.r2);
}

TEST(NormalEquations, NearSingularIsRejectedAndRidgeIsLogged) {
  Matrix m = identityMatrix(2);
  m(0, 0) = 5e-13;
  Vector beta;
  Matrix inverse;
  EXPECT_THROW(solveNormalEquations(m, {1, 1}, false, beta, inverse), std::runtime_error);
  m(0, 0) = 2.0;
  m(0, 1) = m(1, 0) = 1.0;
  EXPECT_DOUBLE_EQ(determinant(m), 1.0);
  Matrix swapped = zeroMatrix(2, 2);
  swapped(0, 1) = swapped(1, 0) = 1.0;
  EXPECT_DOUBLE_EQ(determinant(swapped), -1.0);  // one row exchange
  EXPECT_THROW(determinant(zeroMatrix(2, 3)), std::invalid_argument);

  // Duplicated exposure and covariate columns: the ridge path still fits, and says so.
  const Vector a = sequence(20);
  const WlsFit fit = fitMediatorRidge(a, {a}, sequence(20, 0.3, 1), {});
  EXPECT_TRUE(fit.success);
  ASSERT_FALSE(fit.log.empty());
  EXPECT_EQ(fit.log[0].rfind("Ridge regularization applied to XTWX (det=", 0), 0u);
}

// A resample that draws every case once is the full fit.
TEST(ResampleFits, IdentityResampleEqualsTheFullFit) {
  const std::size_t n = 30;
  Vector a(n), m(n), c(n), y(n), w(n);
  for (std::size_t i = 0; i < n; ++i) {
    a[i] = 2.0 + std::sin(0.7 * i);
    c[i] = std::cos(1.3 * i);
    m[i] = 0.1 + 0.4 * a[i] + 0.2 * c[i] + 0.1 * std::sin(2.9 * i);
  }
  std::vector<CaseRecord> records(n);
  std::vector<std::size_t> all(n);
  for (std::size_t i = 0; i < n; ++i) {
    y[i] =
        1.0 + 0.5 * a[i] + 2.0 * m[i] + 0.3 * a[i] * m[i] + 0.1 * c[i] + 0.05 * std::cos(3.0 * i);
    w[i] = 1.0 + static_cast<double>(i % 3);
    records[i] = CaseRecord{a[i], m[i], y[i], w[i], {c[i]}};
    all[i] = i;
  }
  const WlsFit mediator = fitMediatorWls(a, {c}, m, w);
  const ResampleFit mediatorResample = fitMediatorResample(records, all, 1);
  ASSERT_TRUE(mediatorResample.success);
  const WlsFit outcome = fitOutcomeWls(a, m, y, {c}, w, true);
  const ResampleFit outcomeResample = fitOutcomeResample(records, all, 1, true);
  ASSERT_TRUE(outcomeResample.success);
  for (std::size_t j = 0; j < mediator.coefficients.size(); ++j) {
    EXPECT_NEAR(mediatorResample.coefficients[j], mediator.coefficients[j], 1e-10);
  }
  for (std::size_t j = 0; j < outcome.coefficients.size(); ++j) {
    EXPECT_NEAR(outcomeResample.coefficients[j], outcome.coefficients[j], 1e-10);
  }
  EXPECT_EQ(fitMediatorResample(records, {}, 1).message, "No data to fit mediation regression.");
  EXPECT_EQ(fitOutcomeResample(records, all, 2, true).message,
            "Insufficient covariate dimensions in outcome regression.");
}

ContinuousModelParameters sampleParameters(bool interaction) {
  ContinuousModelParameters p;
  p.interaction = interaction;
  p.beta_0 = 0.2;
  p.beta_1 = 0.7;
  p.beta_2 = {0.3, -0.1};
  p.theta_0 = 1.0;
  p.theta_1 = 0.5;
  p.theta_2 = 1.3;
  p.theta_3 = interaction ? 0.4 : 0.0;
  p.theta_4 = {0.2, 0.05};
  return p;
}

TEST(ContinuousEffects, NoContrastMakesEveryRatioNaN) {
  const ContinuousModelParameters p = sampleParameters(true);
  const ReferencePoint r{1.0, 1.0, 0.5, {0.1, 0.2}};
  const EffectEstimates e = computeEffects(p, r);
  EXPECT_EQ(e.TE, 0.0);
  EXPECT_TRUE(std::isnan(e.PM));
  EXPECT_TRUE(std::isnan(e.r_PAI));
  const Matrix sigma = identityMatrix(p.mediatorSize() + p.outcomeSize());
  const EffectMap m = deltaMethodInference(e, effectGradients(p, r, e), sigma, 95);
  EXPECT_EQ(m.at("CDE").se, 0.0);
  EXPECT_TRUE(std::isnan(m.at("CDE").z));
  EXPECT_TRUE(std::isnan(m.at("CDE").lower));
  EXPECT_TRUE(std::isnan(m.at("PM").estimate) && std::isnan(m.at("PM").se));
}

TEST(ContinuousEffects, WithoutInteractionTheInteractionsVanish) {
  const ContinuousModelParameters p = sampleParameters(false);
  const EffectEstimates e = computeEffects(p, {0.0, 2.0, 1.0, {0.1, 0.2}});
  EXPECT_EQ(e.CDE, e.NDE);
  EXPECT_EQ(e.INT_ref, 0.0);
  EXPECT_EQ(e.INT_med, 0.0);
  EXPECT_EQ(e.PAI, 0.0);
  EXPECT_EQ(e.NIE, e.PIE);
  EXPECT_EQ(e.TDE, e.CDE);
}

TEST(ContinuousEffects, NegativeEstimateHasTheSamePValue) {
  const EffectInference plus = inferenceFromVariance(0.3, 0.01, criticalValue(95));
  const EffectInference minus = inferenceFromVariance(-0.3, 0.01, criticalValue(95));
  EXPECT_EQ(plus.p, minus.p);
  EXPECT_NEAR(criticalValue(90), 1.644854, 1e-6);
  EXPECT_NEAR(criticalValue(95), 1.959964, 1e-6);
}

// The hand-written gradients agree with central differences of the formulas.
TEST(ContinuousEffects, GradientsMatchCentralDifferences) {
  for (bool interaction : {true, false}) {
    const ContinuousModelParameters p = sampleParameters(interaction);
    const ReferencePoint r{0.5, 2.0, 0.7, {0.4, -0.3}};
    const EffectEstimates e = computeEffects(p, r);
    const std::vector<Vector> g = effectGradients(p, r, e);
    auto pack = [&](const ContinuousModelParameters& q) {
      Vector v = {q.beta_0, q.beta_1};
      v.insert(v.end(), q.beta_2.begin(), q.beta_2.end());
      v.insert(v.end(), {q.theta_0, q.theta_1, q.theta_2});
      if (q.interaction) v.push_back(q.theta_3);
      v.insert(v.end(), q.theta_4.begin(), q.theta_4.end());
      return v;
    };
    auto unpack = [&](const Vector& v) {
      ContinuousModelParameters q = p;
      std::size_t k = 0;
      q.beta_0 = v[k++];
      q.beta_1 = v[k++];
      for (double& b : q.beta_2) b = v[k++];
      q.theta_0 = v[k++];
      q.theta_1 = v[k++];
      q.theta_2 = v[k++];
      if (q.interaction) q.theta_3 = v[k++];
      for (double& t : q.theta_4) t = v[k++];
      return q;
    };
    const Vector base = pack(p);
    for (std::size_t j = 0; j < base.size(); ++j) {
      Vector up = base, down = base;
      const double h = 1e-6;
      up[j] += h;
      down[j] -= h;
      const EffectEstimates eu = computeEffects(unpack(up), r),
                            ed = computeEffects(unpack(down), r);
      for (std::size_t f = 0; f < kEffectCount; ++f) {
        const double numeric =
            (eu.*kEffectFields[f].member - ed.*kEffectFields[f].member) / (2 * h);
        EXPECT_NEAR(g[f][j], numeric, 1e-6 * std::max(1.0, std::fabs(numeric)))
            << kEffectFields[f].name << " parameter " << j << " interaction " << interaction;
      }
    }
  }
}

}  // namespace

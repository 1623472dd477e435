// Weights, separation, and the inputs a fit must refuse.
#include <gtest/gtest.h>

#include <cmath>

#include "models/glm.h"
#include "models/glm_replicate.h"

namespace {

using namespace medanlys;

DesignMatrix design(const std::vector<Vector>& columns) {
  DesignMatrix X;
  X.n = columns.front().size();
  X.q = columns.size() + 1;
  for (std::size_t i = 0; i < X.n; ++i) {
    X.values.push_back(1.0);
    for (const Vector& c : columns) X.values.push_back(c[i]);
  }
  return X;
}

Vector wave(std::size_t n, double f, double shift = 0.0) {
  Vector v;
  for (std::size_t i = 0; i < n; ++i) v.push_back(std::sin(f * static_cast<double>(i) + shift));
  return v;
}

// Weight 3 on a case equals the case entered three times.
TEST(GlmWeights, WeightsAreReplicationCounts) {
  const std::size_t n = 60;
  const Vector x = wave(n, 0.7), z = wave(n, 1.9, 0.4);
  Vector binary(n), counts(n), w(n, 1.0);
  for (std::size_t i = 0; i < n; ++i) {
    binary[i] = (x[i] + 0.8 * std::cos(2.3 * i) > 0.1) ? 1.0 : 0.0;
    counts[i] = std::floor(2.0 + 1.5 * x[i] + 1.2 * std::cos(2.9 * i) + 1.0);
    if (counts[i] < 0) counts[i] = 0;
  }
  w[5] = 3.0;
  w[17] = 2.0;
  DesignMatrix expanded;
  Vector binaryExpanded, countsExpanded;
  Vector xe, ze;
  for (std::size_t i = 0; i < n; ++i) {
    for (int r = 0; r < static_cast<int>(w[i]); ++r) {
      xe.push_back(x[i]);
      ze.push_back(z[i]);
      binaryExpanded.push_back(binary[i]);
      countsExpanded.push_back(counts[i]);
    }
  }
  const DesignMatrix X = design({x, z}), Xe = design({xe, ze});
  const Vector ones(Xe.n, 1.0);
  const GlmOptions o;
  const GlmFit a = fitLogisticNR_Variant2(X, binary, w, o),
               b = fitLogisticNR_Variant2(Xe, binaryExpanded, ones, o);
  const GlmFit c = fitNegativeBinomialMle(X, counts, w, o),
               d = fitNegativeBinomialMle(Xe, countsExpanded, ones, o);
  ASSERT_TRUE(a.converged && b.converged && c.converged && d.converged) << a.message << c.message;
  for (std::size_t j = 0; j < X.q; ++j) {
    EXPECT_NEAR(a.coefficients[j], b.coefficients[j], 1e-9);
    EXPECT_NEAR(a.seModel[j], b.seModel[j], 1e-9);
    EXPECT_NEAR(a.seRobust[j], b.seRobust[j], 1e-9);
    EXPECT_NEAR(c.coefficients[j], d.coefficients[j], 1e-8);
  }
  EXPECT_NEAR(a.deviance, b.deviance, 1e-8);
  EXPECT_NEAR(c.dispersion, d.dispersion, 1e-8);
}

TEST(GlmSeparation, ReportedWithoutFirthFiniteWithFirth) {
  const Vector x = {-3, -2.5, -2, -1.5, -1, -0.5, 0.5, 1, 1.5, 2, 2.5, 3};
  Vector y;
  for (double v : x) y.push_back(v > 0 ? 1.0 : 0.0);  // x separates the outcome completely
  const DesignMatrix X = design({x});
  const Vector w(x.size(), 1.0);
  GlmOptions o;
  const GlmFit plain = fitLogisticNR_Variant2(X, y, w, o);
  EXPECT_FALSE(plain.converged);
  EXPECT_NE(plain.message.find("coefficient 1"), std::string::npos) << plain.message;
  EXPECT_NE(plain.message.find("separation"), std::string::npos) << plain.message;
  o.firth = true;
  const GlmFit firth = fitLogisticNR_Variant2(X, y, w, o);
  ASSERT_TRUE(firth.converged) << firth.message;
  EXPECT_TRUE(std::isfinite(firth.coefficients[1]));
  EXPECT_GT(firth.coefficients[1], 0.0);
  EXPECT_TRUE(std::isfinite(firth.seModel[1]));
}

struct Refusal {
  const char* name;
  std::vector<Vector> columns;
  Vector y;
  GlmFamily family;
  const char* message;
  friend std::ostream& operator<<(std::ostream& os, const Refusal& r) { return os << r.name; }
};

class GlmRefusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(GlmRefusals, ClearMessageAndNoResult) {
  const Refusal& r = GetParam();
  const DesignMatrix X = design(r.columns);
  const GlmFit fit = fitGlm(X, r.y, Vector(r.y.size(), 1.0), Family{r.family, 1.0}, GlmOptions());
  EXPECT_FALSE(fit.converged);
  EXPECT_NE(fit.message.find(r.message), std::string::npos) << fit.message;
  EXPECT_TRUE(fit.coefficients.empty());
}

INSTANTIATE_TEST_SUITE_P(Cases, GlmRefusals,
                         ::testing::Values(Refusal{"NegativeCount",
                                                   {wave(12, 1.1)},
                                                   {1, 2, -1, 0, 3, 1, 0, 2, 1, 1, 0, 4},
                                                   GlmFamily::kPoissonLog,
                                                   "non-negative whole numbers"},
                                           Refusal{"ThreeValuedBinary",
                                                   {wave(12, 1.1)},
                                                   {0, 1, 2, 0, 1, 0, 1, 1, 0, 0, 1, 0},
                                                   GlmFamily::kBinomialLogit,
                                                   "coded 0 and 1"},
                                           Refusal{"AllZeroCounts",
                                                   {wave(12, 1.1)},
                                                   Vector(12, 0.0),
                                                   GlmFamily::kNegBinLog,
                                                   "Every count is 0"},
                                           Refusal{"ConstantColumn",
                                                   {Vector(12, 2.0)},
                                                   {1, 2, 0, 0, 3, 1, 0, 2, 1, 1, 0, 4},
                                                   GlmFamily::kPoissonLog,
                                                   "singular"},
                                           Refusal{"MoreColumnsThanCases",
                                                   {wave(3, 1.1), wave(3, 0.3), wave(3, 2.2)},
                                                   {1, 0, 2},
                                                   GlmFamily::kPoissonLog,
                                                   "4 coefficients but only 3 cases"}),
                         [](const auto& p) { return std::string(p.param.name); });

TEST(GlmRidge, NearSingularInformationIsRepairedAndLogged) {
  // Two columns so alike that a pivot falls below SINGULAR = 1e-6 (but the design is not
  // rank deficient).
  const Vector x = wave(40, 0.9);
  Vector x2 = x;
  for (std::size_t i = 0; i < x2.size(); ++i) x2[i] += 1e-4 * std::cos(3.1 * i);
  Vector y;
  for (std::size_t i = 0; i < x.size(); ++i) y.push_back(std::floor(2 + x[i] + std::cos(1.7 * i)));
  GlmOptions o;
  o.singular = 1e-6;
  const GlmFit fit =
      fitGlm(design({x, x2}), y, Vector(y.size(), 1.0), Family{GlmFamily::kPoissonLog, 1.0}, o);
  ASSERT_FALSE(fit.log.empty());
  EXPECT_EQ(fit.log[0].rfind("Ridge penalty 1e-06 added to the diagonal", 0), 0u) << fit.log[0];
}

// The fast replicate fit reaches the maximum of the general fit, for every family, on
// resample-like weights (some cases not drawn, some drawn twice), from a start away from it.
TEST(ReplicateFit, ReachesTheMaximumOfTheGeneralFit) {
  const std::size_t n = 400;
  const Vector x = wave(n, 0.7), z = wave(n, 1.9, 0.4);
  Vector binary(n), counts(n), w(n);
  for (std::size_t i = 0; i < n; ++i) {
    binary[i] = (x[i] + 0.8 * std::cos(2.3 * i) > 0.3) ? 1.0 : 0.0;
    counts[i] = std::floor(std::exp(0.5 + 0.6 * x[i]) * (1.0 + std::cos(2.9 * i)));
    w[i] = static_cast<double>((i * 7) % 3);  // 0, 1 or 2
  }
  const DesignMatrix X = design({x, z});
  const struct {
    Family family;
    const Vector* y;
  } cases[] = {{{GlmFamily::kBinomialLogit, 1.0}, &binary},
               {{GlmFamily::kBinomialLog, 1.0}, &binary},
               {{GlmFamily::kPoissonLog, 1.0}, &counts},
               {{GlmFamily::kNegBinLog, 0.7}, &counts}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.family.name());
    const GlmFit general = fitGlm(X, *c.y, w, c.family, GlmOptions());
    ASSERT_TRUE(general.converged) << general.message;
    GlmOptions o;
    o.start = general.coefficients;
    for (double& b : o.start) b *= 0.8;  // a warm start, not the answer
    o.start[0] = c.family.kind == GlmFamily::kBinomialLog ? -1.5 : o.start[0];
    Vector beta;
    ASSERT_TRUE(fitReplicateCoefficients(X, *c.y, w, c.family, o, beta));
    for (std::size_t j = 0; j < X.q; ++j) {
      EXPECT_NEAR(beta[j], general.coefficients[j], 1e-10 * std::max(1.0, std::fabs(beta[j])));
    }
  }
}

TEST(ReplicateFit, CholeskySolvesAndRefusesAnIndefiniteMatrix) {
  // a = [[4, 2], [2, 3]] (lower triangle used), b = (2, 1): x = (0.5, 0).
  Vector b = {2.0, 1.0};
  ASSERT_TRUE(choleskySolve({4.0, 0.0, 2.0, 3.0}, 2, b));
  EXPECT_NEAR(b[0], 0.5, 1e-15);
  EXPECT_NEAR(b[1], 0.0, 1e-15);
  Vector c = {1.0, 1.0};
  EXPECT_FALSE(choleskySolve({1.0, 0.0, 2.0, 1.0}, 2, c));
}

}  // namespace

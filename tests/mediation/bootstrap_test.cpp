#include "effects/bootstrap.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>

#include "reference_data.h"
#include "stathost/host_session.h"

namespace {

using namespace medanlys;

// n cases of a linear mediation model with one covariate.
BootstrapCases simulatedCases(std::size_t n) {
  BootstrapCases c;
  c.n = n;
  c.p = 1;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = static_cast<double>(i % 2);
    const double cov = std::sin(0.9 * static_cast<double>(i));
    const double m = 0.5 * a + 0.3 * cov + 0.4 * std::sin(2.7 * static_cast<double>(i) + 1.0);
    const double y = 1.0 + 0.4 * a + 0.8 * m + 0.2 * a * m + 0.1 * cov +
                     0.5 * std::cos(1.9 * static_cast<double>(i));
    c.exposure.push_back(a);
    c.mediator.push_back(m);
    c.outcome.push_back(y);
    c.covariates.push_back(cov);
    c.weights.push_back(1.0);
  }
  return c;
}

const ReferencePoint kReference{0.0, 1.0, 0.2, {0.0}};

EffectEstimates fullEstimates() {
  ContinuousModelParameters p;
  p.beta_0 = 0.0;
  p.beta_1 = 0.5;
  p.beta_2 = {0.3};
  p.theta_0 = 1.0;
  p.theta_1 = 0.4;
  p.theta_2 = 0.8;
  p.theta_3 = 0.2;
  p.theta_4 = {0.1};
  return computeEffects(p, kReference);
}

TEST(Bootstrap, RefusesNoReplicatesAndNoCases) {
  const BootstrapCases cases = simulatedCases(40);
  try {
    runBootstrap(cases, 0, 1, kReference, true, nullptr, nullptr);
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "NB must be positive");
  }
  try {
    runBootstrap(BootstrapCases(), 10, 1, kReference, true, nullptr, nullptr);
    FAIL();
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "Dataset D is empty");
  }
}

TEST(Bootstrap, OneReplicateHasNoStandardError) {
  const BootstrapStore store =
      runBootstrap(simulatedCases(40), 1, 5, kReference, true, nullptr, nullptr);
  std::vector<std::string> log;
  const auto summaries = summarizeBootstrap(store, fullEstimates(), 95, log);
  ASSERT_EQ(summaries.size(), kEffectCount);
  for (const auto& [name, s] : summaries) {
    EXPECT_TRUE(std::isnan(s.se)) << name;
  }
}

TEST(Bootstrap, PercentilePositions) {
  const double alpha = 1.0 - (95.0 / 100.0 + 1.0) * 0.5;
  EXPECT_EQ(percentilePositions(999, alpha), (std::pair<long, long>(25, 975)));
  EXPECT_EQ(percentilePositions(10, alpha), (std::pair<long, long>(0, 10)));
  // With ten replicates the upper position is not below n: no interval, and a warning.
  const BootstrapStore store =
      runBootstrap(simulatedCases(40), 10, 5, kReference, true, nullptr, nullptr);
  std::vector<std::string> log;
  const auto summaries = summarizeBootstrap(store, fullEstimates(), 95, log);
  EXPECT_TRUE(std::isnan(summaries.at("TE").percentileLower));
  EXPECT_NE(std::find(log.begin(), log.end(), "Warning: CI indices out of bounds for TE"),
            log.end());
  EXPECT_TRUE(std::isfinite(summaries.at("TE").se));
}

// Replicates symmetric about the estimate have no bias correction and no acceleration: the
// BCa interval the tables show is then the percentile interval, with its upper limit in the
// upper tail (the stored upper statistic keeps its lower-tail position).
TEST(Bootstrap, ShownBcaIntervalOfSymmetricReplicatesIsThePercentileInterval) {
  std::vector<double> values;
  for (int i = 0; i < 1000; ++i) values.push_back(0.001 * i);
  std::vector<std::string> log;
  const BootstrapSummary s = summarizeReplicateValues("TE", values, 0.4995, 95, false, log);
  EXPECT_DOUBLE_EQ(s.bcaLower, s.percentileLower);
  EXPECT_DOUBLE_EQ(s.bcaIntervalUpper, s.percentileUpper);
  EXPECT_DOUBLE_EQ(s.bcaUpper, values[25]);
}

TEST(Bootstrap, SingularReplicatesAreCountedAndContributeNothing) {
  // One treated case in 12: most resamples miss it, and the models cannot be fitted.
  BootstrapCases cases = simulatedCases(12);
  for (std::size_t i = 0; i < cases.n; ++i) cases.exposure[i] = i == 3 ? 1.0 : 0.0;
  const BootstrapStore store = runBootstrap(cases, 200, 11, kReference, true, nullptr, nullptr);
  EXPECT_GT(store.failures, 0);
  long successes = 0;
  for (char s : store.success) successes += s;
  EXPECT_EQ(successes + store.failures, 200);
  std::vector<std::string> log;
  const auto summaries = summarizeBootstrap(store, fullEstimates(), 95, log);
  EXPECT_LE(summaries.at("CDE").n, static_cast<double>(successes));
}

TEST(Bootstrap, SameSeedAndOneThreadRepeatExactly) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const BootstrapCases cases = simulatedCases(60);
  const BootstrapStore first = runBootstrap(cases, 50, 2000000, kReference, true, nullptr, nullptr);
  const BootstrapStore second =
      runBootstrap(cases, 50, 2000000, kReference, true, nullptr, nullptr);
  omp_set_num_threads(threads);
  for (std::size_t b = 0; b < 50; ++b) {
    for (const EffectField& f : kEffectFields) {
      const double x = first.replicates[b].*f.member, y = second.replicates[b].*f.member;
      EXPECT_TRUE(x == y || (std::isnan(x) && std::isnan(y))) << f.name << " replicate " << b;
    }
  }
}

TEST(Bootstrap, CancelledBeforeStartRunsNothing) {
  stathost::HostSession::instance().requestCancel();
  stathost::ACAStopProcessor stop(0.0);
  const BootstrapStore store =
      runBootstrap(simulatedCases(40), 100, 1, kReference, true, &stop, nullptr);
  stathost::HostSession::instance().clearCancel();
  EXPECT_TRUE(store.cancelled);
  EXPECT_LT(store.completed, 20);  // only the replicates started before the first poll
}

// The sampler's constant-time path for whole-number weights picks exactly the case that the
// search over running sums picks.
TEST(WeightedResampling, UnitTableAgreesWithTheRunningSums) {
  const Vector weights = {2, 0, 1, 3, 1, 0, 4, 1};
  const WeightedSampler sampler(weights.size(), weights);
  std::mt19937 a(42), b(42);
  Vector running;
  double total = 0;
  for (double w : weights) running.push_back(total += w);
  for (int k = 0; k < 10000; ++k) {
    const std::size_t drawn = sampler.draw(a);
    const double u = static_cast<double>(b()) * 0x1p-32 * total;
    std::size_t expected = 0;
    while (running[expected] < u) ++expected;
    ASSERT_EQ(drawn, expected) << "u=" << u;
    EXPECT_NE(weights[drawn], 0.0);
  }
  EXPECT_THROW(WeightedSampler(3, Vector{1, 1}), std::invalid_argument);
  EXPECT_THROW(WeightedSampler(2, Vector{0, 0}), std::invalid_argument);
}

}  // namespace

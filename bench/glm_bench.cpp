// One logistic fit and one negative binomial fit with k estimated, at N = 100,000 with an
// exposure, a mediator, their product and three covariates. Run: build-bench/bench/glm_bench
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

#include "models/glm.h"

namespace {

using namespace medanlys;

struct Data {
  DesignMatrix X;
  Vector binary, counts, weights;
};

Data simulate(std::size_t n) {
  Data d;
  d.X.n = n;
  d.X.q = 7;
  std::mt19937 gen(7);
  std::normal_distribution<double> normal;
  std::gamma_distribution<double> gamma(1.5, 1.0 / 1.5);
  for (std::size_t i = 0; i < n; ++i) {
    const double a = i % 2, m = 0.4 * a + normal(gen), c1 = normal(gen), c2 = normal(gen),
                 c3 = normal(gen);
    d.X.values.insert(d.X.values.end(), {1.0, a, m, a * m, c1, c2, c3});
    const double eta = -1.0 + 0.5 * a + 0.6 * m + 0.1 * a * m + 0.2 * c1 - 0.1 * c2;
    d.binary.push_back(
        std::uniform_real_distribution<double>()(gen) < 1.0 / (1.0 + std::exp(-eta)) ? 1 : 0);
    std::poisson_distribution<int> poisson(std::exp(0.5 + 0.3 * a + 0.2 * m + 0.1 * c3) *
                                           gamma(gen));
    d.counts.push_back(poisson(gen));
    d.weights.push_back(1.0);
  }
  return d;
}

void LogisticFit(benchmark::State& state) {
  const Data d = simulate(static_cast<std::size_t>(state.range(0)));
  int iterations = 0;
  for (auto _ : state) {
    const GlmFit fit = fitLogisticNR_Variant2(d.X, d.binary, d.weights, GlmOptions());
    iterations = fit.iterations;
    benchmark::DoNotOptimize(fit.coefficients);
  }
  state.counters["iterations"] = iterations;
}
BENCHMARK(LogisticFit)->Arg(100000)->Unit(benchmark::kMillisecond);

void NegativeBinomialMleFit(benchmark::State& state) {
  const Data d = simulate(static_cast<std::size_t>(state.range(0)));
  int iterations = 0;
  double k = 0;
  for (auto _ : state) {
    const GlmFit fit = fitNegativeBinomialMle(d.X, d.counts, d.weights, GlmOptions());
    iterations = fit.iterations;
    k = fit.dispersion;
    benchmark::DoNotOptimize(fit.coefficients);
  }
  state.counters["scoring_iterations"] = iterations;
  state.counters["k"] = k;
}
BENCHMARK(NegativeBinomialMleFit)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

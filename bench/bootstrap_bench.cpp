// The bootstrap of the continuous analysis: one replicate, NB = 1000 replicates, and the
// memory-bandwidth bound of one pass over the design (all three at N = 10,000 and 100,000
// with 3 covariates). Run: build-bench/bench/bootstrap_bench
#include <benchmark/benchmark.h>
#include <omp.h>

#include "bench_cases.h"

namespace {

const medanlys::ReferencePoint kReference{0.0, 1.0, 0.0, {0.0, 0.0, 0.0}};

void OneReplicate(benchmark::State& state) {
  const auto cases = benchCases(static_cast<std::size_t>(state.range(0)));
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  for (auto _ : state) {
    auto store = medanlys::runBootstrap(cases, 1, 1, kReference, true, nullptr, nullptr);
    benchmark::DoNotOptimize(store.replicates[0].TE);
  }
  omp_set_num_threads(threads);
}
BENCHMARK(OneReplicate)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void ThousandReplicates(benchmark::State& state) {
  const auto cases = benchCases(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    auto store = medanlys::runBootstrap(cases, 1000, 1, kReference, true, nullptr, nullptr);
    benchmark::DoNotOptimize(store.failures);
  }
  state.counters["threads"] = omp_get_max_threads();
}
BENCHMARK(ThousandReplicates)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The floor of any replicate: one pass reading every value the design needs (exposure,
// mediator, outcome, weight, 3 covariates) and a multiplicity per case.
void DesignPassBound(benchmark::State& state) {
  const auto cases = benchCases(static_cast<std::size_t>(state.range(0)));
  std::vector<std::uint32_t> counts(cases.n, 1);
  for (auto _ : state) {
    double s = 0.0;
    for (std::size_t i = 0; i < cases.n; ++i) {
      const double w = counts[i] * cases.weights[i];
      const double* c = cases.covariates.data() + 3 * i;
      s += w * (cases.exposure[i] + cases.mediator[i] + cases.outcome[i] + c[0] + c[1] + c[2]);
    }
    benchmark::DoNotOptimize(s);
  }
  state.SetBytesProcessed(
      static_cast<int64_t>(state.iterations()) *
      static_cast<int64_t>(cases.n * (7 * sizeof(double) + sizeof(std::uint32_t))));
}
BENCHMARK(DesignPassBound)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();

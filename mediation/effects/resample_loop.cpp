#include "effects/resample_loop.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "stathost/parser_message.h"

namespace medanlys {

void resampleWeights(const BootstrapCases& cases, const WeightedSampler& sampler,
                     std::mt19937& generator, Vector& weights) {
  std::fill(weights.begin(), weights.end(), 0.0);
  for (std::size_t k = 0; k < cases.n; ++k) weights[sampler.draw(generator)] += 1.0;
  for (std::size_t i = 0; i < cases.n; ++i) weights[i] *= cases.weights[i];
}

bool forEachResample(const BootstrapCases& cases, int nb, int seed,
                     stathost::ACAStopProcessor* stop, stathost::ProcedureProgress* progress,
                     const std::function<void(int b, const Vector& weights)>& visit) {
  const WeightedSampler sampler(cases.n, cases.weights);
  std::atomic<bool> cancelled{false};
  std::atomic<long> done{0};
#pragma omp parallel num_threads(omp_get_max_threads())
  {
    Vector weights(cases.n);  // this thread's working state
    const int thread = omp_get_thread_num();
#pragma omp for schedule(dynamic)
    for (int b = 0; b < nb; ++b) {
      if (b % 10 == 0) {
        if (stop && stop->CheckCancel()) cancelled = true;
        if (progress) progress->advance(done.load());
      }
      if (cancelled) continue;
      std::mt19937 generator(static_cast<std::uint32_t>(thread * 1000 + seed + b));
      resampleWeights(cases, sampler, generator, weights);
      visit(b, weights);
      ++done;
    }
  }
  // The replicates that finished are kept, as in the continuous analysis; the user is told
  // how far the run got.
  if (cancelled && done > 0) {
    stathost::ParserMessage messages;
    messages.SetCommandName("MEDIATION ANALYSIS");
    messages.SetProcedureTitle("Mediation Analysis");
    messages.GenericWarning(
        "The bootstrap was stopped by the user after ^1 of ^2 replicates; its results use "
        "those replicates.",
        std::to_string(done.load()), std::to_string(nb));
  }
  return !cancelled;
}

}  // namespace medanlys

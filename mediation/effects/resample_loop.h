// The replicate loop shared by the bootstraps of the ratio-outcome and binary-mediator
// analyses: resample b draws the cases with probability proportional to their weights,
// seeded threadNumber * 1000 + seed + b, and is handed to the caller as case weights
// (multiplicity x weight), so that fixed design matrices can be refitted without copying.
#pragma once

#include <functional>
#include <random>

#include "effects/bootstrap.h"

namespace medanlys {

// Multiplicity x weight of each case for one resample drawn from `generator`.
void resampleWeights(const BootstrapCases& cases, const WeightedSampler& sampler,
                     std::mt19937& generator, Vector& weights);

// Calls visit(b, weights) for b = 0 .. nb - 1 on the OpenMP team (dynamic schedule). The stop
// processor is asked every tenth replicate; after a cancel the remaining replicates are
// skipped and false is returned. `visit` runs concurrently and must write only what belongs
// to replicate b (or lock what it shares).
bool forEachResample(const BootstrapCases& cases, int nb, int seed,
                     stathost::ACAStopProcessor* stop, stathost::ProcedureProgress* progress,
                     const std::function<void(int b, const Vector& weights)>& visit);

}  // namespace medanlys

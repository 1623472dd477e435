// The bootstrap of the binary-mediator analysis: validation of NB, a 100-resample pilot
// that decides between maximum likelihood and Firth's penalty for the logistic mediator
// model, the main parallel run, and the failure policy.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "effects/bootstrap.h"

namespace medanlys {

// What one resample gave: its effects, or why it failed.
struct ReplicateResult {
  bool ok = false;
  std::string reason;
  EffectEstimates effects;
};

// Fits both models on one resample, given as case weights (multiplicity x weight), and
// computes the effects. `index` is the replicate's number (pilot or main run); tests use
// it to make chosen replicates fail.
using ReplicateFitter =
    std::function<ReplicateResult(long index, const Vector& resampleWeights, bool firth)>;

// NB below 100 is refused, 100 to 499 raised to 1000; the level must lie in 1..99.
// Returns the number of resamples to run.
int validateBinaryBootstrap(int nb, int level, std::vector<std::string>& log);

// The pilot: 100 resamples fitted without the penalty; true (use Firth) when more than
// 10% fail.
bool pilotBootstrap(const BootstrapCases& cases, const ReplicateFitter& fit, int seed,
                    stathost::ACAStopProcessor* stop, std::vector<std::string>& log);

struct BinaryBootstrapRun {
  BootstrapStore store;
  long successes = 0;
  long failures = 0;
  std::vector<std::string> reasons;  // in the order recorded
};

// The main run on the thread team. Throws "Bootstrap analysis cancelled by user".
BinaryBootstrapRun mainBootstrap(const BootstrapCases& cases, const ReplicateFitter& fit, int nb,
                                 int seed, bool firth, stathost::ACAStopProcessor* stop,
                                 stathost::ProcedureProgress* progress,
                                 std::vector<std::string>& log);

// Abandons (throws std::runtime_error with the warning text, after `warn` was called with
// it) above 20% failures or below 80% successes; logs a moderate rate above 10%, the
// counts, and the first five reasons.
void applyFailurePolicy(const BinaryBootstrapRun& run, int nb, std::vector<std::string>& log,
                        const std::function<void(const std::string&)>& warn);

// The text summary written to standard output.
void printBootstrapSummary(std::ostream& out,
                           const std::map<std::string, BootstrapSummary>& summaries,
                           const BinaryBootstrapRun& run, int nb, int level);

}  // namespace medanlys

// The bootstrap of the continuous-mediator analysis with a binary or count outcome: each
// resample refits the linear mediator model (with its residual variance) and the outcome
// GLM, and recomputes the ratio effects, excess relative risks and proportions. Ratios are
// resampled on the ratio scale. A run with fewer than 80% successful replicates is
// abandoned.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "effects/bootstrap.h"
#include "effects/ratio_effects.h"
#include "models/glm.h"

namespace medanlys {

// What a replicate refits: the fixed designs of both models and how to fit the outcome.
struct RatioReplicateModel {
  DesignMatrix mediatorX;
  Vector mediator;
  OutcomeDesign outcome;
  Family family;
  bool estimateDispersion = false;  // negative binomial with k estimated per replicate
  GlmOptions options;
  bool interaction = true;
  ReferencePoint reference;
  std::string prefix;  // "OR_", "RR_" or "IRR_"
};

// One replicate's effect values in the order of computeRatioEffects, or why it failed.
struct RatioReplicate {
  bool ok = false;
  std::string reason;
  Vector values;
};

// Refits both models with the resample's case weights and computes the effects.
RatioReplicate fitRatioReplicate(const RatioReplicateModel& model, const Vector& weights);

using RatioReplicateFitter = std::function<RatioReplicate(const Vector& weights)>;

struct RatioBootstrapRun {
  std::vector<Vector> values;  // per replicate slot
  std::vector<char> success;
  long successes = 0;
  long failures = 0;
  std::vector<std::string> reasons;  // in the order recorded
};

// The NB replicates on the thread team. Throws "Bootstrap analysis cancelled by user".
RatioBootstrapRun runRatioBootstrap(const BootstrapCases& cases, const RatioReplicateFitter& fit,
                                    int nb, int seed, stathost::ACAStopProcessor* stop,
                                    stathost::ProcedureProgress* progress,
                                    std::vector<std::string>& log);

// Throws std::runtime_error("Bootstrap failed: Only S successful iterations out of NB") when
// fewer than 80% of the replicates succeeded; logs the counts and the first five reasons.
void checkRatioBootstrap(const RatioBootstrapRun& run, int nb, std::vector<std::string>& log);

// Per effect name; ratios get their normal interval and p value on the log scale.
std::map<std::string, BootstrapSummary> summarizeRatioBootstrap(
    const RatioBootstrapRun& run, const std::vector<RatioEffectValue>& full, double level,
    std::vector<std::string>& log);

}  // namespace medanlys

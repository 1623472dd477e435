#include "effects/strategy_support.h"

#include <omp.h>

#include <cmath>
#include <cstdio>

namespace medanlys {

std::string elapsedSince(const std::string& what, double start) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.3f s", omp_get_wtime() - start);
  return what + seconds;
}

MLevelKind mLevelKind(MediatorLevelKind kind) {
  switch (kind) {
    case MediatorLevelKind::kMedian:
      return MLevelKind::kMedian;
    case MediatorLevelKind::kCustom:
      return MLevelKind::kCustom;
    default:
      return MLevelKind::kMean;
  }
}

const char* weightsLogLine(bool scaleWeightGiven) {
  return scaleWeightGiven ? "Using weights from SCALEWEIGHT."
                          : "No weights provided; using uniform weights.";
}

GlmOptions glmOptions(const MediationSettings& s) {
  GlmOptions o;
  o.maxIterations = s.maxIterations;
  o.pConverge = s.pConverge;
  o.singular = s.singular;
  o.maxStepHalving = s.maxStepHalving;
  o.ridgePenalty = s.ridgePenalty;
  return o;
}

ContinuousModelParameters modelParameters(const Vector& beta, const Vector& theta,
                                          bool interaction) {
  ContinuousModelParameters p;
  p.interaction = interaction;
  p.beta_0 = beta[0];
  p.beta_1 = beta[1];
  p.beta_2.assign(beta.begin() + 2, beta.end());
  p.theta_0 = theta[0];
  p.theta_1 = theta[1];
  p.theta_2 = theta[2];
  p.theta_3 = interaction ? theta[3] : 0.0;
  p.theta_4.assign(theta.begin() + (interaction ? 4 : 3), theta.end());
  return p;
}

BootstrapCases bootstrapCases(const Vector& exposure, const Vector& mediator, const Vector& outcome,
                              const Vector& weights, const std::vector<Vector>& covariates) {
  BootstrapCases cases;
  cases.n = exposure.size();
  cases.p = covariates.size();
  cases.exposure = exposure;
  cases.mediator = mediator;
  cases.outcome = outcome;
  cases.weights = weights;
  cases.covariates.resize(cases.n * cases.p);
  for (std::size_t i = 0; i < cases.n; ++i) {
    for (std::size_t j = 0; j < cases.p; ++j) cases.covariates[i * cases.p + j] = covariates[j][i];
  }
  return cases;
}

bool bootstrapUsable(const MediationCaseData& results, const std::vector<std::string>& names) {
  if (results.bootstrap.empty()) return false;
  for (const std::string& name : names) {
    const auto it = results.bootstrap.find(name);
    if (it == results.bootstrap.end()) return false;
    const auto lower = it->second.find("percentile_ci_lower"),
               upper = it->second.find("percentile_ci_upper");
    if (lower == it->second.end() || upper == it->second.end() || !std::isfinite(lower->second) ||
        !std::isfinite(upper->second)) {
      return false;
    }
  }
  return true;
}

void storeBootstrapSummaries(const std::map<std::string, BootstrapSummary>& summaries,
                             long replicates, const std::vector<std::string>& decomposition,
                             MediationCaseData& results) {
  for (const auto& [name, summary] : summaries)
    results.bootstrap[name] = summaryStatistics(summary);
  results.bootstrapReplicates = replicates;
  const bool usable = bootstrapUsable(results, decomposition);
  results.flags[FLAG_BOOTSTRAP_SUCCEEDED] = usable;
  results.log.push_back(usable ? "Bootstrap results stored for table generation: " +
                                     std::to_string(results.bootstrap.size()) + " effects"
                               : "Bootstrap completed but failed to produce valid results. "
                                 "Tables will not be displayed.");
}

bool bootstrapUsable(const MediationCaseData& results) {
  std::vector<std::string> names;
  for (std::size_t k = 0; k < 10; ++k) names.push_back(kEffectFields[k].name);
  return bootstrapUsable(results, names);
}

}  // namespace medanlys

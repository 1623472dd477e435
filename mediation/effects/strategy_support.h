// Pieces every strategy's run needs: timing lines, the criteria as fit options, the model
// parameters from two coefficient vectors, the bootstrap's case arrays and its verdict.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "algorithm/data_preparation.h"
#include "algorithm/mediation_case_data.h"
#include "effects/bootstrap.h"
#include "effects/continuous_effects.h"
#include "models/glm.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

// "<what> 0.123 s" with the OpenMP wall clock since `start`.
std::string elapsedSince(const std::string& what, double start);

MLevelKind mLevelKind(MediatorLevelKind kind);

// The log line that says where the case weights come from.
const char* weightsLogLine(bool scaleWeightGiven);

GlmOptions glmOptions(const MediationSettings& settings);

// beta = (beta_0, beta_1, beta_2...), theta = (theta_0, theta_1, theta_2, [theta_3], theta_4...).
ContinuousModelParameters modelParameters(const Vector& beta, const Vector& theta,
                                          bool interaction);

BootstrapCases bootstrapCases(const Vector& exposure, const Vector& mediator, const Vector& outcome,
                              const Vector& weights, const std::vector<Vector>& covariates);

// A bootstrap is usable when every decomposition effect has finite percentile limits: the
// named effects, or CDE .. PAI of the additive decomposition.
bool bootstrapUsable(const MediationCaseData& results);
bool bootstrapUsable(const MediationCaseData& results, const std::vector<std::string>& names);

// Stores the summaries as the tables read them, with the number of replicates, sets the
// succeeded flag by bootstrapUsable over `decomposition` and logs the outcome.
void storeBootstrapSummaries(const std::map<std::string, BootstrapSummary>& summaries,
                             long replicates, const std::vector<std::string>& decomposition,
                             MediationCaseData& results);

}  // namespace medanlys

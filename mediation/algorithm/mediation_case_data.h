// The results of one analysis, written by the strategy and read by the output.
#pragma once

#include <array>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "algorithm/data_preparation.h"
#include "models/glm.h"
#include "models/wls.h"

namespace medanlys {

// The reference point of the effects: exposure levels, mediator level and covariate
// values, on the scale of the fitted models.
struct ReferencePoint {
  double a_star = 0.0;
  double a_hat = 0.0;
  double m_star = 0.0;
  Vector c_star;
};

// Inference for one effect: estimate, standard error, z, two-sided p, confidence limits.
struct EffectInference {
  double estimate = 0.0;
  double se = 0.0;
  double z = 0.0;
  double p = 0.0;
  double lower = 0.0;
  double upper = 0.0;
};

// Counts and totals of the case processing summary.
struct CaseSummary {
  double casesRead = 0.0;
  double casesValid = 0.0;
  double totalWeightRead = 0.0;
  double totalWeightValid = 0.0;
  double outcomePrevalenceRead = 0.0;
  double outcomePrevalenceValid = 0.0;
};

// Result flags of the run.
enum AnalysisFlag {
  FLAG_BOOTSTRAP_REQUESTED = 0,
  FLAG_BOOTSTRAP_SUCCEEDED,
  FLAG_RATIO_STATS_AVAILABLE,
  FLAG_CANCELLED,
  FLAG_FIRTH_USED,
  ANALYSIS_FLAG_COUNT
};

struct MediationCaseData {
  // Effect inference by effect name, and bootstrap statistics by effect name.
  std::map<std::string, EffectInference> effects;
  std::map<std::string, std::map<std::string, double>> bootstrap;
  long bootstrapReplicates = 0;  // replicates that ran (fewer than asked when cancelled)
  // The run's log lines and its warnings.
  std::vector<std::string> log;
  std::vector<std::string> warnings;
  // The fitted models and the point at which the effects were evaluated.
  WlsFit mediatorFit;          // continuous mediator
  GlmFit mediatorLogisticFit;  // binary mediator
  WlsFit outcomeFit;           // continuous outcome
  GlmFit outcomeGlmFit;        // binary or count outcome
  ReferencePoint reference;
  // a* and a on the exposure's scale in the data (after any repair of extrapolated levels);
  // `reference` holds them on the model scale, which differs when the exposure was
  // transformed for its skewness.
  ExposureLevels dataScaleLevels;
  double mediatorScale = 1.0;
  double outcomeEventValue = NAN;  // binary outcome: the data value coded 1 (the event)
  // For the sensitivity analysis: a binary outcome's share of events in the total weight
  // (the rare-outcome rule of the odds ratios), and a continuous outcome's standard
  // deviation on the scale of the effects (after any skewness transformation; frequency
  // weights, divisor total weight - 1).
  double outcomeEventShare = NAN;
  double outcomeSd = NAN;
  TransformationRecords transformations;
  // Names of the covariate columns of the models, in design order (factor dummies first).
  std::vector<std::string> covariateLabels;
  CaseSummary summary;
  std::array<bool, ANALYSIS_FLAG_COUNT> flags{};
  // One flag per PRINT table family: set when the strategy has results for it.
  std::array<bool, 9> available{};

  // Empties everything a previous run left.
  void clear();
};

// The standard deviation of x with frequency weights w (divisor sum(w) - 1), as the
// descriptives table computes it; NaN when the total weight is at most 1.
double weightedStandardDeviation(const Vector& x, const Vector& w);

}  // namespace medanlys

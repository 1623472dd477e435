// Effects of a continuous mediator on a binary or count outcome (log link, or the logit
// link under the rare-outcome approximation): ratios on the log scale, the excess relative
// risks of the four-way decomposition, and the proportions of excRR_TE. With
// D = a - a*, mu* = beta_0 + beta_1 a* + beta_2' c*, s = theta_2 + theta_3 a*:
//   log R_CDE = (theta_1 + theta_3 m*) D
//   log R_NDE = (theta_1 + theta_3 (mu* + theta_2 sigma2)) D + 1/2 theta_3^2 sigma2 (a^2 - a*^2)
//   log R_NIE = beta_1 (theta_2 + theta_3 a) D,  log R_PIE = beta_1 (theta_2 + theta_3 a*) D
//   log R_TE = log R_NDE + log R_NIE,  log R_TDE = log R_TE - log R_PIE
//   R_INTref = R_NDE / R_CDE,  R_INTmed = R_NIE / R_PIE
//   excRR_CDE = exp(theta_1 D + (theta_2 + theta_3 a) m* - s mu* - s^2 sigma2 / 2)
//               - exp(s m* - s mu* - s^2 sigma2 / 2)
//   excRR_INTref = R_NDE - 1 - excRR_CDE,  excRR_INTmed = R_NDE (R_NIE - 1) - (R_PIE - 1)
//   excRR_PIE = R_PIE - 1, excRR_TE = R_TE - 1, excRR_NDE = R_NDE - 1, excRR_NIE = R_NDE (R_NIE -
//   1)
// (Valeri and VanderWeele 2013; VanderWeele 2014.)
#pragma once

#include <string>
#include <vector>

#include "effects/continuous_effects.h"

namespace medanlys {

// Parameter order of the delta method: beta (mediator), sigma2, theta (outcome).
struct RatioModelParameters {
  ContinuousModelParameters models;
  double sigma2 = 0.0;
  std::size_t size() const { return models.mediatorSize() + 1 + models.outcomeSize(); }
};

struct RatioEffectValue {
  std::string name;
  bool ratio = false;  // a ratio: inference on the log scale
  double estimate = NAN;
  Vector gradient;  // of the log for a ratio, of the value otherwise
};

// Names use the prefix ("OR_", "RR_" or "IRR_").
std::vector<RatioEffectValue> computeRatioEffects(const RatioModelParameters& p,
                                                  const ReferencePoint& r,
                                                  const std::string& prefix, bool withGradients);

// Inference by name: ratios with SE = R SE_log, z = log R / SE_log and limits
// exp(log R -/+ z_c SE_log); the others on their own scale.
EffectMap ratioEffectInference(const std::vector<RatioEffectValue>& effects, const Matrix& sigma,
                               double level);

}  // namespace medanlys

// Effects of a binary mediator on a continuous outcome (additive scale).
//
// Mediator model logit P(M=1) = beta_0 + beta_1 A + beta_2' C; outcome model as in the
// continuous case. With p* = expit(beta_0 + beta_1 a* + beta_2' c*) and
// p(a) = expit(beta_0 + beta_1 a + beta_2' c*), m* in {0, 1} and D = a - a*:
//   CDE = (theta_1 + theta_3 m*) D          NDE = (theta_1 + theta_3 p*) D
//   NIE = (theta_2 + theta_3 a)(p(a) - p*)  PIE = (theta_2 + theta_3 a*)(p(a) - p*)
//   TE = NDE + NIE, INT_ref = NDE - CDE, INT_med = NIE - PIE, PE, TDE, PAI and the
//   proportions as in the continuous case (VanderWeele 2014).
#pragma once

#include "effects/continuous_effects.h"

namespace medanlys {

EffectEstimates computeBinaryMediatorEffects(const ContinuousModelParameters& p,
                                             const ReferencePoint& r);

// Gradients with respect to (beta, theta) in the order of the joint covariance.
std::vector<Vector> binaryMediatorGradients(const ContinuousModelParameters& p,
                                            const ReferencePoint& r, const EffectEstimates& e);

}  // namespace medanlys

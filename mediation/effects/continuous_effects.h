// Effects of a continuous mediator on a continuous outcome, closed form, and their
// delta-method inference.
//
// Mediator model M = beta_0 + beta_1 A + beta_2' C; outcome model
// Y = theta_0 + theta_1 A + theta_2 M + theta_3 A M + theta_4' C (theta_3 = 0 without the
// interaction). With D = a_hat - a_star and mu* = beta_0 + beta_1 a_star + beta_2' c_star:
//   CDE = (theta_1 + theta_3 m*) D          NDE = (theta_1 + theta_3 mu*) D
//   NIE = beta_1 (theta_2 + theta_3 a_hat) D PIE = beta_1 (theta_2 + theta_3 a_star) D
//   TE = NDE + NIE, INT_med = theta_3 beta_1 D^2, INT_ref = NDE - CDE,
//   PE = INT_med + PIE + INT_ref, TDE = INT_med + CDE + INT_ref, PAI = INT_ref + INT_med,
// and the proportions 100 X / TE (Valeri and VanderWeele 2013; VanderWeele 2014).
#pragma once

#include <vector>

#include "effects/effect_estimates.h"
#include "models/linear_algebra.h"

namespace medanlys {

// The coefficients the formulas need, and where they sit in the joint parameter vector
// (mediator block first, then outcome block).
struct ContinuousModelParameters {
  double beta_0 = 0.0, beta_1 = 0.0;
  Vector beta_2;
  double theta_0 = 0.0, theta_1 = 0.0, theta_2 = 0.0, theta_3 = 0.0;
  Vector theta_4;
  bool interaction = true;
  std::size_t mediatorSize() const { return 2 + beta_2.size(); }
  std::size_t outcomeSize() const { return (interaction ? 4 : 3) + theta_4.size(); }
};

// Throws FitError on a non-finite effect ("Numerical overflow in effects. Check mediator
// scaling and contrast size.").
EffectEstimates computeEffects(const ContinuousModelParameters& p, const ReferencePoint& r);

// Gradient of every field of the record with respect to the joint parameter vector, in
// the order of kEffectFields.
std::vector<Vector> effectGradients(const ContinuousModelParameters& p, const ReferencePoint& r,
                                    const EffectEstimates& e);

// The gradients of all 22 fields from those of CDE, NDE, NIE, PIE and INT_med: the other
// effects are sums and differences of these, the ratios 100 X / TE.
std::vector<Vector> assembleGradients(const Vector& cde, const Vector& nde, const Vector& nie,
                                      const Vector& pie, const Vector& intMed,
                                      const EffectEstimates& e);

// TE-based proportions of the record: 100 X / TE, NaN when |TE| is too close to 0.
void fillRatios(EffectEstimates& e);

// Block-diagonal joint covariance; throws "Covariance matrix dimension mismatch.".
Matrix jointCovariance(const Matrix& mediatorCov, const Matrix& outcomeCov,
                       std::size_t mediatorSize, std::size_t outcomeSize);

// Estimate, SE, z, two-sided p and limits at the confidence level (percent) for every field.
EffectMap deltaMethodInference(const EffectEstimates& e, const std::vector<Vector>& gradients,
                               const Matrix& sigma, double confidenceLevel);

// One effect's inference from its estimate and variance: NaN statistics where they cannot
// be formed.
EffectInference inferenceFromVariance(double estimate, double variance, double zCritical);
double criticalValue(double confidenceLevel);

}  // namespace medanlys

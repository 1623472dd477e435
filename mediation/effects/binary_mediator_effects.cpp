#include "effects/binary_mediator_effects.h"

#include <cmath>

#include "models/fit_error.h"

namespace medanlys {
namespace {

double expit(double x) { return 1.0 / (1.0 + std::exp(-x)); }

// Linear predictor of the mediator model at exposure a and the covariate reference.
double linearPredictor(const ContinuousModelParameters& p, const ReferencePoint& r, double a) {
  double eta = p.beta_0 + p.beta_1 * a;
  for (std::size_t i = 0; i < p.beta_2.size() && i < r.c_star.size(); ++i)
    eta += p.beta_2[i] * r.c_star[i];
  return eta;
}

}  // namespace

EffectEstimates computeBinaryMediatorEffects(const ContinuousModelParameters& p,
                                             const ReferencePoint& r) {
  const double delta = r.a_hat - r.a_star;
  const double pStar = expit(linearPredictor(p, r, r.a_star));
  const double pA = expit(linearPredictor(p, r, r.a_hat));
  EffectEstimates e;
  e.CDE = (p.theta_1 + p.theta_3 * r.m_star) * delta;
  e.NDE = (p.theta_1 + p.theta_3 * pStar) * delta;
  e.NIE = (p.theta_2 + p.theta_3 * r.a_hat) * (pA - pStar);
  e.PIE = (p.theta_2 + p.theta_3 * r.a_star) * (pA - pStar);
  e.TE = e.NDE + e.NIE;
  e.INT_ref = e.NDE - e.CDE;
  e.INT_med = e.NIE - e.PIE;
  e.PE = e.INT_med + e.PIE + e.INT_ref;
  e.TDE = e.INT_med + e.CDE + e.INT_ref;
  e.PAI = e.INT_ref + e.INT_med;
  for (double v : {e.CDE, e.NDE, e.NIE, e.TE, e.PIE, e.INT_med, e.INT_ref}) {
    if (!std::isfinite(v)) {
      throw FitError("Numerical overflow in effects. Check mediator scaling and contrast size.",
                     "Numerical overflow in effect estimation");
    }
  }
  fillRatios(e);
  return e;
}

std::vector<Vector> binaryMediatorGradients(const ContinuousModelParameters& p,
                                            const ReferencePoint& r, const EffectEstimates& e) {
  const std::size_t qm = p.mediatorSize();
  const std::size_t total = qm + p.outcomeSize();
  const double delta = r.a_hat - r.a_star;
  const double pStar = expit(linearPredictor(p, r, r.a_star));
  const double pA = expit(linearPredictor(p, r, r.a_hat));
  const double dStar = pStar * (1.0 - pStar), dA = pA * (1.0 - pA);
  const std::size_t t1 = qm + 1, t2 = qm + 2, t3 = qm + 3;
  // d p(a) / d beta = p(a)(1 - p(a)) (1, a, c*).
  auto dp = [&](double slope, double a, Vector& g, double factor) {
    g[0] += factor * slope;
    g[1] += factor * slope * a;
    for (std::size_t i = 0; i < p.beta_2.size(); ++i) g[2 + i] += factor * slope * r.c_star[i];
  };
  Vector cde(total, 0.0), nde(total, 0.0), nie(total, 0.0), pie(total, 0.0), intMed(total, 0.0);
  cde[t1] = delta;
  if (p.interaction) cde[t3] = r.m_star * delta;

  nde[t1] = delta;
  if (p.interaction) {
    nde[t3] = pStar * delta;
    dp(dStar, r.a_star, nde, p.theta_3 * delta);
  }

  const double gapA = p.theta_2 + p.theta_3 * r.a_hat, gapStar = p.theta_2 + p.theta_3 * r.a_star;
  nie[t2] = pA - pStar;
  if (p.interaction) nie[t3] = r.a_hat * (pA - pStar);
  dp(dA, r.a_hat, nie, gapA);
  dp(dStar, r.a_star, nie, -gapA);

  pie[t2] = pA - pStar;
  if (p.interaction) pie[t3] = r.a_star * (pA - pStar);
  dp(dA, r.a_hat, pie, gapStar);
  dp(dStar, r.a_star, pie, -gapStar);

  for (std::size_t k = 0; k < total; ++k) intMed[k] = nie[k] - pie[k];
  return assembleGradients(cde, nde, nie, pie, intMed, e);
}

}  // namespace medanlys

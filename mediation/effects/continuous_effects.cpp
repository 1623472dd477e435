#include "effects/continuous_effects.h"

#include <boost/math/distributions/normal.hpp>
#include <cmath>
#include <stdexcept>

#include "models/fit_error.h"

namespace medanlys {

const std::array<EffectField, kEffectCount> kEffectFields = {{
    {"CDE", &EffectEstimates::CDE},
    {"NDE", &EffectEstimates::NDE},
    {"NIE", &EffectEstimates::NIE},
    {"TE", &EffectEstimates::TE},
    {"PIE", &EffectEstimates::PIE},
    {"INT_med", &EffectEstimates::INT_med},
    {"INT_ref", &EffectEstimates::INT_ref},
    {"PE", &EffectEstimates::PE},
    {"TDE", &EffectEstimates::TDE},
    {"PAI", &EffectEstimates::PAI},
    {"PM", &EffectEstimates::PM},
    {"Percent_INT", &EffectEstimates::Percent_INT},
    {"Percent_ELIM", &EffectEstimates::Percent_ELIM},
    {"r_CDE", &EffectEstimates::r_CDE},
    {"r_NDE", &EffectEstimates::r_NDE},
    {"r_NIE", &EffectEstimates::r_NIE},
    {"r_PE", &EffectEstimates::r_PE},
    {"r_TDE", &EffectEstimates::r_TDE},
    {"r_PIE", &EffectEstimates::r_PIE},
    {"r_INT_med", &EffectEstimates::r_INT_med},
    {"r_INT_ref", &EffectEstimates::r_INT_ref},
    {"r_PAI", &EffectEstimates::r_PAI},
}};

namespace {

double muStar(const ContinuousModelParameters& p, const ReferencePoint& r) {
  double mu = p.beta_0 + p.beta_1 * r.a_star;
  for (std::size_t i = 0; i < p.beta_2.size() && i < r.c_star.size(); ++i)
    mu += p.beta_2[i] * r.c_star[i];
  return mu;
}

}  // namespace

void fillRatios(EffectEstimates& e) {
  const double d = std::max(0.01 * std::fabs(e.TE), 1e-10);
  const bool ok = std::isfinite(e.TE) && d <= std::fabs(e.TE);
  auto ratio = [&](double x) { return ok ? 100.0 * x / e.TE : std::nan(""); };
  e.PM = ratio(e.NIE);
  e.Percent_INT = ratio(e.PAI);
  e.Percent_ELIM = ratio(e.PE);
  e.r_CDE = ratio(e.CDE);
  e.r_NDE = ratio(e.NDE);
  e.r_NIE = ratio(e.NIE);
  e.r_PE = ratio(e.PE);
  e.r_TDE = ratio(e.TDE);
  e.r_PIE = ratio(e.PIE);
  e.r_INT_med = ratio(e.INT_med);
  e.r_INT_ref = ratio(e.INT_ref);
  e.r_PAI = ratio(e.PAI);
}

EffectEstimates computeEffects(const ContinuousModelParameters& p, const ReferencePoint& r) {
  const double delta = r.a_hat - r.a_star;
  const double mu = muStar(p, r);
  EffectEstimates e;
  e.CDE = (p.theta_1 + p.theta_3 * r.m_star) * delta;
  e.NDE = (p.theta_1 + p.theta_3 * mu) * delta;
  e.NIE = (p.theta_2 * p.beta_1 + p.theta_3 * p.beta_1 * r.a_hat) * delta;
  e.TE = e.NDE + e.NIE;
  e.PIE = (p.theta_2 * p.beta_1 + p.theta_3 * p.beta_1 * r.a_star) * delta;
  e.INT_med = p.theta_3 * p.beta_1 * delta * delta;
  e.INT_ref = e.NDE - e.CDE;
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

std::vector<Vector> effectGradients(const ContinuousModelParameters& p, const ReferencePoint& r,
                                    const EffectEstimates& e) {
  const std::size_t qm = p.mediatorSize();
  const std::size_t total = qm + p.outcomeSize();
  const double delta = r.a_hat - r.a_star;
  const double mu = muStar(p, r);
  // Positions in the joint vector.
  const std::size_t b0 = 0, b1 = 1, b2 = 2;
  const std::size_t t1 = qm + 1, t2 = qm + 2, t3 = qm + 3;
  auto zero = [&] { return Vector(total, 0.0); };

  Vector cde = zero();
  cde[t1] = delta;
  if (p.interaction) cde[t3] = r.m_star * delta;

  Vector nde = zero();
  nde[t1] = delta;
  if (p.interaction) {
    nde[b0] = p.theta_3 * delta;
    nde[b1] = p.theta_3 * r.a_star * delta;
    for (std::size_t i = 0; i < p.beta_2.size(); ++i) nde[b2 + i] = p.theta_3 * r.c_star[i] * delta;
    nde[t3] = mu * delta;
  }

  Vector nie = zero();
  nie[b1] = (p.theta_2 + p.theta_3 * r.a_hat) * delta;
  nie[t2] = p.beta_1 * delta;
  if (p.interaction) nie[t3] = p.beta_1 * r.a_hat * delta;

  Vector pie = zero();
  pie[b1] = (p.theta_2 + p.theta_3 * r.a_star) * delta;
  pie[t2] = p.beta_1 * delta;
  if (p.interaction) pie[t3] = p.beta_1 * r.a_star * delta;

  Vector intMed = zero();
  intMed[b1] = p.theta_3 * delta * delta;
  if (p.interaction) intMed[t3] = p.beta_1 * delta * delta;

  return assembleGradients(cde, nde, nie, pie, intMed, e);
}

std::vector<Vector> assembleGradients(const Vector& cde, const Vector& nde, const Vector& nie,
                                      const Vector& pie, const Vector& intMed,
                                      const EffectEstimates& e) {
  const std::size_t total = cde.size();
  auto combine = [&](std::initializer_list<std::pair<double, const Vector*>> parts) {
    Vector g(total, 0.0);
    for (const auto& [sign, v] : parts) {
      for (std::size_t k = 0; k < total; ++k) g[k] += sign * (*v)[k];
    }
    return g;
  };
  const Vector te = combine({{1, &nde}, {1, &nie}});
  const Vector intRef = combine({{1, &nde}, {-1, &cde}});
  const Vector pe = combine({{1, &intMed}, {1, &pie}, {1, &intRef}});
  const Vector tde = combine({{1, &intMed}, {1, &cde}, {1, &intRef}});
  const Vector pai = combine({{1, &intRef}, {1, &intMed}});

  // R = 100 X / TE: gradient 100 (g_X TE - X g_TE) / TE^2, only when |TE| >= 1e-12.
  auto ratio = [&](double x, const Vector& gx) {
    Vector g(total, std::nan(""));
    if (std::fabs(e.TE) < 1e-12) return g;
    for (std::size_t k = 0; k < total; ++k)
      g[k] = 100.0 * (gx[k] * e.TE - x * te[k]) / (e.TE * e.TE);
    return g;
  };
  return {cde,
          nde,
          nie,
          te,
          pie,
          intMed,
          intRef,
          pe,
          tde,
          pai,
          ratio(e.NIE, nie),
          ratio(e.PAI, pai),
          ratio(e.PE, pe),
          ratio(e.CDE, cde),
          ratio(e.NDE, nde),
          ratio(e.NIE, nie),
          ratio(e.PE, pe),
          ratio(e.TDE, tde),
          ratio(e.PIE, pie),
          ratio(e.INT_med, intMed),
          ratio(e.INT_ref, intRef),
          ratio(e.PAI, pai)};
}

Matrix jointCovariance(const Matrix& mediatorCov, const Matrix& outcomeCov, std::size_t qm,
                       std::size_t qo) {
  if (mediatorCov.size1() != qm || mediatorCov.size2() != qm || outcomeCov.size1() != qo ||
      outcomeCov.size2() != qo) {
    throw std::invalid_argument("Covariance matrix dimension mismatch.");
  }
  Matrix sigma = zeroMatrix(qm + qo, qm + qo);
  for (std::size_t i = 0; i < qm; ++i) {
    for (std::size_t j = 0; j < qm; ++j) sigma(i, j) = mediatorCov(i, j);
  }
  for (std::size_t i = 0; i < qo; ++i) {
    for (std::size_t j = 0; j < qo; ++j) sigma(qm + i, qm + j) = outcomeCov(i, j);
  }
  return sigma;
}

double criticalValue(double level) {
  return boost::math::quantile(boost::math::normal(), (level / 100.0 + 1.0) * 0.5);
}

EffectInference inferenceFromVariance(double estimate, double variance, double zc) {
  EffectInference r;
  const double nan = std::nan("");
  if (std::isnan(estimate)) return EffectInference{nan, nan, nan, nan, nan, nan};
  r.estimate = estimate;
  r.se = std::sqrt(variance > 0.0 ? variance : 0.0);  // NaN or negative count as 0
  if (r.se >= 1e-12) {
    r.z = estimate / r.se;
    r.p = 2.0 * boost::math::cdf(boost::math::complement(boost::math::normal(), std::fabs(r.z)));
    r.lower = estimate - zc * r.se;
    r.upper = estimate + zc * r.se;
  } else {
    r.z = r.p = r.lower = r.upper = nan;
  }
  return r;
}

EffectMap deltaMethodInference(const EffectEstimates& e, const std::vector<Vector>& gradients,
                               const Matrix& sigma, double level) {
  if (sigma.size1() != sigma.size2() ||
      (!gradients.empty() && gradients[0].size() != sigma.size1())) {
    throw std::invalid_argument("Size of Sigma matrix does not match totalSize.");
  }
  const double zc = criticalValue(level);
  EffectMap out;
  for (std::size_t k = 0; k < kEffectCount; ++k) {
    const double estimate = e.*kEffectFields[k].member;
    out[kEffectFields[k].name] =
        inferenceFromVariance(estimate, quadraticForm(sigma, gradients[k]), zc);
  }
  return out;
}

}  // namespace medanlys

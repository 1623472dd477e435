#include "effects/ratio_effects.h"

#include <boost/math/distributions/normal.hpp>

#include "effects/dual.h"

namespace medanlys {
namespace {

template <typename T>
struct Values {
  T logCDE, logNDE, logNIE, logPIE, logTE, logTDE, logINTref, logINTmed;
  T excCDE, excNDE, excNIE, excTE, excPIE, excINTref, excINTmed;
};

// The formulas, for double or Dual coefficients.
template <typename T>
Values<T> formulas(const std::vector<T>& beta, const T& sigma2, const std::vector<T>& theta,
                   bool interaction, const ReferencePoint& r) {
  const double delta = r.a_hat - r.a_star;
  T mu = beta[0] + beta[1] * r.a_star;
  for (std::size_t i = 2; i < beta.size(); ++i) mu = mu + beta[i] * r.c_star[i - 2];
  const T theta1 = theta[1], theta2 = theta[2];
  const T theta3 = interaction ? theta[3] : T(0.0);
  Values<T> v;
  v.logCDE = (theta1 + theta3 * r.m_star) * delta;
  v.logNDE = (theta1 + theta3 * (mu + theta2 * sigma2)) * delta +
             T(0.5) * theta3 * theta3 * sigma2 * (r.a_hat * r.a_hat - r.a_star * r.a_star);
  v.logNIE = beta[1] * (theta2 + theta3 * r.a_hat) * delta;
  v.logPIE = beta[1] * (theta2 + theta3 * r.a_star) * delta;
  v.logTE = v.logNDE + v.logNIE;
  v.logTDE = v.logTE - v.logPIE;
  v.logINTref = v.logNDE - v.logCDE;
  v.logINTmed = v.logNIE - v.logPIE;
  const T rNDE = exp(v.logNDE), rNIE = exp(v.logNIE), rPIE = exp(v.logPIE), rTE = exp(v.logTE);
  const T s = theta2 + theta3 * r.a_star;
  const T shift = s * mu + T(0.5) * s * s * sigma2;
  v.excCDE = exp(theta1 * delta + (theta2 + theta3 * r.a_hat) * r.m_star - shift) -
             exp(s * r.m_star - shift);
  v.excINTref = rNDE - T(1.0) - v.excCDE;
  v.excINTmed = rNDE * (rNIE - T(1.0)) - (rPIE - T(1.0));
  v.excPIE = rPIE - T(1.0);
  v.excTE = rTE - T(1.0);
  v.excNDE = rNDE - T(1.0);
  v.excNIE = rNDE * (rNIE - T(1.0));
  return v;
}

}  // namespace

using std::exp;

std::vector<RatioEffectValue> computeRatioEffects(const RatioModelParameters& p,
                                                  const ReferencePoint& r,
                                                  const std::string& prefix, bool withGradients) {
  const ContinuousModelParameters& m = p.models;
  std::vector<double> beta = {m.beta_0, m.beta_1};
  beta.insert(beta.end(), m.beta_2.begin(), m.beta_2.end());
  std::vector<double> theta = {m.theta_0, m.theta_1, m.theta_2};
  if (m.interaction) theta.push_back(m.theta_3);
  theta.insert(theta.end(), m.theta_4.begin(), m.theta_4.end());
  const std::size_t n = p.size();
  std::vector<Dual> b, t;
  for (std::size_t i = 0; i < beta.size(); ++i)
    b.push_back(withGradients ? Dual::variable(beta[i], i, n) : Dual(beta[i]));
  const Dual s2 = withGradients ? Dual::variable(p.sigma2, beta.size(), n) : Dual(p.sigma2);
  for (std::size_t i = 0; i < theta.size(); ++i) {
    t.push_back(withGradients ? Dual::variable(theta[i], beta.size() + 1 + i, n) : Dual(theta[i]));
  }
  const Values<Dual> v = formulas(b, s2, t, m.interaction, r);

  std::vector<RatioEffectValue> out;
  auto gradient = [&](const Dual& x) {
    Vector g(n, 0.0);
    for (std::size_t i = 0; i < n; ++i) g[i] = x.gradient(i);
    return g;
  };
  auto ratio = [&](const char* name, const Dual& logValue) {
    out.push_back({prefix + name, true, std::exp(logValue.v), gradient(logValue)});
  };
  ratio("CDE", v.logCDE);
  ratio("NDE", v.logNDE);
  ratio("NIE", v.logNIE);
  ratio("TE", v.logTE);
  ratio("PIE", v.logPIE);
  ratio("TDE", v.logTDE);
  ratio("INTref", v.logINTref);
  ratio("INTmed", v.logINTmed);
  auto plain = [&](const std::string& name, const Dual& x) {
    out.push_back({name, false, x.v, gradient(x)});
  };
  plain("excRR_CDE", v.excCDE);
  plain("excRR_NDE", v.excNDE);
  plain("excRR_NIE", v.excNIE);
  plain("excRR_TE", v.excTE);
  plain("excRR_PIE", v.excPIE);
  plain("excRR_INTref", v.excINTref);
  plain("excRR_INTmed", v.excINTmed);
  // Proportions of excRR_TE, in percent; not formed when excRR_TE is too close to 0.
  const double d = std::max(0.01 * std::fabs(v.excTE.v), 1e-10);
  const bool ok = std::isfinite(v.excTE.v) && d <= std::fabs(v.excTE.v);
  auto proportion = [&](const char* name, const Dual& x) {
    if (!ok) {
      out.push_back({name, false, NAN, Vector(n, NAN)});
      return;
    }
    const Dual pct = Dual(100.0) * x / v.excTE;
    out.push_back({name, false, pct.v, gradient(pct)});
  };
  proportion("PM", v.excNIE);
  proportion("Percent_INT", v.excINTref + v.excINTmed);
  proportion("Percent_ELIM", v.excTE - v.excCDE);
  proportion("r_CDE", v.excCDE);
  proportion("r_NDE", v.excNDE);
  proportion("r_NIE", v.excNIE);
  proportion("r_PIE", v.excPIE);
  proportion("r_INT_ref", v.excINTref);
  proportion("r_INT_med", v.excINTmed);
  return out;
}

EffectMap ratioEffectInference(const std::vector<RatioEffectValue>& effects, const Matrix& sigma,
                               double level) {
  const double zc = criticalValue(level);
  EffectMap out;
  for (const RatioEffectValue& e : effects) {
    if (!e.ratio) {
      out[e.name] = inferenceFromVariance(e.estimate, quadraticForm(sigma, e.gradient), zc);
      continue;
    }
    // On the log scale, then back.
    const EffectInference onLog =
        inferenceFromVariance(std::log(e.estimate), quadraticForm(sigma, e.gradient), zc);
    EffectInference r;
    r.estimate = e.estimate;
    r.se = e.estimate * onLog.se;
    r.z = onLog.z;
    r.p = onLog.p;
    r.lower = std::exp(onLog.lower);
    r.upper = std::exp(onLog.upper);
    out[e.name] = r;
  }
  return out;
}

}  // namespace medanlys

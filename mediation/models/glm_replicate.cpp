#include "models/glm_replicate.h"

#include <algorithm>
#include <boost/math/special_functions/digamma.hpp>
#include <boost/math/special_functions/trigamma.hpp>
#include <cmath>
#include <cstdint>

namespace medanlys {
namespace {

// What one pass leaves: validity of every mean, the log-likelihood kernel (the terms that
// depend on the coefficients), and the expected information (lower triangle, row-major
// q x q) and score at the pass's coefficients; the response totals for the replicate's
// event check.
struct Pass {
  bool valid = true;
  double kernel = 0.0;
  double totalWeight = 0.0, totalResponse = 0.0;
  std::vector<double> info, score;
};

// Per-case quantities of each family and link, inlined into the pass. Weight and residual
// of the expected information: W = (dmu/deta)^2 / V, r = (y - mu) dmu/deta / V.
template <GlmFamily kKind>
struct CaseTerms {
  static bool mean(double eta, double& mu);
  static double kernel(double y, double eta, double mu, double theta);
  static void weights(double y, double mu, double k, double& W, double& r);
};

template <>
struct CaseTerms<GlmFamily::kBinomialLogit> {
  static bool mean(double eta, double& mu) {
    mu = 1.0 / (1.0 + std::exp(-eta));
    return mu > 0.0 && mu < 1.0;
  }
  static double kernel(double y, double eta, double, double) {
    // y eta - log(1 + e^eta), without overflow.
    return y * eta - (std::max(eta, 0.0) + std::log1p(std::exp(-std::fabs(eta))));
  }
  static void weights(double y, double mu, double, double& W, double& r) {
    W = mu * (1.0 - mu);
    r = y - mu;
  }
};

template <>
struct CaseTerms<GlmFamily::kBinomialLog> {
  static bool mean(double eta, double& mu) {
    mu = std::exp(eta);
    return mu > 0.0 && mu < 1.0;
  }
  static double kernel(double y, double eta, double mu, double) {
    return y * eta + (1.0 - y) * std::log1p(-mu);
  }
  static void weights(double y, double mu, double, double& W, double& r) {
    W = mu / (1.0 - mu);
    r = (y - mu) / (1.0 - mu);
  }
};

template <>
struct CaseTerms<GlmFamily::kPoissonLog> {
  static bool mean(double eta, double& mu) {
    mu = std::exp(eta);
    return mu > 0.0 && std::isfinite(mu);
  }
  static double kernel(double y, double eta, double mu, double) { return y * eta - mu; }
  static void weights(double y, double mu, double, double& W, double& r) {
    W = mu;
    r = y - mu;
  }
};

template <>
struct CaseTerms<GlmFamily::kNegBinLog> {
  static bool mean(double eta, double& mu) {
    mu = std::exp(eta);
    return mu > 0.0 && std::isfinite(mu);
  }
  static double kernel(double y, double eta, double mu, double theta) {
    return y * eta - (y + theta) * std::log(theta + mu);
  }
  static void weights(double y, double mu, double k, double& W, double& r) {
    const double v = 1.0 + k * mu;  // V / mu
    W = mu / v;
    r = (y - mu) / v;
  }
};

// The cases drawn into the resample (positive weight): a resample leaves about a third of
// the cases out, and a list of the others spares the pass an unpredictable branch per case.
using Active = std::vector<std::uint32_t>;

template <GlmFamily kKind>
void pass(const DesignMatrix& X, const Vector& y, const Vector& w, const Active& active,
          const Family& family, const Vector& beta, Pass& out) {
  using Terms = CaseTerms<kKind>;
  const std::size_t q = X.q;
  const double k = family.k, theta = 1.0 / family.k;
  out.valid = true;
  out.kernel = out.totalWeight = out.totalResponse = 0.0;
  out.info.assign(q * q, 0.0);
  out.score.assign(q, 0.0);
  double* info = out.info.data();
  double* score = out.score.data();
  for (const std::uint32_t i : active) {
    const double wi = w[i];
    const double* x = X.row(i);
    double eta = 0.0;
    for (std::size_t j = 0; j < q; ++j) eta += x[j] * beta[j];
    double mu;
    if (!Terms::mean(eta, mu)) {
      out.valid = false;
      return;
    }
    double W, r;
    Terms::weights(y[i], mu, k, W, r);
    out.kernel += wi * Terms::kernel(y[i], eta, mu, theta);
    out.totalWeight += wi;
    out.totalResponse += wi * y[i];
    const double ww = wi * W, wr = wi * r;
    for (std::size_t a = 0; a < q; ++a) {
      score[a] += wr * x[a];
      const double wx = ww * x[a];
      double* row = info + a * q;
      for (std::size_t b = 0; b <= a; ++b) row[b] += wx * x[b];
    }
  }
}

void passFor(const DesignMatrix& X, const Vector& y, const Vector& w, const Active& active,
             const Family& family, const Vector& beta, Pass& out) {
  switch (family.kind) {
    case GlmFamily::kBinomialLogit:
      return pass<GlmFamily::kBinomialLogit>(X, y, w, active, family, beta, out);
    case GlmFamily::kBinomialLog:
      return pass<GlmFamily::kBinomialLog>(X, y, w, active, family, beta, out);
    case GlmFamily::kPoissonLog:
      return pass<GlmFamily::kPoissonLog>(X, y, w, active, family, beta, out);
    case GlmFamily::kNegBinLog:
      return pass<GlmFamily::kNegBinLog>(X, y, w, active, family, beta, out);
  }
}

// The replicate has events and non-events (binomial) or a count above 0.
bool responseVaries(const Family& family, const Pass& p) {
  if (!(p.totalWeight > 0.0)) return false;
  const double mean = p.totalResponse / p.totalWeight;
  const bool binomial =
      family.kind == GlmFamily::kBinomialLogit || family.kind == GlmFamily::kBinomialLog;
  return mean > 0.0 && (!binomial || mean < 1.0);
}

// Newton from `beta`, whose pass is `current`; false when this path cannot settle the fit.
bool newton(const DesignMatrix& X, const Vector& y, const Vector& w, const Active& active,
            const Family& family, const GlmOptions& o, Vector& beta, Pass& current) {
  const std::size_t q = X.q;
  Pass trial;
  bool converged = false;
  int polish = 0;
  Vector step(q), candidate(q);
  for (int it = 1; it <= o.maxIterations + 25; ++it) {
    if (!converged && it > o.maxIterations) return false;
    step = current.score;
    if (!choleskySolve(current.info, q, step)) return false;
    // Step-halving as in the general fit: a step must keep the means valid and not lower
    // the log-likelihood.
    bool accepted = false;
    double scale = 1.0;
    for (int halving = 0; halving <= o.maxStepHalving; ++halving, scale *= 0.5) {
      for (std::size_t j = 0; j < q; ++j) candidate[j] = beta[j] + scale * step[j];
      passFor(X, y, w, active, family, candidate, trial);
      if (trial.valid && trial.kernel >= current.kernel - 1e-10 * std::fabs(current.kernel)) {
        accepted = true;
        break;
      }
    }
    if (!accepted) return false;
    double change = 0.0;
    for (std::size_t j = 0; j < q; ++j) {
      change = std::max(change,
                        std::fabs(candidate[j] - beta[j]) / std::max(std::fabs(candidate[j]), 1.0));
    }
    beta = candidate;
    std::swap(current, trial);
    if (!converged && change < o.pConverge) {
      converged = true;
      polish = 0;
    }
    // As the general fit: once converged by the criterion, on to the maximum to machine
    // precision.
    if (converged && (change < 1e-12 || ++polish > 25)) return true;
  }
  return converged;
}

// theta = 1/k beyond this is the Poisson model for every practical purpose (as in the
// general fit, which stops there too).
constexpr double kThetaPoissonLimit = 1e8;

// The counts of the resample grouped by value: the weight of each distinct count, so that
// digamma and trigamma are evaluated once per value rather than once per case.
struct CountHistogram {
  std::vector<double> values, weights;
  double total = 0.0;
};

bool countHistogram(const Vector& y, const Vector& w, const Active& active, CountHistogram& h) {
  double largest = 0.0;
  for (const std::uint32_t i : active) largest = std::max(largest, y[i]);
  if (largest > 1e6) return false;  // too many possible values for a table
  std::vector<double> byValue(static_cast<std::size_t>(largest) + 1, 0.0);
  for (const std::uint32_t i : active) {
    byValue[static_cast<std::size_t>(y[i])] += w[i];
    h.total += w[i];
  }
  for (std::size_t v = 0; v < byValue.size(); ++v) {
    if (byValue[v] == 0.0) continue;
    h.values.push_back(static_cast<double>(v));
    h.weights.push_back(byValue[v]);
  }
  return true;
}

// Newton steps for theta on the profile log-likelihood at the means mu (one per active
// case), as in the general fit; the special functions come from the histogram.
double thetaSteps(const Vector& y, const Vector& w, const Active& active, const Vector& mu,
                  const CountHistogram& h, double theta, int maxIterations) {
  const boost::math::policies::policy<boost::math::policies::promote_double<false>> policy;
  for (int it = 0; it < maxIterations; ++it) {
    const double t = theta;
    double score = h.total * (-boost::math::digamma(t, policy) + std::log(t) + 1.0);
    double info = h.total * (boost::math::trigamma(t, policy) - 1.0 / t);
    for (std::size_t v = 0; v < h.values.size(); ++v) {
      score += h.weights[v] * boost::math::digamma(h.values[v] + t, policy);
      info -= h.weights[v] * boost::math::trigamma(h.values[v] + t, policy);
    }
    for (std::size_t c = 0; c < active.size(); ++c) {
      const std::uint32_t i = active[c];
      const double tm = t + mu[c];
      score -= w[i] * (std::log(tm) + (y[i] + t) / tm);
      info += w[i] * (2.0 / tm - (y[i] + t) / (tm * tm));
    }
    double next = theta + score / info;
    if (!(next > 0.0) || !std::isfinite(next)) next = theta / 2.0;
    const double change = std::fabs(next - theta) / theta;
    theta = next;
    if (theta >= kThetaPoissonLimit) return kThetaPoissonLimit;
    if (change < 1e-12) break;
  }
  return theta;
}

void activeMeans(const DesignMatrix& X, const Active& active, const Vector& beta, Vector& mu) {
  mu.resize(active.size());
  for (std::size_t c = 0; c < active.size(); ++c) {
    const double* x = X.row(active[c]);
    double eta = 0.0;
    for (std::size_t j = 0; j < X.q; ++j) eta += x[j] * beta[j];
    mu[c] = std::exp(eta);
  }
}

Active drawnCases(const Vector& w) {
  Active active;
  active.reserve(w.size());
  for (std::size_t i = 0; i < w.size(); ++i) {
    if (w[i] != 0.0) active.push_back(static_cast<std::uint32_t>(i));
  }
  return active;
}

// The alternation; false when this path cannot settle the fit.
bool negativeBinomialAlternation(const DesignMatrix& X, const Vector& y, const Vector& w,
                                 const Active& active, const GlmOptions& o, Vector& beta,
                                 double& theta) {
  CountHistogram histogram;
  if (!countHistogram(y, w, active, histogram)) return false;
  Vector mu;
  activeMeans(X, active, beta, mu);
  for (int outer = 0; outer < o.maxIterations; ++outer) {
    theta = thetaSteps(y, w, active, mu, histogram, std::min(theta, kThetaPoissonLimit),
                       o.maxIterations);
    const Family nb{GlmFamily::kNegBinLog, 1.0 / theta};
    const Vector previous = beta;
    Pass current;
    passFor(X, y, w, active, nb, beta, current);
    if (!current.valid || !newton(X, y, w, active, nb, o, beta, current)) return false;
    activeMeans(X, active, beta, mu);
    const double next = thetaSteps(y, w, active, mu, histogram, theta, o.maxIterations);
    double change = std::fabs(next - theta) / theta;
    for (std::size_t j = 0; j < beta.size(); ++j) {
      change =
          std::max(change, std::fabs(beta[j] - previous[j]) / std::max(std::fabs(beta[j]), 1.0));
    }
    theta = next;
    if (change < 1e-9) return true;
  }
  return false;
}

}  // namespace

bool fitReplicateNegativeBinomial(const DesignMatrix& X, const Vector& y, const Vector& w,
                                  const GlmOptions& options, Vector& beta, double& k) {
  const bool warm = options.start.size() == X.q && options.startDispersion > 0.0;
  if (warm && X.n > X.q) {
    const Active active = drawnCases(w);
    double total = 0.0, response = 0.0;
    for (const std::uint32_t i : active) {
      total += w[i];
      response += w[i] * y[i];
    }
    if (!(total > 0.0) || !(response > 0.0)) return false;  // every count 0: no fit
    beta = options.start;
    double theta = 1.0 / options.startDispersion;
    if (negativeBinomialAlternation(X, y, w, active, options, beta, theta)) {
      k = 1.0 / theta;
      return true;
    }
  }
  const GlmFit fit = fitNegativeBinomialMle(X, y, w, options);
  beta = fit.coefficients;
  k = fit.dispersion;
  return fit.converged;
}

bool choleskySolve(std::vector<double> a, std::size_t q, std::vector<double>& b) {
  // a = L L^T in the lower triangle of a.
  for (std::size_t j = 0; j < q; ++j) {
    double d = a[j * q + j];
    for (std::size_t k = 0; k < j; ++k) d -= a[j * q + k] * a[j * q + k];
    if (!(d > 0.0)) return false;
    const double l = std::sqrt(d);
    a[j * q + j] = l;
    for (std::size_t i = j + 1; i < q; ++i) {
      double s = a[i * q + j];
      for (std::size_t k = 0; k < j; ++k) s -= a[i * q + k] * a[j * q + k];
      a[i * q + j] = s / l;
    }
  }
  for (std::size_t i = 0; i < q; ++i) {  // L z = b
    double s = b[i];
    for (std::size_t k = 0; k < i; ++k) s -= a[i * q + k] * b[k];
    b[i] = s / a[i * q + i];
  }
  for (std::size_t i = q; i-- > 0;) {  // L^T x = z
    double s = b[i];
    for (std::size_t k = i + 1; k < q; ++k) s -= a[k * q + i] * b[k];
    b[i] = s / a[i * q + i];
  }
  return std::all_of(b.begin(), b.end(), [](double v) { return std::isfinite(v); });
}

bool fitReplicateCoefficients(const DesignMatrix& X, const Vector& y, const Vector& w,
                              const Family& family, const GlmOptions& options, Vector& beta) {
  if (options.firth || options.start.size() != X.q || X.n <= X.q) {
    return fitGlmCoefficients(X, y, w, family, options, beta);
  }
  const Active active = drawnCases(w);
  Pass start;
  beta = options.start;
  passFor(X, y, w, active, family, beta, start);
  if (start.valid && !responseVaries(family, start)) return false;  // no events: no fit
  if (start.valid && newton(X, y, w, active, family, options, beta, start)) return true;
  return fitGlmCoefficients(X, y, w, family, options, beta);
}

}  // namespace medanlys

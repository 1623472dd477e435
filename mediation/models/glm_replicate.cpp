#include "models/glm_replicate.h"

#include <algorithm>
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

}  // namespace

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
  Active active;
  active.reserve(X.n);
  for (std::size_t i = 0; i < X.n; ++i) {
    if (w[i] != 0.0) active.push_back(static_cast<std::uint32_t>(i));
  }
  Pass start;
  beta = options.start;
  passFor(X, y, w, active, family, beta, start);
  if (start.valid && !responseVaries(family, start)) return false;  // no events: no fit
  if (start.valid && newton(X, y, w, active, family, options, beta, start)) return true;
  return fitGlmCoefficients(X, y, w, family, options, beta);
}

}  // namespace medanlys

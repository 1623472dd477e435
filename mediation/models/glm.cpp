#include "models/glm.h"

#include <boost/math/policies/policy.hpp>
#include <boost/math/special_functions/digamma.hpp>
#include <boost/math/special_functions/trigamma.hpp>
#include <boost/numeric/ublas/lu.hpp>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace medanlys {
namespace {

namespace ublas = boost::numeric::ublas;

std::string fmt(double v) {
  std::ostringstream out;
  out << v;
  return out.str();
}

double weightedMeanOf(const Vector& y, const Vector& w) {
  double s = 0.0, sw = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    s += w[i] * y[i];
    sw += w[i];
  }
  return sw > 0.0 ? s / sw : NAN;
}

// eta = X beta and mu; false when a mean leaves the family's range.
bool means(const DesignMatrix& X, const Vector& beta, const Family& family, Vector& eta,
           Vector& mu) {
  eta.resize(X.n);
  mu.resize(X.n);
  bool valid = true;
  for (std::size_t i = 0; i < X.n; ++i) {
    const double* x = X.row(i);
    double e = 0.0;
    for (std::size_t j = 0; j < X.q; ++j) e += x[j] * beta[j];
    eta[i] = e;
    mu[i] = family.mean(e);
    valid = valid && family.validMean(mu[i]);
  }
  return valid;
}

double logLikelihood(const Vector& y, const Vector& w, const Vector& mu, const Family& family) {
  double l = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) l += w[i] * family.logLikelihood(y[i], mu[i]);
  return l;
}

// Expected information X'WX with W = w (dmu/deta)^2 / V, and the score.
void informationAndScore(const DesignMatrix& X, const Vector& y, const Vector& w, const Vector& eta,
                         const Vector& mu, const Family& family, Matrix& info, Vector& score) {
  info = zeroMatrix(X.q, X.q);
  score.assign(X.q, 0.0);
  for (std::size_t i = 0; i < X.n; ++i) {
    const double d = family.meanDerivative(eta[i], mu[i]);
    const double v = family.variance(mu[i]);
    const double wi = w[i] * d * d / v;
    const double ri = w[i] * (y[i] - mu[i]) * d / v;
    const double* x = X.row(i);
    for (std::size_t a = 0; a < X.q; ++a) {
      score[a] += ri * x[a];
      const double wx = wi * x[a];
      for (std::size_t b = 0; b <= a; ++b) info(a, b) += wx * x[b];
    }
  }
  for (std::size_t a = 0; a < X.q; ++a) {
    for (std::size_t b = a + 1; b < X.q; ++b) info(a, b) = info(b, a);
  }
}

// LU with the singularity test of the criteria: a pivot below singular * the largest
// diagonal element. A near-singular matrix gets the ridge penalty on its diagonal (logged)
// and is factorised again. Returns the inverse, or false.
bool invertInformation(Matrix info, const GlmOptions& o, std::vector<std::string>& log,
                       int iteration, Matrix& inverse) {
  double largest = 0.0;
  for (std::size_t j = 0; j < info.size1(); ++j) largest = std::max(largest, std::fabs(info(j, j)));
  for (int attempt = 0; attempt < 2; ++attempt) {
    Matrix lu = info;
    ublas::permutation_matrix<std::size_t> pivots(lu.size1());
    const bool factorised = ublas::lu_factorize(lu, pivots) == 0;
    double smallest = INFINITY;
    for (std::size_t j = 0; factorised && j < lu.size1(); ++j)
      smallest = std::min(smallest, std::fabs(lu(j, j)));
    if (factorised && smallest >= o.singular * largest && invertMatrix(info, inverse)) return true;
    if (attempt == 1) return false;
    for (std::size_t j = 0; j < info.size1(); ++j) info(j, j) += o.ridgePenalty;
    log.push_back("Ridge penalty " + fmt(o.ridgePenalty) +
                  " added to the diagonal of a near-singular information matrix (iteration " +
                  std::to_string(iteration) + ").");
  }
  return false;
}

// Firth: the hat values h_i = W_i x_i' I^-1 x_i of the logistic model.
void firthAdjustment(const DesignMatrix& X, const Vector& w, const Vector& mu,
                     const Matrix& inverse, Vector& score) {
  for (std::size_t i = 0; i < X.n; ++i) {
    const double* x = X.row(i);
    double form = 0.0;
    for (std::size_t a = 0; a < X.q; ++a) {
      double row = 0.0;
      for (std::size_t b = 0; b < X.q; ++b) row += inverse(a, b) * x[b];
      form += x[a] * row;
    }
    const double wi = w[i] * mu[i] * (1.0 - mu[i]);
    const double h = wi * form;
    for (std::size_t a = 0; a < X.q; ++a) score[a] += h * (0.5 - mu[i]) * x[a];
  }
}

double logDeterminant(const Matrix& m) {
  const double det = determinant(m);
  return det > 0.0 ? std::log(det) : -INFINITY;
}

// The scoring loop shared by every family. Starts from `beta`.
void iterate(const DesignMatrix& X, const Vector& y, const Vector& w, const Family& family,
             const GlmOptions& o, Vector& beta, GlmFit& fit) {
  const bool firth = o.firth && family.kind == GlmFamily::kBinomialLogit;
  Vector eta, mu, score;
  Matrix info, inverse;
  if (!means(X, beta, family, eta, mu)) {
    fit.message =
        "The starting values give means outside the range of the " + family.name() + " model.";
    return;
  }
  auto objective = [&](const Vector& m) {
    double l = logLikelihood(y, w, m, family);
    if (firth) {
      Matrix i2;
      Vector s2;
      informationAndScore(X, y, w, eta, m, family, i2, s2);
      l += 0.5 * logDeterminant(i2);
    }
    return l;
  };
  double current = objective(mu);
  std::size_t diverging = 0;
  int polish = 0;
  for (int it = 1; it <= o.maxIterations + 25; ++it) {
    if (!fit.converged && it > o.maxIterations) break;
    fit.iterations = it;
    informationAndScore(X, y, w, eta, mu, family, info, score);
    if (!invertInformation(info, o, fit.log, it, inverse)) {
      fit.message = "The information matrix is singular: the design has collinear columns or the " +
                    family.name() + " model cannot be fitted to these data.";
      return;
    }
    if (firth) firthAdjustment(X, w, mu, inverse, score);
    const Vector delta = multiply(inverse, score);
    // Step-halving: a step must keep the means valid and not lower the objective.
    double step = 1.0;
    Vector trial(beta.size()), trialEta, trialMu;
    double trialObjective = -INFINITY;
    bool accepted = false;
    for (int halving = 0; halving <= o.maxStepHalving; ++halving, step *= 0.5) {
      for (std::size_t j = 0; j < beta.size(); ++j) trial[j] = beta[j] + step * delta[j];
      if (!means(X, trial, family, trialEta, trialMu)) continue;
      trialObjective = objective(trialMu);
      if (std::isfinite(trialObjective) && trialObjective >= current - 1e-10 * std::fabs(current)) {
        accepted = true;
        break;
      }
    }
    if (!accepted && !std::isfinite(trialObjective)) {
      // The coefficient that moves most is the one running away.
      std::size_t runaway = 0;
      for (std::size_t j = 1; j < delta.size(); ++j) {
        if (std::fabs(delta[j]) / std::max(std::fabs(beta[j]), 1.0) >
            std::fabs(delta[runaway]) / std::max(std::fabs(beta[runaway]), 1.0)) {
          runaway = j;
        }
      }
      if (family.kind == GlmFamily::kBinomialLogit && !firth) {
        fit.message =
            "The logistic model did not converge: coefficient " + std::to_string(runaway) +
            " diverges (estimate " + fmt(beta[runaway]) +
            ") and fitted probabilities reach 0 or 1, a sign of complete or quasi-complete "
            "separation; FIRTH-penalised estimates stay finite.";
      } else {
        fit.message = "No step within " + std::to_string(o.maxStepHalving) +
                      " halvings keeps the fitted means of the " + family.name() +
                      " model valid (iteration " + std::to_string(it) + ", coefficient " +
                      std::to_string(runaway) + ").";
      }
      return;
    }
    double change = 0.0;
    for (std::size_t j = 0; j < beta.size(); ++j) {
      const double c = std::fabs(trial[j] - beta[j]) / std::max(std::fabs(trial[j]), 1.0);
      if (c > change) {
        change = c;
        diverging = j;
      }
    }
    beta = trial;
    eta = trialEta;
    mu = trialMu;
    current = trialObjective;
    if (!fit.converged && change < o.pConverge) {
      fit.converged = true;
      polish = 0;
    }
    // Once converged by the criterion, a few more steps reach the maximum to machine
    // precision: Fisher scoring under a non-canonical link converges only linearly.
    if (fit.converged && (change < 1e-12 || ++polish > 25)) break;
  }
  if (!fit.converged) {
    fit.message = "The " + family.name() + " model did not converge in " +
                  std::to_string(o.maxIterations) + " iterations: coefficient " +
                  std::to_string(diverging) + " keeps changing (estimate " + fmt(beta[diverging]) +
                  ")" +
                  (family.kind == GlmFamily::kBinomialLogit && !firth
                       ? ", a sign of complete or quasi-complete separation; FIRTH-penalised "
                         "estimates stay finite."
                       : ".");
  }
}

// Covariances and fit statistics at the final coefficients.
void complete(const DesignMatrix& X, const Vector& y, const Vector& w, const Family& family,
              const GlmOptions& o, const Vector& beta, double nullMean, std::size_t parameters,
              GlmFit& fit) {
  Vector eta, mu, score;
  Matrix info, inverse;
  means(X, beta, family, eta, mu);
  informationAndScore(X, y, w, eta, mu, family, info, score);
  fit.coefficients = beta;
  fit.fitted = mu;
  if (!invertInformation(info, o, fit.log, fit.iterations, inverse)) {
    fit.converged = false;
    fit.message = "The information matrix at the estimates is singular.";
    return;
  }
  fit.covModel = inverse;
  Matrix meat = zeroMatrix(X.q, X.q);
  for (std::size_t i = 0; i < X.n; ++i) {
    const double s = (y[i] - mu[i]) * family.meanDerivative(eta[i], mu[i]) / family.variance(mu[i]);
    const double* x = X.row(i);
    for (std::size_t a = 0; a < X.q; ++a) {
      for (std::size_t b = 0; b < X.q; ++b) meat(a, b) += w[i] * s * s * x[a] * x[b];
    }
  }
  fit.covRobust = congruence(inverse, meat);
  const std::size_t q = X.q;
  fit.seModel.assign(q, 0.0);
  fit.seRobust.assign(q, 0.0);
  fit.zModel.assign(q, 0.0);
  for (std::size_t j = 0; j < q; ++j) {
    fit.seModel[j] = std::sqrt(std::max(fit.covModel(j, j), 0.0));
    fit.seRobust[j] = std::sqrt(std::max(fit.covRobust(j, j), 0.0));
    fit.zModel[j] = fit.seModel[j] > 0.0 ? beta[j] / fit.seModel[j] : NAN;
  }
  double sw = 0.0, dev = 0.0, nullDev = 0.0, nullLogLik = 0.0;
  for (std::size_t i = 0; i < X.n; ++i) {
    sw += w[i];
    dev += w[i] * family.deviance(y[i], mu[i]);
    nullDev += w[i] * family.deviance(y[i], nullMean);
    nullLogLik += w[i] * family.logLikelihood(y[i], nullMean);
  }
  fit.logLik = logLikelihood(y, w, mu, family);
  fit.deviance = dev;
  fit.nullDeviance = nullDev;
  if (std::isnan(fit.logLikNull)) fit.logLikNull = nullLogLik;
  fit.parameters = parameters;
  fit.aic = -2.0 * fit.logLik + 2.0 * static_cast<double>(parameters);
  fit.bic = -2.0 * fit.logLik + static_cast<double>(parameters) * std::log(sw);
  fit.pseudoR2 = 1.0 - fit.logLik / fit.logLikNull;
}

// Checks the response against the family before any iteration.
bool checkResponse(const Vector& y, const Vector& w, const Family& family, GlmFit& fit,
                   double& mean) {
  const bool binomial =
      family.kind == GlmFamily::kBinomialLogit || family.kind == GlmFamily::kBinomialLog;
  for (double v : y) {
    if (binomial && v != 0.0 && v != 1.0) {
      fit.message = "A binomial outcome must be coded 0 and 1.";
      return false;
    }
    if (!binomial && (v < 0.0 || v != std::floor(v))) {
      fit.message = "A count outcome must hold non-negative whole numbers.";
      return false;
    }
  }
  mean = weightedMeanOf(y, w);
  if (!(mean > 0.0)) {
    fit.message = binomial ? "The outcome has no events: every value is 0."
                           : "Every count is 0: the model cannot be fitted.";
    return false;
  }
  if (binomial && mean >= 1.0) {
    fit.message = "The outcome has no non-events: every value is 1.";
    return false;
  }
  return true;
}

Vector startingValues(std::size_t q, const Family& family, double mean) {
  Vector beta(q, 0.0);
  beta[0] =
      family.kind == GlmFamily::kBinomialLogit ? std::log(mean / (1.0 - mean)) : std::log(mean);
  return beta;
}

// A design whose columns are linearly dependent (a constant column beside the intercept,
// a duplicated covariate) has no unique estimates: refused before any iteration. The
// ridge repair is for information matrices that become near-singular while iterating.
bool rankDeficient(const DesignMatrix& X, const Vector& w, GlmFit& fit) {
  Matrix xtx;
  Vector unused;
  computeXTWX_XTWY_diagonalWeights(X, Vector(X.n, 0.0), w, xtx, unused);
  double largest = 0.0;
  for (std::size_t j = 0; j < X.q; ++j) largest = std::max(largest, xtx(j, j));
  Matrix lu = xtx;
  ublas::permutation_matrix<std::size_t> pivots(lu.size1());
  bool singular = ublas::lu_factorize(lu, pivots) != 0;
  for (std::size_t j = 0; !singular && j < X.q; ++j)
    singular = std::fabs(lu(j, j)) < 1e-13 * largest;
  if (singular) {
    fit.message =
        "The design matrix is singular: a column is constant or a combination of the others.";
  }
  return singular;
}

bool tooFewCases(const DesignMatrix& X, GlmFit& fit) {
  if (X.n > X.q) return false;
  fit.message = "The model has " + std::to_string(X.q) + " coefficients but only " +
                std::to_string(X.n) + " cases.";
  return true;
}

}  // namespace

GlmFit fitGlm(const DesignMatrix& X, const Vector& y, const Vector& w, const Family& family,
              const GlmOptions& options) {
  GlmFit fit;
  double mean = 0.0;
  if (tooFewCases(X, fit) || !checkResponse(y, w, family, fit, mean) || rankDeficient(X, w, fit))
    return fit;
  Vector beta = options.start.size() == X.q ? options.start : startingValues(X.q, family, mean);
  iterate(X, y, w, family, options, beta, fit);
  if (!fit.converged) return fit;
  fit.dispersion = family.kind == GlmFamily::kNegBinLog ? family.k : 1.0;
  complete(X, y, w, family, options, beta, mean, X.q, fit);
  return fit;
}

GlmFit fitLogisticNR_Variant2(const DesignMatrix& X, const Vector& y, const Vector& w,
                              const GlmOptions& options) {
  return fitGlm(X, y, w, Family{GlmFamily::kBinomialLogit, 1.0}, options);
}

namespace {

// Newton steps for theta on the profile log-likelihood at the given means.
// theta = 1/k beyond this means k = 0 for every practical purpose: counts that are not
// overdispersed have a likelihood that rises towards the Poisson model without a maximum,
// and the estimate stops at this bound instead of chasing it.
constexpr double kThetaPoissonLimit = 1e8;

// Newton steps for theta on the profile log-likelihood, at most up to the Poisson limit.
double thetaMle(const Vector& y, const Vector& w, const Vector& mu, double theta,
                int maxIterations) {
  // Double arithmetic (the default policy promotes to long double, several times slower).
  const boost::math::policies::policy<boost::math::policies::promote_double<false>> policy;
  const auto digamma = [&policy](double x) { return boost::math::digamma(x, policy); };
  const auto trigamma = [&policy](double x) { return boost::math::trigamma(x, policy); };
  for (int it = 0; it < maxIterations; ++it) {
    double score = 0.0, info = 0.0;
    for (std::size_t i = 0; i < y.size(); ++i) {
      const double t = theta, m = mu[i], v = y[i];
      score += w[i] * (digamma(v + t) - digamma(t) + std::log(t) + 1.0 - std::log(t + m) -
                       (v + t) / (t + m));
      info += w[i] * (-trigamma(v + t) + trigamma(t) - 1.0 / t + 2.0 / (t + m) -
                      (v + t) / ((t + m) * (t + m)));
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

}  // namespace

GlmFit fitNegativeBinomialMle(const DesignMatrix& X, const Vector& y, const Vector& w,
                              const GlmOptions& options) {
  GlmFit fit;
  double mean = 0.0;
  const Family poisson{GlmFamily::kPoissonLog, 1.0};
  if (tooFewCases(X, fit) || !checkResponse(y, w, poisson, fit, mean) || rankDeficient(X, w, fit))
    return fit;
  // Start from the Poisson fit and the moment estimate of theta, or where the caller says.
  const bool warm = options.start.size() == X.q && options.startDispersion > 0.0;
  Vector beta = warm ? options.start : startingValues(X.q, poisson, mean);
  Vector eta, mu;
  double theta = 1.0;
  if (warm) {
    means(X, beta, poisson, eta, mu);
    theta = 1.0 / options.startDispersion;
  } else {
    GlmFit start;
    iterate(X, y, w, poisson, options, beta, start);
    means(X, beta, poisson, eta, mu);
    double sw = 0.0, pearson = 0.0;
    for (std::size_t i = 0; i < y.size(); ++i) {
      sw += w[i];
      pearson += w[i] * (y[i] / mu[i] - 1.0) * (y[i] / mu[i] - 1.0);
    }
    theta = pearson > 0.0 ? sw / pearson : 1.0;
  }
  int outer = 0;
  for (; outer < options.maxIterations; ++outer) {
    theta = thetaMle(y, w, mu, std::min(theta, kThetaPoissonLimit), options.maxIterations);
    const Family nb{GlmFamily::kNegBinLog, 1.0 / theta};
    GlmFit step;
    const Vector previous = beta;
    iterate(X, y, w, nb, options, beta, step);
    fit.log.insert(fit.log.end(), step.log.begin(), step.log.end());
    if (!step.converged) {
      fit.message = step.message;
      return fit;
    }
    fit.iterations += step.iterations;
    means(X, beta, nb, eta, mu);
    const double thetaNext = thetaMle(y, w, mu, theta, options.maxIterations);
    double change = std::fabs(thetaNext - theta) / theta;
    for (std::size_t j = 0; j < beta.size(); ++j) {
      change =
          std::max(change, std::fabs(beta[j] - previous[j]) / std::max(std::fabs(beta[j]), 1.0));
    }
    theta = thetaNext;
    if (change < 1e-9) break;  // relative; the alternation converges linearly
  }
  if (outer == options.maxIterations) {
    fit.message =
        "The negative binomial model did not converge: k keeps changing (k = " + fmt(1.0 / theta) +
        ").";
    return fit;
  }
  const Family nb{GlmFamily::kNegBinLog, 1.0 / theta};
  if (theta >= kThetaPoissonLimit) {
    fit.log.push_back(
        "The counts show no overdispersion: k stopped at its lower bound 1e-08, and the model "
        "equals the Poisson model.");
  }
  fit.converged = true;
  fit.dispersion = 1.0 / theta;
  // McFadden's null model: the intercept-only negative binomial with its own k.
  const Vector nullMu(y.size(), mean);
  const double nullTheta = thetaMle(y, w, nullMu, theta, options.maxIterations);
  fit.logLikNull = logLikelihood(y, w, nullMu, Family{GlmFamily::kNegBinLog, 1.0 / nullTheta});
  complete(X, y, w, nb, options, beta, mean, X.q + 1, fit);
  return fit;
}

bool fitGlmCoefficients(const DesignMatrix& X, const Vector& y, const Vector& w,
                        const Family& family, const GlmOptions& options, Vector& beta) {
  GlmFit fit;
  double mean = 0.0;
  if (tooFewCases(X, fit) || !checkResponse(y, w, family, fit, mean)) return false;
  beta = options.start.size() == X.q ? options.start : startingValues(X.q, family, mean);
  iterate(X, y, w, family, options, beta, fit);
  return fit.converged;
}

}  // namespace medanlys

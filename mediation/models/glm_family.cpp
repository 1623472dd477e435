#include "models/glm_family.h"

#include <boost/math/policies/policy.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cmath>

namespace medanlys {
namespace {

// Double arithmetic throughout: the default policy evaluates in long double, several times
// slower, for accuracy far below what the fits resolve.
const boost::math::policies::policy<boost::math::policies::promote_double<false>> kDoublePrecision;

}  // namespace
namespace {

// y log(y / mu), 0 when y = 0.
double ylogy(double y, double mu) { return y > 0.0 ? y * std::log(y / mu) : 0.0; }

}  // namespace

double Family::mean(double eta) const {
  if (kind == GlmFamily::kBinomialLogit) return 1.0 / (1.0 + std::exp(-eta));
  return std::exp(eta);
}

double Family::meanDerivative(double, double mu) const {
  if (kind == GlmFamily::kBinomialLogit) return mu * (1.0 - mu);
  return mu;  // log link
}

double Family::variance(double mu) const {
  switch (kind) {
    case GlmFamily::kBinomialLogit:
    case GlmFamily::kBinomialLog:
      return mu * (1.0 - mu);
    case GlmFamily::kPoissonLog:
      return mu;
    case GlmFamily::kNegBinLog:
      return mu + k * mu * mu;
  }
  return mu;
}

double Family::logLikelihood(double y, double mu) const {
  switch (kind) {
    case GlmFamily::kBinomialLogit:
    case GlmFamily::kBinomialLog:
      return (y > 0.0 ? y * std::log(mu) : 0.0) + (y < 1.0 ? (1.0 - y) * std::log(1.0 - mu) : 0.0);
    case GlmFamily::kPoissonLog:
      return (y > 0.0 ? y * std::log(mu) : 0.0) - mu -
             boost::math::lgamma(y + 1.0, kDoublePrecision);
    case GlmFamily::kNegBinLog: {
      const double theta = 1.0 / k;
      return boost::math::lgamma(y + theta, kDoublePrecision) -
             boost::math::lgamma(theta, kDoublePrecision) -
             boost::math::lgamma(y + 1.0, kDoublePrecision) + theta * std::log(theta) +
             (y > 0.0 ? y * std::log(mu) : 0.0) - (theta + y) * std::log(theta + mu);
    }
  }
  return 0.0;
}

double Family::deviance(double y, double mu) const {
  switch (kind) {
    case GlmFamily::kBinomialLogit:
    case GlmFamily::kBinomialLog:
      return 2.0 * (ylogy(y, mu) + ylogy(1.0 - y, 1.0 - mu));
    case GlmFamily::kPoissonLog:
      return 2.0 * (ylogy(y, mu) - (y - mu));
    case GlmFamily::kNegBinLog: {
      const double theta = 1.0 / k;
      return 2.0 * (ylogy(y, mu) - (y + theta) * std::log((y + theta) / (mu + theta)));
    }
  }
  return 0.0;
}

bool Family::validMean(double mu) const {
  if (!std::isfinite(mu)) return false;
  if (kind == GlmFamily::kBinomialLogit || kind == GlmFamily::kBinomialLog)
    return mu > 0.0 && mu < 1.0;
  return mu > 0.0;
}

std::string Family::name() const {
  switch (kind) {
    case GlmFamily::kBinomialLogit:
      return "binomial (logit)";
    case GlmFamily::kBinomialLog:
      return "binomial (log)";
    case GlmFamily::kPoissonLog:
      return "Poisson (log)";
    case GlmFamily::kNegBinLog:
      return "negative binomial (log)";
  }
  return "";
}

}  // namespace medanlys

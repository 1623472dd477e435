// A family with its link: what one scoring loop needs to fit any of the outcome models.
// (The logit link with the binomial family, the log link with the binomial, Poisson and
// negative binomial families.)
#pragma once

#include <string>

namespace medanlys {

enum class GlmFamily { kBinomialLogit, kBinomialLog, kPoissonLog, kNegBinLog };

struct Family {
  GlmFamily kind = GlmFamily::kPoissonLog;
  double k = 1.0;  // negative binomial: Var = mu + k mu^2

  // mu = g^-1(eta), dmu/deta, Var(mu).
  double mean(double eta) const;
  double meanDerivative(double eta, double mu) const;
  double variance(double mu) const;
  // Log-likelihood and deviance contributions of one case (unit weight).
  double logLikelihood(double y, double mu) const;
  double deviance(double y, double mu) const;
  // A mean the family admits (0 < mu < 1 for the binomial, mu > 0 for counts).
  bool validMean(double mu) const;
  std::string name() const;
};

}  // namespace medanlys

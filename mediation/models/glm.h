// Maximum-likelihood fits of the logistic and generalised linear models: Newton-Raphson /
// Fisher scoring with step-halving, the Firth penalty for the logistic model, negative
// binomial with k fixed or estimated, model-based and HC0 robust covariance, fit
// statistics. Frequency weights throughout.
#pragma once

#include <string>
#include <vector>

#include "models/glm_family.h"
#include "models/linear_algebra.h"
#include "models/wls.h"

namespace medanlys {

// The CRITERIA settings of the fits.
struct GlmOptions {
  int maxIterations = 100;
  double pConverge = 1e-6;  // max_j |delta beta_j| / max(|beta_j|, 1)
  double singular = 1e-12;  // a pivot below this times the largest diagonal is singular
  int maxStepHalving = 5;
  double ridgePenalty = 1e-6;  // added to the diagonal of a near-singular information
  bool firth = false;          // logistic only: maximise l(beta) + 1/2 log|I(beta)|
  // Where the iterations start: empty for the family's own start. The bootstrap starts each
  // replicate at the full-sample estimates, which a resample's estimates are close to.
  Vector start;
  double startDispersion = 0.0;  // negative binomial with k estimated: k to start from
};

// One fitted model. A fit that did not converge keeps its last iterate for diagnosis but
// has converged == false and says why in `message`; callers must not present it.
struct GlmFit {
  bool converged = false;
  std::string message;
  int iterations = 0;
  Vector coefficients;
  Matrix covModel;   // inverse expected information (k treated as known)
  Matrix covRobust;  // HC0 sandwich
  Vector seModel, seRobust, zModel;
  Vector fitted;  // mu per case
  double logLik = NAN, logLikNull = NAN;
  double deviance = NAN, nullDeviance = NAN;
  double aic = NAN, bic = NAN, pseudoR2 = NAN;
  double dispersion = 1.0;       // k for the negative binomial, 1 otherwise
  std::size_t parameters = 0;    // counted in AIC and BIC (k included when estimated)
  std::vector<std::string> log;  // repairs (ridge), always reported
};

// Logistic regression by Newton-Raphson with step-halving (Firth's penalty on request).
GlmFit fitLogisticNR_Variant2(const DesignMatrix& X, const Vector& y, const Vector& w,
                              const GlmOptions& options);

// Binomial (logit or log), Poisson or negative binomial with k fixed, by Fisher scoring.
GlmFit fitGlm(const DesignMatrix& X, const Vector& y, const Vector& w, const Family& family,
              const GlmOptions& options);

// Negative binomial with k estimated: scoring for beta alternating with Newton steps for
// theta = 1/k on the profile log-likelihood.
GlmFit fitNegativeBinomialMle(const DesignMatrix& X, const Vector& y, const Vector& w,
                              const GlmOptions& options);

// The light form for bootstrap replicates: the coefficients only (no covariance, no fit
// statistics); false when the fit does not converge.
bool fitGlmCoefficients(const DesignMatrix& X, const Vector& y, const Vector& w,
                        const Family& family, const GlmOptions& options, Vector& beta);

}  // namespace medanlys

// The coefficient-only GLM fit of a bootstrap replicate, made for speed: Newton / Fisher
// scoring from the full-sample estimates, where every iteration is one pass over the cases
// of positive weight that forms the linear predictor, the mean, the log-likelihood kernel,
// the score and the information together, and the q x q system is solved by Cholesky.
// A replicate that this path cannot settle (a step it cannot accept, an information matrix
// that is not positive definite, no convergence) is handed to the general fit, which has
// the ridge repair and the diagnostics; so both reach the same maximum.
#pragma once

#include "models/glm.h"

namespace medanlys {

// As fitGlmCoefficients (same convergence: a relative change below 1e-12 once the
// criterion is met), without the Firth penalty; options.firth hands over to the general fit.
bool fitReplicateCoefficients(const DesignMatrix& X, const Vector& y, const Vector& w,
                              const Family& family, const GlmOptions& options, Vector& beta);

// Negative binomial with k estimated, for a replicate: the alternation of the general fit
// (Newton steps for theta = 1/k on the profile likelihood, then the coefficients at that
// theta, until both change by less than 1e-9 relative), from options.start and
// options.startDispersion, with the coefficient steps of the fast path and the digamma and
// trigamma sums of the theta steps taken once per distinct count. Falls back to the
// general fit where this path cannot settle. `k` receives the dispersion.
bool fitReplicateNegativeBinomial(const DesignMatrix& X, const Vector& y, const Vector& w,
                                  const GlmOptions& options, Vector& beta, double& k);

// Solves a x = b for a symmetric positive definite a (lower triangle used), in place of b;
// false when a pivot is not positive.
bool choleskySolve(std::vector<double> a, std::size_t q, std::vector<double>& b);

}  // namespace medanlys

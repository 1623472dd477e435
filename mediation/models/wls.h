// Weighted least squares: design matrices, normal equations, the full mediator and
// outcome fits with model-based and HC0 robust covariance, and the light refits of the
// bootstrap. Weights are frequency weights (whole replication counts after cleaning).
#pragma once

#include <string>
#include <vector>

#include "models/linear_algebra.h"
#include "models/linear_diagnostics.h"

namespace medanlys {

using Columns = std::vector<Vector>;

// n x q, row-major.
struct DesignMatrix {
  std::size_t n = 0;
  std::size_t q = 0;
  std::vector<double> values;
  double operator()(std::size_t i, std::size_t j) const { return values[i * q + j]; }
  const double* row(std::size_t i) const { return values.data() + i * q; }
};

// Columns 1, A, C1..Cp.
DesignMatrix buildMediatorDesignMatrix(const Vector& exposure, const Columns& covariates);

struct OutcomeDesign {
  DesignMatrix X;
  Vector y;
  std::size_t q = 0;
};
// Columns 1, A, M, A*M (with the interaction), C1..Cp. Throws std::invalid_argument with
// "All input vectors (A, M, Y) must have the same length" or "All covariates must have the
// same number of rows as expData".
OutcomeDesign buildOutcomeDesignMatrix(const Vector& exposure, const Vector& mediator,
                                       const Vector& outcome, const Columns& covariates,
                                       bool interaction);

// X^T W X and X^T W Y. Throws "Dimension mismatch in computeXTWX_XTWY_diagonalWeights".
void computeXTWX_XTWY_diagonalWeights(const DesignMatrix& X, const Vector& y, const Vector& w,
                                      Matrix& XTWX, Vector& XTWY);

// beta = (X^T W X)^-1 X^T W Y; throws "Design matrix X^T W X is singular or near-singular"
// when |det| < 1e-12, "Matrix inversion failed", "Dimension mismatch between XTWX_inv and
// XTWY.". With verbose and at least 5 coefficients, the coefficients from the fifth on are
// appended to log.
void solveNormalEquations(const Matrix& XTWX, const Vector& XTWY, bool verbose, Vector& beta,
                          Matrix& XTWX_inv, std::vector<std::string>* log = nullptr);

// Fitted values X beta and residuals Y - X beta.
void computeResiduals(const DesignMatrix& X, const Vector& beta, const Vector& y, const Vector& w,
                      Vector& fitted, Vector& residuals);

// sum w v / sum w; FitError("Internal error: Mediator data and weights length mismatch.",
// "Length mismatch between mediator data and weights.") or ("Total weight is zero. Check
// weight ..." with the detail "Total weight is zero. Cannot compute weighted mean.").
double weightedMean(const Vector& values, const Vector& w);

struct RSquared {
  double r2 = 0.0;
  double adjR2 = 0.0;
};
// Mediator form: p covariate columns, adjusted with d = n - p - 2.
RSquared computeRSquared(const Vector& residuals, const Vector& y, const Vector& w, double yMean,
                         std::size_t n, std::size_t p);
// Kernel form: k coefficients, adjusted with n - k.
RSquared computeRSquared(const Vector& residuals, const Vector& y, const Vector& w, std::size_t n,
                         std::size_t k);

// One fitted linear model.
struct WlsFit {
  bool success = false;
  std::string message;
  double intercept = 0.0;
  double slope = 0.0;  // the exposure coefficient
  Vector rest;         // the remaining coefficients, in design order
  Vector coefficients;
  Matrix covModel;   // sigma^2 (X^T W X)^-1
  Matrix covRobust;  // HC0 sandwich
  Vector seModel, seRobust;
  Vector tModel, tRobust;
  Vector lower95, upper95;  // estimate -/+ 1.96 model SE
  Vector fitted, residuals;  // emptied once the diagnostics are computed
  double sigma2 = 0.0;
  double ssr = 0.0;
  double r2 = 0.0;
  double adjR2 = 0.0;
  std::size_t n = 0;
  double sumWeights = 0.0;
  LinearDiagnostics diagnostics;
  std::vector<std::string> log;
};

// The mediator model M ~ 1 + A + C, fitted with the exposure standardised (population SD)
// and transformed back. FitError on too few cases ("Sample too small for regression
// (N < k + 10).") or a singular design ("Outcome model singular. Check for perfect
// collinearity." / "Design matrix X^T W X is singular").
WlsFit fitMediatorWls(const Vector& exposure, const Columns& covariates, const Vector& mediator,
                      const Vector& w);

// The outcome model Y ~ 1 + A + M [+ A*M] + C.
WlsFit fitOutcomeWls(const Vector& exposure, const Vector& mediator, const Vector& outcome,
                     const Columns& covariates, const Vector& w, bool interaction);

// The mediator model with the ridge fallback for near-singular X^T W X (|det| < 1e-10 adds
// 1e-8 to the diagonal, logged).
WlsFit fitMediatorRidge(const Vector& exposure, const Columns& covariates, const Vector& mediator,
                        const Vector& w);

// Light refits of the bootstrap: one case record per case, no covariance or diagnostics.
struct CaseRecord {
  double exposure = 0.0;
  double mediator = 0.0;
  double outcome = 0.0;
  double weight = 1.0;
  Vector covariates;
};
struct ResampleFit {
  bool success = false;
  std::string message;
  Vector coefficients;
};
ResampleFit fitMediatorResample(const std::vector<CaseRecord>& records,
                                const std::vector<std::size_t>& indices, std::size_t p);
ResampleFit fitOutcomeResample(const std::vector<CaseRecord>& records,
                               const std::vector<std::size_t>& indices, std::size_t p,
                               bool interaction);

}  // namespace medanlys

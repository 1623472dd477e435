#include "models/wls.h"

#include <cmath>
#include <cstdio>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "models/fit_error.h"

namespace medanlys {
namespace {

constexpr double kZ95 = 1.96;  // the model tables' 95% limits use the fixed normal quantile

const Vector& weightsOrOnes(const Vector& w, std::size_t n, Vector& ones) {
  if (!w.empty()) return w;
  ones.assign(n, 1.0);
  return ones;
}

std::string formatVector(const Vector& v) {
  std::ostringstream out;
  for (std::size_t i = 0; i < v.size(); ++i) out << (i ? ", " : "") << v[i];
  return out.str();
}

// Standard errors, t statistics and 95% limits from a covariance; SE 0 gives t = 0.
void fillInference(WlsFit& fit) {
  const std::size_t q = fit.coefficients.size();
  fit.seModel.assign(q, 0.0);
  fit.seRobust.assign(q, 0.0);
  fit.tModel.assign(q, 0.0);
  fit.tRobust.assign(q, 0.0);
  fit.lower95.assign(q, 0.0);
  fit.upper95.assign(q, 0.0);
  for (std::size_t j = 0; j < q; ++j) {
    const double b = fit.coefficients[j];
    fit.seModel[j] = std::sqrt(std::max(fit.covModel(j, j), 0.0));
    fit.seRobust[j] = std::sqrt(std::max(fit.covRobust(j, j), 0.0));
    fit.tModel[j] = fit.seModel[j] == 0.0 ? 0.0 : b / fit.seModel[j];
    fit.tRobust[j] = fit.seRobust[j] == 0.0 ? 0.0 : b / fit.seRobust[j];
    fit.lower95[j] = b - kZ95 * fit.seModel[j];
    fit.upper95[j] = b + kZ95 * fit.seModel[j];
  }
  fit.intercept = fit.coefficients[0];
  fit.slope = q > 1 ? fit.coefficients[1] : 0.0;
  fit.rest.assign(fit.coefficients.begin() + std::min<std::size_t>(2, q), fit.coefficients.end());
}

// (X^T W X)^-1 [sum w_i e_i^2 x_i x_i^T] (X^T W X)^-1.
Matrix hc0Covariance(const DesignMatrix& X, const Vector& e, const Vector& w, const Matrix& inv) {
  Matrix meat = zeroMatrix(X.q, X.q);
  for (std::size_t i = 0; i < X.n; ++i) {
    const double s = w[i] * e[i] * e[i];
    const double* x = X.row(i);
    for (std::size_t a = 0; a < X.q; ++a) {
      for (std::size_t b = 0; b <= a; ++b) meat(a, b) += s * x[a] * x[b];
    }
  }
  for (std::size_t a = 0; a < X.q; ++a) {
    for (std::size_t b = a + 1; b < X.q; ++b) meat(a, b) = meat(b, a);
  }
  return congruence(inv, meat);
}

void modelLogLines(WlsFit& fit) {
  fit.log.push_back("Model-based standard errors = [" + formatVector(fit.seModel) + "]");
  fit.log.push_back("Model-based t-statistics = [" + formatVector(fit.tModel) + "]");
  std::string cis = "Model-based 95% CIs:\n";
  for (std::size_t j = 0; j < fit.coefficients.size(); ++j) {
    std::ostringstream line;
    line << "Param[" << j << "]: theta=" << fit.coefficients[j] << ", CI=[" << fit.lower95[j]
         << ", " << fit.upper95[j] << "]";
    cis += line.str() + (j + 1 < fit.coefficients.size() ? "\n" : "");
  }
  fit.log.push_back(cis);
}

// The per-case fitted values and residuals have served the diagnostics; a large data set
// should not be held in them once more.
void releaseCaseVectors(WlsFit& fit) {
  Vector().swap(fit.fitted);
  Vector().swap(fit.residuals);
}

// Residuals, variance, R^2, covariances and diagnostics of a solved system.
void completeFit(WlsFit& fit, const DesignMatrix& X, const Vector& y, const Vector& w,
                 const Matrix& inverse, double dfDenominator) {
  computeResiduals(X, fit.coefficients, y, w, fit.fitted, fit.residuals);
  fit.ssr = 0.0;
  for (std::size_t i = 0; i < X.n; ++i) fit.ssr += w[i] * fit.residuals[i] * fit.residuals[i];
  fit.sigma2 = fit.ssr / dfDenominator;
  fit.covModel = inverse * fit.sigma2;
  fit.covRobust = hc0Covariance(X, fit.residuals, w, inverse);
  fit.diagnostics = computeLinearDiagnostics(X, fit.residuals, w, inverse, fit.sigma2);
  fit.n = X.n;
  fit.sumWeights = 0.0;
  for (double v : w) fit.sumWeights += v;
}

}  // namespace

DesignMatrix buildMediatorDesignMatrix(const Vector& exposure, const Columns& covariates) {
  DesignMatrix X;
  X.n = exposure.size();
  X.q = covariates.size() + 2;
  X.values.resize(X.n * X.q);
  for (std::size_t i = 0; i < X.n; ++i) {
    double* row = X.values.data() + i * X.q;
    row[0] = 1.0;
    row[1] = exposure[i];
    for (std::size_t c = 0; c < covariates.size(); ++c) row[2 + c] = covariates[c][i];
  }
  return X;
}

OutcomeDesign buildOutcomeDesignMatrix(const Vector& exposure, const Vector& mediator,
                                       const Vector& outcome, const Columns& covariates,
                                       bool interaction) {
  const std::size_t n = exposure.size();
  if (mediator.size() != n || outcome.size() != n) {
    throw std::invalid_argument("All input vectors (A, M, Y) must have the same length");
  }
  for (const Vector& c : covariates) {
    if (c.size() != n) {
      throw std::invalid_argument("All covariates must have the same number of rows as expData");
    }
  }
  OutcomeDesign d;
  d.q = 3 + (interaction ? 1 : 0) + covariates.size();
  d.X.n = n;
  d.X.q = d.q;
  d.X.values.resize(n * d.q);
  for (std::size_t i = 0; i < n; ++i) {
    double* row = d.X.values.data() + i * d.q;
    std::size_t k = 0;
    row[k++] = 1.0;
    row[k++] = exposure[i];
    row[k++] = mediator[i];
    if (interaction) row[k++] = exposure[i] * mediator[i];
    for (const Vector& c : covariates) row[k++] = c[i];
  }
  d.y = outcome;
  return d;
}

void computeXTWX_XTWY_diagonalWeights(const DesignMatrix& X, const Vector& y, const Vector& w,
                                      Matrix& XTWX, Vector& XTWY) {
  if (y.size() != X.n || w.size() != X.n) {
    throw std::invalid_argument("Dimension mismatch in computeXTWX_XTWY_diagonalWeights");
  }
  XTWX = zeroMatrix(X.q, X.q);
  XTWY.assign(X.q, 0.0);
  for (std::size_t i = 0; i < X.n; ++i) {
    const double* x = X.row(i);
    const double wi = w[i];
    for (std::size_t a = 0; a < X.q; ++a) {
      const double wx = wi * x[a];
      XTWY[a] += wx * y[i];
      for (std::size_t b = 0; b <= a; ++b) XTWX(a, b) += wx * x[b];
    }
  }
  for (std::size_t a = 0; a < X.q; ++a) {
    for (std::size_t b = a + 1; b < X.q; ++b) XTWX(a, b) = XTWX(b, a);
  }
}

void solveNormalEquations(const Matrix& XTWX, const Vector& XTWY, bool verbose, Vector& beta,
                          Matrix& XTWX_inv, std::vector<std::string>* log) {
  if (std::fabs(determinant(XTWX)) < 1e-12) {
    throw std::runtime_error("Design matrix X^T W X is singular or near-singular");
  }
  XTWX_inv = invertMatrixOrThrow(XTWX);
  if (XTWX_inv.size2() != XTWY.size()) {
    throw std::runtime_error("Dimension mismatch between XTWX_inv and XTWY.");
  }
  beta = multiply(XTWX_inv, XTWY);
  if (verbose && log && beta.size() >= 5) {
    log->push_back("Covariate coefficients: [" +
                   formatVector(Vector(beta.begin() + 4, beta.end())) + "]");
  }
}

void computeResiduals(const DesignMatrix& X, const Vector& beta, const Vector& y, const Vector& w,
                      Vector& fitted, Vector& residuals) {
  if (y.size() != X.n || w.size() != X.n) {
    throw std::invalid_argument("Dimension mismatch between residuals, Y, and weights.");
  }
  fitted.assign(X.n, 0.0);
  residuals.assign(X.n, 0.0);
  for (std::size_t i = 0; i < X.n; ++i) {
    const double* x = X.row(i);
    double f = 0.0;
    for (std::size_t j = 0; j < X.q; ++j) f += x[j] * beta[j];
    fitted[i] = f;
    residuals[i] = y[i] - f;
  }
}

double weightedMean(const Vector& values, const Vector& w) {
  if (values.size() != w.size()) {
    throw FitError("Internal error: Mediator data and weights length mismatch.",
                   "Length mismatch between mediator data and weights.");
  }
  double sw = 0.0, s = 0.0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    sw += w[i];
    s += w[i] * values[i];
  }
  if (sw == 0.0) {
    throw FitError("Total weight is zero. Check weight specification.",
                   "Total weight is zero. Cannot compute weighted mean.");
  }
  return s / sw;
}

RSquared computeRSquared(const Vector& e, const Vector& y, const Vector& wIn, double yMean,
                         std::size_t n, std::size_t p) {
  Vector ones;
  const Vector& w = weightsOrOnes(wIn, y.size(), ones);
  if (e.size() != y.size() || w.size() != y.size()) {
    throw FitError("Internal error: R-squared vector size mismatch.",
                   "Mismatch in input vector sizes for R-squared computation.");
  }
  double ssr = 0.0, sst = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    ssr += w[i] * e[i] * e[i];
    sst += w[i] * (y[i] - yMean) * (y[i] - yMean);
  }
  RSquared r;
  if (sst == 0.0) return r;
  r.r2 = 1.0 - ssr / sst;
  const double d = static_cast<double>(n) - static_cast<double>(p) - 2.0;
  r.adjR2 = d > 0 ? 1.0 - (1.0 - r.r2) * (static_cast<double>(n) - 1.0) / d : r.r2;
  return r;
}

RSquared computeRSquared(const Vector& e, const Vector& y, const Vector& wIn, std::size_t n,
                         std::size_t k) {
  Vector ones;
  const Vector& w = weightsOrOnes(wIn, y.size(), ones);
  double sw = 0.0, mean = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    sw += w[i];
    mean += w[i] * y[i];
  }
  mean = sw > 0.0 ? mean / sw : 0.0;
  double ssr = 0.0, sst = 0.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    ssr += w[i] * e[i] * e[i];
    sst += w[i] * (y[i] - mean) * (y[i] - mean);
  }
  RSquared r;
  if (sst == 0.0) return r;
  r.r2 = 1.0 - ssr / sst;
  r.adjR2 = n > k ? 1.0 - (1.0 - r.r2) * (static_cast<double>(n) - 1.0) /
                              (static_cast<double>(n) - static_cast<double>(k))
                  : r.r2;
  return r;
}

WlsFit fitMediatorWls(const Vector& exposure, const Columns& covariates, const Vector& mediator,
                      const Vector& wIn) {
  const std::size_t n = exposure.size();
  const std::size_t p = covariates.size();
  Vector ones;
  const Vector& w = weightsOrOnes(wIn, n, ones);
  if (n < p + 10) {
    throw FitError("Sample too small for regression (N < k + 10).",
                   "Sample too small for regression (N < k + 10).");
  }
  // Standardise the exposure column (population SD) for a well-conditioned system.
  double mA = 0.0;
  for (double a : exposure) mA += a;
  mA /= static_cast<double>(n);
  double sA = 0.0;
  for (double a : exposure) sA += (a - mA) * (a - mA);
  sA = std::sqrt(sA / static_cast<double>(n));
  if (sA < 1e-10) sA = 1.0;
  Vector standardised(n);
  for (std::size_t i = 0; i < n; ++i) standardised[i] = (exposure[i] - mA) / sA;

  const DesignMatrix X = buildMediatorDesignMatrix(standardised, covariates);
  Matrix XTWX, inverse;
  Vector XTWY;
  computeXTWX_XTWY_diagonalWeights(X, mediator, w, XTWX, XTWY);
  if (smallestScaledPivot(XTWX) < kCollinearPivot || !invertMatrix(XTWX, inverse)) {
    throw FitError("Outcome model singular. Check for perfect collinearity.",
                   "Design matrix X^T W X is singular");
  }
  WlsFit fit;
  fit.coefficients = multiply(inverse, XTWY);
  completeFit(fit, X, mediator, w, inverse, static_cast<double>(n) - static_cast<double>(p + 2));
  const RSquared r = computeRSquared(fit.residuals, mediator, w, weightedMean(mediator, w), n, p);
  fit.r2 = r.r2;
  fit.adjR2 = r.adjR2;

  // Back to the exposure's own scale: b = T b_std, V = T V_std T^T.
  Matrix T = identityMatrix(X.q);
  T(1, 1) = 1.0 / sA;
  T(0, 1) = -mA / sA;
  fit.coefficients = multiply(T, fit.coefficients);
  fit.covModel = congruence(T, fit.covModel);
  fit.covRobust = congruence(T, fit.covRobust);
  fillInference(fit);
  fit.success = true;
  modelLogLines(fit);
  releaseCaseVectors(fit);
  return fit;
}

WlsFit fitOutcomeWls(const Vector& exposure, const Vector& mediator, const Vector& outcome,
                     const Columns& covariates, const Vector& wIn, bool interaction) {
  const OutcomeDesign d =
      buildOutcomeDesignMatrix(exposure, mediator, outcome, covariates, interaction);
  Vector ones;
  const Vector& w = weightsOrOnes(wIn, d.X.n, ones);
  Matrix XTWX, inverse;
  Vector XTWY;
  computeXTWX_XTWY_diagonalWeights(d.X, d.y, w, XTWX, XTWY);
  // An exactly collinear design (a mediator that copies the exposure, say) may still
  // factorise in floating point; judge it on the scale-free pivots instead.
  if (smallestScaledPivot(XTWX) < kCollinearPivot || !invertMatrix(XTWX, inverse)) {
    throw FitError("Outcome model singular. Check for perfect collinearity.",
                   "Design matrix X^T W X is singular");
  }
  WlsFit fit;
  fit.coefficients = multiply(inverse, XTWY);
  completeFit(fit, d.X, d.y, w, inverse, static_cast<double>(d.X.n) - static_cast<double>(d.q));
  const RSquared r = computeRSquared(fit.residuals, d.y, w, d.X.n, d.q);
  fit.r2 = r.r2;
  fit.adjR2 = r.adjR2;
  fillInference(fit);
  fit.success = true;
  modelLogLines(fit);
  releaseCaseVectors(fit);
  return fit;
}

WlsFit fitMediatorRidge(const Vector& exposure, const Columns& covariates, const Vector& mediator,
                        const Vector& wIn) {
  const DesignMatrix X = buildMediatorDesignMatrix(exposure, covariates);
  Vector ones;
  const Vector& w = weightsOrOnes(wIn, X.n, ones);
  Matrix XTWX, inverse;
  Vector XTWY;
  computeXTWX_XTWY_diagonalWeights(X, mediator, w, XTWX, XTWY);
  WlsFit fit;
  const double det = determinant(XTWX);
  bool ridged = false;
  if (std::fabs(det) < 1e-10) {
    for (std::size_t j = 0; j < X.q; ++j) XTWX(j, j) += 1e-8;
    std::ostringstream line;
    line << "Ridge regularization applied to XTWX (det=" << det
         << ") \u2014 likely duplicate rows in bootstrap resample.";
    fit.log.push_back(line.str());
    ridged = true;
  }
  if (!invertMatrix(XTWX, inverse)) {
    throw FitError("", ridged ? "LU factorization failed even after ridge regularization"
                              : "LU factorization failed: X^T W X may be singular");
  }
  fit.coefficients = multiply(inverse, XTWY);
  {
    std::ostringstream line;
    line << "Coefficients estimated: beta_0=" << fit.coefficients[0]
         << ", beta_1=" << fit.coefficients[1];
    if (X.q > 2) {
      line << ", beta_2...beta_" << X.q - 1 << "="
           << formatVector(Vector(fit.coefficients.begin() + 2, fit.coefficients.end()));
    }
    fit.log.push_back(line.str());
  }
  const double df = static_cast<double>(X.n) - static_cast<double>(X.q);
  if (df <= 0) {
    throw FitError("Degrees of freedom too low (<=0) for variance. Reduce parameters.",
                   "Insufficient degrees of freedom for variance estimation");
  }
  completeFit(fit, X, mediator, w, inverse, df);
  const RSquared r = computeRSquared(fit.residuals, mediator, w, X.n, X.q);
  fit.r2 = r.r2;
  fit.adjR2 = r.adjR2;
  fillInference(fit);
  fit.log.push_back("Fitted values and residuals computed.");
  {
    std::ostringstream line;
    line << "R-squared=" << fit.r2 << ", Adjusted R-squared=" << fit.adjR2 << ", SSR=" << fit.ssr;
    fit.log.push_back(line.str());
  }
  fit.log.push_back("Scale parameter estimated: sigma^2 = " + std::to_string(fit.sigma2));
  fit.log.push_back("Scale parameter variance computed: Sigma_hat_sigma2 = " +
                    std::to_string(2.0 * fit.sigma2 * fit.sigma2 / df));
  char diag[256];
  std::snprintf(diag, sizeof diag,
                "Mediator Diagnostics: DW=%.2f, VIF=%.1f, JB-p=%.3f, Influential=%d, R\u00b2=%.3f, "
                "adj_R\u00b2=%.3f",
                fit.diagnostics.durbinWatson, fit.diagnostics.vifMax, fit.diagnostics.jarqueBeraP,
                fit.diagnostics.influentialCases, fit.r2, fit.adjR2);
  fit.log.push_back(diag);
  fit.success = true;
  releaseCaseVectors(fit);
  return fit;
}

namespace {

// Square-root-weighted normal equations over the resampled rows.
ResampleFit solveResample(std::size_t q, std::size_t n,
                          const std::function<void(std::size_t, double*, double&, double&)>& row,
                          const char* failure) {
  ResampleFit fit;
  Matrix XTX = zeroMatrix(q, q);
  Vector XTy(q, 0.0);
  Vector x(q);
  for (std::size_t r = 0; r < n; ++r) {
    double y = 0.0, weight = 1.0;
    row(r, x.data(), y, weight);
    const double s = std::sqrt(weight);
    for (std::size_t a = 0; a < q; ++a) {
      const double xa = s * x[a];
      XTy[a] += xa * s * y;
      for (std::size_t b = 0; b <= a; ++b) XTX(a, b) += xa * s * x[b];
    }
  }
  for (std::size_t a = 0; a < q; ++a) {
    for (std::size_t b = a + 1; b < q; ++b) XTX(a, b) = XTX(b, a);
  }
  Matrix inverse;
  if (!invertMatrix(XTX, inverse)) {
    fit.message = failure;
    return fit;
  }
  fit.coefficients = multiply(inverse, XTy);
  fit.success = true;
  return fit;
}

}  // namespace

ResampleFit fitMediatorResample(const std::vector<CaseRecord>& records,
                                const std::vector<std::size_t>& indices, std::size_t p) {
  ResampleFit fit;
  if (indices.empty()) {
    fit.message = "No data to fit mediation regression.";
    return fit;
  }
  for (std::size_t index : indices) {
    if (records[index].covariates.size() < p) {
      fit.message = "Insufficient covariate dimensions in mediation regression.";
      return fit;
    }
  }
  return solveResample(
      p + 2, indices.size(),
      [&](std::size_t r, double* x, double& y, double& weight) {
        const CaseRecord& c = records[indices[r]];
        x[0] = 1.0;
        x[1] = c.exposure;
        for (std::size_t j = 0; j < p; ++j) x[2 + j] = c.covariates[j];
        y = c.mediator;
        weight = c.weight;
      },
      "Mediation regression matrix inversion failed");
}

ResampleFit fitOutcomeResample(const std::vector<CaseRecord>& records,
                               const std::vector<std::size_t>& indices, std::size_t p,
                               bool interaction) {
  ResampleFit fit;
  if (indices.empty()) {
    fit.message = "No data to fit outcome regression.";
    return fit;
  }
  for (std::size_t index : indices) {
    if (records[index].covariates.size() < p) {
      fit.message = "Insufficient covariate dimensions in outcome regression.";
      return fit;
    }
  }
  const std::size_t q = 3 + (interaction ? 1 : 0) + p;
  return solveResample(
      q, indices.size(),
      [&](std::size_t r, double* x, double& y, double& weight) {
        const CaseRecord& c = records[indices[r]];
        std::size_t k = 0;
        x[k++] = 1.0;
        x[k++] = c.exposure;
        x[k++] = c.mediator;
        if (interaction) x[k++] = c.exposure * c.mediator;
        for (std::size_t j = 0; j < p; ++j) x[k++] = c.covariates[j];
        y = c.outcome;
        weight = c.weight;
      },
      "Outcome regression matrix inversion failed");
}

}  // namespace medanlys

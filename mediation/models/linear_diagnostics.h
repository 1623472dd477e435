// Diagnostics of a fitted linear model shown in the model tables.
#pragma once

#include <vector>

#include "models/linear_algebra.h"

namespace medanlys {

struct DesignMatrix;

struct LinearDiagnostics {
  double durbinWatson = 0.0;  // sum (e_i - e_{i-1})^2 / sum e_i^2, case order
  double vifMax = 1.0;        // largest 1/(1 - R^2_j) over the non-intercept columns
  double jarqueBeraP = 1.0;   // upper chi-square(2) tail of n/6 (S^2 + (K-3)^2/4)
  int influentialCases = 0;   // Cook's distance > 4/n
};

// residuals and weights per case; XTWX_inv the unscaled inverse; sigma2 the residual
// variance. Weighted moments use the frequency weights.
LinearDiagnostics computeLinearDiagnostics(const DesignMatrix& X,
                                           const std::vector<double>& residuals,
                                           const std::vector<double>& w, const Matrix& XTWX_inv,
                                           double sigma2);

double durbinWatson(const std::vector<double>& residuals);
double jarqueBeraPValue(const std::vector<double>& residuals, const std::vector<double>& w);
double maxVarianceInflation(const DesignMatrix& X, const std::vector<double>& w);

}  // namespace medanlys

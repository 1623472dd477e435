#include "models/linear_diagnostics.h"

#include <algorithm>
#include <boost/math/distributions/chi_squared.hpp>
#include <cmath>
#include <limits>

#include "models/wls.h"

namespace medanlys {

double durbinWatson(const std::vector<double>& e) {
  double num = 0.0, den = 0.0;
  for (std::size_t i = 0; i < e.size(); ++i) {
    den += e[i] * e[i];
    if (i > 0) num += (e[i] - e[i - 1]) * (e[i] - e[i - 1]);
  }
  return den > 0.0 ? num / den : std::nan("");
}

double jarqueBeraPValue(const std::vector<double>& e, const std::vector<double>& w) {
  double sw = 0.0, mean = 0.0;
  for (std::size_t i = 0; i < e.size(); ++i) {
    sw += w[i];
    mean += w[i] * e[i];
  }
  if (!(sw > 0.0) || !std::isfinite(mean)) return std::nan("");
  mean /= sw;
  // The moments of the residuals divided by their largest deviation: skewness and
  // kurtosis do not depend on the scale, and fourth powers of residuals near 1e80 would
  // overflow (or of residuals near 1e-80 underflow) on the original one.
  double scale = 0.0;
  for (double v : e) scale = std::max(scale, std::fabs(v - mean));
  if (!(scale > 0.0) || !std::isfinite(scale)) return std::nan("");
  double m2 = 0.0, m3 = 0.0, m4 = 0.0;
  for (std::size_t i = 0; i < e.size(); ++i) {
    const double d = (e[i] - mean) / scale;
    m2 += w[i] * d * d;
    m3 += w[i] * d * d * d;
    m4 += w[i] * d * d * d * d;
  }
  m2 /= sw;
  m3 /= sw;
  m4 /= sw;
  if (m2 <= 0.0) return std::nan("");
  const double skewness = m3 / std::pow(m2, 1.5);
  const double kurtosis = m4 / (m2 * m2);
  const double jb = sw / 6.0 * (skewness * skewness + (kurtosis - 3.0) * (kurtosis - 3.0) / 4.0);
  if (!std::isfinite(jb) || jb < 0.0) return std::nan("");
  return boost::math::cdf(boost::math::complement(boost::math::chi_squared(2.0), jb));
}

double maxVarianceInflation(const DesignMatrix& X, const std::vector<double>& w) {
  if (X.q <= 2) return 1.0;  // intercept and one column: nothing to be collinear with
  // 1 / (1 - R^2_j) of column j on the others equals C_jj (C^-1)_jj, C the weighted
  // cross-products of the centred non-intercept columns: one pass over the data and no
  // copy of the design, whatever its size.
  Matrix s = zeroMatrix(X.q, X.q);
  for (std::size_t i = 0; i < X.n; ++i) {
    const double* x = X.row(i);
    for (std::size_t a = 0; a < X.q; ++a) {
      const double wx = w[i] * x[a];
      for (std::size_t b = 0; b <= a; ++b) s(a, b) += wx * x[b];
    }
  }
  const std::size_t k = X.q - 1;
  Matrix c(k, k);
  for (std::size_t a = 0; a < k; ++a) {
    for (std::size_t b = 0; b <= a; ++b) {
      c(a, b) = c(b, a) = s(a + 1, b + 1) - s(a + 1, 0) * s(b + 1, 0) / s(0, 0);
    }
  }
  Matrix inverse;
  if (!(s(0, 0) > 0.0) || smallestScaledPivot(c) < kCollinearPivot || !invertMatrix(c, inverse))
    return std::numeric_limits<double>::infinity();
  double worst = 1.0;
  for (std::size_t j = 0; j < k; ++j) worst = std::max(worst, c(j, j) * inverse(j, j));
  return worst;
}

LinearDiagnostics computeLinearDiagnostics(const DesignMatrix& X, const std::vector<double>& e,
                                           const std::vector<double>& w, const Matrix& XTWX_inv,
                                           double sigma2) {
  LinearDiagnostics d;
  d.durbinWatson = durbinWatson(e);
  d.vifMax = maxVarianceInflation(X, w);
  d.jarqueBeraP = jarqueBeraPValue(e, w);
  // Cook's distance of case i: w e^2 h / (q sigma^2 (1 - h)^2), h the leverage.
  const double threshold = 4.0 / static_cast<double>(X.n);
  for (std::size_t i = 0; i < X.n; ++i) {
    const Vector x(X.row(i), X.row(i) + X.q);
    const double h = w[i] * quadraticForm(XTWX_inv, x);
    const double cook =
        w[i] * e[i] * e[i] * h / (static_cast<double>(X.q) * sigma2 * (1.0 - h) * (1.0 - h));
    if (cook > threshold) ++d.influentialCases;
  }
  return d;
}

}  // namespace medanlys

#include "models/linear_algebra.h"

#include <algorithm>
#include <boost/numeric/ublas/lu.hpp>
#include <cmath>
#include <stdexcept>

namespace medanlys {

namespace ublas = boost::numeric::ublas;

Matrix zeroMatrix(std::size_t rows, std::size_t cols) { return Matrix(rows, cols, 0.0); }

Matrix identityMatrix(std::size_t n) {
  Matrix m(n, n, 0.0);
  for (std::size_t i = 0; i < n; ++i) m(i, i) = 1.0;
  return m;
}

double determinant(const Matrix& a) {
  if (a.size1() != a.size2()) throw std::invalid_argument("Matrix must be square.");
  Matrix lu = a;
  ublas::permutation_matrix<std::size_t> pivots(lu.size1());
  if (ublas::lu_factorize(lu, pivots) != 0) return 0.0;
  double det = 1.0;
  for (std::size_t i = 0; i < lu.size1(); ++i) {
    det *= lu(i, i);
    if (pivots(i) != i) det = -det;
  }
  return det;
}

bool invertMatrix(const Matrix& a, Matrix& out) {
  if (a.size1() != a.size2()) return false;
  Matrix lu = a;
  ublas::permutation_matrix<std::size_t> pivots(lu.size1());
  if (ublas::lu_factorize(lu, pivots) != 0) return false;
  Matrix inverse = identityMatrix(lu.size1());
  ublas::lu_substitute(lu, pivots, inverse);
  for (double v : inverse.data()) {
    if (!std::isfinite(v)) return false;
  }
  out = std::move(inverse);
  return true;
}

double smallestScaledPivot(const Matrix& a) {
  const std::size_t n = a.size1();
  if (n == 0 || a.size2() != n) return 0.0;
  Vector scale(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (!(a(i, i) > 0.0) || !std::isfinite(a(i, i))) return 0.0;
    scale[i] = 1.0 / std::sqrt(a(i, i));
  }
  Matrix l = zeroMatrix(n, n);
  double smallest = 1.0;
  for (std::size_t j = 0; j < n; ++j) {
    double d = a(j, j) * scale[j] * scale[j];
    for (std::size_t k = 0; k < j; ++k) d -= l(j, k) * l(j, k);
    smallest = std::min(smallest, d);
    if (!(d > 0.0)) return 0.0;
    l(j, j) = std::sqrt(d);
    for (std::size_t i = j + 1; i < n; ++i) {
      double s = a(i, j) * scale[i] * scale[j];
      for (std::size_t k = 0; k < j; ++k) s -= l(i, k) * l(j, k);
      l(i, j) = s / l(j, j);
    }
  }
  return smallest;
}

Matrix invertMatrixOrThrow(const Matrix& a) {
  Matrix out;
  if (!invertMatrix(a, out)) throw std::runtime_error("Matrix inversion failed");
  return out;
}

Vector multiply(const Matrix& a, const Vector& x) {
  Vector y(a.size1(), 0.0);
  for (std::size_t i = 0; i < a.size1(); ++i) {
    double s = 0.0;
    for (std::size_t j = 0; j < a.size2() && j < x.size(); ++j) s += a(i, j) * x[j];
    y[i] = s;
  }
  return y;
}

Matrix multiply(const Matrix& a, const Matrix& b) { return ublas::prod(a, b); }

Matrix congruence(const Matrix& t, const Matrix& m) {
  const Matrix tm = ublas::prod(t, m);
  return ublas::prod(tm, ublas::trans(t));
}

double quadraticForm(const Matrix& m, const Vector& x) {
  double s = 0.0;
  for (std::size_t i = 0; i < m.size1(); ++i) {
    double row = 0.0;
    for (std::size_t j = 0; j < m.size2(); ++j) row += m(i, j) * x[j];
    s += x[i] * row;
  }
  return s;
}

}  // namespace medanlys

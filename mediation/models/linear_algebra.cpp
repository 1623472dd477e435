#include "models/linear_algebra.h"

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

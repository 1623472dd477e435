// Small dense matrix algebra for the q x q systems of the model fits (q = number of
// coefficients). Hot loops over cases work on plain arrays; this is for the rest.
#pragma once

#ifndef BOOST_UBLAS_NDEBUG
#define BOOST_UBLAS_NDEBUG 1  // uBLAS's debug checks cost O(q^3) per LU; keep them off
#endif
#include <boost/numeric/ublas/matrix.hpp>
#include <vector>

namespace medanlys {

using Matrix = boost::numeric::ublas::matrix<double>;  // row-major
using Vector = std::vector<double>;

Matrix zeroMatrix(std::size_t rows, std::size_t cols);
Matrix identityMatrix(std::size_t n);

// Determinant by LU factorisation with partial pivoting: the product of U's diagonal,
// negated once per row whose pivot is another row. Throws std::invalid_argument("Matrix
// must be square.") for a non-square matrix; 0 when a pivot is exactly zero.
double determinant(const Matrix& a);

// Inverse by LU factorisation with partial pivoting and substitution against the
// identity. False (out untouched) when a pivot is exactly zero or the result is not
// finite.
bool invertMatrix(const Matrix& a, Matrix& out);

// The smallest Cholesky pivot of the matrix scaled to a unit diagonal: for a cross-product
// matrix X'WX the pivot of column j is 1 - R^2 of column j on the columns before it
// (uncentred), so a value near 0 means a column is a linear combination of others. 0 for a
// matrix that is not positive definite.
double smallestScaledPivot(const Matrix& a);
constexpr double kCollinearPivot = 1e-12;
// The same, throwing std::runtime_error("Matrix inversion failed").
Matrix invertMatrixOrThrow(const Matrix& a);

Vector multiply(const Matrix& a, const Vector& x);
Matrix multiply(const Matrix& a, const Matrix& b);
// t * m * t^T.
Matrix congruence(const Matrix& t, const Matrix& m);
// x^T * m * x.
double quadraticForm(const Matrix& m, const Vector& x);

}  // namespace medanlys

// Forward-mode automatic differentiation: a value with its gradient with respect to the
// parameter vector. The effect formulas are written once for double and for Dual, and the
// Dual form gives the delta method its gradients.
#pragma once

#include <cmath>
#include <vector>

namespace medanlys {

struct Dual {
  double v = 0.0;
  std::vector<double> d;  // empty means a constant (all partial derivatives 0)

  Dual() = default;
  Dual(double value) : v(value) {}  // NOLINT: constants convert implicitly
  // The parameter with index i of n.
  static Dual variable(double value, std::size_t i, std::size_t n) {
    Dual x(value);
    x.d.assign(n, 0.0);
    x.d[i] = 1.0;
    return x;
  }
  double gradient(std::size_t i) const { return d.empty() ? 0.0 : d[i]; }
};

namespace dual_detail {
// a.d * sa + b.d * sb, either side possibly constant.
inline std::vector<double> combine(const Dual& a, double sa, const Dual& b, double sb) {
  const std::size_t n = a.d.empty() ? b.d.size() : a.d.size();
  std::vector<double> out(n, 0.0);
  for (std::size_t i = 0; i < n; ++i) out[i] = sa * a.gradient(i) + sb * b.gradient(i);
  return out;
}
}  // namespace dual_detail

inline Dual operator+(const Dual& a, const Dual& b) {
  Dual r(a.v + b.v);
  if (!a.d.empty() || !b.d.empty()) r.d = dual_detail::combine(a, 1.0, b, 1.0);
  return r;
}
inline Dual operator-(const Dual& a, const Dual& b) {
  Dual r(a.v - b.v);
  if (!a.d.empty() || !b.d.empty()) r.d = dual_detail::combine(a, 1.0, b, -1.0);
  return r;
}
inline Dual operator-(const Dual& a) { return Dual(0.0) - a; }
inline Dual operator*(const Dual& a, const Dual& b) {
  Dual r(a.v * b.v);
  if (!a.d.empty() || !b.d.empty()) r.d = dual_detail::combine(a, b.v, b, a.v);
  return r;
}
inline Dual operator/(const Dual& a, const Dual& b) {
  Dual r(a.v / b.v);
  if (!a.d.empty() || !b.d.empty()) r.d = dual_detail::combine(a, 1.0 / b.v, b, -a.v / (b.v * b.v));
  return r;
}
inline Dual exp(const Dual& a) {
  Dual r(std::exp(a.v));
  if (!a.d.empty()) r.d = dual_detail::combine(a, r.v, Dual(), 0.0);
  return r;
}

inline double valueOf(double x) { return x; }
inline double valueOf(const Dual& x) { return x.v; }

}  // namespace medanlys

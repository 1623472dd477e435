// Simulated cases for the benchmarks: a binary exposure, a mediator and an outcome that
// follow the linear mediation model, and three covariates.
#pragma once

#include <random>

#include "effects/bootstrap.h"

inline medanlys::BootstrapCases benchCases(std::size_t n) {
  medanlys::BootstrapCases c;
  c.n = n;
  c.p = 3;
  std::mt19937 gen(20261122);
  std::normal_distribution<double> normal;
  for (std::size_t i = 0; i < n; ++i) {
    const double a = (i % 2 == 0) ? 1.0 : 0.0;
    const double c1 = normal(gen), c2 = normal(gen), c3 = normal(gen);
    const double m = 0.4 * a + 0.2 * c1 - 0.1 * c2 + normal(gen);
    const double y = 1 + 0.5 * a + 0.7 * m + 0.2 * a * m + 0.1 * c1 + 0.3 * c3 + normal(gen);
    c.exposure.push_back(a);
    c.mediator.push_back(m);
    c.outcome.push_back(y);
    c.weights.push_back(1.0);
    c.covariates.insert(c.covariates.end(), {c1, c2, c3});
  }
  return c;
}

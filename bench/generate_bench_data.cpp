// Writes N simulated cases as CSV for timing command-line runs: a binary exposure A, a
// continuous mediator M with a continuous outcome Y, a binary outcome YB (logistic, about
// 20% events), a Poisson count YC, an overdispersed count YN (negative binomial, k = 0.5),
// a binary mediator MB with the outcome YM, and three covariates C1..C3.
// Usage: generate_bench_data N FILE
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s N FILE\n", argv[0]);
    return 2;
  }
  const long n = std::atol(argv[1]);
  FILE* out = std::fopen(argv[2], "w");
  if (!out || n <= 0) return 1;
  std::mt19937 gen(static_cast<unsigned>(n));
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  std::fprintf(out, "A,M,Y,C1,C2,C3,YB,YC,YN,MB,YM\n");
  for (long i = 0; i < n; ++i) {
    const int a = i % 2 == 0;
    const double c1 = normal(gen), c2 = normal(gen), c3 = normal(gen);
    const double m = 0.4 * a + 0.2 * c1 - 0.1 * c2 + normal(gen);
    const double y = 1 + 0.5 * a + 0.7 * m + 0.2 * a * m + 0.1 * c1 + 0.3 * c3 + normal(gen);
    const double logit = -2.0 + 0.4 * a + 0.5 * m + 0.2 * c1 - 0.2 * c3;
    const int yb = uniform(gen) < 1.0 / (1.0 + std::exp(-logit));
    const double rate = std::exp(0.3 + 0.3 * a + 0.25 * m + 0.1 * c1);
    const int yc = std::poisson_distribution<int>(rate)(gen);
    // Negative binomial as a gamma mixture of Poissons: Var = mu + k mu^2 with k = 0.5.
    const double mixed = std::gamma_distribution<double>(2.0, 0.5)(gen) * rate;
    const int yn = std::poisson_distribution<int>(mixed)(gen);
    const int mb = uniform(gen) < 1.0 / (1.0 + std::exp(-(-0.5 + 0.8 * a + 0.3 * c1)));
    const double ym = 1 + 0.5 * a + 0.7 * mb + 0.2 * a * mb + 0.1 * c1 + 0.3 * c3 + normal(gen);
    std::fprintf(out, "%d,%.6f,%.6f,%.6f,%.6f,%.6f,%d,%d,%d,%d,%.6f\n", a, m, y, c1, c2, c3, yb,
                 yc, yn, mb, ym);
  }
  return std::fclose(out) == 0 ? 0 : 1;
}

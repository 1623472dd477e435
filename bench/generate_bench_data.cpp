// Writes N simulated cases as CSV (A, M, Y, C1, C2, C3) for timing command-line runs.
// Usage: generate_bench_data N FILE
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
  std::fprintf(out, "A,M,Y,C1,C2,C3\n");
  for (long i = 0; i < n; ++i) {
    const int a = i % 2 == 0;
    const double c1 = normal(gen), c2 = normal(gen), c3 = normal(gen);
    const double m = 0.4 * a + 0.2 * c1 - 0.1 * c2 + normal(gen);
    const double y = 1 + 0.5 * a + 0.7 * m + 0.2 * a * m + 0.1 * c1 + 0.3 * c3 + normal(gen);
    std::fprintf(out, "%d,%.6f,%.6f,%.6f,%.6f,%.6f\n", a, m, y, c1, c2, c3);
  }
  return std::fclose(out) == 0 ? 0 : 1;
}

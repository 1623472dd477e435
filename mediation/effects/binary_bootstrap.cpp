#include "effects/binary_bootstrap.h"

#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <stdexcept>

#include "effects/resample_loop.h"
#include "models/fit_error.h"

namespace medanlys {
namespace {

std::string percent(double rate) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", rate * 100.0);
  return text;
}

}  // namespace

int validateBinaryBootstrap(int nb, int level, std::vector<std::string>& log) {
  if (nb < 100) throw FitError("Bootstrap samples (NB) must be at least 100.", "NB must be >= 100");
  if (nb < 500) {
    log.push_back("Warning: NB < 500; increased to 1000 for precision");
    nb = 1000;
  }
  if (level < 1 || level > 99) {
    throw FitError("Confidence level must be between 0 and 100 (exclusive).",
                   "Confidence level must be between 0 and 100");
  }
  return nb;
}

bool pilotBootstrap(const BootstrapCases& cases, const ReplicateFitter& fit, int seed,
                    stathost::ACAStopProcessor* stop, std::vector<std::string>& log) {
  log.push_back("Running pilot bootstrap (100 iterations) to check failure rate");
  const WeightedSampler sampler(cases.n, cases.weights);
  Vector weights(cases.n);
  int failures = 0;
  for (int i = 0; i < 100; ++i) {
    if (stop && stop->CheckCancel()) throw std::runtime_error("Pilot bootstrap cancelled by user");
    std::mt19937 generator(static_cast<std::uint32_t>(seed + i));
    resampleWeights(cases, sampler, generator, weights);
    const ReplicateResult r = fit(i, weights, false);
    if (!r.ok) {
      ++failures;
      log.push_back("Pilot iteration " + std::to_string(i) + " failed: " + r.reason);
    }
  }
  const double rate = failures / 100.0;
  if (rate > 0.1) {
    log.push_back("Pilot run failure rate (" + percent(rate) +
                  "%) > 10%; enabling Firth's penalized logistic regression");
    return true;
  }
  log.push_back("Pilot run failure rate (" + percent(rate) + "%) <= 10%; using standard MLE");
  return false;
}

BinaryBootstrapRun mainBootstrap(const BootstrapCases& cases, const ReplicateFitter& fit, int nb,
                                 int seed, bool firth, stathost::ACAStopProcessor* stop,
                                 stathost::ProcedureProgress* progress,
                                 std::vector<std::string>& log) {
  log.push_back("Running main bootstrap with " + std::to_string(nb) + " iterations");
  log.push_back("Using " + std::to_string(omp_get_max_threads()) + " threads for bootstrap");
  BinaryBootstrapRun run;
  run.store.replicates.assign(static_cast<std::size_t>(nb), EffectEstimates());
  run.store.success.assign(static_cast<std::size_t>(nb), 0);
  const double start = omp_get_wtime();
  std::mutex shared;  // counters and reasons
  const bool finished =
      forEachResample(cases, nb, seed, stop, progress, [&](int b, const Vector& weights) {
        const ReplicateResult r = fit(b, weights, firth);
        std::lock_guard<std::mutex> lock(shared);
        if (r.ok) {
          run.store.replicates[static_cast<std::size_t>(b)] = r.effects;
          run.store.success[static_cast<std::size_t>(b)] = 1;
          ++run.successes;
        } else {
          ++run.failures;
          run.reasons.push_back(r.reason);
        }
      });
  run.store.completed = run.successes + run.failures;
  run.store.failures = run.failures;
  run.store.cancelled = !finished;
  if (!finished) {
    if (run.store.completed == 0) throw std::runtime_error("Bootstrap analysis cancelled by user");
    log.push_back("Bootstrap stopped by the user after " + std::to_string(run.store.completed) +
                  " of " + std::to_string(nb) + " iterations");
  }
  char line[128];
  std::snprintf(line, sizeof line, "Bootstrap completed in %.0f ms (%ld successful)",
                (omp_get_wtime() - start) * 1000.0, run.successes);
  log.push_back(line);
  return run;
}

void applyFailurePolicy(const BinaryBootstrapRun& run, int nb, std::vector<std::string>& log,
                        const std::function<void(const std::string&)>& warn) {
  // The replicates that ran: all of them, or those that finished before the user stopped
  // (the run keeps those; the replicate loop told the user).
  const long ran = run.store.cancelled ? run.store.completed : nb;
  const double f = static_cast<double>(run.failures) / static_cast<double>(std::max(ran, 1L));
  if (f > 0.2 || static_cast<double>(run.successes) < 0.8 * static_cast<double>(ran)) {
    const std::string text = "High failure rate (" + percent(f) + "%) or too few successes (" +
                             std::to_string(run.successes) +
                             "). Try:\n1. Set use_firth=True in mediation_regression_binary\n"
                             "2. Increase NB (e.g., to 2000)\n3. Check data for separation\n"
                             "4. Remove collinear covariates";
    warn(text);
    throw std::runtime_error(text);
  }
  if (f > 0.1)
    log.push_back("Warning: Moderate failure rate (" + percent(f) +
                  "%). Results may be less reliable.");
  log.push_back("Bootstrap finished: " + std::to_string(run.successes) + " successes, " +
                std::to_string(run.failures) + " failures (out of " + std::to_string(ran) + ")");
  if (!run.reasons.empty()) {
    log.push_back("First few failure reasons (up to 5):");
    for (std::size_t i = 0; i < run.reasons.size() && i < 5; ++i)
      log.push_back("  - " + run.reasons[i]);
  }
}

void printBootstrapSummary(std::ostream& out,
                           const std::map<std::string, BootstrapSummary>& summaries,
                           const BinaryBootstrapRun& run, int nb, int level) {
  char line[256];
  // A run the user stopped is summarised over the replicates that ran.
  const long ran = run.store.cancelled ? run.store.completed : nb;
  out << "BOOTSTRAP RESULTS SUMMARY\n";
  out << "Bootstrap iterations: " << ran;
  if (run.store.cancelled) out << " of " << nb << " (stopped by the user)";
  out << "\n";
  out << "Confidence level: " << level << "%\n";
  out << "\nMAIN EFFECTS:\n";
  std::snprintf(line, sizeof line, "%-10s %12s %12s %28s %10s\n", "Effect", "Estimate", "Bias",
                "BCa CI", "p-value");
  out << line;
  for (const char* name : {"CDE", "NDE", "NIE", "TE", "PIE", "PE", "TDE", "PAI", "PM"}) {
    const auto it = summaries.find(name);
    if (it == summaries.end()) continue;
    const BootstrapSummary& s = it->second;
    std::snprintf(line, sizeof line, "%-10s %12.4f %12.4f   [%11.4f, %11.4f] %10.4f\n", name,
                  s.estimate, s.bias, s.bcaLower, s.bcaUpper, s.p);
    out << line;
  }
  out << "\nRATIOS (%):\n";
  for (const char* name : {"Percent_INT", "Percent_ELIM", "r_CDE", "r_NDE", "r_NIE", "r_PE",
                           "r_TDE", "r_PIE", "r_INT_med", "r_INT_ref", "r_PAI"}) {
    const auto it = summaries.find(name);
    if (it == summaries.end()) continue;
    std::snprintf(line, sizeof line, "%-12s %12.4f   [%11.4f, %11.4f]\n", name, it->second.estimate,
                  it->second.bcaLower, it->second.bcaUpper);
    out << line;
  }
  out << "\nDIAGNOSTICS:\n";
  std::snprintf(
      line, sizeof line, "Success rate: %.1f%%\n",
      100.0 * static_cast<double>(run.successes) / static_cast<double>(std::max(ran, 1L)));
  out << line << "Failure reasons (first 5):\n";
  for (std::size_t i = 0; i < run.reasons.size() && i < 5; ++i)
    out << "  - " << run.reasons[i] << "\n";
  out << "\n=== DETAILED BOOTSTRAP DISTRIBUTIONS ===\n";
  for (const EffectField& field : kEffectFields) {
    std::vector<double> values;
    for (std::size_t b = 0; b < run.store.replicates.size(); ++b) {
      const double v = run.store.replicates[b].*field.member;
      if (run.store.success[b] && std::isfinite(v)) values.push_back(v);
    }
    if (values.empty()) continue;
    std::sort(values.begin(), values.end());
    double sum = 0.0;
    for (double v : values) sum += v;
    const std::size_t n = values.size();
    const double median = n % 2 ? values[n / 2] : 0.5 * (values[n / 2 - 1] + values[n / 2]);
    std::snprintf(line, sizeof line, "%s: n=%zu, mean=%g, median=%g, range=[%g, %g]\n", field.name,
                  n, sum / static_cast<double>(n), median, values.front(), values.back());
    out << line;
  }
}

}  // namespace medanlys

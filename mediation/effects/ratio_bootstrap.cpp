#include "effects/ratio_bootstrap.h"

#include <omp.h>

#include <cstdio>
#include <mutex>
#include <stdexcept>

#include "effects/resample_loop.h"
#include "effects/strategy_support.h"
#include "models/glm_replicate.h"

namespace medanlys {

RatioReplicate fitRatioReplicate(const RatioReplicateModel& model, const Vector& weights) {
  RatioReplicate r;
  try {
    // The linear mediator model and its residual variance (divisor: total weight -
    // coefficients, as in the full-sample effects).
    Matrix xtwx, inverse;
    Vector xtwy;
    computeXTWX_XTWY_diagonalWeights(model.mediatorX, model.mediator, weights, xtwx, xtwy);
    if (!invertMatrix(xtwx, inverse)) {
      r.reason = "Mediator regression failed in bootstrap iteration.";
      return r;
    }
    const Vector beta = multiply(inverse, xtwy);
    const DesignMatrix& mX = model.mediatorX;
    double ssr = 0.0, totalWeight = 0.0;
    for (std::size_t i = 0; i < mX.n; ++i) {
      if (weights[i] == 0.0) continue;
      totalWeight += weights[i];
      double fitted = 0.0;
      const double* row = mX.row(i);
      for (std::size_t j = 0; j < mX.q; ++j) fitted += row[j] * beta[j];
      const double e = model.mediator[i] - fitted;
      ssr += weights[i] * e * e;
    }
    const double df = totalWeight - static_cast<double>(mX.q);
    if (df <= 0.0) {
      r.reason = "Bootstrap sample too small";
      return r;
    }

    Vector theta;
    if (model.estimateDispersion) {
      double k = 0.0;
      if (!fitReplicateNegativeBinomial(model.outcome.X, model.outcome.y, weights, model.options,
                                        theta, k)) {
        r.reason =
            "Outcome regression failed in bootstrap iteration: the negative binomial "
            "model did not converge";
        return r;
      }
    } else if (!fitReplicateCoefficients(model.outcome.X, model.outcome.y, weights, model.family,
                                         model.options, theta)) {
      r.reason = "Outcome regression did not converge in bootstrap iteration";
      return r;
    }

    RatioModelParameters p;
    p.models = modelParameters(beta, theta, model.interaction);
    p.sigma2 = ssr / df;
    const std::vector<RatioEffectValue> effects =
        computeRatioEffects(p, model.reference, model.prefix, false);
    r.values.reserve(effects.size());
    for (const RatioEffectValue& e : effects) r.values.push_back(e.estimate);
    r.ok = true;
  } catch (const std::exception& e) {
    r.reason = std::string("Bootstrap iteration failed: ") + e.what();
  }
  return r;
}

RatioBootstrapRun runRatioBootstrap(const BootstrapCases& cases, const RatioReplicateFitter& fit,
                                    int nb, int seed, stathost::ACAStopProcessor* stop,
                                    stathost::ProcedureProgress* progress,
                                    std::vector<std::string>& log) {
  log.push_back("Running bootstrap with " + std::to_string(nb) + " iterations");
  log.push_back("Using " + std::to_string(omp_get_max_threads()) + " threads for bootstrap");
  RatioBootstrapRun run;
  run.values.assign(static_cast<std::size_t>(nb), Vector());
  run.success.assign(static_cast<std::size_t>(nb), 0);
  const double start = omp_get_wtime();
  std::mutex shared;  // counters and reasons
  const bool finished =
      forEachResample(cases, nb, seed, stop, progress, [&](int b, const Vector& weights) {
        RatioReplicate r = fit(weights);
        const auto slot = static_cast<std::size_t>(b);
        if (r.ok) {
          run.values[slot] = std::move(r.values);
          run.success[slot] = 1;
        }
        std::lock_guard<std::mutex> lock(shared);
        if (r.ok) {
          ++run.successes;
        } else {
          ++run.failures;
          run.reasons.push_back(r.reason);
        }
      });
  // A run the user stopped keeps the replicates that finished (the replicate loop told the
  // user); only a run without any is abandoned.
  if (!finished) {
    const long ran = run.successes + run.failures;
    if (ran == 0) throw std::runtime_error("Bootstrap analysis cancelled by user");
    log.push_back("Bootstrap stopped by the user after " + std::to_string(ran) + " of " +
                  std::to_string(nb) + " iterations");
  }
  char line[128];
  std::snprintf(line, sizeof line, "Bootstrap completed in %.0f ms (%ld successful)",
                (omp_get_wtime() - start) * 1000.0, run.successes);
  log.push_back(line);
  return run;
}

void checkRatioBootstrap(const RatioBootstrapRun& run, int nb, std::vector<std::string>& log) {
  // The replicates that ran: all of them, or fewer when the user stopped the run.
  const long ran = run.successes + run.failures;
  log.push_back("Bootstrap finished: " + std::to_string(run.successes) + " successes, " +
                std::to_string(run.failures) + " failures (out of " + std::to_string(ran) +
                (ran < nb ? " run of " + std::to_string(nb) : std::string()) + ")");
  if (!run.reasons.empty()) {
    log.push_back("First few failure reasons (up to 5):");
    for (std::size_t i = 0; i < run.reasons.size() && i < 5; ++i)
      log.push_back("  - " + run.reasons[i]);
  }
  if (static_cast<double>(run.successes) < 0.8 * static_cast<double>(ran)) {
    throw std::runtime_error("Bootstrap failed: Only " + std::to_string(run.successes) +
                             " successful iterations out of " + std::to_string(ran));
  }
}

std::map<std::string, BootstrapSummary> summarizeRatioBootstrap(
    const RatioBootstrapRun& run, const std::vector<RatioEffectValue>& full, double level,
    std::vector<std::string>& log) {
  std::map<std::string, BootstrapSummary> out;
  for (std::size_t k = 0; k < full.size(); ++k) {
    std::vector<double> values;
    for (std::size_t b = 0; b < run.values.size(); ++b) {
      if (run.success[b] && k < run.values[b].size()) values.push_back(run.values[b][k]);
    }
    out[full[k].name] = summarizeReplicateValues(full[k].name, std::move(values), full[k].estimate,
                                                 level, full[k].ratio, log);
  }
  return out;
}

}  // namespace medanlys

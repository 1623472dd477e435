#include "effects/bootstrap.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <boost/math/distributions/normal.hpp>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "models/linear_algebra.h"

namespace medanlys {
namespace {

bool wholeNumbers(const Vector& w) {
  return std::all_of(w.begin(), w.end(), [](double v) { return v >= 0 && v == std::floor(v); });
}

}  // namespace

WeightedSampler::WeightedSampler(std::size_t n, const Vector& weights) {
  if (weights.size() != n) throw std::invalid_argument("Weights size must match N");
  cumulative_.resize(n);
  double running = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    running += weights[i];
    cumulative_[i] = running;
  }
  total_ = running;
  if (!(total_ > 0.0)) throw std::invalid_argument("Total weight must be positive");
  // A table of weight units pays off while it is not much longer than the data.
  if (wholeNumbers(weights) && total_ <= static_cast<double>(4 * n + 16)) {
    unitOwner_.resize(static_cast<std::size_t>(total_));
    std::size_t unit = 0;
    for (std::size_t i = 0; i < n; ++i) {
      for (double k = 0; k < weights[i]; ++k) unitOwner_[unit++] = static_cast<std::uint32_t>(i);
    }
  }
}

std::size_t WeightedSampler::draw(std::mt19937& generator) const {
  // U in [0, 1) from one 32-bit draw.
  const double u = static_cast<double>(generator()) * 0x1p-32 * total_;
  if (!unitOwner_.empty()) {
    // The first running sum not below u is the owner of weight unit ceil(u) (u = 0: case 0).
    const double c = std::ceil(u);
    return c < 1.0 ? 0 : unitOwner_[static_cast<std::size_t>(c) - 1];
  }
  const auto it = std::lower_bound(cumulative_.begin(), cumulative_.end(), u);
  return std::min<std::size_t>(static_cast<std::size_t>(it - cumulative_.begin()),
                               cumulative_.size() - 1);
}

std::vector<std::size_t> weightedResample(std::size_t n, const Vector& weights,
                                          std::mt19937& generator) {
  const WeightedSampler sampler(n, weights);
  std::vector<std::size_t> indices(n);
  for (std::size_t& i : indices) i = sampler.draw(generator);
  return indices;
}

namespace {

// Per-thread scratch space: case multiplicities, the cross-products and one design row.
struct Workspace {
  std::vector<std::uint32_t> counts;
  Vector xx;  // lower triangle of the outcome system's X'WX, packed row by row
  Vector xy;  // X'Wy of the outcome system
  Vector x;
};

// Adds count_i * w_i * x_i x_i' and count_i * w_i * x_i y_i over the cases, x_i the outcome
// row 1, a, m, [a m], covariates.
void accumulate(const BootstrapCases& c, bool interaction, Workspace& ws) {
  const std::size_t q = (interaction ? 4 : 3) + c.p;
  const std::size_t covStart = interaction ? 4 : 3;
  std::fill(ws.xx.begin(), ws.xx.end(), 0.0);
  std::fill(ws.xy.begin(), ws.xy.end(), 0.0);
  double* x = ws.x.data();
  double* xx = ws.xx.data();
  double* xy = ws.xy.data();
  for (std::size_t i = 0; i < c.n; ++i) {
    const std::uint32_t count = ws.counts[i];
    if (count == 0) continue;
    const double w = count * c.weights[i];
    const double a = c.exposure[i], m = c.mediator[i], y = c.outcome[i];
    const double* cov = c.covariates.data() + i * c.p;
    x[0] = 1.0;
    x[1] = a;
    x[2] = m;
    if (interaction) x[3] = a * m;
    for (std::size_t j = 0; j < c.p; ++j) x[covStart + j] = cov[j];
    double* cell = xx;
    for (std::size_t r = 0; r < q; ++r) {
      const double wx = w * x[r];
      xy[r] += wx * y;
      for (std::size_t s = 0; s <= r; ++s) cell[s] += wx * x[s];
      cell += r + 1;
    }
  }
}

// One pass over the cases in file order, each with weight count_i * w_i, forms the outcome
// system on the columns 1, a, m, [a m], covariates. The mediator system (columns 1, a,
// covariates; response m) is a part of it: its X'WX is the outcome X'WX without the m and
// a m rows and columns, and its X'Wm is the m column of the outcome X'WX.
bool fitReplicate(const BootstrapCases& c, bool interaction, Workspace& ws,
                  ContinuousModelParameters& out) {
  const std::size_t qo = (interaction ? 4 : 3) + c.p;
  const std::size_t covStart = interaction ? 4 : 3;
  accumulate(c, interaction, ws);
  const double* xx = ws.xx.data();
  auto at = [&](std::size_t r, std::size_t s) {
    return r >= s ? xx[r * (r + 1) / 2 + s] : xx[s * (s + 1) / 2 + r];
  };
  Matrix outcomeXX(qo, qo);
  for (std::size_t r = 0; r < qo; ++r) {
    for (std::size_t s = 0; s < qo; ++s) outcomeXX(r, s) = at(r, s);
  }
  // Mediator columns within the outcome system.
  std::vector<std::size_t> columns = {0, 1};
  for (std::size_t j = 0; j < c.p; ++j) columns.push_back(covStart + j);
  const std::size_t qm = columns.size();
  Matrix mediatorXX(qm, qm);
  Vector mediatorXy(qm);
  for (std::size_t r = 0; r < qm; ++r) {
    mediatorXy[r] = at(columns[r], 2);
    for (std::size_t s = 0; s < qm; ++s) mediatorXX(r, s) = at(columns[r], columns[s]);
  }
  Matrix inverse;
  if (!invertMatrix(mediatorXX, inverse)) return false;
  const Vector b = multiply(inverse, mediatorXy);
  if (!invertMatrix(outcomeXX, inverse)) return false;
  const Vector t = multiply(inverse, ws.xy);
  out.interaction = interaction;
  out.beta_0 = b[0];
  out.beta_1 = b[1];
  out.beta_2.assign(b.begin() + 2, b.end());
  out.theta_0 = t[0];
  out.theta_1 = t[1];
  out.theta_2 = t[2];
  out.theta_3 = interaction ? t[3] : 0.0;
  out.theta_4.assign(t.begin() + static_cast<std::ptrdiff_t>(covStart), t.end());
  return true;
}

}  // namespace

BootstrapStore runBootstrap(const BootstrapCases& cases, int nb, int seed,
                            const ReferencePoint& reference, bool interaction,
                            stathost::ACAStopProcessor* stop,
                            stathost::ProcedureProgress* progress) {
  if (cases.n == 0) throw std::invalid_argument("Dataset D is empty");
  if (nb <= 0) throw std::invalid_argument("NB must be positive");
  const WeightedSampler sampler(cases.n, cases.weights);
  BootstrapStore store;
  store.replicates.assign(static_cast<std::size_t>(nb), EffectEstimates());
  store.success.assign(static_cast<std::size_t>(nb), 0);
  bool cancelled = false;
  long failures = 0;
  std::atomic<long> completed{0};
  const std::size_t qo = (interaction ? 4 : 3) + cases.p;

#pragma omp parallel num_threads(omp_get_max_threads()) reduction(+ : failures)
  {
    Workspace ws;
    ws.counts.assign(cases.n, 0);
    ws.xx.assign(qo * (qo + 1) / 2, 0.0);
    ws.xy.assign(qo, 0.0);
    ws.x.assign(qo, 0.0);
    const int thread = omp_get_thread_num();
#pragma omp for schedule(dynamic)
    for (int b = 0; b < nb; ++b) {
      if (b % 10 == 0) {
        if (stop && stop->CheckCancel()) {
#pragma omp critical(bootstrap_cancel)
          cancelled = true;
        }
        if (progress) progress->advance(completed.load(std::memory_order_relaxed));
      }
      bool skip;
#pragma omp critical(bootstrap_cancel)
      skip = cancelled;
      if (skip) continue;
      std::mt19937 generator(static_cast<std::uint32_t>(thread * 1000 + seed + b));
      std::fill(ws.counts.begin(), ws.counts.end(), 0u);
      for (std::size_t k = 0; k < cases.n; ++k) ++ws.counts[sampler.draw(generator)];
      ContinuousModelParameters parameters;
      bool ok = false;
      try {
        ok = fitReplicate(cases, interaction, ws, parameters);
        if (ok)
          store.replicates[static_cast<std::size_t>(b)] = computeEffects(parameters, reference);
      } catch (const std::exception&) {
        ok = false;  // overflow in the effects: a failed replicate
      }
      store.success[static_cast<std::size_t>(b)] = ok ? 1 : 0;
      if (!ok) ++failures;
      completed.fetch_add(1, std::memory_order_relaxed);
    }
  }
  store.failures = failures;
  store.completed = completed.load();
  store.cancelled = cancelled;
  return store;
}

std::pair<long, long> percentilePositions(std::size_t n, double alpha) {
  const double m = static_cast<double>(n) + 1.0;
  // A tiny allowance so that (n + 1) alpha = 25.0 is not read as 24.999999.
  return {static_cast<long>(std::floor(m * alpha + 1e-9)),
          static_cast<long>(std::floor((1.0 - alpha) * m + 1e-9))};
}

BootstrapSummary summarizeReplicateValues(const std::string& name, std::vector<double> values,
                                          double estimate, double level, bool ratio,
                                          std::vector<std::string>& log) {
  const boost::math::normal normal;
  const double pLevel = (level / 100.0 + 1.0) * 0.5;
  const double alpha = 1.0 - pLevel;
  BootstrapSummary s;
  s.estimate = estimate;
  values.erase(
      std::remove_if(values.begin(), values.end(), [](double v) { return !std::isfinite(v); }),
      values.end());
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  s.n = static_cast<double>(n);
  if (n == 0) {
    log.push_back("Warning: No valid estimates for " + name);
    return s;
  }
  double sum = 0.0;
  for (double v : values) sum += v;
  s.mean = sum / static_cast<double>(n);
  if (n >= 2) {
    double ss = 0.0;
    for (double v : values) ss += (v - s.mean) * (v - s.mean);
    s.se = std::sqrt(ss / static_cast<double>(n - 1));
  }
  s.bias = s.mean - s.estimate;

  const auto [lo, hi] = percentilePositions(n, alpha);
  if (lo < static_cast<long>(n) && hi < static_cast<long>(n) && lo >= 0 && hi >= 0) {
    s.percentileLower = values[static_cast<std::size_t>(lo)];
    s.percentileUpper = values[static_cast<std::size_t>(hi)];
  } else {
    log.push_back("Warning: CI indices out of bounds for " + name);
  }

  // BCa: z0 from the share of values below the estimate, the acceleration from the
  // skewness of the replicate values about their mean.
  std::size_t below = 0;
  for (double v : values) below += v < s.estimate ? 1 : 0;
  const double share = static_cast<double>(below) / static_cast<double>(n);
  const double z0 = share > 0.0 && share < 1.0 ? boost::math::quantile(normal, share) : NAN;
  double d2 = 0.0, d3 = 0.0;
  for (double v : values) {
    const double d = s.mean - v;
    d2 += d * d;
    d3 += d * d * d;
  }
  const double a = d2 > 0.0 ? d3 / (6.0 * std::pow(d2, 1.5)) : 0.0;
  const double za = boost::math::quantile(normal, alpha);
  if (std::isfinite(z0)) {
    const double a1 = boost::math::cdf(normal, z0 + (za + z0) / (1.0 - a * (za + z0)));
    const double a2 = boost::math::cdf(normal, z0 + (z0 - za) / (1.0 - a * (z0 - za)));
    const auto bLo = static_cast<long>(std::floor((static_cast<double>(n) + 1.0) * a1));
    const auto bHi = static_cast<long>(std::floor((1.0 - a2) * (static_cast<double>(n) + 1.0)));
    if (bLo >= 0 && bHi >= 0 && bLo < static_cast<long>(n) && bHi < static_cast<long>(n)) {
      s.bcaLower = values[static_cast<std::size_t>(bLo)];
      s.bcaUpper = values[static_cast<std::size_t>(bHi)];
    } else {
      log.push_back("Warning: BCa CI indices out of bounds for " + name);
    }
    // The upper limit above keeps its historical position (1 - a2)(n + 1), which lies in
    // the lower tail; the interval the tables show as BCa takes the upper limit at the
    // a2 quantile, so that it brackets the centre of the replicates.
    const auto upper = static_cast<long>(std::floor(a2 * (static_cast<double>(n) + 1.0)));
    if (upper >= 0 && upper < static_cast<long>(n)) {
      s.bcaIntervalUpper = values[static_cast<std::size_t>(upper)];
    }
  }

  // Normal interval and p value. A ratio is tested against 1 on the log scale, where its
  // sampling distribution is near normal: z = log R / SD(log R_b), limits exp(log R -/+ q SD).
  const double q = boost::math::quantile(normal, pLevel);
  if (ratio) {
    double logSum = 0.0, logSq = 0.0;
    std::size_t positive = 0;
    for (double v : values) {
      if (v <= 0.0) continue;
      logSum += std::log(v);
      ++positive;
    }
    const double logMean = positive ? logSum / static_cast<double>(positive) : NAN;
    for (double v : values) {
      if (v > 0.0) logSq += (std::log(v) - logMean) * (std::log(v) - logMean);
    }
    const double logSe = positive >= 2 ? std::sqrt(logSq / static_cast<double>(positive - 1)) : NAN;
    if (std::isfinite(logSe) && logSe >= 1e-12 && s.estimate > 0.0) {
      s.z = std::log(s.estimate) / logSe;
      s.p = 2.0 * boost::math::cdf(boost::math::complement(normal, std::fabs(s.z)));
      s.normalLower = std::exp(std::log(s.estimate) - q * logSe);
      s.normalUpper = std::exp(std::log(s.estimate) + q * logSe);
    }
  } else if (std::isfinite(s.se) && std::fabs(s.se) >= 1e-12) {
    s.z = s.estimate / s.se;
    s.p = 2.0 * boost::math::cdf(boost::math::complement(normal, std::fabs(s.z)));
    s.normalLower = s.estimate - q * s.se;
    s.normalUpper = s.estimate + q * s.se;
  }
  char line[256];
  std::snprintf(line, sizeof line, "%s: mean=%g, se=%g, bias=%g, percentile CI=[%g, %g]",
                name.c_str(), s.mean, s.se, s.bias, s.percentileLower, s.percentileUpper);
  log.push_back(line);
  return s;
}

std::map<std::string, BootstrapSummary> summarizeBootstrap(const BootstrapStore& store,
                                                           const EffectEstimates& full,
                                                           double level,
                                                           std::vector<std::string>& log) {
  std::map<std::string, BootstrapSummary> out;
  for (const EffectField& field : kEffectFields) {
    std::vector<double> values;
    for (std::size_t b = 0; b < store.replicates.size(); ++b) {
      if (store.success[b]) values.push_back(store.replicates[b].*field.member);
    }
    out[field.name] = summarizeReplicateValues(field.name, std::move(values), full.*field.member,
                                               level, false, log);
  }
  return out;
}

std::map<std::string, double> summaryStatistics(const BootstrapSummary& s) {
  return {{"n", s.n},
          {"estimate", s.estimate},
          {"mean", s.mean},
          {"se", s.se},
          {"bias", s.bias},
          {"percentile_ci_lower", s.percentileLower},
          {"percentile_ci_upper", s.percentileUpper},
          {"bca_ci_lower", s.bcaLower},
          {"bca_ci_upper", s.bcaUpper},
          {"bca_interval_upper", s.bcaIntervalUpper},
          {"normal_ci_lower", s.normalLower},
          {"normal_ci_upper", s.normalUpper},
          {"z", s.z},
          {"p_value", s.p}};
}

}  // namespace medanlys

// Nonparametric bootstrap of the continuous-mediator, continuous-outcome effects: weighted
// resampling of the cases, both models refitted per replicate, the closed-form effects,
// on the OpenMP thread team; then per-effect summaries (percentile, BCa and normal
// intervals).
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "algorithm/mediation_case_data.h"
#include "effects/continuous_effects.h"
#include "stathost/progress.h"
#include "stathost/stop_processor.h"

namespace medanlys {

// The cases on the model scale, as contiguous arrays.
struct BootstrapCases {
  std::size_t n = 0;
  std::size_t p = 0;  // covariate columns
  Vector exposure, mediator, outcome, weights;
  Vector covariates;  // row-major n x p
};

struct BootstrapStore {
  std::vector<EffectEstimates> replicates;
  std::vector<char> success;  // one flag per replicate slot
  long failures = 0;
  long completed = 0;  // replicates that ran (all of them unless cancelled)
  bool cancelled = false;
};

// Draws n case indices with probability proportional to the weights: for u = U * total
// weight, the first case whose running sum is not below u. Throws "Weights size must match
// N" and "Total weight must be positive".
class WeightedSampler {
 public:
  WeightedSampler(std::size_t n, const Vector& weights);
  std::size_t draw(std::mt19937& generator) const;
  std::size_t size() const { return cumulative_.size(); }

 private:
  Vector cumulative_;
  double total_ = 0.0;
  // For whole-number weights with a small total, the case of each unit of weight: the
  // same answer as the search over the running sums, in constant time.
  std::vector<std::uint32_t> unitOwner_;
};
std::vector<std::size_t> weightedResample(std::size_t n, const Vector& weights,
                                          std::mt19937& generator);

// Runs NB replicates; replicate b is seeded with threadNumber * 1000 + seed + b. Throws
// "Dataset D is empty" and "NB must be positive".
BootstrapStore runBootstrap(const BootstrapCases& cases, int nb, int seed,
                            const ReferencePoint& reference, bool interaction,
                            stathost::ACAStopProcessor* stop,
                            stathost::ProcedureProgress* progress);

struct BootstrapSummary {
  double n = 0;
  double estimate = NAN, mean = NAN, se = NAN, bias = NAN;
  double percentileLower = NAN, percentileUpper = NAN;
  double bcaLower = NAN, bcaUpper = NAN;
  double bcaIntervalUpper = NAN;  // the BCa upper limit at the a2 quantile (shown in tables)
  double normalLower = NAN, normalUpper = NAN;
  double z = NAN;
  double p = NAN;
};

// The summary of one effect from its replicate values (non-finite ones are dropped). With
// `ratio` the normal interval and the p value are formed on the log scale against a null of 1.
BootstrapSummary summarizeReplicateValues(const std::string& name, std::vector<double> values,
                                          double estimate, double level, bool ratio,
                                          std::vector<std::string>& log);

// Per effect, in the order of the effect record; warnings and one line per effect go to log.
std::map<std::string, BootstrapSummary> summarizeBootstrap(const BootstrapStore& store,
                                                           const EffectEstimates& full,
                                                           double level,
                                                           std::vector<std::string>& log);

// Positions in the sorted replicate values: floor((n + 1) alpha) and floor((1 - alpha)(n + 1)).
std::pair<long, long> percentilePositions(std::size_t n, double alpha);

// The summary as the keyed statistics the tables read.
std::map<std::string, double> summaryStatistics(const BootstrapSummary& s);

}  // namespace medanlys

// The analysis strategies, one per pair of mediator and outcome distributions.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "algorithm/mediation_case_data.h"
#include "algorithm/role_mapping.h"
#include "stathost/parser_message.h"
#include "stathost/stop_processor.h"

namespace medanlys {

class MediationSettings;

class MediationStrategy {
 public:
  virtual ~MediationStrategy() = default;
  // 0 = success, 1 = failure; appends readable error texts to errors. The strategy may take
  // the input's columns (they are not copied: a large data set is held once).
  virtual int run(RoleMapping& input, MediationCaseData& results,
                  std::vector<std::string>& errors) = 0;
};

// Shared state of the concrete strategies.
class StrategyBase : public MediationStrategy {
 protected:
  StrategyBase(const MediationSettings& settings, stathost::ACAStopProcessor* stop);
  // Reports that this build has no analysis for the strategy yet.
  int notAvailable(const char* analysis, std::vector<std::string>& errors) const;
  // Reports a failure's user message (when it has one) through the message sink.
  void report(const class FitError& failure) const;
  void reportUnexpected(const std::string& detail) const;
  // Runs `bootstrap` when the command asks for one; a failure inside it is logged and the
  // delta-method results stand.
  void bootstrapIfRequested(MediationCaseData& results,
                            const std::function<void()>& bootstrap) const;
  // Runs an analysis body: a failure is reported, its detail added to `errors`, and the
  // status is 1; otherwise the body's status.
  int guarded(std::vector<std::string>& errors, const std::function<int()>& body) const;

  // Notices of what the analysis changed of the command or the data, as warnings that reach
  // the report and standard error.
  // A LINK that the model of its distribution does not use.
  void warnIgnoredLinks() const;
  // The skewness transformations of `roles` (TRANSFORM=AUTO), recorded in the results, with
  // a warning that names each transformed variable.
  void transformForSkewness(const std::vector<struct ScaleRole>& roles, const Vector* weights,
                            MediationCaseData& results) const;
  // A factor that c* holds at a level other than its most common one.
  void warnFactorReference(const struct ModelColumns& columns, const Vector& cStar) const;
  // Effects whose standard error is too small for z, p and limits to be formed.
  void warnUncomputableInference(const MediationCaseData& results) const;
  // A requested bootstrap that gave no usable limits, with the reason.
  void warnUnusableBootstrap(long replicates, int level) const;

  const MediationSettings& settings_;
  stathost::ACAStopProcessor* stop_;
  stathost::ParserMessage messages_;
};

// Continuous mediator, continuous outcome.
class NormalNormalStrategy : public StrategyBase {
 public:
  NormalNormalStrategy(const MediationSettings& settings, stathost::ACAStopProcessor* stop);
  int run(RoleMapping& input, MediationCaseData& results,
          std::vector<std::string>& errors) override;
};

// Continuous mediator, binary or count outcome.
class NormalBinomialStrategy : public StrategyBase {
 public:
  NormalBinomialStrategy(const MediationSettings& settings, stathost::ACAStopProcessor* stop);
  int run(RoleMapping& input, MediationCaseData& results,
          std::vector<std::string>& errors) override;

 private:
  void bootstrap(const struct BootstrapCases& cases, const struct RatioReplicateModel& model,
                 const std::vector<struct RatioEffectValue>& full, MediationCaseData& results);
};

// Binary mediator, continuous outcome.
class BinomialNormalStrategy : public StrategyBase {
 public:
  BinomialNormalStrategy(const MediationSettings& settings, stathost::ACAStopProcessor* stop);
  int run(RoleMapping& input, MediationCaseData& results,
          std::vector<std::string>& errors) override;

 private:
  void bootstrap(const struct BootstrapCases& cases, const struct ContinuousModelParameters& full,
                 MediationCaseData& results);
};

// Binary mediator, binary or count outcome: the factory never creates it.
class BinomialBinomialStrategy : public StrategyBase {
 public:
  BinomialBinomialStrategy(const MediationSettings& settings, stathost::ACAStopProcessor* stop);
  int run(RoleMapping& input, MediationCaseData& results,
          std::vector<std::string>& errors) override;
};

extern const char* const kInvalidCombinationMessage;

// The strategy for the settings' mediator and outcome distributions; throws
// std::invalid_argument(kInvalidCombinationMessage) for any other pair.
std::unique_ptr<MediationStrategy> createStrategy(const MediationSettings& settings,
                                                  stathost::ACAStopProcessor* stop);

}  // namespace medanlys

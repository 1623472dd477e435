// Constructors of the strategies. The analyses of the strategies are added one by one;
// until a strategy's analysis is in this build, its run reports that and fails.
#include "algorithm/mediation_strategy.h"
#include "models/fit_error.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

StrategyBase::StrategyBase(const MediationSettings& settings, stathost::ACAStopProcessor* stop)
    : settings_(settings), stop_(stop) {
  messages_.SetCommandName("MEDIATION ANALYSIS");
  messages_.SetProcedureTitle("Mediation Analysis");
}

int StrategyBase::notAvailable(const char* analysis, std::vector<std::string>& errors) const {
  messages_.GenericError("The analysis of a ^1 is not available in this build yet.", analysis);
  errors.push_back(std::string("ERROR: analysis not available: ") + analysis);
  return 1;
}

void StrategyBase::report(const FitError& failure) const {
  if (!failure.userMessage().empty()) messages_.GenericError(failure.userMessage());
}

// A failure without a message of its own still reaches the user, with its detail.
void StrategyBase::reportUnexpected(const std::string& detail) const {
  messages_.GenericError("The analysis stopped: ^1.", detail);
}

void StrategyBase::bootstrapIfRequested(MediationCaseData& results,
                                        const std::function<void()>& bootstrap) const {
  if (!settings_.bootstrapGiven && settings_.ciType != CITYPE_BOOTSTRAP) {
    results.log.push_back("Bootstrap inference skipped - using delta method only");
    return;
  }
  results.flags[FLAG_BOOTSTRAP_REQUESTED] = true;
  try {
    bootstrap();
  } catch (const std::exception& e) {
    results.log.push_back(std::string("Bootstrap inference failed: ") + e.what());
    results.log.push_back("Continuing with delta method results only");
    results.bootstrap.clear();
    results.flags[FLAG_BOOTSTRAP_SUCCEEDED] = false;
  }
}

int StrategyBase::guarded(std::vector<std::string>& errors,
                          const std::function<int()>& body) const {
  try {
    return body();
  } catch (const FitError& e) {
    if (e.userMessage().empty()) {
      reportUnexpected(e.what());
    } else {
      report(e);
    }
    errors.push_back(e.what());
  } catch (const std::bad_alloc&) {
    reportUnexpected("not enough memory");
    errors.push_back("Memory allocation failed");
  } catch (const std::exception& e) {
    reportUnexpected(e.what());
    errors.push_back(e.what());
  }
  return 1;
}

BinomialBinomialStrategy::BinomialBinomialStrategy(const MediationSettings& settings,
                                                   stathost::ACAStopProcessor* stop)
    : StrategyBase(settings, stop) {}

int BinomialBinomialStrategy::run(RoleMapping&, MediationCaseData&,
                                  std::vector<std::string>& errors) {
  return notAvailable("binary mediator with a binary or count outcome", errors);
}

}  // namespace medanlys

#include <stdexcept>

#include "algorithm/mediation_strategy.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

const char* const kInvalidCombinationMessage =
    "An invalid combination of distribution and link settings is specified.";

std::unique_ptr<MediationStrategy> createStrategy(const MediationSettings& settings,
                                                  stathost::ACAStopProcessor* stop) {
  const int mediator = settings.mediatorDistribution;
  const int outcome = settings.outcomeDistribution;
  const bool countOrBinary = outcome == BINOMIAL || outcome == POISSON || outcome == NEGBIN;
  if (mediator == NORMAL && outcome == NORMAL) {
    return std::make_unique<NormalNormalStrategy>(settings, stop);
  }
  if (mediator == NORMAL && countOrBinary) {
    return std::make_unique<NormalBinomialStrategy>(settings, stop);
  }
  if (mediator == BINOMIAL && outcome == NORMAL) {
    return std::make_unique<BinomialNormalStrategy>(settings, stop);
  }
  // A binary mediator with a binary or count outcome is refused on purpose.
  throw std::invalid_argument(kInvalidCombinationMessage);
}

}  // namespace medanlys

#include "algorithm/mediation_case_data.h"

namespace medanlys {

void MediationCaseData::clear() {
  effects.clear();
  bootstrap.clear();
  log.clear();
  warnings.clear();
  mediatorCoefficients.clear();
  outcomeCoefficients.clear();
  mediatorCovariance.clear();
  outcomeCovariance.clear();
  summary = CaseSummary();
  flags.fill(false);
  available.fill(false);
}

}  // namespace medanlys

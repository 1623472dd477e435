#include "algorithm/mediation_case_data.h"

namespace medanlys {

void MediationCaseData::clear() {
  effects.clear();
  bootstrap.clear();
  bootstrapReplicates = 0;
  log.clear();
  warnings.clear();
  mediatorFit = WlsFit();
  mediatorLogisticFit = GlmFit();
  outcomeFit = WlsFit();
  outcomeGlmFit = GlmFit();
  reference = ReferencePoint();
  dataScaleLevels = ExposureLevels();
  mediatorScale = 1.0;
  outcomeEventValue = NAN;
  transformations.clear();
  covariateLabels.clear();
  summary = CaseSummary();
  flags.fill(false);
  available.fill(false);
}

}  // namespace medanlys

#include "algorithm/mediation_case_data.h"

#include <cmath>

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
  outcomeEventShare = NAN;
  outcomeSd = NAN;
  transformations.clear();
  covariateLabels.clear();
  summary = CaseSummary();
  flags.fill(false);
  available.fill(false);
}

double weightedStandardDeviation(const Vector& x, const Vector& w) {
  double sw = 0.0, s = 0.0;
  for (std::size_t i = 0; i < x.size() && i < w.size(); ++i) {
    sw += w[i];
    s += w[i] * x[i];
  }
  if (!(sw > 1.0)) return NAN;
  const double mean = s / sw;
  double ss = 0.0;
  for (std::size_t i = 0; i < x.size() && i < w.size(); ++i) {
    ss += w[i] * (x[i] - mean) * (x[i] - mean);
  }
  return std::sqrt(ss / (sw - 1.0));
}

}  // namespace medanlys

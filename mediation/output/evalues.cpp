#include "output/evalues.h"

namespace medanlys {

double eValue(double rr) {
  if (!(rr > 0.0) || !std::isfinite(rr)) return NAN;
  const double r = rr < 1.0 ? 1.0 / rr : rr;
  if (!std::isfinite(r)) return NAN;
  return r + std::sqrt(r * (r - 1.0));
}

double eValueOfLimit(double lower, double upper) {
  if (!std::isfinite(lower) || !std::isfinite(upper)) return NAN;
  if (lower > 1.0) return eValue(lower);
  if (upper < 1.0) return eValue(upper);
  return 1.0;
}

RiskRatioConversion oddsRatioConversion(double eventShare) {
  return eventShare <= kRareOutcomeShare ? RiskRatioConversion::kRareOutcomeOdds
                                         : RiskRatioConversion::kCommonOutcomeOdds;
}

double toRiskRatio(double value, const RiskRatioScale& scale) {
  if (!std::isfinite(value)) return NAN;
  switch (scale.conversion) {
    case RiskRatioConversion::kStandardisedDifference:
      if (!(scale.outcomeSd > 0.0) || !std::isfinite(scale.outcomeSd)) return NAN;
      return std::exp(kLogRiskRatioPerStandardisedDifference * value / scale.outcomeSd);
    case RiskRatioConversion::kCommonOutcomeOdds:
      return value > 0.0 ? std::sqrt(value) : NAN;
    default:
      return value > 0.0 ? value : NAN;
  }
}

EValueResult eValues(double estimate, double lower, double upper, const RiskRatioScale& scale) {
  EValueResult r;
  r.estimate = estimate;
  r.lower = lower;
  r.upper = upper;
  r.rr = toRiskRatio(estimate, scale);
  r.rrLower = toRiskRatio(lower, scale);
  r.rrUpper = toRiskRatio(upper, scale);
  r.eValue = eValue(r.rr);
  r.eValueLimit = eValueOfLimit(r.rrLower, r.rrUpper);
  return r;
}

double eValueCurve(double rr, double rrEU) {
  if (!(rr > 0.0) || !std::isfinite(rr) || !std::isfinite(rrEU)) return NAN;
  const double r = rr < 1.0 ? 1.0 / rr : rr;
  if (!(rrEU > r)) return NAN;
  return r * (rrEU - 1.0) / (rrEU - r);
}

}  // namespace medanlys

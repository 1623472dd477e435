// E-values of effects for the sensitivity analysis to unmeasured confounding: the maths
// only, on plain numbers (the tables and the chart that show them are in sensitivity.h).
//
// VanderWeele TJ, Ding P (2017). Sensitivity analysis in observational research:
// introducing the E-value. Annals of Internal Medicine 167:268-274.
//
// The E-value of a risk ratio RR is the minimum strength of association, on the risk-ratio
// scale, that an unmeasured confounder would need to have with both the exposure and the
// outcome, above the measured covariates, to explain the effect away. Other effect scales
// are first put on the risk-ratio scale by the approximations of the same paper.
#pragma once

#include <cmath>

namespace medanlys {

// E = RR + sqrt(RR (RR - 1)) for RR >= 1; for RR < 1 the same of 1/RR. NaN for a ratio
// that is not positive and finite. E = 1 for RR = 1.
double eValue(double rr);

// The E-value of a confidence interval of a risk ratio: that of the limit closer to 1 (the
// lower limit of an interval above 1, the upper limit of an interval below 1), and 1 when
// the interval contains 1. NaN when a limit is not finite.
double eValueOfLimit(double lower, double upper);

// How an effect is put on the risk-ratio scale.
enum class RiskRatioConversion {
  kRiskRatio,               // a risk ratio (binary outcome, log link): as it is
  kRareOutcomeOdds,         // odds ratio of a rare outcome: RR ~ OR
  kCommonOutcomeOdds,       // odds ratio of a common outcome: RR ~ sqrt(OR)
  kRateRatio,               // rate ratio of a count outcome, used as a risk ratio
  kStandardisedDifference,  // difference of a continuous outcome: RR ~ exp(0.91 d)
};

// log RR per unit of the standardised difference d = effect / SD(outcome).
constexpr double kLogRiskRatioPerStandardisedDifference = 0.91;

// An outcome whose events hold more than this share of the total weight is common: odds
// ratios then overstate risk ratios. The binary-outcome warning uses the same rule.
constexpr double kRareOutcomeShare = 0.10;

// The conversion of the odds ratios of a binary outcome whose events hold `eventShare` of
// the total weight: rare up to kRareOutcomeShare, common above (and when the share is not
// known, the conversion that does not overstate the effect).
RiskRatioConversion oddsRatioConversion(double eventShare);

struct RiskRatioScale {
  RiskRatioConversion conversion = RiskRatioConversion::kRiskRatio;
  double outcomeSd = NAN;  // kStandardisedDifference: SD of the outcome on the effects' scale
};

// An effect (a ratio, or a difference on the outcome's scale) on the risk-ratio scale. The
// conversions are increasing, so limits stay limits. NaN when it cannot be converted.
double toRiskRatio(double value, const RiskRatioScale& scale);

// One effect with its confidence limits, on its own scale and on the risk-ratio scale, and
// its two E-values.
struct EValueResult {
  double estimate = NAN, lower = NAN, upper = NAN;  // the effect's own scale
  double rr = NAN, rrLower = NAN, rrUpper = NAN;
  double eValue = NAN;       // of the estimate
  double eValueLimit = NAN;  // of the limit closer to 1 (1 when the interval contains 1)
};

EValueResult eValues(double estimate, double lower, double upper, const RiskRatioScale& scale);

// The E-value curve of a risk ratio: the confounder strengths (RR_EU, RR_UD) whose bias
// factor RR_EU RR_UD / (RR_EU + RR_UD - 1) equals max(RR, 1/RR), which would just explain
// the effect away. For RR_EU > RR (RR >= 1), RR_UD = RR (RR_EU - 1) / (RR_EU - RR). NaN
// where the curve is not defined (RR_EU <= RR).
double eValueCurve(double rr, double rrEU);

}  // namespace medanlys

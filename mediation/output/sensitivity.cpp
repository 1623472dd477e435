// "Sensitivity Analysis (E-values)" and the sentences it adds to "Effect Interpretation".
#include "output/sensitivity.h"

#include <cmath>

#include "effects/continuous_effects.h"
#include "output/report_notes.h"
#include "output/table_builder.h"
#include "stathost/format.h"

namespace medanlys {
namespace {

// The effects that are ratios or can be put on the risk-ratio scale, in the order of the
// decomposition table.
const char* const kSensitivityEffects[] = {"CDE", "NDE", "NIE", "TE", "PIE", "TDE"};

constexpr const char* kDefinitionNote =
    "E-value (VanderWeele and Ding 2017): the minimum strength of association, on the "
    "risk-ratio scale, that an unmeasured confounder would need to have with both the exposure "
    "and the outcome, above the measured covariates, to explain an effect away. For a risk "
    "ratio RR \u2265 1, E = RR + sqrt(RR \u00d7 (RR \u2212 1)); below 1 the same of 1/RR. The "
    "E-value of the CI limit is that of the confidence limit closer to 1, and 1 when the "
    "interval already contains 1.";

constexpr const char* kMediationNote =
    "In a mediation analysis the total effect assumes no unmeasured confounding of the "
    "exposure\u2013outcome relation; the controlled direct effect assumes none of the "
    "mediator\u2013outcome relation as well; the natural direct and indirect effects (NDE, NIE, "
    "PIE, TDE) assume none of the exposure\u2013mediator relation in addition. Each E-value says "
    "how strong one such confounder would have to be, associated with the exposure (or, for an "
    "indirect effect, the mediator) and with the outcome, to explain that effect away. "
    "Smith and VanderWeele (2019) and VanderWeele, Mathur and Chen (2020) discuss these bounds "
    "for direct and indirect effects.";

bool ratioOutcome(const MediationSettings& s) { return s.outcomeDistribution != NORMAL; }

// "OR_", "RR_" or "IRR_": the label of the outcome's ratio effects.
std::string ratioLabelPrefix(const MediationSettings& s) {
  if (s.outcomeDistribution == BINOMIAL) return s.outcomeLink == LOG ? "RR_" : "OR_";
  return "IRR_";
}

std::string twoDecimals(double v) {
  return stathost::formatNumber(v, stathost::STAX_Format::FMT_FIXED, 10, 2);
}

// The outcome as the effects see it: "Y", or "log(Y)" when it was transformed.
std::string outcomeOnEffectScale(const OutputContext& out) {
  const TransformationRecord* t = transformationOf(out, "Outcome");
  return t ? transformedFormula(*t, out.settings.outcomeVar) : out.settings.outcomeVar;
}

// The limits the report's effect tables show for an effect.
void limitsOf(const OutputContext& out, const std::string& key, bool bootstrap, double& estimate,
              double& lower, double& upper, bool& found) {
  found = false;
  const auto delta = out.results.effects.find(key);
  if (!bootstrap) {
    if (delta == out.results.effects.end()) return;
    estimate = delta->second.estimate;
    lower = delta->second.lower;
    upper = delta->second.upper;
    found = true;
    return;
  }
  const auto it = out.results.bootstrap.find(key);
  if (it == out.results.bootstrap.end()) return;
  const auto get = [&](const char* name) {
    const auto v = it->second.find(name);
    return v == it->second.end() ? NAN : v->second;
  };
  const IntervalKeys keys = bootstrapIntervalKeys(out.settings.bootstrapInterval);
  estimate = get("estimate");
  lower = get(keys.lower);
  upper = get(keys.upper);
  found = true;
}

// The short form of the conversion for the table's column.
std::string conversionCell(const OutputContext& out, const SensitivityAnalysis& a,
                           const SensitivityEffect& e) {
  switch (a.scale.conversion) {
    case RiskRatioConversion::kStandardisedDifference:
      return "exp(0.91 \u00d7 " + e.label + " / SD(" + outcomeOnEffectScale(out) + "))";
    case RiskRatioConversion::kRareOutcomeOdds:
      return e.label + " (rare outcome)";
    case RiskRatioConversion::kCommonOutcomeOdds:
      return "sqrt(" + e.label + ")";
    case RiskRatioConversion::kRateRatio:
      return e.label + " as RR";
    default:
      return e.label;
  }
}

std::string limitsNote(const OutputContext& out, const SensitivityAnalysis& a) {
  const std::string level = std::to_string(a.level) + "%";
  switch (a.limits) {
    case SensitivityLimits::kBootstrap:
      return "The CI limits are those of the " + level + " bootstrap " +
             bootstrapIntervalName(out.settings.bootstrapInterval) +
             " intervals that the bootstrap decomposition table shows.";
    case SensitivityLimits::kDeltaAfterFailedBootstrap:
      return "The bootstrap did not succeed, so the CI limits are those of the " + level +
             " delta-method confidence intervals.";
    default:
      return "The CI limits are those of the " + level +
             " delta-method confidence intervals of the decomposition table.";
  }
}

// "the natural direct effect" and the like.
std::string effectWords(const std::string& effect) {
  if (effect == "NDE") return "the natural direct effect";
  if (effect == "NIE") return "the natural indirect effect";
  if (effect == "TE") return "the total effect";
  if (effect == "CDE") return "the controlled direct effect";
  if (effect == "PIE") return "the pure indirect effect";
  return "the total direct effect";
}

}  // namespace

const SensitivityEffect* SensitivityAnalysis::find(const std::string& effect) const {
  for (const SensitivityEffect& e : effects) {
    if (e.effect == effect) return &e;
  }
  return nullptr;
}

SensitivityAnalysis sensitivityAnalysis(const OutputContext& out) {
  const MediationSettings& s = out.settings;
  const MediationCaseData& r = out.results;
  SensitivityAnalysis a;
  // The scale of the effects and its conversion to risk ratios.
  if (!ratioOutcome(s)) {
    a.scale.conversion = RiskRatioConversion::kStandardisedDifference;
    a.scale.outcomeSd = r.outcomeSd;
  } else if (s.outcomeDistribution == BINOMIAL) {
    a.scale.conversion = s.outcomeLink == LOG ? RiskRatioConversion::kRiskRatio
                                              : oddsRatioConversion(r.outcomeEventShare);
  } else {
    a.scale.conversion = RiskRatioConversion::kRateRatio;
  }
  // The limits of the effect tables the report shows.
  const bool bootstrap = r.flags[FLAG_BOOTSTRAP_SUCCEEDED] && !r.bootstrap.empty();
  if (bootstrap) {
    a.limits = SensitivityLimits::kBootstrap;
    a.level = bootstrapLevel(s);
  } else {
    const bool asked = s.bootstrapGiven || s.ciType == CITYPE_BOOTSTRAP;
    a.limits = asked ? SensitivityLimits::kDeltaAfterFailedBootstrap : SensitivityLimits::kDelta;
    a.level = s.ciLevel;
  }
  // The binary-mediator strategies keep their ratio effects under the OR_ names.
  const std::string labelPrefix = ratioOutcome(s) ? ratioLabelPrefix(s) : "";
  const std::string keyPrefix =
      ratioOutcome(s) && s.mediatorDistribution == BINOMIAL ? "OR_" : labelPrefix;
  for (const char* effect : kSensitivityEffects) {
    // The decomposition table of a binary or count outcome has no TDE row.
    if (ratioOutcome(s) && std::string(effect) == "TDE") continue;
    SensitivityEffect e;
    e.effect = effect;
    e.key = keyPrefix + effect;
    e.label = labelPrefix + effect;
    double estimate = NAN, lower = NAN, upper = NAN;
    bool found = false;
    limitsOf(out, e.key, bootstrap, estimate, lower, upper, found);
    if (!found) continue;
    e.values = eValues(estimate, lower, upper, a.scale);
    a.effects.push_back(e);
  }
  return a;
}

std::string conversionNote(const OutputContext& out, const SensitivityAnalysis& a) {
  const MediationSettings& s = out.settings;
  const std::string& y = s.outcomeVar;
  const std::string source = " (VanderWeele and Ding 2017).";
  switch (a.scale.conversion) {
    case RiskRatioConversion::kStandardisedDifference: {
      const TransformationRecord* t = transformationOf(out, "Outcome");
      const std::string scaleY = outcomeOnEffectScale(out);
      const std::string sd = "SD(" + scaleY + ") = " + formatValue(a.scale.outcomeSd);
      std::string head =
          t ? "The outcome " + y + " was transformed to " + scaleY +
                  " for its skewness, so the effects are differences on that scale and " + sd +
                  " is the standard deviation on the transformed scale"
            : "The effects on the continuous outcome " + y + " are differences, and " + sd +
                  " is the standard deviation of " + y;
      return head +
             ". They are put on the risk-ratio scale through the standardised difference d = "
             "effect / SD(" +
             scaleY + "), RR \u2248 exp(0.91 \u00d7 d), and so are their confidence limits" +
             source;
    }
    case RiskRatioConversion::kRareOutcomeOdds:
      return "The outcome " + y + " is rare (events in " +
             stathost::formatNumber(100.0 * out.results.outcomeEventShare,
                                    stathost::STAX_Format::FMT_FIXED, 10, 2) +
             "% of the total weight, at most 10%): its odds ratios approximate risk ratios and "
             "are used as they are" +
             source;
    case RiskRatioConversion::kCommonOutcomeOdds:
      return "The outcome " + y + " is common (events in " +
             stathost::formatNumber(100.0 * out.results.outcomeEventShare,
                                    stathost::STAX_Format::FMT_FIXED, 10, 2) +
             "% of the total weight, more than 10%): odds ratios overstate risk ratios, so each "
             "odds ratio and its confidence limits are converted with RR \u2248 sqrt(OR)" +
             source;
    case RiskRatioConversion::kRateRatio:
      return "The effects on the count outcome " + y + " are rate ratios, used as risk ratios" +
             source;
    default:
      return "The effects on the binary outcome " + y +
             " are risk ratios (log link) and are used as they are" + source;
  }
}

int writeSensitivityTable(const OutputContext& out) {
  const SensitivityAnalysis a = sensitivityAnalysis(out);
  TableBuilder t(out.generator, "Sensitivity Analysis (E-values)");
  t.footnote(kDefinitionNote);
  t.footnote(conversionNote(out, a));
  t.footnote(kMediationNote);
  t.footnote(limitsNote(out, a));
  t.rowHeaderLabel("Effect");
  t.column("RR");
  t.columnGroup(confidenceIntervalLabel(a.level), {"Lower", "Upper"});
  t.columnGroup("E-value", {"Estimate", "CI Limit"});
  t.column("Conversion");
  for (const SensitivityEffect& e : a.effects) {
    const EValueResult& v = e.values;
    t.row(e.label,
          {v.rr, v.rrLower, v.rrUpper, v.eValue, v.eValueLimit, conversionCell(out, a, e)});
  }
  return t.write();
}

std::string sensitivitySentence(const std::string& words, bool indirect, double e, double eLimit) {
  if (!std::isfinite(e)) {
    return "The E-value of " + words + " cannot be computed: its risk ratio is not available.";
  }
  if (e <= 1.0) {
    return "On the risk-ratio scale " + words +
           " is null (E-value 1): there is no effect for a confounder to explain away.";
  }
  std::string text = "An unmeasured confounder associated with both the " +
                     std::string(indirect ? "mediator" : "exposure") +
                     " and the outcome by a risk ratio of " + twoDecimals(e) +
                     " each, above the measured covariates, could explain away " + words;
  if (!std::isfinite(eLimit)) return text + "; its confidence interval is not available.";
  if (eLimit <= 1.0) return text + "; its confidence interval already includes no effect.";
  return text + "; one of " + twoDecimals(eLimit) +
         " could move its confidence interval to include no effect.";
}

std::vector<SensitivitySentence> sensitivitySentences(const OutputContext& out) {
  const SensitivityAnalysis a = sensitivityAnalysis(out);
  std::vector<SensitivitySentence> rows;
  for (const char* effect : {"NDE", "NIE", "TE"}) {
    const SensitivityEffect* e = a.find(effect);
    const double value = e ? e->values.eValue : NAN;
    const double limit = e ? e->values.eValueLimit : NAN;
    rows.push_back(
        {std::string("Sensitivity (") + effect + ")", value,
         sensitivitySentence(effectWords(effect), std::string(effect) == "NIE", value, limit)});
  }
  return rows;
}

std::string sensitivityInterpretationNote(const OutputContext& out) {
  const SensitivityAnalysis a = sensitivityAnalysis(out);
  return "The Sensitivity rows give E-values (VanderWeele and Ding 2017) on the risk-ratio "
         "scale, with the " +
         std::string(a.limits == SensitivityLimits::kBootstrap ? "bootstrap" : "delta-method") +
         " limits at " + std::to_string(a.level) +
         "%; the table \"Sensitivity Analysis (E-values)\" gives the conversion and the limits.";
}

}  // namespace medanlys

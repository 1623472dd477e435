#include "output/report_notes.h"

#include <cmath>
#include <cstdio>

#include "effects/continuous_effects.h"
#include "stathost/format.h"

namespace medanlys {
int bootstrapLevel(const MediationSettings& s) {
  return s.bootstrapGiven ? s.bootstrapCiLevel : s.ciLevel;
}

IntervalKeys bootstrapIntervalKeys(BootstrapInterval interval) {
  switch (interval) {
    case BootstrapInterval::kBca:
      return {"bca_ci_lower", "bca_interval_upper"};
    case BootstrapInterval::kNormal:
      return {"normal_ci_lower", "normal_ci_upper"};
    default:
      return {"percentile_ci_lower", "percentile_ci_upper"};
  }
}

std::string bootstrapIntervalName(BootstrapInterval interval) {
  switch (interval) {
    case BootstrapInterval::kBca:
      return "bias-corrected and accelerated (BCa)";
    case BootstrapInterval::kNormal:
      return "normal-approximation";
    default:
      return "percentile";
  }
}

std::string bootstrapIntervalNote(BootstrapInterval interval) {
  std::string note = "Limits shown are bootstrap " + bootstrapIntervalName(interval) + " intervals";
  if (interval == BootstrapInterval::kNormal) {
    note += " (estimate \u00b1 z \u00d7 bootstrap SE; for a ratio, on the log scale)";
  }
  return note + ".";
}

const TransformationRecord* transformationOf(const OutputContext& out, const char* role) {
  const auto it = out.results.transformations.find(role);
  if (it == out.results.transformations.end() || it->second.name == "none" ||
      it->second.name.empty()) {
    return nullptr;
  }
  return &it->second;
}

std::string transformedFormula(const TransformationRecord& t, const std::string& variable) {
  if (t.name == "log") return "log(" + variable + ")";
  if (t.name == "sqrt") return "sqrt(" + variable + ")";
  if (t.name == "reflected_log") {
    return std::isfinite(t.maximum)
               ? "log(" + stathost::formatSignificant(t.maximum + 1.0, 6) + " - " + variable + ")"
               : "log(max + 1 - " + variable + ")";
  }
  if (t.name == "power") return variable + " squared";
  return t.name + "(" + variable + ")";
}

bool reflected(const TransformationRecord* t) { return t != nullptr && t->name == "reflected_log"; }

std::string exposureTransformNote(const OutputContext& out, NoteTarget target) {
  const TransformationRecord* t = transformationOf(out, "Exposure");
  if (!t) return "";
  const std::string& a = out.settings.predictorVar;
  std::string note = "The exposure " + a + " was transformed to " + transformedFormula(*t, a) +
                     " for its skewness";
  if (reflected(t)) note += " (higher values on this scale are lower values of " + a + ")";
  switch (target) {
    case NoteTarget::kModel:
      return note + ": the coefficients of " + a + " are per unit of the transformed scale.";
    case NoteTarget::kReference: {
      const ExposureLevels& given = out.results.dataScaleLevels;
      return note + ": a* and a-hat are shown on that scale (" +
             stathost::formatSignificant(given.a_star, 6) + " and " +
             stathost::formatSignificant(given.a_hat, 6) + " in " + a + "'s units).";
    }
    default:
      return note +
             ": the control and treatment levels were carried to that scale, so the "
             "effects compare the levels as given.";
  }
}

std::string mediatorTransformNote(const OutputContext& out, NoteTarget target) {
  const TransformationRecord* t = transformationOf(out, "Mediator");
  if (!t) return "";
  const std::string& m = out.settings.mediatorVar;
  std::string note = "The mediator " + m + " was transformed to " + transformedFormula(*t, m) +
                     " for its skewness";
  if (reflected(t)) note += ": higher values on this scale are lower values of " + m;
  switch (target) {
    case NoteTarget::kModel:
      return note + (reflected(t) ? ", and" : ":") + " coefficients involving " + m +
             " are on the transformed scale" +
             (reflected(t) ? ", with their signs reversed relative to " + m : std::string()) + ".";
    case NoteTarget::kReference:
      return note + (reflected(t) ? "; " : ": ") + "m* is shown on the transformed scale.";
    default:
      return note +
             ". The mediator model and m* are on the transformed scale; the effects are on the "
             "outcome's scale" +
             (reflected(t) ? " and keep their direction." : ".");
  }
}

std::string outcomeTransformNote(const OutputContext& out, NoteTarget target) {
  const TransformationRecord* t = transformationOf(out, "Outcome");
  if (!t) return "";
  const std::string& y = out.settings.outcomeVar;
  std::string note =
      "The outcome " + y + " was transformed to " + transformedFormula(*t, y) + " for its skewness";
  if (target == NoteTarget::kProportions) {
    // A proportion divides two effects on the same scale: a reflection reverses both.
    return note + (reflected(t) ? ": higher values on this scale are lower values of " + y +
                                      ". The proportions are of effects on the transformed "
                                      "scale; reversing the scale does not change their sign."
                                : ". The proportions are of effects on the transformed scale.");
  }
  const std::string things = target == NoteTarget::kModel ? "Coefficients" : "Effects";
  if (reflected(t)) {
    return note + ": higher values on this scale are lower values of " + y + ". " + things +
           " are on the transformed scale and their signs are reversed relative to " + y + ".";
  }
  if (t->name == "power") {
    return note + ". " + things + " are on the scale of " + y +
           " squared, which does not keep the order of values of opposite sign.";
  }
  return note + ". " + things + " are on the transformed scale.";
}

std::string mediatorScaleNote(const OutputContext& out, NoteTarget target) {
  const double factor = out.results.mediatorScale;
  if (factor == 1.0 || !std::isfinite(factor) || factor <= 0.0) return "";
  const std::string& m = out.settings.mediatorVar;
  const TransformationRecord* t = transformationOf(out, "Mediator");
  const std::string what =
      t ? "The transformed mediator " + transformedFormula(*t, m) : "The mediator " + m;
  const std::string by = stathost::formatSignificant(factor, 6);
  if (target == NoteTarget::kReference) {
    return what + " was divided by " + by + " before fitting; m* is shown on that scale (" + by +
           " times it is the value in " + m + "'s units).";
  }
  return what + " was divided by " + by +
         " before fitting; coefficients involving it are on that scale.";
}

std::string weightNote(const OutputContext& out, WeightNoteFor target) {
  const MediationSettings& s = out.settings;
  if (s.scaleWeightVar.empty()) return "";
  const std::string head = "Cases are weighted by " + s.scaleWeightVar + ": ";
  const std::string cases = "the " + std::to_string(s.casesValid) + " cases";
  const std::string total =
      "the total weight " + stathost::formatSignificant(s.totalWeightValid, 6);
  const std::string counts = "a case of weight k counts as k cases in the ";
  const bool modelBased = s.covb == COVB_MODEL;
  const bool linearMediator = s.mediatorDistribution != BINOMIAL;
  const bool linearOutcome = s.outcomeDistribution == NORMAL;
  switch (target) {
    case WeightNoteFor::kGlmModel:
      return head + counts + "estimates and in both standard errors.";
    case WeightNoteFor::kLinearModel:
      return head + counts +
             "estimates and the robust SEs, but the model-based SEs take the "
             "sample size as " +
             cases + ", not " + total + ".";
    case WeightNoteFor::kBootstrapEffects:
      return head + counts + "estimates; each resample draws " + std::to_string(s.casesValid) +
             " cases, so the bootstrap limits reflect a sample of that size, not " + total + ".";
    default: {
      // The delta method uses the covariance COVB names of both models.
      if (!modelBased || (!linearMediator && !linearOutcome)) {
        return head + counts + "estimates and in the standard errors.";
      }
      const std::string which = linearMediator && linearOutcome ? "linear models"
                                : linearMediator                ? "linear mediator model"
                                                                : "linear outcome model";
      return head + counts + "estimates; the model-based covariance of the " + which +
             " takes the sample size as " + cases + ", not " + total + ".";
    }
  }
}

std::string totalEffectNote(const OutputContext& out, bool bootstrap) {
  const MediationSettings& s = out.settings;
  // The proportions of a binary or count outcome are of the excess relative risk.
  const bool ratioOutcome = s.outcomeDistribution != NORMAL;
  const std::string key = ratioOutcome ? "excRR_TE" : "TE";
  double estimate = NAN, lower = NAN, upper = NAN;
  int level = s.ciLevel;
  if (bootstrap) {
    const auto it = out.results.bootstrap.find(key);
    if (it == out.results.bootstrap.end()) return "";
    const IntervalKeys keys = bootstrapIntervalKeys(s.bootstrapInterval);
    auto get = [&](const char* name) {
      const auto v = it->second.find(name);
      return v == it->second.end() ? NAN : v->second;
    };
    estimate = get("estimate");
    lower = get(keys.lower);
    upper = get(keys.upper);
    level = bootstrapLevel(s);
  } else {
    const auto it = out.results.effects.find(key);
    if (it == out.results.effects.end()) return "";
    estimate = it->second.estimate;
    const double halfWidth = criticalValue(s.ciLevel) * it->second.se;
    if (!(std::fabs(estimate) < halfWidth)) return "";  // also when either is not finite
    lower = estimate - halfWidth;
    upper = estimate + halfWidth;
  }
  if (!(std::isfinite(estimate) && lower <= 0.0 && upper >= 0.0)) return "";
  const std::string subject =
      ratioOutcome ? "The total effect on the excess relative risk scale, excRR_TE = " +
                         formatValue(estimate) + " (the denominator of the proportions),"
                   : "The total effect TE = " + formatValue(estimate);
  const std::string interval =
      std::to_string(level) + "% " +
      (bootstrap ? "bootstrap " + bootstrapIntervalName(s.bootstrapInterval) + " interval"
                 : std::string("confidence interval"));
  return subject + " is not distinguishable from zero: its " + interval + ", " +
         formatValue(lower) + " to " + formatValue(upper) +
         ", contains 0. Proportions of a total effect that is not distinguishable from zero are "
         "not interpretable: they can lie far outside 0\u2013100% and change sign with small "
         "changes in the data.";
}

void addNotes(std::vector<std::string>& footnotes, const std::vector<std::string>& notes) {
  for (const std::string& n : notes) {
    if (!n.empty()) footnotes.push_back(n);
  }
}

}  // namespace medanlys

// The decomposition, interaction and ratio tables, by the delta method or the bootstrap.
#include <cmath>

#include "output/output_context.h"
#include "output/report_notes.h"
#include "output/table_builder.h"

namespace medanlys {
namespace {

struct EffectRow {
  std::string key;
  std::string label;
};

// The continuous-outcome rows; ratio-outcome rows come with their strategies.
const std::vector<EffectRow> kDecompositionRows = {{"CDE", "CDE"}, {"NDE", "NDE"}, {"NIE", "NIE"},
                                                   {"TE", "TE"},   {"PIE", "PIE"}, {"PE", "PE"},
                                                   {"TDE", "TDE"}, {"PAI", "PAI"}};
const std::vector<EffectRow> kInteractionRows = {{"INT_med", "INTmed"}, {"INT_ref", "INTref"}};
const std::vector<EffectRow> kRatioRows = {{"PM", "PM (NIE/TE)"},
                                           {"Percent_ELIM", "%ELIM (PE/TE)"},
                                           {"r_CDE", "rCDE (CDE/TE)"},
                                           {"r_NDE", "rNDE (NDE/TE)"},
                                           {"r_NIE", "rNIE (NIE/TE)"},
                                           {"r_PE", "rPE (PE/TE)"},
                                           {"r_TDE", "rTDE (TDE/TE)"},
                                           {"r_PIE", "rPIE (PIE/TE)"},
                                           {"Percent_INT", "%INT (PAI/TE)"},
                                           {"r_INT_med", "rINTmed (INTmed/TE)"},
                                           {"r_INT_ref", "rINTref (INTref/TE)"},
                                           {"r_PAI", "rPAI (PAI/TE)"}};

constexpr const char* kRatioFootnote =
    "Ratio statistics are proportions of the total effect (TE) and can be interpreted as "
    "percentages. Values may not sum to 100% due to rounding; large SEs may indicate unstable "
    "estimates.";
constexpr const char* kLogScaleFootnote =
    "Effects on transformed scale (log outcome). exp(Beta) = multiplicative effect. Example: "
    "exp(0.567) = 1.76 (76% increase).";
constexpr const char* kSeparationFootnote =
    "Note: Very large coefficients or standard errors may indicate possible separation, which "
    "can make estimates unstable and significance unreliable.";
constexpr const char* kOrPaiFootnote =
    "OR_PAI is not defined on the odds-ratio scale, interaction effects are represented by "
    "OR_INTmed and OR_INTref.";

bool mediatorBinomial(const OutputContext& out) {
  return out.settings.mediatorDistribution == BINOMIAL;
}
bool outcomeNonNormal(const OutputContext& out) {
  return out.settings.outcomeDistribution != NORMAL;
}

// The ratio prefix of the outcome's family and link; the binary-mediator strategies keep
// their ratio effects under the OR_ names whatever the label.
std::string labelPrefix(const OutputContext& out) {
  const MediationSettings& s = out.settings;
  if (s.outcomeDistribution == BINOMIAL) return s.outcomeLink == LOG ? "RR_" : "OR_";
  return "IRR_";
}

std::vector<EffectRow> decompositionRows(const OutputContext& out) {
  if (!outcomeNonNormal(out)) return kDecompositionRows;
  const std::string label = labelPrefix(out);
  const std::string key = mediatorBinomial(out) ? "OR_" : label;
  std::vector<EffectRow> rows;
  for (const char* e : {"CDE", "NDE", "NIE", "TE", "PIE"}) rows.push_back({key + e, label + e});
  for (const char* e : {"CDE", "NDE", "NIE", "TE", "PIE"}) {
    rows.push_back({std::string("excRR_") + e, std::string("excRR_") + e});
  }
  return rows;
}

std::vector<EffectRow> interactionRows(const OutputContext& out) {
  if (!outcomeNonNormal(out)) return kInteractionRows;
  const std::string label = labelPrefix(out);
  const std::string key = mediatorBinomial(out) ? "OR_" : label;
  return {{key + "INTmed", label + "INTmed"},
          {key + "INTref", label + "INTref"},
          {"excRR_INTmed", "excRR_INTmed"},
          {"excRR_INTref", "excRR_INTref"}};
}

// Estimate, SE, z, p and limits of one effect from the delta-method map or the bootstrap
// statistics; absent keys give no row.
bool lookup(const OutputContext& out, const std::string& key, bool bootstrap, EffectInference& e) {
  if (!bootstrap) {
    auto it = out.results.effects.find(key);
    if (it == out.results.effects.end()) return false;
    e = it->second;
    return true;
  }
  auto it = out.results.bootstrap.find(key);
  if (it == out.results.bootstrap.end()) return false;
  auto get = [&](const char* name) {
    auto v = it->second.find(name);
    return v == it->second.end() ? NAN : v->second;
  };
  e.estimate = get("estimate");
  e.se = get("se");
  // The test statistic as the bootstrap formed it (on the log scale for a ratio).
  e.z = it->second.count("z") ? get("z") : (e.se > 0.0 ? e.estimate / e.se : NAN);
  e.p = get("p_value");
  // The interval the user chose (BOOTSTRAP CRITERIA(INTERVAL=...)), percentile by default.
  const IntervalKeys keys = bootstrapIntervalKeys(out.settings.bootstrapInterval);
  e.lower = get(keys.lower);
  e.upper = get(keys.upper);
  return true;
}

// The full layout, or the estimates only when a requested bootstrap did not succeed.
int writeEffects(const OutputContext& out, const std::string& title,
                 const std::vector<std::string>& footnotes, const std::vector<EffectRow>& rows,
                 bool bootstrap, bool estimatesOnly) {
  TableBuilder t(out.generator, title);
  for (const std::string& f : footnotes) t.footnote(f);
  t.rowHeaderLabel("Effect");
  if (estimatesOnly) {
    t.column("Estimate");
  } else {
    for (const char* c : {"Estimate", "SE", "z", "p-value"}) t.column(c);
    // The level the limits were computed at.
    t.columnGroup(
        confidenceIntervalLabel(bootstrap ? bootstrapLevel(out.settings) : out.settings.ciLevel),
        {"Lower", "Upper"});
  }
  for (const EffectRow& row : rows) {
    EffectInference e;
    if (!lookup(out, row.key, bootstrap, e)) continue;
    if (estimatesOnly) {
      t.row(row.label, {e.estimate});
    } else {
      t.row(row.label, {e.estimate, e.se, e.z, e.p, e.lower, e.upper});
    }
  }
  return t.write();
}

bool bootstrapFailed(const OutputContext& out) {
  return out.settings.bootstrapGiven && !out.results.flags[FLAG_BOOTSTRAP_SUCCEEDED];
}

// What was done to the variables before fitting, as it bears on effects: the outcome's
// scale first (the scale of every effect), then the exposure's and the mediator's.
std::vector<std::string> scaleNotes(const OutputContext& out) {
  std::vector<std::string> notes;
  addNotes(notes, {outcomeTransformNote(out, NoteTarget::kEffects),
                   exposureTransformNote(out, NoteTarget::kEffects),
                   mediatorTransformNote(out, NoteTarget::kEffects)});
  return notes;
}

}  // namespace

int writeDecomposition(const OutputContext& out, bool bootstrap) {
  std::vector<std::string> footnotes;
  if (bootstrap) {
    footnotes.push_back("Bootstrap confidence intervals for effects are based on " +
                        std::to_string(out.results.bootstrapReplicates) +
                        " resamples (bias-corrected method).");
    // The specified footnote names the method generically; this one names the limits.
    footnotes.push_back(bootstrapIntervalNote(out.settings.bootstrapInterval));
    if (outcomeNonNormal(out)) footnotes.push_back(kLogScaleFootnote);
    if (mediatorBinomial(out) && outcomeNonNormal(out)) footnotes.push_back(kOrPaiFootnote);
    addNotes(footnotes, scaleNotes(out));
    addNotes(footnotes, {weightNote(out, WeightNoteFor::kBootstrapEffects)});
    return writeEffects(out, "Decomposition Analysis Results(Bootstrap method)", footnotes,
                        decompositionRows(out), true, false);
  }
  if (outcomeNonNormal(out)) footnotes.push_back(kLogScaleFootnote);
  if (mediatorBinomial(out) || outcomeNonNormal(out)) footnotes.push_back(kSeparationFootnote);
  if (mediatorBinomial(out) && outcomeNonNormal(out)) footnotes.push_back(kOrPaiFootnote);
  addNotes(footnotes, scaleNotes(out));
  addNotes(footnotes, {weightNote(out, WeightNoteFor::kDeltaEffects)});
  const bool estimatesOnly = bootstrapFailed(out);
  return writeEffects(
      out, estimatesOnly ? "Decomposition Analysis" : "Decomposition Analysis (Delta method)",
      footnotes, decompositionRows(out), false, estimatesOnly);
}

int writeInteractionEffects(const OutputContext& out, bool bootstrap) {
  std::vector<std::string> footnotes;
  if (bootstrap) footnotes.push_back(bootstrapIntervalNote(out.settings.bootstrapInterval));
  if (bootstrap && outcomeNonNormal(out)) footnotes.push_back(kLogScaleFootnote);
  addNotes(footnotes, scaleNotes(out));
  return writeEffects(out,
                      bootstrap ? "Interaction Effects Analysis (Bootstrap method)"
                                : "Interaction Effects Analysis",
                      footnotes, interactionRows(out), bootstrap,
                      !bootstrap && bootstrapFailed(out));
}

int writeRatioStatistics(const OutputContext& out, bool bootstrap) {
  std::vector<std::string> footnotes{kRatioFootnote};
  if (bootstrap) footnotes.push_back(bootstrapIntervalNote(out.settings.bootstrapInterval));
  // Proportions of effects are formed on the outcome's model scale.
  addNotes(footnotes, {outcomeTransformNote(out, NoteTarget::kProportions)});
  // The numbers are kept, however large: the note says when they mean nothing.
  addNotes(footnotes, {totalEffectNote(out, bootstrap)});
  return writeEffects(out,
                      bootstrap ? "Ratio Statistics (Bootstrap method)"
                                : "Ratio Statistics (All Decomposition Proportions)",
                      footnotes, kRatioRows, bootstrap, !bootstrap && bootstrapFailed(out));
}

}  // namespace medanlys

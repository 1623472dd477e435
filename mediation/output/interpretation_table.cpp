// "Effect Interpretation": the direct, indirect and total effects and the proportion
// mediated restated in sentences.
#include <cmath>

#include "output/output_context.h"
#include "output/report_notes.h"
#include "output/sensitivity.h"
#include "output/table_builder.h"
#include "stathost/format.h"

namespace medanlys {
namespace {

constexpr const char* kEmDash = "\u2014";
constexpr const char* kArrow = "\u2192";
constexpr double kRatioOneTolerance = 5e-5;  // a ratio that shows as 1.0000 has no effect

double estimateOf(const OutputContext& out, const std::string& key) {
  auto it = out.results.effects.find(key);
  return it == out.results.effects.end() ? NAN : it->second.estimate;
}

// "OR_", "RR_" or "IRR_" by the outcome's family and link.
std::string ratioPrefix(const MediationSettings& s) {
  if (s.outcomeDistribution == BINOMIAL) return s.outcomeLink == LOG ? "RR_" : "OR_";
  return "IRR_";
}

// "increases odds by 23.10%" and the like for a ratio.
std::string ratioPhrase(double ratio, bool count) {
  if (std::fabs(ratio - 1.0) < kRatioOneTolerance) return "has no effect (ratio = 1.0)";
  const std::string noun = count ? "incidence rate" : "odds";
  const std::string verb = ratio > 1.0 ? "increases " : "decreases ";
  return verb + noun + " by " + formatValue(std::fabs(ratio - 1.0) * 100.0) + "%";
}

// The coding of a binary outcome as the data hold it: "(reference 0, event 1)". The event
// is the value the strategy coded 1; the reference is the outcome's other value.
std::string outcomeCoding(const OutputContext& out) {
  double reference = 0.0, event = 1.0;
  const double coded = out.results.outcomeEventValue;
  const VariableRoleMapper& map = out.settings.roleMapper();
  if (std::isfinite(coded) && map.hasRoleData("OUTCOMEVAR")) {
    for (double y : map.roleData("OUTCOMEVAR")) {
      if (y != coded) {
        reference = y;
        event = coded;
        break;
      }
    }
  }
  return " (reference " + stathost::formatShortest(reference) + ", event " +
         stathost::formatShortest(event) + ")";
}

// The words that put an additive effect on a transformed outcome back in the user's
// terms: " of log(Y)", or for the reflected log " of log(11 - Y), a reversed scale: that
// is, it raises Y" (the direction on Y is the opposite of the direction on the scale).
std::string outcomeScaleWords(const OutputContext& out, double estimate) {
  const TransformationRecord* t = transformationOf(out, "Outcome");
  if (!t) return "";
  const std::string& y = out.settings.outcomeVar;
  std::string words = " of " + transformedFormula(*t, y);
  if (reflected(t) && estimate != 0.0 && std::isfinite(estimate)) {
    words +=
        ", a reversed scale: that is, it " + std::string(estimate > 0 ? "lowers " : "raises ") + y;
  }
  return words;
}

// With PRINT SENSITIVITY: one row per effect with its E-value and what it means.
void addSensitivityRows(TableBuilder& t, const OutputContext& out) {
  if (!out.settings.print[PRINT_SENSITIVITY]) return;
  for (const SensitivitySentence& row : sensitivitySentences(out)) {
    t.row(" ", {row.label, row.eValue, row.text});
  }
}

}  // namespace

int writeEffectInterpretation(const OutputContext& out) {
  const MediationSettings& s = out.settings;
  TableBuilder t(out.generator, "Effect Interpretation");
  std::vector<std::string> notes;
  addNotes(notes, {outcomeTransformNote(out, NoteTarget::kEffects),
                   exposureTransformNote(out, NoteTarget::kEffects),
                   mediatorTransformNote(out, NoteTarget::kEffects)});
  // The proportion mediated is of a total effect that may not be distinguishable from
  // zero; judged by the interval the report's effect tables show.
  if (std::isfinite(estimateOf(out, "PM"))) {
    const bool bootstrap =
        out.results.flags[FLAG_BOOTSTRAP_SUCCEEDED] && !out.results.bootstrap.empty();
    addNotes(notes, {totalEffectNote(out, bootstrap)});
  }
  if (s.print[PRINT_SENSITIVITY]) notes.push_back(sensitivityInterpretationNote(out));
  for (const std::string& note : notes) t.footnote(note);
  for (const char* c : {"Effect", "Value", "Interpretation"}) t.column(c);
  const std::string path = "('" + s.predictorVar + "'" + kArrow + "'" + s.mediatorVar + "')";

  if (s.outcomeDistribution == NORMAL) {
    t.row(" ", {std::string("Outcome \u2014 continuous (linear scale)"), std::string(" "),
                "Mediator: " + s.mediatorVar});
    const double nde = estimateOf(out, "NDE"), nie = estimateOf(out, "NIE");
    t.row(" ",
          {std::string("Direct Effect (NDE)"), nde,
           std::string("Exposure ") + (nde > 0 ? "increases" : "decreases") + " the outcome by " +
               formatValue(std::fabs(nde)) + " units" + outcomeScaleWords(out, nde)});
    t.row(" ", {std::string("Indirect Effect (NIE)"), nie,
                "Through mediator " + path + ": " + (nie > 0 ? "increases" : "decreases") + " by " +
                    formatValue(std::fabs(nie)) + " units" + outcomeScaleWords(out, nie)});
    t.row(" ", {std::string("Total Effect (TE)"), estimateOf(out, "TE"), std::string(kEmDash)});
    t.row(" ", {std::string("Proportion Mediated"), estimateOf(out, "PM"), std::string(kEmDash)});
    addSensitivityRows(t, out);
    return t.write();
  }

  const bool count = s.outcomeDistribution == POISSON || s.outcomeDistribution == NEGBIN;
  const bool binaryMediator = s.mediatorDistribution == BINOMIAL;
  // The binary-mediator strategies keep their ratio effects under the OR_ names.
  const std::string prefix = binaryMediator ? "OR_" : ratioPrefix(s);
  std::string caption = count ? "Outcome \u2014 count" : "Outcome \u2014 binary";
  // Each coding beside its own variable: the outcome's after the outcome's name.
  std::string coding = binaryMediator ? "Outcome: " + s.outcomeVar : "Mediator: " + s.mediatorVar;
  if (!count) {
    if (!binaryMediator) coding += "; Outcome: " + s.outcomeVar;
    coding += outcomeCoding(out);
  }
  t.row(" ", {caption, std::string(" "), coding});
  const double nde = estimateOf(out, prefix + "NDE"), nie = estimateOf(out, prefix + "NIE");
  t.row(" ", {std::string("Direct Effect (NDE)"), nde, "Exposure " + ratioPhrase(nde, count)});
  t.row(" ", {std::string("Indirect Effect (NIE)"), nie,
              (binaryMediator ? std::string("via mediator ") : "Through mediator " + path + ": ") +
                  ratioPhrase(nie, count)});
  t.row(" ",
        {std::string("Total Effect (TE)"), estimateOf(out, prefix + "TE"), std::string(kEmDash)});
  t.row(" ", {std::string("Proportion Mediated"), estimateOf(out, "PM"), std::string(kEmDash)});
  addSensitivityRows(t, out);
  return t.write();
}

}  // namespace medanlys

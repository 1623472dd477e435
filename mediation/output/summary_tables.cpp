// "Case Processing Summary", "Variable Descriptives" and "Exposure Level Comparison
// Statistics".
#include <algorithm>
#include <cmath>
#include <sstream>

#include "output/output_context.h"
#include "output/report_notes.h"
#include "output/table_builder.h"
#include "stathost/format.h"

namespace medanlys {

std::string confidenceIntervalLabel(int level) {
  return std::to_string(level) + "% Confidence Interval";
}

std::string formatValue(double value) {
  return stathost::formatNumber(value, stathost::STAX_Format::FMT_FIXED, 10, 4);
}

namespace {

// "1 case" or "12 cases".
std::string casesText(long n) { return std::to_string(n) + (n == 1 ? " case" : " cases"); }

// The weight repairs of the case reading, worded so that both rows reconcile: the Removed
// cases split into those left out for their weight and those left out for a missing value,
// and the Removed weight into the weight the removed cases had as read and what rounding
// did to the weights of the kept cases.
//   Removed cases  = casesDroppedForWeight + (cases with a usable weight and a missing value)
//   Removed weight = (weights as read of the removed cases) - weightChangeByRounding
// Removed is always Original minus Cleaned, which rounding can make negative.
std::vector<std::string> weightRepairNotes(const MediationSettings& s) {
  std::vector<std::string> notes;
  if (s.scaleWeightVar.empty()) return notes;
  const long dropped = s.casesDroppedForWeight;
  const long removed = s.casesRead - s.casesValid;
  if (dropped > 0) {
    const std::string reason = std::string(dropped == 1 ? " was" : " were") + " left out because " +
                               (dropped == 1 ? "its" : "their") + " scale weight " +
                               s.scaleWeightVar + " was missing or below 0.5";
    std::string note = removed > dropped ? "Of the " + casesText(removed) + " removed, " +
                                               std::to_string(dropped) + reason + " and " +
                                               std::to_string(removed - dropped) +
                                               " because a value of an analysis variable was "
                                               "missing."
                                         : casesText(dropped) + reason + ".";
    note += " A missing or negative weight counts as 0 in the Original total weight.";
    notes.push_back(note);
  }
  if (s.weightsRounded > 0) {
    std::string note = "Scale weights of " + casesText(s.weightsRounded) +
                       " were rounded to whole numbers (halves away from zero); the Cleaned "
                       "total weight is the sum of the rounded weights.";
    const double removedWeight = s.totalWeightRead - s.totalWeightValid;
    if (removedWeight < 0.0) {
      note +=
          " Rounding raised the total weight, so Removed (Original minus Cleaned) is "
          "negative.";
    }
    // A change that the table's four decimals cannot show is left unsaid.
    const double change = s.weightChangeByRounding;
    if (std::fabs(change) >= 5e-5) {
      const double asRead = removedWeight + change;
      note += " Removed is the " + formatValue(asRead) +
              " that the removed cases weighed as read " +
              (change > 0.0 ? "minus the " + formatValue(change) + " that rounding added to"
                            : "plus the " + formatValue(-change) + " that rounding took from") +
              " the kept cases.";
    }
    notes.push_back(note);
  }
  return notes;
}

}  // namespace

int writeCaseSummary(const OutputContext& out) {
  const MediationSettings& s = out.settings;
  TableBuilder t(out.generator, "Case Processing Summary");
  for (const std::string& note : weightRepairNotes(s)) t.footnote(note);
  for (const char* c : {"Metric", "Original", "Cleaned", "Removed"}) t.column(c);
  t.row(" ", {std::string("Sample Size"), Count{static_cast<double>(s.casesRead)},
              Count{static_cast<double>(s.casesValid)},
              Count{static_cast<double>(s.casesRead - s.casesValid)}});
  t.row(" ", {std::string("Total Weight (W)"), s.totalWeightRead, s.totalWeightValid,
              s.totalWeightRead - s.totalWeightValid});
  if (s.outcomeDistribution == BINOMIAL) {
    t.row(" ", {std::string("Outcome Prevalence"), s.prevalenceRead, s.prevalenceValid,
                std::string(" ")});
  } else {
    t.row(" ", {std::string("Outcome Prevalence"), std::string(" "), std::string(" "),
                std::string(" ")});
  }
  return t.write();
}

namespace {

struct Moments {
  double n = 0, mean = NAN, sd = NAN, range = NAN;
};

// Weighted (frequency weights) N, mean, SD (divisor N - 1) and range.
Moments moments(const Column& x, const Column& w) {
  Moments m;
  double sw = 0.0, s = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    sw += w[i];
    s += w[i] * x[i];
  }
  m.n = sw;
  if (sw <= 0.0) return m;
  m.mean = s / sw;
  double ss = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) ss += w[i] * (x[i] - m.mean) * (x[i] - m.mean);
  m.sd = sw > 1.0 ? std::sqrt(ss / (sw - 1.0)) : NAN;
  const auto [lo, hi] = std::minmax_element(x.begin(), x.end());
  m.range = x.empty() ? NAN : *hi - *lo;
  return m;
}

}  // namespace

int writeDescriptives(const OutputContext& out) {
  const VariableRoleMapper& map = out.settings.roleMapper();
  const Column weights = map.hasRoleData("MEDMODEL_SCALEWEIGHT")
                             ? map.roleData("MEDMODEL_SCALEWEIGHT")
                             : Column(map.roleData("OUTCOMEVAR").size(), 1.0);
  TableBuilder t(out.generator, "Variable Descriptives");
  t.rowHeaderLabel("Type");
  for (const char* c : {"Variables", "N", "Mean", "SD", "Range"}) t.column(c);
  // The Variables column shows the variable's label, or its name when it has none.
  auto add = [&](const std::string& group, const std::string& name, const Column& column,
                 bool factor) {
    const Moments m = moments(column, weights);
    const stathost::STAX_Variable* v =
        out.settings.dataSource().getVariable(out.settings.dataSource().findVariable(name));
    const std::string shown = v && !v->getLabel().empty() ? v->getLabel() : name;
    if (factor) {
      // The codes of a factor have no meaningful mean or SD.
      t.row(name, {shown, Count{m.n}, std::string(" "), std::string(" "), m.range}, group);
    } else {
      t.row(name, {shown, Count{m.n}, m.mean, m.sd, m.range}, group);
    }
  };
  add("Exposure", out.settings.predictorVar, map.roleData("PREDICTORVAR"), false);
  add("Mediator", out.settings.mediatorVar, map.roleData("MEDIATORVAR"), false);
  add("Outcome", out.settings.outcomeVar, map.roleData("OUTCOMEVAR"), false);
  if (map.hasListData("WITH")) {
    for (std::size_t i = 0; i < map.listData("WITH").size(); ++i) {
      add("Covariates", map.listNames("WITH")[i], map.listData("WITH")[i], false);
    }
  }
  if (map.hasListData("BY")) {
    for (std::size_t i = 0; i < map.listData("BY").size(); ++i) {
      add("Factors", map.listNames("BY")[i], map.listData("BY")[i], true);
    }
  }
  return t.write();
}

namespace {

std::string pairs(const std::vector<std::pair<std::string, double>>& values) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    text += (i ? ", " : "") + values[i].first + ": " + formatValue(values[i].second);
  }
  return text;
}

}  // namespace

int writeExposureStatistics(const OutputContext& out) {
  const ReferencePoint& r = out.results.reference;
  const std::vector<std::string>& labels = out.results.covariateLabels;
  TableBuilder t(out.generator, "Exposure Level Comparison Statistics");
  // a*, a-hat and m* are shown on the scale of the fitted models.
  std::vector<std::string> notes;
  addNotes(notes, {exposureTransformNote(out, NoteTarget::kReference),
                   mediatorTransformNote(out, NoteTarget::kReference),
                   mediatorScaleNote(out, NoteTarget::kReference)});
  for (const std::string& note : notes) t.footnote(note);
  t.rowHeaderLabel("Parameter");
  t.column("Description");
  t.column("Value");
  auto number = [](double v) {
    return std::isfinite(v) ? CellValue(v) : CellValue(std::string("."));
  };
  t.row("Control level", {std::string("a*"), number(r.a_star)});
  t.row("Treatment level", {std::string("a-hat"), number(r.a_hat)});
  t.row("Exposure contrast", {std::string("Delta a = a - a*"), number(r.a_hat - r.a_star)});
  t.row("Mediator reference", {std::string("m*"), number(r.m_star)});
  // Factors: their dummy columns (name=level) with the reference values used; then each
  // covariate; then the whole c* vector, in model column order.
  std::size_t column = 0;
  const auto& factors = out.settings.factors;
  const VariableRoleMapper& map = out.settings.roleMapper();
  for (std::size_t f = 0; f < factors.size(); ++f) {
    std::vector<std::pair<std::string, double>> coding;
    std::vector<double> levels;
    if (map.hasListData("BY")) {
      levels = map.listData("BY")[f];
      std::sort(levels.begin(), levels.end());
      levels.erase(std::unique(levels.begin(), levels.end()), levels.end());
    }
    if (!levels.empty()) coding.emplace_back("reference", levels.front());
    for (std::size_t l = 1; l < levels.size() && column < r.c_star.size(); ++l, ++column) {
      coding.emplace_back(labels.size() > column ? labels[column] : factors[f], r.c_star[column]);
    }
    t.row("Factor_" + std::to_string(f + 1), {factors[f], pairs(coding)});
  }
  for (std::size_t c = 0; c < out.settings.covariates.size() && column < r.c_star.size();
       ++c, ++column) {
    t.row("Covariate_" + std::to_string(c + 1),
          {out.settings.covariates[c],
           "[" + pairs({{out.settings.covariates[c], r.c_star[column]}}) + "]"});
  }
  std::string cStar = "[";
  for (std::size_t i = 0; i < r.c_star.size(); ++i)
    cStar += (i ? ", " : "") + formatValue(r.c_star[i]);
  t.row("Covariate reference", {std::string("c*"), cStar + "]"});
  return t.write();
}

}  // namespace medanlys

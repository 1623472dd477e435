// The E-value curves of TE, NDE and NIE as a GPL chart.
#include <algorithm>
#include <cmath>

#include "output/sensitivity.h"
#include "stathost/format.h"

namespace medanlys {
namespace {

constexpr int kHalfCurvePoints = 48;  // points from the diagonal to the edge, each side

std::string data(const std::string& name, bool category = false) {
  return "DATA: " + name + " = col(source(s), name(\"" + name + "\")" +
         (category ? ", unit.category())\n" : ")\n");
}

std::string twoDecimals(double v) {
  return stathost::formatNumber(v, stathost::STAX_Format::FMT_FIXED, 10, 2);
}

// Ratios drawn as their reciprocal, for the curve and the label.
double awayFromOne(double rr) { return rr < 1.0 ? 1.0 / rr : rr; }

}  // namespace

MediationEValuePlot::MediationEValuePlot(stathost::StatJSONGenerator* generator,
                                         std::vector<Curve> curves, std::vector<std::string> notes)
    : StatGPLGraph(generator, "Sensitivity Analysis: E-value Curves"), notes_(std::move(notes)) {
  double largest = 1.0;
  for (const Curve& c : curves) {
    const double e = eValue(c.rr);
    // A ratio of 1 has no curve (nothing to explain away); one that is not finite has none.
    if (!std::isfinite(e) || !(e > 1.0)) continue;
    curves_.push_back(c);
    largest = std::max(largest, e);
  }
  // Room beyond the largest E-value, so that each curve bends visibly; whole numbers.
  top_ = std::ceil(std::max(3.0, 1.6 * largest));
}

// Each curve in two halves that mirror each other across the diagonal: from the E-value
// (E, E) out to the right edge, and the same points with the two ratios swapped, which
// run up to the top edge.
void MediationEValuePlot::fillData() {
  std::vector<double> eu, ud;
  std::vector<std::string> curve;
  std::vector<double> pointX, pointY;
  std::vector<std::string> pointLabel;
  for (const Curve& c : curves_) {
    const double r = awayFromOne(c.rr);
    const double e = eValue(c.rr);
    std::vector<std::pair<double, double>> half;
    for (int k = 0; k <= kHalfCurvePoints; ++k) {
      // Denser near the diagonal, where the curve turns.
      const double t = static_cast<double>(k) / kHalfCurvePoints;
      const double x = e + (top_ - e) * t * t;
      half.emplace_back(x, eValueCurve(r, x));
    }
    std::vector<std::pair<double, double>> points;
    for (auto it = half.rbegin(); it != half.rend(); ++it)
      points.emplace_back(it->second, it->first);
    points.insert(points.end(), half.begin() + 1, half.end());
    for (const auto& [x, y] : points) {
      if (!std::isfinite(x) || !std::isfinite(y)) continue;
      eu.push_back(x);
      ud.push_back(y);
      curve.push_back(c.effect);
    }
    pointX.push_back(e);
    pointY.push_back(e);
    pointLabel.push_back(c.effect + ": E = " + twoDecimals(e) + (c.rr < 1.0 ? " (1/RR)" : ""));
  }
  addDoubleDataVariable(eu, "rrEU");
  addDoubleDataVariable(ud, "rrUD");
  addStringDataVariable(curve, "curve");
  addDoubleDataVariable({1.0, top_}, "diagonalX");
  addDoubleDataVariable({1.0, top_}, "diagonalY");
  addDoubleDataVariable(pointX, "eValueX");
  addDoubleDataVariable(pointY, "eValueY");
  addStringDataVariable(pointLabel, "eValueLabel");
}

std::string MediationEValuePlot::getGPLText() {
  const std::string top = stathost::formatShortest(top_);
  std::string gpl = "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n";
  gpl += data("rrEU") + data("rrUD") + data("curve", true) + data("diagonalX") + data("diagonalY") +
         data("eValueX") + data("eValueY") + data("eValueLabel", true);
  gpl += "SCALE: linear(dim(1), min(1), max(" + top + "))\n";
  gpl += "SCALE: linear(dim(2), min(1), max(" + top + "))\n";
  gpl += "GUIDE: axis(dim(1), label(\"Risk ratio of the confounder with the exposure (RR_EU)\"))\n";
  gpl += "GUIDE: axis(dim(2), label(\"Risk ratio of the confounder with the outcome (RR_UD)\"))\n";
  gpl += "GUIDE: text.title(label(\"" + title() + "\"))\n";
  gpl +=
      "GUIDE: text.footnote(label(\"Each curve holds the confounder strengths that would just "
      "explain the effect away, RR_EU \u00d7 RR_UD / (RR_EU + RR_UD \u2212 1) = RR; a confounder "
      "above the curve could explain it away, one below could not. The point on the diagonal is "
      "the E-value (VanderWeele and Ding 2017).\"))\n";
  gpl +=
      "GUIDE: text.footnote(label(\"For NIE, RR_EU is the confounder's risk ratio with the "
      "mediator. A ratio below 1 is drawn as 1/RR.\"))\n";
  for (const std::string& note : notes_) gpl += "GUIDE: text.footnote(label(\"" + note + "\"))\n";
  gpl += "GUIDE: legend(aesthetic(aesthetic.color), label(\"Effect\"))\n";
  gpl +=
      "SCALE: cat(aesthetic(aesthetic.color), include(\"TE\", \"NDE\", \"NIE\"), map((\"TE\", "
      "color.black), (\"NDE\", color.blue), (\"NIE\", color.red)))\n";
  gpl +=
      "ELEMENT: line(position(diagonalX*diagonalY), color(color.gray), size(size.\"1px\"), "
      "shape(shape.dash))\n";
  gpl += "ELEMENT: line(position(rrEU*rrUD), color(curve), split(curve), size(size.\"2px\"))\n";
  gpl +=
      "ELEMENT: point(position(eValueX*eValueY), size(size.\"6pt\"), shape(shape.circle), "
      "color(color.black), label(eValueLabel))\n";
  return gpl;
}

bool writeEValuePlot(const OutputContext& out, int& status) {
  const SensitivityAnalysis a = sensitivityAnalysis(out);
  std::vector<MediationEValuePlot::Curve> curves;
  std::vector<std::string> skipped;
  for (const char* effect : {"TE", "NDE", "NIE"}) {
    const SensitivityEffect* e = a.find(effect);
    const double rr = e ? e->values.rr : NAN;
    const double ev = eValue(rr);
    if (std::isfinite(ev) && ev > 1.0) {
      curves.push_back({effect, rr});
    } else {
      skipped.push_back(effect);
    }
  }
  if (curves.empty()) return false;
  std::vector<std::string> notes{conversionNote(out, a)};
  if (!skipped.empty()) {
    std::string names;
    for (std::size_t i = 0; i < skipped.size(); ++i) {
      names += (i == 0 ? "" : i + 1 == skipped.size() ? " and " : ", ") + skipped[i];
    }
    notes.push_back("Not drawn: " + names + (skipped.size() == 1 ? " has" : " have") +
                    " a risk ratio of 1 or none, so no curve.");
  }
  MediationEValuePlot chart(&out.generator, std::move(curves), std::move(notes));
  chart.fillData();
  status = chart.addGPLGraphToProcedureJSON();
  return true;
}

}  // namespace medanlys

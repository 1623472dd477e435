#include "output/charts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "algorithm/data_preparation.h"
#include "effects/continuous_effects.h"
#include "output/report_notes.h"
#include "output/sensitivity.h"
#include "stathost/format.h"

namespace medanlys {
namespace {

std::string num(double v, int decimals = 3) {
  return stathost::formatNumber(v, stathost::STAX_Format::FMT_FIXED, 10, decimals);
}

std::string data(const std::string& name, bool category = false) {
  return "DATA: " + name + " = col(source(s), name(\"" + name + "\")" +
         (category ? ", unit.category())\n" : ")\n");
}

// The compact form the path diagram uses: "DATA: name=col(...)".
std::string dataCompact(const std::string& name, bool category = false) {
  return "DATA: " + name + "=col(source(s), name(\"" + name + "\")" +
         (category ? ", unit.category())\n" : ")\n");
}

bool binaryMediator(const OutputContext& out) {
  return out.settings.mediatorDistribution == BINOMIAL;
}

// Mediator model coefficients and their model-based SEs, whichever model was fitted.
const Vector& mediatorCoefficients(const OutputContext& out) {
  return binaryMediator(out) ? out.results.mediatorLogisticFit.coefficients
                             : out.results.mediatorFit.coefficients;
}
double mediatorSE(const OutputContext& out, std::size_t j) {
  const bool robust = out.settings.covb == COVB_ROBUST;
  if (binaryMediator(out)) {
    const GlmFit& f = out.results.mediatorLogisticFit;
    return robust ? f.seRobust[j] : f.seModel[j];
  }
  return robust ? out.results.mediatorFit.seRobust[j] : out.results.mediatorFit.seModel[j];
}
double outcomeSE(const OutputContext& out, std::size_t j) {
  const WlsFit& f = out.results.outcomeFit;
  return out.settings.covb == COVB_ROBUST ? f.seRobust[j] : f.seModel[j];
}

bool ratioOutcome(const OutputContext& out) { return out.settings.outcomeDistribution != NORMAL; }

// The bootstrap tables replace the delta-method ones: the forest plot follows them.
bool bootstrapShown(const OutputContext& out) {
  return out.settings.analysisType == CAUSAL && out.results.flags[FLAG_BOOTSTRAP_SUCCEEDED] &&
         !out.results.bootstrap.empty();
}

// The level of the intervals in the forest plot.
int forestLevel(const OutputContext& out) {
  return bootstrapShown(out) ? bootstrapLevel(out.settings) : out.settings.ciLevel;
}

// "OR_", "RR_" or "IRR_": the names of the ratio effects of a binary or count outcome.
std::string ratioPrefix(const OutputContext& out) {
  const MediationSettings& s = out.settings;
  if (s.outcomeDistribution == BINOMIAL) return s.outcomeLink == LOG ? "RR_" : "OR_";
  return "IRR_";
}

}  // namespace

// ---- scatter plot ----------------------------------------------------------------------

MediationScatterPlot::MediationScatterPlot(stathost::StatJSONGenerator* generator,
                                           const OutputContext& out)
    : StatGPLGraph(generator,
                   "Scatter Plot: " + out.settings.outcomeVar + " vs " + out.settings.mediatorVar),
      out_(out) {}

void MediationScatterPlot::fillData() {
  const VariableRoleMapper& map = out_.settings.roleMapper();
  addDoubleDataVariable(map.roleData("MEDIATORVAR"), "xdata");
  addDoubleDataVariable(map.roleData("OUTCOMEVAR"), "ydata");
  addDoubleDataVariable(map.roleData("PREDICTORVAR"), "exposure");
}

std::string MediationScatterPlot::getGPLText() {
  const MediationSettings& s = out_.settings;
  return "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n" + data("xdata") +
         data("ydata") + data("exposure") + "GRAPH: begin()\n" + "GUIDE: axis(dim(2), label(\"" +
         s.outcomeVar + "\"))\n" + "GUIDE: axis(dim(1), label(\"" + s.mediatorVar + "\"))\n" +
         "GUIDE: text.title(label(\"" + title() + "\"))\n" +
         "GUIDE: legend(aesthetic(aesthetic.color), label(\"" + s.predictorVar + "\"))\n" +
         "ELEMENT: line(position(smooth.linear(xdata*ydata)), color(color.black), "
         "size(size.\"2px\"))\n" +
         "ELEMENT: point(position(xdata*ydata), color(exposure))\n" + "GRAPH: end()\n";
}

// ---- bar plot ----------------------------------------------------------------------------

MediationBarPlot::MediationBarPlot(stathost::StatJSONGenerator* generator, const OutputContext& out,
                                   bool proportions, bool quartiles, std::vector<Bar> bars)
    : StatGPLGraph(generator, out.settings.outcomeVar + " by " + out.settings.mediatorVar +
                                  (quartiles ? " Quartiles" : " Level")),
      out_(out),
      proportions_(proportions),
      quartiles_(quartiles),
      bars_(std::move(bars)) {}

void MediationBarPlot::fillData() {
  std::vector<std::string> mediatorLevel, outcomeLevel;
  Vector value, lower, upper;
  for (const Bar& b : bars_) {
    mediatorLevel.push_back(b.mediatorLevel);
    outcomeLevel.push_back(b.outcomeLevel);
    value.push_back(b.value);
    lower.push_back(b.lower);
    upper.push_back(b.upper);
  }
  addStringDataVariable(mediatorLevel, "mediator_level");
  if (!proportions_) {
    addDoubleDataVariable(value, "outcome_mean");
    return;
  }
  addStringDataVariable(outcomeLevel, "outcome_level");
  addDoubleDataVariable(value, "proportion");
  addDoubleDataVariable(lower, "ci_lower");
  addDoubleDataVariable(upper, "ci_upper");
}

std::string MediationBarPlot::getGPLText() {
  const MediationSettings& s = out_.settings;
  std::string gpl = "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n";
  if (!proportions_) {
    gpl += data("mediator_level", true) + data("outcome_mean");
    gpl += "GUIDE: axis(dim(1), label(\"" + s.mediatorVar + " (Binary)\"))\n";
    gpl += "GUIDE: axis(dim(2), label(\"Mean (" + s.outcomeVar + ")\"))\n";
    gpl += "GUIDE: text.title(label(\"" + title() + "\"))\n";
    gpl += "GUIDE: text.footnote(label(\"Bars represent group mean values.\"))\n";
    gpl += "SCALE: cat(dim(1))\nSCALE: linear(dim(2), include(0))\n";
    gpl += "SCALE: cat(aesthetic(aesthetic.color.interior), map((\"" + s.mediatorVar +
           "=0\", color.blue), (\"" + s.mediatorVar + "=1\", color.orange)))\n";
    gpl +=
        "ELEMENT: interval(position(mediator_level*outcome_mean), color.interior(mediator_level), "
        "color.exterior(color.black), shape.interior(shape.square), label(outcome_mean))\n";
    return gpl;
  }
  gpl += data("mediator_level", true) + data("outcome_level", true) + data("proportion") +
         data("ci_lower") + data("ci_upper");
  gpl +=
      "COORD: rect(dim(1,2), cluster(3))\nSCALE: cat(dim(1))\nSCALE: linear(dim(2), include(0))\n";
  gpl += "GUIDE: axis(dim(2), label(\"Proportion (%)\"))\n";
  gpl += "GUIDE: axis(dim(1), label(\"" + s.outcomeVar + "\"))\n";
  gpl += "GUIDE: text.title(label(\"" + title() + "\"))\n";
  std::string footnote = "Grouped bars show proportions";
  if (s.plot.barErrorBars)
    footnote += " with " + std::to_string(s.ciLevel) + "% confidence intervals";
  gpl += "GUIDE: text.footnote(label(\"" + footnote + "\"))\n";
  gpl += "GUIDE: legend(aesthetic(aesthetic.color.interior), label(\"" + s.outcomeVar + "\"))\n";
  gpl += "SCALE: cat(aesthetic(aesthetic.color.interior), map((\"" + s.outcomeVar +
         "=0\", color.lightcoral), (\"" + s.outcomeVar + "=1\", color.steelblue)))\n";
  gpl +=
      "ELEMENT: interval(position(outcome_level*proportion*mediator_level), "
      "color.interior(outcome_level), "
      "color.exterior(color.black))\n";
  if (s.plot.barErrorBars) {
    gpl +=
        "ELEMENT: "
        "interval(position(region.spread.range(outcome_level*(ci_lower+ci_upper)*mediator_level)), "
        "shape.interior(shape.ibeam), color.interior(color.black), size(size.\"0.4in\"))\n";
  }
  return gpl;
}

// ---- forest plot -------------------------------------------------------------------------

MediationForestPlot::MediationForestPlot(stathost::StatJSONGenerator* generator,
                                         const OutputContext& out, std::vector<Row> rows,
                                         ForestForm form)
    : StatGPLGraph(generator, "Mediation Analysis Forest Plot"),
      out_(out),
      rows_(std::move(rows)),
      form_(std::move(form)) {}

// Two data rows per effect: the point twice, the interval's lower and upper end.
void MediationForestPlot::fillData() {
  std::vector<std::string> effect, effectDup, effectRange;
  Vector pointLoc, ciRange, xNull, xTotal, xOR;
  for (const Row& r : rows_) {
    for (double end : {r.lower, r.upper}) {
      effect.push_back(r.label);
      pointLoc.push_back(r.estimate);
      effectDup.push_back(r.label);
      ciRange.push_back(out_.settings.plot.forestConfidenceIntervals ? end : NAN);
      effectRange.push_back(r.label);
      xNull.push_back(0.0);
      xTotal.push_back(form_.totalEffect);
      xOR.push_back(1.0);
    }
  }
  addStringDataVariable(effect, "effect");
  addDoubleDataVariable(pointLoc, "pointLoc");
  addStringDataVariable(effectDup, "effectDup");
  addDoubleDataVariable(ciRange, "ciRange");
  addStringDataVariable(effectRange, "effectRange");
  addDoubleDataVariable(xNull, "xNull");
  addDoubleDataVariable(xTotal, "xTotal");
  if (form_.scale != ForestScale::kLinear) addDoubleDataVariable(xOR, "xOR");
}

std::string MediationForestPlot::getGPLText() {
  const bool ratioLine = form_.scale != ForestScale::kLinear;
  const bool nullLine = form_.scale != ForestScale::kRatio;
  const std::string te = num(form_.totalEffect, 4);
  std::string gpl = "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n";
  gpl += data("effect", true) + data("pointLoc") + data("effectDup", true) + data("ciRange") +
         data("effectRange", true) + data("xNull") + data("xTotal");
  if (ratioLine) gpl += data("xOR");
  gpl += form_.transposed ? "COORD: transpose()\nSCALE: cat(dim(1), sort.data(), reverse())\n"
                          : "SCALE: cat(dim(1))\n";
  gpl += form_.scale == ForestScale::kRatio ? "SCALE: linear(dim(2), include(1.0))\n"
                                            : "SCALE: linear(dim(2), include(0))\n";
  gpl += "GUIDE: axis(dim(1), label(\"\"))\n";
  gpl += "GUIDE: axis(dim(2), label(\"" + form_.axisLabel + "\"))\n";
  gpl += "GUIDE: text.title(label(\"" + title() + "\"))\n";
  gpl += "GUIDE: text.footnote(label(\"" + std::to_string(form_.level) +
         "% Point Estimate  -Confidence Interval\"))\n";
  for (const std::string& note : form_.notes) {
    gpl += "GUIDE: text.footnote(label(\"" + note + "\"))\n";
  }
  if (form_.scale == ForestScale::kMixed) {
    gpl +=
        "GUIDE: text.subfootnote(label(\"Note: Mixed scales - Intercepts on linear scale "
        "(ref=0), Paths/Effects on ratio scale (ref=1).\"))\n";
  } else if (form_.scale == ForestScale::kRatio) {
    gpl +=
        "GUIDE: text.subfootnote(label(\"Note: Effect sizes may appear compressed initially. "
        "Adjust or drag the plot to view the full range clearly.\"))\n";
  }
  // The same elements in both layouts, with the category and value roles swapped.
  const auto at = [&](const std::string& value, const std::string& category) {
    return form_.transposed ? value + "*" + category : category + "*" + value;
  };
  const auto reference = [&](const std::string& position, const char* colour,
                             const std::string& label) {
    return "ELEMENT: line(position(" + position + "), color(color." + colour +
           "), size(size.\"2px\"), shape(shape.dash), label(\"" + label + "\"))\n";
  };
  if (out_.settings.plot.forestConfidenceIntervals) {
    gpl += "ELEMENT: line(position(" + at("ciRange", "effectDup") +
           "), color(color.blue), size(size.\"2pt\"), split(effectDup))\n";
  }
  gpl += "ELEMENT: point(position(" + at("pointLoc", "effect") +
         "), size(size.\"8pt\"), shape(shape.square), color(color.black))\n";
  if (nullLine) {
    gpl += reference(form_.transposed ? "0*effectRange" : "effectRange*xNull", "grey",
                     "Null Effect (0)");
  }
  if (ratioLine)
    gpl += reference(form_.transposed ? "1*effectRange" : "effectRange*xOR", "red", "OR=1");
  if (std::isfinite(form_.totalEffect)) {
    gpl += reference(form_.transposed ? te + "*effectRange" : "effectRange*xTotal", "red",
                     "Total Effect (" + te + ")");
  }
  return gpl;
}

// ---- path diagram ------------------------------------------------------------------------

MediationPathDiagram::MediationPathDiagram(stathost::StatJSONGenerator* generator,
                                           const OutputContext& out)
    : StatGPLGraph(generator, "Mediation Analysis Path Diagram"), out_(out) {}

namespace {

// The plane is 0..100 both ways: exposure left, mediator top, outcome right.
constexpr double kXx = 12, kXy = 40, kMx = 50, kMy = 80, kYx = 88, kYy = 40;

}  // namespace

void MediationPathDiagram::fillData() {
  const MediationSettings& s = out_.settings;
  const Vector& beta = mediatorCoefficients(out_);
  const Vector& theta = outcomeCoefficients(out_);
  addStringDataVariable({s.predictorVar, s.mediatorVar, s.outcomeVar}, "nodeName");
  addDoubleDataVariable({kXx, kMx, kYx}, "nodeX");
  addDoubleDataVariable({kXy, kMy, kYy}, "nodeY");
  addDoubleDataVariable({kXx, kMx, kYx}, "nodeLabelX");
  addDoubleDataVariable({kXy, kMy, kYy}, "nodeLabelY");
  // Paths a (exposure to mediator), b (mediator to outcome), c' (exposure to outcome),
  // shortened so that the arrow heads stop at the boxes.
  addDoubleDataVariable({kXx + 6, kMx + 6, kXx + 8}, "pathX1");
  addDoubleDataVariable({kXy + 6, kMy - 6, kXy}, "pathY1");
  addDoubleDataVariable({kMx - 6, kYx - 6, kYx - 8}, "pathX2");
  addDoubleDataVariable({kMy - 6, kYy + 6, kYy}, "pathY2");
  addStringDataVariable({"a = " + num(beta.size() > 1 ? beta[1] : NAN),
                         "b = " + num(theta.size() > 2 ? theta[2] : NAN),
                         "c' = " + num(theta.size() > 1 ? theta[1] : NAN)},
                        "pathLabel");
  addDoubleDataVariable({(kXx + kMx) / 2 - 6, (kMx + kYx) / 2 + 6, (kXx + kYx) / 2}, "labelX");
  addDoubleDataVariable({(kXy + kMy) / 2 + 4, (kMy + kYy) / 2 + 4, kXy - 4}, "labelY");
  // Colour category per path type: 1 exposure-mediator, 2 mediator-outcome, 3 direct.
  addStringDataVariable({"1", "2", "3"}, "pathColorCat");
  if (s.analysisType == CAUSAL) {
    // The ratios themselves for a binary or count outcome, as in the forest plot.
    const std::string prefix = ratioOutcome(out_) ? ratioPrefix(out_) : "";
    const auto est = [&](const char* name) {
      const auto it = out_.results.effects.find(prefix + name);
      return it == out_.results.effects.end() ? NAN : it->second.estimate;
    };
    const std::vector<std::pair<const char*, double>> nodes = {
        {"nieNodeX", 50}, {"nieNodeY", 18}, {"teNodeX", 50}, {"teNodeY", 4}};
    for (const auto& [name, value] : nodes) addDoubleDataVariable({value}, name);
    addStringDataVariable({"NIE"}, "nieName");
    addStringDataVariable({num(est("NIE"))}, "nieValue");
    addStringDataVariable({"TE"}, "teName");
    addStringDataVariable({num(est("TE"))}, "teValue");
    const std::vector<std::pair<const char*, double>> labels = {
        {"nieNameX", 50}, {"nieNameY", 20}, {"nieValueX", 50}, {"nieValueY", 15},
        {"teNameX", 50},  {"teNameY", 6},   {"teValueX", 50},  {"teValueY", 1}};
    for (const auto& [name, value] : labels) addDoubleDataVariable({value}, name);
    const std::vector<std::pair<const char*, double>> arrows = {
        {"xnieX1", kXx + 4}, {"xnieY1", kXy - 6}, {"xnieX2", 44},      {"xnieY2", 18},
        {"nieyX1", 56},      {"nieyY1", 18},      {"nieyX2", kYx - 4}, {"nieyY2", kYy - 6},
        {"xteX1", kXx},      {"xteY1", kXy - 8},  {"xteX2", 44},       {"xteY2", 4},
        {"teyX1", 56},       {"teyY1", 4},        {"teyX2", kYx},      {"teyY2", kYy - 8}};
    for (const auto& [name, value] : arrows) addDoubleDataVariable({value}, name);
  }
  if (!s.plot.hideCovariateEffects) {
    const std::vector<std::string>& labels = out_.results.covariateLabels;
    covariates_ = labels.size();
    Vector covX, covY;
    for (std::size_t k = 0; k < covariates_; ++k) {
      covX.push_back(10 + 80.0 * (static_cast<double>(k) + 0.5) / static_cast<double>(covariates_));
      covY.push_back(96);
    }
    addDoubleDataVariable(covX, "covX");
    addDoubleDataVariable(covY, "covY");
    addStringDataVariable(labels, "covName");
    const bool interaction = s.interaction;
    for (std::size_t k = 0; k < covariates_; ++k) {
      const std::string c = "cov" + std::to_string(k);
      const double betaK = beta.size() > 2 + k ? beta[2 + k] : NAN;
      const std::size_t tIndex = (interaction ? 4 : 3) + k;
      const double thetaK = theta.size() > tIndex ? theta[tIndex] : NAN;
      addDoubleDataVariable({covX[k]}, c + "_b2X1");
      addDoubleDataVariable({93}, c + "_b2Y1");
      addDoubleDataVariable({kMx + (covX[k] - kMx) * 0.2}, c + "_b2X2");
      addDoubleDataVariable({kMy + 6}, c + "_b2Y2");
      addStringDataVariable({num(betaK)}, c + "_b2Text");
      addDoubleDataVariable({(covX[k] + kMx) / 2 - 3}, c + "_b2LX");
      addDoubleDataVariable({89}, c + "_b2LY");
      addDoubleDataVariable({covX[k] + 1}, c + "_t4X1");
      addDoubleDataVariable({93}, c + "_t4Y1");
      addDoubleDataVariable({kYx - 2}, c + "_t4X2");
      addDoubleDataVariable({kYy + 6}, c + "_t4Y2");
      addStringDataVariable({num(thetaK)}, c + "_t4Text");
      // Halfway along the arrow: below the mediator's box, spread with the covariates.
      addDoubleDataVariable({(covX[k] + 1 + kYx - 2) / 2 + 2}, c + "_t4LX");
      addDoubleDataVariable({(93 + kYy + 6) / 2}, c + "_t4LY");
    }
  }
}

std::string MediationPathDiagram::getGPLText() {
  const MediationSettings& s = out_.settings;
  std::string gpl = "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n";
  gpl +=
      "COORD: rect(dim(1,2), sameRatio())\nSCALE: linear(dim(1), min(0), max(100))\n"
      "SCALE: linear(dim(2), min(0), max(100))\nGUIDE: axis(dim(1), null())\nGUIDE: axis(dim(2), "
      "null())\n";
  gpl += "GUIDE: text.title(label(\"" + title() + "\"))\n";
  gpl +=
      "GUIDE: text.footnote(label(\"Note: If values appear cluttered, please enlarge the diagram "
      "in edit "
      "mode for better visibility.\"))\n";
  // The NIE and TE shown are on the outcome's model scale.
  const std::string outcomeNote = outcomeTransformNote(out_, NoteTarget::kEffects);
  if (!outcomeNote.empty()) gpl += "GUIDE: text.footnote(label(\"" + outcomeNote + "\"))\n";
  gpl += data("nodeName", true) + data("nodeX") + data("nodeY") + data("nodeLabelX") +
         data("nodeLabelY");
  gpl +=
      "ELEMENT: point(position(nodeX*nodeY), size(size.\"40pt\"), shape.interior(shape.square), "
      "color.interior(color.white), color.exterior(color.black))\n";
  gpl +=
      "ELEMENT: point(position(nodeLabelX*nodeLabelY), label(nodeName), size(size.\"0pt\"), "
      "color(color.black), transparency(transparency.\"1\"))\n";
  gpl += data("pathX1") + data("pathY1") + data("pathX2") + data("pathY2") +
         data("pathLabel", true) + data("labelX") + data("labelY") + data("pathColorCat", true);
  if (s.plot.edgeColorTypeBased) {
    gpl +=
        "SCALE: cat(aesthetic(aesthetic.color), include(\"0\", \"1\", \"2\", \"3\"), map((\"0\", "
        "color.black), "
        "(\"1\", color.blue), (\"2\", color.green), (\"3\", color.red)))\n";
    gpl += "GUIDE: legend(aesthetic(aesthetic.color), null())\n";
    gpl +=
        "ELEMENT: edge(position(link.join(pathX1*pathY1+pathX2*pathY2)), color(pathColorCat), "
        "size(size.\"2pt\"), shape(shape.arrow))\n";
  } else {
    gpl +=
        "ELEMENT: edge(position(link.join(pathX1*pathY1+pathX2*pathY2)), color(color.black), "
        "size(size.\"2pt\"), shape(shape.arrow))\n";
  }
  gpl +=
      "ELEMENT: point(position(labelX*labelY), label(pathLabel), size(size.tiny), "
      "color(color.black), "
      "transparency(transparency.\"1\"))\n";
  if (s.analysisType == CAUSAL) {
    for (const char* name : {"nieNodeX", "nieNodeY", "teNodeX", "teNodeY"})
      gpl += dataCompact(name);
    for (const char* name : {"nieName", "nieValue", "teName", "teValue"})
      gpl += dataCompact(name, true);
    for (const char* name : {"nieNameX", "nieNameY", "nieValueX", "nieValueY", "teNameX", "teNameY",
                             "teValueX", "teValueY"}) {
      gpl += dataCompact(name);
    }
    gpl +=
        "ELEMENT: point(position(nieNodeX*nieNodeY), size(size.\"40pt\"), "
        "shape.interior(shape.circle), "
        "color.interior(color.yellow), color.exterior(color.black))\n";
    gpl +=
        "ELEMENT: point(position(teNodeX*teNodeY), size(size.\"40pt\"), "
        "shape.interior(shape.circle), "
        "color.interior(color.pink), color.exterior(color.black))\n";
    for (const char* label : {"nieName", "nieValue", "teName", "teValue"}) {
      const std::string l = label;
      gpl += "ELEMENT: point(position(" + l + "X*" + l + "Y), label(" + l +
             "), size(size.\"0pt\"), color(color.black), transparency(transparency.\"1\"))\n";
    }
    for (const char* arrow : {"xnie", "niey", "xte", "tey"}) {
      const std::string a = arrow;
      for (const char* suffix : {"X1", "Y1", "X2", "Y2"}) gpl += dataCompact(a + suffix);
      gpl += "ELEMENT: edge(position(link.join(" + a + "X1*" + a + "Y1+" + a + "X2*" + a +
             "Y2)), size(size.\"1pt\"), color(color.gray), shape(shape.arrow))\n";
    }
  }
  if (!s.plot.hideCovariateEffects && covariates_ > 0) {
    gpl += dataCompact("covX") + dataCompact("covY") + dataCompact("covName", true);
    gpl +=
        "ELEMENT: point(position(covX*covY), size(size.\"20pt\"), shape.interior(shape.circle), "
        "color.interior(color.lightgray), color.exterior(color.gray))\n";
    gpl +=
        "ELEMENT: point(position(covX*covY), label(covName), size(size.\"0pt\"), "
        "color(color.black), "
        "transparency(transparency.\"1\"))\n";
    for (std::size_t k = 0; k < covariates_; ++k) {
      const std::string c = "cov" + std::to_string(k);
      for (const char* path : {"_b2", "_t4"}) {
        const std::string p = c + path;
        for (const char* suffix : {"X1", "Y1", "X2", "Y2", "LX", "LY"})
          gpl += dataCompact(p + suffix);
        gpl += dataCompact(p + "Text", true);
        gpl += "ELEMENT: edge(position(link.join(" + p + "X1*" + p + "Y1+" + p + "X2*" + p +
               "Y2)), size(size.\"1pt\"), color(color.lightgray), shape(shape.arrow))\n";
        gpl += "ELEMENT: point(position(" + p + "LX*" + p + "LY), label(" + p +
               "Text), size(size.tiny), color(color.gray), transparency(transparency.\"1\"))\n";
      }
    }
  }
  return gpl;
}

// ---- forest rows and form ----------------------------------------------------------------

std::vector<MediationForestPlot::Row> forestRows(const OutputContext& out) {
  std::vector<MediationForestPlot::Row> rows;
  const MediationSettings& s = out.settings;
  const double z = criticalValue(forestLevel(out));
  const Vector& beta = mediatorCoefficients(out);
  const bool ratio = ratioOutcome(out);
  const Vector& theta = outcomeCoefficients(out);
  const auto thetaSE = [&](std::size_t j) {
    if (!ratio) return outcomeSE(out, j);
    const GlmFit& f = out.results.outcomeGlmFit;
    return s.covb == COVB_ROBUST ? f.seRobust[j] : f.seModel[j];
  };
  auto linear = [&](const std::string& label, double estimate, double se) {
    rows.push_back({label, estimate, estimate - z * se, estimate + z * se});
  };
  // An outcome-model coefficient: as it is, or as a ratio exp(theta) of a log or logit link.
  auto outcomePath = [&](const std::string& label, std::size_t j) {
    if (!ratio) return linear(label, theta[j], thetaSE(j));
    rows.push_back({label, std::exp(theta[j]), std::exp(theta[j] - z * thetaSE(j)),
                    std::exp(theta[j] + z * thetaSE(j))});
  };
  // Intercepts come with the binary mediator, and with a ratio outcome whenever the paths
  // are shown (they then share the axis).
  const bool intercepts = binaryMediator(out) || (ratio && s.plot.forestPathCoefficients);
  if (intercepts && !beta.empty() && !theta.empty()) {
    linear("(M intercept) Beta0", beta[0], mediatorSE(out, 0));
    linear("(Y intercept) Theta0", theta[0], thetaSE(0));
  }
  if (s.plot.forestPathCoefficients) {
    const std::string a = ratio ? " (Beta1)" : " (a)", b = ratio ? " (Theta2)" : " (b)",
                      c = ratio ? " (Theta1)" : " (c')";
    if (beta.size() > 1) {
      linear(s.predictorVar + " -> " + s.mediatorVar + a, beta[1], mediatorSE(out, 1));
    } else {
      rows.push_back({"Exposure not available", NAN, NAN, NAN});
    }
    if (theta.size() > 2) {
      outcomePath(s.mediatorVar + " -> " + s.outcomeVar + b, 2);
      outcomePath(s.predictorVar + " -> " + s.outcomeVar + c, 1);
    } else {
      rows.push_back({"Mediator not available", NAN, NAN, NAN});
    }
  }
  if (s.analysisType == CAUSAL) {
    const std::string prefix = ratio ? ratioPrefix(out) : "";
    for (const auto& [key, label] :
         std::vector<std::pair<const char*, const char*>>{{"NIE", "NIE (Natural Indirect)"},
                                                          {"NDE", "NDE (Natural Direct)"},
                                                          {"TE", "TE (Total Effect)"},
                                                          {"CDE", "CDE (Controlled Direct)"}}) {
      if (bootstrapShown(out)) {
        const auto it = out.results.bootstrap.find(prefix + key);
        if (it == out.results.bootstrap.end()) continue;
        const IntervalKeys keys = bootstrapIntervalKeys(s.bootstrapInterval);
        const auto get = [&](const char* name) {
          const auto v = it->second.find(name);
          return v == it->second.end() ? NAN : v->second;
        };
        rows.push_back({label, get("estimate"), get(keys.lower), get(keys.upper)});
        continue;
      }
      const auto it = out.results.effects.find(prefix + key);
      if (it == out.results.effects.end()) continue;
      rows.push_back({label, it->second.estimate, it->second.lower, it->second.upper});
    }
  }
  return rows;
}

ForestForm forestForm(const OutputContext& out, std::size_t rows) {
  ForestForm form;
  // A handful of rows fits side by side along the bottom; more read better down the side.
  form.transposed = rows > 4;
  const bool ratio = ratioOutcome(out);
  const std::string prefix = ratio ? ratioPrefix(out) : "";
  const auto te = out.results.effects.find(prefix + "TE");
  form.totalEffect = out.settings.analysisType == CAUSAL && te != out.results.effects.end()
                         ? te->second.estimate
                         : NAN;
  form.level = forestLevel(out);
  if (bootstrapShown(out)) {
    std::string note = "Effect limits are bootstrap " +
                       bootstrapIntervalName(out.settings.bootstrapInterval) + " intervals";
    if (out.settings.plot.forestPathCoefficients) {
      note += "; coefficient limits are normal-theory limits from the model covariance";
    }
    note += ".";
    form.notes.push_back(note);
  }
  addNotes(form.notes, {outcomeTransformNote(out, NoteTarget::kEffects)});
  if (!ratio) return form;
  if (out.settings.plot.forestPathCoefficients) {
    form.scale = ForestScale::kMixed;
    form.axisLabel = "Effect Size (Mixed: Linear + Ratios)";
  } else {
    form.scale = ForestScale::kRatio;
    form.axisLabel = prefix == "OR_"   ? "Odds Ratio (Plot)"
                     : prefix == "RR_" ? "Risk Ratio Scale"
                                       : "Incidence Rate Ratio Scale";
  }
  return form;
}

// ---- bar plot data -----------------------------------------------------------------------

namespace {

std::string shortNumber(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", v);
  return text;
}

}  // namespace

std::vector<MediationBarPlot::Bar> proportionsByQuartile(const Vector& mediator,
                                                         const Vector& outcome,
                                                         const Vector& weights, double event,
                                                         const std::string& outcomeName,
                                                         double level) {
  std::vector<MediationBarPlot::Bar> bars;
  if (mediator.empty() || mediator.size() != outcome.size() || weights.size() != outcome.size())
    return bars;
  const double cut[3] = {quantile(mediator, 0.25), quantile(mediator, 0.5),
                         quantile(mediator, 0.75)};
  struct Group {
    double events = 0.0, total = 0.0;
    double min = INFINITY, max = -INFINITY;
  };
  Group groups[4];
  for (std::size_t i = 0; i < mediator.size(); ++i) {
    const double m = mediator[i];
    const int g = m <= cut[0] ? 0 : m <= cut[1] ? 1 : m <= cut[2] ? 2 : 3;
    groups[g].total += weights[i];
    groups[g].events += outcome[i] == event ? weights[i] : 0.0;
    groups[g].min = std::min(groups[g].min, m);
    groups[g].max = std::max(groups[g].max, m);
  }
  const double z = criticalValue(level);
  for (int g = 0; g < 4; ++g) {
    if (!(groups[g].total > 0.0)) continue;  // ties can leave a quartile empty
    const std::string label = "M=" + std::to_string(g) + ": Q" + std::to_string(g + 1) + " [" +
                              shortNumber(groups[g].min) + ", " + shortNumber(groups[g].max) + "]";
    const double n = groups[g].total;
    for (int y = 0; y < 2; ++y) {
      // Wilson score interval of the share of cases with this outcome level.
      const double p = (y == 1 ? groups[g].events : n - groups[g].events) / n;
      const double centre = (p + z * z / (2 * n)) / (1 + z * z / n);
      const double half = z / (1 + z * z / n) * std::sqrt(p * (1 - p) / n + z * z / (4 * n * n));
      MediationBarPlot::Bar bar;
      bar.mediatorLevel = label;
      bar.outcomeLevel = outcomeName + "=" + std::to_string(y);
      bar.value = 100.0 * p;
      bar.lower = 100.0 * std::max(0.0, centre - half);
      bar.upper = 100.0 * std::min(1.0, centre + half);
      bars.push_back(bar);
    }
  }
  return bars;
}

// ---- which charts ------------------------------------------------------------------------

namespace {

// Outcome means by the two mediator levels.
std::vector<MediationBarPlot::Bar> meansByMediator(const OutputContext& out) {
  const VariableRoleMapper& map = out.settings.roleMapper();
  const Vector& m = map.roleData("MEDIATORVAR");
  const Vector& y = map.roleData("OUTCOMEVAR");
  std::map<double, std::pair<double, double>> sums;  // level -> (sum, count)
  for (std::size_t i = 0; i < m.size(); ++i) {
    sums[m[i]].first += y[i];
    sums[m[i]].second += 1.0;
  }
  std::vector<MediationBarPlot::Bar> bars;
  int code = 0;
  for (const auto& [level, sc] : sums) {
    MediationBarPlot::Bar b;
    b.mediatorLevel = out.settings.mediatorVar + "=" + std::to_string(code++);
    b.value = sc.first / sc.second;
    bars.push_back(b);
    (void)level;
  }
  return bars;
}

}  // namespace

int writeCharts(const OutputContext& out) {
  const MediationSettings& s = out.settings;
  int status = 0;
  const auto write = [&status](auto& chart) {
    chart.fillData();
    status = chart.addGPLGraphToProcedureJSON();
  };
  const bool continuousPair = s.mediatorDistribution == NORMAL && s.outcomeDistribution == NORMAL;
  const bool binaryOutcome = s.outcomeDistribution == BINOMIAL;
  if (s.plot.scatterPlot && continuousPair) {
    MediationScatterPlot chart(&out.generator, out);
    write(chart);
  }
  if (s.plot.barPlot && binaryMediator(out) && s.outcomeDistribution == NORMAL) {
    MediationBarPlot chart(&out.generator, out, false, false, meansByMediator(out));
    write(chart);
  }
  if (s.plot.forestPlot) {
    std::vector<MediationForestPlot::Row> rows = forestRows(out);
    const ForestForm form = forestForm(out, rows.size());
    MediationForestPlot chart(&out.generator, out, std::move(rows), form);
    write(chart);
  }
  // A binary outcome by the mediator's quartiles (a count outcome has no proportions).
  if (s.plot.barPlot && !binaryMediator(out) && binaryOutcome) {
    const VariableRoleMapper& map = out.settings.roleMapper();
    const Vector& y = map.roleData("OUTCOMEVAR");
    const Vector weights = s.scaleWeightVar.empty() ? Vector(y.size(), 1.0)
                                                    : Vector(map.roleData("MEDMODEL_SCALEWEIGHT"));
    MediationBarPlot chart(
        &out.generator, out, true, true,
        proportionsByQuartile(map.roleData("MEDIATORVAR"), y, weights,
                              out.results.outcomeEventValue, s.outcomeVar, s.ciLevel));
    write(chart);
  }
  // The E-value curves come with the sensitivity table (PRINT SENSITIVITY), before the path
  // diagram, which stays last.
  if (s.print[PRINT_SENSITIVITY] && s.analysisType == CAUSAL) {
    writeEValuePlot(out, status);
  }
  if (s.plot.pathDiagram) {
    MediationPathDiagram chart(&out.generator, out);
    write(chart);
  }
  return status;
}

}  // namespace medanlys

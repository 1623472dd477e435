// "Mediation Regression Model Summary", "Outcome Regression Model Summary" (linear forms)
// and the covariance matrices of the two models.
#include <algorithm>
#include <cmath>

#include "effects/continuous_effects.h"
#include "output/output_context.h"
#include "output/report_notes.h"
#include "output/table_builder.h"

namespace medanlys {

namespace {

// The number of the first covariate's coefficient: Beta2 in the mediator model, Theta4 in
// the outcome model (Theta3 is the interaction's, whether or not it is in the model).
std::size_t firstCovariateIndex(bool outcome) { return outcome ? 4 : 2; }

// The parameters before the covariates: intercept and exposure, and for the outcome the
// mediator and the interaction when it is in the model.
std::size_t leadingParameters(const MediationSettings& s, bool outcome) {
  return outcome ? (s.interaction ? 4 : 3) : 2;
}

}  // namespace

std::vector<std::string> parameterLabels(const MediationSettings& s, bool outcome,
                                         std::size_t count, bool symbolOnIntercept) {
  const std::string symbol = outcome ? "Theta" : "Beta";
  std::vector<std::string> labels;
  labels.push_back(symbolOnIntercept ? "Intercept (" + symbol + "0)" : "Intercept");
  labels.push_back(s.predictorVar + " (" + symbol + "1)");
  if (outcome) {
    labels.push_back(s.mediatorVar + " (Theta2)");
    if (s.interaction) labels.push_back(s.predictorVar + " x " + s.mediatorVar + " (Theta3)");
  }
  const std::size_t first = firstCovariateIndex(outcome);
  for (std::size_t i = 0; labels.size() < count; ++i) {
    const std::string index = std::to_string(first + i);
    labels.push_back("Covariate " + index + " (" + symbol + index + ")");
  }
  return labels;
}

std::string covariateKeyNote(const OutputContext& out, bool outcome, std::size_t count) {
  const std::vector<std::string>& names = out.results.covariateLabels;
  const std::size_t leading = leadingParameters(out.settings, outcome);
  const std::size_t covariates = count > leading ? std::min(count - leading, names.size()) : 0;
  std::string note;
  for (std::size_t j = 0; j < covariates; ++j) {
    // A covariate transformed for its skewness enters the models as its formula.
    const std::string role = "Covariate_" + std::to_string(j);
    const TransformationRecord* t = transformationOf(out, role.c_str());
    note += (j ? "; " : "") + std::string("Covariate ") +
            std::to_string(firstCovariateIndex(outcome) + j) + " = " +
            (t ? transformedFormula(*t, names[j]) : names[j]);
  }
  return note.empty() ? note : note + ".";
}

namespace {

// What was done to the model's variables before fitting, and what the weights do in its
// numbers: the footnotes every table of a model's coefficients carries.
std::vector<std::string> modelNotes(const OutputContext& out, bool outcome, WeightNoteFor weights) {
  std::vector<std::string> notes;
  addNotes(notes, {exposureTransformNote(out, NoteTarget::kModel),
                   mediatorTransformNote(out, NoteTarget::kModel),
                   outcome ? outcomeTransformNote(out, NoteTarget::kModel) : std::string(),
                   mediatorScaleNote(out, NoteTarget::kModel), weightNote(out, weights)});
  return notes;
}

// The footnote that names the variable behind each "Covariate k" row, when there are any.
void addCovariateKey(TableBuilder& t, const OutputContext& out, bool outcome, std::size_t count) {
  const std::string key = covariateKeyNote(out, outcome, count);
  if (!key.empty()) t.footnote(key);
}

int writeLinearModel(const OutputContext& out, bool outcome) {
  const WlsFit& fit = outcome ? out.results.outcomeFit : out.results.mediatorFit;
  TableBuilder t(out.generator, outcome ? "Outcome Regression Model Summary"
                                        : "Mediation Regression Model Summary");
  t.footnote(outcome ? "Theta coefficients on transformtype(outcome) scale. exp(Theta) = "
                       "multiplicative effect if log-transformed."
                     : "Beta coefficients on transformtype(mediator) scale");
  for (const std::string& note : modelNotes(out, outcome, WeightNoteFor::kLinearModel))
    t.footnote(note);
  addCovariateKey(t, out, outcome, fit.coefficients.size());
  t.rowHeaderLabel("Parameter");
  t.columnGroup("Robust", {"Estimate", "Robust SE", "t statistic"});
  t.columnGroup("Model-based", {"Estimate", "Model SE", "t statistic"});
  const std::vector<std::string> labels =
      parameterLabels(out.settings, outcome, fit.coefficients.size());
  for (std::size_t j = 0; j < fit.coefficients.size(); ++j) {
    t.row(labels[j], {fit.coefficients[j], fit.seRobust[j], fit.tRobust[j], fit.coefficients[j],
                      fit.seModel[j], fit.tModel[j]});
  }
  const LinearDiagnostics& d = fit.diagnostics;
  t.row("R Square", {fit.r2});
  t.row("Adj R Square", {fit.adjR2});
  t.row("DW", {d.durbinWatson});
  t.row("VIF", {d.vifMax});
  t.row("JB p-value", {d.jarqueBeraP});
  t.row("Influential Cases", {Count{static_cast<double>(d.influentialCases)}});
  return t.write();
}

constexpr std::size_t kMaxCovarianceOrder = 100;

int writeCovariance(const OutputContext& out, bool outcome) {
  const MediationSettings& s = out.settings;
  const bool robust = s.covb == COVB_ROBUST;
  // The model that was fitted: linear, or logistic (binary mediator) or generalised linear
  // (binary or count outcome).
  const bool glm = outcome ? s.outcomeDistribution != NORMAL : s.mediatorDistribution == BINOMIAL;
  const WlsFit& fit = outcome ? out.results.outcomeFit : out.results.mediatorFit;
  const GlmFit& glmFit = outcome ? out.results.outcomeGlmFit : out.results.mediatorLogisticFit;
  const Matrix& cov =
      glm ? (robust ? glmFit.covRobust : glmFit.covModel) : (robust ? fit.covRobust : fit.covModel);
  const std::size_t order = cov.size1();
  const std::size_t shown = std::min(order, kMaxCovarianceOrder);
  // One label per parameter of the model as the command defines it (intercept, exposure,
  // mediator and interaction for the outcome, one per covariate column); labels that do
  // not match the matrix leave the extra rows and columns their index.
  const std::size_t parameters = leadingParameters(s, outcome) + out.results.covariateLabels.size();
  std::vector<std::string> labels = parameterLabels(s, outcome, parameters, false);
  labels.resize(parameters);
  const bool mismatch = labels.size() != order;
  for (std::size_t j = labels.size(); j < shown; ++j) labels.push_back(std::to_string(j + 1));

  TableBuilder t(out.generator,
                 outcome ? "Covariance matrix - outcome" : "Covariance matrix - mediator",
                 kMinCovarianceColumnWidth);
  if (order > kMaxCovarianceOrder) {
    t.footnote("First " + std::to_string(kMaxCovarianceOrder) + " rows and columns are printed.");
  }
  t.footnote("Covariance matrix of parameter estimates.");
  if (mismatch) t.footnote("Note: Parameter names provided do not match matrix dimensions.");
  std::vector<std::string> notes;
  addNotes(notes, {exposureTransformNote(out, NoteTarget::kModel),
                   mediatorTransformNote(out, NoteTarget::kModel),
                   outcome ? outcomeTransformNote(out, NoteTarget::kModel) : std::string(),
                   mediatorScaleNote(out, NoteTarget::kModel)});
  for (const std::string& note : notes) t.footnote(note);
  // The covariates among the rows and columns printed.
  addCovariateKey(t, out, outcome, std::min(shown, parameters));
  t.rowHeaderLabel("Parameter");
  t.columnDimensionLabel(robust ? "Robust" : "Model-based");
  for (std::size_t j = 0; j < shown; ++j) t.column(labels[j]);
  for (std::size_t i = 0; i < shown; ++i) {
    std::vector<CellValue> row;
    for (std::size_t j = 0; j < shown; ++j) row.emplace_back(cov(i, j));
    t.row(labels[i], row);
  }
  return t.write();
}

}  // namespace

int writeLinearMediatorModel(const OutputContext& out) { return writeLinearModel(out, false); }
int writeLinearOutcomeModel(const OutputContext& out) { return writeLinearModel(out, true); }

namespace {

GlmModelTable tableOf(const OutputContext& out, const GlmFit& fit) {
  const bool robust = out.settings.covb == COVB_ROBUST;
  const double z = criticalValue(out.settings.ciLevel);
  GlmModelTable table;
  for (std::size_t j = 0; j < fit.coefficients.size(); ++j) {
    CoefficientRow row;
    row.estimate = fit.coefficients[j];
    row.robustSE = fit.seRobust[j];
    row.modelSE = fit.seModel[j];
    const double se = robust ? row.robustSE : row.modelSE;
    row.lower = std::exp(row.estimate - z * se);
    row.upper = std::exp(row.estimate + z * se);
    table.rows.push_back(row);
  }
  table.pseudoR2 = fit.pseudoR2;
  table.aic = fit.aic;
  table.bic = fit.bic;
  table.deviance = fit.deviance;
  table.dispersion = fit.dispersion;
  return table;
}

}  // namespace

GlmModelTable logisticTable(const OutputContext& out) {
  return tableOf(out, out.results.mediatorLogisticFit);
}
GlmModelTable glmOutcomeTable(const OutputContext& out) {
  return tableOf(out, out.results.outcomeGlmFit);
}

const std::vector<double>& outcomeCoefficients(const OutputContext& out) {
  return out.settings.outcomeDistribution == NORMAL ? out.results.outcomeFit.coefficients
                                                    : out.results.outcomeGlmFit.coefficients;
}

int writeLogisticMediatorModel(const OutputContext& out, const GlmModelTable& model) {
  TableBuilder t(out.generator, "Mediation Regression Model Summary");
  for (const std::string& note : modelNotes(out, false, WeightNoteFor::kGlmModel)) t.footnote(note);
  addCovariateKey(t, out, false, model.rows.size());
  t.rowHeaderLabel("Parameter");
  for (const char* c : {"Estimate", "Robust SE", "Model SE", "OR"}) t.column(c);
  t.columnGroup(confidenceIntervalLabel(out.settings.ciLevel), {"Lower", "Upper"});
  const std::vector<std::string> labels = parameterLabels(out.settings, false, model.rows.size());
  for (std::size_t j = 0; j < model.rows.size(); ++j) {
    const CoefficientRow& r = model.rows[j];
    t.row(labels[j], {r.estimate, r.robustSE, r.modelSE, std::exp(r.estimate), r.lower, r.upper});
  }
  t.row("Pseudo R Square", {model.pseudoR2});
  t.row("AIC", {model.aic});
  t.row("BIC", {model.bic});
  t.row("Deviance", {model.deviance});
  return t.write();
}

int writeGlmOutcomeModel(const OutputContext& out, const GlmModelTable& model) {
  const MediationSettings& s = out.settings;
  std::string ratio = "IRR", line;
  if (s.outcomeDistribution == BINOMIAL && s.outcomeLink == LOG) {
    ratio = "RR";
    line = "RR = Risk Ratio = exp(Theta) (log link scale).";
  } else if (s.outcomeDistribution == BINOMIAL) {
    ratio = "OR";
    line = "OR = Odds Ratio = exp(Theta) (logit scale).";
  } else {
    line = "IRR = Incidence Rate Ratio = exp(Theta) (log link scale).";
  }
  TableBuilder t(out.generator, "Outcome Regression Model Summary");
  t.footnote(line);
  t.footnote("Theta coefficients on transform type(outcome) scale.");
  for (const std::string& note : modelNotes(out, true, WeightNoteFor::kGlmModel)) t.footnote(note);
  addCovariateKey(t, out, true, model.rows.size());
  t.rowHeaderLabel("Parameter");
  t.columnGroup("Robust", {"Estimate", "Robust SE"});
  t.columnGroup("Model-based", {"Estimate", "Model SE"});
  t.columnGroup(ratio, {"Exp(Coef)"});
  t.columnGroup(confidenceIntervalLabel(s.ciLevel), {"Lower", "Upper"});
  const std::vector<std::string> labels = parameterLabels(s, true, model.rows.size());
  for (std::size_t j = 0; j < model.rows.size(); ++j) {
    const CoefficientRow& r = model.rows[j];
    t.row(labels[j],
          {r.estimate, r.robustSE, r.estimate, r.modelSE, std::exp(r.estimate), r.lower, r.upper});
  }
  t.row("Pseudo R Square", {model.pseudoR2});
  t.row("AIC", {model.aic});
  t.row("BIC", {model.bic});
  t.row("Deviance", {model.deviance});
  t.row("Dispersion", {model.dispersion});
  return t.write();
}

int writeCovarianceMatrices(const OutputContext& out) {
  writeCovariance(out, false);
  return writeCovariance(out, true);
}

}  // namespace medanlys

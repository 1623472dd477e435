// What every table writer reads: the document, the settings and the results.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "algorithm/mediation_case_data.h"
#include "stathost/json_generator.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

struct OutputContext {
  stathost::StatJSONGenerator& generator;
  const MediationSettings& settings;
  const MediationCaseData& results;
};

// "^1% Confidence Interval" with the level of the settings.
std::string confidenceIntervalLabel(int level);
// A number as the tables show it (4 decimals, "." when not finite).
std::string formatValue(double value);

// Coefficients and fit statistics of a logistic or generalised linear model, for the model
// tables; the strategies that fit such models fill it.
struct CoefficientRow {
  double estimate = NAN;
  double robustSE = NAN;
  double modelSE = NAN;
  double lower = NAN;  // confidence limits of exp(estimate)
  double upper = NAN;
};
struct GlmModelTable {
  std::vector<CoefficientRow> rows;  // in model order, labelled like the linear tables
  double pseudoR2 = NAN, aic = NAN, bic = NAN, deviance = NAN, dispersion = NAN;
};

// Parameter labels of a model with `count` coefficients: "Intercept (Beta0)",
// "<A> (Beta1)", "Covariate 2 (Beta2)", ... or "Intercept (Theta0)", "<A> (Theta1)",
// "<M> (Theta2)", "<A> x <M> (Theta3)", "Covariate 4 (Theta4)", ...
std::vector<std::string> parameterLabels(const MediationSettings& s, bool outcome,
                                         std::size_t count, bool symbolOnIntercept = true);

// The variable behind each "Covariate k" label of a model with `count` coefficients (or
// a covariance matrix of that many printed rows), in design order: "Covariate 2 =
// region=2; Covariate 3 = age." A factor's indicator column is named variable=level; a
// covariate transformed for its skewness is named by its formula. "" without covariates.
std::string covariateKeyNote(const OutputContext& out, bool outcome, std::size_t count);

// The tables of the run, each under its own condition; return the host status.
int writeCaseSummary(const OutputContext& out);
int writeDescriptives(const OutputContext& out);
int writeExposureStatistics(const OutputContext& out);
int writeLinearMediatorModel(const OutputContext& out);
int writeLinearOutcomeModel(const OutputContext& out);
int writeLogisticMediatorModel(const OutputContext& out, const GlmModelTable& model);
int writeGlmOutcomeModel(const OutputContext& out, const GlmModelTable& model);
// The logistic mediator model of the run as a model table (limits of the odds ratio at the
// confidence level, on the covariance COVB names).
GlmModelTable logisticTable(const OutputContext& out);
// The GLM outcome model of the run as a model table.
GlmModelTable glmOutcomeTable(const OutputContext& out);
// Outcome model coefficients, whichever model was fitted.
const std::vector<double>& outcomeCoefficients(const OutputContext& out);
int writeCovarianceMatrices(const OutputContext& out);
int writeDecomposition(const OutputContext& out, bool bootstrap);
int writeInteractionEffects(const OutputContext& out, bool bootstrap);
int writeRatioStatistics(const OutputContext& out, bool bootstrap);
int writeEffectInterpretation(const OutputContext& out);

}  // namespace medanlys

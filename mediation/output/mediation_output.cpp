#include "output/mediation_output.h"

#include "output/charts.h"
#include "output/output_context.h"
#include "output/sensitivity.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

MediationOutput::MediationOutput(stathost::BpProcedure* procedure,
                                 stathost::ProcedureDataSource* source,
                                 const MediationSettings* settings,
                                 const MediationCaseData* results)
    : procedure_(procedure),
      source_(source),
      settings_(settings),
      results_(results),
      variables_(true, true, true),
      generator_("Mediation Analysis") {
  messages_.SetCommandName("MEDIATION ANALYSIS");
  messages_.SetProcedureTitle("Mediation Analysis");
  for (int index : settings_->roleMapper().allIndices()) variables_.AddVariable(index);
}

int MediationOutput::emit() {
  stathost::OPSCommonOutput common(&variables_, *source_, procedure_, nullptr);
  stathost::StatJSONConverter converter(*procedure_);
  const MediationSettings& s = *settings_;
  const MediationCaseData& r = *results_;
  const OutputContext out{generator_, s, r};
  const bool causal = s.analysisType == CAUSAL;
  // A cancelled run has no fitted models; only what it has is written.
  const bool binaryMediator = s.mediatorDistribution == BINOMIAL;
  const bool normalOutcome = s.outcomeDistribution == NORMAL;
  const bool fitted = (binaryMediator ? r.mediatorLogisticFit.converged : r.mediatorFit.success) &&
                      (normalOutcome ? r.outcomeFit.success : r.outcomeGlmFit.converged);
  const bool bootstrapOk = r.flags[FLAG_BOOTSTRAP_SUCCEEDED] && !r.bootstrap.empty();
  int status = 0;

  if (s.print[PRINT_CASE_SUMMARY]) status = writeCaseSummary(out);
  if (s.print[PRINT_DESCRIPTIVES]) status = writeDescriptives(out);
  if (fitted && s.print[PRINT_MEDIATION_REGRESSION_MODEL]) {
    status = binaryMediator ? writeLogisticMediatorModel(out, logisticTable(out))
                            : writeLinearMediatorModel(out);
  }
  if (fitted && s.print[PRINT_OUTCOME_REGRESSION_MODEL]) {
    status = normalOutcome ? writeLinearOutcomeModel(out)
                           : writeGlmOutcomeModel(out, glmOutcomeTable(out));
  }
  if (fitted && s.print[PRINT_EXPOSURE_STATS]) status = writeExposureStatistics(out);
  if (fitted && causal && !bootstrapOk) {
    if (s.print[PRINT_DECOMP_RESULTS]) status = writeDecomposition(out, false);
    if (s.print[PRINT_INTERACTION_EFFECTS] && s.interaction)
      status = writeInteractionEffects(out, false);
    if (s.print[PRINT_RATIO_STATS] && r.flags[FLAG_RATIO_STATS_AVAILABLE]) {
      status = writeRatioStatistics(out, false);
    }
    // After the effect tables whose limits it uses.
    if (s.print[PRINT_SENSITIVITY]) status = writeSensitivityTable(out);
  }
  if (fitted && causal) status = writeEffectInterpretation(out);
  if (fitted && s.print[PRINT_COV_MATRIX]) status = writeCovarianceMatrices(out);
  if (fitted && causal && !r.bootstrap.empty() && bootstrapOk) {
    if (s.print[PRINT_DECOMP_RESULTS]) status = writeDecomposition(out, true);
    if (s.print[PRINT_INTERACTION_EFFECTS] && s.interaction)
      status = writeInteractionEffects(out, true);
    if (s.print[PRINT_RATIO_STATS] && r.flags[FLAG_RATIO_STATS_AVAILABLE]) {
      status = writeRatioStatistics(out, true);
    }
    if (s.print[PRINT_SENSITIVITY]) status = writeSensitivityTable(out);
  }
  if (fitted && !causal && s.print[PRINT_SENSITIVITY]) {
    messages_.GenericWarning(
        "SENSITIVITY gives the E-values of the effects; ANALYSISTYPE=TRADITIONAL estimates no "
        "effects, so there is no sensitivity analysis.");
  }
  if (fitted && s.plot.barPlot && !binaryMediator &&
      (s.outcomeDistribution == POISSON || s.outcomeDistribution == NEGBIN)) {
    messages_.GenericWarning(
        "BAR_PLOT shows the proportions of a binary outcome; a count outcome has none, so no bar "
        "plot is drawn.");
  }
  if (fitted) status = writeCharts(out);
  converter.generateOutput(generator_.getProcedureStatJSON());
  return status;
}

}  // namespace medanlys

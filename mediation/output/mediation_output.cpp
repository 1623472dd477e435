#include "output/mediation_output.h"

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
  // The result tables and charts are written here as the analyses land.
  (void)results_;
  return converter.generateOutput(generator_.getProcedureStatJSON());
}

}  // namespace medanlys

// Writes the results of a run into the procedure's output document.
#pragma once

#include "algorithm/mediation_case_data.h"
#include "stathost/case_adapter.h"
#include "stathost/json_generator.h"
#include "stathost/parser_message.h"
#include "stathost/procedure.h"

namespace medanlys {

class MediationSettings;

class MediationOutput {
 public:
  MediationOutput(stathost::BpProcedure* procedure, stathost::ProcedureDataSource* source,
                  const MediationSettings* settings, const MediationCaseData* results);
  // Writes every table and chart and hands the document to the host; returns the status
  // of the last item written.
  int emit();

 private:
  stathost::BpProcedure* procedure_;
  stathost::ProcedureDataSource* source_;
  const MediationSettings* settings_;
  const MediationCaseData* results_;
  stathost::ParserMessage messages_;
  stathost::ACAVarValidSpecs variables_;
  stathost::StatJSONGenerator generator_;
};

}  // namespace medanlys

#include "algorithm/med_analysis_algo.h"

#include <exception>
#include <new>

#include "algorithm/mediation_strategy.h"
#include "stathost/procedure_log.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

MedAnalysisAlgo::MedAnalysisAlgo(MediationSettings& settings_, MediationCaseData& data_)
    : settings(settings_), data(data_), stopProcessor(settings_.stopProcessor()) {
  messages.SetCommandName("MEDIATION ANALYSIS");
  messages.SetProcedureTitle("Mediation Analysis");
}

bool MedAnalysisAlgo::cancelled() const {
  return stopProcessor != nullptr && stopProcessor->CheckCancel();
}

RoleMapping MedAnalysisAlgo::buildRoleMapping(const MediationSettings& settings) {
  const VariableRoleMapper& mapper = settings.roleMapper();
  RoleMapping input;
  input.outcome = mapper.roleData("OUTCOMEVAR");
  input.mediator = mapper.roleData("MEDIATORVAR");
  input.exposure = mapper.roleData("PREDICTORVAR");
  if (mapper.hasListData("WITH")) {
    input.covariates = mapper.listData("WITH");
    input.covariateNames = mapper.listNames("WITH");
  }
  if (mapper.hasListData("BY")) {
    input.factors =
        dummyCodeFactors(mapper.listData("BY"), mapper.listNames("BY"), input.factorCodings);
  }
  if (mapper.hasRoleData("MEDMODEL_SCALEWEIGHT")) {
    input.weights = mapper.roleData("MEDMODEL_SCALEWEIGHT");
  } else {
    input.weights.assign(input.mediator.size(), 1.0);
  }
  input.casesRead = mapper.casesRead;
  input.casesValid = mapper.casesValid;
  return input;
}

int MedAnalysisAlgo::start() {
  data.clear();
  std::vector<std::string> errors;
  RoleMapping input;
  try {
    if (cancelled()) return 0;
    input = buildRoleMapping(settings);
    if (cancelled()) return 0;
  } catch (const std::exception& e) {
    // The driver only turns such a failure into a status; the text is not shown.
    const std::string discarded = std::string("MedAnalysisAlgo::start exception: ") + e.what();
    (void)discarded;
    return 1;
  } catch (...) {
    const std::string discarded = "MedAnalysisAlgo::start: Unknown exception occurred.";
    (void)discarded;
    return 1;
  }

  try {
    std::unique_ptr<MediationStrategy> strategy = createStrategy(settings, stopProcessor);
    if (!strategy) {
      errors.emplace_back("ERROR: Factory failed to create strategy - returned null pointer");
      return 1;
    }
    const int status = strategy->run(input, data, errors);
    if (stopProcessor && stopProcessor->GetCancel()) data.flags[FLAG_CANCELLED] = true;
    stathost::ProcedureLog::write(data.log);
    return status;
  } catch (const std::bad_alloc&) {
    errors.emplace_back("CRITICAL: Memory allocation failed - cannot create strategy");
    return 1;
  } catch (const std::exception& e) {
    errors.emplace_back(e.what());
    if (std::string(e.what()) == kInvalidCombinationMessage) messages.GenericError(e.what());
    return 1;
  }
}

}  // namespace medanlys

// The analysis driver: builds the strategy input, picks the strategy and runs it.
#pragma once

#include <string>

#include "algorithm/mediation_case_data.h"
#include "algorithm/role_mapping.h"
#include "stathost/parser_message.h"
#include "stathost/stop_processor.h"

namespace medanlys {

class MediationSettings;

class MedAnalysisAlgo {
 public:
  MedAnalysisAlgo(MediationSettings& settings, MediationCaseData& data);
  // 0 = success or cancelled, 1 = failure.
  int start();
  // The input the strategy gets, from the settings' role mapper.
  static RoleMapping buildRoleMapping(const MediationSettings& settings);

 private:
  bool cancelled() const;

  MediationSettings& settings;
  MediationCaseData& data;
  stathost::ParserMessage messages;
  stathost::ACAStopProcessor* stopProcessor;
};

}  // namespace medanlys

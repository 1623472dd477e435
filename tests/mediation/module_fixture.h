// Runs the MEDIATION ANALYSIS module on a small in-memory data set, as the host does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "algorithm/mediation_case_data.h"
#include "stathost/host_session.h"
#include "test_util.h"

namespace testsupport {

// 20 cases: y, m, x continuous; c1 covariate; f nominal factor (1, 2, 3); w weights;
// name string; ord ordinal; cnt counts; bin 0/1.
std::vector<stathost::Column> mediationColumns();

class ModuleTest : public ::testing::Test {
 protected:
  ModuleTest() : data_(mediationColumns()) {}
  // Runs one command through MEDANLYS and returns what the run produced.
  stathost::RunRecord run(const std::string& command);
  static std::string errors(const stathost::RunRecord& record);

  ActiveData data_;
};

// "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)" and the
// subcommands that every valid command needs; tests replace or add parts.
std::string validCommand(const std::string& variables = "", const std::string& medmodel = "",
                         const std::string& outmodel = "", const std::string& criteria = "",
                         const std::string& rest = "");

// Parses the command with the module's grammar, runs the settings readers, the case
// reading and the driver on the active data set; returns 0 when the analysis ran. The
// results stay in `results`.
int analyseCommand(const std::string& command, medanlys::MediationCaseData& results);

}  // namespace testsupport

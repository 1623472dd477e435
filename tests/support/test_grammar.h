// A grammar shaped like the mediation command's (seven subcommands, value keywords,
// keyword and parameter qualifiers, bounds), declared under a command name of its own,
// for testing the host parser and for the test procedure.
#pragma once

#include <string>

#include "stathost/command_descriptor.h"

namespace testsupport {

inline constexpr const char* kTestCommand = "MEDIATION TEST";

void declareTestGrammar(stathost::CommandDescriptor& command);

}  // namespace testsupport

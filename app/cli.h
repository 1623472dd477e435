// The medanlys command line: parses arguments and runs commands.
#pragma once

#include <string>
#include <vector>

#include "runner.h"

namespace medapp {

// Runs the application with the given arguments; procedures are registered by the
// caller. Returns the exit status: 0 all commands ran, 1 a command ended with an error (or
// the report could not be written), 2 a usage error, 130 the user stopped the run (Ctrl-C
// or SIGTERM; the report is still written).
int runCli(int argc, char** argv,
           const std::vector<std::pair<std::string, ProcedureEntry>>& procedures);

}  // namespace medapp

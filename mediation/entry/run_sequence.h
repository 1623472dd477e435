// One run of the MEDIATION ANALYSIS command, from the command text to the output.
#pragma once

namespace medanlys {

// Runs the steps Describe, Parse, Configure, Analyse and Emit; a failed step skips the
// rest. Returns the status of the last step run (0 = success).
int runMediationAnalysis();

}  // namespace medanlys

// Entry of the MEDIATION ANALYSIS procedure.
#include "entry/medanlys_entry.h"

#include "entry/run_sequence.h"

extern "C" void MEDANLYS() {
  try {
    medanlys::runMediationAnalysis();
  } catch (...) {
    // The host never sees an exception from the module.
  }
}

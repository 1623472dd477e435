// Entry of the MEDIATION ANALYSIS procedure.
//
// The analysis itself is not in this build yet: the entry reports that through the
// host's message sink so that a command file naming it fails clearly instead of silently.
#include "entry/medanlys_entry.h"

#include "stathost/parser_message.h"

extern "C" void MEDANLYS() {
  try {
    stathost::ParserMessage messages;
    messages.SetCommandName("MEDIATION ANALYSIS");
    messages.SetProcedureTitle("Mediation Analysis");
    messages.GenericError("The MEDIATION ANALYSIS procedure is not available in this build yet.");
  } catch (...) {
    // The host never sees an exception from the module.
  }
}

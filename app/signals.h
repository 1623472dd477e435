// Ctrl-C (SIGINT) and SIGTERM: the first asks the running procedure to stop at its next
// poll, after which the report is still written; the second ends the program.
#pragma once

namespace medapp {
void installInterruptHandler();
}

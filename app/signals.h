// Ctrl-C: the first press asks the running procedure to stop at its next poll; the
// second ends the program.
#pragma once

namespace medapp {
void installInterruptHandler();
}

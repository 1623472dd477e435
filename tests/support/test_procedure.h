// A small procedure that uses the host interfaces the way the mediation module does:
// declares a grammar, parses, reads cases through the adapter, and emits a table and a
// chart. Command:
//   MEDIATION TEST OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x [WITH c1 ...] [BY f1 ...]
//     [/CRITERIA CILEVEL=95 ...] [/PLOT SCATTER_PLOT] ...
#pragma once

extern "C" void TESTPROC();

// The medanlys application: a small statistics host that runs the mediation procedure.
#include "cli.h"
#include "entry/medanlys_entry.h"

int main(int argc, char** argv) {
  return medapp::runCli(argc, argv, {{"MEDIATION ANALYSIS", &MEDANLYS}});
}

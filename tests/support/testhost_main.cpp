// The medanlys command line with the test procedure registered next to MEDIATION TEST.
#include "cli.h"
#include "test_grammar.h"
#include "test_procedure.h"

int main(int argc, char** argv) {
  return medapp::runCli(argc, argv, {{testsupport::kTestCommand, &TESTPROC}});
}

// Declares the MEDIATION ANALYSIS grammar to the host parser, one subcommand per call.
#pragma once

#include "stathost/command_descriptor.h"
#include "stathost/parser_message.h"

namespace medanlys {

class CommandDescriptionBuilder {
 public:
  static constexpr int kSubcommandCount = 7;

  explicit CommandDescriptionBuilder(stathost::CommandDescriptor& command);
  // Index 0: the unnamed variable list; 1 MEDMODEL, 2 OUTMODEL, 3 CRITERIA, 4 PRINT,
  // 5 PLOT, 6 BOOTSTRAP. Returns 0, or 1 for an index outside 0 to 6.
  int declare(int index);

 private:
  int declareVariables();
  int declareMediatorModel();
  int declareOutcomeModel();
  int declareCriteria();
  int declarePrint();
  int declarePlot();
  int declareBootstrap();

  stathost::CommandDescriptor& command_;
  stathost::ParserMessage messages_;
};

}  // namespace medanlys

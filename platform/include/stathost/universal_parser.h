// Checks a command's tokens against a declared grammar and fills a CommandSpec.
#pragma once

#include "stathost/command_descriptor.h"
#include "stathost/parsed_command.h"
#include "stathost/parser_message.h"
#include "stathost/tokens.h"

namespace stathost {

class UniversalParser {
 public:
  UniversalParser(TokenSequenceBase& tokens, CommandSpec& parsed, const CommandDescriptor& grammar);
  // 0 when the command is well-formed; otherwise the parser has reported the first error
  // (command, line, column, the token found and what was expected) and returns 1.
  int getCommandSpecifications();

 private:
  TokenSequenceBase& tokens_;
  CommandSpec& parsed_;
  const CommandDescriptor& grammar_;
  ParserMessage messages_;
};

}  // namespace stathost

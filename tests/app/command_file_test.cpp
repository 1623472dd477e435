#include "command_file.h"

#include <gtest/gtest.h>

namespace {

using medapp::CommandFileError;
using medapp::splitCommands;

const std::vector<std::string> kKnown = {"SPLIT FILE", "MEDIATION ANALYSIS"};

TEST(CommandFile, SplitsAtFullStopsAndSkipsComments) {
  const auto commands = splitCommands(
      "* A comment that\n  runs over two lines.\n\n"
      "SPLIT FILE BY sex.\n"
      "MEDIATION ANALYSIS OUTCOMEVAR=y\n"
      "  /CRITERIA CILEVEL=95 LABEL='x. y'\n"
      "  /PRINT.\n",
      kKnown, true);
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[0].name, "SPLIT FILE");
  EXPECT_EQ(commands[0].line, 4);
  EXPECT_EQ(commands[1].name, "MEDIATION ANALYSIS");
  EXPECT_EQ(commands[1].line, 5);
  EXPECT_EQ(commands[1].text,
            "MEDIATION ANALYSIS OUTCOMEVAR=y\n  /CRITERIA CILEVEL=95 LABEL='x. y'\n  /PRINT.");
}

TEST(CommandFile, MissingFullStopAtTheEndOfAFile) {
  try {
    splitCommands("MEDIATION ANALYSIS OUTCOMEVAR=y\n  /PRINT\n", kKnown, true);
    FAIL();
  } catch (const CommandFileError& e) {
    EXPECT_EQ(e.line(), 1);
    EXPECT_STREQ(e.what(), "The command that starts at line 1 does not end with a full stop.");
  }
}

TEST(CommandFile, MissingFullStopBeforeTheNextCommand) {
  try {
    splitCommands("MEDIATION ANALYSIS OUTCOMEVAR=y\n  /PRINT\nMEDIATION ANALYSIS X=y.\n", kKnown,
                  true);
    FAIL();
  } catch (const CommandFileError& e) {
    EXPECT_STREQ(e.what(),
                 "The command that starts at line 1 has no full stop before the next command at "
                 "line 3.");
  }
}

TEST(CommandFile, InlineCommandMayOmitItsFullStop) {
  const auto commands = splitCommands("mediation analysis outcomevar=y", kKnown, false);
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].name, "MEDIATION ANALYSIS");
}

TEST(CommandFile, UnknownCommandKeepsItsFirstWord) {
  const auto commands = splitCommands("FREQUENCIES x.\n", kKnown, true);
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].name, "FREQUENCIES");
}

}  // namespace

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

struct CommentCase {
  const char* name;
  const char* text;
  std::vector<int> commandLines;  // the lines the commands start on
  const char* warning;            // "" when none is expected
  friend std::ostream& operator<<(std::ostream& os, const CommentCase& c) { return os << c.name; }
};

class CommandFileComments : public ::testing::TestWithParam<CommentCase> {};

TEST_P(CommandFileComments, EndAtAFullStopOrABlankLineAndWarnWhenTheyTakeACommand) {
  const CommentCase& c = GetParam();
  std::vector<medapp::CommandFileWarning> warnings;
  const auto commands = splitCommands(c.text, kKnown, true, &warnings);
  std::vector<int> lines;
  for (const auto& command : commands) lines.push_back(command.line);
  EXPECT_EQ(lines, c.commandLines);
  if (*c.warning == '\0') {
    EXPECT_TRUE(warnings.empty()) << warnings.front().text;
  } else {
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].text, c.warning);
    EXPECT_EQ(warnings[0].line, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CommandFileComments,
    ::testing::Values(
        CommentCase{"BlankLineEndsAComment",
                    "* Does treatment lower bilirubin?\n\nMEDIATION ANALYSIS OUTCOMEVAR=y.\n"
                    "MEDIATION ANALYSIS OUTCOMEVAR=z.\n",
                    {3, 4},
                    ""},
        CommentCase{"CommentWithoutFullStopRunsIntoACommand",
                    "* Does treatment lower bilirubin?\nMEDIATION ANALYSIS OUTCOMEVAR=y.\n"
                    "MEDIATION ANALYSIS OUTCOMEVAR=z.\n",
                    {3},
                    "The comment that starts on line 1 runs into line 2, which looks like a "
                    "command: end the comment with a full stop (or a blank line)."},
        CommentCase{"FullStopInsideACommentLine",
                    "* a comment with a period. inside it\n  and a second line\n"
                    "SPLIT FILE BY g.\nMEDIATION ANALYSIS OUTCOMEVAR=y.\n",
                    {4},
                    "The comment that starts on line 1 runs into line 3, which looks like a "
                    "command: end the comment with a full stop (or a blank line)."},
        CommentCase{"CommentOverTwoLinesThatEnds",
                    "* one\n  two.\nMEDIATION ANALYSIS OUTCOMEVAR=y.\n",
                    {3},
                    ""},
        CommentCase{"ACommandWordAloneIsNotACommand",
                    "* we split\nsplit by sex.\nMEDIATION ANALYSIS OUTCOMEVAR=y.\n",
                    {3},
                    ""}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST(CommandFile, UnknownCommandKeepsItsFirstWord) {
  const auto commands = splitCommands("FREQUENCIES x.\n", kKnown, true);
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(commands[0].name, "FREQUENCIES");
}

}  // namespace

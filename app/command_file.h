// Splitting command text into commands.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace medapp {

struct CommandText {
  std::string text;  // the whole command, its lines joined by "\n"
  int line = 1;      // line of the source on which it starts
  std::string name;  // the leading words, upper-cased ("MEDIATION ANALYSIS")
};

class CommandFileError : public std::runtime_error {
 public:
  CommandFileError(const std::string& text, int line) : std::runtime_error(text), line_(line) {}
  int line() const { return line_; }

 private:
  int line_;
};

// Something in the command text that deserves a warning but does not stop the run.
struct CommandFileWarning {
  std::string text;
  int line = 0;
};

// Splits a command file. A command ends with a full stop at the end of a line; a line
// that starts with "*" begins a comment that runs to the next such full stop or to the
// next blank line. A command whose full stop is missing (at the end of the file, or before
// a line that starts a new command in its first column) is an error. A comment that runs
// into a line that begins with a command's name gets a warning. knownCommands are the
// command names the application can run; they tell a new command from a continuation line.
std::vector<CommandText> splitCommands(const std::string& text,
                                       const std::vector<std::string>& knownCommands,
                                       bool requireFullStop,
                                       std::vector<CommandFileWarning>* warnings = nullptr);

// The leading words of a command that form its name, among the known names; the first
// word when none matches.
std::string commandName(const std::string& text, const std::vector<std::string>& knownCommands);

}  // namespace medapp

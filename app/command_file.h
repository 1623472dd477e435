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

// Splits a command file. A command ends with a full stop at the end of a line; a line
// that starts with "*" begins a comment that runs to the next such full stop. A command
// whose full stop is missing (at the end of the file, or before a line that starts a new
// command in its first column) is an error. knownCommands are the command names the
// application can run; they tell a new command from a continuation line.
std::vector<CommandText> splitCommands(const std::string& text,
                                       const std::vector<std::string>& knownCommands,
                                       bool requireFullStop);

// The leading words of a command that form its name, among the known names; the first
// word when none matches.
std::string commandName(const std::string& text, const std::vector<std::string>& knownCommands);

}  // namespace medapp

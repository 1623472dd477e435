#include "command_file.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace medapp {
namespace {

std::string upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

// True when the line's last non-blank character is a full stop outside quotes.
bool endsWithFullStop(const std::string& line) {
  char quote = 0;
  int lastNonBlank = -1;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    }
    if (!std::isspace(static_cast<unsigned char>(c))) lastNonBlank = static_cast<int>(i);
  }
  return lastNonBlank >= 0 && !quote && line[static_cast<std::size_t>(lastNonBlank)] == '.';
}

bool isBlank(const std::string& line) {
  for (char c : line) {
    if (!std::isspace(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

std::vector<std::string> words(const std::string& text, std::size_t count) {
  std::vector<std::string> out;
  std::string word;
  for (char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
      word.push_back(c);
    } else {
      if (!word.empty()) out.push_back(upper(word));
      word.clear();
      if (out.size() >= count) break;
      if (!std::isspace(static_cast<unsigned char>(c))) break;
    }
  }
  if (!word.empty() && out.size() < count) out.push_back(upper(word));
  return out;
}

bool startsNewCommand(const std::string& line, const std::vector<std::string>& known) {
  if (line.empty() || std::isspace(static_cast<unsigned char>(line[0])) || line[0] == '/') {
    return false;
  }
  const std::string first = words(line, 1).empty() ? "" : words(line, 1).front();
  for (const std::string& name : known) {
    const auto w = words(name, 1);
    if (!w.empty() && w.front() == first) return true;
  }
  return false;
}

// True when the line, leading blanks aside, begins with all the words of a known name.
bool beginsWithCommandName(const std::string& line, const std::vector<std::string>& known) {
  const std::vector<std::string> leading = words(line, 4);
  for (const std::string& name : known) {
    const std::vector<std::string> nameWords = words(name, 4);
    if (!nameWords.empty() && leading.size() >= nameWords.size() &&
        std::equal(nameWords.begin(), nameWords.end(), leading.begin())) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::string commandName(const std::string& text, const std::vector<std::string>& knownCommands) {
  const std::vector<std::string> leading = words(text, 4);
  std::string best;
  for (const std::string& name : knownCommands) {
    std::istringstream in(upper(name));
    std::string w;
    std::size_t i = 0;
    bool match = true;
    while (in >> w) {
      if (i >= leading.size() || leading[i] != w) {
        match = false;
        break;
      }
      ++i;
    }
    if (match && upper(name).size() > best.size()) best = upper(name);
  }
  if (best.empty() && !leading.empty()) best = leading.front();
  return best;
}

std::vector<CommandText> splitCommands(const std::string& text,
                                       const std::vector<std::string>& knownCommands,
                                       bool requireFullStop,
                                       std::vector<CommandFileWarning>* warnings) {
  std::vector<CommandText> commands;
  std::istringstream in(text);
  std::string line;
  int lineNumber = 0;
  bool inComment = false;
  int commentLine = 0;  // where the open comment started
  bool commentWarned = false;
  CommandText current;
  bool open = false;
  auto finish = [&]() {
    current.name = commandName(current.text, knownCommands);
    commands.push_back(current);
    current = CommandText();
    open = false;
  };
  while (std::getline(in, line)) {
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (inComment) {
      if (isBlank(line)) {
        inComment = false;
        continue;
      }
      if (!commentWarned && warnings && beginsWithCommandName(line, knownCommands)) {
        warnings->push_back({"The comment that starts on line " + std::to_string(commentLine) +
                                 " runs into line " + std::to_string(lineNumber) +
                                 ", which looks like a command: end the comment with a full "
                                 "stop (or a blank line).",
                             commentLine});
        commentWarned = true;
      }
      inComment = !endsWithFullStop(line);
      continue;
    }
    if (!open) {
      if (isBlank(line)) continue;
      const auto first = line.find_first_not_of(" \t");
      if (line[first] == '*') {
        inComment = !endsWithFullStop(line);
        commentLine = lineNumber;
        commentWarned = false;
        continue;
      }
      current.line = lineNumber;
      current.text = line;
      open = true;
    } else {
      if (startsNewCommand(line, knownCommands)) {
        throw CommandFileError("The command that starts at line " + std::to_string(current.line) +
                                   " has no full stop before the next command at line " +
                                   std::to_string(lineNumber) + ".",
                               current.line);
      }
      current.text += "\n" + line;
    }
    if (endsWithFullStop(line)) finish();
  }
  if (open) {
    if (requireFullStop) {
      throw CommandFileError("The command that starts at line " + std::to_string(current.line) +
                                 " does not end with a full stop.",
                             current.line);
    }
    finish();
  }
  return commands;
}

}  // namespace medapp

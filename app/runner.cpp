#include "runner.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ctime>
#include <iostream>
#include <sstream>

#include "stathost/data_readers.h"
#include "stream_capture.h"

namespace medapp {

using stathost::HostMessage;
using stathost::HostSession;
using stathost::MessageLevel;

namespace {

std::string isoNow() {
  const std::time_t now = std::time(nullptr);
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
  return buffer;
}

HostMessage hostMessage(MessageLevel level, const std::string& command, const std::string& text,
                        const std::string& file = "", int line = 0) {
  HostMessage m;
  m.level = level;
  m.command = command;
  m.text = text;
  m.file = file;
  m.line = line;
  return m;
}

std::vector<std::string> splitWords(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> out;
  std::string w;
  while (in >> w) out.push_back(w);
  return out;
}

}  // namespace

nlohmann::json messageToJson(const HostMessage& m) {
  nlohmann::json j = {{"level", stathost::messageLevelName(m.level)},
                      {"command", m.command},
                      {"title", m.title},
                      {"text", m.text}};
  if (m.line > 0) {
    j["line"] = m.line;
    j["column"] = m.column;
    if (!m.file.empty()) j["file"] = m.file;
  }
  return j;
}

std::string formatMessageLine(const HostMessage& m) {
  std::string where;
  if (m.line > 0) {
    where = (m.file.empty() ? std::string("<command>") : m.file) + ":" + std::to_string(m.line);
    if (m.column > 0) where += ":" + std::to_string(m.column);
    where += ": ";
  }
  return where + stathost::messageLevelName(m.level) + ": " + m.text;
}

Runner::Runner(RunOptions options) : options_(std::move(options)) {
  document_ = {{"format", "medanlys-output"},
               {"version", 1},
               {"application", "medanlys " MEDANLYS_VERSION},
               {"created", isoNow()},
               {"data", nullptr},
               {"messages", nlohmann::json::array()},
               {"runs", nlohmann::json::array()}};
}

void Runner::addProcedure(const std::string& name, ProcedureEntry entry) {
  procedures_[stathost::toUpperAscii(name)] = entry;
}

std::vector<std::string> Runner::commandNames() const {
  std::vector<std::string> names = {"SPLIT FILE"};
  for (const auto& [name, entry] : procedures_) names.push_back(name);
  return names;
}

void Runner::printMessage(const HostMessage& message) const {
  *err_ << formatMessageLine(message) << '\n';
}

void Runner::addGlobalMessage(const HostMessage& message) {
  printMessage(message);
  document_["messages"].push_back(messageToJson(message));
  if (message.level == MessageLevel::kError) anyError_ = true;
}

bool Runner::loadData(const std::vector<std::string>& nominal,
                      const std::vector<std::string>& ordinal,
                      const std::vector<std::string>& scale, char delimiter) {
  try {
    std::vector<std::string> warnings;
    stathost::ReadOptions read;
    read.delimiter = delimiter;
    read.warnings = &warnings;
    auto data = stathost::readDataFile(options_.dataPath, read);
    stathost::applyLevelOverrides(*data, nominal, stathost::MeasureLevel::kNominal);
    stathost::applyLevelOverrides(*data, ordinal, stathost::MeasureLevel::kOrdinal);
    stathost::applyLevelOverrides(*data, scale, stathost::MeasureLevel::kScale);
    for (const std::string& w : warnings) {
      addGlobalMessage(hostMessage(MessageLevel::kWarning, "", w));
    }
    if (data->caseCount() == 0) {
      addGlobalMessage(
          hostMessage(MessageLevel::kWarning, "", options_.dataPath + " has no cases."));
    }
    if (!data->weightVariable.empty()) {
      const std::string& w = data->weightVariable;
      addGlobalMessage(hostMessage(
          MessageLevel::kNote, "",
          options_.dataPath + " names " + w +
              " as its case weight. Cases are not weighted by it unless a command says so: "
              "MEDIATION ANALYSIS weights the mediator model by it with /MEDMODEL "
              "SCALEWEIGHT=" +
              w + "."));
    }
    document_["data"] = {{"file", options_.dataPath},
                         {"cases", data->caseCount()},
                         {"variables", data->columns.size()}};
    HostSession::instance().setActiveDataset(std::move(data));
    if (!options_.split.empty()) return setSplit(options_.split, "--split");
    return true;
  } catch (const stathost::DelimiterError& e) {
    addGlobalMessage(hostMessage(MessageLevel::kError, "", e.what()));
    addGlobalMessage(hostMessage(MessageLevel::kNote, "",
                                 "Hint: if the fields are separated by another character, give "
                                 "it with --delimiter (for example --delimiter ';', --delimiter "
                                 "tab or --delimiter whitespace)."));
    return false;
  } catch (const stathost::DataError& e) {
    addGlobalMessage(hostMessage(MessageLevel::kError, "", e.what()));
    return false;
  }
}

bool Runner::setSplit(const std::vector<std::string>& names, const std::string& where) {
  HostSession& session = HostSession::instance();
  const stathost::Dataset* data = session.activeDataset();
  std::vector<int> columns;
  for (const std::string& name : names) {
    const int index = data ? data->findColumn(name) : -1;
    if (index < 0) {
      addGlobalMessage(
          hostMessage(MessageLevel::kError, "SPLIT FILE",
                      where + ": the split variable '" + name + "' is not in the data."));
      return false;
    }
    columns.push_back(index);
  }
  session.setSplitColumns(columns);
  groups_ = columns.empty() ? std::vector<stathost::SplitGroup>{}
                            : stathost::computeSplitGroups(*data, columns);
  return true;
}

int Runner::runCommands(const std::vector<CommandText>& commands, const std::string& source) {
  HostSession& session = HostSession::instance();
  for (const CommandText& command : commands) {
    if (session.cancelRequests() > 0) {
      addGlobalMessage(hostMessage(MessageLevel::kNote, command.name,
                                   "Not run: the user stopped the run.", source, command.line));
      continue;
    }
    auto it = procedures_.find(command.name);
    if (it != procedures_.end()) {
      runProcedure(command, source, it->second);
    } else if (!runHostCommand(command, source)) {
      HostMessage m = hostMessage(MessageLevel::kError, command.name,
                                  "Unrecognized command '" + command.name +
                                      "'. Commands this program runs: MEDIATION ANALYSIS, "
                                      "SPLIT FILE.",
                                  source, command.line);
      m.column = 1;
      session.beginRun();
      session.setMessageEcho(nullptr);
      printMessage(m);
      session.addMessage(m);
      recordRun(command, nullptr, session.endRun());
    }
  }
  return anyError_ ? 1 : 0;
}

// SPLIT FILE BY v1 v2.  /  SPLIT FILE OFF.
bool Runner::runHostCommand(const CommandText& command, const std::string& source) {
  if (command.name != "SPLIT FILE") return false;
  std::string body = command.text;
  while (!body.empty() &&
         (std::isspace(static_cast<unsigned char>(body.back())) || body.back() == '.')) {
    body.pop_back();
  }
  std::vector<std::string> words = splitWords(body);
  const std::string where = source + ":" + std::to_string(command.line);
  if (words.size() == 3 && stathost::namesEqual(words[2], "OFF")) {
    setSplit({}, where);
    return true;
  }
  if (words.size() < 4 || !stathost::namesEqual(words[2], "BY")) {
    addGlobalMessage(hostMessage(MessageLevel::kError, "SPLIT FILE",
                                 "SPLIT FILE needs BY and the split variables, or OFF.", source,
                                 command.line));
    return true;
  }
  setSplit(std::vector<std::string>(words.begin() + 3, words.end()), where);
  return true;
}

void Runner::runProcedure(const CommandText& command, const std::string& source,
                          ProcedureEntry entry) {
  HostSession& session = HostSession::instance();
  // A message without a position of its own is shown at the command that raised it.
  session.setMessageEcho([this, &command, &source](const HostMessage& m) {
    HostMessage shown = m;
    if (shown.line == 0) {
      shown.file = source;
      shown.line = command.line;
    }
    printMessage(shown);
  });
  session.setCurrentCommand(command.text, command.line, source);
  const std::size_t runs = groups_.empty() ? 1 : groups_.size();
  for (std::size_t g = 0; g < runs; ++g) {
    const stathost::SplitGroup* group = groups_.empty() ? nullptr : &groups_[g];
    if (group) *err_ << "-- " << command.name << " for split group " << group->label << '\n';
    session.setCurrentGroup(group);
    session.beginRun();
    std::vector<std::string> written;
    {
      // The procedure's own writes to the standard streams are diagnostics: they go into
      // its log, and standard error keeps the messages.
      StreamCapture capture;
      struct Restore {
        std::ostream*& err;
        ~Restore() { err = &std::cerr; }
      } restore{err_};
      err_ = &capture.originalErr();
      entry();
      written = capture.lines();
    }
    stathost::RunRecord record = session.endRun();
    record.log.insert(record.log.end(), written.begin(), written.end());
    record.cancelled = session.cancelRequests() > 0;
    if (record.messages.empty() && record.items.empty()) {
      HostMessage m = emptyRunMessage(command, source);
      printMessage(m);
      record.messages.push_back(m);
    }
    addTextHints(record, command);
    recordRun(command, group, std::move(record));
    if (session.cancelRequests() > 0) break;
  }
  session.setCurrentGroup(nullptr);
  session.setMessageEcho(nullptr);
}

// A procedure may stop without a word (MEDIATION ANALYSIS does when /PRINT is missing); say
// so rather than leave an empty page, and name the subcommand that would give output.
HostMessage Runner::emptyRunMessage(const CommandText& command, const std::string& source) const {
  std::string text = "The command ended without output and without a message.";
  const HostSession& session = HostSession::instance();
  const stathost::CommandDescriptor* grammar = session.parsedGrammar();
  const stathost::SubComDescriptor* print = grammar ? grammar->findSubCom("PRINT") : nullptr;
  const auto& given = session.givenSubcommands();
  const bool printGiven = std::any_of(given.begin(), given.end(), [](const std::string& name) {
    return stathost::namesEqual(name, "PRINT");
  });
  if (print && !printGiven && !print->params().empty()) {
    std::vector<std::string> defaults, others;
    for (const stathost::ParamDescriptor& p : print->params()) {
      (p.isDefault() ? defaults : others).push_back(p.name());
    }
    const auto list = [](const std::vector<std::string>& names) {
      std::string out;
      for (std::size_t i = 0; i < names.size(); ++i) {
        out += (i == 0 ? "" : (i + 1 == names.size() ? " and " : ", ")) + names[i];
      }
      return out;
    };
    text =
        "The command ended without output: it has no /PRINT subcommand, which chooses the "
        "tables.";
    if (!defaults.empty()) text += " /PRINT alone shows " + list(defaults) + ";";
    text += " /PRINT also takes " + list(others) + ".";
  }
  HostMessage m = hostMessage(MessageLevel::kWarning, command.name, text, source, command.line);
  return m;
}

// A variable that a command needs as numbers but that the data file holds as text: say
// where in the file it stopped being a number (a decimal comma or a thousands separator
// is the usual cause), when the file says.
void Runner::addTextHints(stathost::RunRecord& record, const CommandText& command) const {
  const stathost::Dataset* data = HostSession::instance().activeDataset();
  if (!data) return;
  const bool aboutNumbers =
      std::any_of(record.messages.begin(), record.messages.end(), [](const HostMessage& m) {
        return m.level == MessageLevel::kError && m.text.find("numeric") != std::string::npos;
      });
  if (!aboutNumbers) return;
  // The text variables the command names that the reader saw turn from numbers to text.
  std::vector<const stathost::Column*> named;
  std::string word;
  const auto consider = [&]() {
    const int index = word.empty() ? -1 : data->findColumn(word);
    word.clear();
    if (index < 0) return;
    const stathost::Column* c = &data->columns[static_cast<std::size_t>(index)];
    if (c->isNumeric() || c->firstTextLine == 0) return;
    if (std::find(named.begin(), named.end(), c) == named.end()) named.push_back(c);
  };
  for (char ch : command.text + " ") {
    const unsigned char u = static_cast<unsigned char>(ch);
    if (std::isalnum(u) || u >= 0x80 || ch == '_' || ch == '.' || ch == '@' || ch == '#' ||
        ch == '$') {
      word.push_back(ch);
    } else {
      while (!word.empty() && word.back() == '.') word.pop_back();
      consider();
    }
  }
  // Values written with a decimal comma or digit groups: only digits, commas, points,
  // blanks and a leading sign.
  const auto numberLike = [](const std::string& t) {
    bool digit = false, separator = false;
    for (std::size_t i = 0; i < t.size(); ++i) {
      const char c = t[i];
      if (std::isdigit(static_cast<unsigned char>(c))) {
        digit = true;
      } else if (c == ',' || c == '\'' || c == ' ' || c == '.') {
        separator = separator || c != '.';
      } else if (!(i == 0 && (c == '-' || c == '+'))) {
        return false;
      }
    }
    return digit && separator;
  };
  const bool anyNumberLike = std::any_of(named.begin(), named.end(),
                                         [&](const auto* c) { return numberLike(c->firstText); });
  for (const stathost::Column* c : named) {
    if (anyNumberLike && !numberLike(c->firstText)) continue;
    std::string text = "Hint: " + c->name + " is read as text: line " +
                       std::to_string(c->firstTextLine) + " of " + data->sourcePath + " holds '" +
                       c->firstText + "', the first of its values that is not a number";
    text += numberLike(c->firstText)
                ? " (numbers need a decimal point and no thousands separators)."
                : ".";
    HostMessage h = hostMessage(MessageLevel::kNote, command.name, text);
    printMessage(h);
    record.messages.push_back(std::move(h));
  }
}

void Runner::addLevelHints(stathost::RunRecord& record) const {
  const stathost::Dataset* data = HostSession::instance().activeDataset();
  if (!data) return;
  std::vector<HostMessage> hints;
  for (const HostMessage& m : record.messages) {
    if (m.level != MessageLevel::kError) continue;
    const auto bare = [](std::string word) {
      while (!word.empty() && std::ispunct(static_cast<unsigned char>(word.back())))
        word.pop_back();
      while (!word.empty() && std::ispunct(static_cast<unsigned char>(word.front())))
        word.erase(word.begin());
      return word;
    };
    // Only messages about measurement levels get the hint (whole words: "Rescale" is not one).
    bool aboutLevel = false;
    for (const std::string& word : splitWords(m.text)) {
      const std::string w = bare(word);
      aboutLevel =
          aboutLevel || w == "categorical" || w == "nominal" || w == "scale" || w == "ordinal";
    }
    if (!aboutLevel) continue;
    for (const std::string& word : splitWords(m.text)) {
      std::string name = word;
      while (!name.empty() && std::ispunct(static_cast<unsigned char>(name.back())))
        name.pop_back();
      const int index = data->findColumn(name);
      if (index < 0) continue;
      const stathost::Column& c = data->columns[static_cast<std::size_t>(index)];
      hints.push_back(hostMessage(MessageLevel::kNote, m.command,
                                  "Hint: " + c.name + " is " + stathost::measureLevelName(c.level) +
                                      " in the data; --nominal " + c.name + ", --ordinal " +
                                      c.name + " or --scale " + c.name +
                                      " sets its measurement level."));
      break;
    }
  }
  for (HostMessage& h : hints) {
    printMessage(h);
    record.messages.push_back(std::move(h));
  }
}

void Runner::recordRun(const CommandText& command, const stathost::SplitGroup* group,
                       stathost::RunRecord record) {
  addLevelHints(record);
  if (options_.verbose && !record.log.empty()) {
    std::string text;
    for (const std::string& line : record.log) {
      *err_ << line << '\n';
      text += line + "\n";
    }
    record.items.push_back({{"type", "text"}, {"title", "Analysis Log"}, {"text", text}});
  }
  const bool error = record.hasError();
  if (error) anyError_ = true;
  nlohmann::json messages = nlohmann::json::array();
  for (const HostMessage& m : record.messages) messages.push_back(messageToJson(m));
  nlohmann::json split = nullptr;
  if (group) split = {{"label", group->label}, {"values", group->values}};
  document_["runs"].push_back(
      {{"command", command.name},
       {"text", command.text},
       {"line", command.line},
       {"split", split},
       {"status", record.cancelled ? "cancelled" : (error ? "error" : "ok")},
       {"messages", messages},
       {"items", record.items}});
}

}  // namespace medapp

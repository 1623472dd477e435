// Runs commands against the active data set and collects the output document.
#pragma once

#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "command_file.h"
#include "stathost/host_session.h"

namespace medapp {

using ProcedureEntry = void (*)();

struct RunOptions {
  std::string dataPath;
  std::vector<std::string> split;  // --split; a SPLIT FILE command replaces it
  bool verbose = false;
};

class Runner {
 public:
  explicit Runner(RunOptions options);

  // Registers a procedure under its command name ("MEDIATION ANALYSIS").
  void addProcedure(const std::string& name, ProcedureEntry entry);
  std::vector<std::string> commandNames() const;

  // Loads the data file; false (with the message recorded) when it cannot be read. The
  // reader's warnings, and a note on a weight variable the file names, are recorded.
  bool loadData(const std::vector<std::string>& nominal, const std::vector<std::string>& ordinal,
                const std::vector<std::string>& scale, char delimiter);
  // Runs each command, once per split group. Returns the exit status: 0 when every
  // command ran, 1 when one ended with an error message. What a procedure writes to the
  // standard streams goes into its log (shown with --verbose).
  int runCommands(const std::vector<CommandText>& commands, const std::string& source);
  // Records a message that belongs to no command (a bad command file, say).
  void addGlobalMessage(const stathost::HostMessage& message);

  const nlohmann::json& document() const { return document_; }

 private:
  bool runHostCommand(const CommandText& command, const std::string& source);
  void runProcedure(const CommandText& command, const std::string& source, ProcedureEntry entry);
  void recordRun(const CommandText& command, const stathost::SplitGroup* group,
                 stathost::RunRecord record);
  bool setSplit(const std::vector<std::string>& names, const std::string& where);
  void addLevelHints(stathost::RunRecord& record) const;
  void addTextHints(stathost::RunRecord& record, const CommandText& command) const;
  stathost::HostMessage emptyRunMessage(const CommandText& command,
                                        const std::string& source) const;
  void printMessage(const stathost::HostMessage& message) const;

  RunOptions options_;
  std::map<std::string, ProcedureEntry> procedures_;
  std::vector<stathost::SplitGroup> groups_;
  nlohmann::json document_;
  bool anyError_ = false;
  // Where messages are printed: standard error, or what it was while a procedure's
  // standard streams are captured.
  std::ostream* err_ = &std::cerr;
};

nlohmann::json messageToJson(const stathost::HostMessage& message);
// "file:line:column: error: text" as printed on standard error.
std::string formatMessageLine(const stathost::HostMessage& message);

}  // namespace medapp

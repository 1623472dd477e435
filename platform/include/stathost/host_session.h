// The state the host application shares with a procedure while it runs: the active data
// set, the current command, the current split group, the message and output sinks and the
// cancel flag. A procedure reaches it only through the host classes (data source, token
// sequence, parser message, converter, stop processor).
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/command_descriptor.h"
#include "stathost/dataset.h"
#include "stathost/progress.h"

namespace stathost {

enum class MessageLevel { kError, kWarning, kNote };
const char* messageLevelName(MessageLevel level);

struct HostMessage {
  MessageLevel level = MessageLevel::kError;
  std::string command;
  std::string title;
  std::string text;
  std::string file;  // empty when the message does not point into a file
  int line = 0;      // 0 when no position applies
  int column = 0;
};

// One split group: the cases that share the values of the split variables.
struct SplitGroup {
  std::string label;              // "sex = 1 (female), site = 2"
  nlohmann::json values;          // [{"variable": ..., "value": ..., "label": ...}]
  std::vector<std::size_t> rows;  // case numbers (0-based) of the group, in file order
};

// Groups the cases by the split variables, ordered by their values (missing values last).
std::vector<SplitGroup> computeSplitGroups(const Dataset& data,
                                           const std::vector<int>& splitColumns);

// Everything one execution of a command produced.
struct RunRecord {
  std::vector<HostMessage> messages;
  nlohmann::json items = nlohmann::json::array();
  std::vector<std::string> log;
  bool cancelled = false;
  bool hasError() const;
};

class HostSession {
 public:
  static HostSession& instance();

  // Active data set and the split of its cases.
  void setActiveDataset(std::shared_ptr<const Dataset> data);
  const Dataset* activeDataset() const { return data_.get(); }
  void setSplitColumns(std::vector<int> columns) { splitColumns_ = std::move(columns); }
  const std::vector<int>& splitColumns() const { return splitColumns_; }
  // The cases of the current split group; null means all cases.
  void setCurrentGroup(const SplitGroup* group) { group_ = group; }
  const SplitGroup* currentGroup() const { return group_; }
  std::size_t currentCaseCount() const;
  std::size_t currentCaseRow(std::size_t i) const;

  // The command being executed, and where its text came from.
  void setCurrentCommand(std::string text, int firstLine, std::string source);
  const std::string& commandText() const { return commandText_; }
  int commandFirstLine() const { return commandFirstLine_; }
  const std::string& commandSource() const { return commandSource_; }

  // Run bookkeeping: beginRun clears the record, endRun hands it over.
  void beginRun();
  RunRecord endRun();
  void addMessage(HostMessage message);
  void addProcedureItems(const nlohmann::json& items);
  void addLogLine(const std::string& line) { run_.log.push_back(line); }
  // Called for every message as it is issued (the application prints it at once).
  void setMessageEcho(std::function<void(const HostMessage&)> echo) { echo_ = std::move(echo); }

  // Cancellation: requestCancel is safe to call from a signal handler.
  void requestCancel() { cancelRequests_.fetch_add(1, std::memory_order_relaxed); }
  int cancelRequests() const { return cancelRequests_.load(std::memory_order_relaxed); }
  void clearCancel() { cancelRequests_.store(0, std::memory_order_relaxed); }

  // Diagnostic log lines of the host and procedures; shown only when verbose.
  void setVerbose(bool verbose) { verbose_ = verbose; }
  bool verbose() const { return verbose_; }
  // Where long work reports its progress (ProcedureProgress); none by default. The observer
  // is called from the procedure's worker threads, one call at a time.
  void setProgressObserver(std::function<void(const ProgressReport&)> observer) {
    progress_ = std::move(observer);
  }
  bool progressEnabled() const { return static_cast<bool>(progress_); }
  void reportProgress(const ProgressReport& report) const {
    if (progress_) progress_(report);
  }

  // The grammar the command parser checked the current command against, and the names of
  // the subcommands the command gave; empty until a parser ran in this run.
  void setParsedGrammar(const CommandDescriptor& grammar, std::vector<std::string> given) {
    grammar_ = std::make_shared<CommandDescriptor>(grammar);
    givenSubcommands_ = std::move(given);
  }
  const CommandDescriptor* parsedGrammar() const { return grammar_.get(); }
  const std::vector<std::string>& givenSubcommands() const { return givenSubcommands_; }

 private:
  HostSession() = default;

  std::shared_ptr<const Dataset> data_;
  std::vector<int> splitColumns_;
  const SplitGroup* group_ = nullptr;
  std::string commandText_;
  int commandFirstLine_ = 1;
  std::string commandSource_;
  RunRecord run_;
  std::function<void(const HostMessage&)> echo_;
  std::atomic<int> cancelRequests_{0};
  bool verbose_ = false;
  std::function<void(const ProgressReport&)> progress_;
  std::shared_ptr<const CommandDescriptor> grammar_;
  std::vector<std::string> givenSubcommands_;
};

}  // namespace stathost

#include "stathost/host_session.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "stathost/format.h"
#include "stathost/procedure_log.h"

namespace stathost {

const char* messageLevelName(MessageLevel level) {
  switch (level) {
    case MessageLevel::kError:
      return "error";
    case MessageLevel::kWarning:
      return "warning";
    case MessageLevel::kNote:
      return "note";
  }
  return "note";
}

bool RunRecord::hasError() const {
  return std::any_of(messages.begin(), messages.end(),
                     [](const HostMessage& m) { return m.level == MessageLevel::kError; });
}

HostSession& HostSession::instance() {
  static HostSession session;
  return session;
}

void HostSession::setActiveDataset(std::shared_ptr<const Dataset> data) {
  data_ = std::move(data);
  splitColumns_.clear();
  group_ = nullptr;
}

std::size_t HostSession::currentCaseCount() const {
  if (!data_) return 0;
  return group_ ? group_->rows.size() : data_->caseCount();
}

std::size_t HostSession::currentCaseRow(std::size_t i) const {
  return group_ ? group_->rows[i] : i;
}

void HostSession::setCurrentCommand(std::string text, int firstLine, std::string source) {
  commandText_ = std::move(text);
  commandFirstLine_ = firstLine;
  commandSource_ = std::move(source);
}

void HostSession::beginRun() {
  run_ = RunRecord();
  grammar_.reset();
  givenSubcommands_.clear();
}

RunRecord HostSession::endRun() {
  RunRecord done = std::move(run_);
  run_ = RunRecord();
  return done;
}

void HostSession::addMessage(HostMessage message) {
  if (echo_) echo_(message);
  run_.messages.push_back(std::move(message));
}

void HostSession::addProcedureItems(const nlohmann::json& items) {
  for (const auto& item : items) run_.items.push_back(item);
}

void ProcedureLog::write(const std::string& line) { HostSession::instance().addLogLine(line); }

void ProcedureLog::write(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) HostSession::instance().addLogLine(line);
}

namespace {

// One split variable's value in a case: numbers compare numerically, strings as text,
// missing after everything else.
struct KeyPart {
  bool missing = false;
  bool numeric = true;
  double number = 0.0;
  std::string text;
  bool operator<(const KeyPart& o) const {
    if (missing != o.missing) return !missing;
    if (missing) return false;
    return numeric ? number < o.number : text < o.text;
  }
};

}  // namespace

std::vector<SplitGroup> computeSplitGroups(const Dataset& data,
                                           const std::vector<int>& splitColumns) {
  std::map<std::vector<KeyPart>, std::vector<std::size_t>> groups;
  const std::size_t n = data.caseCount();
  for (std::size_t row = 0; row < n; ++row) {
    std::vector<KeyPart> key;
    for (int index : splitColumns) {
      const Column& c = data.columns[static_cast<std::size_t>(index)];
      KeyPart part;
      part.numeric = c.isNumeric();
      part.missing = c.isMissing(row);
      if (!part.missing) {
        if (part.numeric) {
          part.number = c.numbers[row];
        } else {
          part.text = c.strings[row];
        }
      }
      key.push_back(part);
    }
    groups[key].push_back(row);
  }
  std::vector<SplitGroup> result;
  for (auto& [key, rows] : groups) {
    SplitGroup g;
    g.values = nlohmann::json::array();
    for (std::size_t k = 0; k < key.size(); ++k) {
      const Column& c = data.columns[static_cast<std::size_t>(splitColumns[k])];
      nlohmann::json v = {{"variable", c.name}};
      std::string shown;
      if (key[k].missing) {
        v["value"] = nullptr;
        shown = "missing";
      } else if (key[k].numeric) {
        v["value"] = key[k].number;
        shown = formatShortest(key[k].number);
        if (auto label = c.valueLabel(key[k].number)) {
          v["label"] = *label;
          shown += " (" + *label + ")";
        }
      } else {
        v["value"] = key[k].text;
        shown = key[k].text;
      }
      g.values.push_back(v);
      g.label += (k ? ", " : "") + c.name + " = " + shown;
    }
    g.rows = std::move(rows);
    result.push_back(std::move(g));
  }
  return result;
}

}  // namespace stathost

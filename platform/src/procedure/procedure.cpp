#include "stathost/procedure.h"

#include "stathost/case_adapter.h"
#include "stathost/data_source.h"
#include "stathost/host_session.h"

namespace stathost {

BpProcedure::BpProcedure(std::string title, int outputCategory)
    : title_(std::move(title)), category_(outputCategory) {}

void BpProcedure::addNote(const std::string& label, const std::string& text) {
  notes_.emplace_back(label, text);
}

OPSCommonOutput::OPSCommonOutput(ACAVarValidSpecs* specs, ProcedureDataSource& source,
                                 BpProcedure* procedure, const ACAInputAdapter* /*adapter*/) {
  if (!procedure) return;
  const HostSession& session = HostSession::instance();
  procedure->addNote("Data file", source.getFileName());
  if (const SplitGroup* group = session.currentGroup()) {
    procedure->addNote("Split group", group->label);
  }
  procedure->addNote("Cases in the data", std::to_string(source.getCaseCount()));
  if (specs && !specs->variables().empty()) {
    std::string names;
    for (int index : specs->variables()) {
      if (const STAX_Variable* v = source.getVariable(index)) {
        names += (names.empty() ? "" : " ") + v->getName();
      }
    }
    procedure->addNote("Variables", names);
  }
  procedure->addNote("Command", session.commandText());
}

int StatJSONConverter::generateOutput(const std::string& procedureJson) {
  nlohmann::json document = nlohmann::json::parse(procedureJson, nullptr, false);
  if (document.is_discarded() || !document.contains("items") || !document["items"].is_array()) {
    return 1;
  }
  nlohmann::json items = nlohmann::json::array();
  if (!procedure_.notes().empty()) {
    nlohmann::json entries = nlohmann::json::array();
    for (const auto& [label, text] : procedure_.notes()) {
      entries.push_back({{"label", label}, {"text", text}});
    }
    items.push_back({{"type", "notes"}, {"title", "Notes"}, {"entries", entries}});
  }
  for (auto& item : document["items"]) items.push_back(std::move(item));
  HostSession::instance().addProcedureItems(items);
  return 0;
}

}  // namespace stathost

#include "stathost/gpl_graph.h"

#include <cmath>

namespace stathost {

StatGPLGraph::StatGPLGraph(StatJSONGenerator* generator, std::string title)
    : generator_(generator), title_(std::move(title)) {}

void StatGPLGraph::addDoubleDataVariable(const std::vector<double>& values,
                                         const std::string& name) {
  nlohmann::json column = nlohmann::json::array();
  for (double v : values)
    column.push_back(std::isfinite(v) ? nlohmann::json(v) : nlohmann::json(nullptr));
  data_.push_back({{"name", name}, {"kind", "double"}, {"values", std::move(column)}});
}

void StatGPLGraph::addStringDataVariable(const std::vector<std::string>& values,
                                         const std::string& name) {
  data_.push_back({{"name", name}, {"kind", "string"}, {"values", values}});
}

std::string StatGPLGraph::getProcedureName() const {
  return generator_ ? generator_->title() : std::string();
}

std::string StatGPLGraph::getGPLText() {
  std::string gpl = "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n";
  for (const auto& column : data_) {
    const std::string name = column["name"];
    gpl += "DATA: " + name + " = col(source(s), name(\"" + name + "\")";
    gpl += column["kind"] == "string" ? ", unit.category())\n" : ")\n";
  }
  return gpl;
}

int StatGPLGraph::addGPLGraphToProcedureJSON() {
  const std::string gpl = getGPLText();
  if (!generator_ || gpl.empty()) return 1;
  generator_->addItem({{"type", "chart"},
                       {"title", title_},
                       {"procedure", getProcedureName()},
                       {"gpl", gpl},
                       {"data", data_}});
  return 0;
}

}  // namespace stathost

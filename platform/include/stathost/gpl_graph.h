// A chart: GPL statements plus the data columns they refer to.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/json_generator.h"

namespace stathost {

class StatGPLGraph {
 public:
  StatGPLGraph(StatJSONGenerator* generator, std::string title);
  virtual ~StatGPLGraph() = default;
  StatGPLGraph(const StatGPLGraph&) = delete;
  StatGPLGraph& operator=(const StatGPLGraph&) = delete;

  void addDoubleDataVariable(const std::vector<double>& values, const std::string& name);
  void addStringDataVariable(const std::vector<std::string>& values, const std::string& name);
  // The name the GPL SOURCE statement refers to: the procedure's title.
  std::string getProcedureName() const;
  void setTitle(const std::string& title) { title_ = title; }
  const std::string& title() const { return title_; }
  // Asks for the GPL text and writes the chart into the document. Returns 0, or 1 when
  // the text is empty.
  int addGPLGraphToProcedureJSON();

 protected:
  // The chart's GPL statements, one per line. The default declares the source and one
  // DATA statement per column, and draws nothing.
  virtual std::string getGPLText();
  const nlohmann::json& dataColumns() const { return data_; }

 private:
  StatJSONGenerator* generator_;
  std::string title_;
  nlohmann::json data_ = nlohmann::json::array();
};

}  // namespace stathost

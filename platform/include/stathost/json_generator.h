// Collects the output items (tables, charts, text) of one procedure run as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace stathost {

class StatJSONGenerator {
 public:
  explicit StatJSONGenerator(std::string title);
  const std::string& title() const { return title_; }
  void addItem(nlohmann::json item);
  std::size_t itemCount() const { return items_.size(); }
  // The procedure's document: {"title": ..., "items": [...]}, as JSON text.
  std::string getProcedureStatJSON() const;

 private:
  std::string title_;
  nlohmann::json items_ = nlohmann::json::array();
};

}  // namespace stathost

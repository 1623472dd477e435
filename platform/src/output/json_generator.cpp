#include "stathost/json_generator.h"

namespace stathost {

StatJSONGenerator::StatJSONGenerator(std::string title) : title_(std::move(title)) {}

void StatJSONGenerator::addItem(nlohmann::json item) { items_.push_back(std::move(item)); }

std::string StatJSONGenerator::getProcedureStatJSON() const {
  // Non-finite numbers never reach this point: every writer stores them as null.
  return nlohmann::json{{"title", title_}, {"items", items_}}.dump();
}

}  // namespace stathost

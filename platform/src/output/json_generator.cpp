#include "stathost/json_generator.h"

namespace stathost {

StatJSONGenerator::StatJSONGenerator(std::string title) : title_(std::move(title)) {}

void StatJSONGenerator::addItem(nlohmann::json item) { items_.push_back(std::move(item)); }

std::string StatJSONGenerator::getProcedureStatJSON() const {
  // Non-finite numbers never reach this point: every writer stores them as null. Text that
  // is not UTF-8 is replaced rather than allowed to lose the procedure's output.
  return nlohmann::json{{"title", title_}, {"items", items_}}.dump(
      -1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace stathost

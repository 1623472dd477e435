#include "data/variable_role_mapper.h"

namespace medanlys {
namespace {

template <typename T>
void writeJoined(std::ostream& out, const std::vector<T>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i) out << ", ";
    out << values[i];
  }
}

}  // namespace

void VariableRoleMapper::dump(std::ostream& out) const {
  out << "===== VariableRoleMapper Debug Info =====\n";
  out << "\n-- Single Variable Roles --\n";
  for (const auto& [role, name] : roleNames_) {
    out << "Role: " << role << ", VarName: " << name;
    auto data = roleData_.find(role);
    if (data != roleData_.end()) {
      out << ", Data: ";
      writeJoined(out, data->second);
    }
    out << "\n";
  }
  out << "\n-- Variable List Roles --\n";
  for (const auto& [role, names] : listNames_) {
    out << "Role: " << role << ", VarNames: [";
    writeJoined(out, names);
    out << "]\n";
    auto data = listData_.find(role);
    if (data == listData_.end()) continue;
    for (std::size_t row = 0; row < data->second.size(); ++row) {
      out << "  Row " << row << ": ";
      writeJoined(out, data->second[row]);
      out << "\n";
    }
  }
  out << "\n-- Index Mapping --\n";
  for (const auto& [name, index] : indexMapping_) {
    out << "VarName: " << name << ", Index: " << index << "\n";
  }
  out << "\n-- All Indices --\n[ ";
  writeJoined(out, allIndices_);
  out << " ]\n";
  out << "===== End of Debug Info =====\n";
}

}  // namespace medanlys

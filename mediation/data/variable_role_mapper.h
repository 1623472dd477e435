// The cleaned analysis columns, by role: "OUTCOMEVAR", "MEDIATORVAR", "PREDICTORVAR" and
// "MEDMODEL_SCALEWEIGHT" hold one column each; "WITH" (covariates) and "BY" (factors) hold
// one column per listed variable, in command order.
#pragma once

#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace medanlys {

using Column = std::vector<double>;

class VariableRoleMapper {
 public:
  // Presence tests.
  bool hasRoleName(const std::string& role) const { return roleNames_.count(role) != 0; }
  bool hasRoleData(const std::string& role) const { return roleData_.count(role) != 0; }
  bool hasListNames(const std::string& role) const { return listNames_.count(role) != 0; }
  bool hasListData(const std::string& role) const { return listData_.count(role) != 0; }
  bool hasIndex(const std::string& variable) const { return indexMapping_.count(variable) != 0; }

  // Lookups; a missing key raises std::out_of_range("invalid map<K, T> key").
  const std::string& roleName(const std::string& role) const { return lookup(roleNames_, role); }
  const Column& roleData(const std::string& role) const { return lookup(roleData_, role); }
  const std::vector<std::string>& listNames(const std::string& role) const {
    return lookup(listNames_, role);
  }
  const std::vector<Column>& listData(const std::string& role) const {
    return lookup(listData_, role);
  }
  int index(const std::string& variable) const { return lookup(indexMapping_, variable); }

  void setRoleName(const std::string& role, const std::string& variable) {
    roleNames_[role] = variable;
  }
  void setRoleData(const std::string& role, Column data) { roleData_[role] = std::move(data); }
  void setListNames(const std::string& role, std::vector<std::string> names) {
    listNames_[role] = std::move(names);
  }
  void setListData(const std::string& role, std::vector<Column> data) {
    listData_[role] = std::move(data);
  }
  void setIndex(const std::string& variable, int index) { indexMapping_[variable] = index; }
  void setAllIndices(std::vector<int> indices) { allIndices_ = std::move(indices); }
  const std::vector<int>& allIndices() const { return allIndices_; }

  // Mutable access for the cleaning pass.
  std::map<std::string, Column>& roleDataMap() { return roleData_; }
  std::map<std::string, std::vector<Column>>& listDataMap() { return listData_; }
  const std::map<std::string, Column>& roleDataMap() const { return roleData_; }
  const std::map<std::string, std::vector<Column>>& listDataMap() const { return listData_; }

  // The case counts of the reading: cases read and valid cases after cleaning. The
  // driver copies them into the strategy input unchanged.
  long casesRead = 0;
  long casesValid = 0;
  // Scale weights: cases whose weight is missing or below 0.5 (left out whatever their
  // other values), and kept cases whose weight the cleaning rounded to a whole count.
  long casesDroppedForWeight = 0;
  long weightsRounded = 0;
  double weightChangeByRounding = 0.0;  // sum over those cases of (rounded - as read)

  // Writes the whole content, for diagnosis.
  void dump(std::ostream& out) const;

 private:
  template <typename Map>
  static const typename Map::mapped_type& lookup(const Map& map, const std::string& key) {
    auto it = map.find(key);
    if (it == map.end()) throw std::out_of_range("invalid map<K, T> key");
    return it->second;
  }

  std::map<std::string, std::string> roleNames_;
  std::map<std::string, Column> roleData_;
  std::map<std::string, std::vector<std::string>> listNames_;
  std::map<std::string, std::vector<Column>> listData_;
  std::map<std::string, int> indexMapping_;
  std::vector<int> allIndices_;
};

}  // namespace medanlys

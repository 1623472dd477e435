// The host's string table: texts of host messages, looked up by key.
#pragma once

#include <map>
#include <string>

namespace stathost {

class FacSTDictionary {
 public:
  static const FacSTDictionary& instance();
  // The text for a key; the key itself when the table has no entry.
  std::string getString(const std::string& key) const;
  bool hasString(const std::string& key) const { return table_.count(key) != 0; }

 private:
  FacSTDictionary();
  std::map<std::string, std::string> table_;
};

}  // namespace stathost

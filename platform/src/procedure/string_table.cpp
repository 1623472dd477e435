#include "stathost/string_table.h"

namespace stathost {

const FacSTDictionary& FacSTDictionary::instance() {
  static const FacSTDictionary dictionary;
  return dictionary;
}

FacSTDictionary::FacSTDictionary()
    : table_{
          {"NoCovariateAfterKeyword",
           "No covariate variables follow the keyword ^1: name at least one variable after it."},
          {"NoFactorAfterKeyword",
           "No factor variables follow the keyword ^1: name at least one variable after it."},
          {"SyntaxError", "^1: syntax error at line ^2, column ^3: ^4"},
          {"InternalError", "An internal error has occurred."},
          {"UnknownCommand", "Unrecognized command: ^1."},
      } {}

std::string FacSTDictionary::getString(const std::string& key) const {
  auto it = table_.find(key);
  return it == table_.end() ? key : it->second;
}

}  // namespace stathost

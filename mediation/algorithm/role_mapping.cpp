#include "algorithm/role_mapping.h"

#include <algorithm>

namespace medanlys {

std::vector<Column> dummyCodeFactors(const std::vector<Column>& factors,
                                     const std::vector<std::string>& names,
                                     std::vector<FactorCoding>& codings) {
  std::vector<Column> dummies;
  codings.clear();
  for (std::size_t f = 0; f < factors.size(); ++f) {
    std::vector<double> levels(factors[f].begin(), factors[f].end());
    std::sort(levels.begin(), levels.end());
    levels.erase(std::unique(levels.begin(), levels.end()), levels.end());
    FactorCoding coding;
    coding.variable = f < names.size() ? names[f] : std::string();
    if (!levels.empty()) coding.reference = levels.front();
    for (std::size_t l = 1; l < levels.size(); ++l) {
      coding.levels.push_back(levels[l]);
      Column dummy(factors[f].size());
      for (std::size_t i = 0; i < dummy.size(); ++i)
        dummy[i] = factors[f][i] == levels[l] ? 1.0 : 0.0;
      dummies.push_back(std::move(dummy));
    }
    codings.push_back(std::move(coding));
  }
  return dummies;
}

}  // namespace medanlys

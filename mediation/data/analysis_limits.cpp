#include "data/analysis_limits.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string>

#include "stathost/format.h"

namespace medanlys {
namespace {

std::string count(std::size_t n) { return std::to_string(n); }

bool valuesInRange(const std::string& variable, const Column& values,
                   const stathost::ParserMessage& messages) {
  double largest = 0.0;
  for (double v : values) {
    if (std::fabs(v) > kLargestAnalysableValue) {
      messages.GenericError(
          "Values of ^1 are too large to analyse (beyond 1e150 in magnitude). Rescale the "
          "variable.",
          variable);
      return false;
    }
    largest = std::max(largest, std::fabs(v));
  }
  if (largest > 0.0 && largest < kSmallestAnalysableScale) {
    messages.GenericError(
        "Values of ^1 are too small to analyse (all below 1e-150 in magnitude). Rescale the "
        "variable.",
        variable);
    return false;
  }
  return true;
}

}  // namespace

bool checkAnalysisLimits(const VariableRoleMapper& mapper,
                         const stathost::ParserMessage& messages) {
  for (const char* role : {"OUTCOMEVAR", "MEDIATORVAR", "PREDICTORVAR", "MEDMODEL_SCALEWEIGHT"}) {
    if (mapper.hasRoleName(role) && mapper.hasRoleData(role) &&
        !valuesInRange(mapper.roleName(role), mapper.roleData(role), messages)) {
      return false;
    }
  }
  std::size_t columns = 0;
  if (mapper.hasListNames("BY") && mapper.hasListData("BY")) {
    const auto& names = mapper.listNames("BY");
    const auto& data = mapper.listData("BY");
    for (std::size_t k = 0; k < names.size() && k < data.size(); ++k) {
      const std::set<double> levels(data[k].begin(), data[k].end());
      if (levels.size() > kMaxFactorLevels) {
        messages.GenericError(
            "Factor ^1 has ^2 levels; at most ^3 are supported. Recode the factor into fewer "
            "groups or enter it on WITH as a covariate.",
            names[k], count(levels.size()), count(kMaxFactorLevels));
        return false;
      }
      columns += levels.empty() ? 0 : levels.size() - 1;
    }
  }
  if (mapper.hasListNames("WITH") && mapper.hasListData("WITH")) {
    const auto& names = mapper.listNames("WITH");
    const auto& data = mapper.listData("WITH");
    for (std::size_t k = 0; k < names.size() && k < data.size(); ++k) {
      if (!valuesInRange(names[k], data[k], messages)) return false;
    }
    columns += names.size();
  }
  if (columns > kMaxCovariateColumns) {
    messages.GenericError(
        "The factors and covariates give ^1 model columns; at most ^2 are supported. Use fewer "
        "covariates or factors with fewer levels.",
        count(columns), count(kMaxCovariateColumns));
    return false;
  }
  return true;
}

}  // namespace medanlys

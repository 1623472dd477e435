// The 22 effect quantities of a decomposition and their inference.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <string>

#include "algorithm/mediation_case_data.h"

namespace medanlys {

// Effects on the outcome's scale; the ratio fields (PM .. r_PAI) are percentages of TE.
struct EffectEstimates {
  double CDE = 0.0, NDE = 0.0, NIE = 0.0, TE = 0.0, PIE = 0.0, INT_med = 0.0, INT_ref = 0.0,
         PE = 0.0, TDE = 0.0, PAI = 0.0;
  double PM = 0.0, Percent_INT = 0.0, Percent_ELIM = 0.0;
  double r_CDE = 0.0, r_NDE = 0.0, r_NIE = 0.0, r_PE = 0.0, r_TDE = 0.0, r_PIE = 0.0,
         r_INT_med = 0.0, r_INT_ref = 0.0, r_PAI = 0.0;
};

constexpr std::size_t kEffectCount = 22;

// Name and accessor of each field, in the fixed order of the record.
struct EffectField {
  const char* name;
  double EffectEstimates::*member;
};
extern const std::array<EffectField, kEffectCount> kEffectFields;

using EffectMap = std::map<std::string, EffectInference>;

}  // namespace medanlys

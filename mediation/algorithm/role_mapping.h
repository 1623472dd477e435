// The input of every strategy: the cleaned analysis columns by role.
#pragma once

#include <string>
#include <vector>

#include "data/variable_role_mapper.h"

namespace medanlys {

// How one factor (BY variable) enters the models: one 0/1 dummy column per level except
// the reference, which is the lowest observed level.
struct FactorCoding {
  std::string variable;
  double reference = 0.0;
  std::vector<double> levels;  // the non-reference levels, ascending: one dummy each
};

struct RoleMapping {
  Column outcome;
  Column mediator;
  Column exposure;
  Column unused;                   // left empty by the driver
  std::vector<Column> covariates;  // WITH, in command order
  // BY, as dummy columns: factor by factor in command order, each factor's levels in
  // ascending order, the reference level left out.
  std::vector<Column> factors;
  Column weights;  // the scale weight, or 1.0 per case
  long casesRead = 0;
  long casesValid = 0;
  // Which factor and level each column of `factors` stands for.
  std::vector<FactorCoding> factorCodings;
  std::vector<std::string> covariateNames;
};

// Dummy coding of factor columns (reference = lowest level); fills the codings.
std::vector<Column> dummyCodeFactors(const std::vector<Column>& factors,
                                     const std::vector<std::string>& names,
                                     std::vector<FactorCoding>& codings);

}  // namespace medanlys

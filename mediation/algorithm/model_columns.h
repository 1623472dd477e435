// The covariate block of both models: factor dummies first, then covariates.
#pragma once

#include <string>
#include <vector>

#include "algorithm/role_mapping.h"
#include "models/linear_algebra.h"

namespace medanlys {

struct ModelColumns {
  std::vector<Vector> covariates;   // in design order
  std::vector<bool> isFactor;       // one flag per column
  std::vector<std::string> labels;  // "F=2" for a dummy, the variable name for a covariate
  std::vector<FactorCoding> factorCodings;  // the factors whose dummies lead the columns
};

// Moves the factor dummies and covariates out of the input, in design order.
ModelColumns takeModelColumns(RoleMapping& input);

// Throws FitError when the columns do not all have the exposure's length.
void checkColumnSizes(const Vector& exposure, const Vector& mediator, const Vector& outcome,
                      const Vector& weights, const ModelColumns& columns);

}  // namespace medanlys

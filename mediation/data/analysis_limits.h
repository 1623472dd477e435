// Bounds that keep any command within memory and time: factor levels, model columns,
// bootstrap replicates and the magnitude of the data values. A breach is refused with a
// message that names the variable and the limit, before any model is fitted.
#pragma once

#include <cstddef>

#include "data/variable_role_mapper.h"
#include "stathost/parser_message.h"

namespace medanlys {

constexpr std::size_t kMaxFactorLevels = 100;      // per BY factor
constexpr std::size_t kMaxCovariateColumns = 200;  // dummy columns of the factors + WITH
constexpr int kMaxBootstrapSamples = 100000;       // NSAMPLES
constexpr double kLargestAnalysableValue = 1e150;  // squares and cross-products stay finite
// A variable whose largest magnitude is below this has sums of squares that underflow.
constexpr double kSmallestAnalysableScale = 1e-150;

// Checks the cleaned case data of the mapper; reports the first breach and returns false.
bool checkAnalysisLimits(const VariableRoleMapper& mapper, const stathost::ParserMessage& messages);

}  // namespace medanlys

#include "algorithm/model_columns.h"

#include <algorithm>

#include "models/fit_error.h"
#include "stathost/format.h"

namespace medanlys {

ModelColumns takeModelColumns(RoleMapping& input) {
  ModelColumns m;
  for (const FactorCoding& coding : input.factorCodings) {
    for (double level : coding.levels)
      m.labels.push_back(coding.variable + "=" + stathost::formatShortest(level));
  }
  m.factorCodings = input.factorCodings;
  for (Vector& dummy : input.factors) {
    m.covariates.push_back(std::move(dummy));
    m.isFactor.push_back(true);
  }
  for (std::size_t c = 0; c < input.covariates.size(); ++c) {
    m.covariates.push_back(std::move(input.covariates[c]));
    m.isFactor.push_back(false);
    m.labels.push_back(c < input.covariateNames.size() ? input.covariateNames[c] : "");
  }
  return m;
}

void checkColumnSizes(const Vector& exposure, const Vector& mediator, const Vector& outcome,
                      const Vector& weights, const ModelColumns& columns) {
  const std::size_t n = exposure.size();
  const bool mismatch = mediator.size() != n || outcome.size() != n || weights.size() != n ||
                        std::any_of(columns.covariates.begin(), columns.covariates.end(),
                                    [n](const Vector& c) { return c.size() != n; });
  if (mismatch) {
    throw FitError(
        "Invalid data sizes. Exposure, mediator, outcome, covariates, and weights must match.",
        "All input vectors (A, M, Y) must have the same length");
  }
}

}  // namespace medanlys

// The scale on which the models are fitted: the skewness transformations of the analysis
// variables, the exposure and mediator levels carried to that scale, and the plain-words
// notices that tell the user what changed. Pure functions; refusals throw FitError.
#pragma once

#include <string>
#include <vector>

#include "algorithm/data_preparation.h"
#include "algorithm/model_columns.h"

namespace medanlys {

// One analysis column that the skewness rule may transform.
struct ScaleRole {
  std::string key;       // "Exposure", "Mediator", "Outcome" or "Covariate_<j>"
  std::string variable;  // its name in the data, for the notices
  Vector* values;
};

// Adds the covariate columns (not the factor dummies) as roles "Covariate_<j>".
void addCovariateRoles(ModelColumns& columns, std::vector<ScaleRole>& roles);

// Applies the skewness rule to every role when `enabled` (TRANSFORM=AUTO) and records the
// result under the role's key; with `enabled` false every role is recorded as "none".
void transformRoles(const std::vector<ScaleRole>& roles, const Vector* weights, bool enabled,
                    TransformationRecords& records);

// What the transformations did, in words: "A to log(A) (skewness 1.83); Y to ..." with a
// warning where the direction is reversed; empty when no role was transformed.
std::string transformationNotice(const std::vector<ScaleRole>& roles,
                                 const TransformationRecords& records);

// BLEVEL and ELEVEL carried to the model scale of the exposure by the exposure's own
// transformation. Refuses levels outside the transformation's domain and a contrast that
// vanishes on the model scale (two levels with the same square).
ExposureLevels levelsOnModelScale(ExposureLevels levels, const TransformationRecord& exposure,
                                  const std::string& variable, Log& log);

// A custom mediator level (MLEVEL=VALUE(v)) on the model scale of the mediator; refused
// when the mediator's transformation cannot carry it.
double mediatorLevelOnModelScale(double value, const TransformationRecord& mediator,
                                 const std::string& variable);

// When BLEVEL or ELEVEL was left to its default (the lowest and second-lowest observed
// values) for an exposure with more than two values: the levels chosen, and observed values
// near the quartiles to consider instead. "" otherwise.
std::string defaultLevelsNotice(const Vector& exposure, bool blevelGiven, bool elevelGiven,
                                const ExposureLevels& levels, const std::string& variable);

// The repair of extrapolated exposure levels in words, or "" when the levels were kept;
// `reason` is the one checkExtrapolation gave. Refuses a repair that leaves no contrast
// (equal quartiles).
std::string extrapolationNotice(const ExposureLevels& asked, const ExposureLevels& used,
                                const std::string& reason, const std::string& variable);

}  // namespace medanlys

// `medanlys variables --data FILE`: what a data file holds, variable by variable: type,
// measurement level, labels, valid and missing counts, and for numbers their range and
// number of distinct values.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "stathost/dataset.h"

namespace medapp {

// For scripts: {"file", "cases", "variables": [{"name", "label", "type", "level", "format",
// "valid", "missing", "distinct", "minimum", "maximum", "value_labels", "missing_values"}]}.
// minimum and maximum are null for strings and when no value is valid.
nlohmann::json describeVariables(const stathost::Dataset& data);

// The same as one table item of the output document ("Variables in FILE").
nlohmann::json variablesTable(const nlohmann::json& description);

}  // namespace medapp

// Reads the analysis variables of the active data set in one pass and cleans them
// listwise.
#pragma once

#include <string>

#include "data/variable_role_mapper.h"
#include "stathost/data_source.h"
#include "stathost/parser_message.h"

namespace medanlys {

constexpr long kMinimumValidCases = 10;

// Registers the variables of the mapper's all-indices list (in that order) with the
// host adapter, reads every case of the current split group and distributes the
// columns to the roles. False when the adapter or the iterator cannot be made.
bool readCases(stathost::ProcedureDataSource& source, VariableRoleMapper& mapper);

// The warning for cases left out for their scale weight: "30 cases were left out because
// their scale weight W is missing or below 0.5 (...)".
std::string weightDropWarning(long cases, const std::string& weightVariable);

// Listwise deletion: a case is kept when no analysis variable is missing and its scale
// weight (when there is one) is at least 0.5; weights are rounded to whole replication
// counts (halves away from zero). Sets casesRead and casesValid, and warns with the number
// of cases whose weight left them out. Below 10 valid cases it reports the user message
// and throws std::runtime_error with the count.
void cleanCases(VariableRoleMapper& mapper, const stathost::ParserMessage& messages);

}  // namespace medanlys

#include "data/case_reader.h"

#include <cmath>
#include <memory>
#include <stdexcept>

#include "stathost/case_adapter.h"

namespace medanlys {

std::string weightDropWarning(long cases, const std::string& weightVariable) {
  const bool one = cases == 1;
  return std::to_string(cases) + (one ? " case was" : " cases were") + " left out because " +
         (one ? "its" : "their") + " scale weight " + weightVariable +
         " is missing or below 0.5 (weights are rounded to whole replication counts).";
}

bool readCases(stathost::ProcedureDataSource& source, VariableRoleMapper& mapper) {
  const std::vector<int>& indices = mapper.allIndices();
  stathost::ACAVarValidSpecs specs(true, true, true);
  for (int index : indices) specs.AddVariable(index);
  std::unique_ptr<stathost::ACAInputAdapter> adapter;
  std::unique_ptr<stathost::ACAProcDataSourceIter> iter;
  try {
    adapter = std::make_unique<stathost::ACAInputAdapter>(&specs, source);
    iter = std::make_unique<stathost::ACAProcDataSourceIter>(*adapter, true);
  } catch (const std::exception&) {
    return false;
  }

  std::vector<Column> columns(indices.size());
  while (iter->HasMore()) {
    const stathost::ACARecord* record = iter->Next();
    const double* values = record ? record->GetAll() : nullptr;
    if (!values) continue;
    for (std::size_t i = 0; i < columns.size(); ++i) columns[i].push_back(values[i]);
  }

  // A variable's column is the one of its first registration slot.
  auto columnOf = [&](const std::string& variable) -> const Column& {
    const int index = mapper.index(variable);
    for (std::size_t slot = 0; slot < indices.size(); ++slot) {
      if (indices[slot] == index) return columns[slot];
    }
    throw std::out_of_range("invalid map<K, T> key");
  };
  for (const char* role : {"OUTCOMEVAR", "MEDIATORVAR", "PREDICTORVAR", "MEDMODEL_SCALEWEIGHT"}) {
    if (mapper.hasRoleName(role)) mapper.setRoleData(role, columnOf(mapper.roleName(role)));
  }
  for (const char* role : {"WITH", "BY"}) {
    if (!mapper.hasListNames(role)) continue;
    std::vector<Column> list;
    for (const std::string& name : mapper.listNames(role)) list.push_back(columnOf(name));
    mapper.setListData(role, std::move(list));
  }
  return true;
}

void cleanCases(VariableRoleMapper& mapper, const stathost::ParserMessage& messages) {
  auto& single = mapper.roleDataMap();
  auto& lists = mapper.listDataMap();
  long read = 0;
  if (!single.empty()) {
    read = static_cast<long>(single.begin()->second.size());
  } else if (!lists.empty() && !lists.begin()->second.empty()) {
    read = static_cast<long>(lists.begin()->second.front().size());
  }
  mapper.casesRead = read;
  if (read == 0) {
    mapper.casesValid = 0;
    return;
  }

  std::vector<bool> valid(static_cast<std::size_t>(read), true);
  auto markMissing = [&](const Column& column) {
    for (std::size_t i = 0; i < column.size() && i < valid.size(); ++i) {
      if (column[i] == stathost::kMissingValue) valid[i] = false;
    }
  };
  for (const auto& [role, column] : single) markMissing(column);
  for (const auto& [role, columns] : lists) {
    for (const Column& column : columns) markMissing(column);
  }
  mapper.casesDroppedForWeight = 0;
  mapper.weightsRounded = 0;
  mapper.weightChangeByRounding = 0.0;
  auto weights = single.find("MEDMODEL_SCALEWEIGHT");
  if (weights != single.end()) {
    for (std::size_t i = 0; i < weights->second.size(); ++i) {
      double& w = weights->second[i];
      if (w == stathost::kMissingValue || w < 0.5) {
        valid[i] = false;
        ++mapper.casesDroppedForWeight;
      } else {
        const double rounded = std::round(w);  // halves away from zero
        if (rounded != w && valid[i]) {
          ++mapper.weightsRounded;
          mapper.weightChangeByRounding += rounded - w;
        }
        w = rounded;
      }
    }
  }

  // Say how many cases the weights took away, before any refusal for too few cases: a
  // weight variable full of fractions below 0.5 can empty a file without a missing value.
  if (mapper.casesDroppedForWeight > 0) {
    messages.GenericWarning(
        weightDropWarning(mapper.casesDroppedForWeight, mapper.roleName("MEDMODEL_SCALEWEIGHT")));
  }

  long validCount = 0;
  for (bool v : valid) validCount += v ? 1 : 0;
  mapper.casesValid = validCount;
  if (validCount < kMinimumValidCases) {
    messages.GenericError(
        "Insufficient sample size after cleaning. Minimum 10 valid cases required for mediation "
        "analysis.");
    throw std::runtime_error("Insufficient sample size (" + std::to_string(validCount) +
                             ") after cleaning. Minimum 10 valid cases required for mediation "
                             "analysis.");
  }
  if (validCount == read) return;
  auto keep = [&](Column& column) {
    Column kept;
    kept.reserve(static_cast<std::size_t>(validCount));
    for (std::size_t i = 0; i < column.size(); ++i) {
      if (valid[i]) kept.push_back(column[i]);
    }
    column = std::move(kept);
  };
  for (auto& [role, column] : single) keep(column);
  for (auto& [role, columns] : lists) {
    for (Column& column : columns) keep(column);
  }
}

}  // namespace medanlys

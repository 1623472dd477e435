#include "stathost/case_adapter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "stathost/host_session.h"

namespace stathost {

ACAVarValidSpecs::ACAVarValidSpecs(bool userMissingAsMissing, bool systemMissingAsMissing,
                                   bool codeStrings)
    : userMissing_(userMissingAsMissing),
      systemMissing_(systemMissingAsMissing),
      codeStrings_(codeStrings) {}

int ACAVarValidSpecs::AddVariable(int variableIndex, int /*flags*/) {
  if (variableIndex < 0) return 1;
  variables_.push_back(variableIndex);
  return 0;
}

ACAInputAdapter::ACAInputAdapter(ACAVarValidSpecs* specs, ProcedureDataSource& source)
    : specs_(specs), source_(&source) {
  if (!specs_ || !source_->dataset()) throw std::invalid_argument("no active data set");
  const Dataset& data = *source_->dataset();
  stringCodes_.resize(specs_->variables().size());
  for (std::size_t slot = 0; slot < specs_->variables().size(); ++slot) {
    const int index = specs_->variables()[slot];
    if (index < 0 || static_cast<std::size_t>(index) >= data.columns.size()) {
      throw std::invalid_argument("variable index " + std::to_string(index) +
                                  " is not in the data");
    }
    const Column& column = data.columns[static_cast<std::size_t>(index)];
    if (column.isNumeric()) continue;
    if (!specs_->codeStrings()) {
      throw std::invalid_argument("string variable " + column.name + " cannot be read as numbers");
    }
    std::vector<std::string>& codes = stringCodes_[slot];
    for (std::size_t row = 0; row < column.strings.size(); ++row) {
      if (!column.isMissing(row)) codes.push_back(column.strings[row]);
    }
    std::sort(codes.begin(), codes.end());
    codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  }
}

double ACAInputAdapter::valueOf(int slot, std::size_t row) const {
  const auto s = static_cast<std::size_t>(slot);
  const Column& column =
      source_->dataset()->columns[static_cast<std::size_t>(specs_->variables()[s])];
  if (!column.isNumeric()) {
    if (column.isMissing(row)) return kMissingValue;
    const auto& codes = stringCodes_[s];
    auto it = std::lower_bound(codes.begin(), codes.end(), column.strings[row]);
    return static_cast<double>(it - codes.begin() + 1);
  }
  const double v = column.numbers[row];
  if (std::isnan(v)) return specs_->systemMissingAsMissing() ? kMissingValue : v;
  if (specs_->userMissingAsMissing() && column.missing.isMissing(v)) return kMissingValue;
  return v;
}

ACAProcDataSourceIter::ACAProcDataSourceIter(ACAInputAdapter& adapter, bool /*skipNothing*/)
    : adapter_(&adapter) {
  record_.values_.resize(adapter.specs().variables().size());
}

bool ACAProcDataSourceIter::HasMore() const {
  return position_ < HostSession::instance().currentCaseCount();
}

ACARecord* ACAProcDataSourceIter::Next() {
  if (!HasMore()) return nullptr;
  const std::size_t row = HostSession::instance().currentCaseRow(position_++);
  for (std::size_t slot = 0; slot < record_.values_.size(); ++slot) {
    record_.values_[slot] = adapter_->valueOf(static_cast<int>(slot), row);
  }
  record_.caseNumber_ = static_cast<long>(row) + 1;
  return &record_;
}

}  // namespace stathost

#include "stathost/data_source.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "stathost/host_session.h"

namespace stathost {

bool StaxVarName::operator<(const StaxVarName& other) const {
  return toUpperAscii(name_) < toUpperAscii(other.name_);
}

std::string STAX_ValueLabelMap::getLabel(double value) const {
  auto it = numeric_.find(value);
  return it == numeric_.end() ? std::string() : it->second;
}

std::string STAX_ValueLabelMap::getLabel(const std::string& value) const {
  auto it = strings_.find(value);
  return it == strings_.end() ? std::string() : it->second;
}

STAX_Variable::STAX_Variable(const Column& column, int index) : column_(&column), index_(index) {
  for (const auto& [value, label] : column.numericLabels) labels_.add(value, label);
  for (const auto& [value, label] : column.stringLabels) labels_.add(value, label);
}

bool STAX_Variable::isCategorical() const {
  return column_->level == MeasureLevel::kNominal || column_->level == MeasureLevel::kOrdinal;
}

STAX_Format STAX_Variable::getFormat() const {
  STAX_Format f;
  f.type = isNumeric() ? STAX_Format::FMT_FIXED : STAX_Format::FMT_STRING;
  f.width = static_cast<short>(std::min(column_->format.width, 32767));
  f.decimals = static_cast<short>(column_->format.decimals);
  return f;
}

bool STAX_Variable::parseValue(const std::string& text, double& value) const {
  if (isNumeric()) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(begin, &end);
    if (end == begin || *end != '\0' || !std::isfinite(v)) return false;
    value = v;
    return true;
  }
  // String variables: the code the case adapter delivers for this text.
  std::vector<std::string> distinct;
  for (std::size_t i = 0; i < column_->strings.size(); ++i) {
    if (!column_->isMissing(i)) distinct.push_back(column_->strings[i]);
  }
  std::sort(distinct.begin(), distinct.end());
  distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
  auto it = std::lower_bound(distinct.begin(), distinct.end(), text);
  if (it == distinct.end() || *it != text) return false;
  value = static_cast<double>(it - distinct.begin() + 1);
  return true;
}

ProcedureDataSource::ProcedureDataSource() : data_(HostSession::instance().activeDataset()) {
  if (!data_) return;
  variables_.reserve(data_->columns.size());
  for (std::size_t i = 0; i < data_->columns.size(); ++i) {
    variables_.emplace_back(data_->columns[i], static_cast<int>(i));
  }
}

int ProcedureDataSource::getVariableCount() const { return static_cast<int>(variables_.size()); }

const STAX_Variable* ProcedureDataSource::getVariable(int index) const {
  if (index < 0 || index >= getVariableCount()) return nullptr;
  return &variables_[static_cast<std::size_t>(index)];
}

int ProcedureDataSource::findVariable(const StaxVarName& name) const {
  return data_ ? data_->findColumn(name.str()) : -1;
}

long ProcedureDataSource::getCaseCount() const {
  return data_ ? static_cast<long>(HostSession::instance().currentCaseCount()) : 0;
}

const std::string& ProcedureDataSource::getFileName() const {
  static const std::string kNone;
  return data_ ? data_->sourcePath : kNone;
}

}  // namespace stathost

#include "stathost/parsed_command.h"

#include <cmath>
#include <limits>

#include "stathost/host_session.h"

namespace stathost {

int ParamObj::getIntegerValue() const {
  const double v = getNumberValue();
  if (!std::isfinite(v)) return 0;
  if (v >= static_cast<double>(std::numeric_limits<int>::max())) {
    return std::numeric_limits<int>::max();
  }
  if (v <= static_cast<double>(std::numeric_limits<int>::min())) {
    return std::numeric_limits<int>::min();
  }
  return static_cast<int>(std::lround(v));
}

double ParamObj::getNumberValue() const {
  if (!isNumeric()) return std::nan("");
  return values_.front().getNumber();
}

std::string ParamObj::getValueText() const {
  std::string out;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    if (i) out += ' ';
    out += values_[i].getText();
  }
  return out;
}

std::string ParamObj::getUpperValueText() const { return toUpperAscii(getValueText()); }

const ParamObj* ParamObj::getQualifier(const std::string& name) const {
  for (const auto& q : qualifiers_) {
    if (namesEqual(q.getName(), name)) return &q;
  }
  return nullptr;
}

const ParamObj* SubComObj::getParam(const std::string& name) const {
  for (const auto& p : params_) {
    if (namesEqual(p.getName(), name)) return &p;
  }
  return nullptr;
}

const SubComObj* CommandSpec::getSubCom(const std::string& name) const {
  for (const auto& s : subcommands_) {
    if (namesEqual(s.getName(), name)) return &s;
  }
  return nullptr;
}

VarSpecObj::VarSpecObj(const std::string& name, ProcedureDataSource& source,
                       const std::string& /*first*/, const std::string& /*last*/, int /*flags*/)
    : name_(name), source_(&source) {
  if (namesEqual(name, "SPLIT FILE")) indices_ = HostSession::instance().splitColumns();
}

bool VarSpecObj::add(const StaxVarName& variable) {
  const int index = source_->findVariable(variable);
  if (index < 0) return false;
  indices_.push_back(index);
  return true;
}

std::vector<std::string> VarSpecObj::getNames() const {
  std::vector<std::string> names;
  for (int i : indices_) {
    if (const STAX_Variable* v = source_->getVariable(i)) names.push_back(v->getName());
  }
  return names;
}

}  // namespace stathost

#include "stathost/command_descriptor.h"

#include <algorithm>

#include "stathost/dataset.h"
#include "stathost/format.h"

namespace stathost {

ParamDescriptor::ParamDescriptor(std::string name, ParamSpec kind, bool isDefault, bool takesValue,
                                 BracketOptions brackets)
    : name_(toUpperAscii(std::move(name))),
      kind_(kind),
      isDefault_(isDefault),
      takesValue_(takesValue),
      brackets_(brackets) {}

void ParamDescriptor::addStringValue(const std::string& value) {
  stringValues_.push_back(toUpperAscii(value));
}

void ParamDescriptor::addQualifDesc(const std::string& keyword) {
  keywordQualifiers_.push_back(toUpperAscii(keyword));
}

void ParamDescriptor::addQualifDesc(const ParamDescriptor& qualifier) {
  paramQualifiers_.push_back(qualifier);
}

void ParamDescriptor::setLowerBoundary(double bound, LowerBdryOptions option) {
  lower_ = bound;
  lowerOption_ = option;
}

void ParamDescriptor::setUpperBoundary(double bound, UpperBdryOptions option) {
  upper_ = bound;
  upperOption_ = option;
}

bool ParamDescriptor::allowsStringValue(const std::string& text) const {
  return std::any_of(stringValues_.begin(), stringValues_.end(),
                     [&](const std::string& v) { return namesEqual(v, text); });
}

const ParamDescriptor* ParamDescriptor::findParameterQualifier(const std::string& name) const {
  for (const auto& q : paramQualifiers_) {
    if (namesEqual(q.name(), name)) return &q;
  }
  return nullptr;
}

bool ParamDescriptor::hasKeywordQualifier(const std::string& name) const {
  return std::any_of(keywordQualifiers_.begin(), keywordQualifiers_.end(),
                     [&](const std::string& v) { return namesEqual(v, name); });
}

namespace {

std::string joinList(const std::vector<std::string>& items) {
  std::string out;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += (i + 1 == items.size()) ? " or " : ", ";
    out += items[i];
  }
  return out;
}

}  // namespace

std::string ParamDescriptor::describeValues() const {
  std::vector<std::string> items;
  switch (kind_) {
    case SPEC_NUMBER:
    case SPEC_INTEGER: {
      std::string what = kind_ == SPEC_INTEGER ? "an integer" : "a number";
      const std::string bounds = describeBounds();
      if (!bounds.empty()) what += " " + bounds;
      items.push_back(what);
      for (const auto& v : stringValues_) {
        if (v.find_first_not_of("0123456789.+-eE") != std::string::npos) items.push_back(v);
      }
      break;
    }
    case SPEC_VARIABLE:
      items.push_back("a variable name");
      break;
    case SPEC_VARIABLE_LIST:
      items.push_back("variable names");
      break;
    case SPEC_STRING:
      items.push_back("a quoted string");
      break;
    case SPEC_IDENTIFIER:
      items.push_back("a name");
      break;
    case SPEC_QUALIFIED_KEYWORD:
      items = keywordQualifiers_;
      for (const auto& q : paramQualifiers_) items.push_back(q.name());
      break;
    default:
      items = stringValues_;
      break;
  }
  return joinList(items);
}

std::string ParamDescriptor::describeBounds() const {
  const std::string lo = formatShortest(lower_), hi = formatShortest(upper_);
  if (lowerOption_ == LOWER_INCLUSIVE && upperOption_ == UPPER_INCLUSIVE) {
    return "from " + lo + " to " + hi;
  }
  std::string out;
  if (lowerOption_ == LOWER_INCLUSIVE) out = "of at least " + lo;
  if (lowerOption_ == LOWER_EXCLUSIVE) out = "greater than " + lo;
  if (upperOption_ != UPPER_NONE) {
    if (!out.empty()) out += " and ";
    out += (upperOption_ == UPPER_INCLUSIVE ? "of at most " : "less than ") + hi;
  }
  return out;
}

SubComDescriptor::SubComDescriptor(std::string name, SubComSpec kind, bool isRequired,
                                   bool isRepeatable)
    : name_(toUpperAscii(std::move(name))),
      kind_(kind),
      isRequired_(isRequired),
      isRepeatable_(isRepeatable) {}

void SubComDescriptor::addParamDesc(const ParamDescriptor& param) { params_.push_back(param); }

const ParamDescriptor* SubComDescriptor::findParam(const std::string& name) const {
  for (const auto& p : params_) {
    if (namesEqual(p.name(), name)) return &p;
  }
  return nullptr;
}

CommandDescriptor::CommandDescriptor(std::string name) : name_(toUpperAscii(std::move(name))) {}

void CommandDescriptor::addSubComDesc(const SubComDescriptor& subcommand) {
  subcommands_.push_back(subcommand);
}

const SubComDescriptor* CommandDescriptor::findSubCom(const std::string& name) const {
  for (const auto& s : subcommands_) {
    if (s.kind() != SUBCOM_UNNAMED && namesEqual(s.name(), name)) return &s;
  }
  return nullptr;
}

const SubComDescriptor* CommandDescriptor::unnamedSubCom() const {
  for (const auto& s : subcommands_) {
    if (s.kind() == SUBCOM_UNNAMED) return &s;
  }
  return nullptr;
}

}  // namespace stathost

// The leading variable list of the command:
//   OUTCOMEVAR=y MEDIATORVAR=m(MLEVEL=MEAN|MEDIAN|VALUE(v))
//   PREDICTORVAR=a(BLEVEL=n ELEVEL=n INTERACTION=TRUE|FALSE)
//   [OUT_REFERENCE=FIRST|LAST|v] [MED_REFERENCE=FIRST|LAST|v] [BY f1 f2 ...] [WITH c1 c2 ...]
#include <set>
#include <utility>

#include "stathost/suggestions.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

using stathost::STAX_Variable;
using stathost::TokenInfoObj;
using stathost::TokenType;

namespace {

const std::set<std::string> kRoleKeywords = {
    "OUTCOMEVAR", "MEDIATORVAR", "PREDICTORVAR", "OUT_REFERENCE", "MED_REFERENCE", "WITH", "BY"};

bool isRoleKeyword(const TokenInfoObj& t) {
  return t.is(TokenType::kIdentifier) && kRoleKeywords.count(t.getUpperText()) != 0;
}

// A qualifier inside the parentheses after a role's variable: NAME [= value tokens].
struct Qualifier {
  std::string name;
  std::vector<TokenInfoObj> value;  // empty when no value was given
};

// The qualifiers that a role's variable may carry. A value never runs into one of them,
// so that "BLEVEL=0 ELEVEL" reads as BLEVEL 0 and an ELEVEL without a value.
const std::set<std::string> kQualifierNames = {"BLEVEL", "ELEVEL", "INTERACTION", "MLEVEL"};

// Reads "( Q1=v Q2=V(x) ... )" starting at the "(" at position i; leaves i after ")".
std::vector<Qualifier> readQualifiers(const std::vector<TokenInfoObj>& t, std::size_t& i) {
  std::vector<Qualifier> out;
  ++i;  // (
  while (i < t.size() && !t[i].is(TokenType::kRightParen)) {
    Qualifier q;
    q.name = t[i].getUpperText();
    ++i;
    if (i < t.size() && t[i].is(TokenType::kEquals)) {
      ++i;
      int depth = 0;
      // The value runs to ")" or, at depth 0, to the next qualifier: a known qualifier
      // name, or any name followed by "=".
      while (i < t.size()) {
        if (t[i].is(TokenType::kLeftParen)) ++depth;
        if (t[i].is(TokenType::kRightParen)) {
          if (depth == 0) break;
          --depth;
        }
        if (depth == 0 && t[i].is(TokenType::kIdentifier) &&
            (kQualifierNames.count(t[i].getUpperText()) != 0 ||
             (i + 1 < t.size() && t[i + 1].is(TokenType::kEquals)))) {
          break;
        }
        q.value.push_back(t[i]);
        ++i;
      }
    }
    out.push_back(std::move(q));
  }
  if (i < t.size()) ++i;  // )
  return out;
}

// What the user wrote, with its blanks, for messages that quote it.
std::string joinText(const std::vector<TokenInfoObj>& tokens) {
  return stathost::joinAsWritten(tokens);
}

}  // namespace

std::string MediationSettings::variableKey(const std::string& name) const {
  const int index = source_.findVariable(name);
  return index >= 0 ? "#" + std::to_string(index) : stathost::toUpperAscii(name);
}

std::string MediationSettings::variableLabel(const std::string& name) const {
  const STAX_Variable* variable = source_.getVariable(source_.findVariable(name));
  return variable ? variable->getName() : name;
}

std::vector<std::pair<std::string, const char*>> MediationSettings::assignedRoles() const {
  std::vector<std::pair<std::string, const char*>> roles;
  if (!outcomeVar.empty()) roles.emplace_back(outcomeVar, "the outcome");
  if (!mediatorVar.empty()) roles.emplace_back(mediatorVar, "the mediator");
  if (!predictorVar.empty()) roles.emplace_back(predictorVar, "the exposure");
  for (const std::string& name : factors) roles.emplace_back(name, "a factor");
  for (const std::string& name : covariates) roles.emplace_back(name, "a covariate");
  return roles;
}

bool MediationSettings::refuseSecondRole(const std::string& name, const char* firstRole,
                                         const char* secondRole) {
  messages_.GenericError(
      "Variable ^1 is used both as ^2 and as ^3. Each variable may have one role.",
      variableLabel(name), firstRole, secondRole);
  return false;
}

// Each variable may have one role: a variable that is both outcome and mediator, or an
// exposure repeated as a covariate, would give a model that explains a variable by itself.
// Names are matched as the data set matches them (ignoring case).
bool MediationSettings::checkOneRolePerVariable() {
  for (const auto& [list, keyword] :
       {std::make_pair(&factors, "BY"), std::make_pair(&covariates, "WITH")}) {
    for (std::size_t k = 0; k < list->size(); ++k) {
      for (std::size_t j = 0; j < k; ++j) {
        if (variableKey((*list)[j]) == variableKey((*list)[k])) {
          messages_.GenericError(
              "Variable ^1 is listed more than once under ^2. List each variable once.",
              variableLabel((*list)[k]), keyword);
          return false;
        }
      }
    }
  }
  const auto roles = assignedRoles();
  for (std::size_t k = 0; k < roles.size(); ++k) {
    for (std::size_t j = 0; j < k; ++j) {
      if (variableKey(roles[j].first) == variableKey(roles[k].first)) {
        return refuseSecondRole(roles[k].first, roles[j].second, roles[k].second);
      }
    }
  }
  return true;
}

bool MediationSettings::readVariables() {
  const stathost::SubComObj* unnamed = parsed_.getSubCom("");
  static const std::vector<TokenInfoObj> kNone;
  const std::vector<TokenInfoObj>& t = unnamed ? unnamed->getTokens() : kNone;
  std::vector<Qualifier> mediatorQualifiers, predictorQualifiers;
  std::vector<TokenInfoObj> outcomeRef, mediatorRef;

  std::size_t i = 0;
  while (i < t.size()) {
    const TokenInfoObj& keyword = t[i];
    const std::string key = keyword.getUpperText();
    if (!isRoleKeyword(keyword)) {
      messages_.GenericError("Unrecognized keyword ^1 in the variable list.", keyword.written());
      return false;
    }
    ++i;
    if (key == "WITH" || key == "BY") {
      std::vector<std::string>& list = key == "WITH" ? covariates : factors;
      while (i < t.size() && t[i].is(TokenType::kIdentifier) && !isRoleKeyword(t[i])) {
        list.push_back(t[i++].getText());
      }
      if (list.empty()) {
        if (key == "WITH") {
          messages_.NoCovariateAfterKeyword("WITH");
        } else {
          messages_.NoFactorAfterKeyword("BY");
        }
        return false;
      }
      continue;
    }
    if (i >= t.size() || !t[i].is(TokenType::kEquals)) {
      messages_.GenericError("The keyword ^1 must be followed by '=' and a value.", key);
      return false;
    }
    ++i;
    if (key == "OUT_REFERENCE" || key == "MED_REFERENCE") {
      std::vector<TokenInfoObj>& ref = key == "OUT_REFERENCE" ? outcomeRef : mediatorRef;
      if (i < t.size() && !isRoleKeyword(t[i])) ref.push_back(t[i++]);
      if (ref.empty()) {
        messages_.GenericError("The keyword ^1 must be followed by '=' and a value.", key);
        return false;
      }
      continue;
    }
    if (i >= t.size() || !t[i].is(TokenType::kIdentifier) || isRoleKeyword(t[i])) {
      if (key == "OUTCOMEVAR") messages_.GenericError("Outcome Variable is required.");
      if (key == "MEDIATORVAR") messages_.GenericError("Mediator Variable is required.");
      if (key == "PREDICTORVAR") messages_.GenericError("Primary Predictor Variable is required.");
      return false;
    }
    const std::string name = t[i++].getText();
    std::vector<Qualifier> qualifiers;
    if (i < t.size() && t[i].is(TokenType::kLeftParen)) qualifiers = readQualifiers(t, i);
    if (key == "OUTCOMEVAR") {
      outcomeVar = name;
      if (!qualifiers.empty()) {
        messages_.GenericError(
            "^1 is not a valid qualifier of the variable ^2 specified for parameter ^3.",
            qualifiers.front().name, name, key);
        return false;
      }
    } else if (key == "MEDIATORVAR") {
      mediatorVar = name;
      mediatorQualifiers = qualifiers;
    } else {
      predictorVar = name;
      predictorQualifiers = qualifiers;
    }
  }

  if (outcomeVar.empty()) {
    messages_.GenericError("Outcome Variable is required.");
    return false;
  }
  if (mediatorVar.empty()) {
    messages_.GenericError("Mediator Variable is required.");
    return false;
  }
  if (predictorVar.empty()) {
    messages_.GenericError("Primary Predictor Variable is required.");
    return false;
  }

  if (!checkOneRolePerVariable()) return false;

  // Every variable must exist; types and levels by role.
  auto lookup = [&](const std::string& name, const std::string& role) -> const STAX_Variable* {
    const int index = source_.findVariable(name);
    if (index < 0) {
      // The closest names in the data, when some are close ("Did you mean: bili?").
      std::vector<std::string> names;
      for (int k = 0; k < source_.getVariableCount(); ++k) {
        if (const STAX_Variable* v = source_.getVariable(k)) names.push_back(v->getName());
      }
      messages_.GenericError(
          "Variable ^1 specified for ^2 does not exist in the active data set.^3", name, role,
          stathost::didYouMean(name, names));
      return nullptr;
    }
    return source_.getVariable(index);
  };
  const STAX_Variable* outcome = lookup(outcomeVar, "OUTCOMEVAR");
  if (!outcome) return false;
  const auto outcomeLevel = outcome->getMeasurementLevel();
  if (outcomeLevel != stathost::MeasureLevel::kScale &&
      outcomeLevel != stathost::MeasureLevel::kNominal) {
    messages_.GenericError(
        "Outcome variable ^1 must be scale (continuous) or nominal (categorical).",
        outcome->getName());
    return false;
  }
  const STAX_Variable* mediator = lookup(mediatorVar, "MEDIATORVAR");
  if (!mediator) return false;
  if (!mediator->isNumeric()) {
    messages_.GenericError("Mediator variable ^1 must be numeric.", mediator->getName());
    return false;
  }
  const STAX_Variable* predictor = lookup(predictorVar, "PREDICTORVAR");
  if (!predictor) return false;
  if (!predictor->isNumeric()) {
    messages_.GenericError("Predictor variable ^1 must be numeric.", predictor->getName());
    return false;
  }
  for (const std::string& name : covariates) {
    const STAX_Variable* v = lookup(name, "WITH");
    if (!v) return false;
    if (!v->isNumeric()) {
      messages_.GenericError("Covariate ^1 must be numeric.", v->getName());
      return false;
    }
  }
  for (const std::string& name : factors) {
    const STAX_Variable* v = lookup(name, "BY");
    if (!v) return false;
    if (!v->isCategorical()) {
      messages_.GenericError("BY variable ^1 must be categorical", v->getName());
      return false;
    }
  }

  // Predictor qualifiers.
  for (const Qualifier& q : predictorQualifiers) {
    if (q.name == "BLEVEL" || q.name == "ELEVEL") {
      const bool baseline = q.name == "BLEVEL";
      if (q.value.empty()) {
        messages_.GenericError(baseline ? "Baseline level (BLEVEL) is required."
                                        : "Exposure level (ELEVEL) is required.");
        return false;
      }
      double v = 0.0;
      if (q.value.size() != 1 || !predictor->parseValue(q.value.front().getText(), v)) {
        messages_.GenericError(
            "Variable ^1 specified for ^3 has value ^2 of invalid type or format.",
            predictor->getName(), joinText(q.value), "PREDICTORVAR");
        return false;
      }
      (baseline ? baselineLevel : exposureLevel) = v;
      (baseline ? baselineLevelGiven : exposureLevelGiven) = true;
    } else if (q.name == "INTERACTION") {
      if (q.value.empty()) {
        messages_.GenericError("Interaction (INTERACTION) requires a value: TRUE or FALSE.");
        return false;
      }
      const std::string value = stathost::toUpperAscii(joinText(q.value));
      if (value != "TRUE" && value != "FALSE") {
        messages_.GenericError(
            "^4 is not a valid value for qualifier ^3 of the variable ^1 specified for parameter "
            "^2.",
            predictor->getName(), "PREDICTORVAR", "INTERACTION", joinText(q.value));
        return false;
      }
      interaction = value == "TRUE";
    } else {
      messages_.GenericError(
          "^1 is not a valid qualifier of the variable ^2 specified for parameter ^3.", q.name,
          predictor->getName(), "PREDICTORVAR");
      return false;
    }
  }

  // Mediator qualifier MLEVEL.
  for (const Qualifier& q : mediatorQualifiers) {
    if (q.name != "MLEVEL") {
      messages_.GenericError(
          "^1 is not a valid qualifier of the variable ^2 specified for parameter ^3.", q.name,
          mediator->getName(), "MEDIATORVAR");
      return false;
    }
    if (q.value.empty()) {
      messages_.GenericError("Mediator level (MLEVEL) is required.");
      return false;
    }
    const std::string kind = q.value.front().getUpperText();
    if (q.value.size() == 1 && kind == "MEAN") {
      mediatorLevelKind = MediatorLevelKind::kMean;
    } else if (q.value.size() == 1 && kind == "MEDIAN") {
      mediatorLevelKind = MediatorLevelKind::kMedian;
    } else if (kind == "VALUE" && q.value.size() == 4 && q.value[1].is(TokenType::kLeftParen) &&
               q.value[3].is(TokenType::kRightParen)) {
      double v = 0.0;
      if (!mediator->parseValue(q.value[2].getText(), v)) {
        messages_.GenericError(
            "Variable ^1 specified for ^3 has value ^2 of invalid type or format.",
            mediator->getName(), q.value[2].written(), "MEDIATORVAR");
        return false;
      }
      mediatorLevelKind = MediatorLevelKind::kCustom;
      mediatorLevelValue = v;
    } else {
      messages_.GenericError(
          "^4 is not a valid value for qualifier ^3 of the variable ^1 specified for parameter ^2.",
          mediator->getName(), "MEDIATORVAR", "MLEVEL", joinText(q.value));
      return false;
    }
  }

  // Reference keywords, validated against their variable.
  auto readReference = [&](const std::vector<TokenInfoObj>& tokens, const STAX_Variable* variable,
                           const char* roleLabel, ReferenceSetting& out) {
    if (tokens.empty()) return true;
    out.given = true;
    const std::string text = tokens.front().getText();
    const std::string upper = tokens.front().getUpperText();
    if (tokens.front().is(TokenType::kIdentifier) && upper == "FIRST") {
      out.kind = ReferenceKind::kFirst;
    } else if (tokens.front().is(TokenType::kIdentifier) && upper == "LAST") {
      out.kind = ReferenceKind::kLast;
    } else {
      double v = 0.0;
      if (!variable->parseValue(text, v)) {
        messages_.GenericError("^3 variable ^1 has value ^2 of invalid type or format.",
                               variable->getName(), tokens.front().written(), roleLabel);
        return false;
      }
      out.kind = ReferenceKind::kCustom;
      out.value = v;
    }
    return true;
  };
  return readReference(outcomeRef, outcome, "Outcome", outcomeReference) &&
         readReference(mediatorRef, mediator, "Mediator", mediatorReference);
}

}  // namespace medanlys

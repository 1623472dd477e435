// A parsed command: what the parser found for each declared subcommand and parameter.
#pragma once

#include <string>
#include <vector>

#include "stathost/data_source.h"
#include "stathost/tokens.h"

namespace stathost {

class ParamObj {
 public:
  ParamObj() = default;
  ParamObj(std::string name, const TokenInfoObj& keyword)
      : name_(std::move(name)), keyword_(keyword) {}

  const std::string& getName() const { return name_; }
  bool hasValue() const { return !values_.empty(); }
  // The first value token; the parser has checked its kind against the declaration.
  bool isNumeric() const { return hasValue() && values_.front().is(TokenType::kNumber); }
  int getIntegerValue() const;    // rounded to the nearest integer; 0 without a value
  double getNumberValue() const;  // NaN when the value is not a number
  // Value as typed; keyword values are upper-cased by the parser.
  std::string getValueText() const;
  std::string getUpperValueText() const;
  const std::vector<TokenInfoObj>& getValueTokens() const { return values_; }
  // Qualifiers in the order given: keyword qualifiers have no value.
  const std::vector<ParamObj>& getQualifiers() const { return qualifiers_; }
  const ParamObj* getQualifier(const std::string& name) const;
  bool hasQualifier(const std::string& name) const { return getQualifier(name) != nullptr; }
  int getLine() const { return keyword_.getLine(); }
  int getColumn() const { return keyword_.getColumn(); }

  void addValue(const TokenInfoObj& token) { values_.push_back(token); }
  void addQualifier(const ParamObj& qualifier) { qualifiers_.push_back(qualifier); }

 private:
  std::string name_;
  TokenInfoObj keyword_;
  std::vector<TokenInfoObj> values_;
  std::vector<ParamObj> qualifiers_;
};

class SubComObj {
 public:
  SubComObj() = default;
  SubComObj(std::string name, int line, int column)
      : name_(std::move(name)), line_(line), column_(column) {}

  const std::string& getName() const { return name_; }
  const std::vector<ParamObj>& getParams() const { return params_; }
  const ParamObj* getParam(const std::string& name) const;
  bool hasParam(const std::string& name) const { return getParam(name) != nullptr; }
  // The raw tokens of an unnamed subcommand.
  const std::vector<TokenInfoObj>& getTokens() const { return tokens_; }
  int getLine() const { return line_; }
  int getColumn() const { return column_; }

  void addParam(const ParamObj& param) { params_.push_back(param); }
  void addToken(const TokenInfoObj& token) { tokens_.push_back(token); }

 private:
  std::string name_;
  int line_ = 0;
  int column_ = 0;
  std::vector<ParamObj> params_;
  std::vector<TokenInfoObj> tokens_;
};

class CommandSpec {
 public:
  CommandSpec() = default;
  const std::string& getCommandName() const { return name_; }
  // The unnamed subcommand has the name "".
  const SubComObj* getSubCom(const std::string& name) const;
  bool hasSubCom(const std::string& name) const { return getSubCom(name) != nullptr; }
  const std::vector<SubComObj>& getSubComs() const { return subcommands_; }

  void setCommandName(const std::string& name) { name_ = name; }
  void addSubCom(const SubComObj& subcommand) { subcommands_.push_back(subcommand); }
  void clear() { subcommands_.clear(); }

 private:
  std::string name_;
  std::vector<SubComObj> subcommands_;
};

// A list of variables of the data source. Named "SPLIT FILE", it holds the split
// variables of the active data set; otherwise it starts empty and grows by add.
class VarSpecObj {
 public:
  VarSpecObj(const std::string& name, ProcedureDataSource& source, const std::string& first,
             const std::string& last, int flags);
  const std::string& getName() const { return name_; }
  // False when the data source has no variable of that name.
  bool add(const StaxVarName& variable);
  int getVariableCount() const { return static_cast<int>(indices_.size()); }
  const std::vector<int>& getIndices() const { return indices_; }
  std::vector<std::string> getNames() const;

 private:
  std::string name_;
  ProcedureDataSource* source_;
  std::vector<int> indices_;
};

}  // namespace stathost

// The grammar a procedure declares to the command parser.
//
// A command is its name, an optional unnamed leading subcommand and named subcommands,
// each introduced by "/". The kind of a parameter decides its syntax:
//
//   SPEC_KEYWORD (0)          KEY                      a bare keyword, on when given
//   SPEC_IDENTIFIER (1)       KEY = name               any name
//   SPEC_STRING (2)           KEY = 'text'
//   SPEC_KEYWORD_VALUE (3)    KEY = ONE                one of the declared string values
//   SPEC_NUMBER (7)           KEY = 1.5                within the bounds, or a declared
//                                                      string value
//   SPEC_INTEGER (8)          KEY = 12
//   SPEC_VARIABLE (15)        KEY = var                a variable of the active data set
//   SPEC_VARIABLE_LIST (16)   KEY = v1 v2 ...
//   SPEC_QUALIFIED_KEYWORD (27)  KEY = Q | KEY = P(value)
//                                                      one of the keyword qualifiers, or a
//                                                      parameter qualifier with an optional
//                                                      parenthesised value
//   SPEC_PARAMETER_QUALIFIED (28) KEY [ ( Q1=v Q2=v ... ) ]
//                                                      a keyword with optional qualifiers
//
// Subcommand kinds: SUBCOM_UNNAMED (0) keeps its tokens raw for the procedure;
// SUBCOM_ASSIGNMENTS (1) and SUBCOM_KEYWORDS (2) hold declared parameters, in any order,
// each at most once.
//
// Constructor flags: a subcommand's (isRequired, isRepeatable); a parameter's
// (isDefault, takesValue). A bare keyword declared isDefault is switched on when its
// subcommand is given without any keyword. takesValue false refuses "KEY = value".
// Parameters whose presence a procedure wants to insist on are checked by the procedure
// itself, so that it can say so in its own words.
#pragma once

#include <string>
#include <vector>

namespace stathost {

enum ParamSpec {
  SPEC_KEYWORD = 0,
  SPEC_IDENTIFIER = 1,
  SPEC_STRING = 2,
  SPEC_KEYWORD_VALUE = 3,
  SPEC_NUMBER = 7,
  SPEC_INTEGER = 8,
  SPEC_VARIABLE = 15,
  SPEC_VARIABLE_LIST = 16,
  SPEC_QUALIFIED_KEYWORD = 27,
  SPEC_PARAMETER_QUALIFIED = 28,
};

enum SubComSpec { SUBCOM_UNNAMED = 0, SUBCOM_ASSIGNMENTS = 1, SUBCOM_KEYWORDS = 2 };

enum LowerBdryOptions { LOWER_NONE = 0, LOWER_INCLUSIVE = 1, LOWER_EXCLUSIVE = 2 };
enum UpperBdryOptions { UPPER_NONE = 0, UPPER_INCLUSIVE = 1, UPPER_EXCLUSIVE = 2 };
// Whether the value may be given in brackets; 0 = as declared by the kind.
enum BracketOptions { BRACKETS_AS_KIND = 0 };
// Whether qualifiers are optional; 0 = optional.
enum QualifOptions { QUALIFIERS_OPTIONAL = 0, QUALIFIERS_REQUIRED = 1 };

class ParamDescriptor {
 public:
  ParamDescriptor(std::string name, ParamSpec kind, bool isDefault, bool takesValue,
                  BracketOptions brackets);

  void addStringValue(const std::string& value);
  void addQualifDesc(const std::string& keyword);
  void addQualifDesc(const ParamDescriptor& qualifier);
  void setQualifOption(QualifOptions option) { qualifOption_ = option; }
  void setLowerBoundary(double bound, LowerBdryOptions option);
  void setUpperBoundary(double bound, UpperBdryOptions option);

  const std::string& name() const { return name_; }
  ParamSpec kind() const { return kind_; }
  bool isDefault() const { return isDefault_; }
  bool takesValue() const { return takesValue_; }
  QualifOptions qualifOption() const { return qualifOption_; }
  const std::vector<std::string>& stringValues() const { return stringValues_; }
  const std::vector<std::string>& keywordQualifiers() const { return keywordQualifiers_; }
  const std::vector<ParamDescriptor>& parameterQualifiers() const { return paramQualifiers_; }
  bool hasLower() const { return lowerOption_ != LOWER_NONE; }
  bool hasUpper() const { return upperOption_ != UPPER_NONE; }
  double lower() const { return lower_; }
  double upper() const { return upper_; }
  LowerBdryOptions lowerOption() const { return lowerOption_; }
  UpperBdryOptions upperOption() const { return upperOption_; }
  bool allowsStringValue(const std::string& text) const;
  const ParamDescriptor* findParameterQualifier(const std::string& name) const;
  bool hasKeywordQualifier(const std::string& name) const;
  // Human-readable list of what may follow "KEY =", for messages.
  std::string describeValues() const;
  // The bounds as a phrase: "from 0 to 100", "greater than 0".
  std::string describeBounds() const;

 private:
  std::string name_;
  ParamSpec kind_;
  bool isDefault_;
  bool takesValue_;
  BracketOptions brackets_;
  QualifOptions qualifOption_ = QUALIFIERS_OPTIONAL;
  std::vector<std::string> stringValues_;
  std::vector<std::string> keywordQualifiers_;
  std::vector<ParamDescriptor> paramQualifiers_;
  double lower_ = 0.0, upper_ = 0.0;
  LowerBdryOptions lowerOption_ = LOWER_NONE;
  UpperBdryOptions upperOption_ = UPPER_NONE;
};

class SubComDescriptor {
 public:
  SubComDescriptor(std::string name, SubComSpec kind, bool isRequired, bool isRepeatable);
  void addParamDesc(const ParamDescriptor& param);

  const std::string& name() const { return name_; }
  SubComSpec kind() const { return kind_; }
  bool isRequired() const { return isRequired_; }
  bool isRepeatable() const { return isRepeatable_; }
  const std::vector<ParamDescriptor>& params() const { return params_; }
  const ParamDescriptor* findParam(const std::string& name) const;

 private:
  std::string name_;
  SubComSpec kind_;
  bool isRequired_;
  bool isRepeatable_;
  std::vector<ParamDescriptor> params_;
};

class CommandDescriptor {
 public:
  explicit CommandDescriptor(std::string name);
  void addSubComDesc(const SubComDescriptor& subcommand);

  const std::string& name() const { return name_; }
  const std::vector<SubComDescriptor>& subcommands() const { return subcommands_; }
  const SubComDescriptor* findSubCom(const std::string& name) const;
  const SubComDescriptor* unnamedSubCom() const;

 private:
  std::string name_;
  std::vector<SubComDescriptor> subcommands_;
};

}  // namespace stathost

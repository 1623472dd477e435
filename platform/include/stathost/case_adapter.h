// Case-by-case access to the analysis variables of the active data set.
//
// Values reach the procedure as doubles: a system- or user-missing value as
// kMissingValue (the most negative finite double); a string variable's value as its code,
// the 1-based rank of the value among the variable's distinct non-missing values in the
// whole data set (so codes agree across split groups).
#pragma once

#include <cfloat>
#include <memory>
#include <vector>

#include "stathost/data_source.h"

namespace stathost {

constexpr double kMissingValue = -DBL_MAX;

class ACAVarValidSpecs {
 public:
  // userMissingAsMissing: deliver user-missing values as missing;
  // systemMissingAsMissing: deliver system-missing values as missing (else NaN);
  // codeStrings: deliver string values as codes (else string variables are refused).
  ACAVarValidSpecs(bool userMissingAsMissing, bool systemMissingAsMissing, bool codeStrings);
  // Registers a variable by its data-source index. Returns 0, or 1 when the variable
  // cannot be registered (a negative index). The index is checked against the data
  // source when the adapter is made.
  int AddVariable(int variableIndex, int flags = 0);
  const std::vector<int>& variables() const { return variables_; }
  bool userMissingAsMissing() const { return userMissing_; }
  bool systemMissingAsMissing() const { return systemMissing_; }
  bool codeStrings() const { return codeStrings_; }

 private:
  bool userMissing_, systemMissing_, codeStrings_;
  std::vector<int> variables_;
};

class ACARecord {
 public:
  // Values of the registered variables, in registration order.
  const double* GetAll() const { return values_.empty() ? nullptr : values_.data(); }
  double Get(int i) const { return values_.at(static_cast<std::size_t>(i)); }
  int Size() const { return static_cast<int>(values_.size()); }
  // 1-based case number in the data set.
  long CaseNumber() const { return caseNumber_; }

 private:
  friend class ACAProcDataSourceIter;
  std::vector<double> values_;
  long caseNumber_ = 0;
};

class ACAInputAdapter {
 public:
  // Throws std::invalid_argument when a registered index is not a variable of the source
  // or a string variable is registered without string coding.
  ACAInputAdapter(ACAVarValidSpecs* specs, ProcedureDataSource& source);
  const ACAVarValidSpecs& specs() const { return *specs_; }
  const ProcedureDataSource& source() const { return *source_; }
  long CaseCount() const { return source_->getCaseCount(); }
  double valueOf(int slot, std::size_t row) const;

 private:
  const ACAVarValidSpecs* specs_;
  ProcedureDataSource* source_;
  // Per registered string variable: sorted distinct values, for the codes.
  std::vector<std::vector<std::string>> stringCodes_;
};

class ACAProcDataSourceIter {
 public:
  // The iterator walks the cases of the current split group in file order.
  ACAProcDataSourceIter(ACAInputAdapter& adapter, bool skipNothing);
  bool HasMore() const;
  // The next case; null after the last one.
  ACARecord* Next();

 private:
  ACAInputAdapter* adapter_;
  std::size_t position_ = 0;
  ACARecord record_;
};

}  // namespace stathost

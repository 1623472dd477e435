// The active data set as a procedure sees it: variables with their dictionary entries.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "stathost/dataset.h"
#include "stathost/format.h"

namespace stathost {

// A variable name; comparisons ignore ASCII case, as variable names do.
class StaxVarName {
 public:
  StaxVarName() = default;
  StaxVarName(std::string name) : name_(std::move(name)) {}  // NOLINT: implicit by design
  StaxVarName(const char* name) : name_(name) {}             // NOLINT
  const std::string& str() const { return name_; }
  bool operator==(const StaxVarName& other) const { return namesEqual(name_, other.name_); }
  bool operator<(const StaxVarName& other) const;

 private:
  std::string name_;
};

class STAX_ValueLabelMap {
 public:
  void add(double value, const std::string& label) { numeric_[value] = label; }
  void add(const std::string& value, const std::string& label) { strings_[value] = label; }
  bool hasLabel(double value) const { return numeric_.count(value) != 0; }
  std::string getLabel(double value) const;
  std::string getLabel(const std::string& value) const;
  std::size_t size() const { return numeric_.size() + strings_.size(); }
  const std::map<double, std::string>& numericLabels() const { return numeric_; }
  const std::map<std::string, std::string>& stringLabels() const { return strings_; }

 private:
  std::map<double, std::string> numeric_;
  std::map<std::string, std::string> strings_;
};

// Dictionary entry of one variable of the active data set.
class STAX_Variable {
 public:
  STAX_Variable(const Column& column, int index);

  const std::string& getName() const { return column_->name; }
  const std::string& getLabel() const { return column_->label; }
  int getIndex() const { return index_; }
  bool isNumeric() const { return column_->isNumeric(); }
  bool isString() const { return !column_->isNumeric(); }
  MeasureLevel getMeasurementLevel() const { return column_->level; }
  bool isCategorical() const;  // nominal or ordinal
  STAX_Format getFormat() const;
  std::string getFormatText() const { return column_->format.toString(); }
  const STAX_ValueLabelMap& getValueLabels() const { return labels_; }
  bool hasMissingValues() const { return !column_->missing.empty(); }
  bool isMissingValue(double value) const { return column_->missing.isMissing(value); }
  std::string describeMissingValues() const { return column_->missing.describe(); }
  // Reads a value written in a command against this variable's type: a number for a
  // numeric variable, any text for a string variable (its code when it occurs in the
  // data). Returns false when the text does not fit.
  bool parseValue(const std::string& text, double& value) const;

 private:
  const Column* column_;
  int index_;
  STAX_ValueLabelMap labels_;
};

class STAX_DataSource {
 public:
  virtual ~STAX_DataSource() = default;
  virtual int getVariableCount() const = 0;
  // Null when the index is out of range.
  virtual const STAX_Variable* getVariable(int index) const = 0;
  // -1 when no variable has that name.
  virtual int findVariable(const StaxVarName& name) const = 0;
  // Cases of the current split group (all cases when no split is active).
  virtual long getCaseCount() const = 0;
};

// The procedure's view of the host's active data set.
class ProcedureDataSource : public STAX_DataSource {
 public:
  ProcedureDataSource();
  int getVariableCount() const override;
  const STAX_Variable* getVariable(int index) const override;
  int findVariable(const StaxVarName& name) const override;
  long getCaseCount() const override;
  bool hasData() const { return data_ != nullptr; }
  const Dataset* dataset() const { return data_; }
  const std::string& getFileName() const;

 private:
  const Dataset* data_;
  std::vector<STAX_Variable> variables_;
};

}  // namespace stathost

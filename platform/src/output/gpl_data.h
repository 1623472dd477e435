// The data columns of a chart item and the operands of its elements tied to them.
#ifndef STATHOST_OUTPUT_GPL_DATA_H_
#define STATHOST_OUTPUT_GPL_DATA_H_

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/gpl_chart.h"

namespace stathost {
namespace gpl {
namespace detail {

struct Column {
  std::string name;
  bool text = false;
  std::vector<double> numbers;     // double columns; NaN for null
  std::vector<std::string> texts;  // string columns
  std::vector<bool> present;       // string columns; false for null
  std::size_t size() const { return text ? texts.size() : numbers.size(); }
};

class DataTable {
 public:
  // `data` is the item's array of {"name", "kind", "values"}; malformed entries are skipped.
  explicit DataTable(const nlohmann::json& data);
  const Column* find(const std::string& name) const;

 private:
  std::vector<Column> columns_;
};

// An operand bound to its data: a column or a constant number.
struct Binding {
  const Column* column = nullptr;
  std::string variable;
  bool category = false;  // values are categories (unit.category() or a string column)
  double constant = 0;

  bool isConstant() const { return column == nullptr; }
  std::size_t rows() const { return column == nullptr ? 0 : column->size(); }
  bool missing(std::size_t row) const;
  double number(std::size_t row) const;     // NaN when missing or not a number
  std::string text(std::size_t row) const;  // display text; "" when missing
};

// An element with its operands and variable aesthetics bound. `rows` is the longest bound
// column (1 when every operand is a constant).
struct BoundElement {
  const Element* parsed = nullptr;
  std::vector<Binding> dims;
  Binding low;
  Binding high;
  std::vector<Binding> to;
  Binding color;  // the colour variable (color, else color.interior), when there is one
  std::string colorAesthetic;
  bool hasColorVariable = false;
  Binding label;
  bool hasLabelVariable = false;
  Binding split;
  bool hasSplit = false;
  std::size_t rows = 0;
};

// Throws ChartError when a variable has no DATA statement or its column is missing.
BoundElement bindElement(const ChartModel& model, const DataTable& table, const Element& element);

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_OUTPUT_GPL_DATA_H_

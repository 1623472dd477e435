#include "gpl_data.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "stathost/format.h"

namespace stathost {
namespace gpl {
namespace detail {

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

Column readColumn(const nlohmann::json& entry) {
  Column column;
  column.name = entry.value("name", std::string());
  const std::string kind = entry.value("kind", std::string("double"));
  column.text = kind == "string";
  const auto values = entry.find("values");
  if (values == entry.end() || !values->is_array()) return column;
  for (const nlohmann::json& value : *values) {
    if (column.text) {
      column.present.push_back(!value.is_null());
      if (value.is_string()) {
        column.texts.push_back(value.get<std::string>());
      } else if (value.is_number()) {
        column.texts.push_back(formatShortest(value.get<double>()));
      } else {
        column.texts.push_back("");
      }
    } else {
      column.numbers.push_back(value.is_number() ? value.get<double>() : kMissing);
    }
  }
  return column;
}

Binding bindName(const ChartModel& model, const DataTable& table, const std::string& name) {
  const Variable* variable = model.findVariable(name);
  if (variable == nullptr) throw ChartError("no DATA statement declares \"" + name + "\"");
  Binding binding;
  binding.column = table.find(variable->column);
  if (binding.column == nullptr) {
    throw ChartError("the data column \"" + variable->column + "\" is missing");
  }
  binding.variable = name;
  binding.category = variable->category || binding.column->text;
  return binding;
}

Binding bindOperand(const ChartModel& model, const DataTable& table, const Operand& operand) {
  if (operand.isVariable) return bindName(model, table, operand.variable);
  Binding binding;
  binding.constant = operand.number;
  return binding;
}

}  // namespace

DataTable::DataTable(const nlohmann::json& data) {
  if (!data.is_array()) return;
  for (const nlohmann::json& entry : data) {
    if (entry.is_object()) columns_.push_back(readColumn(entry));
  }
}

const Column* DataTable::find(const std::string& name) const {
  for (const Column& column : columns_) {
    if (column.name == name) return &column;
  }
  return nullptr;
}

bool Binding::missing(std::size_t row) const {
  if (column == nullptr) return !std::isfinite(constant);
  if (row >= column->size()) return true;
  if (column->text) return !column->present[row];
  return !std::isfinite(column->numbers[row]);
}

double Binding::number(std::size_t row) const {
  if (column == nullptr) return constant;
  if (missing(row)) return kMissing;
  if (!column->text) return column->numbers[row];
  const std::string& text = column->texts[row];
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !std::isfinite(value)) return kMissing;
  return value;
}

std::string Binding::text(std::size_t row) const {
  if (missing(row)) return "";
  if (column == nullptr) return formatShortest(constant);
  if (column->text) return column->texts[row];
  return formatShortest(column->numbers[row]);
}

BoundElement bindElement(const ChartModel& model, const DataTable& table, const Element& element) {
  BoundElement bound;
  bound.parsed = &element;
  const Position& position = element.position;
  for (std::size_t d = 0; d < position.dims.size(); ++d) {
    if (static_cast<int>(d) == position.rangeDim) {
      bound.dims.emplace_back();
      bound.dims.back().constant = kMissing;
    } else {
      bound.dims.push_back(bindOperand(model, table, position.dims[d]));
    }
  }
  if (position.form == PositionForm::kSpreadRange) {
    bound.low = bindOperand(model, table, position.low);
    bound.high = bindOperand(model, table, position.high);
  }
  for (const Operand& operand : position.to) bound.to.push_back(bindOperand(model, table, operand));
  const Aesthetic* color = element.color.isVariable           ? &element.color
                           : element.colorInterior.isVariable ? &element.colorInterior
                           : element.colorExterior.isVariable ? &element.colorExterior
                                                              : nullptr;
  if (color != nullptr) {
    bound.color = bindName(model, table, color->value);
    bound.hasColorVariable = true;
    bound.colorAesthetic = color == &element.color           ? "color"
                           : color == &element.colorInterior ? "color.interior"
                                                             : "color.exterior";
  }
  if (element.label.isVariable) {
    bound.label = bindName(model, table, element.label.value);
    bound.hasLabelVariable = true;
  }
  if (element.split.isVariable) {
    bound.split = bindName(model, table, element.split.value);
    bound.hasSplit = true;
  }
  std::size_t rows = 0;
  const auto count = [&rows](const Binding& binding) { rows = std::max(rows, binding.rows()); };
  for (const Binding& binding : bound.dims) count(binding);
  for (const Binding& binding : bound.to) count(binding);
  count(bound.low);
  count(bound.high);
  bound.rows = rows == 0 ? 1 : rows;
  return bound;
}

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

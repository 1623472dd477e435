#include "variables_command.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "stathost/format.h"

namespace medapp {
namespace {

using nlohmann::json;

json leaf(const std::string& label) {
  return {{"label", label}, {"show_label", true}, {"children", json::array()}};
}

json countCell(std::size_t n) { return {{"value", n}, {"text", std::to_string(n)}}; }

json numberCell(const json& value) {
  if (!value.is_number()) return {{"value", nullptr}, {"text", "."}};
  return {{"value", value}, {"text", stathost::formatShortest(value.get<double>())}};
}

json textCell(const std::string& text) { return {{"text", text}}; }

}  // namespace

json describeVariables(const stathost::Dataset& data) {
  json variables = json::array();
  const std::size_t n = data.caseCount();
  for (const stathost::Column& c : data.columns) {
    std::size_t valid = 0;
    std::set<double> numbers;
    std::set<std::string> strings;
    double lo = INFINITY, hi = -INFINITY;
    for (std::size_t row = 0; row < n; ++row) {
      if (c.isMissing(row)) continue;
      ++valid;
      if (c.isNumeric()) {
        const double v = c.numbers[row];
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        numbers.insert(v);
      } else {
        strings.insert(c.strings[row]);
      }
    }
    json labels = json::array();
    for (const auto& [value, label] : c.numericLabels) {
      labels.push_back({{"value", value}, {"label", label}});
    }
    for (const auto& [value, label] : c.stringLabels) {
      labels.push_back({{"value", value}, {"label", label}});
    }
    json v = {{"name", c.name},
              {"label", c.label},
              {"type", c.isNumeric() ? "numeric" : "string"},
              {"level", stathost::measureLevelName(c.level)},
              {"format", c.format.toString()},
              {"valid", valid},
              {"missing", n - valid},
              {"distinct", c.isNumeric() ? numbers.size() : strings.size()},
              {"minimum", nullptr},
              {"maximum", nullptr},
              {"value_labels", labels},
              {"missing_values", c.missing.describe()}};
    if (c.isNumeric() && valid > 0) {
      v["minimum"] = lo;
      v["maximum"] = hi;
    }
    variables.push_back(std::move(v));
  }
  json out = {{"file", data.sourcePath}, {"cases", n}, {"variables", variables}};
  if (!data.weightVariable.empty()) out["weight_variable"] = data.weightVariable;
  return out;
}

json variablesTable(const json& description) {
  const std::vector<std::string> columns = {
      "Type",    "Level",    "Valid", "Missing",      "Minimum",
      "Maximum", "Distinct", "Label", "Value labels", "User-missing values"};
  json columnTree = {{"label", "Statistics"}, {"show_label", false}, {"children", json::array()}};
  json columnPaths = json::array();
  for (const std::string& c : columns) {
    columnTree["children"].push_back(leaf(c));
    columnPaths.push_back(json::array({c}));
  }
  json rowTree = {{"label", "Variable"}, {"show_label", true}, {"children", json::array()}};
  json rowPaths = json::array();
  json cells = json::array();
  for (const json& v : description["variables"]) {
    const std::string name = v["name"].get<std::string>();
    rowTree["children"].push_back(leaf(name));
    rowPaths.push_back(json::array({name}));
    std::string labels;
    for (const json& l : v["value_labels"]) {
      const json& value = l["value"];
      labels += (labels.empty() ? "" : "; ") +
                (value.is_number() ? stathost::formatShortest(value.get<double>())
                                   : value.get<std::string>()) +
                " = " + l["label"].get<std::string>();
    }
    cells.push_back(json::array(
        {textCell(v["type"]), textCell(v["level"]), countCell(v["valid"]), countCell(v["missing"]),
         numberCell(v["minimum"]), numberCell(v["maximum"]), countCell(v["distinct"]),
         textCell(v["label"]), textCell(labels), textCell(v["missing_values"])}));
  }
  json footnotes = json::array();
  footnotes.push_back({{"mark", "a"},
                       {"text", std::to_string(description["cases"].get<std::size_t>()) +
                                    " cases. Valid and Missing count cases; Minimum, Maximum "
                                    "and Distinct are over the valid values."}});
  if (description.contains("weight_variable")) {
    footnotes.push_back(
        {{"mark", "b"},
         {"text", "The file names " + description["weight_variable"].get<std::string>() +
                      " as its case weight."}});
  }
  return {{"type", "table"},
          {"title", "Variables in " + description["file"].get<std::string>()},
          {"show_title", true},
          {"footnotes", footnotes},
          {"layout",
           {{"min_data_column_width", 0},
            {"max_data_column_width", 0},
            {"default_format", {{"type", 1}, {"width", 10}, {"decimals", 4}}}}},
          {"column_header", columnTree},
          {"row_header", rowTree},
          {"columns", columnPaths},
          {"rows", rowPaths},
          {"cells", cells}};
}

}  // namespace medapp

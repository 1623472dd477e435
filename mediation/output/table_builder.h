// Builds one pivot table through the host's table operations, always in the same steps:
// title, layout constants, footnotes, column tree, row tree, cells, dimension.
#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "stathost/json_generator.h"
#include "stathost/output_table.h"

namespace medanlys {

// A whole number shown without decimals (counts).
struct Count {
  double value;
};

// A cell: a number (shown with the table's format, "." when not finite), a count, a text,
// or blank.
using CellValue = std::variant<std::monostate, double, Count, std::string>;

constexpr int kMinDataColumnWidth = 100;
constexpr int kMinCovarianceColumnWidth = 70;
constexpr int kMaxDataColumnWidth = 300;

class TableBuilder {
 public:
  TableBuilder(stathost::StatJSONGenerator& generator, const std::string& title,
               int minColumnWidth = kMinDataColumnWidth);
  void footnote(const std::string& text);
  // Columns, left to right: a plain column, or a group with its label over its columns.
  void column(const std::string& label);
  void columnGroup(const std::string& label, const std::vector<std::string>& columns);
  // Label of the column dimension (shown above the column headers).
  void columnDimensionLabel(const std::string& label);
  void rowHeaderLabel(const std::string& label) { rowLabel_ = label; }
  // A row, optionally inside a row group (consecutive rows of one group share it).
  void row(const std::string& label, const std::vector<CellValue>& cells,
           const std::string& group = "");
  // Writes the table into the document; returns the host's status.
  int write();

 private:
  stathost::StatJSONGenerator& generator_;
  std::string title_;
  int minWidth_;
  std::vector<std::string> footnotes_;
  struct ColumnSpec {
    std::string group;
    std::vector<std::string> labels;
    bool grouped;
  };
  std::vector<ColumnSpec> columns_;
  std::string columnLabel_;
  std::string rowLabel_ = " ";
  struct RowSpec {
    std::string group;
    std::string label;
    std::vector<CellValue> cells;
  };
  std::vector<RowSpec> rows_;
};

}  // namespace medanlys

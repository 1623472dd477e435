// Pivot tables. A table has a column dimension and a row dimension, each a tree of labels
// (Descendants); the cells are given row by row.
//
// Descendants, Dimension and Cells may be destroyed once the table is added to the
// document: the table copies what it needs. Child Descendants share their content with
// the parent they were added to, so a group may be filled after it was attached.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/format.h"
#include "stathost/json_generator.h"

namespace stathost {

class Table;

enum CellType { CELL_LABEL = 0, CELL_DATA = 1 };

class Cell {
 public:
  Cell(Table* table, CellType type);
  void setValue(double value);
  void setValue(const std::string& text);
  void setValue(const char* text) { setValue(std::string(text ? text : "")); }
  void setFormat(STAX_Format::FormatType type, short width, short decimals);
  void setFootnoteMark(const std::string& mark) { footnote_ = mark; }
  CellType type() const { return type_; }
  bool isNumber() const { return isNumber_; }
  double number() const { return number_; }
  // Display text: the string, or the number under its format ("." when not finite).
  std::string text() const;
  nlohmann::json toJson() const;

 private:
  Table* table_;
  CellType type_;
  bool isNumber_ = false;
  bool hasFormat_ = false;
  double number_ = 0.0;
  std::string text_;
  STAX_Format format_;
  std::string footnote_;
};

struct LabelNode {
  std::string label;
  bool showLabel = true;
  std::vector<std::shared_ptr<LabelNode>> children;
};

class Descendants {
 public:
  explicit Descendants(Table* table);
  void set_label(const std::string& label) { node_->label = label; }
  void setShowLabel(bool show) { node_->showLabel = show; }
  // Adds a leaf labelled with the cell's text.
  void addCell(Cell* cell);
  // Adds a nested group.
  void addDescendants(Descendants* child);
  const std::shared_ptr<LabelNode>& node() const { return node_; }

 private:
  Table* table_;
  std::shared_ptr<LabelNode> node_;
};

class Cells {
 public:
  explicit Cells(Table* table) : table_(table) {}
  void addCells(const std::vector<Cell*>& row);
  const std::vector<std::vector<nlohmann::json>>& rows() const { return rows_; }

 private:
  Table* table_;
  std::vector<std::vector<nlohmann::json>> rows_;
};

class Dimension {
 public:
  Dimension(Table* table, Descendants* rows, Descendants* columns);
  const std::shared_ptr<LabelNode>& rows() const { return rows_; }
  const std::shared_ptr<LabelNode>& columns() const { return columns_; }

 private:
  std::shared_ptr<LabelNode> rows_;
  std::shared_ptr<LabelNode> columns_;
};

class Table {
 public:
  Table(StatJSONGenerator* generator, const std::string& title);
  void set_table_title(const std::string& title) { title_ = title; }
  void hide_title(bool hide) { hideTitle_ = hide; }
  void set_min_data_column_width(int width) { minWidth_ = width; }
  void set_max_data_column_width(int width) { maxWidth_ = width; }
  void set_default_cell_format(STAX_Format::FormatType type, short width, short decimals);
  // Declares the footnote with the given number (1 for mark "a"); add_footnote then sets
  // the text of the last declared footnote, or of a new one when none is pending.
  void addFootnoteRefs(int number);
  void add_footnote(const std::string& text);
  void set_dimensions(Dimension* dimension);
  void set_cells(Cells* cells);
  // Writes the table into the generator's document. Returns 0, or 1 when the table has no
  // dimensions or a row has more cells than there are columns.
  int addTableToProcedureJSON();

  const std::string& title() const { return title_; }
  const STAX_Format& defaultFormat() const { return defaultFormat_; }
  nlohmann::json toJson() const;

 private:
  StatJSONGenerator* generator_;
  std::string title_;
  bool hideTitle_ = false;
  int minWidth_ = 0;
  int maxWidth_ = 0;
  STAX_Format defaultFormat_{STAX_Format::FMT_GENERAL, 10, 4};
  std::vector<std::pair<int, std::string>> footnotes_;
  int pendingFootnote_ = 0;
  std::shared_ptr<LabelNode> rows_;
  std::shared_ptr<LabelNode> columns_;
  std::vector<std::vector<nlohmann::json>> cells_;
};

// Footnote mark of footnote number n: 1 -> "a", 26 -> "z", 27 -> "aa".
std::string footnoteMark(int number);

}  // namespace stathost

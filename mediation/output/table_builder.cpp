#include "output/table_builder.h"

namespace medanlys {

using stathost::Cell;
using stathost::Cells;
using stathost::Descendants;
using stathost::Dimension;
using stathost::Table;

TableBuilder::TableBuilder(stathost::StatJSONGenerator& generator, const std::string& title,
                           int minColumnWidth)
    : generator_(generator), title_(title), minWidth_(minColumnWidth) {}

void TableBuilder::footnote(const std::string& text) { footnotes_.push_back(text); }

void TableBuilder::column(const std::string& label) { columns_.push_back({"", {label}, false}); }

void TableBuilder::columnGroup(const std::string& label, const std::vector<std::string>& labels) {
  columns_.push_back({label, labels, true});
}

void TableBuilder::columnDimensionLabel(const std::string& label) { columnLabel_ = label; }

void TableBuilder::row(const std::string& label, const std::vector<CellValue>& cells,
                       const std::string& group) {
  rows_.push_back({group, label, cells});
}

int TableBuilder::write() {
  Table table(&generator_, title_);
  table.set_table_title(title_);
  table.hide_title(false);
  table.set_min_data_column_width(minWidth_);
  table.set_max_data_column_width(kMaxDataColumnWidth);
  table.set_default_cell_format(stathost::STAX_Format::FMT_FIXED, 10, 4);
  for (std::size_t i = 0; i < footnotes_.size(); ++i) {
    table.addFootnoteRefs(static_cast<int>(i) + 1);
    table.add_footnote(footnotes_[i]);
  }

  // Labels are copied into the tree when added; the Descendants of groups share theirs.
  auto labelCell = [&](const std::string& text) {
    Cell cell(&table, stathost::CELL_LABEL);
    cell.setValue(text);
    return cell;
  };
  Descendants columns(&table);
  if (!columnLabel_.empty()) columns.set_label(columnLabel_);
  columns.setShowLabel(!columnLabel_.empty());
  std::vector<std::unique_ptr<Descendants>> groups;
  for (const ColumnSpec& column : columns_) {
    Descendants* parent = &columns;
    if (column.grouped) {
      groups.push_back(std::make_unique<Descendants>(&table));
      groups.back()->set_label(column.group);
      columns.addDescendants(groups.back().get());
      parent = groups.back().get();
    }
    for (const std::string& label : column.labels) {
      Cell cell = labelCell(label);
      parent->addCell(&cell);
    }
  }

  Descendants rows(&table);
  rows.set_label(rowLabel_);
  rows.setShowLabel(false);
  Descendants* currentGroup = nullptr;
  std::string currentGroupName;
  for (const RowSpec& row : rows_) {
    Descendants* parent = &rows;
    if (!row.group.empty()) {
      if (!currentGroup || currentGroupName != row.group) {
        groups.push_back(std::make_unique<Descendants>(&table));
        currentGroup = groups.back().get();
        currentGroupName = row.group;
        currentGroup->set_label(row.group);
        rows.addDescendants(currentGroup);
      }
      parent = currentGroup;
    } else {
      currentGroup = nullptr;
    }
    Cell cell = labelCell(row.label);
    parent->addCell(&cell);
  }

  Cells cells(&table);
  for (const RowSpec& content : rows_) {
    std::vector<Cell> row;
    row.reserve(content.cells.size());
    for (const CellValue& value : content.cells) {
      row.emplace_back(&table, stathost::CELL_DATA);
      if (const double* number = std::get_if<double>(&value)) {
        row.back().setValue(*number);
      } else if (const Count* count = std::get_if<Count>(&value)) {
        row.back().setValue(count->value);
        row.back().setFormat(stathost::STAX_Format::FMT_INTEGER, 10, 0);
      } else if (const std::string* text = std::get_if<std::string>(&value)) {
        row.back().setValue(*text);
      } else {
        row.back().setValue(" ");
      }
    }
    std::vector<Cell*> pointers;
    for (Cell& c : row) pointers.push_back(&c);
    cells.addCells(pointers);
  }
  Dimension dimension(&table, &rows, &columns);
  table.set_dimensions(&dimension);
  table.set_cells(&cells);
  return table.addTableToProcedureJSON();
}

}  // namespace medanlys

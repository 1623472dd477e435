#include "stathost/output_table.h"

#include <cmath>

namespace stathost {

std::string footnoteMark(int number) {
  std::string mark;
  for (int n = number; n > 0; n = (n - 1) / 26) {
    mark.insert(mark.begin(), static_cast<char>('a' + (n - 1) % 26));
  }
  return mark;
}

Cell::Cell(Table* table, CellType type) : table_(table), type_(type) {}

void Cell::setValue(double value) {
  isNumber_ = true;
  number_ = value;
  text_.clear();
}

void Cell::setValue(const std::string& text) {
  isNumber_ = false;
  text_ = text;
}

void Cell::setFormat(STAX_Format::FormatType type, short width, short decimals) {
  hasFormat_ = true;
  format_ = STAX_Format{type, width, decimals};
}

std::string Cell::text() const {
  if (!isNumber_) return text_;
  const STAX_Format f = hasFormat_ || !table_ ? format_ : table_->defaultFormat();
  return formatNumber(number_, f.type, f.width, f.decimals);
}

nlohmann::json Cell::toJson() const {
  nlohmann::json j;
  if (isNumber_) {
    j["value"] = std::isfinite(number_) ? nlohmann::json(number_) : nlohmann::json(nullptr);
  }
  j["text"] = text();
  if (hasFormat_) {
    j["format"] = {{"type", static_cast<int>(format_.type)},
                   {"width", format_.width},
                   {"decimals", format_.decimals}};
  }
  if (!footnote_.empty()) j["footnote"] = footnote_;
  return j;
}

Descendants::Descendants(Table* table) : table_(table), node_(std::make_shared<LabelNode>()) {}

void Descendants::addCell(Cell* cell) {
  auto leaf = std::make_shared<LabelNode>();
  leaf->label = cell ? cell->text() : "";
  node_->children.push_back(std::move(leaf));
}

void Descendants::addDescendants(Descendants* child) {
  if (child) node_->children.push_back(child->node());
}

void Cells::addCells(const std::vector<Cell*>& row) {
  std::vector<nlohmann::json> copy;
  copy.reserve(row.size());
  for (const Cell* c : row) copy.push_back(c ? c->toJson() : nlohmann::json{{"text", ""}});
  rows_.push_back(std::move(copy));
}

Dimension::Dimension(Table* /*table*/, Descendants* rows, Descendants* columns)
    : rows_(rows ? rows->node() : nullptr), columns_(columns ? columns->node() : nullptr) {}

Table::Table(StatJSONGenerator* generator, const std::string& title)
    : generator_(generator), title_(title) {}

void Table::set_default_cell_format(STAX_Format::FormatType type, short width, short decimals) {
  defaultFormat_ = STAX_Format{type, width, decimals};
}

void Table::addFootnoteRefs(int number) {
  footnotes_.emplace_back(number, std::string());
  pendingFootnote_ = static_cast<int>(footnotes_.size());
}

void Table::add_footnote(const std::string& text) {
  if (pendingFootnote_ == 0) {
    footnotes_.emplace_back(static_cast<int>(footnotes_.size()) + 1, text);
  } else {
    footnotes_[static_cast<std::size_t>(pendingFootnote_ - 1)].second = text;
    pendingFootnote_ = 0;
  }
}

void Table::set_dimensions(Dimension* dimension) {
  if (!dimension) return;
  rows_ = dimension->rows();
  columns_ = dimension->columns();
}

void Table::set_cells(Cells* cells) {
  if (cells) cells_ = cells->rows();
}

namespace {

nlohmann::json nodeToJson(const LabelNode& node) {
  nlohmann::json j = {{"label", node.label}, {"show_label", node.showLabel}};
  nlohmann::json children = nlohmann::json::array();
  for (const auto& child : node.children) children.push_back(nodeToJson(*child));
  j["children"] = std::move(children);
  return j;
}

void collectLeafPaths(const LabelNode& node, std::vector<std::string>& path, nlohmann::json& out) {
  for (const auto& child : node.children) {
    path.push_back(child->label);
    if (child->children.empty()) {
      out.push_back(path);
    } else {
      collectLeafPaths(*child, path, out);
    }
    path.pop_back();
  }
}

nlohmann::json leafPaths(const LabelNode& root) {
  nlohmann::json out = nlohmann::json::array();
  std::vector<std::string> path;
  collectLeafPaths(root, path, out);
  return out;
}

}  // namespace

nlohmann::json Table::toJson() const {
  nlohmann::json footnotes = nlohmann::json::array();
  for (const auto& [number, text] : footnotes_) {
    footnotes.push_back({{"mark", footnoteMark(number)}, {"text", text}});
  }
  nlohmann::json cells = nlohmann::json::array();
  for (const auto& row : cells_) cells.push_back(row);
  return {
      {"type", "table"},
      {"title", title_},
      {"show_title", !hideTitle_},
      {"footnotes", footnotes},
      {"layout",
       {{"min_data_column_width", minWidth_},
        {"max_data_column_width", maxWidth_},
        {"default_format",
         {{"type", static_cast<int>(defaultFormat_.type)},
          {"width", defaultFormat_.width},
          {"decimals", defaultFormat_.decimals}}}}},
      {"column_header", nodeToJson(*columns_)},
      {"row_header", nodeToJson(*rows_)},
      {"columns", leafPaths(*columns_)},
      {"rows", leafPaths(*rows_)},
      {"cells", cells},
  };
}

int Table::addTableToProcedureJSON() {
  if (!generator_ || !rows_ || !columns_) return 1;
  const nlohmann::json j = toJson();
  const std::size_t columns = j["columns"].size();
  for (const auto& row : cells_) {
    if (row.size() > columns) return 1;
  }
  generator_->addItem(j);
  return 0;
}

}  // namespace stathost

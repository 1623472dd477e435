#include "render_common.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace stathost {
namespace render_detail {

namespace {

const Json& nullJson() {
  static const Json kNull;
  return kNull;
}

const Json& emptyArray() {
  static const Json kEmpty = Json::array();
  return kEmpty;
}

// ---- header layout -------------------------------------------------------------------------

const Json& childrenOf(const Json& node) { return arrayOf(node, "children"); }

bool drawsHeading(const Json& node) {
  return boolOf(node, "show_label", true) && !stringOf(node, "label").empty();
}

// Number of levels needed below `above` shown ancestors to reach the deepest leaf of node.
int levelsNeeded(const Json& node, int above) {
  const Json& kids = childrenOf(node);
  if (kids.empty()) return above + 1;
  const int below = above + (drawsHeading(node) ? 1 : 0);
  int levels = 0;
  for (const Json& kid : kids) levels = std::max(levels, levelsNeeded(kid, below));
  return levels;
}

void placeNode(const Json& node, int above, HeaderGrid* grid, int* position) {
  const Json& kids = childrenOf(node);
  if (kids.empty()) {
    HeaderCell cell;
    cell.label = boolOf(node, "show_label", true) ? stringOf(node, "label") : "";
    cell.level = above;
    cell.levelSpan = grid->levels - above;
    cell.position = (*position)++;
    cell.leaf = true;
    grid->cells.push_back(cell);
    return;
  }
  const int start = *position;
  const bool shown = drawsHeading(node);
  for (const Json& kid : kids) placeNode(kid, above + (shown ? 1 : 0), grid, position);
  if (!shown || *position == start) return;
  HeaderCell cell;
  cell.label = stringOf(node, "label");
  cell.level = above;
  cell.position = start;
  cell.positionSpan = *position - start;
  grid->cells.push_back(cell);
}

void sortCells(HeaderGrid* grid) {
  std::stable_sort(grid->cells.begin(), grid->cells.end(),
                   [](const HeaderCell& a, const HeaderCell& b) {
                     if (a.level != b.level) return a.level < b.level;
                     return a.position < b.position;
                   });
}

void insertPath(Json* node, const Json& path, size_t index) {
  Json& kids = (*node)["children"];
  const std::string label = path[index].is_string() ? path[index].get<std::string>() : "";
  const bool last = index + 1 == path.size();
  if (!last && !kids.empty() && kids.back().contains("children") &&
      stringOf(kids.back(), "label") == label) {
    insertPath(&kids.back(), path, index + 1);
    return;
  }
  Json child = {{"label", label}};
  if (!last) {
    child["children"] = Json::array();
    insertPath(&child, path, index + 1);
  }
  kids.push_back(child);
}

// ---- cells ------------------------------------------------------------------------------------

std::vector<std::string> marksOf(const Json& footnote) {
  std::vector<std::string> marks;
  if (footnote.is_string() && !footnote.get<std::string>().empty()) {
    marks.push_back(footnote.get<std::string>());
  } else if (footnote.is_array()) {
    for (const Json& mark : footnote) {
      if (mark.is_string()) marks.push_back(mark.get<std::string>());
    }
  }
  return marks;
}

CellView readNumber(const Json& cell, const Json& defaultFormat) {
  CellView view;
  view.numeric = true;
  const Json& value = member(cell, "value");
  if (!value.is_number() || !std::isfinite(value.get<double>())) {
    view.text = ".";
    return view;
  }
  const Json& format = cell.contains("format") ? cell["format"] : defaultFormat;
  view.text = member(cell, "text").is_string() ? cell["text"].get<std::string>()
                                               : formatNumber(value.get<double>(), format);
  return view;
}

CellView readCell(const Json& cell, const Json& defaultFormat) {
  CellView view;
  if (cell.is_object()) {
    if (cell.contains("value")) {
      view = readNumber(cell, defaultFormat);
    } else {
      view.text = stringOf(cell, "text");
    }
    view.marks = marksOf(member(cell, "footnote"));
  } else if (cell.is_string()) {
    view.text = cell.get<std::string>();
  } else if (cell.is_number()) {
    view.numeric = true;
    view.text = formatNumber(cell.get<double>(), defaultFormat);
  } else if (cell.is_null()) {
    view.numeric = true;
    view.text = ".";
  }
  return view;
}

std::vector<std::vector<CellView>> readCells(const Json& table) {
  const Json& format = member(member(table, "layout"), "default_format");
  std::vector<std::vector<CellView>> cells;
  for (const Json& row : arrayOf(table, "cells")) {
    std::vector<CellView> line;
    if (row.is_array()) {
      for (const Json& cell : row) line.push_back(readCell(cell, format));
    }
    cells.push_back(line);
  }
  return cells;
}

HeaderGrid headerGrid(const Json& table, const char* treeKey, const char* pathsKey,
                      bool includeRoot) {
  const Json& tree = member(table, treeKey);
  if (tree.is_object()) return layoutHeader(tree, includeRoot);
  return layoutHeader(treeFromPaths(arrayOf(table, pathsKey)), includeRoot);
}

void readFootnotes(const Json& table, TableView* view) {
  for (const Json& note : arrayOf(table, "footnotes")) {
    view->footnotes.push_back({stringOf(note, "mark"), stringOf(note, "text")});
  }
  std::set<std::string> used;
  for (const auto& row : view->cells) {
    for (const CellView& cell : row) used.insert(cell.marks.begin(), cell.marks.end());
  }
  for (const Footnote& note : view->footnotes) {
    if (!note.mark.empty() && used.count(note.mark) == 0) view->titleMarks.push_back(note.mark);
  }
}

std::string printDouble(const char* format, int decimals, double value) {
  char buffer[512];
  std::snprintf(buffer, sizeof buffer, format, decimals, value);
  return buffer;
}

std::string shortestRoundTrip(double value) {
  for (int precision = 1; precision <= 17; ++precision) {
    std::string text = printDouble("%.*g", precision, value);
    if (std::strtod(text.c_str(), nullptr) == value) return text;
  }
  return printDouble("%.*g", 17, value);
}

std::string withoutNegativeZero(std::string text) {
  if (text.size() > 1 && text[0] == '-' && text.find_first_not_of("0.", 1) == std::string::npos) {
    text.erase(0, 1);
  }
  return text;
}

}  // namespace

// ---- accessors ----------------------------------------------------------------------------------

const Json& member(const Json& object, const char* key) {
  if (!object.is_object()) return nullJson();
  auto it = object.find(key);
  return it == object.end() ? nullJson() : *it;
}

const Json& arrayOf(const Json& object, const char* key) {
  const Json& value = member(object, key);
  return value.is_array() ? value : emptyArray();
}

std::string stringOf(const Json& object, const char* key, const std::string& fallback) {
  const Json& value = member(object, key);
  return value.is_string() ? value.get<std::string>() : fallback;
}

bool boolOf(const Json& object, const char* key, bool fallback) {
  const Json& value = member(object, key);
  return value.is_boolean() ? value.get<bool>() : fallback;
}

int intOf(const Json& object, const char* key, int fallback) {
  const Json& value = member(object, key);
  if (!value.is_number()) return fallback;
  const double number = value.get<double>();
  if (!std::isfinite(number) || std::fabs(number) > 1e9) return fallback;
  return static_cast<int>(number);
}

// ---- text ---------------------------------------------------------------------------------------

int displayWidth(const std::string& utf8) {
  int width = 0;
  for (unsigned char byte : utf8) {
    if ((byte & 0xC0) != 0x80) ++width;
  }
  return width;
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (true) {
    const size_t end = text.find('\n', start);
    std::string line = text.substr(start, end == std::string::npos ? end : end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return lines;
}

// ---- headers ------------------------------------------------------------------------------------

HeaderGrid layoutHeader(const Json& root, bool includeRoot) {
  HeaderGrid grid;
  const Json& kids = childrenOf(root);
  if (kids.empty()) return grid;
  const int above = (includeRoot && drawsHeading(root)) ? 1 : 0;
  for (const Json& kid : kids) grid.levels = std::max(grid.levels, levelsNeeded(kid, above));
  int position = 0;
  for (const Json& kid : kids) placeNode(kid, above, &grid, &position);
  grid.positions = position;
  if (above == 1) {
    HeaderCell cell;
    cell.label = stringOf(root, "label");
    cell.positionSpan = position;
    grid.cells.push_back(cell);
  }
  sortCells(&grid);
  return grid;
}

Json treeFromPaths(const Json& paths) {
  Json root = {{"label", ""}, {"show_label", false}, {"children", Json::array()}};
  if (!paths.is_array()) return root;
  for (const Json& path : paths) {
    if (path.is_array() && !path.empty()) {
      insertPath(&root, path, 0);
    } else {
      root["children"].push_back({{"label", path.is_string() ? path.get<std::string>() : ""}});
    }
  }
  return root;
}

void padHeader(HeaderGrid* grid, int positions) {
  if (grid->levels == 0) {
    grid->positions = std::max(grid->positions, positions);
    return;
  }
  for (int position = grid->positions; position < positions; ++position) {
    HeaderCell cell;
    cell.levelSpan = grid->levels;
    cell.position = position;
    cell.leaf = true;
    grid->cells.push_back(cell);
  }
  grid->positions = std::max(grid->positions, positions);
  sortCells(grid);
}

// ---- tables -------------------------------------------------------------------------------------

TableView buildTableView(const Json& table) {
  TableView view;
  view.title = stringOf(table, "title");
  view.showTitle = boolOf(table, "show_title", true);
  const Json& layout = member(table, "layout");
  view.minColumnWidth = intOf(layout, "min_data_column_width", 0);
  view.maxColumnWidth = intOf(layout, "max_data_column_width", 0);
  const Json& rowRoot = member(table, "row_header");
  if (boolOf(rowRoot, "show_label", true)) view.stubHeading = stringOf(rowRoot, "label");
  view.columns = headerGrid(table, "column_header", "columns", true);
  view.rows = headerGrid(table, "row_header", "rows", false);
  view.cells = readCells(table);

  int columnCount = view.columns.positions;
  for (const auto& row : view.cells)
    columnCount = std::max(columnCount, static_cast<int>(row.size()));
  const int rowCount = std::max(view.rows.positions, static_cast<int>(view.cells.size()));
  view.cells.resize(rowCount);
  for (auto& row : view.cells) row.resize(columnCount);
  padHeader(&view.columns, columnCount);
  padHeader(&view.rows, rowCount);
  readFootnotes(table, &view);
  return view;
}

bool isNumericColumn(const TableView& view, int column) {
  for (const auto& row : view.cells) {
    if (column < static_cast<int>(row.size()) && row[column].numeric) return true;
  }
  return false;
}

// ---- values -------------------------------------------------------------------------------------

std::string formatNumber(double value, const Json& format) {
  if (!std::isfinite(value)) return ".";
  const int decimals = std::clamp(intOf(format, "decimals", 2), 0, 16);
  switch (intOf(format, "type", 1)) {
    case 2:
      return withoutNegativeZero(printDouble("%.*f", 0, value));
    case 3:
      return printDouble("%.*E", decimals, value);
    case 4:
      return withoutNegativeZero(printDouble("%.*f", decimals, value)) + "%";
    case 5:
      return withoutNegativeZero(printDouble("%.*f", decimals, value));
    default:
      return shortestRoundTrip(value);
  }
}

std::string formatDataValue(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_integer()) return value.dump();
  if (value.is_number()) return formatNumber(value.get<double>(), Json::object());
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  if (value.is_null()) return ".";
  return value.dump();
}

std::string levelLabel(const std::string& level) {
  if (level == "error") return "Error";
  if (level == "warning") return "Warning";
  if (level == "note") return "Note";
  if (level.empty()) return "Note";
  std::string label = level;
  if (label[0] >= 'a' && label[0] <= 'z') label[0] = static_cast<char>(label[0] - 'a' + 'A');
  return label;
}

std::string messageLocation(const Json& message) {
  std::string location;
  const auto add = [&location](const std::string& part) {
    location += (location.empty() ? "" : ", ") + part;
  };
  const std::string file = stringOf(message, "file");
  if (!file.empty()) add("file " + file);
  if (member(message, "line").is_number()) add("line " + std::to_string(intOf(message, "line", 0)));
  if (member(message, "column").is_number()) {
    add("column " + std::to_string(intOf(message, "column", 0)));
  }
  return location;
}

std::string splitLabel(const Json& run) { return stringOf(member(run, "split"), "label"); }

}  // namespace render_detail
}  // namespace stathost

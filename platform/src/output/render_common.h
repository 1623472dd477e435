// Helpers shared by the HTML and the text renderer of the output document.
#ifndef STATHOST_OUTPUT_RENDER_COMMON_H_
#define STATHOST_OUTPUT_RENDER_COMMON_H_

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace stathost {
namespace render_detail {

using Json = nlohmann::json;

// Lenient accessors: a missing member or one of the wrong type gives the fallback.
const Json& member(const Json& object, const char* key);
const Json& arrayOf(const Json& object, const char* key);
std::string stringOf(const Json& object, const char* key, const std::string& fallback = "");
bool boolOf(const Json& object, const char* key, bool fallback);
int intOf(const Json& object, const char* key, int fallback);

// Number of code points in a UTF-8 string (continuation bytes are not counted).
int displayWidth(const std::string& utf8);

// Splits on '\n' (a trailing '\r' is dropped from each line). An empty text gives one line.
std::vector<std::string> splitLines(const std::string& text);

// One label of a header tree placed in a grid. For column headers a level is a header row and a
// position is a data column; for row headers a level is a stub column and a position a data row.
struct HeaderCell {
  std::string label;
  int level = 0;
  int levelSpan = 1;
  int position = 0;
  int positionSpan = 1;
  bool leaf = false;
};

struct HeaderGrid {
  int levels = 0;
  int positions = 0;
  std::vector<HeaderCell> cells;  // sorted by level, then position
};

// Lays out a label tree. Every leaf is one position; group nodes span their leaves. Groups with
// an empty or hidden label take no level; leaves extend down to the last level. The root takes
// a level of its own only when includeRoot is set and its label is shown.
HeaderGrid layoutHeader(const Json& root, bool includeRoot);

// Builds a label tree (hidden root, shown groups) from leaf paths such as [["Robust", "SE"]].
Json treeFromPaths(const Json& paths);

// Adds blank leaves so that the grid has at least `positions` positions.
void padHeader(HeaderGrid* grid, int positions);

struct CellView {
  std::string text;
  bool numeric = false;
  std::vector<std::string> marks;  // footnote marks attached to the cell
};

struct Footnote {
  std::string mark;
  std::string text;
};

// A pivot table ready for drawing: header grids and a rectangular matrix of display texts.
struct TableView {
  std::string title;
  bool showTitle = true;
  std::vector<std::string> titleMarks;  // footnotes not attached to any cell
  std::vector<Footnote> footnotes;
  int minColumnWidth = 0;
  int maxColumnWidth = 0;
  std::string stubHeading;
  HeaderGrid columns;
  HeaderGrid rows;
  std::vector<std::vector<CellView>> cells;  // rows.positions x columns.positions
};

TableView buildTableView(const Json& table);

// True when any cell of the column holds a number.
bool isNumericColumn(const TableView& view, int column);

// Display of a number under a cell format ({"type", "width", "decimals"}).
std::string formatNumber(double value, const Json& format);

// Display of one value of a chart data column; null shows as ".".
std::string formatDataValue(const Json& value);

// "Error", "Warning" or "Note" for a message level.
std::string levelLabel(const std::string& level);

// "file data.csv, line 3, column 2" (the parts that are present), or "".
std::string messageLocation(const Json& message);

// The label of the run's split group, or "" when no split is active.
std::string splitLabel(const Json& run);

}  // namespace render_detail
}  // namespace stathost

#endif  // STATHOST_OUTPUT_RENDER_COMMON_H_

// Plain-text rendering of the output document for a terminal.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "render_common.h"
#include "stathost/render.h"

namespace stathost {

using render_detail::arrayOf;
using render_detail::CellView;
using render_detail::displayWidth;
using render_detail::HeaderCell;
using render_detail::HeaderGrid;
using render_detail::Json;
using render_detail::stringOf;
using render_detail::TableView;

namespace {

constexpr int kColumnGap = 2;  // spaces between data columns and between stub columns
constexpr int kStubGap = 3;    // spaces between the stub and the first data column
constexpr int kMinWrapWidth = 20;
constexpr int kMinCellWidth = 8;        // string cells are never wrapped narrower than this
constexpr int kPixelsPerCharacter = 7;  // converts the layout's column widths to characters

// ---- strings ---------------------------------------------------------------------------------

std::string spaces(int count) { return std::string(std::max(count, 0), ' '); }

std::string padRight(const std::string& text, int width) {
  return text + spaces(width - displayWidth(text));
}

std::string padLeft(const std::string& text, int width) {
  return spaces(width - displayWidth(text)) + text;
}

std::string centre(const std::string& text, int width) {
  const int free = std::max(width - displayWidth(text), 0);
  return spaces(free / 2) + text + spaces(free - free / 2);
}

std::string trimRight(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

std::string marksText(const std::vector<std::string>& marks) {
  std::string out;
  for (const std::string& mark : marks) out += "[" + mark + "]";
  return out;
}

// The first `count` code points of a UTF-8 string, and the rest.
std::pair<std::string, std::string> splitAt(const std::string& text, int count) {
  size_t index = 0;
  for (int seen = 0; index < text.size(); ++index) {
    if ((static_cast<unsigned char>(text[index]) & 0xC0) != 0x80 && seen++ == count) break;
  }
  return {text.substr(0, index), text.substr(index)};
}

// Greedy word wrap of one line; words longer than the width get a line of their own.
std::vector<std::string> wrapLine(const std::string& line, int width) {
  if (width <= 0 || displayWidth(line) <= width) return {line};
  std::vector<std::string> lines;
  std::string current;
  size_t start = 0;
  while (start <= line.size()) {
    size_t end = line.find(' ', start);
    if (end == std::string::npos) end = line.size();
    const std::string word = line.substr(start, end - start);
    if (!current.empty() && displayWidth(current) + 1 + displayWidth(word) > width) {
      lines.push_back(current);
      current = word;
    } else {
      current += (current.empty() ? "" : " ") + word;
    }
    start = end + 1;
  }
  lines.push_back(current);
  return lines;
}

// Word wrap that also breaks words longer than the width, for table cells.
std::vector<std::string> wrapCell(const std::string& text, int width) {
  if (width <= 0) return {text};
  std::vector<std::string> lines;
  for (std::string& line : wrapLine(text, width)) {
    while (displayWidth(line) > width) {
      auto parts = splitAt(line, width);
      lines.push_back(parts.first);
      line = parts.second;
    }
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> wrap(const std::string& text, int width) {
  std::vector<std::string> lines;
  for (const std::string& line : render_detail::splitLines(text)) {
    for (std::string& piece : wrapLine(line, width)) lines.push_back(std::move(piece));
  }
  return lines;
}

// The text after `prefix`, wrapped to maxWidth with continuation lines indented under it.
std::string hanging(const std::string& prefix, const std::string& text, int maxWidth) {
  const int indent = displayWidth(prefix);
  const int width = maxWidth > 0 ? std::max(maxWidth - indent, kMinWrapWidth) : 0;
  std::string out;
  bool first = true;
  for (const std::string& line : wrap(text, width)) {
    out += trimRight((first ? prefix : spaces(indent)) + line) + "\n";
    first = false;
  }
  return out;
}

// ---- column widths ---------------------------------------------------------------------------

int spanWidth(const std::vector<int>& widths, int start, int span) {
  int total = kColumnGap * (span - 1);
  for (int i = start; i < start + span; ++i) total += widths[i];
  return total;
}

// Widens the spanned columns evenly so that a label of `width` fits across them.
void fitSpan(std::vector<int>* widths, int start, int span, int width) {
  if (span <= 0) return;
  const int missing = width - spanWidth(*widths, start, span);
  for (int i = 0; i < span && missing > 0; ++i) {
    (*widths)[start + i] += missing / span + (i < missing % span ? 1 : 0);
  }
}

struct Span {
  int start;
  int span;
  int width;
};

void fitSpans(std::vector<int>* widths, std::vector<Span> spans) {
  std::stable_sort(spans.begin(), spans.end(),
                   [](const Span& a, const Span& b) { return a.span < b.span; });
  for (const Span& s : spans) fitSpan(widths, s.start, s.span, s.width);
}

std::vector<int> stubWidths(const TableView& view) {
  std::vector<int> widths(view.rows.levels, 0);
  std::vector<Span> spans;
  for (const HeaderCell& cell : view.rows.cells) {
    spans.push_back({cell.level, cell.levelSpan, displayWidth(oneLine(cell.label))});
  }
  if (!widths.empty()) spans.push_back({0, view.rows.levels, displayWidth(view.stubHeading)});
  fitSpans(&widths, spans);
  return widths;
}

std::string cellText(const CellView& cell) { return oneLine(cell.text) + marksText(cell.marks); }

// Widths of the data columns [first, last), with group labels clipped to that range. String
// cells wider than `cap` (when it is positive) are wrapped, so they count as `cap` wide.
std::vector<int> columnWidths(const TableView& view, int first, int last, int cap) {
  std::vector<int> widths(last - first, 0);
  for (const auto& row : view.cells) {
    for (int c = first; c < last; ++c) {
      int width = displayWidth(cellText(row[c]));
      if (cap > 0 && !row[c].numeric) width = std::min(width, cap);
      widths[c - first] = std::max(widths[c - first], width);
    }
  }
  std::vector<Span> spans;
  for (const HeaderCell& cell : view.columns.cells) {
    const int start = std::max(cell.position, first);
    const int end = std::min(cell.position + cell.positionSpan, last);
    if (start < end)
      spans.push_back({start - first, end - start, displayWidth(oneLine(cell.label))});
  }
  fitSpans(&widths, spans);
  return widths;
}

struct Panel {
  int first = 0;
  int last = 0;
  std::vector<int> widths;
};

int stubTotal(const std::vector<int>& stub) {
  return stub.empty() ? 0 : spanWidth(stub, 0, static_cast<int>(stub.size()));
}

int lineWidth(const std::vector<int>& stub, const Panel& panel) {
  const int data =
      panel.widths.empty() ? 0 : spanWidth(panel.widths, 0, static_cast<int>(panel.widths.size()));
  const int gap = (!stub.empty() && !panel.widths.empty()) ? kStubGap : 0;
  return stubTotal(stub) + gap + data;
}

// Widest string cell before wrapping: what is left of maxWidth beside the stub, and no more than
// the layout's maximum column width. 0 (no wrapping) when maxWidth is 0.
int cellWidthCap(const TableView& view, const std::vector<int>& stub, int maxWidth) {
  if (maxWidth <= 0) return 0;
  int cap = maxWidth - stubTotal(stub) - (stub.empty() ? 0 : kStubGap);
  if (view.maxColumnWidth > 0) cap = std::min(cap, view.maxColumnWidth / kPixelsPerCharacter);
  return std::max(cap, kMinCellWidth);
}

// Splits the data columns into panels that fit maxWidth (each panel has at least one column).
std::vector<Panel> panels(const TableView& view, const std::vector<int>& stub, int maxWidth) {
  const int columns = view.columns.positions;
  const int cap = cellWidthCap(view, stub, maxWidth);
  if (maxWidth <= 0 || columns == 0) return {Panel{0, columns, columnWidths(view, 0, columns, 0)}};
  std::vector<Panel> result;
  for (int first = 0; first < columns;) {
    Panel panel{first, first + 1, columnWidths(view, first, first + 1, cap)};
    while (panel.last < columns) {
      Panel wider{first, panel.last + 1, columnWidths(view, first, panel.last + 1, cap)};
      if (lineWidth(stub, wider) > maxWidth) break;
      panel = std::move(wider);
    }
    first = panel.last;
    result.push_back(std::move(panel));
  }
  return result;
}

// ---- table lines -----------------------------------------------------------------------------

// cover[level][position] = index of the header cell drawn there.
std::vector<std::vector<int>> coverage(const HeaderGrid& grid) {
  std::vector<std::vector<int>> cover(grid.levels, std::vector<int>(grid.positions, -1));
  for (size_t i = 0; i < grid.cells.size(); ++i) {
    const HeaderCell& cell = grid.cells[i];
    for (int level = cell.level; level < cell.level + cell.levelSpan; ++level) {
      for (int p = cell.position; p < cell.position + cell.positionSpan; ++p) {
        if (level < grid.levels && p < grid.positions) cover[level][p] = static_cast<int>(i);
      }
    }
  }
  return cover;
}

struct TableText {
  const TableView& view;
  std::vector<int> stub;
  std::vector<std::vector<int>> columnCover;
  std::vector<bool> numeric;
};

std::string stubPrefix(const TableText& t, const std::string& content) {
  if (t.stub.empty()) return "";
  return padRight(content, stubTotal(t.stub)) + spaces(kStubGap);
}

// One header row: group labels centred over their span, leaf labels on the last row of theirs.
std::string headerLabelLine(const TableText& t, const Panel& panel, int level) {
  const bool last = level == t.view.columns.levels - 1;
  std::string line = stubPrefix(t, last ? t.view.stubHeading : "");
  for (int c = panel.first; c < panel.last;) {
    const int index = t.columnCover[level][c];
    const HeaderCell* cell = index < 0 ? nullptr : &t.view.columns.cells[index];
    const int end = cell ? std::min(cell->position + cell->positionSpan, panel.last) : c + 1;
    const int width = spanWidth(panel.widths, c - panel.first, end - c);
    const std::string label = cell ? oneLine(cell->label) : "";
    if (c > panel.first) line += spaces(kColumnGap);
    if (cell && !cell->leaf) {
      line += centre(label, width);
    } else if (cell && level == cell->level + cell->levelSpan - 1) {
      line += t.numeric[c] ? padLeft(label, width) : padRight(label, width);
    } else {
      line += spaces(width);
    }
    c = end;
  }
  return trimRight(line) + "\n";
}

// Dashes under the group labels of one header row, or "" when the row has no groups.
std::string headerRuleLine(const TableText& t, const Panel& panel, int level) {
  std::string line = stubPrefix(t, "");
  bool any = false;
  for (int c = panel.first; c < panel.last;) {
    const int index = t.columnCover[level][c];
    const HeaderCell* cell = index < 0 ? nullptr : &t.view.columns.cells[index];
    const bool group = cell && !cell->leaf;
    const int end = group ? std::min(cell->position + cell->positionSpan, panel.last) : c + 1;
    const int width = spanWidth(panel.widths, c - panel.first, end - c);
    if (c > panel.first) line += spaces(kColumnGap);
    line += group ? std::string(width, '-') : spaces(width);
    any = any || group;
    c = end;
  }
  return any ? trimRight(line) + "\n" : "";
}

std::string stubText(const TableText& t, int row) {
  std::vector<const HeaderCell*> at(t.stub.size(), nullptr);
  for (const HeaderCell& cell : t.view.rows.cells) {
    if (cell.position == row) at[cell.level] = &cell;
  }
  std::string out;
  for (int level = 0; level < static_cast<int>(t.stub.size());) {
    const int span = at[level] ? at[level]->levelSpan : 1;
    if (level > 0) out += spaces(kColumnGap);
    out += padRight(at[level] ? oneLine(at[level]->label) : "", spanWidth(t.stub, level, span));
    level += span;
  }
  return out;
}

// One data row; string cells wider than their column continue on further lines.
std::string dataLines(const TableText& t, const Panel& panel, int row) {
  std::vector<std::vector<std::string>> columns;
  size_t height = 1;
  for (int c = panel.first; c < panel.last; ++c) {
    const CellView& cell = t.view.cells[row][c];
    const int width = panel.widths[c - panel.first];
    columns.push_back(cell.numeric ? std::vector<std::string>{cellText(cell)}
                                   : wrapCell(cellText(cell), width));
    height = std::max(height, columns.back().size());
  }
  std::string out;
  for (size_t line = 0; line < height; ++line) {
    std::string text = stubPrefix(t, line == 0 ? stubText(t, row) : "");
    for (size_t c = 0; c < columns.size(); ++c) {
      const std::string piece = line < columns[c].size() ? columns[c][line] : "";
      const int width = panel.widths[c];
      if (c > 0) text += spaces(kColumnGap);
      text += t.view.cells[row][panel.first + c].numeric ? padLeft(piece, width)
                                                         : padRight(piece, width);
    }
    out += trimRight(text) + "\n";
  }
  return out;
}

std::string panelText(const TableText& t, const Panel& panel) {
  const int width = lineWidth(t.stub, panel);
  std::string out = std::string(width, '=') + "\n";
  for (int level = 0; level < t.view.columns.levels; ++level) {
    const std::string labels = headerLabelLine(t, panel, level);
    if (labels != "\n") out += labels;
    out += headerRuleLine(t, panel, level);
  }
  if (t.view.columns.levels > 0) out += std::string(width, '-') + "\n";
  for (int row = 0; row < static_cast<int>(t.view.cells.size()); ++row) {
    out += dataLines(t, panel, row);
  }
  return out + std::string(width, '=') + "\n";
}

std::string tableText(const Json& item, int maxWidth) {
  const TableView view = render_detail::buildTableView(item);
  TableText t{view, stubWidths(view), coverage(view.columns), {}};
  for (int c = 0; c < view.columns.positions; ++c) {
    t.numeric.push_back(render_detail::isNumericColumn(view, c));
  }
  std::string out;
  if (view.showTitle && !view.title.empty()) {
    const std::string marks = marksText(view.titleMarks);
    out += hanging("", view.title + (marks.empty() ? "" : " " + marks), maxWidth);
  }
  bool first = true;
  for (const Panel& panel : panels(view, t.stub, maxWidth)) {
    if (!first) out += "\n";
    out += panelText(t, panel);
    first = false;
  }
  for (const auto& note : view.footnotes) out += hanging(note.mark + ". ", note.text, maxWidth);
  return out;
}

// ---- other items -----------------------------------------------------------------------------

std::string notesText(const Json& item, int maxWidth) {
  const Json& entries = arrayOf(item, "entries");
  int labelWidth = 0;
  int textWidth = 0;
  for (const Json& entry : entries) {
    labelWidth = std::max(labelWidth, displayWidth(oneLine(stringOf(entry, "label"))));
    for (const std::string& line : render_detail::splitLines(stringOf(entry, "text"))) {
      textWidth = std::max(textWidth, displayWidth(line));
    }
  }
  int width = labelWidth + kStubGap + textWidth;
  if (maxWidth > 0) width = std::min(width, std::max(maxWidth, labelWidth + kStubGap + 1));
  std::string out = hanging("", stringOf(item, "title"), maxWidth);
  out += std::string(width, '=') + "\n";
  for (const Json& entry : entries) {
    const std::string prefix = padRight(oneLine(stringOf(entry, "label")), labelWidth + kStubGap);
    out += hanging(prefix, stringOf(entry, "text"), maxWidth);
  }
  return out + std::string(width, '=') + "\n";
}

std::string chartText(const Json& item, int maxWidth) {
  const size_t columns = arrayOf(item, "data").size();
  return hanging("", stringOf(item, "title", "Chart"), maxWidth) +
         "(chart: " + std::to_string(columns) + (columns == 1 ? " data column" : " data columns") +
         "; see the HTML report)\n";
}

std::string textItemText(const Json& item) {
  std::string out;
  const std::string title = stringOf(item, "title");
  if (!title.empty()) out += title + "\n";
  const std::string text = stringOf(item, "text");
  out += text;
  if (!text.empty() && text.back() != '\n') out += "\n";
  return out;
}

std::string itemText(const Json& item, int maxWidth) {
  const std::string type = stringOf(item, "type");
  if (type == "table") return tableText(item, maxWidth);
  if (type == "notes") return notesText(item, maxWidth);
  if (type == "chart") return chartText(item, maxWidth);
  if (type == "text") return textItemText(item);
  return hanging("", stringOf(item, "title", "(item of type " + type + ")"), maxWidth);
}

std::string runHeadingText(const Json& run, int maxWidth) {
  std::string heading = stringOf(run, "command", "(command)");
  const std::string split = render_detail::splitLabel(run);
  if (!split.empty()) heading += " - " + split;
  const std::string status = stringOf(run, "status", "ok");
  if (status != "ok") heading += " [" + status + "]";
  return hanging("", heading, maxWidth);
}

std::string messageText(const Json& message, int maxWidth) {
  std::string text = stringOf(message, "text");
  const std::string where = render_detail::messageLocation(message);
  if (!where.empty()) text += " (" + where + ")";
  const std::string level = render_detail::levelLabel(stringOf(message, "level", "note"));
  return hanging(level + ": ", text, maxWidth);
}

std::string runText(const Json& run, int maxWidth, bool messages) {
  std::string out = runHeadingText(run, maxWidth);
  if (messages) {
    for (const Json& message : arrayOf(run, "messages")) out += messageText(message, maxWidth);
  }
  for (const Json& item : arrayOf(run, "items")) out += "\n" + itemText(item, maxWidth);
  return out;
}

}  // namespace

std::string renderText(const Json& document, int maxWidth, bool messages) {
  std::string out;
  for (const Json& run : arrayOf(document, "runs")) {
    if (!out.empty()) out += "\n";
    out += runText(run, maxWidth, messages);
  }
  return out;
}

}  // namespace stathost

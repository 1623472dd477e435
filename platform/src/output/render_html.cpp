// The HTML report: one self-contained file with inline CSS.
#include <algorithm>
#include <string>
#include <vector>

#include "render_common.h"
#include "stathost/gpl_chart.h"
#include "stathost/render.h"

namespace stathost {

using render_detail::arrayOf;
using render_detail::CellView;
using render_detail::HeaderCell;
using render_detail::intOf;
using render_detail::Json;
using render_detail::member;
using render_detail::stringOf;
using render_detail::TableView;

std::string htmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

namespace {

const char kStyle[] = R"css(
:root {
  --ink: #1c2430; --muted: #5a6675; --rule: #2a323d; --hair: #d3d9e0; --accent: #1f4e79;
  --panel: #f5f7fa; --mono: ui-monospace, "SFMono-Regular", Menlo, Consolas, "DejaVu Sans Mono",
  "Liberation Mono", monospace;
}
* { box-sizing: border-box; }
html { background: #fff; }
body {
  margin: 0; color: var(--ink);
  font: 14px/1.45 system-ui, -apple-system, "Segoe UI", Roboto, "Helvetica Neue", Arial,
    "Noto Sans", "Liberation Sans", "DejaVu Sans", sans-serif;
}
.report-header { padding: 22px 36px 16px; background: var(--panel); border-bottom: 1px solid var(--hair); }
.report-header h1 { margin: 0 0 8px; font-size: 21px; font-weight: 600; letter-spacing: .01em; }
.report-header h1 .kind { color: var(--muted); font-weight: 400; margin-left: .4em; }
.meta { display: flex; flex-wrap: wrap; gap: 4px 28px; margin: 0; font-size: 13px; }
.meta div { display: flex; gap: 6px; }
.meta dt { color: var(--muted); }
.meta dd { margin: 0; }
main { padding: 6px 36px 40px; }
.empty { color: var(--muted); font-style: italic; }
.run { margin: 26px 0 34px; }
.run-title {
  display: flex; flex-wrap: wrap; align-items: baseline; gap: 4px 14px; margin: 0 0 8px;
  padding-bottom: 5px; font-size: 17px; font-weight: 600; color: var(--accent);
  border-bottom: 2px solid var(--accent);
}
.run-title .split { font-size: 14px; font-weight: 400; color: var(--ink); }
.run-title .split::before { content: "Split: "; color: var(--muted); }
.status {
  font-size: 11px; font-weight: 600; text-transform: uppercase; letter-spacing: .05em;
  padding: 1px 7px; border-radius: 9px; color: #fff; background: var(--muted);
}
.status-error { background: #b42318; }
.status-cancelled { background: #b54708; }
details.command-text { margin: 0 0 12px; font-size: 13px; }
details summary { cursor: pointer; color: var(--muted); }
details summary .where { margin-left: .5em; font-size: 12px; }
pre {
  margin: 6px 0 0; padding: 8px 11px; font: 12.5px/1.45 var(--mono); background: var(--panel);
  border: 1px solid var(--hair); border-radius: 4px; overflow: auto;
}
details.command-text pre { white-space: pre-wrap; overflow-wrap: anywhere; }
.messages { margin: 10px 0 14px; display: flex; flex-direction: column; gap: 6px; }
.message {
  display: flex; flex-wrap: wrap; gap: 2px 10px; padding: 6px 11px; font-size: 13.5px;
  border-left: 4px solid; border-radius: 0 4px 4px 0;
}
.message .level { font-weight: 700; }
.message .text { white-space: pre-wrap; }
.message .where { color: var(--muted); font-size: 12px; }
.message-error { border-color: #b42318; background: #fef3f2; }
.message-error .level { color: #b42318; }
.message-warning { border-color: #dc8a09; background: #fffaeb; }
.message-warning .level { color: #93370d; }
.message-note { border-color: #5b8bd0; background: #f0f6fd; }
.message-note .level { color: #1f4e79; }
.item { margin: 22px 0; }
.item-title { margin: 0 0 6px; font-weight: 700; font-size: 14px; }
figure.pivot { display: table; margin: 22px 0; }
figure.pivot > .footnotes { display: table-caption; caption-side: bottom; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
table.pivot, table.notes, table.chart-data {
  border-top: 1.5px solid var(--rule); border-bottom: 1.5px solid var(--rule);
}
table.pivot caption, table.notes caption {
  caption-side: top; text-align: left; font-weight: 700; padding: 0 0 6px;
}
table.pivot th, table.pivot td { padding: 3px 10px; vertical-align: top; }
table.pivot thead th {
  font-weight: 600; vertical-align: bottom; text-align: center; white-space: normal;
}
table.pivot thead th.col-group {
  padding-bottom: 5px;
  background: linear-gradient(var(--rule), var(--rule)) no-repeat center bottom / calc(100% - 12px) 1px;
}
table.pivot thead th.col-leaf, table.pivot thead th.corner { border-bottom: 1px solid var(--rule); }
table.pivot thead th.corner { text-align: left; }
table.pivot th.col-leaf, table.pivot td.cell {
  min-width: var(--col-min, 0); max-width: var(--col-max, none);
}
table.pivot tbody th { text-align: left; font-weight: 400; white-space: nowrap; }
table.pivot tbody th.row-group { font-weight: 600; }
table.pivot tbody tr.group-start > * { border-top: 1px solid var(--hair); }
table.pivot tbody tr:first-child > * { padding-top: 6px; }
table.pivot tbody tr:last-child > * { padding-bottom: 6px; }
td.num { text-align: right; white-space: nowrap; }
td.str { text-align: left; }
sup.mark { font-size: 70%; line-height: 0; margin-left: 1px; font-weight: 400; }
.footnotes { padding-top: 5px; font-size: 12px; color: var(--muted); }
.footnotes p { margin: 1px 0; }
table.notes th, table.notes td { padding: 3px 12px 3px 0; text-align: left; vertical-align: top; }
table.notes th { font-weight: 600; white-space: nowrap; padding-right: 28px; }
table.notes tr + tr > * { border-top: 1px solid var(--hair); }
table.notes td { white-space: pre-wrap; }
.text-item pre { white-space: pre; }
.chart { margin: 22px 0; }
.chart-note { margin: 0 0 8px; font-size: 12px; color: var(--muted); }
table.chart-data { font-size: 12.5px; }
table.chart-data th, table.chart-data td { padding: 2px 10px; }
table.chart-data thead th { font-weight: 600; border-bottom: 1px solid var(--rule); text-align: left; }
table.chart-data thead th.num { text-align: right; }
table.chart-data .kind { display: block; font-weight: 400; color: var(--muted); font-size: 11px; }
details.gpl { margin-top: 4px; font-size: 13px; }
.chart-canvas { margin: 0 0 8px; }
.chart-canvas svg.gpl-chart { display: block; width: 100%; max-width: 640px; height: auto; }
.chart-problem {
  margin: 0 0 8px; padding: 6px 11px; font-size: 13px; color: var(--muted);
  background: var(--panel); border-left: 4px solid var(--hair); border-radius: 0 4px 4px 0;
}
footer { padding: 12px 36px 24px; font-size: 12px; color: var(--muted); border-top: 1px solid var(--hair); }
@media print {
  .report-header { background: none; }
  details > pre { display: block; }
  .chart-canvas svg.gpl-chart { break-inside: avoid; }
  .run { break-inside: avoid-page; }
}
)css";

std::string attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + htmlEscape(value) + "\"";
}

std::string spanAttributes(int rowSpan, int columnSpan) {
  std::string out;
  if (rowSpan > 1) out += " rowspan=\"" + std::to_string(rowSpan) + "\"";
  if (columnSpan > 1) out += " colspan=\"" + std::to_string(columnSpan) + "\"";
  return out;
}

std::string element(const char* tag, const std::string& attributes, const std::string& body) {
  return std::string("<") + tag + attributes + ">" + body + "</" + tag + ">";
}

std::string marksHtml(const std::vector<std::string>& marks) {
  std::string out;
  for (const std::string& mark : marks) out += "<sup class=\"mark\">" + htmlEscape(mark) + "</sup>";
  return out;
}

// ---- document header and runs ---------------------------------------------------------------

std::string metaEntry(const std::string& label, const std::string& valueHtml) {
  return "<div><dt>" + htmlEscape(label) + "</dt><dd>" + valueHtml + "</dd></div>";
}

std::string headerHtml(const Json& document) {
  std::string meta;
  const std::string created = stringOf(document, "created");
  if (!created.empty()) {
    meta +=
        metaEntry("Created", element("time", attribute("datetime", created), htmlEscape(created)));
  }
  const Json& data = member(document, "data");
  if (data.is_object()) {
    meta += metaEntry("Data file", htmlEscape(stringOf(data, "file")));
    if (member(data, "cases").is_number()) {
      meta += metaEntry("Cases", std::to_string(intOf(data, "cases", 0)));
    }
    if (member(data, "variables").is_number()) {
      meta += metaEntry("Variables", std::to_string(intOf(data, "variables", 0)));
    }
  } else {
    meta += metaEntry("Data file", "none");
  }
  const std::string application = stringOf(document, "application", "medanlys");
  return "<header class=\"report-header\">\n<h1>" + htmlEscape(application) +
         "<span class=\"kind\">Output</span></h1>\n<dl class=\"meta\">" + meta +
         "</dl>\n</header>\n";
}

std::string messageHtml(const Json& message) {
  const std::string level = stringOf(message, "level", "note");
  std::string body =
      element("span", " class=\"level\"", htmlEscape(render_detail::levelLabel(level)));
  body += element("span", " class=\"text\"", htmlEscape(stringOf(message, "text")));
  const std::string where = render_detail::messageLocation(message);
  if (!where.empty()) body += element("span", " class=\"where\"", htmlEscape(where));
  return element("div", attribute("class", "message message-" + level), body) + "\n";
}

std::string messagesHtml(const Json& run) {
  const Json& messages = arrayOf(run, "messages");
  if (messages.empty()) return "";
  std::string out = "<div class=\"messages\">\n";
  for (const Json& message : messages) out += messageHtml(message);
  return out + "</div>\n";
}

std::string runTitleHtml(const Json& run) {
  std::string body =
      element("span", " class=\"command\"", htmlEscape(stringOf(run, "command", "(command)")));
  const std::string split = render_detail::splitLabel(run);
  if (!split.empty()) body += element("span", " class=\"split\"", htmlEscape(split));
  const std::string status = stringOf(run, "status", "ok");
  if (status != "ok") {
    body += element("span", attribute("class", "status status-" + status), htmlEscape(status));
  }
  return element("h2", " class=\"run-title\"", body) + "\n";
}

std::string commandHtml(const Json& run) {
  const std::string text = stringOf(run, "text");
  if (text.empty()) return "";
  std::string summary = "Command text";
  if (member(run, "line").is_number()) {
    summary += element("span", " class=\"where\"", "line " + std::to_string(intOf(run, "line", 0)));
  }
  return "<details class=\"command-text\"><summary>" + summary + "</summary><pre>" +
         htmlEscape(text) + "</pre></details>\n";
}

// ---- pivot tables ----------------------------------------------------------------------------

std::string captionHtml(const TableView& view) {
  if (!view.showTitle || view.title.empty()) return "";
  return "<caption>" + htmlEscape(view.title) + marksHtml(view.titleMarks) + "</caption>\n";
}

std::string columnHeaderCellHtml(const HeaderCell& cell) {
  const char* kind = cell.leaf ? "col-leaf" : "col-group";
  const char* scope = cell.leaf ? "col" : "colgroup";
  return "<th" + attribute("class", kind) + attribute("scope", scope) +
         spanAttributes(cell.leaf ? cell.levelSpan : 1, cell.positionSpan) + ">" +
         htmlEscape(cell.label) + "</th>";
}

std::string tableHeadHtml(const TableView& view) {
  const int headerRows = view.columns.levels;
  if (headerRows == 0) return "";
  std::string out = "<thead>\n";
  for (int level = 0; level < headerRows; ++level) {
    out += "<tr>";
    if (level == 0 && view.rows.levels > 0) {
      out += "<th class=\"corner\" scope=\"col\"" + spanAttributes(headerRows, view.rows.levels) +
             ">" + htmlEscape(view.stubHeading) + "</th>";
    }
    for (const HeaderCell& cell : view.columns.cells) {
      if (cell.level == level) out += columnHeaderCellHtml(cell);
    }
    out += "</tr>\n";
  }
  return out + "</thead>\n";
}

std::vector<std::vector<const HeaderCell*>> stubCellsByRow(const TableView& view) {
  std::vector<std::vector<const HeaderCell*>> byRow(view.rows.positions);
  for (const HeaderCell& cell : view.rows.cells) byRow[cell.position].push_back(&cell);
  return byRow;
}

// A light rule goes above a row where a row group starts or right after one ends.
bool startsRowGroup(const TableView& view, int row) {
  if (row == 0) return false;
  for (const HeaderCell& cell : view.rows.cells) {
    if (cell.leaf) continue;
    if (cell.position == row || cell.position + cell.positionSpan == row) return true;
  }
  return false;
}

std::string stubCellHtml(const HeaderCell& cell) {
  return "<th" + attribute("class", cell.leaf ? "row-leaf" : "row-group") +
         attribute("scope", cell.leaf ? "row" : "rowgroup") +
         spanAttributes(cell.positionSpan, cell.levelSpan) + ">" + htmlEscape(cell.label) + "</th>";
}

std::string dataCellHtml(const CellView& cell) {
  const char* kind = cell.numeric ? "cell num" : "cell str";
  return "<td" + attribute("class", kind) + ">" + htmlEscape(cell.text) + marksHtml(cell.marks) +
         "</td>";
}

std::string tableBodyHtml(const TableView& view) {
  const auto stubs = stubCellsByRow(view);
  std::string out = "<tbody>\n";
  for (int row = 0; row < static_cast<int>(view.cells.size()); ++row) {
    out += startsRowGroup(view, row) ? "<tr class=\"group-start\">" : "<tr>";
    if (row < static_cast<int>(stubs.size())) {
      for (const HeaderCell* cell : stubs[row]) out += stubCellHtml(*cell);
    }
    for (const CellView& cell : view.cells[row]) out += dataCellHtml(cell);
    out += "</tr>\n";
  }
  return out + "</tbody>\n";
}

std::string footnotesHtml(const TableView& view) {
  if (view.footnotes.empty()) return "";
  std::string out = "<figcaption class=\"footnotes\">\n";
  for (const auto& note : view.footnotes) {
    out += "<p>" + htmlEscape(note.mark) + ". " + htmlEscape(note.text) + "</p>\n";
  }
  return out + "</figcaption>\n";
}

std::string columnWidthStyle(const TableView& view) {
  std::string style;
  if (view.minColumnWidth > 0) style += "--col-min:" + std::to_string(view.minColumnWidth) + "px;";
  if (view.maxColumnWidth > 0) style += "--col-max:" + std::to_string(view.maxColumnWidth) + "px;";
  return style.empty() ? "" : attribute("style", style);
}

std::string tableHtml(const Json& item) {
  const TableView view = render_detail::buildTableView(item);
  return "<figure class=\"item pivot\">\n<table class=\"pivot\"" + columnWidthStyle(view) + ">\n" +
         captionHtml(view) + tableHeadHtml(view) + tableBodyHtml(view) + "</table>\n" +
         footnotesHtml(view) + "</figure>\n";
}

// ---- other items -----------------------------------------------------------------------------

std::string notesHtml(const Json& item) {
  std::string out = "<div class=\"item notes-item\">\n<table class=\"notes\">\n";
  const std::string title = stringOf(item, "title");
  if (!title.empty()) out += "<caption>" + htmlEscape(title) + "</caption>\n";
  out += "<tbody>\n";
  for (const Json& entry : arrayOf(item, "entries")) {
    out += "<tr><th scope=\"row\">" + htmlEscape(stringOf(entry, "label")) + "</th><td>" +
           htmlEscape(stringOf(entry, "text")) + "</td></tr>\n";
  }
  return out + "</tbody>\n</table>\n</div>\n";
}

std::string textItemHtml(const Json& item) {
  std::string out = "<div class=\"item text-item\">\n";
  const std::string title = stringOf(item, "title");
  if (!title.empty()) out += "<div class=\"item-title\">" + htmlEscape(title) + "</div>\n";
  return out + "<pre>" + htmlEscape(stringOf(item, "text")) + "</pre>\n</div>\n";
}

std::string itemHtml(const Json& item) {
  const std::string type = stringOf(item, "type");
  if (type == "table") return tableHtml(item);
  if (type == "notes") return notesHtml(item);
  if (type == "chart") return renderChartHtml(item);
  if (type == "text") return textItemHtml(item);
  return "<div class=\"item\"><div class=\"item-title\">" + htmlEscape(stringOf(item, "title")) +
         "</div><pre>" + htmlEscape(item.dump(2)) + "</pre></div>\n";
}

std::string runHtml(const Json& run, int index) {
  std::string out = "<section class=\"run\" id=\"run-" + std::to_string(index) + "\">\n";
  out += runTitleHtml(run) + commandHtml(run) + messagesHtml(run);
  for (const Json& item : arrayOf(run, "items")) out += itemHtml(item);
  return out + "</section>\n";
}

// ---- charts ----------------------------------------------------------------------------------

bool isNumericKind(const std::string& kind) { return kind != "string"; }

std::string chartDataHeadHtml(const Json& columns) {
  std::string out = "<thead><tr>";
  for (const Json& column : columns) {
    const std::string kind = stringOf(column, "kind");
    out += "<th" + attribute("class", isNumericKind(kind) ? "num" : "str") + ">" +
           htmlEscape(stringOf(column, "name")) + "<span class=\"kind\">" + htmlEscape(kind) +
           "</span></th>";
  }
  return out + "</tr></thead>\n";
}

std::string chartDataBodyHtml(const Json& columns) {
  size_t rows = 0;
  for (const Json& column : columns) rows = std::max(rows, arrayOf(column, "values").size());
  std::string out = "<tbody>\n";
  for (size_t row = 0; row < rows; ++row) {
    out += "<tr>";
    for (const Json& column : columns) {
      const Json& values = arrayOf(column, "values");
      const bool numeric = isNumericKind(stringOf(column, "kind"));
      const std::string text =
          row < values.size() ? render_detail::formatDataValue(values[row]) : "";
      out += element("td", numeric ? " class=\"num\"" : " class=\"str\"", htmlEscape(text));
    }
    out += "</tr>\n";
  }
  return out + "</tbody>\n";
}

}  // namespace

std::string renderChartHtml(const Json& chart) {
  std::string out = "<figure class=\"item chart\">\n";
  const gpl::ChartDrawing drawing = gpl::drawChart(chart);
  if (drawing.ok) {
    out += "<div class=\"chart-canvas\">" + drawing.svg + "</div>\n";
    if (!drawing.omitted.empty()) {
      std::string parts;
      for (const std::string& part : drawing.omitted) {
        parts += (parts.empty() ? "" : "; ") + htmlEscape(part);
      }
      out += "<p class=\"chart-note\">Not drawn: " + parts + "</p>\n";
    }
  } else {
    out += "<div class=\"item-title\">" + htmlEscape(stringOf(chart, "title", "Chart")) +
           "</div>\n<p class=\"chart-problem\">This chart could not be drawn: " +
           htmlEscape(drawing.problem) + "</p>\n";
  }
  const Json& columns = arrayOf(chart, "data");
  size_t rows = 0;
  for (const Json& column : columns) rows = std::max(rows, arrayOf(column, "values").size());
  // The drawing comes first; its data and GPL source stay folded beneath it.
  out += std::string("<details class=\"chart-data-block\">") +
         "<summary class=\"chart-note\">Chart data (" + std::to_string(columns.size()) +
         (columns.size() == 1 ? " column, " : " columns, ") + std::to_string(rows) +
         (rows == 1 ? " row" : " rows") + ")</summary>\n";
  if (!columns.empty()) {
    out += "<table class=\"chart-data\">\n" + chartDataHeadHtml(columns) +
           chartDataBodyHtml(columns) + "</table>\n";
  }
  out += "</details>\n";
  const std::string gpl = stringOf(chart, "gpl");
  if (!gpl.empty()) {
    out += "<details class=\"gpl\"><summary>GPL</summary><pre>" + htmlEscape(gpl) +
           "</pre></details>\n";
  }
  return out + "</figure>\n";
}

std::string renderHtml(const Json& document) {
  const std::string application = stringOf(document, "application", "medanlys");
  std::string out =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
      htmlEscape(application) + " output</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n";
  out += headerHtml(document) + "<main>\n";
  const Json& runs = arrayOf(document, "runs");
  if (runs.empty()) out += "<p class=\"empty\">No output.</p>\n";
  int index = 0;
  for (const Json& run : runs) out += runHtml(run, ++index);
  out += "</main>\n<footer>Produced by " + htmlEscape(application) + "</footer>\n";
  return out + "</body>\n</html>\n";
}

}  // namespace stathost

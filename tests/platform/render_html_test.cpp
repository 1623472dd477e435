#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/render.h"

namespace {

using nlohmann::json;
using stathost::htmlEscape;
using stathost::renderChartHtml;
using stathost::renderHtml;

// The opening tag of the first <tag ...> element whose whole content is `content`, or "".
std::string openingTag(const std::string& html, const std::string& tag,
                       const std::string& content) {
  const std::string closing = ">" + content + "</" + tag + ">";
  const size_t end = html.find(closing);
  if (end == std::string::npos) return "";
  const size_t start = html.rfind("<" + tag, end);
  if (start == std::string::npos) return "";
  return html.substr(start, end + 1 - start);
}

// The <tr ...>...</tr> element that contains `needle`, or "".
std::string rowContaining(const std::string& html, const std::string& needle) {
  const size_t at = html.find(needle);
  if (at == std::string::npos) return "";
  const size_t start = html.rfind("<tr", at);
  const size_t end = html.find("</tr>", at);
  if (start == std::string::npos || end == std::string::npos) return "";
  return html.substr(start, end + 5 - start);
}

int count(const std::string& text, const std::string& needle) {
  int n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) {
    ++n;
  }
  return n;
}

json leaf(const std::string& label) { return {{"label", label}}; }

json group(const std::string& label, const std::vector<json>& children, bool show = true) {
  return {{"label", label}, {"show_label", show}, {"children", json(children)}};
}

json number(double value, const std::string& text) { return {{"value", value}, {"text", text}}; }

json text(const std::string& value) { return {{"text", value}}; }

json document(json items, json messages = json::array(), const std::string& status = "ok") {
  json run = {{"command", "MEDIATION ANALYSIS"},
              {"text", "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m EXPOSUREVAR=x."},
              {"line", 3},
              {"split", nullptr},
              {"status", status},
              {"messages", messages},
              {"items", items}};
  return {{"format", "medanlys-output"},
          {"version", 1},
          {"application", "medanlys 0.1.0"},
          {"created", "2026-11-22T10:15:00Z"},
          {"data", {{"file", "examples/example.csv"}, {"cases", 200}, {"variables", 6}}},
          {"runs", json::array({run})}};
}

json table(json columns, json rows, json cells) {
  return {{"type", "table"},
          {"title", "Model Summary"},
          {"show_title", true},
          {"footnotes", json::array()},
          {"layout",
           {{"min_data_column_width", 100},
            {"max_data_column_width", 300},
            {"default_format", {{"type", 5}, {"width", 10}, {"decimals", 4}}}}},
          {"column_header", columns},
          {"row_header", rows},
          {"cells", cells}};
}

// Columns: Robust{Estimate, Robust SE}, 95% CI{Bounds{Lower, Upper}}, Sig.
json nestedColumns() {
  return group("Statistics",
               {group("Robust", {leaf("Estimate"), leaf("Robust SE")}),
                group("95% CI", {group("Bounds", {leaf("Lower"), leaf("Upper")})}), leaf("Sig.")},
               false);
}

// Rows: Intercept, Exposure{x}, Mediator{m, m × x}
json groupedRows() {
  return group("Parameter", {leaf("Intercept"), group("Exposure", {leaf("x")}),
                             group("Mediator", {leaf("m"), leaf("m × x")})});
}

json groupedTable() {
  json cells = json::array();
  for (int r = 0; r < 4; ++r) {
    json row = json::array();
    for (int c = 0; c < 5; ++c)
      row.push_back(number(r + c / 10.0, "v" + std::to_string(r * 5 + c)));
    cells.push_back(row);
  }
  return table(nestedColumns(), groupedRows(), cells);
}

std::string renderItem(const json& item) { return renderHtml(document(json::array({item}))); }

TEST(RenderHtml, IsSelfContainedUtf8Document) {
  const std::string html = renderItem(groupedTable());
  EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_NE(html.find("<meta charset=\"utf-8\">"), std::string::npos);
  EXPECT_NE(html.find("<style>"), std::string::npos);
  EXPECT_EQ(html.find("<script"), std::string::npos);
  EXPECT_EQ(html.find("<link"), std::string::npos);
  EXPECT_EQ(html.find("http://"), std::string::npos);
  EXPECT_EQ(html.find("https://"), std::string::npos);
  EXPECT_EQ(html.find("@import"), std::string::npos);
  EXPECT_NE(html.find("</html>"), std::string::npos);
}

TEST(RenderHtml, HeaderShowsApplicationCreationTimeAndDataFile) {
  const std::string html = renderItem(groupedTable());
  const size_t header = html.find("<header");
  const size_t end = html.find("</header>");
  ASSERT_NE(header, std::string::npos);
  const std::string part = html.substr(header, end - header);
  EXPECT_NE(part.find("medanlys 0.1.0"), std::string::npos);
  EXPECT_NE(part.find("2026-11-22T10:15:00Z"), std::string::npos);
  EXPECT_NE(part.find("examples/example.csv"), std::string::npos);
  EXPECT_NE(part.find("200"), std::string::npos);
}

TEST(RenderHtml, DocumentWithoutDataOrRunsStillRenders) {
  json doc = document(json::array());
  doc["data"] = nullptr;
  doc["runs"] = json::array();
  const std::string html = renderHtml(doc);
  EXPECT_NE(html.find("medanlys 0.1.0"), std::string::npos);
  EXPECT_NE(html.find("</html>"), std::string::npos);
}

TEST(RenderHtml, RunHeadingShowsCommandSplitAndCollapsibleCommandText) {
  json doc = document(json::array());
  doc["runs"][0]["split"] = {{"label", "sex = 1 (female)"}, {"values", json::array()}};
  doc["runs"][0]["text"] = "MEDIATION ANALYSIS OUTCOMEVAR=y /PRINT \"a<b\".";
  const std::string html = renderHtml(doc);
  const size_t heading = html.find("<h2");
  const size_t headingEnd = html.find("</h2>");
  ASSERT_NE(heading, std::string::npos);
  const std::string h2 = html.substr(heading, headingEnd - heading);
  EXPECT_NE(h2.find("MEDIATION ANALYSIS"), std::string::npos);
  EXPECT_NE(h2.find("sex = 1 (female)"), std::string::npos);
  const size_t details = html.find("<details", headingEnd);
  ASSERT_NE(details, std::string::npos);
  const size_t command = html.find("MEDIATION ANALYSIS OUTCOMEVAR=y /PRINT &quot;a&lt;b&quot;.");
  EXPECT_GT(command, details);
  EXPECT_LT(command, html.find("</details>", details));
}

TEST(RenderHtml, NestedColumnGroupsGetColspans) {
  const std::string html = renderItem(groupedTable());
  const std::string robust = openingTag(html, "th", "Robust");
  EXPECT_NE(robust.find("colspan=\"2\""), std::string::npos) << robust;
  const std::string ci = openingTag(html, "th", "95% CI");
  EXPECT_NE(ci.find("colspan=\"2\""), std::string::npos) << ci;
  const std::string bounds = openingTag(html, "th", "Bounds");
  EXPECT_NE(bounds.find("colspan=\"2\""), std::string::npos) << bounds;
  // Three header rows: Robust/95% CI, Estimate/Robust SE/Bounds, Lower/Upper.
  EXPECT_NE(openingTag(html, "th", "Estimate").find("rowspan=\"2\""), std::string::npos);
  EXPECT_NE(openingTag(html, "th", "Sig.").find("rowspan=\"3\""), std::string::npos);
  EXPECT_EQ(openingTag(html, "th", "Lower").find("rowspan"), std::string::npos);
  EXPECT_EQ(openingTag(html, "th", "Lower").find("colspan"), std::string::npos);
  // Bounds sits in the second header row, Lower and Upper in the third.
  const std::string second = rowContaining(html, ">Estimate</th>");
  EXPECT_NE(second.find(">Bounds</th>"), std::string::npos);
  const std::string third = rowContaining(html, ">Lower</th>");
  EXPECT_NE(third.find(">Upper</th>"), std::string::npos);
  EXPECT_EQ(third.find(">Bounds</th>"), std::string::npos);
}

TEST(RenderHtml, CornerSpansStubColumnsAndHeaderRows) {
  const std::string html = renderItem(groupedTable());
  const std::string corner = openingTag(html, "th", "Parameter");
  EXPECT_NE(corner.find("rowspan=\"3\""), std::string::npos) << corner;
  EXPECT_NE(corner.find("colspan=\"2\""), std::string::npos) << corner;
}

TEST(RenderHtml, RowGroupLabelSpansItsRows) {
  const std::string html = renderItem(groupedTable());
  const std::string exposureRow = rowContaining(html, ">Exposure</th>");
  EXPECT_NE(exposureRow.find(">x</th>"), std::string::npos) << exposureRow;
  EXPECT_LT(exposureRow.find(">Exposure</th>"), exposureRow.find(">x</th>"));
  EXPECT_EQ(openingTag(html, "th", "Exposure").find("rowspan"), std::string::npos);
  EXPECT_NE(openingTag(html, "th", "Mediator").find("rowspan=\"2\""), std::string::npos);
  const std::string mediatorRow = rowContaining(html, ">Mediator</th>");
  EXPECT_NE(mediatorRow.find(">m</th>"), std::string::npos);
  // The second mediator row is covered by the rowspan: no group cell of its own.
  const std::string secondRow = rowContaining(html, ">m × x</th>");
  EXPECT_EQ(secondRow.find("Mediator"), std::string::npos);
  EXPECT_EQ(count(secondRow, "<th"), 1);
  // An ungrouped row label spans both stub columns.
  EXPECT_NE(openingTag(html, "th", "Intercept").find("colspan=\"2\""), std::string::npos);
  // Every body row holds all five data cells.
  EXPECT_EQ(count(rowContaining(html, ">m × x</th>"), "<td"), 5);
  EXPECT_EQ(count(rowContaining(html, ">Intercept</th>"), "<td"), 5);
}

TEST(RenderHtml, CellsAppearInRowOrder) {
  const std::string html = renderItem(groupedTable());
  const std::string exposureRow = rowContaining(html, ">Exposure</th>");
  EXPECT_NE(exposureRow.find(">v5</td>"), std::string::npos);
  EXPECT_LT(exposureRow.find(">v5</td>"), exposureRow.find(">v9</td>"));
  EXPECT_NE(rowContaining(html, ">m × x</th>").find(">v19</td>"), std::string::npos);
}

TEST(RenderHtml, HiddenLabelsAreNotDrawn) {
  json columns = group("Statistics",
                       {group("Invisible group", {leaf("Estimate"), leaf("SE")}, false),
                        group("", {leaf("Lower")}), leaf("Hidden leaf")},
                       false);
  columns["children"][2]["show_label"] = false;
  json rows = group("Effect", {leaf("NIE"), leaf("NDE")}, false);
  json cells = {{number(1, "1.0000"), number(2, "2.0000"), number(3, "3.0000"), text("a")},
                {number(4, "4.0000"), number(5, "5.0000"), number(6, "6.0000"), text("b")}};
  const std::string html = renderItem(table(columns, rows, cells));
  EXPECT_EQ(html.find("Statistics"), std::string::npos);
  EXPECT_EQ(html.find("Invisible group"), std::string::npos);
  EXPECT_EQ(html.find("Hidden leaf"), std::string::npos);
  EXPECT_EQ(html.find(">Effect<"), std::string::npos);
  // Hidden groups take no header row: a single row of column labels.
  EXPECT_EQ(openingTag(html, "th", "Estimate").find("rowspan"), std::string::npos);
  EXPECT_EQ(
      count(html.substr(html.find("<thead>"), html.find("</thead>") - html.find("<thead>")), "<tr"),
      1);
}

TEST(RenderHtml, ShownColumnRootGetsAHeaderRowOverAllColumns) {
  json columns = group("Statistics", {leaf("Estimate"), leaf("SE"), leaf("Sig.")});
  json rows = group("Effect", {leaf("NIE")});
  json cells = {{number(1, "1.0"), number(2, "2.0"), number(3, "3.0")}};
  const std::string html = renderItem(table(columns, rows, cells));
  EXPECT_NE(openingTag(html, "th", "Statistics").find("colspan=\"3\""), std::string::npos);
}

TEST(RenderHtml, FootnoteMarksNextToTitleAndTextsBelowTable) {
  json item = groupedTable();
  item["title"] = "Mediation Regression Model Summary";
  item["footnotes"] = {{{"mark", "a"}, {"text", "Beta coefficients on the mediator scale"}},
                       {{"mark", "b"}, {"text", "Not estimable"}}};
  item["cells"][1][2]["footnote"] = "b";
  const std::string html = renderItem(item);
  const std::string caption =
      html.substr(html.find("<caption"), html.find("</caption>") - html.find("<caption"));
  EXPECT_NE(caption.find("Mediation Regression Model Summary<sup class=\"mark\">a</sup>"),
            std::string::npos)
      << caption;
  EXPECT_EQ(caption.find(">b</sup>"), std::string::npos);
  EXPECT_NE(rowContaining(html, ">Exposure</th>").find("v7<sup class=\"mark\">b</sup>"),
            std::string::npos);
  const size_t tableEnd = html.find("</table>");
  const size_t noteA = html.find("a. Beta coefficients on the mediator scale");
  const size_t noteB = html.find("b. Not estimable");
  ASSERT_NE(noteA, std::string::npos);
  ASSERT_NE(noteB, std::string::npos);
  EXPECT_GT(noteA, tableEnd);
  EXPECT_LT(noteA, noteB);
}

TEST(RenderHtml, HiddenTitleIsNotShown) {
  json item = groupedTable();
  item["title"] = "Secret Title";
  item["show_title"] = false;
  const std::string html = renderItem(item);
  EXPECT_EQ(html.find("Secret Title"), std::string::npos);
  EXPECT_EQ(html.find("<caption"), std::string::npos);
}

TEST(RenderHtml, NullValuesShowAsDotNeverNan) {
  json rows = group("Effect", {leaf("NIE"), leaf("NDE"), leaf("TE")});
  json columns = group("Statistics", {leaf("Estimate")}, false);
  json cells = {{{{"value", nullptr}, {"text", "."}}},
                {{{"value", nullptr}}},
                {{{"value", nullptr}, {"text", "nan"}}}};
  const std::string html = renderItem(table(columns, rows, cells));
  EXPECT_EQ(count(html, "<td class=\"cell num\">.</td>"), 3);
  EXPECT_EQ(html.find("nan"), std::string::npos);
  EXPECT_EQ(html.find("NaN"), std::string::npos);
}

TEST(RenderHtml, NumbersRightAlignedStringsLeftAligned) {
  json rows = group("Effect", {leaf("NIE")});
  json columns = group("Statistics", {leaf("Estimate"), leaf("Label")}, false);
  json cells = {{number(0.5, "0.5000"), text("Delta a = a - a*")}};
  const std::string html = renderItem(table(columns, rows, cells));
  EXPECT_NE(html.find("<td class=\"cell num\">0.5000</td>"), std::string::npos);
  EXPECT_NE(html.find("<td class=\"cell str\">Delta a = a - a*</td>"), std::string::npos);
  EXPECT_NE(html.find("td.num { text-align: right;"), std::string::npos);
  EXPECT_NE(html.find("tabular-nums"), std::string::npos);
}

TEST(RenderHtml, ShortRowsArePaddedWithEmptyCells) {
  json rows = group("Effect", {leaf("NIE"), leaf("NDE")});
  json columns = group("Statistics", {leaf("A"), leaf("B"), leaf("C")}, false);
  json cells = {{number(1, "1")}, json::array()};
  const std::string html = renderItem(table(columns, rows, cells));
  EXPECT_EQ(count(rowContaining(html, ">NIE</th>"), "<td"), 3);
  EXPECT_EQ(count(rowContaining(html, ">NDE</th>"), "<td"), 3);
}

TEST(RenderHtml, MissingHeaderTreesFallBackToPaths) {
  json item = table(nullptr, nullptr, {{number(1, "1"), number(2, "2")}});
  item.erase("column_header");
  item.erase("row_header");
  item["columns"] =
      json::array({json::array({"Robust", "Estimate"}), json::array({"Robust", "SE"})});
  item["rows"] = json::array({json::array({"Exposure", "x"})});
  const std::string html = renderItem(item);
  EXPECT_NE(openingTag(html, "th", "Robust").find("colspan=\"2\""), std::string::npos);
  const std::string row = rowContaining(html, ">Exposure</th>");
  EXPECT_NE(row.find(">x</th>"), std::string::npos);
}

TEST(RenderHtml, LayoutColumnWidthsBecomeCssLimits) {
  const std::string html = renderItem(groupedTable());
  EXPECT_NE(html.find("--col-min:100px;--col-max:300px;"), std::string::npos);
  EXPECT_NE(html.find("min-width: var(--col-min"), std::string::npos);
  EXPECT_NE(html.find("max-width: var(--col-max"), std::string::npos);
}

TEST(RenderHtml, EscapesReservedCharactersInLabelsCellsAndTitles) {
  json rows = group("Effect", {leaf("a<b")});
  json columns = group("Statistics", {leaf("\"Q\" & A")}, false);
  json cells = {{text("<script>alert('x')</script>")}};
  json item = table(columns, rows, cells);
  item["title"] = "Effects <&>";
  const std::string html = renderItem(item);
  EXPECT_NE(html.find(">a&lt;b</th>"), std::string::npos);
  EXPECT_NE(html.find(">&quot;Q&quot; &amp; A</th>"), std::string::npos);
  EXPECT_NE(html.find("&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;"), std::string::npos);
  EXPECT_NE(html.find("Effects &lt;&amp;&gt;"), std::string::npos);
  EXPECT_EQ(html.find("<script>"), std::string::npos);
}

TEST(RenderHtml, HtmlEscapeHandlesAllReservedCharacters) {
  EXPECT_EQ(htmlEscape("<a href=\"x\">Tom & Jerry's</a>"),
            "&lt;a href=&quot;x&quot;&gt;Tom &amp; Jerry&#39;s&lt;/a&gt;");
  EXPECT_EQ(htmlEscape(""), "");
  EXPECT_EQ(htmlEscape("plain"), "plain");
}

TEST(RenderHtml, Utf8TextPassesThroughUnchanged) {
  EXPECT_EQ(htmlEscape("a — b → c"), "a — b → c");
  json rows = group("Effect", {leaf("x → m → y")});
  json columns = group("Statistics", {leaf("Estimate — robust")}, false);
  json cells = {{text("NIE — natural → indirect")}};
  const std::string html = renderItem(table(columns, rows, cells));
  EXPECT_NE(html.find(">x → m → y</th>"), std::string::npos);
  EXPECT_NE(html.find(">Estimate — robust</th>"), std::string::npos);
  EXPECT_NE(html.find(">NIE — natural → indirect</td>"), std::string::npos);
}

TEST(RenderHtml, MessagesShowTheirLevel) {
  json messages = {
      {{"level", "error"}, {"text", "Outcome Variable is required."}, {"line", 1}, {"column", 12}},
      {{"level", "warning"}, {"text", "Three cases were excluded."}},
      {{"level", "note"}, {"text", "Seed <42>."}}};
  const std::string html = renderHtml(document(json::array(), messages));
  const std::string error = openingTag(html, "span", "Outcome Variable is required.");
  ASSERT_FALSE(error.empty());
  EXPECT_NE(html.find("<div class=\"message message-error\"><span class=\"level\">Error</span>"),
            std::string::npos);
  EXPECT_NE(
      html.find("<div class=\"message message-warning\"><span class=\"level\">Warning</span>"),
      std::string::npos);
  EXPECT_NE(html.find("<div class=\"message message-note\"><span class=\"level\">Note</span>"),
            std::string::npos);
  EXPECT_NE(html.find("Seed &lt;42&gt;."), std::string::npos);
  EXPECT_NE(html.find("line 1, column 12"), std::string::npos);
  EXPECT_LT(html.find("Outcome Variable"), html.find("Three cases"));
}

TEST(RenderHtml, ErrorRunWithoutItemsStillShowsMessages) {
  json messages = {{{"level", "error"}, {"text", "Outcome Variable is required."}}};
  const std::string html = renderHtml(document(json::array(), messages, "error"));
  EXPECT_NE(html.find("Outcome Variable is required."), std::string::npos);
  EXPECT_NE(html.find(">Error</span>"), std::string::npos);
  EXPECT_NE(html.find("status-error"), std::string::npos);
}

json chart() {
  return {
      {"type", "chart"},
      {"title", "Mediation Analysis Forest Plot"},
      {"procedure", "Mediation Analysis"},
      {"gpl", "SOURCE: s = userSource(id(\"Mediation Analysis\"))\nELEMENT: point(position(a*b))"},
      {"data",
       {{{"name", "effect"}, {"kind", "string"}, {"values", {"NIE", "NDE"}}},
        {{"name", "pointLoc"}, {"kind", "double"}, {"values", {0.5, nullptr}}}}}};
}

TEST(RenderHtml, ChartShowsTitleGplAndDataTable) {
  const std::string html = renderChartHtml(chart());
  EXPECT_NE(html.find("Mediation Analysis Forest Plot"), std::string::npos);
  const size_t pre = html.find("<pre>");
  ASSERT_NE(pre, std::string::npos);
  const size_t gpl = html.find(
      "SOURCE: s = userSource(id(&quot;Mediation Analysis&quot;))\nELEMENT: point(position(a*b))");
  EXPECT_GT(gpl, pre);
  EXPECT_LT(gpl, html.find("</pre>"));
  EXPECT_NE(html.find("<table"), std::string::npos);
  EXPECT_NE(openingTag(html, "th", "effect<span class=\"kind\">string</span>"), "");
  EXPECT_NE(html.find(">NIE</td>"), std::string::npos);
  EXPECT_NE(html.find(">0.5</td>"), std::string::npos);
  EXPECT_NE(html.find(">.</td>"), std::string::npos);
  EXPECT_EQ(html.find("nan"), std::string::npos);
  EXPECT_LT(html.find(">NIE</td>"), html.find(">0.5</td>"));
  EXPECT_LT(html.find(">0.5</td>"), html.find(">NDE</td>"));
}

TEST(RenderHtml, ChartIsPartOfTheReport) {
  const std::string html = renderItem(chart());
  EXPECT_NE(html.find(renderChartHtml(chart())), std::string::npos);
}

TEST(RenderHtml, NotesAreATwoColumnTable) {
  json notes = {{"type", "notes"},
                {"title", "Notes"},
                {"entries",
                 {{{"label", "Data file"}, {"text", "examples/example.csv"}},
                  {{"label", "Cases in split group"}, {"text", "200"}}}}};
  const std::string html = renderItem(notes);
  EXPECT_NE(html.find("<tr><th scope=\"row\">Data file</th><td>examples/example.csv</td></tr>"),
            std::string::npos);
  EXPECT_NE(html.find("<tr><th scope=\"row\">Cases in split group</th><td>200</td></tr>"),
            std::string::npos);
  EXPECT_NE(html.find(">Notes</caption>"), std::string::npos);
}

TEST(RenderHtml, TextItemsArePreformatted) {
  json item = {{"type", "text"}, {"title", "Log"}, {"text", "line 1\n  line 2 <x>"}};
  const std::string html = renderItem(item);
  EXPECT_NE(html.find("<pre>line 1\n  line 2 &lt;x&gt;</pre>"), std::string::npos);
  EXPECT_NE(html.find(">Log</div>"), std::string::npos);
}

TEST(RenderHtml, ItemsKeepTheirOrder) {
  json notes = {{"type", "notes"}, {"title", "Notes"}, {"entries", json::array()}};
  json log = {{"type", "text"}, {"title", "Log"}, {"text", "done"}};
  const std::string html = renderHtml(document(json::array({notes, groupedTable(), log})));
  EXPECT_LT(html.find(">Notes</caption>"), html.find(">Model Summary"));
  EXPECT_LT(html.find(">Model Summary"), html.find(">Log</div>"));
}

}  // namespace

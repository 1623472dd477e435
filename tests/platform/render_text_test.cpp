#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/render.h"

namespace {

using nlohmann::json;
using stathost::renderText;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

// Index of the first line containing `needle` at or after `from`, or -1.
int lineWith(const std::vector<std::string>& lines, const std::string& needle, int from = 0) {
  for (int i = from; i < static_cast<int>(lines.size()); ++i) {
    if (lines[i].find(needle) != std::string::npos) return i;
  }
  return -1;
}

int codePoints(const std::string& text) {
  int n = 0;
  for (unsigned char byte : text) n += (byte & 0xC0) != 0x80 ? 1 : 0;
  return n;
}

// Screen column (in code points) where `needle` starts in `line`, or -1.
int columnOf(const std::string& line, const std::string& needle) {
  const size_t at = line.find(needle);
  return at == std::string::npos ? -1 : codePoints(line.substr(0, at));
}

// Screen column just after `needle` in `line`, or -1.
int endColumnOf(const std::string& line, const std::string& needle) {
  const int start = columnOf(line, needle);
  return start < 0 ? -1 : start + codePoints(needle);
}

// True when `word` occurs in `text` not followed by a digit.
bool hasWord(const std::string& text, const std::string& word) {
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    const size_t next = at + word.size();
    if (next == text.size() || !std::isdigit(static_cast<unsigned char>(text[next]))) return true;
  }
  return false;
}

json leaf(const std::string& label) { return {{"label", label}}; }

json group(const std::string& label, const std::vector<json>& children, bool show = true) {
  return {{"label", label}, {"show_label", show}, {"children", json(children)}};
}

json number(double value, const std::string& text) { return {{"value", value}, {"text", text}}; }

json text(const std::string& value) { return {{"text", value}}; }

json run(json items, json messages = json::array(), const std::string& status = "ok") {
  return {{"command", "MEDIATION ANALYSIS"},
          {"text", "MEDIATION ANALYSIS OUTCOMEVAR=y."},
          {"line", 1},
          {"split", nullptr},
          {"status", status},
          {"messages", messages},
          {"items", items}};
}

json document(const std::vector<json>& runs) {
  return {{"format", "medanlys-output"},
          {"version", 1},
          {"application", "medanlys 0.1.0"},
          {"created", "2026-11-22T10:15:00Z"},
          {"data", {{"file", "examples/example.csv"}, {"cases", 200}, {"variables", 6}}},
          {"runs", json(runs)}};
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

std::string renderItem(const json& item, int maxWidth = 0) {
  return renderText(document({run(json::array({item}))}), maxWidth);
}

// Columns: Robust{Estimate, Robust SE}, Sig.; rows: Intercept, Exposure{x}, Mediator{m, m × y}.
json groupedTable() {
  json columns = group(
      "Statistics", {group("Robust", {leaf("Estimate"), leaf("Robust SE")}), leaf("Sig.")}, false);
  json rows = group("Parameter", {leaf("Intercept (Beta0)"), group("Exposure", {leaf("x")}),
                                  group("Mediator", {leaf("m"), leaf("m × y")})});
  json cells = {{number(0.1235, "0.1235"), number(0.0456, "0.0456"), number(0.0071, "0.0071")},
                {number(1.5, "1.5000"), number(0.25, "0.2500"), number(0, "0.0000")},
                {number(-0.3125, "-0.3125"), number(0.1, "0.1000"), number(0.0018, "0.0018")},
                {number(12.5, "12.5000"), number(3, "3.0000"), number(0.5, "0.5000")}};
  return table(columns, rows, cells);
}

TEST(RenderText, RunLineShowsCommandAndSplit) {
  json r = run(json::array());
  r["split"] = {{"label", "sex = 1 (female)"}, {"values", json::array()}};
  const auto lines = linesOf(renderText(document({r})));
  ASSERT_FALSE(lines.empty());
  EXPECT_NE(lines[0].find("MEDIATION ANALYSIS"), std::string::npos);
  EXPECT_NE(lines[0].find("sex = 1 (female)"), std::string::npos);
}

TEST(RenderText, MessagesArePrefixedWithTheirLevel) {
  json messages = {
      {{"level", "error"}, {"text", "Outcome Variable is required."}, {"line", 1}, {"column", 12}},
      {{"level", "warning"}, {"text", "Three cases were excluded."}},
      {{"level", "note"}, {"text", "Seed 42 → bootstrap."}}};
  const auto lines = linesOf(renderText(document({run(json::array(), messages)})));
  const int error = lineWith(lines, "Outcome Variable is required.");
  const int warning = lineWith(lines, "Three cases were excluded.");
  const int note = lineWith(lines, "Seed 42 → bootstrap.");
  ASSERT_GE(error, 0);
  ASSERT_GE(warning, 0);
  ASSERT_GE(note, 0);
  EXPECT_EQ(lines[error].rfind("Error: ", 0), 0u) << lines[error];
  EXPECT_NE(lines[error].find("line 1, column 12"), std::string::npos);
  EXPECT_EQ(lines[warning].rfind("Warning: ", 0), 0u) << lines[warning];
  EXPECT_EQ(lines[note].rfind("Note: ", 0), 0u) << lines[note];
  EXPECT_LT(error, warning);
  EXPECT_LT(warning, note);
}

TEST(RenderText, ErrorRunWithoutItemsStillShowsMessages) {
  json messages = {{{"level", "error"}, {"text", "Outcome Variable is required."}}};
  const std::string out = renderText(document({run(json::array(), messages, "error")}));
  EXPECT_NE(out.find("MEDIATION ANALYSIS"), std::string::npos);
  EXPECT_NE(out.find("Error: Outcome Variable is required."), std::string::npos);
}

// For a reader who saw the messages on standard error already (the same screen).
TEST(RenderText, MessagesCanBeLeftOut) {
  json messages = {{{"level", "warning"}, {"text", "Three cases were excluded."}}};
  json item = {{"type", "text"}, {"title", "Log"}, {"text", "line 1"}};
  const std::string out =
      renderText(document({run(json::array({item}), messages, "ok")}), 0, false);
  EXPECT_EQ(out.find("Three cases were excluded."), std::string::npos) << out;
  EXPECT_NE(out.find("MEDIATION ANALYSIS"), std::string::npos) << out;
  EXPECT_NE(out.find("line 1"), std::string::npos) << out;
}

TEST(RenderText, RunsAreSeparated) {
  json first = run(json::array());
  json second = run(json::array());
  second["command"] = "OTHER COMMAND";
  const auto lines = linesOf(renderText(document({first, second})));
  const int a = lineWith(lines, "MEDIATION ANALYSIS");
  const int b = lineWith(lines, "OTHER COMMAND");
  ASSERT_GE(a, 0);
  ASSERT_GT(b, a);
  EXPECT_TRUE(lines[b - 1].empty());
}

TEST(RenderText, ColumnGroupLabelIsCentredOverItsSpan) {
  const auto lines = linesOf(renderItem(groupedTable()));
  const int header = lineWith(lines, "Robust");
  const int leaves = lineWith(lines, "Robust SE");
  ASSERT_GE(header, 0);
  ASSERT_GT(leaves, header);
  const int spanStart = columnOf(lines[leaves], "Estimate");
  const int spanEnd = endColumnOf(lines[leaves], "Robust SE");
  const int labelStart = columnOf(lines[header], "Robust");
  const int labelEnd = endColumnOf(lines[header], "Robust");
  EXPECT_GE(labelStart, spanStart);
  EXPECT_LE(labelEnd, spanEnd);
  EXPECT_LE(std::abs((labelStart - spanStart) - (spanEnd - labelEnd)), 1) << lines[header] << "\n"
                                                                          << lines[leaves];
  // The rule under the group covers exactly the span, and nothing over "Sig.".
  const std::string& rule = lines[header + 1];
  EXPECT_EQ(columnOf(rule, "-"), spanStart) << rule;
  EXPECT_EQ(static_cast<int>(rule.find_last_of('-')) + 1, spanEnd) << rule;
  EXPECT_EQ(lines[header].find("Sig."), std::string::npos);
}

TEST(RenderText, LeafSpanningHeaderRowsIsOnTheLastHeaderRow) {
  const auto lines = linesOf(renderItem(groupedTable()));
  const int leaves = lineWith(lines, "Robust SE");
  ASSERT_GE(leaves, 0);
  EXPECT_NE(lines[leaves].find("Sig."), std::string::npos);
  EXPECT_NE(lines[leaves].find("Parameter"), std::string::npos);
}

TEST(RenderText, RowGroupLabelsAreInTheStub) {
  const auto lines = linesOf(renderItem(groupedTable()));
  const int exposure = lineWith(lines, "Exposure");
  ASSERT_GE(exposure, 0);
  EXPECT_EQ(columnOf(lines[exposure], "Exposure"), 0);
  EXPECT_GT(columnOf(lines[exposure], " x "), columnOf(lines[exposure], "Exposure"));
  EXPECT_NE(lines[exposure].find("1.5000"), std::string::npos);
  const int mediator = lineWith(lines, "Mediator");
  ASSERT_GE(mediator, 0);
  EXPECT_NE(lines[mediator].find(" m "), std::string::npos);
  EXPECT_NE(lines[mediator].find("-0.3125"), std::string::npos);
  // The group's second row has its leaf label in the same stub column and no group label.
  const int second = lineWith(lines, "m × y");
  ASSERT_EQ(second, mediator + 1);
  EXPECT_EQ(lines[second].find("Mediator"), std::string::npos);
  EXPECT_EQ(columnOf(lines[second], "m × y"), columnOf(lines[mediator], " m ") + 1);
  EXPECT_EQ(columnOf(lines[exposure], " x "), columnOf(lines[mediator], " m "));
}

TEST(RenderText, NumericCellsAreRightAlignedInCodePoints) {
  const auto lines = linesOf(renderItem(groupedTable()));
  const int intercept = lineWith(lines, "Intercept (Beta0)");
  const int exposure = lineWith(lines, "Exposure");
  const int mediator = lineWith(lines, "Mediator");
  const int second = lineWith(lines, "m × y");
  ASSERT_GE(intercept, 0);
  const int estimateEnd = endColumnOf(lines[intercept], "0.1235");
  EXPECT_EQ(endColumnOf(lines[exposure], "1.5000"), estimateEnd);
  EXPECT_EQ(endColumnOf(lines[mediator], "-0.3125"), estimateEnd);
  EXPECT_EQ(endColumnOf(lines[second], "12.5000"), estimateEnd) << lines[second];
  const int sigEnd = endColumnOf(lines[intercept], "0.0071");
  EXPECT_EQ(endColumnOf(lines[second], "0.5000"), sigEnd) << lines[second];
  EXPECT_EQ(endColumnOf(lines[second], "0.5000"), codePoints(lines[second]));
}

TEST(RenderText, Utf8LabelsKeepColumnsAligned) {
  json columns = group("Statistics", {leaf("Effect — total"), leaf("Estimate")}, false);
  json rows = group("Path", {leaf("x → m"), leaf("x"), leaf("m → y → z")});
  json cells = {{text("NIE — a"), number(1, "1.0000")},
                {text("plain"), number(22, "22.0000")},
                {text("→ end"), number(3, "3.0000")}};
  const auto lines = linesOf(renderItem(table(columns, rows, cells)));
  const int a = lineWith(lines, "x → m");
  const int b = lineWith(lines, "plain");
  const int c = lineWith(lines, "m → y → z");
  ASSERT_GE(a, 0);
  ASSERT_GE(b, 0);
  ASSERT_GE(c, 0);
  EXPECT_EQ(endColumnOf(lines[a], "1.0000"), endColumnOf(lines[b], "22.0000"));
  EXPECT_EQ(endColumnOf(lines[c], "3.0000"), endColumnOf(lines[b], "22.0000"));
  EXPECT_EQ(columnOf(lines[a], "NIE — a"), columnOf(lines[b], "plain"));
  EXPECT_EQ(columnOf(lines[c], "→ end"), columnOf(lines[b], "plain"));
  const int header = lineWith(lines, "Effect — total");
  EXPECT_EQ(columnOf(lines[header], "Effect — total"), columnOf(lines[b], "plain"));
  // Rule lines are as wide as the widest row.
  const int rule = lineWith(lines, "====");
  EXPECT_GE(codePoints(lines[rule]), codePoints(lines[c]));
}

TEST(RenderText, FootnotesFollowTheTableAndMarksFollowTheTitle) {
  json item = groupedTable();
  item["title"] = "Mediation Regression Model Summary";
  item["footnotes"] = {{{"mark", "a"}, {"text", "Beta coefficients on the mediator scale"}},
                       {{"mark", "b"}, {"text", "Not estimable"}}};
  item["cells"][1][1]["footnote"] = "b";
  const auto lines = linesOf(renderItem(item));
  const int title = lineWith(lines, "Mediation Regression Model Summary");
  ASSERT_GE(title, 0);
  EXPECT_NE(lines[title].find("Summary [a]"), std::string::npos) << lines[title];
  EXPECT_EQ(lines[title].find("[b]"), std::string::npos);
  EXPECT_NE(lines[lineWith(lines, "Exposure")].find("0.2500[b]"), std::string::npos);
  const int noteA = lineWith(lines, "a. Beta coefficients on the mediator scale");
  const int noteB = lineWith(lines, "b. Not estimable");
  ASSERT_GE(noteA, 0);
  EXPECT_EQ(noteB, noteA + 1);
  EXPECT_EQ(lines[noteA].rfind("a. ", 0), 0u);
  const int lastRow = lineWith(lines, "m × y");
  EXPECT_GT(noteA, lastRow);
  EXPECT_EQ(lines[noteA - 1].find_first_not_of('='), std::string::npos) << lines[noteA - 1];
}

TEST(RenderText, NullValuesShowAsDotNeverNan) {
  json columns = group("Statistics", {leaf("Estimate"), leaf("SE")}, false);
  json rows = group("Effect", {leaf("NIE"), leaf("NDE")});
  json cells = {{{{"value", nullptr}, {"text", "nan"}}, {{"value", nullptr}}},
                {{{"value", nullptr}, {"text", "."}}, number(0.5, "0.5000")}};
  const std::string out = renderItem(table(columns, rows, cells));
  EXPECT_EQ(out.find("nan"), std::string::npos);
  const auto lines = linesOf(out);
  const std::string& header = lines[lineWith(lines, "Estimate")];
  const std::string& nie = lines[lineWith(lines, "NIE")];
  const std::string& nde = lines[lineWith(lines, "NDE")];
  // Both NIE cells are a right-aligned ".".
  EXPECT_EQ(static_cast<int>(nie.find('.')) + 1, endColumnOf(header, "Estimate")) << nie;
  EXPECT_EQ(static_cast<int>(nie.rfind('.')) + 1, endColumnOf(header, "SE")) << nie;
  EXPECT_EQ(static_cast<int>(nde.find('.')) + 1, endColumnOf(header, "Estimate")) << nde;
  EXPECT_EQ(endColumnOf(nde, "0.5000"), endColumnOf(header, "SE")) << nde;
}

TEST(RenderText, HiddenLabelsAreNotDrawn) {
  json columns = group("Statistics",
                       {group("Invisible group", {leaf("Estimate"), leaf("SE")}, false),
                        group("", {leaf("Lower")}), leaf("Hidden leaf")},
                       false);
  columns["children"][2]["show_label"] = false;
  json rows = group("Effect", {leaf("NIE")}, false);
  json cells = {{number(1, "1.0"), number(2, "2.0"), number(3, "3.0"), text("z")}};
  const std::string out = renderItem(table(columns, rows, cells));
  EXPECT_EQ(out.find("Statistics"), std::string::npos);
  EXPECT_EQ(out.find("Invisible group"), std::string::npos);
  EXPECT_EQ(out.find("Hidden leaf"), std::string::npos);
  EXPECT_EQ(out.find("Effect"), std::string::npos);
  const auto lines = linesOf(out);
  const int labels = lineWith(lines, "Estimate");
  ASSERT_GE(labels, 0);
  EXPECT_NE(lines[labels - 1].find("===="), std::string::npos) << "no empty group row above";
}

TEST(RenderText, HiddenTitleIsNotShown) {
  json item = groupedTable();
  item["title"] = "Secret Title";
  item["show_title"] = false;
  EXPECT_EQ(renderItem(item).find("Secret Title"), std::string::npos);
}

TEST(RenderText, StringCellsAreLeftAligned) {
  json columns = group("Statistics", {leaf("Description"), leaf("Value")}, false);
  json rows = group("Effect", {leaf("A"), leaf("B")});
  json cells = {{text("Delta a = a - a*"), number(1, "1.0")}, {text("short"), number(2, "2.0")}};
  const auto lines = linesOf(renderItem(table(columns, rows, cells)));
  const int a = lineWith(lines, "Delta a");
  const int b = lineWith(lines, "short");
  EXPECT_EQ(columnOf(lines[a], "Delta a"), columnOf(lines[b], "short"));
}

TEST(RenderText, ChartShowsTitleAndDataColumnCount) {
  json chart = {{"type", "chart"},
                {"title", "Mediation Analysis Forest Plot"},
                {"gpl", "SOURCE: s\nELEMENT: point()"},
                {"data",
                 {{{"name", "effect"}, {"kind", "string"}, {"values", {"NIE", "NDE"}}},
                  {{"name", "pointLoc"}, {"kind", "double"}, {"values", {0.5, nullptr}}}}}};
  const auto lines = linesOf(renderItem(chart));
  const int title = lineWith(lines, "Mediation Analysis Forest Plot");
  ASSERT_GE(title, 0);
  EXPECT_EQ(lines[title + 1], "(chart: 2 data columns; see the HTML report)");
}

TEST(RenderText, TextItemsArePrintedAsTheyAre) {
  const std::string body = "  indented line\nline with    spaces → kept\n\nafter blank";
  json item = {{"type", "text"}, {"title", "Log"}, {"text", body}};
  const std::string out = renderItem(item, 20);
  EXPECT_NE(out.find("Log\n" + body + "\n"), std::string::npos) << out;
}

TEST(RenderText, NotesShowLabelsAndTexts) {
  json notes = {{"type", "notes"},
                {"title", "Notes"},
                {"entries",
                 {{{"label", "Data file"}, {"text", "examples/example.csv"}},
                  {{"label", "Cases in split group"}, {"text", "200"}}}}};
  const auto lines = linesOf(renderItem(notes));
  const int file = lineWith(lines, "Data file");
  const int cases = lineWith(lines, "Cases in split group");
  ASSERT_GE(file, 0);
  ASSERT_GE(cases, 0);
  EXPECT_EQ(columnOf(lines[file], "examples/example.csv"), columnOf(lines[cases], "200"));
  EXPECT_GE(lineWith(lines, "Notes"), 0);
}

TEST(RenderText, WideTablesAreSplitIntoPanelsWithinMaxWidth) {
  std::vector<json> leaves;
  json row = json::array();
  for (int c = 0; c < 12; ++c) {
    leaves.push_back(leaf("Column " + std::to_string(c)));
    row.push_back(number(c * 1000.5, std::to_string(c * 1000) + ".5000"));
  }
  json columns = group("Statistics", {group("All columns", leaves)}, false);
  json rows = group("Effect", {leaf("Natural indirect effect")});
  const std::string wide = renderItem(table(columns, rows, json::array({row})), 0);
  const auto wideLines = linesOf(wide);
  EXPECT_NE(wideLines[lineWith(wideLines, "Column 0")].find("Column 11"), std::string::npos);

  const std::string narrow = renderItem(table(columns, rows, json::array({row})), 60);
  const auto lines = linesOf(narrow);
  for (const std::string& line : lines) EXPECT_LE(codePoints(line), 60) << line;
  for (int c = 0; c < 12; ++c) {
    EXPECT_TRUE(hasWord(narrow, "Column " + std::to_string(c))) << "Column " << c;
    EXPECT_NE(narrow.find(std::to_string(c * 1000) + ".5000"), std::string::npos);
  }
  // Every panel repeats the stub and the group label.
  int stubs = 0;
  for (const std::string& line : lines) stubs += line.rfind("Natural indirect effect", 0) == 0;
  EXPECT_GT(stubs, 1);
  int groups = 0;
  for (const std::string& line : lines) groups += line.find("All columns") != std::string::npos;
  EXPECT_EQ(groups, stubs);
}

TEST(RenderText, LongTextsWrapWithinMaxWidth) {
  json messages = {{{"level", "warning"},
                    {"text",
                     "This is a rather long warning message that will certainly not fit into "
                     "forty columns of a narrow terminal window."}}};
  json columns = group("Statistics", {leaf("Description")}, false);
  json rows = group("Effect", {leaf("A")});
  json cells = {{text("A long description of the effect that should wrap inside its column")}};
  json item = table(columns, rows, cells);
  item["footnotes"] = {
      {{"mark", "a"}, {"text", "A footnote that is also too long for a forty column terminal."}}};
  const std::string out = renderText(document({run(json::array({item}), messages)}), 40);
  for (const std::string& line : linesOf(out)) EXPECT_LE(codePoints(line), 40) << line;
  EXPECT_NE(out.find("Warning: This is"), std::string::npos);
  EXPECT_NE(out.find("\n         "), std::string::npos) << "continuation lines are indented";
  EXPECT_NE(out.find("a. A footnote"), std::string::npos);
}

TEST(RenderText, NoWidthLimitKeepsLinesWhole) {
  json messages = {{{"level", "note"}, {"text", std::string(150, 'x')}}};
  const std::string out = renderText(document({run(json::array(), messages)}));
  EXPECT_NE(out.find("Note: " + std::string(150, 'x') + "\n"), std::string::npos);
}

}  // namespace

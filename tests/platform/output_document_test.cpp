#include <gtest/gtest.h>

#include <cmath>

#include "stathost/case_adapter.h"
#include "stathost/gpl_graph.h"
#include "stathost/output_table.h"
#include "stathost/procedure.h"
#include "test_util.h"

namespace {

using namespace stathost;
using nlohmann::json;

// A table with a nested column group, a row group and one non-finite value.
json buildTable(StatJSONGenerator& gen) {
  Table t(&gen, "Model");
  t.set_table_title("Model Summary");
  t.set_min_data_column_width(100);
  t.set_max_data_column_width(300);
  t.set_default_cell_format(STAX_Format::FMT_FIXED, 10, 4);
  t.addFootnoteRefs(1);
  t.add_footnote("First note.");
  t.addFootnoteRefs(2);
  t.add_footnote("Second note.");

  Descendants cols(&t);
  Descendants robust(&t);
  robust.set_label("Robust");
  cols.addDescendants(&robust);
  Cell est(&t, CELL_LABEL), se(&t, CELL_LABEL), p(&t, CELL_LABEL);
  est.setValue("Estimate");
  se.setValue("SE");
  p.setValue("p-value");
  robust.addCell(&est);  // filled after being attached: the parent sees it
  robust.addCell(&se);
  cols.addCell(&p);

  Descendants rows(&t);
  rows.set_label("Parameter");
  rows.setShowLabel(false);
  Descendants covariates(&t);
  covariates.set_label("Covariates");
  Cell r0(&t, CELL_LABEL), r1(&t, CELL_LABEL);
  r0.setValue("Intercept");
  r1.setValue("age");
  rows.addCell(&r0);
  rows.addDescendants(&covariates);
  covariates.addCell(&r1);

  Cells cells(&t);
  Cell a(&t, CELL_DATA), b(&t, CELL_DATA), c(&t, CELL_DATA), d(&t, CELL_DATA), e(&t, CELL_DATA);
  a.setValue(1.23456789);
  b.setValue(std::nan(""));
  c.setValue(-0.00001);
  d.setValue(INFINITY);
  e.setValue("n/a");
  cells.addCells({&a, &b, &c});
  cells.addCells({&d, &e});
  Dimension dim(&t, &rows, &cols);
  t.set_dimensions(&dim);
  t.set_cells(&cells);
  EXPECT_EQ(t.addTableToProcedureJSON(), 0);
  return json::parse(gen.getProcedureStatJSON())["items"][0];
}

TEST(OutputDocument, TableCarriesTitlePathsFootnotesAndNumbers) {
  StatJSONGenerator gen("Test Procedure");
  const json t = buildTable(gen);
  EXPECT_EQ(t["type"], "table");
  EXPECT_EQ(t["title"], "Model Summary");
  EXPECT_EQ(t["show_title"], true);
  EXPECT_EQ(t["footnotes"], json::parse(R"([{"mark":"a","text":"First note."},
                                            {"mark":"b","text":"Second note."}])"));
  EXPECT_EQ(t["columns"], json::parse(R"([["Robust","Estimate"],["Robust","SE"],["p-value"]])"));
  EXPECT_EQ(t["rows"], json::parse(R"([["Intercept"],["Covariates","age"]])"));
  EXPECT_EQ(t["row_header"]["label"], "Parameter");
  EXPECT_EQ(t["row_header"]["show_label"], false);
  EXPECT_EQ(t["column_header"]["children"][0]["label"], "Robust");
  EXPECT_EQ(t["layout"]["min_data_column_width"], 100);
  EXPECT_EQ(t["layout"]["default_format"]["type"], 5);

  const json& row0 = t["cells"][0];
  EXPECT_DOUBLE_EQ(row0[0]["value"].get<double>(), 1.23456789);  // full precision kept
  EXPECT_EQ(row0[0]["text"], "1.2346");
  EXPECT_TRUE(row0[1]["value"].is_null());
  EXPECT_EQ(row0[1]["text"], ".");
  EXPECT_EQ(row0[2]["text"], "0.0000");  // no "-0.0000"
  EXPECT_TRUE(t["cells"][1][0]["value"].is_null());
  EXPECT_EQ(t["cells"][1][1]["text"], "n/a");
  EXPECT_FALSE(t["cells"][1][1].contains("value"));
}

TEST(OutputDocument, RowWiderThanTheColumnsIsRefused) {
  StatJSONGenerator gen("P");
  Table t(&gen, "T");
  Descendants cols(&t), rows(&t);
  Cell c(&t, CELL_LABEL);
  c.setValue("only");
  cols.addCell(&c);
  rows.addCell(&c);
  Cells cells(&t);
  cells.addCells({&c, &c});
  Dimension dim(&t, &rows, &cols);
  t.set_dimensions(&dim);
  t.set_cells(&cells);
  EXPECT_EQ(t.addTableToProcedureJSON(), 1);
  EXPECT_EQ(gen.itemCount(), 0u);
}

class TwoColumnChart : public StatGPLGraph {
 public:
  using StatGPLGraph::StatGPLGraph;
};

TEST(OutputDocument, ChartCarriesGplAndColumns) {
  StatJSONGenerator gen("Mediation Analysis");
  TwoColumnChart chart(&gen, "Forest");
  chart.addStringDataVariable({"NIE", "NDE"}, "effect");
  chart.addDoubleDataVariable({0.5, std::nan("")}, "pointLoc");
  ASSERT_EQ(chart.addGPLGraphToProcedureJSON(), 0);
  const json c = json::parse(gen.getProcedureStatJSON())["items"][0];
  EXPECT_EQ(c["type"], "chart");
  EXPECT_EQ(c["title"], "Forest");
  EXPECT_EQ(c["gpl"],
            "SOURCE: s = userSource(id(\"Mediation Analysis\"))\n"
            "DATA: effect = col(source(s), name(\"effect\"), unit.category())\n"
            "DATA: pointLoc = col(source(s), name(\"pointLoc\"))\n");
  EXPECT_EQ(c["data"][1]["values"], json::parse("[0.5, null]"));
}

TEST(OutputDocument, ConverterHandsItemsToTheHostAfterTheNotes) {
  testsupport::ActiveData data({testsupport::numericColumn("x", {1, 2, 3})});
  HostSession::instance().setCurrentCommand("TEST.", 1, "cmd.sps");
  BpProcedure procedure("Test", 10);
  ProcedureDataSource source;
  ACAVarValidSpecs* noSpecs = nullptr;
  const OPSCommonOutput common(noSpecs, source, &procedure, nullptr);
  (void)common;
  StatJSONGenerator gen("Test");
  buildTable(gen);
  StatJSONConverter converter(procedure);
  EXPECT_EQ(converter.generateOutput("not json"), 1);
  ASSERT_EQ(converter.generateOutput(gen.getProcedureStatJSON()), 0);
  const RunRecord record = HostSession::instance().endRun();
  ASSERT_EQ(record.items.size(), 2u);
  EXPECT_EQ(record.items[0]["type"], "notes");
  EXPECT_EQ(record.items[0]["entries"][0]["text"], "test-data");
  EXPECT_EQ(record.items[0]["entries"][1]["text"], "3");
  EXPECT_EQ(record.items[1]["type"], "table");
}

TEST(FootnoteMarks, RunThroughTheAlphabet) {
  EXPECT_EQ(footnoteMark(1), "a");
  EXPECT_EQ(footnoteMark(26), "z");
  EXPECT_EQ(footnoteMark(27), "aa");
}

TEST(NumberFormat, NonFiniteIsTheMissingMark) {
  EXPECT_EQ(formatNumber(NAN, STAX_Format::FMT_FIXED, 10, 4), ".");
  EXPECT_EQ(formatNumber(-INFINITY, STAX_Format::FMT_GENERAL, 10, 4), ".");
  EXPECT_EQ(formatNumber(2.5, STAX_Format::FMT_FIXED, 10, 4), "2.5000");
  EXPECT_EQ(formatNumber(0.1, STAX_Format::FMT_GENERAL, 10, 4), "0.1");
  EXPECT_EQ(formatNumber(1e300, STAX_Format::FMT_FIXED, 10, 2), "1.00E+300");
}

}  // namespace

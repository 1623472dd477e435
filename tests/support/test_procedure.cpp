#include "test_procedure.h"

#include <cmath>
#include <map>
#include <memory>
#include <vector>

#include "stathost/case_adapter.h"
#include "stathost/data_source.h"
#include "stathost/gpl_graph.h"
#include "stathost/output_table.h"
#include "stathost/parsed_command.h"
#include "stathost/parser_message.h"
#include "stathost/procedure.h"
#include "stathost/stop_processor.h"
#include "stathost/universal_parser.h"
#include "test_grammar.h"

using namespace stathost;

namespace {

struct Role {
  std::string role;
  std::string variable;
  int index = -1;
};

// ROLE=name pairs and WITH/BY lists from the raw tokens of the unnamed subcommand.
bool readRoles(const SubComObj& unnamed, const ProcedureDataSource& source,
               const ParserMessage& msg, std::vector<Role>& roles) {
  const auto& t = unnamed.getTokens();
  std::string list;
  for (std::size_t i = 0; i < t.size(); ++i) {
    if (t[i].isKeyword("WITH") || t[i].isKeyword("BY")) {
      list = t[i].getUpperText();
      if (i + 1 == t.size()) {
        if (list == "WITH")
          msg.NoCovariateAfterKeyword("WITH");
        else
          msg.NoFactorAfterKeyword("BY");
        return false;
      }
      continue;
    }
    Role r;
    if (list.empty()) {
      if (i + 2 >= t.size() || !t[i + 1].is(TokenType::kEquals)) {
        msg.GenericError("Expected ROLE=variable at line ^1, column ^2.",
                         std::to_string(t[i].getLine()), std::to_string(t[i].getColumn()));
        return false;
      }
      r.role = t[i].getUpperText();
      r.variable = t[i + 2].getText();
      i += 2;
    } else {
      r.role = list;
      r.variable = t[i].getText();
    }
    r.index = source.findVariable(r.variable);
    if (r.index < 0) {
      msg.GenericError("Variable ^1 specified for ^2 is not in the active data set.", r.variable,
                       r.role);
      return false;
    }
    const STAX_Variable* v = source.getVariable(r.index);
    if (r.role == "BY" && !v->isCategorical()) {
      msg.GenericError("BY variable ^1 must be categorical", v->getName());
      return false;
    }
    if (r.role != "BY" && !v->isNumeric()) {
      msg.GenericError("Variable ^1 specified for ^2 must be numeric.", v->getName(), r.role);
      return false;
    }
    roles.push_back(r);
  }
  return true;
}

struct Moments {
  double n = 0, sum = 0, sum2 = 0, min = INFINITY, max = -INFINITY;
  void add(double v) {
    n += 1;
    sum += v;
    sum2 += v * v;
    min = std::min(min, v);
    max = std::max(max, v);
  }
  double mean() const { return n > 0 ? sum / n : NAN; }
  double sd() const { return n > 1 ? std::sqrt((sum2 - sum * sum / n) / (n - 1)) : NAN; }
};

class ScatterChart : public StatGPLGraph {
 public:
  ScatterChart(StatJSONGenerator* gen, std::string x, std::string y)
      : StatGPLGraph(gen, "Scatter Plot: " + y + " vs " + x), x_(std::move(x)), y_(std::move(y)) {}

 protected:
  std::string getGPLText() override {
    return "SOURCE: s = userSource(id(\"" + getProcedureName() + "\"))\n" +
           "DATA: xdata = col(source(s), name(\"xdata\"))\n" +
           "DATA: ydata = col(source(s), name(\"ydata\"))\n" + "GRAPH: begin()\n" +
           "GUIDE: axis(dim(2), label(\"" + y_ + "\"))\n" + "GUIDE: axis(dim(1), label(\"" + x_ +
           "\"))\n" + "GUIDE: text.title(label(\"" + title() + "\"))\n" +
           "ELEMENT: point(position(xdata*ydata))\n" + "GRAPH: end()\n";
  }

 private:
  std::string x_, y_;
};

void emitSummary(StatJSONGenerator& gen, const std::vector<Role>& roles,
                 const std::vector<Moments>& moments, const CommandSpec& parsed) {
  Table table(&gen, "Variable Summary");
  table.set_table_title("Variable Summary");
  table.hide_title(false);
  table.set_min_data_column_width(100);
  table.set_max_data_column_width(300);
  table.set_default_cell_format(STAX_Format::FMT_FIXED, 10, 4);
  table.addFootnoteRefs(1);
  table.add_footnote("Listwise: cases with a missing value in any variable are left out.");
  if (const SubComObj* criteria = parsed.getSubCom("CRITERIA")) {
    if (const ParamObj* level = criteria->getParam("CILEVEL")) {
      table.addFootnoteRefs(2);
      table.add_footnote("Confidence level " + level->getValueText() + "%.");
    }
  }
  Descendants columns(&table);
  Cell n(&table, CELL_LABEL);
  n.setValue("N");
  columns.addCell(&n);
  Descendants momentsGroup(&table);
  momentsGroup.set_label("Moments");
  columns.addDescendants(&momentsGroup);
  Cell mean(&table, CELL_LABEL), sd(&table, CELL_LABEL);
  mean.setValue("Mean");
  sd.setValue("SD");
  momentsGroup.addCell(&mean);
  momentsGroup.addCell(&sd);
  Descendants rangeGroup(&table);
  rangeGroup.set_label("Range");
  Cell lo(&table, CELL_LABEL), hi(&table, CELL_LABEL);
  lo.setValue("Minimum");
  hi.setValue("Maximum");
  rangeGroup.addCell(&lo);
  rangeGroup.addCell(&hi);
  columns.addDescendants(&rangeGroup);

  Descendants rows(&table);
  rows.set_label("Role");
  rows.setShowLabel(false);
  std::map<std::string, std::unique_ptr<Descendants>> groups;
  std::vector<std::unique_ptr<Cell>> labels;
  Cells cells(&table);
  for (std::size_t i = 0; i < roles.size(); ++i) {
    auto& group = groups[roles[i].role];
    if (!group) {
      group = std::make_unique<Descendants>(&table);
      group->set_label(roles[i].role);
      rows.addDescendants(group.get());
    }
    labels.push_back(std::make_unique<Cell>(&table, CELL_LABEL));
    labels.back()->setValue(roles[i].variable);
    group->addCell(labels.back().get());
  }
  // Rows follow the order of the row tree: group by group.
  for (const auto& child : rows.node()->children) {
    for (std::size_t i = 0; i < roles.size(); ++i) {
      if (roles[i].role != child->label) continue;
      Cell c0(&table, CELL_DATA), c1(&table, CELL_DATA), c2(&table, CELL_DATA),
          c3(&table, CELL_DATA), c4(&table, CELL_DATA);
      c0.setValue(moments[i].n);
      c0.setFormat(STAX_Format::FMT_INTEGER, 10, 0);
      c1.setValue(moments[i].mean());
      c2.setValue(moments[i].sd());
      c3.setValue(moments[i].min);
      c4.setValue(moments[i].max);
      cells.addCells({&c0, &c1, &c2, &c3, &c4});
    }
  }
  Dimension dimension(&table, &rows, &columns);
  table.set_dimensions(&dimension);
  table.set_cells(&cells);
  table.addTableToProcedureJSON();
}

void run() {
  BpProcedure procedure("Test Procedure", 10);
  ProcedureDataSource source;
  CommandDescriptor command(testsupport::kTestCommand);
  STAX_TokenSequence tokens(true);
  ParserMessage msg;
  msg.SetCommandName(testsupport::kTestCommand);
  msg.SetProcedureTitle("Test Procedure");
  testsupport::declareTestGrammar(command);
  CommandSpec parsed;
  UniversalParser parser(tokens, parsed, command);
  if (parser.getCommandSpecifications() != 0) return;

  std::vector<Role> roles;
  const SubComObj* unnamed = parsed.getSubCom("");
  if (!unnamed || !readRoles(*unnamed, source, msg, roles)) return;

  ACAVarValidSpecs specs(true, true, true);
  for (const Role& r : roles) specs.AddVariable(r.index);
  ACAInputAdapter adapter(&specs, source);
  ACAProcDataSourceIter iter(adapter, true);
  ACAStopProcessor stop(0.0);
  std::vector<Moments> moments(roles.size());
  std::vector<double> xs, ys;
  long valid = 0;
  while (iter.HasMore()) {
    if (stop.CheckCancel()) {
      msg.GenericWarning("Stopped by the user; the summary covers the cases read so far.");
      break;
    }
    const ACARecord* record = iter.Next();
    const double* values = record->GetAll();
    bool complete = true;
    for (int i = 0; i < record->Size(); ++i) complete = complete && values[i] != kMissingValue;
    if (!complete) continue;
    ++valid;
    for (int i = 0; i < record->Size(); ++i) moments[static_cast<std::size_t>(i)].add(values[i]);
    xs.push_back(values[roles.size() > 2 ? 2 : 0]);
    ys.push_back(values[0]);
  }
  if (valid < 2) {
    msg.GenericError("Too few valid cases (^1).", std::to_string(valid));
    return;
  }

  StatJSONGenerator gen("Test Procedure");
  OPSCommonOutput common(&specs, source, &procedure, &adapter);
  emitSummary(gen, roles, moments, parsed);
  const SubComObj* plot = parsed.getSubCom("PLOT");
  if (plot && plot->hasParam("SCATTER_PLOT")) {
    const std::string x = roles.size() > 2 ? roles[2].variable : roles[0].variable;
    ScatterChart chart(&gen, x, roles[0].variable);
    chart.addDoubleDataVariable(xs, "xdata");
    chart.addDoubleDataVariable(ys, "ydata");
    chart.addGPLGraphToProcedureJSON();
  }
  StatJSONConverter converter(procedure);
  converter.generateOutput(gen.getProcedureStatJSON());
}

}  // namespace

extern "C" void TESTPROC() {
  try {
    run();
  } catch (...) {
  }
}

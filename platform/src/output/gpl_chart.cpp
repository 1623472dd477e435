// Reads the GPL statements of a chart item into a ChartModel.
#include "stathost/gpl_chart.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <limits>

#include "gpl_expr.h"

namespace stathost {
namespace gpl {

using detail::ExpressionReader;
using detail::Node;

const Variable* ChartModel::findVariable(const std::string& name) const {
  for (const Variable& variable : variables) {
    if (variable.name == name) return &variable;
  }
  return nullptr;
}

namespace {

using Kind = Node::Kind;

// ---- small readers of argument forms --------------------------------------------------------

std::string numberText(double value) {
  if (!std::isfinite(value)) return ".";
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.10g", value);
  return buffer;
}

// The text of a string, number or name argument.
std::string textOf(const Node& node) {
  switch (node.kind) {
    case Kind::kString:
    case Kind::kName:
      return node.text;
    case Kind::kQualified:
      return node.value;
    case Kind::kNumber:
      return numberText(node.number);
    default:
      throw ChartError("expected a text value in " + node.text + "()");
  }
}

double numberOf(const Node& node) {
  if (node.kind == Kind::kNumber) return node.number;
  if (node.kind == Kind::kString || node.kind == Kind::kQualified) {
    const std::string& text = node.kind == Kind::kString ? node.text : node.value;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() && *end == '\0') return value;
  }
  throw ChartError("expected a number");
}

// label("a", "b") joins its parts.
std::string labelText(const Node& label) {
  std::string out;
  for (const Node& part : label.children) out += textOf(part);
  return out;
}

// dim(2) -> 2.
int dimOf(const Node& call) {
  const Node* dim = call.findCall("dim");
  if (dim == nullptr || dim->children.empty()) return 0;
  const double value = numberOf(dim->children.front());
  if (value != 1 && value != 2 && value != 3) throw ChartError("dim() must be 1, 2 or 3");
  return static_cast<int>(value);
}

// aesthetic(aesthetic.color.interior) -> "color.interior".
std::string aestheticOf(const Node& call) {
  const Node* aesthetic = call.findCall("aesthetic");
  if (aesthetic == nullptr || aesthetic->children.empty()) return "";
  std::string name = textOf(aesthetic->children.front());
  const std::string prefix = "aesthetic.";
  if (name.compare(0, prefix.size(), prefix) == 0) name = name.substr(prefix.size());
  return name;
}

std::string lastSegment(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(dot + 1);
}

// ---- statements -----------------------------------------------------------------------------

class StatementReader {
 public:
  explicit StatementReader(ChartModel* model) : model_(*model) {}

  void read(const std::string& keyword, const std::string& body, int line);

 private:
  void readSource(const std::string& body);
  void readData(const std::string& body, const std::string& statement);
  void readGuide(const Node& call, const std::string& statement);
  void readScale(const Node& call, const std::string& statement);
  void readCoord(const Node& call, const std::string& statement);
  void readElement(const Node& call, int line, const std::string& statement);

  Aesthetic readAesthetic(const Node& call) const;
  Operand readOperand(const Node& node) const;
  Position readPosition(const Node& node) const;
  void skip(const std::string& statement) { model_.skipped.push_back(statement); }

  ChartModel& model_;
};

void StatementReader::read(const std::string& keyword, const std::string& body, int line) {
  const std::string statement = keyword + ": " + body;
  if (keyword == "SOURCE") return readSource(body);
  if (keyword == "DATA") return readData(body, statement);
  if (keyword == "GRAPH" || keyword == "PAGE") return;
  if (keyword == "GUIDE" || keyword == "SCALE" || keyword == "COORD" || keyword == "ELEMENT") {
    ExpressionReader reader(body);
    const Node call = reader.readExpression();
    reader.expectEnd();
    if (call.kind != Kind::kCall) throw ChartError("expected a function call");
    if (keyword == "GUIDE") return readGuide(call, statement);
    if (keyword == "SCALE") return readScale(call, statement);
    if (keyword == "COORD") return readCoord(call, statement);
    return readElement(call, line, statement);
  }
  skip(statement);
}

void StatementReader::readSource(const std::string& body) {
  ExpressionReader reader(body);
  reader.readAssignedName();
  const Node value = reader.readExpression();
  reader.expectEnd();
  if (const Node* id = value.findCall("id"); id != nullptr && !id->children.empty()) {
    model_.source = textOf(id->children.front());
  }
}

void StatementReader::readData(const std::string& body, const std::string& statement) {
  ExpressionReader reader(body);
  Variable variable;
  variable.name = reader.readAssignedName();
  const Node value = reader.readExpression();
  reader.expectEnd();
  if (!value.isCall("col")) return skip(statement);
  const Node* name = value.findCall("name");
  if (name == nullptr || name->children.empty()) throw ChartError("col() without name()");
  variable.column = textOf(name->children.front());
  variable.category = value.findCall("unit.category") != nullptr;
  for (Variable& existing : model_.variables) {
    if (existing.name == variable.name) {
      existing = variable;
      return;
    }
  }
  model_.variables.push_back(variable);
}

void StatementReader::readGuide(const Node& call, const std::string& statement) {
  const Node* label = call.findCall("label");
  const bool hidden = call.findCall("null") != nullptr;
  const std::string text = label != nullptr ? labelText(*label) : "";
  if (call.text == "axis") {
    const int dim = dimOf(call);
    if (dim != 1 && dim != 2) return skip(statement);
    AxisGuide& axis = model_.axes[dim - 1];
    axis.hidden = hidden;
    axis.label = text;
  } else if (call.text == "text.title") {
    model_.title = text;
  } else if (call.text == "text.footnote") {
    model_.footnotes.push_back(text);
  } else if (call.text == "text.subfootnote") {
    model_.subfootnotes.push_back(text);
  } else if (call.text == "legend") {
    model_.legends.push_back({aestheticOf(call), text, hidden});
  } else {
    skip(statement);
  }
}

void StatementReader::readScale(const Node& call, const std::string& statement) {
  const bool linear = call.text == "linear";
  const bool cat = call.text == "cat";
  if (!linear && !cat) return skip(statement);
  const std::string aesthetic = aestheticOf(call);
  if (!aesthetic.empty()) {
    if (!cat || aesthetic.compare(0, 5, "color") != 0) return skip(statement);
    ColorMap map;
    map.aesthetic = aesthetic;
    if (const Node* include = call.findCall("include")) {
      for (const Node& value : include->children) map.include.push_back(textOf(value));
    }
    if (const Node* entries = call.findCall("map")) {
      for (const Node& entry : entries->children) {
        if (entry.kind != Kind::kTuple || entry.children.size() != 2) {
          throw ChartError("map() expects pairs such as (\"key\", color.blue)");
        }
        const std::string css = cssColor(lastSegment(textOf(entry.children[1])));
        map.entries.emplace_back(textOf(entry.children[0]), css.empty() ? "#555555" : css);
      }
    }
    model_.colorMaps.push_back(map);
    return;
  }
  const int dim = dimOf(call);
  if (dim != 1 && dim != 2) return skip(statement);
  ScaleModel& scale = model_.scales[dim - 1];
  scale.kind = linear ? ScaleKind::kLinear : ScaleKind::kCategorical;
  for (const Node& argument : call.children) {
    if (argument.kind != Kind::kCall) continue;
    if (argument.text == "min" && !argument.children.empty()) {
      scale.min = numberOf(argument.children.front());
    } else if (argument.text == "max" && !argument.children.empty()) {
      scale.max = numberOf(argument.children.front());
    } else if (argument.text == "include" && linear) {
      for (const Node& value : argument.children) scale.include.push_back(numberOf(value));
    } else if (argument.text == "sort.data") {
      scale.sortData = true;
    } else if (argument.text == "reverse") {
      scale.reverse = true;
    }
  }
}

void StatementReader::readCoord(const Node& call, const std::string& statement) {
  if (call.text == "transpose") {
    model_.transpose = true;
    for (const Node& inner : call.children) {
      if (inner.kind == Kind::kCall) readCoord(inner, statement);
    }
    return;
  }
  if (call.text != "rect") {
    throw ChartError("only rectangular coordinates can be drawn, not " + call.text + "()");
  }
  for (const Node& argument : call.children) {
    if (argument.isCall("sameRatio")) model_.sameRatio = true;
    if (argument.isCall("transpose")) model_.transpose = true;
    if (argument.isCall("cluster") && !argument.children.empty()) {
      model_.clusterDim = static_cast<int>(numberOf(argument.children.front()));
    }
  }
}

Aesthetic StatementReader::readAesthetic(const Node& call) const {
  Aesthetic out;
  out.set = true;
  if (call.children.size() == 1) {
    const Node& value = call.children.front();
    if (value.kind == Kind::kName && value.text.find('.') == std::string::npos) {
      out.isVariable = true;
      out.value = value.text;
      return out;
    }
    if (value.kind == Kind::kName) {
      out.value = lastSegment(value.text);
      return out;
    }
  }
  for (const Node& part : call.children) out.value += textOf(part);
  return out;
}

Operand StatementReader::readOperand(const Node& node) const {
  Operand out;
  if (node.kind == Kind::kNumber) {
    out.number = node.number;
    return out;
  }
  if (node.kind == Kind::kName && node.text.find('.') == std::string::npos) {
    if (model_.findVariable(node.text) == nullptr && detail::isNonFiniteName(node.text)) {
      out.number = std::numeric_limits<double>::quiet_NaN();
      return out;
    }
    out.isVariable = true;
    out.variable = node.text;
    return out;
  }
  throw ChartError("expected a variable or a number in position()");
}

Position StatementReader::readPosition(const Node& node) const {
  Position out;
  const Node* inner = &node;
  if (node.kind == Kind::kCall) {
    if (node.text == "smooth.linear") {
      out.form = PositionForm::kSmoothLinear;
    } else if (node.text == "region.spread.range") {
      out.form = PositionForm::kSpreadRange;
    } else if (node.text == "link.join") {
      out.form = PositionForm::kLinkJoin;
    } else {
      throw ChartError("position function " + node.text + "() is not supported");
    }
    if (node.children.size() != 1) throw ChartError(node.text + "() takes one argument");
    inner = &node.children.front();
  }
  if (out.form == PositionForm::kLinkJoin) {
    if (inner->kind != Kind::kSum || inner->children.size() != 2) {
      throw ChartError("link.join() expects x1*y1+x2*y2");
    }
    for (int end = 0; end < 2; ++end) {
      const Node& point = inner->children[end];
      if (point.kind != Kind::kProduct || point.children.size() != 2) {
        throw ChartError("link.join() expects x1*y1+x2*y2");
      }
      std::vector<Operand>& target = end == 0 ? out.dims : out.to;
      for (const Node& part : point.children) target.push_back(readOperand(part));
    }
    return out;
  }
  if (inner->kind != Kind::kProduct || inner->children.size() < 2 || inner->children.size() > 3) {
    throw ChartError("position() needs two or three dimensions, as in x*y");
  }
  for (const Node& part : inner->children) {
    if (part.kind == Kind::kSum) {
      if (out.form != PositionForm::kSpreadRange || out.rangeDim >= 0 ||
          part.children.size() != 2) {
        throw ChartError("a range (low+high) belongs in region.spread.range()");
      }
      out.rangeDim = static_cast<int>(out.dims.size());
      out.low = readOperand(part.children[0]);
      out.high = readOperand(part.children[1]);
      out.dims.push_back(Operand{});
      continue;
    }
    out.dims.push_back(readOperand(part));
  }
  if (out.form == PositionForm::kSpreadRange && out.rangeDim < 0) {
    throw ChartError("region.spread.range() expects a range such as x*(low+high)");
  }
  return out;
}

void StatementReader::readElement(const Node& call, int line, const std::string& statement) {
  Element element;
  element.line = line;
  if (call.text == "point") {
    element.type = ElementType::kPoint;
  } else if (call.text == "line") {
    element.type = ElementType::kLine;
  } else if (call.text == "path") {
    element.type = ElementType::kPath;
  } else if (call.text == "interval") {
    element.type = ElementType::kInterval;
  } else if (call.text == "edge") {
    element.type = ElementType::kEdge;
  } else {
    return skip(statement);
  }
  const Node* position = call.findCall("position");
  if (position == nullptr || position->children.size() != 1) {
    throw ChartError(call.text + "() without position()");
  }
  element.position = readPosition(position->children.front());
  if (element.type == ElementType::kEdge && element.position.form != PositionForm::kLinkJoin) {
    return skip(statement);
  }
  for (const Node& argument : call.children) {
    if (argument.kind != Kind::kCall || argument.text == "position") continue;
    const std::string& name = argument.text;
    Aesthetic* target = nullptr;
    if (name == "color") target = &element.color;
    if (name == "color.interior") target = &element.colorInterior;
    if (name == "color.exterior") target = &element.colorExterior;
    if (name == "size") target = &element.size;
    if (name == "shape") target = &element.shape;
    if (name == "shape.interior") target = &element.shapeInterior;
    if (name == "transparency" || name == "transparency.interior") target = &element.transparency;
    if (name == "label") target = &element.label;
    if (name == "split") target = &element.split;
    if (target != nullptr && !argument.children.empty()) *target = readAesthetic(argument);
  }
  model_.elements.push_back(element);
}

// "DATA: x = ..." -> keyword "DATA", body "x = ...". Returns false for a line that starts no
// statement.
bool splitStatement(const std::string& line, std::string* keyword, std::string* body) {
  std::size_t at = 0;
  while (at < line.size() && std::isspace(static_cast<unsigned char>(line[at]))) ++at;
  const std::size_t start = at;
  while (at < line.size() && std::isupper(static_cast<unsigned char>(line[at]))) ++at;
  if (at == start || at >= line.size() || line[at] != ':') return false;
  *keyword = line.substr(start, at - start);
  *body = line.substr(at + 1);
  return true;
}

std::string trim(const std::string& text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  return text.substr(begin, end - begin);
}

}  // namespace

ChartModel parseChart(const std::string& gpl) {
  struct Statement {
    std::string keyword;
    std::string body;
    int line;
  };
  std::vector<Statement> statements;
  int lineNumber = 0;
  std::size_t start = 0;
  while (start <= gpl.size()) {
    std::size_t end = gpl.find('\n', start);
    if (end == std::string::npos) end = gpl.size();
    const std::string line = trim(gpl.substr(start, end - start));
    ++lineNumber;
    start = end + 1;
    if (line.empty() || line.compare(0, 2, "//") == 0) continue;
    std::string keyword;
    std::string body;
    if (splitStatement(line, &keyword, &body)) {
      statements.push_back({keyword, trim(body), lineNumber});
    } else if (!statements.empty()) {
      statements.back().body += " " + line;
    } else {
      throw ChartError("line " + std::to_string(lineNumber) + ": not a GPL statement");
    }
  }
  ChartModel model;
  StatementReader reader(&model);
  for (const Statement& statement : statements) {
    try {
      reader.read(statement.keyword, statement.body, statement.line);
    } catch (const ChartError& error) {
      throw ChartError("line " + std::to_string(statement.line) + " (" + statement.keyword +
                       "): " + error.what());
    }
  }
  return model;
}

}  // namespace gpl
}  // namespace stathost

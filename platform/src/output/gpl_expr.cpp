#include "gpl_expr.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "stathost/gpl_chart.h"

namespace stathost {
namespace gpl {
namespace detail {

namespace {

constexpr int kMaxDepth = 64;

bool isNameStart(char c) {
  const auto u = static_cast<unsigned char>(c);
  return std::isalpha(u) || c == '_' || u >= 0x80;
}

bool isNameChar(char c) { return isNameStart(c) || std::isdigit(static_cast<unsigned char>(c)); }

}  // namespace

bool isNonFiniteName(const std::string& name) {
  std::string lower;
  for (char c : name) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower == "nan" || lower == "inf" || lower == "infinity";
}

const Node* Node::findCall(const char* name) const {
  for (const Node& child : children) {
    if (child.isCall(name)) return &child;
  }
  return nullptr;
}

void ExpressionReader::fail(const std::string& what) const {
  std::string near = text_.substr(pos_, 24);
  if (near.empty()) throw ChartError(what + " at the end of the statement");
  throw ChartError(what + " near \"" + near + "\"");
}

void ExpressionReader::skipBlanks() {
  while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
}

bool ExpressionReader::peek(char c) {
  skipBlanks();
  return pos_ < text_.size() && text_[pos_] == c;
}

void ExpressionReader::expect(char c, const char* what) {
  if (!peek(c)) fail(std::string("expected ") + what);
  ++pos_;
}

void ExpressionReader::expectEnd() {
  skipBlanks();
  if (pos_ < text_.size()) fail("unexpected text");
}

std::string ExpressionReader::readAssignedName() {
  skipBlanks();
  if (pos_ >= text_.size() || !isNameStart(text_[pos_])) fail("expected a name");
  const std::size_t start = pos_;
  while (pos_ < text_.size() && isNameChar(text_[pos_])) ++pos_;
  std::string name = text_.substr(start, pos_ - start);
  expect('=', "'='");
  return name;
}

Node ExpressionReader::readExpression() { return readSum(); }

Node ExpressionReader::readSum() {
  Node first = readProduct();
  if (!peek('+')) return first;
  Node sum;
  sum.kind = Node::Kind::kSum;
  sum.children.push_back(std::move(first));
  while (peek('+')) {
    ++pos_;
    sum.children.push_back(readProduct());
  }
  return sum;
}

Node ExpressionReader::readProduct() {
  Node first = readPrimary();
  if (!peek('*')) return first;
  Node product;
  product.kind = Node::Kind::kProduct;
  product.children.push_back(std::move(first));
  while (peek('*')) {
    ++pos_;
    product.children.push_back(readPrimary());
  }
  return product;
}

Node ExpressionReader::readPrimary() {
  if (++depth_ > kMaxDepth) fail("too deeply nested");
  skipBlanks();
  if (pos_ >= text_.size()) fail("expected a value");
  const char c = text_[pos_];
  Node node;
  if (c == '"') {
    node.kind = Node::Kind::kString;
    node.text = readString(false);
  } else if (c == '(') {
    ++pos_;
    node = readExpression();
    if (peek(',')) {
      Node tuple;
      tuple.kind = Node::Kind::kTuple;
      tuple.children.push_back(std::move(node));
      while (peek(',')) {
        ++pos_;
        tuple.children.push_back(readExpression());
      }
      node = std::move(tuple);
    }
    expect(')', "')'");
  } else if (c == '-' || c == '+') {
    ++pos_;
    node = readPrimary();
    if (node.kind == Node::Kind::kName && isNonFiniteName(node.text)) {
      node.kind = Node::Kind::kNumber;
      node.number = std::numeric_limits<double>::quiet_NaN();
    } else if (node.kind != Node::Kind::kNumber) {
      fail("expected a number after the sign");
    }
    if (c == '-') node.number = -node.number;
  } else if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
    node = readNumber();
  } else if (isNameStart(c)) {
    node = readName();
  } else {
    fail(std::string("unexpected '") + c + "'");
  }
  --depth_;
  return node;
}

Node ExpressionReader::readNumber() {
  Node node;
  node.kind = Node::Kind::kNumber;
  const char* start = text_.c_str() + pos_;
  char* end = nullptr;
  const double value = std::strtod(start, &end);
  if (end == start) {
    // A lone "." stands for a missing value.
    if (text_[pos_] == '.') {
      ++pos_;
      node.number = std::numeric_limits<double>::quiet_NaN();
      return node;
    }
    fail("expected a number");
  }
  pos_ += static_cast<std::size_t>(end - start);
  node.number = value;
  return node;
}

Node ExpressionReader::readName() {
  Node node;
  const std::size_t start = pos_;
  while (pos_ < text_.size()) {
    if (isNameChar(text_[pos_])) {
      ++pos_;
    } else if (text_[pos_] == '.' && pos_ + 1 < text_.size() && isNameStart(text_[pos_ + 1])) {
      ++pos_;
    } else {
      break;
    }
  }
  node.text = text_.substr(start, pos_ - start);
  if (pos_ + 1 < text_.size() && text_[pos_] == '.' && text_[pos_ + 1] == '"') {
    ++pos_;
    node.kind = Node::Kind::kQualified;
    node.value = readString(true);
    return node;
  }
  if (peek('(')) {
    ++pos_;
    node.kind = Node::Kind::kCall;
    if (!peek(')')) {
      node.children.push_back(readExpression());
      while (peek(',')) {
        ++pos_;
        node.children.push_back(readExpression());
      }
    }
    expect(')', "')'");
    return node;
  }
  node.kind = Node::Kind::kName;
  return node;
}

// A quote closes the string only when what follows it can follow a value (a closing
// parenthesis, a comma, an operator or the end); any other quote belongs to the text, so a
// label that itself holds quotes still reads. A qualified string without its closing quote
// (size."2pt)) ends at the first closing parenthesis or comma.
std::string ExpressionReader::readString(bool qualified) {
  const std::size_t open = pos_;
  ++pos_;
  std::string out;
  while (pos_ < text_.size()) {
    const char c = text_[pos_];
    if (c == '\\' && pos_ + 1 < text_.size() &&
        (text_[pos_ + 1] == '"' || text_[pos_ + 1] == '\\')) {
      out += text_[pos_ + 1];
      pos_ += 2;
      continue;
    }
    if (qualified && (c == ')' || c == ',')) return out;
    if (c == '"') {
      std::size_t next = pos_ + 1;
      while (next < text_.size() && std::isspace(static_cast<unsigned char>(text_[next]))) ++next;
      const bool closes = next >= text_.size() || text_[next] == ')' || text_[next] == ',' ||
                          text_[next] == '*' || text_[next] == '+' || text_[next] == '=';
      if (closes) {
        ++pos_;
        return out;
      }
    }
    out += c;
    ++pos_;
  }
  pos_ = open;
  fail("unterminated string");
}

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

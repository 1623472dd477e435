// Expressions of GPL statements: function calls, names, numbers, strings and the * and +
// operators of positions, read into a small tree.
#ifndef STATHOST_OUTPUT_GPL_EXPR_H_
#define STATHOST_OUTPUT_GPL_EXPR_H_

#include <cstddef>
#include <string>
#include <vector>

namespace stathost {
namespace gpl {
namespace detail {

struct Node {
  enum class Kind {
    kName,       // xdata, color.red, unit.category
    kNumber,     // 0, -1.5, 2e-3; "." is a missing number
    kString,     // "text"
    kQualified,  // size."8pt": text is "size", value is "8pt"
    kCall,       // name(children...)
    kTuple,      // (a, b)
    kProduct,    // a*b*c
    kSum,        // a+b
  };
  Kind kind = Kind::kName;
  std::string text;
  std::string value;
  double number = 0;
  std::vector<Node> children;

  bool isCall(const char* name) const { return kind == Kind::kCall && text == name; }
  // The first argument that is a call of `name`, or nullptr.
  const Node* findCall(const char* name) const;
};

// "nan", "inf" or "infinity" in any case: a number that is not finite.
bool isNonFiniteName(const std::string& name);

// Reads expressions from one statement's text. Errors throw ChartError.
class ExpressionReader {
 public:
  explicit ExpressionReader(const std::string& text) : text_(text) {}

  // "name =" at the start of a DATA or SOURCE statement; returns the name.
  std::string readAssignedName();
  Node readExpression();
  // Throws unless only blanks are left.
  void expectEnd();

 private:
  Node readSum();
  Node readProduct();
  Node readPrimary();
  Node readNumber();
  Node readName();
  std::string readString(bool qualified);
  void skipBlanks();
  bool peek(char c);
  void expect(char c, const char* what);
  [[noreturn]] void fail(const std::string& what) const;

  const std::string& text_;
  std::size_t pos_ = 0;
  int depth_ = 0;
};

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_OUTPUT_GPL_EXPR_H_

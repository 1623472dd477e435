// Recursive-descent check of a command against its declared grammar. The first error ends
// the parse; it is reported with the command, line, column, token found and what was
// expected.
#include "stathost/universal_parser.h"

#include <cmath>
#include <sstream>
#include <stdexcept>

#include "stathost/data_source.h"
#include "stathost/dataset.h"
#include "stathost/host_session.h"
#include "stathost/suggestions.h"

namespace stathost {
namespace {

// Thrown inside the parser to unwind to getCommandSpecifications.
struct SyntaxError {
  int line;
  int column;
  std::string text;
};

class Cursor {
 public:
  Cursor(const std::vector<TokenInfoObj>& tokens, int endLine, int endColumn)
      : tokens_(tokens), endLine_(endLine), endColumn_(endColumn) {}

  bool atEnd() const { return pos_ >= tokens_.size() || tokens_[pos_].is(TokenType::kTerminator); }
  const TokenInfoObj& peek() const {
    if (pos_ < tokens_.size()) return tokens_[pos_];
    static const TokenInfoObj kEnd(TokenType::kTerminator, ".", 0, 0);
    return kEnd;
  }
  bool peekIs(TokenType type) const { return !atEnd() && peek().is(type); }
  TokenInfoObj take() { return pos_ < tokens_.size() ? tokens_[pos_++] : peek(); }

  [[noreturn]] void fail(const std::string& expected) const {
    int line = endLine_, column = endColumn_;
    std::string found = "the end of the command";
    if (pos_ < tokens_.size()) {
      line = tokens_[pos_].getLine();
      column = tokens_[pos_].getColumn();
      found = tokens_[pos_].is(TokenType::kTerminator) ? "the end of the command"
                                                       : "'" + tokens_[pos_].display() + "'";
    }
    throw SyntaxError{line, column, "found " + found + ", expected " + expected + "."};
  }
  [[noreturn]] void failAt(const TokenInfoObj& token, const std::string& text) const {
    throw SyntaxError{token.getLine(), token.getColumn(), text};
  }

 private:
  const std::vector<TokenInfoObj>& tokens_;
  std::size_t pos_ = 0;
  int endLine_;
  int endColumn_;
};

std::string quoteList(const std::vector<std::string>& names) {
  std::string out;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i) out += (i + 1 == names.size()) ? " or " : ", ";
    out += names[i];
  }
  return out;
}

class GrammarParser {
 public:
  GrammarParser(const TokenSequenceBase& tokens, const CommandDescriptor& grammar,
                CommandSpec& parsed)
      : tokens_(tokens),
        grammar_(grammar),
        parsed_(parsed),
        cursor_(tokens.tokens(), tokens.endLine(), tokens.endColumn()) {}

  void parse() {
    checkTokenizer();
    checkParentheses();
    parsed_.clear();
    parsed_.setCommandName(grammar_.name());
    matchCommandName();
    parseUnnamed();
    while (!cursor_.atEnd()) parseSubcommand();
    checkRequired();
  }

 private:
  void checkTokenizer() {
    if (!tokens_.errors().empty()) {
      const TokenizeError& e = tokens_.errors().front();
      throw SyntaxError{e.line, e.column, e.text};
    }
    const auto& all = tokens_.tokens();
    for (std::size_t i = 0; i + 1 < all.size(); ++i) {
      if (all[i].is(TokenType::kTerminator)) {
        cursor_.failAt(all[i + 1], "found '" + all[i + 1].display() +
                                       "' after the full stop that ends the command; a new "
                                       "command starts on a line of its own.");
      }
    }
  }

  void checkParentheses() {
    std::vector<const TokenInfoObj*> open;
    for (const TokenInfoObj& t : tokens_.tokens()) {
      if (t.is(TokenType::kLeftParen)) open.push_back(&t);
      if (t.is(TokenType::kRightParen)) {
        if (open.empty()) cursor_.failAt(t, "found ')' without a matching '('.");
        open.pop_back();
      }
    }
    if (!open.empty()) {
      cursor_.failAt(*open.back(), "the '(' here is not closed by a matching ')'.");
    }
  }

  void matchCommandName() {
    std::istringstream words(grammar_.name());
    std::string word;
    while (words >> word) {
      if (!cursor_.peekIs(TokenType::kIdentifier) || !cursor_.peek().isKeyword(word)) {
        cursor_.fail("the command name " + grammar_.name());
      }
      cursor_.take();
    }
  }

  void parseUnnamed() {
    const SubComDescriptor* unnamed = grammar_.unnamedSubCom();
    if (!unnamed) {
      if (!cursor_.atEnd() && !cursor_.peekIs(TokenType::kSlash))
        cursor_.fail("'/' and a subcommand");
      return;
    }
    SubComObj sub("", cursor_.peek().getLine(), cursor_.peek().getColumn());
    int depth = 0;
    while (!cursor_.atEnd() && !(depth == 0 && cursor_.peekIs(TokenType::kSlash))) {
      const TokenInfoObj t = cursor_.take();
      if (t.is(TokenType::kLeftParen)) ++depth;
      if (t.is(TokenType::kRightParen)) --depth;
      sub.addToken(t);
    }
    if (sub.getTokens().empty()) {
      if (unnamed->isRequired()) cursor_.fail("the variable list that follows the command name");
      return;
    }
    parsed_.addSubCom(sub);
  }

  std::vector<std::string> subcommandNames() const {
    std::vector<std::string> names;
    for (const auto& s : grammar_.subcommands()) {
      if (s.kind() != SUBCOM_UNNAMED) names.push_back(s.name());
    }
    return names;
  }

  void parseSubcommand() {
    if (!cursor_.peekIs(TokenType::kSlash)) cursor_.fail("'/' before the next subcommand");
    cursor_.take();
    if (!cursor_.peekIs(TokenType::kIdentifier)) {
      cursor_.fail("a subcommand name (" + quoteList(subcommandNames()) + ")");
    }
    const SubComDescriptor* desc = grammar_.findSubCom(cursor_.peek().getText());
    if (!desc) cursor_.fail("a subcommand name (" + quoteList(subcommandNames()) + ")");
    const TokenInfoObj nameToken = cursor_.take();
    if (!desc->isRepeatable() && parsed_.hasSubCom(desc->name())) {
      cursor_.failAt(nameToken, "the subcommand " + desc->name() + " is given more than once.");
    }
    SubComObj sub(desc->name(), nameToken.getLine(), nameToken.getColumn());
    while (!cursor_.atEnd() && !cursor_.peekIs(TokenType::kSlash)) {
      sub.addParam(parseParam(*desc, sub));
    }
    if (sub.getParams().empty()) {
      for (const auto& p : desc->params()) {
        if (p.kind() == SPEC_KEYWORD && p.isDefault()) sub.addParam(ParamObj(p.name(), nameToken));
      }
    }
    parsed_.addSubCom(sub);
  }

  std::string paramNames(const SubComDescriptor& desc) const {
    std::vector<std::string> names;
    for (const auto& p : desc.params()) names.push_back(p.name());
    return quoteList(names);
  }

  ParamObj parseParam(const SubComDescriptor& desc, const SubComObj& sub) {
    if (!cursor_.peekIs(TokenType::kIdentifier)) {
      cursor_.fail("a keyword of subcommand " + desc.name() + " (" + paramNames(desc) + ")");
    }
    const ParamDescriptor* p = desc.findParam(cursor_.peek().getText());
    if (!p) cursor_.fail("a keyword of subcommand " + desc.name() + " (" + paramNames(desc) + ")");
    const TokenInfoObj keyword = cursor_.take();
    if (sub.hasParam(p->name())) {
      cursor_.failAt(
          keyword, "the keyword " + p->name() + " is given more than once on " + desc.name() + ".");
    }
    ParamObj param(p->name(), keyword);
    parseParamBody(*p, desc.name(), param);
    return param;
  }

  void parseParamBody(const ParamDescriptor& p, const std::string& where, ParamObj& param) {
    const std::string context = where + " " + p.name();
    switch (p.kind()) {
      case SPEC_KEYWORD:
        if (cursor_.peekIs(TokenType::kEquals) || cursor_.peekIs(TokenType::kLeftParen)) {
          cursor_.fail("another keyword: " + context + " takes no value");
        }
        return;
      case SPEC_PARAMETER_QUALIFIED:
        if (cursor_.peekIs(TokenType::kLeftParen)) {
          if (!p.takesValue()) cursor_.fail("another keyword: " + context + " takes no qualifiers");
          parseQualifierList(p, context, param);
        } else if (p.qualifOption() == QUALIFIERS_REQUIRED) {
          cursor_.fail("'(' and the qualifiers of " + context);
        }
        return;
      default:
        break;
    }
    if (!cursor_.peekIs(TokenType::kEquals)) cursor_.fail("'=' after " + context);
    cursor_.take();
    if (p.kind() == SPEC_QUALIFIED_KEYWORD) {
      parseQualifiedKeyword(p, context, param);
      return;
    }
    if (p.kind() == SPEC_VARIABLE_LIST) {
      if (!cursor_.peekIs(TokenType::kIdentifier))
        cursor_.fail("variable names after " + context + " =");
      while (cursor_.peekIs(TokenType::kIdentifier)) param.addValue(checkVariable(cursor_.take()));
      return;
    }
    param.addValue(parseValue(p, context));
  }

  // NAME = KEYWORD, or NAME = PARAM, or NAME = PARAM(value).
  void parseQualifiedKeyword(const ParamDescriptor& p, const std::string& context,
                             ParamObj& param) {
    if (!cursor_.peekIs(TokenType::kIdentifier))
      cursor_.fail(p.describeValues() + " after " + context + " =");
    const TokenInfoObj value = cursor_.peek();
    if (p.hasKeywordQualifier(value.getText())) {
      cursor_.take();
      param.addValue(TokenInfoObj(TokenType::kIdentifier, value.getUpperText(), value.getLine(),
                                  value.getColumn()));
      return;
    }
    const ParamDescriptor* q = p.findParameterQualifier(value.getText());
    if (!q) cursor_.fail(p.describeValues() + " after " + context + " =");
    cursor_.take();
    param.addValue(
        TokenInfoObj(TokenType::kIdentifier, q->name(), value.getLine(), value.getColumn()));
    ParamObj qualifier(q->name(), value);
    if (cursor_.peekIs(TokenType::kLeftParen)) {
      cursor_.take();
      qualifier.addValue(parseValue(*q, context + " = " + q->name()));
      if (!cursor_.peekIs(TokenType::kRightParen))
        cursor_.fail("')' after the value of " + q->name());
      cursor_.take();
    }
    param.addQualifier(qualifier);
  }

  // KEY ( Q1=v Q2 ... ): parameter qualifiers take "= value", keyword qualifiers stand alone.
  void parseQualifierList(const ParamDescriptor& p, const std::string& context, ParamObj& param) {
    cursor_.take();  // (
    std::vector<std::string> allowed = p.keywordQualifiers();
    for (const auto& q : p.parameterQualifiers()) allowed.push_back(q.name());
    while (!cursor_.peekIs(TokenType::kRightParen)) {
      if (!cursor_.peekIs(TokenType::kIdentifier)) {
        cursor_.fail("a qualifier of " + context + " (" + quoteList(allowed) + ") or ')'");
      }
      const TokenInfoObj name = cursor_.peek();
      if (param.hasQualifier(name.getText())) {
        cursor_.failAt(name, "the qualifier " + name.getUpperText() + " of " + context +
                                 " is given more than once.");
      }
      if (p.hasKeywordQualifier(name.getText())) {
        cursor_.take();
        param.addQualifier(ParamObj(name.getUpperText(), name));
      } else if (const ParamDescriptor* q = p.findParameterQualifier(name.getText())) {
        cursor_.take();
        ParamObj qualifier(q->name(), name);
        parseParamBody(*q, context, qualifier);
        param.addQualifier(qualifier);
      } else {
        cursor_.fail("a qualifier of " + context + " (" + quoteList(allowed) + ") or ')'");
      }
      if (cursor_.peekIs(TokenType::kComma)) cursor_.take();
    }
    cursor_.take();  // )
  }

  TokenInfoObj parseValue(const ParamDescriptor& p, const std::string& context) {
    const std::string expected = p.describeValues() + " for " + context;
    if (cursor_.atEnd()) cursor_.fail(expected);
    const TokenInfoObj value = cursor_.peek();
    switch (p.kind()) {
      case SPEC_NUMBER:
      case SPEC_INTEGER:
        if (value.is(TokenType::kNumber)) {
          cursor_.take();
          checkNumber(p, context, value);
          return value;
        }
        if ((value.is(TokenType::kIdentifier) || value.is(TokenType::kString)) &&
            p.allowsStringValue(value.getText())) {
          cursor_.take();
          return TokenInfoObj(TokenType::kIdentifier, value.getUpperText(), value.getLine(),
                              value.getColumn());
        }
        cursor_.fail(expected);
      case SPEC_KEYWORD_VALUE:
        if (value.is(TokenType::kIdentifier) && p.allowsStringValue(value.getText())) {
          cursor_.take();
          return TokenInfoObj(TokenType::kIdentifier, value.getUpperText(), value.getLine(),
                              value.getColumn());
        }
        cursor_.fail(expected);
      case SPEC_STRING:
        if (!value.is(TokenType::kString)) cursor_.fail(expected);
        return cursor_.take();
      case SPEC_VARIABLE:
        if (!value.is(TokenType::kIdentifier)) cursor_.fail(expected);
        return checkVariable(cursor_.take());
      default:
        if (!value.is(TokenType::kIdentifier)) cursor_.fail(expected);
        return cursor_.take();
    }
  }

  void checkNumber(const ParamDescriptor& p, const std::string& context, const TokenInfoObj& t) {
    const double v = t.getNumber();
    bool ok = std::isfinite(v);
    if (p.lowerOption() == LOWER_INCLUSIVE) ok = ok && v >= p.lower();
    if (p.lowerOption() == LOWER_EXCLUSIVE) ok = ok && v > p.lower();
    if (p.upperOption() == UPPER_INCLUSIVE) ok = ok && v <= p.upper();
    if (p.upperOption() == UPPER_EXCLUSIVE) ok = ok && v < p.upper();
    if (!ok) {
      cursor_.failAt(t, context + " = " + t.getText() + " is out of range: the value must be " +
                            p.describeBounds() + ".");
    }
    if (p.kind() == SPEC_INTEGER && v != std::floor(v)) {
      cursor_.failAt(t, context + " = " + t.getText() + " is not a whole number.");
    }
  }

  TokenInfoObj checkVariable(const TokenInfoObj& t) {
    ProcedureDataSource source;
    if (source.hasData() && source.findVariable(t.getText()) < 0) {
      std::vector<std::string> names;
      for (const Column& c : source.dataset()->columns) names.push_back(c.name);
      cursor_.failAt(t, "the variable " + t.getText() + " is not in the active data set." +
                            didYouMean(t.getText(), names));
    }
    return t;
  }

  void checkRequired() {
    for (const auto& s : grammar_.subcommands()) {
      if (s.isRequired() && s.kind() != SUBCOM_UNNAMED && !parsed_.hasSubCom(s.name())) {
        throw SyntaxError{tokens_.endLine(), tokens_.endColumn(),
                          "the subcommand " + s.name() + " is required."};
      }
    }
  }

  const TokenSequenceBase& tokens_;
  const CommandDescriptor& grammar_;
  CommandSpec& parsed_;
  Cursor cursor_;
};

}  // namespace

UniversalParser::UniversalParser(TokenSequenceBase& tokens, CommandSpec& parsed,
                                 const CommandDescriptor& grammar)
    : tokens_(tokens), parsed_(parsed), grammar_(grammar) {
  messages_.SetCommandName(grammar.name().c_str());
}

int UniversalParser::getCommandSpecifications() {
  try {
    GrammarParser(tokens_, grammar_, parsed_).parse();
    // The host may then say which subcommand would have produced output.
    std::vector<std::string> given;
    for (const SubComObj& sub : parsed_.getSubComs()) given.push_back(sub.getName());
    HostSession::instance().setParsedGrammar(grammar_, std::move(given));
    return 0;
  } catch (const SyntaxError& e) {
    parsed_.clear();
    messages_.ErrorAt(e.line, e.column,
                      grammar_.name() + ": syntax error at line " + std::to_string(e.line) +
                          ", column " + std::to_string(e.column) + ": " + e.text);
    return 1;
  }
}

}  // namespace stathost

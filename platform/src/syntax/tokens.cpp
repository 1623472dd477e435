#include "stathost/tokens.h"

#include <cctype>
#include <cstdlib>

#include "stathost/dataset.h"
#include "stathost/host_session.h"

namespace stathost {
namespace {

bool isNameStart(unsigned char c) {
  return std::isalpha(c) || c == '_' || c == '@' || c == '#' || c == '$' || c >= 0x80;
}
bool isNameChar(unsigned char c) { return isNameStart(c) || std::isdigit(c) || c == '.'; }

}  // namespace

std::string TokenInfoObj::getUpperText() const { return toUpperAscii(text_); }

bool TokenInfoObj::isKeyword(const std::string& keyword) const {
  return type_ == TokenType::kIdentifier && namesEqual(text_, keyword);
}

double TokenInfoObj::getNumber() const { return std::strtod(text_.c_str(), nullptr); }

std::string TokenInfoObj::display() const {
  if (type_ == TokenType::kString) return "'" + text_ + "'";
  if (type_ == TokenType::kTerminator) return "the end of the command";
  return text_;
}

std::string joinAsWritten(const std::vector<TokenInfoObj>& tokens) {
  std::string out;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (i > 0) out += tokens[i].spaceBefore();
    out += tokens[i].written();
  }
  return out;
}

bool TokenSequenceBase::hasTerminator() const {
  return !tokens_.empty() && tokens_.back().is(TokenType::kTerminator);
}

void TokenSequenceBase::tokenize(const std::string& text, int firstLine) {
  tokens_.clear();
  errors_.clear();
  int line = firstLine;
  std::size_t lineStart = 0;
  std::size_t i = 0;
  const std::size_t n = text.size();
  auto column = [&](std::size_t pos) { return static_cast<int>(pos - lineStart) + 1; };
  // Where the previous token ended: the blanks from there to the next token are kept
  // with that token.
  std::size_t previousEnd = 0;
  auto blanksBefore = [&](std::size_t start) {
    if (tokens_.empty()) return std::string();
    const std::string gap = text.substr(previousEnd, start - previousEnd);
    return gap.find('\n') == std::string::npos ? gap : std::string(" ");
  };
  auto add = [&](TokenType type, std::string value, std::size_t start, std::size_t end, int ln,
                 int col) {
    std::string space = blanksBefore(start);
    tokens_.emplace_back(type, std::move(value), ln, col, text.substr(start, end - start),
                         std::move(space));
    previousEnd = end;
  };
  auto restOfLineBlank = [&](std::size_t pos) {
    for (std::size_t k = pos; k < n && text[k] != '\n'; ++k) {
      if (!std::isspace(static_cast<unsigned char>(text[k]))) return false;
    }
    return true;
  };
  while (i < n) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\n') {
      ++line;
      lineStart = ++i;
      continue;
    }
    if (std::isspace(c)) {
      ++i;
      continue;
    }
    const std::size_t start = i;
    const int col = column(start);
    if (c == '\'' || c == '"') {
      std::string value;
      ++i;
      bool closed = false;
      while (i < n && text[i] != '\n') {
        if (text[i] == static_cast<char>(c)) {
          if (i + 1 < n && text[i + 1] == static_cast<char>(c)) {  // doubled quote
            value.push_back(static_cast<char>(c));
            i += 2;
            continue;
          }
          closed = true;
          ++i;
          break;
        }
        value.push_back(text[i++]);
      }
      if (!closed) {
        errors_.push_back({"Unterminated string: the text that begins here has no closing " +
                               std::string(1, static_cast<char>(c)) + " on its line.",
                           line, col});
      }
      add(TokenType::kString, value, start, i, line, col);
      continue;
    }
    const bool signedNumber = (c == '-' || c == '+') && i + 1 < n &&
                              (std::isdigit(static_cast<unsigned char>(text[i + 1])) ||
                               (text[i + 1] == '.' && i + 2 < n &&
                                std::isdigit(static_cast<unsigned char>(text[i + 2]))));
    const bool dotNumber =
        c == '.' && i + 1 < n && std::isdigit(static_cast<unsigned char>(text[i + 1]));
    if (std::isdigit(c) || signedNumber || dotNumber) {
      if (signedNumber) ++i;
      while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
      // A full stop after digits is a decimal point only when a digit follows or the
      // line goes on; "ELEVEL=1." at the end of a line ends the command.
      if (i < n && text[i] == '.' &&
          ((i + 1 < n && std::isdigit(static_cast<unsigned char>(text[i + 1]))) ||
           !restOfLineBlank(i + 1))) {
        ++i;
        while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
      }
      if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t k = i + 1;
        if (k < n && (text[k] == '+' || text[k] == '-')) ++k;
        if (k < n && std::isdigit(static_cast<unsigned char>(text[k]))) {
          i = k;
          while (i < n && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
        }
      }
      add(TokenType::kNumber, text.substr(start, i - start), start, i, line, col);
      continue;
    }
    if (isNameStart(c)) {
      while (i < n && isNameChar(static_cast<unsigned char>(text[i]))) ++i;
      // A name does not end in a full stop: that one ends the command.
      while (i > start + 1 && text[i - 1] == '.') --i;
      add(TokenType::kIdentifier, text.substr(start, i - start), start, i, line, col);
      continue;
    }
    if (c == '.' && restOfLineBlank(i + 1)) {
      add(TokenType::kTerminator, ".", i, i + 1, line, col);
      ++i;
      continue;
    }
    TokenType type = TokenType::kOther;
    switch (c) {
      case '/':
        type = TokenType::kSlash;
        break;
      case '=':
        type = TokenType::kEquals;
        break;
      case '(':
        type = TokenType::kLeftParen;
        break;
      case ')':
        type = TokenType::kRightParen;
        break;
      case ',':
        type = TokenType::kComma;
        break;
      case '*':
        type = TokenType::kAsterisk;
        break;
      default:
        break;
    }
    add(type, std::string(1, static_cast<char>(c)), i, i + 1, line, col);
    ++i;
  }
  endLine_ = line;
  endColumn_ = column(i);
}

STAX_TokenSequence::STAX_TokenSequence(bool fromCurrentCommand) {
  if (fromCurrentCommand) {
    const HostSession& session = HostSession::instance();
    tokenize(session.commandText(), session.commandFirstLine());
  }
}

STAX_TokenSequence::STAX_TokenSequence(const std::string& text, int firstLine) {
  tokenize(text, firstLine);
}

}  // namespace stathost

// Tokens of one command and the token sequence the parser reads.
#pragma once

#include <string>
#include <vector>

namespace stathost {

enum class TokenType {
  kIdentifier,  // keywords and variable names
  kNumber,
  kString,  // quoted text; the token text is the text without its quotes
  kSlash,
  kEquals,
  kLeftParen,
  kRightParen,
  kComma,
  kAsterisk,
  kTerminator,  // the full stop that ends the command
  kOther,       // any other character
};

class TokenInfoObj {
 public:
  TokenInfoObj() = default;
  TokenInfoObj(TokenType type, std::string text, int line, int column)
      : type_(type), text_(std::move(text)), line_(line), column_(column) {}
  // A token as the tokenizer found it: `written` is its text in the command, quotes
  // included, and `spaceBefore` the blanks that separate it from the token before it
  // (a line break and its indentation read as one blank).
  TokenInfoObj(TokenType type, std::string text, int line, int column, std::string written,
               std::string spaceBefore)
      : type_(type),
        text_(std::move(text)),
        written_(std::move(written)),
        spaceBefore_(std::move(spaceBefore)),
        line_(line),
        column_(column) {}

  TokenType getType() const { return type_; }
  const std::string& getText() const { return text_; }
  std::string getUpperText() const;
  int getLine() const { return line_; }
  int getColumn() const { return column_; }
  bool isKeyword(const std::string& keyword) const;  // identifier, ignoring case
  bool is(TokenType type) const { return type_ == type; }
  double getNumber() const;  // for kNumber
  // How the token reads in a message: the text, quoted text for strings.
  std::string display() const;
  // The token as the user wrote it (quotes included for strings); the text when the token
  // was not read from a command.
  const std::string& written() const { return written_.empty() ? text_ : written_; }
  const std::string& spaceBefore() const { return spaceBefore_; }

 private:
  TokenType type_ = TokenType::kOther;
  std::string text_;
  std::string written_;
  std::string spaceBefore_;
  int line_ = 0;
  int column_ = 0;
};

// A run of tokens as the user wrote it, with the blanks between them, for messages that
// quote the command: "0 ELEVEL", not "0ELEVEL".
std::string joinAsWritten(const std::vector<TokenInfoObj>& tokens);

// A problem found while splitting the text into tokens (an unterminated string).
struct TokenizeError {
  std::string text;
  int line = 0;
  int column = 0;
};

class TokenSequenceBase {
 public:
  virtual ~TokenSequenceBase() = default;
  const std::vector<TokenInfoObj>& tokens() const { return tokens_; }
  const std::vector<TokenizeError>& errors() const { return errors_; }
  bool hasTerminator() const;
  // Line and column just after the last token, for "found end of command" messages.
  int endLine() const { return endLine_; }
  int endColumn() const { return endColumn_; }

 protected:
  void tokenize(const std::string& text, int firstLine);

 private:
  std::vector<TokenInfoObj> tokens_;
  std::vector<TokenizeError> errors_;
  int endLine_ = 1;
  int endColumn_ = 1;
};

// The tokens of the host's current command (fromCurrentCommand true), or of an empty
// text (false).
class STAX_TokenSequence : public TokenSequenceBase {
 public:
  explicit STAX_TokenSequence(bool fromCurrentCommand);
  // Tokens of a given text whose first line has the number firstLine.
  STAX_TokenSequence(const std::string& text, int firstLine);
};

}  // namespace stathost

#include "stathost/tokens.h"

#include <gtest/gtest.h>

namespace {

using stathost::STAX_TokenSequence;
using stathost::TokenType;

std::string describe(const STAX_TokenSequence& seq) {
  std::string out;
  for (const auto& t : seq.tokens()) {
    if (!out.empty()) out += ' ';
    switch (t.getType()) {
      case TokenType::kIdentifier:
        out += "id:" + t.getText();
        break;
      case TokenType::kNumber:
        out += "num:" + t.getText();
        break;
      case TokenType::kString:
        out += "str:" + t.getText();
        break;
      case TokenType::kTerminator:
        out += "END";
        break;
      default:
        out += t.getText();
        break;
    }
  }
  return out;
}

struct TokenCase {
  const char* text;
  const char* tokens;
  friend std::ostream& operator<<(std::ostream& os, const TokenCase& c) { return os << c.text; }
};

class Tokenizer : public ::testing::TestWithParam<TokenCase> {};

TEST_P(Tokenizer, SplitsAsTheCommandLanguageReads) {
  STAX_TokenSequence seq(GetParam().text, 1);
  EXPECT_TRUE(seq.errors().empty());
  EXPECT_EQ(describe(seq), GetParam().tokens);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Tokenizer,
    ::testing::Values(
        // A full stop after a number at the end of a line ends the command.
        TokenCase{"ELEVEL=1.", "id:ELEVEL = num:1 END"},
        TokenCase{"ELEVEL=1.5.", "id:ELEVEL = num:1.5 END"},
        TokenCase{"ELEVEL=1.\n  /PRINT", "id:ELEVEL = num:1 END / id:PRINT"},
        TokenCase{"ELEVEL=1. /PRINT", "id:ELEVEL = num:1. / id:PRINT"},
        // A name never ends in a full stop; inside a name it is part of it.
        TokenCase{"WITH c.1 age.", "id:WITH id:c.1 id:age END"},
        TokenCase{"PCONVERGE=1E-6 SINGULAR=1e-12",
                  "id:PCONVERGE = num:1E-6 id:SINGULAR = num:1e-12"},
        TokenCase{"BLEVEL=-1 ELEVEL=+.5", "id:BLEVEL = num:-1 id:ELEVEL = num:+.5"},
        TokenCase{"x(MLEVEL=VALUE(0))", "id:x ( id:MLEVEL = id:VALUE ( num:0 ) )"},
        TokenCase{"LABEL='it''s' \"a\"", "id:LABEL = str:it's str:a"},
        TokenCase{"a .5 b", "id:a num:.5 id:b"}));

// Messages that quote a stretch of the command quote it as written: its blanks kept, a
// line break read as one blank, strings with their quotes.
struct WrittenCase {
  const char* text;
  std::size_t first, count;  // the tokens joined
  const char* written;
  friend std::ostream& operator<<(std::ostream& os, const WrittenCase& c) { return os << c.text; }
};

class WrittenText : public ::testing::TestWithParam<WrittenCase> {};

TEST_P(WrittenText, JoinsTokensAsTheUserWroteThem) {
  STAX_TokenSequence seq(GetParam().text, 1);
  const auto& all = seq.tokens();
  ASSERT_LE(GetParam().first + GetParam().count, all.size());
  const std::vector<stathost::TokenInfoObj> part(
      all.begin() + static_cast<std::ptrdiff_t>(GetParam().first),
      all.begin() + static_cast<std::ptrdiff_t>(GetParam().first + GetParam().count));
  EXPECT_EQ(stathost::joinAsWritten(part), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(Cases, WrittenText,
                         ::testing::Values(WrittenCase{"BLEVEL=0 ELEVEL", 2, 2, "0 ELEVEL"},
                                           WrittenCase{"BLEVEL=0  1 ELEVEL", 2, 2, "0  1"},
                                           WrittenCase{"VALUE (2)x", 0, 5, "VALUE (2)x"},
                                           WrittenCase{"A=1\n    B", 2, 2, "1 B"},
                                           WrittenCase{"X='it''s' \"a\"", 2, 2, "'it''s' \"a\""},
                                           WrittenCase{"  lead", 0, 1, "lead"}));

TEST(TokenizerErrors, UnterminatedStringNamesItsPosition) {
  STAX_TokenSequence seq("CMD X='open\n  /PRINT.", 3);
  ASSERT_EQ(seq.errors().size(), 1u);
  EXPECT_EQ(seq.errors()[0].line, 3);
  EXPECT_EQ(seq.errors()[0].column, 7);
}

TEST(TokenizerErrors, LinesAndColumnsCountFromTheFirstLine) {
  STAX_TokenSequence seq("A\n  B", 10);
  ASSERT_EQ(seq.tokens().size(), 2u);
  EXPECT_EQ(seq.tokens()[1].getLine(), 11);
  EXPECT_EQ(seq.tokens()[1].getColumn(), 3);
}

}  // namespace

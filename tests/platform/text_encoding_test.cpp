#include "stathost/text_encoding.h"

#include <gtest/gtest.h>

namespace {

using namespace stathost;

struct Utf8Case {
  const char* name;
  std::string bytes;
  bool valid;
  std::string repaired;  // repairUtf8(bytes)
  friend std::ostream& operator<<(std::ostream& os, const Utf8Case& c) { return os << c.name; }
};

class Utf8Check : public ::testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8Check, ValidityAndRepair) {
  const Utf8Case& c = GetParam();
  EXPECT_EQ(isValidUtf8(c.bytes), c.valid);
  EXPECT_EQ(repairUtf8(c.bytes), c.repaired);
  EXPECT_TRUE(isValidUtf8(repairUtf8(c.bytes)));
}

const std::string kFffd = "\xEF\xBF\xBD";

INSTANTIATE_TEST_SUITE_P(
    Cases, Utf8Check,
    ::testing::Values(Utf8Case{"Ascii", "abc", true, "abc"},
                      Utf8Case{"TwoByte", "caf\xC3\xA9", true, "caf\xC3\xA9"},
                      Utf8Case{"FourByte", "\xF0\x9F\x98\x80", true, "\xF0\x9F\x98\x80"},
                      Utf8Case{"Latin1Byte", "caf\xE9", false, "caf" + kFffd},
                      Utf8Case{"LoneContinuation", "a\x80z", false, "a" + kFffd + "z"},
                      Utf8Case{"Overlong", "\xC0\xAF", false, kFffd + kFffd},
                      Utf8Case{"Surrogate", "\xED\xA0\x80", false, kFffd + kFffd + kFffd},
                      Utf8Case{"AboveU10FFFF", "\xF4\x90\x80\x80", false,
                               kFffd + kFffd + kFffd + kFffd},
                      Utf8Case{"CutShort", "ab\xE2\x82", false, "ab" + kFffd + kFffd}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST(Windows1252, DecodesLatin1AndTheExtraSigns) {
  EXPECT_EQ(windows1252ToUtf8("caf\xE9 na\xEFve"), "caf\xC3\xA9 na\xC3\xAFve");
  EXPECT_EQ(windows1252ToUtf8("\x80"), "\xE2\x82\xAC");  // the euro sign
  // 0x81 is undefined in the code page.
  EXPECT_EQ(windows1252ToUtf8("a\x81z"), "a" + kFffd + "z");
}

TEST(DecodeText, KeepsUtf8AndFallsBackOtherwise) {
  bool fellBack = false;
  EXPECT_EQ(decodeText("caf\xC3\xA9", &fellBack), "caf\xC3\xA9");
  EXPECT_FALSE(fellBack);
  EXPECT_EQ(decodeText("caf\xE9", &fellBack), "caf\xC3\xA9");
  EXPECT_TRUE(fellBack);
}

TEST(ByteOrderMark, IsStrippedOnlyAtTheStart) {
  std::string text = "\xEF\xBB\xBFid,x";
  EXPECT_TRUE(stripByteOrderMark(text));
  EXPECT_EQ(text, "id,x");
  EXPECT_FALSE(stripByteOrderMark(text));
  EXPECT_EQ(text, "id,x");
}

TEST(RepairJsonText, EveryStringAndKeyBecomesDumpable) {
  nlohmann::json document = {{"file", "dat\xE9.csv"},
                             {"runs", {{{"label", "grp = caf\xE9"}, {"n", 3}}}},
                             {"k\xE9y", true}};
  EXPECT_THROW(document.dump(), nlohmann::json::type_error);
  repairJsonText(document);
  EXPECT_NO_THROW(document.dump());
  EXPECT_EQ(document["file"], "dat" + kFffd + ".csv");
  EXPECT_EQ(document["runs"][0]["label"], "grp = caf" + kFffd);
  EXPECT_EQ(document["runs"][0]["n"], 3);
  EXPECT_TRUE(document.contains("k" + kFffd + "y"));
}

TEST(Utf8Converter, ConvertsFromANamedEncodingOrSaysItCannot) {
  const Utf8Converter latin1("ISO-8859-1");
  ASSERT_TRUE(latin1.usable());
  std::string out;
  EXPECT_TRUE(latin1.convert("caf\xE9", out));
  EXPECT_EQ(out, "caf\xC3\xA9");
  const Utf8Converter utf8("UTF-8");
  out = "unchanged";
  EXPECT_FALSE(utf8.convert("caf\xE9", out));
  EXPECT_EQ(out, "unchanged");
  EXPECT_FALSE(Utf8Converter("NO-SUCH-ENCODING").usable());
}

}  // namespace

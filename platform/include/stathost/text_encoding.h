// Text from files and the command line as UTF-8: the output document holds UTF-8 only, so
// every text that enters it is checked here, decoded from Windows-1252 (a superset of
// Latin-1) when it is not UTF-8, and repaired when it still is not.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace stathost {

// True when the bytes are well-formed UTF-8 (no overlong forms, no surrogates, nothing
// above U+10FFFF).
bool isValidUtf8(std::string_view text);

// The text with every byte that does not begin or continue a well-formed UTF-8 sequence
// replaced by U+FFFD.
std::string repairUtf8(std::string_view text);

// The bytes read as Windows-1252; the five bytes that code page leaves undefined become
// U+FFFD.
std::string windows1252ToUtf8(std::string_view text);

// Converts text from one encoding (an iconv name, as data files record it) to UTF-8.
class Utf8Converter {
 public:
  explicit Utf8Converter(const std::string& fromEncoding);
  ~Utf8Converter();
  Utf8Converter(const Utf8Converter&) = delete;
  Utf8Converter& operator=(const Utf8Converter&) = delete;

  // False when the C library does not know the encoding.
  bool usable() const { return usable_; }
  // The converted text; false (out unchanged) when the text is not valid in the encoding.
  // With `replace`, a byte that is not valid becomes U+FFFD instead, and the call succeeds.
  bool convert(std::string_view text, std::string& out, bool replace = false) const;

 private:
  void* cd_;
  bool usable_;
};

// UTF-8 text unchanged; other text read as Windows-1252, with *fellBack set to true.
std::string decodeText(std::string_view text, bool* fellBack = nullptr);

// Removes a leading UTF-8 byte-order mark; true when there was one.
bool stripByteOrderMark(std::string& text);

// Makes every string of the document, keys included, valid UTF-8 (see repairUtf8).
void repairJsonText(nlohmann::json& document);

}  // namespace stathost

#include "stathost/text_encoding.h"

#include <iconv.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace stathost {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// Length of the well-formed UTF-8 sequence that starts at text[pos], or 0 when the bytes
// there do not form one (the table of well-formed byte sequences of the Unicode standard).
std::size_t sequenceLength(std::string_view text, std::size_t pos) {
  const auto byte = [&](std::size_t k) -> unsigned {
    return pos + k < text.size() ? static_cast<unsigned char>(text[pos + k]) : 0x100u;
  };
  const auto in = [](unsigned b, unsigned lo, unsigned hi) { return b >= lo && b <= hi; };
  const unsigned b0 = byte(0);
  if (b0 < 0x80) return 1;
  if (in(b0, 0xC2, 0xDF)) return in(byte(1), 0x80, 0xBF) ? 2 : 0;
  if (in(b0, 0xE0, 0xEF)) {
    const unsigned lo = b0 == 0xE0 ? 0xA0 : 0x80;
    const unsigned hi = b0 == 0xED ? 0x9F : 0xBF;
    return in(byte(1), lo, hi) && in(byte(2), 0x80, 0xBF) ? 3 : 0;
  }
  if (in(b0, 0xF0, 0xF4)) {
    const unsigned lo = b0 == 0xF0 ? 0x90 : 0x80;
    const unsigned hi = b0 == 0xF4 ? 0x8F : 0xBF;
    return in(byte(1), lo, hi) && in(byte(2), 0x80, 0xBF) && in(byte(3), 0x80, 0xBF) ? 4 : 0;
  }
  return 0;
}

}  // namespace

bool isValidUtf8(std::string_view text) {
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t n = sequenceLength(text, pos);
    if (n == 0) return false;
    pos += n;
  }
  return true;
}

std::string repairUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t n = sequenceLength(text, pos);
    if (n == 0) {
      out += kReplacement;
      ++pos;
    } else {
      out.append(text.substr(pos, n));
      pos += n;
    }
  }
  return out;
}

Utf8Converter::Utf8Converter(const std::string& fromEncoding)
    : cd_(iconv_open("UTF-8", fromEncoding.c_str())), usable_(cd_ != reinterpret_cast<void*>(-1)) {}

Utf8Converter::~Utf8Converter() {
  if (usable_) iconv_close(static_cast<iconv_t>(cd_));
}

bool Utf8Converter::convert(std::string_view text, std::string& out, bool replace) const {
  if (!usable_) return false;
  const auto cd = static_cast<iconv_t>(cd_);
  iconv(cd, nullptr, nullptr, nullptr, nullptr);  // a fresh shift state
  std::vector<char> input(text.begin(), text.end());
  char* in = input.data();
  std::size_t inLeft = input.size();
  std::string converted;
  converted.reserve(text.size() + text.size() / 2);
  char buffer[256];
  while (inLeft > 0) {
    char* outPtr = buffer;
    std::size_t outLeft = sizeof buffer;
    const std::size_t rc = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    converted.append(buffer, static_cast<std::size_t>(outPtr - buffer));
    if (rc != static_cast<std::size_t>(-1) || errno == E2BIG) continue;
    if (!replace) return false;
    // EILSEQ or EINVAL (a sequence cut short at the end): one byte becomes U+FFFD.
    converted += kReplacement;
    ++in;
    --inLeft;
  }
  out = std::move(converted);
  return true;
}

std::string windows1252ToUtf8(std::string_view text) {
  // The five bytes the code page leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) are the
  // ones iconv refuses.
  const Utf8Converter converter("WINDOWS-1252");
  std::string out;
  if (!converter.convert(text, out, true)) out = repairUtf8(text);
  return out;
}

std::string decodeText(std::string_view text, bool* fellBack) {
  if (isValidUtf8(text)) return std::string(text);
  if (fellBack) *fellBack = true;
  return windows1252ToUtf8(text);
}

bool stripByteOrderMark(std::string& text) {
  if (text.compare(0, 3, "\xEF\xBB\xBF") != 0) return false;
  text.erase(0, 3);
  return true;
}

void repairJsonText(nlohmann::json& document) {
  if (document.is_string()) {
    const std::string& s = document.get_ref<const std::string&>();
    if (!isValidUtf8(s)) document = repairUtf8(s);
    return;
  }
  if (document.is_array()) {
    for (auto& element : document) repairJsonText(element);
    return;
  }
  if (!document.is_object()) return;
  bool keysValid = true;
  for (auto it = document.begin(); it != document.end(); ++it) {
    keysValid = keysValid && isValidUtf8(it.key());
    repairJsonText(it.value());
  }
  if (keysValid) return;
  nlohmann::json repaired = nlohmann::json::object();
  for (auto it = document.begin(); it != document.end(); ++it) {
    repaired[repairUtf8(it.key())] = std::move(it.value());
  }
  document = std::move(repaired);
}

}  // namespace stathost

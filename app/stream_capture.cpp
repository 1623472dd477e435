#include "stream_capture.h"

#include <sstream>

namespace medapp {

std::string StreamCapture::Buffer::text() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return text_;
}

StreamCapture::Buffer::int_type StreamCapture::Buffer::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  std::lock_guard<std::mutex> lock(mutex_);
  text_.push_back(traits_type::to_char_type(c));
  return c;
}

std::streamsize StreamCapture::Buffer::xsputn(const char* s, std::streamsize n) {
  std::lock_guard<std::mutex> lock(mutex_);
  text_.append(s, static_cast<std::size_t>(n));
  return n;
}

StreamCapture::StreamCapture()
    : savedOut_(std::cout.rdbuf(&buffer_)),
      savedErr_(std::cerr.rdbuf(&buffer_)),
      originalErr_(savedErr_) {}

StreamCapture::~StreamCapture() {
  std::cout.rdbuf(savedOut_);
  std::cerr.rdbuf(savedErr_);
}

std::vector<std::string> StreamCapture::lines() const {
  std::vector<std::string> out;
  std::istringstream in(buffer_.text());
  std::string line;
  while (std::getline(in, line)) {
    if (line.find_first_not_of(" \t\r") != std::string::npos) out.push_back(line);
  }
  return out;
}

}  // namespace medapp

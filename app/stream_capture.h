// Keeps what a procedure writes to std::cout and std::cerr while it runs (diagnostic
// blocks that belong in the --verbose log, not among the messages).
#pragma once

#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <vector>

namespace medapp {

class StreamCapture {
 public:
  // From now until destruction, std::cout and std::cerr write into the capture.
  StreamCapture();
  ~StreamCapture();
  StreamCapture(const StreamCapture&) = delete;
  StreamCapture& operator=(const StreamCapture&) = delete;

  // Standard error as it was before the capture began (for the host's own messages).
  std::ostream& originalErr() { return originalErr_; }
  // What was written so far, split into lines, in the order written; blank lines dropped.
  std::vector<std::string> lines() const;

 private:
  // A stream buffer that appends to a string; writes from several threads are serialised.
  class Buffer : public std::streambuf {
   public:
    std::string text() const;

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* s, std::streamsize n) override;

   private:
    mutable std::mutex mutex_;
    std::string text_;
  };

  Buffer buffer_;
  std::streambuf* savedOut_;
  std::streambuf* savedErr_;
  std::ostream originalErr_;
};

}  // namespace medapp

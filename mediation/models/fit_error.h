// A failure of a numerical routine: the detail text is the exception's what(); the user
// message, when there is one, is what the caller reports through the procedure's message
// sink before passing the failure on. Numerics never talk to the host themselves.
#pragma once

#include <stdexcept>
#include <string>

namespace medanlys {

class FitError : public std::runtime_error {
 public:
  FitError(const std::string& userMessage, const std::string& detail)
      : std::runtime_error(detail), userMessage_(userMessage) {}
  const std::string& userMessage() const { return userMessage_; }

 private:
  std::string userMessage_;
};

}  // namespace medanlys

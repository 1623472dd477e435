// The diagnostic log of a procedure run: lines the host shows on request (--verbose).
#pragma once

#include <string>
#include <vector>

namespace stathost {

class ProcedureLog {
 public:
  static void write(const std::string& line);
  static void write(const std::vector<std::string>& lines);
};

}  // namespace stathost

// Progress of long procedure work, shown on standard error when it is a terminal.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

namespace stathost {

class ProcedureProgress {
 public:
  // Starts a task of `total` steps ("Bootstrap", 1000 "replicates").
  ProcedureProgress(std::string task, long total, std::string unit);
  ~ProcedureProgress();
  ProcedureProgress(const ProcedureProgress&) = delete;
  ProcedureProgress& operator=(const ProcedureProgress&) = delete;

  // Reports `done` steps. Safe from any thread; draws at most a few times a second and
  // never blocks a caller (a call that finds another drawing returns at once).
  void advance(long done);

 private:
  std::string task_;
  std::string unit_;
  long total_;
  bool enabled_;
  std::chrono::steady_clock::time_point start_;
  std::atomic<long long> lastDrawNs_{0};
  std::mutex drawing_;
  bool drawn_ = false;
};

}  // namespace stathost

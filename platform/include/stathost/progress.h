// Progress of long procedure work. The procedure reports how far it is; the host decides
// how (and how often) to show it, through the observer it sets on the session.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace stathost {

// One report: `done` of `total` units of the task after `elapsedSeconds`; `finished` on the
// last report of a task (when it ends, stopped or not).
struct ProgressReport {
  std::string task;
  std::string unit;
  long done = 0;
  long total = 0;
  double elapsedSeconds = 0.0;
  bool finished = false;
};

class ProcedureProgress {
 public:
  // Starts a task of `total` steps ("Bootstrap", 1000 "replicates").
  ProcedureProgress(std::string task, long total, std::string unit);
  ~ProcedureProgress();
  ProcedureProgress(const ProcedureProgress&) = delete;
  ProcedureProgress& operator=(const ProcedureProgress&) = delete;

  // Reports `done` steps to the host's observer. Safe from any thread; never blocks a
  // caller (a call that finds another report under way returns at once).
  void advance(long done);

 private:
  ProgressReport report(long done) const;

  std::string task_;
  std::string unit_;
  long total_;
  bool enabled_;
  std::chrono::steady_clock::time_point start_;
  std::mutex reporting_;
  long lastDone_ = 0;
  bool reported_ = false;
};

}  // namespace stathost

// Shows the progress reports of long procedure work on standard error: a line redrawn in
// place at most five times a second on a terminal, and otherwise (a batch log) one plain
// line every ten seconds.
#pragma once

#include <cstdio>

#include "stathost/progress.h"

namespace medapp {

class ProgressDisplay {
 public:
  // terminal: whether `out` is a terminal (redrawn line) or not (a line per interval).
  ProgressDisplay(bool terminal, std::FILE* out);

  // Shows the report when the interval since the last line shown has passed (the first
  // line comes one interval after the task started); the last report of a task clears a
  // redrawn line.
  void show(const stathost::ProgressReport& report);

  static constexpr double kTerminalInterval = 0.2;
  static constexpr double kLogInterval = 10.0;

 private:
  bool terminal_;
  std::FILE* out_;
  double interval_;
  double lastShown_ = 0.0;
  bool drawn_ = false;  // a redrawn line is on the screen
};

}  // namespace medapp

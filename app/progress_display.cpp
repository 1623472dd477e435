#include "progress_display.h"

namespace medapp {

ProgressDisplay::ProgressDisplay(bool terminal, std::FILE* out)
    : terminal_(terminal), out_(out), interval_(terminal ? kTerminalInterval : kLogInterval) {}

void ProgressDisplay::show(const stathost::ProgressReport& r) {
  if (r.finished) {
    if (drawn_) std::fprintf(out_, "\r\033[K");  // clear the progress line
    std::fflush(out_);
    drawn_ = false;
    lastShown_ = 0.0;
    return;
  }
  if (r.elapsedSeconds - lastShown_ < interval_) return;
  lastShown_ = r.elapsedSeconds;
  char left[64] = "";
  if (r.done > 0) {
    std::snprintf(
        left, sizeof left, ", about %.1f s left",
        r.elapsedSeconds * static_cast<double>(r.total - r.done) / static_cast<double>(r.done));
  }
  std::fprintf(out_, "%s%s: %ld/%ld %s, %.1f s elapsed%s%s", terminal_ ? "\r\033[K" : "",
               r.task.c_str(), r.done, r.total, r.unit.c_str(), r.elapsedSeconds, left,
               terminal_ ? "" : "\n");
  std::fflush(out_);
  drawn_ = terminal_;
}

}  // namespace medapp

#include "stathost/progress.h"

#include <cstdio>

#include "stathost/host_session.h"

namespace stathost {

namespace {
constexpr long long kRedrawNs = 200'000'000;  // at most five redraws a second
}

ProcedureProgress::ProcedureProgress(std::string task, long total, std::string unit)
    : task_(std::move(task)),
      unit_(std::move(unit)),
      total_(total),
      enabled_(HostSession::instance().progressEnabled() && total > 0),
      start_(std::chrono::steady_clock::now()) {}

ProcedureProgress::~ProcedureProgress() {
  if (drawn_) std::fprintf(stderr, "\r\033[K");  // clear the progress line
}

void ProcedureProgress::advance(long done) {
  if (!enabled_) return;
  const long long now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::steady_clock::now() - start_)
                            .count();
  if (now - lastDrawNs_.load(std::memory_order_relaxed) < kRedrawNs) return;
  std::unique_lock<std::mutex> lock(drawing_, std::try_to_lock);
  if (!lock.owns_lock()) return;
  lastDrawNs_.store(now, std::memory_order_relaxed);
  const double elapsed = static_cast<double>(now) * 1e-9;
  const double left =
      done > 0 ? elapsed * static_cast<double>(total_ - done) / static_cast<double>(done) : 0.0;
  std::fprintf(stderr, "\r\033[K%s: %ld/%ld %s, %.1f s elapsed, about %.1f s left", task_.c_str(),
               done, total_, unit_.c_str(), elapsed, left);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace stathost

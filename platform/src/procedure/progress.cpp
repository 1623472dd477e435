#include "stathost/progress.h"

#include "stathost/host_session.h"

namespace stathost {

ProcedureProgress::ProcedureProgress(std::string task, long total, std::string unit)
    : task_(std::move(task)),
      unit_(std::move(unit)),
      total_(total),
      enabled_(HostSession::instance().progressEnabled() && total > 0),
      start_(std::chrono::steady_clock::now()) {}

ProcedureProgress::~ProcedureProgress() {
  if (!enabled_ || !reported_) return;
  ProgressReport last = report(lastDone_);
  last.finished = true;
  HostSession::instance().reportProgress(last);
}

ProgressReport ProcedureProgress::report(long done) const {
  ProgressReport r;
  r.task = task_;
  r.unit = unit_;
  r.done = done;
  r.total = total_;
  r.elapsedSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  return r;
}

void ProcedureProgress::advance(long done) {
  if (!enabled_) return;
  std::unique_lock<std::mutex> lock(reporting_, std::try_to_lock);
  if (!lock.owns_lock()) return;
  lastDone_ = done;
  reported_ = true;
  HostSession::instance().reportProgress(report(done));
}

}  // namespace stathost

#include "stathost/stop_processor.h"

#include <chrono>

#include "stathost/host_session.h"

namespace stathost {

ACAStopProcessor::ACAStopProcessor(double pollInterval) : pollInterval_(pollInterval) {}

ACAStopProcessor::~ACAStopProcessor() = default;

bool ACAStopProcessor::CheckCancel() {
  if (cancelled_.load(std::memory_order_relaxed)) return true;
  if (pollInterval_ > 0.0) {
    const double now =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    if (now - lastPoll_.load(std::memory_order_relaxed) < pollInterval_) return false;
    lastPoll_.store(now, std::memory_order_relaxed);
  }
  if (HostSession::instance().cancelRequests() > 0) cancelled_.store(true);
  return cancelled_.load(std::memory_order_relaxed);
}

}  // namespace stathost

// Cooperative cancellation: a procedure polls CheckCancel during long work.
#pragma once

#include <atomic>

namespace stathost {

class ACAStopProcessor {
 public:
  // pollInterval: the least number of seconds between two polls of the host flag that
  // CheckCancel honours (0 polls every time).
  explicit ACAStopProcessor(double pollInterval);
  virtual ~ACAStopProcessor();
  ACAStopProcessor(const ACAStopProcessor&) = delete;
  ACAStopProcessor& operator=(const ACAStopProcessor&) = delete;

  // The answer of the last poll, without polling.
  bool GetCancel() const { return cancelled_.load(std::memory_order_relaxed); }
  // Polls the host: true once the user asked to stop (Ctrl-C). Thread-safe.
  bool CheckCancel();

 private:
  double pollInterval_;
  std::atomic<bool> cancelled_{false};
  std::atomic<double> lastPoll_{-1.0};
};

}  // namespace stathost

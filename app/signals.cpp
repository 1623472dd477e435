#include "signals.h"

#include <unistd.h>

#include <csignal>

#include "stathost/host_session.h"

namespace medapp {
namespace {

// Batch schedulers send SIGTERM some time before they kill a job: it is treated as Ctrl-C,
// so that the report of what was computed is still written.
extern "C" void onInterrupt(int) {
  stathost::HostSession& session = stathost::HostSession::instance();
  if (session.cancelRequests() > 0) _exit(130);
  session.requestCancel();
  static const char kNote[] =
      "\nStopping at the next checkpoint; press Ctrl-C (or send the signal) again to quit.\n";
  const ssize_t ignored = write(STDERR_FILENO, kNote, sizeof kNote - 1);
  (void)ignored;
}

}  // namespace

void installInterruptHandler() {
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace medapp

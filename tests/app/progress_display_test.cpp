// What the progress display writes, fed reports with given elapsed times (no clock).
#include "progress_display.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using medapp::ProgressDisplay;
using stathost::ProgressReport;

ProgressReport at(double seconds, long done, bool finished = false) {
  ProgressReport r;
  r.task = "Bootstrap";
  r.unit = "replicates";
  r.done = done;
  r.total = 1000;
  r.elapsedSeconds = seconds;
  r.finished = finished;
  return r;
}

// Everything the display wrote for the reports.
std::string shown(bool terminal, const std::vector<ProgressReport>& reports) {
  std::FILE* out = std::tmpfile();
  ProgressDisplay display(terminal, out);
  for (const ProgressReport& r : reports) display.show(r);
  std::rewind(out);
  std::string text;
  for (int c = std::fgetc(out); c != EOF; c = std::fgetc(out)) text.push_back(static_cast<char>(c));
  std::fclose(out);
  return text;
}

TEST(ProgressDisplay, ABatchLogGetsAPlainLineEveryTenSeconds) {
  EXPECT_EQ(shown(false, {at(0.5, 10), at(9.9, 200), at(10.0, 250), at(12.0, 300), at(20.5, 500),
                          at(21.0, 510, true)}),
            "Bootstrap: 250/1000 replicates, 10.0 s elapsed, about 30.0 s left\n"
            "Bootstrap: 500/1000 replicates, 20.5 s elapsed, about 20.5 s left\n");
}

TEST(ProgressDisplay, ATerminalGetsOneLineRedrawnAndClearedAtTheEnd) {
  EXPECT_EQ(shown(true, {at(0.1, 10), at(0.2, 20), at(0.3, 30), at(0.4, 40), at(0.5, 50, true)}),
            "\r\033[KBootstrap: 20/1000 replicates, 0.2 s elapsed, about 9.8 s left"
            "\r\033[KBootstrap: 40/1000 replicates, 0.4 s elapsed, about 9.6 s left"
            "\r\033[K");
}

TEST(ProgressDisplay, NoTimeLeftBeforeTheFirstStep) {
  EXPECT_EQ(shown(false, {at(10.0, 0)}), "Bootstrap: 0/1000 replicates, 10.0 s elapsed\n");
}

}  // namespace

// Progress reports reach the observer the host sets, and only then.
#include "stathost/progress.h"

#include <gtest/gtest.h>

#include <vector>

#include "stathost/host_session.h"

namespace {

using stathost::HostSession;
using stathost::ProcedureProgress;
using stathost::ProgressReport;

class ProgressTest : public ::testing::Test {
 protected:
  ~ProgressTest() override { HostSession::instance().setProgressObserver(nullptr); }
};

TEST_F(ProgressTest, ReportsEachAdvanceAndTheEndToTheObserver) {
  std::vector<ProgressReport> reports;
  HostSession::instance().setProgressObserver(
      [&reports](const ProgressReport& r) { reports.push_back(r); });
  {
    ProcedureProgress progress("Bootstrap", 100, "replicates");
    progress.advance(10);
    progress.advance(40);
  }
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_EQ(reports[0].task, "Bootstrap");
  EXPECT_EQ(reports[0].unit, "replicates");
  EXPECT_EQ(reports[0].done, 10);
  EXPECT_EQ(reports[0].total, 100);
  EXPECT_FALSE(reports[0].finished);
  EXPECT_EQ(reports[1].done, 40);
  EXPECT_TRUE(reports[2].finished);
  EXPECT_EQ(reports[2].done, 40);
  EXPECT_GE(reports[2].elapsedSeconds, reports[0].elapsedSeconds);
}

TEST_F(ProgressTest, NothingWithoutAnObserverOrWithoutWork) {
  std::vector<ProgressReport> reports;
  {
    ProcedureProgress progress("Bootstrap", 100, "replicates");
    progress.advance(10);
  }
  HostSession::instance().setProgressObserver(
      [&reports](const ProgressReport& r) { reports.push_back(r); });
  {
    ProcedureProgress empty("Bootstrap", 0, "replicates");
    empty.advance(0);
  }
  EXPECT_TRUE(reports.empty());
}

}  // namespace

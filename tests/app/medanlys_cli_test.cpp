// The command line with the MEDIATION ANALYSIS module, end to end.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "cli.h"
#include "entry/medanlys_entry.h"
#include "stathost/host_session.h"
#include "test_util.h"

namespace {

using nlohmann::json;

std::string dataText() {
  std::string text = "y,m,x,count\n";
  for (int i = 0; i < 12; ++i) {
    text += std::to_string(0.5 * i) + "," + std::to_string(i % 2) + "," +
            std::to_string(i % 3 == 0) + "," + std::to_string(i % 4) + "\n";
  }
  return text;
}

class MediationCli : public ::testing::Test {
 protected:
  int run(const std::string& command, std::string& err, json& report) {
    std::vector<std::string> args = {"medanlys", "run",   "--data",         data_,      "-e",
                                     command,    "--out", dir_.path("out"), "--format", "json"};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    testing::internal::CaptureStderr();
    const int status = medapp::runCli(static_cast<int>(argv.size()), argv.data(),
                                      {{"MEDIATION ANALYSIS", &MEDANLYS}});
    err = testing::internal::GetCapturedStderr();
    std::ifstream in(dir_.path("out/report.json"));
    report = json::parse(in);
    return status;
  }

  testsupport::TempDir dir_;
  std::string data_ = dir_.file("d.csv", dataText());
};

TEST_F(MediationCli, BinaryMediatorWithCountOutcomeIsRefused) {
  std::string err;
  json report;
  const int status =
      run("MEDIATION ANALYSIS OUTCOMEVAR=count MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)\n"
          "  /MEDMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /OUTMODEL DISTRIBUTION=POISSON LINK=LOG\n"
          "  /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
          err, report);
  EXPECT_EQ(status, 1);
  EXPECT_NE(
      err.find("error: An invalid combination of distribution and link settings is specified."),
      std::string::npos)
      << err;
  EXPECT_EQ(report["runs"][0]["status"], "error");
  EXPECT_TRUE(report["runs"][0]["items"].empty());
}

TEST_F(MediationCli, SyntaxErrorNamesLineAndColumnAndWritesNoOutput) {
  std::string err;
  json report;
  const int status =
      run("MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x\n"
          "  /MEDMODEL DISTRIBUTION=NORMAL LINK=LOG.",
          err, report);
  EXPECT_EQ(status, 1);
  EXPECT_NE(err.find("<command line>:2:38: error: MEDIATION ANALYSIS: syntax error at line 2, "
                     "column 38: found 'LOG', expected IDENTITY or LOGIT for MEDMODEL LINK."),
            std::string::npos)
      << err;
  EXPECT_TRUE(report["runs"][0]["items"].empty());
}

TEST_F(MediationCli, AnUnknownVariableSuggestsTheClosestNames) {
  std::string err;
  json report;
  const int status =
      run("MEDIATION ANALYSIS OUTCOMEVAR=counts MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)\n"
          "  /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=POISSON LINK=LOG\n"
          "  /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
          err, report);
  EXPECT_EQ(status, 1);
  EXPECT_NE(err.find("error: Variable counts specified for OUTCOMEVAR does not exist in the "
                     "active data set. Did you mean: count?"),
            std::string::npos)
      << err;
}

TEST_F(MediationCli, ACommandWithoutPrintSaysWhichKeywordsGiveTables) {
  std::string err;
  json report;
  const int status =
      run("MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)\n"
          "  /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL\n"
          "  /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL.",
          err, report);
  EXPECT_EQ(status, 0);
  const std::string text =
      "The command ended without output: it has no /PRINT subcommand, which chooses the "
      "tables. /PRINT alone shows MEDIATION_REGRESSION_MODEL, OUTCOME_REGRESSION_MODEL and "
      "EXPOSURE_STATS; /PRINT also takes DECOMP_RESULTS, INTERACTION_EFFECTS, RATIO_STATS, "
      "COV_MATRIX, CASE_SUMMARY, DESCRIPTIVES and SENSITIVITY.";
  EXPECT_NE(err.find("warning: " + text), std::string::npos) << err;
  EXPECT_EQ(report["runs"][0]["messages"][0]["text"], text);
}

// 200 cases: binary exposure x, covariate c, continuous and binary mediators m and mb,
// binary and count outcomes yb and yc (deterministic, no generator needed).
std::string bootstrapData() {
  std::string text = "x,c,m,mb,y,yb,yc\n";
  for (int i = 0; i < 200; ++i) {
    const int x = i % 2;
    const double c = std::sin(1.7 * i);
    const double m = 0.6 * x + 0.3 * c + std::cos(2.3 * i);
    const int mb = m + 0.4 * std::sin(0.37 * i) > 0.3 ? 1 : 0;
    const double y = 0.5 * m + 0.4 * x + 0.8 * std::sin(0.91 * i + 1);
    const int yb = y + 0.5 * std::cos(1.3 * i) > 0.4 ? 1 : 0;
    const int yc = static_cast<int>(std::floor(2.0 + y + std::sin(0.53 * i)));
    text += std::to_string(x) + "," + std::to_string(c) + "," + std::to_string(m) + "," +
            std::to_string(mb) + "," + std::to_string(y) + "," + std::to_string(yb) + "," +
            std::to_string(yc < 0 ? 0 : yc) + "\n";
  }
  return text;
}

// The bootstrap is stopped when its progress reports 300 replicates done, as the user would
// stop it with Ctrl-C: one thread stops at its next check, after 310.
extern "C" void medanlysStoppedAt300() {
  stathost::HostSession::instance().setProgressObserver([](const stathost::ProgressReport& r) {
    if (!r.finished && r.done >= 300) stathost::HostSession::instance().requestCancel();
  });
  MEDANLYS();
}

struct StoppedBootstrap {
  const char* name;
  const char* roles;  // outcome, mediator and models
  const char* table;  // the bootstrap decomposition table
  friend std::ostream& operator<<(std::ostream& os, const StoppedBootstrap& c) {
    return os << c.name;
  }
};

class MediationCliStopped : public ::testing::TestWithParam<StoppedBootstrap> {};

TEST_P(MediationCliStopped, SummarisesTheReplicatesThatFinished) {
  testsupport::TempDir dir;
  std::vector<std::string> args = {
      "medanlys",
      "run",
      "--data",
      dir.file("d.csv", bootstrapData()),
      "-e",
      std::string("MEDIATION ANALYSIS ") + GetParam().roles +
          " /CRITERIA CILEVEL=95 CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL"
          " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=1000) /PRINT DECOMP_RESULTS.",
      "--out",
      dir.path("out"),
      "--format",
      "json",
      "--threads",
      "1"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  testing::internal::CaptureStderr();
  const int status = medapp::runCli(static_cast<int>(argv.size()), argv.data(),
                                    {{"MEDIATION ANALYSIS", &medanlysStoppedAt300}});
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(status, 130) << err;
  EXPECT_NE(err.find("The bootstrap was stopped by the user after 310 of 1000 replicates; its "
                     "results use those replicates."),
            std::string::npos)
      << err;
  std::ifstream in(dir.path("out/report.json"));
  const json report = json::parse(in);
  const json& run = report["runs"][0];
  EXPECT_EQ(run["status"], "cancelled");
  const json* table = nullptr;
  for (const json& item : run["items"]) {
    if (item.value("title", "") == GetParam().table) table = &item;
  }
  ASSERT_NE(table, nullptr) << run["items"].dump(1);
  // Estimate, SE, z, p-value and the limits, all computed from the finished replicates.
  ASSERT_EQ((*table)["columns"].size(), 6u) << (*table)["columns"].dump();
  EXPECT_EQ((*table)["columns"][1], json::array({"SE"}));
  const json& first = (*table)["cells"][0];
  for (std::size_t k = 0; k < 6; ++k) {
    EXPECT_TRUE(first[k]["value"].is_number()) << k << ": " << first.dump();
  }
  // The footnote counts the replicates that ran, not those asked for.
  EXPECT_NE((*table)["footnotes"].dump().find("based on 310 resamples"), std::string::npos)
      << (*table)["footnotes"].dump();
}

INSTANTIATE_TEST_SUITE_P(
    Analyses, MediationCliStopped,
    ::testing::Values(
        StoppedBootstrap{"ContinuousMediatorAndOutcome",
                         "OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) WITH c "
                         "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL",
                         "Decomposition Analysis Results(Bootstrap method)"},
        StoppedBootstrap{"BinaryMediator",
                         "OUTCOMEVAR=y MEDIATORVAR=mb PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) WITH c "
                         "/MEDMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /OUTMODEL DISTRIBUTION=NORMAL",
                         "Decomposition Analysis Results(Bootstrap method)"},
        StoppedBootstrap{"BinaryOutcome",
                         "OUTCOMEVAR=yb MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) WITH c "
                         "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT",
                         "Decomposition Analysis Results(Bootstrap method)"},
        StoppedBootstrap{"CountOutcome",
                         "OUTCOMEVAR=yc MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) WITH c "
                         "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=POISSON LINK=LOG",
                         "Decomposition Analysis Results(Bootstrap method)"}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST(MediationCliReference, DeltaRunSucceedsAndVerboseShowsTheRunSequence) {
  testsupport::TempDir dir;
  std::vector<std::string> args = {
      "medanlys",
      "run",
      "--data",
      std::string(MEDANLYS_TEST_DATA) + "/reference/nn_binA.csv",
      "-e",
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 C2\n"
      " /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL\n"
      " /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=ROBUST ANALYSISTYPE=CAUSAL /PRINT.",
      "--out",
      dir.path("out"),
      "--format",
      "json",
      "--verbose"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  testing::internal::CaptureStderr();
  const int status = medapp::runCli(static_cast<int>(argv.size()), argv.data(),
                                    {{"MEDIATION ANALYSIS", &MEDANLYS}});
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(status, 0) << err;
  std::size_t at = 0;
  for (const char* line :
       {"No weights provided; using uniform weights.", "Data preprocessing completed in",
        "Mediator model fitted in", "Outcome model fitted in", "Mediation effects computed in",
        "Delta method inference completed in",
        "Bootstrap inference skipped - using delta method only"}) {
    const std::size_t found = err.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << "\n" << err;
    at = found;
  }
  // The binary exposure with BLEVEL=0 draws the zero-baseline warning.
  EXPECT_NE(err.find("warning: a_star (BLEVEL) = 0"), std::string::npos);
}

}  // namespace

// The command line with the MEDIATION ANALYSIS module, end to end.
#include <gtest/gtest.h>

#include <fstream>

#include "cli.h"
#include "entry/medanlys_entry.h"
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

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
    text += std::to_string(0.5 * i) + "," + std::to_string(i % 2) + "," + std::to_string(i % 3 == 0) +
            "," + std::to_string(i % 4) + "\n";
  }
  return text;
}

class MediationCli : public ::testing::Test {
 protected:
  int run(const std::string& command, std::string& err, json& report) {
    std::vector<std::string> args = {"medanlys", "run",   "--data",   data_, "-e",
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
  const int status = run(
      "MEDIATION ANALYSIS OUTCOMEVAR=count MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)\n"
      "  /MEDMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /OUTMODEL DISTRIBUTION=POISSON LINK=LOG\n"
      "  /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.",
      err, report);
  EXPECT_EQ(status, 1);
  EXPECT_NE(err.find("error: An invalid combination of distribution and link settings is specified."),
            std::string::npos)
      << err;
  EXPECT_EQ(report["runs"][0]["status"], "error");
  EXPECT_TRUE(report["runs"][0]["items"].empty());
}

TEST_F(MediationCli, SyntaxErrorNamesLineAndColumnAndWritesNoOutput) {
  std::string err;
  json report;
  const int status = run(
      "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x\n"
      "  /MEDMODEL DISTRIBUTION=NORMAL LINK=LOG.",
      err, report);
  EXPECT_EQ(status, 1);
  EXPECT_NE(err.find("<command line>:2:38: error: MEDIATION ANALYSIS: syntax error at line 2, "
                     "column 38: found 'LOG', expected IDENTITY or LOGIT for MEDMODEL LINK."),
            std::string::npos)
      << err;
  EXPECT_TRUE(report["runs"][0]["items"].empty());
}

}  // namespace

// End-to-end runs of the command line with the test procedure registered.
#include "cli.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "test_grammar.h"
#include "test_procedure.h"
#include "test_util.h"

namespace {

using nlohmann::json;

const char kData[] =
    "y,m,x,g,c,name\n"
    "1.5,2.0,0,1,10.5,ann\n"
    "2.5,3.0,1,1,11.5,bob\n"
    "3.0,2.5,0,2,9.0,cy\n"
    "4.5,4.0,1,2,,dee\n"
    "5.0,5.5,1,2,12.0,eve\n";

struct CliResult {
  int status;
  std::string out;
  std::string err;
  json report;  // null when no report.json was written
};

class CliTest : public ::testing::Test {
 protected:
  CliResult run(std::vector<std::string> args) {
    args.insert(args.begin(), "medanlys");
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CliResult r;
    r.status = medapp::runCli(static_cast<int>(argv.size()), argv.data(),
                              {{testsupport::kTestCommand, &TESTPROC}});
    r.out = testing::internal::GetCapturedStdout();
    r.err = testing::internal::GetCapturedStderr();
    std::ifstream in(dir_.path("out/report.json"));
    if (in) {
      r.report = json::parse(in);
      std::remove(dir_.path("out/report.json").c_str());
    }
    return r;
  }
  CliResult runCommand(const std::string& command, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"run",   "--data", data_,           "-e",
                                     command, "--out",  dir_.path("out")};
    args.insert(args.end(), extra.begin(), extra.end());
    return run(args);
  }

  testsupport::TempDir dir_;
  std::string data_ = dir_.file("data.csv", kData);
};

TEST_F(CliTest, RunsACommandAndWritesAllThreeRenderings) {
  const CliResult r = runCommand(
      "MEDIATION TEST OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x WITH c /CRITERIA CILEVEL=90 "
      "/PLOT SCATTER_PLOT.");
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_TRUE(r.report.is_object());
  EXPECT_EQ(r.report["format"], "medanlys-output");
  EXPECT_EQ(r.report["data"]["cases"], 5);
  ASSERT_EQ(r.report["runs"].size(), 1u);
  const json& run = r.report["runs"][0];
  EXPECT_EQ(run["status"], "ok");
  EXPECT_TRUE(run["split"].is_null());
  ASSERT_EQ(run["items"].size(), 3u);
  EXPECT_EQ(run["items"][0]["type"], "notes");
  const json& table = run["items"][1];
  EXPECT_EQ(table["title"], "Variable Summary");
  // Case 4 has no covariate: 4 complete cases; mean of y over them is 3.0.
  EXPECT_EQ(table["cells"][0][0]["value"], 4);
  EXPECT_DOUBLE_EQ(table["cells"][0][1]["value"].get<double>(), 3.0);
  EXPECT_EQ(table["footnotes"][1]["text"], "Confidence level 90%.");
  EXPECT_EQ(run["items"][2]["type"], "chart");
  EXPECT_NE(r.out.find("Variable Summary"), std::string::npos);
  std::ifstream html(dir_.path("out/report.html"));
  std::stringstream page;
  page << html.rdbuf();
  EXPECT_NE(page.str().find("Variable Summary"), std::string::npos);
}

struct FailureCase {
  const char* name;
  const char* command;  // run with -e on the good data
  const char* message;  // expected on standard error and in the report
  friend std::ostream& operator<<(std::ostream& os, const FailureCase& c) { return os << c.name; }
};

class CliCommandFailures : public CliTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(CliCommandFailures, ExitOneWithTheMessageInBothPlaces) {
  const CliResult r = runCommand(GetParam().command);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(GetParam().message), std::string::npos) << r.err;
  ASSERT_TRUE(r.report.is_object());
  ASSERT_EQ(r.report["runs"].size(), 1u);
  EXPECT_EQ(r.report["runs"][0]["status"], "error");
  EXPECT_NE(r.report["runs"][0]["messages"].dump().find(GetParam().message), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CliCommandFailures,
    ::testing::Values(
        FailureCase{"SyntaxError", "MEDIATION TEST OUTCOMEVAR=y /CRITERIA CITYPE=MAYBE.",
                    "MEDIATION TEST: syntax error at line 1, column 46: "
                    "found 'MAYBE', expected DELTA or BOOTSTRAP for CRITERIA CITYPE."},
        FailureCase{"UnknownCommand", "FREQUENCIES y.", "Unrecognized command 'FREQUENCIES'"},
        FailureCase{"VariableNotInData", "MEDIATION TEST OUTCOMEVAR=zz.",
                    "Variable zz specified for OUTCOMEVAR is not in the active data set."},
        FailureCase{"StringWhereNumbersAreNeeded", "MEDIATION TEST OUTCOMEVAR=name.",
                    "Variable name specified for OUTCOMEVAR must be numeric."},
        FailureCase{"EmptyKeywordList", "MEDIATION TEST OUTCOMEVAR=y WITH.",
                    "No covariate variables follow the keyword WITH"},
        FailureCase{"ScaleFactorGetsAHint", "MEDIATION TEST OUTCOMEVAR=y BY c.",
                    "Hint: c is scale in the data; --nominal c"}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST_F(CliTest, MessagesOnStandardErrorNameWhereTheyPoint) {
  const CliResult r = runCommand("MEDIATION TEST OUTCOMEVAR=y\n /PRINT FOO.");
  EXPECT_NE(
      r.err.find("<command line>:2:9: error: MEDIATION TEST: syntax error at line 2, column 9"),
      std::string::npos)
      << r.err;
  EXPECT_EQ(r.report["runs"][0]["messages"][0]["line"], 2);
  EXPECT_EQ(r.report["runs"][0]["messages"][0]["column"], 9);
}

TEST_F(CliTest, SplitGroupsRunOncePerGroup) {
  const CliResult r = runCommand("MEDIATION TEST OUTCOMEVAR=y MEDIATORVAR=m.", {"--split", "g"});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(r.report["runs"].size(), 2u);
  EXPECT_EQ(r.report["runs"][0]["split"]["label"], "g = 1");
  EXPECT_EQ(r.report["runs"][1]["split"]["label"], "g = 2");
  EXPECT_EQ(r.report["runs"][1]["items"][1]["cells"][0][0]["value"], 3);
}

TEST_F(CliTest, SplitFileCommandInACommandFile) {
  const std::string syntax = dir_.file("cmd.sps",
                                       "SPLIT FILE BY g.\n"
                                       "MEDIATION TEST OUTCOMEVAR=y\n  MEDIATORVAR=m.\n"
                                       "SPLIT FILE OFF.\n"
                                       "MEDIATION TEST OUTCOMEVAR=y.\n");
  const CliResult r = run(
      {"run", "--data", data_, "--syntax", syntax, "--out", dir_.path("out"), "--format", "json"});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_EQ(r.report["runs"].size(), 3u);
  EXPECT_EQ(r.report["runs"][2]["line"], 5);
  EXPECT_TRUE(r.report["runs"][2]["split"].is_null());
  EXPECT_TRUE(r.out.empty());  // no text rendering asked for
}

struct SetupFailure {
  const char* name;
  const char* data;    // file content, or nullptr for a file that does not exist
  const char* syntax;  // command file content
  const char* message;
  friend std::ostream& operator<<(std::ostream& os, const SetupFailure& c) { return os << c.name; }
};

class CliSetupFailures : public CliTest, public ::testing::WithParamInterface<SetupFailure> {};

TEST_P(CliSetupFailures, ExitOneWithAClearMessage) {
  const SetupFailure& c = GetParam();
  const std::string data = c.data ? dir_.file("bad.csv", c.data) : dir_.path("none.csv");
  const std::string syntax = dir_.file("cmd.sps", c.syntax);
  const CliResult r = run({"run", "--data", data, "--syntax", syntax, "--out", dir_.path("out")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  ASSERT_TRUE(r.report.is_object());
  EXPECT_NE(r.report["messages"].dump().find(c.message), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CliSetupFailures,
    ::testing::Values(SetupFailure{"MissingDataFile", nullptr, "MEDIATION TEST OUTCOMEVAR=y.\n",
                                   "Cannot open data file"},
                      SetupFailure{"RaggedRow", "y,m\n1,2\n3\n", "MEDIATION TEST OUTCOMEVAR=y.\n",
                                   "line 3: the row has 1 fields, but the header has 2"},
                      SetupFailure{"EmptyFile", "", "MEDIATION TEST OUTCOMEVAR=y.\n", "is empty"},
                      SetupFailure{"NoFullStop", kData, "MEDIATION TEST OUTCOMEVAR=y\n",
                                   "does not end with a full stop"},
                      SetupFailure{"UnknownSplitVariable", kData,
                                   "SPLIT FILE BY zz.\nMEDIATION TEST OUTCOMEVAR=y.\n",
                                   "the split variable 'zz' is not in the data"}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST_F(CliTest, UsageErrorsExitTwo) {
  EXPECT_EQ(run({}).status, 2);
  EXPECT_EQ(run({"run", "--data", data_}).status, 2);
  EXPECT_EQ(run({"run", "--data", data_, "-e", "X.", "--format", "pdf"}).status, 2);
  EXPECT_EQ(run({"run", "--data", data_, "-e", "X.", "--threads", "0"}).status, 2);
  EXPECT_EQ(run({"--help"}).status, 0);
}

}  // namespace

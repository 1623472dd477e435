// End-to-end runs of the command line with the test procedure registered.
#include "cli.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <sstream>

#include "sav_file.h"
#include "stathost/host_session.h"
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

// Procedures that stand in for what a real procedure may do while it runs.
void addTextItem(const std::string& text) {
  stathost::HostSession::instance().addProcedureItems(
      json::array({{{"type", "text"}, {"title", "Result"}, {"text", text}}}));
}
int gSignal = SIGINT;
extern "C" void raiseSignalProc() {
  std::raise(gSignal);  // as if the user pressed Ctrl-C, or a scheduler sent SIGTERM
  addTextItem("what was computed before the stop");
}
extern "C" void noisyProc() {
  std::cerr << "Skewness: 1.5\nTransformation applied: log\n";
  std::cout << "BOOTSTRAP RESULTS SUMMARY\n";
  addTextItem("the result");
}

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
                              {{testsupport::kTestCommand, &TESTPROC},
                               {"SIGNAL TEST", &raiseSignalProc},
                               {"NOISY TEST", &noisyProc}});
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
                                   "the split variable 'zz' is not in the data"},
                      SetupFailure{"HeaderThatDoesNotSplit", "y|m\n1|2\n",
                                   "MEDIATION TEST OUTCOMEVAR=y.\n",
                                   "Hint: if the fields are separated by another character, "
                                   "give it with --delimiter (for example --delimiter ';', "
                                   "--delimiter tab or --delimiter whitespace)."}),
    [](const auto& tp) { return std::string(tp.param.name); });

class CliSignals : public CliTest, public ::testing::WithParamInterface<int> {};

// SIGTERM (a batch scheduler's notice) is treated like Ctrl-C: the run stops, the report is
// written, and the exit status says that the run was stopped.
TEST_P(CliSignals, StopTheRunWriteTheReportAndExit130) {
  gSignal = GetParam();
  const std::string syntax =
      dir_.file("cmd.sps", "SIGNAL TEST OUTCOMEVAR=y.\nMEDIATION TEST OUTCOMEVAR=y.\n");
  const CliResult r = run({"run", "--data", data_, "--syntax", syntax, "--out", dir_.path("out")});
  EXPECT_EQ(r.status, 130) << r.err;
  EXPECT_NE(r.err.find("Stopping at the next checkpoint"), std::string::npos) << r.err;
  ASSERT_TRUE(r.report.is_object());
  ASSERT_EQ(r.report["runs"].size(), 1u);
  EXPECT_EQ(r.report["runs"][0]["status"], "cancelled");
  EXPECT_NE(r.report["messages"].dump().find("Not run: the user stopped the run."),
            std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Signals, CliSignals, ::testing::Values(SIGINT, SIGTERM),
                         [](const auto& tp) { return tp.param == SIGINT ? "SIGINT" : "SIGTERM"; });

struct CaptureCase {
  const char* name;
  bool verbose;
  friend std::ostream& operator<<(std::ostream& os, const CaptureCase& c) { return os << c.name; }
};

class CliProcedureStreams : public CliTest, public ::testing::WithParamInterface<CaptureCase> {};

// What a procedure writes to the standard streams is diagnostics: it stays out of standard
// error and output, and goes into the --verbose log.
TEST_P(CliProcedureStreams, GoIntoTheLogNotAmongTheMessages) {
  std::vector<std::string> extra = {"--format", "json"};
  if (GetParam().verbose) extra.push_back("--verbose");
  const CliResult r = runCommand("NOISY TEST OUTCOMEVAR=y.", extra);
  ASSERT_EQ(r.status, 0) << r.err;
  const bool verbose = GetParam().verbose;
  EXPECT_EQ(r.out.find("BOOTSTRAP RESULTS SUMMARY"), std::string::npos) << r.out;
  // With --verbose the log is shown on standard error, under the messages.
  EXPECT_EQ(r.err.find("Skewness: 1.5") != std::string::npos, verbose) << r.err;
  const std::string items = r.report["runs"][0]["items"].dump();
  EXPECT_EQ(items.find("Skewness: 1.5") != std::string::npos, verbose);
  EXPECT_EQ(items.find("Transformation applied: log") != std::string::npos, verbose);
  EXPECT_EQ(items.find("BOOTSTRAP RESULTS SUMMARY") != std::string::npos, verbose);
}

INSTANTIATE_TEST_SUITE_P(Cases, CliProcedureStreams,
                         ::testing::Values(CaptureCase{"Quiet", false},
                                           CaptureCase{"Verbose", true}),
                         [](const auto& tp) { return std::string(tp.param.name); });

// Text that is not UTF-8 in the data (a split variable's values) and in the command file:
// read as Windows-1252 with a warning, and the report is written.
TEST_F(CliTest, Latin1TextInTheDataAndTheCommandsStillGivesTheReport) {
  const std::string data = dir_.file("latin1.csv",
                                     "y,m,x,site\n1.5,2.0,0,Malm\xF6\n2.5,3.0,1,Malm\xF6\n"
                                     "3.0,2.5,0,G\xE4vle\n4.5,4.0,1,G\xE4vle\n");
  const std::string syntax = dir_.file("cmd.sps",
                                       "* Gr\xF6\xDF"
                                       "e.\nMEDIATION TEST OUTCOMEVAR=y MEDIATORVAR=m.\n");
  const CliResult r = run(
      {"run", "--data", data, "--syntax", syntax, "--split", "site", "--out", dir_.path("out")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find(data + ": text that is not UTF-8 was read as Windows-1252 (Latin-1), "
                              "first the value of site in case 1."),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find(syntax + " is not UTF-8; its text was read as Windows-1252 (Latin-1)."),
            std::string::npos)
      << r.err;
  ASSERT_TRUE(r.report.is_object());
  ASSERT_EQ(r.report["runs"].size(), 2u);
  EXPECT_EQ(r.report["runs"][0]["split"]["label"], "site = G\xC3\xA4vle");
  EXPECT_EQ(r.report["runs"][1]["split"]["label"], "site = Malm\xC3\xB6");
  EXPECT_NE(r.out.find("Malm\xC3\xB6"), std::string::npos);
  std::ifstream html(dir_.path("out/report.html"));
  EXPECT_TRUE(html.good());
}

// A data file name that is not UTF-8 cannot be decoded (the file system gives bytes); the
// report shows it with a replacement character rather than fail.
TEST_F(CliTest, AFileNameThatIsNotUtf8StillGivesTheReport) {
  const std::string data = dir_.file("dat\xE9.csv", kData);
  const CliResult named =
      run({"run", "--data", data, "-e", "MEDIATION TEST OUTCOMEVAR=y.", "--out", dir_.path("out")});
  EXPECT_EQ(named.status, 0) << named.err;
  ASSERT_TRUE(named.report.is_object());
  EXPECT_NE(named.report["data"]["file"].get<std::string>().find("dat\xEF\xBF\xBD.csv"),
            std::string::npos);
}

// A column that stopped being a number: the hint names the variable and the line.
TEST_F(CliTest, ATextColumnWhereNumbersAreNeededNamesTheLineWhereItStopped) {
  const std::string data =
      dir_.file("comma.csv", "y;m;x\n1.5;2;0\n2.5;3;1\n\"1.234,5\";2.5;0\n4,5;4;1\n");
  const CliResult r =
      run({"run", "--data", data, "-e", "MEDIATION TEST OUTCOMEVAR=y MEDIATORVAR=m.", "--out",
           dir_.path("out")});
  EXPECT_EQ(r.status, 1);
  const std::string hint = "Hint: y is read as text: line 4 of " + data +
                           " holds '1.234,5', the first of its values that is not a number "
                           "(numbers need a decimal point and no thousands separators).";
  EXPECT_NE(r.err.find(hint), std::string::npos) << r.err;
  EXPECT_NE(r.report["runs"][0]["messages"].dump().find(hint), std::string::npos);
}

// A .sav file's own weight variable is not applied silently: a note says how to use it.
TEST_F(CliTest, TheDataFilesWeightVariableGetsANote) {
  const std::string data = dir_.path("weighted.sav");
  ASSERT_TRUE(testsupport::writeSavFile(data, {false, true, false}, 6));
  const CliResult r = run({"run", "--data", data, "-e", "MEDIATION TEST OUTCOMEVAR=y.", "--out",
                           dir_.path("out"), "--format", "json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string note = data +
                           " names wt as its case weight. Cases are not weighted by it unless a "
                           "command says so: MEDIATION ANALYSIS weights the mediator model by it "
                           "with /MEDMODEL SCALEWEIGHT=wt.";
  EXPECT_NE(r.err.find("note: " + note), std::string::npos) << r.err;
  EXPECT_NE(r.report["messages"].dump().find(note), std::string::npos);
}

TEST_F(CliTest, VariablesListsTheDataFileAsATable) {
  const CliResult r = run({"variables", "--data", data_});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Variables in " + data_), std::string::npos) << r.out;
  for (const char* heading : {"Type", "Level", "Valid", "Missing", "Minimum", "Maximum", "Distinct",
                              "Label", "Value labels"}) {
    EXPECT_NE(r.out.find(heading), std::string::npos) << heading << "\n" << r.out;
  }
  EXPECT_NE(r.out.find("numeric"), std::string::npos);
  EXPECT_NE(r.out.find("string"), std::string::npos);
  // "info" is the same command.
  EXPECT_EQ(run({"info", "--data", data_}).out, r.out);
}

TEST_F(CliTest, VariablesAsJsonForScripts) {
  const CliResult r = run({"variables", "--data", data_, "--format", "json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const json d = json::parse(r.out);
  EXPECT_EQ(d["cases"], 5);
  ASSERT_EQ(d["variables"].size(), 6u);
  const json& c = d["variables"][4];
  EXPECT_EQ(c["name"], "c");
  EXPECT_EQ(c["type"], "numeric");
  EXPECT_EQ(c["level"], "scale");
  EXPECT_EQ(c["valid"], 4);
  EXPECT_EQ(c["missing"], 1);
  EXPECT_DOUBLE_EQ(c["minimum"].get<double>(), 9.0);
  EXPECT_DOUBLE_EQ(c["maximum"].get<double>(), 12.0);
  EXPECT_EQ(c["distinct"], 4);
  const json& name = d["variables"][5];
  EXPECT_EQ(name["type"], "string");
  EXPECT_EQ(name["level"], "nominal");
  EXPECT_TRUE(name["minimum"].is_null());
  EXPECT_EQ(name["distinct"], 5);
  EXPECT_EQ(d["variables"][3]["level"], "nominal");  // g: 1, 2
}

TEST_F(CliTest, VariablesOfAFileThatCannotBeRead) {
  const CliResult r = run({"variables", "--data", dir_.path("none.csv")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Cannot open data file"), std::string::npos) << r.err;
  EXPECT_EQ(run({"variables", "--data", data_, "--format", "html"}).status, 2);
}

TEST_F(CliTest, UsageErrorsExitTwo) {
  EXPECT_EQ(run({}).status, 2);
  EXPECT_EQ(run({"run", "--data", data_}).status, 2);
  EXPECT_EQ(run({"run", "--data", data_, "-e", "X.", "--format", "pdf"}).status, 2);
  EXPECT_EQ(run({"run", "--data", data_, "-e", "X.", "--threads", "0"}).status, 2);
  EXPECT_EQ(run({"--help"}).status, 0);
}

}  // namespace

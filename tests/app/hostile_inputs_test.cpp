// The command-line program against hostile data: each case runs the real binary in a child
// process and checks its exit status and the message a user reads on standard error, so
// that a crash, a hang (ctest's timeout) or a silent failure shows up as a failed test.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "sav_file.h"
#include "test_util.h"

namespace {

struct ChildRun {
  int status = -1;  // exit status, or -signal when killed
  std::string err;
  long peakKb = 0;  // the child's peak resident set
};

// Standard output goes to outPath ("/dev/null" unless a test says otherwise); when it is
// errPath, both streams share one file, as on a terminal.
ChildRun runMedanlys(const std::vector<std::string>& args, const std::string& errPath,
                     const std::string& outPath = "/dev/null") {
  std::vector<char*> argv;
  std::string binary = MEDANLYS_BINARY;
  argv.push_back(binary.data());
  std::vector<std::string> copy = args;
  for (std::string& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int out =
        outPath == errPath ? err : open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(err, 2);
    dup2(out, 1);
    execv(argv[0], argv.data());
    _exit(127);
  }
  ChildRun r;
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  r.peakKb = usage.ru_maxrss;
  std::ifstream in(errPath);
  std::stringstream text;
  text << in.rdbuf();
  r.err = text.str();
  return r;
}

// A tidy data set: exposure x (0/1), covariate c, mediator m, outcome y; `edit` may change
// a case's fields (x, m, y, c) or add columns through `extra`.
std::string tidyData(int n, const std::function<void(int, std::vector<std::string>&)>& edit = {},
                     const std::string& extraHeader = "") {
  std::string text = "x,m,y,c" + extraHeader + "\n";
  for (int i = 0; i < n; ++i) {
    const int x = i % 2;
    const double c = std::sin(1.7 * i);
    const double m = 0.5 * x + 0.3 * c + 0.4 * std::cos(2.3 * i);
    const double y = 0.4 * m + 0.3 * x + 0.5 * std::sin(0.9 * i + 1);
    std::vector<std::string> fields = {std::to_string(x), std::to_string(m), std::to_string(y),
                                       std::to_string(c)};
    if (edit) edit(i, fields);
    for (std::size_t k = 0; k < fields.size(); ++k) text += (k ? "," : "") + fields[k];
    text += "\n";
  }
  return text;
}

const std::string kCommand =
    "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) WITH c "
    "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
    "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS.";

struct Hostile {
  const char* name;
  std::function<std::string()> data;
  std::string command;
  std::vector<std::string> options;
  int status;
  const char* message;            // on standard error
  const char* file = "data.csv";  // the data file's name
  friend std::ostream& operator<<(std::ostream& os, const Hostile& h) { return os << h.name; }
};

class HostileInputs : public ::testing::TestWithParam<Hostile> {
 protected:
  testsupport::TempDir dir_;
};

TEST_P(HostileInputs, ClearMessageAndTheRightExitStatus) {
  const Hostile& h = GetParam();
  std::vector<std::string> args = {
      "run",      "--data", dir_.file(h.file, h.data()), "-e", h.command, "--out", dir_.path("out"),
      "--format", "json"};
  args.insert(args.end(), h.options.begin(), h.options.end());
  const ChildRun r = runMedanlys(args, dir_.path("stderr.txt"));
  EXPECT_EQ(r.status, h.status) << r.err;
  EXPECT_NE(r.err.find(h.message), std::string::npos) << r.err;
  // Whatever happened, a report was written.
  EXPECT_TRUE(std::ifstream(dir_.path("out/report.json")).good());
}

// The bytes of a .sav file written by ReadStat's writer.
std::string savBytes(const testsupport::SavFile& options, int cases) {
  testsupport::TempDir dir;
  const std::string path = dir.path("data.sav");
  if (!testsupport::writeSavFile(path, options, cases)) return "";
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// The tidy data with another delimiter.
std::string delimited(char delimiter) {
  std::string text = tidyData(40);
  for (char& ch : text) {
    if (ch == ',') ch = delimiter;
  }
  return text;
}

// Bytes that are no text at all (a fixed xorshift sequence, the same on every run).
std::string randomBytes(std::size_t n) {
  std::string bytes;
  std::uint32_t state = 2463534242u;
  for (std::size_t i = 0; i < n; ++i) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    bytes.push_back(static_cast<char>(state & 0xFF));
  }
  return bytes;
}

const std::string kSavCommand =
    "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=1 ELEVEL=2) "
    "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
    "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS.";

std::string withWeights(const char* weight) {
  return tidyData(
      40, [&](int, std::vector<std::string>& f) { f.push_back(weight); }, ",w");
}

INSTANTIATE_TEST_SUITE_P(
    Data, HostileInputs,
    ::testing::Values(
        Hostile{"InfAndNaNText",
                [] {
                  return tidyData(40, [](int i, std::vector<std::string>& f) {
                    if (i == 3) f[2] = "Inf";
                    if (i == 4) f[2] = "NaN";
                    if (i == 5) f[2] = "-inf";
                  });
                },
                kCommand,
                {},
                0,
                "the value 'NaN' is not a finite number and is treated as missing"},
        Hostile{"ValuesNear1e308",
                [] {
                  return tidyData(40, [](int i, std::vector<std::string>& f) {
                    f[2] = i % 3 ? "1e308" : "-1.7e308";
                  });
                },
                kCommand,
                {},
                1,
                "Values of y are too large to analyse"},
        Hostile{"ColumnAllMissing",
                [] { return tidyData(40, [](int, std::vector<std::string>& f) { f[3] = ""; }); },
                kCommand,
                {},
                1,
                "Insufficient sample size after cleaning."},
        Hostile{
            "NoRows", [] { return std::string("x,m,y,c\n"); }, kCommand, {}, 1, "has no cases."},
        Hostile{"OneRow",
                [] { return tidyData(1); },
                kCommand,
                {},
                1,
                "Insufficient sample size after cleaning."},
        Hostile{"TenRowsNineValid",
                [] {
                  return tidyData(10, [](int i, std::vector<std::string>& f) {
                    if (i == 6) f[1] = "";
                  });
                },
                kCommand,
                {},
                1,
                "Minimum 10 valid cases required"},
        Hostile{"TenThousandColumns",
                [] {
                  std::string header;
                  for (int k = 0; k < 9996; ++k) header += ",v" + std::to_string(k);
                  return tidyData(
                      30,
                      [](int i, std::vector<std::string>& f) {
                        for (int k = 0; k < 9996; ++k) f.push_back(std::to_string((i + k) % 7));
                      },
                      header);
                },
                kCommand,
                {},
                0,
                "wrote"},
        Hostile{"StringsInANumericRole",
                [] {
                  return tidyData(40, [](int i, std::vector<std::string>& f) {
                    if (i == 2) f[1] = "abc";
                  });
                },
                kCommand,
                {},
                1,
                "Mediator variable m must be numeric."},
        Hostile{"FactorWith500Levels",
                [] {
                  return tidyData(
                      1000,
                      [](int i, std::vector<std::string>& f) {
                        f.push_back(std::to_string(i % 500));
                      },
                      ",f");
                },
                "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) "
                "BY f WITH c /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA "
                "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS.",
                {"--nominal", "f"},
                1,
                "Factor f has 500 levels; at most 100 are supported."},
        Hostile{"WeightsAllZero",
                [] { return withWeights("0"); },
                "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) "
                "WITH c /MEDMODEL DISTRIBUTION=NORMAL SCALEWEIGHT=w /OUTMODEL "
                "DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL "
                "ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS.",
                {},
                1,
                "Insufficient sample size after cleaning."},
        Hostile{"CovariateCollinearWithExposure",
                [] {
                  return tidyData(40, [](int i, std::vector<std::string>& f) {
                    f[3] = std::to_string(2 * (i % 2) + 1);
                  });
                },
                kCommand,
                {},
                1,
                "Outcome model singular. Check for perfect collinearity."},
        Hostile{"MediatorCopiesTheExposure",
                [] { return tidyData(40, [](int, std::vector<std::string>& f) { f[1] = f[0]; }); },
                kCommand,
                {},
                1,
                "Outcome model singular. Check for perfect collinearity."},
        Hostile{"TooManyBootstrapSamples",
                [] { return tidyData(40); },
                "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1) "
                "/MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA "
                "CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL /BOOTSTRAP "
                "CRITERIA(CILEVEL=95 NSAMPLES=2000000000) /PRINT DECOMP_RESULTS.",
                {},
                1,
                "Bootstrap samples (NSAMPLES) must be at most 100000."},
        // Text that is not UTF-8 used to end the run without any report.
        Hostile{"Latin1ValuesInASplitVariable",
                [] {
                  return tidyData(
                      40,
                      [](int i, std::vector<std::string>& f) {
                        f.push_back(i % 3 ? "Malm\xF6" : "G\xE4vle");
                      },
                      ",site");
                },
                kCommand,
                {"--split", "site", "--format", "json,html,text"},
                0,
                "text that is not UTF-8 was read as Windows-1252 (Latin-1), first the value of "
                "site in case 1."},
        Hostile{"Latin1InTheCommand",
                [] {
                  return tidyData(
                      40, [](int, std::vector<std::string>& f) { f.push_back(f[3]); }, ",caf\xE9");
                },
                kCommand.substr(0, kCommand.find(" WITH c")) + " WITH caf\xE9" +
                    kCommand.substr(kCommand.find(" WITH c") + 7),
                {"--format", "json,html,text"},
                0,
                "<command line> is not UTF-8; its text was read as Windows-1252 (Latin-1)."},
        Hostile{"RandomBytesInTheHeader",
                [] {
                  std::string name = "!";
                  for (char b : randomBytes(200)) {
                    if (b != ',' && b != '"' && b != '\n' && b != '\r' && b != '\0') name += b;
                  }
                  return tidyData(
                      40, [](int, std::vector<std::string>& f) { f.push_back("0"); }, "," + name);
                },
                kCommand,
                {"--format", "json,html,text"},
                1,
                "is not a valid variable name"},
        Hostile{"Latin1Sav",
                [] {
                  return savBytes({true, false, false}, 40);
                },
                kSavCommand,
                {"--format", "json,html,text"},
                0,
                "first a value label of x.",
                "data.sav"},
        // Data files that were misread.
        Hostile{"ByteOrderMark",
                [] { return "\xEF\xBB\xBF" + tidyData(40); },
                kCommand,
                {},
                0,
                "wrote"},
        Hostile{"NulByteInAField",
                [] {
                  return tidyData(40, [](int i, std::vector<std::string>& f) {
                    if (i == 3) f[1] = std::string("0\0 5544", 7);
                  });
                },
                kCommand,
                {},
                1,
                "line 5, column 2 (m): the field holds a NUL byte, so it is not a number"},
        Hostile{"SemicolonSeparated", [] { return delimited(';'); }, kCommand, {}, 0, "wrote"},
        Hostile{"TabSeparatedCsv", [] { return delimited('\t'); }, kCommand, {}, 0, "wrote"},
        Hostile{"WhitespaceSeparated",
                [] { return delimited(' '); },
                kCommand,
                {},
                0,
                "wrote",
                "data.txt"},
        Hostile{"PipeSeparated",
                [] { return delimited('|'); },
                kCommand,
                {},
                1,
                "give it with --delimiter"},
        Hostile{"PipeSeparatedWithDelimiter",
                [] { return delimited('|'); },
                kCommand,
                {"--delimiter", "|"},
                0,
                "wrote"},
        Hostile{"DecimalCommas",
                [] {
                  std::string text = delimited(';');
                  for (std::size_t at = text.find('.'); at != std::string::npos;
                       at = text.find('.', at + 1)) {
                    text[at] = ',';
                  }
                  return text;
                },
                kCommand,
                {},
                1,
                "Hint: m is read as text: line 2 of"},
        Hostile{"KeywordsAsNames",
                [] {
                  return tidyData(
                      40,
                      [](int i, std::vector<std::string>& f) { f.push_back(std::to_string(i)); },
                      ",BY");
                },
                kCommand,
                {},
                0,
                "the variable name 'BY' is a keyword of the command language"},
        Hostile{"SavWithUnknownCaseCount",
                [] {
                  return savBytes({false, false, true}, 40);
                },
                kSavCommand,
                {},
                0,
                "wrote",
                "data.sav"},
        Hostile{"SavWithItsOwnWeight",
                [] {
                  return savBytes({false, true, false}, 40);
                },
                kSavCommand,
                {},
                0,
                "names wt as its case weight",
                "data.sav"},
        // Commands that were lost or that said too little.
        Hostile{"CommentWithoutFullStop",
                [] { return tidyData(40); },
                "* Does treatment lower the outcome?\n" + kCommand,
                {},
                1,
                "runs into line 2, which looks like a command"},
        Hostile{"NoPrint",
                [] { return tidyData(40); },
                kCommand.substr(0, kCommand.find(" /PRINT")) + ".",
                {},
                0,
                "it has no /PRINT subcommand"},
        Hostile{"UnknownVariable",
                [] { return tidyData(40); },
                "MEDIATION ANALYSIS OUTCOMEVAR=yy MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 "
                "ELEVEL=1) /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA "
                "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS.",
                {},
                1,
                "does not exist in the active data set. Did you mean: y?"}),
    [](const ::testing::TestParamInfo<Hostile>& p) { return std::string(p.param.name); });

// The tables written to a full device are lost: that is an error, after the report files.
TEST(HostileOutput, StandardOutputOnAFullDevice) {
  testsupport::TempDir dir;
  const ChildRun r = runMedanlys({"run", "--data", dir.file("data.csv", tidyData(40)), "-e",
                                  kCommand, "--out", dir.path("out")},
                                 dir.path("stderr.txt"), "/dev/full");
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("medanlys: Cannot write the tables to standard output: No space left on "
                       "device."),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("wrote " + dir.path("out") + "/report.json"), std::string::npos) << r.err;
  EXPECT_TRUE(std::ifstream(dir.path("out/report.html")).good());
}

// On a terminal standard output and standard error are one screen: a warning is shown once.
TEST(HostileOutput, AWarningIsReadOnceWhenBothStreamsShareAFile) {
  testsupport::TempDir dir;
  const ChildRun r = runMedanlys({"run", "--data", dir.file("data.csv", tidyData(40)), "-e",
                                  kCommand, "--out", dir.path("out")},
                                 dir.path("both.txt"), dir.path("both.txt"));
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string warning = "a_star (BLEVEL) = 0";
  const std::size_t first = r.err.find(warning);
  ASSERT_NE(first, std::string::npos) << r.err;
  EXPECT_EQ(r.err.find(warning, first + 1), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Decomposition Analysis"), std::string::npos) << r.err;  // the tables
}

// A 200 MB file: the run completes and its peak memory stays bounded relative to the file.
// (Sanitizer builds keep shadow memory and quarantines, so the bound is checked in the
// release build only.)
TEST(HostileLargeFile, TwoHundredMegabytesWithinMemoryBound) {
#ifdef MEDANLYS_SANITIZED
  GTEST_SKIP() << "peak memory is not meaningful under the sanitizers";
#endif
  testsupport::TempDir dir;
  const std::string path = dir.path("big.csv");
  std::size_t bytes = 0;
  {
    FILE* out = std::fopen(path.c_str(), "w");
    ASSERT_NE(out, nullptr);
    bytes += static_cast<std::size_t>(std::fprintf(out, "x,m,y,c\n"));
    char line[128];
    for (long i = 0; bytes < 200u * 1024u * 1024u; ++i) {
      const int x = static_cast<int>(i % 2);
      const double c = std::sin(0.37 * static_cast<double>(i));
      const double m = 0.5 * x + 0.3 * c + 0.4 * std::cos(1.3 * static_cast<double>(i));
      const double y = 0.4 * m + 0.3 * x + 0.5 * std::sin(0.91 * static_cast<double>(i) + 1);
      const int len = std::snprintf(line, sizeof line, "%d,%.6f,%.6f,%.6f\n", x, m, y, c);
      std::fwrite(line, 1, static_cast<std::size_t>(len), out);
      bytes += static_cast<std::size_t>(len);
    }
    std::fclose(out);
  }
  const ChildRun r = runMedanlys(
      {"run", "--data", path, "-e", kCommand, "--out", dir.path("out"), "--format", "json"},
      dir.path("stderr.txt"));
  EXPECT_EQ(r.status, 0) << r.err;
  const double ratio = static_cast<double>(r.peakKb) * 1024.0 / static_cast<double>(bytes);
  RecordProperty("peak_to_file_size", std::to_string(ratio));
  // Measured 5.7x (1.2 GB for 210 MB); the bound guards against new copies of the data.
  EXPECT_LT(ratio, 6.5) << "peak " << r.peakKb << " kB for a file of " << bytes << " bytes";
}

}  // namespace

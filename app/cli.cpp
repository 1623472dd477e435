#include "cli.h"

#include <omp.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "progress_display.h"
#include "report_writer.h"
#include "signals.h"
#include "stathost/data_readers.h"
#include "stathost/host_session.h"
#include "stathost/render.h"
#include "stathost/text_encoding.h"
#include "variables_command.h"

namespace medapp {
namespace {

struct Arguments {
  std::string data;
  std::string syntax;
  std::string inlineCommand;
  std::string outDir = "medanlys-output";
  std::vector<std::string> formats = {"html", "json", "text"};
  std::vector<std::string> split, nominal, ordinal, scale;
  std::string delimiter;
  int threads = 0;
  bool verbose = false;
};

std::string examplesDir() {
  const char* env = std::getenv("MEDANLYS_EXAMPLES");
  if (env && *env) return env;
  return MEDANLYS_EXAMPLES_DIR;
}

bool readTextFile(const std::string& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream buffer;
  buffer << in.rdbuf();
  text = buffer.str();
  return true;
}

// Exit status of a run that the user stopped (Ctrl-C or SIGTERM); its report is written.
constexpr int kCancelledStatus = 130;

// --delimiter: one character, "tab" or "whitespace" (runs of blanks); 0 when not given.
bool parseDelimiter(const std::string& text, char& delimiter) {
  delimiter = 0;
  if (text.empty()) return true;
  if (text == "tab") {
    delimiter = '\t';
  } else if (text == "whitespace") {
    delimiter = ' ';
  } else if (text.size() == 1) {
    delimiter = text[0];
  } else {
    std::cerr << "medanlys: --delimiter takes one character, 'tab' or 'whitespace'.\n";
    return false;
  }
  return true;
}

// Command text as UTF-8: a byte-order mark is dropped, and text that is not UTF-8 is read
// as Windows-1252 (Latin-1) with a warning naming its source.
std::string decodeCommandText(std::string text, const std::string& source, Runner& runner) {
  stathost::stripByteOrderMark(text);
  bool fellBack = false;
  text = stathost::decodeText(text, &fellBack);
  if (fellBack) {
    stathost::HostMessage m;
    m.level = stathost::MessageLevel::kWarning;
    m.text = source + " is not UTF-8; its text was read as Windows-1252 (Latin-1).";
    runner.addGlobalMessage(m);
  }
  return text;
}

// `medanlys variables`: the data file's variables as a table (text) or as JSON.
int listVariables(const Arguments& args) {
  std::string format = args.formats.size() == 1 ? args.formats.front() : "text";
  if (args.formats.size() > 1 || (format != "text" && format != "json")) {
    std::cerr << "medanlys variables: --format takes text or json.\n";
    return 2;
  }
  char delimiter = 0;
  if (!parseDelimiter(args.delimiter, delimiter)) return 2;
  std::vector<std::string> warnings;
  stathost::ReadOptions read;
  read.delimiter = delimiter;
  read.warnings = &warnings;
  nlohmann::json description;
  try {
    auto data = stathost::readDataFile(args.data, read);
    stathost::applyLevelOverrides(*data, args.nominal, stathost::MeasureLevel::kNominal);
    stathost::applyLevelOverrides(*data, args.ordinal, stathost::MeasureLevel::kOrdinal);
    stathost::applyLevelOverrides(*data, args.scale, stathost::MeasureLevel::kScale);
    description = describeVariables(*data);
  } catch (const stathost::DataError& e) {
    std::cerr << "error: " << e.what() << '\n';
    return 1;
  }
  for (const std::string& w : warnings) std::cerr << "warning: " << w << '\n';
  stathost::repairJsonText(description);
  if (format == "json") {
    std::cout << description.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  } else {
    const nlohmann::json document = {{"runs",
                                      {{{"command", "medanlys variables"},
                                        {"status", "ok"},
                                        {"messages", nlohmann::json::array()},
                                        {"items", {variablesTable(description)}}}}}};
    std::cout << stathost::renderText(document);
  }
  std::cout.flush();
  if (!std::cout) {
    std::cout.clear();
    std::cerr << "medanlys: cannot write to standard output.\n";
    return 1;
  }
  return 0;
}

int execute(const Arguments& args,
            const std::vector<std::pair<std::string, ProcedureEntry>>& procedures) {
  for (const std::string& f : args.formats) {
    if (f != "html" && f != "json" && f != "text") {
      std::cerr << "medanlys: --format takes html, json and text; '" << f << "' is not one.\n";
      return 2;
    }
  }
  char delimiter = 0;
  if (!parseDelimiter(args.delimiter, delimiter)) return 2;
  if (args.threads > 0) omp_set_num_threads(args.threads);
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setVerbose(args.verbose);
  // On a terminal a line redrawn in place; in a batch log a line every ten seconds.
  auto display = std::make_shared<ProgressDisplay>(isatty(STDERR_FILENO) != 0, stderr);
  session.setProgressObserver(
      [display](const stathost::ProgressReport& report) { display->show(report); });
  session.clearCancel();
  installInterruptHandler();

  RunOptions options;
  options.dataPath = args.data;
  options.split = args.split;
  options.verbose = args.verbose;
  Runner runner(options);
  for (const auto& [name, entry] : procedures) runner.addProcedure(name, entry);

  std::string source = "<command line>";
  std::string text = args.inlineCommand;
  if (!args.syntax.empty()) {
    source = args.syntax;
    if (!readTextFile(args.syntax, text)) {
      std::cerr << "medanlys: cannot read the command file '" << args.syntax << "'.\n";
      return 2;
    }
  }
  int status = 1;
  if (runner.loadData(args.nominal, args.ordinal, args.scale, delimiter)) {
    try {
      text = decodeCommandText(std::move(text), source, runner);
      std::vector<CommandFileWarning> warnings;
      const auto commands =
          splitCommands(text, runner.commandNames(), !args.syntax.empty(), &warnings);
      for (const CommandFileWarning& w : warnings) {
        stathost::HostMessage m;
        m.level = stathost::MessageLevel::kWarning;
        m.text = w.text;
        m.file = source;
        m.line = w.line;
        runner.addGlobalMessage(m);
      }
      if (commands.empty()) {
        stathost::HostMessage m;
        m.text = "There is no command to run in " + source + ".";
        runner.addGlobalMessage(m);
      } else {
        status = runner.runCommands(commands, source);
      }
    } catch (const CommandFileError& e) {
      stathost::HostMessage m;
      m.text = e.what();
      m.file = source;
      m.line = e.line();
      runner.addGlobalMessage(m);
    }
  }
  std::vector<std::string> written;
  int writeStatus = 0;
  try {
    // Messages went to standard error as they were issued; when standard output leads to
    // the same place, the text rendering does not repeat them.
    writeReport(runner.document(), args.outDir, args.formats, written, !sameOutputAndError());
  } catch (const std::exception& e) {
    std::cerr << "medanlys: " << e.what() << '\n';
    writeStatus = 1;
  }
  for (const std::string& path : written) std::cerr << "medanlys: wrote " << path << '\n';
  session.setProgressObserver(nullptr);
  if (writeStatus != 0) return writeStatus;
  return session.cancelRequests() > 0 ? kCancelledStatus : status;
}

}  // namespace

int runCli(int argc, char** argv,
           const std::vector<std::pair<std::string, ProcedureEntry>>& procedures) {
  CLI::App app{
      "medanlys: regression-based causal mediation analysis on a data file.\n"
      "Run 'medanlys run --help' for the options of a run."};
  app.require_subcommand(1);
  Arguments args;

  CLI::App* run = app.add_subcommand("run", "Run commands on a data file and write the report");
  run->add_option("--data", args.data, "Data file: .csv, .tsv, .sav, .zsav, .dta or .sas7bdat")
      ->required();
  auto* syntax = run->add_option("--syntax", args.syntax, "Command file");
  auto* inlineCmd = run->add_option("-e,--execute", args.inlineCommand, "One command given inline");
  syntax->excludes(inlineCmd);
  run->add_option("--out", args.outDir, "Folder for report.html and report.json")
      ->capture_default_str();
  run->add_option("--format", args.formats, "Any of html, json, text (comma-separated)")
      ->delimiter(',')
      ->capture_default_str();
  run->add_option("--split", args.split, "Split variables: one analysis per group")->delimiter(',');
  run->add_option("--nominal", args.nominal, "Variables to treat as nominal")->delimiter(',');
  run->add_option("--ordinal", args.ordinal, "Variables to treat as ordinal")->delimiter(',');
  run->add_option("--scale", args.scale, "Variables to treat as scale")->delimiter(',');
  run->add_option("--delimiter", args.delimiter,
                  "Field delimiter of a text data file: one character, 'tab' or 'whitespace' "
                  "(default: found from the header line)");
  run->add_option("--threads", args.threads, "Threads for the bootstrap (default: all cores)")
      ->check(CLI::Range(1, 1024));
  run->add_flag("--verbose", args.verbose, "Show the analysis log");

  CLI::App* example = app.add_subcommand("example", "Run the bundled example and write its report");
  example->add_option("--out", args.outDir, "Folder for the report")->capture_default_str();
  example->add_option("--threads", args.threads, "Threads for the bootstrap")
      ->check(CLI::Range(1, 1024));
  example->add_flag("--verbose", args.verbose, "Show the analysis log");

  CLI::App* variables =
      app.add_subcommand("variables", "List the variables of a data file (alias: info)");
  variables->alias("info");
  variables->add_option("--data", args.data, "Data file")->required();
  variables->add_option("--format", args.formats, "text (a table) or json")
      ->delimiter(',')
      ->default_str("text");
  variables->add_option("--delimiter", args.delimiter,
                        "Field delimiter of a text data file: one character, 'tab' or "
                        "'whitespace'");
  variables->add_option("--nominal", args.nominal, "Variables to treat as nominal")->delimiter(',');
  variables->add_option("--ordinal", args.ordinal, "Variables to treat as ordinal")->delimiter(',');
  variables->add_option("--scale", args.scale, "Variables to treat as scale")->delimiter(',');

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int rc = app.exit(e);
    return rc == 0 ? 0 : 2;
  }
  if (run->parsed() && args.syntax.empty() && args.inlineCommand.empty()) {
    std::cerr << "medanlys run: give the commands with --syntax FILE or -e 'COMMAND'.\n"
              << "Run 'medanlys run --help' for more information.\n";
    return 2;
  }
  if (variables->parsed()) {
    if (variables->count("--format") == 0) args.formats = {"text"};
    return listVariables(args);
  }
  if (example->parsed()) {
    const std::filesystem::path dir = examplesDir();
    args.data = (dir / "example.csv").string();
    args.syntax = (dir / "example.sps").string();
    if (args.outDir == "medanlys-output") args.outDir = "medanlys-example";
  }
  return execute(args, procedures);
}

}  // namespace medapp

#include "cli.h"

#include <omp.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "report_writer.h"
#include "signals.h"
#include "stathost/host_session.h"

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

int execute(const Arguments& args,
            const std::vector<std::pair<std::string, ProcedureEntry>>& procedures) {
  for (const std::string& f : args.formats) {
    if (f != "html" && f != "json" && f != "text") {
      std::cerr << "medanlys: --format takes html, json and text; '" << f << "' is not one.\n";
      return 2;
    }
  }
  if (args.delimiter.size() > 1 && args.delimiter != "tab") {
    std::cerr << "medanlys: --delimiter takes one character or 'tab'.\n";
    return 2;
  }
  if (args.threads > 0) omp_set_num_threads(args.threads);
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setVerbose(args.verbose);
  session.setProgressEnabled(isatty(STDERR_FILENO) != 0);
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
  const char delimiter =
      args.delimiter == "tab" ? '\t' : (args.delimiter.empty() ? 0 : args.delimiter[0]);
  int status = 1;
  if (runner.loadData(args.nominal, args.ordinal, args.scale, delimiter)) {
    try {
      const auto commands = splitCommands(text, runner.commandNames(), !args.syntax.empty());
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
  try {
    for (const std::string& path : writeReport(runner.document(), args.outDir, args.formats)) {
      std::cerr << "medanlys: wrote " << path << '\n';
    }
  } catch (const std::exception& e) {
    std::cerr << "medanlys: " << e.what() << '\n';
    return 1;
  }
  return status;
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
  run->add_option("--delimiter", args.delimiter, "Field delimiter of a text data file (or 'tab')");
  run->add_option("--threads", args.threads, "Threads for the bootstrap (default: all cores)")
      ->check(CLI::Range(1, 1024));
  run->add_flag("--verbose", args.verbose, "Show the analysis log");

  CLI::App* example = app.add_subcommand("example", "Run the bundled example and write its report");
  example->add_option("--out", args.outDir, "Folder for the report")->capture_default_str();
  example->add_option("--threads", args.threads, "Threads for the bootstrap")
      ->check(CLI::Range(1, 1024));
  example->add_flag("--verbose", args.verbose, "Show the analysis log");

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
  if (example->parsed()) {
    const std::filesystem::path dir = examplesDir();
    args.data = (dir / "example.csv").string();
    args.syntax = (dir / "example.sps").string();
    if (args.outDir == "medanlys-output") args.outDir = "medanlys-example";
  }
  return execute(args, procedures);
}

}  // namespace medapp

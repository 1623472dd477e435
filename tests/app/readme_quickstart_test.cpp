// The README's quick start runs as written: every `build/app/medanlys run` command of its
// "Quick start" section, from a folder that has the repository's examples, with the
// program of this build in place of build/app/medanlys.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "test_util.h"

namespace {

const std::string kProgram = "build/app/medanlys";

// The shell blocks of the section headed "## Quick start", each one command.
std::vector<std::string> quickStartCommands() {
  std::ifstream in(std::string(MEDANLYS_SOURCE_DIR) + "/README.md");
  std::stringstream text;
  text << in.rdbuf();
  const std::string readme = text.str();
  const std::size_t start = readme.find("## Quick start");
  const std::size_t end = readme.find("\n## ", start + 1);
  std::vector<std::string> commands;
  if (start == std::string::npos) return commands;
  std::size_t at = start;
  while (true) {
    const std::size_t open = readme.find("```sh\n", at);
    if (open == std::string::npos || open > end) break;
    const std::size_t close = readme.find("```", open + 6);
    std::string command = readme.substr(open + 6, close - open - 6);
    while (!command.empty() && std::isspace(static_cast<unsigned char>(command.back()))) {
      command.pop_back();
    }
    commands.push_back(command);
    at = close + 3;
  }
  return commands;
}

TEST(ReadmeQuickStart, EveryCommandRunsAndReportsTheDecomposition) {
  const std::vector<std::string> commands = quickStartCommands();
  ASSERT_GE(commands.size(), 2u) << "the quick start lost its commands";
  for (const std::string& written : commands) {
    SCOPED_TRACE(written);
    ASSERT_EQ(written.rfind(kProgram + " run ", 0), 0u) << "a quick-start command runs the program";
    testsupport::TempDir dir;
    std::filesystem::create_directory_symlink(std::string(MEDANLYS_SOURCE_DIR) + "/examples",
                                              dir.path("examples"));
    const std::string command = "cd '" + dir.path("") + "' && " + MEDANLYS_BINARY +
                                written.substr(kProgram.size()) + " > out.txt 2> err.txt";
    const int status = std::system(command.c_str());
    std::ifstream err(dir.path("err.txt"));
    std::stringstream errors;
    errors << err.rdbuf();
    ASSERT_EQ(status, 0) << errors.str();
    std::ifstream report(dir.path("medanlys-output/report.json"));
    ASSERT_TRUE(report.good());
    const nlohmann::json document = nlohmann::json::parse(report);
    bool decomposition = false;
    for (const auto& item : document["runs"][0]["items"]) {
      const std::string title = item.value("title", "");
      decomposition = decomposition || title.rfind("Decomposition Analysis", 0) == 0;
    }
    EXPECT_TRUE(decomposition);
  }
}

}  // namespace

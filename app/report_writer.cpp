#include "report_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "stathost/render.h"
#include "stathost/text_encoding.h"

namespace medapp {
namespace {

bool wants(const std::vector<std::string>& formats, const std::string& f) {
  return std::find(formats.begin(), formats.end(), f) != formats.end();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary);
  out << content;
  out.close();
  if (!out) throw std::runtime_error("Cannot write the report file '" + path + "'.");
}

}  // namespace

bool sameOutputAndError() {
  struct stat out {
  }, err{};
  if (fstat(STDOUT_FILENO, &out) != 0 || fstat(STDERR_FILENO, &err) != 0) return false;
  return out.st_dev == err.st_dev && out.st_ino == err.st_ino;
}

void writeReport(const nlohmann::json& document, const std::string& outDir,
                 const std::vector<std::string>& formats, std::vector<std::string>& written,
                 bool textMessages) {
  // Text from files and the command line was decoded on the way in; what is still not
  // UTF-8 (a file name, say) is repaired here, so that no rendering can fail on it.
  nlohmann::json repaired = document;
  stathost::repairJsonText(repaired);
  if (wants(formats, "html") || wants(formats, "json")) {
    std::error_code ec;
    std::filesystem::create_directories(outDir, ec);
    if (ec)
      throw std::runtime_error("Cannot create the output folder '" + outDir + "': " + ec.message() +
                               ".");
  }
  if (wants(formats, "json")) {
    const std::string path = (std::filesystem::path(outDir) / "report.json").string();
    writeFile(path, repaired.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    written.push_back(path);
  }
  if (wants(formats, "html")) {
    const std::string path = (std::filesystem::path(outDir) / "report.html").string();
    writeFile(path, stathost::renderHtml(repaired));
    written.push_back(path);
  }
  if (wants(formats, "text")) {
    errno = 0;
    std::cout << stathost::renderText(repaired, 0, textMessages) << std::flush;
    if (!std::cout) {
      const int error = errno;
      std::cout.clear();
      throw std::runtime_error(std::string("Cannot write the tables to standard output") +
                               (error ? std::string(": ") + std::strerror(error) : "") + ".");
    }
  }
}

}  // namespace medapp

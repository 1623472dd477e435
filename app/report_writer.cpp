#include "report_writer.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "stathost/render.h"

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

std::vector<std::string> writeReport(const nlohmann::json& document, const std::string& outDir,
                                     const std::vector<std::string>& formats) {
  std::vector<std::string> written;
  if (wants(formats, "html") || wants(formats, "json")) {
    std::error_code ec;
    std::filesystem::create_directories(outDir, ec);
    if (ec)
      throw std::runtime_error("Cannot create the output folder '" + outDir + "': " + ec.message() +
                               ".");
  }
  if (wants(formats, "json")) {
    const std::string path = (std::filesystem::path(outDir) / "report.json").string();
    writeFile(path, document.dump(2) + "\n");
    written.push_back(path);
  }
  if (wants(formats, "html")) {
    const std::string path = (std::filesystem::path(outDir) / "report.html").string();
    writeFile(path, stathost::renderHtml(document));
    written.push_back(path);
  }
  if (wants(formats, "text")) std::cout << stathost::renderText(document) << std::flush;
  return written;
}

}  // namespace medapp

// Writes the output document in the requested formats.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace medapp {

// formats: any of "html", "json", "text". html and json go to files in outDir
// (report.html, report.json), text to standard output. Returns the paths written; throws
// std::runtime_error when a file cannot be written.
std::vector<std::string> writeReport(const nlohmann::json& document, const std::string& outDir,
                                     const std::vector<std::string>& formats);

}  // namespace medapp

// Writes the output document in the requested formats.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace medapp {

// formats: any of "html", "json", "text". html and json go to files in outDir
// (report.html, report.json), text to standard output; `written` receives the paths of the
// files written. Throws std::runtime_error when a file cannot be written or standard output
// fails (a full device, say); the files are written first. Text that is not UTF-8 is
// repaired, never a reason to fail. Without `textMessages` the text rendering leaves out
// the messages (standard error showed them already, on the same screen or file).
void writeReport(const nlohmann::json& document, const std::string& outDir,
                 const std::vector<std::string>& formats, std::vector<std::string>& written,
                 bool textMessages = true);

// True when standard output and standard error lead to the same place (one terminal, one
// file or one pipe), so that a message shown on both would be read twice.
bool sameOutputAndError();

}  // namespace medapp

// Shared pieces of the fuzz targets: a quiet host session, a small data set, a temporary
// file for the readers, and the whole MEDIATION ANALYSIS run of one command.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "stathost/dataset.h"

namespace fuzzsupport {

// A column of numbers (NaN = system-missing).
stathost::Column numbers(const std::string& name, std::vector<double> values,
                         stathost::MeasureLevel level = stathost::MeasureLevel::kScale);

// Runs one command through MEDANLYS on `data`, as the host does, and forgets the result.
void runCommand(const std::shared_ptr<stathost::Dataset>& data, const std::string& command);

// Writes the bytes to a file of this process with the given extension and returns its path.
std::string writeTemporary(const std::uint8_t* bytes, std::size_t size, const std::string& ext);

}  // namespace fuzzsupport

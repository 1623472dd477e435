// Shared helpers of the platform and application tests.
#pragma once

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "stathost/dataset.h"
#include "stathost/host_session.h"

namespace testsupport {

// A numeric column; NaN entries are system-missing.
stathost::Column numericColumn(const std::string& name, std::vector<double> values,
                               stathost::MeasureLevel level = stathost::MeasureLevel::kScale);
stathost::Column stringColumn(const std::string& name, std::vector<std::string> values);

// Makes the data set active and starts a fresh run record; the destructor clears both.
class ActiveData {
 public:
  explicit ActiveData(std::vector<stathost::Column> columns);
  ~ActiveData();
  const stathost::Dataset& data() const { return *data_; }

 private:
  std::shared_ptr<stathost::Dataset> data_;
};

// A temporary folder removed with its content at the end of the test.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  std::string file(const std::string& name, const std::string& content) const;
  std::string path(const std::string& name) const { return (dir_ / name).string(); }

 private:
  std::filesystem::path dir_;
};

// All message texts of the run so far, one per line.
std::string messageTexts(const stathost::RunRecord& record);

}  // namespace testsupport

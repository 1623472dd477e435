#include "test_util.h"

#include <fstream>
#include <random>

namespace testsupport {

stathost::Column numericColumn(const std::string& name, std::vector<double> values,
                               stathost::MeasureLevel level) {
  stathost::Column c;
  c.name = name;
  c.type = stathost::VarType::kNumeric;
  c.level = level;
  c.numbers = std::move(values);
  return c;
}

stathost::Column stringColumn(const std::string& name, std::vector<std::string> values) {
  stathost::Column c;
  c.name = name;
  c.type = stathost::VarType::kString;
  c.level = stathost::MeasureLevel::kNominal;
  c.format = stathost::VarFormat{"A", 8, 0};
  c.strings = std::move(values);
  return c;
}

ActiveData::ActiveData(std::vector<stathost::Column> columns)
    : data_(std::make_shared<stathost::Dataset>()) {
  data_->sourcePath = "test-data";
  data_->columns = std::move(columns);
  stathost::HostSession& s = stathost::HostSession::instance();
  s.setActiveDataset(data_);
  s.clearCancel();
  s.setMessageEcho(nullptr);
  s.beginRun();
}

ActiveData::~ActiveData() {
  stathost::HostSession& s = stathost::HostSession::instance();
  s.setActiveDataset(nullptr);
  s.clearCancel();
  s.endRun();
}

TempDir::TempDir() {
  std::random_device rd;
  dir_ = std::filesystem::temp_directory_path() / ("medanlys-test-" + std::to_string(rd()));
  std::filesystem::create_directories(dir_);
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

std::string TempDir::file(const std::string& name, const std::string& content) const {
  const std::string p = path(name);
  std::ofstream(p, std::ios::binary) << content;
  return p;
}

std::string messageTexts(const stathost::RunRecord& record) {
  std::string out;
  for (const auto& m : record.messages) out += m.text + "\n";
  return out;
}

}  // namespace testsupport

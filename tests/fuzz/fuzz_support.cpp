#include "fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "entry/medanlys_entry.h"
#include "stathost/host_session.h"

namespace fuzzsupport {

stathost::Column numbers(const std::string& name, std::vector<double> values,
                         stathost::MeasureLevel level) {
  stathost::Column c;
  c.name = name;
  c.type = stathost::VarType::kNumeric;
  c.level = level;
  c.numbers = std::move(values);
  return c;
}

void runCommand(const std::shared_ptr<stathost::Dataset>& data, const std::string& command) {
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setMessageEcho(nullptr);
  session.clearCancel();
  session.setActiveDataset(data);
  session.setCurrentCommand(command, 1, "fuzz");
  session.beginRun();
  MEDANLYS();
  session.endRun();
  session.setActiveDataset(nullptr);
}

std::string writeTemporary(const std::uint8_t* bytes, std::size_t size, const std::string& ext) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("medanlys-fuzz-" + std::to_string(getpid()) + ext))
          .string();
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  return path;
}

}  // namespace fuzzsupport

#include "reference_data.h"

#include <fstream>

#include "stathost/data_readers.h"
#include "stathost/host_session.h"

namespace testsupport {

std::string referencePath(const std::string& file) {
  return std::string(MEDANLYS_TEST_DATA) + "/reference/" + file;
}

nlohmann::json referenceValues(const std::string& dataset) {
  std::ifstream in(referencePath(dataset + ".json"));
  return nlohmann::json::parse(in);
}

std::shared_ptr<stathost::Dataset> referenceData(const std::string& dataset) {
  return stathost::readDataFile(referencePath(dataset + ".csv"));
}

std::vector<double> referenceColumn(const stathost::Dataset& data, const std::string& name) {
  return data.columns.at(static_cast<std::size_t>(data.findColumn(name))).numbers;
}

ActiveReference::ActiveReference(const std::string& dataset) {
  stathost::HostSession::instance().setActiveDataset(referenceData(dataset));
  stathost::HostSession::instance().beginRun();
}

ActiveReference::~ActiveReference() {
  stathost::HostSession::instance().endRun();
  stathost::HostSession::instance().setActiveDataset(nullptr);
}

}  // namespace testsupport

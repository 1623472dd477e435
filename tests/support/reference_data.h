// Reference data sets and the values independent software computed on them
// (tests/data/reference: the data as CSV and one JSON of values per data set).
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stathost/dataset.h"

namespace testsupport {

std::string referencePath(const std::string& file);
nlohmann::json referenceValues(const std::string& dataset);
std::shared_ptr<stathost::Dataset> referenceData(const std::string& dataset);
std::vector<double> referenceColumn(const stathost::Dataset& data, const std::string& name);

// |actual - expected| <= relTol * max(|expected|, floor): relative, with an absolute floor
// for expected values near zero.
inline ::testing::AssertionResult IsClose(double actual, double expected, double relTol,
                                          double floor = 1e-12) {
  if (std::isnan(actual) && std::isnan(expected)) return ::testing::AssertionSuccess();
  const double scale = std::max(std::fabs(expected), floor);
  if (std::fabs(actual - expected) <= relTol * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "actual " << actual << " expected " << expected << " (relative error "
         << std::fabs(actual - expected) / scale << ", tolerance " << relTol << ")";
}

// Makes a reference data set the active data set and opens a run record for the test;
// both are cleared at the end of the scope.
class ActiveReference {
 public:
  explicit ActiveReference(const std::string& dataset);
  ~ActiveReference();
  ActiveReference(const ActiveReference&) = delete;
  ActiveReference& operator=(const ActiveReference&) = delete;
};

}  // namespace testsupport

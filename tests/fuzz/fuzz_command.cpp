// Command text of any shape against the full MEDIATION ANALYSIS grammar, the settings
// readers and, when the command is valid, the whole analysis on a small fixed data set.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"

namespace {

std::shared_ptr<stathost::Dataset> fixedData() {
  auto data = std::make_shared<stathost::Dataset>();
  data->sourcePath = "fuzz";
  std::vector<double> y, m, x, c1, f, w, cnt, bin;
  for (int i = 0; i < 30; ++i) {
    x.push_back(i % 2);
    m.push_back(0.1 * i + 0.3 * (i % 2) + 0.05 * std::sin(i));
    y.push_back(1.0 + 0.4 * i - 0.2 * (i % 3));
    c1.push_back(std::cos(i));
    f.push_back(1 + i % 3);
    w.push_back(1 + i % 2);
    cnt.push_back(i % 5);
    bin.push_back((i * 7) % 3 == 0 ? 1 : 0);
  }
  data->columns = {fuzzsupport::numbers("y", y),
                   fuzzsupport::numbers("m", m),
                   fuzzsupport::numbers("x", x),
                   fuzzsupport::numbers("c1", c1),
                   fuzzsupport::numbers("f", f, stathost::MeasureLevel::kNominal),
                   fuzzsupport::numbers("w", w),
                   fuzzsupport::numbers("cnt", cnt),
                   fuzzsupport::numbers("bin", bin, stathost::MeasureLevel::kNominal)};
  return data;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const std::shared_ptr<stathost::Dataset> data = fixedData();
  if (size > 4096) return 0;  // long commands add nothing the short ones do not
  fuzzsupport::runCommand(data, std::string(reinterpret_cast<const char*>(bytes), size));
  return 0;
}

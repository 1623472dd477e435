// The whole analysis on small random data sets with random commands: the first bytes
// choose the models and options, the rest become the cases (with missing values, ties,
// extreme and degenerate columns).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"

namespace {

class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t next() { return pos_ < size_ ? data_[pos_++] : 0; }
  bool empty() const { return pos_ >= size_; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// A byte as a value: 255 is missing, 254 an extreme value, otherwise a small number.
double value(std::uint8_t b, double scale) {
  if (b == 255) return NAN;
  if (b == 254) return 1e200;
  return (static_cast<int>(b) - 127) * scale;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* raw, std::size_t size) {
  Bytes in(raw, size);
  const int n = 8 + in.next() % 56;
  const std::uint8_t models = in.next(), options = in.next(), extras = in.next();
  const int outcomeKind = models % 6;  // normal, logit, log-binomial, Poisson, NB(1), NB(MLE)
  const bool binaryMediator = (models / 6) % 2 == 1;
  std::vector<double> x, m, y, c, f, w;
  for (int i = 0; i < n; ++i) {
    const std::uint8_t bx = in.next(), bm = in.next(), by = in.next(), bc = in.next(),
                       bf = in.next(), bw = in.next();
    x.push_back(bx == 255 ? NAN : ((options & 1) ? bx % 2 : value(bx, 0.05)));
    m.push_back(binaryMediator ? (bm == 255 ? NAN : bm % 2) : value(bm, 0.03));
    if (outcomeKind == 0) {
      y.push_back(value(by, 0.02));
    } else if (outcomeKind <= 2) {
      y.push_back(by == 255 ? NAN : by % 2);
    } else {
      y.push_back(by == 255 ? NAN : by % 9);
    }
    c.push_back(value(bc, 0.01));
    f.push_back(bf == 255 ? NAN : 1 + bf % 3);
    w.push_back(bw == 255 ? NAN : (bw % 5) * 0.5);
  }
  auto data = std::make_shared<stathost::Dataset>();
  data->sourcePath = "fuzz";
  data->columns = {
      fuzzsupport::numbers("x", x),
      fuzzsupport::numbers(
          "m", m,
          binaryMediator ? stathost::MeasureLevel::kNominal : stathost::MeasureLevel::kScale),
      fuzzsupport::numbers("y", y,
                           outcomeKind == 1 || outcomeKind == 2 ? stathost::MeasureLevel::kNominal
                                                                : stathost::MeasureLevel::kScale),
      fuzzsupport::numbers("c", c),
      fuzzsupport::numbers("f", f, stathost::MeasureLevel::kNominal),
      fuzzsupport::numbers("w", w)};

  static const char* const kOutcome[] = {
      "DISTRIBUTION=NORMAL LINK=IDENTITY", "DISTRIBUTION=BINOMIAL LINK=LOGIT",
      "DISTRIBUTION=BINOMIAL LINK=LOG",    "DISTRIBUTION=POISSON LINK=LOG",
      "DISTRIBUTION=NEGBIN(1) LINK=LOG",   "DISTRIBUTION=NEGBIN(MLE) LINK=LOG"};
  std::string command = "MEDIATION ANALYSIS OUTCOMEVAR=y MEDIATORVAR=m";
  if (options & 2) command += "(MLEVEL=MEDIAN)";
  command += " PREDICTORVAR=x(BLEVEL=0 ELEVEL=1";
  command += (options & 4) ? " INTERACTION=FALSE)" : ")";
  if (options & 8) command += " BY f";
  if (options & 16) command += " WITH c";
  command += std::string(" /MEDMODEL DISTRIBUTION=") +
             (binaryMediator ? "BINOMIAL LINK=LOGIT" : "NORMAL LINK=IDENTITY");
  if (options & 32) command += " SCALEWEIGHT=w";
  command += std::string(" /OUTMODEL ") + kOutcome[outcomeKind];
  command += std::string(" /CRITERIA CILEVEL=") + ((extras & 1) ? "90" : "95") +
             " CITYPE=DELTA COVB=" + ((options & 64) ? "ROBUST" : "MODEL") +
             " ANALYSISTYPE=" + ((options & 128) ? "TRADITIONAL" : "CAUSAL");
  command +=
      " /PRINT CASE_SUMMARY DESCRIPTIVES MEDIATION_REGRESSION_MODEL OUTCOME_REGRESSION_MODEL "
      "EXPOSURE_STATS DECOMP_RESULTS INTERACTION_EFFECTS RATIO_STATS COV_MATRIX";
  command += " /PLOT PATH_DIAGRAM FOREST_PLOT";
  if (extras & 2) command += " BAR_PLOT";
  if (extras & 4) command += " SCATTER_PLOT";
  if (extras & 8) command += " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=100 SEED=7)";
  command += ".";
  fuzzsupport::runCommand(data, command);
  return 0;
}

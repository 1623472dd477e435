// The bootstrap summaries of every analysis family, one thread and a fixed seed, against
// a file written before the replicate fits were rewritten for speed: a faster replicate
// must reach the same maxima (the solvers' tolerance allows 1e-8 relative on a summary).
// MEDANLYS_WRITE_GOLDEN=1 rewrites the file instead of comparing.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "algorithm/mediation_case_data.h"
#include "module_fixture.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::numericColumn;

constexpr double kRelativeTol = 1e-8;
const std::string kGolden = std::string(MEDANLYS_TEST_DATA) + "/golden/bootstrap_families.json";

// 600 cases without a random generator: a binary exposure, a continuous and a binary
// mediator, and outcomes of every family, all smooth functions of the case number.
std::vector<stathost::Column> familyColumns() {
  std::vector<double> a, m, mb, y, yb, yc, yn, ym, c1, c2;
  for (int i = 0; i < 600; ++i) {
    const double t = i;
    const double exposure = (i * 7) % 5 < 2 ? 1.0 : 0.0;
    const double x1 = std::sin(1.3 * t), x2 = std::cos(0.7 * t + 0.4);
    const double noise = std::sin(2.9 * t + 1.0) + 0.5 * std::cos(4.1 * t);
    const double mediator = 0.5 * exposure + 0.3 * x1 + 0.6 * noise;
    const double u = 0.5 + 0.5 * std::sin(3.7 * t + 0.2);  // in [0, 1]
    const double v = 0.5 + 0.5 * std::cos(5.3 * t + 0.9);
    a.push_back(exposure);
    m.push_back(mediator);
    c1.push_back(x1);
    c2.push_back(x2);
    y.push_back(1.0 + 0.4 * exposure + 0.6 * mediator + 0.2 * x2 + std::cos(6.1 * t));
    yb.push_back(u < 1.0 / (1.0 + std::exp(-(-1.2 + 0.5 * exposure + 0.8 * mediator))) ? 1.0 : 0.0);
    const double rate = std::exp(0.4 + 0.3 * exposure + 0.3 * mediator + 0.2 * x1);
    yc.push_back(std::floor(rate * 2.0 * u));
    yn.push_back(std::floor(rate * 6.0 * u * u * v));
    const double binaryMediator = v < 0.35 + 0.3 * exposure ? 1.0 : 0.0;
    mb.push_back(binaryMediator);
    ym.push_back(1.0 + 0.5 * exposure + 0.7 * binaryMediator + 0.2 * x1 + std::sin(7.3 * t));
  }
  return {numericColumn("a", a),   numericColumn("m", m),   numericColumn("mb", mb),
          numericColumn("y", y),   numericColumn("yb", yb), numericColumn("yc", yc),
          numericColumn("yn", yn), numericColumn("ym", ym), numericColumn("c1", c1),
          numericColumn("c2", c2)};
}

struct AnalysisFamily {
  const char* name;
  const char* outcome;
  const char* mediator;
  const char* medmodel;
  const char* outmodel;
};

const AnalysisFamily kFamilies[] = {
    {"normal", "y", "m", "NORMAL", "NORMAL"},
    {"logit", "yb", "m", "NORMAL", "BINOMIAL LINK=LOGIT"},
    {"log_binomial", "yb", "m", "NORMAL", "BINOMIAL LINK=LOG"},
    {"poisson", "yc", "m", "NORMAL", "POISSON"},
    {"negbin_fixed", "yn", "m", "NORMAL", "NEGBIN(0.5)"},
    {"negbin_mle", "yn", "m", "NORMAL", "NEGBIN(MLE)"},
    {"binary_mediator", "ym", "mb", "BINOMIAL", "NORMAL"},
};

void PrintTo(const AnalysisFamily& f, std::ostream* os) { *os << f.name; }

json bootstrapOf(const AnalysisFamily& f) {
  testsupport::ActiveData data(familyColumns());
  const std::string command = std::string("MEDIATION ANALYSIS OUTCOMEVAR=") + f.outcome +
                              " MEDIATORVAR=" + f.mediator +
                              (std::string(f.medmodel) == "BINOMIAL" ? "(MLEVEL=VALUE(0))" : "") +
                              " PREDICTORVAR=a(BLEVEL=0 ELEVEL=1) WITH c1 c2 /MEDMODEL "
                              "DISTRIBUTION=" + f.medmodel + " /OUTMODEL DISTRIBUTION=" +
                              f.outmodel +
                              " /CRITERIA CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL "
                              "TRANSFORM=NONE /PRINT /BOOTSTRAP CRITERIA(CILEVEL=95 "
                              "NSAMPLES=500 SEED=7).";
  MediationCaseData results;
  EXPECT_EQ(testsupport::analyseCommand(command, results), 0) << f.name;
  EXPECT_TRUE(results.flags[FLAG_BOOTSTRAP_SUCCEEDED]) << f.name;
  json out = json::object();
  for (const auto& [effect, statistics] : results.bootstrap) {
    for (const auto& [statistic, value] : statistics) {
      if (std::isfinite(value)) out[effect][statistic] = value;
    }
  }
  return out;
}

class BootstrapGolden : public ::testing::TestWithParam<AnalysisFamily> {
 protected:
  void SetUp() override { omp_set_num_threads(1); }
};

TEST_P(BootstrapGolden, SummariesEqualThoseWrittenBeforeTheFastReplicates) {
  const AnalysisFamily& f = GetParam();
  const json got = bootstrapOf(f);
  ASSERT_FALSE(got.empty());
  if (std::getenv("MEDANLYS_WRITE_GOLDEN")) {
    json all = json::object();
    std::ifstream in(kGolden);
    if (in.good()) all = json::parse(in);
    all[f.name] = got;
    std::ofstream(kGolden) << all.dump(1) << "\n";
    GTEST_SKIP() << "wrote " << kGolden;
  }
  std::ifstream in(kGolden);
  ASSERT_TRUE(in.good()) << kGolden;
  const json expected = json::parse(in).at(f.name);
  for (const auto& [effect, statistics] : expected.items()) {
    for (const auto& [statistic, value] : statistics.items()) {
      SCOPED_TRACE(effect + " " + statistic);
      ASSERT_TRUE(got.contains(effect) && got[effect].contains(statistic));
      const double want = value.get<double>(), have = got[effect][statistic].get<double>();
      EXPECT_NEAR(have, want, kRelativeTol * std::max(1.0, std::fabs(want)));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(EveryFamily, BootstrapGolden, ::testing::ValuesIn(kFamilies),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace

// The continuous-mediator, continuous-outcome analysis end to end (command, data,
// preparation, fits, effects, delta method) against the closed forms evaluated in R with
// deriv() gradients, on the reference data sets.
#include <gtest/gtest.h>

#include "algorithm/med_analysis_algo.h"
#include "module_fixture.h"
#include "reference_data.h"
#include "stathost/host_session.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"
#include "test_util.h"

namespace {

using namespace medanlys;
using nlohmann::json;
using testsupport::IsClose;

constexpr double kEffectTol = 1e-6;  // estimates, SEs, z, limits
constexpr double kPTol = 1e-5;       // p values far in the tail lose a little more

// Runs settings, case reading and the driver on the active data; the results stay.
int analyse(const std::string& command, MediationCaseData& results) {
  return testsupport::analyseCommand(command, results);
}

struct EffectCase {
  const char* dataset;
  int config;             // index into "configs"
  const char* variables;  // BY/WITH part of the command
  const char* covb;
  friend std::ostream& operator<<(std::ostream& os, const EffectCase& c) {
    return os << c.dataset << "#" << c.config;
  }
};

class ContinuousEffectsReference : public ::testing::TestWithParam<EffectCase> {
 protected:
  testsupport::ActiveReference data_{GetParam().dataset};

  std::string command(const json& config, int level) const { return commandText(config, level); }
  std::string commandText(const json& config, int level) const {
    return std::string("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=") +
           std::to_string(config["a_star"].get<double>()) +
           " ELEVEL=" + std::to_string(config["a"].get<double>()) +
           " INTERACTION=" + (config["interaction"].get<bool>() ? "TRUE" : "FALSE") + ") " +
           GetParam().variables +
           "\n /MEDMODEL DISTRIBUTION=NORMAL\n /OUTMODEL DISTRIBUTION=NORMAL\n /CRITERIA CILEVEL=" +
           std::to_string(level) + " CITYPE=DELTA COVB=" + GetParam().covb +
           " ANALYSISTYPE=CAUSAL\n /PRINT";
  }
};

TEST_P(ContinuousEffectsReference, AllTwentyTwoQuantitiesWithDeltaMethod) {
  const json values = testsupport::referenceValues(GetParam().dataset);
  const json& config = values["configs"][GetParam().config];
  const json& expected = config["lab_closed_form"]["effects"];
  for (int level : {95, 90}) {
    SCOPED_TRACE(level);
    MediationCaseData results;
    ASSERT_EQ(analyse(command(config, level) + ".", results), 0)
        << testsupport::messageTexts(stathost::HostSession::instance().endRun());
    EXPECT_TRUE(IsClose(results.reference.m_star, config["m_cde"], 1e-9));
    ASSERT_EQ(results.effects.size(), 22u);
    const std::string suffix = std::to_string(level);
    for (const auto& [name, ref] : expected.items()) {
      SCOPED_TRACE(name);
      ASSERT_TRUE(results.effects.count(name));
      const EffectInference& e = results.effects.at(name);
      EXPECT_TRUE(IsClose(e.estimate, ref["est"], kEffectTol));
      EXPECT_TRUE(IsClose(e.se, ref["se"], kEffectTol));
      if (ref["z"].is_null()) {
        // A standard error of 0 (an effect that is 0 without the interaction): no test and
        // no interval, where R prints the degenerate interval [0, 0].
        EXPECT_TRUE(std::isnan(e.z) && std::isnan(e.p) && std::isnan(e.lower) &&
                    std::isnan(e.upper));
        continue;
      }
      EXPECT_TRUE(IsClose(e.z, ref["z"], kEffectTol));
      EXPECT_TRUE(IsClose(e.p, ref["p"], kPTol, 1e-300));
      EXPECT_TRUE(IsClose(e.lower, ref["lower" + suffix], kEffectTol));
      EXPECT_TRUE(IsClose(e.upper, ref["upper" + suffix], kEffectTol));
    }
    // The decomposition adds up whatever the data.
    const auto est = [&](const char* n) { return results.effects.at(n).estimate; };
    EXPECT_NEAR(est("TE"), est("NDE") + est("NIE"), 1e-12);
    EXPECT_NEAR(est("TE"), est("CDE") + est("INT_ref") + est("INT_med") + est("PIE"), 1e-12);
    EXPECT_NEAR(est("PE"), est("TE") - est("CDE"), 1e-12);
  }
}

// A case bootstrap estimates the sandwich (HC0) variance, so its standard errors are
// compared with the delta method on the robust covariance, and with R's own case
// bootstrap where the reference has one (both within 10%: Monte Carlo error at 2000
// replicates is about 1.6%, and the replicate streams differ).
TEST_P(ContinuousEffectsReference, BootstrapStandardErrorsAgreeWithTheDeltaMethod) {
  const json values = testsupport::referenceValues(GetParam().dataset);
  const json& config = values["configs"][GetParam().config];
  std::string text = command(config, 95);
  text.replace(text.find("COVB=MODEL"), 10, "COVB=ROBUST");
  MediationCaseData results;
  ASSERT_EQ(analyse(text + "\n /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=2000 SEED=12345).", results),
            0);
  ASSERT_TRUE(results.flags[FLAG_BOOTSTRAP_SUCCEEDED]);
  const json& rBootstrap = config["bootstrap_plain_R"]["effects"];
  for (const char* name : {"CDE", "NDE", "NIE", "TE", "PIE", "TDE"}) {
    const double delta = results.effects.at(name).se;
    const double boot = results.bootstrap.at(name).at("se");
    if (delta < 1e-12) continue;
    EXPECT_NEAR(boot / delta, 1.0, 0.10) << name << ": bootstrap " << boot << ", delta " << delta;
    if (rBootstrap.contains(name) && rBootstrap[name]["se"].is_number()) {
      EXPECT_NEAR(boot / rBootstrap[name]["se"].get<double>(), 1.0, 0.10) << name << " against R";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(DataSets, ContinuousEffectsReference,
                         ::testing::Values(EffectCase{"nn_small", 0, "BY F WITH C1 C2", "MODEL"},
                                           EffectCase{"nn_small", 1, "BY F WITH C1 C2", "MODEL"},
                                           EffectCase{"nn_binA", 0, "WITH C1 C2", "MODEL"},
                                           EffectCase{"nn_binA", 1, "WITH C1 C2", "MODEL"}));

}  // namespace

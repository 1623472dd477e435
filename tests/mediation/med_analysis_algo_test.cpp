#include "algorithm/med_analysis_algo.h"

#include <gtest/gtest.h>

#include "algorithm/mediation_strategy.h"
#include "module_fixture.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"
#include "syntax/mediation_settings.h"

namespace {

using namespace medanlys;
using testsupport::validCommand;

class DriverTest : public testsupport::ModuleTest {
 protected:
  DriverTest() {
    CommandDescriptionBuilder builder(grammar_);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
  }
  // Settings read and finalized from a command, as the run sequence does.
  std::unique_ptr<MediationSettings> configure(const std::string& command) {
    stathost::STAX_TokenSequence tokens(command, 1);
    stathost::UniversalParser parser(tokens, spec_, grammar_);
    EXPECT_EQ(parser.getCommandSpecifications(), 0);
    auto settings = std::make_unique<MediationSettings>(spec_, grammar_, source_);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) {
      EXPECT_TRUE(settings->prepareInputSetting(i));
    }
    EXPECT_TRUE(settings->finalizeSettings());
    return settings;
  }

  stathost::CommandDescriptor grammar_{"MEDIATION ANALYSIS"};
  stathost::CommandSpec spec_;
  stathost::ProcedureDataSource source_;
};

struct FactoryCase {
  int mediator;
  int outcome;
  const char* strategy;  // nullptr: refused
  friend std::ostream& operator<<(std::ostream& os, const FactoryCase& c) {
    return os << c.mediator << "/" << c.outcome;
  }
};

class StrategyFactory : public DriverTest, public ::testing::WithParamInterface<FactoryCase> {};

TEST_P(StrategyFactory, ChoosesByTheTwoDistributions) {
  auto settings = configure(validCommand());
  settings->mediatorDistribution = GetParam().mediator;
  settings->outcomeDistribution = GetParam().outcome;
  if (!GetParam().strategy) {
    try {
      createStrategy(*settings, nullptr);
      FAIL() << "not refused";
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(e.what(),
                   "An invalid combination of distribution and link settings is specified.");
    }
    return;
  }
  std::unique_ptr<MediationStrategy> s = createStrategy(*settings, nullptr);
  const std::string kind = dynamic_cast<NormalNormalStrategy*>(s.get())     ? "NormalNormal"
                           : dynamic_cast<NormalBinomialStrategy*>(s.get()) ? "NormalBinomial"
                           : dynamic_cast<BinomialNormalStrategy*>(s.get()) ? "BinomialNormal"
                                                                            : "other";
  EXPECT_EQ(kind, GetParam().strategy);
}

INSTANTIATE_TEST_SUITE_P(Table, StrategyFactory,
                         ::testing::Values(FactoryCase{NORMAL, NORMAL, "NormalNormal"},
                                           FactoryCase{NORMAL, BINOMIAL, "NormalBinomial"},
                                           FactoryCase{NORMAL, POISSON, "NormalBinomial"},
                                           FactoryCase{NORMAL, NEGBIN, "NormalBinomial"},
                                           FactoryCase{BINOMIAL, NORMAL, "BinomialNormal"},
                                           FactoryCase{BINOMIAL, BINOMIAL, nullptr},
                                           FactoryCase{BINOMIAL, POISSON, nullptr},
                                           FactoryCase{BINOMIAL, NEGBIN, nullptr},
                                           FactoryCase{7, NORMAL, nullptr},
                                           FactoryCase{NORMAL, 9, nullptr}));

TEST_F(DriverTest, RoleMappingWithoutWeightsOrLists) {
  auto settings = configure(validCommand());
  const RoleMapping input = MedAnalysisAlgo::buildRoleMapping(*settings);
  EXPECT_EQ(input.outcome.size(), 20u);
  EXPECT_EQ(input.weights, std::vector<double>(20, 1.0));
  EXPECT_TRUE(input.covariates.empty());
  EXPECT_TRUE(input.factors.empty());
  EXPECT_TRUE(input.unused.empty());
  EXPECT_EQ(input.casesRead, 20);
  EXPECT_EQ(input.casesValid, 20);
}

TEST_F(DriverTest, FactorsBecomeDummyColumnsAgainstTheLowestLevel) {
  auto settings = configure(validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x BY f WITH c1",
                                         "DISTRIBUTION=NORMAL SCALEWEIGHT=w"));
  const RoleMapping input = MedAnalysisAlgo::buildRoleMapping(*settings);
  ASSERT_EQ(input.factorCodings.size(), 1u);
  EXPECT_EQ(input.factorCodings[0].variable, "f");
  EXPECT_EQ(input.factorCodings[0].reference, 1.0);
  EXPECT_EQ(input.factorCodings[0].levels, (std::vector<double>{2.0, 3.0}));
  ASSERT_EQ(input.factors.size(), 2u);
  // f cycles 1, 2, 3: the dummy of level 2 is 1 at cases 1, 4, 7, ...
  EXPECT_EQ(input.factors[0][1], 1.0);
  EXPECT_EQ(input.factors[0][0], 0.0);
  EXPECT_EQ(input.factors[1][2], 1.0);
  ASSERT_EQ(input.covariates.size(), 1u);
  EXPECT_EQ(input.covariateNames, std::vector<std::string>{"c1"});
}

TEST_F(DriverTest, CancelledStartReturnsZeroWithoutAStrategy) {
  auto settings = configure(validCommand());
  MediationCaseData results;
  results.effects["TE"].estimate = 3.0;  // left over from an earlier run
  stathost::HostSession::instance().requestCancel();
  MedAnalysisAlgo algo(*settings, results);
  EXPECT_EQ(algo.start(), 0);
  EXPECT_TRUE(results.effects.empty());
  // No strategy ran: it would have reported that its analysis is not in this build.
  EXPECT_TRUE(stathost::HostSession::instance().endRun().messages.empty());
}

TEST_F(DriverTest, MissingSingleRoleEndsWithStatusOne) {
  auto settings = configure(validCommand());
  VariableRoleMapper empty;
  settings->roleMapper() = empty;
  MediationCaseData results;
  MedAnalysisAlgo algo(*settings, results);
  EXPECT_EQ(algo.start(), 1);
  EXPECT_TRUE(stathost::HostSession::instance().endRun().messages.empty());
}

TEST_F(DriverTest, TwoRunsInARowShareNothing) {
  const stathost::RunRecord first =
      run(validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x BY c1"));
  EXPECT_EQ(errors(first), "BY variable c1 must be categorical\n");
  const stathost::RunRecord second =
      run(validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x BY f"));
  // The second run is a complete analysis; nothing of the first one's refusal is left.
  EXPECT_EQ(errors(second), "");
  EXPECT_FALSE(second.items.empty());
}

}  // namespace

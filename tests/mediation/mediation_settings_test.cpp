// The values the readers store, read from parsed commands.
#include "syntax/mediation_settings.h"

#include <gtest/gtest.h>

#include <cmath>

#include "module_fixture.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"

namespace {

using namespace medanlys;
using testsupport::validCommand;

class SettingsTest : public testsupport::ModuleTest {
 protected:
  // Parses the command with the module's grammar and runs the seven readers.
  SettingsTest() {
    CommandDescriptionBuilder builder(grammar_);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
  }

  std::unique_ptr<MediationSettings> read(const std::string& command) {
    return read(command, source_);
  }
  std::unique_ptr<MediationSettings> read(const std::string& command,
                                          stathost::ProcedureDataSource& source) {
    stathost::STAX_TokenSequence tokens(command, 1);
    stathost::UniversalParser parser(tokens, spec_, grammar_);
    EXPECT_EQ(parser.getCommandSpecifications(), 0);
    auto settings = std::make_unique<MediationSettings>(spec_, grammar_, source);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) {
      EXPECT_TRUE(settings->prepareInputSetting(i)) << "reader " << i;
    }
    return settings;
  }

  stathost::CommandDescriptor grammar_{"MEDIATION ANALYSIS"};
  stathost::CommandSpec spec_;
  stathost::ProcedureDataSource source_;
};

TEST_F(SettingsTest, DefaultsOfAPlainCommand) {
  auto s = read(validCommand());
  EXPECT_EQ(s->outcomeVar, "y");
  EXPECT_EQ(s->predictorVar, "x");
  EXPECT_TRUE(s->baselineLevelGiven);
  EXPECT_DOUBLE_EQ(s->exposureLevel, 1.0);
  EXPECT_TRUE(s->interaction);
  EXPECT_EQ(s->ciLevel, 95);
  EXPECT_EQ(s->ciType, CITYPE_DELTA);
  EXPECT_EQ(s->maxIterations, 100);
  EXPECT_DOUBLE_EQ(s->pConverge, 1e-6);
  EXPECT_DOUBLE_EQ(s->singular, 1e-12);
  EXPECT_EQ(s->maxStepHalving, 5);
  EXPECT_DOUBLE_EQ(s->ridgePenalty, 1e-6);
  EXPECT_FALSE(s->bootstrapGiven);
  EXPECT_TRUE(s->outcomeModelGiven);
  // A bare /PRINT switches on the three tables declared as its default.
  EXPECT_TRUE(s->print[PRINT_MEDIATION_REGRESSION_MODEL]);
  EXPECT_TRUE(s->print[PRINT_OUTCOME_REGRESSION_MODEL]);
  EXPECT_TRUE(s->print[PRINT_EXPOSURE_STATS]);
  EXPECT_FALSE(s->print[PRINT_CASE_SUMMARY]);
  EXPECT_NE(s->stopProcessor(), nullptr);
}

struct NegbinCase {
  const char* distribution;
  double dispersion;
};

class NegbinDispersion : public SettingsTest, public ::testing::WithParamInterface<NegbinCase> {};

TEST_P(NegbinDispersion, IsStoredAsGiven) {
  auto s = read(validCommand("OUTCOMEVAR=cnt MEDIATORVAR=m PREDICTORVAR=x", "",
                             std::string("DISTRIBUTION=") + GetParam().distribution + " LINK=LOG"));
  EXPECT_EQ(s->outcomeDistribution, NEGBIN);
  EXPECT_DOUBLE_EQ(s->negbinDispersion, GetParam().dispersion);
  EXPECT_EQ(s->outcomeLink, LOG);
}

INSTANTIATE_TEST_SUITE_P(Forms, NegbinDispersion,
                         ::testing::Values(NegbinCase{"NEGBIN(MLE)", 0.0},
                                           NegbinCase{"NEGBIN(2.5)", 2.5},
                                           NegbinCase{"NEGBIN", 1.0},
                                           NegbinCase{"NEGBIN(20)", 20.0}));

// MAXITERATIONS and MAXSTEPHALVING are whole numbers, read as the host reads integers
// (rounded to the nearest) and then checked against their ranges.
struct CountCase {
  const char* criterion;
  int iterations;
  int halving;
  friend std::ostream& operator<<(std::ostream& os, const CountCase& c) {
    return os << c.criterion;
  }
};

class CountCriteria : public SettingsTest, public ::testing::WithParamInterface<CountCase> {};

TEST_P(CountCriteria, AreRoundedToWholeNumbers) {
  auto s =
      read(validCommand("", "", "",
                        std::string("CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL ") +
                            GetParam().criterion));
  EXPECT_EQ(s->maxIterations, GetParam().iterations);
  EXPECT_EQ(s->maxStepHalving, GetParam().halving);
}

INSTANTIATE_TEST_SUITE_P(Values, CountCriteria,
                         ::testing::Values(CountCase{"MAXITERATIONS=9.6", 10, 5},
                                           CountCase{"MAXITERATIONS=1000.4", 1000, 5},
                                           CountCase{"MAXSTEPHALVING=0.6", 100, 1},
                                           CountCase{"MAXSTEPHALVING=20.4", 100, 20}));

TEST_F(SettingsTest, IterationsThatRoundBelowTenAreRefused) {
  stathost::STAX_TokenSequence tokens(
      validCommand("", "", "",
                   "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL MAXITERATIONS=9.4"),
      1);
  stathost::UniversalParser parser(tokens, spec_, grammar_);
  ASSERT_EQ(parser.getCommandSpecifications(), 0);
  MediationSettings settings(spec_, grammar_, source_);
  EXPECT_FALSE(settings.prepareInputSetting(3));
  EXPECT_EQ(settings.maxIterations, 100);
}

// CRITERIA TRANSFORM and BOOTSTRAP CRITERIA(INTERVAL=...), with their defaults.
struct AddedOption {
  const char* criteria;
  const char* bootstrap;
  bool autoTransform;
  BootstrapInterval interval;
  friend std::ostream& operator<<(std::ostream& os, const AddedOption& o) {
    return os << o.criteria << " " << o.bootstrap;
  }
};

class AddedOptions : public SettingsTest, public ::testing::WithParamInterface<AddedOption> {};

TEST_P(AddedOptions, AreRead) {
  auto s = read(validCommand(
      "", "", "",
      std::string("CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL ") + GetParam().criteria,
      std::string(" /BOOTSTRAP CRITERIA(CILEVEL=95 ") + GetParam().bootstrap + ")"));
  EXPECT_EQ(s->autoTransform, GetParam().autoTransform);
  EXPECT_EQ(s->bootstrapInterval, GetParam().interval);
}

INSTANTIATE_TEST_SUITE_P(
    Values, AddedOptions,
    ::testing::Values(
        AddedOption{"", "", true, BootstrapInterval::kPercentile},
        AddedOption{"TRANSFORM=AUTO", "INTERVAL=PERCENTILE", true, BootstrapInterval::kPercentile},
        AddedOption{"TRANSFORM=NONE", "INTERVAL=BCA", false, BootstrapInterval::kBca},
        AddedOption{"transform=none", "interval=normal", false, BootstrapInterval::kNormal}));

// Scale weights: the original total counts each case's weight as read (a missing or
// negative weight as 0), the cleaned total the rounded weights of the kept cases.
TEST_F(SettingsTest, WeightTotalsReconcile) {
  std::vector<double> y, m, x, w(12, 1.0);
  for (int i = 0; i < 20; ++i) {
    y.push_back(i == 18 ? std::nan("") : 1.0 + 0.5 * i);
    m.push_back(0.1 * i + 0.3 * (i % 2));
    x.push_back(i % 2);
  }
  // 12: 0.5 -> 1, 13: 2.5 -> 3, 14: 1.4 -> 1 (rounded, kept); 15: 0.4, 16: -2 and 17:
  // missing (left out for the weight); 18 left out for its missing outcome; 19: 3.
  w.insert(w.end(), {0.5, 2.5, 1.4, 0.4, -2.0, std::nan(""), 2.0, 3.0});
  testsupport::ActiveData weighted(
      {testsupport::numericColumn("y", y), testsupport::numericColumn("m", m),
       testsupport::numericColumn("x", x), testsupport::numericColumn("w", w)});
  stathost::ProcedureDataSource source;
  auto s = read(validCommand("", "DISTRIBUTION=NORMAL SCALEWEIGHT=w"), source);
  stathost::HostSession::instance().endRun();  // nothing of earlier tests
  ASSERT_TRUE(s->finalizeSettings());
  // The three cases left out for their weight are announced through the settings' messages.
  const stathost::RunRecord record = stathost::HostSession::instance().endRun();
  ASSERT_EQ(record.messages.size(), 1u);
  EXPECT_EQ(record.messages[0].level, stathost::MessageLevel::kWarning);
  EXPECT_EQ(record.messages[0].command, "MEDIATION ANALYSIS");
  EXPECT_EQ(record.messages[0].text,
            "3 cases were left out because their scale weight w is missing or below 0.5 "
            "(weights are rounded to whole replication counts).");
  EXPECT_EQ(s->casesRead, 20);
  EXPECT_EQ(s->casesValid, 16);
  EXPECT_EQ(s->casesDroppedForWeight, 3);
  EXPECT_EQ(s->weightsRounded, 3);
  constexpr double kSumTol = 1e-12;
  EXPECT_NEAR(s->totalWeightRead, 21.8, kSumTol);
  EXPECT_NEAR(s->totalWeightValid, 20.0, kSumTol);
  EXPECT_NEAR(s->weightChangeByRounding, 0.6, kSumTol);
  // What the cleaning removed, 0.4 + 2 (cases 15 and 18), less what rounding added.
  EXPECT_NEAR(s->totalWeightRead - s->totalWeightValid, 2.4 - 0.6, kSumTol);
}

// A whole run: the warning stands among the run's messages, which the host writes to
// standard error and into the report.
TEST_F(SettingsTest, CasesLeftOutForTheirWeightAreAnnouncedInTheRun) {
  std::vector<double> y, m, x, w;
  for (int i = 0; i < 30; ++i) {
    y.push_back(1.0 + 0.5 * i + std::sin(i));
    m.push_back(0.1 * i + 0.3 * (i % 2) + std::cos(i));
    x.push_back(i % 2);
    w.push_back(i < 6 ? 0.2 * (i % 3) : 1.0);  // 0, 0.2 and 0.4: six cases left out
  }
  testsupport::ActiveData weighted(
      {testsupport::numericColumn("y", y), testsupport::numericColumn("m", m),
       testsupport::numericColumn("x", x), testsupport::numericColumn("w", w)});
  const stathost::RunRecord record =
      run(validCommand("", "DISTRIBUTION=NORMAL SCALEWEIGHT=w", "", "", " CASE_SUMMARY"));
  EXPECT_EQ(errors(record), "");
  std::size_t found = 0;
  for (const stathost::HostMessage& message : record.messages) {
    if (message.text ==
        "6 cases were left out because their scale weight w is missing or below 0.5 (weights "
        "are rounded to whole replication counts).") {
      ++found;
      EXPECT_EQ(message.level, stathost::MessageLevel::kWarning);
    }
  }
  EXPECT_EQ(found, 1u);
}

TEST_F(SettingsTest, FullCommand) {
  auto s = read(
      "MEDIATION ANALYSIS OUTCOMEVAR=bin MEDIATORVAR=m(MLEVEL=VALUE(0.5)) "
      "PREDICTORVAR=x(BLEVEL=1 ELEVEL=0 INTERACTION=FALSE) OUT_REFERENCE=LAST BY f WITH c1\n"
      " /MEDMODEL DISTRIBUTION=NORMAL LINK=IDENTITY SCALEWEIGHT=w\n"
      " /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOG\n"
      " /CRITERIA CITYPE=BOOTSTRAP COVB=ROBUST ANALYSISTYPE=TRADITIONAL MAXITERATIONS=50 "
      "PCONVERGE=1E-7 RIDGEPENALTY=0.001\n"
      " /PRINT CASE_SUMMARY COV_MATRIX\n"
      " /PLOT PATH_DIAGRAM(HIDE_COVARIATE_EFFECTS=TRUE EDGE_COLOR=UNIFORM) "
      "FOREST_PLOT(CONFIDENCE_INTERVALS=FALSE)\n"
      " /BOOTSTRAP CRITERIA(CILEVEL=90 NSAMPLES=500 SEED=7).");
  EXPECT_EQ(s->mediatorLevelKind, MediatorLevelKind::kCustom);
  EXPECT_DOUBLE_EQ(s->mediatorLevelValue, 0.5);
  EXPECT_DOUBLE_EQ(s->baselineLevel, 1.0);
  EXPECT_DOUBLE_EQ(s->exposureLevel, 0.0);
  EXPECT_FALSE(s->interaction);
  EXPECT_TRUE(s->outcomeReference.given);
  EXPECT_EQ(s->outcomeReference.kind, ReferenceKind::kLast);
  EXPECT_EQ(s->factors, std::vector<std::string>{"f"});
  EXPECT_EQ(s->covariates, std::vector<std::string>{"c1"});
  EXPECT_EQ(s->scaleWeightVar, "w");
  EXPECT_EQ(s->outcomeDistribution, BINOMIAL);
  EXPECT_EQ(s->outcomeLink, LOG);
  EXPECT_EQ(s->ciType, CITYPE_BOOTSTRAP);
  EXPECT_EQ(s->ciLevel, 95);  // CILEVEL may be left out under BOOTSTRAP
  EXPECT_EQ(s->covb, COVB_ROBUST);
  EXPECT_EQ(s->analysisType, TRADITIONAL);
  EXPECT_EQ(s->maxIterations, 50);
  EXPECT_DOUBLE_EQ(s->pConverge, 1e-7);
  EXPECT_DOUBLE_EQ(s->ridgePenalty, 0.001);
  EXPECT_TRUE(s->print[PRINT_CASE_SUMMARY]);
  EXPECT_TRUE(s->print[PRINT_COV_MATRIX]);
  EXPECT_FALSE(s->print[PRINT_MEDIATION_REGRESSION_MODEL]);
  EXPECT_TRUE(s->plot.pathDiagram);
  EXPECT_TRUE(s->plot.hideCovariateEffects);
  EXPECT_FALSE(s->plot.edgeColorTypeBased);
  EXPECT_TRUE(s->plot.forestPlot);
  EXPECT_TRUE(s->plot.forestPathCoefficients);
  EXPECT_FALSE(s->plot.forestConfidenceIntervals);
  EXPECT_FALSE(s->plot.scatterPlot);
  EXPECT_TRUE(s->bootstrapGiven);
  EXPECT_EQ(s->bootstrapCiLevel, 90);
  EXPECT_EQ(s->nSamples, 500);
  EXPECT_EQ(s->seed, 7);
}

TEST_F(SettingsTest, MediatorLevelDefaultsByDistribution) {
  auto continuous = read(validCommand());
  ASSERT_TRUE(continuous->finalizeSettings());
  EXPECT_EQ(continuous->mediatorLevelKind, MediatorLevelKind::kMean);
  auto binary =
      read(validCommand("OUTCOMEVAR=y MEDIATORVAR=bin PREDICTORVAR=x", "DISTRIBUTION=BINOMIAL"));
  ASSERT_TRUE(binary->finalizeSettings());
  EXPECT_EQ(binary->mediatorLevelKind, MediatorLevelKind::kCustom);
  EXPECT_DOUBLE_EQ(binary->mediatorLevelValue, 0.0);
  EXPECT_EQ(binary->mediatorLink, LOGIT);
}

TEST_F(SettingsTest, GrammarDeclaresSevenSubcommandsAndRefusesAnEighth) {
  stathost::CommandDescriptor fresh("MEDIATION ANALYSIS");
  CommandDescriptionBuilder builder(fresh);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(builder.declare(i), 0);
  EXPECT_EQ(builder.declare(7), 1);
  EXPECT_EQ(builder.declare(-1), 1);
  ASSERT_EQ(fresh.subcommands().size(), 7u);
  EXPECT_EQ(fresh.subcommands()[0].name(), "");
  EXPECT_EQ(fresh.subcommands()[6].name(), "BOOTSTRAP");
  // CILEVEL is declared twice with the same bounds: on CRITERIA and in BOOTSTRAP CRITERIA.
  const auto* level = grammar_.findSubCom("CRITERIA")->findParam("CILEVEL");
  const auto* bootLevel =
      grammar_.findSubCom("BOOTSTRAP")->findParam("CRITERIA")->findParameterQualifier("CILEVEL");
  ASSERT_TRUE(level && bootLevel);
  EXPECT_EQ(level->upper(), bootLevel->upper());
  const auto* samples =
      grammar_.findSubCom("BOOTSTRAP")->findParam("CRITERIA")->findParameterQualifier("NSAMPLES");
  EXPECT_EQ(samples->stringValues(), std::vector<std::string>{"1000"});
  const auto* negbin =
      grammar_.findSubCom("OUTMODEL")->findParam("DISTRIBUTION")->findParameterQualifier("NEGBIN");
  EXPECT_TRUE(negbin->allowsStringValue("MLE"));
  EXPECT_EQ(negbin->upper(), 20.0);
}

}  // namespace

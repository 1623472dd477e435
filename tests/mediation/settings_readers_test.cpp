// Each reader's refusals, with the exact message the user sees, through the whole module.
#include <gtest/gtest.h>

#include "module_fixture.h"

namespace {

using testsupport::validCommand;

struct Refusal {
  const char* name;
  std::string command;
  const char* message;
  friend std::ostream& operator<<(std::ostream& os, const Refusal& r) { return os << r.name; }
};

class ReaderRefusals : public testsupport::ModuleTest,
                       public ::testing::WithParamInterface<Refusal> {};

TEST_P(ReaderRefusals, ShowTheReadersMessageAndNoOutput) {
  const stathost::RunRecord record = run(GetParam().command);
  ASSERT_FALSE(record.messages.empty());
  EXPECT_EQ(record.messages.front().text, GetParam().message);
  EXPECT_EQ(record.messages.front().command, "MEDIATION ANALYSIS");
  EXPECT_EQ(record.messages.front().title, "Mediation Analysis");
  EXPECT_TRUE(record.items.empty());
}

std::string name(const ::testing::TestParamInfo<Refusal>& p) { return p.param.name; }

class WholeCommand : public testsupport::ModuleTest {};

const std::string kVars = "OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)";

INSTANTIATE_TEST_SUITE_P(
    Variables, ReaderRefusals,
    ::testing::Values(
        Refusal{"NoOutcome", validCommand("MEDIATORVAR=m PREDICTORVAR=x"),
                "Outcome Variable is required."},
        Refusal{"NoMediator", validCommand("OUTCOMEVAR=y PREDICTORVAR=x"),
                "Mediator Variable is required."},
        Refusal{"NoPredictor", validCommand("OUTCOMEVAR=y MEDIATORVAR=m"),
                "Primary Predictor Variable is required."},
        Refusal{"OrdinalOutcome", validCommand("OUTCOMEVAR=ord MEDIATORVAR=m PREDICTORVAR=x"),
                "Outcome variable ord must be scale (continuous) or nominal (categorical)."},
        Refusal{"StringPredictor", validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=name"),
                "Predictor variable name must be numeric."},
        Refusal{"ScaleFactor", validCommand(kVars + " BY c1"),
                "BY variable c1 must be categorical"},
        Refusal{
            "EmptyWith", validCommand(kVars + " WITH"),
            "No covariate variables follow the keyword WITH: name at least one variable after it."},
        Refusal{"EmptyBy", validCommand(kVars + " BY WITH c1"),
                "No factor variables follow the keyword BY: name at least one variable after it."},
        Refusal{"BlevelWithoutValue",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL ELEVEL=1)"),
                "Baseline level (BLEVEL) is required."},
        Refusal{"ElevelWithoutValue",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(ELEVEL=)"),
                "Exposure level (ELEVEL) is required."},
        Refusal{"BlevelNotANumber",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=low)"),
                "Variable x specified for PREDICTORVAR has value low of invalid type or format."},
        Refusal{
            "InteractionMaybe",
            validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(INTERACTION=MAYBE)"),
            "MAYBE is not a valid value for qualifier INTERACTION of the variable x specified for "
            "parameter PREDICTORVAR."},
        Refusal{"MlevelUnknown",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m(MLEVEL=MODE) PREDICTORVAR=x"),
                "MODE is not a valid value for qualifier MLEVEL of the variable m specified for "
                "parameter MEDIATORVAR."},
        Refusal{"OutcomeReferenceText", validCommand(kVars + " OUT_REFERENCE=yes"),
                "Outcome variable y has value yes of invalid type or format."},
        Refusal{"UnknownVariable", validCommand("OUTCOMEVAR=zz MEDIATORVAR=m PREDICTORVAR=x"),
                "Variable zz specified for OUTCOMEVAR does not exist in the active data set."}),
    name);

// A variable has one role: the check runs before any case is read.
INSTANTIATE_TEST_SUITE_P(
    OneRolePerVariable, ReaderRefusals,
    ::testing::Values(
        Refusal{"OutcomeAlsoMediator",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=Y PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)"),
                "Variable y is used both as the outcome and as the mediator. Each variable may "
                "have one role."},
        Refusal{"ExposureAlsoCovariate", validCommand(kVars + " WITH c1 X"),
                "Variable x is used both as the exposure and as a covariate. Each variable may "
                "have one role."},
        Refusal{"FactorAlsoCovariate", validCommand(kVars + " BY f WITH f"),
                "Variable f is used both as a factor and as a covariate. Each variable may have "
                "one role."},
        Refusal{"CovariateTwice", validCommand(kVars + " WITH c1 C1"),
                "Variable c1 is listed more than once under WITH. List each variable once."},
        Refusal{"FactorTwice", validCommand(kVars + " BY f f"),
                "Variable f is listed more than once under BY. List each variable once."},
        Refusal{"WeightAlsoOutcome", validCommand("", "DISTRIBUTION=NORMAL SCALEWEIGHT=Y"),
                "Variable y is used both as the outcome and as the scale weight. Each variable "
                "may have one role."},
        Refusal{"WeightAlsoCovariate",
                validCommand(kVars + " WITH w", "DISTRIBUTION=NORMAL SCALEWEIGHT=w"),
                "Variable w is used both as a covariate and as the scale weight. Each variable "
                "may have one role."}),
    name);

// A qualifier written without its value gets its own "is required" message, and a value
// that is quoted back reads as the user wrote it.
INSTANTIATE_TEST_SUITE_P(
    Qualifiers, ReaderRefusals,
    ::testing::Values(
        Refusal{"BlevelEmptyBeforeElevel",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL= ELEVEL=1)"),
                "Baseline level (BLEVEL) is required."},
        Refusal{"ElevelBareAfterBlevel",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL)"),
                "Exposure level (ELEVEL) is required."},
        Refusal{"InteractionEmptyBeforeBlevel",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(INTERACTION= BLEVEL=0)"),
                "Interaction (INTERACTION) requires a value: TRUE or FALSE."},
        Refusal{"BlevelOfTwoNumbers",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0  1 ELEVEL=1)"),
                "Variable x specified for PREDICTORVAR has value 0  1 of invalid type or format."},
        Refusal{"MlevelWithSpaces",
                validCommand("OUTCOMEVAR=y MEDIATORVAR=m(MLEVEL=VALUE (2) x) PREDICTORVAR=x"),
                "VALUE (2) x is not a valid value for qualifier MLEVEL of the variable m "
                "specified for parameter MEDIATORVAR."}),
    name);

INSTANTIATE_TEST_SUITE_P(
    Models, ReaderRefusals,
    ::testing::Values(
        Refusal{"NoMedmodel",
                "MEDIATION ANALYSIS " + kVars +
                    " /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL "
                    "ANALYSISTYPE=CAUSAL /PRINT.",
                "Subcommand MEDMODEL is required."},
        Refusal{"MedmodelWithoutDistribution", validCommand("", "LINK=IDENTITY"),
                "Subcommand MEDMODEL: DISTRIBUTION is required."},
        Refusal{"StringWeight", validCommand("", "DISTRIBUTION=NORMAL SCALEWEIGHT=name"),
                "The weight variable must be numeric."},
        Refusal{"NoOutmodel",
                "MEDIATION ANALYSIS " + kVars +
                    " /MEDMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL "
                    "ANALYSISTYPE=CAUSAL /PRINT.",
                "Subcommand OUTMODEL is required."},
        Refusal{"OutmodelWithoutDistribution", validCommand("", "", "LINK=LOG"),
                "Subcommand OUTMODEL: DISTRIBUTION is required."},
        Refusal{"NegbinZero",
                validCommand("OUTCOMEVAR=cnt MEDIATORVAR=m PREDICTORVAR=x", "",
                             "DISTRIBUTION=NEGBIN(0) LINK=LOG"),
                "NEGBIN(0) is not a negative binomial model: a dispersion k of 0 is the Poisson "
                "model (use DISTRIBUTION=POISSON). Give a k above 0, or NEGBIN(MLE) to estimate "
                "k."},
        Refusal{"NegbinZeroPointZero",
                validCommand("OUTCOMEVAR=cnt MEDIATORVAR=m PREDICTORVAR=x", "",
                             "DISTRIBUTION=NEGBIN(0.0) LINK=LOG"),
                "NEGBIN(0.0) is not a negative binomial model: a dispersion k of 0 is the "
                "Poisson model (use DISTRIBUTION=POISSON). Give a k above 0, or NEGBIN(MLE) to "
                "estimate k."}),
    name);

INSTANTIATE_TEST_SUITE_P(
    Criteria, ReaderRefusals,
    ::testing::Values(
        Refusal{"NoCriteria",
                "MEDIATION ANALYSIS " + kVars +
                    " /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /PRINT.",
                "Subcommand CRITERIA required."},
        Refusal{"NoCitype", validCommand("", "", "", "CILEVEL=95 COVB=MODEL ANALYSISTYPE=CAUSAL"),
                "Subcommand CRITERIA: CITYPE is required."},
        Refusal{"NoCovb", validCommand("", "", "", "CILEVEL=95 CITYPE=DELTA ANALYSISTYPE=CAUSAL"),
                "Subcommand CRITERIA: COVB is required."},
        Refusal{"NoAnalysisType", validCommand("", "", "", "CILEVEL=95 CITYPE=DELTA COVB=MODEL"),
                "Subcommand CRITERIA: ANALYSISTYPE is required."},
        Refusal{"DeltaWithoutLevel",
                validCommand("", "", "", "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL"),
                "Subcommand CRITERIA: CILEVEL is required."},
        Refusal{
            "NineIterations",
            validCommand("", "", "",
                         "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL MAXITERATIONS=9"),
            "Invalid analysis criteria (e.g., iterations, tolerance out of range). Use defaults: "
            "iterations [10-1000], tol [1e-8 to 1e-3]."},
        Refusal{
            "TooManyIterations",
            validCommand(
                "", "", "",
                "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL MAXITERATIONS=1001"),
            "Invalid analysis criteria (e.g., iterations, tolerance out of range). Use defaults: "
            "iterations [10-1000], tol [1e-8 to 1e-3]."},
        Refusal{
            "LooseConvergence",
            validCommand("", "", "",
                         "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL PCONVERGE=0.01"),
            "Invalid analysis criteria (e.g., iterations, tolerance out of range). Use defaults: "
            "iterations [10-1000], tol [1e-8 to 1e-3]."},
        Refusal{
            "LooseSingular",
            validCommand("", "", "",
                         "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL SINGULAR=1e-5"),
            "Invalid analysis criteria (e.g., iterations, tolerance out of range). Use defaults: "
            "iterations [10-1000], tol [1e-8 to 1e-3]."},
        Refusal{
            "NoStepHalving",
            validCommand("", "", "",
                         "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL MAXSTEPHALVING=0"),
            "Invalid analysis criteria (e.g., iterations, tolerance out of range). Use defaults: "
            "iterations [10-1000], tol [1e-8 to 1e-3]."},
        Refusal{"BootstrapWithoutLevel",
                validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(NSAMPLES=500)"),
                "Subcommand BOOTSTRAP: CILEVEL is required."}),
    name);

// A confidence level is a whole percent strictly between 0 and 100; one that rounds to 0
// or 100 leaves no interval to compute.
INSTANTIATE_TEST_SUITE_P(
    ConfidenceLevels, ReaderRefusals,
    ::testing::Values(
        Refusal{"Hundred",
                validCommand("", "", "",
                             "CILEVEL=100 CITYPE=DELTA COVB=MODEL "
                             "ANALYSISTYPE=CAUSAL"),
                "CRITERIA CILEVEL = 100 is out of range: the value must be from 1 to 99."},
        Refusal{"RoundsToHundred",
                validCommand("", "", "",
                             "CILEVEL=99.7 CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL"),
                "CRITERIA CILEVEL = 99.7 is out of range: the value must be from 1 to 99."},
        Refusal{"RoundsToZero",
                validCommand("", "", "",
                             "CILEVEL=0.3 CITYPE=DELTA COVB=MODEL "
                             "ANALYSISTYPE=CAUSAL"),
                "CRITERIA CILEVEL = 0.3 is out of range: the value must be from 1 to 99."},
        Refusal{"BootstrapHundred",
                validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(CILEVEL=100)"),
                "BOOTSTRAP CRITERIA CILEVEL = 100 is out of range: the value must be from 1 to "
                "99."},
        Refusal{"BootstrapRoundsToHundred",
                validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(CILEVEL=99.5)"),
                "BOOTSTRAP CRITERIA CILEVEL = 99.5 is out of range: the value must be from 1 to "
                "99."}),
    name);

INSTANTIATE_TEST_SUITE_P(
    BootstrapSamples, ReaderRefusals,
    ::testing::Values(
        Refusal{"Negative",
                validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=-5)"),
                "Bootstrap samples (NSAMPLES) must be a positive whole number; -5 was given."},
        Refusal{"Zero", validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=0)"),
                "Bootstrap samples (NSAMPLES) must be a positive whole number; 0 was given."},
        Refusal{"Fraction",
                validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=1000.7)"),
                "Bootstrap samples (NSAMPLES) must be a positive whole number; 1000.7 was "
                "given."}),
    name);

INSTANTIATE_TEST_SUITE_P(
    Finalize, ReaderRefusals,
    ::testing::Values(
        Refusal{"OutcomeReferenceOnContinuous", validCommand(kVars + " OUT_REFERENCE=FIRST"),
                "REFERENCE parameter is not applicable for continuous outcome variable."},
        Refusal{"MediatorReferenceOnContinuous", validCommand(kVars + " MED_REFERENCE=LAST"),
                "REFERENCE parameter is not applicable for continuous mediator variable."},
        Refusal{
            "ReferenceOnCounts",
            validCommand("OUTCOMEVAR=cnt MEDIATORVAR=m PREDICTORVAR=x OUT_REFERENCE=0", "",
                         "DISTRIBUTION=POISSON LINK=LOG"),
            "REFERENCE parameter is not applicable for count outcome variable (Poisson/Negative "
            "Binomial)."},
        Refusal{"BarPlotForContinuousPair", validCommand("", "", "", "", " /PLOT BAR_PLOT"),
                "BAR PLOT is not applicable for continuous mediator and continuous outcome."},
        Refusal{"NonIntegerCounts", validCommand("", "", "DISTRIBUTION=NEGBIN(MLE) LINK=LOG"),
                "Outcome variable y must contain only non-negative integer values for Negative "
                "Binomial distribution."},
        Refusal{"NegativeCounts",
                validCommand("OUTCOMEVAR=c1 MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)", "",
                             "DISTRIBUTION=POISSON LINK=LOG"),
                "Outcome variable c1 must contain only non-negative integer values for Poisson "
                "distribution."},
        Refusal{"ThreeValuedBinaryOutcome",
                validCommand("OUTCOMEVAR=f MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)", "",
                             "DISTRIBUTION=BINOMIAL LINK=LOGIT"),
                "Outcome must have exactly 2 values for binomial. Recode"},
        Refusal{"StringOutcomeForPoisson",
                validCommand("OUTCOMEVAR=name MEDIATORVAR=m PREDICTORVAR=x", "",
                             "DISTRIBUTION=POISSON"),
                "The dependent variable must be numeric for the POISSON probability distribution."},
        Refusal{"BinaryMediatorWithCounts",
                validCommand("OUTCOMEVAR=cnt MEDIATORVAR=bin PREDICTORVAR=x",
                             "DISTRIBUTION=BINOMIAL LINK=LOGIT", "DISTRIBUTION=POISSON LINK=LOG"),
                "An invalid combination of distribution and link settings is specified."}),
    name);

TEST_F(WholeCommand, SyntaxErrorIsTheParsersMessageAlone) {
  const stathost::RunRecord record = run(validCommand("", "DISTRIBUTION=NORMAL LINK=LOG"));
  ASSERT_EQ(record.messages.size(), 1u);
  EXPECT_EQ(record.messages[0].text.rfind("MEDIATION ANALYSIS: syntax error at line 2, column", 0),
            0u)
      << record.messages[0].text;
  EXPECT_TRUE(record.items.empty());
}

// The two keywords this program adds are checked by the parser like every other keyword.
struct BadKeyword {
  const char* name;
  std::string command;
  const char* expected;
  friend std::ostream& operator<<(std::ostream& os, const BadKeyword& b) { return os << b.name; }
};

class AddedKeywords : public testsupport::ModuleTest,
                      public ::testing::WithParamInterface<BadKeyword> {};

TEST_P(AddedKeywords, RefuseAnUnknownValueWithTheParsersMessage) {
  const stathost::RunRecord record = run(GetParam().command);
  ASSERT_EQ(record.messages.size(), 1u);
  const std::string& text = record.messages[0].text;
  EXPECT_EQ(text.rfind("MEDIATION ANALYSIS: syntax error at line", 0), 0u) << text;
  EXPECT_NE(text.find(GetParam().expected), std::string::npos) << text;
  EXPECT_TRUE(record.items.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Values, AddedKeywords,
    ::testing::Values(
        BadKeyword{"Transform",
                   validCommand("", "", "",
                                "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL "
                                "TRANSFORM=OFF"),
                   "found 'OFF', expected AUTO or NONE for CRITERIA TRANSFORM."},
        BadKeyword{
            "Interval",
            validCommand("", "", "", "", " /BOOTSTRAP CRITERIA(CILEVEL=95 INTERVAL=STUDENT)"),
            "found 'STUDENT', expected PERCENTILE, BCA or NORMAL for BOOTSTRAP CRITERIA "
            "INTERVAL."}),
    [](const ::testing::TestParamInfo<BadKeyword>& p) { return std::string(p.param.name); });

TEST_F(WholeCommand, PrintMissingRefusesWithoutAMessage) {
  const stathost::RunRecord record =
      run("MEDIATION ANALYSIS " + kVars +
          " /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 "
          "CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL.");
  EXPECT_TRUE(record.messages.empty());
  EXPECT_TRUE(record.items.empty());
}

}  // namespace

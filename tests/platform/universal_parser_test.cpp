#include "stathost/universal_parser.h"

#include <gtest/gtest.h>

#include "test_grammar.h"
#include "test_util.h"

namespace {

using namespace stathost;
using testsupport::numericColumn;

class ParserTest : public ::testing::Test {
 protected:
  ParserTest()
      : data_({numericColumn("y", {1, 2}), numericColumn("m", {1, 2}), numericColumn("x", {0, 1}),
               numericColumn("w", {1, 1})}) {
    testsupport::declareTestGrammar(grammar_);
  }

  // Parses the command; returns the status and leaves the messages in record_.
  int parse(const std::string& text) {
    HostSession::instance().beginRun();
    STAX_TokenSequence tokens(text, 1);
    UniversalParser parser(tokens, spec_, grammar_);
    const int status = parser.getCommandSpecifications();
    record_ = HostSession::instance().endRun();
    return status;
  }
  std::string messages() const { return testsupport::messageTexts(record_); }

  testsupport::ActiveData data_;
  CommandDescriptor grammar_{testsupport::kTestCommand};
  CommandSpec spec_;
  RunRecord record_;
};

const char* const kHead =
    "MEDIATION TEST OUTCOMEVAR=y MEDIATORVAR=m PREDICTORVAR=x(BLEVEL=0 ELEVEL=1)\n";

struct RefusedCase {
  const char* name;
  const char* tail;     // appended to kHead
  const char* message;  // expected part of the syntax message
  friend std::ostream& operator<<(std::ostream& os, const RefusedCase& c) { return os << c.name; }
};

class RefusedCommands : public ParserTest, public ::testing::WithParamInterface<RefusedCase> {};

TEST_P(RefusedCommands, ReportsLineColumnTokenAndExpectation) {
  const RefusedCase& c = GetParam();
  EXPECT_EQ(parse(std::string(kHead) + c.tail), 1);
  ASSERT_EQ(record_.messages.size(), 1u) << messages();
  const HostMessage& m = record_.messages.front();
  EXPECT_EQ(m.level, MessageLevel::kError);
  EXPECT_EQ(m.command, "MEDIATION TEST");
  EXPECT_NE(m.text.find("MEDIATION TEST: syntax error at line"), std::string::npos) << m.text;
  EXPECT_NE(m.text.find(c.message), std::string::npos) << m.text;
  EXPECT_GT(m.line, 0);
  EXPECT_GT(m.column, 0);
  EXPECT_TRUE(spec_.getSubComs().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, RefusedCommands,
    ::testing::Values(
        RefusedCase{"UnknownSubcommand", "  /OUTPUT FILE=x.",
                    "found 'OUTPUT', expected a subcommand name (MEDMODEL, OUTMODEL"},
        RefusedCase{"UnknownKeyword", "  /CRITERIA CILEVEL=95 FOO=1.",
                    "found 'FOO', expected a keyword of subcommand CRITERIA (CILEVEL, CITYPE"},
        RefusedCase{"ValueKeywordNotAllowed", "  /CRITERIA CITYPE=JACKKNIFE.",
                    "found 'JACKKNIFE', expected DELTA or BOOTSTRAP for CRITERIA CITYPE"},
        RefusedCase{"LogLinkOnMediatorModel", "  /MEDMODEL DISTRIBUTION=NORMAL LINK=LOG.",
                    "found 'LOG', expected IDENTITY or LOGIT for MEDMODEL LINK"},
        RefusedCase{"LevelAboveUpperBound", "  /CRITERIA CILEVEL=101.",
                    "CRITERIA CILEVEL = 101 is out of range: the value must be from 0 to 100"},
        RefusedCase{"ToleranceAtExclusiveBound", "  /CRITERIA PCONVERGE=0.",
                    "CRITERIA PCONVERGE = 0 is out of range: the value must be greater than 0"},
        RefusedCase{"IterationsBelowBound", "  /CRITERIA MAXITERATIONS=0.",
                    "the value must be of at least 1"},
        RefusedCase{
            "NegbinAboveTwenty", "  /OUTMODEL DISTRIBUTION=NEGBIN(25) LINK=LOG.",
            "OUTMODEL DISTRIBUTION = NEGBIN = 25 is out of range: the value must be from 0 to 20"},
        RefusedCase{"NegbinUnknownKeyword", "  /OUTMODEL DISTRIBUTION=NEGBIN(REML).",
                    "found 'REML', expected a number from 0 to 20 or MLE"},
        RefusedCase{"UnknownDistribution", "  /OUTMODEL DISTRIBUTION=GAMMA.",
                    "found 'GAMMA', expected NORMAL, BINOMIAL, POISSON or NEGBIN"},
        RefusedCase{"MissingEquals", "  /CRITERIA CILEVEL 95.",
                    "found '95', expected '=' after CRITERIA CILEVEL"},
        RefusedCase{"MissingValue", "  /CRITERIA CILEVEL=.",
                    "found the end of the command, expected a number"},
        RefusedCase{"BareKeywordWithValue", "  /PRINT CASE_SUMMARY=1.",
                    "CASE_SUMMARY takes no value"},
        RefusedCase{"DuplicateSubcommand", "  /PRINT CASE_SUMMARY /PRINT DESCRIPTIVES.",
                    "the subcommand PRINT is given more than once"},
        RefusedCase{"DuplicateKeyword", "  /CRITERIA CILEVEL=95 CILEVEL=90.",
                    "the keyword CILEVEL is given more than once on CRITERIA"},
        RefusedCase{"UnknownQualifier", "  /PLOT PATH_DIAGRAM(COLOR=RED).",
                    "found 'COLOR', expected a qualifier of PLOT PATH_DIAGRAM "
                    "(HIDE_COVARIATE_EFFECTS or EDGE_COLOR) or ')'"},
        RefusedCase{"QualifierBadValue", "  /PLOT BAR_PLOT(ERROR_BARS=MAYBE).",
                    "found 'MAYBE', expected TRUE or FALSE for PLOT BAR_PLOT ERROR_BARS"},
        RefusedCase{"BootstrapSeedNegative", "  /BOOTSTRAP CRITERIA(CILEVEL=95 SEED=-1).",
                    "SEED = -1 is out of range"},
        RefusedCase{"UnclosedParenthesis", "  /PLOT PATH_DIAGRAM(EDGE_COLOR=UNIFORM.",
                    "the '(' here is not closed by a matching ')'"},
        RefusedCase{"StrayClosingParenthesis", "  /PLOT SCATTER_PLOT).",
                    "found ')' without a matching '('"},
        RefusedCase{"UnterminatedString", "  /PRINT 'CASE_SUMMARY.", "Unterminated string"},
        RefusedCase{"VariableNotInData", "  /MEDMODEL DISTRIBUTION=NORMAL SCALEWEIGHT=zz.",
                    "the variable zz is not in the active data set"},
        RefusedCase{"VariableNotInDataWithACloseName",
                    "  /MEDMODEL DISTRIBUTION=NORMAL SCALEWEIGHT=ww.",
                    "the variable ww is not in the active data set. Did you mean: w?"},
        RefusedCase{"TextAfterFullStop", "  /PRINT CASE_SUMMARY.\nMORE TEXT",
                    "after the full stop that ends the command"},
        RefusedCase{"MissingSlash", "  /PRINT CASE_SUMMARY PLOT",
                    "found 'PLOT', expected a keyword of subcommand PRINT"}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST_F(ParserTest, TellsTheHostTheGrammarAndTheSubcommandsGiven) {
  HostSession::instance().beginRun();
  STAX_TokenSequence tokens(std::string(kHead) + "  /CRITERIA CILEVEL=90 /PLOT SCATTER_PLOT.", 1);
  UniversalParser parser(tokens, spec_, grammar_);
  ASSERT_EQ(parser.getCommandSpecifications(), 0);
  const CommandDescriptor* parsed = HostSession::instance().parsedGrammar();
  ASSERT_NE(parsed, nullptr);
  EXPECT_EQ(parsed->name(), testsupport::kTestCommand);
  EXPECT_NE(parsed->findSubCom("PRINT"), nullptr);
  EXPECT_EQ(HostSession::instance().givenSubcommands(),
            (std::vector<std::string>{"", "CRITERIA", "PLOT"}));
  // A new run starts without them.
  HostSession::instance().beginRun();
  EXPECT_EQ(HostSession::instance().parsedGrammar(), nullptr);
  HostSession::instance().endRun();
}

TEST_F(ParserTest, MissingVariableSpecificationIsRefused) {
  EXPECT_EQ(parse("MEDIATION TEST /PRINT CASE_SUMMARY."), 1);
  EXPECT_NE(messages().find("expected the variable list that follows the command name"),
            std::string::npos)
      << messages();
}

TEST_F(ParserTest, ErrorPositionIsTheOffendingToken) {
  EXPECT_EQ(parse("MEDIATION TEST OUTCOMEVAR=y\n  /CRITERIA\n    CITYPE=WRONG."), 1);
  ASSERT_EQ(record_.messages.size(), 1u);
  EXPECT_EQ(record_.messages[0].line, 3);
  EXPECT_EQ(record_.messages[0].column, 12);
}

TEST_F(ParserTest, AcceptsFullCommandAndFillsSpec) {
  ASSERT_EQ(
      parse(std::string(kHead) +
            "  WITH c1 c2 BY f\n"
            "  /MEDMODEL DISTRIBUTION=normal LINK=identity SCALEWEIGHT=W\n"
            "  /OUTMODEL DISTRIBUTION=NEGBIN(MLE) LINK=LOG\n"
            "  /CRITERIA CILEVEL=90 CITYPE=BOOTSTRAP COVB=ROBUST ANALYSISTYPE=CAUSAL\n"
            "            MAXITERATIONS=100 PCONVERGE=1E-6 SINGULAR=1e-12\n"
            "  /PRINT CASE_SUMMARY COV_MATRIX\n"
            "  /PLOT PATH_DIAGRAM(HIDE_COVARIATE_EFFECTS=TRUE EDGE_COLOR=UNIFORM) SCATTER_PLOT\n"
            "  /BOOTSTRAP CRITERIA(CILEVEL=99 NSAMPLES=1000 SEED=2000000)."),
      0)
      << messages();
  EXPECT_TRUE(record_.messages.empty());

  const SubComObj* unnamed = spec_.getSubCom("");
  ASSERT_NE(unnamed, nullptr);
  // Raw tokens from OUTCOMEVAR up to the first top-level "/".
  EXPECT_EQ(unnamed->getTokens().front().getText(), "OUTCOMEVAR");
  EXPECT_EQ(unnamed->getTokens().back().getText(), "f");

  const SubComObj* med = spec_.getSubCom("medmodel");
  ASSERT_NE(med, nullptr);
  EXPECT_EQ(med->getParam("DISTRIBUTION")->getValueText(), "NORMAL");
  EXPECT_EQ(med->getParam("SCALEWEIGHT")->getValueText(), "W");

  const ParamObj* dist = spec_.getSubCom("OUTMODEL")->getParam("DISTRIBUTION");
  EXPECT_EQ(dist->getValueText(), "NEGBIN");
  ASSERT_NE(dist->getQualifier("NEGBIN"), nullptr);
  EXPECT_EQ(dist->getQualifier("NEGBIN")->getValueText(), "MLE");
  EXPECT_FALSE(dist->getQualifier("NEGBIN")->isNumeric());

  const SubComObj* criteria = spec_.getSubCom("CRITERIA");
  EXPECT_EQ(criteria->getParam("CILEVEL")->getIntegerValue(), 90);
  EXPECT_DOUBLE_EQ(criteria->getParam("PCONVERGE")->getNumberValue(), 1e-6);
  EXPECT_DOUBLE_EQ(criteria->getParam("SINGULAR")->getNumberValue(), 1e-12);
  EXPECT_EQ(criteria->getParam("COVB")->getValueText(), "ROBUST");
  EXPECT_FALSE(criteria->hasParam("RIDGEPENALTY"));

  const SubComObj* print = spec_.getSubCom("PRINT");
  EXPECT_TRUE(print->hasParam("CASE_SUMMARY"));
  EXPECT_TRUE(print->hasParam("COV_MATRIX"));
  EXPECT_FALSE(print->hasParam("MEDIATION_REGRESSION_MODEL"));

  const ParamObj* path = spec_.getSubCom("PLOT")->getParam("PATH_DIAGRAM");
  EXPECT_EQ(path->getQualifier("EDGE_COLOR")->getValueText(), "UNIFORM");
  EXPECT_EQ(path->getQualifier("HIDE_COVARIATE_EFFECTS")->getValueText(), "TRUE");

  const ParamObj* boot = spec_.getSubCom("BOOTSTRAP")->getParam("CRITERIA");
  EXPECT_EQ(boot->getQualifier("CILEVEL")->getIntegerValue(), 99);
  EXPECT_EQ(boot->getQualifier("NSAMPLES")->getIntegerValue(), 1000);
  EXPECT_EQ(boot->getQualifier("SEED")->getIntegerValue(), 2000000);
}

TEST_F(ParserTest, NegbinWithNumberOrAlone) {
  ASSERT_EQ(parse(std::string(kHead) + " /OUTMODEL DISTRIBUTION=NEGBIN(2.5) LINK=LOG."), 0)
      << messages();
  const ParamObj* d = spec_.getSubCom("OUTMODEL")->getParam("DISTRIBUTION");
  EXPECT_DOUBLE_EQ(d->getQualifier("NEGBIN")->getNumberValue(), 2.5);

  ASSERT_EQ(parse(std::string(kHead) + " /OUTMODEL DISTRIBUTION=NEGBIN LINK=LOG."), 0)
      << messages();
  d = spec_.getSubCom("OUTMODEL")->getParam("DISTRIBUTION");
  EXPECT_EQ(d->getValueText(), "NEGBIN");
  ASSERT_NE(d->getQualifier("NEGBIN"), nullptr);
  EXPECT_FALSE(d->getQualifier("NEGBIN")->hasValue());
}

TEST_F(ParserTest, InclusiveBoundsAcceptTheirLimits) {
  EXPECT_EQ(parse(std::string(kHead) + " /CRITERIA CILEVEL=100 MAXSTEPHALVING=0."), 0)
      << messages();
  EXPECT_EQ(parse(std::string(kHead) + " /OUTMODEL DISTRIBUTION=NEGBIN(20)."), 0) << messages();
  EXPECT_EQ(parse(std::string(kHead) + " /OUTMODEL DISTRIBUTION=NEGBIN(0)."), 0) << messages();
}

TEST_F(ParserTest, BarePrintSwitchesOnDefaultKeywords) {
  ASSERT_EQ(parse(std::string(kHead) + " /PRINT."), 0) << messages();
  const SubComObj* print = spec_.getSubCom("PRINT");
  ASSERT_NE(print, nullptr);
  ASSERT_EQ(print->getParams().size(), 3u);
  EXPECT_EQ(print->getParams()[0].getName(), "MEDIATION_REGRESSION_MODEL");
  EXPECT_EQ(print->getParams()[1].getName(), "OUTCOME_REGRESSION_MODEL");
  EXPECT_EQ(print->getParams()[2].getName(), "EXPOSURE_STATS");
}

TEST_F(ParserTest, OptionalParametersStayAbsentForTheProcedureToCheck) {
  // CITYPE is declared but not enforced by the parser: the procedure says it is required.
  ASSERT_EQ(parse(std::string(kHead) + " /CRITERIA COVB=MODEL."), 0) << messages();
  EXPECT_FALSE(spec_.getSubCom("CRITERIA")->hasParam("CITYPE"));
  EXPECT_FALSE(spec_.hasSubCom("OUTMODEL"));
}

TEST_F(ParserTest, KeywordsIgnoreCaseAndTheFullStopIsOptional) {
  ASSERT_EQ(parse("mediation test outcomevar=y /criteria citype=delta cilevel=95"), 0)
      << messages();
  EXPECT_EQ(spec_.getSubCom("CRITERIA")->getParam("CITYPE")->getValueText(), "DELTA");
}

TEST_F(ParserTest, DeclarationsUppercaseTheirNames) {
  ParamDescriptor p("cilevel", SPEC_NUMBER, false, true, BRACKETS_AS_KIND);
  p.addStringValue("mle");
  EXPECT_EQ(p.name(), "CILEVEL");
  EXPECT_TRUE(p.allowsStringValue("MLE"));
  EXPECT_TRUE(p.allowsStringValue("Mle"));
}

}  // namespace

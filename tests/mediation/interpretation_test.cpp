// The sentences of "Effect Interpretation" in its three variants.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "entry/medanlys_entry.h"
#include "module_fixture.h"
#include "output/output_context.h"
#include "reference_data.h"
#include "stathost/host_session.h"
#include "stathost/universal_parser.h"
#include "syntax/command_description_builder.h"

namespace {

using namespace medanlys;
using nlohmann::json;

class Interpretation : public testsupport::ModuleTest {
 protected:
  // The interpretation table for hand-made effects under the settings of a command.
  json table(const std::string& variables, const std::string& medmodel, const std::string& outmodel,
             const std::map<std::string, double>& estimates) {
    return write(variables, medmodel, outmodel,
                 [&](const OutputContext& out, MediationCaseData& results) {
                   for (const auto& [name, value] : estimates)
                     results.effects[name].estimate = value;
                   writeEffectInterpretation(out);
                 });
  }

  json write(const std::string& variables, const std::string& medmodel, const std::string& outmodel,
             const std::function<void(const OutputContext&, MediationCaseData&)>& writer) {
    stathost::CommandDescriptor grammar("MEDIATION ANALYSIS");
    CommandDescriptionBuilder builder(grammar);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i) builder.declare(i);
    stathost::STAX_TokenSequence tokens(testsupport::validCommand(variables, medmodel, outmodel),
                                        1);
    stathost::CommandSpec parsed;
    stathost::UniversalParser parser(tokens, parsed, grammar);
    EXPECT_EQ(parser.getCommandSpecifications(), 0);
    stathost::ProcedureDataSource source;
    MediationSettings settings(parsed, grammar, source);
    for (int i = 0; i < CommandDescriptionBuilder::kSubcommandCount; ++i)
      settings.prepareInputSetting(i);
    MediationCaseData results;
    stathost::StatJSONGenerator generator("Mediation Analysis");
    writer(OutputContext{generator, settings, results}, results);
    return json::parse(generator.getProcedureStatJSON())["items"][0];
  }
};

TEST_F(Interpretation, LinearVariantWithANegativeDirectEffect) {
  const json t = table("", "", "", {{"NDE", -0.25}, {"NIE", 0.5}, {"TE", 0.25}, {"PM", 200}});
  EXPECT_EQ(t["title"], "Effect Interpretation");
  EXPECT_EQ(t["columns"], json::parse(R"([["Effect"],["Value"],["Interpretation"]])"));
  EXPECT_EQ(t["cells"][0][0]["text"], "Outcome \u2014 continuous (linear scale)");
  EXPECT_EQ(t["cells"][1][2]["text"], "Exposure decreases the outcome by 0.2500 units");
  EXPECT_EQ(t["cells"][2][2]["text"], "Through mediator ('x'\u2192'm'): increases by 0.5000 units");
  EXPECT_EQ(t["cells"][3][2]["text"], "\u2014");
  EXPECT_EQ(t["cells"][4][1]["text"], "200.0000");
}

TEST_F(Interpretation, RatioVariantWithMediatorWording) {
  const json t =
      table("OUTCOMEVAR=bin MEDIATORVAR=m PREDICTORVAR=x", "", "DISTRIBUTION=BINOMIAL LINK=LOGIT",
            {{"OR_NDE", 1.0}, {"OR_NIE", 0.8}, {"OR_TE", 0.8}, {"PM", 50}});
  EXPECT_EQ(t["cells"][0][0]["text"], "Outcome \u2014 binary");
  // Each coding beside its own variable: the codes belong to the outcome.
  EXPECT_EQ(t["cells"][0][2]["text"], "Mediator: m; Outcome: bin (reference 0, event 1)");
  EXPECT_EQ(t["cells"][1][2]["text"], "Exposure has no effect (ratio = 1.0)");
  EXPECT_EQ(t["cells"][2][2]["text"],
            "Through mediator ('x'\u2192'm'): decreases odds by 20.0000%");
}

TEST_F(Interpretation, RatioVariantWithOutcomeWordingForACountOutcome) {
  const json t = table("OUTCOMEVAR=cnt MEDIATORVAR=bin PREDICTORVAR=x", "DISTRIBUTION=BINOMIAL",
                       "DISTRIBUTION=POISSON LINK=LOG",
                       {{"OR_NDE", 1.5}, {"OR_NIE", 1.1}, {"OR_TE", 1.65}, {"PM", 20}});
  EXPECT_EQ(t["cells"][0][0]["text"], "Outcome \u2014 count");
  EXPECT_EQ(t["cells"][0][2]["text"], "Outcome: cnt");
  EXPECT_EQ(t["cells"][1][2]["text"], "Exposure increases incidence rate by 50.0000%");
  EXPECT_EQ(t["cells"][2][2]["text"], "via mediator increases incidence rate by 10.0000%");
}

GlmModelTable threeCoefficients() {
  GlmModelTable m;
  m.rows = {{0.1, 0.02, 0.03, 1.0, 1.2}, {0.5, 0.1, 0.11, 1.3, 2.0}, {-0.2, 0.05, 0.06, 0.7, 0.9}};
  m.pseudoR2 = 0.12;
  m.aic = 500.5;
  m.bic = 510.25;
  m.deviance = 490.5;
  m.dispersion = 1.0;
  return m;
}

TEST_F(Interpretation, GlmOutcomeTableForTheLogLink) {
  const json t =
      write("OUTCOMEVAR=bin MEDIATORVAR=m PREDICTORVAR=x(INTERACTION=FALSE)", "",
            "DISTRIBUTION=BINOMIAL LINK=LOG", [](const OutputContext& out, MediationCaseData&) {
              writeGlmOutcomeModel(out, threeCoefficients());
            });
  EXPECT_EQ(t["title"], "Outcome Regression Model Summary");
  EXPECT_EQ(t["footnotes"][0]["text"], "RR = Risk Ratio = exp(Theta) (log link scale).");
  EXPECT_EQ(t["footnotes"][1]["text"], "Theta coefficients on transform type(outcome) scale.");
  const json columns =
      json::parse(R"J([["Robust","Estimate"],["Robust","Robust SE"],["Model-based","Estimate"],)J"
                  R"J(["Model-based","Model SE"],["RR","Exp(Coef)"],)J"
                  R"J(["95% Confidence Interval","Lower"],["95% Confidence Interval","Upper"]])J");
  EXPECT_EQ(t["columns"], columns);
  EXPECT_EQ(t["rows"][2][0], "m (Theta2)");
  EXPECT_EQ(t["rows"].back()[0], "Dispersion");
  EXPECT_EQ(t["cells"][1][4]["text"], "1.6487");  // exp(0.5)
}

TEST_F(Interpretation, LogisticMediatorTable) {
  const json t = write("OUTCOMEVAR=y MEDIATORVAR=bin PREDICTORVAR=x", "DISTRIBUTION=BINOMIAL", "",
                       [](const OutputContext& out, MediationCaseData&) {
                         writeLogisticMediatorModel(out, threeCoefficients());
                       });
  const json columns =
      json::parse(R"J([["Estimate"],["Robust SE"],["Model SE"],["OR"],)J"
                  R"J(["95% Confidence Interval","Lower"],["95% Confidence Interval","Upper"]])J");
  const json rows = json::parse(R"J([["Intercept (Beta0)"],["x (Beta1)"],["Covariate 2 (Beta2)"],)J"
                                R"J(["Pseudo R Square"],["AIC"],["BIC"],["Deviance"]])J");
  EXPECT_EQ(t["columns"], columns);
  EXPECT_EQ(t["rows"], rows);
  EXPECT_TRUE(t["footnotes"].empty());
}

// An outcome on the reflected log scale: the sentences give the size on that scale and say
// which way the effect goes on the outcome itself.
TEST_F(Interpretation, ReflectedOutcomeSentencesSpeakOfTheOriginalDirection) {
  const json t = write("", "", "", [](const OutputContext& out, MediationCaseData& results) {
    TransformationRecord reflected;
    reflected.name = "reflected_log";
    reflected.skewness = -2.1;
    reflected.minimum = 0.0;
    reflected.maximum = 10.0;
    results.transformations["Outcome"] = reflected;
    results.effects["NDE"].estimate = -0.1389;
    results.effects["NIE"].estimate = 0.25;
    writeEffectInterpretation(out);
  });
  EXPECT_EQ(t["cells"][1][2]["text"],
            "Exposure decreases the outcome by 0.1389 units of log(11 - y), a reversed scale: that "
            "is, it raises y");
  EXPECT_EQ(t["cells"][2][2]["text"],
            "Through mediator ('x'\u2192'm'): increases by 0.2500 units of log(11 - y), a reversed "
            "scale: that is, it lowers y");
  EXPECT_EQ(t["footnotes"][0]["text"],
            "The outcome y was transformed to log(11 - y) for its skewness: higher values on this "
            "scale are lower values of y. Effects are on the transformed scale and their signs "
            "are reversed relative to y.");
}

TEST_F(Interpretation, LogOutcomeSentencesNameTheScale) {
  const json t = write("", "", "", [](const OutputContext& out, MediationCaseData& results) {
    results.transformations["Outcome"].name = "log";
    results.effects["NDE"].estimate = 0.25;
    results.effects["NIE"].estimate = -0.5;
    writeEffectInterpretation(out);
  });
  EXPECT_EQ(t["cells"][1][2]["text"], "Exposure increases the outcome by 0.2500 units of log(y)");
  EXPECT_EQ(t["cells"][2][2]["text"],
            "Through mediator ('x'\u2192'm'): decreases by 0.5000 units of log(y)");
  EXPECT_EQ(t["footnotes"][0]["text"],
            "The outcome y was transformed to log(y) for its skewness. Effects are on the "
            "transformed scale.");
}

// ---- the proportion mediated of a total effect near zero -------------------------------------

struct TotalEffectCase {
  const char* name;
  bool binaryOutcome;  // the proportions are of excRR_TE, else of TE
  double estimate, se;
  bool bootstrap;  // a bootstrap that succeeded, with these percentile limits
  double lower, upper;
  double pm;
  const char* note;  // "" for none
};
void PrintTo(const TotalEffectCase& c, std::ostream* os) { *os << c.name; }

class TotalEffectNote : public Interpretation,
                        public ::testing::WithParamInterface<TotalEffectCase> {};

// The Proportion Mediated keeps its value; a footnote says when the total effect it divides
// by is not distinguishable from zero: |TE| < z SE(TE) by the delta method, or the bootstrap
// interval of TE contains 0 when the bootstrap succeeded.
TEST_P(TotalEffectNote, FlagsTheProportionMediatedOfATotalEffectNearZero) {
  const TotalEffectCase& c = GetParam();
  const std::string key = c.binaryOutcome ? "excRR_TE" : "TE";
  const json t = write(c.binaryOutcome ? "OUTCOMEVAR=bin MEDIATORVAR=m PREDICTORVAR=x" : "", "",
                       c.binaryOutcome ? "DISTRIBUTION=BINOMIAL LINK=LOGIT" : "",
                       [&](const OutputContext& out, MediationCaseData& results) {
                         results.effects[key].estimate = c.estimate;
                         results.effects[key].se = c.se;
                         results.effects["PM"].estimate = c.pm;
                         if (c.bootstrap) {
                           results.flags[FLAG_BOOTSTRAP_SUCCEEDED] = true;
                           results.bootstrap[key] = {{"estimate", c.estimate},
                                                     {"percentile_ci_lower", c.lower},
                                                     {"percentile_ci_upper", c.upper}};
                         }
                         writeEffectInterpretation(out);
                       });
  std::vector<std::string> notes;
  for (const json& f : t["footnotes"]) notes.push_back(f["text"]);
  EXPECT_EQ(notes, std::string(c.note).empty() ? std::vector<std::string>{}
                                               : std::vector<std::string>{c.note});
  // The value is shown as computed.
  if (std::isfinite(c.pm)) {
    EXPECT_EQ(t["cells"][4][1]["value"], c.pm);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TotalEffectNote,
    ::testing::Values(
        // 0.02 -/+ 1.959964 x 0.1
        TotalEffectCase{"DeltaIntervalContainsZero", false, 0.02, 0.1, false, 0, 0, -185.6,
                        "The total effect TE = 0.0200 is not distinguishable from zero: its 95% "
                        "confidence interval, -0.1760 to 0.2160, contains 0. Proportions of a "
                        "total effect that is not distinguishable from zero are not "
                        "interpretable: they can lie far outside 0\u2013100% and change sign "
                        "with small changes in the data."},
        TotalEffectCase{"NegativeTotalEffectJustInside", false, -0.19, 0.1, false, 0, 0, 310.0,
                        "The total effect TE = -0.1900 is not distinguishable from zero: its 95% "
                        "confidence interval, -0.3860 to 0.0060, contains 0. Proportions of a "
                        "total effect that is not distinguishable from zero are not "
                        "interpretable: they can lie far outside 0\u2013100% and change sign "
                        "with small changes in the data."},
        TotalEffectCase{"DeltaIntervalExcludesZero", false, 0.2, 0.1, false, 0, 0, 45.0, ""},
        TotalEffectCase{"ExcessRelativeRiskOfABinaryOutcome", true, 0.03, 0.05, false, 0, 0, -250.0,
                        "The total effect on the excess relative risk scale, excRR_TE = 0.0300 "
                        "(the denominator of the proportions), is not distinguishable from zero: "
                        "its 95% confidence interval, -0.0680 to 0.1280, contains 0. Proportions "
                        "of a total effect that is not distinguishable from zero are not "
                        "interpretable: they can lie far outside 0\u2013100% and change sign "
                        "with small changes in the data."},
        TotalEffectCase{"BootstrapIntervalContainsZero", false, 0.3, 0.1, true, -0.05, 0.6, 80.0,
                        "The total effect TE = 0.3000 is not distinguishable from zero: its 95% "
                        "bootstrap percentile interval, -0.0500 to 0.6000, contains 0. "
                        "Proportions of a total effect that is not distinguishable from zero are "
                        "not interpretable: they can lie far outside 0\u2013100% and change sign "
                        "with small changes in the data."},
        // The delta-method interval would contain 0; the bootstrap one, which the report
        // shows, does not.
        TotalEffectCase{"BootstrapIntervalExcludesZero", false, 0.02, 0.1, true, 0.01, 0.04, 150.0,
                        ""},
        TotalEffectCase{"NoProportionFormed", false, 0.0, 0.1, false, 0, 0, NAN, ""}));

// The caption of a real run shows the outcome's codes as the data hold them.
json interpretationOf(std::vector<stathost::Column> columns, const std::string& command) {
  testsupport::ActiveData active(std::move(columns));
  stathost::HostSession& session = stathost::HostSession::instance();
  session.setCurrentCommand(command, 1, "test");
  session.beginRun();
  MEDANLYS();
  const stathost::RunRecord record = session.endRun();
  for (const json& item : record.items) {
    if (item["type"] == "table" && item["title"] == "Effect Interpretation") return item;
  }
  return json();
}

TEST(InterpretationCaption, BinaryOutcomeCodesAreTheDataValuesBesideTheOutcome) {
  std::vector<stathost::Column> columns = testsupport::referenceData("nb_logit")->columns;
  for (stathost::Column& c : columns) {
    if (c.name != "Y") continue;
    for (double& y : c.numbers) y += 1.0;  // coded 1 and 2
  }
  const std::string head =
      "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1)";
  const std::string tail =
      " /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=BINOMIAL LINK=LOGIT /CRITERIA "
      "CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT.";
  const json first = interpretationOf(columns, head + tail);
  ASSERT_FALSE(first.is_null());
  EXPECT_EQ(first["cells"][0][2]["text"], "Mediator: M; Outcome: Y (reference 1, event 2)");
  const json last = interpretationOf(columns, head + " OUT_REFERENCE=LAST" + tail);
  ASSERT_FALSE(last.is_null());
  EXPECT_EQ(last["cells"][0][2]["text"], "Mediator: M; Outcome: Y (reference 2, event 1)");
}

}  // namespace

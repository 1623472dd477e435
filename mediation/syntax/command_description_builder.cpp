#include "syntax/command_description_builder.h"

#include <initializer_list>

namespace medanlys {

using stathost::ParamDescriptor;
using stathost::ParamSpec;
using stathost::SubComDescriptor;
using stathost::SubComSpec;

namespace {

constexpr auto kNoBrackets = static_cast<stathost::BracketOptions>(0);
constexpr auto kBoundOnCount = static_cast<stathost::LowerBdryOptions>(1);
constexpr auto kBoundOnTolerance = static_cast<stathost::LowerBdryOptions>(2);
constexpr auto kUpperBound = static_cast<stathost::UpperBdryOptions>(1);

ParamDescriptor param(const char* name, int kind, bool first, bool second) {
  return ParamDescriptor(name, static_cast<ParamSpec>(kind), first, second, kNoBrackets);
}

ParamDescriptor keywordList(const char* name, std::initializer_list<const char*> values) {
  ParamDescriptor p = param(name, 3, true, true);
  for (const char* v : values) p.addStringValue(v);
  return p;
}

ParamDescriptor confidenceLevel() {
  ParamDescriptor p = param("CILEVEL", 7, false, true);
  p.setLowerBoundary(0.0, kBoundOnCount);
  p.setUpperBoundary(100.0, kUpperBound);
  return p;
}

ParamDescriptor boundedBelow(const char* name, stathost::LowerBdryOptions option) {
  ParamDescriptor p = param(name, 7, false, true);
  p.setLowerBoundary(0.0, option);
  return p;
}

ParamDescriptor trueFalse(const char* name, const char* a, const char* b) {
  ParamDescriptor q = param(name, 3, false, true);
  q.addStringValue(a);
  q.addStringValue(b);
  return q;
}

}  // namespace

CommandDescriptionBuilder::CommandDescriptionBuilder(stathost::CommandDescriptor& command)
    : command_(command) {
  messages_.SetCommandName("MEDIATION ANALYSIS");
  messages_.SetProcedureTitle("Mediation Analysis");
}

int CommandDescriptionBuilder::declare(int index) {
  switch (index) {
    case 0:
      return declareVariables();
    case 1:
      return declareMediatorModel();
    case 2:
      return declareOutcomeModel();
    case 3:
      return declareCriteria();
    case 4:
      return declarePrint();
    case 5:
      return declarePlot();
    case 6:
      return declareBootstrap();
    default:
      return 1;
  }
}

int CommandDescriptionBuilder::declareVariables() {
  // The variable lists are read by the settings from the raw tokens.
  command_.addSubComDesc(SubComDescriptor("", static_cast<SubComSpec>(0), true, false));
  return 0;
}

int CommandDescriptionBuilder::declareMediatorModel() {
  SubComDescriptor sub("MEDMODEL", static_cast<SubComSpec>(1), false, false);
  ParamDescriptor distribution = param("DISTRIBUTION", 27, true, true);
  distribution.addQualifDesc("NORMAL");
  distribution.addQualifDesc("BINOMIAL");
  sub.addParamDesc(distribution);
  sub.addParamDesc(keywordList("LINK", {"IDENTITY", "LOGIT"}));
  sub.addParamDesc(param("SCALEWEIGHT", 15, false, true));
  command_.addSubComDesc(sub);
  return 0;
}

int CommandDescriptionBuilder::declareOutcomeModel() {
  SubComDescriptor sub("OUTMODEL", static_cast<SubComSpec>(1), false, false);
  ParamDescriptor distribution = param("DISTRIBUTION", 27, true, true);
  distribution.addQualifDesc("NORMAL");
  distribution.addQualifDesc("BINOMIAL");
  distribution.addQualifDesc("POISSON");
  ParamDescriptor negbin = param("NEGBIN", 7, false, true);
  negbin.addStringValue("MLE");
  negbin.setLowerBoundary(0.0, kBoundOnCount);
  negbin.setUpperBoundary(20.0, kUpperBound);
  distribution.addQualifDesc(negbin);
  sub.addParamDesc(distribution);
  sub.addParamDesc(keywordList("LINK", {"IDENTITY", "LOG", "LOGIT"}));
  command_.addSubComDesc(sub);
  return 0;
}

int CommandDescriptionBuilder::declareCriteria() {
  SubComDescriptor sub("CRITERIA", static_cast<SubComSpec>(1), false, false);
  sub.addParamDesc(confidenceLevel());
  sub.addParamDesc(keywordList("CITYPE", {"DELTA", "BOOTSTRAP"}));
  sub.addParamDesc(keywordList("COVB", {"MODEL", "ROBUST"}));
  sub.addParamDesc(keywordList("ANALYSISTYPE", {"CAUSAL", "TRADITIONAL"}));
  ParamDescriptor iterations = param("MAXITERATIONS", 7, false, true);
  iterations.setLowerBoundary(1.0, kBoundOnCount);
  sub.addParamDesc(iterations);
  sub.addParamDesc(boundedBelow("PCONVERGE", kBoundOnTolerance));
  sub.addParamDesc(boundedBelow("SINGULAR", kBoundOnTolerance));
  sub.addParamDesc(boundedBelow("MAXSTEPHALVING", kBoundOnCount));
  sub.addParamDesc(boundedBelow("RIDGEPENALTY", kBoundOnCount));
  // TRANSFORM=AUTO|NONE: whether skewed variables are transformed and the mediator is
  // rescaled before fitting. An addition of this program; AUTO keeps the usual analysis.
  sub.addParamDesc(keywordList("TRANSFORM", {"AUTO", "NONE"}));
  command_.addSubComDesc(sub);
  return 0;
}

int CommandDescriptionBuilder::declarePrint() {
  SubComDescriptor sub("PRINT", static_cast<SubComSpec>(1), false, false);
  // The nine tables in their fixed order, then SENSITIVITY (the E-values), an addition of
  // this program that a bare /PRINT does not switch on.
  const char* keywords[] = {"MEDIATION_REGRESSION_MODEL",
                            "OUTCOME_REGRESSION_MODEL",
                            "EXPOSURE_STATS",
                            "DECOMP_RESULTS",
                            "INTERACTION_EFFECTS",
                            "RATIO_STATS",
                            "COV_MATRIX",
                            "CASE_SUMMARY",
                            "DESCRIPTIVES",
                            "SENSITIVITY"};
  for (int i = 0; i < 10; ++i) sub.addParamDesc(param(keywords[i], 0, i < 3, false));
  command_.addSubComDesc(sub);
  return 0;
}

int CommandDescriptionBuilder::declarePlot() {
  SubComDescriptor sub("PLOT", static_cast<SubComSpec>(2), false, false);
  ParamDescriptor path = param("PATH_DIAGRAM", 28, false, true);
  path.addQualifDesc(trueFalse("HIDE_COVARIATE_EFFECTS", "TRUE", "FALSE"));
  path.addQualifDesc(trueFalse("EDGE_COLOR", "UNIFORM", "TYPE_BASED"));
  sub.addParamDesc(path);
  sub.addParamDesc(param("SCATTER_PLOT", 0, false, false));
  ParamDescriptor bar = param("BAR_PLOT", 28, false, true);
  bar.addQualifDesc(trueFalse("ERROR_BARS", "TRUE", "FALSE"));
  bar.addQualifDesc(trueFalse("CONFIDENCE_INTERVALS", "TRUE", "FALSE"));
  sub.addParamDesc(bar);
  ParamDescriptor forest = param("FOREST_PLOT", 28, false, true);
  forest.addQualifDesc(trueFalse("PATH_COEFFICIENTS", "TRUE", "FALSE"));
  forest.addQualifDesc(trueFalse("CONFIDENCE_INTERVALS", "TRUE", "FALSE"));
  sub.addParamDesc(forest);
  command_.addSubComDesc(sub);
  return 0;
}

int CommandDescriptionBuilder::declareBootstrap() {
  SubComDescriptor sub("BOOTSTRAP", static_cast<SubComSpec>(2), false, false);
  ParamDescriptor criteria = param("CRITERIA", 28, false, true);
  criteria.setQualifOption(static_cast<stathost::QualifOptions>(0));
  criteria.addQualifDesc(confidenceLevel());
  ParamDescriptor samples = param("NSAMPLES", 7, false, true);
  samples.addStringValue("1000");
  criteria.addQualifDesc(samples);
  ParamDescriptor seed = param("SEED", 7, false, true);
  seed.setLowerBoundary(0.0, kBoundOnCount);
  criteria.addQualifDesc(seed);
  // INTERVAL=PERCENTILE|BCA|NORMAL: which bootstrap interval the tables show. An addition
  // of this program; PERCENTILE keeps the usual tables.
  ParamDescriptor interval = param("INTERVAL", 3, false, true);
  for (const char* v : {"PERCENTILE", "BCA", "NORMAL"}) interval.addStringValue(v);
  criteria.addQualifDesc(interval);
  sub.addParamDesc(criteria);
  command_.addSubComDesc(sub);
  return 0;
}

}  // namespace medanlys

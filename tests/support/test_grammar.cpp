#include "test_grammar.h"

namespace testsupport {

using namespace stathost;

namespace {

ParamDescriptor keywordChoice(const std::string& name, std::initializer_list<const char*> values) {
  ParamDescriptor p(name, SPEC_KEYWORD_VALUE, true, true, BRACKETS_AS_KIND);
  for (const char* v : values) p.addStringValue(v);
  return p;
}

ParamDescriptor number(const std::string& name, double lower, LowerBdryOptions lo) {
  ParamDescriptor p(name, SPEC_NUMBER, false, true, BRACKETS_AS_KIND);
  p.setLowerBoundary(lower, lo);
  return p;
}

ParamDescriptor level(const std::string& name) {
  ParamDescriptor p = number(name, 0.0, LOWER_INCLUSIVE);
  p.setUpperBoundary(100.0, UPPER_INCLUSIVE);
  return p;
}

ParamDescriptor booleanQualifier(const std::string& name, const char* a, const char* b) {
  ParamDescriptor q(name, SPEC_KEYWORD_VALUE, false, true, BRACKETS_AS_KIND);
  q.addStringValue(a);
  q.addStringValue(b);
  return q;
}

}  // namespace

void declareTestGrammar(CommandDescriptor& command) {
  command.addSubComDesc(SubComDescriptor("", SUBCOM_UNNAMED, true, false));

  SubComDescriptor medmodel("MEDMODEL", SUBCOM_ASSIGNMENTS, false, false);
  ParamDescriptor medDistribution("DISTRIBUTION", SPEC_QUALIFIED_KEYWORD, true, true,
                                  BRACKETS_AS_KIND);
  medDistribution.addQualifDesc("NORMAL");
  medDistribution.addQualifDesc("BINOMIAL");
  medmodel.addParamDesc(medDistribution);
  medmodel.addParamDesc(keywordChoice("LINK", {"IDENTITY", "LOGIT"}));
  medmodel.addParamDesc(
      ParamDescriptor("SCALEWEIGHT", SPEC_VARIABLE, false, true, BRACKETS_AS_KIND));
  command.addSubComDesc(medmodel);

  SubComDescriptor outmodel("OUTMODEL", SUBCOM_ASSIGNMENTS, false, false);
  ParamDescriptor outDistribution("DISTRIBUTION", SPEC_QUALIFIED_KEYWORD, true, true,
                                  BRACKETS_AS_KIND);
  outDistribution.addQualifDesc("NORMAL");
  outDistribution.addQualifDesc("BINOMIAL");
  outDistribution.addQualifDesc("POISSON");
  ParamDescriptor negbin = number("NEGBIN", 0.0, LOWER_INCLUSIVE);
  negbin.setUpperBoundary(20.0, UPPER_INCLUSIVE);
  negbin.addStringValue("MLE");
  outDistribution.addQualifDesc(negbin);
  outmodel.addParamDesc(outDistribution);
  outmodel.addParamDesc(keywordChoice("LINK", {"IDENTITY", "LOG", "LOGIT"}));
  command.addSubComDesc(outmodel);

  SubComDescriptor criteria("CRITERIA", SUBCOM_ASSIGNMENTS, false, false);
  criteria.addParamDesc(level("CILEVEL"));
  criteria.addParamDesc(keywordChoice("CITYPE", {"DELTA", "BOOTSTRAP"}));
  criteria.addParamDesc(keywordChoice("COVB", {"MODEL", "ROBUST"}));
  criteria.addParamDesc(keywordChoice("ANALYSISTYPE", {"CAUSAL", "TRADITIONAL"}));
  criteria.addParamDesc(number("MAXITERATIONS", 1.0, LOWER_INCLUSIVE));
  criteria.addParamDesc(number("PCONVERGE", 0.0, LOWER_EXCLUSIVE));
  criteria.addParamDesc(number("SINGULAR", 0.0, LOWER_EXCLUSIVE));
  criteria.addParamDesc(number("MAXSTEPHALVING", 0.0, LOWER_INCLUSIVE));
  criteria.addParamDesc(number("RIDGEPENALTY", 0.0, LOWER_INCLUSIVE));
  command.addSubComDesc(criteria);

  SubComDescriptor print("PRINT", SUBCOM_ASSIGNMENTS, false, false);
  const char* keywords[] = {"MEDIATION_REGRESSION_MODEL",
                            "OUTCOME_REGRESSION_MODEL",
                            "EXPOSURE_STATS",
                            "DECOMP_RESULTS",
                            "INTERACTION_EFFECTS",
                            "RATIO_STATS",
                            "COV_MATRIX",
                            "CASE_SUMMARY",
                            "DESCRIPTIVES"};
  for (int i = 0; i < 9; ++i) {
    print.addParamDesc(ParamDescriptor(keywords[i], SPEC_KEYWORD, i < 3, false, BRACKETS_AS_KIND));
  }
  command.addSubComDesc(print);

  SubComDescriptor plot("PLOT", SUBCOM_KEYWORDS, false, false);
  ParamDescriptor path("PATH_DIAGRAM", SPEC_PARAMETER_QUALIFIED, false, true, BRACKETS_AS_KIND);
  path.addQualifDesc(booleanQualifier("HIDE_COVARIATE_EFFECTS", "TRUE", "FALSE"));
  path.addQualifDesc(booleanQualifier("EDGE_COLOR", "UNIFORM", "TYPE_BASED"));
  plot.addParamDesc(path);
  plot.addParamDesc(ParamDescriptor("SCATTER_PLOT", SPEC_KEYWORD, false, false, BRACKETS_AS_KIND));
  ParamDescriptor bar("BAR_PLOT", SPEC_PARAMETER_QUALIFIED, false, true, BRACKETS_AS_KIND);
  bar.addQualifDesc(booleanQualifier("ERROR_BARS", "TRUE", "FALSE"));
  bar.addQualifDesc(booleanQualifier("CONFIDENCE_INTERVALS", "TRUE", "FALSE"));
  plot.addParamDesc(bar);
  command.addSubComDesc(plot);

  SubComDescriptor bootstrap("BOOTSTRAP", SUBCOM_KEYWORDS, false, false);
  ParamDescriptor bcriteria("CRITERIA", SPEC_PARAMETER_QUALIFIED, false, true, BRACKETS_AS_KIND);
  bcriteria.setQualifOption(QUALIFIERS_OPTIONAL);
  bcriteria.addQualifDesc(level("CILEVEL"));
  ParamDescriptor nsamples("NSAMPLES", SPEC_NUMBER, false, true, BRACKETS_AS_KIND);
  nsamples.addStringValue("1000");
  bcriteria.addQualifDesc(nsamples);
  bcriteria.addQualifDesc(number("SEED", 0.0, LOWER_INCLUSIVE));
  bootstrap.addParamDesc(bcriteria);
  command.addSubComDesc(bootstrap);
}

}  // namespace testsupport

#include "syntax/mediation_settings.h"

#include <cmath>
#include <stdexcept>

#include "data/analysis_limits.h"
#include "data/case_reader.h"
#include "stathost/case_adapter.h"

namespace medanlys {

using stathost::ParamObj;
using stathost::SubComObj;

const char* const kPrintKeywords[PRINT_SWITCH_COUNT] = {"MEDIATION_REGRESSION_MODEL",
                                                        "OUTCOME_REGRESSION_MODEL",
                                                        "EXPOSURE_STATS",
                                                        "DECOMP_RESULTS",
                                                        "INTERACTION_EFFECTS",
                                                        "RATIO_STATS",
                                                        "COV_MATRIX",
                                                        "CASE_SUMMARY",
                                                        "DESCRIPTIVES",
                                                        "SENSITIVITY"};

const char* distributionName(int distribution) {
  switch (distribution) {
    case NORMAL:
      return "NORMAL";
    case BINOMIAL:
      return "BINOMIAL";
    case POISSON:
      return "POISSON";
    case NEGBIN:
      return "NEGBIN";
  }
  return "NORMAL";
}

MediationStopProcessor::~MediationStopProcessor() = default;

MediationSettings::MediationSettings(const stathost::CommandSpec& parsed,
                                     const stathost::CommandDescriptor& grammar,
                                     stathost::ProcedureDataSource& source)
    : parsed_(parsed),
      grammar_(grammar),
      source_(source),
      splitFile_("SPLIT FILE", source, "", "", 0) {
  messages_.SetCommandName("MEDIATION ANALYSIS");
  messages_.SetProcedureTitle("Mediation Analysis");
  // Without a stop processor the run goes on, only without cancellation.
  try {
    stopProcessor_ = std::make_unique<MediationStopProcessor>(0.0);
  } catch (const std::bad_alloc&) {
    stopProcessor_.reset();
  }
}

bool MediationSettings::prepareInputSetting(int index) {
  switch (index) {
    case 0:
      return readVariables();
    case 1:
      return readMediatorModel();
    case 2:
      return readOutcomeModel();
    case 3:
      return readCriteria();
    case 4:
      return readPrint();
    case 5:
      return readPlot();
    case 6:
      return readBootstrap();
    default:
      return false;
  }
}

namespace {

std::string upperValue(const ParamObj& p) { return p.getUpperValueText(); }

// A confidence level is read as a whole percent; it must lie strictly between 0 and 100,
// or no interval can be computed. The wording is the parser's own for a value out of
// range. `where` is the subcommand (and parameter) that carries CILEVEL.
bool confidenceLevelInRange(const ParamObj& level, const std::string& where,
                            const stathost::ParserMessage& messages) {
  const int percent = level.getIntegerValue();
  if (percent >= 1 && percent <= 99) return true;
  messages.GenericError("^1 CILEVEL = ^2 is out of range: the value must be from 1 to 99.", where,
                        level.getValueText());
  return false;
}

}  // namespace

bool MediationSettings::readMediatorModel() {
  const SubComObj* sub = parsed_.getSubCom("MEDMODEL");
  if (!sub) {
    messages_.GenericError("Subcommand ^1 is required.", "MEDMODEL");
    return false;
  }
  const ParamObj* distribution = sub->getParam("DISTRIBUTION");
  if (!distribution) {
    messages_.GenericError("Subcommand ^2: ^1 is required.", "DISTRIBUTION", "MEDMODEL");
    return false;
  }
  const std::string d = upperValue(*distribution);
  Distribution dist;
  if (d == "NORMAL") {
    dist = NORMAL;
  } else if (d == "BINOMIAL") {
    dist = BINOMIAL;
  } else {
    messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "MEDMODEL",
                           "DISTRIBUTION", distribution->getValueText());
    return false;
  }
  Link link = dist == BINOMIAL ? LOGIT : IDENTITY;
  if (const ParamObj* l = sub->getParam("LINK")) {
    const std::string v = upperValue(*l);
    if (v == "IDENTITY") {
      link = IDENTITY;
    } else if (v == "LOGIT") {
      link = LOGIT;
    } else {
      messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "MEDMODEL", "LINK",
                             l->getValueText());
      return false;
    }
  }
  std::string weight;
  if (const ParamObj* w = sub->getParam("SCALEWEIGHT")) {
    const int index = source_.findVariable(w->getValueText());
    const stathost::STAX_Variable* variable = source_.getVariable(index);
    if (!variable) {
      messages_.GenericError("An internal error has occurred.");
      return false;
    }
    if (!variable->isNumeric()) {
      messages_.GenericError("The weight variable must be numeric.");
      return false;
    }
    weight = variable->getName();
    for (const auto& [name, role] : assignedRoles()) {
      if (variableKey(name) == variableKey(weight)) {
        return refuseSecondRole(weight, role, "the scale weight");
      }
    }
  }
  mediatorDistribution = dist;
  mediatorLink = link;
  scaleWeightVar = weight;
  return true;
}

bool MediationSettings::readOutcomeModel() {
  const SubComObj* sub = parsed_.getSubCom("OUTMODEL");
  if (!sub) {
    messages_.GenericError("Subcommand ^1 is required.", "OUTMODEL");
    return false;
  }
  const ParamObj* distribution = sub->getParam("DISTRIBUTION");
  if (!distribution) {
    messages_.GenericError("Subcommand ^2: ^1 is required.", "DISTRIBUTION", "OUTMODEL");
    return false;
  }
  const std::string d = upperValue(*distribution);
  Distribution dist;
  double dispersion = 1.0;
  if (d == "NORMAL") {
    dist = NORMAL;
  } else if (d == "BINOMIAL") {
    dist = BINOMIAL;
  } else if (d == "POISSON") {
    dist = POISSON;
  } else if (d == "NEGBIN") {
    dist = NEGBIN;
    const ParamObj* k = distribution->getQualifier("NEGBIN");
    if (k && k->hasValue()) {
      if (k->getUpperValueText() == "MLE") {
        dispersion = 0.0;
      } else if (k->isNumeric()) {
        dispersion = k->getNumberValue();
        // 0.0 stands for "estimate k"; a fixed k of 0 is the Poisson model, not a request
        // to estimate, so it is refused rather than read as NEGBIN(MLE).
        if (dispersion == 0.0) {
          messages_.GenericError(
              "NEGBIN(^1) is not a negative binomial model: a dispersion k of 0 is the Poisson "
              "model (use DISTRIBUTION=POISSON). Give a k above 0, or NEGBIN(MLE) to estimate k.",
              k->getValueText());
          return false;
        }
      } else {
        messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "OUTMODEL",
                               "DISTRIBUTION", k->getValueText());
        return false;
      }
    }
  } else {
    messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "OUTMODEL",
                           "DISTRIBUTION", distribution->getValueText());
    return false;
  }
  // Without LINK each family takes its canonical link (log for counts).
  Link link = dist == NORMAL ? IDENTITY : (dist == BINOMIAL ? LOGIT : LOG);
  if (const ParamObj* l = sub->getParam("LINK")) {
    const std::string v = upperValue(*l);
    if (v == "IDENTITY") {
      link = IDENTITY;
    } else if (v == "LOG") {
      link = LOG;
    } else if (v == "LOGIT") {
      link = LOGIT;
    } else {
      messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "OUTMODEL", "LINK",
                             l->getValueText());
      return false;
    }
  }
  outcomeDistribution = dist;
  negbinDispersion = dispersion;
  outcomeLink = link;
  outcomeModelGiven = true;
  return true;
}

bool MediationSettings::readCriteria() {
  const SubComObj* sub = parsed_.getSubCom("CRITERIA");
  if (!sub) {
    messages_.GenericError("Subcommand ^1 required.", "CRITERIA");
    return false;
  }
  for (const char* required : {"CITYPE", "COVB", "ANALYSISTYPE"}) {
    if (!sub->hasParam(required)) {
      messages_.GenericError("Subcommand ^2: ^1 is required.", required, "CRITERIA");
      return false;
    }
  }
  const ParamObj* level = sub->getParam("CILEVEL");
  const std::string citype = upperValue(*sub->getParam("CITYPE"));
  int newCiLevel = 95;
  CiType newCiType;
  if (citype == "BOOTSTRAP") {
    newCiType = CITYPE_BOOTSTRAP;
    if (level) {
      if (!confidenceLevelInRange(*level, "CRITERIA", messages_)) return false;
      newCiLevel = level->getIntegerValue();
    }
  } else if (citype == "DELTA") {
    newCiType = CITYPE_DELTA;
    if (!level) {
      messages_.GenericError("Subcommand ^2: ^1 is required.", "CILEVEL", "CRITERIA");
      return false;
    }
    if (!confidenceLevelInRange(*level, "CRITERIA", messages_)) return false;
    newCiLevel = level->getIntegerValue();
  } else {
    messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "CRITERIA", "CITYPE",
                           sub->getParam("CITYPE")->getValueText());
    return false;
  }
  const std::string covbText = upperValue(*sub->getParam("COVB"));
  Covb newCovb;
  if (covbText == "ROBUST") {
    newCovb = COVB_ROBUST;
  } else if (covbText == "MODEL") {
    newCovb = COVB_MODEL;
  } else {
    messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "CRITERIA", "COVB",
                           sub->getParam("COVB")->getValueText());
    return false;
  }
  const std::string typeText = upperValue(*sub->getParam("ANALYSISTYPE"));
  AnalysisType newType;
  if (typeText == "TRADITIONAL") {
    newType = TRADITIONAL;
  } else if (typeText == "CAUSAL") {
    newType = CAUSAL;
  } else {
    messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "CRITERIA",
                           "ANALYSISTYPE", sub->getParam("ANALYSISTYPE")->getValueText());
    return false;
  }
  bool newAutoTransform = true;
  if (const ParamObj* transform = sub->getParam("TRANSFORM")) {
    const std::string value = upperValue(*transform);
    if (value == "NONE") {
      newAutoTransform = false;
    } else if (value != "AUTO") {
      messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "CRITERIA", "TRANSFORM",
                             transform->getValueText());
      return false;
    }
  }
  // The two counts are whole numbers, read as the host reads integers (rounded to the
  // nearest), so MAXITERATIONS=9.6 is 10; the tolerances are read as numbers.
  auto integer = [&](const char* name, int fallback) {
    const ParamObj* p = sub->getParam(name);
    return p ? p->getIntegerValue() : fallback;
  };
  auto number = [&](const char* name, double fallback) {
    const ParamObj* p = sub->getParam(name);
    return p ? p->getNumberValue() : fallback;
  };
  const int iterations = integer("MAXITERATIONS", 100);
  const double converge = number("PCONVERGE", 1e-6);
  const double singularity = number("SINGULAR", 1e-12);
  const int halving = integer("MAXSTEPHALVING", 5);
  const double ridge = number("RIDGEPENALTY", 1e-6);
  const bool valid = iterations >= 10 && iterations <= 1000 && converge >= 1e-8 &&
                     converge <= 0.001 && singularity >= 1e-14 && singularity <= 1e-6 &&
                     halving >= 1 && halving <= 20 && ridge >= 1e-8 && ridge <= 0.001;
  if (!valid) {
    messages_.GenericError(
        "Invalid analysis criteria (e.g., iterations, tolerance out of range). Use defaults: "
        "iterations [10-1000], tol [1e-8 to 1e-3].");
    return false;
  }
  ciLevel = newCiLevel;
  ciType = newCiType;
  covb = newCovb;
  analysisType = newType;
  maxIterations = iterations;
  pConverge = converge;
  singular = singularity;
  maxStepHalving = halving;
  ridgePenalty = ridge;
  autoTransform = newAutoTransform;
  return true;
}

bool MediationSettings::readPrint() {
  const SubComObj* sub = parsed_.getSubCom("PRINT");
  if (!sub) return false;
  for (int i = 0; i < PRINT_SWITCH_COUNT; ++i) print[i] = sub->hasParam(kPrintKeywords[i]);
  return true;
}

bool MediationSettings::readPlot() {
  const SubComObj* sub = parsed_.getSubCom("PLOT");
  if (!sub) return true;
  auto flag = [](const ParamObj* p, const char* qualifier, const char* whenTrue, bool fallback) {
    const ParamObj* q = p ? p->getQualifier(qualifier) : nullptr;
    return q ? q->getUpperValueText() == whenTrue : fallback;
  };
  if (const ParamObj* p = sub->getParam("PATH_DIAGRAM")) {
    plot.pathDiagram = true;
    plot.hideCovariateEffects = flag(p, "HIDE_COVARIATE_EFFECTS", "TRUE", false);
    plot.edgeColorTypeBased = flag(p, "EDGE_COLOR", "TYPE_BASED", true);
  }
  plot.scatterPlot = sub->hasParam("SCATTER_PLOT");
  if (const ParamObj* p = sub->getParam("BAR_PLOT")) {
    plot.barPlot = true;
    plot.barErrorBars = flag(p, "ERROR_BARS", "TRUE", true);
    plot.barConfidenceIntervals = flag(p, "CONFIDENCE_INTERVALS", "TRUE", true);
  }
  if (const ParamObj* p = sub->getParam("FOREST_PLOT")) {
    plot.forestPlot = true;
    plot.forestPathCoefficients = flag(p, "PATH_COEFFICIENTS", "TRUE", true);
    plot.forestConfidenceIntervals = flag(p, "CONFIDENCE_INTERVALS", "TRUE", true);
  }
  return true;
}

bool MediationSettings::readBootstrap() {
  const SubComObj* sub = parsed_.getSubCom("BOOTSTRAP");
  if (!sub) {
    bootstrapGiven = false;
    return true;
  }
  const ParamObj* criteria = sub->getParam("CRITERIA");
  const ParamObj* level = criteria ? criteria->getQualifier("CILEVEL") : nullptr;
  if (!level) {
    messages_.GenericError("Subcommand ^2: ^1 is required.", "CILEVEL", "BOOTSTRAP");
    return false;
  }
  if (!confidenceLevelInRange(*level, "BOOTSTRAP CRITERIA", messages_)) return false;
  const int newCiLevel = level->getIntegerValue();
  int newSamples = nSamples;
  const ParamObj* n = criteria->getQualifier("NSAMPLES");
  if (n) {
    // The keyword value "1000" declared for NSAMPLES arrives as text, not as a number.
    const double samples = n->isNumeric() ? n->getNumberValue() : 1000.0;
    // A count of replicates: a fraction is refused rather than rounded, so that the
    // number of replicates run is the number written.
    if (!(samples >= 1.0) || samples != std::floor(samples)) {
      messages_.GenericError(
          "Bootstrap samples (NSAMPLES) must be a positive whole number; ^1 was given.",
          n->getValueText());
      return false;
    }
    if (samples > kMaxBootstrapSamples) {
      messages_.GenericError("Bootstrap samples (NSAMPLES) must be at most ^1.",
                             std::to_string(kMaxBootstrapSamples));
      return false;
    }
    newSamples = static_cast<int>(samples);
  }
  BootstrapInterval interval = BootstrapInterval::kPercentile;
  if (const ParamObj* shown = criteria->getQualifier("INTERVAL")) {
    const std::string value = upperValue(*shown);
    if (value == "BCA") {
      interval = BootstrapInterval::kBca;
    } else if (value == "NORMAL") {
      interval = BootstrapInterval::kNormal;
    } else if (value != "PERCENTILE") {
      messages_.GenericError("^1 ^2 = ^3 has an invalid value assignment.", "BOOTSTRAP", "INTERVAL",
                             shown->getValueText());
      return false;
    }
  }
  bootstrapGiven = true;
  bootstrapCiLevel = newCiLevel;
  if (n) {
    nSamplesGiven = true;
    nSamples = newSamples;
  }
  if (const ParamObj* s = criteria->getQualifier("SEED")) {
    seedGiven = true;
    seed = s->getIntegerValue();
  }
  bootstrapInterval = interval;
  return true;
}

bool MediationSettings::checkCombination() {
  if (outcomeReference.given && outcomeDistribution == NORMAL) {
    messages_.GenericError(
        "REFERENCE parameter is not applicable for continuous outcome variable.");
    return false;
  }
  if (mediatorReference.given && mediatorDistribution == NORMAL) {
    messages_.GenericError(
        "REFERENCE parameter is not applicable for continuous mediator variable.");
    return false;
  }
  if (outcomeReference.given && (outcomeDistribution == POISSON || outcomeDistribution == NEGBIN)) {
    messages_.GenericError(
        "REFERENCE parameter is not applicable for count outcome variable (Poisson/Negative "
        "Binomial).");
    return false;
  }
  if (plot.barPlot && mediatorDistribution == NORMAL && outcomeDistribution == NORMAL) {
    messages_.GenericError(
        "BAR PLOT is not applicable for continuous mediator and continuous outcome.");
    return false;
  }
  const stathost::STAX_Variable* outcome = source_.getVariable(source_.findVariable(outcomeVar));
  if (outcome && !outcome->isNumeric() && outcomeDistribution != BINOMIAL) {
    messages_.GenericError(
        "The dependent variable must be numeric for the ^1 probability distribution.",
        distributionName(outcomeDistribution));
    return false;
  }
  if (mediatorLevelKind == MediatorLevelKind::kDefault) {
    if (mediatorDistribution == BINOMIAL) {
      mediatorLevelKind = MediatorLevelKind::kCustom;
      mediatorLevelValue = 0.0;
    } else {
      mediatorLevelKind = MediatorLevelKind::kMean;
    }
  }
  return true;
}

bool MediationSettings::checkOutcomeValues() {
  if (outcomeDistribution != POISSON && outcomeDistribution != NEGBIN) return true;
  for (double y : roleMapper_.roleData("OUTCOMEVAR")) {
    if (y < 0 || y != std::floor(y)) {
      messages_.GenericError(
          "Outcome variable ^1 must contain only non-negative integer values for ^2 distribution.",
          outcomeVar, outcomeDistribution == POISSON ? "Poisson" : "Negative Binomial");
      return false;
    }
  }
  return true;
}

void MediationSettings::registerRoles() {
  auto indexOf = [&](const std::string& name) {
    const int index = source_.findVariable(name);
    roleMapper_.setIndex(name, index);
    return index;
  };
  std::vector<int> all;
  roleMapper_.setRoleName("OUTCOMEVAR", outcomeVar);
  all.push_back(indexOf(outcomeVar));
  roleMapper_.setRoleName("MEDIATORVAR", mediatorVar);
  all.push_back(indexOf(mediatorVar));
  roleMapper_.setRoleName("PREDICTORVAR", predictorVar);
  all.push_back(indexOf(predictorVar));
  if (!covariates.empty()) {
    roleMapper_.setListNames("WITH", covariates);
    for (const auto& name : covariates) all.push_back(indexOf(name));
  }
  if (!factors.empty()) {
    roleMapper_.setListNames("BY", factors);
    for (const auto& name : factors) all.push_back(indexOf(name));
  }
  if (!scaleWeightVar.empty()) {
    roleMapper_.setRoleName("MEDMODEL_SCALEWEIGHT", scaleWeightVar);
    all.push_back(indexOf(scaleWeightVar));
  }
  roleMapper_.setAllIndices(all);
}

// Totals for the case processing summary. Before cleaning the total weight is the sum of
// the weights as read over every case read, a missing or negative weight counting as 0
// (it carries no cases); after cleaning it is the sum of the rounded weights of the kept
// cases, the weights the analysis uses. The event of a binary outcome is its larger value
// (the smaller one with OUT_REFERENCE=LAST or a reference equal to the larger value).
void MediationSettings::summariseCases(bool cleaned) {
  const Column& outcome = roleMapper_.roleData("OUTCOMEVAR");
  const bool weighted = roleMapper_.hasRoleData("MEDMODEL_SCALEWEIGHT");
  auto weightOf = [&](std::size_t i) {
    const double w = weighted ? roleMapper_.roleData("MEDMODEL_SCALEWEIGHT")[i] : 1.0;
    return w == stathost::kMissingValue || w < 0.0 ? 0.0 : w;
  };
  double total = 0.0;
  for (std::size_t i = 0; i < outcome.size(); ++i) total += weightOf(i);
  (cleaned ? totalWeightValid : totalWeightRead) = total;
  if (outcomeDistribution != BINOMIAL) return;
  double lo = INFINITY, hi = -INFINITY;
  for (double y : outcome) {
    if (y == stathost::kMissingValue) continue;
    lo = std::min(lo, y);
    hi = std::max(hi, y);
  }
  if (!(lo < hi)) return;
  double event = hi;
  if (outcomeReference.given &&
      (outcomeReference.kind == ReferenceKind::kLast ||
       (outcomeReference.kind == ReferenceKind::kCustom && outcomeReference.value == hi))) {
    event = lo;
  }
  double events = 0.0, known = 0.0;
  for (std::size_t i = 0; i < outcome.size(); ++i) {
    if (outcome[i] == stathost::kMissingValue) continue;
    const double w = weightOf(i);
    known += w;
    if (outcome[i] == event) events += w;
  }
  (cleaned ? prevalenceValid : prevalenceRead) = known > 0.0 ? events / known : NAN;
}

bool MediationSettings::finalizeSettings() {
  if (!checkCombination()) return false;
  registerRoles();
  if (!readCases(source_, roleMapper_)) return false;
  summariseCases(false);
  cleanCases(roleMapper_, messages_);  // throws below 10 valid cases
  summariseCases(true);
  casesRead = roleMapper_.casesRead;
  casesValid = roleMapper_.casesValid;
  casesDroppedForWeight = roleMapper_.casesDroppedForWeight;
  weightsRounded = roleMapper_.weightsRounded;
  weightChangeByRounding = roleMapper_.weightChangeByRounding;
  if (!checkAnalysisLimits(roleMapper_, messages_)) return false;
  return checkOutcomeValues();
}

}  // namespace medanlys

// The typed values of one MEDIATION ANALYSIS command, read from the parsed command, and
// the cleaned analysis columns read from the active data set.
#pragma once

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "data/variable_role_mapper.h"
#include "stathost/command_descriptor.h"
#include "stathost/data_source.h"
#include "stathost/parsed_command.h"
#include "stathost/parser_message.h"
#include "stathost/stop_processor.h"

namespace medanlys {

enum Distribution { NORMAL = 0, BINOMIAL = 1, POISSON = 2, NEGBIN = 3 };
enum Link { IDENTITY = 0, LOG = 1, LOGIT = 2 };
enum CiType { CITYPE_DELTA = 0, CITYPE_BOOTSTRAP = 1 };
enum Covb { COVB_MODEL = 0, COVB_ROBUST = 1 };
enum AnalysisType { CAUSAL = 0, TRADITIONAL = 1 };

// MLEVEL of the mediator: the mean, the median, or a given value (VALUE(v)); kDefault
// until finalizeSettings picks MEAN for a continuous and VALUE(0) for a binary mediator.
enum class MediatorLevelKind { kDefault, kMean, kMedian, kCustom };

// Which bootstrap interval the bootstrap tables show (BOOTSTRAP CRITERIA(INTERVAL=...)).
enum class BootstrapInterval { kPercentile, kBca, kNormal };

// OUT_REFERENCE / MED_REFERENCE of a binary variable.
enum class ReferenceKind { kFirst, kLast, kCustom };
struct ReferenceSetting {
  bool given = false;
  ReferenceKind kind = ReferenceKind::kFirst;
  double value = 0.0;
};

// Index order of the PRINT switches: the nine tables of the procedure in their fixed
// order, then the additions of this program, so that the nine keep their indices.
enum PrintSwitch {
  PRINT_MEDIATION_REGRESSION_MODEL = 0,
  PRINT_OUTCOME_REGRESSION_MODEL,
  PRINT_EXPOSURE_STATS,
  PRINT_DECOMP_RESULTS,
  PRINT_INTERACTION_EFFECTS,
  PRINT_RATIO_STATS,
  PRINT_COV_MATRIX,
  PRINT_CASE_SUMMARY,
  PRINT_DESCRIPTIVES,
  // The sensitivity analysis to unmeasured confounding (E-values): its table, the sentences
  // it adds to "Effect Interpretation" and its chart. Off unless named; /PRINT alone leaves
  // it off.
  PRINT_SENSITIVITY,
  PRINT_SWITCH_COUNT
};
extern const char* const kPrintKeywords[PRINT_SWITCH_COUNT];

struct PlotSettings {
  bool pathDiagram = false;
  bool hideCovariateEffects = false;
  bool edgeColorTypeBased = true;  // EDGE_COLOR=TYPE_BASED (else UNIFORM)
  bool scatterPlot = false;
  bool barPlot = false;
  bool barErrorBars = true;
  bool barConfidenceIntervals = true;
  bool forestPlot = false;
  bool forestPathCoefficients = true;
  bool forestConfidenceIntervals = true;
};

// The stop processor of the procedure: the host's, with nothing added.
class MediationStopProcessor : public stathost::ACAStopProcessor {
 public:
  explicit MediationStopProcessor(double pollInterval) : ACAStopProcessor(pollInterval) {}
  ~MediationStopProcessor() override;
};

class MediationSettings {
 public:
  MediationSettings(const stathost::CommandSpec& parsed, const stathost::CommandDescriptor& grammar,
                    stathost::ProcedureDataSource& source);
  MediationSettings(const MediationSettings&) = delete;
  MediationSettings& operator=(const MediationSettings&) = delete;

  // Reader index: 0 variables, 1 MEDMODEL, 2 OUTMODEL, 3 CRITERIA, 4 PRINT, 5 PLOT,
  // 6 BOOTSTRAP. True when the part is accepted; a refusal has written its message.
  bool prepareInputSetting(int index);
  // Checks the settings against each other and the data, then reads and cleans the cases.
  bool finalizeSettings();

  const stathost::ParserMessage& messages() const { return messages_; }
  stathost::ProcedureDataSource& dataSource() const { return source_; }
  stathost::ACAStopProcessor* stopProcessor() const { return stopProcessor_.get(); }
  const stathost::VarSpecObj& splitVariables() const { return splitFile_; }
  VariableRoleMapper& roleMapper() { return roleMapper_; }
  const VariableRoleMapper& roleMapper() const { return roleMapper_; }

  // Variables (leading subcommand).
  std::string outcomeVar, mediatorVar, predictorVar;
  std::vector<std::string> covariates;
  std::vector<std::string> factors;
  bool baselineLevelGiven = false, exposureLevelGiven = false;
  double baselineLevel = 0.0, exposureLevel = 1.0;
  bool interaction = true;
  MediatorLevelKind mediatorLevelKind = MediatorLevelKind::kDefault;
  double mediatorLevelValue = 0.0;
  ReferenceSetting outcomeReference, mediatorReference;

  // MEDMODEL and OUTMODEL.
  // Distribution codes (the Distribution constants); held as plain integers because a
  // host may hand over any code, and an unknown one must be refused, not undefined.
  int mediatorDistribution = NORMAL;
  Link mediatorLink = IDENTITY;
  std::string scaleWeightVar;  // empty without SCALEWEIGHT
  int outcomeDistribution = NORMAL;
  double negbinDispersion = 1.0;  // 0.0: estimate it (NEGBIN(MLE))
  Link outcomeLink = IDENTITY;
  bool outcomeModelGiven = false;

  // CRITERIA.
  int ciLevel = 95;
  CiType ciType = CITYPE_DELTA;
  Covb covb = COVB_MODEL;
  AnalysisType analysisType = CAUSAL;
  int maxIterations = 100;
  double pConverge = 1e-6;
  double singular = 1e-12;
  int maxStepHalving = 5;
  double ridgePenalty = 1e-6;
  // TRANSFORM=AUTO (the skewness transformations and the mediator scaling) or NONE.
  bool autoTransform = true;

  // BOOTSTRAP.
  bool bootstrapGiven = false;
  int bootstrapCiLevel = 95;
  bool nSamplesGiven = false;
  int nSamples = 1000;
  bool seedGiven = false;
  int seed = 2000000;  // used when SEED is not given, so that runs repeat
  BootstrapInterval bootstrapInterval = BootstrapInterval::kPercentile;

  // PRINT and PLOT.
  bool print[PRINT_SWITCH_COUNT] = {};
  PlotSettings plot;

  // Case counts of the reading, the total weight (the number of cases without a scale
  // weight) and, for a binary outcome, the share of events, before and after cleaning.
  long casesRead = 0;
  long casesValid = 0;
  double totalWeightRead = 0.0;
  double totalWeightValid = 0.0;
  double prevalenceRead = NAN;
  double prevalenceValid = NAN;
  // Scale weights: cases left out for a weight that is missing or below 0.5, and kept cases
  // whose weight was rounded to a whole count, with the total weight the rounding added
  // (negative when it took weight away). totalWeightRead counts a missing or negative
  // weight as 0, so that
  //   totalWeightValid = totalWeightRead - (weights as read of the cases left out)
  //                      + weightChangeByRounding.
  long casesDroppedForWeight = 0;
  long weightsRounded = 0;
  double weightChangeByRounding = 0.0;

 private:
  bool readVariables();
  bool readMediatorModel();
  bool readOutcomeModel();
  bool readCriteria();
  bool readPrint();
  bool readPlot();
  bool readBootstrap();
  bool checkOneRolePerVariable();
  // The variables named so far with their roles ("the outcome", "a covariate", ...).
  std::vector<std::pair<std::string, const char*>> assignedRoles() const;
  bool refuseSecondRole(const std::string& name, const char* firstRole, const char* secondRole);
  std::string variableKey(const std::string& name) const;
  std::string variableLabel(const std::string& name) const;
  bool checkCombination();
  bool checkOutcomeValues();
  void registerRoles();
  void summariseCases(bool cleaned);

  const stathost::CommandSpec& parsed_;
  const stathost::CommandDescriptor& grammar_;
  stathost::ProcedureDataSource& source_;
  stathost::ParserMessage messages_;
  stathost::VarSpecObj splitFile_;
  std::unique_ptr<MediationStopProcessor> stopProcessor_;
  VariableRoleMapper roleMapper_;
};

const char* distributionName(int distribution);

}  // namespace medanlys

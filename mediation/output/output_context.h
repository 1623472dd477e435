// What every table writer reads: the document, the settings and the results.
#pragma once

#include <string>
#include <vector>

#include "algorithm/mediation_case_data.h"
#include "stathost/json_generator.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

struct OutputContext {
  stathost::StatJSONGenerator& generator;
  const MediationSettings& settings;
  const MediationCaseData& results;
};

// "^1% Confidence Interval" with the level of the settings.
std::string confidenceIntervalLabel(int level);
// A number as the tables show it (4 decimals, "." when not finite).
std::string formatValue(double value);

// The tables of the run, each under its own condition; return the host status.
int writeCaseSummary(const OutputContext& out);
int writeDescriptives(const OutputContext& out);
int writeExposureStatistics(const OutputContext& out);
int writeLinearMediatorModel(const OutputContext& out);
int writeLinearOutcomeModel(const OutputContext& out);
int writeCovarianceMatrices(const OutputContext& out);
int writeDecomposition(const OutputContext& out, bool bootstrap);
int writeInteractionEffects(const OutputContext& out, bool bootstrap);
int writeRatioStatistics(const OutputContext& out, bool bootstrap);
int writeEffectInterpretation(const OutputContext& out);

}  // namespace medanlys

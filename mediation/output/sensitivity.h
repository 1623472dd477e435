// The sensitivity analysis to unmeasured confounding that PRINT SENSITIVITY adds: the table
// "Sensitivity Analysis (E-values)", the sentences of "Effect Interpretation" and the chart
// of the E-value curves. The E-values themselves are computed in evalues.h.
#pragma once

#include <string>
#include <vector>

#include "output/evalues.h"
#include "output/output_context.h"
#include "stathost/gpl_graph.h"

namespace medanlys {

// One effect of the decomposition table with its E-values.
struct SensitivityEffect {
  std::string effect;  // "CDE", "NDE", "NIE", "TE", "PIE" or "TDE"
  std::string key;     // its result key: "NDE", "OR_NDE", ...
  std::string label;   // its row label in the decomposition table: "NDE", "RR_NDE", ...
  EValueResult values;
};

// Where the confidence limits come from: the intervals of the effect tables the report
// shows (the delta method, or the bootstrap interval the bootstrap tables show), or the
// delta method after a bootstrap that did not succeed.
enum class SensitivityLimits { kDelta, kBootstrap, kDeltaAfterFailedBootstrap };

struct SensitivityAnalysis {
  RiskRatioScale scale;
  SensitivityLimits limits = SensitivityLimits::kDelta;
  int level = 95;
  std::vector<SensitivityEffect> effects;  // in the order of the decomposition table
  // The effect named "TE", "NDE", ... or nullptr.
  const SensitivityEffect* find(const std::string& effect) const;
};

// The E-values of the run's effects: every effect of the decomposition table that is a
// ratio or a difference that can be put on the risk-ratio scale (CDE, NDE, NIE, TE, PIE,
// TDE; the excess relative risks are not ratios and have none).
SensitivityAnalysis sensitivityAnalysis(const OutputContext& out);

// The conversion to the risk-ratio scale, in a sentence for the footnotes of the table and
// the chart.
std::string conversionNote(const OutputContext& out, const SensitivityAnalysis& analysis);

// "Sensitivity Analysis (E-values)".
int writeSensitivityTable(const OutputContext& out);

// The rows PRINT SENSITIVITY adds to "Effect Interpretation", one per effect it restates
// (NDE, NIE, TE): a label, the E-value of the estimate and a sentence. With them the table
// gains the footnote sensitivityInterpretationNote().
struct SensitivitySentence {
  std::string label;
  double eValue = NAN;
  std::string text;
};
std::vector<SensitivitySentence> sensitivitySentences(const OutputContext& out);
std::string sensitivityInterpretationNote(const OutputContext& out);

// The sentence of one effect ("the natural direct effect" ...), for the interpretation
// table and its tests: explained away by a confounder of strength eValue; its interval
// moved to include no effect by one of eValueLimit.
std::string sensitivitySentence(const std::string& effectWords, bool indirect, double eValue,
                                double eValueLimit);

// The E-value curves of TE, NDE and NIE: the confounder strengths (RR_EU, RR_UD) that would
// just explain each effect away, with its E-value marked on the diagonal.
class MediationEValuePlot : public stathost::StatGPLGraph {
 public:
  struct Curve {
    std::string effect;  // "TE", "NDE", "NIE"
    double rr = NAN;     // the effect on the risk-ratio scale
  };
  MediationEValuePlot(stathost::StatJSONGenerator* generator, std::vector<Curve> curves,
                      std::vector<std::string> notes);
  void fillData();
  // The largest risk ratio on either axis (both start at 1).
  double axisTop() const { return top_; }

 protected:
  std::string getGPLText() override;

 private:
  std::vector<Curve> curves_;  // only those that can be drawn (finite, not 1)
  std::vector<std::string> notes_;
  double top_ = 3.0;
};

// Writes the E-value curves of the run when at least one can be drawn, and then sets
// `status` to the host's status; returns whether the chart was written.
bool writeEValuePlot(const OutputContext& out, int& status);

}  // namespace medanlys

// The charts of a run, each a set of GPL statements with its data columns.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "output/output_context.h"
#include "stathost/gpl_graph.h"

namespace medanlys {

// Outcome against mediator, coloured by exposure, with the least-squares line.
class MediationScatterPlot : public stathost::StatGPLGraph {
 public:
  MediationScatterPlot(stathost::StatJSONGenerator* generator, const OutputContext& out);
  void fillData();

 protected:
  std::string getGPLText() override;

 private:
  const OutputContext& out_;
};

// Outcome means by mediator level (binary mediator, continuous outcome), or outcome
// proportions by mediator level or quartile (binary outcome).
class MediationBarPlot : public stathost::StatGPLGraph {
 public:
  struct Bar {
    std::string mediatorLevel;
    std::string outcomeLevel;  // proportions form only
    double value = 0.0;        // mean, or proportion in percent
    double lower = 0.0, upper = 0.0;
  };
  MediationBarPlot(stathost::StatJSONGenerator* generator, const OutputContext& out,
                   bool proportions, bool quartiles, std::vector<Bar> bars);
  void fillData();

 protected:
  std::string getGPLText() override;

 private:
  const OutputContext& out_;
  bool proportions_;
  bool quartiles_;
  std::vector<Bar> bars_;
};

// The value axis of a forest plot: the outcome's own scale, ratios (reference line at 1),
// or linear intercepts sharing the axis with ratio paths and effects.
enum class ForestScale { kLinear, kRatio, kMixed };

// How a forest plot is laid out: transposed (labels down the side, values across) or plain
// (labels along the bottom, values up), its value axis, and the total-effect line.
struct ForestForm {
  bool transposed = true;
  ForestScale scale = ForestScale::kLinear;
  std::string axisLabel = "Effect Estimate";
  double totalEffect = NAN;
  // The confidence level of every interval drawn, and the notes below the fixed footnote
  // (which bootstrap interval the effects show, the outcome's transformation).
  int level = 95;
  std::vector<std::string> notes;
};

// Path coefficients and effects with their confidence intervals.
class MediationForestPlot : public stathost::StatGPLGraph {
 public:
  struct Row {
    std::string label;
    double estimate = 0.0, lower = 0.0, upper = 0.0;
  };
  MediationForestPlot(stathost::StatJSONGenerator* generator, const OutputContext& out,
                      std::vector<Row> rows, ForestForm form);
  void fillData();

 protected:
  std::string getGPLText() override;

 private:
  const OutputContext& out_;
  std::vector<Row> rows_;
  ForestForm form_;
};

// The rows of the forest plot for the analysis (intercepts, paths, effects) and the form
// it is drawn in. When the bootstrap succeeded the effects show its limits (the interval
// the user chose) and every interval of the chart is taken at the bootstrap's level;
// otherwise the delta-method limits at the CRITERIA level.
std::vector<MediationForestPlot::Row> forestRows(const OutputContext& out);
ForestForm forestForm(const OutputContext& out, std::size_t rows);

// Outcome proportions (percent, with Wilson limits at `level`) of a binary outcome in the
// four quartile groups of a continuous mediator; `event` is the outcome value coded 1.
std::vector<MediationBarPlot::Bar> proportionsByQuartile(const Vector& mediator,
                                                         const Vector& outcome,
                                                         const Vector& weights, double event,
                                                         const std::string& outcomeName,
                                                         double level);

// Exposure, mediator and outcome with the paths between them, the NIE and TE of a causal
// analysis, and the covariates' paths unless they are hidden.
class MediationPathDiagram : public stathost::StatGPLGraph {
 public:
  MediationPathDiagram(stathost::StatJSONGenerator* generator, const OutputContext& out);
  void fillData();

 protected:
  std::string getGPLText() override;

 private:
  const OutputContext& out_;
  std::size_t covariates_ = 0;
};

// Writes the charts PLOT asked for: scatter or bar plot, forest plot, path diagram.
int writeCharts(const OutputContext& out);

}  // namespace medanlys

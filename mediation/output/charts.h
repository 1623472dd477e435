// The charts of a run, each a set of GPL statements with its data columns.
#pragma once

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

// Path coefficients and effects with their confidence intervals.
class MediationForestPlot : public stathost::StatGPLGraph {
 public:
  struct Row {
    std::string label;
    double estimate = 0.0, lower = 0.0, upper = 0.0;
  };
  MediationForestPlot(stathost::StatJSONGenerator* generator, const OutputContext& out,
                      std::vector<Row> rows);
  void fillData();

 protected:
  std::string getGPLText() override;

 private:
  const OutputContext& out_;
  std::vector<Row> rows_;
  double totalEffect_ = 0.0;
};

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

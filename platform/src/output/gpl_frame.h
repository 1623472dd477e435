// The frame of a chart: which data dimension is categorical or linear, which one runs across
// the page, the categories in axis order, the ranges and ticks of linear axes, and the colour
// scales of colour variables.
#ifndef STATHOST_OUTPUT_GPL_FRAME_H_
#define STATHOST_OUTPUT_GPL_FRAME_H_

#include <cstddef>
#include <string>
#include <vector>

#include "gpl_data.h"
#include "gpl_style.h"
#include "stathost/gpl_chart.h"

namespace stathost {
namespace gpl {
namespace detail {

struct Axis {
  bool categorical = false;
  bool hidden = false;
  std::string label;
  std::vector<std::string> categories;  // from the origin outwards
  double low = 0;
  double high = 1;
  style::Ticks ticks;
  // Pixels: the origin (low, or the first band's outer edge) maps to `from`, the far end to
  // `to`. A vertical axis has from > to.
  double from = 0;
  double to = 1;

  int index(const std::string& category) const;
  double band() const;
  double center(int index) const;
  double pixel(double value) const;
};

struct Frame {
  Axis axes[2];        // by data dimension
  int horizontal = 0;  // the data dimension drawn across the page
  bool clustered = false;
  std::vector<std::string> inner;  // categories within a cluster (data dim 1 under cluster(3))
  std::vector<bool> reference;     // per element: a reference line (see referenceDim)

  int vertical() const { return 1 - horizontal; }
  int innerIndex(const std::string& category) const;
};

// A line at one value across a categorical axis: a line element without split whose position
// pairs a category with a constant (0*effectRange) or a column holding one value
// (effectRange*xNull). Returns the data dimension of the value, or -1.
int referenceDim(const BoundElement& element, const bool categorical[2]);

// The constant value of a reference line (NaN when it has no finite value).
double referenceValue(const BoundElement& element, int dim);

// True when the element places its rows by cluster (category within cluster).
bool usesCluster(const ChartModel& model, const BoundElement& element);

// Throws ChartError when nothing in the chart has a position.
Frame buildFrame(const ChartModel& model, const std::vector<BoundElement>& elements);

// Colours of a colour variable: categories with their colours, or a continuous ramp for a
// numeric variable with many distinct values.
struct ColorScale {
  bool continuous = false;
  double low = 0;
  double high = 1;
  std::vector<std::string> keys;
  std::vector<std::string> colors;

  std::string colorOf(const Binding& binding, std::size_t row) const;  // "" when missing
};

ColorScale buildColorScale(const ChartModel& model, const BoundElement& element);

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_OUTPUT_GPL_FRAME_H_

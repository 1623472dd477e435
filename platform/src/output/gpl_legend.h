// Legends of colour variables: which variables get one, their entries, size and drawing.
#ifndef STATHOST_OUTPUT_GPL_LEGEND_H_
#define STATHOST_OUTPUT_GPL_LEGEND_H_

#include <string>
#include <vector>

#include "gpl_scene.h"

namespace stathost {
namespace gpl {
namespace detail {

struct LegendEntry {
  std::string label;
  std::string color;
};

struct Legend {
  std::string title;
  char swatch = 'b';  // b box, c circle, l line
  bool continuous = false;
  double low = 0;
  double high = 1;
  std::vector<LegendEntry> entries;

  double height() const;
};

// One legend per colour variable, unless GUIDE: legend(..., null()) hides it or the colours
// only repeat an axis's categories. Long texts are cut to the legend's width.
std::vector<Legend> buildLegends(const Plot& plot);

// The width the legends need (0 when there are none).
double legendsWidth(const std::vector<Legend>& legends);

// The legends stacked downwards from (x, y).
std::string legendsSvg(const std::vector<Legend>& legends, double x, double y);

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

#endif  // STATHOST_OUTPUT_GPL_LEGEND_H_

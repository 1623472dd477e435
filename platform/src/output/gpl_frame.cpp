#include "gpl_frame.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace stathost {
namespace gpl {
namespace detail {

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

void addCategory(std::vector<std::string>* categories, const std::string& category) {
  if (std::find(categories->begin(), categories->end(), category) == categories->end()) {
    categories->push_back(category);
  }
}

// Does a declared scale kind disagree with what the data put on a dimension?
bool conflicts(ScaleKind declared, bool categorical) {
  return (declared == ScaleKind::kCategorical && !categorical) ||
         (declared == ScaleKind::kLinear && categorical);
}

// The categories the element puts on categorical data dimension d, in row order.
void collectCategories(const ChartModel& model, const BoundElement& element, int d, Frame* frame) {
  const bool cluster = d == 0 && frame->clustered && usesCluster(model, element);
  const Binding* binding = nullptr;
  if (cluster) {
    binding = &element.dims[2];
  } else if (d < static_cast<int>(element.dims.size()) && d != element.parsed->position.rangeDim) {
    binding = &element.dims[d];
  }
  if (binding == nullptr) return;
  for (std::size_t row = 0; row < element.rows; ++row) {
    if (!binding->missing(row)) addCategory(&frame->axes[d].categories, binding->text(row));
    if (cluster && !element.dims[0].missing(row)) {
      addCategory(&frame->inner, element.dims[0].text(row));
    }
  }
  if (d < static_cast<int>(element.to.size())) {
    for (std::size_t row = 0; row < element.rows; ++row) {
      if (!element.to[d].missing(row)) {
        addCategory(&frame->axes[d].categories, element.to[d].text(row));
      }
    }
  }
}

// The values the element puts on linear data dimension d. Sets *barBase when bars stand on
// zero along d.
void collectValues(const BoundElement& element, int d, const bool categorical[2],
                   std::vector<double>* values, bool* barBase) {
  const Position& position = element.parsed->position;
  const auto add = [values, &element](const Binding& binding) {
    for (std::size_t row = 0; row < element.rows; ++row) {
      const double value = binding.number(row);
      if (std::isfinite(value)) values->push_back(value);
    }
  };
  if (position.form == PositionForm::kSpreadRange && d == position.rangeDim) {
    add(element.low);
    add(element.high);
  } else if (d < static_cast<int>(element.dims.size())) {
    add(element.dims[d]);
  }
  if (d < static_cast<int>(element.to.size())) add(element.to[d]);
  // Bars stand on zero.
  const bool valueDim = categorical[1 - d] || d == 1;
  if (element.parsed->type == ElementType::kInterval && position.form == PositionForm::kPlain &&
      valueDim) {
    values->push_back(0);
    *barBase = true;
  }
}

// Category text reduced for matching against colour map keys: "M=0: Q1 [1, 2]" and "m=0"
// both give "0".
std::string matchKey(const std::string& text) {
  std::string key = text.substr(0, text.find(':'));
  const std::size_t equals = key.rfind('=');
  if (equals != std::string::npos) key = key.substr(equals + 1);
  const std::size_t begin = key.find_first_not_of(' ');
  const std::size_t end = key.find_last_not_of(' ');
  return begin == std::string::npos ? "" : key.substr(begin, end - begin + 1);
}

const ColorMap* findColorMap(const ChartModel& model, const std::string& aesthetic) {
  for (const ColorMap& map : model.colorMaps) {
    if (map.aesthetic == aesthetic) return &map;
  }
  for (const ColorMap& map : model.colorMaps) {
    if (map.aesthetic.compare(0, 5, "color") == 0) return &map;
  }
  return nullptr;
}

}  // namespace

int Axis::index(const std::string& category) const {
  const auto found = std::find(categories.begin(), categories.end(), category);
  return found == categories.end() ? -1 : static_cast<int>(found - categories.begin());
}

double Axis::band() const {
  return categories.empty() ? std::fabs(to - from) : std::fabs(to - from) / categories.size();
}

double Axis::center(int i) const {
  const double n = categories.empty() ? 1.0 : static_cast<double>(categories.size());
  return from + (to - from) * (i + 0.5) / n;
}

double Axis::pixel(double value) const {
  if (!std::isfinite(value) || !(high > low)) return kMissing;
  return from + (to - from) * (value - low) / (high - low);
}

int Frame::innerIndex(const std::string& category) const {
  const auto found = std::find(inner.begin(), inner.end(), category);
  return found == inner.end() ? -1 : static_cast<int>(found - inner.begin());
}

bool usesCluster(const ChartModel& model, const BoundElement& element) {
  return model.clusterDim == 3 && element.dims.size() == 3 && !element.dims[2].isConstant() &&
         element.parsed->position.form != PositionForm::kLinkJoin &&
         element.parsed->position.rangeDim != 2;
}

int referenceDim(const BoundElement& element, const bool categorical[2]) {
  const ElementType type = element.parsed->type;
  if ((type != ElementType::kLine && type != ElementType::kPath) || element.hasSplit ||
      element.parsed->position.form != PositionForm::kPlain || element.dims.size() != 2) {
    return -1;
  }
  for (int value = 0; value < 2; ++value) {
    const int category = 1 - value;
    if (!categorical[category] || categorical[value] || element.dims[category].isConstant()) {
      continue;
    }
    if (std::isfinite(referenceValue(element, value))) return value;
  }
  return -1;
}

double referenceValue(const BoundElement& element, int dim) {
  const Binding& binding = element.dims[dim];
  if (binding.isConstant()) return binding.constant;
  double value = kMissing;
  for (std::size_t row = 0; row < binding.rows(); ++row) {
    const double v = binding.number(row);
    if (!std::isfinite(v)) continue;
    if (std::isfinite(value) && std::fabs(v - value) > 1e-12 * std::max(1.0, std::fabs(value))) {
      return kMissing;
    }
    value = v;
  }
  return value;
}

Frame buildFrame(const ChartModel& model, const std::vector<BoundElement>& elements) {
  Frame frame;
  // What the data put on each dimension.
  bool dataCategorical[2] = {false, false};
  for (const BoundElement& element : elements) {
    if (element.parsed->position.form == PositionForm::kLinkJoin) continue;
    for (int d = 0; d < 2 && d < static_cast<int>(element.dims.size()); ++d) {
      if (element.dims[d].category && !element.dims[d].isConstant()) dataCategorical[d] = true;
    }
  }
  // A chart may declare its scales and guides for one order of the dimensions and give the
  // positions in the other (a transposed layout written as value*category). The declarations
  // then follow the kind of data they describe.
  const ScaleKind declared[2] = {model.scales[0].kind, model.scales[1].kind};
  const bool straight =
      conflicts(declared[0], dataCategorical[0]) || conflicts(declared[1], dataCategorical[1]);
  const bool crossed =
      conflicts(declared[0], dataCategorical[1]) || conflicts(declared[1], dataCategorical[0]);
  const bool swapped = straight && !crossed && dataCategorical[0] != dataCategorical[1];
  frame.horizontal = (model.transpose != swapped) ? 1 : 0;

  bool categorical[2];
  for (int d = 0; d < 2; ++d) {
    const int declaredDim = swapped ? 1 - d : d;
    const ScaleModel& scale = model.scales[declaredDim];
    categorical[d] = dataCategorical[d] || scale.kind == ScaleKind::kCategorical;
    Axis& axis = frame.axes[d];
    axis.categorical = categorical[d];
    axis.hidden = model.axes[declaredDim].hidden;
    axis.label = model.axes[declaredDim].label;
  }
  frame.reference.assign(elements.size(), false);
  for (std::size_t i = 0; i < elements.size(); ++i) {
    frame.reference[i] = referenceDim(elements[i], categorical) >= 0;
  }
  if (categorical[0]) {
    for (const BoundElement& element : elements) {
      if (usesCluster(model, element)) frame.clustered = true;
    }
  }

  bool anyValue = false;
  for (int d = 0; d < 2; ++d) {
    const ScaleModel& scale = model.scales[swapped ? 1 - d : d];
    Axis& axis = frame.axes[d];
    if (categorical[d]) {
      for (std::size_t i = 0; i < elements.size(); ++i) {
        if (!frame.reference[i]) collectCategories(model, elements[i], d, &frame);
      }
      if (axis.categories.empty()) {
        for (std::size_t i = 0; i < elements.size(); ++i) {
          if (frame.reference[i]) collectCategories(model, elements[i], d, &frame);
        }
      }
      if (scale.reverse) std::reverse(axis.categories.begin(), axis.categories.end());
      anyValue = anyValue || !axis.categories.empty();
      continue;
    }
    std::vector<double> values;
    bool barBase = false;
    for (const BoundElement& element : elements) {
      collectValues(element, d, categorical, &values, &barBase);
    }
    const bool found = !values.empty();
    anyValue = anyValue || found;
    for (double value : scale.include) {
      if (std::isfinite(value)) values.push_back(value);
    }
    axis.low = values.empty() ? 0 : *std::min_element(values.begin(), values.end());
    axis.high = values.empty() ? 1 : *std::max_element(values.begin(), values.end());
    if (scale.min && std::isfinite(*scale.min)) axis.low = *scale.min;
    if (scale.max && std::isfinite(*scale.max)) axis.high = *scale.max;
    const bool fixedLow = scale.min.has_value() && std::isfinite(*scale.min);
    const bool fixedHigh = scale.max.has_value() && std::isfinite(*scale.max);
    if (axis.low > axis.high) std::swap(axis.low, axis.high);
    if (!std::isfinite(axis.high - axis.low)) throw ChartError("the values are too large to draw");
    // A little room beyond the data at ends that are not fixed (bars keep their zero base);
    // the ticks fall inside.
    const int target = d == frame.horizontal ? 5 : 6;
    const double span = axis.high - axis.low;
    if (span > 0) {
      if (!fixedLow && !(barBase && axis.low == 0)) axis.low -= 0.05 * span;
      if (!fixedHigh && !(barBase && axis.high == 0)) axis.high += 0.05 * span;
      axis.ticks = style::niceTicks(&axis.low, &axis.high, true, true, target);
    } else {
      axis.ticks = style::niceTicks(&axis.low, &axis.high, fixedLow, fixedHigh, target);
    }
  }
  if (!anyValue) throw ChartError("every value is missing, so there is nothing to draw");
  return frame;
}

std::string ColorScale::colorOf(const Binding& binding, std::size_t row) const {
  if (binding.missing(row)) return "";
  if (continuous) {
    const double value = binding.number(row);
    if (!std::isfinite(value)) return "";
    return style::rampColor(high > low ? (value - low) / (high - low) : 0.5);
  }
  const std::string key = binding.text(row);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i] == key) return colors[i];
  }
  return style::paletteColor(keys.size());
}

ColorScale buildColorScale(const ChartModel& model, const BoundElement& element) {
  ColorScale scale;
  const Binding& binding = element.color;
  const ColorMap* map = findColorMap(model, element.colorAesthetic);
  std::vector<std::string> seen;
  std::set<double> numbers;
  for (std::size_t row = 0; row < binding.rows(); ++row) {
    if (binding.missing(row)) continue;
    addCategory(&seen, binding.text(row));
    if (!binding.category) numbers.insert(binding.number(row));
  }
  if (!binding.category && map == nullptr && numbers.size() > 8) {
    scale.continuous = true;
    scale.low = *numbers.begin();
    scale.high = *numbers.rbegin();
    return scale;
  }
  if (!binding.category) {
    // Numeric codes in ascending order.
    seen.clear();
    for (double value : numbers) {
      Binding constant;
      constant.constant = value;
      seen.push_back(constant.text(0));
    }
  }
  if (map != nullptr) {
    for (const std::string& key : map->include) addCategory(&scale.keys, key);
  }
  for (const std::string& key : seen) addCategory(&scale.keys, key);
  scale.colors.assign(scale.keys.size(), "");
  if (map != nullptr) {
    std::vector<bool> used(map->entries.size(), false);
    for (int pass = 0; pass < 2; ++pass) {
      for (std::size_t i = 0; i < scale.keys.size(); ++i) {
        if (!scale.colors[i].empty()) continue;
        for (std::size_t j = 0; j < map->entries.size(); ++j) {
          const std::string& entry = map->entries[j].first;
          const bool match =
              pass == 0 ? entry == scale.keys[i] : matchKey(entry) == matchKey(scale.keys[i]);
          if (match && !used[j]) {
            scale.colors[i] = map->entries[j].second;
            used[j] = true;
            break;
          }
        }
      }
    }
    // Keys that match no entry take the remaining entries in order.
    std::size_t next = 0;
    for (std::size_t i = 0; i < scale.keys.size(); ++i) {
      if (!scale.colors[i].empty()) continue;
      while (next < used.size() && used[next]) ++next;
      if (next < used.size()) {
        scale.colors[i] = map->entries[next].second;
        used[next] = true;
      }
    }
  }
  for (std::size_t i = 0; i < scale.keys.size(); ++i) {
    if (scale.colors[i].empty()) scale.colors[i] = style::paletteColor(i);
  }
  return scale;
}

}  // namespace detail
}  // namespace gpl
}  // namespace stathost

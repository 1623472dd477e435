#include "stathost/suggestions.h"

#include <algorithm>
#include <tuple>

#include "stathost/dataset.h"

namespace stathost {
namespace {

// Edits (insert, delete, replace, swap of neighbours) that turn a into b: the optimal
// string alignment distance.
std::size_t editDistance(const std::string& a, const std::string& b) {
  const std::size_t n = a.size(), m = b.size();
  std::vector<std::vector<std::size_t>> d(n + 1, std::vector<std::size_t>(m + 1, 0));
  for (std::size_t i = 0; i <= n; ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= m; ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= n; ++i) {
    for (std::size_t j = 1; j <= m; ++j) {
      const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[n][m];
}

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

std::vector<std::string> similarNames(const std::string& name,
                                      const std::vector<std::string>& candidates, std::size_t max) {
  const std::string wanted = toUpperAscii(name);
  // Names too long to be typos of one another are not compared edit by edit.
  constexpr std::size_t kLongestCompared = 64;
  std::vector<std::tuple<std::size_t, std::size_t, std::string>> found;  // distance, order
  for (std::size_t k = 0; k < candidates.size(); ++k) {
    const std::string other = toUpperAscii(candidates[k]);
    if (other == wanted || other.empty()) continue;
    const std::size_t shorter = std::min(wanted.size(), other.size());
    const bool prefix = shorter >= 3 && (startsWith(other, wanted) || startsWith(wanted, other));
    std::size_t distance = kLongestCompared;
    if (wanted.size() <= kLongestCompared && other.size() <= kLongestCompared) {
      distance = editDistance(wanted, other);
    }
    const std::size_t allowed = std::max<std::size_t>(1, wanted.size() / 3);
    if (distance <= allowed || prefix) found.emplace_back(distance, k, candidates[k]);
  }
  std::sort(found.begin(), found.end());
  std::vector<std::string> out;
  for (const auto& entry : found) {
    if (out.size() >= max) break;
    out.push_back(std::get<2>(entry));
  }
  return out;
}

std::string didYouMean(const std::string& name, const std::vector<std::string>& candidates) {
  const std::vector<std::string> names = similarNames(name, candidates);
  if (names.empty()) return "";
  std::string text = " Did you mean: ";
  for (std::size_t i = 0; i < names.size(); ++i) text += (i ? ", " : "") + names[i];
  return text + "?";
}

}  // namespace stathost

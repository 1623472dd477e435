// Names close to one that was not found, for "Did you mean" hints.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace stathost {

// Up to `max` of the candidates that resemble `name`, closest first (ignoring case): those
// within a few edits of it (one edit per three characters, at least one; a swap of two
// neighbours counts as one), and those that begin with it or that it begins with (three
// characters at least).
std::vector<std::string> similarNames(const std::string& name,
                                      const std::vector<std::string>& candidates,
                                      std::size_t max = 3);

// " Did you mean: a, b?" for the similar names, or "" when there are none.
std::string didYouMean(const std::string& name, const std::vector<std::string>& candidates);

}  // namespace stathost

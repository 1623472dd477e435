#include "stathost/suggestions.h"

#include <gtest/gtest.h>

namespace {

using stathost::didYouMean;
using stathost::similarNames;

struct SuggestionCase {
  const char* name;
  std::string wanted;
  std::vector<std::string> expected;
  friend std::ostream& operator<<(std::ostream& os, const SuggestionCase& c) {
    return os << c.name;
  }
};

const std::vector<std::string> kNames = {"id",  "bili", "albumin", "age",
                                         "sex", "trt",  "chol",    "stage"};

class SimilarNames : public ::testing::TestWithParam<SuggestionCase> {};

TEST_P(SimilarNames, ClosestFirst) {
  EXPECT_EQ(similarNames(GetParam().wanted, kNames), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SimilarNames,
    ::testing::Values(SuggestionCase{"LongerFormOfAName", "bilirubin", {"bili"}},
                      SuggestionCase{"ShorterFormOfAName", "album", {"albumin"}},
                      SuggestionCase{"OneTypo", "albumim", {"albumin"}},
                      SuggestionCase{"SwappedLetters", "aeg", {"age"}},
                      SuggestionCase{"CaseIgnored", "BILIRUBIN", {"bili"}},
                      SuggestionCase{"SeveralClose", "tage", {"age", "stage"}},
                      SuggestionCase{"NothingClose", "weight", {}},
                      SuggestionCase{"TheSameNameIsNoSuggestion", "AGE", {}}),
    [](const auto& tp) { return std::string(tp.param.name); });

TEST(DidYouMean, WordsTheSuggestion) {
  EXPECT_EQ(didYouMean("bilirubin", kNames), " Did you mean: bili?");
  EXPECT_EQ(didYouMean("tage", kNames), " Did you mean: age, stage?");
  EXPECT_EQ(didYouMean("weight", kNames), "");
}

}  // namespace

// Constructors of the strategies. The analyses of the strategies are added one by one;
// until a strategy's analysis is in this build, its run reports that and fails.
#include <algorithm>
#include <cstdio>

#include "algorithm/mediation_strategy.h"
#include "algorithm/model_columns.h"
#include "algorithm/model_scale.h"
#include "models/fit_error.h"
#include "stathost/format.h"
#include "syntax/mediation_settings.h"

namespace medanlys {

StrategyBase::StrategyBase(const MediationSettings& settings, stathost::ACAStopProcessor* stop)
    : settings_(settings), stop_(stop) {
  messages_.SetCommandName("MEDIATION ANALYSIS");
  messages_.SetProcedureTitle("Mediation Analysis");
}

int StrategyBase::notAvailable(const char* analysis, std::vector<std::string>& errors) const {
  messages_.GenericError("The analysis of a ^1 is not available in this build yet.", analysis);
  errors.push_back(std::string("ERROR: analysis not available: ") + analysis);
  return 1;
}

void StrategyBase::report(const FitError& failure) const {
  if (!failure.userMessage().empty()) messages_.GenericError(failure.userMessage());
}

// A failure without a message of its own still reaches the user, with its detail.
void StrategyBase::reportUnexpected(const std::string& detail) const {
  messages_.GenericError("The analysis stopped: ^1.", detail);
}

void StrategyBase::bootstrapIfRequested(MediationCaseData& results,
                                        const std::function<void()>& bootstrap) const {
  if (!settings_.bootstrapGiven && settings_.ciType != CITYPE_BOOTSTRAP) {
    results.log.push_back("Bootstrap inference skipped - using delta method only");
    return;
  }
  results.flags[FLAG_BOOTSTRAP_REQUESTED] = true;
  try {
    bootstrap();
    if (!results.flags[FLAG_BOOTSTRAP_SUCCEEDED] && !results.flags[FLAG_CANCELLED]) {
      warnUnusableBootstrap(results.bootstrapReplicates,
                            settings_.bootstrapGiven ? settings_.bootstrapCiLevel
                                                     : settings_.ciLevel);
    }
  } catch (const std::exception& e) {
    results.log.push_back(std::string("Bootstrap inference failed: ") + e.what());
    results.log.push_back("Continuing with delta method results only");
    results.bootstrap.clear();
    results.flags[FLAG_BOOTSTRAP_SUCCEEDED] = false;
  }
}

int StrategyBase::guarded(std::vector<std::string>& errors,
                          const std::function<int()>& body) const {
  try {
    return body();
  } catch (const FitError& e) {
    if (e.userMessage().empty()) {
      reportUnexpected(e.what());
    } else {
      report(e);
    }
    errors.push_back(e.what());
  } catch (const std::bad_alloc&) {
    reportUnexpected("not enough memory");
    errors.push_back("Memory allocation failed");
  } catch (const std::exception& e) {
    reportUnexpected(e.what());
    errors.push_back(e.what());
  }
  return 1;
}

namespace {

const char* linkName(Link link) {
  switch (link) {
    case LOG:
      return "LOG";
    case LOGIT:
      return "LOGIT";
    default:
      return "IDENTITY";
  }
}

std::string percent(double share) {
  char text[16];
  std::snprintf(text, sizeof text, "%.1f%%", 100.0 * share);
  return text;
}

}  // namespace

void StrategyBase::warnIgnoredLinks() const {
  const char* text = "LINK=^1 on /^2 is not used: a ^3 is fitted by a ^4.";
  if (settings_.outcomeDistribution == NORMAL && settings_.outcomeLink != IDENTITY) {
    messages_.GenericWarning(text, linkName(settings_.outcomeLink), "OUTMODEL",
                             "NORMAL outcome", "linear model (identity link)");
  }
  if (settings_.mediatorDistribution == NORMAL && settings_.mediatorLink != IDENTITY) {
    messages_.GenericWarning(text, linkName(settings_.mediatorLink), "MEDMODEL",
                             "NORMAL mediator", "linear model (identity link)");
  }
  if (settings_.mediatorDistribution == BINOMIAL && settings_.mediatorLink != LOGIT) {
    messages_.GenericWarning(text, linkName(settings_.mediatorLink), "MEDMODEL",
                             "BINOMIAL mediator", "logistic model (logit link)");
  }
}

void StrategyBase::transformForSkewness(const std::vector<ScaleRole>& roles,
                                        const Vector* weights,
                                        MediationCaseData& results) const {
  transformRoles(roles, weights, settings_.autoTransform, results.transformations);
  const std::string notice = transformationNotice(roles, results.transformations);
  if (!notice.empty()) messages_.GenericWarning("^1", notice);
}

void StrategyBase::warnFactorReference(const ModelColumns& columns, const Vector& cStar) const {
  std::size_t column = 0;
  for (const FactorCoding& factor : columns.factorCodings) {
    const std::size_t first = column;
    column += factor.levels.size();
    if (factor.levels.empty() || column > cStar.size()) continue;
    // Cases per level: the reference level holds the cases with every dummy at 0.
    const std::size_t n = columns.covariates[first].size();
    std::vector<double> counts(factor.levels.size() + 1, 0.0);
    counts[0] = static_cast<double>(n);
    for (std::size_t k = 0; k < factor.levels.size(); ++k) {
      const Vector& dummy = columns.covariates[first + k];
      for (double d : dummy) counts[k + 1] += d;
      counts[0] -= counts[k + 1];
    }
    std::size_t held = 0;  // the level c* stands for: the dummy at 1, or the reference
    for (std::size_t k = 0; k < factor.levels.size(); ++k) {
      if (cStar[first + k] == 1.0) held = k + 1;
    }
    const auto common = static_cast<std::size_t>(
        std::max_element(counts.begin(), counts.end()) - counts.begin());
    if (counts[held] >= counts[common]) continue;
    auto levelText = [&](std::size_t k) {
      return stathost::formatShortest(k == 0 ? factor.reference : factor.levels[k - 1]);
    };
    messages_.GenericWarning(
        "^1",
        "The covariate reference c* holds factor " + factor.variable + " at level " +
        levelText(held) + " (" + percent(counts[held] / static_cast<double>(n)) +
        " of the cases), not at its most common level " + levelText(common) + " (" +
        percent(counts[common] / static_cast<double>(n)) +
        "): each indicator column of a factor is held at its own most common value, which "
        "selects a level only when that level covers more than half of the cases.");
  }
}

void StrategyBase::warnUncomputableInference(const MediationCaseData& results) const {
  std::string names;
  for (const auto& [name, e] : results.effects) {
    // An effect that is fixed by the model (the interaction effects without the interaction
    // term: 0, or a ratio of 1) has a standard error of exactly 0 and needs no notice.
    if (std::isfinite(e.estimate) && e.estimate != 0.0 && e.se > 0.0 && e.se < 1e-12 &&
        !std::isfinite(e.z)) {
      names += (names.empty() ? "" : ", ") + name;
    }
  }
  if (names.empty()) return;
  messages_.GenericWarning(
      "The standard errors of ^1 are below 1e-12, so their z, p and confidence limits are not "
      "computed. This happens when the variables take very small values; express them in "
      "larger units (multiply them by a power of ten) and run the analysis again.",
      names);
}

void StrategyBase::warnUnusableBootstrap(long replicates, int level) const {
  const long needed = minimumBootstrapReplicates(level);
  if (needed > 0 && replicates < needed) {
    messages_.GenericWarning(
        "The bootstrap had ^1 usable replicates, too few for ^2% percentile limits (at least "
        "^3 are needed), so the tables show the estimates without bootstrap limits. Ask for "
        "NSAMPLES=1000 or more.",
        std::to_string(replicates), std::to_string(level), std::to_string(needed));
  } else {
    messages_.GenericWarning(
        "The bootstrap of ^1 replicates gave no finite confidence limits, so the tables show "
        "the estimates without bootstrap limits.",
        std::to_string(replicates));
  }
}

BinomialBinomialStrategy::BinomialBinomialStrategy(const MediationSettings& settings,
                                                   stathost::ACAStopProcessor* stop)
    : StrategyBase(settings, stop) {}

int BinomialBinomialStrategy::run(RoleMapping&, MediationCaseData&,
                                  std::vector<std::string>& errors) {
  return notAvailable("binary mediator with a binary or count outcome", errors);
}

}  // namespace medanlys

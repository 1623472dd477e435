// Continuous mediator, continuous outcome: preparation, the two weighted least squares
// fits, the closed-form effects and their delta-method inference.
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <stdexcept>

#include "algorithm/data_preparation.h"
#include "algorithm/mediation_strategy.h"
#include "algorithm/model_columns.h"
#include "algorithm/model_scale.h"
#include "effects/bootstrap.h"
#include "effects/continuous_effects.h"
#include "effects/strategy_support.h"
#include "models/fit_error.h"
#include "stathost/format.h"
#include "syntax/mediation_settings.h"

namespace medanlys {
namespace {

std::size_t distinctCount(const Vector& v) { return std::set<double>(v.begin(), v.end()).size(); }

std::string elapsed(const char* what, double start) {
  return elapsedSince(std::string(what) + " ", start);
}

}  // namespace

NormalNormalStrategy::NormalNormalStrategy(const MediationSettings& settings,
                                           stathost::ACAStopProcessor* stop)
    : StrategyBase(settings, stop) {}

int NormalNormalStrategy::run(RoleMapping& input, MediationCaseData& results,
                              std::vector<std::string>& errors) {
  Log& log = results.log;
  return guarded(errors, [&]() {
    // 1. Data: columns of the models, factor dummies first, then covariates.
    double t = omp_get_wtime();
    const bool weighted = !settings_.scaleWeightVar.empty();
    log.push_back(weightsLogLine(weighted));
    Vector exposure = std::move(input.exposure), mediator = std::move(input.mediator),
           outcome = std::move(input.outcome);
    const Vector weights = weighted ? std::move(input.weights) : Vector(exposure.size(), 1.0);
    const Vector* skewWeights = weighted ? &weights : nullptr;
    ModelColumns columns = takeModelColumns(input);
    std::vector<Vector>& covariates = columns.covariates;
    const std::vector<bool>& isFactor = columns.isFactor;
    results.covariateLabels = columns.labels;
    checkColumnSizes(exposure, mediator, outcome, weights, columns);

    warnIgnoredLinks();
    // Reference exposure levels on the original scale.
    ExposureLevels levels =
        exposureLevels(exposure, settings_.baselineLevelGiven, settings_.baselineLevel,
                       settings_.exposureLevelGiven, settings_.exposureLevel);
    const std::string defaults =
        defaultLevelsNotice(exposure, settings_.baselineLevelGiven, settings_.exposureLevelGiven,
                            levels, settings_.predictorVar);
    if (!defaults.empty()) messages_.GenericWarning("^1", defaults);
    if (levels.a_star == 0.0) messages_.GenericWarning(kZeroBaselineWarning);

    // Skewness-driven transformations; the reference values follow their variable.
    const auto [mediatorMin, mediatorMax] = std::minmax_element(mediator.begin(), mediator.end());
    const Vector mediatorRange{*mediatorMin, *mediatorMax};  // as the user gave it
    const bool continuousExposure = distinctCount(exposure) > 2;
    std::vector<ScaleRole> roles;
    if (continuousExposure) roles.push_back({"Exposure", settings_.predictorVar, &exposure});
    roles.push_back({"Mediator", settings_.mediatorVar, &mediator});
    roles.push_back({"Outcome", settings_.outcomeVar, &outcome});
    addCovariateRoles(columns, roles);
    results.transformations["Exposure"] = TransformationRecord();
    transformForSkewness(roles, skewWeights, results);
    results.outcomeSd = weightedStandardDeviation(outcome, weights);  // on the effects' scale
    ReferencePoint& ref = results.reference;
    results.dataScaleLevels = levels;
    levels = levelsOnModelScale(levels, results.transformations["Exposure"],
                                settings_.predictorVar, log);
    ref.a_star = levels.a_star;
    ref.a_hat = levels.a_hat;

    // Mediator level, scaling and covariate reference values. A custom level is checked
    // against the mediator's range as the user gave it, then carried to the model scale.
    const bool custom = settings_.mediatorLevelKind == MediatorLevelKind::kCustom;
    const TransformationRecord& mediatorT = results.transformations["Mediator"];
    if (custom) checkMStarInRange(mediatorRange, settings_.mediatorLevelValue);
    const double customValue =
        custom ? mediatorLevelOnModelScale(settings_.mediatorLevelValue, mediatorT,
                                           settings_.mediatorVar)
               : NAN;
    MediatorScaling scaling;
    if (settings_.autoTransform) scaling = scaleMediator(mediator, custom, customValue, log);
    results.mediatorScale = scaling.factor;
    ref.m_star = mStarContinuous(
        mediator, weighted ? &weights : nullptr, mLevelKind(settings_.mediatorLevelKind), custom,
        custom && scaling.factor != 1.0 ? scaling.customMStar : customValue, log);
    ref.c_star = computeCStar(covariates, isFactor, weights, log);
    warnFactorReference(columns, ref.c_star);
    log.push_back(elapsed("Data preprocessing completed in", t));

    // 2-4. The two models.
    t = omp_get_wtime();
    results.mediatorFit = fitMediatorWls(exposure, covariates, mediator, weights);
    log.insert(log.end(), results.mediatorFit.log.begin(), results.mediatorFit.log.end());
    log.push_back(elapsed("Mediator model fitted in", t));
    t = omp_get_wtime();
    if (exposure.empty()) {
      throw FitError("", "transformedExposure is empty \u2014 cannot run outcome regression");
    }
    results.outcomeFit =
        fitOutcomeWls(exposure, mediator, outcome, covariates, weights, settings_.interaction);
    log.insert(log.end(), results.outcomeFit.log.begin(), results.outcomeFit.log.end());
    log.push_back(elapsed("Outcome model fitted in", t));

    // 5-6. Effects at the reference point.
    t = omp_get_wtime();
    const ContinuousModelParameters p = modelParameters(
        results.mediatorFit.coefficients, results.outcomeFit.coefficients, settings_.interaction);
    if (ref.c_star.size() != p.beta_2.size()) {
      throw FitError("Effect estimation validation failed.",
                     "Effect estimation input validation failed");
    }
    const EffectEstimates effects = computeEffects(p, ref);
    log.push_back(elapsed("Mediation effects computed in", t));

    // 7. Delta method with the covariance COVB asks for.
    t = omp_get_wtime();
    try {
      const bool robust = settings_.covb == COVB_ROBUST;
      const Matrix sigma =
          jointCovariance(robust ? results.mediatorFit.covRobust : results.mediatorFit.covModel,
                          robust ? results.outcomeFit.covRobust : results.outcomeFit.covModel,
                          p.mediatorSize(), p.outcomeSize());
      results.effects =
          deltaMethodInference(effects, effectGradients(p, ref, effects), sigma, settings_.ciLevel);
    } catch (const std::exception& e) {
      log.push_back(std::string("Error in delta method inference:") + e.what());
      throw;
    }
    log.push_back(elapsed("Delta method inference completed in", t));
    results.flags[FLAG_RATIO_STATS_AVAILABLE] = std::isfinite(effects.PM);
    warnUncomputableInference(results);

    // 8. Bootstrap.
    if (settings_.bootstrapGiven || settings_.ciType == CITYPE_BOOTSTRAP) {
      results.flags[FLAG_BOOTSTRAP_REQUESTED] = true;
      t = omp_get_wtime();
      try {
        const BootstrapCases cases =
            bootstrapCases(exposure, mediator, outcome, weights, covariates);
        const int level = settings_.bootstrapGiven ? settings_.bootstrapCiLevel : settings_.ciLevel;
        stathost::ProcedureProgress progress("Bootstrap", settings_.nSamples, "replicates");
        const BootstrapStore store = runBootstrap(cases, settings_.nSamples, settings_.seed, ref,
                                                  p.interaction, stop_, &progress);
        results.bootstrapReplicates = store.completed;
        if (store.cancelled) {
          results.flags[FLAG_CANCELLED] = true;
          messages_.GenericWarning(
              "The bootstrap was stopped by the user after ^1 of ^2 replicates; its "
              "results use those replicates.",
              std::to_string(store.completed), std::to_string(settings_.nSamples));
        }
        if (store.failures > 0) {
          log.push_back("Bootstrap replicates failed: " + std::to_string(store.failures) + " of " +
                        std::to_string(store.completed));
        }
        const auto summaries = summarizeBootstrap(store, effects, level, log);
        for (const auto& [name, summary] : summaries)
          results.bootstrap[name] = summaryStatistics(summary);
        const bool usable = bootstrapUsable(results);
        results.flags[FLAG_BOOTSTRAP_SUCCEEDED] = usable;
        if (usable) {
          log.push_back("Bootstrap results stored for table generation: " +
                        std::to_string(results.bootstrap.size()) + " effects");
          log.push_back(elapsed("Bootstrap inference completed in", t));
        } else {
          log.push_back(
              "Bootstrap completed but failed to produce valid results. Tables will not be "
              "displayed.");
          warnUnusableBootstrap(store.completed - store.failures, level);
        }
      } catch (const std::exception& e) {
        log.push_back(
            std::string("Bootstrap inference failed. Continuing with delta method results only (") +
            e.what() + ")");
        results.bootstrap.clear();
      }
    } else {
      log.push_back("Bootstrap inference skipped - using delta method only");
    }
    return 0;
  });
}

}  // namespace medanlys

// Continuous mediator, binary or count outcome: the linear mediator model (ridge fallback),
// the outcome GLM of the family and link asked for, the ratio-scale effects and excess
// relative risks with their delta-method inference over (beta, sigma2, theta).
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "algorithm/data_preparation.h"
#include "algorithm/mediation_strategy.h"
#include "algorithm/model_columns.h"
#include "algorithm/model_scale.h"
#include "effects/binary_bootstrap.h"
#include "effects/ratio_bootstrap.h"
#include "effects/ratio_effects.h"
#include "effects/strategy_support.h"
#include "models/fit_error.h"
#include "models/glm.h"
#include "stathost/format.h"
#include "syntax/mediation_settings.h"

namespace medanlys {
namespace {

std::string elapsed(const char* what, double start) {
  return elapsedSince(std::string(what) + " ", start);
}

const char* kInvalidCombination =
    "An invalid combination of distribution and link settings is specified.";

}  // namespace

NormalBinomialStrategy::NormalBinomialStrategy(const MediationSettings& settings,
                                               stathost::ACAStopProcessor* stop)
    : StrategyBase(settings, stop) {}

int NormalBinomialStrategy::run(RoleMapping& input, MediationCaseData& results,
                                std::vector<std::string>& errors) {
  Log& log = results.log;
  return guarded(errors, [&]() {
    // The family and link of the outcome model.
    const int dist = settings_.outcomeDistribution;
    const int link = settings_.outcomeLink;
    Family family;
    std::string prefix = "IRR_";
    if (dist == BINOMIAL && link == LOGIT) {
      family.kind = GlmFamily::kBinomialLogit;
      prefix = "OR_";
    } else if (dist == BINOMIAL && link == LOG) {
      family.kind = GlmFamily::kBinomialLog;
      prefix = "RR_";
    } else if (dist == POISSON && link == LOG) {
      family.kind = GlmFamily::kPoissonLog;
    } else if (dist == NEGBIN && link == LOG) {
      family.kind = GlmFamily::kNegBinLog;
      family.k = settings_.negbinDispersion;
    } else {
      throw FitError(kInvalidCombination, kInvalidCombination);
    }

    warnIgnoredLinks();
    double t = omp_get_wtime();
    const bool weighted = !settings_.scaleWeightVar.empty();
    log.push_back(weightsLogLine(weighted));
    Vector exposure = std::move(input.exposure), mediator = std::move(input.mediator),
           outcome = std::move(input.outcome);
    const Vector weights = weighted ? std::move(input.weights) : Vector(exposure.size(), 1.0);
    const Vector* skewWeights = weighted ? &weights : nullptr;
    ModelColumns columns = takeModelColumns(input);
    results.covariateLabels = columns.labels;
    checkColumnSizes(exposure, mediator, outcome, weights, columns);

    // The outcome: 0/1 with the event as 1, or counts.
    if (dist == BINOMIAL) {
      BinaryCoding coding;
      try {
        coding = detectBinary(outcome, "Outcome", log);
      } catch (const FitError&) {
        throw FitError("Outcome must have exactly 2 values for binomial. Recode",
                       "ERROR: Outcome must be binary with exactly 2 unique values");
      }
      const ReferenceSetting& ref = settings_.outcomeReference;
      ReferenceRule rule = ReferenceRule::kFirst;
      double custom = 0.0;
      if (ref.given && ref.kind == ReferenceKind::kLast) rule = ReferenceRule::kLast;
      if (ref.given && ref.kind == ReferenceKind::kCustom) {
        rule = ReferenceRule::kCustom;
        // The reference as given on the data's scale, as 0 or 1 of the coding.
        custom = std::fabs(ref.value - coding.event) < 1e-6
                     ? 1.0
                     : (std::fabs(ref.value - coding.reference) < 1e-6 ? 0.0 : ref.value);
      }
      const Vector raw = outcome;
      outcome = applyReferenceCoding(coding.coded, rule, custom, "Outcome", log);
      for (std::size_t i = 0; i < outcome.size(); ++i) {
        if (outcome[i] == 1.0) {
          results.outcomeEventValue = raw[i];
          break;
        }
      }
      // The odds ratio approximates the risk ratio only for a rare outcome.
      double events = 0.0, total = 0.0;
      for (std::size_t i = 0; i < outcome.size(); ++i) {
        events += weights[i] * outcome[i];
        total += weights[i];
      }
      results.outcomeEventShare = total > 0.0 ? events / total : NAN;
      if (family.kind == GlmFamily::kBinomialLogit && total > 0.0 && events / total > 0.1) {
        messages_.GenericWarning(
            "The outcome is not rare (events in ^1% of the cases): odds ratios then overstate risk "
            "ratios and "
            "the effects rest on a rare-outcome approximation. LINK=LOG estimates risk ratios "
            "directly.",
            stathost::formatNumber(100.0 * events / total, stathost::STAX_Format::FMT_FIXED, 6, 1));
      }
    } else {
      validateCountOutcome(outcome, log);
    }

    // Exposure levels, checked for extrapolation when the exposure is continuous.
    ExposureLevels levels =
        exposureLevels(exposure, settings_.baselineLevelGiven, settings_.baselineLevel,
                       settings_.exposureLevelGiven, settings_.exposureLevel);
    const std::string defaults =
        defaultLevelsNotice(exposure, settings_.baselineLevelGiven, settings_.exposureLevelGiven,
                            levels, settings_.predictorVar);
    if (!defaults.empty()) messages_.GenericWarning("^1", defaults);
    const bool continuousExposure = std::set<double>(exposure.begin(), exposure.end()).size() > 2;
    if (continuousExposure) {
      std::string reason;
      const ExposureLevels asked = levels;
      levels = checkExtrapolation(exposure, levels, log, &reason);
      const std::string repair = extrapolationNotice(asked, levels, reason, settings_.predictorVar);
      if (!repair.empty()) messages_.GenericWarning("^1", repair);
    }
    if (levels.a_star == 0.0) messages_.GenericWarning(kZeroBaselineWarning);

    // Skewness rule: exposure (when continuous), mediator, covariates; the reference
    // values follow their variable to the model scale.
    std::vector<ScaleRole> roles;
    if (continuousExposure) roles.push_back({"Exposure", settings_.predictorVar, &exposure});
    roles.push_back({"Mediator", settings_.mediatorVar, &mediator});
    addCovariateRoles(columns, roles);
    results.transformations["Exposure"] = TransformationRecord();
    results.transformations["Outcome"] = TransformationRecord();
    transformForSkewness(roles, skewWeights, results);
    results.dataScaleLevels = levels;
    levels = levelsOnModelScale(levels, results.transformations["Exposure"], settings_.predictorVar,
                                log);
    ReferencePoint& ref = results.reference;
    ref.a_star = levels.a_star;
    ref.a_hat = levels.a_hat;
    const bool custom = settings_.mediatorLevelKind == MediatorLevelKind::kCustom;
    const double customValue =
        custom
            ? mediatorLevelOnModelScale(settings_.mediatorLevelValue,
                                        results.transformations["Mediator"], settings_.mediatorVar)
            : NAN;
    ref.m_star = mStarContinuous(mediator, weighted ? &weights : nullptr,
                                 mLevelKind(settings_.mediatorLevelKind), custom, customValue, log);
    ref.c_star = computeCStar(columns.covariates, columns.isFactor, weights, log);
    warnFactorReference(columns, ref.c_star);
    log.push_back(elapsed("Data preprocessing completed in", t));

    // The two models.
    t = omp_get_wtime();
    results.mediatorFit = fitMediatorRidge(exposure, columns.covariates, mediator, weights);
    log.insert(log.end(), results.mediatorFit.log.begin(), results.mediatorFit.log.end());
    log.push_back(elapsed("Mediator model fitted in", t));
    t = omp_get_wtime();
    const OutcomeDesign design = buildOutcomeDesignMatrix(
        exposure, mediator, outcome, columns.covariates, settings_.interaction);
    const GlmOptions options = glmOptions(settings_);
    results.outcomeGlmFit = dist == NEGBIN && settings_.negbinDispersion == 0.0
                                ? fitNegativeBinomialMle(design.X, outcome, weights, options)
                                : fitGlm(design.X, outcome, weights, family, options);
    const GlmFit& oFit = results.outcomeGlmFit;
    log.insert(log.end(), oFit.log.begin(), oFit.log.end());
    if (!oFit.converged) throw FitError(oFit.message, "Outcome model failed: " + oFit.message);
    log.push_back(elapsed("Outcome model fitted in", t));

    // Effects and their inference.
    t = omp_get_wtime();
    RatioModelParameters p;
    p.models =
        modelParameters(results.mediatorFit.coefficients, oFit.coefficients, settings_.interaction);
    const ContinuousModelParameters& mp = p.models;
    const bool robust = settings_.covb == COVB_ROBUST;
    const std::size_t qm = mp.mediatorSize(), qo = mp.outcomeSize();
    // The mediator's residual variance enters the effects themselves, so it is taken per
    // unit of weight (weights are replication counts): doubling every weight must give the
    // effects of the duplicated data. Unweighted, this is the fit's own sigma^2.
    double totalWeight = 0.0;
    for (double w : weights) totalWeight += w;
    const double sigma2Df = totalWeight - static_cast<double>(qm);
    p.sigma2 = results.mediatorFit.ssr / sigma2Df;
    Matrix sigma = zeroMatrix(qm + 1 + qo, qm + 1 + qo);
    const Matrix& mCov = robust ? results.mediatorFit.covRobust : results.mediatorFit.covModel;
    const Matrix& oCov = robust ? oFit.covRobust : oFit.covModel;
    for (std::size_t i = 0; i < qm; ++i) {
      for (std::size_t j = 0; j < qm; ++j) sigma(i, j) = mCov(i, j);
    }
    sigma(qm, qm) = 2.0 * p.sigma2 * p.sigma2 / sigma2Df;
    for (std::size_t i = 0; i < qo; ++i) {
      for (std::size_t j = 0; j < qo; ++j) sigma(qm + 1 + i, qm + 1 + j) = oCov(i, j);
    }
    const std::vector<RatioEffectValue> fullEffects = computeRatioEffects(p, ref, prefix, true);
    results.effects = ratioEffectInference(fullEffects, sigma, settings_.ciLevel);
    results.flags[FLAG_RATIO_STATS_AVAILABLE] = std::isfinite(results.effects["PM"].estimate);
    log.push_back(elapsed("Mediation effects computed in", t));
    warnUncomputableInference(results);

    bootstrapIfRequested(results, [&]() {
      RatioReplicateModel model;
      model.mediatorX = buildMediatorDesignMatrix(exposure, columns.covariates);
      model.mediator = mediator;
      model.outcome = design;
      model.family = family;
      model.estimateDispersion = dist == NEGBIN && settings_.negbinDispersion == 0.0;
      model.options = options;
      model.options.start = oFit.coefficients;  // replicates start at the full-sample fit
      model.options.startDispersion = model.estimateDispersion ? oFit.dispersion : 0.0;
      model.interaction = settings_.interaction;
      model.reference = ref;
      model.prefix = prefix;
      bootstrap(bootstrapCases(exposure, mediator, outcome, weights, columns.covariates), model,
                fullEffects, results);
    });
    return 0;
  });
}

void NormalBinomialStrategy::bootstrap(const BootstrapCases& cases,
                                       const RatioReplicateModel& model,
                                       const std::vector<RatioEffectValue>& full,
                                       MediationCaseData& results) {
  Log& log = results.log;
  const int level = settings_.bootstrapGiven ? settings_.bootstrapCiLevel : settings_.ciLevel;
  int nb = 0;
  try {
    nb = validateBinaryBootstrap(settings_.nSamples, level, log);
  } catch (const FitError& e) {
    report(e);
    throw;
  }
  stathost::ProcedureProgress progress("Bootstrap", nb, "replicates");
  const RatioBootstrapRun run = runRatioBootstrap(
      cases, [&model](const Vector& w) { return fitRatioReplicate(model, w); }, nb, settings_.seed,
      stop_, &progress, log);
  try {
    checkRatioBootstrap(run, nb, log);
  } catch (const std::exception& e) {
    messages_.GenericWarning(e.what());
    throw;
  }
  // A stopped run counts the replicates that ran, not those asked for.
  storeBootstrapSummaries(summarizeRatioBootstrap(run, full, level, log),
                          run.successes + run.failures,
                          {model.prefix + "CDE", model.prefix + "NDE", model.prefix + "NIE",
                           model.prefix + "TE", model.prefix + "PIE"},
                          results);
}

}  // namespace medanlys

// Binary mediator, continuous outcome: 0/1 coding of the mediator by its reference, the
// logistic mediator model, the linear outcome model, the additive effects with their
// delta-method inference, and the bootstrap with its pilot and failure policy.
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <set>

#include "algorithm/data_preparation.h"
#include "algorithm/mediation_strategy.h"
#include "algorithm/model_columns.h"
#include "algorithm/model_scale.h"
#include "effects/binary_bootstrap.h"
#include "effects/binary_mediator_effects.h"
#include "effects/strategy_support.h"
#include "models/fit_error.h"
#include "models/glm.h"
#include "models/glm_replicate.h"
#include "stathost/format.h"
#include "syntax/mediation_settings.h"

namespace medanlys {
namespace {

std::string elapsed(const char* what, double start) { return elapsedSince(what, start); }

std::string num(double v) { return stathost::formatShortest(v); }

// Codes the mediator 0 (reference) / 1 (event) by MED_REFERENCE, with its log lines.
Vector codeMediator(const Vector& mediator, const ReferenceSetting& setting, Log& log) {
  Log ignored;
  BinaryCoding coding;
  try {
    coding = detectBinary(mediator, "Mediator", ignored);
  } catch (const FitError&) {
    throw FitError("Mediator must be binary (0/1 only). Recode or check data values.",
                   "ERROR: Mediator must be binary with exactly 2 unique values");
  }
  bool flip = false;
  std::string rule = "FIRST";
  if (setting.given && setting.kind == ReferenceKind::kLast) {
    flip = true;
    rule = "LAST";
  } else if (setting.given && setting.kind == ReferenceKind::kCustom) {
    rule = num(setting.value);
    if (std::fabs(setting.value - coding.event) < 1e-6) {
      flip = true;
    } else if (std::fabs(setting.value - coding.reference) >= 1e-6) {
      throw FitError("Reference value not in mediator data. Select valid level.",
                     "ERROR: Mediator reference value must be 0 or 1, got " + num(setting.value));
    }
  }
  const double reference = flip ? coding.event : coding.reference;
  const double event = flip ? coding.reference : coding.event;
  Vector coded(mediator.size());
  std::size_t changed = 0;
  for (std::size_t i = 0; i < mediator.size(); ++i) {
    coded[i] = mediator[i] == event ? 1.0 : 0.0;
    if (coded[i] != mediator[i]) ++changed;
  }
  if (changed > 0) {
    log.push_back("Mediator recoded: event=" + num(event) + "\u2192 1, reference=" +
                  num(reference) + "\u2192 0 (" + std::to_string(changed) + "values changed).");
  } else {
    log.push_back("Mediator coding: event=" + num(event) + "= 1, reference=" + num(reference) +
                  "= 0 (no recoding needed).");
  }
  const auto ones = static_cast<std::size_t>(std::count(coded.begin(), coded.end(), 1.0));
  if (ones < 5 || coded.size() - ones < 5) {
    log.push_back("WARNING: Few events/non-events in mediator: value 0 has " +
                  std::to_string(coded.size() - ones) + " cases, value 1 has " +
                  std::to_string(ones) + " cases");
  }
  log.push_back("Binary mediator validated: values={0, 1}, reference=" + num(reference) +
                "(coded 0), event=" + num(event) + "(coded 1),mediator_reference='" + rule + "'");
  return coded;
}

DesignMatrix mediatorDesign(const Vector& exposure, const std::vector<Vector>& covariates) {
  return buildMediatorDesignMatrix(exposure, covariates);
}

}  // namespace

BinomialNormalStrategy::BinomialNormalStrategy(const MediationSettings& settings,
                                               stathost::ACAStopProcessor* stop)
    : StrategyBase(settings, stop) {}

int BinomialNormalStrategy::run(RoleMapping& input, MediationCaseData& results,
                                std::vector<std::string>& errors) {
  Log& log = results.log;
  return guarded(errors, [&]() {
    warnIgnoredLinks();
    double t = omp_get_wtime();
    const bool weighted = !settings_.scaleWeightVar.empty();
    log.push_back(weightsLogLine(weighted));
    Vector exposure = std::move(input.exposure), outcome = std::move(input.outcome);
    const Vector weights = weighted ? std::move(input.weights) : Vector(exposure.size(), 1.0);
    const Vector* skewWeights = weighted ? &weights : nullptr;
    ModelColumns columns = takeModelColumns(input);
    results.covariateLabels = columns.labels;
    checkColumnSizes(exposure, input.mediator, outcome, weights, columns);

    const Vector mediator = codeMediator(input.mediator, settings_.mediatorReference, log);
    ExposureLevels levels =
        exposureLevels(exposure, settings_.baselineLevelGiven, settings_.baselineLevel,
                       settings_.exposureLevelGiven, settings_.exposureLevel);
    const std::string defaults =
        defaultLevelsNotice(exposure, settings_.baselineLevelGiven, settings_.exposureLevelGiven,
                            levels, settings_.predictorVar);
    if (!defaults.empty()) messages_.GenericWarning("^1", defaults);
    if (levels.a_star == 0.0) messages_.GenericWarning(kZeroBaselineWarning);

    // Skewness rule: exposure (when continuous), outcome and covariates; the exposure
    // levels follow the exposure to the model scale.
    std::vector<ScaleRole> roles;
    if (std::set<double>(exposure.begin(), exposure.end()).size() > 2)
      roles.push_back({"Exposure", settings_.predictorVar, &exposure});
    roles.push_back({"Outcome", settings_.outcomeVar, &outcome});
    addCovariateRoles(columns, roles);
    results.transformations["Exposure"] = TransformationRecord();
    results.transformations["Mediator"] = TransformationRecord();
    transformForSkewness(roles, skewWeights, results);
    results.outcomeSd = weightedStandardDeviation(outcome, weights);  // on the effects' scale
    ReferencePoint& ref = results.reference;
    results.dataScaleLevels = levels;
    levels = levelsOnModelScale(levels, results.transformations["Exposure"], settings_.predictorVar,
                                log);
    ref.a_star = levels.a_star;
    ref.a_hat = levels.a_hat;
    const bool isValue = settings_.mediatorLevelKind == MediatorLevelKind::kCustom;
    ref.m_star = mStarBinary(mediator, isValue, settings_.mediatorLevelValue);
    ref.c_star = computeCStar(columns.covariates, columns.isFactor, weights, log);
    warnFactorReference(columns, ref.c_star);
    if (exposure.size() < columns.covariates.size() + 10) {
      throw FitError("Sample too small for regression (N < k + 10).",
                     "Sample too small for regression (N < k + 10).");
    }
    log.push_back(elapsed("Data preprocessing completed in ", t));

    // The logistic mediator model and the linear outcome model.
    t = omp_get_wtime();
    const DesignMatrix mX = mediatorDesign(exposure, columns.covariates);
    results.mediatorLogisticFit =
        fitLogisticNR_Variant2(mX, mediator, weights, glmOptions(settings_));
    const GlmFit& mFit = results.mediatorLogisticFit;
    log.insert(log.end(), mFit.log.begin(), mFit.log.end());
    if (!mFit.converged)
      throw FitError(mFit.message, "Binary mediator model failed: " + mFit.message);
    log.push_back(elapsed("Binary mediator model fitted in ", t));
    results.outcomeFit = fitOutcomeWls(exposure, mediator, outcome, columns.covariates, weights,
                                       settings_.interaction);
    log.insert(log.end(), results.outcomeFit.log.begin(), results.outcomeFit.log.end());
    log.push_back(elapsed("Outcome model fitted in ", t));

    // Effects and the delta method over (beta, theta).
    t = omp_get_wtime();
    const ContinuousModelParameters p =
        modelParameters(mFit.coefficients, results.outcomeFit.coefficients, settings_.interaction);
    const EffectEstimates effects = computeBinaryMediatorEffects(p, ref);
    const bool robust = settings_.covb == COVB_ROBUST;
    const Matrix sigma =
        jointCovariance(robust ? mFit.covRobust : mFit.covModel,
                        robust ? results.outcomeFit.covRobust : results.outcomeFit.covModel,
                        p.mediatorSize(), p.outcomeSize());
    results.effects = deltaMethodInference(effects, binaryMediatorGradients(p, ref, effects), sigma,
                                           settings_.ciLevel);
    results.flags[FLAG_RATIO_STATS_AVAILABLE] = std::isfinite(effects.PM);
    log.push_back(elapsed("Binary mediator effects computed in ", t));
    warnUncomputableInference(results);

    bootstrapIfRequested(results, [&]() {
      bootstrap(bootstrapCases(exposure, mediator, outcome, weights, columns.covariates), p,
                results);
    });
    return 0;
  });
}

void BinomialNormalStrategy::bootstrap(const BootstrapCases& cases,
                                       const ContinuousModelParameters& full,
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
  // The design and the outcome system stay fixed; a resample only changes the weights.
  Columns covariates(cases.p, Vector(cases.n));
  for (std::size_t i = 0; i < cases.n; ++i) {
    for (std::size_t j = 0; j < cases.p; ++j) covariates[j][i] = cases.covariates[i * cases.p + j];
  }
  const DesignMatrix mX = buildMediatorDesignMatrix(cases.exposure, covariates);
  const OutcomeDesign oD = buildOutcomeDesignMatrix(cases.exposure, cases.mediator, cases.outcome,
                                                    covariates, full.interaction);
  GlmOptions options = glmOptions(settings_);
  options.start = results.mediatorLogisticFit.coefficients;  // replicates start at the full fit
  const ReferencePoint ref = results.reference;
  const ReplicateFitter fit = [&](long, const Vector& w, bool firth) {
    ReplicateResult r;
    try {
      GlmOptions o = options;
      o.firth = firth;
      Vector beta, theta;
      if (!fitReplicateCoefficients(mX, cases.mediator, w, Family{GlmFamily::kBinomialLogit, 1.0},
                                    o, beta)) {
        r.reason = firth ? "Firth's penalized logistic regression failed to converge"
                         : "fitLogisticNR_Variant2 did not converge in bootstrap iteration";
        return r;
      }
      Matrix xtwx, inverse;
      Vector xtwy;
      computeXTWX_XTWY_diagonalWeights(oD.X, oD.y, w, xtwx, xtwy);
      if (!invertMatrix(xtwx, inverse)) {
        r.reason = "Outcome regression failed in bootstrap iteration.";
        return r;
      }
      theta = multiply(inverse, xtwy);
      const ContinuousModelParameters p = modelParameters(beta, theta, full.interaction);
      r.effects = computeBinaryMediatorEffects(p, ref);
      r.ok = true;
    } catch (const std::exception& e) {
      r.reason = std::string("fitLogisticNR_Variant2 threw in bootstrap: ") + e.what();
    }
    return r;
  };
  const bool firth = pilotBootstrap(cases, fit, settings_.seed, stop_, log);
  results.flags[FLAG_FIRTH_USED] = firth;
  stathost::ProcedureProgress progress("Bootstrap", nb, "replicates");
  const BinaryBootstrapRun run =
      mainBootstrap(cases, fit, nb, settings_.seed, firth, stop_, &progress, log);
  applyFailurePolicy(run, nb, log,
                     [this](const std::string& text) { messages_.GenericWarning(text); });
  const EffectEstimates fullEffects = computeBinaryMediatorEffects(full, ref);
  const auto summaries = summarizeBootstrap(run.store, fullEffects, level, log);
  printBootstrapSummary(std::cout, summaries, run, nb, level);
  std::vector<std::string> decomposition;
  for (std::size_t k = 0; k < 10; ++k) decomposition.push_back(kEffectFields[k].name);
  // A stopped run counts the replicates that ran, not those asked for.
  storeBootstrapSummaries(summaries, run.successes + run.failures, decomposition, results);
}

}  // namespace medanlys

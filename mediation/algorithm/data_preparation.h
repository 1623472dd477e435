// Data preparation shared by the strategies: reference levels, codings, transformations
// and validations. Free functions over vectors; none keeps state. Log lines are appended
// to `log`; a refusal throws FitError(user message, detail).
#pragma once

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "models/fit_error.h"

namespace medanlys {

using Vector = std::vector<double>;
using Log = std::vector<std::string>;

// ---- exposure levels -------------------------------------------------------------------

struct ExposureLevels {
  double a_star = 0.0;
  double a_hat = 0.0;
};
// BLEVEL/ELEVEL matched to an observed level within 1e-5; defaults are the two lowest
// levels.
ExposureLevels exposureLevels(const Vector& exposure, bool blevelGiven, double blevel,
                              bool elevelGiven, double elevel);

extern const char* const kZeroBaselineWarning;

// Levels outside the data or a contrast wider than 3 IQR are replaced by Q1 and Q3 (logged);
// `reason`, when given, receives why.
ExposureLevels checkExtrapolation(const Vector& exposure, ExposureLevels levels, Log& log,
                                  std::string* reason = nullptr);

// Carries the levels to the model scale of a "sqrt" or "log" transformed exposure.
ExposureLevels transformLevels(ExposureLevels levels, const std::string& transformation, Log& log);

// One value under a named transformation ("log", "sqrt", "reflected_log" with constant c,
// "power"); values outside a transformation's domain are left alone.
double transformValue(double x, const std::string& transformation, double reflection = NAN);

// Linear interpolation at (n - 1) p of the sorted values.
double quantile(Vector values, double p);

// ---- reference values --------------------------------------------------------------------

enum class MLevelKind { kMean, kMedian, kCustom };
double mStarContinuous(const Vector& mediator, const Vector* weights, MLevelKind kind,
                       bool haveValue, double value, Log& log);
// The custom value must lie within the mediator's range (continuous mediator, continuous
// outcome).
void checkMStarInRange(const Vector& mediator, double mStar);
double mStarBinary(const Vector& mediator, bool isValue, double value);

// c_star: for factor columns the mode (ties to the smaller value), for covariate columns
// the weighted mean. Columns are in design order; isFactor flags each.
Vector computeCStar(const std::vector<Vector>& columns, const std::vector<bool>& isFactor,
                    const Vector& weights, Log& log);

// ---- binary variables ----------------------------------------------------------------------

struct BinaryCoding {
  Vector coded;            // 0/1
  double reference = 0.0;  // original value coded 0
  double event = 1.0;      // original value coded 1
};
// Exactly two distinct values, the smaller becoming 0.
BinaryCoding detectBinary(const Vector& values, const std::string& label, Log& log);

enum class ReferenceRule { kFirst, kLast, kCustom };
// Codes the event as 1 by the reference rule (LAST and CUSTOM 1 flip the 0/1 coding).
Vector applyReferenceCoding(const Vector& coded01, ReferenceRule rule, double custom,
                            const std::string& label, Log& log);

// ---- validations -------------------------------------------------------------------------

void validateBinomialOutcome(const Vector& outcome, Log& log);
void validateCountOutcome(const Vector& outcome, Log& log);
void checkLogisticSampleSize(std::size_t n, std::size_t predictors, Log& log);
void checkGlmSampleSize(std::size_t n, std::size_t predictors, bool interaction, Log& log);
// NB >= 100 and 0 < level < 100.
void checkBootstrapParameters(int samples, double level, Log& log);
// The fewest replicate values whose percentile interval at `level` percent has both
// positions inside the sorted values (40 at 95%).
long minimumBootstrapReplicates(double level);

// ---- transformations ---------------------------------------------------------------------

struct TransformationRecord {
  std::string name = "none";
  double skewness = 0.0;
  // The variable's range before the transformation: the reflection constant of
  // "reflected_log" is the maximum, and levels are checked against the range as given.
  double minimum = NAN;
  double maximum = NAN;
};
using TransformationRecords = std::map<std::string, TransformationRecord>;

// Moment skewness, weighted when weights are given; 0 when the variance is 0.
double skewness(const Vector& x, const Vector* weights);
// Applies the skewness rule in place and returns what was done.
TransformationRecord transformBySkewness(Vector& x, const Vector* weights);

struct MediatorScaling {
  double factor = 1.0;
  double customMStar = NAN;  // the scaled custom m_star, when one was given
};
// Divides a mediator with a maximum above 1 by 10^max(floor(log10 max) - 1, 0).
MediatorScaling scaleMediator(Vector& mediator, bool customMStar, double mStar, Log& log);

// ---- weights and covariates ---------------------------------------------------------------

Vector prepareWeights(const Vector& weights, std::size_t n, const std::string& label, Log& log);
void checkCovariateCollinearity(const std::vector<Vector>& columns, const Vector* weights,
                                Log& log);

}  // namespace medanlys

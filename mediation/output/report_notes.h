// Footnotes that several tables and charts share: the confidence level and the bootstrap
// interval that the limits are, and what the analysis did to the user's variables before
// fitting (skewness transformations, the mediator's scaling, the case weights), so that a
// reader of the tables knows the scale of every number without reading the log.
#pragma once

#include <string>
#include <vector>

#include "output/output_context.h"

namespace medanlys {

// ---- confidence level and bootstrap interval ----------------------------------------------

// The level the bootstrap limits were computed at: that of BOOTSTRAP CRITERIA when the
// subcommand was given, else the CRITERIA level (CITYPE=BOOTSTRAP alone).
int bootstrapLevel(const MediationSettings& s);

// The bootstrap statistics that hold the limits of the interval the user chose.
struct IntervalKeys {
  const char* lower;
  const char* upper;
};
IntervalKeys bootstrapIntervalKeys(BootstrapInterval interval);

// The name of a bootstrap interval in a sentence.
std::string bootstrapIntervalName(BootstrapInterval interval);

// Names the bootstrap interval whose limits a table shows.
std::string bootstrapIntervalNote(BootstrapInterval interval);

// ---- transformations -----------------------------------------------------------------------

// The transformation of "Exposure", "Mediator" or "Outcome", or nullptr when the variable
// is on the user's scale.
const TransformationRecord* transformationOf(const OutputContext& out, const char* role);

// The transformed variable as a formula: "log(Y)", "sqrt(Y)", "log(11 - Y)", "Y squared".
std::string transformedFormula(const TransformationRecord& t, const std::string& variable);

bool reflected(const TransformationRecord* t);

// What a note is attached to: a model's coefficients, the reference values of the exposure
// statistics, effects on the outcome, or proportions of the total effect.
enum class NoteTarget { kModel, kReference, kEffects, kProportions };

// "The exposure A was transformed to sqrt(A) for its skewness: ..." or "" when it was not.
std::string exposureTransformNote(const OutputContext& out, NoteTarget target);

// "The mediator M was transformed to log(M) for its skewness: ..." or "".
std::string mediatorTransformNote(const OutputContext& out, NoteTarget target);

// "The outcome Y was transformed to log(11 - Y) for its skewness: ..." or "".
std::string outcomeTransformNote(const OutputContext& out, NoteTarget target);

// "The mediator M was divided by 100 before fitting; ..." or "" when it was not scaled.
std::string mediatorScaleNote(const OutputContext& out, NoteTarget target);

// ---- case weights --------------------------------------------------------------------------

// What the scale weight does in a table's numbers, in one sentence; "" without a weight.
// Linear models count a case of weight k as k cases in the coefficients and the robust
// (HC0) covariance, but their residual variance divides by the number of cases, so the
// model-based covariance is that of weights rescaled to sum to the number of cases. The
// logistic and generalised linear models count weights as cases throughout, and so does
// the mediator's residual variance inside the ratio effects of a binary or count outcome.
// The bootstrap draws as many cases as
// there are, so its spread is that of the number of cases.
enum class WeightNoteFor { kLinearModel, kGlmModel, kDeltaEffects, kBootstrapEffects };

std::string weightNote(const OutputContext& out, WeightNoteFor target);

// ---- proportions of the total effect -------------------------------------------------------

// "The total effect TE is not distinguishable from zero: ..." when the interval of the
// total effect that the proportions divide by contains 0 (TE for a continuous outcome,
// excRR_TE for a binary or count outcome), else "". The delta-method test is
// |TE| < z_c SE(TE) at the CRITERIA level; with `bootstrap` it is the bootstrap interval
// the tables show. A proportion of such a total effect can take any value, far outside
// 0-100% and of either sign, without meaning anything.
std::string totalEffectNote(const OutputContext& out, bool bootstrap);

// Appends the texts that are not empty.
void addNotes(std::vector<std::string>& footnotes, const std::vector<std::string>& notes);

}  // namespace medanlys

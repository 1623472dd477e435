#include "algorithm/model_scale.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "stathost/format.h"

namespace medanlys {
namespace {

std::string num(double v) { return stathost::formatShortest(v); }

// The transformed variable as a formula: "log(A)", "log(10 + 1 - A)", ...
std::string formula(const TransformationRecord& t, const std::string& variable) {
  if (t.name == "log") return "log(" + variable + ")";
  if (t.name == "sqrt") {
    return "sqrt(" + variable + ")" +
           (t.minimum < 0.0 ? " (values below 0 set to 0 before the root)" : "");
  }
  if (t.name == "reflected_log") return "log(" + num(t.maximum + 1.0) + " - " + variable + ")";
  if (t.name == "power") return variable + " squared";
  return variable;
}

}  // namespace

void addCovariateRoles(ModelColumns& columns, std::vector<ScaleRole>& roles) {
  for (std::size_t j = 0; j < columns.covariates.size(); ++j) {
    if (columns.isFactor[j]) continue;
    const std::string name = j < columns.labels.size() ? columns.labels[j] : "";
    roles.push_back({"Covariate_" + std::to_string(j), name, &columns.covariates[j]});
  }
}

void transformRoles(const std::vector<ScaleRole>& roles, const Vector* weights, bool enabled,
                    TransformationRecords& records) {
  for (const ScaleRole& role : roles) {
    records[role.key] =
        enabled ? transformBySkewness(*role.values, weights) : TransformationRecord();
  }
}

std::string transformationNotice(const std::vector<ScaleRole>& roles,
                                 const TransformationRecords& records) {
  std::string changes;
  bool squared = false;
  for (const ScaleRole& role : roles) {
    const auto it = records.find(role.key);
    if (it == records.end() || it->second.name == "none") continue;
    const TransformationRecord& t = it->second;
    if (!changes.empty()) changes += "; ";
    changes += role.variable + " to " + formula(t, role.variable) + " (skewness " +
               stathost::formatSignificant(t.skewness, 4) + ")";
    if (t.name == "reflected_log") {
      changes +=
          ", which reverses its direction: higher values on the new scale are lower "
          "values of " +
          role.variable;
      if (role.key == "Outcome") {
        changes += ", so an effect that raises " + role.variable + " is negative on this scale";
      } else if (role.key == "Mediator") {
        changes += ", so the coefficients of and on " + role.variable + " change sign";
      } else if (role.key == "Exposure") {
        changes +=
            " (BLEVEL and ELEVEL are carried to this scale, so the effects still compare "
            "the levels as given)";
      }
    }
    squared = squared || t.name == "power";
  }
  if (changes.empty()) return "";
  std::string notice =
      "Skewed variables were transformed before the models were fitted: " + changes +
      ". Coefficients and effects are on the transformed scales";
  if (squared) notice += "; squaring does not keep the order of values of opposite sign";
  return notice + ". /CRITERIA TRANSFORM=NONE keeps the variables as they are.";
}

ExposureLevels levelsOnModelScale(ExposureLevels levels, const TransformationRecord& exposure,
                                  const std::string& variable, Log& log) {
  const std::string& t = exposure.name;
  if (t == "log" || t == "sqrt") return transformLevels(levels, t, log);
  if (t != "reflected_log" && t != "power") return levels;
  const ExposureLevels original = levels;
  levels.a_star = transformValue(levels.a_star, t, exposure.maximum);
  levels.a_hat = transformValue(levels.a_hat, t, exposure.maximum);
  if (levels.a_star == levels.a_hat) {
    throw FitError("The exposure " + variable +
                       " was squared to correct its skewness, and its levels " +
                       num(original.a_star) + " and " + num(original.a_hat) +
                       " have the same square, so there is no contrast on the model's scale. "
                       "Choose levels of the same sign, or use /CRITERIA TRANSFORM=NONE.",
                   "Exposure levels coincide on the power scale");
  }
  log.push_back("BLEVEL " + t + "-transformed: " + num(original.a_star) + " -> " +
                num(levels.a_star));
  log.push_back("ELEVEL " + t + "-transformed: " + num(original.a_hat) + " -> " +
                num(levels.a_hat));
  return levels;
}

double mediatorLevelOnModelScale(double value, const TransformationRecord& mediator,
                                 const std::string& variable) {
  const std::string& t = mediator.name;
  const bool outside = (t == "log" && !(value > 0.0)) || (t == "sqrt" && value < 0.0);
  if (outside) {
    throw FitError("MLEVEL value " + num(value) + " cannot be used: the mediator " + variable +
                       " was transformed to " + formula(mediator, variable) +
                       " for its skewness, which is not defined there. Choose a value within "
                       "the mediator's range, or use /CRITERIA TRANSFORM=NONE.",
                   "MLEVEL value outside the domain of the mediator's transformation");
  }
  return transformValue(value, t, mediator.maximum);
}

std::string defaultLevelsNotice(const Vector& exposure, bool blevelGiven, bool elevelGiven,
                                const ExposureLevels& levels, const std::string& variable) {
  if (blevelGiven && elevelGiven) return "";
  Vector sorted = exposure;
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  if (sorted.size() <= 2) return "";
  // The observed values nearest to the quartiles of the data (not of the distinct values).
  auto nearest = [&sorted](double target) {
    const auto above = std::lower_bound(sorted.begin(), sorted.end(), target);
    if (above == sorted.begin()) return *above;
    if (above == sorted.end()) return sorted.back();
    return target - *(above - 1) <= *above - target ? *(above - 1) : *above;
  };
  double low = nearest(quantile(exposure, 0.25));
  double high = nearest(quantile(exposure, 0.75));
  if (high <= low) {  // both quartiles at one value: take its neighbour as well
    const auto at = std::lower_bound(sorted.begin(), sorted.end(), low);
    if (at + 1 != sorted.end()) {
      high = *(at + 1);
    } else {
      low = *(at - 1);
    }
  }
  const std::string which = !blevelGiven && !elevelGiven ? "BLEVEL and ELEVEL were"
                            : !blevelGiven               ? "BLEVEL was"
                                                         : "ELEVEL was";
  return which + std::string(" not given, so the control and treatment levels of ") + variable +
         " are " + num(levels.a_star) + " and " + num(levels.a_hat) +
         ", its two lowest observed values; the effects, and with the interaction their size, "
         "depend on that choice. Observed values near its quartiles are " +
         num(low) + " and " + num(high) + ": PREDICTORVAR=" + variable + "(BLEVEL=" + num(low) +
         " ELEVEL=" + num(high) + ") compares them.";
}

std::string extrapolationNotice(const ExposureLevels& asked, const ExposureLevels& used,
                                const std::string& reason, const std::string& variable) {
  if (asked.a_star == used.a_star && asked.a_hat == used.a_hat) return "";
  if (used.a_star == used.a_hat) {
    throw FitError("The exposure levels " + num(asked.a_star) + " and " + num(asked.a_hat) +
                       " of " + variable + " were not used because " + reason +
                       ", and its quartiles, which would replace them, are equal (" +
                       stathost::formatSignificant(used.a_star, 6) +
                       "), so no contrast is left to estimate. Give BLEVEL and ELEVEL inside the "
                       "data and closer together.",
                   "Extrapolation repair leaves no exposure contrast (Q1 = Q3)");
  }
  return "The exposure levels " + num(asked.a_star) + " and " + num(asked.a_hat) + " of " +
         variable + " were replaced because " + reason + ": the analysis uses its quartiles " +
         stathost::formatSignificant(used.a_star, 6) + " (a*) and " +
         stathost::formatSignificant(used.a_hat, 6) +
         " (a) instead. Give BLEVEL and ELEVEL inside the data for the contrast you want.";
}

}  // namespace medanlys

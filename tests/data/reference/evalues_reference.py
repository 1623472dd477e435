#!/usr/bin/env python3
"""Reference E-values for the sensitivity analysis tests, computed outside the program.

E-values as VanderWeele and Ding (2017, Annals of Internal Medicine 167:268-274) define
them: for a risk ratio RR >= 1, E = RR + sqrt(RR * (RR - 1)); below 1 the same formula is
applied to 1/RR. The E-value of a confidence interval is that of the limit closer to 1, or
1 when the interval contains 1.

Risk-ratio scale of each kind of effect (VanderWeele and Ding 2017, Table):
  - risk ratio (binary outcome, log link): as it is;
  - odds ratio of a rare outcome (events in at most 10% of the total weight): as it is;
  - odds ratio of a common outcome: sqrt(OR);
  - rate ratio of a count outcome: as it is;
  - difference of a continuous outcome: exp(0.91 * d) with d = difference / SD(outcome).

The effects and their 95% limits are those R computed on the reference data (the JSON of
each data set beside this script): the closed forms evaluated in R at the exact fits
("lab_closed_form", the delta method of docs/statistics.md, Var(sigma^2) included) where
the data set has them, else R's regmedint ("regmedint"). SD(outcome) and the event share
are those of the data summaries there, so that no number here comes from the program.
Only the Python standard library is used.

Run from this folder:  python3 evalues_reference.py  (writes evalues.json)
"""

import json
import math
import os

HERE = os.path.dirname(os.path.abspath(__file__))
RARE_SHARE = 0.10       # events above this share of the total weight: a common outcome
STANDARDISED = 0.91     # log RR per unit of standardised difference


def evalue(rr):
    if not (rr > 0 and math.isfinite(rr)):
        return float("nan")
    if rr < 1:
        rr = 1 / rr
    return rr + math.sqrt(rr * (rr - 1))


def evalue_of_limit(lower, upper):
    if not (math.isfinite(lower) and math.isfinite(upper)):
        return float("nan")
    if lower > 1:
        return evalue(lower)
    if upper < 1:
        return evalue(upper)
    return 1.0


def to_risk_ratio(value, conversion, sd=None):
    if conversion == "standardised_difference":
        return math.exp(STANDARDISED * value / sd)
    if conversion == "common_outcome_odds":
        return math.sqrt(value)
    return value  # risk ratio, rare-outcome odds ratio, rate ratio


# regmedint's names of the effects and the program's.
EFFECTS = [("cde", "CDE"), ("pnde", "NDE"), ("tnie", "NIE"), ("te", "TE"), ("pnie", "PIE"),
           ("tnde", "TDE")]

# One configuration of each kind of outcome of the reference data (and both sides of the
# rare-outcome rule): data set, configuration id, the analysis, the program's effect prefix.
CONFIGURATIONS = [
    ("nn_binA", "linear_linear_interaction", "continuous", ""),
    ("bn", "logistic_linear_interaction", "continuous", ""),
    ("nb_logit", "linear_logistic_interaction", "binary_logit", "OR_"),
    ("nb_common", "linear_logistic_interaction", "binary_logit", "OR_"),
    ("nb_common", "linear_logbinomial_interaction", "binary_log", "RR_"),
    ("np_count", "linear_poisson_interaction", "count", "IRR_"),
]

# Ratios and intervals chosen to reach every branch of the two formulas.
FORMULA_CASES = [
    (1.0, 0.8, 1.25), (1.5, 1.1, 2.0), (2.0, 0.9, 4.0), (0.5, 0.3, 0.8), (0.8, 0.5, 1.1),
    (3.9, 1.000001, 12.0), (0.25, 0.1, 0.999), (1.0000001, 0.99, 1.01), (25.0, 10.0, 60.0),
    (0.04, 0.01, 0.2),
]


def configuration(dataset, config_id, analysis, prefix):
    with open(os.path.join(HERE, dataset + ".json")) as f:
        values = json.load(f)
    config = next(c for c in values["configs"] if c["id"] == config_id)
    closed_form = "lab_closed_form" in config
    effects = config["lab_closed_form" if closed_form else "regmedint"]["effects"]
    summary = values["data_summary"]["Y"]
    out = {"dataset": dataset, "config": config_id, "analysis": analysis,
           "interaction": config["interaction"],
           "effects_from": "lab_closed_form" if closed_form else "regmedint", "effects": []}
    sd = None
    if analysis == "continuous":
        sd = summary["sd"]
        conversion = "standardised_difference"
        out["outcome_sd"] = sd
    elif analysis == "binary_logit":
        share = values["reference_values"]["outcome_prevalence_or_mean"]
        out["event_share"] = share
        conversion = "common_outcome_odds" if share > RARE_SHARE else "rare_outcome_odds"
    elif analysis == "binary_log":
        conversion = "risk_ratio"
    else:
        conversion = "rate_ratio"
    out["conversion"] = conversion
    ratio = analysis != "continuous"
    for r_name, name in EFFECTS:
        if ratio and name == "TDE":
            continue  # not among the ratio effects of the decomposition table
        if closed_form:
            e = effects.get(prefix + name)
            if e is None:
                continue  # TDE is not among the closed forms of a continuous outcome
            estimate, lower, upper = e["est"], e["lower95"], e["upper95"]  # ratios as ratios
        else:
            e = effects[r_name]
            estimate = e["exp_est"] if ratio else e["est"]
            lower = e["exp_lower95"] if ratio else e["lower95"]
            upper = e["exp_upper95"] if ratio else e["upper95"]
        rr = to_risk_ratio(estimate, conversion, sd)
        rr_lower = to_risk_ratio(lower, conversion, sd)
        rr_upper = to_risk_ratio(upper, conversion, sd)
        out["effects"].append({
            "effect": name, "key": prefix + name,
            "estimate": estimate, "lower": lower, "upper": upper,
            "rr": rr, "rr_lower": rr_lower, "rr_upper": rr_upper,
            "evalue": evalue(rr), "evalue_limit": evalue_of_limit(rr_lower, rr_upper)})
    return out


def main():
    document = {
        "source": "evalues_reference.py: closed forms of VanderWeele and Ding (2017) in "
                  "Python's math module, on effects computed by R's regmedint",
        "formula": [{"rr": rr, "lower": lo, "upper": hi, "evalue": evalue(rr),
                     "evalue_limit": evalue_of_limit(lo, hi)}
                    for rr, lo, hi in FORMULA_CASES],
        "configurations": [configuration(*c) for c in CONFIGURATIONS],
    }
    with open(os.path.join(HERE, "evalues.json"), "w") as f:
        json.dump(document, f, indent=1)
        f.write("\n")


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Writes the results of a study run into docs/validation.md and draws the coverage plot.

    validation/report.py build-validation/summary.json

The tables go between the lines `<!-- results:begin -->` and `<!-- results:end -->` of
docs/validation.md (the text around them is kept); the plot is
docs/validation-coverage.png (needs python3-matplotlib).
"""

import argparse
import json
import math
import os
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import dgp  # noqa: E402
import summary  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BEGIN, END = "<!-- results:begin -->", "<!-- results:end -->"
COLUMNS = ("delta", "percentile", "bca", "normal", "efron_bca")
HEADERS = ("delta", "percentile", "BCa (program)", "normal", "BCa (Efron)")
# The table adds the delta method on the bootstrapped data sets, next to the bootstrap.
TABLE_COLUMNS = ("delta", "delta_on_bootstrap_sets") + COLUMNS[1:]
TABLE_HEADERS = ("delta", "delta, bootstrapped sets") + HEADERS[1:]


def _cov(c, nominal=0.95):
    """Coverage in percent with its binomial SE; bold when more than three binomial SEs
    (at the nominal level) from it."""
    if not c:
        return "–"
    text = "%.1f ± %.1f" % (100 * c["coverage"], 100 * c["binomial_se"])
    if abs(c["coverage"] - nominal) > 3 * math.sqrt(nominal * (1 - nominal) / c["n"]):
        text = "**%s**" % text
    return text


def _num(x, digits=3):
    if x is None or not math.isfinite(x):
        return "–"
    if abs(x) >= 1000:
        return "%.0f" % x
    return "%.*f" % (digits, x)


def scenario_table():
    lines = ["| scenario | data | mediator model | outcome model |", "|---|---|---|---|"]
    for s in dgp.SCENARIOS:
        b = "%g, %g, %g" % s.beta
        t0, t1, t2, t3, t4 = s.theta
        t = "%g, %g, %g, %s%g" % (t0, t1, t2, ("%g, " % t3) if s.interaction else "", t4)
        if s.strategy == "bn":
            med = "logit P(M=1) = (%s)·(1, A, C)" % b
        else:
            med = "M = (%s)·(1, A, C) + e, SD(e) = %g%s" % (
                b, s.sigma_m, " (discrete e)" if s.discrete else "")
        cols = "1, A, M, AM, C" if s.interaction else "1, A, M, C"
        out = {"normal": "Y = (%s)·(%s) + e, SD(e) = %g%s" % (
                   t, cols, s.sigma_y, " (discrete e)" if s.discrete else ""),
               "logit": "logit P(Y=1) = (%s)·(%s)" % (t, cols),
               "poisson": "log E[Y] = (%s)·(%s), Poisson" % (t, cols)}[s.outcome]
        lines.append("| `%s` | %s | %s | %s |" % (s.name, s.title, med, out))
    return "\n".join(lines)


def results_tables(result):
    run = result.get("run", {})
    out = []
    for sc in result["scenarios"]:
        s = dgp.SCENARIO_BY_NAME[sc["name"]]
        out.append("#### `%s`: %s\n" % (sc["name"], sc["title"]))
        facts = ["R = %d data sets (delta method), %d bootstrapped (NB = %d)" % (
            sc["reps_delta"], sc["reps_boot"], run.get("nb", 1000))]
        if sc["delta_failures"]:
            facts.append("the analysis failed on %d data sets (%s)" % (
                sc["delta_failures"], "; ".join(m[:90] for m in sc["failure_messages"][:1])))
        if sc["bootstrap_failures"]:
            facts.append("the bootstrap failed on %d of the bootstrapped data sets"
                         % sc["bootstrap_failures"])
        if sc.get("rare_warning_share") is not None and s.outcome == "logit":
            facts.append("the common-outcome warning appeared in %.1f%% of the data sets"
                         % (100 * sc["rare_warning_share"]))
        if sc.get("study_failures"):
            facts.append("in %d bootstrapped data sets the maximum-likelihood fit does not exist "
                         "(quasi-separation), so the study has no Efron BCa there"
                         % sc["study_failures"])
        if "firth_share_program" in sc:
            facts.append("Firth's penalty switched on in %.1f%% of the program's bootstraps "
                         "(%.1f%% of the study's)" % (100 * sc["firth_share_program"],
                                                      100 * sc["firth_share_study"]))
        if s.aggregated and "mean_records" in sc:
            facts.append("%.0f units in %.0f records on average (weight sum / records = %.2f)"
                         % (sc["mean_units"], sc["mean_records"],
                            sc["mean_units"] / sc["mean_records"]))
        out.append("; ".join(facts) + ".\n")
        out.append("| effect | truth | bias | SD | SE/SD delta | SE/SD boot | "
                   + " | ".join(TABLE_HEADERS) + " |")
        out.append("|---|---:|---:|---:|---:|---:|" + "---:|" * len(TABLE_HEADERS))
        for e, er in sc["effects"].items():
            label = e.replace("R_", s.ratio_label()) if dgp.is_ratio_effect(e) else e
            if not er.get("reported"):
                out.append("| %s | %s | not in the report (no interaction table without "
                           "the interaction) |%s" % (label, _num(er["truth_mean"]),
                                                     " |" * (len(TABLE_HEADERS) + 3)))
                continue
            est, boot = er["estimate"], er.get("bootstrap_estimate", {})
            if e == "PM":  # heavy tails: median bias, IQR-based SD, median SE over it
                label += "†"
                bias, sd = est.get("median_bias"), est.get("robust_sd")
                r_delta, r_boot = est.get("robust_se_ratio"), boot.get("robust_se_ratio")
            else:
                bias, sd = est.get("bias"), est.get("sd")
                r_delta, r_boot = est.get("se_ratio"), boot.get("se_ratio")
            if dgp.is_ratio_effect(e):
                label += "*"
            boot_text = _num(r_boot, 2)
            if e != "PM" and r_boot is not None and r_boot > 2 and "robust_se_ratio" in boot:
                boot_text = _num(boot["robust_se_ratio"], 2) + "‡"
            cells = [label, _num(er["truth_mean"]), _num(bias), _num(sd), _num(r_delta, 2),
                     boot_text] + [_cov(er.get(k)) for k in TABLE_COLUMNS]
            out.append("| " + " | ".join(cells) + " |")
        out.append("")
    out.append("\\* bias and SD of log(estimate) − log(truth); SE on the log scale. "
               "† median bias, SD from the interquartile range (IQR/1.349) and median SE over "
               "it (the proportion mediated has heavy tails when TE is near 0). ‡ median "
               "bootstrap SE over the IQR-based SD: the mean bootstrap SE is dominated by a few "
               "data sets with extreme replicates. SE/SD boot uses the program's bootstrap SE "
               "(for ratios SD(log R_b) = log R / z). Coverage in percent ± its binomial "
               "standard error; **bold**: more than three binomial standard errors (at 95%) "
               "from 95%. \"delta, bootstrapped sets\": the delta method on the data sets that "
               "were bootstrapped, to compare the bootstrap intervals with on the same data.")
    return "\n".join(out)


def write_docs(result, path):
    with open(path) as f:
        text = f.read()
    if BEGIN not in text or END not in text:
        raise SystemExit("%s has no %s ... %s section" % (path, BEGIN, END))
    head, rest = text.split(BEGIN, 1)
    _, tail = rest.split(END, 1)
    run = result.get("run", {})
    body = ["", "Generated by `validation/report.py` from a run of %.0f minutes with %d jobs."
            % (run.get("seconds", 0) / 60, run.get("jobs", 0)), "",
            "### Scenarios", "", scenario_table(), "", "### Results", "",
            results_tables(result), ""]
    with open(path, "w") as f:
        f.write(head + BEGIN + "\n".join(body) + END + tail)


PANELS = (("CDE", ("CDE", "R_CDE")), ("NDE", ("NDE", "R_NDE")), ("NIE", ("NIE", "R_NIE")),
          ("TE", ("TE", "R_TE")), ("PM", ("PM",)), ("excRR_CDE", ("excRR_CDE",)),
          ("excRR_INTref", ("excRR_INTref",)), ("excRR_INTmed", ("excRR_INTmed",)),
          ("excRR_PIE", ("excRR_PIE",)))
STYLE = {"delta": ("o", "#1f77b4"), "percentile": ("s", "#2ca02c"),
         "bca": ("D", "#d62728"), "normal": ("^", "#9467bd"), "efron_bca": ("v", "#ff7f0e")}


def plot(result, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    scs = result["scenarios"]
    ratio = [sc for sc in scs if sc["strategy"] == "ratio"]
    fig = plt.figure(figsize=(15, 9.5))
    grid = fig.add_gridspec(2, 5, height_ratios=[len(scs), max(len(ratio), 1) + 1.5],
                            hspace=0.25, wspace=0.08)
    lo_x = 75.0
    for p, (title, names) in enumerate(PANELS):
        row, col = (0, p) if p < 5 else (1, p - 5)
        ax = fig.add_subplot(grid[row, col])
        rows = scs if row == 0 else ratio
        n_boot = max([sc["reps_boot"] for sc in rows] + [1])
        band = 3 * math.sqrt(0.95 * 0.05 / n_boot) * 100
        ax.axvspan(95 - band, 95 + band, color="0.9")
        ax.axvline(95, color="0.4", lw=0.8)
        for i, sc in enumerate(rows):
            er = next((sc["effects"][n] for n in names if n in sc["effects"]), None)
            if not er or not er.get("reported"):
                continue
            for j, k in enumerate(COLUMNS):
                c = er.get(k)
                if not c:
                    continue
                y = i + (j - 2) * 0.14
                x = 100 * c["coverage"]
                marker, color = STYLE[k]
                if x < lo_x:
                    ax.plot(lo_x + 0.6, y, marker="<", color=color, ms=5)
                else:
                    ax.plot(x, y, marker=marker, color=color, ms=4, ls="none")
        ax.set_ylim(len(rows) - 0.5, -0.5)
        ax.set_xlim(lo_x, 100.5)
        ax.set_yticks(range(len(rows)))
        ax.set_yticklabels([sc["name"] for sc in rows] if col == 0 else [], fontsize=8)
        ax.set_title(title, fontsize=10)
        ax.tick_params(axis="x", labelsize=8)
        ax.grid(axis="y", color="0.93", lw=0.5)
        if row == 1:
            ax.set_xlabel("coverage (%)", fontsize=8)
    handles = [plt.Line2D([], [], marker=STYLE[k][0], color=STYLE[k][1], ls="none", label=h)
               for k, h in zip(COLUMNS, HEADERS)]
    fig.legend(handles=handles, loc="lower right", bbox_to_anchor=(0.9, 0.06), fontsize=9,
               title="95% interval", title_fontsize=9)
    fig.suptitle("Coverage of 95%% intervals per scenario and effect (grey: 95%% ± 3 binomial "
                 "SEs at the bootstrap R = %d; ◀: below %d%%)" % (n_boot, lo_x), fontsize=11)
    fig.savefig(path, dpi=110, bbox_inches="tight")


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("summary", help="summary.json of a study run")
    ap.add_argument("--docs", default=os.path.join(ROOT, "docs", "validation.md"))
    ap.add_argument("--plot", default=os.path.join(ROOT, "docs", "validation-coverage.png"))
    args = ap.parse_args()
    with open(args.summary) as f:
        result = json.load(f)
    write_docs(result, args.docs)
    plot(result, args.plot)
    print("wrote %s and %s" % (args.docs, args.plot))
    print(summary.text_table(result))


if __name__ == "__main__":
    main()

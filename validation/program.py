"""Runs medanlys on stacked simulated data sets and reads the numbers from report.json.

R data sets go into one CSV file with a column `rep`; `--split rep` makes the program
analyse each data set as its own split group, so one process start serves many data
sets. A command file holds the delta-method command and, when the bootstrap is wanted,
one bootstrap command per interval kind (the tables show the interval that
`/BOOTSTRAP CRITERIA(INTERVAL=...)` names). With `--threads 1` and one SEED, the three
bootstrap commands draw the same replicates, so their three intervals come from one
bootstrap distribution.
"""

import json
import os
import subprocess

import numpy as np

from dgp import ADDITIVE_EFFECTS

BOOTSTRAP_KINDS = ("percentile", "bca", "normal")


def write_csv(path, datasets):
    """datasets: list of (rep, data dict). Values are written with 17 significant digits,
    so the program reads the very doubles the study holds."""
    weighted = "W" in datasets[0][1]
    columns = ["A", "M", "Y", "C"] + (["W"] if weighted else [])
    blocks = []
    for rep, data in datasets:
        n = len(data["A"])
        block = np.column_stack([np.full(n, float(rep))] + [data[c] for c in columns])
        blocks.append(block)
    table = np.vstack(blocks)
    with open(path, "w") as f:
        f.write(",".join(["rep"] + columns) + "\n")
        np.savetxt(f, table, delimiter=",", fmt="%.17g")


def command(scenario, bootstrap=None, nb=1000, seed=2000000, level=95):
    """The MEDIATION ANALYSIS command of a scenario: delta method, or the bootstrap with
    the interval kind `bootstrap` ("percentile", "bca" or "normal")."""
    s = scenario
    interaction = "TRUE" if s.interaction else "FALSE"
    if s.strategy == "bn":
        mediator = "M(MLEVEL=VALUE(%g))" % s.m_star
        references = " MED_REFERENCE=FIRST"
        medmodel = "DISTRIBUTION=BINOMIAL LINK=LOGIT"
    else:
        mediator = "M(MLEVEL=VALUE(%g))" % s.m_star
        references = ""
        medmodel = "DISTRIBUTION=NORMAL LINK=IDENTITY"
    if s.aggregated:
        medmodel += " SCALEWEIGHT=W"
    if s.outcome == "normal":
        outmodel = "DISTRIBUTION=NORMAL LINK=IDENTITY"
    elif s.outcome == "logit":
        outmodel = "DISTRIBUTION=BINOMIAL LINK=LOGIT"
        references += " OUT_REFERENCE=FIRST"
    else:
        outmodel = "DISTRIBUTION=POISSON LINK=LOG"
    citype = "BOOTSTRAP" if bootstrap else "DELTA"
    lines = [
        "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=%s" % mediator,
        "    PREDICTORVAR=A(BLEVEL=0 ELEVEL=1 INTERACTION=%s)%s WITH C" % (interaction, references),
        "  /MEDMODEL %s" % medmodel,
        "  /OUTMODEL %s" % outmodel,
        "  /CRITERIA CILEVEL=%d CITYPE=%s COVB=MODEL ANALYSISTYPE=CAUSAL TRANSFORM=NONE"
        % (level, citype),
        "  /PRINT EXPOSURE_STATS DECOMP_RESULTS INTERACTION_EFFECTS RATIO_STATS",
    ]
    if bootstrap:
        lines.append("  /BOOTSTRAP CRITERIA(CILEVEL=%d NSAMPLES=%d SEED=%d INTERVAL=%s)"
                     % (level, nb, seed, bootstrap.upper()))
    return "\n".join(lines) + ".\n"


def command_file(scenario, bootstrap_kinds=(), nb=1000, seed=2000000):
    """Text of the command file and the label of the command starting on each line."""
    text, labels, line = "", {}, 1
    for kind in ("delta",) + tuple(bootstrap_kinds):
        cmd = command(scenario, None if kind == "delta" else kind, nb=nb, seed=seed)
        labels[line] = kind
        text += cmd
        line += cmd.count("\n")
    return text, labels


def run(binary, csv_path, syntax_path, out_dir, verbose=False, timeout=None):
    """Runs the program; returns the parsed report.json. Standard output (text tables are
    not asked for, but a bootstrap may print its summary there) is discarded."""
    args = [binary, "run", "--data", csv_path, "--syntax", syntax_path, "--format", "json",
            "--out", out_dir, "--split", "rep", "--threads", "1"]
    if verbose:
        args.append("--verbose")
    env = dict(os.environ, OMP_NUM_THREADS="1")
    with open(os.path.join(out_dir, "stderr.txt"), "w") as err:
        proc = subprocess.run(args, stdout=subprocess.DEVNULL, stderr=err, env=env,
                              timeout=timeout)
    path = os.path.join(out_dir, "report.json")
    if not os.path.exists(path):
        raise RuntimeError("medanlys wrote no report (exit %d); see %s"
                           % (proc.returncode, os.path.join(out_dir, "stderr.txt")))
    with open(path) as f:
        return json.load(f)


def _effect_name(label, table_title):
    """Row label of a report table -> the study's effect name (None: not studied)."""
    if table_title.startswith("Ratio Statistics"):
        return "PM" if label.startswith("PM ") else None
    for prefix in ("OR_", "RR_", "IRR_"):
        if label.startswith(prefix):
            rest = label[len(prefix):]
            return "R_" + rest if rest in ("CDE", "NDE", "NIE", "TE") else None
    if label.startswith("excRR_"):
        return label if label in ("excRR_CDE", "excRR_PIE", "excRR_INTref",
                                  "excRR_INTmed") else None
    return label if label in ADDITIVE_EFFECTS else None


_COLUMN = {"Estimate": "est", "SE": "se", "z": "z", "p-value": "p", "Lower": "lo", "Upper": "hi"}


def _value(cell):
    v = cell.get("value")
    return float("nan") if v is None else float(v)


def parse(report, labels):
    """{rep: {kind: result}} with result = dict(status, warnings, effects, c_star_text,
    log, tables): effects maps an effect name to {est, se, z, p, lo, hi}."""
    out = {}
    for run_ in report.get("runs", []):
        kind = labels.get(run_.get("line"))
        split = run_.get("split") or {}
        values = split.get("values") or []
        if kind is None or not values:
            continue
        rep = int(round(values[0]["value"]))
        res = {"status": run_.get("status"), "effects": {}, "warnings": [], "errors": [],
               "c_star_text": None, "log": "", "tables": []}
        for m in run_.get("messages", []):
            (res["errors"] if m.get("level") == "error" else res["warnings"]).append(m["text"])
        for item in run_.get("items", []):
            if item.get("type") == "text":
                res["log"] += item.get("text", "") + "\n"
                continue
            if item.get("type") != "table":
                continue
            title = item.get("title", "")
            res["tables"].append(title)
            if title.startswith("Exposure Level Comparison"):
                for row, cells in zip(item["rows"], item["cells"]):
                    if row[-1] == "Covariate reference" and len(cells) > 1:
                        res["c_star_text"] = cells[1].get("text")
                continue
            if not (title.startswith("Decomposition Analysis")
                    or title.startswith("Interaction Effects")
                    or title.startswith("Ratio Statistics")):
                continue
            keys = [_COLUMN.get(c[-1]) for c in item["columns"]]
            for row, cells in zip(item["rows"], item["cells"]):
                name = _effect_name(row[-1], title)
                if name is None:
                    continue
                res["effects"][name] = {k: _value(c) for k, c in zip(keys, cells) if k}
        out.setdefault(rep, {})[kind] = res
    return out

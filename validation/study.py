#!/usr/bin/python3
"""The simulation study: draws data sets from the scenarios of dgp.py, analyses each with
medanlys (delta method; bootstrap with its percentile, BCa and normal intervals), computes
Efron's BCa beside them (estimator.py), and summarises bias, SE and coverage per
scenario, effect and interval (summary.py).

    validation/study.py --binary build/app/medanlys --out build-validation
    validation/study.py --small --check      # the CI version (see README.md)

Data set r of a scenario is drawn from numpy's PCG64 seeded with (scenario seed, r), so a
data set is the same whatever the number of data sets or jobs. Results go to
OUT/records/<scenario>.jsonl, one line per data set; a run that is stopped can be
started again with the same arguments and continues where it stopped.
"""

import os

os.environ.setdefault("OMP_NUM_THREADS", "1")
os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")

import argparse  # noqa: E402
import json  # noqa: E402
import multiprocessing  # noqa: E402
import shutil  # noqa: E402
import sys  # noqa: E402
import tempfile  # noqa: E402
import time  # noqa: E402

import numpy as np  # noqa: E402

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import dgp  # noqa: E402
import estimator  # noqa: E402
import program  # noqa: E402
import summary  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)

# The CI version: few scenarios, 200 data sets each, every interval.
SMALL_SCENARIOS = ("nn-int-200", "bn-int-200", "irr-200", "or-common-200")
RARE_WARNING = "The outcome is not rare"


def _finite(x):
    return x is not None and np.isfinite(x)


def analyse_chunk(task):
    """Runs the program on the data sets `reps` of one scenario and computes the study's
    own intervals; returns one record per data set."""
    s = dgp.SCENARIO_BY_NAME[task["scenario"]]
    reps, boot, nb = task["reps"], task["boot"], task["nb"]
    work = tempfile.mkdtemp(prefix="medanlys-validation-")
    try:
        datasets = [(r, s.generate(np.random.default_rng([s.seed, r]))) for r in reps]
        csv = os.path.join(work, "data.csv")
        program.write_csv(csv, datasets)
        kinds = program.BOOTSTRAP_KINDS if boot else ()
        text, labels = program.command_file(s, kinds, nb=nb, seed=task["program_seed"])
        syntax = os.path.join(work, "commands.sps")
        with open(syntax, "w") as f:
            f.write(text)
        t0 = time.time()
        report = program.run(task["binary"], csv, syntax, work,
                             verbose=boot and s.strategy == "bn")
        program_seconds = time.time() - t0
        parsed = program.parse(report, labels)
        records = []
        t0 = time.time()
        for r, data in datasets:
            w = data.get("W", np.ones_like(data["A"]))
            c_star = float(np.sum(w * data["C"]) / np.sum(w))
            rec = {"rep": r, "boot": boot, "c_star": c_star, "truth": s.truth(c_star),
                   "units": float(w.sum()), "records": int(len(w)), "program": {}}
            for kind in ("delta",) + kinds:
                res = parsed.get(r, {}).get(kind)
                if res is None:
                    rec["program"][kind] = {"status": "missing"}
                    continue
                rec["program"][kind] = {
                    "status": res["status"],
                    "effects": res["effects"],
                    "errors": res["errors"][:2],
                    "warnings": sorted({t[:120] for t in res["warnings"]}),
                    "rare_warning": any(RARE_WARNING in t for t in res["warnings"]),
                    "firth": "enabling Firth" in res["log"],
                    "bootstrap_table": any("(Bootstrap method)" in t for t in res["tables"]),
                    "c_star_text": res["c_star_text"],
                }
            if boot:
                stat = estimator.Statistic(s, data, c_star)
                full = stat.full()
                study = {"ok": full is not None}
                if full is not None:
                    delta = rec["program"]["delta"].get("effects", {})
                    diffs = [abs(v - delta[k]["est"]) / max(abs(delta[k]["est"]), 1e-8)
                             for k, v in full.items()
                             if k in delta and _finite(delta[k]["est"]) and np.isfinite(v)]
                    study["max_rel_diff"] = max(diffs) if diffs else None
                    study["estimates"] = full
                    rng = np.random.default_rng([s.seed, r, 1])
                    study["intervals"] = estimator.study_intervals(stat, full, rng, nb)
                rec["study"] = study
            records.append(rec)
        study_seconds = time.time() - t0
        for rec in records:
            rec["seconds"] = {"program": program_seconds / len(records),
                              "study": study_seconds / len(records)}
        return task["scenario"], records
    finally:
        shutil.rmtree(work, ignore_errors=True)


def _done(path):
    done = {}
    if os.path.exists(path):
        with open(path) as f:
            for line in f:
                try:
                    rec = json.loads(line)
                except json.JSONDecodeError:
                    continue  # a line cut short by a stop
                done[rec["rep"]] = rec["boot"] or done.get(rec["rep"], False)
    return done


def plan(scenarios, reps_delta, reps_boot, nb, binary, out, chunk_delta, chunk_boot):
    """Tasks for the data sets not yet in OUT/records: the delta method on data sets
    0..reps_delta-1, and the bootstrap (with the delta method again) on 0..reps_boot-1.
    The delta method runs on its own first, so that a run stopped during the long
    bootstrap part has every delta-method data set."""
    tasks = []
    for name in scenarios:
        s = dgp.SCENARIO_BY_NAME[name]
        done = _done(os.path.join(out, "records", name + ".jsonl"))
        todo_boot = [r for r in range(reps_boot) if not done.get(r, False)]
        todo_delta = [r for r in range(reps_delta) if r not in done]
        for reps, boot, size in ((todo_boot, True, chunk_boot), (todo_delta, False, chunk_delta)):
            for k in range(0, len(reps), size):
                part = reps[k:k + size]
                tasks.append({"scenario": name, "reps": part, "boot": boot, "nb": nb,
                              "binary": binary, "program_seed": 1000 * s.seed + part[0]})
    # The delta method first (it is cheap); then the bootstrap tasks data set by data set
    # across the scenarios, so that a run stopped early leaves every scenario with about
    # the same number of bootstrapped data sets; within a round the expensive ones first.
    tasks.sort(key=lambda t: (t["boot"], t["reps"][0],
                              -len(t["reps"]) * dgp.SCENARIO_BY_NAME[t["scenario"]].n))
    return tasks


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--binary", default=os.path.join(ROOT, "build", "app", "medanlys"))
    ap.add_argument("--out", default=os.path.join(ROOT, "build-validation"))
    ap.add_argument("--scenarios", default="all", help="comma-separated names, or 'all'")
    ap.add_argument("--reps-delta", type=int, default=1000, help="data sets per scenario")
    ap.add_argument("--reps-boot", type=int, default=500,
                    help="of these, data sets that are also bootstrapped")
    ap.add_argument("--nb", type=int, default=1000, help="bootstrap replicates")
    ap.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    ap.add_argument("--chunk-delta", type=int, default=100)
    ap.add_argument("--chunk-boot", type=int, default=10)
    ap.add_argument("--small", action="store_true",
                    help="the CI version: scenarios %s, 200 data sets" % ", ".join(SMALL_SCENARIOS))
    ap.add_argument("--check", action="store_true",
                    help="fail unless the checks of summary.py hold")
    ap.add_argument("--fresh", action="store_true", help="discard earlier records in OUT")
    args = ap.parse_args(argv)

    if args.small:
        scenarios = list(SMALL_SCENARIOS)
        args.reps_delta = args.reps_boot = 200
    elif args.scenarios == "all":
        scenarios = [s.name for s in dgp.SCENARIOS]
    else:
        scenarios = args.scenarios.split(",")
        unknown = [n for n in scenarios if n not in dgp.SCENARIO_BY_NAME]
        if unknown:
            ap.error("unknown scenario(s): %s" % ", ".join(unknown))
    if not os.access(args.binary, os.X_OK):
        ap.error("no program at %s (build it, or give --binary)" % args.binary)
    args.binary = os.path.abspath(args.binary)
    records_dir = os.path.join(args.out, "records")
    if args.fresh:
        shutil.rmtree(records_dir, ignore_errors=True)
    os.makedirs(records_dir, exist_ok=True)

    tasks = plan(scenarios, args.reps_delta, args.reps_boot, args.nb, args.binary, args.out,
                 args.chunk_delta, args.chunk_boot)
    start = time.time()
    total = sum(len(t["reps"]) for t in tasks)
    done = 0
    print("%d data sets to analyse in %d tasks, %d jobs" % (total, len(tasks), args.jobs),
          flush=True)
    with multiprocessing.Pool(args.jobs) as pool:
        for name, records in pool.imap_unordered(analyse_chunk, tasks):
            with open(os.path.join(records_dir, name + ".jsonl"), "a") as f:
                for rec in records:
                    f.write(json.dumps(rec) + "\n")
            done += len(records)
            print("  %-16s %4d data sets (%s)  %d/%d done, %.0f s" % (
                name, len(records), "bootstrap" if records[0]["boot"] else "delta", done, total,
                time.time() - start), flush=True)
    elapsed = time.time() - start

    result = summary.summarise(args.out, scenarios)
    result["run"] = {"seconds": elapsed, "jobs": args.jobs, "nb": args.nb,
                     "reps_delta": args.reps_delta, "reps_boot": args.reps_boot}
    with open(os.path.join(args.out, "summary.json"), "w") as f:
        json.dump(result, f, indent=1)
    print(summary.text_table(result))
    print("wall time %.0f s" % elapsed)
    if args.check:
        failures = summary.check(result, small=args.small)
        for f in failures:
            print("CHECK FAILED: " + f)
        if failures:
            return 1
        print("all checks passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Draws every chart form of the report and keeps one PNG per chart under docs/charts/.

Runs the built command-line program on the bundled example and on reference data sets,
cuts each inline SVG out of the HTML report and photographs it with headless Chromium.
Usage: scripts/chart-screenshots.py [build-dir]   (needs chromium)
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build"
OUT = ROOT / "docs" / "charts"
DATA = ROOT / "tests" / "data" / "reference"

RATIO = ("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1 "
         "INTERACTION=TRUE) WITH C1 C2 /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL {outmodel} "
         "/CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT /PLOT {plot}.")
BINARY_MEDIATOR = ("MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 "
                   "ELEVEL=1) WITH C1 C2 /MEDMODEL DISTRIBUTION=BINOMIAL /OUTMODEL "
                   "DISTRIBUTION=NORMAL /CRITERIA CILEVEL=95 CITYPE=DELTA COVB=MODEL "
                   "ANALYSISTYPE=CAUSAL /PRINT /PLOT BAR_PLOT.")

# (run, data file or None for the example, command or None, names of the charts in order)
RUNS = [
    ("example", None, None, ["scatter", "forest_linear", "path_diagram"]),
    ("ratio_mixed", DATA / "nb_logit.csv",
     RATIO.format(outmodel="DISTRIBUTION=BINOMIAL LINK=LOGIT", plot="FOREST_PLOT BAR_PLOT"),
     ["forest_mixed", "bar_quartiles"]),
    ("ratio_plain", DATA / "np_count.csv",
     RATIO.format(outmodel="DISTRIBUTION=POISSON LINK=LOG",
                  plot="FOREST_PLOT(PATH_COEFFICIENTS=FALSE)"),
     ["forest_ratio_plain"]),
    ("binary_mediator", DATA / "bn.csv", BINARY_MEDIATOR, ["bar_means"]),
]


def report(run, data, command, work):
    out = work / run
    if data is None:
        args = [BUILD / "app" / "medanlys", "example", "--out", out]
    else:
        args = [BUILD / "app" / "medanlys", "run", "--data", data, "-e", command, "--out", out,
                "--format", "html"]
    subprocess.run([str(a) for a in args], check=True, capture_output=True)
    return (out / "report.html").read_text()


def photograph(svg, png, work):
    width, height = re.search(r'width="(\d+)" height="(\d+)"', svg).groups()
    page = work / (png.stem + ".html")
    page.write_text("<!doctype html><html><body style='margin:0;background:#fff'>" + svg +
                    "</body></html>")
    subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu",
                    "--hide-scrollbars", f"--window-size={width},{height}",
                    f"--screenshot={png}", page.as_uri()], check=True, capture_output=True)


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as tmp:
        work = pathlib.Path(tmp)
        for run, data, command, names in RUNS:
            svgs = re.findall(r"<svg .*?</svg>", report(run, data, command, work), re.S)
            if len(svgs) != len(names):
                sys.exit(f"{run}: expected {len(names)} charts, found {len(svgs)}")
            for svg, name in zip(svgs, names):
                photograph(svg, OUT / f"{name}.png", work)
                print(OUT / f"{name}.png")


if __name__ == "__main__":
    main()

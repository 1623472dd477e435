#!/usr/bin/python3
"""Checks of the study's own machinery, without the program (a few seconds):

1. The quadrature of dgp.py: under a log link it must equal the closed form of the
   log-normal mean; under the logit link it must equal a trapezoidal rule on a fine grid.
2. The true effects from their definitions: a large simulation of the counterfactual
   outcomes Y(a1, M(a2)) (2,000,000 draws per mean) must agree with dgp.Scenario.truth
   within 4 Monte Carlo standard errors.
3. The effect formulas of the analysis (estimator.Statistic.effects) at the true
   parameters equal the truth wherever the fitted model is the true one (every scenario
   except the logit outcome); for the logit outcome the gap is printed: it is the error of
   the rare-outcome approximation that docs/validation.md discusses.
4. Efron's BCa of estimator.py on a case with a known answer: for the mean of normal data
   it is close to the t interval.

Exit status 1 when a check fails.
"""

import math
import os
import sys

import numpy as np

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import dgp  # noqa: E402
import estimator  # noqa: E402

failures = []


def expect(cond, text):
    if not cond:
        failures.append(text)
        print("FAIL: " + text)


def check_quadrature():
    for mean, sd, s in ((0.3, 1.0, 0.7), (-1.0, 2.0, 0.4), (0.0, 0.5, 1.5)):
        gh = dgp.normal_mean_of(lambda m: np.exp(0.2 + s * m), mean, sd)
        exact = math.exp(0.2 + s * mean + 0.5 * s * s * sd * sd)
        expect(abs(gh / exact - 1) < 1e-12, "log-normal mean: %.17g vs %.17g" % (gh, exact))
        grid = np.linspace(mean - 12 * sd, mean + 12 * sd, 200001)
        f = dgp.expit(-1.0 + s * grid) * np.exp(-0.5 * ((grid - mean) / sd) ** 2)
        trap = np.trapz(f, grid) / (sd * math.sqrt(2 * math.pi))
        gh = dgp.normal_mean_of(lambda m: dgp.expit(-1.0 + s * m), mean, sd)
        expect(abs(gh - trap) < 1e-12, "logistic-normal mean: %.17g vs %.17g" % (gh, trap))


def simulate_q(s, a1, a2, c, rng, draws=2_000_000):
    """Mean and Monte Carlo SE of Y(a1, M(a2)) given C = c, by simulation."""
    b0, b1, b2 = s.beta
    t0, t1, t2, t3, t4 = s.theta
    if not s.interaction:
        t3 = 0.0
    if s.strategy == "bn":
        M = rng.binomial(1, dgp.expit(b0 + b1 * a2 + b2 * c), draws).astype(float)
    else:
        M = b0 + b1 * a2 + b2 * c + rng.normal(0, s.sigma_m, draws)
    eta = t0 + t1 * a1 + t2 * M + t3 * a1 * M + t4 * c
    if s.outcome == "normal":
        Y = eta + rng.normal(0, s.sigma_y, draws)
    elif s.outcome == "logit":
        Y = rng.binomial(1, dgp.expit(eta)).astype(float)
    else:
        Y = rng.poisson(np.exp(eta)).astype(float)
    return Y.mean(), Y.std() / math.sqrt(draws)


def check_truth_by_simulation():
    rng = np.random.default_rng(20240601)
    for name in ("nn-int-200", "bn-int-200", "or-common-200", "irr-int-2000"):
        s = dgp.SCENARIO_BY_NAME[name]
        c = 0.3
        q = {}
        for a1 in (0.0, 1.0):
            for a2 in (0.0, 1.0):
                q[a1, a2] = simulate_q(s, a1, a2, c, rng)
        truth = s.truth(c)
        if s.outcome == "normal":
            checks = {"NDE": ((1, 0), (0, 0)), "NIE": ((1, 1), (1, 0)), "TE": ((1, 1), (0, 0))}
            for e, (hi, lo) in checks.items():
                est = q[hi][0] - q[lo][0]
                se = math.hypot(q[hi][1], q[lo][1])
                expect(abs(est - truth[e]) < 4 * se, "%s %s: simulation %.5f +- %.5f, truth %.5f"
                       % (name, e, est, se, truth[e]))
        else:
            # excess relative risk of the total effect and of the NIE part, on the mean scale
            p0 = q[0, 0][0]
            for e, est in (("excRR_PIE", (q[0, 1][0] - p0) / p0),):
                se = math.hypot(q[0, 1][1], q[0, 0][1]) / p0
                expect(abs(est - truth[e]) < 4 * se, "%s %s: simulation %.5f +- %.5f, truth %.5f"
                       % (name, e, est, se, truth[e]))
            tot = q[1, 1][0] / p0 - 1
            nie = (q[1, 1][0] - q[1, 0][0]) / p0
            pm = 100 * nie / tot
            expect(abs(pm - truth["PM"]) < 0.05 * abs(truth["PM"]) + 1.0,
                   "%s PM: simulation %.2f, truth %.2f" % (name, pm, truth["PM"]))


def formula_at_truth(s, c):
    """The analysis' effect formulas evaluated at the true parameters."""
    data = {"A": np.array([0.0, 1.0]), "M": np.zeros(2), "Y": np.zeros(2), "C": np.zeros(2)}
    st = estimator.Statistic(s, data, c)
    theta = np.array(s.theta if s.interaction else
                     [s.theta[0], s.theta[1], s.theta[2], s.theta[4]], float)[None, :]
    e = st.effects(np.array(s.beta, float)[None, :], theta, np.array([s.sigma_m ** 2]))
    return {k: float(v[0]) for k, v in e.items()}


def check_formulas():
    print("effect formulas at the true parameters against the true effects (c* = 0):")
    for s in dgp.SCENARIOS:
        truth = s.truth(0.0)
        formula = formula_at_truth(s, 0.0)
        worst = max(abs(formula[e] - truth[e]) / max(abs(truth[e]), 1e-12) for e in truth)
        if s.outcome == "logit":
            gaps = ", ".join("%s %+.1f%%" % (e, 100 * (formula[e] / truth[e] - 1))
                             for e in s.effects())
            print("  %-15s rare-outcome approximation: %s" % (s.name, gaps))
        else:
            expect(worst < 1e-10, "%s: formulas differ from the truth by %.2e" % (s.name, worst))
            print("  %-15s largest relative difference %.1e" % (s.name, worst))


def check_bca():
    rng = np.random.default_rng(7)
    x = rng.normal(10, 2, 60)
    reps = np.array([rng.choice(x, x.size).mean() for _ in range(4000)])
    jack = np.array([np.delete(x, i).mean() for i in range(x.size)])
    out = estimator.efron_bca(x.mean(), reps, jack, np.ones(x.size))
    half = 1.96 * x.std(ddof=1) / math.sqrt(x.size)
    lo, hi = out["bca"]
    expect(abs(lo - (x.mean() - half)) < 0.1 * half and abs(hi - (x.mean() + half)) < 0.1 * half,
           "BCa of a normal mean: (%.3f, %.3f) vs (%.3f, %.3f)" % (
               lo, hi, x.mean() - half, x.mean() + half))
    # the jackknife acceleration of the mean is skewness / (6 sqrt(n))
    u = jack.mean() - jack
    g = np.mean((x - x.mean()) ** 3) / np.mean((x - x.mean()) ** 2) ** 1.5
    expect(abs(out["a"] - g / (6 * math.sqrt(x.size))) < 1e-3,
           "acceleration %.5f vs skewness/(6 sqrt n) %.5f" % (out["a"], g / (6 * math.sqrt(x.size))))
    del u


def main():
    check_quadrature()
    check_truth_by_simulation()
    check_formulas()
    check_bca()
    if failures:
        print("%d check(s) failed" % len(failures))
        return 1
    print("all self-tests passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())

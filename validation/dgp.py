"""Data-generating processes of the validation study and the true effects they imply.

Every data set has one exposure A (0/1, a* = 0, a = 1), one mediator M, one outcome Y and
one covariate C. The models the analysis fits are the true models, except where a
scenario says otherwise (the logit outcome: the effect formulas of the analysis rest on
a rare-outcome approximation there, while the data follow the logistic model exactly).

Notation (as in docs/statistics.md): mediator model M = b0 + b1*A + b2*C (+ error) or
logit P(M=1) = b0 + b1*A + b2*C; outcome model g(E[Y]) = t0 + t1*A + t2*M + t3*A*M + t4*C.

The estimand. The analysis reports effects conditional on the covariate at its reference
value c*, which it takes from the data (the weighted mean of C). The true effect of a
data set is therefore the effect of the data-generating process at that data set's c*;
the m* of the controlled direct effect is fixed by the command (MLEVEL=VALUE(m*)).

True effects are computed from the definitions, with the counterfactual means
    Q(a1, a2) = E[ E(Y | A=a1, M, C=c*) ]  over  M ~ the mediator law given A=a2, C=c*,
not from the formulas the analysis uses:
- continuous outcome, continuous mediator: Q is linear in E[M], exact in closed form;
- continuous outcome, binary mediator: a two-point sum, exact;
- count or binary outcome, normal mediator: an integral over the normal law of M, by
  Gauss-Hermite quadrature with 96 nodes. Under a log link the integral has the closed
  form of a log-normal mean, and `selftest.py` checks that the quadrature reproduces it
  to 1e-12 (relative); under the logit link it checks the quadrature against a
  trapezoidal rule on a fine grid over +-12 SD, which converges spectrally for these
  smooth integrands.
"""

import math
from dataclasses import dataclass, field, replace

import numpy as np

GH_NODES = 96
_GH_X, _GH_W = np.polynomial.hermite.hermgauss(GH_NODES)


def expit(x):
    return 1.0 / (1.0 + np.exp(-x))


def normal_mean_of(f, mean, sd):
    """E f(M) for M ~ N(mean, sd^2) by Gauss-Hermite quadrature:
    E f(M) = pi^-1/2 * sum_k w_k f(mean + sqrt(2) sd x_k)."""
    return float(np.sum(_GH_W * f(mean + math.sqrt(2.0) * sd * _GH_X)) / math.sqrt(math.pi))


# The discrete errors of the aggregated-data scenarios: centred binomials, so that the
# data take few distinct values and identical records can be counted (frequency weights).
def centred_binomial(rng, trials, scale, size):
    return scale * (rng.binomial(trials, 0.5, size) - trials / 2.0)


@dataclass(frozen=True)
class Scenario:
    name: str
    title: str
    strategy: str  # "nn": continuous M and Y; "bn": binary M, continuous Y; "ratio": continuous M, binary/count Y
    n: int  # cases (units before aggregation)
    interaction: bool
    beta: tuple  # (b0, b1, b2)
    theta: tuple  # (t0, t1, t2, t3, t4); t3 is ignored without the interaction
    outcome: str = "normal"  # "normal", "logit", "poisson"
    sigma_m: float = 1.0  # residual SD of a continuous mediator
    sigma_y: float = 1.0  # residual SD of a continuous outcome
    gamma: float = 0.4  # logit P(A=1) = gamma * C: the covariate confounds A
    m_star: float = 0.0
    discrete: bool = False  # discrete errors and a binary C (see `centred_binomial`)
    aggregated: bool = False  # identical records merged; their count is the scale weight
    seed: int = 1
    notes: str = ""

    # -- the data ---------------------------------------------------------------------
    def generate(self, rng):
        """One data set: a dict of columns A, M, Y, C (and W when aggregated)."""
        n = self.n
        b0, b1, b2 = self.beta
        t0, t1, t2, t3, t4 = self.theta
        if not self.interaction:
            t3 = 0.0
        if self.discrete:
            C = rng.binomial(1, 0.4, n).astype(float)
            A = rng.binomial(1, expit(self.gamma * (2.0 * C - 1.0))).astype(float)
        else:
            C = rng.normal(0.0, 1.0, n)
            A = rng.binomial(1, expit(self.gamma * C)).astype(float)
        if self.strategy == "bn":
            M = rng.binomial(1, expit(b0 + b1 * A + b2 * C)).astype(float)
        elif self.discrete:
            # Var(Bin(10, 1/2)) = 2.5, so the scale sigma_m / sqrt(2.5) gives SD sigma_m.
            M = b0 + b1 * A + b2 * C + centred_binomial(rng, 10, self.sigma_m / math.sqrt(2.5), n)
        else:
            M = b0 + b1 * A + b2 * C + rng.normal(0.0, self.sigma_m, n)
        eta = t0 + t1 * A + t2 * M + t3 * A * M + t4 * C
        if self.outcome == "normal":
            if self.discrete:  # Var(Bin(16, 1/2)) = 4
                Y = eta + centred_binomial(rng, 16, self.sigma_y / 2.0, n)
            else:
                Y = eta + rng.normal(0.0, self.sigma_y, n)
        elif self.outcome == "logit":
            Y = rng.binomial(1, expit(eta)).astype(float)
        elif self.outcome == "poisson":
            Y = rng.poisson(np.exp(eta)).astype(float)
        else:
            raise ValueError(self.outcome)
        data = {"A": A, "M": M, "Y": Y, "C": C}
        if self.aggregated:
            data = aggregate(data)
        return data

    # -- the truth --------------------------------------------------------------------
    def truth(self, c_star, a_star=0.0, a_hat=1.0):
        """The true effects at covariate value c_star, by effect name (see module doc)."""
        b0, b1, b2 = self.beta
        t0, t1, t2, t3, t4 = self.theta
        if not self.interaction:
            t3 = 0.0
        m_star = self.m_star

        def mean_y(a, m):  # E(Y | A=a, M=m, C=c*) on the response scale
            eta = t0 + t1 * a + t2 * m + t3 * a * m + t4 * c_star
            if self.outcome == "normal":
                return eta
            if self.outcome == "logit":
                return expit(eta)
            return np.exp(eta)

        if self.strategy == "bn":
            def Q(a1, a2):
                p = float(expit(b0 + b1 * a2 + b2 * c_star))
                return (1.0 - p) * mean_y(a1, 0.0) + p * mean_y(a1, 1.0)
        elif self.outcome == "normal":
            # Linear in M: E over M is the value at E[M] (any error law with mean 0).
            def Q(a1, a2):
                return mean_y(a1, b0 + b1 * a2 + b2 * c_star)
        else:
            def Q(a1, a2):
                mu = b0 + b1 * a2 + b2 * c_star
                return normal_mean_of(lambda m: mean_y(a1, m), mu, self.sigma_m)

        q11, q10, q00, q01 = Q(a_hat, a_hat), Q(a_hat, a_star), Q(a_star, a_star), Q(a_star, a_hat)
        cde_hi, cde_lo = float(mean_y(a_hat, m_star)), float(mean_y(a_star, m_star))
        if self.outcome == "normal":
            nde, nie, te = q10 - q00, q11 - q10, q11 - q00
            return {"CDE": cde_hi - cde_lo, "NDE": nde, "NIE": nie, "TE": te,
                    "PM": 100.0 * nie / te}
        if self.outcome == "logit":
            def ratio(p1, p0):  # odds ratio
                return (p1 / (1.0 - p1)) / (p0 / (1.0 - p0))
        else:
            def ratio(p1, p0):  # rate (risk) ratio
                return p1 / p0
        p0 = q00
        t = {
            "R_CDE": ratio(cde_hi, cde_lo),
            "R_NDE": ratio(q10, q00),
            "R_NIE": ratio(q11, q10),
            "R_TE": ratio(q11, q00),
            # Excess relative risks: parts of RR_TE - 1 = (Q(a,a) - Q(a*,a*)) / Q(a*,a*),
            # always on the risk (mean) scale, whatever the link.
            "excRR_CDE": (cde_hi - cde_lo) / p0,
            "excRR_PIE": (q01 - q00) / p0,
        }
        exc_nde = (q10 - q00) / p0
        exc_nie = (q11 - q10) / p0
        t["excRR_INTref"] = exc_nde - t["excRR_CDE"]
        t["excRR_INTmed"] = exc_nie - t["excRR_PIE"]
        t["PM"] = 100.0 * exc_nie / (exc_nde + exc_nie)
        return t

    def effects(self):
        if self.strategy == "ratio":
            return list(RATIO_EFFECTS)
        return list(ADDITIVE_EFFECTS)

    def ratio_label(self):
        return {"logit": "OR_", "poisson": "IRR_"}.get(self.outcome, "")


ADDITIVE_EFFECTS = ("CDE", "NDE", "NIE", "TE", "PM")
RATIO_EFFECTS = ("R_CDE", "R_NDE", "R_NIE", "R_TE", "PM",
                 "excRR_CDE", "excRR_INTref", "excRR_INTmed", "excRR_PIE")


def is_ratio_effect(name):
    return name.startswith("R_")


def aggregate(data):
    """Merges identical records into one record whose weight W counts them."""
    keys = np.column_stack([data[k] for k in ("A", "M", "Y", "C")])
    unique, counts = np.unique(keys, axis=0, return_counts=True)
    out = {k: unique[:, j].copy() for j, k in enumerate(("A", "M", "Y", "C"))}
    out["W"] = counts.astype(float)
    return out


# -- the scenarios ---------------------------------------------------------------------
_NN = dict(strategy="nn", beta=(0.0, 0.4, 0.3), theta=(0.0, 0.3, 0.4, 0.25, 0.2))
_BN = dict(strategy="bn", beta=(-0.5, 1.0, 0.4), theta=(0.0, 0.3, 0.5, 0.3, 0.2))
_RATIO = dict(strategy="ratio", beta=(0.0, 0.5, 0.3))

SCENARIOS = [
    Scenario("nn-200", "continuous M and Y, no interaction, N = 200", interaction=False, n=200,
             seed=101, **_NN),
    Scenario("nn-int-200", "continuous M and Y, A*M interaction, N = 200", interaction=True,
             n=200, seed=102, **_NN),
    Scenario("nn-2000", "continuous M and Y, no interaction, N = 2,000", interaction=False,
             n=2000, seed=103, **_NN),
    Scenario("nn-int-2000", "continuous M and Y, A*M interaction, N = 2,000", interaction=True,
             n=2000, seed=104, **_NN),
    Scenario("nn-units-400", "continuous M and Y, discrete errors, 400 units one row each "
             "(the control of nn-weighted)", interaction=True, n=400, discrete=True,
             seed=105, **_NN),
    Scenario("nn-weighted", "the data of nn-units-400 with identical rows merged, their count "
             "as SCALEWEIGHT", interaction=True, n=400, discrete=True, aggregated=True,
             seed=105, **_NN),
    Scenario("bn-200", "binary M, continuous Y, no interaction, N = 200", interaction=False,
             n=200, seed=201, **_BN),
    Scenario("bn-int-200", "binary M, continuous Y, A*M interaction, N = 200", interaction=True,
             n=200, seed=202, **_BN),
    Scenario("bn-2000", "binary M, continuous Y, no interaction, N = 2,000", interaction=False,
             n=2000, seed=203, **_BN),
    Scenario("bn-int-2000", "binary M, continuous Y, A*M interaction, N = 2,000",
             interaction=True, n=2000, seed=204, **_BN),
    Scenario("bn-sparse-200", "binary M near separation (about 3 mediator events among the "
             "unexposed), continuous Y, N = 200", strategy="bn", interaction=False, n=200,
             beta=(-3.6, 4.5, 0.4), theta=(0.0, 0.3, 0.5, 0.0, 0.2), gamma=0.0, seed=205),
    Scenario("or-rare-2000", "continuous M, binary Y (logit), rare outcome (about 4%), "
             "interaction, N = 2,000", outcome="logit", interaction=True, n=2000,
             theta=(-3.6, 0.4, 0.5, 0.2, 0.2), seed=301, **_RATIO),
    Scenario("or-common-200", "continuous M, binary Y (logit), common outcome (about 45%), "
             "interaction, N = 200", outcome="logit", interaction=True, n=200,
             theta=(-0.4, 0.4, 0.5, 0.2, 0.2), seed=302, **_RATIO),
    Scenario("or-common-2000", "continuous M, binary Y (logit), common outcome (about 45%), "
             "interaction, N = 2,000", outcome="logit", interaction=True, n=2000,
             theta=(-0.4, 0.4, 0.5, 0.2, 0.2), seed=303, **_RATIO),
    Scenario("irr-200", "continuous M, Poisson count Y, no interaction, N = 200",
             outcome="poisson", interaction=False, n=200, theta=(0.0, 0.2, 0.25, 0.0, 0.1),
             seed=401, **_RATIO),
    Scenario("irr-int-2000", "continuous M, Poisson count Y, interaction, N = 2,000",
             outcome="poisson", interaction=True, n=2000, theta=(0.0, 0.2, 0.25, 0.1, 0.1),
             seed=402, **_RATIO),
]
SCENARIO_BY_NAME = {s.name: s for s in SCENARIOS}

"""The study's own computation of the reported effects, for Efron's BCa interval.

Efron's BCa interval (Efron 1987; Efron and Tibshirani 1993, ch. 14) needs the bootstrap
distribution of the statistic and its jackknife (leave-one-out) values:
    z0 = Phi^-1( #{theta*_b < theta_hat} / B )
    a  = sum U_i^3 / (6 (sum U_i^2)^(3/2)),   U_i = mean_j theta_(j) - theta_(i)
    alpha_1,2 = Phi( z0 + (z0 + z_alpha) / (1 - a (z0 + z_alpha)) ),  z_alpha = Phi^-1(alpha/2), Phi^-1(1-alpha/2)
    interval  = the alpha_1 and alpha_2 quantiles of the bootstrap values.
The program does not export its replicate values, so the study computes the same
statistic itself: the same models (least squares, logistic regression by maximum
likelihood or with Firth's penalty, Poisson regression) and the same effect formulas
(docs/statistics.md), with numpy, fitting many weightings of one data set at once. On
every data set the study's full-sample estimates are compared with the program's (the
driver records the largest relative difference), so the two compute one statistic.

The bootstrap here is the textbook case bootstrap: units are drawn with equal
probability. For aggregated data (a record of weight k stands for k identical units) the
units are the k copies, so a resample draws sum(w) units and a record's weight in the
refit is the number of its copies drawn; the jackknife leaves out one unit at a time.
The reference point (a*, a, m*, c*) stays that of the full sample, as in the program.
The binary-mediator bootstrap switches to Firth's penalty by the program's rule (more
than 10% of the first 100 replicates fail without it); the jackknife then uses the same
estimator as the replicates. Ratio effects are handled on the log scale.
"""

from statistics import NormalDist

import numpy as np

_NORMAL = NormalDist()
MAX_ITERATIONS = 100  # the program's MAXITERATIONS default
P_CONVERGE = 1e-6  # the program's PCONVERGE default
CHUNK = 400  # weightings fitted at once


def _safe_solve(G, b):
    """Solves G x = b for a stack of systems; a singular system gives NaN."""
    try:
        return np.linalg.solve(G, b[..., None])[..., 0]
    except np.linalg.LinAlgError:
        out = np.full(b.shape, np.nan)
        for k in range(G.shape[0]):
            try:
                out[k] = np.linalg.solve(G[k], b[k])
            except np.linalg.LinAlgError:
                pass
        return out


def _outer_rows(X):
    n, p = X.shape
    return (X[:, :, None] * X[:, None, :]).reshape(n, p * p)


def fit_ols(X, y, W):
    """Weighted least squares for each row of W (K x N): coefficients (K x p), SSR (K)."""
    p = X.shape[1]
    G = (W @ _outer_rows(X)).reshape(-1, p, p)
    beta = _safe_solve(G, W @ (X * y[:, None]))
    resid = y[None, :] - beta @ X.T
    ssr = np.sum(W * resid * resid, axis=1)
    return beta, ssr


def fit_glm(X, y, W, family, start, firth=False):
    """Logistic ("logit") or Poisson ("poisson") regression for each row of W by Newton's
    method (Fisher scoring: both links are canonical), from `start` (p or K x p).
    Convergence as in the program: max_j |d beta_j| / max(|beta_j|, 1) below PCONVERGE
    within MAXITERATIONS steps (then up to 25 polishing steps). Returns (beta, ok)."""
    K, p = W.shape[0], X.shape[1]
    XX = _outer_rows(X)
    beta = np.array(np.broadcast_to(start, (K, p)), dtype=float)
    converged = np.zeros(K, bool)
    active = np.ones(K, bool)
    polish = np.zeros(K, int)
    with np.errstate(over="ignore", invalid="ignore", divide="ignore"):
        for it in range(1, MAX_ITERATIONS + 26):
            idx = np.nonzero(active & (converged | (it <= MAX_ITERATIONS)))[0]
            if idx.size == 0:
                break
            b, w = beta[idx], W[idx]
            eta = b @ X.T
            if family == "logit":
                mu = 1.0 / (1.0 + np.exp(-eta))
                v = mu * (1.0 - mu)
            else:
                mu = np.exp(eta)
                v = mu
            wv = w * v
            info = (wv @ XX).reshape(-1, p, p)
            score = (w * (y[None, :] - mu)) @ X
            if firth:
                inv = np.linalg.pinv(info)
                h = wv * np.einsum("ni,kij,nj->kn", X, inv, X)
                score = score + (h * (0.5 - mu)) @ X
            delta = _safe_solve(info, score)
            new = b + delta
            change = np.max(np.abs(delta) / np.maximum(np.abs(new), 1.0), axis=1)
            bad = ~np.all(np.isfinite(new), axis=1)
            beta[idx] = np.where(bad[:, None], np.nan, new)
            active[idx[bad]] = False
            newly = ~converged[idx] & (change < P_CONVERGE) & ~bad
            converged[idx[newly]] = True
            polish[idx[converged[idx] & ~newly]] += 1
            done = converged[idx] & ((change < 1e-12) | (polish[idx] > 25))
            active[idx[done]] = False
    ok = converged & np.all(np.isfinite(beta), axis=1)
    return beta, ok


class Statistic:
    """The effects of one data set as functions of a weighting of its records."""

    def __init__(self, scenario, data, c_star):
        self.s = scenario
        A, M, Y, C = data["A"], data["M"], data["Y"], data["C"]
        self.w = data.get("W", np.ones_like(A))
        one = np.ones_like(A)
        self.Xm = np.column_stack([one, A, C])
        cols = [one, A, M] + ([A * M] if scenario.interaction else []) + [C]
        self.Xo = np.column_stack(cols)
        self.M, self.Y = M, Y
        self.a_star, self.a_hat, self.m_star, self.c_star = 0.0, 1.0, scenario.m_star, c_star
        self.full_beta = None
        self.full_theta = None
        self.firth = False

    # -- the fits -----------------------------------------------------------------------
    def fit(self, W, firth=False):
        """Model parameters for each weighting (rows of W): beta, theta, sigma2, ok."""
        s = self.s
        if s.strategy == "bn":
            start = self.full_beta if self.full_beta is not None else np.zeros(3)
            beta, ok = fit_glm(self.Xm, self.M, W, "logit", start, firth=firth)
            sigma2 = np.zeros(W.shape[0])
        else:
            beta, ssr = fit_ols(self.Xm, self.M, W)
            # per unit of weight, as the program's ratio effects take it
            sigma2 = ssr / (W.sum(axis=1) - self.Xm.shape[1])
            ok = np.all(np.isfinite(beta), axis=1)
        if s.outcome == "normal":
            theta, _ = fit_ols(self.Xo, self.Y, W)
            ok &= np.all(np.isfinite(theta), axis=1)
        else:
            if self.full_theta is not None:
                start = self.full_theta
            else:
                ybar = np.sum(self.w * self.Y) / np.sum(self.w)
                start = np.zeros(self.Xo.shape[1])
                start[0] = np.log(ybar / (1 - ybar)) if s.outcome == "logit" else np.log(ybar)
            theta, ok2 = fit_glm(self.Xo, self.Y, W, s.outcome, start)
            ok &= ok2
        return beta, theta, sigma2, ok

    def effects(self, beta, theta, sigma2):
        """The effects by the program's formulas (docs/statistics.md), one per weighting."""
        s = self.s
        d = self.a_hat - self.a_star
        b0, b1, b2 = beta[:, 0], beta[:, 1], beta[:, 2]
        t1, t2 = theta[:, 1], theta[:, 2]
        t3 = theta[:, 3] if s.interaction else np.zeros_like(t1)
        a, a0, m0, c0 = self.a_hat, self.a_star, self.m_star, self.c_star
        mu = b0 + b1 * a0 + b2 * c0
        with np.errstate(over="ignore", invalid="ignore", divide="ignore"):
            if s.strategy == "nn":
                cde = (t1 + t3 * m0) * d
                nde = (t1 + t3 * mu) * d
                nie = b1 * (t2 + t3 * a) * d
                te = nde + nie
                return {"CDE": cde, "NDE": nde, "NIE": nie, "TE": te, "PM": 100 * nie / te}
            if s.strategy == "bn":
                p0 = 1 / (1 + np.exp(-mu))
                p1 = 1 / (1 + np.exp(-(b0 + b1 * a + b2 * c0)))
                cde = (t1 + t3 * m0) * d
                nde = (t1 + t3 * p0) * d
                nie = (t2 + t3 * a) * (p1 - p0)
                te = nde + nie
                return {"CDE": cde, "NDE": nde, "NIE": nie, "TE": te, "PM": 100 * nie / te}
            s2 = sigma2
            log_cde = (t1 + t3 * m0) * d
            log_nde = (t1 + t3 * (mu + t2 * s2)) * d + 0.5 * t3 * t3 * s2 * (a * a - a0 * a0)
            log_nie = b1 * (t2 + t3 * a) * d
            log_pie = b1 * (t2 + t3 * a0) * d
            r_nde, r_nie, r_pie = np.exp(log_nde), np.exp(log_nie), np.exp(log_pie)
            r_te = r_nde * r_nie
            sh = t2 + t3 * a0
            shift = sh * mu + 0.5 * sh * sh * s2
            exc_cde = np.exp(t1 * d + (t2 + t3 * a) * m0 - shift) - np.exp(sh * m0 - shift)
            exc_nie = r_nde * (r_nie - 1)
            return {
                "R_CDE": np.exp(log_cde), "R_NDE": r_nde, "R_NIE": r_nie, "R_TE": r_te,
                "excRR_CDE": exc_cde,
                "excRR_INTref": r_nde - 1 - exc_cde,
                "excRR_INTmed": exc_nie - (r_pie - 1),
                "excRR_PIE": r_pie - 1,
                "PM": 100 * exc_nie / (r_te - 1),
            }

    def evaluate(self, W, firth=False):
        """Effects (dict of K arrays, NaN where a fit failed) for the rows of W."""
        parts = []
        for k in range(0, W.shape[0], CHUNK):
            beta, theta, s2, ok = self.fit(W[k:k + CHUNK], firth=firth)
            e = self.effects(beta, theta, s2)
            parts.append({n: np.where(ok, v, np.nan) for n, v in e.items()})
        return {n: np.concatenate([p[n] for p in parts]) for n in parts[0]}

    def full(self):
        beta, theta, s2, ok = self.fit(self.w[None, :])
        if not ok[0]:
            return None
        self.full_beta, self.full_theta = beta[0], theta[0]
        return {n: float(v[0]) for n, v in self.effects(beta, theta, s2).items()}


def _quantile(values, q):
    return np.quantile(values, q, method="weibull")  # the (B+1)q-th order statistic


def efron_bca(estimate, replicates, jackknife, multiplicity, level=0.95, log_scale=False):
    """Efron's BCa limits with jackknife acceleration (module doc), the bias-corrected
    percentile limits (a = 0) and the percentile limits; also z0 and a."""
    nan = float("nan")
    out = {"bca": (nan, nan), "bc": (nan, nan), "pct": (nan, nan), "z0": nan, "a": nan,
           "a_replicates": nan, "se": nan}
    t = np.asarray(replicates, float)
    j, m = np.asarray(jackknife, float), np.asarray(multiplicity, float)
    keep = np.isfinite(j)
    j, m = j[keep], m[keep]
    est = estimate
    if log_scale:
        with np.errstate(invalid="ignore", divide="ignore"):
            t, j, est = np.log(t), np.log(j), np.log(estimate) if estimate > 0 else nan
    t = t[np.isfinite(t)]
    if t.size < 40 or not np.isfinite(est) or j.size < 3:
        return out
    back = np.exp if log_scale else (lambda x: x)
    alpha = (1 - level) / 2
    out["pct"] = tuple(back(_quantile(t, [alpha, 1 - alpha])))
    out["se"] = float(np.std(t, ddof=1))
    share = np.mean(t < est)
    if not 0 < share < 1:
        return out
    z0 = _NORMAL.inv_cdf(share)
    u = np.sum(m * j) / np.sum(m) - j
    denom = np.sum(m * u * u)
    a = np.sum(m * u ** 3) / (6 * denom ** 1.5) if denom > 0 else 0.0
    out["z0"], out["a"] = z0, float(a)
    # For comparison, the acceleration the program's BCa takes from the replicates,
    # sum d^3 / (6 (sum d^2)^(3/2)) with d_b = mean - theta*_b (docs/statistics.md).
    d = t.mean() - t
    out["a_replicates"] = float(np.sum(d ** 3) / (6 * np.sum(d * d) ** 1.5))
    for key, acc in (("bca", a), ("bc", 0.0)):
        qs = []
        for z in (_NORMAL.inv_cdf(alpha), _NORMAL.inv_cdf(1 - alpha)):
            qs.append(_NORMAL.cdf(z0 + (z0 + z) / (1 - acc * (z0 + z))))
        out[key] = tuple(back(_quantile(t, qs)))
    return out


def study_intervals(stat, estimate, rng, nb, level=0.95):
    """Bootstrap (nb case resamples) and jackknife of one data set; Efron's BCa, BC and
    percentile limits per effect, plus the replicate failures and the Firth switch."""
    w = stat.w
    n_units = int(round(w.sum()))
    counts = rng.multinomial(n_units, w / w.sum(), size=nb).astype(float)
    reps = stat.evaluate(counts)
    failed = ~np.isfinite(next(iter(reps.values())))
    firth = False
    if stat.s.strategy == "bn" and np.mean(failed[:100]) > 0.1:
        firth = True
        reps = stat.evaluate(counts, firth=True)
        failed = ~np.isfinite(next(iter(reps.values())))
    # Leave one unit out: a record of weight k loses one of its copies; k equal values.
    rows = np.nonzero(w >= 1)[0]
    Wj = np.repeat(w[None, :], rows.size, axis=0)
    Wj[np.arange(rows.size), rows] -= 1.0
    jack = stat.evaluate(Wj, firth=firth)
    mult = w[rows]
    result = {"firth": firth, "replicate_failures": int(failed.sum())}
    for name, value in estimate.items():
        result[name] = efron_bca(value, reps[name], jack[name], mult, level,
                                 log_scale=name.startswith("R_"))
    return result

#!/usr/bin/env python3
"""mathinterp demo: every interpolation method on two embedded data sets, beside SciPy.

Data (built in, no files needed):
  * 1-D: a steep step, tanh(30 (x - 0.5)), sampled at 25 uniform points on [0, 1];
  * 2-D: Franke's function sampled on a coarse 12 x 12 uniform grid on [0, 1]^2.

Each method is evaluated on a fine grid (5001 points in 1-D, 301 x 301 in 2-D); the table
shows the largest error against the true function, the overshoot beyond the sampled range
(1-D), and the time, beside SciPy's closest equivalent. A PNG shows the methods side by
side. Methods that this build does not have yet are listed as such.

    python3 examples/demo.py [--out FILE.png] [--no-plot]
"""

from __future__ import annotations

import argparse
import os
import sys
import time
import warnings

import numpy as np

import mathinterp
from mathinterp import griddedInterpolant

try:
    import scipy
    import scipy.interpolate as si
except ImportError:  # pragma: no cover - SciPy is a Debian package here
    scipy = None

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


# ---- data -----------------------------------------------------------------------------------


def step(x):
    return np.tanh(30.0 * (x - 0.5))


def franke(x, y):
    return (
        0.75 * np.exp(-((9 * x - 2) ** 2 + (9 * y - 2) ** 2) / 4)
        + 0.75 * np.exp(-((9 * x + 1) ** 2) / 49 - (9 * y + 1) / 10)
        + 0.5 * np.exp(-((9 * x - 7) ** 2 + (9 * y - 3) ** 2) / 4)
        - 0.2 * np.exp(-((9 * x - 4) ** 2) - (9 * y - 7) ** 2)
    )


X1 = np.linspace(0.0, 1.0, 25)
V1 = step(X1)
XQ1 = np.linspace(0.0, 1.0, 5001)
TRUE1 = step(XQ1)

G2 = (np.linspace(0.0, 1.0, 12), np.linspace(0.0, 1.0, 12))
V2 = franke(*np.meshgrid(*G2, indexing="ij"))
Q2 = (np.linspace(0.0, 1.0, 301), np.linspace(0.0, 1.0, 301))
TRUE2 = franke(*np.meshgrid(*Q2, indexing="ij"))

METHODS_2D = ("linear", "nearest", "cubic", "spline", "makima")


# ---- SciPy equivalents ----------------------------------------------------------------------


def scipy_1d(method):
    """(label, callable) for SciPy's closest 1-D equivalent, or None."""
    if scipy is None:
        return None
    kinds = {"linear": "linear", "nearest": "nearest", "next": "next", "previous": "previous"}
    if method in kinds:
        kind = kinds[method]
        return f"interp1d({kind})", lambda: si.interp1d(X1, V1, kind=kind)(XQ1)
    if method == "pchip":
        return "PchipInterpolator", lambda: si.PchipInterpolator(X1, V1)(XQ1)
    if method == "spline":
        return "CubicSpline", lambda: si.CubicSpline(X1, V1)(XQ1)
    if method == "makima":
        return "Akima1D (plain)", lambda: si.Akima1DInterpolator(X1, V1)(XQ1)
    return None


def scipy_2d(method):
    if scipy is None:
        return None
    if method == "spline":
        # An interpolating bicubic spline (s = 0); RegularGridInterpolator's "cubic" of this
        # SciPy refits per call and takes seconds on this grid.
        return "RectBivariateSpline", lambda: si.RectBivariateSpline(*G2, V2, kx=3, ky=3, s=0)(*Q2)
    rgi = {"linear": "linear", "nearest": "nearest"}
    if method in rgi:
        m = rgi[method]

        def run():
            f = si.RegularGridInterpolator(G2, V2, method=m)
            pts = np.stack(np.meshgrid(*Q2, indexing="ij"), axis=-1)
            return f(pts)

        return f"RegularGrid({m})", run
    return None


# ---- timing ---------------------------------------------------------------------------------


def best_time(fn, repeat=3):
    best, out = np.inf, None
    for _ in range(repeat):
        t0 = time.perf_counter()
        out = fn()
        best = min(best, time.perf_counter() - t0)
    return best, out


def run_mathinterp(method, dims):
    """(seconds, result) or (None, reason) when the method is not built."""
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore", mathinterp.InterpolationWarning)
            if dims == 1:
                fn = lambda: griddedInterpolant(X1, V1, method)(XQ1)  # noqa: E731
            else:
                fn = lambda: griddedInterpolant(G2, V2, method)(Q2)  # noqa: E731
            return best_time(fn)
    except mathinterp.MethodNotBuiltError as e:
        return None, f"not built yet ({e.method})"


# ---- report ---------------------------------------------------------------------------------


def fmt_time(t):
    return "-" if t is None else f"{t * 1e3:8.3f} ms"


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--out", default=os.path.join(ROOT, "build", "demo_methods.png"))
    ap.add_argument("--no-plot", action="store_true")
    args = ap.parse_args(argv)
    if not mathinterp._core.has_class_system:
        print("This build does not register griddedInterpolant yet; nothing to demonstrate.")
        return 0

    print(f"mathinterp {mathinterp.__version__}, NumPy {np.__version__}, "
          f"SciPy {scipy.__version__ if scipy else '(missing)'}, "
          f"{mathinterp.get_num_threads()} worker threads")
    results1, results2 = {}, {}
    missing = []
    header = (f"{'data':6} {'method':9} {'max error':>10} {'overshoot':>10} {'time':>11}   "
              f"{'SciPy peer':21} {'max error':>10} {'time':>11}")
    print(header)
    print("-" * len(header))
    for method in mathinterp.METHODS:
        t, r = run_mathinterp(method, 1)
        peer = scipy_1d(method)
        pt, pr = best_time(peer[1]) if peer else (None, None)
        if t is None:
            missing.append(f"{method} (1-D)")
            err = over = r
            line = f"{'1-D':6} {method:9} {r:>34}"
        else:
            results1[method] = r
            err = np.max(np.abs(r - TRUE1))
            over = max(np.max(r) - V1.max(), V1.min() - np.min(r), 0.0)
            line = f"{'1-D':6} {method:9} {err:10.3e} {over:10.3e} {fmt_time(t):>11}"
        if peer:
            perr = np.max(np.abs(pr - TRUE1))
            line += f"   {peer[0]:21} {perr:10.3e} {fmt_time(pt):>11}"
        print(line)
    for method in METHODS_2D:
        t, r = run_mathinterp(method, 2)
        peer = scipy_2d(method)
        pt, pr = best_time(peer[1]) if peer else (None, None)
        if t is None:
            missing.append(f"{method} (2-D)")
            line = f"{'2-D':6} {method:9} {r:>34}"
        else:
            results2[method] = r
            err = np.max(np.abs(r - TRUE2))
            line = f"{'2-D':6} {method:9} {err:10.3e} {'':>10} {fmt_time(t):>11}"
        if peer:
            perr = np.max(np.abs(pr - TRUE2))
            line += f"   {peer[0]:21} {perr:10.3e} {fmt_time(pt):>11}"
        print(line)
    print()
    print("1-D: 25 samples of tanh(30(x-0.5)), 5001 queries; 2-D: Franke's function on 12x12,")
    print("queried on a 301x301 grid. Times: construction + evaluation, best of 3.")
    if missing:
        print("Not built yet in this build: " + ", ".join(missing))

    print()
    print("Grids of records (gridStructsInterpFcn, examples/grid_structs.py): a 3 x 2 grid of")
    print("records with a real vector field and a complex matrix field, 'linear' + 'boundary':")
    import runpy

    runpy.run_path(os.path.join(ROOT, "examples", "grid_structs.py"), run_name="__demo__")

    if not args.no_plot:
        plot(results1, results2, args.out)
        print(f"figure: {args.out}")
    return 0


def plot(results1, results2, path):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    n2 = len(METHODS_2D)
    fig = plt.figure(figsize=(3.2 * (n2 + 1), 10.5), constrained_layout=True)
    gs = fig.add_gridspec(3, n2 + 1, height_ratios=[1.25, 1, 1])

    ax = fig.add_subplot(gs[0, : (n2 + 1) // 2 + 1])
    ax.plot(XQ1, TRUE1, color="0.75", lw=4, label="tanh(30(x-0.5))")
    for method, r in results1.items():
        ax.plot(XQ1, r, lw=1.2, label=method)
    ax.plot(X1, V1, "ko", ms=3.5, label="samples")
    ax.set_xlim(0.3, 0.7)
    absent = [m for m in mathinterp.METHODS if m not in results1]
    ax.set_title("1-D steep step (zoom on the step)"
                 + (f"; not built yet: {', '.join(absent)}" if absent else ""))
    ax.legend(fontsize=7, ncol=2, loc="upper left")
    ax = fig.add_subplot(gs[0, (n2 + 1) // 2 + 1 :])
    for method, r in results1.items():
        ax.semilogy(XQ1, np.abs(r - TRUE1) + 1e-17, lw=0.8, label=method)
    ax.set_title("1-D absolute error")
    ax.set_ylim(1e-8, 10)
    ax.legend(fontsize=7, ncol=2)

    ext = [0, 1, 0, 1]
    ax = fig.add_subplot(gs[1, 0])
    ax.imshow(TRUE2.T, origin="lower", extent=ext, cmap="viridis")
    ax.set_title("Franke (true)")
    ax = fig.add_subplot(gs[2, 0])
    ax.imshow(V2.T, origin="lower", extent=ext, cmap="viridis", interpolation="nearest")
    ax.set_title("12 x 12 samples")
    im = None
    for k, method in enumerate(METHODS_2D):
        top = fig.add_subplot(gs[1, k + 1])
        bottom = fig.add_subplot(gs[2, k + 1])
        if method not in results2:
            for a in (top, bottom):
                a.text(0.5, 0.5, f"{method}\nnot built yet", ha="center", va="center")
                a.set_xticks([])
                a.set_yticks([])
            continue
        r = results2[method]
        top.imshow(r.T, origin="lower", extent=ext, cmap="viridis",
                   vmin=TRUE2.min(), vmax=TRUE2.max())
        top.set_title(method)
        im = bottom.imshow(np.log10(np.abs(r - TRUE2).T + 1e-12), origin="lower", extent=ext,
                           cmap="magma", vmin=-6, vmax=0)
        bottom.set_title(f"{method}: log10 |error|")
    if im is not None:
        fig.colorbar(im, ax=bottom, label="log10 |error|")
    fig.suptitle("mathinterp methods side by side")
    fig.savefig(path, dpi=90)
    plt.close(fig)


if __name__ == "__main__":
    sys.exit(main())

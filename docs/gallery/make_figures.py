"""Makes the figures of the documentation into docs/_generated/ (scripts/docs.sh runs it
before Sphinx): every method on the same 1-D and 2-D data, the extrapolation choices, float32
against float64, and the speed ratios of the README's table. Small data: a few seconds."""

import re
import sys
import warnings
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import mathinterp  # noqa: E402

HERE = Path(__file__).resolve().parent
OUT = HERE.parent / "_generated"
METHODS_2D = ("linear", "nearest", "cubic", "spline", "makima")

# One data set for every 1-D figure: a step followed by a bump, on a uniform grid (so that
# "cubic" is cubic convolution and not its fallback to "spline").
X1 = np.arange(12.0)
Y1 = np.array([0.0, 0.1, 0.0, 1.0, 1.0, 1.0, 0.6, 0.2, 0.9, 0.4, 0.5, 0.5])


def save(fig, name):
    fig.savefig(OUT / name, dpi=80, bbox_inches="tight")
    plt.close(fig)


def methods_1d():
    xq = np.linspace(0.0, 11.0, 881)
    fig, axes = plt.subplots(2, 4, figsize=(13, 5.5), sharex=True, sharey=True)
    for ax, m in zip(axes.flat, mathinterp.METHODS):
        ax.plot(xq, mathinterp.griddedInterpolant(X1, Y1, m)(xq), lw=1.5)
        ax.plot(X1, Y1, "ko", ms=3)
        ax.set_title(m)
    save(fig, "methods_1d.png")


def methods_2d():
    rng = np.random.default_rng(7)
    g = np.arange(6.0)
    V = rng.random((6, 6))
    q = np.linspace(0.0, 5.0, 121)
    fig, axes = plt.subplots(1, 6, figsize=(16, 3))
    axes[0].imshow(V.T, origin="lower", extent=(-0.5, 5.5, -0.5, 5.5), vmin=-0.2, vmax=1.2)
    axes[0].set_title("samples (6 x 6)")
    for ax, m in zip(axes[1:], METHODS_2D):
        W = mathinterp.griddedInterpolant((g, g), V, m)((q, q))
        ax.imshow(W.T, origin="lower", extent=(0, 5, 0, 5), vmin=-0.2, vmax=1.2)
        ax.set_title(m)
    for ax in axes:
        ax.set_xticks([])
        ax.set_yticks([])
    save(fig, "methods_2d.png")


def extrapolation():
    xq = np.linspace(-3.0, 14.0, 681)
    choices = ("linear", "nearest", "next", "previous", "pchip", "spline", "makima", "none")
    fig, axes = plt.subplots(2, 4, figsize=(13, 5.5), sharex=True, sharey=True)
    for ax, e in zip(axes.flat, choices):
        F = mathinterp.griddedInterpolant(X1, Y1, "pchip", e)
        ax.plot(xq, F(xq), lw=1.5)
        ax.axvspan(X1[0], X1[-1], color="0.92")
        ax.plot(X1, Y1, "ko", ms=3)
        ax.set_title(f'"pchip", extrapolation "{e}"', fontsize=9)
        ax.set_ylim(-1.5, 2.5)
    save(fig, "extrapolation.png")


def single_vs_double():
    xq = np.linspace(0.0, 11.0, 2201)
    fig, axes = plt.subplots(1, 2, figsize=(12, 3.5))
    for m in ("linear", "pchip", "spline"):
        F64 = mathinterp.griddedInterpolant(X1, Y1, m)
        F32 = mathinterp.griddedInterpolant(X1.astype(np.float32), Y1.astype(np.float32), m)
        r32 = F32(xq.astype(np.float32))
        assert r32.dtype == np.float32
        err = np.abs(r32.astype(np.float64) - F64(xq)) / np.finfo(np.float32).eps
        axes[1].semilogy(xq, np.maximum(err, 1e-3), lw=1, label=m)
        if m == "spline":
            axes[0].plot(xq, r32, lw=1.5, label="float32")
            axes[0].plot(xq, F64(xq), "--", lw=1, label="float64")
    axes[0].set_title('"spline": float32 and float64 results')
    axes[0].legend()
    axes[1].set_title("|float32 - float64| in units of float32 epsilon")
    axes[1].legend()
    save(fig, "single_vs_double.png")


def speed_ratios():
    """Bar chart of the ratio column of the README's speed table (log scale)."""
    readme = (HERE.parents[1] / "README.md").read_text()
    section = readme.split("## Speed", 1)[1].split("\n## ", 1)[0]
    rows = [r.strip("|").split("|") for r in section.splitlines() if r.startswith("| ")]
    at = [c.strip() for c in rows[0]].index("Ratio")
    cases, ratios = [], []
    for cells in rows[1:]:
        cells = [c.strip() for c in cells]
        # A range ("1.41-1.46") counts by its lower end; "52 000" is one number.
        ratio = re.sub(r"[^0-9.]", "", cells[at].split("-")[0].split("(")[0])
        if ratio:
            cases.append(f"{cells[0]}  vs {cells[2]}".replace("`", ""))
            ratios.append(float(ratio))
    fig, ax = plt.subplots(figsize=(10, 0.32 * len(cases) + 1))
    ax.barh(range(len(cases)), ratios, color="tab:blue")
    ax.set_yticks(range(len(cases)), [c[:90] for c in cases], fontsize=8)
    ax.invert_yaxis()
    ax.set_xscale("log")
    ax.axvline(1.0, color="k", lw=0.8)
    ax.set_xlabel("peer time / mathinterp time (log scale; > 1: mathinterp is faster)")
    save(fig, "speed_ratios.png")


def main():
    # A method falling back to another (with a warning) would make a figure show the wrong one.
    warnings.simplefilter("error", mathinterp.InterpolationWarning)
    OUT.mkdir(exist_ok=True)
    for make in (methods_1d, methods_2d, extrapolation, single_vs_double, speed_ratios):
        make()
    print(f"figures in {OUT}", file=sys.stderr)


if __name__ == "__main__":
    main()

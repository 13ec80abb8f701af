#!/usr/bin/env python3
"""Times mathinterp beside its peers (NumPy, SciPy) on the same data in one run.

Prints a table (case, mathinterp time, peer time, ratio peer/mathinterp), writes the
figures as JSON and a PNG bar plot. Each case is one entry of CASES: add a row by adding a
Case with a builder for the data, a mathinterp call and the peer calls. A case whose method
is not built yet is reported as such.

    PYTHONPATH=build/python /usr/bin/python3 bench/compare.py [--queries N] [--repeat R]
        [--json FILE] [--png FILE] [--markdown FILE] [--threads T] [--cases A,B]
"""

from __future__ import annotations

import argparse
import json
import os
import platform
import sys
import time
from dataclasses import dataclass, field
from typing import Callable

import numpy as np

import mathinterp
from mathinterp import griddedInterpolant

import scipy
import scipy.interpolate as si

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


@dataclass
class Case:
    name: str
    method: str
    make_data: Callable[[np.random.Generator, int], dict]
    # (data) -> callable timed for mathinterp: evaluation only, the interpolant built once.
    build: Callable[[dict], Callable[[], np.ndarray]]
    peers: dict[str, Callable[[dict], Callable[[], np.ndarray]]] = field(default_factory=dict)
    # Largest allowed difference between mathinterp and each peer (checked, not timed).
    tolerance: float = 1e-12
    # Gradient rows: the value evaluation of the same interpolant and queries, timed so that
    # the row can state what a gradient costs in value evaluations.
    value_of: Callable[[dict], Callable[[], np.ndarray]] | None = None


def data_1d(rng, nq, n=1000):
    x = np.sort(rng.uniform(0.0, 1000.0, n))
    x[0], x[-1] = 0.0, 1000.0
    return {"x": x, "v": np.sin(x / 37.0) + 0.01 * x, "xq": rng.uniform(0.0, 1000.0, nq)}


def mi_1d(method):
    def build(d):
        F = griddedInterpolant(d["x"], d["v"], method)
        return lambda: F(d["xq"])

    return build


def mi_1d_single(method):
    """The same 1-D interpolant from single-precision grid, values and queries."""

    def build(d):
        F = griddedInterpolant(d["x"].astype(np.float32), d["v"].astype(np.float32), method)
        xq = d["xq"].astype(np.float32)
        return lambda: F(xq)

    return build


def interp1d_peer(kind):
    def build(d):
        f = si.interp1d(d["x"], d["v"], kind=kind, assume_sorted=True)
        return lambda: f(d["xq"])

    return build


def numpy_interp(d):
    return lambda: np.interp(d["xq"], d["x"], d["v"])


def scipy_object(make):
    def build(d):
        f = make(d)
        return lambda: f(d["xq"])

    return build


def data_2d(rng, nq, n=300):
    g = tuple(np.sort(np.concatenate([[0.0, 100.0], rng.uniform(0.0, 100.0, n - 2)]))
              for _ in range(2))
    V = np.sin(g[0] / 7.0)[:, None] * np.cos(g[1] / 11.0)[None, :]
    m = max(nq // 10, 1)  # SciPy's N-D peer is slow: a tenth of the 1-D query count
    P = np.column_stack([rng.uniform(0.0, 100.0, m), rng.uniform(0.0, 100.0, m)])
    return {"grid": g, "V": V, "P": np.asfortranarray(P)}


def mi_2d(method):
    def build(d):
        F = griddedInterpolant(d["grid"], d["V"], method)
        return lambda: F(d["P"])

    return build


def mi_2d_single(method):
    """The same interpolant built from single-precision grid, values and queries."""

    def build(d):
        F = griddedInterpolant(tuple(g.astype(np.float32) for g in d["grid"]),
                               d["V"].astype(np.float32), method)
        P = np.asfortranarray(d["P"].astype(np.float32))
        return lambda: F(P)

    return build


def rgi_peer(method):
    def build(d):
        f = si.RegularGridInterpolator(d["grid"], d["V"], method=method)
        return lambda: f(d["P"])

    return build


def data_1d_uniform(rng, nq, n=1000):
    x = np.linspace(0.0, 999.0, n)
    return {"x": x, "v": np.sin(x / 37.0) + 0.01 * x, "xq": rng.uniform(0.0, 999.0, nq)}


def map_coordinates_1d(d):
    import scipy.ndimage as nd

    coeffs = nd.spline_filter(d["v"], order=3)  # prefiltered once, outside the timing
    coords = d["xq"][None, :]  # grid spacing 1: indices are coordinates
    return lambda: nd.map_coordinates(coeffs, coords, order=3, prefilter=False)


def copy_three_times(d):
    """A floor for a memory-bound 1-D query loop: three copies of the queries."""
    out = np.empty_like(d["xq"])

    def run():
        for _ in range(3):
            np.copyto(out, d["xq"])
        return out

    return run


def data_nd(shape, nq_divisor):
    """Uniform unit-spaced grids (so map_coordinates indices equal coordinates)."""

    def make(rng, nq):
        g = tuple(np.arange(n, dtype=float) for n in shape)
        V = np.ones(shape)
        for k, gk in enumerate(g):
            V = V * np.sin(gk / (7.0 + k)).reshape([-1 if j == k else 1 for j in range(len(shape))])
        m = max(nq // nq_divisor, 1)
        P = np.column_stack([rng.uniform(0.0, n - 1.0, m) for n in shape])
        return {"grid": g, "V": V, "P": np.asfortranarray(P)}

    return make


def map_coordinates_nd(d):
    import scipy.ndimage as nd

    coeffs = nd.spline_filter(d["V"], order=3)
    coords = np.ascontiguousarray(d["P"].T)
    return lambda: nd.map_coordinates(coeffs, coords, order=3, prefilter=False)


def rgi_subset_peer(method, subset=200):
    """RegularGridInterpolator on the first `subset` queries, its time scaled to all."""

    def build(d):
        f = si.RegularGridInterpolator(d["grid"], d["V"], method=method)
        P = d["P"][:subset]
        return (lambda: f(P)), d["P"].shape[0] / P.shape[0]

    return build


def rect_bivariate_ev(d):
    f = si.RectBivariateSpline(d["grid"][0], d["grid"][1], d["V"])
    return lambda: f.ev(d["P"][:, 0], d["P"][:, 1])


def data_gridded(n, m):
    def make(rng, nq):
        g = (np.linspace(0.0, 1.0, n), np.linspace(0.0, 1.0, n))
        V = np.sin(6 * g[0])[:, None] * np.cos(5 * g[1])[None, :]
        return {"grid": g, "V": V, "Q": (np.linspace(0.0, 1.0, m), np.linspace(0.0, 1.0, m))}

    return make


def data_image(rows, cols, channels, scale):
    """A float32 image (rows x cols x channels, one value set per channel) on unit-spaced
    single grids, upscaled by `scale` along both axes (gridded queries)."""

    def make(rng, nq):
        g = (np.arange(rows, dtype=np.float32), np.arange(cols, dtype=np.float32))
        V = (np.sin(g[0] / 9.0)[:, None, None] * np.cos(g[1] / 13.0)[None, :, None]
             + rng.uniform(0.0, 0.1, (rows, cols, channels))).astype(np.float32)
        Q = (np.linspace(0.0, rows - 1.0, scale * rows, dtype=np.float32),
             np.linspace(0.0, cols - 1.0, scale * cols, dtype=np.float32))
        return {"grid": g, "V": V, "Q": Q}

    return make


def mi_gridded(method):
    def build(d):
        F = griddedInterpolant(d["grid"], d["V"], method)
        return lambda: F(d["Q"])

    return build


def interpn_gridded(d):
    XQ = np.stack(np.meshgrid(*d["Q"], indexing="ij"), axis=-1)
    return lambda: si.interpn(d["grid"], d["V"], XQ, method="linear")


def rect_bivariate_grid(d):
    f = si.RectBivariateSpline(d["grid"][0], d["grid"][1], d["V"])
    return lambda: f(d["Q"][0], d["Q"][1])


def data_gridded_3d(n, m):
    def make(rng, nq):
        g = tuple(np.linspace(0.0, 1.0, n) for _ in range(3))
        V = (np.sin(6 * g[0])[:, None, None] * np.cos(5 * g[1])[None, :, None]
             * np.sin(4 * g[2] + 1.0)[None, None, :])
        return {"grid": g, "V": V, "Q": tuple(np.linspace(0.0, 1.0, m) for _ in range(3))}

    return make


def cubic_spline_per_axis(d):
    """The tensor not-a-knot spline as one CubicSpline pass per axis (the spline of a
    tensor grid is separable)."""
    def run():
        A = d["V"]
        for k, (gk, qk) in enumerate(zip(d["grid"], d["Q"])):
            A = si.CubicSpline(gk, A, axis=k)(qk)
        return A

    return run


def data_1d_tenth(rng, nq):
    return data_1d(rng, max(nq // 10, 1))


def mi_gradient_1d(method, value=False):
    def build(d):
        F = griddedInterpolant(d["x"], d["v"], method)
        return (lambda: F(d["xq"])) if value else (lambda: F.gradient(d["xq"]))

    return build


def mi_gradient_nd(method, value=False):
    def build(d):
        F = griddedInterpolant(d["grid"], d["V"], method)
        return (lambda: F(d["P"])) if value else (lambda: F.gradient(d["P"]))

    return build


def cubic_spline_derivative(d):
    f = si.CubicSpline(d["x"], d["v"])
    return lambda: f(d["xq"], 1)


def rect_bivariate_gradient(d):
    f = si.RectBivariateSpline(d["grid"][0], d["grid"][1], d["V"])
    x, y = d["P"][:, 0], d["P"][:, 1]
    return lambda: np.column_stack([f.ev(x, y, dx=1), f.ev(x, y, dy=1)])


def rgi_central_differences(d, h=1e-4):
    """The gradient users compute without one: two central differences, four calls."""
    f = si.RegularGridInterpolator(d["grid"], d["V"], method="linear", bounds_error=False,
                                   fill_value=None)
    P = d["P"]
    shifts = [np.array([h, 0.0]), np.array([0.0, h])]
    return lambda: np.column_stack([(f(P + e) - f(P - e)) / (2 * h) for e in shifts])


CASES = [
    Case("1-D linear", "linear", data_1d, mi_1d("linear"),
         {"numpy.interp": numpy_interp, "scipy interp1d": interp1d_peer("linear")}),
    Case("1-D nearest", "nearest", data_1d, mi_1d("nearest"),
         {"scipy interp1d": interp1d_peer("nearest")}, tolerance=np.inf),
    Case("1-D next", "next", data_1d, mi_1d("next"),
         {"scipy interp1d": interp1d_peer("next")}, tolerance=np.inf),
    Case("1-D previous", "previous", data_1d, mi_1d("previous"),
         {"scipy interp1d": interp1d_peer("previous")}, tolerance=np.inf),
    Case("1-D pchip", "pchip", data_1d, mi_1d("pchip"),
         {"scipy Pchip": scipy_object(lambda d: si.PchipInterpolator(d["x"], d["v"]))},
         tolerance=1e-9),
    Case("1-D spline", "spline", data_1d, mi_1d("spline"),
         {"scipy CubicSpline": scipy_object(lambda d: si.CubicSpline(d["x"], d["v"]))},
         tolerance=1e-7),
    Case("1-D makima", "makima", data_1d, mi_1d("makima"), {}),
    Case("2-D linear", "linear", data_2d, mi_2d("linear"),
         {"scipy RegularGrid": rgi_peer("linear")}),
    Case("2-D nearest", "nearest", data_2d, mi_2d("nearest"),
         {"scipy RegularGrid": rgi_peer("nearest")}, tolerance=np.inf),
    Case("2-D spline", "spline", data_2d, mi_2d("spline"), {}),
    Case("2-D makima", "makima", data_2d, mi_2d("makima"), {}),
    # The shapes the issue targets are stated for: uniform 1000-point 1-D grids, 1000^2 and
    # 100^3 grids with a tenth of the queries, 2000^2 gridded output.
    Case("1-D linear uniform", "linear", data_1d_uniform, mi_1d("linear"),
         {"numpy.interp": numpy_interp}),
    # The same query loop against three copies of its queries (goal: within 3x, ratio >= 1.1).
    Case("1-D linear uniform vs copies", "linear", data_1d_uniform, mi_1d("linear"),
         {"3 x np.copyto": copy_three_times}, tolerance=np.inf),
    # Single precision against our own double path on the same data.
    Case("1-D linear uniform float32", "linear", data_1d_uniform, mi_1d_single("linear"),
         {"mathinterp float64": mi_1d("linear")}, tolerance=1e-4),
    Case("1-D linear random float32", "linear", data_1d, mi_1d_single("linear"),
         {"mathinterp float64": mi_1d("linear")}, tolerance=1e-4),
    Case("1-D cubic uniform float32", "cubic", data_1d_uniform, mi_1d_single("cubic"),
         {"mathinterp float64": mi_1d("cubic")}, tolerance=1e-3),
    Case("1-D cubic uniform", "cubic", data_1d_uniform, mi_1d("cubic"),
         {"map_coordinates(3)": map_coordinates_1d}, tolerance=np.inf),
    Case("1-D makima uniform", "makima", data_1d_uniform, mi_1d("makima"),
         {"scipy Akima (plain)": scipy_object(lambda d: si.Akima1DInterpolator(d["x"], d["v"]))},
         tolerance=np.inf),
    Case("2-D linear 1000^2", "linear", data_nd((1000, 1000), 10), mi_2d("linear"),
         {"scipy RegularGrid": rgi_peer("linear")}),
    # Single precision against our own double path on the same data (goal: 1.5x faster).
    Case("2-D linear 1000^2 float32", "linear", data_nd((1000, 1000), 10), mi_2d_single("linear"),
         {"mathinterp float64": mi_2d("linear")}, tolerance=1e-5),
    Case("2-D nearest 1000^2 float32", "nearest", data_nd((1000, 1000), 10),
         mi_2d_single("nearest"), {"mathinterp float64": mi_2d("nearest")}, tolerance=np.inf),
    Case("2-D nearest 1000^2", "nearest", data_nd((1000, 1000), 10), mi_2d("nearest"),
         {"scipy RegularGrid": rgi_peer("nearest")}, tolerance=np.inf),
    Case("2-D cubic 1000^2", "cubic", data_nd((1000, 1000), 10), mi_2d("cubic"),
         {"map_coordinates(3)": map_coordinates_nd,
          "RGI cubic (scaled)": rgi_subset_peer("cubic")}, tolerance=np.inf),
    Case("2-D spline 1000^2", "spline", data_nd((1000, 1000), 10), mi_2d("spline"),
         {"RectBivariateSpline.ev": rect_bivariate_ev}, tolerance=np.inf),
    Case("3-D linear 100^3", "linear", data_nd((100, 100, 100), 10), mi_2d("linear"),
         {"scipy RegularGrid": rgi_peer("linear")}),
    Case("3-D spline 100^3", "spline", data_nd((100, 100, 100), 10), mi_2d("spline"),
         {"map_coordinates(3)": map_coordinates_nd}, tolerance=np.inf),
    Case("3-D cubic 100^3", "cubic", data_nd((100, 100, 100), 10), mi_2d("cubic"),
         {"map_coordinates(3)": map_coordinates_nd}, tolerance=np.inf),
    Case("2-D linear gridded 2000^2", "linear", data_gridded(300, 2000), mi_gridded("linear"),
         {"scipy interpn": interpn_gridded}),
    Case("2-D spline gridded 2000^2", "spline", data_gridded(300, 2000), mi_gridded("spline"),
         {"RectBivariateSpline": rect_bivariate_grid}, tolerance=1e-9),
    Case("3-D spline gridded 200^3", "spline", data_gridded_3d(100, 200), mi_gridded("spline"),
         {"CubicSpline per axis": cubic_spline_per_axis}, tolerance=1e-9),
    # makima against our own spline on the same data and queries (goal: at most 1.5x).
    Case("2-D makima vs our 2-D spline", "makima", data_nd((1000, 1000), 10), mi_2d("makima"),
         {"mathinterp spline": mi_2d("spline")}, tolerance=np.inf),
    Case("3-D makima vs 3-D spline", "makima", data_nd((100, 100, 100), 10), mi_2d("makima"),
         {"mathinterp spline": mi_2d("spline")}, tolerance=np.inf),
    Case("gridded float32 image makima vs gridded spline", "makima", data_image(768, 1024, 3, 2),
         mi_gridded("makima"), {"mathinterp spline": mi_gridded("spline")}, tolerance=np.inf),
    # Gradients (a tenth of the queries: 10^6 at the default count).
    Case("1-D spline gradient", "spline", data_1d_tenth, mi_gradient_1d("spline"),
         {"CubicSpline(xq, 1)": cubic_spline_derivative}, tolerance=1e-9,
         value_of=mi_gradient_1d("spline", value=True)),
    Case("2-D spline gradient 1000^2", "spline", data_nd((1000, 1000), 10),
         mi_gradient_nd("spline"), {"RectBivariate dx+dy": rect_bivariate_gradient},
         tolerance=1e-8, value_of=mi_gradient_nd("spline", value=True)),
    Case("2-D linear gradient 1000^2", "linear", data_nd((1000, 1000), 10),
         mi_gradient_nd("linear"), {"RGI 2 central diffs": rgi_central_differences},
         tolerance=np.inf, value_of=mi_gradient_nd("linear", value=True)),
]


def best_of(fn, repeat):
    best = np.inf
    out = None
    for _ in range(repeat):
        t0 = time.perf_counter()
        out = fn()
        best = min(best, time.perf_counter() - t0)
    return best, out


def run(cases, nq, repeat, seed=12345):
    rows = []
    for case in cases:
        rng = np.random.default_rng(seed)
        data = case.make_data(rng, nq)
        try:
            mi_fn = case.build(data)
            mi_t, mi_out = best_of(mi_fn, repeat)
        except mathinterp.MethodNotBuiltError as e:
            rows.append({"case": case.name, "status": f"not built yet ({e.method})"})
            continue
        cost = ""
        if case.value_of is not None:
            value_t, _ = best_of(case.value_of(data), repeat)
            cost = f" (gradient = {mi_t / value_t:.2f} value evaluations)"
        if not case.peers:
            rows.append({"case": case.name, "status": "ok" + cost, "mathinterp_s": mi_t,
                         "peer": None})
        for peer_name, peer_build in case.peers.items():
            # A peer too slow for every query returns (call on a subset, scale to all).
            built = peer_build(data)
            fn, scale = built if isinstance(built, tuple) else (built, 1.0)
            peer_t, peer_out = best_of(fn, repeat)
            peer_t *= scale
            diff = float(np.max(np.abs(mi_out - peer_out))) if np.isfinite(case.tolerance) else None
            if diff is not None and diff > case.tolerance:
                status = f"MISMATCH (max diff {diff:.3e})"
            else:
                status = "ok"
            status += cost
            rows.append({
                "case": case.name, "status": status, "mathinterp_s": mi_t, "peer": peer_name,
                "peer_s": peer_t, "ratio": peer_t / mi_t, "max_diff": diff,
            })
    return rows


def versions():
    return {
        "mathinterp": mathinterp.__version__,
        "numpy": np.__version__,
        "scipy": scipy.__version__,
        "python": platform.python_version(),
        "machine": platform.machine(),
        "cpus": os.cpu_count(),
        "mathinterp_threads": mathinterp.get_num_threads(),
    }


def print_table(rows, nq):
    print(f"1-D: {nq:,} queries on a 1000-point grid; 2-D: {max(nq // 10, 1):,} points on "
          f"300 x 300 (best of repeats; ratio = peer time / mathinterp time, > 1: mathinterp "
          f"is faster)")
    head = f"{'case':14} {'mathinterp':>12} {'peer':18} {'peer time':>12} {'ratio':>7}  status"
    print(head)
    print("-" * len(head))
    for r in rows:
        if "mathinterp_s" not in r:
            print(f"{r['case']:14} {'-':>12} {'':18} {'-':>12} {'-':>7}  {r['status']}")
        elif r["peer"] is None:
            print(f"{r['case']:14} {r['mathinterp_s'] * 1e3:9.1f} ms {'(no peer)':18} "
                  f"{'-':>12} {'-':>7}  {r['status']}")
        else:
            print(f"{r['case']:14} {r['mathinterp_s'] * 1e3:9.1f} ms {r['peer']:18} "
                  f"{r['peer_s'] * 1e3:9.1f} ms {r['ratio']:7.2f}  {r['status']}")


def markdown(rows):
    lines = ["| Case | mathinterp | Peer | Peer time | Ratio |", "|---|---|---|---|---|"]
    for r in rows:
        if r.get("peer"):
            lines.append(f"| {r['case']} | {r['mathinterp_s'] * 1e3:.3g} ms | {r['peer']} | "
                         f"{r['peer_s'] * 1e3:.3g} ms | {r['ratio']:.3g} |")
        elif "mathinterp_s" in r:
            lines.append(f"| {r['case']} | {r['mathinterp_s'] * 1e3:.3g} ms | {r['status']} | | |")
    return "\n".join(lines) + "\n"


def plot(rows, path):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    timed = [r for r in rows if r.get("peer")]
    if not timed:
        return
    labels = [f"{r['case']}\nvs {r['peer']}" for r in timed]
    y = np.arange(len(timed))
    fig, ax = plt.subplots(figsize=(8, 0.6 * len(timed) + 1.5), constrained_layout=True)
    ax.barh(y - 0.2, [r["mathinterp_s"] * 1e3 for r in timed], 0.4, label="mathinterp")
    ax.barh(y + 0.2, [r["peer_s"] * 1e3 for r in timed], 0.4, label="peer")
    ax.set_yticks(y, labels, fontsize=8)
    ax.invert_yaxis()
    ax.set_xlabel("time (ms), lower is better")
    ax.legend()
    ax.set_title("mathinterp vs NumPy/SciPy")
    fig.savefig(path, dpi=90)
    plt.close(fig)


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--queries", type=int, default=10_000_000)
    ap.add_argument("--repeat", type=int, default=3)
    ap.add_argument("--threads", type=int, default=0, help="cap mathinterp's worker threads")
    ap.add_argument("--cases", default="", help="comma-separated substrings of case names")
    ap.add_argument("--json", default=os.path.join(ROOT, "build", "bench_compare.json"))
    ap.add_argument("--png", default=os.path.join(ROOT, "build", "bench_compare.png"))
    ap.add_argument("--markdown", default="", help="also write the table as Markdown here")
    args = ap.parse_args(argv)

    mathinterp.set_num_threads(args.threads or None)
    cases = CASES
    if args.cases:
        keys = [k.strip() for k in args.cases.split(",") if k.strip()]
        cases = [c for c in CASES if any(k in c.name for k in keys)]
    info = versions()
    print("versions: " + ", ".join(f"{k} {v}" for k, v in info.items()))
    rows = run(cases, args.queries, args.repeat)
    print_table(rows, args.queries)
    os.makedirs(os.path.dirname(os.path.abspath(args.json)), exist_ok=True)
    with open(args.json, "w") as f:
        json.dump({"versions": info, "queries": args.queries, "repeat": args.repeat,
                   "rows": rows}, f, indent=2)
    plot(rows, args.png)
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write(markdown(rows))
    print(f"json: {args.json}\npng: {args.png}")
    return 1 if any(r["status"].startswith("MISMATCH") for r in rows) else 0


if __name__ == "__main__":
    sys.exit(main())

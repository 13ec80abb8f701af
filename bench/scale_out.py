"""Scale-out overheads of mathinterp.dask and mathinterp.xarray.

    PYTHONPATH=build/python /usr/bin/python3 bench/scale_out.py [--points N] [--chunk C]

1. N scattered 2-D linear queries (a dask array in chunks of C points, persisted on a local
   cluster of two worker processes) through ``mathinterp.dask.evaluate``, against the same
   points through SciPy's ``RegularGridInterpolator`` in ``map_blocks``, and against one
   in-process evaluation ``F(P)`` of the same points (the dask overhead is the ratio).
2. ``DataArray.interp`` against ``.mathinterp.interp`` on a 1000 x 1000 x 20 DataArray
   interpolated to 2000 x 2000 along its first two dimensions (in memory).

Times are the best of --repeat runs (wall clock).
"""

from __future__ import annotations

import argparse
import os
import time

import numpy as np


def best(fn, repeat):
    times = []
    for _ in range(repeat):
        t = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t)
    return min(times)


def scattered(args):
    import dask.array as da
    import distributed
    from scipy.interpolate import RegularGridInterpolator

    import mathinterp
    import mathinterp.dask as mdask

    n = args.grid
    x = np.linspace(0.0, 1.0, n)
    V = np.random.default_rng(1).standard_normal((n, n))
    F = mathinterp.griddedInterpolant((x, x), V, "linear", "none")
    rgi = RegularGridInterpolator((x, x), V, method="linear", bounds_error=False)

    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  host="127.0.0.1", dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        P = da.random.RandomState(2).random_sample((args.points, 2), chunks=(args.chunk, 2))
        P = client.persist(P)
        distributed.wait(P)

        t_dask = best(lambda: client.compute(mdask.evaluate(F, P).sum(), sync=True), args.repeat)
        t_scipy = best(lambda: client.compute(
            P.map_blocks(rgi, drop_axis=1, dtype=np.float64).sum(), sync=True), args.repeat)
        # The same points in this process, in the column-major layout F reads in place.
        local = np.asfortranarray(client.compute(P, sync=True))
    t_local = best(lambda: F(local), args.repeat)
    m = args.points
    print(f"scattered 2-D linear, {m:.0e} points in chunks of {args.chunk:.0e}, grid {n} x {n}")
    print(f"  mathinterp.dask on 2 worker processes  {t_dask:8.3f} s  {m / t_dask / 1e6:8.1f} Mpts/s")
    print(f"  SciPy RGI in map_blocks, same cluster   {t_scipy:8.3f} s  {m / t_scipy / 1e6:8.1f} Mpts/s"
          f"  ({t_scipy / t_dask:.1f}x slower)")
    print(f"  one in-process F(P) (all threads)       {t_local:8.3f} s  {m / t_local / 1e6:8.1f} Mpts/s")
    print(f"  dask overhead: {t_dask / t_local:.2f}x")


def xarray_grid(args):
    import xarray as xr

    import mathinterp.xarray  # noqa: F401 (registers the accessor)

    rng = np.random.default_rng(3)
    nx, nt = args.xr_size, 20
    T = xr.DataArray(rng.standard_normal((nx, nx, nt)), dims=("x", "y", "t"),
                     coords={"x": np.linspace(0, 1, nx), "y": np.linspace(0, 1, nx),
                             "t": np.arange(nt)})
    q = np.linspace(0, 1, 2 * nx)
    t_ours = best(lambda: T.mathinterp.interp(x=q, y=q), args.repeat)
    t_xr = best(lambda: T.interp(x=q, y=q), args.repeat)
    print(f"xarray {nx} x {nx} x {nt} -> {2 * nx} x {2 * nx} x {nt}, linear")
    print(f"  DataArray.interp          {t_xr:8.3f} s")
    print(f"  .mathinterp.interp        {t_ours:8.3f} s  ({t_xr / t_ours:.1f}x faster)")


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--points", type=float, default=1e8)
    p.add_argument("--chunk", type=float, default=1e6)
    p.add_argument("--grid", type=int, default=1000, help="grid points per dimension (2-D)")
    p.add_argument("--xr-size", type=int, default=1000)
    p.add_argument("--repeat", type=int, default=3)
    p.add_argument("--only", choices=("scattered", "xarray"))
    args = p.parse_args()
    args.points, args.chunk = int(args.points), int(args.chunk)
    print(f"load: {os.getloadavg()}")
    if args.only != "xarray":
        scattered(args)
    if args.only != "scattered":
        xarray_grid(args)


if __name__ == "__main__":
    main()

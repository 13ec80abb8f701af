"""A 2-D grid of records, each with a real vector field and a complex matrix field,
interpolated with "linear" inside and "boundary" (clamping) outside the grid."""
import numpy as np

import mathinterp

x = np.array([0.0, 1.0, 2.0])            # grid vector of dimension 1
y = np.array([0.0, 10.0])                # grid vector of dimension 2
records = np.empty((x.size, y.size), dtype=object)
for i, xi in enumerate(x):
    for j, yj in enumerate(y):
        records[i, j] = {
            "pressure": np.array([xi, yj, xi + yj]),                  # 3 reals
            "impedance": np.array([[1 + 1j * xi, 2.0], [3.0, 4 - 1j * yj]]),  # 2 x 2 complex
        }

qx = np.array([0.5, 3.0])                # 3.0 lies beyond the grid: clamped to 2.0
qy = np.array([5.0])
(out,) = mathinterp.gridStructsInterpFcn((x, y), (records,), (qx, qy), "linear", "boundary")
print("result shape:", out.shape)
for i in range(out.shape[0]):
    r = out[i, 0]
    print(f"at ({qx[i]}, {qy[0]}): pressure = {r['pressure']}")
    print(f"            impedance =\n{r['impedance']}")

# SPDX-License-Identifier: Apache-2.0
"""Fits a straight line to the Norris data set and compares it with the certified values.

The normal equations of the fit are formed and solved by LU factorisation in float64. Source of the
data and of the certified values: NIST, Statistical Reference Datasets, linear regression.
"""

from pathlib import Path

import numpy as np
import tessaline as ts

DATA = Path(__file__).resolve().parent / "data"
CERTIFIED = {"intercept": -0.262323073774029, "slope": 1.00211681802045}
CERTIFIED_DEVIATION = 0.884796396144373


def main() -> None:
    customer = np.loadtxt(DATA / "norris_customer.txt")
    nist = np.loadtxt(DATA / "norris_nist.txt")
    design = np.stack([np.ones_like(customer), customer], axis=1)

    transposed = ts.transpose(design)
    factor = ts.lu_factor(ts.matmul(transposed, design))
    fitted = factor.solve(ts.matvec(transposed, nist))
    residual = ts.subtract(nist, ts.matvec(design, fitted))
    deviation = ts.norm(residual) / np.sqrt(len(nist) - 2)

    print(f"Straight line through {len(nist)} pairs of ozone readings")
    found = dict(zip(CERTIFIED, fitted, strict=True)) | {"deviation": deviation}
    expected = CERTIFIED | {"deviation": CERTIFIED_DEVIATION}
    for name, certified in expected.items():
        digits = -np.log10(abs(found[name] - certified) / abs(certified) + 1e-16)
        print(
            f"  {name:<10}{found[name]:>20.13f}  certified {certified:>20.13f}  {digits:4.1f} digits"
        )


if __name__ == "__main__":
    main()

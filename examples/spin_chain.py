# SPDX-License-Identifier: Apache-2.0
"""Entanglement of a quantum spin chain, from its Hamiltonian to a picture.

The transverse-field Ising chain H = -J sum Z_i Z_(i+1) - h sum X_i of open ends is put together with
Kronecker products; its ground state, the reduced density matrix of its left half, the entropy of
entanglement between the halves and the unitary of its evolution follow.
"""

import argparse
import time
from pathlib import Path

import numpy as np
import tessaline as ts

X = np.array([[0.0, 1.0], [1.0, 0.0]])
Z = np.array([[1.0, 0.0], [0.0, -1.0]])


def at_site(operator: np.ndarray, site: int, sites: int) -> np.ndarray:
    """An operator of neighbouring sites, the first of which is `site`, on the whole chain."""
    width = operator.shape[0].bit_length() - 1
    left = ts.eye(2**site)
    right = ts.eye(2 ** (sites - site - width))
    return ts.kron(ts.kron(left, operator), right)


def ising_chain(sites: int, coupling: float, field: float) -> np.ndarray:
    bond = ts.kron(Z, Z)
    hamiltonian = np.zeros((2**sites, 2**sites))
    for site in range(sites - 1):
        hamiltonian -= coupling * at_site(bond, site, sites)
    for site in range(sites):
        hamiltonian -= field * at_site(X, site, sites)
    return hamiltonian


def entanglement_spectrum(state: np.ndarray, half: int) -> np.ndarray:
    """The eigenvalues of the reduced density matrix of the first `half` sites, descending."""
    density = ts.outer(state, ts.conjugate(state))
    reduced = ts.partial_trace_right(density, 2**half)
    return np.clip(ts.eigvalsh(reduced)[::-1], 0, None)


def evolution(values: np.ndarray, vectors: np.ndarray, duration: float) -> np.ndarray:
    """exp(-i H t) from the eigendecomposition of H, rounded to complex64."""
    phased = vectors * np.exp(-1j * duration * values)
    return ts.matmul(phased, ts.adjoint(vectors.astype(np.complex128))).astype(np.complex64)


def critical_ground_energy(sites: int) -> float:
    """The ground energy in closed form for h = J = 1 and open ends (P. Pfeuty, 1970)."""
    return 1 - 1 / float(np.sin(np.pi / (4 * sites + 2)))


def draw(spectra: dict[float, np.ndarray], path: Path) -> None:
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(6, 4), layout="constrained")
    for field, spectrum in spectra.items():
        shown = spectrum[spectrum > 1e-14]
        axes.semilogy(range(1, len(shown) + 1), shown, "o-", label=f"h/J = {field:g}")
    axes.set(
        xlabel="index",
        ylabel="eigenvalue of the reduced density matrix",
        title="Entanglement spectrum of the Ising chain",
    )
    axes.legend()
    figure.savefig(path, dpi=120)


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--sites", type=int, default=8, help="even number of spins (default 8)")
    parser.add_argument("--picture", type=Path, help="PNG of the entanglement spectra")
    arguments = parser.parse_args()
    sites: int = arguments.sites
    if sites < 2 or sites % 2 != 0 or sites > 12:
        parser.error("--sites must be an even number from 2 to 12")

    print(f"Ising chain of {sites} spins, {2**sites} states")
    spectra: dict[float, np.ndarray] = {}
    for field in (0.5, 1.0, 2.0):
        start = time.perf_counter()
        values, vectors = ts.eigh(ising_chain(sites, 1.0, field))
        spectrum = entanglement_spectrum(vectors[:, 0], sites // 2)
        seconds = time.perf_counter() - start
        spectra[field] = spectrum
        weights = spectrum[spectrum > 0]
        entropy = -float(np.sum(weights * np.log2(weights)))
        unitary = ts.is_unitary(evolution(values, vectors, 1.0))
        print(
            f"  h/J = {field:3g}: ground energy {values[0]:.12f}, entropy {entropy:.6f} bit, "
            f"evolution unitary: {unitary}, {seconds:.2f} s"
        )
    print(f"  exact ground energy for h/J = 1: {critical_ground_energy(sites):.12f}")
    print("\nWhat computed the ground states:\n")
    print(ts.describe("eigh"))
    if arguments.picture is not None:
        draw(spectra, arguments.picture)
        print(f"\nEntanglement spectra drawn to {arguments.picture}")


if __name__ == "__main__":
    main()

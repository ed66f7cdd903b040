# SPDX-License-Identifier: Apache-2.0
"""The rows of the table of user calls, and how it is printed."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass
from statistics import geometric_mean

OURS = "ours"
USER = "NumPy or SciPy"
#: Below this ratio a case is counted as slow.
SLOW = 0.35


@dataclass(frozen=True)
class Row:
    """What one case gave: seconds a call of each contender, by its name."""

    function: str
    dtype: str
    size: int
    seconds: dict[str, float]

    def ratio(self, contender: str = USER) -> float:
        return self.seconds[contender] / self.seconds[OURS]


def print_rows(rows: Iterable[Row], columns: list[str]) -> None:
    """Worst first: our microseconds, those of NumPy or SciPy, and each column's time over ours."""
    titles = ["ratio", *columns]
    head = "".join(f"{title:>10}" for title in titles)
    print(f"\n{'function':<26}{'dtype':<11}{'size':>8}{'ours us':>13}{'theirs us':>13}{head}")
    for row in sorted(rows, key=Row.ratio):
        ratios = "".join(
            f"{row.ratio(column):>10.3f}" if column in row.seconds else f"{'-':>10}"
            for column in [USER, *columns]
        )
        ours, theirs = (row.seconds[name] * 1e6 for name in (OURS, USER))
        print(f"{row.function:<26}{row.dtype:<11}{row.size:>8}{ours:>13.2f}{theirs:>13.2f}{ratios}")


def print_summary(rows: list[Row], peers: list[str]) -> None:
    """How many cases are faster, beside each peer and for each dtype, function and size."""
    print(f"\n{'':<28}{'cases':>6}{'faster':>9}{'mean':>8}{f'< {SLOW}':>8}")
    for peer in (USER, *peers):
        _print_share(f"beside {peer}", [row.ratio(peer) for row in rows if peer in row.seconds])
    for part in ("dtype", "function", "size"):
        print(f"\nby {part}, beside {USER}")
        groups: dict[str, list[float]] = {}
        for row in rows:
            groups.setdefault(str(getattr(row, part)), []).append(row.ratio())
        for name, ratios in sorted(groups.items(), key=lambda group: geometric_mean(group[1])):
            _print_share(name, ratios)


def _print_share(title: str, ratios: list[float]) -> None:
    if ratios:
        faster = sum(ratio > 1 for ratio in ratios) / len(ratios)
        slow = sum(ratio < SLOW for ratio in ratios)
        print(f"{title:<28}{len(ratios):>6}{faster:>9.0%}{geometric_mean(ratios):>8.3f}{slow:>8}")

# SPDX-License-Identifier: Apache-2.0
"""Times of calls that take turns, so that what disturbs the machine disturbs them alike."""

from __future__ import annotations

import math
import time
import timeit
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from statistics import median
from typing import Any

Calls = Mapping[str, Callable[[], Any]]


@dataclass(frozen=True)
class Effort:
    """How long to measure, in processor time."""

    turn_seconds: float  #: the calls of a contender in one turn, at least
    turns: int  #: of each contender, at most
    seconds: float  #: after these the turns end, though not before the third


def interleaved_medians(calls: Calls, effort: Effort) -> dict[str, float]:
    """The median processor seconds of each call over its turns."""
    counts = {name: _calls_of_a_turn(call, effort.turn_seconds) for name, call in calls.items()}
    times: dict[str, list[float]] = {name: [] for name in calls}
    end = time.process_time() + effort.seconds
    for turn in range(effort.turns):
        if turn >= 3 and time.process_time() > end:
            break
        for name, call in calls.items():
            times[name].append(_seconds(call, counts[name]))
    return {name: median(each) for name, each in times.items()}


def _seconds(call: Callable[[], Any], number: int) -> float:
    return timeit.timeit(call, timer=time.process_time, number=number) / number


def _calls_of_a_turn(call: Callable[[], Any], seconds: float) -> int:
    once = _seconds(call, 1)
    if once >= seconds:
        return 1
    return math.ceil(seconds / max(min(once, _seconds(call, 1)), 1e-7))

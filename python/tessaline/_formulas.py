# SPDX-License-Identifier: Apache-2.0
"""Symbolic expressions of the catalogue, printed as mathematics."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

from ._signatures import OUTPUT

Letters = Mapping[tuple[int, int], str]

_SUM, _PRODUCT, _POWER, _ATOM = range(4)
_CALLS = {"minimum": "min", "maximum": "max", "log2": "log2"}
_AXES = {0: "rows", 1: "columns"}


def role_name(role: int) -> str:
    return f"Output{role - OUTPUT}" if role >= OUTPUT else f"Input{role}"


def formula(node: Mapping[str, Any], letters: Letters | None = None) -> str:
    """The text of an expression. `letters` names the axes of operands, by role and axis."""
    return _print(node, letters or {})[0]


def _print(node: Mapping[str, Any], letters: Letters) -> tuple[str, int]:
    """The text of a node, and how tightly it binds."""
    kind = node.get("operator", node["kind"])
    if kind == "constant":
        return str(node["integer"]), _ATOM
    if kind == "symbol":
        return node["name"], _ATOM
    if kind == "operand_dimension":
        place = node["role"], node["axis"]
        return letters.get(place) or _plain_dimension(*place), _ATOM
    if kind == "operand_value":
        return letters.get((node["role"], -1)) or f"value({role_name(node['role'])})", _ATOM
    if "operands" not in node:
        return kind, _ATOM
    parts = [_print(operand, letters) for operand in node["operands"]]
    if kind in _CALLS:
        return f"{_CALLS[kind]}({', '.join(text for text, _ in parts)})", _ATOM
    if kind == "add":
        return " + ".join(_enclosed(part, _SUM) for part in parts), _SUM
    if kind == "multiply":
        return " ".join(_enclosed(part, _PRODUCT) for part in parts), _PRODUCT
    if kind == "divide":
        return f"{_enclosed(parts[0], _PRODUCT)} / {_enclosed(parts[1], _POWER)}", _PRODUCT
    if kind == "power":
        return f"{_enclosed(parts[0], _ATOM)}^{_enclosed(parts[1], _ATOM)}", _POWER
    return f"{kind}({', '.join(text for text, _ in parts)})", _ATOM


def _plain_dimension(role: int, axis: int) -> str:
    return f"{_AXES.get(axis, f'axis{axis}')}({role_name(role)})"


def _enclosed(part: tuple[str, int], least: int) -> str:
    """The text, in parentheses where it binds less tightly than its surroundings need."""
    text, binding = part
    return text if binding >= least else f"({text})"

# SPDX-License-Identifier: Apache-2.0
"""The table of operation signatures that drives every function of the package.

A signature reads like those of NumPy's generalised functions, with the operands' names before
their dimensions: ``a(m,k), b(k,n) -> (m,n)``. A letter stands for one size wherever it occurs, and
a product such as ``m*p`` may stand on the right.
"""

from __future__ import annotations

from collections.abc import Sequence
from math import prod

INPUT = 0
OUTPUT = 1 << 31

Shape = tuple[int, ...]


def _dimensions(text: str) -> tuple[str, ...]:
    inside = text[text.index("(") + 1 : text.index(")")]
    return tuple(part.strip() for part in inside.split(",") if part.strip())


def _operands(text: str) -> list[str]:
    """The operands of one side: split at the commas outside of parentheses."""
    pieces = [piece for piece in text.replace(" ", "").split(")") if piece]
    return [piece.lstrip(",") + ")" for piece in pieces]


class Signature:
    """How one operation is called.

    Attributes:
        name: of the function.
        text: the signature as it is printed.
        elementwise: the output may be the memory of an input, because each element depends on its
            own place alone.
        in_place: the last input, if there is any, is overwritten: natively it is the output.
        gathered: natively all results are one operand.
        names: of the inputs.
        inputs: the letters of each input's axes.
        outputs: the letters of each output's axes.
        read_count: how many inputs natively are inputs.
        write_count: how many operands the results natively are.
        locations: where the operands of each role lie.
    """

    __slots__ = (
        "elementwise",
        "gathered",
        "id",
        "in_place",
        "inputs",
        "locations",
        "name",
        "names",
        "outputs",
        "read_count",
        "text",
        "write_count",
    )

    def __init__(
        self,
        name: str,
        text: str,
        elementwise: bool = False,
        in_place: bool = False,
        gathered: bool = False,
    ) -> None:
        self.name = name
        self.text = text
        self.elementwise = elementwise
        self.in_place = in_place
        self.gathered = gathered
        self.id = f"tessaline.{name}@1"
        left, right = (_operands(side) for side in text.split("->"))
        self.names = tuple(piece[: piece.index("(")] for piece in left)
        self.inputs = tuple(_dimensions(piece) for piece in left)
        self.outputs = tuple(_dimensions(piece) for piece in right)
        self.read_count = max(0, len(left) - in_place)
        roles = [INPUT + i for i in range(self.read_count)]
        self.write_count = 1 if gathered else len(right)
        roles += [OUTPUT + i for i in range(self.write_count)]
        self.locations = dict.fromkeys(roles, "host")

    def bind(self, shapes: Sequence[Shape]) -> dict[str, int]:
        """The size of each letter. Raises ValueError for shapes that do not fit."""
        sizes: dict[str, int] = {}
        for dimensions, shape in zip(self.inputs, shapes):
            if len(shape) != len(dimensions):
                raise ValueError(self._misfit(shapes))
            for letter, size in zip(dimensions, shape):
                if sizes.setdefault(letter, size) != size:
                    raise ValueError(self._misfit(shapes))
        return sizes

    def _misfit(self, shapes: Sequence[Shape]) -> str:
        given = ", ".join(f"{name} {shape}" for name, shape in zip(self.names, shapes))
        return f"{self.name} takes {self.text}; the shapes here are {given}"

    def result_shapes(self, shapes: tuple[Shape, ...], **sizes: int) -> tuple[Shape, ...]:
        """The shapes of the results for operands of these shapes, and letters that none has.

        Raises ValueError for shapes that do not fit.
        """
        sizes |= self.bind(shapes)
        return tuple(
            tuple(prod(sizes[letter] for letter in dimension.split("*")) for dimension in output)
            for output in self.outputs
        )

    def letters(self) -> dict[tuple[int, int], str]:
        """The letter of each axis of each operand, by role and axis."""
        named: dict[tuple[int, int], str] = {}
        sides = [
            (INPUT, self.inputs[: self.read_count]),
            (OUTPUT, self.outputs[: self.write_count]),
        ]
        for first, operands in sides:
            for index, dimensions in enumerate(operands):
                for axis, letter in enumerate(dimensions):
                    named[first + index, axis] = letter
        return named


_ROWS = (
    Signature("sqrt", "x(n) -> (n)", elementwise=True),
    Signature("conjugate", "x(n) -> (n)", elementwise=True, in_place=True),
    Signature("multiply", "x(n), y(n) -> (n)", elementwise=True),
    Signature("add", "x(n), y(n) -> (n)", elementwise=True),
    Signature("subtract", "x(n), y(n) -> (n)", elementwise=True),
    Signature("sum", "x(n) -> ()"),
    Signature("norm", "x(n) -> ()"),
    Signature("scale", "x(n), factor() -> (n)", elementwise=True),
    Signature("divide", "x(n), divisor() -> (n)", elementwise=True),
    Signature("transpose", "a(m,n) -> (n,m)"),
    Signature("adjoint", "a(m,n) -> (n,m)"),
    Signature("matmul", "a(m,k), b(k,n) -> (m,n)"),
    Signature("matvec", "a(m,n), x(n) -> (m)"),
    Signature("kron", "a(m,n), b(p,q) -> (m*p,n*q)"),
    Signature("inner", "x(n), y(n) -> ()"),
    Signature("outer", "x(m), y(n) -> (m,n)"),
    Signature("lu_factor", "a(n,n) -> (n,n)", in_place=True),
    Signature("solve", "a(n,n), b(n) -> (n)", in_place=True),
    Signature("logdet", "a(n,n) -> ()"),
    Signature("trace", "a(m,n) -> ()"),
    Signature("eig", "a(n,n) -> (n), (n,n)", gathered=True),
    Signature("principal_eigenvector", "a(n,n) -> (n)"),
    Signature("partial_trace_left", "a(n,n) -> (m,m)"),
    Signature("partial_trace_right", "a(n,n) -> (m,m)"),
    Signature("matrix_power", "a(n,n), exponent() -> (n,n)"),
    Signature("is_unitary", "a(m,n) -> ()"),
    Signature("eye", "-> (n,n)", in_place=True),
    Signature("vector_equal", "x(n), y(m) -> ()"),
    Signature("eigh", "a(n,n) -> (n), (n,n)"),
    Signature("eigvalsh", "a(n,n) -> (n)"),
    Signature("slogdet", "a(n,n) -> (), ()"),
    Signature("logdet_positive_definite", "a(n,n) -> ()"),
)

#: Every operation of the package by its name.
SIGNATURES: dict[str, Signature] = {row.name: row for row in _ROWS}

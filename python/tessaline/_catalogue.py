# SPDX-License-Identifier: Apache-2.0
"""The catalogue for people: what operations there are, and what each promises."""

from __future__ import annotations

from typing import Any

from ._context import Context, current_context, default_catalogue, operation_id
from ._formulas import Letters, formula, role_name
from ._signatures import INPUT, SIGNATURES, Signature

_RELATIONS = {
    "equal": "=",
    "less_equal": "<=",
    "greater_equal": ">=",
    "divisible_by": "is divisible by",
}

_KINDS = {"lu": "LU factors", "eigen": "eigenvalues and eigenvectors"}


def _catalogue_of(context: Context | None) -> Any:
    return default_catalogue() if context is None else current_context(context).catalogue


def _signature_of(identifier: str) -> Signature | None:
    name = identifier.removeprefix("tessaline.").removesuffix("@1")
    known = SIGNATURES.get(name)
    return known if known and known.id == identifier else None


def operations(context: Context | None = None) -> tuple[str, ...]:
    """The ids of all operations, of a context's catalogue or of the built-in one.

    >>> "tessaline.matmul@1" in operations()
    True
    """
    return tuple(_catalogue_of(context).operations())


def describe(operation: str, context: Context | None = None) -> Description:
    """What an operation promises and how its implementations compute.

    `operation` is an id such as ``tessaline.matmul@1``, also without its version, or the bare name
    of a built-in one. Raises KeyError for an operation that the catalogue does not have.

    >>> describe("matmul").id
    'tessaline.matmul@1'
    """
    catalogue = _catalogue_of(context)
    return Description(catalogue.describe(operation_id(operation, catalogue)))


class Description:
    """A readable record of one operation: text in a terminal, tables in a notebook.

    Attributes:
        id: the versioned id.
        record: everything as plain dictionaries and lists.
        signature: how the operation's function is called; None for one without a function.
    """

    def __init__(self, record: dict[str, Any]) -> None:
        self.record = record
        self.id: str = record["id"]
        known = _signature_of(self.id)
        self._known = known
        self.signature = known.text if known else None
        self._letters: Letters = _letters_of(known) if known else {}

    def __repr__(self) -> str:
        return f"<Description of {self.id}, {len(self.record['implementations'])} implementations>"

    def __str__(self) -> str:
        lines = [self.id]
        for title, entries in self._sections():
            if entries:
                lines += ["", title]
                lines += [f"  {entry}" for entry in entries]
        for title, header, rows in self._tables():
            lines += ["", title]
            lines += [f"  {line}".rstrip() for line in _columns([header, *rows])]
        return "\n".join(lines)

    def _repr_html_(self) -> str:
        # Only notebooks come here, and the module takes a while to import.
        from html import escape

        parts = [f"<h4><code>{escape(self.id)}</code></h4>"]
        for title, entries in self._sections():
            if entries:
                items = "".join(f"<li>{escape(entry)}</li>" for entry in entries)
                parts.append(f"<b>{escape(title)}</b><ul>{items}</ul>")
        for title, header, rows in self._tables():
            head = "".join(f"<th>{escape(cell)}</th>" for cell in header)
            body = "".join(
                "<tr>" + "".join(f"<td>{escape(cell)}</td>" for cell in row) + "</tr>"
                for row in rows
            )
            parts.append(f"<b>{escape(title)}</b><table><tr>{head}</tr>{body}</table>")
        return "".join(parts)

    def work(self) -> tuple[str, ...]:
        """The distinct formulas for the work of the implementations."""
        numerics = [each["numerics"] for each in self.record["implementations"]]
        found = [self.formula(each["complexity"]["work"]) for each in numerics if each]
        return tuple(dict.fromkeys(found))

    def formula(self, node: dict[str, Any]) -> str:
        """An expression of the record as mathematics, in the letters of the signature."""
        return formula(node, self._letters)

    def _sections(self) -> list[tuple[str, list[str]]]:
        record = self.record
        return [
            ("Provided by", [record["provenance"]] if self.signature is None else []),
            ("Signature", [self.signature] if self.signature else []),
            ("Operands", [self._operand(each) for each in record["operands"]]),
            ("Shapes", [self._constraint(each) for each in record["constraints"]]),
            ("Requirements", [self._requirement(each) for each in record["requirements"]]),
            ("Notes", record["notes"]),
            ("Parameters", self._parameters()),
            ("Notes on the implementations", self._remarks()),
        ]

    def _operand(self, operand: dict[str, Any]) -> str:
        """An operand with its name in the signature, its kind, and what is done to it."""
        name, role = operand["id"], operand["role"]
        if self._known is not None and role < self._known.read_count:
            name += f" ({self._known.names[role]})"
        # A contract may leave the kind open; the implementations do not.
        kinds = {
            each["kind"]
            for implementation in self.record["implementations"]
            for each in implementation["operands"]
            if each["role"] == role
        }
        kind = " or ".join(_KINDS.get(each, each) for each in sorted(kinds)) or "operand"
        return f"{name}: {kind}, {operand['access'].replace('_', ' ')}"

    def _constraint(self, constraint: dict[str, Any]) -> str:
        # The signature has the letters, so the axes are named in full here.
        names = {
            (each["role"], 0): f"length({role_name(each['role'])})"
            for each in self.record["shapes"]
            if each["rank"] == 1
        }
        relation = _RELATIONS.get(constraint["relation"], constraint["relation"])
        left, right = (formula(constraint[side], names) for side in ("left", "right"))
        return f"{left} {relation} {right}"

    def _requirement(self, requirement: dict[str, Any]) -> str:
        roles = ", ".join(role_name(role) for role in requirement["roles"])
        kind = requirement["kind"].replace("_", " ")
        enforcement = requirement["enforcement"].replace("_", " ")
        return f"{roles}: {kind} ({enforcement}). {requirement['note']}"

    def _numerics(self) -> list[tuple[str, dict[str, Any]]]:
        """The dtype and the numerics of each implementation that has numerics."""
        return [
            (each["operands"][0]["dtype"], each["numerics"])
            for each in self.record["implementations"]
            if each["numerics"]
        ]

    def _parameters(self) -> list[str]:
        values: dict[str, list[str]] = {}
        for dtype, numerics in self._numerics():
            for parameter in numerics["parameters"]:
                text = f"{parameter['name']} = {parameter['value']}. {parameter['description']}"
                values.setdefault(text, []).append(dtype)
        return self._where(values)

    def _remarks(self) -> list[str]:
        remarks: dict[str, list[str]] = {}
        for dtype, numerics in self._numerics():
            for part in (numerics["complexity"], numerics["precision"], numerics):
                for note in part["notes"]:
                    remarks.setdefault(note, []).append(dtype)
        return self._where(remarks)

    def _where(self, entries: dict[str, list[str]]) -> list[str]:
        """Texts with the dtypes they hold for, unless they hold for all."""
        every = {dtype for dtype, _ in self._numerics()}
        return [
            text if set(on) == every else f"{text} ({', '.join(dict.fromkeys(on))})"
            for text, on in entries.items()
        ]

    def _tables(self) -> list[tuple[str, list[str], list[list[str]]]]:
        header = ["dtype", "backend", "algorithm", "stability", "work", "extra space"]
        header += ["sums in", "order"]
        rows = []
        for each in self.record["implementations"]:
            numerics = each["numerics"]
            cells = [_dtypes(each["operands"]), each["backend"]]
            if numerics:
                cost, precision = numerics["complexity"], numerics["precision"]
                cells += [
                    numerics["algorithm"],
                    numerics["stability"].replace("_", " "),
                    self.formula(cost["work"]),
                    self.formula(cost["auxiliary_space"]),
                    precision["accumulation_dtype"] or "-",
                    precision["reduction_order"].replace("_", " "),
                ]
            if cells not in rows:
                rows.append(cells)
        return [("Implementations", header, rows)] if rows else []


def _dtypes(operands: list[dict[str, Any]]) -> str:
    """The dtypes of operands that are read, and behind an arrow of those that are written."""
    if len({each["dtype"] for each in operands}) == 1:
        return str(operands[0]["dtype"])
    sides = [[each["dtype"] for each in operands if each["write"] == side] for side in (0, 1)]
    return " -> ".join(", ".join(side) for side in sides if side)


def _letters_of(signature: Signature) -> Letters:
    letters = signature.letters()
    for index, (name, dimensions) in enumerate(zip(signature.names, signature.inputs)):
        if not dimensions and index < signature.read_count:
            letters[INPUT + index, -1] = name
    return letters


def _columns(rows: list[list[str]]) -> list[str]:
    """Rows of text in columns as wide as their widest cell."""
    count = max(len(row) for row in rows)
    full = [[*row, *[""] * (count - len(row))] for row in rows]
    widths = [max(len(row[i]) for row in full) for i in range(count)]
    return ["  ".join(cell.ljust(width) for cell, width in zip(row, widths)) for row in full]

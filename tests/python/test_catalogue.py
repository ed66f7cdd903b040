# SPDX-License-Identifier: Apache-2.0
"""The catalogue as plain Python objects, and the builder that seals it."""

import json

import pytest
from tessaline import _native

OUT = 1 << 31


@pytest.fixture(scope="module")
def catalogue():
    return _native.ContextBuilder().build()


def test_a_builder_builds_once():
    builder = _native.ContextBuilder()
    builder.build()
    with pytest.raises(RuntimeError, match="^ContextBuilder has already been built$") as raised:
        builder.build()
    assert not isinstance(raised.value, _native.NativeError)


def test_contexts_share_a_catalogue(catalogue):
    context = _native.Context(pinning_policy="disabled", catalogue=catalogue)
    assert context.cuda_device == -1


def test_ids_are_sorted_and_looked_up_in_canonical_form(catalogue):
    ids = catalogue.operations()
    assert isinstance(ids, tuple)
    assert list(ids) == sorted(ids)
    assert catalogue.contains_operation("tessaline.add@1")
    assert not catalogue.contains_operation("tessaline.add@2")
    for text in ("tessaline.add", "add@1"):
        with pytest.raises(ValueError, match="^OperationId"):
            catalogue.contains_operation(text)
        with pytest.raises(ValueError, match="^OperationId"):
            catalogue.describe(text)
    with pytest.raises(IndexError, match="'tessaline.nothing@1' is not registered"):
        catalogue.describe("tessaline.nothing@1")


DESCRIPTION_KEYS = (
    "id, operands, provenance, shapes, constraints, requirements, notes, numerics, implementations"
)
NUMERICS_KEYS = ["algorithm", "stability", "complexity", "precision", "parameters", "notes"]
PLACE_KEYS = ["role", "write", "access", "kind"]
KEY_KEYS = ["dtype", "compute_dtype", "location"]


def expressions(node):
    """All nodes of an expression."""
    yield node
    for operand in node.get("operands", ()):
        yield from expressions(operand)


def check_expression(node):
    keys = {
        "constant": {"integer"},
        "symbol": {"name"},
        "operand_dimension": {"role", "axis"},
        "operand_value": {"role"},
        "unknown": set(),
    }
    for part in expressions(node):
        expected = keys.get(part["kind"], {"operator", "operands"})
        assert set(part) == {"kind"} | expected


def test_every_description_has_the_same_form(catalogue):
    for operation in catalogue.operations():
        description = catalogue.describe(operation)
        json.dumps(description)  # plain objects throughout
        assert ", ".join(description) == DESCRIPTION_KEYS
        assert description["id"] == operation
        assert description["provenance"] == f"builtin:tessaline@{_native.build_info()['version']}"
        roles = [operand["role"] for operand in description["operands"]]
        assert roles == sorted(roles)
        assert list(description["operands"][0]) == ["id", *PLACE_KEYS]
        assert list(description["numerics"]) == NUMERICS_KEYS
        for constraint in description["constraints"]:
            check_expression(constraint["left"])
            check_expression(constraint["right"])
        for implementation in description["implementations"]:
            assert list(implementation) == ["backend", "operands", "provenance", "numerics"]
            assert [operand["role"] for operand in implementation["operands"]] == roles
            for operand in implementation["operands"]:
                has_format = operand["kind"] != "scalar"
                has_layout = operand["kind"] not in ("scalar", "vector")
                assert list(operand) == (
                    PLACE_KEYS
                    + KEY_KEYS
                    + ["storage_format"] * has_format
                    + ["complex_layout"]
                    + ["matrix_layout"] * has_layout
                )
            numerics = implementation["numerics"]
            if numerics is not None:
                assert list(numerics) == NUMERICS_KEYS
                check_expression(numerics["complexity"]["work"])
                check_expression(numerics["complexity"]["auxiliary_space"])


def test_add_is_described_to_the_word(catalogue):
    description = catalogue.describe("tessaline.add@1")
    assert description["operands"][2] == {
        "id": "Output0",
        "role": OUT,
        "write": True,
        "access": "write",
        "kind": None,
    }
    assert description["shapes"] == [{"role": role, "rank": 1} for role in (0, 1, OUT)]
    assert description["constraints"][0] == {
        "left": {"kind": "operand_dimension", "role": 1, "axis": 0},
        "relation": "equal",
        "right": {"kind": "operand_dimension", "role": 0, "axis": 0},
    }
    assert description["requirements"] == []
    assert description["notes"] == ["Both inputs and the output have the same length."]

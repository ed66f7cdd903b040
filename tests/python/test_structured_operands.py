# SPDX-License-Identifier: Apache-2.0
"""LU and eigenvalue storage and factors, and what they refuse."""

import gc

import ml_dtypes
import numpy as np
import pytest
from tessaline import NativeError, _native
from tessaline._dtypes import complex32

OUT = 1 << 31
MATRIX = [[4, 3, 1], [6, 3, 0], [1, 5, 2]]


@pytest.fixture(scope="module")
def context():
    return _native.Context(pinning_policy="disabled")


FLOATING = [each for each in _native.numeric_policies() if each["dtype"] != "int32"]


@pytest.mark.parametrize("policy", FLOATING, ids=lambda policy: policy["dtype"])
def test_storage_is_widened_to_compute_precision(policy):
    dtype, stored = policy["dtype"], policy["compute_dtype"]
    operand = _native.LUOperand(4, dtype=dtype, compute_dtype=stored)
    assert (operand.dtype, operand.compute_dtype, operand.size) == (stored, stored, 4)
    assert operand.factors.dtype == stored
    assert operand.factors.strides == (operand.factors.itemsize, 4 * operand.factors.itemsize)
    assert operand.pivots.dtype == np.int64
    assert operand.swaps == 0
    assert not operand.factors.any()


@pytest.mark.parametrize(
    "dtype", [np.float16, ml_dtypes.bfloat16, np.float32, np.float64, complex32, np.complex64]
)
def test_a_matrix_is_copied_element_for_element(dtype):
    values = np.array(MATRIX).astype(dtype)
    operand = _native.LUOperand(values)
    assert np.array_equal(operand.factors, values.astype(operand.dtype))
    operand.factors[0, 1] = 7
    assert np.array_equal(values, np.array(MATRIX).astype(dtype))
    assert operand.factors[0, 1] == 7


def test_views_keep_their_storage_alive():
    factors = _native.LUOperand(np.array(MATRIX, np.float64)).factors
    values = _native.EigenOperand(3, dtype="complex128").values
    gc.collect()
    assert factors.tolist() == MATRIX
    values[:] = 1j
    assert values.tolist() == [1j, 1j, 1j]


@pytest.mark.parametrize(
    ("arguments", "keywords", "message"),
    [
        ((4,), {"dtype": "int32"}, "structured operand - uncompiled storage/compute dtype policy"),
        (
            (4,),
            {"dtype": "float32", "compute_dtype": "float64"},
            "structured operand - uncompiled storage/compute dtype policy",
        ),
        ((np.ones((3, 2)),), {}, "LUOperand - matrix must be square"),
        ((np.ones(3),), {}, "LUOperand - matrix must be square"),
        ((np.ones((2, 2), np.int32),), {}, "LUOperand - matrix requires floating point storage"),
        ((np.ones((2, 2), bool),), {}, "LUOperand - matrix requires floating point storage"),
        (
            (np.ones((2, 2)),),
            {"dtype": "float32"},
            "LUOperand - explicit dtype does not match array storage",
        ),
        (
            (np.zeros(33, np.uint8)[1:].view(np.float64).reshape(2, 2),),
            {},
            "LUOperand - input must be aligned",
        ),
    ],
)
def test_operands_refuse_what_they_cannot_hold(arguments, keywords, message):
    with pytest.raises(ValueError) as raised:
        _native.LUOperand(*arguments, **keywords)
    assert str(raised.value) == message


def test_bindings_of_structured_operands_are_checked(context):
    operand = _native.LUOperand(np.array(MATRIX, np.float64))
    unmade = _native.LUOperand.__new__(_native.LUOperand)
    refused = [
        ({OUT: operand}, {OUT: "cuda"}, {}, "LUOperand must use host residency"),
        (
            {OUT: operand},
            {OUT: "host"},
            {OUT: "float32"},
            "structured operand compute dtype is fixed at construction",
        ),
        ({OUT: unmade}, {OUT: "host"}, {}, "Output0 was never initialised"),
    ]
    for bindings, locations, compute, message in refused:
        with pytest.raises((ValueError, RuntimeError)) as raised:
            context.execute("tessaline.lu_factor@1", bindings, locations, compute)
        assert str(raised.value) == f"Context.execute - {message}"
    assert operand.factors.tolist() == MATRIX


def test_factor_failures_have_their_reason(context):
    with pytest.raises(NativeError) as raised:
        _native.LUFactor(np.zeros((2, 2)), context)
    assert raised.value.reason == "singular"
    assert isinstance(raised.value.detail, str)
    assert not hasattr(raised.value, "status_name")
    factor = _native.LUFactor(np.eye(2), context)
    assert (factor.size, factor.dtype) == (2, "float64")
    assert factor.logdet() == 0 and type(factor.logdet()) is complex
    for rhs, error, message in [
        (np.ones((2, 1)), ValueError, "right-hand side size mismatch"),
        (np.ones(3), ValueError, "right-hand side size mismatch"),
        (np.ones(2, np.float32), ValueError, "right-hand side dtype does not match factor"),
        (np.zeros(17, np.uint8)[1:].view(float), ValueError, "right-hand side must be aligned"),
        (np.ones(4)[::2], TypeError, "right-hand side is not in C order"),
        (np.broadcast_to(1.0, 2), TypeError, "right-hand side is read-only"),
        ([1.0, 1.0], TypeError, "host binding requires a NumPy ndarray"),
    ]:
        with pytest.raises(error) as raised:
            factor.solve(rhs)
        assert str(raised.value) == f"solve - {message}"


def test_eigenvalues_land_in_their_operand(context):
    matrix = np.array([[2, 1], [0, 3]], np.complex128)
    operand = _native.EigenOperand(2, dtype="complex128")
    result = context.execute("tessaline.eig@1", {0: matrix, OUT: operand}, {0: "host", OUT: "host"})
    assert result is operand
    residual = matrix @ operand.vectors - operand.vectors * operand.values
    limit = 10 * 2 * np.finfo(np.float64).eps * np.linalg.norm(matrix)
    assert np.abs(residual).max() <= limit
    assert np.abs(np.sort(operand.values.real) - [2, 3]).max() <= limit

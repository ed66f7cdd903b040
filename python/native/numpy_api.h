// SPDX-License-Identifier: Apache-2.0
#pragma once

// NumPy's C interface, whose table of functions numpy_types.cpp holds for the whole module. It is
// there once NumpyTypes::get() has returned.

#include <Python.h>

#define NPY_NO_DEPRECATED_API NPY_2_0_API_VERSION
#define NPY_TARGET_VERSION NPY_2_0_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL tessaline_numpy_functions
#ifndef TESSALINE_DEFINES_NUMPY_API
#define NO_IMPORT_ARRAY
#endif
#include <numpy/arrayobject.h>
#include <numpy/arrayscalars.h>

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_contract.h"

#include "tessaline/storage/numeric_policy.h"

namespace Tessaline {

namespace {

bool is_row_or_column_major(const BackendOperandKey& key) {
    return key.layout == DataMatrixLayout::row_major ||
           key.layout == DataMatrixLayout::column_major;
}

bool complex_layout_passes(const BackendOperandKey& key, bool complex) {
    return complex ? key.complex == DataComplexLayout::split ||
                         key.complex == DataComplexLayout::interleaved
                   : key.complex == DataComplexLayout::none;
}

bool matrix_passes(const BackendOperandKey& key, bool complex) {
    const bool either_layout = key.complex == DataComplexLayout::interleaved;
    return complex_layout_passes(key, complex) &&
           (either_layout ? is_row_or_column_major(key)
                          : key.layout == DataMatrixLayout::row_major);
}

bool lu_passes(const BackendOperandKey& key, ScalarCategory category) {
    const auto layout = category == ScalarCategory::complex_floating
                            ? DataComplexLayout::interleaved
                            : DataComplexLayout::none;
    return category != ScalarCategory::real_integer && key.complex == layout &&
           key.layout == DataMatrixLayout::column_major;
}

} // namespace

bool dense_storage_contract(const BackendOperandKey& key) {
    // A scalar's format has no value to speak of, yet a set one is no dense scalar.
    if (key.format != OperandFormat::dense(key.kind) || key.format.value != 0) {
        return false;
    }
    const ScalarCategory category = scalar_metadata(key.storage).category;
    if (category == ScalarCategory::complex_integer) {
        return false;
    }
    const bool complex = category == ScalarCategory::complex_floating;
    switch (key.kind) {
    case OperandKind::Scalar:
        return key.complex == DataComplexLayout::none && !key.layout;
    case OperandKind::Vector:
        return complex_layout_passes(key, complex) && !key.layout;
    case OperandKind::Matrix:
        return matrix_passes(key, complex);
    case OperandKind::LuDecomp:
        return lu_passes(key, category);
    case OperandKind::EigenVals:
        return complex && key.complex == DataComplexLayout::interleaved &&
               is_row_or_column_major(key);
    }
    return false;
}

namespace {

/// What pinned and device storage share: they keep eigenvectors in column-major order only.
bool has_compiled_class(const BackendOperandKey& key) {
    return dense_storage_contract(key) &&
           (key.kind != OperandKind::EigenVals || key.layout == DataMatrixLayout::column_major) &&
           is_compiled_policy(key.storage, key.compute);
}

} // namespace

bool StorageFactory::supports_pinned_storage(const BackendOperandKey& key) {
    return has_compiled_class(key);
}

bool StorageFactory::supports_device_transfer(const BackendOperandKey& key) {
    // A device keeps factors in compute precision.
    return has_compiled_class(key) &&
           (key.kind != OperandKind::LuDecomp || key.storage == key.compute);
}

bool StorageFactory::supports_host_transfer(const BackendOperandKey& source,
                                            const BackendOperandKey& device, bool input) {
    const bool pinned = source.location == DataLocation::pinned_host;
    if ((source.location != DataLocation::pageable_host && !pinned) ||
        device.location != DataLocation::cuda_device || source.kind != device.kind ||
        source.format != device.format || source.storage != device.storage ||
        source.compute != device.compute || source.complex != device.complex ||
        !dense_storage_contract(source) || !supports_device_transfer(device)) {
        return false;
    }
    if (source.kind == OperandKind::EigenVals) {
        return !input && (pinned ? source.layout == device.layout : source.layout.has_value());
    }
    if (source.kind == OperandKind::Matrix && source.complex == DataComplexLayout::interleaved) {
        return source.layout.has_value() && device.layout == DataMatrixLayout::column_major;
    }
    return source.layout == device.layout;
}

} // namespace Tessaline

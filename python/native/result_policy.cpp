// SPDX-License-Identifier: Apache-2.0
#include "result_policy.h"

#include "array_policy.h"
#include "native_errors.h"
#include "text.h"

#include "tessaline/storage/numeric_policy.h"

#include <nanobind/stl/string_view.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

OperandKind kind_of(const nb::tuple& shape) {
    if (shape.size() > 2) {
        throw std::invalid_argument(
            "Context.execute - array binding rank must be zero, one or two");
    }
    return static_cast<OperandKind>(shape.size());
}

/// The layout of arrays of a kind.
std::optional<DataMatrixLayout> array_layout(OperandKind kind) {
    return kind == OperandKind::Matrix ? std::optional(DataMatrixLayout::row_major) : std::nullopt;
}

BackendOperandKey input_key(nb::handle input) {
    nb::tuple entries;
    if (!nb::try_cast(input, entries) || entries.size() != 3) {
        throw std::invalid_argument("result policy - invalid input descriptor");
    }
    const auto storage = text_of(nb::object(entries[0]));
    const auto compute = text_of(nb::object(entries[1]));
    nb::tuple shape;
    if (!storage || !compute || !nb::try_cast(nb::object(entries[2]), shape)) {
        throw CastError("result policy - an input descriptor holds two texts and a tuple");
    }
    return array_key(scalar_type_named(*storage), scalar_type_named(*compute), kind_of(shape));
}

} // namespace

BackendOperandKey array_key(ScalarType storage, ScalarType compute, OperandKind kind) {
    BackendOperandKey key;
    key.storage = storage;
    key.compute = compute;
    key.kind = kind;
    key.format = OperandFormat::dense(kind);
    key.layout = array_layout(kind);
    const ScalarCategory category = scalar_metadata(storage).category;
    const bool complex =
        category == ScalarCategory::complex_floating || category == ScalarCategory::complex_integer;
    if (complex && kind != OperandKind::Scalar) {
        key.complex = DataComplexLayout::interleaved;
    }
    return key;
}

DataTypeDescriptor inferred_result(const NativeContext& context, const OperationId& operation,
                                   const std::vector<BackendOperandKey>& inputs, OperandKind kind,
                                   std::optional<ScalarType> storage) {
    static constexpr BackendKind families[] = {BackendKind::cpu_scalar, BackendKind::cpu_simd};
    const DenseResultRequest request{kind, DataLocation::pageable_host, array_layout(kind),
                                     storage};
    return context.context().infer_dense_result_policy(operation, families, inputs, request);
}

nb::tuple result_policy(const NativeContext& context, std::string_view operation,
                        const nb::list& inputs, const nb::tuple& output_shape,
                        std::string_view output_dtype) {
    std::vector<BackendOperandKey> keys;
    for (const nb::handle input : inputs) {
        keys.push_back(input_key(input));
    }
    std::optional<ScalarType> wanted;
    if (!output_dtype.empty()) {
        wanted = scalar_type_named(output_dtype);
    }
    const DataTypeDescriptor policy = inferred_result(context, OperationId::parse(operation), keys,
                                                      kind_of(output_shape), wanted);
    const char* storage = scalar_metadata(policy.storage_type()).name;
    const char* compute = scalar_metadata(policy.compute_type()).name;
    if (!is_compiled_policy(policy.storage_type(), policy.compute_type())) {
        throw std::invalid_argument(std::string("numeric policy is not compiled: ") + storage +
                                    " / " + compute);
    }
    return nb::make_tuple(storage, compute);
}

} // namespace Tessaline::Python

// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_factory.h"

#include "support/expect_error.h"
#include "tessaline/storage/numeric_policy.h"
#include "tessaline/storage/storage_contract.h"

#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

namespace Tessaline {
namespace {

using Testing::expect_error;

constexpr auto none = DataComplexLayout::none;
constexpr auto split = DataComplexLayout::split;
constexpr auto interleaved = DataComplexLayout::interleaved;
constexpr auto row_major = DataMatrixLayout::row_major;
constexpr auto column_major = DataMatrixLayout::column_major;

constexpr HostMemoryOptions wish{3, HostMemoryPolicy::preferred};

using Bytes = std::vector<unsigned char>;

Bytes patterned(std::uint64_t count, unsigned seed) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(seed + 37 * i);
    }
    return bytes;
}

/// Calls `visit(policy, key)` with every dense key of every policy.
template <typename Visit>
void for_each_key(const Visit& visit) {
    for_each_numeric_policy([&](auto policy) {
        for (const int kind : {0, 1, 2, 3, 4}) {
            for (const auto complex : {none, split, interleaved}) {
                for (const auto layout :
                     {std::optional<DataMatrixLayout>(), {row_major}, {column_major}}) {
                    BackendOperandKey key;
                    key.kind = OperandKind{kind};
                    key.format.tag =
                        OperandFormat::Tag{static_cast<std::uint8_t>(std::min(kind, 2))};
                    key.storage = policy.storage_type;
                    key.compute = policy.compute_type;
                    key.complex = complex;
                    key.layout = layout;
                    if (dense_storage_contract(key)) {
                        visit(policy, key);
                    }
                }
            }
        }
    });
}

/// Storage of a key.
struct Made {
    OperandDescriptor operand;
    std::shared_ptr<ErasedBufferAccess> buffers;
};

Made made_for(const BackendOperandKey& key, std::uint64_t rows, std::uint64_t cols,
              const StorageInitialiser& initialiser) {
    using namespace StorageFactory;
    const auto type = DataTypeDescriptor::from_scalar_types(key.storage, key.compute);
    const auto made = [](auto entity) {
        const OperandDescriptor operand(input_role(0), entity->descriptor());
        ErasedBufferAccess& buffers = erased_buffers(*entity, "test");
        return Made{operand, {std::shared_ptr<void>(std::move(entity)), &buffers}};
    };
    switch (key.kind) {
    case OperandKind::Vector:
        return made(host_vector(type, rows, key.complex, wish, initialiser));
    case OperandKind::Matrix:
        return made(host_matrix(type, rows, cols, *key.layout, key.complex, wish, initialiser));
    case OperandKind::LuDecomp:
        return made(host_lu(type, rows, wish, initialiser));
    case OperandKind::EigenVals:
        return made(host_eigen(type, rows, *key.layout, wish));
    default:
        return made(host_scalar(type, wish, initialiser));
    }
}

std::pair<std::uint64_t, std::uint64_t> shape_of(const OperandDescriptor& operand) {
    switch (operand.kind()) {
    case OperandKind::Vector:
        return {operand.vector()->size(), 1};
    case OperandKind::Matrix:
        return {operand.matrix()->rows(), operand.matrix()->cols()};
    case OperandKind::LuDecomp:
        return {operand.lu_decomp()->size(), operand.lu_decomp()->size()};
    case OperandKind::EigenVals:
        return {operand.eigen_vals()->size(), operand.eigen_vals()->size()};
    default:
        return {1, 1};
    }
}

/// Expects buffer `index` to hold `count` elements of type T in memory of its own.
template <typename T>
void expect_buffer(ErasedBufferAccess& buffers, std::size_t index, BufferRole role,
                   std::uint64_t count, const Bytes& contents, std::size_t alignment = 64) {
    SCOPED_TRACE(buffer_role_name(role));
    const MutableBufferView view = buffers.buffer(index);
    const ConstBufferView read_only = std::as_const(buffers).buffer(index);
    EXPECT_EQ(view.role, role);
    EXPECT_EQ(read_only.role, role);
    EXPECT_EQ(read_only.data, view.data);
    ASSERT_NO_THROW(validate_buffer_type<T>(view, count, "test"));
    ASSERT_NO_THROW(validate_buffer_type<T>(read_only, count, "test"));
    EXPECT_EQ(view.data == nullptr, count == 0);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(view.data) % alignment, 0U);
    EXPECT_NE(view.data, static_cast<const void*>(contents.data())) << "not a copy";
    if (count != 0) {
        EXPECT_EQ(std::memcmp(view.data, contents.data(), count * sizeof(T)), 0);
    }
}

/// The storage of a key whose elements lie in buffers of `Element`, from contents and then from
/// zeros, for which the heap hands out the used memory again.
template <typename Stored, typename Element>
void expect_storage(const BackendOperandKey& key, std::uint64_t rows, std::uint64_t cols) {
    const std::uint64_t count = rows * cols;
    const Bytes zeros(std::max<std::size_t>(count * sizeof(Stored), 8));
    Bytes given[] = {patterned(zeros.size(), 1), patterned(zeros.size(), 101)};
    const auto view = [&](BufferRole role, Bytes& bytes) {
        return make_buffer_view(role, reinterpret_cast<Element*>(bytes.data()), count);
    };
    constexpr bool has_parts = !std::is_same_v<Stored, Element>;
    const StorageInitialiser initialiser =
        has_parts ? StorageInitialiser(view(BufferRole::real, given[0]),
                                       view(BufferRole::imaginary, given[1]))
                  : StorageInitialiser(view(BufferRole::data, given[0]));
    for (const bool from_contents : {true, false}) {
        const Made made =
            made_for(key, rows, cols, from_contents ? initialiser : StorageInitialiser());
        EXPECT_EQ(operand_key_for(made.operand), key);
        EXPECT_EQ(shape_of(made.operand), std::pair(rows, cols));
        EXPECT_EQ(made.operand.topology(),
                  DataTopologyDescriptor::pageable_host(HostPlacement{
                      wish.numa_node, -1, false, static_cast<std::int32_t>(wish.policy)}));
        ErasedBufferAccess& buffers = *made.buffers;
        const Bytes& first = from_contents ? given[0] : zeros;
        std::size_t end = has_parts ? 2 : 1;
        if (key.kind == OperandKind::LuDecomp) {
            end = 3;
            expect_buffer<long>(buffers, 0, BufferRole::lu_pivots, rows, Bytes(8 * rows + 8), 8);
            expect_buffer<Stored>(buffers, 1, BufferRole::lu_factors, count, first);
            expect_buffer<std::uint64_t>(buffers, 2, BufferRole::lu_swap_count, 1, Bytes(8), 8);
            EXPECT_EQ(made.operand.lu_decomp()->pivot_type(), DataTypeDescriptor::real_long());
        } else if (key.kind == OperandKind::EigenVals) {
            end = 2;
            expect_buffer<Stored>(buffers, 0, BufferRole::eigenvalues, rows, zeros);
            expect_buffer<Stored>(buffers, 1, BufferRole::eigenvectors, count, zeros);
        } else {
            expect_buffer<Element>(buffers, 0, has_parts ? BufferRole::real : BufferRole::data,
                                   count, first);
            if (has_parts) {
                expect_buffer<Element>(buffers, 1, BufferRole::imaginary, count,
                                       from_contents ? given[1] : zeros);
            }
        }
        EXPECT_EQ(buffers.buffer_count(), end);
        const char* message = "ErasedBufferAccess - buffer index out of range";
        expect_error<std::out_of_range>([&] { buffers.buffer(end); }, message);
        expect_error<std::out_of_range>([&] { std::as_const(buffers).buffer(end); }, message);
    }
}

TEST(StorageFactory, MakesWhatAKeyAsksForInEveryPolicy) {
    using Shapes = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
    const Shapes shapes[] = {{{1, 1}},
                             {{0, 1}, {1, 1}, {7, 1}},
                             {{0, 5}, {5, 0}, {3, 4}},
                             {{0, 0}, {3, 3}},
                             {{0, 0}, {3, 3}}};
    for_each_key([&](auto policy, const BackendOperandKey& key) {
        using Stored = typename decltype(policy)::Stored;
        SCOPED_TRACE(describe_operand_key(key));
        for (const auto& [rows, cols] : shapes[static_cast<std::size_t>(key.kind)]) {
            if (key.complex == split || key.kind == OperandKind::Scalar) {
                expect_storage<Stored, Component<Stored>>(key, rows, cols);
            } else {
                expect_storage<Stored, Stored>(key, rows, cols);
            }
        }
    });
}

DataTypeDescriptor type_of(ScalarType storage, ScalarType compute) {
    return DataTypeDescriptor::from_scalar_types(storage, compute);
}

TEST(StorageFactory, RefusesRequestsInTheirOrder) {
    using namespace StorageFactory;
    const auto real = DataTypeDescriptor::real_float();
    const auto complex = DataTypeDescriptor::complex_float();
    const auto integer = DataTypeDescriptor::real_int();
    const auto uncompiled = type_of(ScalarType::Float16, ScalarType::Float64);
    const auto unknown = DataTypeDescriptor(DataDomain::Real, ScalarType{99}, ScalarType{99},
                                            ScalarQuantisation::None);
    const std::string contract = "dense storage - unsupported scalar category, shape or layout";
    const std::string policy = "numeric policy is not compiled: ";
    struct Case {
        std::string message;
        std::function<void()> request;
    };
    const Case cases[]{
        {contract,
         [&] { host_vector(type_of(ScalarType::Float16, ScalarType::Float32), 1, split); }},
        {contract, [&] { host_vector(complex, 1, none); }},
        {contract, [&] { host_matrix(complex, 1, 1, column_major, split); }},
        {contract, [&] { host_matrix(real, 1, 1, column_major, none); }},
        {contract, [&] { host_matrix(complex, 1, 1, DataMatrixLayout{2}, interleaved); }},
        {contract, [&] { host_lu(integer, 1); }},
        {contract, [&] { host_eigen(real, 1, column_major); }},
        {contract, [&] { host_eigen(integer, 1, column_major); }},
        {contract,
         [&] { host_scalar(type_of(ScalarType::ComplexInt32, ScalarType::ComplexInt32)); }},
        {"scalar_metadata - unknown scalar type", [&] { host_scalar(unknown); }},
        // The contract comes before the policy, the policy before the size.
        {contract, [&] { host_matrix(uncompiled, 1, 1, column_major, none); }},
        {policy + "float16 / float64", [&] { host_scalar(uncompiled); }},
        {policy + "float16 / float64",
         [&] { host_matrix(uncompiled, 1ULL << 40U, 1ULL << 40U, row_major, none); }},
        {policy + "int64 / int64", [&] { host_vector(DataTypeDescriptor::real_long(), 1, none); }},
        {policy + "complex128 / complex32",
         [&] { host_eigen(type_of(ScalarType::Complex128, ScalarType::Complex32), 1, row_major); }},
        {policy + "float64 / float32",
         [&] { host_lu(type_of(ScalarType::Float64, ScalarType::Float32), 1); }},
        {"allocate_host_bytes - requested NUMA node is unavailable",
         [&] {
             host_vector(real, 0, none, {0, HostMemoryPolicy::strict});
         }},
    };
    for (const Case& each : cases) {
        expect_error<std::invalid_argument>(each.request, each.message);
    }
}

TEST(StorageFactory, RefusesSizesThatOverflowBeforeAllocating) {
    using namespace StorageFactory;
    const auto complex = DataTypeDescriptor::complex_double();
    const char* message = "cannot create std::vector larger than max_size()";
    const std::function<void()> requests[]{
        [&] { host_matrix(complex, 1ULL << 32U, 1ULL << 32U, row_major, interleaved); },
        [&] { host_matrix(complex, 1ULL << 31U, 1ULL << 31U, row_major, interleaved); },
        [&] { host_vector(complex, 1ULL << 59U, interleaved); },
        [&] { host_lu(complex, 1ULL << 32U); },
        [&] { host_lu(complex, 1ULL << 31U); },
        [&] { host_eigen(complex, 1ULL << 32U, row_major); },
        [&] { host_eigen(complex, 1ULL << 31U, row_major); },
    };
    for (const auto& request : requests) {
        expect_error<std::length_error>(request, message);
    }
}

TEST(StorageFactory, RefusesInitialisersOfAnotherShapeOrType) {
    using namespace StorageFactory;
    const float values[4]{};
    const double other[4]{};
    const auto data = make_buffer_view(BufferRole::data, values, 4);
    const auto real = make_buffer_view(BufferRole::real, values, 4);
    const auto imaginary = make_buffer_view(BufferRole::imaginary, values, 4);
    const auto three = make_buffer_view(BufferRole::imaginary, values, 3);
    const auto null = make_buffer_view(BufferRole::data, static_cast<const float*>(nullptr), 4);
    const auto doubles = make_buffer_view(BufferRole::data, other, 4);
    const auto imaginary_doubles = make_buffer_view(BufferRole::imaginary, other, 4);
    const auto vector = [](DataComplexLayout layout, StorageInitialiser initialiser) {
        host_vector(layout == none ? DataTypeDescriptor::real_float()
                                   : DataTypeDescriptor::complex_float(),
                    4, layout, {}, initialiser);
    };

    const std::string missing = "storage initialiser - missing real buffer";
    expect_error<std::invalid_argument>([&] { vector(none, {{}, imaginary}); }, missing);
    const std::string shape = "storage initialiser - layout or element count mismatch";
    const std::pair<DataComplexLayout, StorageInitialiser> misshapen[]{
        {none, StorageInitialiser(make_buffer_view(BufferRole::data, values, 3))},
        {none, StorageInitialiser(real)},
        {none, {data, imaginary}},
        {split, StorageInitialiser(data)},
        {split, StorageInitialiser(real)},
        {split, {real, three}},
        {split, {imaginary, real}},
        {split, {data, imaginary}},
        {interleaved, {real, imaginary}},
    };
    for (const auto& [layout, initialiser] : misshapen) {
        expect_error<std::invalid_argument>([&] { vector(layout, initialiser); }, shape);
    }

    const std::string mismatch = " - storage buffer type, alignment or count mismatch";
    const DataTypeDescriptor single = DataTypeDescriptor::real_float();
    const DataTypeDescriptor complex = DataTypeDescriptor::complex_float();
    const StorageInitialiser wrong(doubles);
    const StorageInitialiser wrong_part(real, imaginary_doubles);
    const std::pair<const char*, std::function<void()>> labels[]{
        {"host vector", [&] { vector(none, wrong); }},
        {"host split vector", [&] { vector(split, wrong_part); }},
        {"host matrix", [&] { host_matrix(single, 2, 2, row_major, none, {}, wrong); }},
        {"host split matrix",
         [&] { host_matrix(complex, 2, 2, row_major, split, {}, wrong_part); }},
        {"host LU", [&] { host_lu(single, 2, {}, wrong); }},
        {"host scalar",
         [&] {
             host_scalar(single, {},
                         StorageInitialiser(make_buffer_view(BufferRole::data, other, 1)));
         }},
    };
    for (const auto& [label, request] : labels) {
        expect_error<std::logic_error>(request, label + mismatch);
    }
    expect_error<std::invalid_argument>([&] { vector(none, StorageInitialiser(null)); },
                                        "host vector - data buffer is null");
}

} // namespace
} // namespace Tessaline

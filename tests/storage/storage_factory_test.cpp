// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_factory.h"

#include "support/expect_error.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/host_lu_decomp.h"

#include <functional>
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

/// Elements of distinct bytes, whatever their type.
template <typename T>
std::vector<T> patterned(std::uint64_t count, unsigned seed = 1) {
    std::vector<T> elements(count);
    auto* bytes = reinterpret_cast<unsigned char*>(elements.data());
    for (std::size_t i = 0; i < count * sizeof(T); ++i) {
        bytes[i] = static_cast<unsigned char>(seed + 37 * i);
    }
    return elements;
}

/// Expects buffer `index` to hold exactly these elements in memory of its own.
template <typename T>
void expect_buffer(ErasedBufferAccess& access, std::size_t index, BufferRole role,
                   const std::vector<T>& contents, std::size_t alignment = 64) {
    SCOPED_TRACE(buffer_role_name(role));
    const MutableBufferView view = access.buffer(index);
    const ConstBufferView read_only = std::as_const(access).buffer(index);
    EXPECT_EQ(view.role, role);
    EXPECT_EQ(read_only.role, role);
    EXPECT_EQ(read_only.data, view.data);
    ASSERT_NO_THROW(validate_buffer_type<T>(view, contents.size(), "test"));
    ASSERT_NO_THROW(validate_buffer_type<T>(read_only, contents.size(), "test"));
    EXPECT_EQ(view.data == nullptr, contents.empty());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(view.data) % alignment, 0U);
    if (!contents.empty()) {
        EXPECT_NE(view.data, static_cast<const void*>(contents.data())) << "not a copy";
        EXPECT_EQ(std::memcmp(view.data, contents.data(), contents.size() * sizeof(T)), 0);
    }
}

void expect_buffer_count(ErasedBufferAccess& access, std::size_t count) {
    ASSERT_EQ(access.buffer_count(), count);
    const char* message = "ErasedBufferAccess - buffer index out of range";
    expect_error<std::out_of_range>([&] { access.buffer(count); }, message);
    expect_error<std::out_of_range>([&] { std::as_const(access).buffer(count); }, message);
}

/// Makes storage of one buffer of elements for each role, through `make(initialiser)`, from
/// contents and then from zeros, for which the heap hands out the used memory again, and checks
/// class and buffers.
template <typename Class, typename Element, typename Make>
void expect_storage(const std::vector<BufferRole>& roles, std::uint64_t count, const Make& make) {
    std::vector<Element> contents[] = {patterned<Element>(count, 1),
                                       patterned<Element>(count, 101)};
    const MutableBufferView first = make_buffer_view(roles[0], contents[0].data(), count);
    const ConstBufferView second =
        make_buffer_view(roles.back(), std::as_const(contents[1]).data(), count);
    const StorageInitialiser given =
        roles.size() == 1 ? StorageInitialiser(first) : StorageInitialiser(first, second);
    for (const bool from_contents : {true, false}) {
        const auto entity = make(from_contents ? given : StorageInitialiser());
        auto* storage = dynamic_cast<Class*>(entity.get());
        ASSERT_NE(storage, nullptr);
        EXPECT_EQ(storage->element_count(), count);
        expect_buffer_count(*storage, roles.size());
        for (std::size_t index = 0; index < roles.size(); ++index) {
            expect_buffer(*storage, index, roles[index],
                          from_contents ? contents[index] : std::vector<Element>(count));
        }
    }
}

template <typename Class, typename Stored, typename Make>
void expect_single(std::uint64_t count, const Make& make) {
    expect_storage<Class, Stored>({BufferRole::data}, count, make);
}
template <typename Class, typename Part, typename Make>
void expect_split(std::uint64_t count, const Make& make) {
    expect_storage<Class, Part>({BufferRole::real, BufferRole::imaginary}, count, make);
}

void expect_unplaced_host(const DataTopologyDescriptor& topology, HostMemoryOptions options) {
    EXPECT_EQ(topology,
              DataTopologyDescriptor::pageable_host(HostPlacement{
                  options.numa_node, -1, false, static_cast<std::int32_t>(options.policy)}));
}

constexpr HostMemoryOptions wish{3, HostMemoryPolicy::preferred};

TEST(StorageFactory, ScalarsOfEveryPolicy) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Part = Component<typename Policy::Stored>;
        using PartCompute = Component<typename Policy::Compute>;
        SCOPED_TRACE(scalar_metadata(policy.storage_type).name);
        const auto make = [](const StorageInitialiser& initialiser) {
            auto entity = StorageFactory::host_scalar(Policy::type(), wish, initialiser);
            EXPECT_EQ(entity->descriptor().type(), Policy::type());
            expect_unplaced_host(entity->descriptor().topology(), wish);
            return entity;
        };
        if constexpr (Policy::is_complex) {
            expect_split<BoundComplexScalarEntity<Part, PartCompute>, Part>(1, make);
        } else {
            expect_single<BoundRealScalarEntity<Part, PartCompute>, Part>(1, make);
        }
    });
}

TEST(StorageFactory, VectorsOfEveryPolicyAndLayout) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        using Compute = typename Policy::Compute;
        SCOPED_TRACE(scalar_metadata(policy.storage_type).name);
        for (const std::uint64_t size : {0U, 1U, 7U}) {
            const auto make = [&](DataComplexLayout layout) {
                return [=](const StorageInitialiser& initialiser) {
                    auto entity = StorageFactory::host_vector(Policy::type(), size, layout, wish,
                                                              initialiser);
                    const VectorDescriptor& descriptor = entity->descriptor();
                    EXPECT_EQ(descriptor.type(), Policy::type());
                    EXPECT_EQ(descriptor.size(), size);
                    EXPECT_EQ(descriptor.format(), DataVectorFormat::dense);
                    EXPECT_EQ(descriptor.complex_layout(), layout);
                    expect_unplaced_host(descriptor.topology(), wish);
                    return entity;
                };
            };
            if constexpr (Policy::is_complex) {
                using Part = Component<Stored>;
                expect_single<DenseHostComplexIntlvVector<Stored, Compute>, Stored>(
                    size, make(interleaved));
                expect_split<DenseHostComplexSplitVector<Part, Component<Compute>>, Part>(
                    size, make(split));
            } else {
                expect_single<DenseHostRealVector<Stored, Compute>, Stored>(size, make(none));
            }
        }
    });
}

TEST(StorageFactory, MatricesOfEveryPolicyAndLayout) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        using Compute = typename Policy::Compute;
        SCOPED_TRACE(scalar_metadata(policy.storage_type).name);
        const std::pair<std::uint64_t, std::uint64_t> shapes[]{{0, 5}, {5, 0}, {3, 4}};
        for (const auto& [rows, cols] : shapes) {
            const auto make = [rows = rows, cols = cols](DataMatrixLayout layout,
                                                         DataComplexLayout complex_layout) {
                return [=](const StorageInitialiser& initialiser) {
                    auto entity = StorageFactory::host_matrix(Policy::type(), rows, cols, layout,
                                                              complex_layout, wish, initialiser);
                    const MatrixDescriptor& descriptor = entity->descriptor();
                    EXPECT_EQ(descriptor.type(), Policy::type());
                    EXPECT_EQ(descriptor.format(), DataMatrixFormat::dense);
                    EXPECT_EQ(descriptor.complex_layout(), complex_layout);
                    expect_unplaced_host(descriptor.topology(), wish);
                    const auto* access = dynamic_cast<DenseMatrixAccessBase*>(entity.get());
                    EXPECT_EQ(access->rows(), rows);
                    EXPECT_EQ(access->cols(), cols);
                    EXPECT_EQ(access->layout(), layout);
                    EXPECT_EQ(descriptor.layout(), layout);
                    return entity;
                };
            };
            if constexpr (Policy::is_complex) {
                using Part = Component<Stored>;
                expect_single<DenseHostComplexIntlvMatrixRowMajor<Stored, Compute>, Stored>(
                    rows * cols, make(row_major, interleaved));
                expect_single<DenseHostComplexIntlvMatrixColMajor<Stored, Compute>, Stored>(
                    rows * cols, make(column_major, interleaved));
                expect_split<DenseHostComplexSplitMatrixRowMajor<Part, Component<Compute>>, Part>(
                    rows * cols, make(row_major, split));
            } else {
                expect_single<DenseHostRealMatrixRowMajor<Stored, Compute>, Stored>(
                    rows * cols, make(row_major, none));
            }
        }
    });
}

TEST(StorageFactory, LuDecompositionsOfEveryFloatingPolicy) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        if constexpr (!Policy::is_integer) {
            SCOPED_TRACE(scalar_metadata(policy.storage_type).name);
            for (const std::uint64_t size : {0U, 3U}) {
                const auto contents = patterned<Stored>(size * size);
                const auto entity = StorageFactory::host_lu(
                    Policy::type(), size, wish,
                    StorageInitialiser(
                        make_buffer_view(BufferRole::data, contents.data(), contents.size())));
                const LuDecompDescriptor& descriptor = entity->descriptor();
                EXPECT_EQ(descriptor.size(), size);
                EXPECT_EQ(descriptor.type(), Policy::type());
                EXPECT_EQ(descriptor.pivot_type(), DataTypeDescriptor::real_long());
                EXPECT_EQ(descriptor.layout(), column_major);
                EXPECT_EQ(descriptor.complex_layout(), Policy::is_complex ? interleaved : none);
                expect_unplaced_host(descriptor.topology(), wish);
                using Class = DenseHostLUDecompColMajor<long, Stored, typename Policy::Compute>;
                ASSERT_NE(dynamic_cast<Class*>(entity.get()), nullptr);
                expect_buffer_count(*entity, 3);
                expect_buffer(*entity, 0, BufferRole::lu_pivots, std::vector<long>(size), 8);
                expect_buffer(*entity, 1, BufferRole::lu_factors, contents);
                expect_buffer(*entity, 2, BufferRole::lu_swap_count, std::vector<std::uint64_t>(1),
                              8);
            }
        }
    });
}

TEST(StorageFactory, EigenvalueSetsOfEveryComplexPolicy) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        if constexpr (Policy::is_complex) {
            SCOPED_TRACE(scalar_metadata(policy.storage_type).name);
            for (const DataMatrixLayout layout : {row_major, column_major}) {
                const auto entity = StorageFactory::host_eigen(Policy::type(), 3, layout, wish);
                const EigenValsDescriptor& descriptor = entity->descriptor();
                EXPECT_EQ(descriptor.size(), 3U);
                EXPECT_EQ(descriptor.type(), Policy::type());
                EXPECT_EQ(descriptor.vector_layout(), layout);
                EXPECT_EQ(descriptor.complex_layout(), interleaved);
                expect_unplaced_host(descriptor.topology(), wish);
                using Class = HostEigenVals<Stored, typename Policy::Compute>;
                ASSERT_NE(dynamic_cast<Class*>(entity.get()), nullptr);
                expect_buffer_count(*entity, 2);
                expect_buffer(*entity, 0, BufferRole::eigenvalues, std::vector<Stored>(3));
                expect_buffer(*entity, 1, BufferRole::eigenvectors, std::vector<Stored>(9));
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

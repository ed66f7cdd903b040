// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "tessaline/storage/borrowed_host_entities.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_entities.h"
#include "tessaline/storage/host_lu_decomp.h"

#include <functional>
#include <stdexcept>

namespace Tessaline {
namespace {

using Testing::expect_error;

TEST(HostMemory, ZeroBytesTakeNoMemory) {
    const HostAllocation empty = allocate_host_bytes(0, 64, {5, HostMemoryPolicy::preferred});
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.allocator, HostAllocator::none);
    EXPECT_EQ(empty.requested_numa_id, 5);
    EXPECT_EQ(empty.effective_numa_id, -1);
    EXPECT_FALSE(empty.placement_guaranteed);
    deallocate_host_bytes(empty);
}

TEST(HostMemory, AllocationsKeepTheirRecord) {
    for (const std::size_t alignment : {8U, 64U, 4096U}) {
        const HostAllocation record = allocate_host_bytes(100, alignment, {});
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(record.data) % alignment, 0U);
        EXPECT_EQ(record.bytes, 100U);
        EXPECT_EQ(record.alignment, alignment);
        EXPECT_EQ(record.allocator, HostAllocator::aligned_heap);
        EXPECT_EQ(record.requested_numa_id, -1);
        EXPECT_EQ(record.effective_numa_id, -1);
        EXPECT_FALSE(record.placement_guaranteed);
        deallocate_host_bytes(record);
    }
}

TEST(HostMemory, StrictRequestsFailForAnyNode) {
    EXPECT_FALSE(host_numa_allocator_available());
    for (const int node : {-1, 0, 7}) {
        EXPECT_FALSE(host_numa_node_available(node));
        for (const std::size_t bytes : {0U, 16U}) {
            expect_error<std::invalid_argument>(
                [&] {
                    allocate_host_bytes(bytes, 64, {node, HostMemoryPolicy::strict});
                },
                "allocate_host_bytes - requested NUMA node is unavailable");
        }
    }
}

TEST(HostBuffer, MovesAndReleasesItsMemory) {
    const int contents[]{1, 2, 3};
    HostBuffer<int> first{std::span<const int>(contents)};
    const int* data = first.data();
    HostBuffer<int> second(std::move(first));
    EXPECT_EQ(second.data(), data);
    EXPECT_EQ(second.data()[2], 3);
    HostBuffer<int> third(std::size_t{8});
    EXPECT_EQ(third.data()[7], 0);
    third = std::move(second);
    EXPECT_EQ(third.data(), data);
    EXPECT_EQ(third.size(), 3U);
    EXPECT_EQ(third.allocation().bytes, 12U);
    third.release();
    EXPECT_EQ(third.data(), nullptr);
    EXPECT_EQ(third.size(), 0U);
    EXPECT_EQ(third.allocation().data, nullptr);
}

/// A buffer on a node, as a NUMA allocator would make it.
struct PlacedBuffer {
    HostAllocation record;
    const HostAllocation& allocation() const { return record; }
};

PlacedBuffer on_node(std::int32_t node, bool guaranteed) {
    PlacedBuffer buffer;
    buffer.record.effective_numa_id = node;
    buffer.record.placement_guaranteed = guaranteed;
    return buffer;
}

TEST(HostBuffer, TopologyKeepsWhatAllBuffersAgreeOn) {
    struct Case {
        PlacedBuffer first, second;
        std::int32_t node;
        bool guaranteed;
    };
    const Case cases[]{
        {on_node(1, true), on_node(1, true), 1, true},
        {on_node(1, true), on_node(1, false), 1, false},
        {on_node(1, true), on_node(2, true), -1, false},
        {on_node(-1, true), on_node(-1, true), -1, false},
        {on_node(-1, false), on_node(1, true), -1, false},
    };
    const HostMemoryOptions options{4, HostMemoryPolicy::strict};
    for (const Case& each : cases) {
        const HostPlacement placement{4, each.node, each.guaranteed, 1};
        EXPECT_EQ(
            host_buffers_topology(DataLocation::pageable_host, options, each.first, each.second),
            DataTopologyDescriptor::pageable_host(placement));
        EXPECT_EQ(
            host_buffers_topology(DataLocation::pinned_host, options, each.first, each.second),
            DataTopologyDescriptor::pinned_host(placement));
        EXPECT_EQ(
            host_buffers_topology(DataLocation::cuda_device, options, each.first, each.second),
            DataTopologyDescriptor::pageable_host(HostPlacement{4, -1, false, 1}));
    }
    EXPECT_EQ(host_buffers_topology(DataLocation::pinned_host, {2}, on_node(2, true)),
              DataTopologyDescriptor::pinned_host(2, 2, true));
}

DataTopologyDescriptor somewhere() {
    return DataTopologyDescriptor::pageable_host(-1);
}

MatrixDescriptor matrix_of(std::uint64_t rows, std::uint64_t cols, DataTypeDescriptor type) {
    return {rows,
            cols,
            somewhere(),
            type,
            DataMatrixFormat::dense,
            DataMatrixLayout::row_major,
            DataComplexLayout::none};
}

TEST(HostEntities, RefuseBuffersOfAnotherSizeThanTheirDescriptor) {
    using Complex = std::complex<float>;
    const auto real = DataTypeDescriptor::real_float();
    const auto complex = DataTypeDescriptor::complex_float();
    const VectorDescriptor vector(3, somewhere(), real, DataVectorFormat::dense,
                                  DataComplexLayout::none);
    const MatrixDescriptor matrix = matrix_of(2, 3, complex);
    const LuDecompDescriptor lu(2, somewhere(), DataTypeDescriptor::real_long(), real,
                                DataMatrixFormat::dense, DataMatrixLayout::column_major,
                                DataComplexLayout::none);
    const EigenValsDescriptor eigen(2, somewhere(), complex, DataVectorFormat::dense,
                                    DataMatrixLayout::column_major, DataComplexLayout::interleaved);
    const auto floats = [](std::size_t count) { return HostBuffer<float>(count); };
    const auto complexes = [](std::size_t count) { return HostBuffer<Complex>(count); };
    using Lu = DenseHostLUDecompColMajor<long, float, float>;
    using Split = DenseHostComplexSplitVector<float, float>;
    using SplitMatrix = DenseHostComplexSplitMatrixRowMajor<float, float>;
    const std::pair<const char*, std::function<void()>> cases[]{
        {"DenseHostRealVector - data size mismatch",
         [&] { DenseHostRealVector<float, float>(vector, floats(4)); }},
        {"DenseHostRealMatrixRowMajor - data size mismatch",
         [&] { DenseHostRealMatrixRowMajor<float, float>(matrix, floats(5)); }},
        {"DenseHostComplexIntlvMatrixRowMajor - data size mismatch",
         [&] { DenseHostComplexIntlvMatrixRowMajor<Complex, Complex>(matrix, complexes(0)); }},
        {"DenseHostComplexIntlvMatrixColMajor - data size mismatch",
         [&] { DenseHostComplexIntlvMatrixColMajor<Complex, Complex>(matrix, complexes(7)); }},
        {"DenseHostComplexSplitMatrixRowMajor - data size mismatch",
         [&] { SplitMatrix(matrix, floats(6), floats(5)); }},
        {"DenseHostComplexSplitVector - real and imag sizes don't match",
         [&] { Split(vector, floats(3), floats(2)); }},
        {"DenseHostComplexSplitVector - real and imag sizes don't match",
         [&] { Split(vector, floats(2), floats(2)); }},
        {"DenseHostLUDecompColMajor - data size mismatch",
         [&] { Lu(lu, HostBuffer<long>(std::size_t{3}), floats(4)); }},
        {"DenseHostLUDecompColMajor - data size mismatch",
         [&] { Lu(lu, HostBuffer<long>(std::size_t{2}), floats(2)); }},
        {"HostEigenVals - data size mismatch",
         [&] { HostEigenVals<Complex, Complex>(eigen, complexes(2), complexes(3)); }},
    };
    for (const auto& [message, construct] : cases) {
        expect_error<std::invalid_argument>(construct, message);
    }
}

TEST(BorrowedHostEntities, DescribeAndReachTheCallersMemory) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        using Compute = typename Policy::Compute;
        Stored elements[6]{};
        const auto check = [&](auto&& entity, std::uint64_t count) {
            EXPECT_EQ(entity.descriptor().type(), Policy::type());
            EXPECT_EQ(entity.descriptor().topology(),
                      DataTopologyDescriptor::pageable_host(HostPlacement{}));
            EXPECT_EQ(entity.buffer(0).data, elements);
            EXPECT_EQ(entity.buffer(0).count, count);
        };
        if constexpr (Policy::is_complex) {
            using Part = Component<Stored>;
            auto* parts = reinterpret_cast<Part*>(elements);
            using Scalar = BorrowedDenseHostComplexSplitScalar<Part, Component<Compute>>;
            Scalar scalar(parts, parts + 1);
            check(scalar, 1);
            EXPECT_EQ(scalar.data_imag(), parts + 1);
            check(BorrowedDenseHostComplexInterleavedVector<Stored, Compute>(elements, 6), 6);
            using Matrix = BorrowedDenseHostComplexInterleavedMatrix<Stored, Compute>;
            check(Matrix(elements, 2, 3), 6);
            const Matrix columns(elements, 2, 3, nullptr, somewhere(),
                                 DataMatrixLayout::column_major);
            EXPECT_EQ(columns.layout(), DataMatrixLayout::column_major);
            EXPECT_EQ(columns.descriptor().layout(), DataMatrixLayout::column_major);
        } else {
            check(BorrowedDenseHostRealScalar<Stored, Compute>(elements), 1);
            check(BorrowedDenseHostRealVector<Stored, Compute>(elements, 6), 6);
            check(BorrowedDenseHostRealMatrix<Stored, Compute>(elements, 2, 3), 6);
        }
    });
}

TEST(BorrowedHostEntities, KeepTheirOwnerAlive) {
    auto owner = std::make_shared<std::array<double, 2>>();
    const std::weak_ptr<std::array<double, 2>> watch = owner;
    {
        const BorrowedDenseHostRealVector<double, double> vector(
            owner->data(), 2, owner, DataTopologyDescriptor::pageable_host(3));
        owner.reset();
        EXPECT_FALSE(watch.expired());
        EXPECT_EQ(vector.descriptor().topology().numa_id(), 3);
    }
    EXPECT_TRUE(watch.expired());
}

TEST(BorrowedHostEntities, ReadOnlyMemoryCanOnlyBeRead) {
    const float values[2]{1, 2};
    BorrowedDenseHostRealVector<float, float> vector(values, 2);
    EXPECT_EQ(require_buffer_data<float>(std::as_const(vector), BufferRole::data, 2, "test"),
              values);
    expect_error<std::logic_error>([&] { vector.buffer(0); },
                                   "BorrowedBuffer - borrowed storage is read-only");
}

TEST(BorrowedHostEntities, RefuseAShapeThatOverflows) {
    using Matrix = BorrowedDenseHostRealMatrix<int, int>;
    int element = 0;
    expect_error<std::length_error>([&] { Matrix(&element, 1ULL << 33U, 1ULL << 33U); },
                                    "cannot create std::vector larger than max_size()");
}

} // namespace
} // namespace Tessaline

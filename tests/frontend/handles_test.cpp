// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/plain_entities.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/storage/borrowed_host_entities.h"

#include <gmock/gmock.h>

#include <bit>
#include <cstring>
#include <functional>
#include <vector>

namespace Tessaline {
namespace {

using ::testing::ElementsAre;
using Testing::expect_error;

constexpr auto row_major = DataMatrixLayout::row_major;
constexpr auto column_major = DataMatrixLayout::column_major;

template <typename Handle, typename Entity>
void expect_null_refused(const std::string& name) {
    const auto construct = [] { Handle(std::unique_ptr<Entity>()); };
    expect_error<ArgumentError>(construct, name + " - storage cannot be null");
    try {
        construct();
    } catch (const ArgumentError& error) {
        EXPECT_EQ(error.operation(), name);
        EXPECT_EQ(error.reason(), ErrorReason::null_storage);
    }
}

TEST(Handles, RefuseNullStorage) {
    expect_null_refused<Scalar, ScalarEntity>("Scalar");
    expect_null_refused<Vector, VectorEntity>("Vector");
    expect_null_refused<Matrix, MatrixEntity>("Matrix");
    expect_null_refused<LuFactorisation, LuDecompEntity>("LuFactorisation");
    expect_null_refused<EigenValues, EigenValsEntity>("EigenValues");
}

TEST(Handles, BorrowNoElementsWithoutMemory) {
    float* const null = nullptr;
    std::complex<float>* const complex_null = nullptr;
    float one = 1;
    const std::pair<std::function<void()>, std::string> refused[] = {
        {[&] { BorrowedDenseHostRealScalar<float, float>{null}; }, "RealScalar - data"},
        {[&] { BorrowedDenseHostRealVector<float, float>(null, 2); }, "RealVector - data"},
        {[&] { BorrowedDenseHostRealMatrix<float, float>(null, 2, 1); }, "RealMatrix - data"},
        {[&] { BorrowedDenseHostComplexSplitScalar<float, float>(null, &one); },
         "ComplexSplitScalar - real"},
        {[&] { BorrowedDenseHostComplexSplitScalar<float, float>(&one, null); },
         "ComplexSplitScalar - imaginary"},
        {[&] {
             BorrowedDenseHostComplexInterleavedVector<std::complex<float>, std::complex<float>>(
                 complex_null, 1);
         },
         "ComplexInterleavedVector - data"},
    };
    for (const auto& [borrow, what] : refused) {
        expect_error<std::invalid_argument>(borrow, "BorrowedDenseHost" + what + " buffer is null");
    }
    EXPECT_EQ((BorrowedDenseHostRealMatrix<float, float>(null, 0, 3).element_count()), 0U);
}

template <typename Handle>
constexpr bool moves_one_pointer =
    std::is_nothrow_move_constructible_v<Handle>&& std::is_nothrow_move_assignable_v<Handle> &&
    !std::is_copy_constructible_v<Handle> && sizeof(Handle) == sizeof(void*);
static_assert(moves_one_pointer<Scalar> && moves_one_pointer<Vector> && moves_one_pointer<Matrix> &&
              moves_one_pointer<LuFactorisation> && moves_one_pointer<EigenValues>);

/// A matrix that only describes itself.
class DescribedMatrix final : public MatrixEntity {
  public:
    explicit DescribedMatrix(MatrixDescriptor descriptor) : descriptor_(std::move(descriptor)) {}
    const MatrixDescriptor& descriptor() const override { return descriptor_; }

  private:
    MatrixDescriptor descriptor_;
};

Matrix described(std::uint64_t rows, std::uint64_t cols, DataTopologyDescriptor topology,
                 DataTypeDescriptor type = DataTypeDescriptor::real_float(),
                 DataMatrixFormat format = DataMatrixFormat::dense) {
    return Matrix(std::make_unique<DescribedMatrix>(MatrixDescriptor(
        rows, cols, std::move(topology), type, format, column_major, DataComplexLayout::none)));
}

TEST(Handles, ReadTheirDescriptors) {
    const auto host = DataTopologyDescriptor::pageable_host(-1);
    const Matrix empty = Matrix::host_zeros<float>(0, 5);
    EXPECT_EQ(empty.size(), 0U);
    EXPECT_EQ(empty.cols(), 5U);
    EXPECT_TRUE(empty.is_row_major() && empty.is_dense() && !empty.is_complex());
    const Matrix diagonal =
        described(2, 3, host, DataTypeDescriptor::real_float(), DataMatrixFormat::diagonal);
    EXPECT_EQ(diagonal.size(), 6U);
    EXPECT_TRUE(diagonal.is_diagonal() && !diagonal.is_sparse() && !diagonal.is_dense());
    EXPECT_TRUE(diagonal.is_col_major() && !diagonal.is_row_major());
    EXPECT_TRUE(
        described(2, 3, host, DataTypeDescriptor::real_float(), DataMatrixFormat::coo).is_sparse());

    const Vector split =
        Vector::host_impl(DataTypeDescriptor::complex_double(), 4, DataComplexLayout::split, {2});
    EXPECT_TRUE(split.is_complex() && split.is_complex_split() && !split.is_complex_intlv());
    EXPECT_TRUE(split.is_dense() && !split.is_sparse());
    EXPECT_EQ(split.size(), 4U);
    EXPECT_EQ(split.topology().requested_numa_id(), 2);

    const LuFactorisation lu = LuFactorisation::host_impl(DataTypeDescriptor::complex_float(), 3);
    EXPECT_EQ(lu.size(), 3U);
    EXPECT_EQ(lu.pivot_type(), DataTypeDescriptor::real_long());
    EXPECT_TRUE(lu.is_col_major() && lu.is_complex_intlv() && lu.is_dense() && !lu.is_sparse());

    const EigenValues eigen = EigenValues::host_zeros<Complex32>(3, row_major);
    EXPECT_EQ(eigen.size(), 3U);
    EXPECT_EQ(eigenvectors<Complex32>(eigen).size(), 9U);
    EXPECT_TRUE(eigen.is_row_major() && eigen.is_complex_intlv() && eigen.is_dense());
    EXPECT_EQ(eigen.type().compute_type(), ScalarType::Complex64);
}

TEST(Handles, RefuseAMatrixWhoseSizeOverflows) {
    expect_error<std::length_error>(
        [] { described(1ULL << 32U, 1ULL << 32U, DataTopologyDescriptor::gpu(0)); },
        "cannot create std::vector larger than max_size()");
}

TEST(Elements, ReachWhatTheTypedFactoriesTookIn) {
    Vector vector = Vector::host({1.5, 2.5, 3.5});
    elements<double>(vector)[1] = -1;
    EXPECT_THAT(elements<double>(std::as_const(vector)), ElementsAre(1.5, -1.0, 3.5));
    const std::vector<std::complex<float>> contents{{1, 2}, {3, 4}};
    const Matrix matrix = Matrix::host(2, 1, contents, column_major);
    EXPECT_TRUE(matrix.is_complex_intlv() && matrix.is_col_major());
    EXPECT_THAT(elements<std::complex<float>>(matrix), ElementsAre(contents[0], contents[1]));
    EXPECT_EQ(value<int>(Scalar::host(-7)), -7);
    EXPECT_EQ(value<std::complex<double>>(Scalar::host(std::complex<double>(1, -2))),
              std::complex<double>(1, -2));
    const Complex32 small(std::complex<float>(0.5F, -2.0F));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(value<Complex32>(Scalar::host(small))),
              std::bit_cast<std::uint32_t>(small));

    Vector split =
        Vector::host_impl(DataTypeDescriptor::complex_float(), 2, DataComplexLayout::split);
    elements<float>(split, BufferRole::imaginary)[0] = 4;
    EXPECT_THAT(elements<float>(std::as_const(split), BufferRole::imaginary), ElementsAre(4, 0));
}

TEST(Elements, RefuseOtherTypesPlacesAndCounts) {
    const Vector vector = Vector::host({1.0F});
    expect_error<std::logic_error>([&] { elements<double>(vector); },
                                   "elements - storage buffer type, alignment or count mismatch");
    expect_error<std::logic_error>([&] { elements<float>(vector, BufferRole::real); },
                                   "elements - required real buffer is unavailable");
    const Matrix device = described(1, 1, DataTopologyDescriptor::gpu(0));
    expect_error<std::invalid_argument>([&] { elements<float>(device); },
                                        "elements - operand lies on a device");
    const Vector plain(
        std::make_unique<Testing::DescribedVector>(DataTopologyDescriptor::pageable_host(-1)));
    expect_error<std::logic_error>([&] { elements<float>(plain); },
                                   "elements - storage offers no buffers");
    expect_error<std::invalid_argument>(
        [] {
            Matrix::host(2, 2, {1, 2, 3});
        },
        "storage initialiser - layout or element count mismatch");
}

/// A number for each element of a matrix that every element type holds exactly.
float marked(std::uint64_t row, std::uint64_t column) {
    return static_cast<float>(16 * row + column + 1);
}

template <typename T>
T element_for(std::uint64_t row, std::uint64_t column) {
    const float real = marked(row, column);
    if constexpr (is_complex_element<T>) {
        using Part = Component<T>;
        return T(Part(real), Part(-real / 2));
    } else {
        return T(real);
    }
}

template <typename T>
bool same_bits(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

template <typename Policy>
void expect_column_major_copy(const Matrix& source) {
    using Stored = typename Policy::Stored;
    const std::uint64_t n = source.rows();
    const LuFactorisation lu = LuFactorisation::from_host_matrix(source, {1});
    EXPECT_EQ(lu.type(), Policy::type());
    EXPECT_EQ(lu.topology().requested_numa_id(), 1);
    EXPECT_EQ(swap_count(lu), 0U);
    EXPECT_THAT(pivots(lu), ::testing::Each(0));
    const auto found = factors<Stored>(lu);
    ASSERT_EQ(found.size(), n * n);
    for (std::uint64_t i = 0; i < n; ++i) {
        for (std::uint64_t j = 0; j < n; ++j) {
            const auto expected = element_for<Stored>(i, j);
            ASSERT_TRUE(same_bits(found[i + j * n], expected)) << i << ", " << j << " of " << n;
        }
    }
}

/// The elements of a matrix of order n in the order of a layout.
template <typename T, typename Element>
std::vector<T> laid_out(std::uint64_t n, DataMatrixLayout layout, const Element& element) {
    std::vector<T> elements;
    for (std::uint64_t outer = 0; outer < n; ++outer) {
        for (std::uint64_t inner = 0; inner < n; ++inner) {
            elements.push_back(layout == row_major ? element(outer, inner) : element(inner, outer));
        }
    }
    return elements;
}

TEST(LuFromHostMatrix, CopiesEveryPolicyAndLayoutInColumnMajorOrder) {
    for_each_numeric_policy([](auto policy) {
        using Policy = decltype(policy);
        using Stored = typename Policy::Stored;
        if constexpr (Policy::is_integer) {
            return;
        } else {
            SCOPED_TRACE(scalar_metadata(policy.storage_type).name);
            // Orders around the edge of the copy's tiles; 16 bits hold all numbers up to 256.
            const bool is_wide = std::is_same_v<Stored, double>;
            for (const std::uint64_t n : {0U, 1U, 2U, 15U, 31U, 32U, 33U, 97U}) {
                if (n > 15 && !is_wide) {
                    break;
                }
                const auto rows = laid_out<Stored>(n, row_major, element_for<Stored>);
                expect_column_major_copy<Policy>(Matrix::host(n, n, rows));
                if constexpr (Policy::is_complex) {
                    const auto columns = laid_out<Stored>(n, column_major, element_for<Stored>);
                    expect_column_major_copy<Policy>(Matrix::host(n, n, columns, column_major));
                    using Part = Component<Stored>;
                    const auto real = laid_out<Part>(
                        n, row_major, [](auto i, auto j) { return Part(marked(i, j)); });
                    const auto imag = laid_out<Part>(
                        n, row_major, [](auto i, auto j) { return Part(-marked(i, j) / 2); });
                    expect_column_major_copy<Policy>(Matrix::host_impl(
                        Policy::type(), n, n, row_major, DataComplexLayout::split, {},
                        {make_buffer_view(BufferRole::real, real.data(), n * n),
                         make_buffer_view(BufferRole::imaginary, imag.data(), n * n)}));
                }
            }
        }
    });
}

TEST(LuFromHostMatrix, ReadsBorrowedReadOnlyMemory) {
    const float values[4]{1, 2, 3, 4};
    const Matrix source(std::make_unique<BorrowedDenseHostRealMatrix<float, float>>(values, 2, 2));
    const LuFactorisation lu = LuFactorisation::from_host_matrix(source);
    EXPECT_THAT(factors<float>(lu), ElementsAre(1, 3, 2, 4));
}

TEST(LuFromHostMatrix, RefusesOtherMatrices) {
    const auto host = DataTopologyDescriptor::pageable_host(-1);
    const std::string square = "LU initialisation - a square host matrix is required";
    const std::string floating = "LU initialisation - floating point matrix required";
    const auto uncompiled =
        DataTypeDescriptor::from_scalar_types(ScalarType::Float64, ScalarType::Float32);
    const auto refuse = [](const Matrix& source, const std::string& message) {
        expect_error<std::invalid_argument>([&] { LuFactorisation::from_host_matrix(source); },
                                            message);
    };
    refuse(Matrix::host_zeros<float>(2, 3), square);
    refuse(described(2, 2, DataTopologyDescriptor::gpu(0)), square);
    refuse(Matrix::host_zeros<int>(2, 3), square);
    refuse(Matrix::host_zeros<int>(2, 2), floating);
    refuse(described(2, 2, host, uncompiled), floating);
    refuse(described(2, 2, host, DataTypeDescriptor::real_long()), floating);
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_policies.h"
#include "backend/cpu/floating_test_support.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"
#include "backend/cpu/simd/x86_simd.h"

#include <cstring>

namespace Tessaline {
namespace {

using namespace Testing;
using namespace SimdKernels;

/// A matrix inside of a larger one, whose other elements nothing may touch.
template <typename T>
struct Block {
    Block(Size row_count, Size col_count, CounterRandom& random, bool with_specials)
        : rows(row_count),
          cols(col_count),
          memory(random_grid<T>(rows + 2, cols + 3, random, with_specials).elements) {}

    Size stride() const { return cols + 3; }
    T& operator()(Size i, Size j) { return memory[(i + 1) * stride() + j + 1]; }
    template <typename Element>
    StridedRows<Element> strided() {
        return {memory.data() + stride() + 1, stride()};
    }

    Size rows;
    Size cols;
    std::vector<T> memory;
};

template <typename T>
class UnfusedKernelsTest : public ::testing::Test {
  protected:
    /// Calls `body` with the kernels for T of each instruction set that the machine has.
    template <typename Body>
    static void for_each_set(const Body& body) {
        const X86Features features = detect_x86_features();
        ASSERT_TRUE(supports(features, X86Simd::avx256)) << "nothing was tested";
        body("AVX2", static_cast<const UnfusedKernels<T>&>(avx256_unfused_table));
        if (supports(features, X86Simd::avx512)) {
            body("AVX512", static_cast<const UnfusedKernels<T>&>(avx512_unfused_table));
        }
    }
};

using ComputeTypes = ::testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(UnfusedKernelsTest, ComputeTypes);

TYPED_TEST(UnfusedKernelsTest, BlocksOfProductsHaveTheBitsOfPlainLoops) {
    using T = TypeParam;
    // Around tiles of every vector, primes, more than one inner block, packed and not.
    const ProductExtents shapes[] = {{1, 1, 1},     {0, 3, 4},     {3, 0, 4},    {3, 4, 0},
                                     {7, 7, 7},     {8, 8, 8},     {9, 17, 15},  {17, 31, 33},
                                     {5, 2, 48},    {40, 3, 49},   {23, 29, 66}, {13, 257, 9},
                                     {19, 600, 51}, {33, 13, 145}, {1, 300, 50}, {64, 64, 64}};
    CounterRandom random(7);
    for (const ProductExtents& shape : shapes) {
        const auto [rows, inner, cols] = shape;
        for (const bool with_specials : {false, true}) {
            Block<T> a(rows, inner, random, with_specials && inner < 20);
            Block<T> b(inner, cols, random, with_specials && inner < 20);
            const Block<T> before(rows, cols, random, with_specials);
            for (const bool subtracts : {false, true}) {
                auto expected = before;
                for (Size i = 0; i < rows; ++i) {
                    for (Size j = 0; j < cols; ++j) {
                        T sum = subtracts ? expected(i, j) : T{};
                        for (Size k = 0; k < inner; ++k) {
                            const T term = a(i, k) * b(k, j);
                            sum = subtracts ? sum - term : sum + term;
                        }
                        // Without a term there is no arithmetic, and a NaN stays what it was.
                        expected(i, j) = subtracts && inner == 0 ? sum : result_as<T>(sum);
                    }
                }
                this->for_each_set([&](const char* name, const UnfusedKernels<T>& kernels) {
                    auto found = before;
                    const auto product = subtracts ? kernels.subtract_product : kernels.multiply;
                    product(a.template strided<const T>(), b.template strided<const T>(),
                            found.template strided<T>(), shape);
                    EXPECT_EQ(std::memcmp(found.memory.data(), expected.memory.data(),
                                          expected.memory.size() * sizeof(T)),
                              0)
                        << name << (subtracts ? " subtracts " : " multiplies ") << rows << " x "
                        << inner << " times " << inner << " x " << cols;
                });
            }
        }
    }
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/tables/transposed_copy.h"

#include "backend/cpu/floating/floating_test_support.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace Tessaline {

namespace {

template <typename Bits>
class TransposedCopy : public ::testing::Test {
  protected:
    Bits next() {
        const std::uint64_t words[] = {random_.next(), random_.next()};
        Bits bits;
        std::memcpy(&bits, words, sizeof bits);
        return bits;
    }
    std::vector<Bits> several(std::uint64_t count) {
        std::vector<Bits> elements(count);
        std::generate(elements.begin(), elements.end(), [this] { return next(); });
        return elements;
    }
    std::uint64_t below(std::uint64_t limit) { return random_.below(limit); }

  private:
    Testing::CounterRandom random_{7};
};

using Sizes = ::testing::Types<std::uint16_t, std::uint32_t, std::uint64_t, Bits128>;
TYPED_TEST_SUITE(TransposedCopy, Sizes);

// Around whole tiles, at every place within a cache line, with room between lines that must stay as
// it is; lines 1 KiB apart take a way of their own.
TYPED_TEST(TransposedCopy, MovesEachElementAndTouchesNothingElse) {
    for (int round = 0; round < 400; ++round) {
        const std::uint64_t rows = this->below(140);
        const std::uint64_t cols = this->below(140);
        const std::uint64_t source_stride = cols + this->below(5);
        const std::uint64_t target_stride =
            round % 4 == 0 ? 1024 : rows + this->below(5); // in elements, of 2 bytes at least
        const std::uint64_t start = this->below(40);
        const TypeParam flipped = this->next();
        const auto source = this->several(rows * source_stride);
        const auto before = this->several(start + cols * target_stride + rows);
        auto expected = before;
        for (std::uint64_t i = 0; i < rows; ++i) {
            for (std::uint64_t j = 0; j < cols; ++j) {
                expected[start + j * target_stride + i] =
                    static_cast<TypeParam>(source[i * source_stride + j] ^ flipped);
            }
        }
        Testing::for_each_unfused_table([&](const SimdKernels::UnfusedTable& table) {
            auto target = before;
            copy_transposed(source.data(), source_stride, target.data() + start, target_stride,
                            rows, cols, flipped, round % 2 == 0, table);
            ASSERT_EQ(
                std::memcmp(target.data(), expected.data(), target.size() * sizeof(TypeParam)), 0)
                << rows << " by " << cols << ", strides " << source_stride << " and "
                << target_stride << ", from element " << start << ", past the caches "
                << (round % 2 == 0);
        });
    }
}

} // namespace

} // namespace Tessaline

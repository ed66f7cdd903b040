// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/backend_key.h"

#include <cstring>

namespace Tessaline {
namespace {

using Testing::expect_error;
using Testing::scalar_operand;
using Testing::vector_operand;

// The hash of a key, written from its definition and independent of the library's: the 64-bit
// Murmur hash of the name, then the fields one by one.
class KeyHash {
  public:
    explicit KeyHash(const OperationId& id) {
        const std::uint64_t h = murmur(id.name(), 0xc70f6907U);
        value_ = (std::uint64_t{id.major()} + 64 * h + 0x9e3779b9U + h / 4) ^ h;
    }
    KeyHash& mix(std::int64_t field) {
        const auto v = static_cast<std::uint64_t>(field);
        value_ ^= v + 0x9e3779b9U + value_ * 64 + value_ / 4;
        return *this;
    }
    std::uint64_t value() const { return value_; }

  private:
    static std::uint64_t murmur(const std::string& text, std::uint64_t seed) {
        constexpr std::uint64_t mul = 0xc6a4a7935bd1e995U;
        const auto shift_mix = [](std::uint64_t v) { return v ^ (v >> 47U); };
        std::uint64_t hash = seed ^ (text.size() * mul);
        for (std::size_t at = 0; at < text.size(); at += 8) {
            std::uint64_t word = 0;
            const std::size_t count = std::min<std::size_t>(8, text.size() - at);
            std::memcpy(&word, text.data() + at, count);
            hash = (hash ^ (count == 8 ? shift_mix(word * mul) * mul : word)) * mul;
        }
        return shift_mix(shift_mix(hash) * mul);
    }

    std::uint64_t value_;
};

BackendOperandKey matrix_key() {
    BackendOperandKey key;
    key.kind = OperandKind::Matrix;
    key.location = DataLocation::pinned_host;
    key.format = OperandFormat::of(DataMatrixFormat::coo);
    key.storage = ScalarType::Complex64;
    key.compute = ScalarType::Complex128;
    key.complex = DataComplexLayout::split;
    key.layout = DataMatrixLayout::column_major;
    return key;
}

TEST(BackendRegistryKey, HashesByTheStatedRule) {
    const OperationId id("tessaline.matmul", 3);
    EXPECT_EQ(OperationId::Hash{}(id), KeyHash(id).value());
    EXPECT_EQ(OperationId::Hash{}(OperationId("tessaline.add", 1)),
              KeyHash(OperationId("tessaline.add", 1)).value());

    const BackendOperandKey scalar{};
    const BackendRegistryKey key(BackendKind::cuda, id, {scalar, matrix_key()}, matrix_key());
    KeyHash expected(id);
    expected.mix(2).mix(2);
    expected.mix(0).mix(0).mix(0).mix(0).mix(0).mix(0).mix(0);
    expected.mix(2).mix(1).mix(2).mix(4).mix(7).mix(8).mix(1).mix(1);
    expected.mix(1).mix(2).mix(1).mix(2).mix(4).mix(7).mix(8).mix(1).mix(1);
    EXPECT_EQ(BackendRegistryKey::Hash{}(key), expected.value());

    // Fields are signed: a value outside its enumeration is extended by its sign.
    BackendOperandKey odd{};
    odd.storage = ScalarType{-1};
    const BackendRegistryKey negative(BackendKind::cpu_scalar, id, {}, odd);
    KeyHash extended(id);
    extended.mix(0).mix(0).mix(1).mix(0).mix(0).mix(0).mix(-1).mix(0).mix(0).mix(0);
    EXPECT_EQ(BackendRegistryKey::Hash{}(negative), extended.value());
}

TEST(BackendRegistryKey, EqualityIsFieldWise) {
    const OperationId id("a.b", 1);
    const auto key = [&id](const BackendOperandKey& output) {
        return BackendRegistryKey(BackendKind::cpu_simd, id, {matrix_key()}, output);
    };
    const auto differs = [&key](auto change) {
        BackendOperandKey changed = matrix_key();
        change(changed);
        return key(changed) != key(matrix_key());
    };
    EXPECT_EQ(key(matrix_key()), key(matrix_key()));
    EXPECT_TRUE(differs([](auto& k) { k.kind = OperandKind::Vector; }));
    EXPECT_TRUE(differs([](auto& k) { k.location = DataLocation::cuda_device; }));
    EXPECT_TRUE(differs([](auto& k) { k.format.tag = OperandFormat::Tag::vector; }));
    EXPECT_TRUE(differs([](auto& k) { k.format.value = 0; }));
    EXPECT_TRUE(differs([](auto& k) { k.storage = ScalarType::Complex32; }));
    EXPECT_TRUE(differs([](auto& k) { k.compute = ScalarType::Complex64; }));
    EXPECT_TRUE(differs([](auto& k) { k.complex = DataComplexLayout::interleaved; }));
    EXPECT_TRUE(differs([](auto& k) { k.layout.reset(); }));
    // A layout of row major and an absent one hash alike and still differ.
    BackendOperandKey row = matrix_key();
    row.layout = DataMatrixLayout::row_major;
    BackendOperandKey none = matrix_key();
    none.layout.reset();
    EXPECT_NE(key(row), key(none));
    EXPECT_EQ(BackendRegistryKey::Hash{}(key(row)), BackendRegistryKey::Hash{}(key(none)));
    // The value of a format counts only where there is one.
    BackendOperandKey a{};
    BackendOperandKey b{};
    b.format.value = 3;
    EXPECT_EQ(a, b);
    expect_error<std::invalid_argument>(
        [&id] { BackendRegistryKey(BackendKind::cuda, id, {}, std::vector<BackendOperandKey>{}); },
        "BackendRegistryKey - at least one output is required");
}

TEST(BackendOperandKey, LeavesShapeRoleAndPlacementOut) {
    const auto key = operand_key_for(vector_operand(
        input_role(1), 5, DataTopologyDescriptor::gpu(1, 0), DataTypeDescriptor::complex_float()));
    EXPECT_EQ(key, operand_key_for(vector_operand(output_role(0), 9, DataTopologyDescriptor::gpu(0),
                                                  DataTypeDescriptor::complex_float())));
    EXPECT_EQ(describe_operand_key(key),
              "kind=1,location=2,storage=7,compute=7,complex=2,format=1,layout=-");
    EXPECT_EQ(operand_key_for(scalar_operand(input_role(0))).format.tag, OperandFormat::Tag::none);

    const auto host = DataTopologyDescriptor::pageable_host(0);
    const OperandDescriptor eigen(
        output_role(0),
        EigenValsDescriptor(4, host, DataTypeDescriptor::complex_double(), DataVectorFormat::dense,
                            DataMatrixLayout::column_major, DataComplexLayout::interleaved));
    const OperandDescriptor lu(
        input_role(0), LuDecompDescriptor(4, host, DataTypeDescriptor::real_long(),
                                          DataTypeDescriptor::real_float(), DataMatrixFormat::dense,
                                          DataMatrixLayout::column_major, DataComplexLayout::none));
    EXPECT_EQ(describe_registry_key({BackendKind::cpu_simd,
                                     OperationId("a.b", 1),
                                     {operand_key_for(lu), operand_key_for(lu)},
                                     operand_key_for(eigen)}),
              "backend=1,inputs=[kind=3,location=0,storage=0,compute=0,complex=0,format=2,layout=1;"
              "kind=3,location=0,storage=0,compute=0,complex=0,format=2,layout=1],outputs=["
              "kind=4,location=0,storage=8,compute=8,complex=2,format=2,layout=1]");
}

} // namespace
} // namespace Tessaline

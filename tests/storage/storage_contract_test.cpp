// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/storage_contract.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>

namespace Tessaline {
namespace {

/// Kind, category, complex layout and matrix layout of each shape that may exist: s, v, m, l, e;
/// r(eal), i(nteger), c(omplex); n(one), s(plit), i(nterleaved); -, r(ow), c(olumn).
const std::set<std::string> dense_shapes{
    "srn-", "sin-", "scn-",                 // scalars
    "vrn-", "vin-", "vcs-", "vci-",         // vectors
    "mrnr", "minr", "mcsr", "mcir", "mcic", // matrices
    "lrnc", "lcic",                         // LU factors
    "ecir", "ecic",                         // eigenvalue sets
};

char letter(const char* letters, auto value) {
    const auto index = static_cast<std::size_t>(value);
    return index < std::char_traits<char>::length(letters) ? letters[index] : '?';
}

std::string shape_of(const BackendOperandKey& key) {
    const ScalarCategory category = scalar_metadata(key.storage).category;
    return {letter("svmle", key.kind), letter("rich", category), letter("nsi", key.complex),
            key.layout ? letter("rc", *key.layout) : '-'};
}

bool is_dense_format(const BackendOperandKey& key) {
    const auto tag = std::min<std::int32_t>(static_cast<std::int32_t>(key.kind), 2);
    return static_cast<std::int32_t>(key.format.tag) == tag && key.format.value == 0;
}

/// Calls visit with every key over all values of its fields, and values just outside.
template <typename Visit>
void for_each_key(const Visit& visit) {
    for (std::int32_t kind = 0; kind <= 5; ++kind) {
        for (std::uint8_t tag = 0; tag <= 2; ++tag) {
            for (std::int32_t format = 0; format <= 1; ++format) {
                for (std::int32_t complex = 0; complex <= 3; ++complex) {
                    for (std::int32_t layout = -1; layout <= 2; ++layout) {
                        BackendOperandKey key;
                        key.kind = OperandKind{kind};
                        key.format = {OperandFormat::Tag{tag}, format};
                        key.complex = DataComplexLayout{complex};
                        if (layout >= 0) {
                            key.layout = DataMatrixLayout{layout};
                        }
                        for (const ScalarMetadata& storage : scalar_types) {
                            key.storage = storage.type;
                            visit(key);
                        }
                    }
                }
            }
        }
    }
}

TEST(StorageContract, AdmitsExactlyTheListedShapes) {
    int admitted = 0;
    for_each_key([&](const BackendOperandKey& key) {
        const bool expected = is_dense_format(key) && dense_shapes.contains(shape_of(key));
        ASSERT_EQ(dense_storage_contract(key), expected)
            << describe_operand_key(key) << " " << shape_of(key);
        admitted += static_cast<int>(expected);
    });
    // 4 floating, 4 integer and 3 complex types, by the number of shapes of each.
    EXPECT_EQ(admitted, 4 * 4 + 4 * 3 + 3 * 9);
}

TEST(StorageContract, RefusesAnUnknownStorageType) {
    BackendOperandKey key;
    key.storage = ScalarType{99};
    EXPECT_THROW(dense_storage_contract(key), std::invalid_argument);
}

struct PolicyKinds {
    ScalarType storage;
    ScalarType compute;
    const char* device_kinds; ///< the kinds that move to a device
};

constexpr PolicyKinds policies[]{
    {ScalarType::Complex32, ScalarType::Complex64, "svme"},
    {ScalarType::Float16, ScalarType::Float32, "svm"},
    {ScalarType::BFloat16, ScalarType::Float32, "svm"},
    {ScalarType::Float32, ScalarType::Float32, "svml"},
    {ScalarType::Float64, ScalarType::Float64, "svml"},
    {ScalarType::Int32, ScalarType::Int32, "svm"},
    {ScalarType::Complex64, ScalarType::Complex64, "svmle"},
    {ScalarType::Complex128, ScalarType::Complex128, "svmle"},
};

TEST(StorageSupport, FollowsPolicyKindAndEigenvectorOrder) {
    for_each_key([&](BackendOperandKey key) {
        for (const ScalarMetadata& compute : scalar_types) {
            key.compute = compute.type;
            const auto* policy = std::ranges::find_if(policies, [&](const PolicyKinds& each) {
                return each.storage == key.storage && each.compute == key.compute;
            });
            const std::string shape = shape_of(key);
            const bool pinned = is_dense_format(key) && dense_shapes.contains(shape) &&
                                shape != "ecir" && policy != std::end(policies);
            ASSERT_EQ(StorageFactory::supports_pinned_storage(key), pinned)
                << describe_operand_key(key);
            const bool device =
                pinned && std::string(policy->device_kinds).find(shape[0]) != std::string::npos;
            ASSERT_EQ(StorageFactory::supports_device_transfer(key), device)
                << describe_operand_key(key);
        }
    });
}

BackendOperandKey key_of(const std::string& shape, ScalarType storage, DataLocation location) {
    BackendOperandKey key;
    key.kind = OperandKind{static_cast<std::int32_t>(std::string("svmle").find(shape[0]))};
    key.location = location;
    key.format = {OperandFormat::Tag{static_cast<std::uint8_t>(
                      std::min<std::size_t>(std::string("svm").find(shape[0]), 2))},
                  0};
    key.storage = storage;
    key.compute = storage;
    key.complex = DataComplexLayout{static_cast<std::int32_t>(std::string("nsi").find(shape[1]))};
    if (shape[2] != '-') {
        key.layout = shape[2] == 'r' ? DataMatrixLayout::row_major : DataMatrixLayout::column_major;
    }
    return key;
}

TEST(StorageSupport, HostTransfersKeepLayoutExceptForInterleavedMatrices) {
    struct Case {
        const char* source; ///< kind, complex layout, layout
        const char* device;
        ScalarType storage;
        bool from_pageable, from_pinned; ///< as output
        bool as_input;                   ///< from either location
    };
    constexpr auto real = ScalarType::Float32;
    constexpr auto complex = ScalarType::Complex64;
    const Case cases[]{
        {"sn-", "sn-", real, true, true, true},
        {"vn-", "vn-", ScalarType::Int32, true, true, true},
        {"vi-", "vi-", complex, true, true, true},
        {"vs-", "vs-", complex, true, true, true},
        {"vs-", "vi-", complex, false, false, false},
        {"vn-", "sn-", real, false, false, false},
        {"mnr", "mnr", real, true, true, true},
        {"mnr", "mnc", real, false, false, false},
        {"msr", "msr", complex, true, true, true},
        {"mir", "mic", complex, true, true, true},
        {"mic", "mic", complex, true, true, true},
        {"mir", "mir", complex, false, false, false},
        {"mic", "mir", complex, false, false, false},
        {"lnc", "lnc", real, true, true, true},
        {"lic", "lic", ScalarType::Complex32, false, false, false},
        {"eic", "eic", complex, true, true, false},
        {"eir", "eic", complex, true, false, false},
        {"eic", "eir", complex, false, false, false},
    };
    using StorageFactory::supports_host_transfer;
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.source) + " to " + each.device);
        const auto device = key_of(each.device, each.storage, DataLocation::cuda_device);
        const auto pageable = key_of(each.source, each.storage, DataLocation::pageable_host);
        const auto pinned = key_of(each.source, each.storage, DataLocation::pinned_host);
        EXPECT_EQ(supports_host_transfer(pageable, device, false), each.from_pageable);
        EXPECT_EQ(supports_host_transfer(pinned, device, false), each.from_pinned);
        EXPECT_EQ(supports_host_transfer(pageable, device, true), each.as_input);
        EXPECT_EQ(supports_host_transfer(pinned, device, true), each.as_input);
        EXPECT_FALSE(supports_host_transfer(device, device, false));
        EXPECT_FALSE(supports_host_transfer(pageable, pinned, false));
    }
    const auto device = key_of("vn-", real, DataLocation::cuda_device);
    const auto other = key_of("vn-", ScalarType::Float64, DataLocation::pageable_host);
    EXPECT_FALSE(supports_host_transfer(other, device, true));
    auto half = key_of("vn-", real, DataLocation::pageable_host);
    half.storage = ScalarType::Float16;
    EXPECT_FALSE(supports_host_transfer(half, device, true));
}

} // namespace
} // namespace Tessaline

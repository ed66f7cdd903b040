// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/registry_rows.h"
#include "tessaline/catalogue/errors.h"

namespace Tessaline {
namespace {

using namespace Testing;

const auto provenance = RegistrationProvenance::builtin("0.1.1");
const OperationId op("test.op", 1);

BackendAdaptationRegistry
rules_for(std::function<bool(const BackendOperandKey&, const BackendOperandKey&)> supports) {
    BackendAdaptationRegistry rules;
    rules.inputs.push_back({supports, {}});
    rules.outputs.push_back({supports, {}});
    return rules;
}

/// Whether two keys differ in nothing but where their data lie.
bool same_but_location(const BackendOperandKey& a, BackendOperandKey b) {
    b.location = a.location;
    return a == b;
}

class BackendRegistryTest : public ::testing::Test {
  protected:
    BackendRegistryTest() {
        operations_.register_operation(test_operation(1, 1), provenance);
        operations_.register_operation(test_operation(0, 1, "test.rowless"), provenance);
        operations_.seal();
    }

    void add(BackendKind backend, std::vector<BackendOperandKey> inputs,
             std::vector<BackendOperandKey> outputs, const std::string& name = "row") {
        registry_.register_backend(
            BackendRegistryKey(backend, op, std::move(inputs), std::move(outputs)),
            named_entry(log_, name), provenance, std::nullopt);
    }

    OperationHandle handle_{1};
    StepLog log_;
    OperationRegistry operations_;
    BackendRegistry registry_;
    const BackendAdaptationRegistry no_rules_;
};

const BackendOperandKey pageable = vector_key();
const BackendOperandKey pinned = vector_key(ScalarType::Float32, DataLocation::pinned_host);
const BackendOperandKey device = vector_key(ScalarType::Float32, DataLocation::cuda_device);

TEST_F(BackendRegistryTest, FindsTheExactRowOfAFamily) {
    add(BackendKind::cpu_simd, {pageable}, {pageable}, "simd");
    add(BackendKind::cuda, {device}, {device}, "cuda");
    registry_.seal(operations_);
    const BackendOperandKey inputs[] = {pageable};
    const auto match = registry_.find(handle_, BackendKind::cpu_simd, inputs, pageable, no_rules_);
    ASSERT_TRUE(match);
    EXPECT_TRUE(match->exact());
    EXPECT_EQ(run(match->entry().materialise(), log_), StepLog{"simd"});
    EXPECT_FALSE(registry_.find(handle_, BackendKind::cpu_scalar, inputs, pageable, no_rules_));
    EXPECT_FALSE(registry_.find(handle_, BackendKind::cuda, inputs, pageable, no_rules_));
    EXPECT_FALSE(
        registry_.find(OperationHandle{2}, BackendKind::cuda, inputs, pageable, no_rules_));
    EXPECT_FALSE(
        registry_.find(OperationHandle{9}, BackendKind::cuda, inputs, pageable, no_rules_));
}

TEST_F(BackendRegistryTest, PricesAdaptationByLocation) {
    const auto rules = rules_for(same_but_location);
    EXPECT_EQ(operand_adaptation_cost(pageable, pageable, no_rules_, true), 0U);
    EXPECT_EQ(operand_adaptation_cost(pageable, pinned, no_rules_, true), std::nullopt);
    EXPECT_EQ(operand_adaptation_cost(pageable, pinned, rules, true), 1U);
    EXPECT_EQ(operand_adaptation_cost(device, pinned, rules, false), 2U);
    EXPECT_EQ(operand_adaptation_cost(pageable, device, rules, false), 2U);
    BackendAdaptationRegistry inputs_only;
    inputs_only.inputs = rules.inputs;
    EXPECT_EQ(operand_adaptation_cost(pageable, device, inputs_only, false), std::nullopt);

    add(BackendKind::cuda, {device}, {device});
    registry_.seal(operations_);
    const BackendOperandKey inputs[] = {pageable};
    const auto match = registry_.find(handle_, BackendKind::cuda, inputs, pinned, rules);
    ASSERT_TRUE(match);
    EXPECT_EQ(match->adaptation_cost(), 4U);
    EXPECT_FALSE(match->exact());
}

TEST_F(BackendRegistryTest, SkipsRowsOfAnotherArityWithoutAskingARule) {
    add(BackendKind::cuda, {device, device}, {device});
    add(BackendKind::cuda, {device}, {device, device});
    registry_.seal(operations_);
    const auto rules = rules_for(
        [](const auto&, const auto&) -> bool { throw std::runtime_error("a rule was asked"); });
    const BackendOperandKey inputs[] = {pageable};
    EXPECT_FALSE(registry_.find(handle_, BackendKind::cuda, inputs, pageable, rules));
}

TEST_F(BackendRegistryTest, RefusesTiesAtTheLowestCostOnly) {
    BackendOperandKey split = pageable;
    split.complex = DataComplexLayout::split;
    BackendOperandKey wide = pageable;
    wide.storage = ScalarType::Float64;
    add(BackendKind::cpu_simd, {split}, {pageable});
    add(BackendKind::cpu_simd, {wide}, {pageable});
    add(BackendKind::cpu_simd, {pinned}, {pageable}, "exact");
    const auto rules = rules_for([](const auto&, const auto&) { return true; });
    registry_.seal(operations_);
    const BackendOperandKey asked[] = {pinned};
    const auto match = registry_.find(handle_, BackendKind::cpu_simd, asked, pageable, rules);
    ASSERT_TRUE(match);
    EXPECT_EQ(run(match->entry().materialise(), log_), StepLog{"exact"});

    BackendOperandKey other = pageable;
    other.compute = ScalarType::Float64;
    const BackendOperandKey tied[] = {other};
    const std::string tail = "],outputs=[kind=1,location=0,storage=0,compute=0,complex=0,format=1,"
                             "layout=-]";
    const std::string head = "backend=1,inputs=[kind=1,location=";
    const std::string message =
        "BackendRegistry::find - ambiguous equal-cost registrations for numeric operation handle "
        "1: " +
        head + "0,storage=0,compute=0,complex=1,format=1,layout=-" + tail + " | " + head +
        "0,storage=1,compute=0,complex=0,format=1,layout=-" + tail + " | " + head +
        "1,storage=0,compute=0,complex=0,format=1,layout=-" + tail;
    const auto find = [&] {
        static_cast<void>(registry_.find(handle_, BackendKind::cpu_simd, tied, pageable, rules));
    };
    expect_dispatch_error(find, "BackendRegistry::find", ErrorReason::registry_contract_mismatch,
                          message);
}

TEST_F(BackendRegistryTest, OperationWithoutInputsIsPricedByItsOutputs) {
    add(BackendKind::cuda, {}, {device});
    registry_.seal(operations_);
    const auto match =
        registry_.find(handle_, BackendKind::cuda, {}, pageable, rules_for(same_but_location));
    ASSERT_TRUE(match);
    EXPECT_EQ(match->adaptation_cost(), 2U);
}

TEST_F(BackendRegistryTest, OpenAndSealedRegistriesRefuseEachOthersWork) {
    const BackendOperandKey inputs[] = {pageable};
    const std::vector<BackendOperandKey> input_list{pageable};
    add(BackendKind::cpu_simd, {pageable}, {pageable});
    expect_error<std::logic_error>(
        [&] {
            static_cast<void>(
                registry_.find(handle_, BackendKind::cpu_simd, inputs, pageable, no_rules_));
        },
        "BackendRegistry::find - numeric catalogue is not sealed");
    expect_error<std::logic_error>(
        [&] { registry_.seal(OperationRegistry()); },
        "BackendRegistry::seal - operation catalogue must be sealed first");
    expect_error<std::invalid_argument>([&] { BackendDispatcher(registry_, no_rules_); },
                                        "BackendDispatcher - backend catalogue must be sealed");
    expect_error<std::invalid_argument>(
        [&] { add(BackendKind::cpu_simd, {pageable}, {pageable}); },
        "BackendRegistry::register_backend - duplicate registration for test.op@1");
    expect_error<std::invalid_argument>([] { BackendEntry(nullptr); },
                                        "BackendEntry - materialiser must not be empty");
    OperationRegistry foreign;
    foreign.register_operation(test_operation(1, 1, "test.other"), provenance);
    foreign.seal();
    expect_error<std::out_of_range>([&] { registry_.seal(foreign); },
                                    "OperationRegistry - operation 'test.op' is not registered");
    EXPECT_FALSE(registry_.sealed());
    EXPECT_EQ(registry_.size(), 1U);
    registry_.seal(operations_);
    registry_.seal(OperationRegistry());
    expect_error<std::logic_error>([&] { add(BackendKind::cuda, {device}, {device}); },
                                   "BackendRegistry::register_backend - catalogue is sealed");
}

TEST_F(BackendRegistryTest, FaultyNumericsLeaveTheRegistryAsItWas) {
    ImplementationNumerics numerics;
    numerics.algorithm = "Not An Identifier";
    const BackendRegistryKey key(BackendKind::cpu_simd, op, {pageable}, pageable);
    expect_error<std::invalid_argument>(
        [&] { registry_.register_backend(key, named_entry(log_, "row"), provenance, numerics); },
        "ImplementationNumerics - algorithm must be a lower-case identifier");
    EXPECT_EQ(registry_.size(), 0U);
}

TEST_F(BackendRegistryTest, CopiesAnswerFromTheirOwnStorage) {
    add(BackendKind::cpu_simd, {pageable}, {pageable}, "simd");
    BackendRegistry open_copy = registry_;
    EXPECT_FALSE(open_copy.sealed());
    registry_.seal(operations_);
    const BackendOperandKey inputs[] = {pageable};
    const auto found_in = [&](const BackendRegistry& registry) {
        const auto match =
            registry.find(handle_, BackendKind::cpu_simd, inputs, pageable, no_rules_);
        return match ? &match->key() : nullptr;
    };
    const auto key_of = [](const BackendRegistry& registry) {
        return &registry.registrations().begin()->first;
    };
    BackendRegistry copy = registry_;
    EXPECT_EQ(found_in(copy), key_of(copy));
    open_copy = copy;
    EXPECT_EQ(found_in(open_copy), key_of(open_copy));
    // What was copied from may go, and a move keeps addresses.
    const auto* const address = key_of(copy);
    registry_ = BackendRegistry();
    const BackendRegistry moved = std::move(copy);
    EXPECT_EQ(found_in(moved), address);
}

class ResultPolicyTest : public BackendRegistryTest {
  protected:
    void expect_unsupported(const DenseResultRequest& request,
                            std::span<const BackendKind> backends = cpu) const {
        expect_refused(request, ErrorReason::no_backend_available,
                       "unsupported result policy: no viable implementation for the input policies "
                       "and output layout",
                       backends);
    }
    void expect_ambiguous(const DenseResultRequest& request) const {
        expect_refused(request, ErrorReason::registry_contract_mismatch,
                       "ambiguous result policy: supply an output dtype or use Context.execute "
                       "with explicit operand policies",
                       cpu);
    }
    void expect_refused(const DenseResultRequest& request, ErrorReason reason,
                        const std::string& message, std::span<const BackendKind> backends) const {
        expect_dispatch_error(
            [&] {
                static_cast<void>(registry_.infer_dense_result_policy(handle_, backends, {pageable},
                                                                      request, rules_));
            },
            "result policy", reason, message);
    }

    static constexpr BackendKind cpu[] = {BackendKind::cpu_scalar, BackendKind::cpu_simd};
    const DenseResultRequest vector_request_{OperandKind::Vector, DataLocation::pageable_host,
                                             std::nullopt, std::nullopt};
    const BackendAdaptationRegistry rules_ = rules_for([](const auto& from, const auto& to) {
        return from.storage == to.storage && from.complex == DataComplexLayout::interleaved;
    });
};

TEST_F(ResultPolicyTest, AnswersTheOnePairThatRemains) {
    BackendOperandKey split = vector_key(ScalarType::Complex64);
    split.complex = DataComplexLayout::split;
    add(BackendKind::cpu_simd, {pageable}, {pageable});
    add(BackendKind::cpu_scalar, {pageable}, {pageable});
    add(BackendKind::cpu_simd, {pageable}, {split});
    add(BackendKind::cpu_simd, {pageable}, {vector_key(ScalarType::Int32), pageable});
    add(BackendKind::cuda, {pageable}, {vector_key(ScalarType::Float64)});
    registry_.seal(operations_);
    const auto infer = [&](ScalarType storage) {
        auto request = vector_request_;
        request.storage = storage;
        return registry_.infer_dense_result_policy(handle_, cpu, {pageable}, request, rules_);
    };
    EXPECT_EQ(infer(ScalarType::Float32), DataTypeDescriptor::real_float());
    // A complex result is made interleaved and reaches the split row through a rule.
    EXPECT_EQ(infer(ScalarType::Complex64), DataTypeDescriptor::complex_float());
    expect_ambiguous(vector_request_);
    expect_unsupported(vector_request_, {});
    auto other = vector_request_;
    other.storage = ScalarType::Int32;
    expect_unsupported(other);
    other = vector_request_;
    other.storage = ScalarType::Float32;
    other.location = DataLocation::cuda_device;
    expect_unsupported(other);
    const DenseResultRequest column_major{OperandKind::Matrix, DataLocation::pageable_host,
                                          DataMatrixLayout::column_major, ScalarType::Float32};
    expect_unsupported(column_major);
}

TEST_F(ResultPolicyTest, DifferingComputeTypesAreAmbiguousEvenForANamedType) {
    BackendOperandKey wide = pageable;
    wide.compute = ScalarType::Float64;
    add(BackendKind::cpu_simd, {pageable}, {pageable});
    add(BackendKind::cpu_simd, {pageable}, {wide});
    registry_.seal(operations_);
    auto request = vector_request_;
    request.storage = ScalarType::Float32;
    expect_ambiguous(request);
}

TEST_F(ResultPolicyTest, ChecksTheRequestBeforeAnySearch) {
    const auto infer = [&](const DenseResultRequest& request) {
        static_cast<void>(
            registry_.infer_dense_result_policy(handle_, cpu, {pageable}, request, rules_));
    };
    expect_error<std::logic_error>([&] { infer(vector_request_); },
                                   "result policy - numeric catalogue is not sealed");
    registry_.seal(operations_);
    const auto host = DataLocation::pageable_host;
    const std::string layout =
        "result policy - a valid matrix layout is required only for matrices";
    const std::pair<DenseResultRequest, std::string> refused[] = {
        {{OperandKind::LuDecomp, host, DataMatrixLayout::row_major, {}},
         "result policy - expected a dense scalar, vector or matrix"},
        {{OperandKind{-1}, host, {}, {}},
         "result policy - expected a dense scalar, vector or matrix"},
        {{OperandKind::Matrix, host, {}, {}}, layout},
        {{OperandKind::Matrix, host, DataMatrixLayout{2}, {}}, layout},
        {{OperandKind::Vector, host, DataMatrixLayout::row_major, {}}, layout},
    };
    for (const auto& [request, message] : refused) {
        expect_error<std::invalid_argument>([&, request = request] { infer(request); }, message);
    }
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/relay.h"
#include "support/expect_error.h"
#include "support/operands.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/frontend/elements.h"
#include "tessaline/frontend/tessaline_executor.h"

#include <gmock/gmock.h>

#include <optional>
#include <thread>

namespace Tessaline {
namespace {

using namespace Testing;
using ::testing::ElementsAre;

const OperationId acme("acme.f", 1);

class NativePluginTest : public ::testing::Test {
  protected:
    void load(Relay::Init init) { relay_.load(builder_, std::move(init)); }

    /// Loading fails, the plugin was shut down `shutdowns` times, and nothing of it remains.
    template <typename Error = std::invalid_argument>
    void expect_refused(const Relay::Init& init, const std::string& message, int shutdowns = 1) {
        SCOPED_TRACE(message);
        const int before = relay_.shutdowns();
        expect_error<Error>([&] { load(init); }, message);
        EXPECT_EQ(relay_.shutdowns() - before, shutdowns);
        EXPECT_FALSE(Relay::is_open());
    }

    /// A plugin "acme" whose one kernel is the library's own.
    void load_negation() {
        load([this](const Loading& loading) {
            return loading.register_kernel(declared_kernel(operands_, relay_.negate()));
        });
    }

    void expect_negation(const TessalineContext& context) {
        const TessalineExecutor executor(context, BackendExecutor::cpu_only());
        const Vector from = Vector::host({1.0F, -2.5F});
        Vector to = Vector::host_zeros<float>(2);
        OperationBindings bindings;
        bindings.bind(input_role(0), from).bind(output_role(0), to);
        executor.execute(acme, bindings);
        EXPECT_THAT(elements<float>(to), ElementsAre(-1.0F, 2.5F));
    }

    const std::vector<tessaline_backend_operand> operands_ = vector_to_vector();
    Relay relay_;
    TessalineContextBuilder builder_ = TessalineContextBuilder::custom_only();
};

TEST_F(NativePluginTest, FaultyPluginsAreRefusedAndLeaveNothingBehind) {
    const auto good = declared_kernel(operands_);
    struct Row {
        std::function<void(const Loading&)> change; ///< what it does beside registering `good`
        const char* message;
    };
    const auto name = [&](const char* id) {
        return [id](const Loading& loading) {
            loading.metadata.plugin_id = tessaline_string_from(id);
        };
    };
    const Row ordered[] = {
        {[](const Loading& loading) { loading.metadata.abi_revision = 2; },
         "native plugin ABI revision mismatch: expected 1, received 2"},
        {[](const Loading& loading) {
             loading.metadata.plugin_id = {nullptr, 3};
         },
         "plugin ID is malformed"},
        {[](const Loading& loading) {
             loading.metadata.version = {nullptr, 1};
         },
         "plugin version is malformed"},
        {[](const Loading& loading) { loading.metadata.version.size = 0; },
         "native plugin version must not be empty"},
        {[](const Loading& loading) { loading.metadata.cuda_runtime_min = 12000; },
         "native CPU plugin declared CUDA runtime requirements"},
        {name("tessaline"), "native plugin may not use the reserved 'tessaline' namespace"},
    };
    // Each with the faults behind it, which are not reached.
    for (std::size_t first = 0; first < std::size(ordered); ++first) {
        expect_refused(
            [&](const Loading& loading) {
                for (std::size_t fault = std::size(ordered); fault-- > first;) {
                    ordered[fault].change(loading);
                }
                return loading.register_kernel(good);
            },
            ordered[first].message);
    }
    const Row rows[] = {
        {name(""), "OperationId - namespace segments must not be empty"},
        {name("Acme"), "OperationId - names must use lower-case ASCII identifier segments"},
        {name("tessaline.acme"), "native plugin may not use the reserved 'tessaline' namespace"},
        {name("tessaline2"),
         "native kernel operation 'acme.f@1' is outside plugin namespace 'tessaline2'"},
        {name("acme.f"), "native kernel operation 'acme.f@1' is outside plugin namespace 'acme.f'"},
        {name("acm"), "native kernel operation 'acme.f@1' is outside plugin namespace 'acm'"},
    };
    for (const Row& row : rows) {
        expect_refused(
            [&](const Loading& loading) {
                row.change(loading);
                return loading.register_kernel(good);
            },
            row.message);
    }
    expect_refused<std::runtime_error>(
        [&](const Loading& loading) {
            auto kernel = good;
            kernel.backend = TESSALINE_BACKEND_CUDA;
            loading.metadata.cuda_runtime_min = 12000;
            return loading.register_kernel(kernel);
        },
        "native plugin CUDA runtime query failed with status 801");
    expect_refused([](const Loading&) { return TESSALINE_STATUS_OK; },
                   "native plugin must register at least one kernel");
    EXPECT_TRUE(std::move(builder_).build().operations().empty());
}

TEST_F(NativePluginTest, AnIgnoredFailureOfARegistrationFailsTheLoading) {
    auto bad = declared_kernel(operands_);
    bad.backend = 9;
    auto worse = bad;
    worse.struct_size = 8;
    const auto ignore = [&](const Loading& loading) {
        loading.register_kernel(declared_kernel(operands_));
        loading.register_kernel(bad);
        loading.register_kernel(worse);
        loading.metadata.abi_revision = 2; // a later fault
        return TESSALINE_STATUS_OK;
    };
    expect_refused(ignore, "native plugin ignored a failed host registration: "
                           "native plugin declared an invalid backend");
    expect_refused<BackendLibraryError>(
        [&](const Loading& loading) { return loading.register_kernel(bad); },
        "native plugin initialisation failed with plugin status 1: "
        "native plugin declared an invalid backend");
}

TEST_F(NativePluginTest, MetadataTooShortToTrustIsNotRead) {
    const auto shorten = [](tessaline_status status) {
        return [status](const Loading& loading) {
            loading.metadata.struct_size = 63;
            return status;
        };
    };
    expect_refused(shorten(TESSALINE_STATUS_OK),
                   "tessaline_plugin_metadata has an invalid struct_size", 0);
    expect_refused<BackendLibraryError>(
        shorten(77), "native plugin initialisation failed with plugin status 77", 0);
    load([&](const Loading& loading) {
        EXPECT_EQ(loading.host.struct_size, 24U);
        EXPECT_EQ(loading.host.abi_revision, 1U);
        EXPECT_EQ(loading.sink.struct_size, 24U);
        loading.metadata.struct_size = 1024;
        return loading.register_kernel(declared_kernel(operands_));
    });
    EXPECT_EQ(std::move(builder_).build().operations().size(), 1U);
}

TEST_F(NativePluginTest, FailedInitialisationTellsWhy) {
    const std::string failed = "native plugin initialisation failed with plugin status ";
    using Failure = BackendLibraryError;
    expect_refused<Failure>(
        [](const Loading& loading) { return tessaline_fail(&loading.sink, 3, "why"); },
        failed + "3: why");
    expect_refused<Failure>(
        [](const Loading&) -> tessaline_status { throw std::runtime_error("lost"); },
        failed + "4: lost");
    expect_refused<Failure>([](const Loading&) -> tessaline_status { throw 5; }, failed + "4");
}

TEST_F(NativePluginTest, WhatIsNoPluginIsNamed) {
    const auto load_path = [this](const std::string& path) { builder_.load_plugin(path); };
    expect_error<std::invalid_argument>(
        [&] { load_path(""); }, "TessalineContextBuilder::load_plugin - path must not be empty");
    expect_error<std::runtime_error>(
        [&] { load_path("/nonexistent/plugin.so"); },
        "failed to load native plugin '/nonexistent/plugin.so': /nonexistent/plugin.so: cannot "
        "open shared object file: No such file or directory");
    expect_error<std::runtime_error>(
        [&] { load_path("libm.so.6"); },
        "failed to resolve 'tessaline_plugin_init' in native plugin 'libm.so.6': "
        "/lib/x86_64-linux-gnu/libm.so.6: undefined symbol: tessaline_plugin_init");
    expect_error<std::runtime_error>([&] { load_path(TESSALINE_NULL_PLUGIN); },
                                     "native plugin symbol is null: tessaline_plugin_init");
    static_cast<void>(std::move(builder_).build());
    expect_error<std::logic_error>(
        [&] { load_path(""); },
        "TessalineContextBuilder::load_plugin - builder has already been sealed");
}

TEST_F(NativePluginTest, ShutdownRunsOnceAfterTheLastProcess) {
    load_negation();
    std::optional<TessalineContext> context(std::move(builder_).build());
    const auto dispatch = [&] {
        const OperationDescriptor request(
            context->operation(acme), {vector_operand(input_role(0), 2)},
            vector_operand(output_role(0), 2), CrossDevicePolicy::Reject, {});
        return context->dispatcher().dispatch(request);
    };
    std::optional<BackendProcess> process(dispatch());
    context.reset();
    EXPECT_EQ(relay_.shutdowns(), 0);
    EXPECT_TRUE(Relay::is_open());

    const Vector from = Vector::host({3.0F, 0.0F});
    Vector to = Vector::host_zeros<float>(2);
    OperationBindings bindings;
    bindings.bind(input_role(0), from).bind(output_role(0), to);
    auto bound = bindings.make_backend_bindings();
    BackendExecutor::cpu_only().execute(*process, bound);
    EXPECT_EQ(elements<float>(to)[0], -3.0F);

    process.reset();
    EXPECT_EQ(relay_.shutdowns(), 1);
    EXPECT_FALSE(Relay::is_open());
}

TEST_F(NativePluginTest, AnUnusedBuilderAndABareContextShutPluginsDown) {
    load_negation();
    builder_ = TessalineContextBuilder::custom_only();
    EXPECT_EQ(relay_.shutdowns(), 1);
    EXPECT_FALSE(Relay::is_open());
    load_negation();
    { const TessalineContext context = std::move(builder_).build(); }
    EXPECT_EQ(relay_.shutdowns(), 2);
    EXPECT_FALSE(Relay::is_open());
}

TEST_F(NativePluginTest, ASecondPluginCannotTakeAnOperationThatIsThere) {
    load_negation();
    const auto negation = declared_kernel(operands_, relay_.negate());
    const auto again = [&](const Loading& loading) {
        auto other = declared_kernel(operands_);
        other.operation.name = tessaline_string_from("acme.a");
        loading.register_kernel(other); // it goes in before the collision is seen
        return loading.register_kernel(negation);
    };
    expect_error<std::invalid_argument>(
        [&] { load(again); }, "OperationRegistry - operation 'acme.f@1' is already registered");
    EXPECT_EQ(relay_.shutdowns(), 1); // of the second
    // The same key twice within one plugin.
    expect_error<std::invalid_argument>(
        [&] {
            load([&](const Loading& loading) {
                loading.metadata.plugin_id = tessaline_string_from("other");
                auto kernel = negation;
                kernel.operation.name = tessaline_string_from("other.f");
                loading.register_kernel(kernel);
                return loading.register_kernel(kernel);
            });
        },
        "BackendRegistry::register_backend - duplicate registration for other.f@1");
    EXPECT_EQ(relay_.shutdowns(), 2);
    {
        const TessalineContext context = std::move(builder_).build();
        EXPECT_THAT(context.operations(), ElementsAre(acme));
        expect_negation(context);
    }
    EXPECT_EQ(relay_.shutdowns(), 3);
    EXPECT_FALSE(Relay::is_open());
}

TEST_F(NativePluginTest, PluginsStandBesideTheBuiltInOperations) {
    builder_ = TessalineContextBuilder();
    load_negation();
    load([&](const Loading& loading) {
        loading.metadata.plugin_id = tessaline_string_from("tessaline2");
        return loading.register_kernel(
            declared_kernel(operands_, do_nothing, nullptr, "tessaline2.f"));
    });
    const TessalineContext context = std::move(builder_).build();
    EXPECT_EQ(context.operations().size(), 34U);
    const OperationDescription& description = context.describe(acme);
    EXPECT_EQ(description.provenance.text(), "plugin:acme@1.0");
    EXPECT_EQ(description.implementations.at(0).provenance, description.provenance);
    EXPECT_FALSE(description.numerics.has_value());
    expect_negation(context);
}

TEST_F(NativePluginTest, ThreadsShareAKernel) {
    load_negation();
    const TessalineContext context = std::move(builder_).build();
    const TessalineExecutor executor(context, BackendExecutor::cpu_only());
    const auto flip = [&](float seed) {
        Vector value = Vector::host({seed, -seed});
        Vector flipped = Vector::host_zeros<float>(2);
        for (int step = 0; step < 501; ++step) {
            OperationBindings bindings;
            bindings.bind(input_role(0), value).bind(output_role(0), flipped);
            executor.execute(acme, bindings);
            std::swap(value, flipped);
        }
        EXPECT_THAT(elements<float>(value), ElementsAre(-seed, seed));
    };
    std::vector<std::thread> threads;
    for (const float seed : {1.0F, 2.0F, 3.0F, 4.0F}) {
        threads.emplace_back(flip, seed);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace Tessaline

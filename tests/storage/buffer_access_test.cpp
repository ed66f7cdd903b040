// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/buffer_access.h"

#include "support/expect_error.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <vector>

namespace Tessaline {
namespace {

using Testing::expect_error;

/// Shows the records that a test made up.
class FakeAccess final : public ErasedBufferAccess {
  public:
    explicit FakeAccess(std::vector<MutableBufferView> views) : views_(std::move(views)) {}

    std::size_t buffer_count() const override { return views_.size(); }
    MutableBufferView buffer(std::size_t index) override { return views_.at(index); }
    ConstBufferView buffer(std::size_t index) const override { return views_.at(index); }

  private:
    std::vector<MutableBufferView> views_;
};

/// A type identity as another shared object would have it: the same name at another address.
class ForeignIdentity final : public std::type_info {
  public:
    explicit ForeignIdentity(const char* name) : std::type_info(name) {}
};

alignas(16) std::array<float, 4> storage{1, 2, 3, 4};

MutableBufferView record() {
    return make_buffer_view(BufferRole::data, storage.data(), storage.size());
}

TEST(BufferAccess, FindsTheFirstBufferOfARole) {
    std::array<float, 2> other{};
    FakeAccess access({make_buffer_view(BufferRole::real, other.data(), 2), record(),
                       make_buffer_view(BufferRole::data, other.data(), 2)});
    EXPECT_EQ(require_buffer_data<float>(access, BufferRole::data, 4, "test"), storage.data());
    const FakeAccess& read_only = access;
    EXPECT_EQ(require_buffer_data<float>(read_only, BufferRole::real, 2, "test"), other.data());
}

TEST(BufferAccess, RefusesEachKindOfMismatch) {
    struct Case {
        const char* change;
        std::function<void(MutableBufferView&)> apply;
    };
    const Case cases[]{
        {"count", [](auto& view) { view.count = 3; }},
        {"element size", [](auto& view) { view.element_size = 8; }},
        {"scalar type", [](auto& view) { view.scalar_type = ScalarType::Int32; }},
        {"type", [](auto& view) { view.type = &typeid(int); }},
        {"no type", [](auto& view) { view.type = nullptr; }},
        {"alignment", [](auto& view) { view.data = static_cast<char*>(view.data) + 2; }},
        {"count before null",
         [](auto& view) {
             view.count = 0;
             view.data = nullptr;
         }},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.change);
        MutableBufferView view = record();
        each.apply(view);
        FakeAccess access({view});
        const std::string message =
            "host vector - storage buffer type, alignment or count mismatch";
        expect_error<std::logic_error>(
            [&] { require_buffer_data<float>(access, BufferRole::data, 4, "host vector"); },
            message);
        expect_error<std::logic_error>([&] { validate_buffer_type<float>(view, 4, "host vector"); },
                                       message);
    }
}

TEST(BufferAccess, ReportsMissingAndNullBuffersByTheirRole) {
    const std::pair<BufferRole, const char*> roles[]{
        {BufferRole::data, "data"},
        {BufferRole::real, "real"},
        {BufferRole::imaginary, "imaginary"},
        {BufferRole::lu_pivots, "LU pivots"},
        {BufferRole::lu_factors, "LU factors"},
        {BufferRole::lu_swap_count, "LU swap count"},
        {BufferRole::eigenvalues, "eigenvalues"},
        {BufferRole::eigenvectors, "eigenvectors"},
        {BufferRole{8}, "unknown"},
        {BufferRole{-1}, "unknown"},
    };
    for (const auto& [role, text] : roles) {
        const FakeAccess none({});
        expect_error<std::logic_error>([&] { require_buffer_data<float>(none, role, 4, "CUDA"); },
                                       std::string("CUDA - required ") + text +
                                           " buffer is unavailable");
        const FakeAccess null({make_buffer_view<float>(role, static_cast<float*>(nullptr), 4)});
        expect_error<std::invalid_argument>(
            [&] { require_buffer_data<float>(null, role, 4, "CUDA"); },
            std::string("CUDA - ") + text + " buffer is null");
    }
}

TEST(BufferAccess, AcceptsEmptyBuffersWithoutMemory) {
    const FakeAccess access({make_buffer_view(BufferRole::data, static_cast<float*>(nullptr), 0)});
    EXPECT_EQ(require_buffer_data<float>(access, BufferRole::data, 0, "test"), nullptr);
}

TEST(BufferAccess, Complex32NeedsAnEvenAddressOnly) {
    alignas(4) std::array<std::uint16_t, 3> words{};
    ConstBufferView view =
        make_buffer_view(BufferRole::data, reinterpret_cast<const Complex32*>(words.data() + 1), 1);
    EXPECT_NO_THROW(validate_buffer_type<Complex32>(view, 1, "test"));
}

TEST(BufferAccess, KnowsATypeByNameFromAnotherSharedObject) {
    MutableBufferView view = record();
    for (const char* name : {"f", "*f"}) {
        const ForeignIdentity same(name);
        view.type = &same;
        EXPECT_NO_THROW(validate_buffer_type<float>(view, 4, "test")) << name;
    }
    const ForeignIdentity other("d");
    view.type = &other;
    EXPECT_THROW(validate_buffer_type<float>(view, 4, "test"), std::logic_error);
}

TEST(BufferAccess, CompatibleBuffersAgreeInAllButTypeIdentity) {
    const MutableBufferView first = record();
    MutableBufferView second = first;
    second.role = BufferRole::imaginary;
    const FakeAccess source({first, second});
    const auto check = [&](MutableBufferView view) {
        FakeAccess destination({first, view});
        validate_compatible_buffers(source, destination, "copy");
    };
    MutableBufferView view = second;
    view.type = &typeid(int);
    EXPECT_NO_THROW(check(view));

    std::vector<MutableBufferView> changed(4, second);
    changed[0].role = BufferRole::real;
    changed[1].count = 5;
    changed[2].element_size = 2;
    changed[3].scalar_type = ScalarType::Int32;
    for (const MutableBufferView& each : changed) {
        expect_error<std::logic_error>([&] { check(each); }, "copy - buffer layout mismatch");
    }
    FakeAccess shorter({first});
    expect_error<std::logic_error>([&] { validate_compatible_buffers(source, shorter, "copy"); },
                                   "copy - buffer layout mismatch");
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "support/key_storage.h"
#include "tessaline/storage/borrowed_host_entities.h"
#include "tessaline/storage/storage_factory.h"
#include "tessaline/tessaline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace Tessaline {
namespace {

using Testing::expect_error;

constexpr std::uint64_t order = 4;
constexpr std::uint64_t largest_order = order * order; ///< of a Kronecker product
constexpr std::size_t operand_room = largest_order * largest_order * sizeof(std::complex<double>);

/// Memory in which the operands of a call lie wherever a test wants them, with room for another
/// operand on each side of each.
using Arena = std::array<std::byte, 10 * operand_room>;

/// One operand on borrowed memory, or a factorisation or eigenvalue set, which owns its memory.
class Operand {
  public:
    Operand(OperandRole role, const BackendOperandKey& key, std::uint64_t extent)
        : role_(role),
          key_(key),
          extent_(extent) {
        if (key.kind == OperandKind::LuDecomp) {
            hold(StorageFactory::host_lu(type(), extent));
        } else if (key.kind == OperandKind::EigenVals) {
            hold(StorageFactory::host_eigen(type(), extent, DataMatrixLayout::column_major));
        }
        if (owns_memory()) { // factors or eigenvectors
            begin_ = static_cast<std::byte*>(buffers_->buffer(1).data);
        }
    }

    OperandRole role() const { return role_; }
    const BackendOperandKey& key() const { return key_; }
    bool owns_memory() const { return key_.kind > OperandKind::Matrix; }
    std::byte* begin() const { return begin_; }
    std::ptrdiff_t element_size() const {
        return static_cast<std::ptrdiff_t>(scalar_metadata(key_.storage).size);
    }
    std::ptrdiff_t size() const {
        const std::uint64_t rank = static_cast<std::uint64_t>(key_.kind);
        const std::uint64_t count = rank == 0 ? 1 : rank == 1 ? extent_ : extent_ * extent_;
        return static_cast<std::ptrdiff_t>(count) * element_size();
    }
    std::vector<std::byte> contents() const { return {begin_, begin_ + size()}; }
    void bind(OperationBindings& bindings) const { bindings.insert(role_, *binding_); }

    void place(std::byte* begin) {
        begin_ = begin;
        visit_numeric_policy(type(), [&](auto policy) {
            using Policy = decltype(policy);
            using Stored = typename Policy::Stored;
            using Compute = typename Policy::Compute;
            auto* const data = reinterpret_cast<Stored*>(begin_);
            if constexpr (Policy::is_complex) {
                using Part = Component<Stored>;
                auto* const parts = reinterpret_cast<Part*>(begin_);
                using Scalar = BorrowedDenseHostComplexSplitScalar<Part, Component<Compute>>;
                lend<BorrowedDenseHostComplexInterleavedVector<Stored, Compute>,
                     BorrowedDenseHostComplexInterleavedMatrix<Stored, Compute>>(
                    data, [&] { return std::make_unique<Scalar>(parts, parts + 1); });
            } else {
                using Scalar = BorrowedDenseHostRealScalar<Stored, Compute>;
                lend<BorrowedDenseHostRealVector<Stored, Compute>,
                     BorrowedDenseHostRealMatrix<Stored, Compute>>(
                    data, [&] { return std::make_unique<Scalar>(data); });
            }
        });
    }

    /// A Hermitian, positive definite matrix, or elements of which the last is infinite.
    void fill() const {
        for (std::size_t index = 0; index < buffers_->buffer_count(); ++index) {
            const MutableBufferView view = buffers_->buffer(index);
            if (view.scalar_type == ScalarType::Int32) {
                std::fill_n(static_cast<int*>(view.data), view.count, 9);
            }
            Testing::visit_parts(view, [&](auto* parts, std::uint64_t count, std::uint64_t step) {
                for (std::uint64_t i = 0; i < count; ++i) {
                    const bool imaginary = view.role == BufferRole::imaginary || i % step == 1;
                    parts[i] =
                        static_cast<std::decay_t<decltype(*parts)>>(part(i / step, imaginary));
                }
            });
        }
    }

  private:
    float part(std::uint64_t element, bool imaginary) const {
        if (key_.kind == OperandKind::Matrix) {
            const std::uint64_t row = element / extent_;
            const std::uint64_t column = element % extent_;
            return row == column ? (imaginary ? 0 : static_cast<float>(20 + row))
                                 : (imaginary && row > column ? -1.0F : 1.0F);
        }
        const bool is_last = element + 1 == extent_;
        return imaginary ? 3 : is_last ? HUGE_VALF : static_cast<float>(2 + element);
    }

    DataTypeDescriptor type() const {
        return DataTypeDescriptor::from_scalar_types(key_.storage, key_.compute);
    }

    template <typename Entity>
    void hold(std::unique_ptr<Entity> entity) {
        buffers_ = &erased_buffers(*entity, "test operand");
        binding_ = std::ref(*entity);
        owner_ = std::move(entity);
    }
    template <typename VectorStorage, typename MatrixStorage, typename T, typename MakeScalar>
    void lend(T* data, const MakeScalar& make_scalar) {
        if (key_.kind == OperandKind::Scalar) {
            hold<ScalarEntity>(make_scalar());
        } else if (key_.kind == OperandKind::Vector) {
            hold<VectorEntity>(std::make_unique<VectorStorage>(data, extent_));
        } else {
            hold<MatrixEntity>(std::make_unique<MatrixStorage>(data, extent_, extent_));
        }
    }

    OperandRole role_;
    BackendOperandKey key_;
    std::uint64_t extent_;
    std::byte* begin_ = nullptr;
    std::shared_ptr<void> owner_;
    ErasedBufferAccess* buffers_ = nullptr;
    std::optional<OperandBinding> binding_;
};

using Operands = std::vector<Operand>;

bool is_elementwise(const OperationId& id) {
    static const char* const names[] = {"sqrt", "multiply", "add", "subtract", "scale", "divide"};
    return std::ranges::find(names, id.name().substr(sizeof("tessaline"))) != std::end(names);
}

/// The order of a matrix or the length of a vector, such that all shapes of an operation agree.
std::uint64_t extent_of(const OperationId& id, OperandRole role) {
    if (is_elementwise(id)) {
        return 67; // whole vectors of every instruction set, and a tail
    }
    if (is_output_role(role) && id.name() == "tessaline.kron") {
        return largest_order;
    }
    const bool is_traced = id.name().starts_with("tessaline.partial_trace");
    return is_output_role(role) && is_traced ? order / 2 : order;
}

/// Whether memory can be lent to an operand of this key, or it has its own.
bool can_be_made(const OperationImplementationOperand& operand) {
    const bool is_lent = operand.key.kind <= OperandKind::Matrix;
    return operand.key.complex != DataComplexLayout::split &&
           (!is_lent || operand.key.layout != DataMatrixLayout::column_major);
}

class SharedMemoryTest : public ::testing::Test {
  protected:
    /// Puts the operands apart from each other, with their first contents.
    void reset(Operands& operands) {
        std::byte* place = arena_->data() + operand_room;
        for (Operand& operand : operands) {
            if (!operand.owns_memory()) {
                operand.place(place);
                operand.fill();
                place += 3 * operand_room;
            }
        }
    }

    void execute(const OperationId& id, const Operands& operands) const {
        OperationBindings bindings;
        for (const Operand& operand : operands) {
            operand.bind(bindings);
        }
        executor_.execute(id, bindings);
    }

    void expect_refused(const OperationId& id, const Operands& operands, const Operand& output,
                        const Operand& other) {
        const auto before = std::make_unique<Arena>(*arena_);
        expect_error<std::invalid_argument>(
            [&] { execute(id, operands); },
            "TessalineExecutor::execute - " + operand_role_name(output.role()) + " overlaps " +
                operand_role_name(other.role()) + " in operation '" + id.canonical() + "'");
        EXPECT_EQ(*before, *arena_);
        ++refused_;
    }

    /// Calls an operation with its output beside the other operand, in its place, and over its
    /// ends.
    void expect_rule(const OperationId& id, Operands& operands, Operand& output,
                     const Operand& other) {
        reset(operands);
        execute(id, operands);
        const auto expected = output.contents();
        const std::ptrdiff_t one = output.element_size();
        const std::ptrdiff_t last = (other.size() - 1) / one * one;
        const std::ptrdiff_t behind = (other.size() + one - 1) / one * one;
        for (const std::ptrdiff_t shift :
             {-output.size(), one - output.size(), std::ptrdiff_t{0}, one, last, behind}) {
            SCOPED_TRACE(shift);
            reset(operands);
            output.place(other.begin() + shift);
            output.fill();
            other.fill();
            const bool in_place = shift == 0 && is_elementwise(id) && other.key() == output.key();
            if (in_place || shift == -output.size() || shift >= other.size()) {
                execute(id, operands);
                EXPECT_EQ(output.contents(), expected);
                ++accepted_;
            } else {
                expect_refused(id, operands, output, other);
            }
        }
    }

    /// The memory that an operand owns is lent to the other one.
    void expect_refused_within(const OperationId& id, Operands& operands, Operand& output,
                               Operand& other) {
        reset(operands);
        if (output.owns_memory()) {
            other.place(output.begin());
        } else {
            output.place(other.begin());
        }
        expect_refused(id, operands, output, other);
    }

    void expect_rule_of_every_pair(const OperationId& id, Operands& operands) {
        for (Operand& output : operands) {
            for (Operand& other : operands) {
                if (!is_output_role(output.role()) || other.role() >= output.role()) {
                    continue;
                }
                SCOPED_TRACE(operand_role_name(output.role()) + operand_role_name(other.role()));
                if (output.owns_memory() || other.owns_memory()) {
                    expect_refused_within(id, operands, output, other);
                } else {
                    expect_rule(id, operands, output, other);
                }
            }
        }
    }

    const TessalineContext context_;
    const TessalineExecutor executor_{context_, BackendExecutor::cpu_only()};
    const std::unique_ptr<Arena> arena_ = std::make_unique<Arena>();
    int accepted_ = 0;
    int refused_ = 0;
};

TEST_F(SharedMemoryTest, IsRefusedUnlessAnElementwiseOperationWorksInPlace) {
    for (const OperationId& id : context_.operations()) {
        for (const auto& implementation : context_.describe(id).implementations) {
            if (!std::ranges::all_of(implementation.operands, can_be_made)) {
                continue;
            }
            Operands operands;
            for (const auto& [role, access, key] : implementation.operands) {
                operands.emplace_back(role, key, extent_of(id, role));
            }
            SCOPED_TRACE(id.canonical() + scalar_metadata(operands[0].key().storage).name);
            expect_rule_of_every_pair(id, operands);
        }
    }
    EXPECT_GT(accepted_, 500);
    EXPECT_GT(refused_, 900);
}

constexpr char planes_name[] = "Planes";

/// Planes that the test chooses one by one.
class Planes final
    : public DenseStorageDetail::DenseStorage<
          planes_name, VectorEntity, DenseComplexSplitVectorAccess<float>, BorrowedBuffer<float>> {
  public:
    Planes(float* real, float* imaginary, std::uint64_t size)
        : VectorShape(VectorDescriptor(size, DataTopologyDescriptor::pageable_host(-1),
                                       DataTypeDescriptor::complex_float(), DataVectorFormat::dense,
                                       DataComplexLayout::split),
                      BorrowedBuffer<float>(real, size, nullptr),
                      BorrowedBuffer<float>(imaginary, size, nullptr)) {}
};

TEST_F(SharedMemoryTest, OfSplitOperandsIsOneMemoryPlaneByPlane) {
    constexpr std::size_t size = 67;
    struct Case {
        std::size_t real, imaginary; ///< where the output's planes begin, in planes
        const char* overlapped;      ///< null where the call is accepted
    };
    for (const Case& one : {Case{0, 1, nullptr},
                            {2, 3, nullptr},
                            {1, 0, "Input0"},
                            {0, 2, "Input0"},
                            {2, 1, "Input0"},
                            {2, 2, "itself"}}) {
        SCOPED_TRACE(one.real * 10 + one.imaginary);
        std::vector<float> memory(4 * size);
        for (std::size_t index = 0; index < memory.size(); ++index) {
            memory[index] = static_cast<float>(index % 61) - 30;
        }
        const std::vector<float> before = memory;
        float* const plane = memory.data();
        const Vector input(std::make_unique<Planes>(plane, plane + size, size));
        Vector output(
            std::make_unique<Planes>(plane + one.real * size, plane + one.imaginary * size, size));
        OperationBindings bindings;
        bindings.bind(input_role(0), input).bind(input_role(1), input).bind(output_role(0), output);
        const OperationId id = OperationId::parse("tessaline.multiply@1");
        if (one.overlapped != nullptr) {
            expect_error<std::invalid_argument>([&] { executor_.execute(id, bindings); },
                                                std::string("TessalineExecutor::execute - Output0 "
                                                            "overlaps ") +
                                                    one.overlapped +
                                                    " in operation 'tessaline.multiply@1'");
            EXPECT_EQ(memory, before);
            continue;
        }
        executor_.execute(id, bindings);
        for (std::size_t index = 0; index < size; ++index) {
            const float re = before[index];
            const float im = before[index + size];
            ASSERT_EQ(plane[one.real * size + index], re * re - im * im) << index;
            ASSERT_EQ(plane[one.imaginary * size + index], 2 * re * im) << index;
        }
    }
}

} // namespace
} // namespace Tessaline

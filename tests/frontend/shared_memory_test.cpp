// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "tessaline/storage/borrowed_host_entities.h"
#include "tessaline/storage/storage_factory.h"
#include "tessaline/tessaline.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

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
            lu_ = StorageFactory::host_lu(type(), extent);
            begin_ = bytes_of_second_buffer(*lu_);
        } else if (key.kind == OperandKind::EigenVals) {
            eigen_ = StorageFactory::host_eigen(type(), extent, DataMatrixLayout::column_major);
            begin_ = bytes_of_second_buffer(*eigen_);
        }
    }

    OperandRole role() const { return role_; }
    const BackendOperandKey& key() const { return key_; }
    bool owns_memory() const { return lu_ || eigen_; }
    std::byte* begin() const { return begin_; } ///< of factors or eigenvectors where there are any
    std::ptrdiff_t element_size() const {
        return static_cast<std::ptrdiff_t>(scalar_metadata(key_.storage).size);
    }
    std::ptrdiff_t size() const { return static_cast<std::ptrdiff_t>(count()) * element_size(); }
    std::vector<std::byte> contents() const { return {begin_, begin_ + size()}; }

    void place(std::byte* begin) {
        begin_ = begin;
        visit_numeric_policy(type(), [&](auto policy) { borrow<decltype(policy)>(); });
    }

    /// A Hermitian, positive definite matrix, or elements of which the last is infinite.
    void fill() const {
        visit_numeric_policy(type(), [&](auto policy) {
            using T = typename decltype(policy)::Stored;
            auto* const elements = reinterpret_cast<T*>(begin_);
            const bool is_matrix = key_.kind == OperandKind::Matrix;
            for (std::uint64_t index = 0; index < count(); ++index) {
                const bool is_last = index + 1 == extent_;
                const auto value = static_cast<float>(2 + index);
                elements[index] = is_matrix ? entry<T>(index / extent_, index % extent_)
                                            : number<T>(is_last ? infinity : value, 3);
            }
        });
    }

    void bind(OperationBindings& bindings) const {
        const auto bind_if_any = [&](const auto& entity) {
            if (entity) {
                bindings.insert(role_, std::ref(*entity));
            }
        };
        bind_if_any(scalar_);
        bind_if_any(vector_);
        bind_if_any(matrix_);
        bind_if_any(lu_);
        bind_if_any(eigen_);
    }

  private:
    static constexpr float infinity = std::numeric_limits<float>::infinity();

    static std::byte* bytes_of_second_buffer(ErasedBufferAccess& buffers) {
        return static_cast<std::byte*>(buffers.buffer(1).data);
    }

    template <typename T>
    static T number(float real, float imaginary) {
        if constexpr (is_complex_element<T>) {
            return T(Component<T>(real), Component<T>(imaginary));
        } else if constexpr (std::is_integral_v<T>) {
            return static_cast<T>(std::min(real, 9.0F));
        } else {
            return T(real);
        }
    }
    template <typename T>
    static T entry(std::uint64_t row, std::uint64_t column) {
        if (row == column) {
            return number<T>(static_cast<float>(20 + row), 0);
        }
        return number<T>(1, row < column ? 1.0F : -1.0F);
    }

    DataTypeDescriptor type() const {
        return DataTypeDescriptor::from_scalar_types(key_.storage, key_.compute);
    }
    std::uint64_t count() const {
        return key_.kind == OperandKind::Scalar   ? 1
               : key_.kind == OperandKind::Vector ? extent_
                                                  : extent_ * extent_;
    }

    template <typename Policy>
    void borrow() {
        using Stored = typename Policy::Stored;
        using Compute = typename Policy::Compute;
        auto* const data = reinterpret_cast<Stored*>(begin_);
        if constexpr (Policy::is_complex) {
            using Part = Component<Stored>;
            using Scalar = BorrowedDenseHostComplexSplitScalar<Part, Component<Compute>>;
            auto* const parts = reinterpret_cast<Part*>(begin_);
            lend<BorrowedDenseHostComplexInterleavedVector<Stored, Compute>,
                 BorrowedDenseHostComplexInterleavedMatrix<Stored, Compute>>(
                data, [&] { return std::make_unique<Scalar>(parts, parts + 1); });
        } else {
            using Scalar = BorrowedDenseHostRealScalar<Stored, Compute>;
            lend<BorrowedDenseHostRealVector<Stored, Compute>,
                 BorrowedDenseHostRealMatrix<Stored, Compute>>(
                data, [&] { return std::make_unique<Scalar>(data); });
        }
    }
    template <typename VectorStorage, typename MatrixStorage, typename T, typename MakeScalar>
    void lend(T* data, const MakeScalar& make_scalar) {
        if (key_.kind == OperandKind::Scalar) {
            scalar_ = make_scalar();
        } else if (key_.kind == OperandKind::Vector) {
            vector_ = std::make_unique<VectorStorage>(data, extent_);
        } else {
            matrix_ = std::make_unique<MatrixStorage>(data, extent_, extent_);
        }
    }

    OperandRole role_;
    BackendOperandKey key_;
    std::uint64_t extent_;
    std::byte* begin_ = nullptr;
    std::unique_ptr<ScalarEntity> scalar_;
    std::unique_ptr<VectorEntity> vector_;
    std::unique_ptr<MatrixEntity> matrix_;
    std::unique_ptr<LuDecompEntity> lu_;
    std::unique_ptr<EigenValsEntity> eigen_;
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

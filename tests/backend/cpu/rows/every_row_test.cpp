// SPDX-License-Identifier: Apache-2.0

// What holds for every implementation on the CPU, whatever it computes: the caller's floating-point
// environment, the number of threads and the bits of a NaN that comes in change no bit that comes
// out, and the caller keeps its environment. An engine's row computes what the floating row of its
// operation does, in whatever form the operands are.

#include "backend/cpu/floating/floating_test_support.h"
#include "backend/cpu/rows/cpu_capabilities.h"
#include "backend/cpu/steps/cpu_layout_adaptation.h"
#include "backend/cpu/steps/deferred_planes.h"
#include "support/key_storage.h"
#include "support/key_text.h"

#include <cfenv>
#include <cmath>
#include <cstring>
#include <immintrin.h>
#include <limits>
#include <set>

namespace Tessaline {
namespace {

using namespace Testing;
using BackendRegistration::BuiltinCapability;

/// Of the inputs and outputs of an operation: three times seven for partial traces, less for a
/// Kronecker product, whose result has the square. Vectors of every width leave a rest.
struct Orders {
    explicit Orders(const std::string& operation)
        : of_inputs(operation == "tessaline.kron" ? 9 : 21),
          of_outputs(operation == "tessaline.kron"                      ? 81
                     : operation.starts_with("tessaline.partial_trace") ? 7
                                                                        : 21) {}

    std::uint64_t of_inputs;
    std::uint64_t of_outputs;
};

/// What elements are: multiples of some magnitude, special values among them or not.
struct Contents {
    const char* name;
    double (*magnitude)(double smallest_normal);
    bool with_specials;
};
const Contents all_contents[] = {
    {"ordinary", [](double) { return 1.0; }, false},
    {"around the smallest normal", [](double smallest) { return smallest; }, false},
    {"with such products", [](double smallest) { return std::sqrt(smallest); }, false},
    {"special", [](double) { return 1.0; }, true},
};

/// Whether a part is a number or the one NaN of its type.
template <typename Part>
bool is_no_other_nan(Part part) {
    const auto bits = std::bit_cast<PartBits<Part>>(part);
    return static_cast<PartBits<Part>>(bits & ~sign_bit<Part>) <= infinity_bits<Part>() ||
           bits == std::bit_cast<PartBits<Part>>(
                       static_cast<Part>(std::numeric_limits<ComputeOf<Part>>::quiet_NaN()));
}

/// Fills matrices so that they are Hermitian with a heavy diagonal, but for special values: zeros,
/// infinities, and NaN quiet and signalling, of either sign.
class Filling {
  public:
    Filling(const Contents& contents, std::uint64_t order) : contents_(contents), order_(order) {}

    void operator()(OperandRole role, ErasedBufferAccess& buffers) const {
        for (std::size_t index = 0; index < buffers.buffer_count(); ++index) {
            const MutableBufferView view = buffers.buffer(index);
            visit_parts(view, [&](auto* parts, std::uint64_t count, std::uint64_t step) {
                const bool imaginary = view.role == BufferRole::imaginary;
                for (std::uint64_t i = 0; i < count; ++i) {
                    const bool is_matrix = view.count == order_ * order_;
                    const std::uint64_t element = i / step;
                    set(parts[i], {is_matrix ? element / order_ : element,
                                   is_matrix ? element % order_ : order_,
                                   imaginary || i % step == 1, static_cast<std::uint64_t>(role)});
                }
            });
            if (view.scalar_type == ElementTraits<int>::scalar_type) {
                std::fill_n(static_cast<int*>(view.data), view.count, 3); // an exponent
            } else if (view.scalar_type == ElementTraits<long>::scalar_type) {
                std::fill_n(static_cast<long*>(view.data), view.count, 1); // pivots
            }
        }
    }

  private:
    struct Place {
        std::uint64_t row, col;
        bool imaginary;
        std::uint64_t operand;
    };

    template <typename Part>
    void set(Part& part, const Place& place) const {
        const auto [low, high] = std::minmax(place.row, place.col);
        const std::uint64_t seed = 2 * place.operand + place.imaginary;
        CounterRandom random((1000 * low + high) << 16U | seed);
        double value = 0.5 + static_cast<double>(random.next() >> 11U) * 0x1p-54;
        value = random.below(2) == 0 ? value : -value;
        if (place.row == place.col) {
            value = place.imaginary ? 0 : 2 * static_cast<double>(order_);
        } else if (place.imaginary && place.row > place.col) {
            value = -value;
        }
        const auto smallest = static_cast<double>(widened(range_of<Part>()[1]));
        part =
            static_cast<Part>(static_cast<ComputeOf<Part>>(value * contents_.magnitude(smallest)));
        CounterRandom choice((1000 * place.row + place.col) << 16U | seed);
        if (contents_.with_specials && choice.below(9) == 0) {
            const auto special =
                infinity_bits<Part>() +
                PartBits<Part>{0x41} * static_cast<PartBits<Part>>(choice.below(2));
            const bool is_negative = choice.below(2) != 0;
            part = std::bit_cast<Part>(static_cast<PartBits<Part>>(
                special | (is_negative ? sign_bit<Part> : PartBits<Part>{})));
        }
    }

    const Contents& contents_;
    std::uint64_t order_;
};

struct Environment {
    const char* name;
    void (*set)();
};
const Environment environments[] = {
    {"the default one", [] {}},
    {"flush to zero", [] { _mm_setcsr(_mm_getcsr() | 0x8000U); }},
    {"denormals are zero", [] { _mm_setcsr(_mm_getcsr() | 0x0040U); }},
    {"upward", [] { std::fesetround(FE_UPWARD); }},
    {"downward", [] { std::fesetround(FE_DOWNWARD); }},
    {"toward zero", [] { std::fesetround(FE_TOWARDZERO); }},
    {"no exception masked",
     [] {
         feenableexcept(FE_ALL_EXCEPT);
         _mm_setcsr(_mm_getcsr() & ~0x1f80U);
     }},
};

struct ControlWords {
    std::uint32_t sse = _mm_getcsr(); ///< sticky flags as well
    std::uint16_t x87 = [] {
        std::uint16_t word = 0;
        asm volatile("fnstcw %0" : "=m"(word));
        return word;
    }();
    friend bool operator==(const ControlWords&, const ControlWords&) = default;
};

/// What a run leaves behind.
struct Outcome {
    std::vector<std::byte> outputs;
    std::vector<double> values; ///< of the outputs, real parts before imaginary ones
    std::string error;
    bool keeps_environment = true;
    bool has_one_nan = true;      ///< in its outputs
    bool has_made_planes = false; ///< of operands that are adapted
};

/// Stands after a kernel and looks whether planes were made for it.
class PlanesProbe final : public BackendProcessStep {
  public:
    explicit PlanesProbe(bool& found) : found_(found) {}

    void execute(BackendExecutionSession&, BackendExecutionBindings& bindings) override {
        for (const OperandRole role : bindings.roles) {
            const OperandBinding& bound = bindings.operands.at(role);
            if (!bindings.adapted_origins(role).empty()) {
                found_ |= operand_kind(bound) == OperandKind::Vector
                              ? deferred_origin<VectorEntity, float>(bound) == nullptr
                              : deferred_origin<MatrixEntity, float>(bound) == nullptr;
            }
        }
    }

  private:
    bool& found_;
};

class Row {
  public:
    explicit Row(const BuiltinCapability& row) : row_(row) {}

    const std::string& operation() const { return row_.key.op().name(); }

    /// The split operands of `key`, which is the row's or another's that adapts to it, are taken as
    /// they are; where the row wants planes of others, steps adapt them.
    Outcome run(const Contents& contents, const Environment& environment,
                const std::shared_ptr<CpuRuntimeContext>& runtime,
                const BackendRegistryKey& key) const {
        const Orders orders(operation());
        OperandsOfKeys operands(key, orders.of_inputs, orders.of_outputs,
                                Filling(contents, orders.of_inputs));
        Outcome outcome;
        const BackendProcess process = adapted(key, outcome.has_made_planes);
        BackendExecutionSession session(runtime);
        std::fenv_t own;
        std::fegetenv(&own);
        environment.set();
        const ControlWords before;
        try {
            process.execute(session, operands.bindings());
        } catch (const std::exception& raised) {
            outcome.error = raised.what();
        }
        outcome.keeps_environment = ControlWords() == before;
        std::fesetenv(&own);
        std::vector<double> imaginary;
        operands.for_each_output([&](const MutableBufferView& view) {
            const auto* bytes = static_cast<const std::byte*>(view.data);
            outcome.outputs.insert(outcome.outputs.end(), bytes,
                                   bytes + view.count * view.element_size);
            visit_parts(view, [&]<typename Part>(Part* parts, std::uint64_t count, auto step) {
                outcome.has_one_nan &= std::all_of(parts, parts + count, is_no_other_nan<Part>);
                for (std::uint64_t i = 0; i < count; ++i) {
                    (i % step == 1 ? imaginary : outcome.values)
                        .push_back(static_cast<double>(widened(parts[i])));
                }
            });
        });
        outcome.values.insert(outcome.values.end(), imaginary.begin(), imaginary.end());
        return outcome;
    }
    Outcome run(const Contents& contents, const Environment& environment,
                const std::shared_ptr<CpuRuntimeContext>& runtime) const {
        return run(contents, environment, runtime, row_.key);
    }

  private:
    BackendProcess adapted(const BackendRegistryKey& key, bool& has_made_planes) const {
        BackendProcess process = row_.entry.materialise();
        process.push_back(std::make_unique<PlanesProbe>(has_made_planes));
        const auto adapt = [&](OperandRole role, const BackendOperandKey& from,
                               const BackendOperandKey& to) {
            if (from != to) {
                process.push_front(adapt_cpu_layout(role, to, true, false));
                if (is_output_role(role)) {
                    process.push_back(adapt_cpu_layout(role, to, true, true));
                }
            }
        };
        for (std::size_t i = 0; i < key.inputs().size(); ++i) {
            adapt(input_role(i), key.inputs()[i], row_.key.inputs()[i]);
        }
        for (std::size_t i = 0; i < key.outputs().size(); ++i) {
            adapt(output_role(i), key.outputs()[i], row_.key.outputs()[i]);
        }
        return process;
    }

    const BuiltinCapability& row_;
};

std::vector<BuiltinCapability> engine_rows() {
    std::vector<BuiltinCapability> rows;
    for_each_numeric_policy([&]<typename Policy>(Policy) {
        if constexpr (requires { CpuCapabilities<Policy>::legacy_records(); }) {
            std::ranges::move(CpuCapabilities<Policy>::legacy_records(), std::back_inserter(rows));
        }
    });
    return rows;
}

/// Those of the engine and those of the floating kernels, but for the ones that take no operands.
std::vector<BuiltinCapability> all_rows() {
    std::vector<BuiltinCapability> rows = engine_rows();
    for_each_numeric_policy([&]<typename Policy>(Policy) {
        if constexpr (!Policy::is_integer) {
            std::ranges::move(cpu_floating_capabilities(Policy::type()), std::back_inserter(rows));
        }
    });
    std::erase_if(rows, [](const BuiltinCapability& row) {
        const auto& key = row.key.inputs().empty() ? row.key.output() : row.key.get_input(0);
        return key.kind == OperandKind::LuDecomp && key.storage != key.compute;
    });
    return rows;
}

/// The floating row of the operation and policy of a row of the engine.
BuiltinCapability floating_row_of(const BackendRegistryKey& key) {
    const auto& first = key.inputs().empty() ? key.output() : key.get_input(0);
    for (auto& row : cpu_floating_capabilities(
             DataTypeDescriptor::from_scalar_types(first.storage, first.compute))) {
        if (row.key.op() == key.op()) {
            return row;
        }
    }
    throw std::out_of_range(key.op().name());
}

/// The key with each choice of its split operands interleaved, the first one with none.
std::vector<BackendRegistryKey> choices_of_forms(const BackendRegistryKey& key) {
    std::vector<BackendOperandKey> operands = key.inputs();
    operands.push_back(key.output());
    std::vector<std::vector<BackendOperandKey>> choices{operands};
    for (std::size_t i = 0; i < operands.size(); ++i) {
        if (operands[i].complex == DataComplexLayout::split) {
            const std::size_t before = choices.size();
            for (std::size_t j = 0; j < before; ++j) {
                choices.push_back(choices[j]);
                choices.back()[i].complex = DataComplexLayout::interleaved;
            }
        }
    }
    std::vector<BackendRegistryKey> keys;
    for (auto& choice : choices) {
        const BackendOperandKey output = choice.back();
        choice.pop_back();
        keys.emplace_back(key.backend(), key.op(), std::move(choice), output);
    }
    return keys;
}

std::shared_ptr<CpuRuntimeContext> runtime_of(std::size_t threads) {
    return std::make_shared<CpuRuntimeContext>(Test::unpinned_options(threads),
                                               Test::one_node(threads + 1), BackendKind::cpu_simd);
}

TEST(EveryRow, HasOneOutcomeInAnyEnvironmentOnAnyNumberOfThreads) {
    // What moves elements, all or those of a first row, moves their NaN.
    const std::set<std::string> moves{"tessaline.transpose", "tessaline.adjoint",
                                      "tessaline.conjugate", "tessaline.lu_factor"};
    const auto alone = runtime_of(1);
    const auto several = runtime_of(3);
    for (const BuiltinCapability& capability : all_rows()) {
        const Row row(capability);
        for (const Contents& contents : all_contents) {
            SCOPED_TRACE(Testing::key_text(capability.key) + ", " + contents.name);
            const Outcome expected = row.run(contents, environments[0], alone);
            EXPECT_TRUE(expected.error.empty() || &contents != all_contents) << expected.error;
            EXPECT_TRUE(expected.has_one_nan || !expected.error.empty() ||
                        moves.contains(row.operation()));
            for (const Environment& environment : environments) {
                for (const auto& runtime : {alone, several}) {
                    SCOPED_TRACE(environment.name);
                    const Outcome found = row.run(contents, environment, runtime);
                    EXPECT_EQ(found.error, expected.error);
                    EXPECT_EQ(found.outputs, expected.outputs);
                    EXPECT_TRUE(found.keeps_environment);
                }
            }
        }
    }
}

/// The row's kernel computes what the floating row does within rounding, with the same bits for
/// each choice of forms, and has planes made only where some operand is split or none may be
/// interleaved.
void expect_agreement(const BuiltinCapability& capability, bool takes_planes_only) {
    const Row row(capability);
    const auto alone = runtime_of(1);
    const auto run = [&](const Row& each, const BackendRegistryKey& key) {
        return each.run(all_contents[0], environments[0], alone, key);
    };
    const auto found = run(row, capability.key).values;
    const auto keys = choices_of_forms(capability.key);
    for (const BackendRegistryKey& key : keys) {
        const Outcome other = run(row, key);
        const bool spares_planes =
            key == keys.front() || (key == keys.back() && !takes_planes_only);
        EXPECT_EQ(other.has_made_planes, !spares_planes) << Testing::key_text(key);
        EXPECT_EQ(other.values, found) << Testing::key_text(key);
    }
    const BuiltinCapability floating = floating_row_of(capability.key);
    const auto expected = run(Row(floating), floating.key).values;
    ASSERT_EQ(found.size(), expected.size());
    double size = 0;
    for (const double value : expected) {
        size = std::max(size, std::abs(value));
    }
    // Sums of at most 21 products, three times in a row for a power; either row may round each.
    const double bound = 2 * 3 * 21 * std::numeric_limits<float>::epsilon() * size;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_LE(std::abs(found[i] - expected[i]), bound)
            << Testing::key_text(capability.key) << ", value " << i;
    }
}

TEST(EveryRow, OfTheEngineAgreesWithTheFloatingRowInEveryChoiceOfForms) {
    const std::set<std::string> planes_only{"tessaline.is_unitary", "tessaline.matrix_power",
                                            "tessaline.solve"};
    // The results of these are defined up to their order, or up to a scale.
    const std::set<std::string> ambiguous{"tessaline.eig", "tessaline.principal_eigenvector"};
    for (const BuiltinCapability& row : engine_rows()) {
        const std::string& name = row.key.op().name();
        if (!ambiguous.contains(name)) {
            expect_agreement(row, planes_only.contains(name));
        }
    }
}

} // namespace
} // namespace Tessaline

// SPDX-License-Identifier: Apache-2.0
#pragma once

// The norm of a vector as a chain of hypotenuses, each of the norm so far and the next magnitude;
// and the magnitudes of complex numbers.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/kernels/hypotenuse.h"

#include <utility>

namespace Tessaline::SimdKernels {

namespace {

/// A link takes a root and a division, one after the other. So the norms on the way are foretold
/// by sums of squares, to some units in the last place. Then every link is taken at once, from the
/// norm foretold before it. By how many units its result differs from the one foretold there is
/// about what all later ones are off, since a norm hardly grows by a single term: the sums of these
/// differences put them right. Links that are taken once more, and end in the norms foretold, are
/// those of the chain: each because the one before it is.
///
///     foretold         f0        f1        f2
///     links     n, x0  h0  f0,x1 h1  f1,x2 h2
///     put right        g0        g1        g2     gi = fi + the sum of hj - fj up to j = i
///     links     n, x0  g0  g0,x1 g1  g1,x2 g2     or once more
///
/// The next terms need not wait for the second links, which seldom end elsewhere. The chain takes
/// 3 ns a term of doubles where one link after the other takes 17, and 2 of floats instead of 9.
///
/// Set has vectors of doubles. Real is float or double.
template <typename Set, typename Real, Index vectors>
class ChainPiece {
    using Legs = LegsOf<Set, Real>;
    using Vector = typename Legs::Vector;
    using Words = typename Legs::Words;
    using Register = typename Set::Register;
    static constexpr Index lanes = Set::lanes;
    /// Of corrections, where the first terms or much larger ones need more than one.
    static constexpr int most_rounds = 3;

  public:
    static constexpr Index length = vectors * lanes;

    /// The norm after `length` more terms.
    [[gnu::always_inline]] static Real prolonged(Real norm, const Real* terms) {
        Vector sizes[vectors];
        bool any_small = false;
        for_places<vectors>([&](auto v) {
            sizes[v.value] = Legs::load(terms + v.value * lanes);
            any_small |= Legs::any_small(sizes[v.value]);
        });
        Vector norms[vectors];
        const bool in_range = foretell(norm, sizes, norms) <= Legs::largest_sum;
        if (!in_range || any_small) [[unlikely]] {
            return prolonged(norm, terms, length);
        }
        Words off[vectors];
        take_links(norm, sizes, norms, off);
        correct(norms, off);
        take_links(norm, sizes, norms, off);
        if (any(off)) [[unlikely]] {
            return prolonged_with_care(norm, terms, sizes, norms, off);
        }
        return norms[vectors - 1][lanes - 1];
    }

    static Real prolonged(Real norm, const Real* terms, Index count) {
        for (Index i = 0; i < count; ++i) {
            // Of one lane, as others may each call the library's function.
            Vector so_far{};
            Vector size{};
            so_far[0] = norm;
            size[0] = terms[i] < 0 ? -terms[i] : terms[i];
            norm = Legs::hypotenuse(so_far, size)[0];
        }
        return norm;
    }

  private:
    /// With more corrections, of norms that do grow by a single term.
    [[gnu::noinline]] static Real prolonged_with_care(Real norm, const Real* terms,
                                                      const Vector (&sizes)[vectors],
                                                      Vector (&norms)[vectors],
                                                      Words (&off)[vectors]) {
        for (int round = 1; round < most_rounds && any(off); ++round) {
            correct_with_care(norms, off);
            take_links(norm, sizes, norms, off);
        }
        Index proven = 0;
        while (proven < length && off[proven / lanes][proven % lanes] == 0) {
            norm = norms[proven / lanes][proven % lanes];
            ++proven;
        }
        return prolonged(norm, terms + proven, length - proven);
    }

    /// The sum of all squares.
    static double foretell(Real norm, const Vector (&sizes)[vectors], Vector (&norms)[vectors]) {
        const Register before = Set::broadcast(norm);
        Register sum = before * before;
        for_places<vectors>([&](auto v) {
            const Register size = Legs::widened(sizes[v.value]);
            const Register sums = sum + prefix_sums(size * size);
            norms[v.value] = Legs::narrowed(Set::root(sums));
            sum = Set::broadcast(sums[lanes - 1]);
        });
        return sum[0];
    }

    /// Each link from the norm that stands before it, and by how much its result is off.
    static void take_links(Real norm, const Vector (&sizes)[vectors],
                           const Vector (&norms)[vectors], Words (&off)[vectors]) {
        Vector before = Vector{} + norm;
        for_places<vectors>([&](auto v) {
            const Vector former = shifted<1>(norms[v.value], before);
            const Vector next = Legs::ordinary_hypotenuse(former, sizes[v.value]);
            off[v.value] = Words(next) - Words(norms[v.value]);
            before = norms[v.value];
        });
    }

    static void correct(Vector (&norms)[vectors], const Words (&off)[vectors]) {
        Words carried{};
        for_places<vectors>([&](auto v) {
            const Words sums = prefix_sums(off[v.value]) + carried;
            norms[v.value] = Vector(Words(norms[v.value]) + sums);
            carried = Words{} + sums[lanes - 1];
        });
    }

    /// An error in a norm becomes one in its square, which later squares keep: as error times norm
    /// it adds to those of later links.
    static void correct_with_care(Vector (&norms)[vectors], const Words (&off)[vectors]) {
        Register carried{};
        for_places<vectors>([&](auto v) {
            const Register norm = Legs::widened(norms[v.value]);
            const Register next = Legs::widened(Vector(Words(norms[v.value]) + off[v.value]));
            const Register sums = prefix_sums((next - norm) * norm) + carried;
            norms[v.value] = Legs::narrowed(norm == 0 ? next : norm + sums / norm);
            carried = Set::broadcast(sums[lanes - 1]);
        });
    }

    static bool any(const Words (&off)[vectors]) {
        Words found{};
        for_places<vectors>([&](auto v) { found |= off[v.value]; });
        return Legs::any(found);
    }

    template <typename Value>
    static Value prefix_sums(Value value) {
        value += shifted<1>(value, Value{});
        value += shifted<2>(value, Value{});
        if constexpr (lanes >= 8) {
            value += shifted<4>(value, Value{});
        }
        return value;
    }
    /// The lanes moved up by `Count`, and the last ones of `before` below.
    template <int Count, typename Value>
    static Value shifted(Value value, Value before) {
        return shifted<Count>(value, before,
                              std::make_integer_sequence<int, static_cast<int>(lanes)>{});
    }
    template <int Count, typename Value, int... Lane>
    static Value shifted(Value value, Value before, std::integer_sequence<int, Lane...>) {
        return __builtin_shufflevector(before, value, (Lane + static_cast<int>(lanes) - Count)...);
    }
};

template <typename Set, typename Real>
class ChainNorm {
    /// The latencies of roots and quotients overlap among the vectors: with two a term takes a
    /// quarter to a half longer.
    using Piece = ChainPiece<Set, Real, 4>;
    using LastPiece = ChainPiece<Set, Real, 2>;
    /// Fewer terms than these are sooner taken one by one.
    static constexpr Index few = 5;

  public:
    static Real prolong_norm(Real norm, const Real* terms, Index count) {
        for (; count >= Piece::length; terms += Piece::length, count -= Piece::length) {
            norm = Piece::prolonged(norm, terms);
        }
        while (count >= few) {
            const Index taken = count < LastPiece::length ? count : LastPiece::length;
            norm = prolonged_by_rest(norm, terms, taken);
            terms += taken;
            count -= taken;
        }
        return LastPiece::prolonged(norm, terms, count);
    }

    /// Of `count` complex numbers, by real and imaginary parts in turn.
    static void magnitudes(const Real* parts, Real* out, Index count) {
        constexpr Index lanes = Set::lanes;
        for (; count >= lanes; parts += 2 * lanes, out += lanes, count -= lanes) {
            magnitudes(parts, out);
        }
        if (count > 0) {
            Real rest[2 * lanes]{};
            Real results[lanes];
            copy(parts, rest, 2 * count);
            magnitudes(rest, results);
            copy(results, out, count);
        }
    }

  private:
    using Legs = LegsOf<Set, Real>;

    static Real prolonged_by_rest(Real norm, const Real* terms, Index count) {
        // Links with 0 change nothing.
        Real padded[LastPiece::length]{};
        copy(terms, padded, count);
        return LastPiece::prolonged(norm, padded);
    }

    static void magnitudes(const Real* parts, Real* out) {
        const auto low = Legs::load(parts);
        const auto high = Legs::load(parts + Set::lanes);
        const auto [real, imag] = alternate_lanes(
            low, high, std::make_integer_sequence<int, static_cast<int>(Set::lanes)>{});
        Legs::store(out, Legs::hypotenuse(real, imag));
    }
    template <typename Vector>
    struct Alternate {
        Vector even;
        Vector odd;
    };
    template <typename Vector, int... Lane>
    static Alternate<Vector> alternate_lanes(Vector low, Vector high,
                                             std::integer_sequence<int, Lane...>) {
        return {__builtin_shufflevector(low, high, (2 * Lane)...),
                __builtin_shufflevector(low, high, (2 * Lane + 1)...)};
    }

    static void copy(const Real* from, Real* to, Index count) {
        for (Index i = 0; i < count; ++i) {
            to[i] = from[i];
        }
    }
};

} // namespace

} // namespace Tessaline::SimdKernels

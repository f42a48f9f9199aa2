// The candidate filter of the substring search, written once over a vector
// of positions so that each instruction set compiles it in a unit of its
// own. Only builtins and plain code here: an inline library function
// instantiated in a unit built for a wider instruction set could be the
// copy the linker keeps for everyone.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvt::scan {

// A substring search under way: the haystack, the needle, the two needle
// bytes whose matches make a position a candidate, and the comparison
// work spent on candidates so far.
struct Search {
    const uint8_t *h;
    std::size_t n;
    const uint8_t *s;
    std::size_t m;
    std::size_t rare, other;  // indices into the needle
    std::size_t work;
    const uint8_t *found;
};

// Compares the candidate at position p whole; true when that decides the
// search, with the answer in `found`.
bool Decides(Search &search, std::size_t p);

// The filter on 32 and 64 positions at a time; each needs at least that
// many positions and a processor that has its instructions.
const uint8_t *FilterAvx2(Search &search);
const uint8_t *FilterAvx512(Search &search);

// W positions at a time in the compilers' vector extension. Both gives a
// word with bit k set when a[k] == c1 and b[k] == c2: the one step with no
// portable spelling.
template <std::size_t W>
struct Vectors {
    typedef char Vector __attribute__((vector_size(W)));
    typedef signed char Flags __attribute__((vector_size(W)));
};

template <std::size_t W, uint64_t (*Both)(typename Vectors<W>::Vector a, typename Vectors<W>::Vector c1,
                                          typename Vectors<W>::Vector b, typename Vectors<W>::Vector c2)>
struct Lanes {
    using Vector = typename Vectors<W>::Vector;
    static constexpr std::size_t kWidth = W;
    static Vector Splat(uint8_t c) { return Vector{} + static_cast<char>(c); }
    static Vector Load(const uint8_t *at) {
        Vector v;
        __builtin_memcpy(&v, at, W);
        return v;
    }
    static uint64_t Matches(const uint8_t *first, Vector c1, const uint8_t *second, Vector c2) {
        return Both(Load(first), c1, Load(second), c2);
    }
};

// V is a Lanes. Two vectors go per step so that the test for candidates
// costs one branch for both.
template <class V>
const uint8_t *FilterBy(Search &q) {
    constexpr std::size_t kWidth = V::kWidth;
    const std::size_t positions = q.n - q.m + 1;
    const auto c1 = V::Splat(q.s[q.rare]), c2 = V::Splat(q.s[q.other]);
    const uint8_t *first = q.h + q.rare, *second = q.h + q.other;
    // Candidates in the mask are tried in ascending order from position p.
    const auto tries = [&q](uint64_t mask, std::size_t p) {
        for (; mask != 0; mask &= mask - 1) {
            if (Decides(q, p + static_cast<std::size_t>(__builtin_ctzll(mask)))) return true;
        }
        return false;
    };
    // Loads from `first` go on whole vectors from the first boundary: a
    // load across two cache lines costs two. The vector before it covers
    // the positions up to there.
    std::size_t p = (kWidth - reinterpret_cast<uintptr_t>(first) % kWidth) % kWidth;
    if (p != 0 && tries(V::Matches(first, c1, second, c2) & ((uint64_t{1} << p) - 1), 0)) return q.found;
    for (; positions - p >= 2 * kWidth; p += 2 * kWidth) {
        const uint64_t low = V::Matches(first + p, c1, second + p, c2);
        const uint64_t high = V::Matches(first + p + kWidth, c1, second + p + kWidth, c2);
        if ((low | high) != 0 && (tries(low, p) || tries(high, p + kWidth))) return q.found;
    }
    for (; positions - p >= kWidth; p += kWidth) {
        if (tries(V::Matches(first + p, c1, second + p, c2), p)) return q.found;
    }
    if (p < positions) {
        // The last vector overlaps the one before, whose positions had no
        // candidate left: they are shifted out.
        const std::size_t base = positions - kWidth;
        if (tries(V::Matches(first + base, c1, second + base, c2) >> (p - base), p)) return q.found;
    }
    return nullptr;
}

}  // namespace qvt::scan

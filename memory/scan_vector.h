// The vector scans behind the search methods, written once over a vector
// of bytes so that each instruction set compiles them in a unit of its
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
// The index of the first of `count` bytes that differs from `value`, or
// `count` for none; each needs at least 32 and 64 bytes.
std::size_t FirstOtherAvx2(const uint8_t *bytes, std::size_t count, uint8_t value);
std::size_t FirstOtherAvx512(const uint8_t *bytes, std::size_t count, uint8_t value);

// W bytes at a time in the compilers' vector extension. Equal gives a word
// with bit k set when a[k] == c: the one step with no portable spelling.
template <std::size_t W>
struct Vectors {
    typedef char Vector __attribute__((vector_size(W)));
    typedef signed char Flags __attribute__((vector_size(W)));
};

template <std::size_t W, uint64_t (*Equal)(typename Vectors<W>::Vector a, typename Vectors<W>::Vector c)>
struct Lanes {
    using Vector = typename Vectors<W>::Vector;
    static constexpr std::size_t kWidth = W;
    static constexpr uint64_t kAll = W == 64 ? ~uint64_t{0} : (uint64_t{1} << W) - 1;
    static Vector Splat(uint8_t c) { return Vector{} + static_cast<char>(c); }
    static Vector Load(const uint8_t *at) {
        Vector v;
        __builtin_memcpy(&v, at, W);
        return v;
    }
    static uint64_t Bits(const uint8_t *at, Vector c) { return Equal(Load(at), c); }
    // Bit k set when first[k] == c1 and second[k] == c2.
    static uint64_t Matches(const uint8_t *first, Vector c1, const uint8_t *second, Vector c2) {
        return Bits(first, c1) & Bits(second, c2);
    }
};

// The first byte that differs from value; V is a Lanes and `count` at
// least its width. Loads after the first go on whole vectors, four to a
// step while they last, and the last overlaps the one before. (An equal
// byte is left to memchr, which is as fast on every size.)
template <class V>
std::size_t FirstOtherBy(const uint8_t *bytes, std::size_t count, uint8_t value) {
    constexpr std::size_t kWidth = V::kWidth;
    const auto c = V::Splat(value);
    const auto hits = [c](const uint8_t *at) { return ~V::Bits(at, c) & V::kAll; };
    if (const uint64_t h = hits(bytes)) return static_cast<std::size_t>(__builtin_ctzll(h));
    std::size_t at = kWidth - reinterpret_cast<uintptr_t>(bytes) % kWidth;
    for (; count - at >= 4 * kWidth; at += 4 * kWidth) {
        const uint64_t h0 = hits(bytes + at), h1 = hits(bytes + at + kWidth);
        const uint64_t h2 = hits(bytes + at + 2 * kWidth), h3 = hits(bytes + at + 3 * kWidth);
        if ((h0 | h1 | h2 | h3) == 0) continue;
        const uint64_t h[] = {h0, h1, h2, h3};
        std::size_t k = 0;
        while (h[k] == 0) ++k;
        return at + k * kWidth + static_cast<std::size_t>(__builtin_ctzll(h[k]));
    }
    for (; count - at >= kWidth; at += kWidth) {
        if (const uint64_t h = hits(bytes + at)) return at + static_cast<std::size_t>(__builtin_ctzll(h));
    }
    if (at < count) {
        if (const uint64_t h = hits(bytes + count - kWidth) >> (kWidth - (count - at)))
            return at + static_cast<std::size_t>(__builtin_ctzll(h));
    }
    return count;
}

// V is a Lanes. kStep vectors go per step so that the test for candidates
// costs one branch for all of them; more than two gained nothing.
template <class V>
const uint8_t *FilterBy(Search &q) {
    constexpr std::size_t kWidth = V::kWidth, kStep = 2;
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
    while (positions - p >= kStep * kWidth) {
        // The needle bytes are splatted afresh after each candidate: across
        // the call that tries it, the compiler would keep the vectors on
        // the stack and load them again at every step.
        unsigned b1 = q.s[q.rare], b2 = q.s[q.other];
        __asm__("" : "+r"(b1), "+r"(b2));
        const auto v1 = V::Splat(static_cast<uint8_t>(b1)), v2 = V::Splat(static_cast<uint8_t>(b2));
        uint64_t m[kStep] = {};
        for (; positions - p >= kStep * kWidth; p += kStep * kWidth) {
            uint64_t any = 0;
            for (std::size_t k = 0; k < kStep; ++k) {
                m[k] = V::Matches(first + p + k * kWidth, v1, second + p + k * kWidth, v2);
                any |= m[k];
            }
            if (any != 0) break;
        }
        if (positions - p < kStep * kWidth) break;
        for (std::size_t k = 0; k < kStep; ++k) {
            if (tries(m[k], p + k * kWidth)) return q.found;
        }
        p += kStep * kWidth;
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

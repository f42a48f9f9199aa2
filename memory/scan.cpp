#include "memory/scan.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "memory/scan_vector.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qvt::scan {

namespace {

// Fixed-length inner loops without an early exit, so that compilers turn
// them into vector code on any target; the byte loops behind them find the
// exact place.
constexpr std::size_t kWord = 8;
// Runs of one byte value go by blocks and groups of words: the bits of the
// words are gathered without a branch, and a block that differs is searched
// again by groups, words and bytes.
constexpr std::size_t kRunBlock = 256;
constexpr std::size_t kRunGroup = 32;
// Candidate positions of a substring go by blocks where no vector
// instructions are at hand.
constexpr std::size_t kFilterBlock = 64;

uint64_t Word(const uint8_t *at) {
    uint64_t word;
    std::memcpy(&word, at, kWord);
    return word;
}

// Whether any of the `Words` words from `at` differs from `pattern`.
template <std::size_t Words>
bool Differs(const uint8_t *at, uint64_t pattern) {
    uint64_t bits = 0;
    for (std::size_t k = 0; k < Words; ++k) bits |= Word(at + k * kWord) ^ pattern;
    return bits != 0;
}

// The number of leading bytes that x and y share, counted in whole words up
// to the first word that differs; `m` exactly when all `m` bytes are equal.
std::size_t SharedPrefix(const uint8_t *x, const uint8_t *y, std::size_t m) {
    std::size_t i = 0;
    for (; m - i >= kWord; i += kWord) {
        if (Word(x + i) != Word(y + i)) return i;
    }
    while (i < m && x[i] == y[i]) ++i;
    return i;
}

// The needle bytes that may filter candidates are taken from its head.
constexpr std::size_t kPickSpan = 32;

// How common a byte is in text and in binary data, higher for more common.
// A guess: it only picks the needle bytes that filter the candidates.
constexpr std::array<uint8_t, 256> kCommonness = [] {
    std::array<uint8_t, 256> rank{};
    rank.fill(20);
    const auto rankFrom = [&rank](const char *bytes, int top, int step) {
        for (int i = 0; bytes[i]; ++i) rank[static_cast<uint8_t>(bytes[i])] = static_cast<uint8_t>(top - i * step);
    };
    rankFrom("etaoinsrhldcumfpgwybvkxjqz", 240, 6);
    rankFrom(",.\n0-1'\"2\r=9/:\t53;)(48_76", 150, 3);
    rankFrom("ETAOINSRHLDCUMFPGWYBVKXJQZ", 110, 2);
    rank[' '] = 255;
    rank[0] = 250;
    rank[0xFF] = 160;
    return rank;
}();

// Picks the two needle bytes that filter positions: the rarest in the
// needle's head, and the rarest of another value.
Search Prepare(const uint8_t *h, std::size_t n, const uint8_t *s, std::size_t m) {
    const std::size_t span = std::min(m, kPickSpan);
    std::size_t rare = 0, other = SIZE_MAX;
    unsigned rareRank = kCommonness[s[0]], otherRank = 256;
    for (std::size_t i = 1; i < span; ++i) {
        const unsigned rank = kCommonness[s[i]];
        if (s[i] == s[rare]) continue;
        // Branches rather than selects: updates are rare after the first
        // few bytes, and selects would chain every step to the one before.
        if (rank < rareRank) [[unlikely]] {
            other = rare;
            otherRank = rareRank;
            rare = i;
            rareRank = rank;
        } else if (rank < otherRank) [[unlikely]] {
            other = i;
            otherRank = rank;
        }
    }
    if (other == SIZE_MAX) other = rare == m - 1 ? 0 : m - 1;  // a head of one value
    return {.h = h, .n = n, .s = s, .m = m, .rare = rare, .other = other, .work = 0, .found = nullptr};
}

#if defined(__SSE2__)
using V16 = Vectors<16>::Vector;
uint64_t Equal(V16 a, V16 c) { return static_cast<uint32_t>(_mm_movemask_epi8(__m128i(Vectors<16>::Flags(a == c)))); }
using Sse2 = Lanes<16, Equal>;
#endif

// Without vector instructions: blocks of positions in fixed-length loops
// that compilers vectorise for any target, a block with a candidate flagged
// position by position and searched again by words of flags.
const uint8_t *FilterPortable(Search &q) {
    const std::size_t positions = q.n - q.m + 1;
    const uint8_t c1 = q.s[q.rare], c2 = q.s[q.other];
    const uint8_t *first = q.h + q.rare, *second = q.h + q.other;
    for (std::size_t p = 0;;) {
        // The last block overlaps the one before: its positions below p
        // were tried already.
        const std::size_t base = std::min(p, positions - kFilterBlock);
        uint8_t any = 0;
        for (std::size_t k = 0; k < kFilterBlock; ++k) any |= (first[base + k] == c1) & (second[base + k] == c2);
        if (any) {
            uint8_t flags[kFilterBlock];
            for (std::size_t k = 0; k < kFilterBlock; ++k) flags[k] = (first[base + k] == c1) & (second[base + k] == c2);
            for (std::size_t k = p - base; k < kFilterBlock; ++k) {
                if (k % kWord == 0 && Word(flags + k) == 0) {
                    k += kWord - 1;
                    continue;
                }
                if (flags[k] && Decides(q, base + k)) return q.found;
            }
        }
        p = base + kFilterBlock;
        if (p >= positions) return nullptr;
    }
}

// Too few positions for a vector: the rare byte is looked for directly.
const uint8_t *FilterFew(Search &q) {
    const std::size_t positions = q.n - q.m + 1;
    const uint8_t *first = q.h + q.rare, *second = q.h + q.other;
    for (std::size_t p = 0; p < positions; ++p) {
        const auto *at = static_cast<const uint8_t *>(std::memchr(first + p, q.s[q.rare], positions - p));
        if (!at) return nullptr;
        p = static_cast<std::size_t>(at - first);
        if (second[p] == q.s[q.other] && Decides(q, p)) return q.found;
    }
    return nullptr;
}

// Positions are candidates where the two chosen needle bytes both match;
// candidates are then compared whole, in ascending order. The filter reads
// every position, so its cost does not depend on the needle's shape, and a
// rare pair of bytes leaves few candidates on text and on binary data
// alike; skip tables (as memmem's) read fewer bytes only for long needles
// and lose to a vector filter on the cache's speed. Should the comparisons
// cost more than a few bytes for each position passed, Two-Way takes over
// from the failed candidate, which keeps the whole search linear.
const uint8_t *FindByFilter(const uint8_t *h, std::size_t n, const uint8_t *s, std::size_t m, InstructionSet set) {
    Search q = Prepare(h, n, s, m);
    const std::size_t positions = n - m + 1;
#if defined(QVT_X86_VECTORS)
    if (set >= InstructionSet::Avx512 && positions >= 64) return FilterAvx512(q);
    if (set >= InstructionSet::Avx2 && positions >= 32) return FilterAvx2(q);
#endif
#if defined(__SSE2__)
    if (set >= InstructionSet::Sse2 && positions >= Sse2::kWidth) return FilterBy<Sse2>(q);
#endif
    if (set == InstructionSet::Portable && positions >= kFilterBlock) return FilterPortable(q);
    return FilterFew(q);
}

// The needle's critical factorization: the start of its right half, with
// the period of that half's maximal suffix in `period` (Crochemore-Perrin).
std::size_t CriticalFactorization(const uint8_t *s, std::size_t m, std::size_t &period) {
    // Unsigned arithmetic throughout: a suffix of SIZE_MAX stands for -1.
    const auto maximalSuffix = [s, m](bool reversed, std::size_t &p) {
        std::size_t suffix = SIZE_MAX, j = 0, k = 1;
        p = 1;
        while (j + k < m) {
            const uint8_t a = s[j + k], b = s[suffix + k];
            if (a == b) {
                if (k != p) {
                    ++k;
                } else {
                    j += p;
                    k = 1;
                }
            } else if ((a < b) != reversed) {
                j += k;
                k = 1;
                p = j - suffix;
            } else {
                suffix = j++;
                k = p = 1;
            }
        }
        return suffix;
    };
    std::size_t forwardPeriod, reversePeriod;
    const std::size_t forward = maximalSuffix(false, forwardPeriod);
    const std::size_t reverse = maximalSuffix(true, reversePeriod);
    if (reverse + 1 < forward + 1) {
        period = forwardPeriod;
        return forward + 1;
    }
    period = reversePeriod;
    return reverse + 1;
}

}  // namespace

bool Decides(Search &q, std::size_t p) {
    constexpr std::size_t kAllowance = 4096;
    const std::size_t shared = SharedPrefix(q.h + p, q.s, q.m);
    if (shared == q.m) {
        q.found = q.h + p;
        return true;
    }
    q.work += shared + kWord;
    if (q.work <= 4 * p + kAllowance) return false;
    q.found = FindSubstringTwoWay(q.h + p, q.n - p, q.s, q.m);
    return true;
}

InstructionSet WidestInstructionSet() {
#if defined(QVT_X86_VECTORS)
    static const InstructionSet widest = [] {
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx512bw")) return InstructionSet::Avx512;
        if (__builtin_cpu_supports("avx2")) return InstructionSet::Avx2;
        return InstructionSet::Sse2;
    }();
    return widest;
#elif defined(__SSE2__)
    return InstructionSet::Sse2;
#else
    return InstructionSet::Portable;
#endif
}

namespace {

std::size_t FirstOtherByWords(const uint8_t *bytes, std::size_t count, uint8_t value) {
    const uint64_t pattern = uint64_t{0x0101010101010101} * value;
    std::size_t at = 0;
    for (; count - at >= kRunBlock; at += kRunBlock) {
        if (Differs<kRunBlock / kWord>(bytes + at, pattern)) break;
    }
    for (; count - at >= kRunGroup; at += kRunGroup) {
        if (Differs<kRunGroup / kWord>(bytes + at, pattern)) break;
    }
    // A rest too short for a group is tested as the last group of the
    // range, which overlaps bytes that are known to match already.
    if (count - at < kRunGroup && count >= kRunGroup &&
        !Differs<kRunGroup / kWord>(bytes + count - kRunGroup, pattern)) {
        return count;
    }
    for (; count - at >= kWord; at += kWord) {
        if (Differs<1>(bytes + at, pattern)) break;
    }
    if (count - at < kWord && count >= kWord && !Differs<1>(bytes + count - kWord, pattern)) return count;
    for (; at < count; ++at) {
        if (bytes[at] != value) return at;
    }
    return count;
}

}  // namespace

std::size_t FirstOther(const uint8_t *bytes, std::size_t count, uint8_t value, InstructionSet set) {
    set = std::min(set, WidestInstructionSet());
#if defined(QVT_X86_VECTORS)
    if (set >= InstructionSet::Avx512 && count >= 64) return FirstOtherAvx512(bytes, count, value);
    if (set >= InstructionSet::Avx2 && count >= 32) return FirstOtherAvx2(bytes, count, value);
#endif
#if defined(__SSE2__)
    if (set >= InstructionSet::Sse2 && count >= Sse2::kWidth) return FirstOtherBy<Sse2>(bytes, count, value);
#endif
    return FirstOtherByWords(bytes, count, value);
}

const uint8_t *FindSubstring(const uint8_t *haystack, std::size_t n, const uint8_t *needle,
                             std::size_t m) {
    return FindSubstring(haystack, n, needle, m, WidestInstructionSet());
}

const uint8_t *FindSubstring(const uint8_t *haystack, std::size_t n, const uint8_t *needle,
                             std::size_t m, InstructionSet set) {
    if (m == 0) return haystack;
    if (m > n) return nullptr;
    if (m == 1) return static_cast<const uint8_t *>(std::memchr(haystack, needle[0], n));
    return FindByFilter(haystack, n, needle, m, std::min(set, WidestInstructionSet()));
}

// After glibc's two_way_long_needle: the right half is compared first, the
// last byte through a shift table, and a periodic needle remembers how much
// of the window is known to match after a shift by its period.
const uint8_t *FindSubstringTwoWay(const uint8_t *h, std::size_t n, const uint8_t *s,
                                   std::size_t m) {
    if (m == 0) return h;
    if (m > n) return nullptr;
    std::size_t period;
    const std::size_t suffix = CriticalFactorization(s, m, period);
    std::array<std::size_t, 256> shift;
    shift.fill(m);
    for (std::size_t i = 0; i < m; ++i) shift[s[i]] = m - 1 - i;

    const std::size_t last = n - m;
    std::size_t j = 0;
    if (std::memcmp(s, s + period, suffix) == 0) {
        std::size_t memory = 0;
        while (j <= last) {
            std::size_t skip = shift[h[j + m - 1]];
            if (skip > 0) {
                // The last period has a byte out of place: no match before it.
                if (memory && skip < period) skip = m - period;
                memory = 0;
                j += skip;
                continue;
            }
            std::size_t i = std::max(suffix, memory);
            while (i < m - 1 && s[i] == h[i + j]) ++i;
            if (i < m - 1) {
                j += i - suffix + 1;
                memory = 0;
                continue;
            }
            i = suffix - 1;
            while (memory < i + 1 && s[i] == h[i + j]) --i;
            if (i + 1 < memory + 1) return h + j;
            j += period;
            memory = m - period;
        }
        return nullptr;
    }
    period = std::max(suffix, m - suffix) + 1;
    while (j <= last) {
        const std::size_t skip = shift[h[j + m - 1]];
        if (skip > 0) {
            j += skip;
            continue;
        }
        std::size_t i = suffix;
        while (i < m - 1 && s[i] == h[i + j]) ++i;
        if (i < m - 1) {
            j += i - suffix + 1;
            continue;
        }
        i = suffix - 1;
        while (i != SIZE_MAX && s[i] == h[i + j]) --i;
        if (i == SIZE_MAX) return h + j;
        j += period;
    }
    return nullptr;
}

}  // namespace qvt::scan

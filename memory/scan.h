// Byte scans behind the search and compare methods, on plain pointers. Each
// gives exactly the answer of the plain byte loop in ascending order; only
// the speed differs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvt::scan {

// The instruction sets the scans can run on, narrowest first.
enum class InstructionSet { Portable, Sse2, Avx2, Avx512 };
// The widest this processor has, which the scans take unless told.
InstructionSet WidestInstructionSet();

// The index of the first of the `count` bytes that differs from `value`, or
// `count` when none does.
std::size_t FirstOther(const uint8_t *bytes, std::size_t count, uint8_t value,
                       InstructionSet set = WidestInstructionSet());

// The first position at which the `m` bytes of `needle` occur whole in the
// `n` bytes of `haystack`, or null; an empty needle occurs at the start.
// Linear in n + m, whatever the bytes.
const uint8_t *FindSubstring(const uint8_t *haystack, std::size_t n, const uint8_t *needle,
                             std::size_t m);
// The same on the given instruction set, or the widest there is if narrower.
const uint8_t *FindSubstring(const uint8_t *haystack, std::size_t n, const uint8_t *needle,
                             std::size_t m, InstructionSet set);

// The same by the Two-Way algorithm alone, which FindSubstring falls back
// to when candidates keep failing late.
const uint8_t *FindSubstringTwoWay(const uint8_t *haystack, std::size_t n, const uint8_t *needle,
                                   std::size_t m);

}  // namespace qvt::scan

// Whether two byte ranges share memory: the kernels take their wide paths
// only where the order of reads and writes cannot show in the result.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvt::kernels {

inline bool Overlap(const uint8_t *a, std::size_t aBytes, const uint8_t *b, std::size_t bBytes) {
    const auto x = reinterpret_cast<uintptr_t>(a);
    const auto y = reinterpret_cast<uintptr_t>(b);
    return x < y + bBytes && y < x + aBytes;
}

}  // namespace qvt::kernels

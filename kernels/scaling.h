// Multiplying unsigned samples in place by a factor, with saturation: bytes
// through a table of all 256 results (looked up in vectors, or a form of it
// with vectors that gives every entry), 16-bit samples in the machine's
// byte order each on its own (on a fixed-point line where it gives the
// rule's products, else by the rule's double arithmetic in vectors). A
// negative `multiplyOnlyOver` scales every sample, otherwise only those
// above it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "abi/plugin_abi.h"

namespace qvt {

void MultiplyUInt8QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                      RBInteger multiplyOnlyOver);
void MultiplyUInt16QVT(REALobject block, double factor, RBInteger offsetByte, RBInteger lengthBytes,
                       RBInteger multiplyOnlyOver);

namespace kernels {

// Ways to replace bytes by their entries in a table of 256, in vector
// lanes; each replaces as many leading bytes of `count` as fill its
// vectors and returns how many, where `usable` says the processor has its
// instructions.
struct ByteLookUp {
    bool (*usable)();
    std::size_t (*look)(uint8_t *at, std::size_t count, const uint8_t *table);
};
std::span<const ByteLookUp> ByteLookUps();

// Ways to scale 16-bit samples in vector lanes, widest first. Each scales
// (samples from `lowest` on) as many leading samples of `count` as fill
// its vectors and returns how many; a way is taken only where `usable`
// says the processor has its instructions.
struct SampleScaler {
    bool (*usable)();
    std::size_t (*scale)(uint8_t *at, std::size_t count, double factor, uint16_t lowest);
};
std::span<const SampleScaler> SampleScalers();

}  // namespace kernels

}  // namespace qvt

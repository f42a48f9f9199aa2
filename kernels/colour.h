// In-place kernels over raw image bytes. The three Calc kernels see the
// block as 4-byte pixels p0..p3 from `offsetByte` and take `length` in
// bytes (below 1: to the end of the block), rounded up to whole pixels.
// The host knows them as _Calc3te, _Calc2teCMY and _Calc2teCMYK; C++
// reserves names of an underscore and a capital.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "abi/plugin_abi.h"

namespace qvt {

// Two 12-bit samples in each 3 bytes become two bytes, `width` steps of 9
// bytes to 6, in place from the start of the block; the rest stays.
void ConvertRGB12BitTo8BitQVT(REALobject block, RBInteger width);

// A pixel whose every byte lies within source × (1 ± tolerance), limits
// cut toward zero and included, becomes the low bytes of dest1..dest4.
void Calc3te(REALobject block, RBInteger source1, RBInteger source2, RBInteger source3,
             RBInteger source4, RBInteger dest1, RBInteger dest2, RBInteger dest3, RBInteger dest4,
             double tolerance, RBInteger offsetByte, RBInteger length);

// p3 becomes iByteMax less the channel sum, 0 when the sum reaches
// iByteMax (or is 0 with withSum0), capped at 255. CMY sums p0..p2, CMYK
// p0..p3.
void Calc2teCMY(REALobject block, RBInteger iByteMax, RBInteger offsetByte, RBInteger length,
                bool withSum0);
void Calc2teCMYK(REALobject block, RBInteger iByteMax, RBInteger offsetByte, RBInteger length,
                 bool withSum0);

namespace kernels {

// Ways to pack the 12-bit groups of a block in place from its start, by
// byte shuffles, widest first. Each packs as many leading groups as its
// steps can read within `groups` and returns how many; a way is taken
// only where `usable` says the processor has its instructions.
struct GroupPacker {
    bool (*usable)();
    std::size_t (*pack)(uint8_t *block, std::size_t groups);
};
std::span<const GroupPacker> GroupPackers();

}  // namespace kernels

}  // namespace qvt

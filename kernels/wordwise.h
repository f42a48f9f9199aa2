// What the mask and bitwise kernels share: their result block (the caller's
// Dest, locked, or a new block), the opening with its nil tests, and the
// loop that runs a step over whole words and the bytes behind them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "abi/plugin_abi.h"

namespace qvt::kernels {

// Traces `traceName` "is nil" when debugging and raises NilObjectException
// with `message` when `value` is null; true when it raised.
bool RaisedForNil(const void *value, const char *traceName, const char *message);

// The caller's `dest` with a reference of its own, or a new block of `n`
// bytes: either way the result carries one reference for the caller.
REALobject TakeResultBlock(REALobject dest, std::size_t n);
// Gives the result block's reference back on a way out that returns nil.
void DropResultBlock(REALobject result);

// A caller's `dest` of known size below `n` would be written past its end;
// raises OutOfBoundsException and gives true then. Unknown sizes are trusted.
bool RaisedForShortDest(REALobject dest, std::size_t n);

// Two blocks and the result block, after every test has passed.
struct Operands {
    uint8_t *source;
    uint8_t *second;
    uint8_t *result;
    std::size_t n;
    REALobject block;
};

// The opening of the kernels over a receiver and `second`: nil tests, sizes
// (below 1 gives nil silently), the result block, pointer tests and the
// trace of the split. False after a raise or for an empty block; the result
// block's reference is then given back already.
bool OpenPair(REALobject source, REALobject second, REALobject dest, bool traceSizes,
              Operands &operands);

// `Count` words, or a byte, read and written as one unit at any address.
template <typename Word, std::size_t Count>
struct Units {
    Word w[Count];

    static Units Load(const uint8_t *at) {
        Units units;
        std::memcpy(units.w, at, sizeof units.w);
        return units;
    }
    void Store(uint8_t *at) const { std::memcpy(at, w, sizeof w); }
};

inline constexpr std::size_t kWordBytes = 8;

// Calls step.template operator()<Word, Count>(offset) over `n` bytes in
// ascending order: blocks of `Wide` words while `wide`, single words, then
// the bytes behind them. Blocks that overlap by part of a word see the word
// units: each is read whole before it is stored. The wide blocks are only
// for blocks that are apart, where the order cannot show.
template <std::size_t Wide, typename Step>
void RunUnits(std::size_t n, bool wide, Step step) {
    std::size_t at = 0;
    if (wide) {
        for (; n - at >= Wide * kWordBytes; at += Wide * kWordBytes) {
            step.template operator()<uint64_t, Wide>(at);
        }
    }
    for (; n - at >= kWordBytes; at += kWordBytes) step.template operator()<uint64_t, 1>(at);
    for (; at < n; ++at) step.template operator()<uint8_t, 1>(at);
}

}  // namespace qvt::kernels

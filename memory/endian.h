// Byte order conversions: a value form (global functions) and an in-place form
// (MemoryBlock methods) for each of the 26 names, and three range swaps that
// clip to the block. One rule serves every name: an element's bytes are
// reversed when its source and target orders differ on this machine.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "abi/plugin_abi.h"
#include "hostvalues/blocks.h"

namespace qvt {

// The orders a name can carry: big, little, and the machine's own.
enum class ByteOrder { B, L, N };

constexpr std::endian Resolved(ByteOrder order, std::endian native) {
    switch (order) {
        case ByteOrder::B: return std::endian::big;
        case ByteOrder::L: return std::endian::little;
        case ByteOrder::N: break;
    }
    return native;
}

// `Native` is a parameter only so that another machine's outcome can be
// instantiated here; the registered functions take the compiler's.
template <ByteOrder From, ByteOrder To, std::endian Native = std::endian::native>
inline constexpr bool kSwapsBytes = Resolved(From, Native) != Resolved(To, Native);

// The element's bit pattern with its bytes in reverse order; the sign plays
// no part.
template <typename T>
constexpr T ReversedBytes(T value) {
    using U = std::make_unsigned_t<T>;
    auto in = static_cast<U>(value);
    U out = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        out = static_cast<U>((out << 8) | (in & 0xFF));
        in = static_cast<U>(in >> 8);
    }
    return static_cast<T>(out);
}

template <typename T, ByteOrder From, ByteOrder To, std::endian Native = std::endian::native>
constexpr T ConvertValue(T n) {
    if constexpr (kSwapsBytes<From, To, Native>) {
        return ReversedBytes(n);
    } else {
        return n;
    }
}

// Reverses the bytes of each of `groups` consecutive groups of `Width` bytes
// (2 or 4) at any address.
template <std::size_t Width>
void SwapGroups(uint8_t *bytes, std::size_t groups);

// The in-place form trusts its arguments: the elements must lie in the
// block. A conversion that leaves elements unchanged reads neither the block
// nor its arguments.
template <typename T, ByteOrder From, ByteOrder To, std::endian Native = std::endian::native>
void ConvertInPlace(REALobject block, intptr_t offset, intptr_t count) {
    if constexpr (kSwapsBytes<From, To, Native>) {
        auto *data = static_cast<uint8_t *>(GetBlockPtr(block));
        if (count < 1 || !data) return;
        SwapGroups<sizeof(T)>(data + offset, static_cast<std::size_t>(count));
    } else {
        (void)block;
        (void)offset;
        (void)count;
    }
}

// Every name of the family with its element and its two orders. The plain
// swaps are written as BtoL, which differs on every machine.
//
// The in-place EndianS32_NtoBQVT and EndianU32_NtoBQVT follow the rule like
// all the others, and so swap on a little-endian machine, as their value
// forms and the 16-bit in-place forms do.
#define QVT_ENDIAN_NAMES(X)              \
    X(EndianS32_BtoNQVT, int32_t, B, N)  \
    X(EndianS32_BtoLQVT, int32_t, B, L)  \
    X(EndianS32_NtoBQVT, int32_t, N, B)  \
    X(EndianS32_NtoLQVT, int32_t, N, L)  \
    X(EndianS32_LtoNQVT, int32_t, L, N)  \
    X(EndianS32_LtoBQVT, int32_t, L, B)  \
    X(EndianU32_BtoNQVT, uint32_t, B, N) \
    X(EndianU32_BtoLQVT, uint32_t, B, L) \
    X(EndianU32_NtoBQVT, uint32_t, N, B) \
    X(EndianU32_NtoLQVT, uint32_t, N, L) \
    X(EndianU32_LtoNQVT, uint32_t, L, N) \
    X(EndianU32_LtoBQVT, uint32_t, L, B) \
    X(EndianS16_BtoNQVT, int16_t, B, N)  \
    X(EndianS16_BtoLQVT, int16_t, B, L)  \
    X(EndianS16_NtoBQVT, int16_t, N, B)  \
    X(EndianS16_NtoLQVT, int16_t, N, L)  \
    X(EndianS16_LtoNQVT, int16_t, L, N)  \
    X(EndianS16_LtoBQVT, int16_t, L, B)  \
    X(EndianU16_BtoNQVT, uint16_t, B, N) \
    X(EndianU16_BtoLQVT, uint16_t, B, L) \
    X(EndianU16_NtoBQVT, uint16_t, N, B) \
    X(EndianU16_NtoLQVT, uint16_t, N, L) \
    X(EndianU16_LtoNQVT, uint16_t, L, N) \
    X(EndianU16_LtoBQVT, uint16_t, L, B) \
    X(EndianSwap16QVT, uint16_t, B, L)   \
    X(EndianSwap32QVT, uint32_t, B, L)

// Each name is two overloads: the value form and the in-place form.
#define QVT_DECLARE_ENDIAN(name, T, from, to) \
    T name(T n);                              \
    void name(REALobject block, RBInteger offset, RBInteger count);
QVT_ENDIAN_NAMES(QVT_DECLARE_ENDIAN)
#undef QVT_DECLARE_ENDIAN

// The range forms: nothing for a count below 1 or a negative offset; a
// range past the end of a block of known size is cut at the end.
void SwapBytesQVT(REALobject block, RBInteger offset, RBInteger numBytes);
void SwapBytes16QVT(REALobject block, RBInteger offset, RBInteger numBytes);
void SwapBytes32QVT(REALobject block, RBInteger offset, RBInteger numBytes);

}  // namespace qvt

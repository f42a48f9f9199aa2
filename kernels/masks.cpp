#include "kernels/masks.h"

#include <optional>

#include "diagnostics/debuglog.h"
#include "hostvalues/blocks.h"
#include "kernels/overlap.h"
#include "kernels/wordwise.h"

namespace qvt {

namespace {

using kernels::Units;

constexpr std::size_t kExtractWide = 8;
constexpr std::size_t kAndWide = 2;

// The mask byte in all eight bytes of a word.
uint64_t MaskWord(intptr_t mask) { return 0x0101010101010101ULL * static_cast<uint8_t>(mask); }

// Without a mask the common bits are all of x & y: an all-ones mask.
REALobject AndBits(REALobject source, REALobject second, std::optional<intptr_t> mask,
                   REALobject dest) {
    if (Debugging()) DebugLogText(mask ? "AndBitsMask64QVT" : "AndBits64QVT");
    if (mask && Debugging()) DebugLogInt32("mask", *mask);
    kernels::Operands o{};
    if (!kernels::OpenPair(source, second, dest, mask.has_value(), o)) return nullptr;

    const uint64_t m = mask ? MaskWord(*mask) : ~uint64_t{0};
    // The three stores of a unit in this order, each clearing bits in what
    // the memory holds by then: that decides the outcome of shared blocks.
    auto step = [&]<typename Word, std::size_t Count>(std::size_t at) {
        const auto x = Units<Word, Count>::Load(o.source + at);
        const auto y = Units<Word, Count>::Load(o.second + at);
        Units<Word, Count> t;
        for (std::size_t k = 0; k < Count; ++k) {
            t.w[k] = static_cast<Word>(x.w[k] & y.w[k] & static_cast<Word>(m));
        }
        t.Store(o.result + at);
        auto left = Units<Word, Count>::Load(o.source + at);
        for (std::size_t k = 0; k < Count; ++k) left.w[k] = static_cast<Word>(left.w[k] & ~t.w[k]);
        left.Store(o.source + at);
        left = Units<Word, Count>::Load(o.second + at);
        for (std::size_t k = 0; k < Count; ++k) left.w[k] = static_cast<Word>(left.w[k] & ~t.w[k]);
        left.Store(o.second + at);
    };
    const bool apart = !kernels::Overlap(o.source, o.n, o.second, o.n) &&
                       !kernels::Overlap(o.source, o.n, o.result, o.n) &&
                       !kernels::Overlap(o.second, o.n, o.result, o.n);
    kernels::RunUnits<kAndWide>(o.n, apart, step);
    return o.block;
}

}  // namespace

REALobject ExtractBitsQVT(REALobject source, RBInteger mask, REALobject dest) {
    if (Debugging()) DebugLogText("ExtractBits64QVT");
    if (Debugging()) DebugLogInt32("mask", mask);
    if (kernels::RaisedForNil(source, "source", "Source Memoryblock is nil")) return nullptr;
    const int64_t size = GetBlockSize(source);
    if (size < 1) return nullptr;
    if (Debugging()) DebugLogInt32("SourceSize", size);
    const auto n = static_cast<std::size_t>(size);

    REALobject result = kernels::TakeResultBlock(dest, n);
    const uint64_t m = MaskWord(mask);
    if (Debugging()) DebugLogUInt64("Mask", m);
    auto *sp = static_cast<const uint8_t *>(GetBlockPtr(source));
    auto *dp = static_cast<uint8_t *>(GetBlockPtr(result));
    if (kernels::RaisedForNil(sp, "sp", "Source Memoryblock is nil") ||
        kernels::RaisedForNil(dp, "dp", "Destination Memoryblock is nil") ||
        kernels::RaisedForShortDest(dest, n)) {
        kernels::DropResultBlock(result);
        return nullptr;
    }
    if (Debugging()) DebugLogInt32("SourceSize", n / kernels::kWordBytes, n % kernels::kWordBytes);

    auto step = [&]<typename Word, std::size_t Count>(std::size_t at) {
        auto x = Units<Word, Count>::Load(sp + at);
        for (std::size_t k = 0; k < Count; ++k) x.w[k] = static_cast<Word>(x.w[k] & m);
        x.Store(dp + at);
    };
    kernels::RunUnits<kExtractWide>(n, !kernels::Overlap(sp, n, dp, n), step);
    return result;
}

REALobject AndBitsQVT(REALobject source, REALobject second, REALobject dest) {
    return AndBits(source, second, std::nullopt, dest);
}

REALobject AndBitsQVT(REALobject source, REALobject second, RBInteger mask, REALobject dest) {
    return AndBits(source, second, mask, dest);
}

}  // namespace qvt

#include "kernels/bitwise.h"

#include <functional>

#include "diagnostics/debuglog.h"
#include "kernels/overlap.h"
#include "kernels/wordwise.h"

namespace qvt {

namespace {

using kernels::Units;

constexpr std::size_t kWide = 8;

// The three methods, with `Op` the operator on two units.
template <typename Op>
REALobject Combine(const char *name, REALobject source, REALobject second, REALobject dest) {
    if (Debugging()) DebugLogText(name);
    kernels::Operands o{};
    if (!kernels::OpenPair(source, second, dest, true, o)) return nullptr;

    // A unit is read whole before it is stored, so the result may be either
    // operand.
    auto step = [&]<typename Word, std::size_t Count>(std::size_t at) {
        const auto x = Units<Word, Count>::Load(o.source + at);
        const auto y = Units<Word, Count>::Load(o.second + at);
        Units<Word, Count> r;
        for (std::size_t k = 0; k < Count; ++k) r.w[k] = static_cast<Word>(Op{}(x.w[k], y.w[k]));
        r.Store(o.result + at);
    };
    // The operands are only read: they may share memory with each other.
    const bool words = kernels::SameOrApart(o.source, o.result, o.n) &&
                       kernels::SameOrApart(o.second, o.result, o.n);
    const bool apart = !kernels::Overlap(o.source, o.n, o.result, o.n) &&
                       !kernels::Overlap(o.second, o.n, o.result, o.n);
    kernels::RunUnits<kWide>(o.n, words, apart, step);
    return o.block;
}

}  // namespace

REALobject BitwiseAndQVT(REALobject source, REALobject second, REALobject dest) {
    return Combine<std::bit_and<>>("BitwiseAndQVT", source, second, dest);
}

REALobject BitwiseOrQVT(REALobject source, REALobject second, REALobject dest) {
    return Combine<std::bit_or<>>("BitwiseOrQVT", source, second, dest);
}

REALobject BitwiseXOrQVT(REALobject source, REALobject second, REALobject dest) {
    return Combine<std::bit_xor<>>("BitwiseXOrQVT", source, second, dest);
}

}  // namespace qvt

#include "kernels/bitwise.h"

#include <functional>

#include "diagnostics/debuglog.h"
#include "kernels/dispatch.h"
#include "kernels/overlap.h"
#include "kernels/wordwise.h"

namespace qvt {

namespace {

using kernels::Units;

// The byte loop where the result overlaps neither operand: the order of
// reads and writes cannot show, so the compiler may use vectors. One plain
// function per operator, for the vector clones.
template <typename Op>
[[gnu::always_inline]] inline void CombineEach(uint8_t *__restrict result,
                                               const uint8_t *__restrict x,
                                               const uint8_t *__restrict y, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) result[i] = static_cast<uint8_t>(Op{}(x[i], y[i]));
}

#define QVT_APART_COMBINER(name, Op)                                                   \
    QVT_VECTOR_CLONES void name(uint8_t *__restrict result, const uint8_t *__restrict x, \
                                const uint8_t *__restrict y, std::size_t n) {          \
        CombineEach<Op>(result, x, y, n);                                              \
    }
QVT_APART_COMBINER(AndApart, std::bit_and<>)
QVT_APART_COMBINER(OrApart, std::bit_or<>)
QVT_APART_COMBINER(XOrApart, std::bit_xor<>)
#undef QVT_APART_COMBINER

using Apart = void (*)(uint8_t *, const uint8_t *, const uint8_t *, std::size_t);

// The three methods, with `Op` the operator on two units.
template <typename Op>
REALobject Combine(const char *name, Apart apart, REALobject source, REALobject second,
                   REALobject dest) {
    if (Debugging()) DebugLogText(name);
    kernels::Operands o{};
    if (!kernels::OpenPair(source, second, dest, true, o)) return nullptr;

    // The operands are only read: they may share memory with each other.
    if (!kernels::Overlap(o.source, o.n, o.result, o.n) &&
        !kernels::Overlap(o.second, o.n, o.result, o.n)) {
        apart(o.result, o.source, o.second, o.n);
        return o.block;
    }
    // Each unit is read whole before it is stored, so the result may be
    // either operand, or a window into one.
    auto step = [&]<typename Word, std::size_t Count>(std::size_t at) {
        const auto x = Units<Word, Count>::Load(o.source + at);
        const auto y = Units<Word, Count>::Load(o.second + at);
        Units<Word, Count> r;
        for (std::size_t k = 0; k < Count; ++k) r.w[k] = static_cast<Word>(Op{}(x.w[k], y.w[k]));
        r.Store(o.result + at);
    };
    kernels::RunUnits<1>(o.n, false, step);
    return o.block;
}

}  // namespace

REALobject BitwiseAndQVT(REALobject source, REALobject second, REALobject dest) {
    return Combine<std::bit_and<>>("BitwiseAndQVT", &AndApart, source, second, dest);
}

REALobject BitwiseOrQVT(REALobject source, REALobject second, REALobject dest) {
    return Combine<std::bit_or<>>("BitwiseOrQVT", &OrApart, source, second, dest);
}

REALobject BitwiseXOrQVT(REALobject source, REALobject second, REALobject dest) {
    return Combine<std::bit_xor<>>("BitwiseXOrQVT", &XOrApart, source, second, dest);
}

}  // namespace qvt

#include "kernels/minmax.h"

#include <cstddef>
#include <cstring>
#include <functional>

#include "kernels/dispatch.h"
#include "kernels/overlap.h"
#include "kernels/range.h"

namespace qvt {

namespace {

// The element loop; of each pair the second where Keeps(second, first).
template <typename Element, typename Keeps>
[[gnu::always_inline]] inline void PickEach(uint8_t *dest, const uint8_t *first,
                                            const uint8_t *second, std::size_t count) {
    constexpr std::size_t size = sizeof(Element);
    for (std::size_t i = 0; i < count; ++i) {
        Element a;
        Element b;
        std::memcpy(&a, first + i * size, size);
        std::memcpy(&b, second + i * size, size);
        const Element picked = Keeps{}(b, a) ? b : a;
        std::memcpy(dest + i * size, &picked, size);
    }
}

// Each kind of element has the loop twice: as it is, for any memory, and
// with the destination apart from both sources, where the order of reads
// and writes cannot show and the compiler may use vectors. Each is a plain
// function, so that the second gets the vector clones.
#define QVT_PICKERS(name, Element, Keeps)                                                  \
    void name##Anywhere(uint8_t *dest, const uint8_t *first, const uint8_t *second,        \
                        std::size_t count) {                                               \
        PickEach<Element, Keeps>(dest, first, second, count);                              \
    }                                                                                      \
    QVT_VECTOR_CLONES void name##Apart(uint8_t *__restrict dest,                           \
                                       const uint8_t *__restrict first,                    \
                                       const uint8_t *__restrict second, std::size_t count) { \
        PickEach<Element, Keeps>(dest, first, second, count);                              \
    }
#define QVT_WIDTH_PICKERS(bits)                                  \
    QVT_PICKERS(MinU##bits, uint##bits##_t, std::less<>)         \
    QVT_PICKERS(MinS##bits, int##bits##_t, std::less<>)          \
    QVT_PICKERS(MaxU##bits, uint##bits##_t, std::greater<>)      \
    QVT_PICKERS(MaxS##bits, int##bits##_t, std::greater<>)
QVT_WIDTH_PICKERS(8)
QVT_WIDTH_PICKERS(16)
QVT_WIDTH_PICKERS(32)
QVT_WIDTH_PICKERS(64)

using Picker = void (*)(uint8_t *, const uint8_t *, const uint8_t *, std::size_t);

struct Kind {
    Picker anywhere;
    Picker apart;
};

struct Width {
    intptr_t bits;
    Kind kinds[2][2];  // [maximum][signed]
};

#define QVT_KIND(name) {&name##Anywhere, &name##Apart}
#define QVT_WIDTH(bits)                                       \
    {bits,                                                    \
     {{QVT_KIND(MinU##bits), QVT_KIND(MinS##bits)},           \
      {QVT_KIND(MaxU##bits), QVT_KIND(MaxS##bits)}}}
constexpr Width kWidths[] = {QVT_WIDTH(8), QVT_WIDTH(16), QVT_WIDTH(32), QVT_WIDTH(64)};
#undef QVT_WIDTH
#undef QVT_KIND
#undef QVT_WIDTH_PICKERS
#undef QVT_PICKERS

bool PickInto(bool maximum, REALobject block, void *firstMem, void *secondMem, intptr_t bitSize,
              bool isSigned, intptr_t offsetByte, intptr_t lengthBytes) {
    if (kernels::RaisedForNilReceiver(block)) return false;
    if (!firstMem || !secondMem) {
        RaiseException("NilObjectException", "ptr is nil", hostabi::kEncodingASCII);
        return false;
    }
    if (kernels::RaisedForNegativeOffset(offsetByte)) return false;
    rbData bytes(block, 0, 0);
    const intptr_t length = kernels::RangeLength(bytes, offsetByte, lengthBytes);
    for (const Width &width : kWidths) {
        if (width.bits != bitSize) continue;
        const auto count = static_cast<std::size_t>(length > 0 ? length / (bitSize / 8) : 0);
        if (count == 0) return true;
        const std::size_t n = count * static_cast<std::size_t>(bitSize / 8);
        uint8_t *dest = bytes.data + offsetByte;
        const auto *first = static_cast<const uint8_t *>(firstMem);
        const auto *second = static_cast<const uint8_t *>(secondMem);
        const Kind &kind = width.kinds[maximum][isSigned];
        const bool apart =
            !kernels::Overlap(dest, n, first, n) && !kernels::Overlap(dest, n, second, n);
        (apart ? kind.apart : kind.anywhere)(dest, first, second, count);
        return true;
    }
    return false;
}

}  // namespace

bool MinQVT(REALobject block, void *firstMem, void *secondMem, RBInteger bitSize, bool isSigned,
            RBInteger offsetByte, RBInteger lengthBytes) {
    return PickInto(false, block, firstMem, secondMem, bitSize, isSigned, offsetByte, lengthBytes);
}

bool MaxQVT(REALobject block, void *firstMem, void *secondMem, RBInteger bitSize, bool isSigned,
            RBInteger offsetByte, RBInteger lengthBytes) {
    return PickInto(true, block, firstMem, secondMem, bitSize, isSigned, offsetByte, lengthBytes);
}

}  // namespace qvt

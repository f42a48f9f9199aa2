#include "kernels/minmax.h"

#include <cstddef>
#include <cstring>
#include <functional>

#include "kernels/overlap.h"
#include "kernels/range.h"

namespace qvt {

namespace {

constexpr std::size_t kBlockBytes = 64;

// The larger or smaller of two elements, by the comparison `Keeps`: the
// second is taken when Keeps(second, first).
template <typename Element, typename Keeps>
Element Pick(Element first, Element second) {
    return Keeps{}(second, first) ? second : first;
}

template <typename Element, typename Keeps>
void PickOneByOne(uint8_t *dest, const uint8_t *first, const uint8_t *second, std::size_t from,
                  std::size_t count) {
    constexpr std::size_t size = sizeof(Element);
    for (std::size_t i = from; i < count; ++i) {
        Element a;
        Element b;
        std::memcpy(&a, first + i * size, size);
        std::memcpy(&b, second + i * size, size);
        const Element picked = Pick<Element, Keeps>(a, b);
        std::memcpy(dest + i * size, &picked, size);
    }
}

// Whole 64-byte blocks through local copies, which leaves the compiler free
// to use vectors; only taken where the destination overlaps neither source,
// so the order of reads and writes cannot show.
template <typename Element, typename Keeps>
void PickElements(uint8_t *dest, const uint8_t *first, const uint8_t *second, std::size_t count) {
    constexpr std::size_t size = sizeof(Element);
    std::size_t i = 0;
    if constexpr (size < 8) {
        constexpr std::size_t perBlock = kBlockBytes / size;
        const std::size_t bytes = count * size;
        if (count >= perBlock && !kernels::Overlap(dest, bytes, first, bytes) &&
            !kernels::Overlap(dest, bytes, second, bytes)) {
            for (; count - i >= perBlock; i += perBlock) {
                Element a[perBlock];
                Element b[perBlock];
                Element picked[perBlock];
                std::memcpy(a, first + i * size, kBlockBytes);
                std::memcpy(b, second + i * size, kBlockBytes);
                for (std::size_t k = 0; k < perBlock; ++k) {
                    picked[k] = Pick<Element, Keeps>(a[k], b[k]);
                }
                std::memcpy(dest + i * size, picked, kBlockBytes);
            }
        }
    }
    PickOneByOne<Element, Keeps>(dest, first, second, i, count);
}

using Picker = void (*)(uint8_t *, const uint8_t *, const uint8_t *, std::size_t);

struct Width {
    intptr_t bits;
    Picker unsignedPicker;
    Picker signedPicker;
};

template <typename Keeps>
constexpr Width kWidths[] = {
    {8, &PickElements<uint8_t, Keeps>, &PickElements<int8_t, Keeps>},
    {16, &PickElements<uint16_t, Keeps>, &PickElements<int16_t, Keeps>},
    {32, &PickElements<uint32_t, Keeps>, &PickElements<int32_t, Keeps>},
    {64, &PickElements<uint64_t, Keeps>, &PickElements<int64_t, Keeps>},
};

template <typename Keeps>
bool PickInto(REALobject block, void *firstMem, void *secondMem, intptr_t bitSize, bool isSigned,
              intptr_t offsetByte, intptr_t lengthBytes) {
    if (kernels::RaisedForNilReceiver(block)) return false;
    if (!firstMem || !secondMem) {
        RaiseException("NilObjectException", "ptr is nil", hostabi::kEncodingASCII);
        return false;
    }
    if (kernels::RaisedForNegativeOffset(offsetByte)) return false;
    rbData bytes(block, 0, 0);
    const intptr_t length = kernels::RangeLength(bytes, offsetByte, lengthBytes);
    for (const Width &width : kWidths<Keeps>) {
        if (width.bits != bitSize) continue;
        const auto count = static_cast<std::size_t>(length > 0 ? length / (bitSize / 8) : 0);
        if (count > 0) {
            (isSigned ? width.signedPicker : width.unsignedPicker)(
                bytes.data + offsetByte, static_cast<const uint8_t *>(firstMem),
                static_cast<const uint8_t *>(secondMem), count);
        }
        return true;
    }
    return false;
}

}  // namespace

bool MinQVT(REALobject block, void *firstMem, void *secondMem, intptr_t bitSize, bool isSigned,
            intptr_t offsetByte, intptr_t lengthBytes) {
    return PickInto<std::less<>>(block, firstMem, secondMem, bitSize, isSigned, offsetByte,
                                 lengthBytes);
}

bool MaxQVT(REALobject block, void *firstMem, void *secondMem, intptr_t bitSize, bool isSigned,
            intptr_t offsetByte, intptr_t lengthBytes) {
    return PickInto<std::greater<>>(block, firstMem, secondMem, bitSize, isSigned, offsetByte,
                                    lengthBytes);
}

}  // namespace qvt

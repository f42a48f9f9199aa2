// FillBytesQVT and InvertBytesQVT, the two methods of memory/slices.h that
// change the receiver in place.
#include <cstddef>
#include <cstring>

#include "hostvalues/allocation.h"
#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"
#include "memory/slices.h"

namespace qvt {

namespace {

constexpr std::size_t kVectorBytes = 64;

#if defined(__GNUC__)
typedef uint8_t Vector64 __attribute__((vector_size(kVectorBytes)));

// memcpy in and out: the receiver's bytes carry no alignment.
inline void InvertVector(uint8_t *at) {
    Vector64 v;
    std::memcpy(&v, at, sizeof v);
    v = ~v;
    std::memcpy(at, &v, sizeof v);
}
#else
inline void InvertVector(uint8_t *at) {
    for (std::size_t i = 0; i < kVectorBytes; i += sizeof(uint64_t)) {
        uint64_t w;
        std::memcpy(&w, at + i, sizeof w);
        w = ~w;
        std::memcpy(at + i, &w, sizeof w);
    }
}
#endif

template <typename Word>
void InvertWords(uint8_t *at, std::size_t count) {
    for (std::size_t i = 0; i < count; i += sizeof(Word)) {
        Word w;
        std::memcpy(&w, at + i, sizeof w);
        w = static_cast<Word>(~w);
        std::memcpy(at + i, &w, sizeof w);
    }
}

void InvertRun(uint8_t *at, std::size_t count) {
    // Taking whole vectors off leaves the count's divisibility by 8 and 4.
    const std::size_t vectors = count / kVectorBytes * kVectorBytes;
    for (std::size_t i = 0; i < vectors; i += kVectorBytes) InvertVector(at + i);
    at += vectors;
    count -= vectors;
    if (count % 8 == 0) {
        InvertWords<uint64_t>(at, count);
    } else if (count % 4 == 0) {
        InvertWords<uint32_t>(at, count);
    } else {
        InvertWords<uint8_t>(at, count);
    }
}

}  // namespace

void FillBytesQVT(REALobject block, RBInteger offset, RBInteger count, RBInteger value) {
    if (!block) {
        RaiseException("NilObjectException", "memoryblock is nil", hostabi::kEncodingASCII);
        return;
    }
    int64_t n = count;
    if (count < 1) {
        const int64_t size = GetBlockSize(block);
        if (size < 1) return;
        // The default covers the block from `offset` to its end, never past it.
        if (offset >= size) return;
        n = size - (offset > 0 ? offset : 0);
    }
    if (offset < 0) return;
    // Without memory there is no byte the caller could have meant.
    auto *data = static_cast<uint8_t *>(GetBlockPtr(block));
    if (!data) return;
    SetMemory(data + offset, static_cast<uint8_t>(value), n);
}

void InvertBytesQVT(REALobject block, RBInteger offset, RBInteger count) {
    if (count <= 0) return;
    // No test of the range is asked for, but a write through null helps nobody.
    auto *data = static_cast<uint8_t *>(GetBlockPtr(block));
    if (!data) return;
    InvertRun(data + offset, static_cast<std::size_t>(count));
}

}  // namespace qvt

#include "memory/search.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "hostvalues/arrays.h"
#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"
#include "hostvalues/rbdata.h"
#include "memory/scan.h"

namespace qvt {

namespace {

const uint8_t *BytesOf(REALobject block) {
    return static_cast<const uint8_t *>(GetBlockPtr(block));
}

intptr_t PositionIn(const uint8_t *data, const void *found) {
    return found ? static_cast<const uint8_t *>(found) - data : kNotFound;
}

// The earliest position of [start, size) whose byte is one of the values.
intptr_t FindAnyOf(const uint8_t *data, std::size_t start, std::size_t size,
                   const uint8_t *values, std::size_t valueCount) {
    if (valueCount == 1) return PositionIn(data, std::memchr(data + start, values[0], size - start));
    bool wanted[256] = {};
    for (std::size_t i = 0; i < valueCount; ++i) wanted[values[i]] = true;
    for (std::size_t at = start; at < size; ++at) {
        if (wanted[data[at]]) return static_cast<intptr_t>(at);
    }
    return kNotFound;
}

// The routine behind FindStringQVT and FindBytesQVT: the first position in
// the range at which the whole target occurs, overlapping candidates
// included.
intptr_t SearchBlock(REALobject block, intptr_t srcOfs, intptr_t maxBytes, const uint8_t *target,
                     intptr_t targLen) {
    const uint8_t *data = BytesOf(block);
    const auto size = static_cast<intptr_t>(GetBlockSize(block));
    const intptr_t len = maxBytes != 0 ? maxBytes : size;
    if (targLen < 1 || len < 1 || srcOfs < 0) return kBadSearchArguments;
    // Saturated: a sum past the largest Integer lies beyond any memory.
    const intptr_t end = srcOfs > INTPTR_MAX - len ? INTPTR_MAX : srcOfs + len;
    const intptr_t limit = size != 0 ? size : end;
    if (srcOfs >= limit || !data || !target) return kBadSearchArguments;

    const intptr_t rangeEnd = std::min(end, limit);
    return PositionIn(data, scan::FindSubstring(data + srcOfs, static_cast<std::size_t>(rangeEnd - srcOfs),
                                                target, static_cast<std::size_t>(targLen)));
}

}  // namespace

RBInteger FindByteQVT(REALobject block, REALarray values, RBInteger startByteOffset) {
    if (!values) {
        RaiseException("NilObjectException", "values array is nil", hostabi::kEncodingASCII);
        return 0;
    }
    rbData bytes(block, 0, 0);
    if (!bytes.data) {
        RaiseException("NilObjectException", "Memoryblock is nil?", hostabi::kEncodingASCII);
        return kNotFound;
    }
    // A block of unknown size has size 0 here, so every offset fails.
    if (startByteOffset < 0 || static_cast<uintptr_t>(startByteOffset) >= bytes.size) {
        RaiseRangeError(startByteOffset, 0, static_cast<int64_t>(bytes.size), "offset",
                        "FindByteQVT");
        return 0;
    }
    const RBInteger valueCount = GetArrayUBound(values) + 1;
    if (valueCount <= 0) return kNotFound;
    const auto *valueBytes = static_cast<const uint8_t *>(GetArrayData(values));
    if (!valueBytes) {
        RaiseException("NilObjectException", "values array is nil", hostabi::kEncodingASCII);
        return 0;
    }
    return FindAnyOf(bytes.data, static_cast<std::size_t>(startByteOffset), bytes.size,
                     valueBytes, static_cast<std::size_t>(valueCount));
}

RBInteger FindByteQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, RBInteger byteValue) {
    const uint8_t *data = BytesOf(block);
    if (!data || numBytes <= 0) return kNotFound;
    return PositionIn(data, std::memchr(data + srcOfs, static_cast<uint8_t>(byteValue),
                                        static_cast<std::size_t>(numBytes)));
}

RBInteger FindNotByteQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes,
                         RBInteger byteValue) {
    const uint8_t *data = BytesOf(block);
    if (!data || numBytes <= 0) return kNotFound;
    const auto count = static_cast<std::size_t>(numBytes);
    const std::size_t at = scan::FirstOther(data + srcOfs, count, static_cast<uint8_t>(byteValue));
    return at < count ? srcOfs + static_cast<intptr_t>(at) : kNotFound;
}

bool BytesEqualQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes, REALobject destBlk,
                   RBInteger destOfs) {
    const uint8_t *source = BytesOf(block);
    const uint8_t *dest = BytesOf(destBlk);
    if (!source || !dest) return false;
    // A negative count has no meaning here; it compares as unequal.
    if (numBytes < 0) return false;
    return std::memcmp(source + srcOfs, dest + destOfs, static_cast<std::size_t>(numBytes)) == 0;
}

bool BytesZeroQVT(REALobject block, RBInteger srcOfs, RBInteger numBytes) {
    if (!block) return false;
    if (srcOfs < 0) {
        RaiseException("OutOfBoundsException", "source offset < 0", hostabi::kEncodingASCII);
        return false;
    }
    if (numBytes < 0) {
        RaiseException("OutOfBoundsException", "length < 0", hostabi::kEncodingASCII);
        return false;
    }
    const uint8_t *data = BytesOf(block);
    if (!data) return false;
    const auto count = static_cast<std::size_t>(numBytes);
    return scan::FirstOther(data + srcOfs, count, 0) == count;
}

RBInteger FindStringQVT(REALobject block, RBInteger srcOfs, RBInteger maxBytes, REALstring target) {
    rbData text(target);
    return SearchBlock(block, srcOfs, maxBytes, text.data, static_cast<intptr_t>(text.size));
}

RBInteger FindBytesQVT(REALobject block, RBInteger srcOfs, RBInteger maxBytes, REALobject target,
                      RBInteger targOfs, RBInteger targLen) {
    const uint8_t *targetData = BytesOf(target);
    const auto targetSize = static_cast<intptr_t>(GetBlockSize(target));
    // Every refusal gives the same -2, so the offset is tested before it
    // takes part in any arithmetic.
    if (!targetData || targOfs < 0) return kBadSearchArguments;
    if (targLen < 1) {
        targLen = targetSize - targOfs;
        if (targLen < 1) return kBadSearchArguments;
    }
    if (targetSize != 0 && targOfs >= targetSize) return kBadSearchArguments;
    return SearchBlock(block, srcOfs, maxBytes, targetData + targOfs, targLen);
}

}  // namespace qvt

#include "memory/addresses.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "hostvalues/blocks.h"
#include "hostvalues/rbdata.h"
#include "hostvalues/strings.h"
#include "hostvalues/text.h"

namespace qvt {

namespace {

constexpr int64_t kCodeBytes = 4;
// What a block of unknown size is taken to have: the caller answers for it.
constexpr int64_t kUnknownRoom = std::numeric_limits<int64_t>::max();

// Only a size above 0 is known; 0 and below mean empty or unknown alike.
bool SizeKnown(int64_t size) { return size > 0; }

// A position in a block and the bytes the block has from there on.
struct Place {
    uint8_t *at = nullptr;
    int64_t room = 0;
};

// Null `at` for a negative offset or one past a known end. A block without a
// data pointer is outside what the methods accept; it gets the neutral result
// rather than an access at null.
Place PlaceAt(REALobject block, int64_t offset) {
    if (offset < 0) return {};
    const int64_t size = GetBlockSize(block);
    if (SizeKnown(size) && offset > size) return {};
    auto *data = static_cast<uint8_t *>(GetBlockPtr(block));
    if (!data) return {};
    return {data + offset, SizeKnown(size) ? size - offset : kUnknownRoom};
}

// Computed as a number, so that a nil block gives its offset rather than a
// pointer formed from null.
uintptr_t AddressAt(REALobject block, int64_t offset) {
    if (offset < 0) return 0;
    const int64_t size = GetBlockSize(block);
    if (SizeKnown(size) && offset > size) return 0;
    return reinterpret_cast<uintptr_t>(GetBlockPtr(block)) + static_cast<uintptr_t>(offset);
}

}  // namespace

uint64_t AddressQVT(REALobject block, int64_t offset) {
    const auto address = static_cast<intptr_t>(AddressAt(block, offset));
    return static_cast<uint64_t>(static_cast<int64_t>(address));
}

void *AddressPtrQVT(REALobject block, int64_t offset) {
    return reinterpret_cast<void *>(AddressAt(block, offset));
}

REALstring OSTypeQVT(REALobject block, RBInteger offset) {
    const Place place = PlaceAt(block, offset);
    if (!place.at || place.room < kCodeBytes) return nullptr;
    uint32_t code;
    std::memcpy(&code, place.at, sizeof code);
    return OSTypeToString(code);
}

void OSTypeQVT(REALobject block, RBInteger offset, REALstring value) {
    const Place place = PlaceAt(block, offset);
    if (!place.at || place.room < kCodeBytes) return;
    const uint32_t code = StringToOSType(value);
    std::memcpy(place.at, &code, sizeof code);
}

REALstring GetStringQVT(REALobject block, RBInteger offset, RBInteger numBytes) {
    if (numBytes < 0) return nullptr;
    const Place place = PlaceAt(block, offset);
    if (!place.at) return nullptr;
    // A count of 0 comes back nil from the string builder.
    return REALBuildUnicodeString(place.at, std::min<int64_t>(numBytes, place.room),
                                  hostabi::kEncodingUnknown);
}

void SetStringQVT(REALobject block, REALstring str, RBInteger offset) {
    const Place place = PlaceAt(block, offset);
    rbData source(str);
    const int64_t count = std::min(static_cast<int64_t>(source.size), place.room);
    if (count < 1 || !source.data) return;
    // The string may lie in the block itself.
    std::memmove(place.at, source.data, static_cast<std::size_t>(count));
}

}  // namespace qvt

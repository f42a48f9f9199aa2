#include "kernels/wordwise.h"

#include <algorithm>

#include "diagnostics/debuglog.h"
#include "hostvalues/blocks.h"
#include "hostvalues/raise.h"
#include "shell/binding.h"

namespace qvt::kernels {

bool RaisedForNil(const void *value, const char *traceName, const char *message) {
    if (value) return false;
    if (Debugging()) DebugLogStrings(traceName, "is nil");
    RaiseException("NilObjectException", message, hostabi::kEncodingASCII);
    return true;
}

REALobject TakeResultBlock(REALobject dest, std::size_t n) {
    if (!dest) return NewBlock(static_cast<int64_t>(n));
    host::REALLockObject(dest);
    return dest;
}

// Nothing of the result reaches the caller on these ways out, so its
// reference is not left behind either.
void DropResultBlock(REALobject result) {
    if (result) host::REALUnlockObject(result);
}

// The caller promises at least `n` bytes in Dest; a block that says it has
// fewer is refused rather than written past its end.
bool RaisedForShortDest(REALobject dest, std::size_t n) {
    if (!dest) return false;
    const int64_t size = GetBlockSize(dest);
    if (size < 0 || static_cast<uint64_t>(size) >= n) return false;
    if (Debugging()) DebugLogStrings("dest", "is too small");
    RaiseException("OutOfBoundsException", "Destination Memoryblock is too small",
                   hostabi::kEncodingASCII);
    return true;
}

bool OpenPair(REALobject source, REALobject second, REALobject dest, bool traceSizes,
              Operands &operands) {
    if (RaisedForNil(source, "source", "Source Memoryblock is nil")) return false;
    if (RaisedForNil(second, "second", "Second Memoryblock is nil")) return false;
    const int64_t sourceSize = GetBlockSize(source);
    if (sourceSize < 1) return false;
    const int64_t secondSize = GetBlockSize(second);
    if (secondSize < 1) return false;
    if (traceSizes && Debugging()) DebugLogInt32("SourceSize", sourceSize);
    if (traceSizes && Debugging()) DebugLogInt32("SecondSize", secondSize);
    const auto n = static_cast<std::size_t>(std::min(sourceSize, secondSize));

    REALobject result = TakeResultBlock(dest, n);
    auto *sp = static_cast<uint8_t *>(GetBlockPtr(source));
    auto *tp = static_cast<uint8_t *>(GetBlockPtr(second));
    auto *dp = static_cast<uint8_t *>(GetBlockPtr(result));
    if (RaisedForNil(sp, "sp", "Source Memoryblock is nil") ||
        RaisedForNil(dp, "dp", "Destination Memoryblock is nil") ||
        RaisedForNil(tp, "tp", "Second Memoryblock is nil") || RaisedForShortDest(dest, n)) {
        DropResultBlock(result);
        return false;
    }
    if (Debugging()) DebugLogInt32("SourceSize", n / kWordBytes, n % kWordBytes);
    operands = {sp, tp, dp, n, result};
    return true;
}

}  // namespace qvt::kernels

// Host strings from UTF-16 and UTF-32 bytes, and from the other shapes in
// which text is held. Every result carries one reference, or is nil; wide
// input comes back converted to UTF-8.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// `count` in bytes, native byte order.
REALstring REALBuildUnicodeStringUTF16(const void *bytes, int64_t count);
REALstring REALBuildUnicodeStringUTF32(const void *bytes, int64_t count);

// Text whose first byte is its length.
REALstring PString2RB(const unsigned char *text, uint32_t encoding);
// Text that ends at its terminator or after `limit` bytes; never logs.
REALstring CString2RB(const char *text, int64_t limit, uint32_t encoding);
// Zero-terminated 16-bit units, built as UTF-16.
REALstring UTF16String2RB(const uint16_t *text);

}  // namespace qvt

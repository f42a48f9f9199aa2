// The one way from bytes to a host string. An empty string is always nil.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// A host string carrying one reference, or nil.
REALstring REALBuildUnicodeString(const void *bytes, int64_t count, uint32_t encoding);
REALstring CString2RB(const char *text, uint32_t encoding);

// Logs the error of asking for UTF-16 or UTF-32 from 8-bit text, under the
// routine's name; other encodings log nothing.
void LogWideEncodingMisuse(const char *routine, uint32_t encoding);

// Logs the first byte of ASCII-labelled text that is not ASCII.
void CheckASCIIText(const char *text, int64_t length, uint32_t encoding);

}  // namespace qvt

// The platform's debugger output: one zero-terminated line, never failing
// towards the caller.
#pragma once

#include <cstdint>

namespace qvt::platform {

// OutputDebugStringA on Windows; elsewhere the line and one "\n" in a single
// write to standard error.
void OutputDebugLine(const char *line);

// OutputDebugStringW on Windows; elsewhere the zero-terminated UTF-16 text
// as UTF-8 (a lone surrogate as U+FFFD), then as OutputDebugLine.
void OutputDebugWide(const uint16_t *text);

}  // namespace qvt::platform

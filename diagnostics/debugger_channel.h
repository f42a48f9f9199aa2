// The platform's debugger output: one zero-terminated line, never failing
// towards the caller.
#pragma once

namespace qvt::platform {

// OutputDebugStringA on Windows; elsewhere the line and one "\n" in a single
// write to standard error.
void OutputDebugLine(const char *line);

}  // namespace qvt::platform

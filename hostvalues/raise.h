// Raising host exceptions by class name. Raising does not unwind: the call
// comes back, and the host delivers the exception once the method returns.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// `encoding` is accepted for the callers' sake; the message is always UTF-8.
void RaiseException(const char *className, const char *message, uint32_t encoding);
void RaiseExceptionNumber(const char *className, const char *message, uint32_t encoding,
                          RBInteger errorNumber);

// OutOfBoundsException for `value` outside `minimum` .. `limit - 1`.
void RaiseRangeError(int64_t value, int64_t minimum, int64_t limit, const char *parameterName,
                     const char *methodName);

}  // namespace qvt

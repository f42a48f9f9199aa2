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

// The message as a host string, which stays the caller's.
void RaiseExceptionString(const char *className, REALstring message);
void RaiseExceptionStringNumber(const char *className, REALstring message, RBInteger errorNumber);
// The message joined from three parts; the strings built here are given back.
void RaiseExceptionStrings(const char *className, REALstring first, REALstring second,
                           REALstring third);
void RaiseExceptionTexts(const char *className, const char *first, const char *second,
                         const char *third, uint32_t encoding);

// One class, the message alone: RaiseNilObjectException("Memoryblock is nil").
struct ClassRaiser {
    const char *className;
    void operator()(const char *message) const;
};

// UnsupportedOperationException also takes an error number.
struct UnsupportedOperationRaiser : ClassRaiser {
    using ClassRaiser::operator();
    void operator()(const char *message, RBInteger errorNumber) const;
    void operator()(REALstring message, RBInteger errorNumber) const;
};

inline constexpr ClassRaiser RaiseNilObjectException{"NilObjectException"};
inline constexpr ClassRaiser RaiseOutOfBoundsException{"OutOfBoundsException"};
inline constexpr ClassRaiser RaiseOutOfMemoryException{"OutOfMemoryException"};
inline constexpr UnsupportedOperationRaiser RaiseUnsupportedOperationException{
    {"UnsupportedOperationException"}};
inline constexpr ClassRaiser RaiseRuntimeException{"RuntimeException"};
inline constexpr ClassRaiser RaiseIllegalCastException{"IllegalCastException"};

}  // namespace qvt

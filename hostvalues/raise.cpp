#include "hostvalues/raise.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "hostvalues/allocation.h"
#include "hostvalues/strings.h"
#include "shell/binding.h"

namespace qvt {

void RaiseException(const char *className, const char *message, uint32_t encoding) {
    RaiseExceptionNumber(className, message, encoding, 0);
}

namespace {

void UnlockIfSet(REALstring string) {
    if (string) host::REALUnlockString(string);
}

}  // namespace

void RaiseExceptionNumber(const char *className, const char *message, uint32_t,
                          RBInteger errorNumber) {
    REALstring text = CString2RB(message, hostabi::kEncodingUTF8);
    RaiseExceptionStringNumber(className, text, errorNumber);
    UnlockIfSet(text);
}

void RaiseExceptionString(const char *className, REALstring message) {
    RaiseExceptionStringNumber(className, message, 0);
}

void RaiseExceptionStringNumber(const char *className, REALstring message, RBInteger errorNumber) {
    REALobject exception = host::PluginNewInstance(className);
    if (!exception) exception = host::PluginNewInstance("RuntimeException");
    if (!exception) return;
    host::REALSetPropValueString(exception, "Message", message);
    host::REALSetPropValueInteger(exception, "ErrorNumber", errorNumber);
    host::RuntimeRaiseException(exception);
    host::REALUnlockObject(exception);
}

void RaiseExceptionStrings(const char *className, REALstring first, REALstring second,
                           REALstring third) {
    REALstring firstTwo = host::RuntimeAddString(first, second);
    REALstring whole = host::RuntimeAddString(firstTwo, third);
    RaiseExceptionStringNumber(className, whole, 0);
    UnlockIfSet(whole);
    UnlockIfSet(firstTwo);
}

void RaiseExceptionTexts(const char *className, const char *first, const char *second,
                         const char *third, uint32_t encoding) {
    REALstring pieces[] = {CString2RB(first, encoding), CString2RB(second, encoding),
                           CString2RB(third, encoding)};
    RaiseExceptionStrings(className, pieces[0], pieces[1], pieces[2]);
    for (REALstring piece : pieces) UnlockIfSet(piece);
}

void ClassRaiser::operator()(const char *message) const {
    RaiseExceptionNumber(className, message, hostabi::kEncodingASCII, 0);
}

void UnsupportedOperationRaiser::operator()(const char *message, RBInteger errorNumber) const {
    RaiseExceptionNumber(className, message, hostabi::kEncodingUTF8, errorNumber);
}

void UnsupportedOperationRaiser::operator()(REALstring message, RBInteger errorNumber) const {
    RaiseExceptionStringNumber(className, message, errorNumber);
}

void RaiseRangeError(int64_t value, int64_t minimum, int64_t limit, const char *parameterName,
                     const char *methodName) {
    if (!parameterName) parameterName = "?";
    if (!methodName) methodName = "";
    const std::size_t capacity = std::strlen(parameterName) + std::strlen(methodName) + 200;
    std::unique_ptr<char, FreeMemoryDeleter> text(
        static_cast<char *>(AllocateMemory(static_cast<int64_t>(capacity))));
    if (!text) {
        RaiseException("OutOfBoundsException", "Out of Bounds", hostabi::kEncodingASCII);
        return;
    }
    std::snprintf(text.get(), capacity,
                  "The parameter %s %s%s is too %s. Range is %lld to %lld, but value is %lld.",
                  parameterName, *methodName ? "to method " : "", methodName,
                  value < minimum ? "small" : "big", static_cast<long long>(minimum),
                  static_cast<long long>(limit - 1), static_cast<long long>(value));
    RaiseException("OutOfBoundsException", text.get(), hostabi::kEncodingASCII);
}

}  // namespace qvt

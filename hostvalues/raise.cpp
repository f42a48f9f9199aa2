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

void RaiseExceptionNumber(const char *className, const char *message, uint32_t,
                          RBInteger errorNumber) {
    REALstring text = CString2RB(message, hostabi::kEncodingUTF8);
    REALobject exception = host::PluginNewInstance(className);
    if (!exception) exception = host::PluginNewInstance("RuntimeException");
    if (exception) {
        host::REALSetPropValueString(exception, "Message", text);
        host::REALSetPropValueInteger(exception, "ErrorNumber", errorNumber);
        host::RuntimeRaiseException(exception);
        host::REALUnlockObject(exception);
    }
    if (text) host::REALUnlockString(text);
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

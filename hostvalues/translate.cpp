#include "hostvalues/translate.h"

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "hostvalues/raise.h"

namespace qvt {

namespace {

template <typename Failure>
bool Is(const std::exception &failure) {
    if constexpr (std::is_same_v<Failure, std::exception>) {
        return true;
    } else {
        return dynamic_cast<const Failure *>(&failure) != nullptr;
    }
}

struct Translation {
    bool (*matches)(const std::exception &);
    const char *className;
    const char *text;
};

// First match wins, so the catch-all stays last. std::bad_cast stands for a
// failed cast: it is what dynamic_cast of a reference throws, and
// std::bad_any_cast derives from it.
constexpr Translation kTranslations[] = {
    {Is<std::bad_alloc>, "OutOfMemoryException", "Failed to allocate memory"},
    {Is<std::range_error>, "OutOfBoundsException", "C++ reports range error"},
    {Is<std::out_of_range>, "OutOfBoundsException", "C++ reports range error"},
    {Is<std::overflow_error>, "OutOfBoundsException", "C++ reports overflow error"},
    {Is<std::underflow_error>, "OutOfBoundsException", "C++ reports underflow error"},
    {Is<std::bad_cast>, "IllegalCastException", "C++ Illegal Cast Exception"},
    {Is<std::exception>, "RuntimeException", "C++ Exception"},
};

}  // namespace

void TranslateException(const std::exception &failure) {
    const char *own = failure.what();
    const std::size_t ownLength = own ? std::strlen(own) : 0;
    for (const Translation &row : kTranslations) {
        if (!row.matches(failure)) continue;
        std::string message = row.text;
        if (ownLength > 0) {
            message += ": ";
            message.append(own, ownLength);
        } else {
            message += '.';
        }
        RaiseExceptionNumber(row.className, message.c_str(), hostabi::kEncodingASCII, 0);
        return;
    }
}

void *NewMemoryNothrow(std::size_t count) noexcept {
    try {
        return ::operator new(count);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace qvt

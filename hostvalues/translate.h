// Thrown failures caught at the few guards of the host value layer, and the
// host exception each one becomes.
#pragma once

#include <cstddef>
#include <exception>

namespace qvt {

// Raises the host exception for `failure` (class by its dynamic type, the
// row's text with the failure's own) and returns.
void TranslateException(const std::exception &failure);

// `count` bytes from the language's allocator, or null on any failure.
// Give them back with ::operator delete.
void *NewMemoryNothrow(std::size_t count) noexcept;

}  // namespace qvt

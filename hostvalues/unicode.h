// The plug-in's own Unicode decoders. They write without a limit: the caller
// sizes the output (two units per input byte, or per input unit, plus one).
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvt {

// Writes `value` as UTF-16: one unit, a surrogate pair above 0xFFFF, nothing
// for a lone surrogate, 0xFFFD beyond 0x10FFFF. Returns the units written.
std::size_t AppendUTF16(uint32_t value, uint16_t *out);

// Both stop at the first illegal sequence (logged when debugging, with its
// offset) and keep what came before; the marks 0xFEFF and 0xFFFE are
// dropped. A zero follows the output; the result counts what precedes it.
std::size_t ConvertUTF8ToUTF16(const uint8_t *bytes, std::size_t count, uint16_t *out);
std::size_t ConvertUTF8ToUTF32(const uint8_t *bytes, std::size_t count, uint32_t *out);

// Pairs become code points; a broken pair is dropped with the unit after
// its first half, a surrogate standing last goes out unchanged.
std::size_t ConvertUTF16ToUTF32(const uint16_t *units, std::size_t count, uint32_t *out);

}  // namespace qvt

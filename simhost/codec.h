// The host's text conversion: the encoding ids and their rules here, the
// character sets converted by the platform (simhost/platform.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace simhost::detail {

// Converts between two encoding ids. Byte sequences that cannot be read
// become U+FFFD, characters that the target lacks become '?'. UTF-16 and
// UTF-32 (0x100, 0xC000100) are in native byte order; as a source a leading
// byte order mark is honoured and dropped. Bytes of unknown encoding
// (0xFFFF) are read as ISO Latin 1. False when an id names no encoding the
// converter knows, or for 0xFFFF as the target.
bool ConvertText(std::string_view bytes, uint32_t from, uint32_t to, std::string &out);

bool IsKnownEncoding(uint32_t id);

}  // namespace simhost::detail

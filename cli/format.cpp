#include "format.h"

#include <charconv>
#include <cstdio>

namespace qvthost {

std::string Hex(std::span<const uint8_t> bytes) {
    constexpr std::size_t kShown = 32;
    std::string out;
    for (std::size_t i = 0; i < bytes.size() && i < kShown; ++i) {
        char cell[4];
        std::snprintf(cell, sizeof cell, "%02X", bytes[i]);
        if (i != 0) out += ' ';
        out += cell;
    }
    if (bytes.size() > kShown) out += " ...";
    return out.empty() ? "(empty)" : out;
}

std::string VersionText(double version) {
    char text[32];
    auto result = std::to_chars(text, text + sizeof text, version);
    return std::string(text, result.ptr);
}

std::string Counted(std::size_t count, const std::string &noun) {
    std::string word = noun;
    if (count != 1) {
        word = noun.ends_with('y') ? noun.substr(0, noun.size() - 1) + "ies" : noun + "s";
    }
    return std::to_string(count) + " " + word;
}

std::string HexDigits(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(2 * bytes.size());
    for (unsigned char byte : bytes) {
        out += kDigits[byte >> 4];
        out += kDigits[byte & 0xF];
    }
    return out;
}

namespace {

// The length of the well-formed UTF-8 sequence at `at`, or 0.
std::size_t Utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    if (length == 0 || at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    }
    // Overlong forms, surrogates and code points past U+10FFFF.
    const unsigned char second = length > 1 ? byte(at + 1) : 0;
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90)) {
        return 0;
    }
    return length;
}

}  // namespace

std::string Utf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = Utf8Length(text, at);
        if (length != 0) {
            out.append(text.substr(at, length));
            at += length;
            continue;
        }
        const auto byte = static_cast<unsigned char>(text[at++]);
        out += static_cast<char>(0xC0 | (byte >> 6));
        out += static_cast<char>(0x80 | (byte & 0x3F));
    }
    return out;
}

std::string Dump(const JsonValue &value) {
    return value.dump();
}

std::string JsonString(std::string_view text) {
    return Dump(Utf8(text));
}

}  // namespace qvthost

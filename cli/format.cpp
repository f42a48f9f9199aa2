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

}  // namespace qvthost

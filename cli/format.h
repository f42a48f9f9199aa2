// Small text helpers shared by the report, the tour and the calls.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qvthost {

// "00 01 FF"; long runs are cut with "...".
std::string Hex(std::span<const uint8_t> bytes);
// The shortest text that reads back as the same number, e.g. "2013.04".
std::string VersionText(double version);
// "1 method", "3 properties".
std::string Counted(std::size_t count, const std::string &noun);
// "00FF", every byte, for what a program reads back.
std::string HexDigits(std::string_view bytes);
// A JSON string literal, quotes included; bytes that are not UTF-8 are
// escaped one by one as the code points of the same value.
std::string JsonString(std::string_view text);

}  // namespace qvthost

// Small text helpers shared by the report, the tour and the calls.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace qvthost {

// "00 01 FF"; long runs are cut with "...".
std::string Hex(std::span<const uint8_t> bytes);
// The shortest text that reads back as the same number, e.g. "2013.04".
std::string VersionText(double version);
// "1 method", "3 properties".
std::string Counted(std::size_t count, const std::string &noun);
// "00FF", every byte, for what a program reads back.
std::string HexDigits(std::string_view bytes);
// JSON values keep their members in the order they are added.
using JsonValue = nlohmann::ordered_json;
// The text with every byte that is not part of well-formed UTF-8 taken as
// the code point of the same value, so that JSON can carry it.
std::string Utf8(std::string_view text);
// One line of JSON.
std::string Dump(const JsonValue &value);
// A JSON string literal, quotes included, of Utf8(text).
std::string JsonString(std::string_view text);

}  // namespace qvthost

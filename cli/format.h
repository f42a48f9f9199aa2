// Small text helpers shared by the report and the tour.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace qvthost {

// "00 01 FF"; long runs are cut with "...".
std::string Hex(std::span<const uint8_t> bytes);
// The shortest text that reads back as the same number, e.g. "2013.04".
std::string VersionText(double version);
// "1 method", "3 properties".
std::string Counted(std::size_t count, const std::string &noun);

}  // namespace qvthost

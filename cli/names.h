// Finding a declaration by what a person typed, as `call` and `help` do.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qvthost {

// "GetBitQVT" of "GetBitQVT(Bit as UInt64) as Integer" or of "Size as Int64".
std::string NameOf(std::string_view declaration);

// Indices of `names` equal to `typed`, or failing that, of those it begins;
// without regard to case, as the host's language reads names.
std::vector<std::size_t> Matching(std::string_view typed, const std::vector<std::string> &names);

// Up to three of `names`: those that hold `typed` first, then the fewest
// edits away; joined by ", ".
std::string Closest(std::string_view typed, const std::vector<std::string> &names);

}  // namespace qvthost

// Scripts of calls: one call per line, in the words a shell would give.
#pragma once

#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "call.h"

namespace qvthost {

// Words split at blanks; '...' keeps everything, "..." keeps all but \" and
// \\; a # that starts a word starts a comment. Nullopt with `error` set for
// an unclosed quote.
std::optional<std::vector<std::string>> SplitWords(std::string_view line, std::string &error);

// Prints one line's outcome, JSON objects after the first preceded by a comma.
void Print(std::ostream &out, const LineOutcome &outcome, std::size_t line, bool json, bool debug);

// Runs every line in order and stops at the first that fails; its status, or 0.
int RunScript(std::istream &in, Session &session, std::ostream &out, bool json, bool debug);

}  // namespace qvthost

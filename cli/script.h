// Scripts of calls: one call per line, in the words a shell would give.
#pragma once

#include <istream>
#include <ostream>

#include "call.h"
#include "outcome.h"

namespace qvthost {

// One line's outcome, as text or as one JSON object.
void Print(std::ostream &out, const LineOutcome &outcome, std::size_t line, bool json, bool debug);

// Runs every line in order and stops at the first that fails; its status, or 0.
int RunScript(std::istream &in, Session &session, std::ostream &out, bool json, bool debug);

}  // namespace qvthost

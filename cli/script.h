// Scripts of calls: one call per line, in the words a shell would give.
#pragma once

#include <istream>
#include <ostream>

#include "call.h"
#include "outcome.h"

namespace qvthost {

// One line's outcome: as one JSON object on `out`, or as text, on `err`
// when the line did not run for a usage error or a name not found.
void Print(std::ostream &out, std::ostream &err, const LineOutcome &outcome, std::size_t line,
           bool json, bool debug);

// Runs every line in order and stops at the first that fails; its status, or 0.
// A UTF-8 byte-order mark in front of the first line is skipped.
int RunScript(std::istream &in, Session &session, std::ostream &out, std::ostream &err, bool json,
              bool debug);

}  // namespace qvthost

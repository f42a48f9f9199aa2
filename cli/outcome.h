// What one call did, and how it is shown: as text for a person, as JSON for
// a program.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "format.h"

namespace qvthost {

// Exit statuses.
constexpr int kClean = 0;
constexpr int kNotFound = 1;  // the plug-in does not load or nothing matches
constexpr int kUsage = 2;
constexpr int kFaults = 3;  // host faults or unbalanced references

struct BlockReport {
    std::string label;                         // "self" or a parameter's name
    std::optional<std::string> before, after;  // nullopt for nil
};

struct Report {
    std::string declaration;
    std::optional<std::string> result;  // nullopt when the method returns nothing
    JsonValue resultJson;                // null when the method returns nothing
    std::optional<std::string> resultHex;  // "0xFF" beside an integer result
    std::vector<std::pair<std::string, std::optional<std::string>>> exceptions;  // class, message
    std::vector<BlockReport> blocks;
    std::vector<std::string> log;
    std::string imbalance;  // one line per difference; empty when balanced
    std::vector<std::string> faults;
};

struct LineOutcome {
    int status = kClean;
    std::string error;  // one line, when the call did not run
    std::optional<Report> report;
    std::string defined;  // "@a = ..." for a line that names a value
};

// The byte ranges shown of a block whose bytes went from `before` to
// `after`: all of a short block, the start and the changes of a long one.
std::vector<std::pair<std::size_t, std::size_t>> ShownRanges(const std::string &before,
                                                             const std::string &after);

// `line` 0 for a call given on the command line.
void PrintText(std::ostream &out, const LineOutcome &outcome, std::size_t line, bool debug);
std::string Json(const LineOutcome &outcome, std::size_t line, bool debug);
// load and demo as JSON: the status and the lines of text they print.
std::string ShownJson(int status, const std::string &command, const std::string &text);

}  // namespace qvthost

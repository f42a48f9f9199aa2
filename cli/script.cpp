#include "script.h"

#include "values.h"

namespace qvthost {

void Print(std::ostream &out, const LineOutcome &outcome, std::size_t line, bool json, bool debug) {
    if (json) {
        out << Json(outcome, line, debug);
    } else {
        PrintText(out, outcome, line, debug);
    }
    out.flush();
}

int RunScript(std::istream &in, Session &session, std::ostream &out, bool json, bool debug) {
    std::string text;
    std::size_t number = 0;
    bool first = true;
    int status = kClean;
    if (json) out << "[";
    while (status == kClean && std::getline(in, text)) {
        ++number;
        std::string error;
        auto words = SplitWords(text, error);
        if (words && words->empty()) continue;
        const LineOutcome outcome = words ? session.Run(*words) : LineOutcome{kUsage, error};
        out << (json ? (first ? "\n" : ",\n") : first ? "" : "\n");
        first = false;
        Print(out, outcome, number, json, debug);
        status = outcome.status;
    }
    if (json) out << (first ? "]\n" : "\n]\n");
    return status;
}

}  // namespace qvthost

#include "script.h"

#include "guard.h"
#include "values.h"

namespace qvthost {

void Print(std::ostream &out, std::ostream &err, const LineOutcome &outcome, std::size_t line,
           bool json, bool debug) {
    if (json) {
        out << Json(outcome, line, debug);
    } else {
        const bool failed = !outcome.error.empty() && outcome.status != kFaults;
        PrintText(failed ? err : out, outcome, line, debug);
    }
    out.flush();
}

int RunScript(std::istream &in, Session &session, std::ostream &out, std::ostream &err, bool json,
              bool debug) {
    std::string text;
    std::size_t number = 0, printed = 0;
    int status = kClean;
    if (json) out << "[";
    while (status == kClean && std::getline(in, text)) {
        if (++number == 1 && text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
        std::string error;
        auto words = SplitWords(text, error);
        if (words && words->empty()) continue;
        AtLine(number, printed, true);
        const LineOutcome outcome = words ? session.Run(*words) : LineOutcome{kUsage, error};
        const bool toOut = json || outcome.error.empty() || outcome.status == kFaults;
        if (printed != 0 && toOut) out << (json ? ",\n" : "\n");
        if (printed == 0 && json) out << "\n";
        printed += toOut ? 1 : 0;
        Print(out, err, outcome, number, json, debug);
        status = outcome.status;
    }
    if (status == kClean && in.bad()) {
        const LineOutcome outcome{kUsage, "the script could not be read past line " +
                                              std::to_string(number)};
        if (json) out << (printed != 0 ? ",\n" : "\n");
        Print(out, err, outcome, 0, json, debug);
        status = kUsage;
        printed += json ? 1 : 0;
    }
    if (json) out << (printed == 0 ? "]\n" : "\n]\n");
    AtLine(0, printed, false);
    return status;
}

}  // namespace qvthost

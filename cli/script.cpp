#include "script.h"

namespace qvthost {

std::optional<std::vector<std::string>> SplitWords(std::string_view line, std::string &error) {
    std::vector<std::string> words;
    std::size_t at = 0;
    while (at < line.size()) {
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t' || line[at] == '\r')) ++at;
        if (at == line.size() || line[at] == '#') break;
        std::string word;
        while (at < line.size() && line[at] != ' ' && line[at] != '\t' && line[at] != '\r') {
            const char c = line[at++];
            if (c != '\'' && c != '"') {
                word += c;
                continue;
            }
            const std::size_t open = at - 1;
            while (at < line.size() && line[at] != c) {
                if (c == '"' && line[at] == '\\' && at + 1 < line.size() &&
                    (line[at + 1] == '"' || line[at + 1] == '\\')) {
                    ++at;
                }
                word += line[at++];
            }
            if (at == line.size()) {
                error = std::string("the quote ") + c + " at column " + std::to_string(open + 1) +
                        " is not closed";
                return std::nullopt;
            }
            ++at;
        }
        words.push_back(std::move(word));
    }
    return words;
}

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

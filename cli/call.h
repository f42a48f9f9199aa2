// Calls in one loaded host, line after line, with the values a line names
// kept for the lines after it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "abi/plugin_abi.h"
#include "outcome.h"

namespace qvthost {

class Session {
public:
    Session() = default;
    // Gives back what the named values hold.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // One line's words: "@a = VALUE" names a value; otherwise
    // "[@r =] [--self VALUE] DECLARATION ARG...", where "@r =" keeps the
    // result, or the instance a constructor made.
    LineOutcome Run(const std::vector<std::string> &words);

private:
    // A block or instance with one reference of ours, or the text of a value.
    struct Named {
        REALobject object = nullptr;
        std::string text;
    };
    std::map<std::string, Named> names_;

    LineOutcome Call(const std::vector<std::string> &words, const std::string &keep);
    friend struct Preparation;
};

}  // namespace qvthost

// What a person can call: every method the load registered, the assigning
// forms, and the readable properties of registered classes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "abi/plugin_abi.h"

namespace qvthost {

struct Target {
    std::string declaration;  // without an "extends" parameter
    std::string registered;   // as the load gave it
    std::string receiver;     // class of the instance that comes first; empty for none
    REALproc function = nullptr;
    bool property = false;     // a getter, called with the instance and 0
    bool constructor = false;  // a class's Constructor: its instance is new
};

// The declaration written out in full (with or without an "extends"
// parameter), or a unique prefix of a name; when
// several share the name, those that take `arguments` arguments. Nullopt with
// a one-line `error` naming the closest or the matching declarations.
std::optional<Target> FindTarget(std::string_view text, std::size_t arguments, std::string &error);

}  // namespace qvthost

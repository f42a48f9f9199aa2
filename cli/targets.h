// What a person can call: every method the load registered, the assigning
// forms, and the readable properties of registered classes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "abi/plugin_abi.h"

namespace qvthost {

struct Target {
    std::string declaration;  // without an "extends" parameter
    std::string registered;   // as the load gave it
    std::string receiver;     // class of the instance that comes first; empty for none
    REALproc function = nullptr;
    bool property = false;     // a getter or setter, called with the instance (nil for a
                               // module's) and 0
    bool constructor = false;  // a class's Constructor: its instance is new
};

// The declaration written out in full (with or without an "extends"
// parameter), or a unique prefix of a name; when several share the name,
// the one that takes as many arguments as given, or else the one whose
// parameters take the kinds of values given (`true` a Boolean, `1` not).
// Nullopt with a one-line `error` naming the closest or the matching
// declarations, and the exit `status`: kUsage when no overload takes that
// many arguments, else kNotFound.
std::optional<Target> FindTarget(std::string_view text, const std::vector<std::string> &given,
                                 std::string &error, int &status);

}  // namespace qvthost

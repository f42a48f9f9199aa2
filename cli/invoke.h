// Calls a registered function whose C signature is known only at run time,
// from the classes of its arguments and of its result.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "abi/plugin_abi.h"

namespace qvthost {

// How an argument travels: a word (any integer up to the pointer's width,
// Boolean, pointers and handles, sign- or zero-extended), a 64-bit integer,
// or a floating-point number.
enum class Slot : uint8_t { Word, Long, Double, Single };
// How the result comes back; narrow integers by their width alone.
enum class Returns : uint8_t { Nothing, Bits8, Bits16, Bits32, Bits64, Word, Double, Single };

struct Argument {
    Slot slot = Slot::Word;
    uint64_t bits = 0;
    double real = 0;
};

struct Returned {
    uint64_t bits = 0;  // zero-extended from the result's width
    double real = 0;
};

// Nullopt, with `error` set, when this platform cannot make a call of that
// shape.
std::optional<Returned> Invoke(REALproc function, Returns returns,
                               std::span<const Argument> arguments, std::string &error);

}  // namespace qvthost

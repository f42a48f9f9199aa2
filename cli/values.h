// Declarations read as the host's language writes them, and what a person
// types: the words of a line and the values of parameters, checked against
// each type.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qvthost {

// The cap on a block or a size typed (zero:, file:, new:, the size given to
// Resize or Size): nothing a person types by hand needs more, and a typo must
// not exhaust memory.
constexpr uint64_t kLargestBlock = uint64_t{256} << 20;
// "268435456 bytes (256 MiB)".
std::string LargestBlockText();

enum class Kind { Integer, Real, Boolean, String, Ptr, Block };

struct Type {
    const char *name;  // as the language spells it, compared without case
    Kind kind;
    int bytes;  // integers: width; Real: 8 or 4
    bool isSigned;
};

// The type of this name (case-insensitive); nullptr when unknown.
const Type *FindType(std::string_view name);

struct Parameter {
    std::string name;
    const Type *type = nullptr;
    bool array = false;                   // "values() as UInt8"
    bool assigns = false;                 // the value of an assigning form
    std::optional<std::string> fallback;  // the text after "="
};

struct Signature {
    std::string name;
    std::vector<Parameter> parameters;
    const Type *result = nullptr;  // nullptr for none
    // Arguments a call needs at least: those before the first default.
    std::size_t Required() const;
};

// Nullopt with `error` set when the text is not a declaration whose types
// are all known. "extends" parameters are left out.
std::optional<Signature> ParseDeclaration(std::string_view text, std::string &error);

// A block's bytes as typed: hex:, text:, zero:N, file:PATH.
struct BlockBytes {
    std::string bytes;
};
// A place in a block: the self block or a named one, plus an offset; or
// bytes of its own, given the same way as a block's.
struct Place {
    std::string base;  // "self" or a name without "@"; empty for own bytes
    int64_t offset = 0;
    std::string bytes;
};
struct Text {
    std::string bytes;
    uint32_t encoding;
};
struct Nil {};

// What one argument parses to. Integers are held as their bit pattern,
// sign-extended to 64 bits for signed types.
using Value =
    std::variant<uint64_t, double, bool, Text, BlockBytes, Place, Nil, std::vector<uint64_t>>;

// The value of `text` for `type`; nullopt with a one-line reason in `error`.
// A file: block is read here.
std::optional<Value> ParseValue(const Parameter &parameter, std::string_view text,
                                std::string &error);

// "Int16" or "UInt8 array".
std::string TypeName(const Parameter &parameter);

// Words split at blanks; '...' keeps everything, "..." keeps all but \" and
// \\; a # that starts a word starts a comment. Nullopt with `error` set for
// an unclosed quote.
std::optional<std::vector<std::string>> SplitWords(std::string_view line, std::string &error);

}  // namespace qvthost

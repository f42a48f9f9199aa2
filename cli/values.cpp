#include "values.h"

#include <cctype>
#include <cerrno>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "abi/plugin_abi.h"

namespace qvthost {

namespace {

constexpr int kWord = static_cast<int>(sizeof(intptr_t));

constexpr Type kTypes[] = {
    {"Integer", Kind::Integer, kWord, true}, {"Int8", Kind::Integer, 1, true},
    {"Int16", Kind::Integer, 2, true},       {"Int32", Kind::Integer, 4, true},
    {"Int64", Kind::Integer, 8, true},       {"UInt8", Kind::Integer, 1, false},
    {"Byte", Kind::Integer, 1, false},       {"UInt16", Kind::Integer, 2, false},
    {"UInt32", Kind::Integer, 4, false},     {"UInt64", Kind::Integer, 8, false},
    {"Double", Kind::Real, 8, true},         {"Single", Kind::Real, 4, true},
    {"Boolean", Kind::Boolean, 1, false},    {"String", Kind::String, kWord, false},
    {"Ptr", Kind::Ptr, kWord, false},        {"MemoryBlock", Kind::Block, kWord, false},
};

bool SameText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

std::vector<std::string_view> Words(std::string_view text) {
    std::vector<std::string_view> words;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find_first_of(" \t", at);
        if (end == std::string_view::npos) end = text.size();
        if (end > at) words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

enum class Read { Number, NotNumber, TooLarge };

// "12", "-12", "0x1F": the magnitude and its sign.
Read ReadMagnitude(std::string_view text, uint64_t &magnitude, bool &negative) {
    negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) return Read::NotNumber;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (end != text.data() + text.size() || error == std::errc::invalid_argument) {
        return Read::NotNumber;
    }
    return error == std::errc::result_out_of_range ? Read::TooLarge : Read::Number;
}

bool ParseMagnitude(std::string_view text, uint64_t &magnitude, bool &negative) {
    return ReadMagnitude(text, magnitude, negative) == Read::Number;
}

std::string Range(const Type &type) {
    const int bits = 8 * type.bytes;
    if (!type.isSigned) {
        const uint64_t max = bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
        return "0 to " + std::to_string(max);
    }
    const uint64_t max = (uint64_t{1} << (bits - 1)) - 1;
    return "-" + std::to_string(max + 1) + " to " + std::to_string(max);
}

std::optional<uint64_t> ParseInteger(const Type &type, std::string_view text, std::string &error) {
    uint64_t magnitude = 0;
    bool negative = false;
    const Read read = ReadMagnitude(text, magnitude, negative);
    if (read == Read::NotNumber) {
        error = "'" + std::string(text) + "' is not a whole number (decimal or 0x hex)";
        return std::nullopt;
    }
    const int bits = 8 * type.bytes;
    const uint64_t top = type.isSigned ? uint64_t{1} << (bits - 1)
                         : bits == 64  ? ~uint64_t{0}
                                       : (uint64_t{1} << bits) - 1;
    // -0 is 0, for unsigned types too.
    const bool fits =
        read == Read::Number && (negative ? magnitude == 0 || (type.isSigned && magnitude <= top)
                                          : magnitude <= (type.isSigned ? top - 1 : top));
    if (!fits) {
        error = std::string(text) + " does not fit " + type.name + " (" + Range(type) + ")";
        return std::nullopt;
    }
    return negative ? ~magnitude + 1 : magnitude;
}

std::optional<double> ParseReal(const Type &type, std::string_view text, std::string &error) {
    const std::string copy(text);
    // strtod would step over leading blanks.
    const bool blank = copy.empty() || std::isspace(static_cast<unsigned char>(copy.front()));
    char *end = nullptr;
    errno = 0;
    const double value = blank ? 0 : std::strtod(copy.c_str(), &end);
    if (blank || *end != '\0') {
        error = "'" + copy + "' is not a number";
        return std::nullopt;
    }
    const bool overflow = errno == ERANGE && std::isinf(value);
    if (overflow || (type.bytes == 4 && std::isfinite(value) && std::fabs(value) > FLT_MAX)) {
        error = copy + " does not fit " + type.name;
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> ParseHex(std::string_view digits, std::string &error) {
    std::string bytes;
    int high = -1;
    for (char c : digits) {
        if (c == ' ' || c == '_') continue;
        int nibble = c >= '0' && c <= '9'   ? c - '0'
                     : c >= 'a' && c <= 'f' ? c - 'a' + 10
                     : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                            : -1;
        if (nibble < 0) {
            error = std::string("'") + c + "' is not a hex digit";
            return std::nullopt;
        }
        if (high < 0) {
            high = nibble;
        } else {
            bytes += static_cast<char>(high * 16 + nibble);
            high = -1;
        }
    }
    if (high >= 0) {
        error = "hex: needs two digits per byte";
        return std::nullopt;
    }
    return bytes;
}

std::optional<std::string> ReadFile(const std::string &path, std::string &error) {
    std::error_code code;
    const auto status = std::filesystem::status(path, code);
    const std::string named = "cannot read file:" + path + ": ";
    if (code) {
        error = named + code.message();
        return std::nullopt;
    }
    // Devices and pipes may never end.
    if (status.type() != std::filesystem::file_type::regular) {
        error = named + "not a regular file";
        return std::nullopt;
    }
    const auto size = std::filesystem::file_size(path, code);
    if (!code && size > kLargestBlock) {
        error = "file:" + path + " is over the cap of " + LargestBlockText();
        return std::nullopt;
    }
    std::FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        error = named + std::strerror(errno);
        return std::nullopt;
    }
    std::string bytes;
    char chunk[65536];
    std::size_t got = 0;
    while (bytes.size() <= kLargestBlock && (got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        bytes.append(chunk, got);
    }
    const bool failed = std::ferror(file) != 0;
    const int number = errno;
    std::fclose(file);
    if (!failed && bytes.size() <= kLargestBlock) return bytes;
    error = failed ? named + std::strerror(number)
                   : "file:" + path + " is over the cap of " + LargestBlockText();
    return std::nullopt;
}

// hex:, text:, zero:N or file:PATH; nullopt without an error when it is none of these.
std::optional<std::string> ParseBytes(std::string_view text, std::string &error) {
    if (text.starts_with("hex:")) return ParseHex(text.substr(4), error);
    if (text.starts_with("text:")) return std::string(text.substr(5));
    if (text.starts_with("zero:")) {
        uint64_t size = 0;
        bool negative = false;
        if (!ParseMagnitude(text.substr(5), size, negative) || negative) {
            error = "zero:N needs a byte count, not '" + std::string(text.substr(5)) + "'";
            return std::nullopt;
        }
        if (size > kLargestBlock) {
            error = "zero:" + std::to_string(size) + " is over the cap of " + LargestBlockText();
            return std::nullopt;
        }
        return std::string(size, '\0');
    }
    if (text.starts_with("file:")) return ReadFile(std::string(text.substr(5)), error);
    return std::nullopt;
}

std::optional<Value> ParseString(std::string_view text, std::string &error) {
    uint32_t encoding = hostabi::kEncodingUTF8;
    const std::size_t at = text.rfind("@enc=");
    if (at != std::string_view::npos) {
        uint64_t id = 0;
        bool negative = false;
        if (!ParseMagnitude(text.substr(at + 5), id, negative) || negative || id > UINT32_MAX) {
            error = "@enc= needs an encoding id, not '" + std::string(text.substr(at + 5)) + "'";
            return std::nullopt;
        }
        encoding = static_cast<uint32_t>(id);
        text = text.substr(0, at);
    }
    if (!text.starts_with("hex:") && !text.starts_with("text:")) {
        error = "a String is text:..., hex:... or nil";
        return std::nullopt;
    }
    auto bytes = ParseBytes(text, error);
    if (!bytes) return std::nullopt;
    return Text{std::move(*bytes), encoding};
}

std::optional<Value> ParsePlace(std::string_view text, std::string &error) {
    if (!text.starts_with("ptr:@")) {
        error.clear();
        auto bytes = ParseBytes(text, error);
        if (bytes) return Place{{}, 0, std::move(*bytes)};
        if (error.empty()) error = "a Ptr is ptr:@self+N, ptr:@name+N, a block's bytes or nil";
        return std::nullopt;
    }
    text.remove_prefix(5);
    const std::size_t sign = text.find_first_of("+-");
    Place place{std::string(text.substr(0, sign)), 0, {}};
    if (place.base.empty()) {
        error = "ptr:@ needs a block's name";
        return std::nullopt;
    }
    if (sign != std::string_view::npos) {
        uint64_t offset = 0;
        bool negative = false;
        if (!ParseMagnitude(text.substr(sign + 1), offset, negative) || negative ||
            offset > uint64_t{INT64_MAX}) {
            error = "'" + std::string(text.substr(sign + 1)) + "' is not an offset";
            return std::nullopt;
        }
        place.offset =
            text[sign] == '-' ? -static_cast<int64_t>(offset) : static_cast<int64_t>(offset);
    }
    return place;
}

std::optional<Value> ParseArray(const Type &element, std::string_view text, std::string &error) {
    if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
    std::vector<uint64_t> values;
    if (Trim(text).empty()) return values;
    std::size_t at = 0;
    while (at <= text.size()) {
        std::size_t end = text.find(',', at);
        if (end == std::string_view::npos) end = text.size();
        auto value = ParseInteger(element, Trim(text.substr(at, end - at)), error);
        if (!value) return std::nullopt;
        values.push_back(*value);
        at = end + 1;
    }
    return values;
}

}  // namespace

std::string LargestBlockText() {
    return std::to_string(kLargestBlock) + " bytes (" + std::to_string(kLargestBlock >> 20) +
           " MiB)";
}

const Type *FindType(std::string_view name) {
    for (const Type &type : kTypes) {
        if (SameText(type.name, name)) return &type;
    }
    return nullptr;
}

std::size_t Signature::Required() const {
    std::size_t count = 0;
    while (count < parameters.size() && !parameters[count].fallback) ++count;
    return count;
}

std::optional<Signature> ParseDeclaration(std::string_view text, std::string &error) {
    text = Trim(text);
    Signature signature;
    const std::size_t nameEnd = text.find_first_of("( \t");
    signature.name = std::string(text.substr(0, nameEnd));
    if (signature.name.empty()) {
        error = "a declaration starts with a name";
        return std::nullopt;
    }
    std::string_view rest = nameEnd == std::string_view::npos ? "" : Trim(text.substr(nameEnd));
    if (rest.starts_with('(')) {
        // "values()" has the only parentheses inside a parameter list.
        std::size_t close = 1, depth = 1;
        for (; close < rest.size() && depth > 0; ++close)
            depth += rest[close] == '(' ? 1 : rest[close] == ')' ? -1 : 0;
        if (depth != 0) {
            error = "the parameter list has no closing parenthesis";
            return std::nullopt;
        }
        std::string_view list = rest.substr(1, close - 2);
        rest = Trim(rest.substr(close));
        for (std::size_t at = 0; !Trim(list).empty() && at <= list.size();) {
            std::size_t end = list.find(',', at);
            if (end == std::string_view::npos) end = list.size();
            std::string_view item = list.substr(at, end - at);
            at = end + 1;
            Parameter parameter;
            const std::size_t equals = item.find('=');
            if (equals != std::string_view::npos) {
                parameter.fallback = std::string(Trim(item.substr(equals + 1)));
                item = item.substr(0, equals);
            }
            auto words = Words(item);
            bool extends = false;
            if (!words.empty() && (SameText(words[0], "extends") || SameText(words[0], "assigns") ||
                                   SameText(words[0], "byval") || SameText(words[0], "byref"))) {
                extends = SameText(words[0], "extends");
                parameter.assigns = SameText(words[0], "assigns");
                words.erase(words.begin());
            }
            if (words.size() != 3 || !SameText(words[1], "as")) {
                error = "'" + std::string(Trim(item)) + "' is not 'name as Type'";
                return std::nullopt;
            }
            parameter.name = std::string(words[0]);
            if (parameter.name.ends_with("()")) {
                parameter.array = true;
                parameter.name.resize(parameter.name.size() - 2);
            }
            parameter.type = FindType(words[2]);
            if (parameter.type == nullptr ||
                (parameter.array && parameter.type->kind != Kind::Integer)) {
                error = "parameter " + parameter.name +
                        " has a type this host cannot pass: " + std::string(words[2]) +
                        (parameter.array ? "()" : "");
                return std::nullopt;
            }
            if (!extends) signature.parameters.push_back(std::move(parameter));
        }
    }
    if (!rest.empty()) {
        auto words = Words(rest);
        if (words.size() != 2 || !SameText(words[0], "as")) {
            error = "'" + std::string(rest) + "' is not 'as Type'";
            return std::nullopt;
        }
        signature.result = FindType(words[1]);
        if (signature.result == nullptr) {
            error = "the result has a type this host cannot read: " + std::string(words[1]);
            return std::nullopt;
        }
    }
    return signature;
}

std::optional<Value> ParseValue(const Parameter &parameter, std::string_view text,
                                std::string &error) {
    const Type &type = *parameter.type;
    const bool nilable = parameter.array || type.kind == Kind::String || type.kind == Kind::Ptr ||
                         type.kind == Kind::Block;
    if (nilable && text == "nil") return Nil{};
    if (parameter.array) return ParseArray(type, text, error);
    switch (type.kind) {
    case Kind::Integer:
        return ParseInteger(type, text, error);
    case Kind::Real:
        return ParseReal(type, text, error);
    case Kind::Boolean:
        if (SameText(text, "true")) return true;
        if (SameText(text, "false")) return false;
        error = "a Boolean is true or false, not '" + std::string(text) + "'";
        return std::nullopt;
    case Kind::String:
        return ParseString(text, error);
    case Kind::Ptr:
        return ParsePlace(text, error);
    case Kind::Block:
        break;
    }
    error.clear();
    if (auto bytes = ParseBytes(text, error)) return BlockBytes{std::move(*bytes)};
    if (error.empty()) error = "a MemoryBlock is hex:..., text:..., zero:N, file:PATH or nil";
    return std::nullopt;
}

std::string TypeName(const Parameter &parameter) {
    return std::string(parameter.type->name) + (parameter.array ? " array" : "");
}

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

}  // namespace qvthost

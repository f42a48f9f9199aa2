#include "call.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>
#include <utility>

#include "format.h"
#include "guard.h"
#include "invoke.h"
#include "simhost/simhost.h"
#include "targets.h"
#include "values.h"

namespace qvthost {

namespace {

bool IsName(std::string_view text) {
    if (text.empty()) return false;
    for (char c : text) {
        const bool word =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        if (!word) return false;
    }
    return true;
}

// What "@a = WORD" names, rather than a call's declaration.
bool IsLiteral(std::string_view word) {
    return word.find(':') != std::string_view::npos || word == "nil" || word == "true" ||
           word == "false" || word.starts_with('@') || word.find_first_of("0123456789-+.") == 0;
}

Parameter BlockParameter(std::string label) {
    return {std::move(label), FindType("MemoryBlock"), false, false, std::nullopt};
}

std::span<const uint8_t> View(const std::string &bytes) {
    return {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()};
}

std::string BytesOf(REALobject block) {
    auto bytes = simhost::Bytes(block);
    return std::string(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

std::string ClassOf(REALobject instance) {
    const std::string name = simhost::Name(instance);
    return name.substr(0, name.find('#'));
}

bool IsBlock(REALobject object) {
    return ClassOf(object) == "MemoryBlock";
}

template <typename T>
T Get(const std::optional<simhost::PropertyRef> &property, REALobject instance) {
    return reinterpret_cast<T (*)(REALobject, intptr_t)>(property->getter)(instance, 0);
}

// The bytes an instance of a registered class holds, read through its Size
// and Address; nullopt when the class has no such properties.
std::optional<std::string> Holdings(REALobject instance) {
    auto size = simhost::FindProperty("Size", ClassOf(instance));
    auto address = simhost::FindProperty("Address", ClassOf(instance));
    if (!size || !address || size->getter == nullptr || address->getter == nullptr) {
        return std::nullopt;
    }
    const auto count = Get<int64_t>(size, instance);
    const auto at = Get<int64_t>(address, instance);
    if (count <= 0 || at == 0) return std::string();
    return std::string(reinterpret_cast<const char *>(static_cast<intptr_t>(at)),
                       static_cast<std::size_t>(count));
}

// Constructs an instance as Constructor(Size as Int64) with the size typed.
bool Construct(REALobject instance, std::string_view size, std::string &error) {
    int64_t bytes = 0;
    auto [end, failed] = std::from_chars(size.data(), size.data() + size.size(), bytes);
    auto constructor = simhost::FindMethod("Constructor(Size as Int64)", ClassOf(instance));
    if (failed != std::errc{} || end != size.data() + size.size() || bytes < 0 || !constructor) {
        error = "new:N needs a size and a Constructor(Size as Int64)";
        return false;
    }
    if (static_cast<uint64_t>(bytes) > kLargestBlock) {
        error = "new:" + std::string(size) + " is over the cap of " + LargestBlockText();
        return false;
    }
    reinterpret_cast<void (*)(REALobject, int64_t)>(constructor->function)(instance, bytes);
    return true;
}

// The block an instance keeps a reference to, read through its Memory; nil
// when it keeps none.
REALobject Held(REALobject instance) {
    auto memory = simhost::FindProperty("Memory", ClassOf(instance));
    if (!memory || memory->getter == nullptr) return nullptr;
    REALobject block = Get<REALobject>(memory, instance);
    simhost::Release(block);
    return simhost::RefCount(block) > 0 ? block : nullptr;
}

// References an instance holds move with it: the block it let go of loses
// the instance's reference, the one it took gains one.
std::string Balance(simhost::Snapshot before, REALobject result, REALstring string,
                    REALobject heldBefore, REALobject heldAfter) {
    if (heldBefore != heldAfter && heldBefore != nullptr) {
        const std::string name = simhost::Name(heldBefore);
        const uint64_t serial = std::strtoull(name.c_str() + name.find('#') + 1, nullptr, 10);
        for (auto &[s, references] : before.objects) references -= s == serial ? 1 : 0;
    }
    return simhost::CompareSnapshot(before, {result, heldBefore != heldAfter ? heldAfter : nullptr},
                                    {string});
}

Slot SlotOf(const Type &type) {
    if (type.kind == Kind::Real) return type.bytes == 4 ? Slot::Single : Slot::Double;
    return type.kind == Kind::Integer && type.bytes == 8 ? Slot::Long : Slot::Word;
}

Returns ReturnsOf(const Type *type) {
    if (type == nullptr) return Returns::Nothing;
    if (type->kind == Kind::Real) return type->bytes == 4 ? Returns::Single : Returns::Double;
    if (type->kind != Kind::Integer && type->kind != Kind::Boolean) return Returns::Word;
    switch (type->bytes) {
    case 1:
        return Returns::Bits8;
    case 2:
        return Returns::Bits16;
    case 4:
        return Returns::Bits32;
    default:
        return Returns::Bits64;
    }
}

// The element kinds of the host's arrays, by the language's type.
simhost::ArrayType ArrayTypeOf(const Type &type) {
    constexpr std::pair<const char *, simhost::ArrayType> kKinds[] = {
        {"Int8", simhost::kArrayInt8},     {"UInt8", simhost::kArrayUInt8},
        {"Byte", simhost::kArrayUInt8},    {"Int16", simhost::kArrayInt16},
        {"UInt16", simhost::kArrayUInt16}, {"Int32", simhost::kArrayInt32},
        {"UInt32", simhost::kArrayUInt32}, {"Int64", simhost::kArrayInt64},
        {"UInt64", simhost::kArrayUInt64}, {"Integer", simhost::kArrayInteger},
    };
    for (const auto &[name, kind] : kKinds) {
        if (std::string_view(name) == type.name) return kind;
    }
    return simhost::kArrayInteger;
}

template <typename T>
std::string Shortest(T value) {
    char text[64];
    auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

}  // namespace

// Everything made for one call, given back when the call is done.
struct Preparation {
    std::map<std::string, Session::Named> &names;
    std::vector<Argument> arguments;
    struct Shown {
        std::string label;
        REALobject object;
        bool instance;
        std::optional<std::string> before;
    };
    std::vector<Shown> shown;
    std::vector<REALobject> objects;
    std::vector<REALstring> strings;
    std::vector<REALarray> arrays;
    std::string error;
    int status = kUsage;  // of the error

    ~Preparation() {
        for (REALobject o : objects) simhost::Release(o);
        for (REALstring s : strings) simhost::Release(s);
        for (REALarray a : arrays) simhost::Release(a);
    }

    Session::Named *Find(const std::string &word) {
        auto at = names.find(word.substr(1));
        if (at == names.end()) error = "no value named " + word;
        return at == names.end() ? nullptr : &at->second;
    }

    // A block given by its bytes, by nil or by a name; a named one made
    // once and kept, so that what a call changes the next line sees.
    std::optional<REALobject> Block(const Parameter &parameter, const std::string &text) {
        Session::Named *named = nullptr;
        if (text.starts_with('@')) {
            named = Find(text);
            if (named == nullptr) return std::nullopt;
            if (named->object != nullptr && !IsBlock(named->object)) {
                error = text + " holds " + simhost::Name(named->object) + ", not a MemoryBlock";
                return std::nullopt;
            }
            if (named->object != nullptr) return named->object;
        }
        auto value = ParseValue(parameter, named ? named->text : text, error);
        if (!value) return std::nullopt;
        if (std::holds_alternative<Nil>(*value)) return nullptr;
        REALobject block = NewBlock(std::get<qvthost::BlockBytes>(*value).bytes);
        if (block != nullptr) (named ? named->object : objects.emplace_back()) = block;
        return block != nullptr ? std::optional(block) : std::nullopt;
    }

    // A block of the host's with these bytes; nil, with the error, when the
    // host has no memory for it.
    REALobject NewBlock(const std::string &bytes) {
        REALobject block = simhost::NewBlock(View(bytes));
        if (block == nullptr) {
            status = kFaults;
            error = "out of memory: the host could not allocate a block of " +
                    Counted(bytes.size(), "byte");
        }
        return block;
    }

    void Show(const std::string &label, REALobject object, bool instance) {
        shown.push_back({label, object, instance,
                         instance ? Holdings(object)
                         : object ? std::optional(BytesOf(object))
                                  : std::nullopt});
    }

    // What the target works on: nothing for a global function, a block, or
    // an instance: a named one, or a new one, constructed for new:N.
    std::optional<REALobject> Receiver(const Target &target, const std::optional<std::string> &text,
                                       bool &fresh) {
        const std::string &declaration = target.declaration;
        if (target.receiver.empty()) {
            if (text) error = declaration + " is a global function: no --self";
            return text ? std::nullopt : std::optional<REALobject>(nullptr);
        }
        if (target.receiver == "MemoryBlock") {
            std::optional<REALobject> block;
            if (!text) error = declaration + " needs --self, a MemoryBlock";
            if (text && !(block = Block(BlockParameter("self"), *text))) error = "--self: " + error;
            if (block) Show("self", *block, false);
            return block;
        }
        REALobject self = nullptr;
        if (text && text->starts_with('@')) {
            Session::Named *named = Find(*text);
            if (named == nullptr) {
                error = "--self: " + error;
                return std::nullopt;
            }
            self = named->object;
        } else if (target.constructor || (text && (*text == "new" || text->starts_with("new:")))) {
            self = objects.emplace_back(simhost::NewInstance(target.receiver));
            fresh = true;
            if (text && text->starts_with("new:") && !Construct(self, text->substr(4), error)) {
                error = "--self: " + error;
                return std::nullopt;
            }
        }
        if (self == nullptr || ClassOf(self) != target.receiver) {
            error = declaration + " needs --self, an instance of " + target.receiver +
                    ": new, new:N or @name";
            return std::nullopt;
        }
        Show("self", self, true);
        return self;
    }

    bool Place(const Parameter &parameter, const qvthost::Place &place, REALobject self) {
        REALobject base = nullptr;
        if (place.base.empty()) {
            const std::string &bytes = place.bytes;
            base = NewBlock(bytes);
            if (base == nullptr) return false;
            objects.push_back(base);
            Show(parameter.name, base, false);
        } else if (place.base == "self") {
            base = self;
        } else {
            auto block = Block(BlockParameter(place.base), "@" + place.base);
            if (!block) return false;
            base = *block;
        }
        const bool block = base != nullptr && IsBlock(base);
        const auto size = block ? static_cast<int64_t>(simhost::Bytes(base).size()) : 0;
        if (!block || place.offset < 0 || place.offset > size) {
            error =
                "ptr:@" + place.base + (place.offset < 0 ? "" : "+") +
                std::to_string(place.offset) + " lies outside " +
                (block ? "its " + Counted(static_cast<std::size_t>(size), "byte") : "any block");
            return false;
        }
        arguments.push_back({Slot::Word, reinterpret_cast<uintptr_t>(simhost::Bytes(base).data()) +
                                             static_cast<uint64_t>(place.offset)});
        return true;
    }

    bool Add(const Parameter &parameter, const std::string &text, REALobject self, bool size) {
        const Type &type = *parameter.type;
        if (type.kind == Kind::Block && !parameter.array) {
            auto block = Block(parameter, text);
            if (!block) return false;
            arguments.push_back({Slot::Word, reinterpret_cast<uintptr_t>(*block)});
            Show(parameter.name, *block, false);
            return true;
        }
        std::string source = text;
        if (text.starts_with('@')) {
            Session::Named *named = Find(text);
            if (named == nullptr) return false;
            if (named->object != nullptr) {
                error = text + " holds " + simhost::Name(named->object) + ", not a value";
                return false;
            }
            source = named->text;
        }
        auto value = ParseValue(parameter, source, error);
        if (!value) return false;
        if (auto *place = std::get_if<qvthost::Place>(&*value))
            return Place(parameter, *place, self);
        Argument argument{SlotOf(type)};
        if (auto *bits = std::get_if<uint64_t>(&*value)) argument.bits = *bits;
        if (size && static_cast<int64_t>(argument.bits) > static_cast<int64_t>(kLargestBlock)) {
            error = source + " is over the cap of " + LargestBlockText();
            return false;
        }
        if (auto *truth = std::get_if<bool>(&*value)) argument.bits = *truth ? 1 : 0;
        if (auto *real = std::get_if<double>(&*value)) argument.real = *real;
        if (auto *string = std::get_if<Text>(&*value)) {
            argument.bits = reinterpret_cast<uintptr_t>(
                strings.emplace_back(simhost::NewString(string->bytes, string->encoding)));
        }
        if (auto *values = std::get_if<std::vector<uint64_t>>(&*value)) {
            std::vector<int64_t> elements(values->begin(), values->end());
            argument.bits = reinterpret_cast<uintptr_t>(
                arrays.emplace_back(simhost::NewArray(ArrayTypeOf(type), elements)));
        }
        arguments.push_back(argument);
        return true;
    }
};

// A byte count the call makes the host allocate: a parameter named Size, or
// the value given to a Size property.
bool IsSize(const Signature &signature, const Parameter &parameter) {
    auto lower = [](std::string text) {
        for (char &c : text) c = c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
        return text;
    };
    return parameter.type->kind == Kind::Integer &&
           (lower(parameter.name) == "size" || (parameter.assigns && lower(signature.name) == "size"));
}

// The blocks of the call, and every block of the host, for a fault's report.
void Watch(const std::vector<Preparation::Shown> &shown) {
    for (const auto &block : shown) {
        if (block.instance || block.object == nullptr) continue;
        auto bytes = simhost::Bytes(block.object);
        Watch(block.label, bytes.data(), bytes.size());
    }
    WatchHostBlocks();
}

// An address as a place in a block of the call, when it is in one.
std::string PlaceOf(uint64_t address, const std::vector<Preparation::Shown> &blocks) {
    if (address == 0) return "nil";
    for (const auto &block : blocks) {
        if (block.instance || block.object == nullptr) continue;
        auto bytes = simhost::Bytes(block.object);
        const auto start = reinterpret_cast<uintptr_t>(bytes.data());
        if (start != 0 && address >= start && address <= start + bytes.size()) {
            return block.label + "+" + std::to_string(address - start);
        }
    }
    char text[32];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(address));
    return text;
}

// The result as shown, into the report; returns the text a name keeps of it.
std::string Describe(const Type *type, const Returned &returned,
                     const std::vector<Preparation::Shown> &blocks, Report &report) {
    if (type == nullptr) return "nil";
    const uint64_t bits = returned.bits;
    std::string shown, kept;
    JsonValue json;
    switch (type->kind) {
    case Kind::Integer: {
        const int shift = 64 - 8 * type->bytes;
        const uint64_t masked = shift == 0 ? bits : bits & ((uint64_t{1} << (64 - shift)) - 1);
        const auto value = static_cast<int64_t>(bits << shift) >> shift;
        shown = type->isSigned ? std::to_string(value) : std::to_string(masked);
        json = type->isSigned ? JsonValue(value) : JsonValue(masked);
        kept = shown;
        char hex[24];
        std::snprintf(hex, sizeof hex, "0x%llX", static_cast<unsigned long long>(masked));
        report.resultHex = hex;
        break;
    }
    case Kind::Boolean:
        kept = shown = (bits & 0xFF) != 0 ? "true" : "false";
        json = (bits & 0xFF) != 0;
        break;
    case Kind::Real:
        kept = shown = type->bytes == 4 ? Shortest(static_cast<float>(returned.real))
                                        : Shortest(returned.real);
        // inf and nan have no JSON number.
        json = std::isfinite(returned.real) ? JsonValue(std::strtod(shown.c_str(), nullptr))
                                            : JsonValue(shown);
        break;
    case Kind::Ptr:
        shown = PlaceOf(bits, blocks);
        json = shown;
        kept = std::to_string(bits);
        break;
    case Kind::String:
        if (auto string = reinterpret_cast<REALstring>(bits)) {
            const std::string bytes = simhost::StringBytes(string);
            const uint32_t encoding = simhost::StringEncoding(string);
            char id[16];
            std::snprintf(id, sizeof id, "0x%X", encoding);
            shown = "String of " + Counted(bytes.size(), "byte") + ": " + Hex(View(bytes)) +
                    ", encoding " + id;
            json = {{"hex", HexDigits(bytes)}, {"encoding", encoding}};
            kept = "hex:" + HexDigits(bytes) + "@enc=" + std::to_string(encoding);
            simhost::Release(string);
        }
        break;
    case Kind::Block:
        if (auto object = reinterpret_cast<REALobject>(bits)) {
            const std::string bytes = BytesOf(object);
            shown = "MemoryBlock of " + Counted(bytes.size(), "byte") + ": " + Hex(View(bytes));
            json = {{"hex", HexDigits(bytes)}};
        }
        break;
    }
    if (shown.empty()) {
        kept = shown = "nil";
        json = nullptr;
    }
    report.result = shown;
    report.resultJson = json;
    return kept;
}

Session::~Session() {
    for (auto &[name, named] : names_) simhost::Release(named.object);
}

LineOutcome Session::Run(const std::vector<std::string> &words) {
    if (words.size() >= 2 && words[0].starts_with('@') && words[1] == "=") {
        const std::string name = words[0].substr(1);
        if (!IsName(name)) return {kUsage, "'" + words[0] + "' is not a name (letters, digits, _)"};
        if (words.size() == 3 && IsLiteral(words[2])) {
            Named value{nullptr, words[2]};
            if (words[2].starts_with('@')) {
                auto at = names_.find(words[2].substr(1));
                if (at == names_.end()) return {kUsage, "no value named " + words[2]};
                if (at->second.object != nullptr) {
                    return {kUsage, words[2] + " holds " + simhost::Name(at->second.object) +
                                        ", which has one name only"};
                }
                value.text = at->second.text;
            }
            simhost::Release(names_[name].object);
            names_[name] = value;
            return {kClean, {}, std::nullopt, "@" + name + " = " + value.text};
        }
        return Call({words.begin() + 2, words.end()}, name);
    }
    return Call(words, {});
}

LineOutcome Session::Call(const std::vector<std::string> &words, const std::string &keep) {
    std::size_t at = 0;
    std::optional<std::string> selfText;
    while (at < words.size() && words[at] == "--self") {
        if (selfText) return {kUsage, "--self is given twice"};
        if (at + 1 >= words.size()) return {kUsage, "--self needs a value"};
        selfText = words[at + 1];
        at += 2;
    }
    if (at >= words.size()) return {kUsage, "a call needs a declaration"};
    const std::string &text = words[at++];
    const std::vector<std::string> given(words.begin() + static_cast<std::ptrdiff_t>(at),
                                         words.end());

    std::string error;
    int status = kNotFound;
    auto target = FindTarget(text, given, error, status);
    if (!target) return {status, error};
    auto signature = ParseDeclaration(target->declaration, error);
    if (!signature) return {kUsage, target->declaration + ": " + error};
    const auto &parameters = signature->parameters;
    if (given.size() < signature->Required() || given.size() > parameters.size()) {
        const std::size_t low = signature->Required(), high = parameters.size();
        return {kUsage, target->declaration + " takes " +
                            (low == high ? std::to_string(low)
                                         : std::to_string(low) + " to " + std::to_string(high)) +
                            " arguments, " + std::to_string(given.size()) + " given"};
    }

    const std::size_t faultsBefore = simhost::Faults().size();
    Report report;
    {
        Preparation prepared{names_};
        bool fresh = false;  // an instance of ours that ends with the call unless kept
        auto receiver = prepared.Receiver(*target, selfText, fresh);
        if (!receiver) return {prepared.status, prepared.error};
        REALobject self = *receiver;
        // A module's property is read and set with a nil instance.
        if (!target->receiver.empty() || target->property) {
            prepared.arguments.push_back({Slot::Word, reinterpret_cast<uintptr_t>(self)});
        }
        if (target->property) prepared.arguments.push_back({Slot::Word, 0});
        for (std::size_t i = 0; i < parameters.size(); ++i) {
            const bool typed = i < given.size();
            const bool size = IsSize(*signature, parameters[i]);
            if (!prepared.Add(parameters[i], typed ? given[i] : *parameters[i].fallback, self,
                              size)) {
                return {prepared.status, "argument " + parameters[i].name + " (" +
                                             TypeName(parameters[i]) +
                                             (typed ? "" : " = " + *parameters[i].fallback) +
                                             "): " + prepared.error};
            }
        }

        // The call itself: logged, balanced and checked for faults on its own.
        const bool instance = !target->receiver.empty() && target->receiver != "MemoryBlock";
        REALobject heldBefore = instance ? Held(self) : nullptr;
        simhost::TakeExceptions();
        simhost::ClearCalls();
        const simhost::Snapshot snapshot = simhost::TakeSnapshot();
        simhost::TakeMemoryShortfalls();
        Watch(prepared.shown);
        auto returned =
            Invoke(target->function, ReturnsOf(signature->result), prepared.arguments, error);
        Unwatch();
        if (!returned) return {kUsage, target->declaration + ": " + error};
        report.declaration = target->declaration;
        for (const auto &call : simhost::Calls())
            report.log.push_back(call.entry + " " + call.args);
        for (auto &e : simhost::TakeExceptions())
            report.exceptions.emplace_back(e.className, e.message);

        const Type *type = signature->result;
        const bool isBlock = type != nullptr && type->kind == Kind::Block;
        const bool isString = type != nullptr && type->kind == Kind::String;
        const auto object = isBlock ? reinterpret_cast<REALobject>(returned->bits) : nullptr;
        const auto string = isString ? reinterpret_cast<REALstring>(returned->bits) : nullptr;
        report.imbalance =
            Balance(snapshot, object, string, heldBefore, instance ? Held(self) : nullptr);

        for (auto &shown : prepared.shown) {
            report.blocks.push_back({shown.label, shown.before,
                                     shown.instance ? Holdings(shown.object)
                                     : shown.object ? std::optional(BytesOf(shown.object))
                                                    : std::nullopt});
        }

        const std::string kept = Describe(type, *returned, prepared.shown, report);

        if (keep.empty()) {
            simhost::Release(object);
        } else if (!target->constructor || fresh) {
            // The name takes over our reference.
            REALobject held = target->constructor ? self : object;
            std::erase(prepared.objects, held);
            simhost::Release(names_[keep].object);
            names_[keep] = {held, held != nullptr ? std::string() : kept};
        }
    }
    const auto faults = simhost::Faults();
    report.faults.assign(faults.begin() + static_cast<std::ptrdiff_t>(faultsBefore), faults.end());
    for (const auto &shortfall : simhost::TakeMemoryShortfalls()) {
        report.faults.push_back("out of memory: " + shortfall.entry + " could not have " +
                                Counted(static_cast<std::size_t>(shortfall.size), "byte"));
    }
    status = report.imbalance.empty() && report.faults.empty() ? kClean : kFaults;
    return {status, {}, std::move(report)};
}

}  // namespace qvthost

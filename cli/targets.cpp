#include "targets.h"

#include <algorithm>
#include <vector>

#include "names.h"
#include "outcome.h"
#include "simhost/simhost.h"
#include "values.h"

namespace qvthost {

namespace {

// "Name(args) as T" read through its assigning form "Name(args, assigns value as T)".
std::string Assigning(const std::string &reading) {
    const std::size_t close = reading.rfind(')');
    const std::size_t as = reading.find(" as ", close);
    if (close == std::string::npos || as == std::string::npos) return {};
    const bool empty = reading[close - 1] == '(';
    return reading.substr(0, close) + (empty ? "" : ", ") + "assigns value" + reading.substr(as) +
           ")";
}

std::vector<Target> Targets() {
    std::vector<Target> targets;
    auto add = [&targets](Target target) {
        for (const Target &t : targets) {
            if (t.declaration == target.declaration && t.receiver == target.receiver) return;
        }
        targets.push_back(std::move(target));
    };
    for (const auto &method : simhost::RegisteredMethods()) {
        if (method.function == nullptr) continue;
        const std::string plain = simhost::PlainDeclaration(method.declaration);
        const bool constructor = NameOf(plain) == "Constructor" && !method.receiverClass.empty();
        add({plain, method.declaration, method.receiverClass, method.function, false, constructor});
        if (method.setterFunction != nullptr && !Assigning(plain).empty()) {
            add({Assigning(plain), Assigning(method.declaration), method.receiverClass,
                 method.setterFunction, false, false});
        }
    }
    // A getter or setter of all ones is direct access by offset: nothing to call.
    const auto direct = reinterpret_cast<REALproc>(~uintptr_t{0});
    // Properties of classes and of modules (read and set with a nil instance).
    for (const auto &registration : simhost::Registrations()) {
        const bool module = registration.kind == "Module";
        if (registration.kind != "Class" && !module) continue;
        const simhost::RegistrationInfo info = simhost::Inspect(registration);
        const std::string receiver = module ? "" : info.name;
        for (const auto &member : info.members) {
            if (member.role != "property") continue;
            auto property = simhost::FindProperty(NameOf(member.text), info.name);
            if (!property) continue;
            if (property->getter != nullptr && property->getter != direct) {
                add({member.text, member.text, receiver, property->getter, true, false});
            }
            if (property->setter != nullptr && property->setter != direct) {
                const std::string assigning =
                    NameOf(member.text) + "(assigns value" +
                    member.text.substr(member.text.find(" as ")) + ")";
                add({assigning, assigning, receiver, property->setter, true, false});
            }
        }
    }
    return targets;
}

std::string Listed(const std::vector<const Target *> &targets) {
    std::string text;
    for (const Target *t : targets) text += (text.empty() ? "" : " | ") + t->declaration;
    return text;
}

bool Takes(const Target &target, std::size_t arguments) {
    std::string error;
    auto signature = ParseDeclaration(target.declaration, error);
    return signature && arguments >= signature->Required() &&
           arguments <= signature->parameters.size();
}

// Whether each word reads as a value of its parameter's kind; named values
// and files are read by the call itself.
bool Accepts(const Target &target, const std::vector<std::string> &given) {
    std::string error;
    auto signature = ParseDeclaration(target.declaration, error);
    if (!signature || !Takes(target, given.size())) return false;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const Parameter &parameter = signature->parameters[i];
        const Kind kind = parameter.type->kind;
        if (given[i].starts_with('@')) continue;
        if (given[i].starts_with("file:")) {
            if (kind == Kind::Block || kind == Kind::Ptr) continue;
            return false;
        }
        if (!ParseValue(parameter, given[i], error)) return false;
    }
    return true;
}

// "1 or 2": the argument counts the targets take.
std::string Counts(const std::vector<const Target *> &targets) {
    std::vector<std::size_t> counts;
    for (const Target *t : targets) {
        std::string error;
        auto signature = ParseDeclaration(t->declaration, error);
        for (std::size_t n = signature ? signature->Required() : 1;
             signature && n <= signature->parameters.size(); ++n) {
            counts.push_back(n);
        }
    }
    std::sort(counts.begin(), counts.end());
    counts.erase(std::unique(counts.begin(), counts.end()), counts.end());
    std::string text;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == counts.size() ? " or " : ", ") + std::to_string(counts[i]);
    }
    return text;
}

}  // namespace

std::optional<Target> FindTarget(std::string_view text, const std::vector<std::string> &given,
                                 std::string &error, int &status) {
    const std::size_t arguments = given.size();
    status = kNotFound;
    const std::vector<Target> targets = Targets();
    // A bare name is also a declaration ("Close"); its overloads still count.
    const std::string name = NameOf(text);
    const Target *exact = nullptr;
    for (const Target &target : targets) {
        if (target.declaration != text && target.registered != text) continue;
        if (Takes(target, arguments)) return target;
        if (exact == nullptr) exact = &target;
    }
    if (exact != nullptr && name != text) return *exact;
    std::vector<std::string> names;
    for (const Target &t : targets) names.push_back(NameOf(t.declaration));
    std::vector<const Target *> matches;
    if (name == text) {
        for (std::size_t i : Matching(name, names)) matches.push_back(&targets[i]);
    }
    if (matches.size() > 1) {
        std::vector<const Target *> fitting, accepting;
        for (const Target *t : matches) {
            if (Takes(*t, arguments)) fitting.push_back(t);
            if (Accepts(*t, given)) accepting.push_back(t);
        }
        if (fitting.empty()) {
            status = kUsage;
            error = "'" + std::string(text) + "' takes " + Counts(matches) + " arguments, " +
                    std::to_string(arguments) + " given: " + Listed(matches);
            return std::nullopt;
        }
        // Where the count does not decide, the kinds of the values may.
        if (fitting.size() == 1) return *fitting.front();
        if (accepting.size() == 1) return *accepting.front();
        const auto &listed = accepting.empty() ? fitting : accepting;
        error = "'" + std::string(text) + "' matches " + std::to_string(listed.size()) +
                " declarations, give one in full: " + Listed(listed);
        return std::nullopt;
    }
    if (matches.size() == 1) return *matches.front();

    const std::string listed = Closest(name, names);
    error = "no registered declaration matches '" + std::string(text) + "'" +
            (listed.empty() ? "; nothing is registered" : "; closest: " + listed);
    return std::nullopt;
}

}  // namespace qvthost

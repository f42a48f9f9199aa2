#include "targets.h"

#include <algorithm>
#include <vector>

#include "names.h"
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
    for (const auto &registration : simhost::Registrations()) {
        if (registration.kind != "Class") continue;
        const simhost::RegistrationInfo info = simhost::Inspect(registration);
        for (const auto &member : info.members) {
            if (member.role != "property") continue;
            auto property = simhost::FindProperty(NameOf(member.text), info.name);
            if (!property || property->getter == nullptr || property->getter == direct) continue;
            add({member.text, member.text, info.name, property->getter, true, false});
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

}  // namespace

std::optional<Target> FindTarget(std::string_view text, std::size_t arguments, std::string &error) {
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
        std::vector<const Target *> fitting;
        for (const Target *t : matches) {
            if (Takes(*t, arguments)) fitting.push_back(t);
        }
        if (fitting.size() == 1) return *fitting.front();
        const auto &listed = fitting.empty() ? matches : fitting;
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

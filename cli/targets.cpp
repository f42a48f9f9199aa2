#include "targets.h"

#include <algorithm>
#include <vector>

#include "outcome.h"
#include "simhost/simhost.h"
#include "values.h"

namespace qvthost {

namespace {

std::string NameOf(std::string_view declaration) {
    return std::string(declaration.substr(0, declaration.find_first_of("( ")));
}

// The host's language reads names without case.
std::string Lower(std::string word) {
    for (char &c : word) c = c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
    return word;
}

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

std::size_t Distance(std::string_view a, std::string_view b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1,
                               diagonal + (lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
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
    std::vector<const Target *> matches;
    if (name == text) {
        for (const Target &t : targets) {
            if (Lower(NameOf(t.declaration)) == Lower(name)) matches.push_back(&t);
        }
        if (matches.empty()) {
            for (const Target &t : targets) {
                if (Lower(NameOf(t.declaration)).starts_with(Lower(name))) matches.push_back(&t);
            }
        }
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

    // Names that hold what was typed come first, then the fewest edits away.
    std::vector<std::pair<std::size_t, std::string>> closest;
    for (const Target &t : targets) {
        const std::string candidate = NameOf(t.declaration);
        const bool holds = !name.empty() && Lower(candidate).find(Lower(name)) != std::string::npos;
        closest.emplace_back(holds ? 0 : 1 + Distance(name, candidate), candidate);
    }
    std::sort(closest.begin(), closest.end());
    closest.erase(std::unique(closest.begin(), closest.end(),
                              [](const auto &a, const auto &b) { return a.second == b.second; }),
                  closest.end());
    std::string listed;
    for (std::size_t i = 0; i < closest.size() && i < 3; ++i) {
        listed += (i ? ", " : "") + closest[i].second;
    }
    error = "no registered declaration matches '" + std::string(text) + "'" +
            (listed.empty() ? "; nothing is registered" : "; closest: " + listed);
    return std::nullopt;
}

}  // namespace qvthost

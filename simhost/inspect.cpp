// Registered records read back as the host reads them: names, members, and
// the functions behind declarations.
#include <algorithm>

#include "simhost/state.h"

namespace simhost::detail {

namespace {

constexpr uintptr_t kMostMembers = 100000;

// Record widths in words; the old forms (record version below 10) are cut short.
struct Strides {
    std::size_t method, property, constant, event, delegate;
    bool newForm;
};

Strides CurrentStrides() {
    // Nothing told yet counts as the current form.
    int32_t told = State().recordVersion;
    bool newForm = told == 0 || told >= 10;
    return newForm ? Strides{6, 12, 5, 4, 4, true} : Strides{4, 10, 3, 2, 4, false};
}

std::string Text(const char *text) { return text != nullptr ? text : "(nil)"; }

// Visits the records of a list stored at (pointer word, count word).
template <typename Visit>
void ForEach(const void *record, std::size_t listWord, std::size_t stride, Visit visit) {
    auto *list = reinterpret_cast<const uintptr_t *>(Word(record, listWord));
    uintptr_t count = std::min(Word(record, listWord + 1), kMostMembers);
    if (list == nullptr) return;
    for (uintptr_t i = 0; i < count; ++i) visit(list + i * stride);
}

struct Layout {
    // Word of the list pointer for each member role; 0 when the kind has none.
    std::size_t methods, sharedMethods, properties, sharedProperties, constants, events, delegates;
    std::size_t dataSize;
};

bool LayoutOf(std::string_view kind, Layout &layout) {
    if (kind == "Class" || kind == "ClassExtension") {
        layout = {9, 23, 7, 21, 18, 11, 25, kind == "Class" ? 3u : 0u};
    } else if (kind == "Module") {
        layout = {2, 0, 6, 0, 4, 0, 14, 0};
    } else if (kind == "Control" || kind == "MobileControl") {
        layout = {10, 25, 8, 23, 21, 12, 27, 2};
    } else if (kind == "Interface") {
        layout = {2, 0, 0, 0, 0, 0, 0, 0};
    } else {
        return false;
    }
    return true;
}

// Shared members of controls lie past the end of their old form.
bool SharedInRecord(std::string_view kind, const Strides &strides) {
    return strides.newForm || kind == "Class" || kind == "ClassExtension";
}

std::string ExtendedClass(std::string_view declaration) {
    constexpr std::string_view kExtends = "(extends ref as ";
    auto at = declaration.find(kExtends);
    if (at == std::string_view::npos) return {};
    auto rest = declaration.substr(at + kExtends.size());
    return std::string(rest.substr(0, rest.find_first_of(",)")));
}

void AddMethods(const Registration &r, const Layout &layout, const Strides &strides,
                std::vector<MethodRef> &out) {
    const char *owner = TextWord(r.record, 1);
    auto add = [&](std::size_t listWord, bool shared) {
        if (listWord == 0) return;
        ForEach(r.record, listWord, strides.method, [&](const uintptr_t *m) {
            MethodRef ref;
            ref.kind = r.kind;
            ref.container = Text(owner);
            ref.declaration = Text(reinterpret_cast<const char *>(m[2]));
            ref.function = reinterpret_cast<REALproc>(m[0]);
            ref.setterFunction = reinterpret_cast<REALproc>(m[1]);
            if (r.kind == "Module") {
                ref.receiverClass = ExtendedClass(ref.declaration);
            } else if (!shared) {
                ref.receiverClass = ref.container;
            }
            out.push_back(std::move(ref));
        });
    };
    add(layout.methods, false);
    add(layout.sharedMethods, true);
}

}  // namespace

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

std::size_t RegistrationInfo::Count(std::string_view role) const {
    return static_cast<std::size_t>(std::count_if(members.begin(), members.end(),
                                                  [&](const Member &m) { return m.role == role; }));
}

RegistrationInfo Inspect(const Registration &registration) {
    HostLock lock(State().mutex);
    RegistrationInfo info;
    info.kind = registration.kind;
    if (registration.record == nullptr) return info;
    if (registration.kind == "Method") {
        info.name = Text(TextWord(registration.record, 2));
        return info;
    }
    Layout layout;
    if (!LayoutOf(registration.kind, layout)) return info;
    Strides strides = CurrentStrides();
    const void *record = registration.record;
    info.name = Text(TextWord(record, 1));
    if (layout.dataSize != 0) info.dataSize = Word(record, layout.dataSize);

    auto declarations = [&](std::size_t listWord, std::size_t stride, const char *role) {
        if (listWord == 0) return;
        ForEach(record, listWord, stride, [&](const uintptr_t *m) {
            info.members.push_back({role, Text(reinterpret_cast<const char *>(m[0]))});
        });
    };
    auto methods = [&](std::size_t listWord, const char *role) {
        if (listWord == 0) return;
        ForEach(record, listWord, strides.method, [&](const uintptr_t *m) {
            info.members.push_back({role, Text(reinterpret_cast<const char *>(m[2]))});
        });
    };
    auto properties = [&](std::size_t listWord, const char *role) {
        if (listWord == 0) return;
        ForEach(record, listWord, strides.property, [&](const uintptr_t *p) {
            info.members.push_back({role, Text(reinterpret_cast<const char *>(p[1])) + " as " +
                                              Text(reinterpret_cast<const char *>(p[2]))});
        });
    };
    methods(layout.methods, "method");
    if (SharedInRecord(registration.kind, strides)) {
        methods(layout.sharedMethods, "shared method");
        properties(layout.sharedProperties, "shared property");
    }
    properties(layout.properties, "property");
    declarations(layout.constants, strides.constant, "constant");
    declarations(layout.events, strides.event, "event");
    if (strides.newForm) declarations(layout.delegates, strides.delegate, "delegate");
    return info;
}

std::vector<MethodRef> RegisteredMethods() {
    HostLock lock(State().mutex);
    std::vector<MethodRef> out;
    Strides strides = CurrentStrides();
    for (const Registration &r : State().registrations) {
        if (r.record == nullptr) continue;
        if (r.kind == "Method") {
            auto *m = static_cast<const uintptr_t *>(r.record);
            MethodRef ref;
            ref.kind = r.kind;
            ref.declaration = Text(reinterpret_cast<const char *>(m[2]));
            ref.function = reinterpret_cast<REALproc>(m[0]);
            ref.setterFunction = reinterpret_cast<REALproc>(m[1]);
            out.push_back(std::move(ref));
            continue;
        }
        Layout layout;
        if (r.kind == "Interface" || !LayoutOf(r.kind, layout)) continue;
        if (!SharedInRecord(r.kind, strides)) layout.sharedMethods = 0;
        AddMethods(r, layout, strides, out);
    }
    return out;
}

std::string PlainDeclaration(std::string_view declaration) {
    constexpr std::string_view kExtends = "(extends ref as ";
    auto at = declaration.find(kExtends);
    if (at == std::string_view::npos) return std::string(declaration);
    std::string head(declaration.substr(0, at));
    auto rest = declaration.substr(at + kExtends.size());
    auto end = rest.find_first_of(",)");
    if (end == std::string_view::npos) return std::string(declaration);
    if (rest[end] == ',') {
        // "(extends ref as C, tail" -> "(tail"
        auto tail = rest.substr(end + 1);
        if (tail.starts_with(' ')) tail.remove_prefix(1);
        return head + "(" + std::string(tail);
    }
    // "(extends ref as C) as T" -> " as T"
    return head + std::string(rest.substr(end + 1));
}

std::optional<MethodRef> FindMethod(std::string_view declaration, std::string_view receiverClass) {
    std::vector<MethodRef> all = RegisteredMethods();
    auto fits = [&](const MethodRef &m) {
        return receiverClass.empty() || m.receiverClass == receiverClass;
    };
    for (const MethodRef &m : all) {
        if (fits(m) && m.declaration == declaration) return m;
    }
    for (const MethodRef &m : all) {
        if (fits(m) && PlainDeclaration(m.declaration) == declaration) return m;
    }
    return std::nullopt;
}

std::optional<PropertyRef> FindProperty(std::string_view name, std::string_view container) {
    HostLock lock(State().mutex);
    Strides strides = CurrentStrides();
    for (const Registration &r : State().registrations) {
        Layout layout;
        if (r.record == nullptr || !LayoutOf(r.kind, layout)) continue;
        std::string owner = Text(TextWord(r.record, 1));
        if (!container.empty() && owner != container) continue;
        std::optional<PropertyRef> found;
        auto look = [&](std::size_t listWord) {
            if (listWord == 0 || found) return;
            ForEach(r.record, listWord, strides.property, [&](const uintptr_t *p) {
                const char *own = reinterpret_cast<const char *>(p[1]);
                if (found || own == nullptr || name != own) return;
                found =
                    PropertyRef{owner, own, Text(reinterpret_cast<const char *>(p[2])),
                                reinterpret_cast<REALproc>(p[4]), reinterpret_cast<REALproc>(p[5])};
            });
        };
        look(layout.properties);
        if (SharedInRecord(r.kind, strides)) look(layout.sharedProperties);
        if (found) return found;
    }
    return std::nullopt;
}

}  // namespace simhost

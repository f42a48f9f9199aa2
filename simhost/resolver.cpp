// The resolver: every entry of the host by its name.
#include <algorithm>
#include <unordered_map>

#include "simhost/state.h"

namespace simhost::detail {

// runtime.cpp: its entries, and those whose form follows the host's version
// (nullptr for any other name).
std::span<const Entry> RuntimeEntries();
void *EntryOfForm(std::string_view name, double version);

namespace {

const std::unordered_map<std::string_view, Entry> &AllEntries() {
    static const auto table = [] {
        std::unordered_map<std::string_view, Entry> map;
        for (auto unit : {VersionEntries(), RegistryEntries(), ReferenceEntries(), BlockEntries(),
                          StringEntries(), StringDataEntries(), ExceptionEntries(),
                          PropertyEntries(), ArrayEntries(), MemberEntries(), RuntimeEntries()}) {
            for (const Entry &e : unit) map.emplace(e.name, e);
        }
        return map;
    }();
    return table;
}

void *Answer(std::string_view name) {
    const Options &o = State().options;
    if (std::find(o.missingEntries.begin(), o.missingEntries.end(), name) !=
        o.missingEntries.end()) {
        return nullptr;
    }
    if (void *form = EntryOfForm(name, o.version)) return form;
    auto it = AllEntries().find(name);
    if (it == AllEntries().end()) return nullptr;
    if (o.version < it->second.since) return nullptr;
    if (name == "REALGetRBVersion" && !o.hasVersionEntry) return nullptr;
    return it->second.address;
}

}  // namespace

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

void *Resolve(const char *name) {
    HostLock lock(State().mutex);
    State().resolverLog.push_back(name != nullptr ? name : "(nil)");
    if (name == nullptr) {
        Fault("resolver: asked for a nil name");
        return nullptr;
    }
    return Answer(name);
}

bool HasEntry(std::string_view name) {
    HostLock lock(State().mutex);
    return Answer(name) != nullptr;
}

std::vector<std::string> ResolverLog() {
    HostLock lock(State().mutex);
    return State().resolverLog;
}

void ClearResolverLog() {
    HostLock lock(State().mutex);
    State().resolverLog.clear();
}

}  // namespace simhost

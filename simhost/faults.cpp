// Failures on purpose: the nth fallible call answers as a host that has run
// out of memory or cannot convert would.
#include <utility>

#include "simhost/state.h"

namespace simhost::detail {

bool Failing(const char *entry) {
    HostState &s = State();
    if (!s.failArmed) return false;
    s.fallible.emplace_back(entry);
    if (s.failNth == 0 || (!s.failEntry.empty() && s.failEntry != entry)) return false;
    return ++s.failSeen == s.failNth;
}

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

void FailCall(std::size_t nth, std::string entry) {
    HostState &s = State();
    HostLock lock(s.mutex);
    s.failArmed = true;
    s.failNth = nth;
    s.failEntry = std::move(entry);
    s.failSeen = 0;
    s.fallible.clear();
    UpdatePlain();
}

std::vector<std::string> FallibleCalls() {
    HostLock lock(State().mutex);
    return State().fallible;
}

void StopFailing() {
    HostState &s = State();
    HostLock lock(s.mutex);
    s.failArmed = false;
    s.fallible.clear();
    UpdatePlain();
}

bool FailNow(std::string_view entry) {
    HostLock lock(State().mutex);
    return Failing(std::string(entry).c_str());
}

}  // namespace simhost

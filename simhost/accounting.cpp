// Reference accounting as tests see it: counts, live handles, snapshots.
#include <algorithm>
#include <map>

#include "simhost/state.h"

namespace simhost {

using namespace detail;

long RefCount(REALobject object) {
    HostLock lock(State().mutex);
    ObjectRecord *o = FindObject(object);
    if (o == nullptr) return -1;
    return o->ended ? 0 : o->refs.load();
}

long RefCount(REALstring string) {
    HostLock lock(State().mutex);
    StringRecord *s = FindString(string);
    if (s == nullptr) return -1;
    return s->ended ? 0 : s->refs.load();
}

long RefCount(REALarray array) { return RefCount(reinterpret_cast<REALobject>(array)); }

std::size_t LiveObjects() {
    HostLock lock(State().mutex);
    const auto &all = State().objects;
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const auto &o) { return !o->ended; }));
}

std::size_t LiveStrings() {
    HostLock lock(State().mutex);
    const auto &all = State().strings;
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const auto &s) { return !s->ended; }));
}

std::size_t OpenStringData() {
    HostLock lock(State().mutex);
    return State().stringData.size();
}

std::string Name(REALobject object) {
    HostLock lock(State().mutex);
    return NameOfObject(object);
}

std::string Name(REALstring string) {
    HostLock lock(State().mutex);
    return NameOfString(string);
}

Snapshot TakeSnapshot() {
    HostState &s = State();
    HostLock lock(s.mutex);
    Snapshot snap;
    for (const auto &o : s.objects) {
        if (!o->ended) snap.objects.emplace_back(o->serial, ClientRefs(*o));
    }
    for (const auto &str : s.strings) {
        if (!str->ended) snap.strings.emplace_back(str->serial, ClientRefs(*str));
    }
    snap.stringData = s.stringData.size();
    return snap;
}

namespace {

template <typename Record>
void CompareRecords(const std::vector<std::unique_ptr<Record>> &records,
                    const std::vector<std::pair<uint64_t, long>> &before,
                    const std::map<uint64_t, long> &given, std::string &out) {
    std::map<uint64_t, long> was(before.begin(), before.end());
    for (const auto &r : records) {
        auto w = was.find(r->serial);
        auto g = given.find(r->serial);
        long expected = (w != was.end() ? w->second : 0) + (g != given.end() ? g->second : 0);
        long now = ClientRefs(*r);
        if (now == expected) continue;
        out += NameOf(r.get());
        if (w == was.end()) out += " (new)";
        if (r->ended) out += " ended";
        out += ": " + std::to_string(now) + " references held, " + std::to_string(expected) +
               " expected\n";
    }
}

}  // namespace

std::string CompareSnapshot(const Snapshot &before, const std::vector<REALobject> &givenObjects,
                            const std::vector<REALstring> &givenStrings) {
    HostState &s = State();
    HostLock lock(s.mutex);
    std::string out;
    std::map<uint64_t, long> objects, strings;
    for (REALobject h : givenObjects) {
        if (h == nullptr) continue;
        if (ObjectRecord *o = FindObject(h)) {
            ++objects[o->serial];
        } else {
            out += "given object is unknown to the host\n";
        }
    }
    for (REALstring h : givenStrings) {
        if (h == nullptr) continue;
        if (StringRecord *str = FindString(h)) {
            ++strings[str->serial];
        } else {
            out += "given string is unknown to the host\n";
        }
    }
    CompareRecords(s.objects, before.objects, objects, out);
    CompareRecords(s.strings, before.strings, strings, out);
    if (s.stringData.size() != before.stringData) {
        out += "string data: " + std::to_string(s.stringData.size()) + " records open, " +
               std::to_string(before.stringData) + " expected\n";
    }
    return out;
}

}  // namespace simhost

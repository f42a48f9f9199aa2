// PluginGetStringData: a converted, zero-terminated copy of a string handed
// out in the caller's record until PluginDisposeStringData gives it back.
#include <cstring>

#include "simhost/state.h"

namespace simhost::detail {

namespace {

// Marks a record as filled by this host; word 2 holds the cookie.
constexpr uintptr_t kMagic = 0x51565453;  // "QVTS"

intptr_t PluginGetStringData(REALstring handle, uint32_t encoding, REALstringData *out) {
    HostState &s = State();
    HostLock lock(s.mutex);
    CheckPresent("PluginGetStringData");
    LogCall("PluginGetStringData", NameOfString(handle) + " encoding=" + std::to_string(encoding));
    if (out == nullptr) {
        Fault("PluginGetStringData: nil record");
        return 0;
    }
    *out = {};
    if (Failing("PluginGetStringData")) return 0;
    bool bad = false;
    StringRecord *string = UseString("PluginGetStringData", handle, &bad);
    if (bad) return 0;
    return OrShortfall("PluginGetStringData", string != nullptr ? string->length : 0, intptr_t{0},
                       [&]() -> intptr_t {
        std::string converted;
        if (string != nullptr &&
            !HostConvert(string->Bytes(), string->encoding, encoding, converted)) {
            return 0;
        }
        // Four zero bytes end the copy in every unit width.
        auto bytes = std::make_unique<char[]>(converted.size() + 4);
        std::memcpy(bytes.get(), converted.data(), converted.size());
        std::memset(bytes.get() + converted.size(), 0, 4);
        s.stringData[s.nextCookie] = StringData{std::move(bytes)};
        out->data = s.stringData[s.nextCookie].bytes.get();
        out->length = static_cast<RBInteger>(converted.size());
        out->hostWords[0] = kMagic;
        out->hostWords[1] = static_cast<uintptr_t>(s.nextCookie++);
        return 1;
    });
}

void PluginDisposeStringData(REALstringData *record) {
    HostState &s = State();
    HostLock lock(s.mutex);
    CheckPresent("PluginDisposeStringData");
    LogCall("PluginDisposeStringData");
    if (record == nullptr) {
        Fault("PluginDisposeStringData: nil record");
        return;
    }
    auto it = record->hostWords[0] == kMagic ? s.stringData.find(record->hostWords[1])
                                             : s.stringData.end();
    if (it == s.stringData.end() || it->second.bytes.get() != record->data) {
        Fault("PluginDisposeStringData: record not given out, or disposed before");
        return;
    }
    s.stringData.erase(it);
    *record = {};
}

const Entry kEntries[] = {
    {"PluginGetStringData", EntryAddress(&PluginGetStringData)},
    {"PluginDisposeStringData", EntryAddress(&PluginDisposeStringData)},
};

}  // namespace

std::span<const Entry> StringDataEntries() { return kEntries; }

}  // namespace simhost::detail

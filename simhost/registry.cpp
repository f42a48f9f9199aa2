// The load: versions, the record version told, and every registration.
#include "simhost/state.h"

namespace simhost::detail {

const char *TextWord(const void *record, std::size_t word) {
    return reinterpret_cast<const char *>(Word(record, word));
}

uintptr_t Word(const void *record, std::size_t word) {
    return static_cast<const uintptr_t *>(record)[word];
}

const REALclassDefinition *RegisteredClass(std::string_view name) {
    for (const Registration &r : State().registrations) {
        if (r.kind != "Class") continue;
        const char *own = TextWord(r.record, 1);
        if (own != nullptr && name == own)
            return static_cast<const REALclassDefinition *>(r.record);
    }
    return nullptr;
}

namespace {

std::string Text(const char *text) { return text != nullptr ? text : "(nil)"; }

// A host keeps every record it was given, and what the records point to,
// for the life of the process, past any Reset; never destroyed, so a leak
// checker sees them held.
void Keep(const void *record) {
    static auto *kept = new std::vector<const void *>;
    kept->push_back(record);
}

// Shared by the kinds whose record starts with a version word.
bool Accept(const char *entry, const char *kind, const void *record, std::size_t nameWord,
            bool versioned) {
    HostState &s = State();
    CheckPresent(entry);
    LogCall(entry, record != nullptr && nameWord != 0 ? Text(TextWord(record, nameWord)) : "");
    if (record == nullptr) {
        Fault(std::string(entry) + ": nil record");
        return false;
    }
    // A record must carry the version told; before any is told there is
    // nothing to compare with (tests may register without a load).
    if (versioned && s.recordVersion != 0 &&
        Word(record, 0) != static_cast<uintptr_t>(s.recordVersion)) {
        Fault(std::string(entry) + ": " + Text(TextWord(record, nameWord)) + " has version " +
              std::to_string(Word(record, 0)) + ", but " + std::to_string(s.recordVersion) +
              " was told");
    }
    s.registrations.push_back({kind, record});
    Keep(record);
    return true;
}

void CheckDataSize(const char *entry, const void *record, std::size_t sizeWord) {
    uintptr_t size = Word(record, sizeWord);
    if (size % 16 != 0) {
        Fault(std::string(entry) + ": " + Text(TextWord(record, 1)) + " has dataSize " +
              std::to_string(size) + ", not a multiple of 16");
    }
}

void PluginRegisterClass(REALclassDefinition *definition) {
    HostLock lock(State().mutex);
    if (!Accept("PluginRegisterClass", "Class", definition, 1, true)) return;
    CheckDataSize("PluginRegisterClass", definition, 3);
    definition->forSystemUse = kInstanceDataOffset;
}

void PluginRegisterClassExtension(REALclassDefinition *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterClassExtension", "ClassExtension", definition, 1, true);
}

void PluginRegisterModule(REALmoduleDefinition *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterModule", "Module", definition, 1, true);
}

void PluginRegisterMethod(REALmethodDefinition *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterMethod", "Method", definition, 2, false);
}

void RegisterControl(const char *entry, const char *kind, REALcontrolDefinition *definition) {
    HostLock lock(State().mutex);
    if (!Accept(entry, kind, definition, 1, true)) return;
    CheckDataSize(entry, definition, 2);
    definition->forSystemUse = kInstanceDataOffset;
}

void PluginRegisterControl(REALcontrolDefinition *definition) {
    RegisterControl("PluginRegisterControl", "Control", definition);
}

void PluginRegisterMobileControl(REALcontrolDefinition *definition) {
    RegisterControl("PluginRegisterMobileControl", "MobileControl", definition);
}

void PluginRegisterInterface(REALinterfaceDefinition *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterInterface", "Interface", definition, 1, true);
}

// Records of the database kinds are not read beyond their address.
void PluginRegisterDBCursor(REALdbCursorDefinition *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterDBCursor", "DBCursor", definition, 0, false);
}

void PluginRegisterDBEngine(REALdbEngineDefinition *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterDBEngine", "DBEngine", definition, 0, false);
}

void PluginRegisterDBTable(void *definition) {
    HostLock lock(State().mutex);
    Accept("PluginRegisterDBTable", "DBTable", definition, 0, false);
}

double REALGetRBVersion() {
    HostLock lock(State().mutex);
    if (!State().options.hasVersionEntry) {
        Fault("REALGetRBVersion: called, but this host has no such entry");
    }
    CheckPresent("REALGetRBVersion");
    LogCall("REALGetRBVersion");
    return State().options.version;
}

void RegisterPluginVersion(int32_t version) {
    HostLock lock(State().mutex);
    CheckPresent("RegisterPluginVersion");
    LogCall("RegisterPluginVersion", std::to_string(version));
    State().recordVersion = version;
}

intptr_t REALinRuntime() {
    HostLock lock(State().mutex);
    CheckPresent("REALinRuntime");
    LogCall("REALinRuntime");
    return State().options.inRuntime ? 1 : 0;
}

const Entry kEntries[] = {
    {"PluginRegisterClass", EntryAddress(&PluginRegisterClass)},
    {"PluginRegisterClassExtension", EntryAddress(&PluginRegisterClassExtension)},
    {"PluginRegisterModule", EntryAddress(&PluginRegisterModule)},
    {"PluginRegisterMethod", EntryAddress(&PluginRegisterMethod)},
    {"PluginRegisterControl", EntryAddress(&PluginRegisterControl)},
    {"PluginRegisterMobileControl", EntryAddress(&PluginRegisterMobileControl)},
    {"PluginRegisterInterface", EntryAddress(&PluginRegisterInterface)},
    {"PluginRegisterDBCursor", EntryAddress(&PluginRegisterDBCursor)},
    {"PluginRegisterDBEngine", EntryAddress(&PluginRegisterDBEngine)},
    {"PluginRegisterDBTable", EntryAddress(&PluginRegisterDBTable)},
};

const Entry kVersionEntries[] = {
    {"REALGetRBVersion", EntryAddress(&REALGetRBVersion)},
    {"RegisterPluginVersion", EntryAddress(&RegisterPluginVersion)},
    {"REALinRuntime", EntryAddress(&REALinRuntime)},
};

}  // namespace

std::span<const Entry> RegistryEntries() { return kEntries; }
std::span<const Entry> VersionEntries() { return kVersionEntries; }

}  // namespace simhost::detail

namespace simhost {

std::vector<Registration> Registrations() {
    detail::HostLock lock(detail::State().mutex);
    return detail::State().registrations;
}

int32_t RecordVersionTold() {
    detail::HostLock lock(detail::State().mutex);
    return detail::State().recordVersion;
}

}  // namespace simhost

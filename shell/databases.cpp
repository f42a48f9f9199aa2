#include "shell/databases.h"

#include <cstdint>

#include "diagnostics/debuglog.h"
#include "shell/binding.h"

namespace qvt {

namespace {

struct DatabaseKind {
    const char *nilRecord;
    const char *nilClose;
    const char *versionOutOfRange;
    uint32_t lowestVersion;
    uint32_t highestVersion;
};

constexpr DatabaseKind kCursor = {
    "Error: A REALdbCursorDefinition registered is nil.",
    "Error: closeCursor is nil",
    "Error: REALdbCursorDefinition.version is out of range",
    15,
    15,
};

constexpr DatabaseKind kEngine = {
    "Error: A REALdbEngineDefinition registered is nil.",
    "Error: REALdbEngineDefinition.closeDatabase is nil",
    "Error: REALdbEngineDefinition.version is out of range",
    1,
    2,
};

// Both records start with the version and have their close function in the
// third word.
template <typename Record>
bool Passes(const DatabaseKind &kind, const Record *record, REALproc close) {
    if (record == nullptr) {
        DebugLogText(kind.nilRecord);
        return false;
    }
    if (close == nullptr) {
        DebugLogText(kind.nilClose);
        return false;
    }
    const auto version = static_cast<uint32_t>(record->version);
    if (version < kind.lowestVersion || version > kind.highestVersion) {
        DebugLogUInt32(kind.versionOutOfRange, version);
        return false;
    }
    return true;
}

}  // namespace

void RegisterDBCursor(REALdbCursorDefinition *d) {
    if (Passes(kCursor, d, d != nullptr ? d->closeCursor : nullptr)) {
        host::PluginRegisterDBCursor(d);
    }
}

void RegisterDBEngine(REALdbEngineDefinition *d) {
    if (Passes(kEngine, d, d != nullptr ? d->closeDatabase : nullptr)) {
        host::PluginRegisterDBEngine(d);
    }
}

}  // namespace qvt

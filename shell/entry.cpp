#include "shell/entry.h"

#include <cctype>
#include <cstdlib>
#include <string_view>

#include "diagnostics/debuglog.h"
#include "shell/binding.h"
#include "shell/definitions.h"
#include "shell/modules.h"
#include "shell/validation.h"

namespace qvt {

REALresolver gResolver = nullptr;
double gHostVersion = 0.0;
int32_t gPluginSDKVersion = kCurrentREALControlVersion;
const char *gpartname = nullptr;

// Kept in the binary as plain text, where a look at the file finds it.
extern "C" __attribute__((used)) const char kPluginVersionText[] =
    "$$ Plugin version: 25.2 (2025) $$";

int32_t RecordVersionForHost(double hostVersion) {
    static constexpr struct {
        double from;
        int32_t recordVersion;
    } kRecordVersions[] = {{2013.04, 13}, {2013.03, 12}, {2013.0, 11}, {2012.0, 10}};
    for (const auto &row : kRecordVersions) {
        if (hostVersion >= row.from) return row.recordVersion;
    }
    return 9;
}

namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

bool IsDebugSwitch(const char *value) {
    for (const char *on : {"1", "true", "yes"}) {
        if (EqualsIgnoringCase(value, on)) return true;
    }
    return false;
}

}  // namespace

void PluginStart(const char *partName) {
    gpartname = partName;
    if (const char *value = std::getenv("QVTDEBUG"); value && IsDebugSwitch(value)) {
        gDebugging.store(true, std::memory_order_relaxed);
    }
    if (Debugging() && !host::REALinRuntime()) {
        DebugLog("Loading %s in Xojo %.2f and plugin SDK version %d...", partName, gHostVersion,
                 gPluginSDKVersion);
    }
    for (const char *c = partName; *c; ++c) {
        if (*c == ' ') DebugLogStrings("Warning: plugin name containts space character", partName);
    }
}

void PluginEnd() {}

void PluginEntry() {
    PluginStart("Memory");
    RegisterClassExtension(&gMemoryBlockExtension);
    RegisterClass(&gMemoryBlockQVTClass);
    RegisterMethods(gGlobalMethods, kGlobalMethodCount);
    PluginEnd();
}

}  // namespace qvt

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALresolver resolver) {
    using namespace qvt;
    gResolver = resolver;
    if (resolver) {
        if (auto version = reinterpret_cast<double (*)()>(resolver("REALGetRBVersion"))) {
            gHostVersion = version();
        }
    }
    gPluginSDKVersion = RecordVersionForHost(gHostVersion);
    if (!resolver) return;
    // Every host has this entry; one that lacks it is not told, rather than crashed.
    if (auto tell = reinterpret_cast<void (*)(int32_t)>(resolver("RegisterPluginVersion"))) {
        tell(gPluginSDKVersion);
    }
    PluginEntry();
}

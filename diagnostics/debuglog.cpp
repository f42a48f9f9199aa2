#include "diagnostics/debuglog.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "diagnostics/debugger_channel.h"
#include "shell/entry.h"

namespace qvt {

std::atomic<bool> gDebugging{false};

namespace {

// Acquire/release so that a line logged on another thread sees a fully
// opened stream.
std::atomic<std::FILE *> gDebugFile{nullptr};

}  // namespace

void DebugLogLine(const char *line) {
    if (std::FILE *file = gDebugFile.load(std::memory_order_acquire)) {
        std::fprintf(file, "%s\n", line);
        std::fflush(file);
    } else {
        platform::OutputDebugLine(line);
    }
}

void DebugLog(const char *format, ...) {
    char line[kDebugLineSize] = {};
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    DebugLogLine(line);
}

void DebugLogText(const char *text) { DebugLog("%s%s", kDebugPrefix, text); }

void DebugLogWide(const wchar_t *text) { DebugLog("%s%ls", kDebugPrefix, text); }

void DebugLogTextWide(const char *text, const wchar_t *wide) {
    DebugLog("%s%s %ls", kDebugPrefix, text, wide);
}

void CloseDebugFile() {
    if (std::FILE *file = gDebugFile.exchange(nullptr, std::memory_order_acq_rel)) {
        std::fclose(file);
    }
}

namespace {

void OpenDebugFile(const char *mode) {
    CloseDebugFile();
    static constexpr const char *kTemplates[] = {
        "/tmp/qvtdebug %s.txt", "/var/tmp/qvtdebug %s.txt", "qvtdebug %s.txt",
        "/qvtdebug %s.txt",     "~/qvtdebug %s.txt",
    };
    const char *part = gpartname ? gpartname : "";
    char path[260] = {};
    for (const char *pathTemplate : kTemplates) {
        std::snprintf(path, 258, pathTemplate, part);
        if (std::FILE *file = std::fopen(path, mode)) {
            gDebugFile.store(file, std::memory_order_release);
            return;
        }
    }
    DebugLog("Failed to open debug file: %s", path);
}

}  // namespace

void OpenDebugFileAppend() { OpenDebugFile("a"); }

void OpenDebugFileWrite() { OpenDebugFile("w"); }

namespace {

struct DataCheckTexts {
    const char *nilInstance;
    const char *dataSize;
    const char *forSystemUse;
};

void CheckInstanceData(const DataCheckTexts &texts, REALobject instance, uint32_t dataSize,
                       int32_t forSystemUse, bool forSystemUseFaulty) {
    if (!Debugging()) return;
    if (!instance) {
        DebugLogPointer(texts.nilInstance, instance);
        return;
    }
    if (dataSize == 0) DebugLogUInt32(texts.dataSize, dataSize);
    if (forSystemUseFaulty) DebugLogInt32(texts.forSystemUse, forSystemUse);
}

}  // namespace

void CheckClassData(REALobject instance, const REALclassDefinition *definition) {
    static constexpr DataCheckTexts kTexts{"REALGetClassData with nil instance",
                                           "REALGetClassData with dataSize",
                                           "REALGetClassData with forSystemUse"};
    // The definition is read only for a live instance.
    const auto forSystemUse = instance ? static_cast<int32_t>(definition->forSystemUse) : 0;
    CheckInstanceData(kTexts, instance, instance ? static_cast<uint32_t>(definition->dataSize) : 0,
                      forSystemUse, forSystemUse != 24);
}

void CheckControlData(REALobject instance, const REALcontrolDefinition *definition) {
    static constexpr DataCheckTexts kTexts{"REALGetControlData with nil instance",
                                           "REALGetControlData with dataSize",
                                           "REALGetControlData with forSystemUse"};
    const auto forSystemUse = instance ? static_cast<int32_t>(definition->forSystemUse) : 0;
    CheckInstanceData(kTexts, instance, instance ? static_cast<uint32_t>(definition->dataSize) : 0,
                      forSystemUse, forSystemUse < 1);
}

bool DebuggingGetter(REALobject, intptr_t) { return Debugging(); }

void DebuggingSetter(REALobject, intptr_t, intptr_t value) {
    gDebugging.store(value != 0, std::memory_order_relaxed);
}

}  // namespace qvt

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

// The texts in the order: nil instance, dataSize, forSystemUse.
using DataCheckTexts = const char *const[3];

template <typename Definition>
void CheckInstanceData(const DataCheckTexts &texts, REALobject instance,
                       const Definition *definition, bool (*forSystemUseFaulty)(int32_t)) {
    if (!Debugging()) return;
    if (!instance) {
        DebugLogPointer(texts[0], instance);
        return;
    }
    const auto dataSize = static_cast<uint32_t>(definition->dataSize);
    const auto forSystemUse = static_cast<int32_t>(definition->forSystemUse);
    if (dataSize == 0) DebugLogUInt32(texts[1], dataSize);
    if (forSystemUseFaulty(forSystemUse)) DebugLogInt32(texts[2], forSystemUse);
}

}  // namespace

void CheckClassData(REALobject instance, const REALclassDefinition *definition) {
    static constexpr DataCheckTexts kTexts = {"REALGetClassData with nil instance",
                                              "REALGetClassData with dataSize",
                                              "REALGetClassData with forSystemUse"};
    CheckInstanceData(kTexts, instance, definition, [](int32_t offset) { return offset != 24; });
}

void CheckControlData(REALobject instance, const REALcontrolDefinition *definition) {
    static constexpr DataCheckTexts kTexts = {"REALGetControlData with nil instance",
                                              "REALGetControlData with dataSize",
                                              "REALGetControlData with forSystemUse"};
    CheckInstanceData(kTexts, instance, definition, [](int32_t offset) { return offset < 1; });
}

bool DebuggingGetter(REALobject, intptr_t) { return Debugging(); }

void DebuggingSetter(REALobject, intptr_t, intptr_t value) {
    gDebugging.store(value != 0, std::memory_order_relaxed);
}

}  // namespace qvt

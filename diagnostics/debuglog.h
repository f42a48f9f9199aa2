// The debug log: one process-wide flag, one formatted sink, and a family of
// front ends that put the prefix before a caller's text and its values.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// Tested at every call site; it changes nothing but logging.
extern std::atomic<bool> gDebugging;

inline bool Debugging() { return gDebugging.load(std::memory_order_relaxed); }

inline constexpr const char kDebugPrefix[] = "QVT Debug: ";
inline constexpr std::size_t kDebugLineSize = 4096;

// Formats like snprintf into a 4096-byte line (longer lines are cut) and hands
// the line to the debug file, or to the debugger channel when none is open.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void DebugLog(const char *format, ...);

// The same destination for a finished text, without formatting or limit.
void DebugLogLine(const char *line);

namespace logkind {

template <typename Value, char... Conversion>
struct Kind {
    using type = Value;
    static constexpr std::array<char, sizeof...(Conversion) + 1> conversion{'%', Conversion...};
};

using Text = Kind<const char *, 's'>;
using Int32 = Kind<int32_t, 'd'>;
using UInt32 = Kind<uint32_t, 'u'>;
using Long = Kind<long, 'l', 'd'>;
using ULong = Kind<unsigned long, 'l', 'u'>;
using Int64 = Kind<long long, 'l', 'l', 'd'>;
using UInt64 = Kind<unsigned long long, 'l', 'l', 'u'>;
using Double = Kind<double, 'f'>;
using Pointer = Kind<const void *, 'p'>;

// "%s%s " followed by the conversion n times with ", " between.
template <typename K, std::size_t N>
constexpr auto MakeFormat() {
    constexpr std::size_t conv = K::conversion.size();
    std::array<char, 5 + N * conv + (N - 1) * 2 + 1> format{};
    std::size_t at = 0;
    for (char c : {'%', 's', '%', 's', ' '}) format[at++] = c;
    for (std::size_t i = 0; i < N; ++i) {
        if (i > 0) {
            format[at++] = ',';
            format[at++] = ' ';
        }
        for (char c : K::conversion) format[at++] = c;
    }
    format[at] = '\0';
    return format;
}

template <typename K, std::size_t N>
inline constexpr auto kFormat = MakeFormat<K, N>();

}  // namespace logkind

// A front end for one to ten values of one kind.
template <typename K>
struct DebugLogFrontEnd {
    template <typename... Values>
        requires(sizeof...(Values) >= 1 && sizeof...(Values) <= 10)
    void operator()(const char *text, Values... values) const {
        DebugLog(logkind::kFormat<K, sizeof...(Values)>.data(), kDebugPrefix, text,
                 static_cast<typename K::type>(values)...);
    }
};

inline constexpr DebugLogFrontEnd<logkind::Text> DebugLogStrings{};
inline constexpr DebugLogFrontEnd<logkind::Int32> DebugLogInt32{};
inline constexpr DebugLogFrontEnd<logkind::UInt32> DebugLogUInt32{};
inline constexpr DebugLogFrontEnd<logkind::Long> DebugLogLong{};
inline constexpr DebugLogFrontEnd<logkind::ULong> DebugLogULong{};
inline constexpr DebugLogFrontEnd<logkind::Int64> DebugLogInt64{};
inline constexpr DebugLogFrontEnd<logkind::UInt64> DebugLogUInt64{};
inline constexpr DebugLogFrontEnd<logkind::Double> DebugLogDouble{};
inline constexpr DebugLogFrontEnd<logkind::Pointer> DebugLogPointer{};

// "%s%s": the caller's text alone.
void DebugLogText(const char *text);
// "%s%ls": a wide text alone.
void DebugLogWide(const wchar_t *text);
// "%s%s %ls": the caller's text and a wide text.
void DebugLogTextWide(const char *text, const wchar_t *wide);

// The debug file: the first of the path templates that opens becomes it.
void OpenDebugFileAppend();
void OpenDebugFileWrite();
void CloseDebugFile();

// Plausibility checks of a class or control instance's data.
void CheckClassData(REALobject instance, const REALclassDefinition *definition);
void CheckControlData(REALobject instance, const REALcontrolDefinition *definition);

// The hidden property "Debugging" of the synthesised modules.
bool DebuggingGetter(REALobject instance, intptr_t param);
void DebuggingSetter(REALobject instance, intptr_t param, intptr_t value);

}  // namespace qvt

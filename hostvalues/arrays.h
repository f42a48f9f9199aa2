// Array elements, through the host's element procedures or, once TestArray
// has shown that the host's private header looks as expected, directly in
// memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "abi/plugin_abi.h"
#include "shell/binding.h"

namespace qvt {

// Set once TestArray has run, and when it passed. Read and written by any
// thread without a lock.
extern std::atomic<bool> gArrayTested;
extern std::atomic<bool> gArrayDirect;

// The host's Integer arrays hold 32-bit elements on every build.
using ArrayInteger = int32_t;
inline constexpr int32_t kArrayTypeInteger = 0;

// Builds a known array and checks the header against it; runs on the first
// use of an element or of GetArrayData, once per process.
void TestArray();

// The elements in place; null unless TestArray passed (or for a nil array).
void *GetArrayData(REALarray array);
// The highest index; -1 for a nil array. Does not start TestArray.
RBInteger GetArrayUBound(REALarray array);

// A nil array logs and gives 0; a bad index raises OutOfBoundsException.
// Objects and strings carry one more reference for the caller.
RBInteger REALGetArrayInt(REALarray array, RBInteger index);
REALobject REALGetArrayObject(REALarray array, RBInteger index);
REALstring REALGetArrayString(REALarray array, RBInteger index);

// The place keeps its value when nothing can be read.
void REALGetArrayValue(REALarray array, RBInteger index, ArrayInteger *value);
void REALGetArrayValue(REALarray array, RBInteger index, REALobject *value);
void REALGetArrayValue(REALarray array, RBInteger index, REALstring *value);

void REALSetArrayValue(REALarray array, RBInteger index, ArrayInteger value);
void REALSetArrayValue(REALarray array, RBInteger index, REALobject value);
void REALSetArrayValue(REALarray array, RBInteger index, REALstring value);

// Inserts after the last element; a nil array does nothing.
void REALAppendArrayValue(REALarray array, ArrayInteger value);
void REALAppendArrayValue(REALarray array, REALobject value);
void REALAppendArrayValue(REALarray array, REALstring value);

}  // namespace qvt

namespace qvt::host {

namespace arrayproc {

// The procedures pass every element as a word.
template <typename Element>
Element FromWord(intptr_t word) {
    if constexpr (std::is_pointer_v<Element>) {
        return reinterpret_cast<Element>(word);
    } else if constexpr (std::is_same_v<Element, bool>) {
        return word != 0;
    } else {
        return static_cast<Element>(word);
    }
}

template <typename Element>
intptr_t ToWord(Element value) {
    if constexpr (std::is_pointer_v<Element>) {
        return reinterpret_cast<intptr_t>(value);
    } else {
        return static_cast<intptr_t>(value);
    }
}

}  // namespace arrayproc

// An element procedure is reached in two steps: the entry found by name is a
// selector that gives the procedure for the array at hand. The selector is
// asked on every access. Without an entry or a procedure nothing happens.
template <typename Element>
class ArrayGetProc {
public:
    constexpr explicit ArrayGetProc(const char *name)
        : selector_(name, "RuntimeArrayDirectGetGetProc") {}

    void operator()(REALarray array, RBInteger index, Element *place) const {
        void *procedure = selector_(array);
        if (!procedure || !place) return;
        auto get = reinterpret_cast<intptr_t (*)(REALarray, RBInteger)>(procedure);
        *place = arrayproc::FromWord<Element>(get(array, index));
    }

private:
    HostBinding<void *(REALarray)> selector_;
};

template <typename Element>
class ArraySetProc {
public:
    constexpr explicit ArraySetProc(const char *name)
        : selector_(name, "RuntimeArrayDirectGetSetProc") {}

    void operator()(REALarray array, RBInteger index, Element value) const {
        void *procedure = selector_(array);
        if (!procedure) return;
        // The host's procedure takes the value before the index.
        auto set = reinterpret_cast<void (*)(REALarray, intptr_t, RBInteger)>(procedure);
        set(array, arrayproc::ToWord(value), index);
    }

private:
    HostBinding<void *(REALarray)> selector_;
};

template <typename Element>
class ArrayInsertProc {
public:
    constexpr explicit ArrayInsertProc(const char *name)
        : selector_(name, "RuntimeArrayDirectGetInsertProc") {}

    void operator()(REALarray array, RBInteger index, Element value) const {
        void *procedure = selector_(array);
        if (!procedure) return;
        auto insert = reinterpret_cast<void (*)(REALarray, RBInteger, intptr_t)>(procedure);
        insert(array, index, arrayproc::ToWord(value));
    }

private:
    HostBinding<void *(REALarray)> selector_;
};

#define QVT_ARRAY_PROCS(kind, element)                                                        \
    inline constinit ArrayGetProc<element> Plugin##kind##ArrayGetProc{                       \
        "Plugin" #kind "ArrayGetProc"};                                                       \
    inline constinit ArraySetProc<element> Plugin##kind##ArraySetProc{                       \
        "Plugin" #kind "ArraySetProc"};                                                       \
    inline constinit ArrayInsertProc<element> Plugin##kind##ArrayInsertProc{                 \
        "Plugin" #kind "ArrayInsertProc"}

QVT_ARRAY_PROCS(Integer, ::qvt::ArrayInteger);
QVT_ARRAY_PROCS(Object, REALobject);
QVT_ARRAY_PROCS(String, REALstring);
QVT_ARRAY_PROCS(UInt8, uint8_t);

#undef QVT_ARRAY_PROCS

}  // namespace qvt::host

// Array elements, through the host's element procedures or, once TestArray
// has shown that the host's private header looks as expected, directly in
// memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "abi/plugin_abi.h"
#include "hostvalues/text.h"
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

// How an element travels through the host's procedures: as a word, unless it
// is wider than a word (64-bit kinds in a 32-bit build) or floating, which go
// as their own C type in the word's place.
template <typename Element>
using Wire = std::conditional_t<std::is_floating_point_v<Element> ||
                                    (sizeof(Element) > sizeof(intptr_t)),
                                Element, intptr_t>;

template <typename Element>
Element FromWire(Wire<Element> value) {
    if constexpr (std::is_pointer_v<Element>) {
        return reinterpret_cast<Element>(value);
    } else if constexpr (std::is_same_v<Element, bool>) {
        return value != 0;
    } else {
        return static_cast<Element>(value);
    }
}

template <typename Element>
Wire<Element> ToWire(Element value) {
    if constexpr (std::is_pointer_v<Element>) {
        return reinterpret_cast<intptr_t>(value);
    } else {
        return static_cast<Wire<Element>>(value);
    }
}

}  // namespace arrayproc

// An element procedure is reached in two steps: the entry found by name is a
// selector that gives the procedure for the array at hand. The selector is
// asked on every access. Without an entry or a procedure nothing happens.
template <typename Element>
class ArrayGetProc {
public:
    constexpr ArrayGetProc(const char *name, const char *secondName)
        : selector_(name, secondName) {}

    void operator()(REALarray array, RBInteger index, Element *place) const {
        void *procedure = selector_(array);
        if (!procedure || !place) return;
        auto get = reinterpret_cast<arrayproc::Wire<Element> (*)(REALarray, RBInteger)>(procedure);
        *place = arrayproc::FromWire<Element>(get(array, index));
    }

private:
    HostBinding<void *(REALarray)> selector_;
};

template <typename Element>
class ArraySetProc {
public:
    constexpr ArraySetProc(const char *name, const char *secondName)
        : selector_(name, secondName) {}

    void operator()(REALarray array, RBInteger index, Element value) const {
        void *procedure = selector_(array);
        if (!procedure) return;
        // The host's procedure takes the value before the index.
        auto set = reinterpret_cast<void (*)(REALarray, arrayproc::Wire<Element>, RBInteger)>(
            procedure);
        set(array, arrayproc::ToWire(value), index);
    }

private:
    HostBinding<void *(REALarray)> selector_;
};

template <typename Element>
class ArrayInsertProc {
public:
    constexpr ArrayInsertProc(const char *name, const char *secondName)
        : selector_(name, secondName) {}

    void operator()(REALarray array, RBInteger index, Element value) const {
        void *procedure = selector_(array);
        if (!procedure) return;
        auto insert = reinterpret_cast<void (*)(REALarray, RBInteger, arrayproc::Wire<Element>)>(
            procedure);
        insert(array, index, arrayproc::ToWire(value));
    }

private:
    HostBinding<void *(REALarray)> selector_;
};

#define QVT_ARRAY_PROCS(kind, element)                                                        \
    inline constinit ArrayGetProc<element> Plugin##kind##ArrayGetProc{                       \
        "Plugin" #kind "ArrayGetProc", "RuntimeArrayDirectGetGetProc"};                      \
    inline constinit ArraySetProc<element> Plugin##kind##ArraySetProc{                       \
        "Plugin" #kind "ArraySetProc", "RuntimeArrayDirectGetSetProc"};                      \
    inline constinit ArrayInsertProc<element> Plugin##kind##ArrayInsertProc{                 \
        "Plugin" #kind "ArrayInsertProc", "RuntimeArrayDirectGetInsertProc"}

QVT_ARRAY_PROCS(Boolean, bool);
QVT_ARRAY_PROCS(Color, uint32_t);
QVT_ARRAY_PROCS(Currency, int64_t);  // fixed point, as the host keeps it
QVT_ARRAY_PROCS(Double, double);
QVT_ARRAY_PROCS(Int8, int8_t);
QVT_ARRAY_PROCS(Int16, int16_t);
QVT_ARRAY_PROCS(Int32, int32_t);
QVT_ARRAY_PROCS(Int64, int64_t);
QVT_ARRAY_PROCS(Integer, ::qvt::ArrayInteger);
QVT_ARRAY_PROCS(Object, REALobject);
QVT_ARRAY_PROCS(Single, float);
QVT_ARRAY_PROCS(String, REALstring);
QVT_ARRAY_PROCS(Text, REALtext);
QVT_ARRAY_PROCS(UInt8, uint8_t);
QVT_ARRAY_PROCS(UInt16, uint16_t);
QVT_ARRAY_PROCS(UInt32, uint32_t);
QVT_ARRAY_PROCS(UInt64, uint64_t);
QVT_ARRAY_PROCS(UInteger, uint32_t);

#undef QVT_ARRAY_PROCS

// One more element kind has no selectors of its own: it borrows Object's get
// and set and Integer's insert, without second names, in slots of its own.
// Its elements are words.
inline constinit ArrayGetProc<void *> OtherArrayGetProc{"PluginObjectArrayGetProc", nullptr};
inline constinit ArraySetProc<void *> OtherArraySetProc{"PluginObjectArraySetProc", nullptr};
inline constinit ArrayInsertProc<void *> OtherArrayInsertProc{"PluginIntegerArrayInsertProc",
                                                               nullptr};

}  // namespace qvt::host

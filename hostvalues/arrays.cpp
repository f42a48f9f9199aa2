#include "hostvalues/arrays.h"

#include <cstring>

#include "diagnostics/debuglog.h"
#include "hostvalues/raise.h"
#include "shell/entry.h"

namespace qvt {

// Relaxed on both flags: they publish no data of their own. gArrayDirect
// only says that the host's header has the known layout, a fact of the host
// that a reader on another thread can rely on without any ordering; a
// thread that sees a stale value either repeats the test or takes the
// host's procedures, which are always right.
std::atomic<bool> gArrayTested{false};
std::atomic<bool> gArrayDirect{false};

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

constexpr RBInteger kTestUBound = 1234;
constexpr ArrayInteger kTestFirst = 12345;
constexpr ArrayInteger kTestTenth = 123456;

// Hosts below 2008.0 keep the header in the older layout. Newer hosts keep
// the elements' pointer in word 7; on an older host the direct paths read
// the word that TestArray has just proved instead of a word of unknown
// meaning there.
hostabi::ArrayHeaderLayout HeaderLayout() {
    return gHostVersion >= 2008.0 ? hostabi::kArrayHeader2008 : hostabi::kArrayHeaderOld;
}

uintptr_t HeaderWord(REALarray array, int word) {
    uintptr_t value;
    std::memcpy(&value, reinterpret_cast<const unsigned char *>(array) + word * sizeof value,
                sizeof value);
    return value;
}

void *HeaderData(REALarray array) {
    return reinterpret_cast<void *>(HeaderWord(array, HeaderLayout().data));
}

template <typename Element>
Element LoadElement(const void *elements, RBInteger index) {
    Element value;
    std::memcpy(&value, static_cast<const unsigned char *>(elements) + index * sizeof value,
                sizeof value);
    return value;
}

template <typename Element>
void StoreElement(void *elements, RBInteger index, Element value) {
    std::memcpy(static_cast<unsigned char *>(elements) + index * sizeof value, &value,
                sizeof value);
}

// What differs between the element kinds: the host's procedures and how a
// handle taken out of or put into an array is kept alive.
template <typename Element>
struct Kind;

template <>
struct Kind<ArrayInteger> {
    static constexpr auto &get = host::PluginIntegerArrayGetProc;
    static constexpr auto &set = host::PluginIntegerArraySetProc;
    static constexpr auto &insert = host::PluginIntegerArrayInsertProc;
    static void Lock(ArrayInteger) {}
    static void Unlock(ArrayInteger) {}
};

// Object and string handles, each kept alive by the host's lock of its kind.
template <typename Handle, auto &getProc, auto &setProc, auto &insertProc, auto &lockProc,
          auto &unlockProc>
struct HandleKind {
    static constexpr auto &get = getProc;
    static constexpr auto &set = setProc;
    static constexpr auto &insert = insertProc;
    static void Lock(Handle value) {
        if (value) lockProc(value);
    }
    static void Unlock(Handle value) {
        if (value) unlockProc(value);
    }
};

template <>
struct Kind<REALobject>
    : HandleKind<REALobject, host::PluginObjectArrayGetProc, host::PluginObjectArraySetProc,
                 host::PluginObjectArrayInsertProc, host::REALLockObject, host::REALUnlockObject> {};

template <>
struct Kind<REALstring>
    : HandleKind<REALstring, host::PluginStringArrayGetProc, host::PluginStringArraySetProc,
                 host::PluginStringArrayInsertProc, host::REALLockString, host::REALUnlockString> {};

// The tests every accessor makes, in this order: nil array, index, then the
// header test. `elements` is set when the direct way is open.
bool Reachable(const char *routine, REALarray array, RBInteger index, void *&elements) {
    if (!array) {
        if (Debugging()) DebugLogStrings(routine, "Array is nil");
        return false;
    }
    const RBInteger count = host::RuntimeUBound(array) + 1;
    if (index < 0 || index >= count) {
        RaiseRangeError(index, 0, count, "index", "");
        return false;
    }
    elements = GetArrayData(array);
    return true;
}

template <typename Element>
using HostRead = void (*)(REALarray, RBInteger, Element *);

template <typename Element>
void GetElement(const char *routine, REALarray array, RBInteger index, Element *place,
                HostRead<Element> hostRead) {
    void *elements = nullptr;
    if (!Reachable(routine, array, index, elements)) return;
    if (!elements) {
        hostRead(array, index, place);
        return;
    }
    if (!place) return;
    *place = LoadElement<Element>(elements, index);
    Kind<Element>::Lock(*place);
}

template <typename Element>
void ReadByProcedure(REALarray array, RBInteger index, Element *place) {
    Kind<Element>::get(array, index, place);
}

template <typename Element>
void SetElement(REALarray array, RBInteger index, Element value) {
    void *elements = nullptr;
    if (!Reachable("REALSetArrayValue", array, index, elements)) return;
    if (!elements) {
        Kind<Element>::set(array, index, value);
        return;
    }
    Kind<Element>::Lock(value);
    Kind<Element>::Unlock(LoadElement<Element>(elements, index));
    StoreElement(elements, index, value);
}

template <typename Element>
void AppendElement(REALarray array, Element value) {
    if (!array) return;
    Kind<Element>::insert(array, host::RuntimeUBound(array) + 1, value);
}

bool Matches(const char *failure, intptr_t actual, intptr_t expected) {
    if (actual == expected) return true;
    if (Debugging()) DebugLogInt32(failure, static_cast<int32_t>(actual));
    return false;
}

// The checks of TestArray, in their order; the first that fails ends them.
bool HeaderAsExpected(REALarray array) {
    if (!array) {
        if (Debugging()) DebugLogText("Failed to allocate array");
        return false;
    }
    if (!Matches("ubound failed", host::RuntimeUBound(array), kTestUBound)) return false;

    // The flags keep these on the host's procedures.
    REALSetArrayValue(array, 0, kTestFirst);
    REALSetArrayValue(array, 9, kTestTenth);
    ArrayInteger first = 0, second = 0, tenth = 0;
    REALGetArrayValue(array, 0, &first);
    REALGetArrayValue(array, 1, &second);
    REALGetArrayValue(array, 9, &tenth);

    const hostabi::ArrayHeaderLayout layout = HeaderLayout();
    const auto word = [array](int at) { return static_cast<intptr_t>(HeaderWord(array, at)); };
    if (!(Matches("Index 0 failed", first, kTestFirst) && Matches("Index 1 failed", second, 0) &&
          Matches("Index 9 failed", tenth, kTestTenth) &&
          Matches("refCount wrong", word(layout.refCount), 1) &&
          Matches("DimensionCount wrong", word(layout.dimensionCount), 1) &&
          Matches("ubound wrong", word(layout.ubound), kTestUBound))) {
        return false;
    }
    const void *elements = reinterpret_cast<const void *>(word(layout.data));
    if (!elements) {
        if (Debugging()) DebugLogText("data is nil");
        return false;
    }
    return Matches("Index 0 failed", LoadElement<ArrayInteger>(elements, 0), kTestFirst) &&
           Matches("Index 9 failed", LoadElement<ArrayInteger>(elements, 9), kTestTenth);
}

}  // namespace

void TestArray() {
    if (Debugging()) DebugLogDouble("TestArray", gHostVersion);
    // First of all, so that the element accesses of the test neither start
    // it again nor go the direct way.
    gArrayTested.store(true, kRelaxed);
    gArrayDirect.store(false, kRelaxed);
    REALarray array =
        host::RuntimeArrayCreateSingleDimBoundedArray(kArrayTypeInteger, kTestUBound);
    if (HeaderAsExpected(array)) gArrayDirect.store(true, kRelaxed);
    if (array) host::REALUnlockObject(reinterpret_cast<REALobject>(array));
}

void *GetArrayData(REALarray array) {
    if (!gArrayTested.load(kRelaxed)) TestArray();
    if (!gArrayDirect.load(kRelaxed) || !array) return nullptr;
    return HeaderData(array);
}

RBInteger GetArrayUBound(REALarray array) { return array ? host::RuntimeUBound(array) : -1; }

RBInteger REALGetArrayInt(REALarray array, RBInteger index) {
    ArrayInteger value = 0;
    GetElement("REALGetArrayInt", array, index, &value, &ReadByProcedure<ArrayInteger>);
    return value;
}

REALobject REALGetArrayObject(REALarray array, RBInteger index) {
    REALobject value = nullptr;
    GetElement<REALobject>("REALGetArrayObject", array, index, &value,
                           [](REALarray a, RBInteger i, REALobject *place) {
                               *place = host::RuntimeDirectReadObjectArray(a, i);
                           });
    return value;
}

REALstring REALGetArrayString(REALarray array, RBInteger index) {
    REALstring value = nullptr;
    GetElement<REALstring>("REALGetArrayString", array, index, &value,
                           [](REALarray a, RBInteger i, REALstring *place) {
                               *place = host::RuntimeDirectReadStringArray(a, i);
                           });
    return value;
}

void REALGetArrayValue(REALarray array, RBInteger index, ArrayInteger *value) {
    GetElement("REALGetArrayValue", array, index, value, &ReadByProcedure<ArrayInteger>);
}

void REALGetArrayValue(REALarray array, RBInteger index, REALobject *value) {
    GetElement("REALGetArrayValue", array, index, value, &ReadByProcedure<REALobject>);
}

void REALGetArrayValue(REALarray array, RBInteger index, REALstring *value) {
    GetElement("REALGetArrayValue", array, index, value, &ReadByProcedure<REALstring>);
}

void REALSetArrayValue(REALarray array, RBInteger index, ArrayInteger value) {
    SetElement(array, index, value);
}

void REALSetArrayValue(REALarray array, RBInteger index, REALobject value) {
    SetElement(array, index, value);
}

void REALSetArrayValue(REALarray array, RBInteger index, REALstring value) {
    SetElement(array, index, value);
}

void REALAppendArrayValue(REALarray array, ArrayInteger value) { AppendElement(array, value); }

void REALAppendArrayValue(REALarray array, REALobject value) { AppendElement(array, value); }

void REALAppendArrayValue(REALarray array, REALstring value) { AppendElement(array, value); }

}  // namespace qvt

// Binary contract between the plug-in and its host: handle types, definition
// records and the host's string-data record. Both sides include this header,
// so the plug-in and the simulated host agree word for word on every build.
#pragma once

#include <cstddef>
#include <cstdint>

// The host's Integer, and every argument a declaration calls Integer: the
// whole word, so a 64-bit build reaches offsets and counts past 2 GiB. Only
// a result that is defined by 32-bit wrap-around cuts it, saying why there.
using RBInteger = intptr_t;
using REALobject = struct REALobjectOpaque *;
using REALstring = struct REALstringOpaque *;
using REALarray = struct REALarrayOpaque *;
using REALclassRef = struct REALclassOpaque *;
using REALproc = void (*)(void);
using REALresolver = void *(*)(const char *entryName);

// Counts and flags occupy a whole word but carry a 32-bit value.
using RBWord = uintptr_t;

struct REALattributeDefinition {
    const char *name;
    const char *value;
};

struct REALmethodDefinition {
    REALproc function;
    REALproc setterFunction;
    const char *declaration;
    RBWord flags;
    RBWord attributeCount;
    REALattributeDefinition *attributes;
};

struct REALpropertyDefinition {
    void *hostWord0;
    const char *name;
    const char *type;
    RBWord flags;
    REALproc getter;
    REALproc setter;
    intptr_t offset;
    void *editor;
    RBWord enumCount;
    void *enumEntries;
    RBWord attributeCount;
    REALattributeDefinition *attributes;
};

struct REALconstantDefinition {
    const char *declaration;
    void *passed1;
    void *passed2;
    RBWord attributeCount;
    REALattributeDefinition *attributes;
};

struct REALeventDefinition {
    const char *declaration;
    uintptr_t hostSlot;
    RBWord attributeCount;
    REALattributeDefinition *attributes;
};

struct REALeventInstanceDefinition;

struct REALdelegateDefinition {
    const char *declaration;
    RBWord flags;
    RBWord attributeCount;
    REALattributeDefinition *attributes;
};

struct REALstructureDefinition {
    void *passed[4];
    void *newFormOnly[2];
};

struct REALenumDefinition {
    void *passed0;
    void *passed1;
    RBWord flags;
    void *passed3;
    void *passed4;
    void *newFormOnly[2];
};

struct REALclassDefinition {
    RBWord version;
    const char *name;
    const char *superName;
    RBWord dataSize;
    RBWord forSystemUse;
    void *hostField5;
    REALproc destructor;
    REALpropertyDefinition *properties;
    RBWord propertyCount;
    REALmethodDefinition *methods;
    RBWord methodCount;
    REALeventDefinition *events;
    RBWord eventCount;
    REALeventInstanceDefinition *eventInstances;
    RBWord eventInstanceCount;
    void *hostField15;
    REALattributeDefinition *attributes;
    RBWord attributeCount;
    REALconstantDefinition *constants;
    RBWord constantCount;
    RBWord flags;
    REALpropertyDefinition *sharedProperties;
    RBWord sharedPropertyCount;
    REALmethodDefinition *sharedMethods;
    RBWord sharedMethodCount;
    REALdelegateDefinition *delegates;
    RBWord delegateCount;
    REALenumDefinition *enums;
    RBWord enumCount;
    uintptr_t unused29;
};

struct REALmoduleDefinition {
    RBWord version;
    const char *name;
    REALmethodDefinition *methods;
    RBWord methodCount;
    REALconstantDefinition *constants;
    RBWord constantCount;
    REALpropertyDefinition *properties;
    RBWord propertyCount;
    REALstructureDefinition *structures;
    RBWord structureCount;
    REALenumDefinition *enums;
    RBWord enumCount;
    REALattributeDefinition *attributes;
    RBWord attributeCount;
    REALdelegateDefinition *delegates;
    RBWord delegateCount;
    uintptr_t unused16[8];
    RBWord flags;
    uintptr_t unused25[2];
};

struct REALinterfaceDefinition {
    RBWord version;
    const char *name;
    REALmethodDefinition *methods;
    RBWord methodCount;
    REALattributeDefinition *attributes;
    RBWord attributeCount;
};

struct REALcontrolDefinition {
    RBWord version;
    const char *name;
    RBWord dataSize;
    RBWord flags;
    void *passed4;
    void *passed5;
    RBWord defaultWidth;
    RBWord defaultHeight;
    REALpropertyDefinition *properties;
    RBWord propertyCount;
    REALmethodDefinition *methods;
    RBWord methodCount;
    REALeventDefinition *events;
    RBWord eventCount;
    void *passed14;
    RBWord forSystemUse;
    REALeventInstanceDefinition *eventInstances;
    RBWord eventInstanceCount;
    void *passed18;
    REALattributeDefinition *attributes;
    RBWord attributeCount;
    REALconstantDefinition *constants;
    RBWord constantCount;
    REALpropertyDefinition *sharedProperties;
    RBWord sharedPropertyCount;
    REALmethodDefinition *sharedMethods;
    RBWord sharedMethodCount;
    REALdelegateDefinition *delegates;
    RBWord delegateCount;
    REALenumDefinition *enums;
    RBWord enumCount;
};

// Of the database records only the first words are read; the host knows
// the rest, which follows these words.
struct REALdbCursorDefinition {
    RBWord version;
    void *passed1;
    REALproc closeCursor;
};

struct REALdbEngineDefinition {
    RBWord version;
    void *passed1;
    REALproc closeDatabase;
};

// The host's string-data record: data, length in bytes, three host words.
struct REALstringData {
    const void *data;
    RBInteger length;
    uintptr_t hostWords[3];
};

namespace hostabi {

constexpr std::size_t kWord = sizeof(void *);

template <typename Record>
constexpr bool HasWords(std::size_t words) {
    return sizeof(Record) == words * kWord;
}

static_assert(HasWords<REALmethodDefinition>(6));
static_assert(HasWords<REALpropertyDefinition>(12));
static_assert(HasWords<REALconstantDefinition>(5));
static_assert(HasWords<REALeventDefinition>(4));
static_assert(HasWords<REALdelegateDefinition>(4));
static_assert(HasWords<REALstructureDefinition>(6));
static_assert(HasWords<REALenumDefinition>(7));
static_assert(HasWords<REALattributeDefinition>(2));
static_assert(HasWords<REALclassDefinition>(30));
static_assert(HasWords<REALmoduleDefinition>(27));
static_assert(HasWords<REALinterfaceDefinition>(6));
static_assert(HasWords<REALcontrolDefinition>(31));
static_assert(HasWords<REALstringData>(5));

// Encoding ids as the host numbers its text encodings.
enum : uint32_t {
    kEncodingMacRoman = 0,
    kEncodingUTF16 = 0x100,
    kEncodingLatin1 = 0x201,
    kEncodingWindowsLatin1 = 0x500,
    kEncodingASCII = 0x600,
    kEncodingUnknown = 0xFFFF,
    kEncodingUTF8 = 0x8000100,
    kEncodingUTF32 = 0xC000100,
};

// Array header words on hosts of 2008.0 or above, and below.
struct ArrayHeaderLayout {
    int refCount;
    int dimensionCount;
    int ubound;
    int data;
};
constexpr ArrayHeaderLayout kArrayHeader2008{3, 8, 11, 7};
constexpr ArrayHeaderLayout kArrayHeaderOld{0, 3, 6, 2};

}  // namespace hostabi

extern "C" void REALPluginMain(REALresolver resolver);

// A host for the plug-in that lives in the test process: it answers the
// resolver's names, keeps reference-counted objects and strings, converts
// text, delivers exceptions and captures registrations. Everything the
// plug-in does to it is logged and checked, so tests can assert on the
// conversation and on the balance of references.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "abi/plugin_abi.h"

namespace simhost {

struct Options {
    double version = 2013.04;
    bool hasVersionEntry = true;
    bool inRuntime = false;
    std::vector<std::string> missingEntries;
    std::vector<std::string> missingClasses;
    // A header that matches neither known layout, so a header test fails.
    bool oldArrayHeader = false;
    // Turn off for long loops; faults are still recorded.
    bool logCalls = true;
    // MemoryBlock's Constructor(bytes as Integer) makes the block this many
    // bytes smaller than asked.
    RBInteger constructorShortfall = 0;
};

// Written into forSystemUse of every registered class: instance data starts
// this many bytes after the instance's address.
constexpr RBWord kInstanceDataOffset = 24;

// Element type codes of RuntimeArrayCreateSingleDimBoundedArray. Each kind
// has its selectors Plugin<Kind>ArrayGetProc/SetProc/InsertProc (and the
// kind-blind RuntimeArrayDirectGet*Proc); the procedures they give pass
// elements as intptr_t. Other kinds' names answer nil.
enum ArrayType : int32_t {
    kArrayInteger = 0,  // 4-byte elements
    kArrayUInt8 = 1,
    kArrayInt8 = 2,
    kArrayBoolean = 3,
    kArrayInt16 = 4,
    kArrayUInt16 = 5,
    kArrayInt32 = 6,
    kArrayUInt32 = 7,
    kArrayInt64 = 8,
    kArrayUInt64 = 9,
};

// Drops every object, string, log and registration. Handles of the previous
// epoch become unknown. Destructors of plug-in classes are not run.
void Reset(const Options &options = {});
Options CurrentOptions();

// ---- Resolver -------------------------------------------------------------

// The function to hand to REALPluginMain. Unknown and missing names answer
// nullptr; every question is logged.
void *Resolve(const char *name);
// What Resolve would answer, without logging the question.
bool HasEntry(std::string_view name);
std::vector<std::string> ResolverLog();
void ClearResolverLog();

// ---- Logs and faults ------------------------------------------------------

struct Call {
    std::string entry;
    std::string args;
};
std::vector<Call> Calls();
void ClearCalls();
std::size_t CountCalls(std::string_view entry);

// Misuse the host noticed: unbalanced unlocks, ended or unknown handles,
// writes past a block's end, double disposal and the like.
std::vector<std::string> Faults();
void ClearFaults();

// The next call of `entry` throws what `raise` throws, once the call is
// logged, before the entry does anything.
void ThrowOnNextCall(std::string entry, std::function<void()> raise);

// Fallible calls answer as a host short of memory or of a conversion would:
// newMemoryBlock, PtrToMemoryBlock, PluginNewInstance, REALBuildString,
// REALBuildStringWithEncoding, REALConvertString and StringGetCString give
// nil, memoryBlockGetPtr null, PluginGetStringData false. From FailCall on
// they are counted, and the nth of kind `entry` (of any kind when empty)
// fails; nth 0 only counts. Reset and StopFailing end it.
void FailCall(std::size_t nth, std::string entry = {});
// The fallible calls counted since FailCall, in order, the failed one included.
std::vector<std::string> FallibleCalls();
void StopFailing();
// For a test seam in the plug-in: counts a fallible call of `entry` and
// answers whether it is the one to fail.
bool FailNow(std::string_view entry);

// ---- Accounting -----------------------------------------------------------

// Total references, the host's own included; 0 for ended handles, -1 for
// handles the host does not know.
long RefCount(REALobject object);
long RefCount(REALstring string);
long RefCount(REALarray array);
std::size_t LiveObjects();
std::size_t LiveStrings();
// String-data records given out by PluginGetStringData and not yet disposed.
std::size_t OpenStringData();
// A stable readable name such as "MemoryBlock#3", "String#2" or "nil".
std::string Name(REALobject object);
std::string Name(REALstring string);

// References held by callers (the host's own, such as those of pending
// exceptions, are left out) of every live handle, and open string data.
struct Snapshot {
    std::vector<std::pair<uint64_t, long>> objects;  // serial, references
    std::vector<std::pair<uint64_t, long>> strings;
    std::size_t stringData = 0;
};
Snapshot TakeSnapshot();
// Empty when every handle has the references it had at the snapshot, except
// the given ones, which must have exactly one more (new handles: one).
// Otherwise one line per difference.
std::string CompareSnapshot(const Snapshot &before,
                            const std::vector<REALobject> &givenObjects = {},
                            const std::vector<REALstring> &givenStrings = {});

// ---- Memory blocks --------------------------------------------------------

// Each carries one reference for the caller.
REALobject NewBlock(RBInteger size);  // zeroed
REALobject NewBlock(std::span<const uint8_t> bytes);
REALobject NewForeignBlock(void *address);  // size unknown: reports -1
REALobject NewMemorylessBlock();            // null pointer, size 0
// PluginNewInstance("MemoryBlock") gives a block without memory, and
// REALLoadObjectMethod its members "Constructor(bytes as Integer)",
// "Operator_Convert(value as Ptr)" and "Operator_Convert() As Ptr", logged as
// MemoryBlock.Constructor, .ConvertFromPtr and .ConvertToPtr. Asked for a
// negative size, the constructor raises OutOfBoundsException.
// The block's bytes; empty for blocks without memory or of unknown size.
std::span<uint8_t> Bytes(REALobject block);
void Release(REALobject object);

// Blocks and strings the host could not give memory to, oldest first, and
// forgets them: who asked ("newMemoryBlock", "MemoryBlock.Constructor",
// "NewBlock"; "REALBuildString", "REALBuildStringWithEncoding",
// "REALConvertString", "PluginGetStringData", "RuntimeAddString") and the
// size in bytes. Blocks above 512 GiB are refused without asking the system.
// The host answers such a request as it answers any it cannot meet (nil, a
// false PluginGetStringData, the constructor an OutOfMemoryException), never
// by ending the process; this list tells one that could not be had from a
// nil given on purpose. Requests that FailCall refuses are not in it.
struct MemoryShortfall {
    std::string entry;
    RBInteger size = 0;
};
std::vector<MemoryShortfall> TakeMemoryShortfalls();

// ---- Fenced blocks --------------------------------------------------------
// While on, every block the host gives memory to (NewBlock, newMemoryBlock,
// the constructor member, also when it gives a block new memory) has its
// last byte at a page boundary followed by a page no access reaches, and a
// page no access reaches in front of the page of its first byte. A read or
// write past the end faults at the first byte past it; in front, the bytes
// between the fence and the first byte (less than a page) hold the guard
// pattern, checked as in unfenced blocks, and the fault comes past them.
// Blocks with memory from before keep it as it is, and so do blocks without
// memory and blocks over memory not the host's (foreign ones, such as those
// over a MemoryBlockQVT's allocation or reserved address space).
// QVT_FENCED_BLOCKS=1 in the environment turns it on when the host starts;
// Reset keeps the setting.
void SetFencedBlocks(bool on);
bool FencedBlocks();

// The live block whose bytes, guard zones or fence pages hold `address`.
struct AddressOwner {
    REALobject block = nullptr;
    std::string name;  // as Name(block)
    RBInteger size = 0;
    // From the block's first byte: negative in front of it, size or more
    // past its end.
    std::ptrdiff_t offset = 0;
};
// Takes the host lock, which is recursive, so the thread that faulted
// inside a host entry may call it, and allocates the name. Not for a signal
// handler: call it once the handler has returned or jumped out (siglongjmp),
// or use the snapshot below.
std::optional<AddressOwner> LocateAddress(const void *address);

// The same, for a signal handler: take the snapshot before the call (blocks
// the call makes are not in it), then search it in the handler; FindExtent
// neither locks nor allocates.
struct BlockExtent {
    REALobject block = nullptr;
    std::string name;
    const uint8_t *begin = nullptr;  // the first byte
    RBInteger size = 0;
    const uint8_t *reachBegin = nullptr;  // guard zone or fence page included
    const uint8_t *reachEnd = nullptr;
};
std::vector<BlockExtent> LiveBlockExtents();
const BlockExtent *FindExtent(std::span<const BlockExtent> extents, const void *address);

// Fenced memory that belongs to no block, for an allocator standing in for
// the plug-in's own in tests: zeroed, with the fences of a block. As calloc,
// realloc and free: null when there is none, and a reallocation that fails
// leaves the memory as it was. Freeing checks the front guard zone (a
// fault, as for blocks).
void *AllocateFenced(std::size_t size);
void *ReallocateFenced(void *memory, std::size_t size);
void FreeFenced(void *memory);

// ---- Strings --------------------------------------------------------------
// UTF-16 and UTF-32 text (0x100, 0xC000100) is in native byte order; hosts
// below 2013.0 convert no UTF-32, and below 2012.0 lack
// REALBuildStringWithEncoding.

REALstring NewString(std::string_view bytes, uint32_t encoding = hostabi::kEncodingUTF8);
std::string StringBytes(REALstring string);
uint32_t StringEncoding(REALstring string);
// The text converted to UTF-8; nullopt when the host cannot convert it.
std::optional<std::string> StringUTF8(REALstring string);
void Release(REALstring string);

// ---- Exceptions -----------------------------------------------------------

struct RaisedException {
    std::string className;
    std::optional<std::string> message;  // UTF-8; nullopt when Message was nil
    RBInteger errorNumber = 0;
};
// Exceptions raised since the last call, oldest first; the host's references
// to them are released.
std::vector<RaisedException> TakeExceptions();

// ---- Arrays ---------------------------------------------------------------

// One reference for the caller; nil for an unknown type.
REALarray NewArray(int32_t type, const std::vector<int64_t> &values);
std::vector<int64_t> ArrayValues(REALarray array);
void Release(REALarray array);

// ---- Registrations and class instances ------------------------------------

// kind is the entry's name without "PluginRegister": "Class",
// "ClassExtension", "Module", "Method", "Control", "Interface", "DBCursor",
// "DBEngine", "DBTable", "MobileControl".
struct Registration {
    std::string kind;
    const void *record;
};
std::vector<Registration> Registrations();
// The number given to RegisterPluginVersion; 0 before it.
int32_t RecordVersionTold();

struct Member {
    std::string role;  // "method", "shared method", "property", "shared property",
                       // "constant", "event", "delegate"
    std::string text;  // declaration, or "Name as Type" for a property
};
// A registration read as the host reads it, honouring the old record forms
// when the version told is below 10 (nothing told reads the current forms).
struct RegistrationInfo {
    std::string kind;
    std::string name;  // class or module name, a method's declaration
    std::vector<Member> members;
    std::optional<uint64_t> dataSize;
    std::size_t Count(std::string_view role) const;
};
RegistrationInfo Inspect(const Registration &registration);

struct MethodRef {
    std::string kind;           // kind of the registration it came with
    std::string container;      // class or module name; empty for a global method
    std::string declaration;    // as registered
    std::string receiverClass;  // whose instance comes first; empty if none
    REALproc function = nullptr;
    REALproc setterFunction = nullptr;
};
std::vector<MethodRef> RegisteredMethods();
// Finds a method by its declaration, as registered or with its
// "extends ref as <class>" parameter dropped. A non-empty receiverClass
// keeps only methods whose receiver is of that class.
std::optional<MethodRef> FindMethod(std::string_view declaration,
                                    std::string_view receiverClass = {});
// A module method's declaration without its "extends ref as <class>"
// parameter; other declarations unchanged.
std::string PlainDeclaration(std::string_view declaration);

struct PropertyRef {
    std::string container;
    std::string name;
    std::string type;
    REALproc getter = nullptr;
    REALproc setter = nullptr;
};
std::optional<PropertyRef> FindProperty(std::string_view name, std::string_view container = {});

// An instance of a registered class, as PluginNewInstance makes it, without
// logging a call. One reference for the caller; nil for an unknown class.
REALobject NewInstance(std::string_view className);
// The class data of an instance (dataSize bytes at kInstanceDataOffset).
std::span<uint8_t> InstanceData(REALobject instance);
// A registered class as CreateInstance takes it and RuntimeClassOf gives it
// (the address of its record); nil for an unknown class. RuntimeClassOf and
// the class-property entries come from the second resolver that the entry
// GetRBScriptResolver is; its questions are logged as calls of
// "ScriptResolver".
REALclassRef ClassOf(std::string_view className);

}  // namespace simhost

#include "shell/definitions.h"

#include "diagnostics/debuglog.h"
#include "memory/bits.h"
#include "memory/slices.h"
#include "shell/entry.h"

namespace qvt {

namespace {

// Every method record of this plug-in has the same flags and no attributes.
constexpr REALmethodDefinition Method(REALproc function, const char *declaration,
                                      REALproc setterFunction = nullptr) {
    return {function, setterFunction, declaration, kFlagConsoleSafe, 0, nullptr};
}

REALattributeDefinition gHiddenAttribute[] = {{"Hidden", ""}};

}  // namespace

// The order of this array is the order in which the methods reach the host.
// clang-format off
REALmethodDefinition gMemoryBlockExtensionMethods[] = {
    Method(Proc<intptr_t(REALobject, uint64_t)>(&GetBitQVT), "GetBitQVT(Bit as UInt64) as Integer"),
    Method(Proc<bool(REALobject, uint64_t)>(&IsBitSetQVT), "IsBitSetQVT(Bit as UInt64) as Boolean"),
    Method(Proc<void(REALobject, uint64_t, intptr_t)>(&SetBitQVT), "SetBitQVT(Bit as UInt64, Value as Integer)"),
    Method(Proc<void(REALobject, uint64_t)>(&SetBitQVT), "SetBitQVT(Bit as UInt64)"),
    Method(Proc<void(REALobject, uint64_t, bool)>(&SetBitQVT), "SetBitQVT(Bit as UInt64, Value as Boolean)"),
    Method(Proc<void(REALobject, uint64_t)>(&ClearBitQVT), "ClearBitQVT(Bit as UInt64)"),
    Method(Proc<REALobject(REALobject, intptr_t)>(&MidQVT), "MidQVT(offset as integer) as Memoryblock"),
    Method(Proc<REALobject(REALobject, intptr_t, intptr_t)>(&MidQVT), "MidQVT(offset As Integer, length As Integer) as Memoryblock"),
    Method(Proc<REALobject(REALobject, intptr_t)>(&LeftQVT), "LeftQVT(length as integer) as Memoryblock"),
    Method(Proc<REALobject(REALobject, intptr_t)>(&RightQVT), "RightQVT(length As Integer) as Memoryblock"),
    Method(Proc<REALobject(REALobject, REALobject)>(&AppendQVT), "AppendQVT(other as Memoryblock) as Memoryblock"),
    Method(Proc<void(REALobject, intptr_t, intptr_t, intptr_t)>(&FillBytesQVT), "FillBytesQVT(offset as integer, count as integer, value as integer)"),
    Method(Proc<void(REALobject, intptr_t, intptr_t)>(&InvertBytesQVT), "InvertBytesQVT(offset as integer, count as integer)"),
};
// clang-format on

const std::size_t kMemoryBlockExtensionMethodCount = std::size(gMemoryBlockExtensionMethods);

REALclassDefinition gMemoryBlockExtension = {
    .version = kCurrentREALControlVersion,
    .name = "MemoryBlock",
    .superName = nullptr,
    .dataSize = 0,
    .forSystemUse = 0,
    .hostField5 = nullptr,
    .destructor = nullptr,
    .properties = nullptr,
    .propertyCount = 0,
    .methods = gMemoryBlockExtensionMethods,
    .methodCount = std::size(gMemoryBlockExtensionMethods),
    .events = nullptr,
    .eventCount = 0,
    .eventInstances = nullptr,
    .eventInstanceCount = 0,
    .hostField15 = nullptr,
    .attributes = nullptr,
    .attributeCount = 0,
    .constants = nullptr,
    .constantCount = 0,
    .flags = kFlagConsoleSafe,
    .sharedProperties = nullptr,
    .sharedPropertyCount = 0,
    .sharedMethods = nullptr,
    .sharedMethodCount = 0,
    .delegates = nullptr,
    .delegateCount = 0,
    .enums = nullptr,
    .enumCount = 0,
    .unused29 = 0,
};

// clang-format off
REALmethodDefinition gGlobalMethods[] = {
    Method(Proc<REALobject(intptr_t)>(&NewMemoryBlockFromPtrQVT), "NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock"),
    Method(Proc<REALobject(void *, intptr_t)>(&NewMemoryBlockWithBytesQVT), "NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock"),
};
// clang-format on

const intptr_t kGlobalMethodCount = static_cast<intptr_t>(std::size(gGlobalMethods));

REALpropertyDefinition gDebuggingProperty = {
    .hostWord0 = nullptr,
    .name = "Debugging",
    .type = "Boolean",
    .flags = 0x26,
    .getter = Proc<bool(REALobject, intptr_t)>(&DebuggingGetter),
    .setter = Proc<void(REALobject, intptr_t, intptr_t)>(&DebuggingSetter),
    .offset = 0,
    .editor = nullptr,
    .enumCount = 0,
    .enumEntries = nullptr,
    .attributeCount = std::size(gHiddenAttribute),
    .attributes = gHiddenAttribute,
};

}  // namespace qvt

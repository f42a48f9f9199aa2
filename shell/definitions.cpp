#include "shell/definitions.h"

#include "diagnostics/debuglog.h"
#include "memory/bits.h"
#include "memory/search.h"
#include "memory/slices.h"
#include "shell/entry.h"

namespace qvt {

namespace {

REALattributeDefinition gHiddenAttribute[] = {{"Hidden", ""}};

}  // namespace

// The order of this array is the order in which the methods reach the host.
// clang-format off
REALmethodDefinition gMemoryBlockExtensionMethods[] = {
    QVT_METHOD(intptr_t(REALobject, REALarray, intptr_t), FindByteQVT, "FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer"),
    QVT_METHOD(intptr_t(REALobject, uint64_t), GetBitQVT, "GetBitQVT(Bit as UInt64) as Integer"),
    QVT_METHOD(bool(REALobject, uint64_t), IsBitSetQVT, "IsBitSetQVT(Bit as UInt64) as Boolean"),
    QVT_METHOD(void(REALobject, uint64_t, intptr_t), SetBitQVT, "SetBitQVT(Bit as UInt64, Value as Integer)"),
    QVT_METHOD(void(REALobject, uint64_t), SetBitQVT, "SetBitQVT(Bit as UInt64)"),
    QVT_METHOD(void(REALobject, uint64_t, bool), SetBitQVT, "SetBitQVT(Bit as UInt64, Value as Boolean)"),
    QVT_METHOD(void(REALobject, uint64_t), ClearBitQVT, "ClearBitQVT(Bit as UInt64)"),
    QVT_METHOD(bool(REALobject, intptr_t, intptr_t, REALobject, intptr_t), BytesEqualQVT, "BytesEqualQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean"),
    QVT_METHOD(bool(REALobject, intptr_t, intptr_t), BytesZeroQVT, "BytesZeroQVT(srcOfs as Integer, numBytes as Integer) as Boolean"),
    QVT_METHOD(intptr_t(REALobject, intptr_t, intptr_t, intptr_t), FindNotByteQVT, "FindNotByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer"),
    QVT_METHOD(intptr_t(REALobject, intptr_t, intptr_t, intptr_t), FindByteQVT, "FindByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer"),
    QVT_METHOD(intptr_t(REALobject, intptr_t, intptr_t, REALstring), FindStringQVT, "FindStringQVT(srcOfs as Integer, maxBytes as Integer, target as String) as Integer"),
    QVT_METHOD(intptr_t(REALobject, intptr_t, intptr_t, REALobject, intptr_t, intptr_t), FindBytesQVT, "FindBytesQVT(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as Integer) as Integer"),
    QVT_METHOD(REALobject(REALobject, intptr_t), MidQVT, "MidQVT(offset as integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, intptr_t, intptr_t), MidQVT, "MidQVT(offset As Integer, length As Integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, intptr_t), LeftQVT, "LeftQVT(length as integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, intptr_t), RightQVT, "RightQVT(length As Integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, REALobject), AppendQVT, "AppendQVT(other as Memoryblock) as Memoryblock"),
    QVT_METHOD(void(REALobject, intptr_t, intptr_t, intptr_t), FillBytesQVT, "FillBytesQVT(offset as integer, count as integer, value as integer)"),
    QVT_METHOD(void(REALobject, intptr_t, intptr_t), InvertBytesQVT, "InvertBytesQVT(offset as integer, count as integer)"),
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
    QVT_METHOD(REALobject(intptr_t), NewMemoryBlockFromPtrQVT, "NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock"),
    QVT_METHOD(REALobject(void *, intptr_t), NewMemoryBlockWithBytesQVT, "NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock"),
};
// clang-format on

const intptr_t kGlobalMethodCount = static_cast<intptr_t>(std::size(gGlobalMethods));

REALpropertyDefinition gDebuggingProperty = {
    .hostWord0 = nullptr,
    .name = "Debugging",
    .type = "Boolean",
    .flags = 0x26,
    .getter = QVT_PROC(bool(REALobject, intptr_t), DebuggingGetter),
    .setter = QVT_PROC(void(REALobject, intptr_t, intptr_t), DebuggingSetter),
    .offset = 0,
    .editor = nullptr,
    .enumCount = 0,
    .enumEntries = nullptr,
    .attributeCount = std::size(gHiddenAttribute),
    .attributes = gHiddenAttribute,
};

}  // namespace qvt

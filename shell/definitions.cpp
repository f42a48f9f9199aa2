#include "shell/definitions.h"

#include "diagnostics/debuglog.h"
#include "kernels/bitwise.h"
#include "kernels/colour.h"
#include "kernels/masks.h"
#include "kernels/minmax.h"
#include "kernels/scaling.h"
#include "kernels/sweep.h"
#include "kernels/width.h"
#include "memory/addresses.h"
#include "memory/bits.h"
#include "memory/copy.h"
#include "memory/endian.h"
#include "memory/memoryblockqvt.h"
#include "memory/mirror.h"
#include "memory/search.h"
#include "memory/slices.h"
#include "memory/strided.h"
#include "shell/entry.h"

namespace qvt {

namespace {

REALattributeDefinition gHiddenAttribute[] = {{"Hidden", ""}};

}  // namespace

// The order of this array is the order in which the methods reach the host.
// clang-format off
REALmethodDefinition gMemoryBlockExtensionMethods[] = {
    QVT_METHOD(RBInteger(REALobject, REALarray, RBInteger), FindByteQVT, "FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer"),
    QVT_METHOD(RBInteger(REALobject, uint64_t), GetBitQVT, "GetBitQVT(Bit as UInt64) as Integer"),
    QVT_METHOD(bool(REALobject, uint64_t), IsBitSetQVT, "IsBitSetQVT(Bit as UInt64) as Boolean"),
    QVT_METHOD(void(REALobject, uint64_t, RBInteger), SetBitQVT, "SetBitQVT(Bit as UInt64, Value as Integer)"),
    QVT_METHOD(void(REALobject, uint64_t), SetBitQVT, "SetBitQVT(Bit as UInt64)"),
    QVT_METHOD(void(REALobject, uint64_t, bool), SetBitQVT, "SetBitQVT(Bit as UInt64, Value as Boolean)"),
    QVT_METHOD(void(REALobject, uint64_t), ClearBitQVT, "ClearBitQVT(Bit as UInt64)"),
    QVT_METHOD(void(REALobject, RBInteger), ConvertRGB12BitTo8BitQVT, "ConvertRGB12BitTo8BitQVT(Width as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger, RBInteger, RBInteger, RBInteger, RBInteger, RBInteger, double, RBInteger, RBInteger), Calc3te, "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as integer = 0)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger, bool), Calc2teCMY, "_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger, bool), Calc2teCMYK, "_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger, RBInteger, double), CalcLogSweepTableQVT, "_CalcLogSweepTableQVT(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, REALobject), ConvertPolarToCartesian, "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, REALobject), ConvertCartesianToPolar, "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)"),
    QVT_METHOD(void(REALobject, double, RBInteger, RBInteger, RBInteger), MultiplyUInt16QVT, "MultiplyUInt16QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0, MultiplyOnlyOver as Integer = -1)"),
    QVT_METHOD(void(REALobject, double, RBInteger, RBInteger, RBInteger), MultiplyUInt8QVT, "MultiplyUInt8QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0, MultiplyOnlyOver as Integer = -1)"),
    QVT_METHOD(bool(REALobject, void *, void *, RBInteger, bool, RBInteger, RBInteger), MinQVT, "MinQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean"),
    QVT_METHOD(bool(REALobject, void *, void *, RBInteger, bool, RBInteger, RBInteger), MaxQVT, "MaxQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), MirrorBitsInBytesQVT, "MirrorBitsInBytesQVT(offsetByte as Integer, lengthByte as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), MirrorBytesQVT, "MirrorBytesQVT(offsetByte as Integer = 0, lengthByte as integer = -1)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), MirrorBitsQVT, "MirrorBitsQVT(offsetBit as Integer, lengthBit as integer)"),
    QVT_METHOD(uint64_t(REALobject, int64_t), AddressQVT, "AddressQVT(offset as Int64 = 0) as UInt64"),
    QVT_METHOD(void *(REALobject, int64_t), AddressPtrQVT, "AddressPtrQVT(offset as Int64 = 0) as Ptr"),
    QVT_METHOD_ASSIGNABLE(REALstring(REALobject, RBInteger), OSTypeQVT, void(REALobject, RBInteger, REALstring), OSTypeQVT, "OSTypeQVT(offset as Integer) as String"),
    QVT_METHOD(REALstring(REALobject, RBInteger, RBInteger), GetStringQVT, "GetStringQVT(offset as Integer, numBytes as Integer) as String"),
    QVT_METHOD(void(REALobject, REALstring, RBInteger), SetStringQVT, "SetStringQVT(str as String, offset as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), SwapBytesQVT, "SwapBytesQVT(offset as Integer, numBytes as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), SwapBytes16QVT, "SwapBytes16QVT(offset as Integer, numBytes as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), SwapBytes32QVT, "SwapBytes32QVT(offset as Integer, numBytes as Integer)"),
    QVT_METHOD(bool(REALobject, RBInteger, RBInteger, REALobject, RBInteger), BytesEqualQVT, "BytesEqualQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean"),
    QVT_METHOD(bool(REALobject, RBInteger, RBInteger), BytesZeroQVT, "BytesZeroQVT(srcOfs as Integer, numBytes as Integer) as Boolean"),
    QVT_METHOD(RBInteger(REALobject, RBInteger, RBInteger, RBInteger), FindNotByteQVT, "FindNotByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer"),
    QVT_METHOD(RBInteger(REALobject, RBInteger, RBInteger, RBInteger), FindByteQVT, "FindByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger), CopyBytesQVT, "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destOfs as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, REALobject, RBInteger), CopyBytesQVT, "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, void *), CopyBytesToMacPtrQVT, "CopyBytesToMacPtrQVT(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)"),
    QVT_METHOD(void(REALobject, void *, RBInteger, RBInteger), CopyBytesFromMacPtrQVT, "CopyBytesFromMacPtrQVT(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger), CopyBytesToMacHandleQVT, "CopyBytesToMacHandleQVT(srcOfs as Integer, numBytes as Integer, destHandle as Integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger), CopyBytesFromMacHandleQVT, "CopyBytesFromMacHandleQVT(srcHandle as Integer, numBytes as Integer, destOfs as Integer)"),
    QVT_METHOD(RBInteger(REALobject, RBInteger, RBInteger, REALstring), FindStringQVT, "FindStringQVT(srcOfs as Integer, maxBytes as Integer, target as String) as Integer"),
    QVT_METHOD(RBInteger(REALobject, RBInteger, RBInteger, REALobject, RBInteger, RBInteger), FindBytesQVT, "FindBytesQVT(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as Integer) as Integer"),
    QVT_METHOD(REALobject(REALobject, RBInteger), MidQVT, "MidQVT(offset as integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, RBInteger, RBInteger), MidQVT, "MidQVT(offset As Integer, length As Integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, RBInteger), LeftQVT, "LeftQVT(length as integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, RBInteger), RightQVT, "RightQVT(length As Integer) as Memoryblock"),
    QVT_METHOD(REALobject(REALobject, REALobject), AppendQVT, "AppendQVT(other as Memoryblock) as Memoryblock"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger, RBInteger), FillBytesQVT, "FillBytesQVT(offset as integer, count as integer, value as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), InvertBytesQVT, "InvertBytesQVT(offset as integer, count as integer)"),
    QVT_METHOD(bool(REALobject, REALobject, RBInteger, RBInteger, RBInteger, RBInteger, RBInteger), CopyNthBytesQVT, "CopyNthBytesQVT(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean"),
    QVT_METHOD(bool(REALobject, REALobject, RBInteger, RBInteger, RBInteger, RBInteger, RBInteger), CopyNthBitsQVT, "CopyNthBitsQVT(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean"),
    QVT_METHOD(bool(REALobject, REALobject, RBInteger, RBInteger, RBInteger), ExpandBitsQVT, "ExpandBitsQVT(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = 255) as boolean"),
    QVT_METHOD(void(REALobject, REALobject, RBInteger, RBInteger, RBInteger, RBInteger), CopyByteToUShortQVT, "CopyByteToUShortQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as integer, ByteCount as integer, divisor as integer)"),
    QVT_METHOD(void(REALobject, REALobject, RBInteger, RBInteger, RBInteger, RBInteger), CopyUShortToByteQVT, "CopyUShortToByteQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as integer, ByteCount as integer, divisor as integer)"),
    QVT_METHOD(REALobject(REALobject, RBInteger, REALobject), ExtractBitsQVT, "ExtractBitsQVT(Mask as integer, Dest as memoryblock=nil) as memoryblock"),
    QVT_METHOD(REALobject(REALobject, REALobject, REALobject), AndBitsQVT, "AndBitsQVT(Second as memoryblock, Dest as memoryblock=nil) as memoryblock"),
    QVT_METHOD(REALobject(REALobject, REALobject, RBInteger, REALobject), AndBitsQVT, "AndBitsQVT(Second as memoryblock, Mask as integer, Dest as memoryblock=nil) as memoryblock"),
    QVT_METHOD(REALobject(REALobject, REALobject, REALobject), BitwiseAndQVT, "BitwiseAndQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock"),
    QVT_METHOD(REALobject(REALobject, REALobject, REALobject), BitwiseOrQVT, "BitwiseOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock"),
    QVT_METHOD(REALobject(REALobject, REALobject, REALobject), BitwiseXOrQVT, "BitwiseXOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS32_BtoNQVT, "EndianS32_BtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS32_BtoLQVT, "EndianS32_BtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS32_NtoBQVT, "EndianS32_NtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS32_NtoLQVT, "EndianS32_NtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS32_LtoNQVT, "EndianS32_LtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS32_LtoBQVT, "EndianS32_LtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU32_BtoNQVT, "EndianU32_BtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU32_BtoLQVT, "EndianU32_BtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU32_NtoBQVT, "EndianU32_NtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU32_NtoLQVT, "EndianU32_NtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU32_LtoNQVT, "EndianU32_LtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU32_LtoBQVT, "EndianU32_LtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS16_BtoNQVT, "EndianS16_BtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS16_BtoLQVT, "EndianS16_BtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS16_NtoBQVT, "EndianS16_NtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS16_NtoLQVT, "EndianS16_NtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS16_LtoNQVT, "EndianS16_LtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianS16_LtoBQVT, "EndianS16_LtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU16_BtoNQVT, "EndianU16_BtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU16_BtoLQVT, "EndianU16_BtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU16_NtoBQVT, "EndianU16_NtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU16_NtoLQVT, "EndianU16_NtoLQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU16_LtoNQVT, "EndianU16_LtoNQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianU16_LtoBQVT, "EndianU16_LtoBQVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianSwap16QVT, "EndianSwap16QVT(offset as integer,count as integer)"),
    QVT_METHOD(void(REALobject, RBInteger, RBInteger), EndianSwap32QVT, "EndianSwap32QVT(offset as integer,count as integer)"),
};
// clang-format on

const std::size_t kMemoryBlockExtensionMethodCount = std::size(gMemoryBlockExtensionMethods);

// Fields left out are zero or nil.
REALclassDefinition gMemoryBlockExtension = {
    .version = kCurrentREALControlVersion,
    .name = "MemoryBlock",
    .methods = gMemoryBlockExtensionMethods,
    .methodCount = std::size(gMemoryBlockExtensionMethods),
    .flags = kFlagConsoleSafe,
};

namespace {

// clang-format off
REALpropertyDefinition gMemoryBlockQVTProperties[] = {
    QVT_READ_ONLY_PROPERTY("Address", "Int64", int64_t(REALobject, intptr_t), MemoryBlockQVT::Address),
    QVT_READ_ONLY_PROPERTY("Size", "Int64", int64_t(REALobject, intptr_t), MemoryBlockQVT::Size),
    QVT_READ_ONLY_PROPERTY("Memory", "MemoryBlock", REALobject(REALobject, intptr_t), MemoryBlockQVT::Memory),
};

REALmethodDefinition gMemoryBlockQVTMethods[] = {
    QVT_METHOD(bool(REALobject, int64_t), MemoryBlockQVT::Resize, "Resize(Size as Int64) as boolean"),
    QVT_METHOD(void(REALobject), MemoryBlockQVT::Close, "Close"),
    QVT_METHOD(bool(REALobject, int64_t), MemoryBlockQVT::Create, "Create(size as Int64) as boolean"),
    QVT_METHOD(void(REALobject), MemoryBlockQVT::Constructor, "Constructor"),
    QVT_METHOD(void(REALobject, int64_t), MemoryBlockQVT::Constructor, "Constructor(Size as Int64)"),
    QVT_METHOD(void(REALobject, REALobject), MemoryBlockQVT::Constructor, "Constructor(Mem as MemoryBlock)"),
    QVT_METHOD(void(REALobject, REALobject, int64_t, int64_t), MemoryBlockQVT::Constructor, "Constructor(Mem as MemoryBlock, Size as Int64, Offset as Int64 = 0)"),
    QVT_METHOD(void(REALobject, REALstring), MemoryBlockQVT::Constructor, "Constructor(Str as String)"),
    QVT_METHOD(void(REALobject, REALstring, int64_t, int64_t), MemoryBlockQVT::Constructor, "Constructor(Str as String, Size as Int64, Offset as Int64 = 0)"),
};
// clang-format on

}  // namespace

REALclassDefinition gMemoryBlockQVTClass = {
    .version = kCurrentREALControlVersion,
    .name = "MemoryBlockQVT",
    // The instance data as this build lays it out; the front end rounds it up.
    .dataSize = sizeof(MemoryBlockQVT::Data),
    .destructor = QVT_PROC(void(REALobject), MemoryBlockQVT::Close),
    .properties = gMemoryBlockQVTProperties,
    .propertyCount = std::size(gMemoryBlockQVTProperties),
    .methods = gMemoryBlockQVTMethods,
    .methodCount = std::size(gMemoryBlockQVTMethods),
    .flags = kFlagConsoleSafe,
};

// clang-format off
REALmethodDefinition gGlobalMethods[] = {
    QVT_METHOD(int32_t(int32_t), EndianS32_BtoNQVT, "EndianS32_BtoNQVT(n as Int32) as Int32"),
    QVT_METHOD(int32_t(int32_t), EndianS32_BtoLQVT, "EndianS32_BtoLQVT(n as Int32) as Int32"),
    QVT_METHOD(int32_t(int32_t), EndianS32_NtoBQVT, "EndianS32_NtoBQVT(n as Int32) as Int32"),
    QVT_METHOD(int32_t(int32_t), EndianS32_NtoLQVT, "EndianS32_NtoLQVT(n as Int32) as Int32"),
    QVT_METHOD(int32_t(int32_t), EndianS32_LtoNQVT, "EndianS32_LtoNQVT(n as Int32) as Int32"),
    QVT_METHOD(int32_t(int32_t), EndianS32_LtoBQVT, "EndianS32_LtoBQVT(n as Int32) as Int32"),
    QVT_METHOD(uint32_t(uint32_t), EndianU32_BtoNQVT, "EndianU32_BtoNQVT(n as UInt32) as UInt32"),
    QVT_METHOD(uint32_t(uint32_t), EndianU32_BtoLQVT, "EndianU32_BtoLQVT(n as UInt32) as UInt32"),
    QVT_METHOD(uint32_t(uint32_t), EndianU32_NtoBQVT, "EndianU32_NtoBQVT(n as UInt32) as UInt32"),
    QVT_METHOD(uint32_t(uint32_t), EndianU32_NtoLQVT, "EndianU32_NtoLQVT(n as UInt32) as UInt32"),
    QVT_METHOD(uint32_t(uint32_t), EndianU32_LtoNQVT, "EndianU32_LtoNQVT(n as UInt32) as UInt32"),
    QVT_METHOD(uint32_t(uint32_t), EndianU32_LtoBQVT, "EndianU32_LtoBQVT(n as UInt32) as UInt32"),
    QVT_METHOD(int16_t(int16_t), EndianS16_BtoNQVT, "EndianS16_BtoNQVT(n as Int16) as Int16"),
    QVT_METHOD(int16_t(int16_t), EndianS16_BtoLQVT, "EndianS16_BtoLQVT(n as Int16) as Int16"),
    QVT_METHOD(int16_t(int16_t), EndianS16_NtoBQVT, "EndianS16_NtoBQVT(n as Int16) as Int16"),
    QVT_METHOD(int16_t(int16_t), EndianS16_NtoLQVT, "EndianS16_NtoLQVT(n as Int16) as Int16"),
    QVT_METHOD(int16_t(int16_t), EndianS16_LtoNQVT, "EndianS16_LtoNQVT(n as Int16) as Int16"),
    QVT_METHOD(int16_t(int16_t), EndianS16_LtoBQVT, "EndianS16_LtoBQVT(n as Int16) as Int16"),
    QVT_METHOD(uint16_t(uint16_t), EndianU16_BtoNQVT, "EndianU16_BtoNQVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint16_t(uint16_t), EndianU16_BtoLQVT, "EndianU16_BtoLQVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint16_t(uint16_t), EndianU16_NtoBQVT, "EndianU16_NtoBQVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint16_t(uint16_t), EndianU16_NtoLQVT, "EndianU16_NtoLQVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint16_t(uint16_t), EndianU16_LtoNQVT, "EndianU16_LtoNQVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint16_t(uint16_t), EndianU16_LtoBQVT, "EndianU16_LtoBQVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint16_t(uint16_t), EndianSwap16QVT, "EndianSwap16QVT(n as UInt16) as UInt16"),
    QVT_METHOD(uint32_t(uint32_t), EndianSwap32QVT, "EndianSwap32QVT(n as UInt32) as UInt32"),
    QVT_METHOD(REALobject(RBInteger), NewMemoryBlockFromPtrQVT, "NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock"),
    QVT_METHOD(REALobject(void *, RBInteger), NewMemoryBlockWithBytesQVT, "NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock"),
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

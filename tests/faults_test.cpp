// Every registered method under host failures: a clean run counts the
// fallible calls it makes, then each of them fails in turn. Whatever fails,
// the call must not crash, must leave the references balanced, and must end
// either as the clean run did (a failure inside a raise only degrades the
// exception) or with the neutral result, an exception the failure calls for,
// and its input blocks untouched.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <limits>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "host_fixture.h"
#include "hostvalues/allocation_seam.h"
#include "memory/memoryblockqvt.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char *kBlockClass = "MemoryBlock";
constexpr const char *kOwnedClass = "MemoryBlockQVT";

// ---- Arguments --------------------------------------------------------------

struct Blk {  // a new block holding these bytes
    Bytes bytes;
};
struct Again {};  // the first block once more
struct Str {      // a new string
    std::string text;
};
struct Arr {  // a new UInt8 array
    std::vector<int64_t> values;
};
struct Raw {  // the address of memory the test owns
    Bytes bytes;
};

// The handles one run makes, in the order of the arguments.
struct Env {
    // The block (by the order made) to give without memory, and the string
    // to give as nil or as "".
    int memoryless = -1;
    int replacedString = -1;
    bool emptyString = false;

    std::vector<REALobject> blocks;
    std::vector<Bytes> before;
    std::vector<REALstring> strings;
    std::vector<REALarray> arrays;
    std::vector<std::unique_ptr<Bytes>> raw;
    REALobject instance = nullptr;
    REALobject result = nullptr;
    REALstring resultString = nullptr;

    REALobject Block(const Bytes &bytes) {
        bool without = static_cast<int>(blocks.size()) == memoryless;
        blocks.push_back(without ? simhost::NewMemorylessBlock() : simhost::NewBlock(bytes));
        before.push_back(bytes);
        return blocks.back();
    }
    REALstring String(const std::string &text) {
        bool replaced = static_cast<int>(strings.size()) == replacedString;
        REALstring s = !replaced      ? simhost::NewString(text)
                       : emptyString ? simhost::NewString("")
                                     : nullptr;
        strings.push_back(s);
        return s;
    }
    ~Env() {
        simhost::Release(result);
        simhost::Release(resultString);
        for (REALobject b : blocks) simhost::Release(b);
        for (REALstring s : strings) simhost::Release(s);
        for (REALarray a : arrays) simhost::Release(a);
    }
};

template <typename T, typename Tag>
T MakeArg(Env &env, const Tag &tag) {
    if constexpr (std::is_same_v<Tag, Blk>) {
        return env.Block(tag.bytes);
    } else if constexpr (std::is_same_v<Tag, Again>) {
        return env.blocks.front();
    } else if constexpr (std::is_same_v<Tag, Str>) {
        return env.String(tag.text);
    } else if constexpr (std::is_same_v<Tag, Arr>) {
        env.arrays.push_back(simhost::NewArray(simhost::kArrayUInt8, tag.values));
        return env.arrays.back();
    } else if constexpr (std::is_same_v<Tag, Raw>) {
        env.raw.push_back(std::make_unique<Bytes>(tag.bytes));
        return reinterpret_cast<T>(env.raw.back()->data());
    } else if constexpr (std::is_same_v<Tag, std::nullptr_t>) {
        return T{};
    } else {
        return static_cast<T>(tag);
    }
}

std::string Hex(std::span<const uint8_t> bytes) {
    std::string out;
    char two[4];
    for (uint8_t b : bytes) {
        std::snprintf(two, sizeof two, "%02X", b);
        out += two;
    }
    return out;
}

// What a call gave, as text, and whether that is its neutral result.
struct Result {
    std::string text;
    bool neutral = false;
    std::size_t blockSize = 0;
};

template <typename R>
Result Describe(Env &env, R value, bool address) {
    if constexpr (std::is_same_v<R, REALobject>) {
        env.result = value;
        if (!value) return {"nil", true};
        auto bytes = simhost::Bytes(value);
        return {"block " + Hex(bytes), false, bytes.size()};
    } else if constexpr (std::is_same_v<R, REALstring>) {
        env.resultString = value;
        if (!value) return {"nil", true};
        return {"string " + simhost::StringBytes(value), false};
    } else if constexpr (std::is_pointer_v<R>) {
        return {value ? "address" : "0", !value};
    } else if constexpr (std::is_same_v<R, bool>) {
        return {value ? "true" : "false", !value};
    } else {
        // Addresses differ from run to run; only null is stable.
        if (address) return {value ? "address" : "0", value == 0};
        auto number = static_cast<int64_t>(value);
        return {std::to_string(number), number == 0 || number == -1};
    }
}

template <typename R, typename... A>
R Invoke(REALproc function, A... args) {
    return reinterpret_cast<R (*)(A...)>(function)(args...);
}

// Makes the arguments of a row, and gives the call that uses them.
using Call = std::function<Result(REALproc)>;
using Bind = std::function<Call(Env &)>;

template <typename Signature>
struct Binder;

template <typename R, typename... A>
struct Binder<R(A...)> {
    // The instance comes first when `onInstance`; the tags give the rest.
    template <typename... Tags>
    static Bind Make(bool onInstance, bool address, Tags... tags) {
        return [=](Env &env) -> Call {
            // Braces make the arguments in order, so blocks count alike in every run.
            auto args =
                std::make_shared<std::tuple<A...>>(std::tuple<A...>{MakeArg<A>(env, tags)...});
            return [=, &env](REALproc f) -> Result {
                return std::apply(
                    [&](auto... a) -> Result {
                        auto call = [&] {
                            return onInstance ? Invoke<R, REALobject, A...>(f, env.instance, a...)
                                              : Invoke<R, A...>(f, a...);
                        };
                        if constexpr (std::is_void_v<R>) {
                            call();
                            return {"", true};
                        } else {
                            return Describe(env, call(), address);
                        }
                    },
                    *args);
            };
        };
    }
};

template <typename Signature, typename... Tags>
Bind On(Tags... tags) {
    return Binder<Signature>::Make(false, false, tags...);
}
template <typename Signature, typename... Tags>
Bind OnInstance(Tags... tags) {
    return Binder<Signature>::Make(true, false, tags...);
}
template <typename Signature, typename... Tags>
Bind Address(bool onInstance, Tags... tags) {
    return Binder<Signature>::Make(onInstance, true, tags...);
}

// ---- The table --------------------------------------------------------------

// How a method reports that the host gave no new block.
enum class NoBlock { Build, Destination, Silent };

enum class Kind { Block, Assigning, Global, Method, Property };

struct Row {
    Kind kind;
    std::string declaration;  // a property's name for Kind::Property
    Bind bind;
    NoBlock noBlock = NoBlock::Build;
    int64_t holding = 0;  // an instance is constructed with this many bytes first
    // Results, with nothing raised, that the method may give when a block's
    // pointer is null though its size is known.
    std::vector<std::string> pointerless = {};
};

const Bytes kTen{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
const Bytes kSix{1, 2, 3, 4, 5, 6};
const Bytes kSixteen(16, 0x5A);
const Bytes kWords{0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80};
const Bytes kPixels{10, 20, 30, 99, 100, 90, 110, 105};

using O = REALobject;
using S = REALstring;
using I = intptr_t;

std::vector<Row> BlockRows() {
    using K = Kind;
    std::vector<Row> rows = {
        {K::Block, "FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer",
         On<I(O, REALarray, I)>(Blk{kTen}, Arr{{7, 4}}, 2)},
        {K::Block, "GetBitQVT(Bit as UInt64) as Integer", On<I(O, uint64_t)>(Blk{kTen}, 15)},
        {K::Block, "IsBitSetQVT(Bit as UInt64) as Boolean", On<bool(O, uint64_t)>(Blk{kTen}, 15)},
        {K::Block, "SetBitQVT(Bit as UInt64, Value as Integer)",
         On<void(O, uint64_t, I)>(Blk{kTen}, 9, 3)},
        {K::Block, "SetBitQVT(Bit as UInt64)", On<void(O, uint64_t)>(Blk{kTen}, 9)},
        {K::Block, "SetBitQVT(Bit as UInt64, Value as Boolean)",
         On<void(O, uint64_t, bool)>(Blk{kTen}, 0, true)},
        {K::Block, "ClearBitQVT(Bit as UInt64)", On<void(O, uint64_t)>(Blk{kTen}, 15)},
        {K::Block, "ConvertRGB12BitTo8BitQVT(Width as Integer)",
         On<void(O, I)>(Blk{{0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}}, 1)},
        {K::Block,
         "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, "
         "Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as "
         "double, offsetByte as Integer = 0, Length as integer = 0)",
         On<void(O, I, I, I, I, I, I, I, I, double, I, I)>(Blk{kPixels}, 100, 100, 100, 100, 1, 2,
                                                           3, 257, 0.1, 0, 0)},
        {K::Block,
         "_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, "
         "WithSum0 as boolean = true)",
         On<void(O, I, I, I, bool)>(Blk{kPixels}, 255, 0, 0, true)},
        {K::Block,
         "_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = "
         "0, WithSum0 as boolean = true)",
         On<void(O, I, I, I, bool)>(Blk{kPixels}, 255, 0, 0, true)},
        {K::Block,
         "_CalcLogSweepTableQVT(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as "
         "integer, T as double)",
         On<void(O, I, I, I, I, double)>(Blk{Bytes(16, 0)}, 0, 2, 20, 20000, 1000.0)},
        {K::Block,
         "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)",
         On<void(O, I, I, O)>(Blk{Bytes(16, 0)}, 0, 2, Blk{Bytes(16, 1)})},
        {K::Block,
         "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as "
         "Memoryblock)",
         On<void(O, I, I, O)>(Blk{Bytes(16, 0)}, 0, 2, Blk{Bytes(16, 1)})},
        {K::Block,
         "MultiplyUInt16QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = "
         "0, MultiplyOnlyOver as Integer = -1)",
         On<void(O, double, I, I, I)>(Blk{kWords}, 1.5, 0, 0, -1)},
        {K::Block,
         "MultiplyUInt8QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = "
         "0, MultiplyOnlyOver as Integer = -1)",
         On<void(O, double, I, I, I)>(Blk{kWords}, 1.5, 0, 0, -1)},
        {K::Block,
         "MinQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = "
         "false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
         On<bool(O, void *, void *, I, bool, I, I)>(Blk{Bytes(8, 0)}, Raw{kWords}, Raw{kPixels},
                                                    8, false, 0, 0)},
        {K::Block,
         "MaxQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = "
         "false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
         On<bool(O, void *, void *, I, bool, I, I)>(Blk{Bytes(8, 0)}, Raw{kWords}, Raw{kPixels},
                                                    16, true, 0, 0)},
        {K::Block, "MirrorBitsInBytesQVT(offsetByte as Integer, lengthByte as integer)",
         On<void(O, I, I)>(Blk{kTen}, 1, 4)},
        {K::Block, "MirrorBytesQVT(offsetByte as Integer = 0, lengthByte as integer = -1)",
         On<void(O, I, I)>(Blk{kTen}, 0, -1)},
        {K::Block, "MirrorBitsQVT(offsetBit as Integer, lengthBit as integer)",
         On<void(O, I, I)>(Blk{kTen}, 4, 12)},
        {K::Block, "AddressQVT(offset as Int64 = 0) as UInt64",
         Address<uint64_t(O, int64_t)>(false, Blk{kTen}, 3)},
        {K::Block, "AddressPtrQVT(offset as Int64 = 0) as Ptr",
         Address<void *(O, int64_t)>(false, Blk{kTen}, 3)},
        {K::Block, "OSTypeQVT(offset as Integer) as String", On<S(O, I)>(Blk{kSix}, 2)},
        {K::Assigning, "OSTypeQVT(offset as Integer, assigns value as String)",
         On<void(O, I, S)>(Blk{kSix}, 0, Str{"abcd"})},
        {K::Block, "GetStringQVT(offset as Integer, numBytes as Integer) as String",
         On<S(O, I, I)>(Blk{{'a', 'b', 'c', 'd', 'e', 'f'}}, 1, 100)},
        {K::Block, "SetStringQVT(str as String, offset as Integer)",
         On<void(O, S, I)>(Blk{kSix}, Str{"xyz"}, 4)},
        {K::Block, "SwapBytesQVT(offset as Integer, numBytes as Integer)",
         On<void(O, I, I)>(Blk{kTen}, 2, 5)},
        {K::Block, "SwapBytes16QVT(offset as Integer, numBytes as Integer)",
         On<void(O, I, I)>(Blk{kTen}, 2, 6)},
        {K::Block, "SwapBytes32QVT(offset as Integer, numBytes as Integer)",
         On<void(O, I, I)>(Blk{kTen}, 1, 8)},
        {K::Block,
         "BytesEqualQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs "
         "as Integer) as Boolean",
         On<bool(O, I, I, O, I)>(Blk{kTen}, 2, 3, Blk{{9, 2, 3, 4}}, 1)},
        {K::Block, "BytesZeroQVT(srcOfs as Integer, numBytes as Integer) as Boolean",
         On<bool(O, I, I)>(Blk{Bytes(10, 0)}, 0, 10)},
        {K::Block,
         "FindNotByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
         On<I(O, I, I, I)>(Blk{{0, 0, 0, 7, 0}}, 0, 5, 0)},
        {K::Block,
         "FindByteQVT(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
         On<I(O, I, I, I)>(Blk{kTen}, 1, 9, 6)},
        {K::Block, "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
         On<void(O, I, I, I)>(Blk{kSix}, 0, 4, 1)},
        {K::Block,
         "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs "
         "as Integer)",
         On<void(O, I, I, O, I)>(Blk{kSix}, 1, 3, Blk{Bytes(5, 0)}, 2)},
        {K::Block, "CopyBytesToMacPtrQVT(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)",
         On<void(O, I, I, void *)>(Blk{kSix}, 1, 3, Raw{Bytes(4, 0)})},
        {K::Block, "CopyBytesFromMacPtrQVT(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)",
         On<void(O, void *, I, I)>(Blk{kSix}, Raw{{7, 8, 9}}, 3, 2)},
        {K::Block,
         "CopyBytesToMacHandleQVT(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
         On<void(O, I, I, I)>(Blk{kSix}, 0, 4, 1234)},
        {K::Block,
         "CopyBytesFromMacHandleQVT(srcHandle as Integer, numBytes as Integer, destOfs as "
         "Integer)",
         On<void(O, I, I, I)>(Blk{kSix}, 1234, 4, 0)},
        {K::Block,
         "FindStringQVT(srcOfs as Integer, maxBytes as Integer, target as String) as Integer",
         On<I(O, I, I, S)>(Blk{{'x', 'a', 'b', 'c', 'y'}}, 0, 5, Str{"abc"})},
        {K::Block,
         "FindBytesQVT(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as "
         "Integer, targLen as Integer) as Integer",
         On<I(O, I, I, O, I, I)>(Blk{kTen}, 0, 10, Blk{{9, 4, 5, 6}}, 1, 2)},
        {K::Block, "MidQVT(offset as integer) as Memoryblock", On<O(O, I)>(Blk{kTen}, 7)},
        {K::Block, "MidQVT(offset As Integer, length As Integer) as Memoryblock",
         On<O(O, I, I)>(Blk{kTen}, 2, 3)},
        {K::Block, "LeftQVT(length as integer) as Memoryblock", On<O(O, I)>(Blk{kTen}, 3)},
        {K::Block, "RightQVT(length As Integer) as Memoryblock", On<O(O, I)>(Blk{kTen}, 3)},
        {K::Block, "AppendQVT(other as Memoryblock) as Memoryblock",
         On<O(O, O)>(Blk{kSix}, Blk{{0xAA, 0xBB}}), NoBlock::Silent, 0,
         // The side without a pointer is left zero.
         {"block 000000000000AABB", "block 0102030405060000"}},
        {K::Block, "FillBytesQVT(offset as integer, count as integer, value as integer)",
         On<void(O, I, I, I)>(Blk{kTen}, 2, 3, 255)},
        {K::Block, "InvertBytesQVT(offset as integer, count as integer)",
         On<void(O, I, I)>(Blk{kTen}, 2, 3)},
        {K::Block,
         "CopyNthBytesQVT(source as memoryblock, SourceOffsetBytes as integer, "
         "DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, "
         "NumberOfSteps as integer) as boolean",
         On<bool(O, O, I, I, I, I, I)>(Blk{Bytes(10, 0)}, Blk{kTen}, 0, 0, 1, 3, 3)},
        {K::Block,
         "CopyNthBitsQVT(source as memoryblock, SourceOffsetBits as integer, "
         "DestinationOffsetBits as integer, BitCount as integer, StepCount as integer, "
         "NumberOfSteps as integer) as boolean",
         On<bool(O, O, I, I, I, I, I)>(Blk{Bytes(10, 0)}, Blk{kTen}, 0, 0, 3, 8, 3)},
        {K::Block,
         "ExpandBitsQVT(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, "
         "HighValue as integer = 255) as boolean",
         On<bool(O, O, I, I, I)>(Blk{{0xA5, 0, 0, 0}}, Blk{Bytes(32, 0)}, 1, 0, 255)},
        {K::Block,
         "CopyByteToUShortQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         On<void(O, O, I, I, I, I)>(Blk{kTen}, Blk{Bytes(6, 0)}, 1, 0, 3, 257)},
        {K::Block,
         "CopyUShortToByteQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         On<void(O, O, I, I, I, I)>(Blk{kSix}, Blk{Bytes(3, 0)}, 0, 0, 3, 256)},
        {K::Block, "ExtractBitsQVT(Mask as integer, Dest as memoryblock=nil) as memoryblock",
         On<O(O, I, O)>(Blk{kTen}, 0x0F, nullptr), NoBlock::Destination},
        {K::Block, "AndBitsQVT(Second as memoryblock, Dest as memoryblock=nil) as memoryblock",
         On<O(O, O, O)>(Blk{kTen}, Blk{Bytes(3, 0x3C)}, nullptr), NoBlock::Destination},
        {K::Block,
         "AndBitsQVT(Second as memoryblock, Mask as integer, Dest as memoryblock=nil) as "
         "memoryblock",
         On<O(O, O, I, O)>(Blk{kTen}, Blk{Bytes(3, 0x3C)}, 0x10, Blk{Bytes(4, 0xFF)})},
        {K::Block, "BitwiseAndQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         On<O(O, O, O)>(Blk{kTen}, Blk{kSix}, nullptr), NoBlock::Destination},
        {K::Block, "BitwiseOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         On<O(O, O, O)>(Blk{kTen}, Blk{kSix}, Blk{Bytes(8, 0)})},
        {K::Block,
         "BitwiseXOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         On<O(O, O, O)>(Blk{kTen}, Again{}, Again{})},
    };
    // The byte-order family: one shape for all 26.
    for (const char *order : {"S32_BtoN", "S32_BtoL", "S32_NtoB", "S32_NtoL", "S32_LtoN",
                              "S32_LtoB", "U32_BtoN", "U32_BtoL", "U32_NtoB", "U32_NtoL",
                              "U32_LtoN", "U32_LtoB", "S16_BtoN", "S16_BtoL", "S16_NtoB",
                              "S16_NtoL", "S16_LtoN", "S16_LtoB", "U16_BtoN", "U16_BtoL",
                              "U16_NtoB", "U16_NtoL", "U16_LtoN", "U16_LtoB", "Swap16",
                              "Swap32"}) {
        rows.push_back({K::Block,
                        std::string("Endian") + order + "QVT(offset as integer,count as integer)",
                        On<void(O, I, I)>(Blk{kTen}, 1, 2)});
    }
    return rows;
}

std::vector<Row> GlobalRows() {
    std::vector<Row> rows;
    auto add = [&](const std::string &name, const char *type, Bind bind) {
        rows.push_back({Kind::Global, name + "QVT(n as " + type + ") as " + type, std::move(bind)});
    };
    for (const char *order : {"BtoN", "BtoL", "NtoB", "NtoL", "LtoN", "LtoB"}) {
        add(std::string("EndianS32_") + order, "Int32", On<int32_t(int32_t)>(0x01020304));
        add(std::string("EndianU32_") + order, "UInt32", On<uint32_t(uint32_t)>(0x01020304u));
        add(std::string("EndianS16_") + order, "Int16", On<int16_t(int16_t)>(int16_t{0x0180}));
        add(std::string("EndianU16_") + order, "UInt16", On<uint16_t(uint16_t)>(uint16_t{0x0180}));
    }
    add("EndianSwap16", "UInt16", On<uint16_t(uint16_t)>(uint16_t{0x1234}));
    add("EndianSwap32", "UInt32", On<uint32_t(uint32_t)>(0x12345678u));
    rows.push_back({Kind::Global, "NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock",
                    On<O(I)>(Raw{kSix})});
    rows.push_back({Kind::Global,
                    "NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock",
                    On<O(void *, I)>(Raw{kSix}, 4)});
    return rows;
}

std::vector<Row> ClassRows() {
    using K = Kind;
    return {
        {K::Method, "Resize(Size as Int64) as boolean", OnInstance<bool(int64_t)>(4),
         NoBlock::Build, 16},
        {K::Method, "Close", OnInstance<void()>(), NoBlock::Build, 16},
        {K::Method, "Create(size as Int64) as boolean", OnInstance<bool(int64_t)>(8),
         NoBlock::Build, 16},
        {K::Method, "Constructor", OnInstance<void()>()},
        {K::Method, "Constructor(Size as Int64)", OnInstance<void(int64_t)>(16)},
        {K::Method, "Constructor(Mem as MemoryBlock)", OnInstance<void(O)>(Blk{kSix})},
        {K::Method, "Constructor(Mem as MemoryBlock, Size as Int64, Offset as Int64 = 0)",
         OnInstance<void(O, int64_t, int64_t)>(Blk{kSix}, 3, 2)},
        {K::Method, "Constructor(Str as String)", OnInstance<void(S)>(Str{"abc"})},
        {K::Method, "Constructor(Str as String, Size as Int64, Offset as Int64 = 0)",
         OnInstance<void(S, int64_t, int64_t)>(Str{"abcdef"}, 2, 1)},
        {K::Property, "Address", Address<int64_t(I)>(true, 0), NoBlock::Build, 16},
        {K::Property, "Size", OnInstance<int64_t(I)>(0), NoBlock::Build, 16},
        {K::Property, "Memory", OnInstance<O(I)>(0), NoBlock::Build, 16},
    };
}

// Calls that raise when nothing fails, so that failures meet the raise.
std::vector<Row> RaisingRows() {
    using K = Kind;
    return {
        {K::Block, "GetBitQVT(Bit as UInt64) as Integer", On<I(O, uint64_t)>(Blk{kTen}, 80)},
        {K::Block, "SetBitQVT(Bit as UInt64)", On<void(O, uint64_t)>(nullptr, 9)},
        {K::Block, "LeftQVT(length as integer) as Memoryblock", On<O(O, I)>(nullptr, 3)},
        {K::Block, "BitwiseAndQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         On<O(O, O, O)>(Blk{kTen}, nullptr, nullptr)},
        {K::Block,
         "MinQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = "
         "false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
         On<bool(O, void *, void *, I, bool, I, I)>(Blk{Bytes(8, 0)}, nullptr, Raw{kPixels}, 8,
                                                    false, 0, 0)},
        {K::Block, "FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer",
         On<I(O, REALarray, I)>(Blk{kTen}, nullptr, 0)},
        // Too large for a block: no block is made and nothing is read.
        {K::Global, "NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock",
         On<O(void *, I)>(Raw{kSix}, std::numeric_limits<I>::max())},
        {K::Method, "Constructor(Size as Int64)", OnInstance<void(int64_t)>(0)},
        {K::Method, "Constructor(Mem as MemoryBlock)", OnInstance<void(O)>(nullptr)},
    };
}

const std::vector<Row> &Rows() {
    static const std::vector<Row> rows = [] {
        std::vector<Row> all = BlockRows();
        for (auto part : {GlobalRows(), ClassRows(), RaisingRows()}) {
            for (auto &row : part) all.push_back(std::move(row));
        }
        return all;
    }();
    return rows;
}

// Methods that leave it to the caller that a block has a data pointer: a
// null pointer there is outside what they accept, so neither blocks without
// memory nor failing pointers are given to them.
bool TrustsPointer(const Row &row) {
    static const char *const kTrusting[] = {
        "MirrorBitsInBytesQVT(", "MirrorBytesQVT(", "MirrorBitsQVT(", "CopyNthBytesQVT(",
        "CopyNthBitsQVT(", "OSTypeQVT(", "GetStringQVT(", "SetStringQVT(",
        "CopyBytesToMacPtrQVT(", "CopyBytesFromMacPtrQVT(", "InvertBytesQVT(",
        "CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
    };
    return std::any_of(std::begin(kTrusting), std::end(kTrusting),
                       [&](const char *name) { return row.declaration.starts_with(name); });
}

// The function a row calls, found as the host finds it.
REALproc FunctionOf(const Row &row) {
    switch (row.kind) {
        case Kind::Block: {
            auto m = simhost::FindMethod(row.declaration, kBlockClass);
            return m ? m->function : nullptr;
        }
        case Kind::Assigning: {
            // Registered on its own, or kept in the record of its reading form.
            if (auto m = simhost::FindMethod(row.declaration, kBlockClass)) return m->function;
            auto m = simhost::FindMethod("OSTypeQVT(offset as Integer) as String", kBlockClass);
            return m ? m->setterFunction : nullptr;
        }
        case Kind::Global: {
            auto m = simhost::FindMethod(row.declaration);
            return m && m->receiverClass.empty() ? m->function : nullptr;
        }
        case Kind::Method: {
            auto m = simhost::FindMethod(row.declaration, kOwnedClass);
            return m ? m->function : nullptr;
        }
        case Kind::Property: {
            auto p = simhost::FindProperty(row.declaration, kOwnedClass);
            return p ? p->getter : nullptr;
        }
    }
    return nullptr;
}

// ---- One run ----------------------------------------------------------------

struct Outcome {
    Result result;
    std::vector<std::string> raised;  // "Class: message", "<nil>" for a nil message
    std::vector<Bytes> inputs;        // the argument blocks afterwards
    std::vector<Bytes> before;
    std::size_t strings = 0;
    // An instance: what it holds, and whether it has its host block.
    std::string holding;
    bool empty = true;
    bool memory = false;
    std::vector<std::string> fallible;
    std::string balance;
    std::vector<std::string> faults;

    bool InputsUntouched() const { return inputs == before; }
    std::string Text() const {
        std::string out = "result [" + result.text + "]";
        for (const auto &e : raised) out += ", raised [" + e + "]";
        for (std::size_t i = 0; i < inputs.size(); ++i) out += ", input " + Hex(inputs[i]);
        if (!holding.empty()) out += ", " + holding + (memory ? " with Memory" : " without Memory");
        return out;
    }
};

void ConstructHolding(REALobject instance, int64_t size) {
    auto method = simhost::FindMethod("Constructor(Size as Int64)", kOwnedClass);
    ASSERT_TRUE(method.has_value());
    Invoke<void, REALobject, int64_t>(method->function, instance, size);
}

struct Variant {
    int memoryless = -1;
    int replacedString = -1;
    bool emptyString = false;
};

// Runs a row once; the nth fallible call fails (0: none fails).
Outcome RunRow(const Row &row, REALproc function, std::size_t failing, Variant variant = {}) {
    Outcome out;
    Env env;
    env.memoryless = variant.memoryless;
    env.replacedString = variant.replacedString;
    env.emptyString = variant.emptyString;
    Call call = row.bind(env);
    const bool onInstance = row.kind == Kind::Method || row.kind == Kind::Property;

    const simhost::Snapshot snapshot = simhost::TakeSnapshot();
    // Made after the snapshot and ended before the comparison, so that its
    // end, which closes it, counts in the balance.
    if (onInstance) {
        env.instance = simhost::NewInstance(kOwnedClass);
        if (row.holding > 0) ConstructHolding(env.instance, row.holding);
    }
    simhost::FailCall(failing);
    out.result = call(function);
    out.fallible = simhost::FallibleCalls();
    simhost::StopFailing();
    if (onInstance) {
        MemoryBlockQVT::Data data;
        std::memcpy(&data, simhost::InstanceData(env.instance).data(), sizeof data);
        const auto *bytes = static_cast<const uint8_t *>(data.address);
        out.empty = data.size == 0 && bytes == nullptr && data.block == nullptr;
        out.memory = data.block != nullptr;
        out.holding = "holding " + std::to_string(data.size) + " bytes " +
                      (bytes ? Hex({bytes, static_cast<std::size_t>(data.size)}) : "");
        simhost::Release(env.instance);
    }
    out.balance = simhost::CompareSnapshot(snapshot, {env.result}, {env.resultString});
    for (const auto &e : simhost::TakeExceptions()) {
        out.raised.push_back(e.className + ": " + e.message.value_or("<nil>"));
    }
    for (REALobject block : env.blocks) {
        auto bytes = simhost::Bytes(block);
        out.inputs.emplace_back(bytes.begin(), bytes.end());
    }
    out.before = env.before;
    out.strings = env.strings.size();
    // A block without memory shows no bytes; it stands for its bytes untouched.
    if (variant.memoryless >= 0) out.inputs[variant.memoryless] = out.before[variant.memoryless];
    out.faults = simhost::Faults();
    simhost::ClearFaults();
    return out;
}

// ---- What a failure may do ----------------------------------------------------

const char *const kNilTexts[] = {
    "Memoryblock is nil?",       "memoryblock is nil",        "Memoryblock is nil",
    "Source Memoryblock is nil", "Second Memoryblock is nil", "Destination Memoryblock is nil",
};

bool IsStringBuild(const std::string &kind) {
    return kind == "REALBuildString" || kind == "REALBuildStringWithEncoding" ||
           kind == "REALConvertString";
}

// A failure inside a raise changes only that exception: its class when the
// instance could not be made, its message when the text could not be built,
// and a range error's text when there was no buffer for it.
bool Degraded(const std::string &got, const std::string &clean, const std::string &kind) {
    const auto colon = clean.find(": ");
    const std::string className = clean.substr(0, colon);
    const std::string message = clean.substr(colon + 2);
    if (kind == "PluginNewInstance") return got == "RuntimeException: " + message;
    if (IsStringBuild(kind)) return got == className + ": <nil>";
    if (kind == "AllocateMemory") {
        return clean.starts_with("OutOfBoundsException: The parameter ") &&
               got == "OutOfBoundsException: Out of Bounds";
    }
    return false;
}

bool AsClean(const Outcome &o, const Outcome &clean, const std::string &kind) {
    if (o.result.text != clean.result.text || o.inputs != clean.inputs ||
        o.holding != clean.holding || o.raised.size() != clean.raised.size()) {
        return false;
    }
    // Without a host block the object still holds its memory.
    if (o.memory != clean.memory && !(kind == "PtrToMemoryBlock" && !o.memory)) return false;
    int changed = 0;
    for (std::size_t i = 0; i < o.raised.size(); ++i) {
        if (o.raised[i] == clean.raised[i]) continue;
        if (++changed > 1 || !Degraded(o.raised[i], clean.raised[i], kind)) return false;
    }
    return true;
}

using Raised = std::vector<std::string>;
Raised None() { return {}; }
Raised One(std::string text) { return {std::move(text)}; }

// The exceptions (one or none) with which a failure of `kind` may end a call.
std::set<Raised> FailureExceptions(const Row &row, const Outcome &clean,
                                                     const std::string &kind) {
    std::set<Raised> allowed;
    auto noBlock = [&] {
        switch (row.noBlock) {
            case NoBlock::Build:
                allowed.insert(One("OutOfMemoryException: Failed to allocate a memoryblock with " +
                                std::to_string(clean.result.blockSize) + " bytes in size."));
                break;
            case NoBlock::Destination:
                allowed.insert(One("NilObjectException: Destination Memoryblock is nil"));
                break;
            case NoBlock::Silent: allowed.insert(None()); break;
        }
    };
    if (kind == "newMemoryBlock") noBlock();
    // The pointer of a new block, or of an argument, or a string's bytes.
    if (kind == "memoryBlockGetPtr" && clean.result.blockSize > 0) noBlock();
    if (kind == "memoryBlockGetPtr" || kind == "StringGetCString") {
        for (const char *text : kNilTexts) {
            allowed.insert(One(std::string("NilObjectException: ") + text));
        }
    }
    // Nil where a string or a wrapping block was to come: nothing reported.
    if (IsStringBuild(kind) || kind == "PluginGetStringData" || kind == "PtrToMemoryBlock") {
        allowed.insert(None());
    }
    if (kind == "AllocateMemory") {
        allowed.insert(None());  // Create
        allowed.insert(One("OutOfMemoryException: Failed to allocate memory"));  // the constructors
    }
    return allowed;
}

bool SameAsVariant(const Outcome &o, const Outcome &v) {
    return o.result.text == v.result.text && o.raised == v.raised && o.inputs == v.inputs &&
           o.holding == v.holding;
}

class MethodFailures : public test::HostTest, public ::testing::WithParamInterface<std::size_t> {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        REALPluginMain(&simhost::Resolve);
        seams::gFailAllocation.store([](int64_t) { return simhost::FailNow("AllocateMemory"); });
    }
    void TearDown() override {
        seams::gFailAllocation.store(nullptr);
        HostTest::TearDown();
    }
    void EndCleanlyAtEveryFailurePoint();
};

// Hosts below 2012.0 build strings with REALBuildString.
class MethodFailuresOnOldHost : public MethodFailures {
protected:
    simhost::Options options() const override {
        simhost::Options o;
        o.version = 2011.0;
        return o;
    }
};

TEST_P(MethodFailures, EndCleanlyAtEveryFailurePoint) { EndCleanlyAtEveryFailurePoint(); }
TEST_P(MethodFailuresOnOldHost, EndCleanlyAtEveryFailurePoint) { EndCleanlyAtEveryFailurePoint(); }

void MethodFailures::EndCleanlyAtEveryFailurePoint() {
    const Row &row = Rows()[GetParam()];
    SCOPED_TRACE(row.declaration);
    REALproc function = FunctionOf(row);
    ASSERT_NE(function, nullptr) << "not registered";

    RunRow(row, function, 0);  // resolves the bindings and loads what is loaded once
    const Outcome clean = RunRow(row, function, 0);
    ASSERT_EQ(clean.balance, "");
    ASSERT_EQ(clean.faults, std::vector<std::string>{});

    // What the method does with each argument block without memory, and
    // with each string nil or empty: the pointer and text failures look so.
    std::vector<Outcome> variants;
    const bool trusting = TrustsPointer(row);
    for (int block = 0; !trusting && block < static_cast<int>(clean.inputs.size()); ++block) {
        variants.push_back(RunRow(row, function, 0, {.memoryless = block}));
    }
    for (int string = 0; string < static_cast<int>(clean.strings); ++string) {
        for (bool empty : {false, true}) {
            variants.push_back(
                RunRow(row, function, 0, {.replacedString = string, .emptyString = empty}));
        }
    }
    for (const Outcome &v : variants) {
        EXPECT_EQ(v.balance, "") << v.Text();
        EXPECT_EQ(v.faults, std::vector<std::string>{}) << v.Text();
    }

    for (std::size_t n = 1; n <= clean.fallible.size(); ++n) {
        const std::string kind = clean.fallible[n - 1];
        if (trusting && kind == "memoryBlockGetPtr") continue;
        SCOPED_TRACE("failing call " + std::to_string(n) + ", " + kind);
        const Outcome o = RunRow(row, function, n);
        ASSERT_GE(o.fallible.size(), n);
        EXPECT_EQ(std::vector<std::string>(o.fallible.begin(), o.fallible.begin() + n),
                  std::vector<std::string>(clean.fallible.begin(), clean.fallible.begin() + n));
        EXPECT_EQ(o.balance, "");
        EXPECT_EQ(o.faults, std::vector<std::string>{});

        bool accepted = AsClean(o, clean, kind);
        const bool failed =
            o.result.neutral && o.InputsUntouched() && (o.holding.empty() || o.empty);
        if (!accepted && failed) accepted = FailureExceptions(row, clean, kind).contains(o.raised);
        if (!accepted && kind == "memoryBlockGetPtr" && o.raised.empty() && o.InputsUntouched()) {
            accepted = std::find(row.pointerless.begin(), row.pointerless.end(), o.result.text) !=
                       row.pointerless.end();
        }
        if (!accepted && (kind == "memoryBlockGetPtr" || kind == "StringGetCString")) {
            for (const Outcome &v : variants) accepted = accepted || SameAsVariant(o, v);
        }
        EXPECT_TRUE(accepted) << "clean: " << clean.Text() << "\nfailed: " << o.Text();
    }
    RecordProperty("failure_points", static_cast<int>(clean.fallible.size()));
}

std::string RowName(const ::testing::TestParamInfo<std::size_t> &info) {
    const Row &row = Rows()[info.param];
    std::string name;
    for (char c : row.declaration.substr(0, row.declaration.find('('))) {
        if (std::isalnum(static_cast<unsigned char>(c))) name += c;
    }
    return std::to_string(info.param) + "_" + name;
}

INSTANTIATE_TEST_SUITE_P(Registered, MethodFailures,
                         ::testing::Range<std::size_t>(0, Rows().size()), RowName);

// The rows that build strings: the raising ones and the two string results.
std::vector<std::size_t> StringRows() {
    std::vector<std::size_t> rows;
    const std::size_t firstRaising = Rows().size() - RaisingRows().size();
    for (std::size_t i = 0; i < Rows().size(); ++i) {
        const std::string &d = Rows()[i].declaration;
        if (i >= firstRaising || d.starts_with("OSTypeQVT(offset as Integer) as") ||
            d.starts_with("GetStringQVT(")) {
            rows.push_back(i);
        }
    }
    return rows;
}
INSTANTIATE_TEST_SUITE_P(Registered, MethodFailuresOnOldHost, ::testing::ValuesIn(StringRows()),
                         RowName);

// The table reaches every registered function: 85 methods of MemoryBlock and
// the assigning form, 28 globals, and the class's 9 methods and 3 properties.
TEST_F(MethodFailures, TableCoversEveryRegisteredFunction) {
    std::set<REALproc> covered;
    for (const Row &row : Rows()) {
        REALproc function = FunctionOf(row);
        EXPECT_NE(function, nullptr) << row.declaration;
        covered.insert(function);
    }
    std::size_t registered = 0;
    for (const auto &m : simhost::RegisteredMethods()) {
        for (REALproc f : {m.function, m.setterFunction}) {
            if (f == nullptr) continue;
            ++registered;
            EXPECT_TRUE(covered.contains(f)) << m.declaration;
        }
    }
    EXPECT_EQ(registered, 86u + 28u + 9u);
    EXPECT_EQ(covered.size(), 86u + 28u + 9u + 3u);
}

}  // namespace
}  // namespace qvt

#include "tour.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "format.h"
#include "guard.h"
#include "simhost/simhost.h"

namespace qvthost {

namespace {

using Bytes = std::vector<uint8_t>;

// What a call gave back, with any handle that carries a reference for us.
struct Outcome {
    std::string text;
    REALobject object = nullptr;
};

template <typename R, typename... A>
R Invoke(REALproc function, A... args) {
    return reinterpret_cast<R (*)(A...)>(function)(args...);
}

// A Ptr parameter is a plain void *; the methods called here only read.
void *Ptr(const void *bytes) { return const_cast<void *>(bytes); }

template <typename... A>
Outcome Void(REALproc function, A... args) {
    Invoke<void, A...>(function, args...);
    return {};
}
Outcome Number(int64_t value) { return {std::to_string(value)}; }
// An element of a byte-order step, with its bit pattern.
Outcome Pattern(int64_t value, int bytes) {
    char hex[24];
    auto mask = bytes >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * bytes)) - 1;
    std::snprintf(hex, sizeof hex, "0x%0*llX", 2 * bytes,
                  static_cast<unsigned long long>(static_cast<uint64_t>(value) & mask));
    return {std::to_string(value) + " (" + hex + ")"};
}
Outcome Truth(bool value) { return {value ? "true" : "false"}; }
Outcome Block(REALobject block) {
    if (block == nullptr) return {"nil"};
    auto bytes = simhost::Bytes(block);
    return {"MemoryBlock of " + Counted(bytes.size(), "byte") + ": " + Hex(bytes), block};
}

// A string result, given back once its bytes are read.
Outcome Text(REALstring string) {
    if (string == nullptr) return {"nil"};
    const std::string bytes = simhost::StringBytes(string);
    simhost::Release(string);
    std::span<const uint8_t> view(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return {"String of " + Counted(bytes.size(), "byte") + ": " + Hex(view)};
}
// An address as its distance from the block's first byte, the same on every run.
Outcome Distance(uint64_t address, REALobject block) {
    if (address == 0) return {"0"};
    const auto start = reinterpret_cast<uintptr_t>(simhost::Bytes(block).data());
    return {"start + " + std::to_string(address - start)};
}

constexpr const char *kOwnedClass = "MemoryBlockQVT";

template <typename T>
T Property(REALobject instance, const char *name) {
    auto property = simhost::FindProperty(name, kOwnedClass);
    return property ? Invoke<T, REALobject, intptr_t>(property->getter, instance, 0) : T{};
}
// What an instance of the class holds, read through its properties.
Outcome Holding(REALobject instance, std::string text = {}) {
    const auto size = static_cast<std::size_t>(Property<int64_t>(instance, "Size"));
    const auto address = static_cast<intptr_t>(Property<int64_t>(instance, "Address"));
    REALobject memory = Property<REALobject>(instance, "Memory");
    text += size == 0 ? "holds nothing"
                      : "holds " + Counted(size, "byte") + ": " +
                            Hex({reinterpret_cast<const uint8_t *>(address), size});
    if (memory != nullptr) text += ", Memory " + simhost::Name(memory);
    simhost::Release(memory);
    return {text};
}
// Sets an instance up for a step.
void Construct(REALobject instance, int64_t size) {
    if (auto method = simhost::FindMethod("Constructor(Size as Int64)", kOwnedClass)) {
        Invoke<void, REALobject, int64_t>(method->function, instance, size);
    }
}

// Block: a block of the step's bytes; Instance: a new instance of the class,
// which ends with the step.
enum class Receiver { Block, Nil, None, Instance };

struct Step {
    const char *declaration;
    const char *arguments;
    Receiver receiver;
    Bytes bytes;
    std::function<Outcome(REALproc, REALobject)> call;
};

const Bytes kZeros(10, 0);
const Bytes kCounting{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
const Bytes kSix{1, 2, 3, 4, 5, 6};
const Bytes kNone;
const uint8_t kABC[] = {'a', 'b', 'c'};
const Bytes kPacked12{0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
const Bytes kPixels{10, 20, 30, 99, 100, 90, 110, 105};
const uint8_t kFirst[] = {1, 200};
const uint8_t kSecond[] = {2, 100};

Bytes With(Bytes bytes, std::size_t at, uint8_t value) {
    bytes[at] = value;
    return bytes;
}

std::vector<Step> Steps() {
    using R = REALproc;
    using O = REALobject;
    return {
        {"GetBitQVT(Bit as UInt64) as Integer", "Bit=0", Receiver::Block, With(kZeros, 0, 0x80),
         [](R f, O b) { return Number(Invoke<intptr_t, O, uint64_t>(f, b, 0)); }},
        {"GetBitQVT(Bit as UInt64) as Integer", "Bit=80", Receiver::Block, kZeros,
         [](R f, O b) { return Number(Invoke<intptr_t, O, uint64_t>(f, b, 80)); }},
        {"GetBitQVT(Bit as UInt64) as Integer", "Bit=0", Receiver::Nil, kNone,
         [](R f, O b) { return Number(Invoke<intptr_t, O, uint64_t>(f, b, 0)); }},
        {"IsBitSetQVT(Bit as UInt64) as Boolean", "Bit=7", Receiver::Block, With(kZeros, 0, 0x01),
         [](R f, O b) { return Truth(Invoke<bool, O, uint64_t>(f, b, 7)); }},
        {"SetBitQVT(Bit as UInt64)", "Bit=9", Receiver::Block, kZeros,
         [](R f, O b) { return Void<O, uint64_t>(f, b, 9); }},
        {"ClearBitQVT(Bit as UInt64)", "Bit=9", Receiver::Block, With(kZeros, 1, 0x40),
         [](R f, O b) { return Void<O, uint64_t>(f, b, 9); }},
        {"ClearBitQVT(Bit as UInt64)", "Bit=80", Receiver::Block, kZeros,
         [](R f, O b) { return Void<O, uint64_t>(f, b, 80); }},
        {"SetBitQVT(Bit as UInt64, Value as Integer)", "Bit=7 Value=3", Receiver::Block, kZeros,
         [](R f, O b) { return Void<O, uint64_t, intptr_t>(f, b, 7, 3); }},
        {"SetBitQVT(Bit as UInt64, Value as Boolean)", "Bit=0 Value=true", Receiver::Block, kZeros,
         [](R f, O b) { return Void<O, uint64_t, bool>(f, b, 0, true); }},
        {"ConvertRGB12BitTo8BitQVT(Width as Integer)", "Width=1", Receiver::Block, kPacked12,
         [](R f, O b) { return Void<O, intptr_t>(f, b, 1); }},
        {"_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as "
         "Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, "
         "Tolerance as double, offsetByte as Integer = 0, Length as integer = 0)",
         "Source=100,100,100,100 Dest=1,2,3,257 Tolerance=0.1", Receiver::Block, kPixels,
         [](R f, O b) {
             return Void<O, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                         intptr_t, double, intptr_t, intptr_t>(f, b, 100, 100, 100, 100, 1, 2, 3,
                                                               257, 0.1, 0, 0);
         }},
        {"_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, "
         "WithSum0 as boolean = true)",
         "defaults", Receiver::Block, kPixels,
         [](R f, O b) {
             return Void<O, intptr_t, intptr_t, intptr_t, bool>(f, b, 255, 0, 0, true);
         }},
        {"_CalcLogSweepTableQVT(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as "
         "integer, T as double)",
         "offsetByte=0 Z=2 lw1=20 lw2=20000 T=1000", Receiver::Block, Bytes(16, 0),
         [](R f, O b) {
             return Void<O, intptr_t, intptr_t, intptr_t, intptr_t, double>(f, b, 0, 2, 20, 20000,
                                                                              1000.0);
         }},
        {"_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as "
         "Memoryblock)",
         "offsetByte=0 Z=1 CartesianData=(3.0, 4.0)", Receiver::Block, Bytes(8, 0),
         [](R f, O b) {
             const float point[] = {3.0f, 4.0f};
             const auto *bytes = reinterpret_cast<const uint8_t *>(point);
             O source = simhost::NewBlock(Bytes(bytes, bytes + sizeof point));
             Outcome outcome = Void<O, intptr_t, intptr_t, O>(f, b, 0, 1, source);
             simhost::Release(source);
             return outcome;
         }},
        {"MultiplyUInt8QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = "
         "0, MultiplyOnlyOver as Integer = -1)",
         "Factor=2.0 MultiplyOnlyOver=100", Receiver::Block, Bytes{100, 101, 200},
         [](R f, O b) {
             return Void<O, double, intptr_t, intptr_t, intptr_t>(f, b, 2.0, 0, 0, 100);
         }},
        {"MultiplyUInt8QVT(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = "
         "0, MultiplyOnlyOver as Integer = -1)",
         "Factor=-1.0", Receiver::Block, Bytes{100, 101, 200},
         [](R f, O b) {
             return Void<O, double, intptr_t, intptr_t, intptr_t>(f, b, -1.0, 0, 0, -1);
         }},
        {"MaxQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = "
         "false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
         "firstMem=01 C8 secondMem=02 64 Signed=true", Receiver::Block, Bytes(2, 0),
         [](R f, O b) {
             return Truth(Invoke<bool, O, void *, void *, intptr_t, bool, intptr_t, intptr_t>(
                 f, b, Ptr(kFirst), Ptr(kSecond), 8, true, 0, 0));
         }},
        {"MinQVT(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = "
         "false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
         "firstMem=nil", Receiver::Block, Bytes(2, 0),
         [](R f, O b) {
             return Truth(Invoke<bool, O, void *, void *, intptr_t, bool, intptr_t, intptr_t>(
                 f, b, nullptr, Ptr(kSecond), 8, false, 0, 0));
         }},
        {"AddressQVT(offset as Int64 = 0) as UInt64", "offset=6", Receiver::Block, kSix,
         [](R f, O b) { return Distance(Invoke<uint64_t, O, int64_t>(f, b, 6), b); }},
        {"AddressPtrQVT(offset as Int64 = 0) as Ptr", "offset=7", Receiver::Block, kSix,
         [](R f, O b) {
             return Distance(reinterpret_cast<uintptr_t>(Invoke<void *, O, int64_t>(f, b, 7)), b);
         }},
        {"OSTypeQVT(offset as Integer) as String", "offset=2", Receiver::Block, kSix,
         [](R f, O b) { return Text(Invoke<REALstring, O, intptr_t>(f, b, 2)); }},
        {"OSTypeQVT(offset as Integer, assigns value as String)", "offset=0 value=\"abcd\"",
         Receiver::Block, kSix,
         [](R f, O b) {
             REALstring value = simhost::NewString("abcd");
             Outcome outcome = Void<O, intptr_t, REALstring>(f, b, 0, value);
             simhost::Release(value);
             return outcome;
         }},
        {"GetStringQVT(offset as Integer, numBytes as Integer) as String", "offset=4 numBytes=100",
         Receiver::Block, kSix,
         [](R f, O b) { return Text(Invoke<REALstring, O, intptr_t, intptr_t>(f, b, 4, 100)); }},
        {"SetStringQVT(str as String, offset as Integer)", "str=\"xyz\" offset=4", Receiver::Block,
         kSix,
         [](R f, O b) {
             REALstring str = simhost::NewString("xyz");
             Outcome outcome = Void<O, REALstring, intptr_t>(f, b, str, 4);
             simhost::Release(str);
             return outcome;
         }},
        {"LeftQVT(length as integer) as Memoryblock", "length=3", Receiver::Block, kCounting,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 3)); }},
        {"LeftQVT(length as integer) as Memoryblock", "length=3", Receiver::Nil, kNone,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 3)); }},
        {"RightQVT(length As Integer) as Memoryblock", "length=3", Receiver::Block, kCounting,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 3)); }},
        {"CopyBytesQVT(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
         "srcOfs=0 numBytes=4 destOfs=1", Receiver::Block, kSix,
         [](R f, O b) { return Void<O, intptr_t, intptr_t, intptr_t>(f, b, 0, 4, 1); }},
        {"MidQVT(offset as integer) as Memoryblock", "offset=7", Receiver::Block, kCounting,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 7)); }},
        {"MidQVT(offset As Integer, length As Integer) as Memoryblock", "offset=2 length=3",
         Receiver::Block, kCounting,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t, intptr_t>(f, b, 2, 3)); }},
        {"AppendQVT(other as Memoryblock) as Memoryblock", "other=AA BB", Receiver::Block, kSix,
         [](R f, O b) {
             O other = simhost::NewBlock(Bytes{0xAA, 0xBB});
             Outcome outcome = Block(Invoke<O, O, O>(f, b, other));
             simhost::Release(other);
             return outcome;
         }},
        {"FillBytesQVT(offset as integer, count as integer, value as integer)",
         "offset=2 count=3 value=255", Receiver::Block, kCounting,
         [](R f, O b) { return Void<O, intptr_t, intptr_t, intptr_t>(f, b, 2, 3, 255); }},
        {"InvertBytesQVT(offset as integer, count as integer)", "offset=2 count=3", Receiver::Block,
         kCounting, [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 2, 3); }},
        {"CopyByteToUShortQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         "dest=6 bytes SourceOffset=1 DestinationOffset=0 ByteCount=3 divisor=257", Receiver::Block,
         kCounting,
         [](R f, O b) {
             O dest = simhost::NewBlock(6);
             Void<O, O, intptr_t, intptr_t, intptr_t, intptr_t>(f, b, dest, 1, 0, 3, 257);
             Outcome outcome{"dest " + Hex(simhost::Bytes(dest))};
             simhost::Release(dest);
             return outcome;
         }},
        {"CopyUShortToByteQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         "dest=itself SourceOffset=0 DestinationOffset=0 ByteCount=3 divisor=256", Receiver::Block,
         kSix,
         [](R f, O b) { return Void<O, O, intptr_t, intptr_t, intptr_t, intptr_t>(f, b, b, 0, 0, 3, 256); }},
        {"CopyUShortToByteQVT(dest as memoryblock, SourceOffset as integer, DestinationOffset as "
         "integer, ByteCount as integer, divisor as integer)",
         "dest=nil", Receiver::Block, kSix,
         [](R f, O b) { return Void<O, O, intptr_t, intptr_t, intptr_t, intptr_t>(f, b, nullptr, 0, 0, 3, 1); }},
        {"ExtractBitsQVT(Mask as integer, Dest as memoryblock=nil) as memoryblock", "Mask=&h0F",
         Receiver::Block, kPacked12,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t, O>(f, b, 0x0F, nullptr)); }},
        {"AndBitsQVT(Second as memoryblock, Dest as memoryblock=nil) as memoryblock",
         "Second=3C 3C 3C", Receiver::Block, kPacked12,
         [](R f, O b) {
             O second = simhost::NewBlock(Bytes(3, 0x3C));
             Outcome outcome = Block(Invoke<O, O, O, O>(f, b, second, nullptr));
             outcome.text += ", Second now " + Hex(simhost::Bytes(second));
             simhost::Release(second);
             return outcome;
         }},
        {"BitwiseXOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         "Second=itself Dest=itself", Receiver::Block, kPacked12,
         [](R f, O b) { return Block(Invoke<O, O, O, O>(f, b, b, b)); }},
        {"BitwiseOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock",
         "Second=nil", Receiver::Block, kPacked12,
         [](R f, O b) { return Block(Invoke<O, O, O, O>(f, b, nullptr, nullptr)); }},
        {"EndianU16_BtoNQVT(offset as integer,count as integer)", "offset=0 count=3",
         Receiver::Block, kSix, [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 0, 3); }},
        {"SwapBytesQVT(offset as Integer, numBytes as Integer)", "offset=2 numBytes=100",
         Receiver::Block, kSix, [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 2, 100); }},
        {"FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer",
         "values=(7, 4) StartByteOffset=2", Receiver::Block, kCounting,
         [](R f, O b) {
             REALarray values = simhost::NewArray(simhost::kArrayUInt8, {7, 4});
             Outcome outcome = Number(Invoke<intptr_t, O, REALarray, intptr_t>(f, b, values, 2));
             simhost::Release(values);
             return outcome;
         }},
        {"FindStringQVT(srcOfs as Integer, maxBytes as Integer, target as String) as Integer",
         "srcOfs=0 maxBytes=10 target=\"abc\"", Receiver::Block, Bytes{'x', 'a', 'b', 'c', 'y'},
         [](R f, O b) {
             REALstring target = simhost::NewString("abc");
             Outcome outcome =
                 Number(Invoke<intptr_t, O, intptr_t, intptr_t, REALstring>(f, b, 0, 10, target));
             simhost::Release(target);
             return outcome;
         }},
        {"BytesZeroQVT(srcOfs as Integer, numBytes as Integer) as Boolean", "srcOfs=0 numBytes=10",
         Receiver::Block, kZeros,
         [](R f, O b) { return Truth(Invoke<bool, O, intptr_t, intptr_t>(f, b, 0, 10)); }},
        {"MirrorBytesQVT(offsetByte as Integer = 0, lengthByte as integer = -1)",
         "offsetByte=0 lengthByte=-1", Receiver::Block, kCounting,
         [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 0, -1); }},
        {"MirrorBitsQVT(offsetBit as Integer, lengthBit as integer)", "offsetBit=4 lengthBit=12",
         Receiver::Block, Bytes{0x0F, 0x00, 0xFF},
         [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 4, 12); }},
        {"CopyNthBytesQVT(source as memoryblock, SourceOffsetBytes as integer, "
         "DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, "
         "NumberOfSteps as integer) as boolean",
         "source=itself SourceOffsetBytes=0 DestinationOffsetBytes=0 ByteCount=1 StepCount=3 "
         "NumberOfSteps=3",
         Receiver::Block, kCounting,
         [](R f, O b) {
             return Truth(Invoke<bool, O, O, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t>(
                 f, b, b, 0, 0, 1, 3, 3));
         }},
        {"ExpandBitsQVT(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, "
         "HighValue as integer = 255) as boolean",
         // Whole groups of 4 source bytes are read, 32 destination bytes written.
         "dest=32 bytes SourceByteCount=1", Receiver::Block, Bytes{0xA5, 0, 0, 0},
         [](R f, O b) {
             O dest = simhost::NewBlock(32);
             Outcome outcome =
                 Truth(Invoke<bool, O, O, intptr_t, intptr_t, intptr_t>(f, b, dest, 1, 0, 255));
             outcome.text += ", dest starts " + Hex(simhost::Bytes(dest).first(8));
             simhost::Release(dest);
             return outcome;
         }},
        {"NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock",
         "Data=\"abc\" size=3", Receiver::None, kNone,
         [](R f, O) { return Block(Invoke<O, void *, intptr_t>(f, Ptr(kABC), 3)); }},
        {"EndianU32_BtoNQVT(n as UInt32) as UInt32", "n=1", Receiver::None, kNone,
         [](R f, O) { return Pattern(Invoke<uint32_t, uint32_t>(f, 1), 4); }},
        {"EndianS16_BtoNQVT(n as Int16) as Int16", "n=384 (0x0180)", Receiver::None, kNone,
         [](R f, O) { return Pattern(Invoke<int16_t, int16_t>(f, 384), 2); }},
        {"EndianSwap32QVT(n as UInt32) as UInt32", "n=0x12345678", Receiver::None, kNone,
         [](R f, O) { return Pattern(Invoke<uint32_t, uint32_t>(f, 0x12345678), 4); }},
        {"Constructor(Size as Int64)", "Size=16", Receiver::Instance, kNone,
         [](R f, O i) {
             Void<O, int64_t>(f, i, 16);
             return Holding(i);
         }},
        {"Constructor(Size as Int64)", "Size=0", Receiver::Instance, kNone,
         [](R f, O i) {
             Void<O, int64_t>(f, i, 0);
             return Holding(i);
         }},
        {"Constructor(Mem as MemoryBlock, Size as Int64, Offset as Int64 = 0)",
         "Mem=01 02 03 04 05 06 Size=3 Offset=2", Receiver::Instance, kNone,
         [](R f, O i) {
             O mem = simhost::NewBlock(kSix);
             Void<O, O, int64_t, int64_t>(f, i, mem, 3, 2);
             simhost::Release(mem);
             return Holding(i);
         }},
        {"Constructor(Str as String)", "Str=\"abc\"", Receiver::Instance, kNone,
         [](R f, O i) {
             REALstring str = simhost::NewString("abc");
             Void<O, REALstring>(f, i, str);
             simhost::Release(str);
             return Holding(i);
         }},
        {"Resize(Size as Int64) as boolean", "Size=4, holding 16 bytes", Receiver::Instance, kNone,
         [](R f, O i) {
             Construct(i, 16);
             return Holding(i, Truth(Invoke<bool, O, int64_t>(f, i, 4)).text + ", ");
         }},
        {"Create(size as Int64) as boolean", "size=0, holding 16 bytes", Receiver::Instance, kNone,
         [](R f, O i) {
             Construct(i, 16);
             return Holding(i, Truth(Invoke<bool, O, int64_t>(f, i, 0)).text + ", ");
         }},
        {"Close", "holding 16 bytes", Receiver::Instance, kNone,
         [](R f, O i) {
             Construct(i, 16);
             Void<O>(f, i);
             return Holding(i);
         }},
    };
}

// Runs one step; false when its references did not balance.
bool Run(std::ostream &out, const Step &step, REALproc function) {
    REALobject block = step.receiver == Receiver::Block ? simhost::NewBlock(step.bytes) : nullptr;
    out << "\n" << step.declaration << "  [" << step.arguments << "]\n";
    if (step.receiver == Receiver::Nil) out << "  receiver nil\n";
    if (block != nullptr) out << "  before  " << Hex(simhost::Bytes(block)) << "\n";
    out.flush();  // a crashing call still shows what it was

    simhost::Snapshot before = simhost::TakeSnapshot();
    // Made after the snapshot and ended before the comparison, so that its
    // end, which closes it, counts in the balance.
    REALobject instance =
        step.receiver == Receiver::Instance ? simhost::NewInstance(kOwnedClass) : nullptr;
    if (block != nullptr) Watch("self", simhost::Bytes(block).data(), simhost::Bytes(block).size());
    WatchHostBlocks();
    Outcome outcome = step.call(function, instance != nullptr ? instance : block);
    Unwatch();
    simhost::Release(instance);
    std::string difference = simhost::CompareSnapshot(before, {outcome.object});

    if (block != nullptr) out << "  after   " << Hex(simhost::Bytes(block)) << "\n";
    if (!outcome.text.empty()) out << "  result  " << outcome.text << "\n";
    for (const auto &e : simhost::TakeExceptions()) {
        out << "  raised  " << e.className << ": " << e.message.value_or("(nil message)") << "\n";
    }
    if (difference.empty()) {
        out << "  references balanced\n";
    } else {
        out << "  references NOT balanced:\n";
        std::size_t start = 0;
        while (start < difference.size()) {
            std::size_t end = difference.find('\n', start);
            out << "    " << difference.substr(start, end - start) << "\n";
            start = end == std::string::npos ? difference.size() : end + 1;
        }
    }
    simhost::Release(outcome.object);
    simhost::Release(block);
    return difference.empty();
}

// Hosts on the direct route keep an assigning form in the record of its
// reading form: "Name(args, assigns value as T)" is there "Name(args) as T".
std::optional<simhost::MethodRef> FindAssigning(std::string_view declaration,
                                                std::string_view receiver) {
    constexpr std::string_view kAssigns = ", assigns value";
    const auto at = declaration.find(kAssigns);
    if (at == std::string_view::npos || !declaration.ends_with(')')) return std::nullopt;
    const auto type = declaration.substr(at + kAssigns.size());
    const std::string reading = std::string(declaration.substr(0, at)) + ")" +
                                std::string(type.substr(0, type.size() - 1));
    auto method = simhost::FindMethod(reading, receiver);
    if (!method || method->setterFunction == nullptr) return std::nullopt;
    method->function = method->setterFunction;
    return method;
}

}  // namespace

bool RunTour(std::ostream &out) {
    if (simhost::RegisteredMethods().empty()) {
        out << "tour: no registered methods\n";
        return true;
    }
    out << "tour:\n";
    bool balanced = true;
    std::size_t run = 0, skipped = 0;
    for (const Step &step : Steps()) {
        std::string_view receiver = step.receiver == Receiver::None       ? ""
                                    : step.receiver == Receiver::Instance ? kOwnedClass
                                                                          : "MemoryBlock";
        auto method = simhost::FindMethod(step.declaration, receiver);
        if (!method) method = FindAssigning(step.declaration, receiver);
        bool fits = method && method->function != nullptr &&
                    (step.receiver != Receiver::None || method->receiverClass.empty());
        if (!fits) {
            ++skipped;
            continue;
        }
        ++run;
        balanced = Run(out, step, method->function) && balanced;
    }
    out << "\ntour: " << Counted(run, "step") << " run, " << skipped << " not registered\n";
    return balanced;
}

}  // namespace qvthost

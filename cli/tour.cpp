#include "tour.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "format.h"
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

enum class Receiver { Block, Nil, None };

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
        {"LeftQVT(length as integer) as Memoryblock", "length=3", Receiver::Block, kCounting,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 3)); }},
        {"LeftQVT(length as integer) as Memoryblock", "length=3", Receiver::Nil, kNone,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 3)); }},
        {"RightQVT(length As Integer) as Memoryblock", "length=3", Receiver::Block, kCounting,
         [](R f, O b) { return Block(Invoke<O, O, intptr_t>(f, b, 3)); }},
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
        {"EndianU16_BtoNQVT(offset as integer,count as integer)", "offset=0 count=3",
         Receiver::Block, kSix, [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 0, 3); }},
        {"SwapBytesQVT(offset as Integer, numBytes as Integer)", "offset=2 numBytes=100",
         Receiver::Block, kSix, [](R f, O b) { return Void<O, intptr_t, intptr_t>(f, b, 2, 100); }},
        {"NewMemoryBlockWithBytesQVT(Data as Ptr, size as Integer) as MemoryBlock",
         "Data=\"abc\" size=3", Receiver::None, kNone,
         [](R f, O) { return Block(Invoke<O, const void *, intptr_t>(f, kABC, 3)); }},
        {"EndianU32_BtoNQVT(n as UInt32) as UInt32", "n=1", Receiver::None, kNone,
         [](R f, O) { return Pattern(Invoke<uint32_t, uint32_t>(f, 1), 4); }},
        {"EndianS16_BtoNQVT(n as Int16) as Int16", "n=384 (0x0180)", Receiver::None, kNone,
         [](R f, O) { return Pattern(Invoke<int16_t, int16_t>(f, 384), 2); }},
        {"EndianSwap32QVT(n as UInt32) as UInt32", "n=0x12345678", Receiver::None, kNone,
         [](R f, O) { return Pattern(Invoke<uint32_t, uint32_t>(f, 0x12345678), 4); }},
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
    Outcome outcome = step.call(function, block);
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
        std::string_view receiver = step.receiver == Receiver::None ? "" : "MemoryBlock";
        auto method = simhost::FindMethod(step.declaration, receiver);
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

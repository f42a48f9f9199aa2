// What the fuzz targets share: a fresh simulated host per input, blocks of
// every kind (nil, without memory, owned, of unknown size, aliased, or a
// window into another block's memory) with a plain model of their bytes,
// and the checks every call gets: bytes, raised exception, references.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shell/entry.h"
#include "simhost/simhost.h"

namespace qvt::fuzz {

using Bytes = std::vector<uint8_t>;

// libFuzzer may close stderr (-close_fd_mask=2) for targets that log; the
// reason of a failed check must still be seen, so its copy is taken before.
inline const int gReportFd = dup(2);

#if defined(__GNUC__)
__attribute__((format(printf, 1, 2), noreturn))
#endif
inline void Fail(const char *format, ...) {
    char line[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    dprintf(gReportFd, "fuzz check failed: %s\n", line);
    std::abort();
}

inline void Expect(bool condition, const char *what, const char *method) {
    if (!condition) Fail("%s: %s", method, what);
}

inline std::string Hex(const uint8_t *bytes, std::size_t count) {
    std::string text;
    char cell[4];
    for (std::size_t i = 0; i < count && i < 96; ++i) {
        std::snprintf(cell, sizeof cell, "%02x ", bytes[i]);
        text += cell;
    }
    return count > 96 ? text + "..." : text;
}

// Integer arguments: mostly near the interesting edge `around` (a size, an
// end), sometimes an extreme of the host's 32-bit Integer, sometimes any.
inline int64_t Around(FuzzedDataProvider &in, int64_t around) {
    static constexpr int64_t kExtremes[] = {
        0, -1, 1, 2, 4, 7, 8, 9, 31, 32, 33, 63, 64, 65,
        std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min(),
        std::numeric_limits<int32_t>::max() - 1, 0x10000, -0x10000};
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return in.PickValueInArray(kExtremes);
    case 1:
        return in.ConsumeIntegral<int32_t>();
    default:
        return std::clamp<int64_t>(around, -(int64_t{1} << 40), int64_t{1} << 40) +
               in.ConsumeIntegralInRange<int64_t>(-9, 9);
    }
}

// An exception the plug-in raised, or is expected to raise.
struct Raised {
    std::string className;
    std::string message;
    bool operator==(const Raised &) const = default;
};

inline std::optional<Raised> TakeOneException(const char *method) {
    auto raised = simhost::TakeExceptions();
    if (raised.empty()) return std::nullopt;
    if (raised.size() > 1) Fail("%s: %zu exceptions raised by one call", method, raised.size());
    return Raised{raised[0].className, raised[0].message.value_or("<nil>")};
}

inline void ExpectRaised(const std::optional<Raised> &expected, const char *method) {
    const auto got = TakeOneException(method);
    if (got == expected) return;
    Fail("%s: raised [%s: %s], expected [%s: %s]", method,
         got ? got->className.c_str() : "none", got ? got->message.c_str() : "",
         expected ? expected->className.c_str() : "none",
         expected ? expected->message.c_str() : "");
}

// The text RaiseRangeError gives for a limit-exclusive range from 0.
inline std::string RangeText(const char *parameter, const char *method, int64_t value,
                             int64_t limit) {
    char text[300];
    std::snprintf(text, sizeof text,
                  "The parameter %s to method %s is too %s. Range is 0 to %lld, but value is %lld.",
                  parameter, method, value < 0 ? "small" : "big",
                  static_cast<long long>(limit - 1), static_cast<long long>(value));
    return text;
}

inline Raised Nil(const char *message) { return {"NilObjectException", message}; }

// A fresh host for each input. Its call log stays off: inputs run by the
// million.
inline void FreshHost(double version = 2013.04) {
    simhost::Options options;
    options.logCalls = false;
    options.version = version;
    simhost::Reset(options);
    gResolver = &simhost::Resolve;
    gHostVersion = version;
}

inline void ExpectNoFaults(const char *method) {
    auto faults = simhost::Faults();
    if (!faults.empty()) Fail("%s: host fault: %s", method, faults[0].c_str());
}

// Runs `call` and checks that no reference moved, but for the given handles,
// which must hold exactly one more (a returned object, a locked Dest).
template <typename Call>
auto Balanced(const char *method, std::vector<REALobject> given, Call &&call) {
    const simhost::Snapshot before = simhost::TakeSnapshot();
    auto result = call();
    if constexpr (std::is_same_v<decltype(result), REALobject>) {
        if (result != nullptr && std::find(given.begin(), given.end(), result) == given.end())
            given.push_back(result);
    }
    std::vector<REALstring> strings;
    if constexpr (std::is_same_v<decltype(result), REALstring>) {
        if (result != nullptr) strings.push_back(result);
    }
    const std::string difference = simhost::CompareSnapshot(before, given, strings);
    if (!difference.empty()) Fail("%s: references: %s", method, difference.c_str());
    return result;
}

// ---- Blocks and their model ------------------------------------------------

// Memory the blocks lie in, and what it must hold after each call. Owned
// memory is the host's, fenced by its own guard bytes; foreign memory is
// ours, with guard bytes of ours in `model` too.
struct Storage {
    uint8_t *base = nullptr;
    std::size_t length = 0;
    Bytes model;
    std::unique_ptr<uint8_t[]> ours;
};

enum class Kind { Nil, Memoryless, Owned, Foreign };

struct Block {
    REALobject handle = nullptr;
    Kind kind = Kind::Nil;
    int storage = -1;         // -1: no memory
    std::size_t start = 0;    // data's place in its storage
    int64_t hostSize = 0;     // what memoryBlockGetSize reports
    std::size_t before = 0;   // bytes a caller may reach below data
    std::size_t extent = 0;   // bytes a caller may reach from data on
    uint8_t *data = nullptr;

    bool Known() const { return hostSize > 0; }
    // Whether [data + from, data + from + count) lies in memory a caller may touch.
    bool Holds(int64_t from, int64_t count) const {
        if (data == nullptr) return count <= 0;
        if (count < 0) return false;
        return from >= -static_cast<int64_t>(before) &&
               from + count <= static_cast<int64_t>(extent);
    }
};

inline constexpr std::size_t kGuard = 16;
inline constexpr uint8_t kGuardByte = 0x5A;

class World {
public:
    explicit World(FuzzedDataProvider &in) : in_(in) {}
    World(const World &) = delete;
    World &operator=(const World &) = delete;
    ~World() {
        for (REALobject h : handles_) simhost::Release(h);
    }

    // A block whose kind and bytes the input picks; it may be an earlier
    // block again, or a window into an earlier block's memory.
    Block &Add(std::size_t maxSize = 160) {
        const int kind = in_.ConsumeIntegralInRange<int>(0, blocks_.empty() ? 3 : 5);
        Block b;
        switch (kind) {
        case 0:
            break;
        case 1:
            b.kind = Kind::Memoryless;
            b.handle = Own(simhost::NewMemorylessBlock());
            break;
        case 2: {
            b.kind = Kind::Owned;
            const std::size_t size = Size(maxSize);
            b.handle = Own(simhost::NewBlock(static_cast<RBInteger>(size)));
            auto span = simhost::Bytes(b.handle);
            Fill(span.data(), size);
            b.storage = NewStorage(span.data(), size, nullptr);
            b.data = span.data();
            b.hostSize = static_cast<int64_t>(size);
            b.extent = size;
            break;
        }
        case 3: {
            const std::size_t size = Size(maxSize);
            std::unique_ptr<uint8_t[]> memory(new uint8_t[size + 2 * kGuard]);
            std::memset(memory.get(), kGuardByte, size + 2 * kGuard);
            uint8_t *base = memory.get();
            Fill(base + kGuard, size);
            b.storage = NewStorage(base, size + 2 * kGuard, std::move(memory));
            Foreign(b, kGuard, 0, size);
            break;
        }
        case 4:
            b = blocks_[in_.ConsumeIntegralInRange<std::size_t>(0, blocks_.size() - 1)];
            break;
        default: {
            const Block &of = blocks_[in_.ConsumeIntegralInRange<std::size_t>(0, blocks_.size() - 1)];
            if (of.data == nullptr) return Add(maxSize);
            const std::size_t at = in_.ConsumeIntegralInRange<std::size_t>(0, of.extent);
            b.storage = of.storage;
            Foreign(b, of.start + at, of.before + at, of.extent - at);
            break;
        }
        }
        blocks_.push_back(b);
        return blocks_.back();
    }

    // The model's copy of a block's data.
    uint8_t *Model(const Block &b) {
        return b.storage < 0 ? nullptr : storages_[b.storage].model.data() + b.start;
    }

    // Every byte of every storage as the model has it.
    void ExpectModel(const char *method) {
        for (const Storage &s : storages_) {
            if (s.length == 0 || std::memcmp(s.base, s.model.data(), s.length) == 0) continue;
            std::size_t at = 0;
            while (s.base[at] == s.model[at]) ++at;
            const std::size_t from = at > 8 ? at - 8 : 0;
            Fail("%s: bytes differ from the model at %zu of %zu:\n  got  %s\n  want %s", method,
                 at, s.length, Hex(s.base + from, s.length - from).c_str(),
                 Hex(s.model.data() + from, s.length - from).c_str());
        }
        ExpectNoFaults(method);
    }

    // Takes the plug-in's bytes into the model where the outcome is open.
    void Adopt(const Block &b, std::size_t from, std::size_t count) {
        if (b.storage < 0) return;
        std::memcpy(Model(b) + from, b.data + from, count);
    }

    Bytes Consume(std::size_t count) { return in_.ConsumeBytes<uint8_t>(count); }

private:
    REALobject Own(REALobject h) {
        handles_.push_back(h);
        return h;
    }

    std::size_t Size(std::size_t maxSize) {
        // Small sizes mostly, and now and then one past the wide paths.
        return in_.ConsumeBool() ? in_.ConsumeIntegralInRange<std::size_t>(0, 17)
                                 : in_.ConsumeIntegralInRange<std::size_t>(0, maxSize);
    }

    void Fill(uint8_t *data, std::size_t size) {
        Bytes bytes = in_.ConsumeBytes<uint8_t>(size);
        for (std::size_t i = 0; i < size; ++i)
            data[i] = i < bytes.size() ? bytes[i] : static_cast<uint8_t>(i * 37 + 11);
    }

    int NewStorage(uint8_t *base, std::size_t length, std::unique_ptr<uint8_t[]> ours) {
        Storage s;
        s.base = base;
        s.length = length;
        s.model.assign(base, base + length);
        s.ours = std::move(ours);
        storages_.push_back(std::move(s));
        return static_cast<int>(storages_.size() - 1);
    }

    void Foreign(Block &b, std::size_t start, std::size_t before, std::size_t extent) {
        b.kind = Kind::Foreign;
        b.start = start;
        b.before = before;
        b.extent = extent;
        b.data = storages_[b.storage].base + start;
        b.hostSize = -1;
        b.handle = Own(simhost::NewForeignBlock(b.data));
    }

    FuzzedDataProvider &in_;
    std::deque<Block> blocks_;  // stable references for the caller
    std::vector<Storage> storages_;
    std::vector<REALobject> handles_;
};

// A new block the plug-in returned: one reference, exactly the bytes.
inline void ExpectNewBlock(REALobject block, const std::optional<Bytes> &expected,
                           const char *method) {
    if (!expected) {
        if (block != nullptr) Fail("%s: a block returned where nil was expected", method);
        return;
    }
    if (block == nullptr) Fail("%s: nil returned, expected %zu bytes", method, expected->size());
    auto got = simhost::Bytes(block);
    if (got.size() != expected->size() || !std::equal(got.begin(), got.end(), expected->begin()))
        Fail("%s: returned block\n  got  %s\n  want %s", method,
             Hex(got.data(), got.size()).c_str(), Hex(expected->data(), expected->size()).c_str());
    if (simhost::RefCount(block) != 1) Fail("%s: returned block has %ld references", method,
                                            simhost::RefCount(block));
    simhost::Release(block);
}

// Two blocks for a call, and a range of the first: the offset `a` near
// either end of it, the count `b` near what is left of it or near 0.
template <typename Args>
void PickBlocksAndRange(FuzzedDataProvider &in, World &world, Args &x) {
    x.block = &world.Add(200);
    x.other = &world.Add(200);
    const auto size = static_cast<int64_t>(x.block->extent);
    x.a = in.ConsumeBool() ? Around(in, 0) : Around(in, size);
    x.b = in.ConsumeBool() ? Around(in, size - x.a) : Around(in, 0);
}

// At most `most` calls over one world of blocks, each picked by the input.
template <typename Call>
void RunCalls(FuzzedDataProvider &in, int most, Call &&call) {
    World world(in);
    for (int calls = 0; calls < most && in.remaining_bytes() > 0; ++calls) call(in, world);
}

// A whole input of a target over blocks, on a fresh host.
template <typename Call>
int RunInput(const uint8_t *data, std::size_t size, int most, Call &&call) {
    FuzzedDataProvider in(data, size);
    FreshHost();
    RunCalls(in, most, call);
    return 0;
}

}  // namespace qvt::fuzz

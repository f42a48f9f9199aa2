// The simulated host's own promises: it notices misuse of references, its
// snapshots balance, its conversions are real, and it reads registrations
// the way the plug-in writes them.
#include "simhost/simhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "simhost/platform.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QVT_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QVT_SANITIZED 1
#endif
#endif

#if defined(__linux__)
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#endif

namespace {

template <typename F>
F Entry(const char *name) {
    return reinterpret_cast<F>(simhost::Resolve(name));
}

void Lock(REALobject o) { Entry<void (*)(REALobject)>("REALLockObject")(o); }
void Unlock(REALobject o) { Entry<void (*)(REALobject)>("REALUnlockObject")(o); }
void UnlockString(REALstring s) { Entry<void (*)(REALstring)>("REALUnlockString")(s); }
REALobject NewInstance(const char *name) {
    return Entry<REALobject (*)(const char *)>("PluginNewInstance")(name);
}
void Raise(REALobject e) { Entry<void (*)(REALobject)>("RuntimeRaiseException")(e); }

intptr_t GetStringData(REALstring s, uint32_t encoding, REALstringData *out) {
    return Entry<intptr_t (*)(REALstring, uint32_t, REALstringData *)>("PluginGetStringData")(
        s, encoding, out);
}

void DisposeStringData(REALstringData *record) {
    Entry<void (*)(REALstringData *)>("PluginDisposeStringData")(record);
}

template <typename T>
std::string Native(std::initializer_list<T> units) {
    std::string out(units.size() * sizeof(T), '\0');
    std::memcpy(out.data(), units.begin(), out.size());
    return out;
}

class SimHost : public ::testing::Test {
protected:
    void SetUp() override { simhost::Reset(); }
};

TEST_F(SimHost, MisuseIsRecordedAsOneFaultAndNothingBreaks) {
    const struct {
        std::function<void()> misuse;
        const char *fault;
    } cases[] = {
        {[] { REALobject b = simhost::NewBlock(4); Unlock(b); Unlock(b); }, "REALUnlockObject: unlock below zero of MemoryBlock#1"},
        {[] { REALobject b = simhost::NewBlock(4); simhost::Release(b); Entry<RBInteger (*)(REALobject)>("memoryBlockGetSize")(b); }, "memoryBlockGetSize: MemoryBlock#1 used after its end"},
        {[] { Lock(nullptr); }, "REALLockObject: nil object"},
        {[] { static int notAnObject; Lock(reinterpret_cast<REALobject>(&notAnObject)); }, "REALLockObject: unknown object handle"},
        {[] { REALstring s = simhost::NewString("x"); UnlockString(s); UnlockString(s); }, "REALUnlockString: unlock below zero of String#1"},
        {[] { simhost::SetFencedBlocks(false); REALobject b = simhost::NewBlock(4); static_cast<uint8_t *>(Entry<void *(*)(REALobject)>("memoryBlockGetPtr")(b))[4] = 1; simhost::Release(b); }, "MemoryBlock#1: bytes written past its end"},
        {[] { REALstring s = simhost::NewString("abc"); REALstringData record{}; GetStringData(s, hostabi::kEncodingUTF8, &record); REALstringData copy = record; DisposeStringData(&record); DisposeStringData(&copy); simhost::Release(s); }, "PluginDisposeStringData: record not given out, or disposed before"},
        {[] { REALarray a = simhost::NewArray(simhost::kArrayUInt8, {1, 2}); Entry<void *(*)(REALarray)>("PluginIntegerArrayGetProc")(a); simhost::Release(a); }, "PluginIntegerArrayGetProc: UInt8()#1 holds other elements"},
        {[] { auto lock = Entry<void (*)(REALobject)>("REALLockObject"); simhost::Options o; o.missingEntries = {"REALLockObject"}; simhost::Reset(o); lock(simhost::NewBlock(1)); }, "REALLockObject: called, but this host has no such entry"},
    };
    // Unlogged, the entries answer without the lock; misuse must still land
    // on the path that records it.
    for (bool logCalls : {true, false}) {
        for (const auto &c : cases) {
            simhost::Options options;
            options.logCalls = logCalls;
            simhost::Reset(options);
            c.misuse();
            EXPECT_EQ(simhost::Faults(), std::vector<std::string>{c.fault}) << c.fault << " logged " << logCalls;
        }
    }
}

uint8_t *Pointer(REALobject b) { return static_cast<uint8_t *>(Entry<void *(*)(REALobject)>("memoryBlockGetPtr")(b)); }
REALobject Constructed(RBInteger size, REALobject block = nullptr) {
    if (block == nullptr) block = NewInstance("MemoryBlock");
    auto load = Entry<void *(*)(REALobject, const char *)>("REALLoadObjectMethod");
    reinterpret_cast<void (*)(REALobject, RBInteger)>(load(block, "Constructor(bytes as Integer)"))(block, size);
    return block;
}

// Every way to a block of the host's memory, fenced or not: its bytes are
// zeroed (or copied) and writable, a fenced one ends at a page boundary, and
// an address in it, its guard zones or its fences names it with the offset.
TEST_F(SimHost, BlocksAreFencedOnEveryRouteAndFoundByAddress) {
    const std::size_t page = simhost::platform::PageSize();
    const struct {
        const char *route;
        std::function<REALobject(RBInteger)> make;
        uint8_t fill;
    } routes[] = {
        {"NewBlock", [](RBInteger n) { return simhost::NewBlock(n); }, 0},
        {"NewBlock(bytes)", [](RBInteger n) { return simhost::NewBlock(std::vector<uint8_t>(static_cast<std::size_t>(n), 0x5A)); }, 0x5A},
        {"newMemoryBlock", [](RBInteger n) { return Entry<REALobject (*)(RBInteger)>("newMemoryBlock")(n); }, 0},
        {"constructor", [](RBInteger n) { return Constructed(n); }, 0},
        {"constructor, again", [](RBInteger n) { return Constructed(n, Constructed(3)); }, 0},
    };
    for (bool fenced : {true, false}) {
        for (const auto &r : routes) {
            for (RBInteger n : {RBInteger{0}, RBInteger{1}, RBInteger{13}, static_cast<RBInteger>(page), static_cast<RBInteger>(page) + 1}) {
                simhost::Reset();
                simhost::SetFencedBlocks(fenced);
                const std::string what = std::string(r.route) + " " + std::to_string(n) + (fenced ? " fenced" : "");
                REALobject b = r.make(n);
                uint8_t *p = Pointer(b);
                ASSERT_NE(p, nullptr) << what;
                EXPECT_EQ(std::count(p, p + n, r.fill), n) << what;
                std::memset(p, 0xFF, static_cast<std::size_t>(n));
                EXPECT_TRUE(!fenced || reinterpret_cast<uintptr_t>(p + n) % page == 0) << what;
                const uint8_t *first = p;
                const uint8_t *front = fenced ? reinterpret_cast<uint8_t *>(reinterpret_cast<uintptr_t>(p) / page * page - page) : p - 16;
                const uint8_t *back = fenced ? p + n + page - 1 : p + n + 15;
                for (const uint8_t *at : {first, first + n - 1, first - 1, front, first + n, back}) {
                    if (n == 0 && at == p + n - 1) continue;
                    auto owner = simhost::LocateAddress(at);
                    ASSERT_TRUE(owner.has_value()) << what << " at " << at - p;
                    EXPECT_EQ(owner->block, b) << what;
                    EXPECT_EQ(owner->name, simhost::Name(b)) << what;
                    EXPECT_EQ(owner->size, n) << what;
                    EXPECT_EQ(owner->offset, at - p) << what;
                    const auto extents = simhost::LiveBlockExtents();
                    const simhost::BlockExtent *extent = simhost::FindExtent(extents, at);
                    ASSERT_NE(extent, nullptr) << what;
                    EXPECT_EQ(extent->begin, p) << what;
                    EXPECT_EQ(extent->size, n) << what;
                }
                auto beyond = simhost::LocateAddress(back + 1);
                EXPECT_TRUE(!beyond || beyond->block != b) << what;
                Unlock(b);
                EXPECT_FALSE(simhost::LocateAddress(p).has_value()) << what << " ended";
                EXPECT_TRUE(simhost::Faults().empty()) << what;
            }
        }
    }
    simhost::Reset();
    static uint8_t memory[8];
    for (REALobject b : {simhost::NewForeignBlock(memory), simhost::NewMemorylessBlock()}) {
        EXPECT_FALSE(simhost::LocateAddress(memory).has_value());
        EXPECT_FALSE(simhost::LocateAddress(nullptr).has_value());
        simhost::Release(b);
    }
    EXPECT_TRUE(simhost::LiveBlockExtents().empty());
}

// A read or write past either fence ends the process where it happens; a
// write between the front fence and the first byte is a fault when checked.
TEST_F(SimHost, FencesStopTheFirstAccessOutsideABlock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::ptrdiff_t page = static_cast<std::ptrdiff_t>(simhost::platform::PageSize());
    const struct {
        RBInteger size;
        std::ptrdiff_t at;  // from the first byte; past the front fence for kFront
        bool write;
    } rows[] = {
        {8, 8, false}, {8, 8, true}, {0, 0, false}, {page, page, true},
        {8, -1 - (page - 8), false}, {8, -1 - (page - 8), true}, {page, -1, true},
    };
    for (const auto &r : rows) {
        EXPECT_DEATH(
            {
                simhost::Reset();
                simhost::SetFencedBlocks(true);
                volatile uint8_t *at = Pointer(simhost::NewBlock(r.size)) + r.at;
                if (r.write) {
                    *at = 1;
                } else {
                    std::printf("%d", *at);
                }
            },
            "")
            << r.size << " at " << r.at << (r.write ? " write" : " read");
    }
    simhost::SetFencedBlocks(true);
    REALobject b = simhost::NewBlock(8);
    Pointer(b)[-1] = 0;
    EXPECT_EQ(simhost::Faults(), std::vector<std::string>{"MemoryBlock#1: bytes written before its start"});
    void *own = simhost::AllocateFenced(8);
    static_cast<uint8_t *>(own)[-1] = 0;
    simhost::FreeFenced(own);
    EXPECT_EQ(simhost::Faults().back(), "fenced memory of 8 bytes: bytes written before its start");
}

// Fenced memory outside blocks behaves as calloc, realloc and free, and keeps
// its fence when it grows or shrinks.
TEST_F(SimHost, FencedAllocationsResizeWithinTheirFence) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::size_t page = simhost::platform::PageSize();
    auto *p = static_cast<uint8_t *>(simhost::AllocateFenced(5));
    ASSERT_NE(p, nullptr);
    std::memcpy(p, "abcde", 5);
    for (std::size_t size : {std::size_t{3}, page + 7, std::size_t{1}}) {
        auto *q = static_cast<uint8_t *>(simhost::ReallocateFenced(p, size));
        ASSERT_NE(q, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(q + size) % page, 0u) << size;
        EXPECT_EQ(q[0], 'a') << size;
        EXPECT_DEATH(q[size] = 1, "") << size;
        p = q;
    }
    EXPECT_EQ(simhost::ReallocateFenced(p, std::numeric_limits<std::size_t>::max() - 1), nullptr);
    EXPECT_EQ(p[0], 'a');
    simhost::FreeFenced(p);
    EXPECT_TRUE(simhost::Faults().empty());
}

// A block that cannot be had is the host's usual answer (nil, or the
// constructor's exception), recorded as a shortfall; never an end of the
// process. A negative size is no shortfall.
TEST_F(SimHost, BlocksThatCannotBeHadAreShortfalls) {
    if constexpr (sizeof(void *) < 8) GTEST_SKIP() << "a 32-bit process may find 2 GiB";
    const RBInteger huge = std::numeric_limits<RBInteger>::max() / 2;
    const struct {
        const char *entry;
        std::function<REALobject(RBInteger)> make;
    } routes[] = {
        {"NewBlock", [](RBInteger n) { return simhost::NewBlock(n); }},
        {"newMemoryBlock", [](RBInteger n) { return Entry<REALobject (*)(RBInteger)>("newMemoryBlock")(n); }},
        {"MemoryBlock.Constructor", [](RBInteger n) { REALobject b = Constructed(n); return Pointer(b) != nullptr ? b : (simhost::Release(b), nullptr); }},
    };
    for (bool fenced : {true, false}) {
        for (const auto &r : routes) {
            simhost::Reset();
            simhost::SetFencedBlocks(fenced);
            EXPECT_EQ(r.make(huge), nullptr) << r.entry;
            EXPECT_EQ(r.make(-1), nullptr) << r.entry;
            const auto shortfalls = simhost::TakeMemoryShortfalls();
            ASSERT_EQ(shortfalls.size(), 1u) << r.entry;
            EXPECT_EQ(shortfalls[0].entry, r.entry);
            EXPECT_EQ(shortfalls[0].size, huge);
            EXPECT_TRUE(simhost::TakeMemoryShortfalls().empty());
        }
    }
    const auto raised = simhost::TakeExceptions();
    ASSERT_FALSE(raised.empty());
    EXPECT_EQ(raised[0].className, "OutOfMemoryException");
}

#if defined(__linux__) && !defined(QVT_SANITIZED) && !defined(QVT_EMULATED)
// Lets the process map `more` bytes beyond what it has mapped now.
void LimitAddressSpace(std::size_t more) {
    unsigned long pages = 0;
    std::FILE *statm = std::fopen("/proc/self/statm", "r");
    ASSERT_NE(statm, nullptr);
    ASSERT_EQ(std::fscanf(statm, "%lu", &pages), 1);
    std::fclose(statm);
    const rlimit limit{pages * simhost::platform::PageSize() + more, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
}
#endif

// Short of memory for a string, an entry answers as a host that cannot build
// or convert one, and records a shortfall; the process goes on.
TEST_F(SimHost, StringsThatCannotBeHadAreShortfalls) {
#if !defined(__linux__) || defined(QVT_SANITIZED) || defined(QVT_EMULATED)
    GTEST_SKIP() << "a limit on address space is Linux's, and sanitizers and emulators need the space";
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr std::size_t kBig = 64 << 20;
    using Build = REALstring (*)(const void *, int32_t);
    using BuildWith = REALstring (*)(const void *, int32_t, uint32_t);
    const struct {
        const char *entry;
        std::function<bool(const std::string &, REALstring)> refused;
    } rows[] = {
        {"REALBuildString", [](const std::string &b, REALstring) { return Entry<Build>("REALBuildString")(b.data(), kBig) == nullptr; }},
        {"REALBuildStringWithEncoding", [](const std::string &b, REALstring) { return Entry<BuildWith>("REALBuildStringWithEncoding")(b.data(), kBig, hostabi::kEncodingUTF8) == nullptr; }},
        {"REALConvertString", [](const std::string &, REALstring s) { return Entry<REALstring (*)(REALstring, uint32_t)>("REALConvertString")(s, hostabi::kEncodingUTF16) == nullptr; }},
        {"PluginGetStringData", [](const std::string &, REALstring s) { REALstringData record{}; return GetStringData(s, hostabi::kEncodingUTF16, &record) == 0 && record.data == nullptr; }},
        {"RuntimeAddString", [](const std::string &, REALstring s) { return Entry<REALstring (*)(REALstring, REALstring)>("RuntimeAddString")(s, s) == nullptr; }},
    };
    for (const auto &r : rows) {
        EXPECT_EXIT(
            {
                simhost::Reset();
                const std::string bytes(kBig, 'a');
                REALstring big = simhost::NewString(bytes);
                LimitAddressSpace(16 << 20);
                const bool refused = r.refused(bytes, big);
                const auto shortfalls = simhost::TakeMemoryShortfalls();
                const bool recorded = shortfalls.size() == 1 && shortfalls[0].entry == r.entry &&
                                      shortfalls[0].size >= static_cast<RBInteger>(kBig);
                std::fprintf(stderr, "refused %d recorded %d\n", refused, recorded);
                std::_Exit(refused && recorded ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "refused 1 recorded 1")
            << r.entry;
    }
#endif
}

TEST_F(SimHost, SnapshotsTellBalancedFromUnbalanced) {
    static REALobject block;
    auto newBlock = [] { return Entry<REALobject (*)(RBInteger)>("newMemoryBlock")(3); };
    // Each case returns the objects it hands over to its caller.
    using Handed = std::vector<REALobject>;
    static REALstringData record;
    const struct {
        std::function<Handed()> run;
        bool balanced;
    } cases[] = {
        {[] { Lock(block); Unlock(block); return Handed{}; }, true},
        {[] { Lock(block); return Handed{}; }, false},
        {[] { Unlock(block); return Handed{}; }, false},
        {[&] { return Handed{newBlock()}; }, true},
        {[&] { newBlock(); return Handed{}; }, false},
        {[] { Lock(block); return Handed{block}; }, true},
        {[] { REALobject e = NewInstance("RuntimeException"); Raise(e); Unlock(e); return Handed{}; }, true},
        {[] { REALstring s = simhost::NewString("abc"); GetStringData(s, hostabi::kEncodingUTF8, &record); simhost::Release(s); return Handed{}; }, false},
    };
    for (std::size_t i = 0; i < 2 * std::size(cases); ++i) {
        simhost::Options options;
        options.logCalls = i < std::size(cases);
        simhost::Reset(options);
        block = simhost::NewBlock(4);
        simhost::Snapshot before = simhost::TakeSnapshot();
        const auto &c = cases[i % std::size(cases)];
        EXPECT_EQ(simhost::CompareSnapshot(before, c.run()).empty(), c.balanced) << i;
        EXPECT_TRUE(simhost::Faults().empty()) << i;
    }
}

TEST_F(SimHost, UnloggedEntriesStillFailRecordAndRefuseOnRequest) {
    using Ptr = void *(*)(REALobject);
    // Found while the host has it.
    const auto size = Entry<RBInteger (*)(REALobject)>("memoryBlockGetSize");
    const struct {
        std::vector<std::string> missing;
        std::function<std::string(REALobject)> run;
        std::string expected;
    } cases[] = {
        {{}, [](REALobject b) { simhost::FailCall(1, "memoryBlockGetPtr"); void *failed = Entry<Ptr>("memoryBlockGetPtr")(b); void *next = Entry<Ptr>("memoryBlockGetPtr")(b); return std::to_string(failed == nullptr) + std::to_string(next == nullptr); }, "10"},
        {{}, [](REALobject b) { simhost::FailCall(1, "memoryBlockGetPtr"); simhost::StopFailing(); return std::to_string(Entry<Ptr>("memoryBlockGetPtr")(b) != nullptr); }, "1"},
        {{}, [](REALobject b) { simhost::ThrowOnNextCall("REALLockObject", [] { throw 7; }); try { Lock(b); } catch (int) { return std::string("thrown ") + std::to_string(simhost::RefCount(b)); } return std::string("not thrown"); }, "thrown 1"},
        {{"memoryBlockGetSize"}, [size](REALobject b) { const RBInteger n = size(b); return std::to_string(n) + " " + simhost::Faults().at(0); }, "4 memoryBlockGetSize: called, but this host has no such entry"},
        {{}, [](REALobject b) { Lock(b); Lock(b); Unlock(b); Unlock(b); Unlock(b); return std::to_string(simhost::RefCount(b)) + " " + std::to_string(simhost::LiveObjects()); }, "0 0"},
    };
    for (const auto &c : cases) {
        simhost::Options options;
        options.logCalls = false;
        options.missingEntries = c.missing;
        simhost::Reset(options);
        REALobject block = simhost::NewBlock(4);
        EXPECT_EQ(c.run(block), c.expected);
    }
}

TEST_F(SimHost, ConvertsTextBetweenTheHostsEncodings) {
    struct Case {
        std::string bytes;
        uint32_t from, to;
        std::optional<std::string> expected;  // nullopt: the host cannot convert
    };
    using namespace hostabi;
    const Case cases[] = {
        {"caf\xC3\xA9", kEncodingUTF8, kEncodingLatin1, "caf\xE9"},
        {"caf\xC3\xA9", kEncodingUTF8, kEncodingMacRoman, "caf\x8E"},
        {"\xE2\x82\xAC", kEncodingUTF8, kEncodingWindowsLatin1, "\x80"},
        {"\x8E", kEncodingMacRoman, kEncodingUTF8, "\xC3\xA9"},
        {"\xE9", kEncodingUnknown, kEncodingUTF8, "\xC3\xA9"},
        {"\xC3\xA9!", kEncodingUTF8, kEncodingASCII, "?!"},
        {"a\xFF" "b", kEncodingUTF8, kEncodingUTF8, "a\xEF\xBF\xBD" "b"},
        {"A\xC3\xA9", kEncodingUTF8, kEncodingUTF16, Native<char16_t>({u'A', u'\xE9'})},
        {std::string("\xFE\xFF\0A", 4), kEncodingUTF16, kEncodingUTF8, "A"},
        {std::string("\xFF\xFE" "A\0", 4), kEncodingUTF16, kEncodingUTF8, "A"},
        {"\xF0\x9F\x98\x80", kEncodingUTF8, kEncodingUTF32, Native<char32_t>({U'\U0001F600'})},
        {"\xF0\x9F\x98\x80", kEncodingUTF8, kEncodingUTF16, Native<char16_t>({u'\xD83D', u'\xDE00'})},
        {"abc", kEncodingUTF8, 0x1234, std::nullopt},
        {"abc", kEncodingUTF8, kEncodingUnknown, std::nullopt},
    };
    auto convert = Entry<REALstring (*)(REALstring, uint32_t)>("REALConvertString");
    for (const Case &c : cases) {
        REALstring s = simhost::NewString(c.bytes, c.from);
        REALstring converted = convert(s, c.to);
        if (c.expected) {
            ASSERT_NE(converted, nullptr) << c.bytes << " to " << c.to;
            EXPECT_EQ(simhost::StringBytes(converted), *c.expected) << c.bytes << " to " << c.to;
            EXPECT_EQ(simhost::StringEncoding(converted), c.to);
        } else {
            EXPECT_EQ(converted, nullptr) << c.bytes << " to " << c.to;
        }
        simhost::Release(converted);
        simhost::Release(s);
    }
    EXPECT_EQ(simhost::LiveStrings(), 0u);
}

TEST_F(SimHost, StringDataIsTerminatedMeasuredAndCounted) {
    REALstring s = simhost::NewString(std::string("ab\0c", 4), hostabi::kEncodingUTF8);
    REALstringData record{};
    ASSERT_TRUE(GetStringData(s, hostabi::kEncodingUTF16, &record));
    EXPECT_EQ(record.length, 8);
    EXPECT_EQ(std::memcmp(static_cast<const char *>(record.data) + 8, "\0\0\0\0", 4), 0);
    EXPECT_EQ(simhost::OpenStringData(), 1u);
    DisposeStringData(&record);
    EXPECT_EQ(simhost::OpenStringData(), 0u);
    simhost::Release(s);
    EXPECT_TRUE(simhost::Faults().empty());
}

TEST_F(SimHost, RaisedExceptionsAreDeliveredAndLetGo) {
    auto setString =
        Entry<intptr_t (*)(REALobject, const char *, REALstring)>("REALSetPropValueString");
    auto setInt = Entry<intptr_t (*)(REALobject, const char *, RBInteger)>("REALSetPropValueInt");
    REALobject e = NewInstance("OutOfBoundsException");
    REALstring message = simhost::NewString("too big");
    EXPECT_TRUE(setString(e, "Message", message));
    EXPECT_TRUE(setInt(e, "ErrorNumber", 7));
    EXPECT_FALSE(setInt(e, "Colour", 7));
    Raise(e);
    Unlock(e);
    UnlockString(message);
    REALobject quiet = NewInstance("NilObjectException");
    Raise(quiet);
    Unlock(quiet);
    auto raised = simhost::TakeExceptions();
    ASSERT_EQ(raised.size(), 2u);
    EXPECT_EQ(raised[0].className, "OutOfBoundsException");
    EXPECT_EQ(raised[0].message, "too big");
    EXPECT_EQ(raised[0].errorNumber, 7);
    EXPECT_EQ(raised[1].message, std::nullopt);
    EXPECT_EQ(simhost::LiveObjects(), 0u);
    EXPECT_EQ(simhost::LiveStrings(), 0u);
    simhost::Options o;
    o.missingClasses = {"IllegalCastException"};
    simhost::Reset(o);
    EXPECT_EQ(NewInstance("IllegalCastException"), nullptr);
    EXPECT_TRUE(simhost::Faults().empty());
}

TEST_F(SimHost, ArrayHeadersLieWhereTheHostVersionPutsThem) {
    const struct {
        double version;
        bool scrambled;
        hostabi::ArrayHeaderLayout layout;
        bool readable;
    } cases[] = {
        {2013.04, false, hostabi::kArrayHeader2008, true}, {2007.5, false, hostabi::kArrayHeaderOld, true}, {2013.04, true, hostabi::kArrayHeader2008, false},
    };
    for (const auto &c : cases) {
        simhost::Options o;
        o.version = c.version, o.oldArrayHeader = c.scrambled;
        simhost::Reset(o);
        REALarray a = Entry<REALarray (*)(int32_t, RBInteger)>(
            "RuntimeArrayCreateSingleDimBoundedArray")(0, 1234);
        ASSERT_NE(a, nullptr);
        auto setter = reinterpret_cast<void (*)(REALarray, intptr_t, RBInteger)>(
            Entry<void *(*)(REALarray)>("RuntimeArrayDirectGetSetProc")(a));
        setter(a, 12345, 0);
        setter(a, 123456, 9);
        auto *words = reinterpret_cast<const uintptr_t *>(a);
        auto *data = reinterpret_cast<const int32_t *>(words[c.layout.data]);
        bool readable = words[c.layout.refCount] == 1 && words[c.layout.dimensionCount] == 1 &&
                        words[c.layout.ubound] == 1234 && data != nullptr && data[0] == 12345 &&
                        data[9] == 123456;
        EXPECT_EQ(readable, c.readable) << c.version << (c.scrambled ? " scrambled" : "");
        Unlock(reinterpret_cast<REALobject>(a));
        EXPECT_EQ(simhost::LiveObjects(), 0u);
        EXPECT_TRUE(simhost::Faults().empty());
    }
}

// A class as the plug-in would register it.
int gDestroyed = 0;
REALobject gDestroyedInstance = nullptr;
void Destroy(REALobject instance) { ++gDestroyed, gDestroyedInstance = instance; }

TEST_F(SimHost, RegisteredClassesGetInstancesAndTheirDestructor) {
    static REALclassDefinition cls{};
    cls = {};
    cls.version = 13, cls.name = "Widget", cls.dataSize = 32;
    cls.destructor = reinterpret_cast<REALproc>(&Destroy);
    Entry<void (*)(int32_t)>("RegisterPluginVersion")(13);
    Entry<void (*)(REALclassDefinition *)>("PluginRegisterClass")(&cls);
    EXPECT_EQ(cls.forSystemUse, simhost::kInstanceDataOffset);
    gDestroyed = 0;
    REALobject w = NewInstance("Widget");
    ASSERT_NE(w, nullptr);
    auto data = simhost::InstanceData(w);
    EXPECT_EQ(data.data(), reinterpret_cast<uint8_t *>(w) + cls.forSystemUse);
    EXPECT_EQ(data.size(), 32u);
    EXPECT_EQ(std::count(data.begin(), data.end(), 0), 32);
    Lock(w);
    Unlock(w);
    EXPECT_EQ(gDestroyed, 0);
    Unlock(w);
    EXPECT_EQ(gDestroyed, 1);
    EXPECT_EQ(gDestroyedInstance, w);
    EXPECT_TRUE(simhost::Faults().empty());
}

TEST_F(SimHost, PlainDeclarationDropsTheExtendsParameter) {
    const std::pair<const char *, const char *> cases[] = {
        {"GetBitQVT(extends ref as MemoryBlock, Bit as UInt64) as Integer", "GetBitQVT(Bit as UInt64) as Integer"},
        {"Close(extends ref as MemoryBlock)", "Close"},
        {"Size(extends ref as MemoryBlock) as Integer", "Size as Integer"},
        {"EndianSwap16QVT(n as UInt16) as UInt16", "EndianSwap16QVT(n as UInt16) as UInt16"},
    };
    for (const auto &c : cases) EXPECT_EQ(simhost::PlainDeclaration(c.first), c.second);
}

}  // namespace

// The simulated host's own promises: it notices misuse of references, its
// snapshots balance, its conversions are real, and it reads registrations
// the way the plug-in writes them.
#include "simhost/simhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

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

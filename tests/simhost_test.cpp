// The simulated host's own promises: it notices misuse of references, its
// snapshots balance, its conversions are real, and it reads registrations
// the way the plug-in writes them.
#include "simhost/simhost.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simhost/loader.h"

namespace {

using Bytes = std::vector<uint8_t>;

template <typename F>
F Entry(const char *name) {
    return reinterpret_cast<F>(simhost::Resolve(name));
}

void Lock(REALobject o) { Entry<void (*)(REALobject)>("REALLockObject")(o); }
void Unlock(REALobject o) { Entry<void (*)(REALobject)>("REALUnlockObject")(o); }
void UnlockString(REALstring s) { Entry<void (*)(REALstring)>("REALUnlockString")(s); }

REALstring Convert(REALstring s, uint32_t encoding) {
    return Entry<REALstring (*)(REALstring, uint32_t)>("REALConvertString")(s, encoding);
}

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
        {[] {
             REALobject b = simhost::NewBlock(4);
             Unlock(b);
             Unlock(b);
         },
         "REALUnlockObject: unlock below zero of MemoryBlock#1"},
        {[] {
             REALobject b = simhost::NewBlock(4);
             simhost::Release(b);
             Entry<RBInteger (*)(REALobject)>("memoryBlockGetSize")(b);
         },
         "memoryBlockGetSize: MemoryBlock#1 used after its end"},
        {[] { Lock(nullptr); }, "REALLockObject: nil object"},
        {[] {
             static int notAnObject;
             Lock(reinterpret_cast<REALobject>(&notAnObject));
         },
         "REALLockObject: unknown object handle"},
        {[] {
             REALstring s = simhost::NewString("x");
             UnlockString(s);
             UnlockString(s);
         },
         "REALUnlockString: unlock below zero of String#1"},
        {[] {
             REALobject b = simhost::NewBlock(4);
             static_cast<uint8_t *>(Entry<void *(*)(REALobject)>("memoryBlockGetPtr")(b))[4] = 1;
             simhost::Release(b);
         },
         "MemoryBlock#1: bytes written past its end"},
        {[] {
             REALstring s = simhost::NewString("abc");
             REALstringData record{};
             GetStringData(s, hostabi::kEncodingUTF8, &record);
             REALstringData copy = record;
             DisposeStringData(&record);
             DisposeStringData(&copy);
             simhost::Release(s);
         },
         "PluginDisposeStringData: record not given out, or disposed before"},
        {[] {
             REALarray a = simhost::NewArray(simhost::kArrayUInt8, {1, 2});
             Entry<void *(*)(REALarray)>("PluginIntegerArrayGetProc")(a);
             simhost::Release(a);
         },
         "PluginIntegerArrayGetProc: UInt8()#1 holds other elements"},
        {[] {
             auto lock = Entry<void (*)(REALobject)>("REALLockObject");
             simhost::Options o;
             o.missingEntries = {"REALLockObject"};
             simhost::Reset(o);
             lock(simhost::NewBlock(1));
         },
         "REALLockObject: called, but this host has no such entry"},
    };
    for (const auto &c : cases) {
        simhost::Reset();
        c.misuse();
        EXPECT_EQ(simhost::Faults(), std::vector<std::string>{c.fault}) << c.fault;
    }
}

TEST_F(SimHost, HandlesAreNeverReusedWithinAnEpoch) {
    std::set<REALobject> seen;
    for (int i = 0; i < 100; ++i) {
        REALobject b = simhost::NewBlock(8);
        EXPECT_TRUE(seen.insert(b).second);
        simhost::Release(b);
        EXPECT_EQ(simhost::RefCount(b), 0);
    }
    EXPECT_EQ(simhost::LiveObjects(), 0u);
    simhost::Reset();
    EXPECT_EQ(simhost::RefCount(*seen.begin()), -1);
}

TEST_F(SimHost, SnapshotsTellBalancedFromUnbalanced) {
    static REALobject block;
    auto newBlock = [] { return Entry<REALobject (*)(RBInteger)>("newMemoryBlock")(3); };
    // Each case returns the objects it hands over to its caller.
    using Handed = std::vector<REALobject>;
    const struct {
        const char *name;
        std::function<Handed()> run;
        bool balanced;
    } cases[] = {
        {"lock and unlock", [] { Lock(block); Unlock(block); return Handed{}; }, true},
        {"lock left over", [] { Lock(block); return Handed{}; }, false},
        {"unlock too many", [] { Unlock(block); return Handed{}; }, false},
        {"new block handed over", [&] { return Handed{newBlock()}; }, true},
        {"new block kept quiet", [&] { newBlock(); return Handed{}; }, false},
        {"existing block handed over with a lock", [] { Lock(block); return Handed{block}; }, true},
        {"raised exception held by the host only",
         [] {
             REALobject e =
                 Entry<REALobject (*)(const char *)>("PluginNewInstance")("RuntimeException");
             Entry<void (*)(REALobject)>("RuntimeRaiseException")(e);
             Unlock(e);
             return Handed{};
         },
         true},
        {"string data left open",
         [] {
             static REALstringData record;
             REALstring str = simhost::NewString("abc");
             GetStringData(str, hostabi::kEncodingUTF8, &record);
             simhost::Release(str);
             return Handed{};
         },
         false},
    };
    for (const auto &c : cases) {
        simhost::Reset();
        block = simhost::NewBlock(4);
        simhost::Snapshot before = simhost::TakeSnapshot();
        EXPECT_EQ(simhost::CompareSnapshot(before, c.run()).empty(), c.balanced) << c.name;
        EXPECT_TRUE(simhost::Faults().empty()) << c.name;
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
        {"\xF0\x9F\x98\x80", kEncodingUTF8, kEncodingUTF16,
         Native<char16_t>({u'\xD83D', u'\xDE00'})},
        {"abc", kEncodingUTF8, 0x1234, std::nullopt},
        {"abc", kEncodingUTF8, kEncodingUnknown, std::nullopt},
    };
    for (const Case &c : cases) {
        REALstring s = simhost::NewString(c.bytes, c.from);
        REALstring converted = Convert(s, c.to);
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

TEST_F(SimHost, OlderHostsLackWhatTheyLacked) {
    simhost::Options old;
    old.version = 2012.5;
    simhost::Reset(old);
    EXPECT_NE(simhost::Resolve("REALBuildStringWithEncoding"), nullptr);
    REALstring s = simhost::NewString("a");
    EXPECT_EQ(Convert(s, hostabi::kEncodingUTF32), nullptr);  // UTF-32 came with 2013.0
    old.version = 2011.0;
    old.hasVersionEntry = false;
    simhost::Reset(old);
    EXPECT_EQ(simhost::Resolve("REALBuildStringWithEncoding"), nullptr);
    EXPECT_EQ(simhost::Resolve("REALGetRBVersion"), nullptr);
    EXPECT_NE(simhost::Resolve("REALBuildString"), nullptr);
    EXPECT_EQ(simhost::ResolverLog(),
              (std::vector<std::string>{"REALBuildStringWithEncoding", "REALGetRBVersion",
                                        "REALBuildString"}));
}

TEST_F(SimHost, StringBytesReachThePlugInTerminatedAndMeasured) {
    REALstring s = simhost::NewString(std::string("ab\0c", 4), hostabi::kEncodingUTF8);
    auto lenB =
        reinterpret_cast<RBInteger (*)(REALstring)>(Entry<void *(*)(const char *, const char *)>(
            "REALLoadGlobalMethod")(nullptr, "LenB( s as string ) as integer"));
    ASSERT_NE(lenB, nullptr);
    EXPECT_EQ(lenB(s), 4);
    EXPECT_EQ(lenB(nullptr), 0);
    const char *c = Entry<const char *(*)(REALstring)>("StringGetCString")(s);
    EXPECT_EQ(std::string(c, 5), std::string("ab\0c\0", 5));
    EXPECT_EQ(Entry<void *(*)(const char *, const char *)>("REALLoadGlobalMethod")(
                  nullptr, "Len(s as string) as integer"),
              nullptr);

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
    auto newInstance = Entry<REALobject (*)(const char *)>("PluginNewInstance");
    auto setString =
        Entry<intptr_t (*)(REALobject, const char *, REALstring)>("REALSetPropValueString");
    auto setInt = Entry<intptr_t (*)(REALobject, const char *, RBInteger)>("REALSetPropValueInt");
    auto raise = Entry<void (*)(REALobject)>("RuntimeRaiseException");

    REALobject e = newInstance("OutOfBoundsException");
    REALstring message = simhost::NewString("too big");
    EXPECT_TRUE(setString(e, "Message", message));
    EXPECT_TRUE(setInt(e, "ErrorNumber", 7));
    EXPECT_FALSE(setInt(e, "Colour", 7));
    raise(e);
    Unlock(e);
    UnlockString(message);
    REALobject quiet = newInstance("NilObjectException");
    raise(quiet);
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
    EXPECT_EQ(newInstance("IllegalCastException"), nullptr);
    EXPECT_EQ(newInstance("NoSuchException"), nullptr);
    EXPECT_TRUE(simhost::Faults().empty());
}

TEST_F(SimHost, ArrayHeadersLieWhereTheHostVersionPutsThem) {
    struct Case {
        double version;
        bool scrambled;
        hostabi::ArrayHeaderLayout layout;
        bool readable;
    };
    const Case cases[] = {
        {2013.04, false, hostabi::kArrayHeader2008, true},
        {2007.5, false, hostabi::kArrayHeaderOld, true},
        {2013.04, true, hostabi::kArrayHeader2008, false},
    };
    for (const Case &c : cases) {
        simhost::Options o;
        o.version = c.version;
        o.oldArrayHeader = c.scrambled;
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
        auto insert = reinterpret_cast<void (*)(REALarray, RBInteger, intptr_t)>(
            Entry<void *(*)(REALarray)>("PluginIntegerArrayInsertProc")(a));
        insert(a, 0, -1);
        EXPECT_EQ(Entry<RBInteger (*)(REALarray)>("RuntimeUBound")(a), 1235);
        std::vector<int64_t> values = simhost::ArrayValues(a);
        EXPECT_EQ((std::vector<int64_t>(values.begin(), values.begin() + 3)),
                  (std::vector<int64_t>{-1, 12345, 0}));
        Unlock(reinterpret_cast<REALobject>(a));
        EXPECT_EQ(simhost::LiveObjects(), 0u);
        EXPECT_TRUE(simhost::Faults().empty());
    }
}

// A class as the plug-in would register it.
int gDestroyed = 0;
REALobject gDestroyedInstance = nullptr;
void Destroy(REALobject instance) {
    ++gDestroyed;
    gDestroyedInstance = instance;
}
void Nothing(REALobject) {}

TEST_F(SimHost, RegisteredClassesGetInstancesAndTheirDestructor) {
    static REALmethodDefinition methods[] = {
        {reinterpret_cast<REALproc>(&Nothing), nullptr, "Close", 4, 0, nullptr}};
    static REALclassDefinition cls{};
    cls = {};
    cls.version = 13;
    cls.name = "Widget";
    cls.dataSize = 32;
    cls.destructor = reinterpret_cast<REALproc>(&Destroy);
    cls.methods = methods;
    cls.methodCount = 1;
    Entry<void (*)(int32_t)>("RegisterPluginVersion")(13);
    Entry<void (*)(REALclassDefinition *)>("PluginRegisterClass")(&cls);
    EXPECT_EQ(cls.forSystemUse, simhost::kInstanceDataOffset);

    gDestroyed = 0;
    REALobject w = Entry<REALobject (*)(const char *)>("PluginNewInstance")("Widget");
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
        {"GetBitQVT(extends ref as MemoryBlock, Bit as UInt64) as Integer",
         "GetBitQVT(Bit as UInt64) as Integer"},
        {"Close(extends ref as MemoryBlock)", "Close"},
        {"Size(extends ref as MemoryBlock) as Integer", "Size as Integer"},
        {"OSTypeQVT(extends ref as MemoryBlock, offset as Integer, assigns value as String)",
         "OSTypeQVT(offset as Integer, assigns value as String)"},
        {"EndianSwap16QVT(n as UInt16) as UInt16", "EndianSwap16QVT(n as UInt16) as UInt16"},
    };
    for (const auto &[registered, plain] : cases)
        EXPECT_EQ(simhost::PlainDeclaration(registered), plain);
}

TEST_F(SimHost, ConcurrentCallersKeepTheCountsRight) {
    simhost::Options quiet;
    quiet.logCalls = false;
    simhost::Reset(quiet);
    REALobject b = simhost::NewBlock(16);
    auto work = [b] {
        for (int i = 0; i < 20000; ++i) {
            Lock(b);
            Unlock(b);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(simhost::RefCount(b), 1);
    EXPECT_TRUE(simhost::Faults().empty());
}

TEST_F(SimHost, LoaderReportsWhyALibraryDidNotLoad) {
    simhost::PluginLibrary library;
    EXPECT_FALSE(library.Open("/nonexistent/QVTMemory.so"));
    EXPECT_NE(library.Error().find("/nonexistent/QVTMemory.so"), std::string::npos);
    EXPECT_FALSE(library.Load());
}

}  // namespace

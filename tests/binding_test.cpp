// The binding rule against a resolver the test controls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <latch>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host_fixture.h"
#include "hostvalues/arrays.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

std::vector<std::string> gAsked;
std::map<std::string, void *> gEntries;

void *CountingResolver(const char *name) {
    gAsked.emplace_back(name);
    auto found = gEntries.find(name);
    return found == gEntries.end() ? nullptr : found->second;
}

intptr_t AnswerSeven(REALobject, const char *, RBInteger) { return 7; }
intptr_t AnswerZero(REALstring, uint32_t, REALstringData *) { return 0; }
RBInteger LenBOfThree(REALstring) { return 3; }
const char *CStringOfAbc(REALstring) { return "abc"; }
void *LoadLenB(const char *module, const char *declaration) {
    return module == nullptr && std::string(declaration) == "LenB( s as string ) as integer"
               ? reinterpret_cast<void *>(&LenBOfThree)
               : nullptr;
}

class BindingTest : public ::testing::Test {
protected:
    void SetUp() override {
        gAsked.clear();
        gEntries.clear();
        gResolver = &CountingResolver;
    }
    void TearDown() override { gResolver = nullptr; }
};

TEST_F(BindingTest, MissingEntriesGiveFixedResultsAndAreAskedAgain) {
    auto object = reinterpret_cast<REALobject>(0x1000);
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(host::REALinRuntime());
        EXPECT_EQ(host::memoryBlockGetPtr(object), nullptr);
        EXPECT_EQ(host::memoryBlockGetSize(object), 0);
        EXPECT_EQ(host::newMemoryBlock(8), nullptr);
        EXPECT_EQ(host::REALGetStringEncoding(nullptr), 0u);
        EXPECT_FALSE(host::REALSetPropValueString(object, "Message", nullptr));
        host::REALLockObject(object);  // nothing happens
    }
    const std::vector<std::string> once = {
        "REALinRuntime", "memoryBlockGetPtr", "memoryBlockGetSize", "newMemoryBlock",
        "REALGetStringEncoding", "REALSetPropValueString", "REALLockObject"};
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(gAsked, twice);
}

TEST_F(BindingTest, SecondNameIsAskedOnceAndCached) {
    gEntries["REALSetPropValueInt"] = reinterpret_cast<void *>(&AnswerSeven);
    auto object = reinterpret_cast<REALobject>(0x1000);
    EXPECT_TRUE(host::REALSetPropValueInteger(object, "ErrorNumber", 1));
    EXPECT_TRUE(host::REALSetPropValueInteger(object, "ErrorNumber", 2));
    EXPECT_EQ(gAsked, (std::vector<std::string>{"REALSetPropValueInteger", "REALSetPropValueInt"}));
}

TEST_F(BindingTest, BoolResultsAreNormalised) {
    gEntries["REALSetPropValueInteger"] = reinterpret_cast<void *>(&AnswerSeven);
    gEntries["PluginGetStringData"] = reinterpret_cast<void *>(&AnswerZero);
    EXPECT_TRUE(host::REALSetPropValueInteger(nullptr, "x", 0));
    EXPECT_FALSE(host::PluginGetStringData(nullptr, 0, nullptr));
}

TEST_F(BindingTest, WithoutResolverEveryBindingIsMissing) {
    gResolver = nullptr;
    EXPECT_EQ(host::memoryBlockGetPtr(nullptr), nullptr);
    EXPECT_EQ(host::StringGetCString(reinterpret_cast<REALstring>(0x10), nullptr), nullptr);
}

TEST_F(BindingTest, StringGetCStringLoadsLenBOnce) {
    gEntries["StringGetCString"] = reinterpret_cast<void *>(&CStringOfAbc);
    gEntries["REALLoadGlobalMethod"] = reinterpret_cast<void *>(&LoadLenB);
    auto string = reinterpret_cast<REALstring>(0x10);

    EXPECT_EQ(host::StringGetCString(nullptr, nullptr), nullptr);
    EXPECT_TRUE(gAsked.empty());

    RBInteger length = -1;
    EXPECT_STREQ(host::StringGetCString(string, &length), "abc");
    EXPECT_EQ(length, 3);
    EXPECT_STREQ(host::StringGetCString(string, nullptr), "abc");
    EXPECT_EQ(gAsked, (std::vector<std::string>{"StringGetCString", "REALLoadGlobalMethod"}));
}

TEST_F(BindingTest, StringGetCStringWithoutLenBLeavesLength) {
    gEntries["StringGetCString"] = reinterpret_cast<void *>(&CStringOfAbc);
    RBInteger length = -1;
    EXPECT_STREQ(host::StringGetCString(reinterpret_cast<REALstring>(0x10), &length), "abc");
    EXPECT_EQ(length, -1);
}


// ---- The catalogue against a resolver that knows nothing, or a little -------

using Result = std::function<int64_t()>;

int64_t Word(const void *p) { return static_cast<int64_t>(reinterpret_cast<intptr_t>(p)); }

TEST_F(BindingTest, MissingEntriesGiveTheirFamilysResultUnderTheirNames) {
    auto object = reinterpret_cast<REALobject>(0x1000);
    auto array = reinterpret_cast<REALarray>(0x2000);
    REALeventDefinition event{"Fired()", 7, 0, nullptr};
    double d = 1.5;
    RBInteger i = 0;
    bool b = true;
    using Names = std::vector<std::string>;
    const struct {
        Result call;
        int64_t missing;
        Names asked;
    } cases[] = {
        {[&] { return Word(host::REALBuildPictureFromDIB(nullptr, 0)); }, 0, {"REALBuildPictureFromDIB"}},
        {[&] { return host::RuntimeStringCompare(nullptr, nullptr); }, 0, {"RuntimeStringCompare"}},
        {[&] { host::REALYieldToRB(); return 0; }, 0, {"REALYieldToRB"}},
        {[&] { return Word(host::IntegerToVariant(RBInteger{5})); }, 0, {"IntegerToVariant", "Int32ToVariant"}},
        {[&] { return host::PluginPictureGetType(object); }, 2, {"PluginPictureGetType"}},
        {[&] { return host::PluginRegisterBackgroundTask(object, 0); }, -1, {"PluginRegisterBackgroundTask"}},
        {[&] { return host::IsDarkMode(); }, 0, {"IsDarkMode"}},
        {[&] { return host::REALGetPropValueDouble(object, "x", &d) + int64_t{d == 1.5}; }, 1, {"REALGetPropValueDouble"}},
        {[&] { return host::REALGetPropValueColor(object, "x", &i); }, 0, {"REALGetPropValueColor", "REALGetPropValueInt"}},
        {[&] { return host::REALGetPropValueCurrency(object, "x", &i); }, 0, {"REALGetPropValueCurrency", "REALGetPropValueInt64"}},
        {[&] { return host::REALGetPropValueUInteger(object, "x", &i); }, 0, {"REALGetPropValueUInteger", "REALGetPropValueUInt32"}},
        {[&] { return host::REALGetPropValueUInt8(object, "x", &i); }, 0, {"REALGetPropValueUInt8", "REALGetPropValueBool"}},
        {[&] { return host::REALSetPropValueColor(object, "x", 1); }, 0, {"REALSetPropValueColor", "REALSetPropValueInt"}},
        {[&] { return host::REALSetPropValueCurrency(object, "x", 1); }, 0, {"REALSetPropValueCurrency", "REALSetPropValueInt64"}},
        {[&] { return host::REALSetPropValueUInteger(object, "x", 1); }, 0, {"REALSetPropValueUInteger", "REALSetPropValueUInt32"}},
        {[&] { return host::REALSetPropValueUInt8(object, "x", 1); }, 0, {"REALSetPropValueBoolean"}},
        {[&] { return host::REALGetPropValueBool(object, "x", &b) * 2 + b; }, 1, {"REALGetPropValueBool"}},
        {[&] { host::PluginDoubleArrayGetProc(array, 0, &d); return int64_t{d == 1.5}; }, 1, {"PluginDoubleArrayGetProc", "RuntimeArrayDirectGetGetProc"}},
        {[&] { host::PluginTextArraySetProc(array, 0, nullptr); return 0; }, 0, {"PluginTextArraySetProc", "RuntimeArrayDirectGetSetProc"}},
        {[&] { host::PluginUIntegerArrayInsertProc(array, 0, 1u); return 0; }, 0, {"PluginUIntegerArrayInsertProc", "RuntimeArrayDirectGetInsertProc"}},
        {[&] { host::OtherArrayGetProc(array, 0, nullptr); return 0; }, 0, {"PluginObjectArrayGetProc"}},
        {[&] { host::OtherArraySetProc(array, 0, nullptr); return 0; }, 0, {"PluginObjectArraySetProc"}},
        {[&] { host::OtherArrayInsertProc(array, 0, nullptr); return 0; }, 0, {"PluginIntegerArrayInsertProc"}},
        {[&] { return Word(reinterpret_cast<void *>(host::GetEventInstance(object, &event))); }, 0, {"GetEventInstance"}},
        {[&] { return Word(host::CreateInstance(reinterpret_cast<REALclassRef>(0x3000))); }, 0, {"CreateInstance"}},
        {[&] { host::RuntimeGraphicsDrawString(object, nullptr, 1, 2, 3); return 0; }, 0, {"RuntimeGraphicsDrawString"}},
        {[&] { return static_cast<int64_t>(host::RuntimeGraphicsStringWidth(object, nullptr)); }, 0, {"RuntimeGraphicsStringWidth"}},
        {[&] { return host::REALCountClassProperties(object); }, 0, {"GetRBScriptResolver"}},
        {[&] { return host::REALGetClassProperty(object, 0, nullptr, nullptr, nullptr, nullptr); }, 0, {"GetRBScriptResolver"}},
    };
    for (const auto &c : cases) {
        gAsked.clear();
        EXPECT_EQ(c.call(), c.missing) << c.asked[0];
        EXPECT_EQ(gAsked, c.asked);
    }
}

unsigned char gHostByte;
intptr_t WriteHostByte(REALobject, const char *, unsigned char *place) {
    *place = gHostByte;
    return 3;
}
intptr_t AnswerTwo() { return 2; }
RBInteger CompareMinusThree(REALstring, REALstring) { return -3; }
intptr_t SetDouble(REALobject, const char *, double value) { return value == 0.5 ? 2 : 0; }

TEST_F(BindingTest, FamiliesTreatTheHostsAnswer) {
    gEntries["IsDarkMode"] = reinterpret_cast<void *>(&AnswerTwo);
    gEntries["RuntimeStringCompare"] = reinterpret_cast<void *>(&CompareMinusThree);
    gEntries["REALSetPropValueDouble"] = reinterpret_cast<void *>(&SetDouble);
    gEntries["REALGetPropValueBool"] = reinterpret_cast<void *>(&WriteHostByte);
    EXPECT_EQ(host::IsDarkMode(), 2);  // unchanged
    EXPECT_EQ(host::RuntimeStringCompare(REALstring{}, REALstring{}), -3);
    EXPECT_EQ(host::REALSetPropValueDouble(REALobject{}, "x", 0.5), true);

    for (unsigned char written : {0x00, 0x01, 0x02, 0x80, 0xFF}) {
        gHostByte = written;
        bool place = written == 0;
        EXPECT_TRUE(host::REALGetPropValueBool(nullptr, "x", &place));
        unsigned char stored;
        std::memcpy(&stored, &place, 1);
        EXPECT_EQ(stored, written != 0) << int{written};
        // A UInt8 read through the same entry keeps the byte.
        uint8_t byte = 0;
        EXPECT_TRUE(host::REALGetPropValueUInt8(REALobject{}, "x", &byte));
        EXPECT_EQ(byte, written);
    }
}

// The floating kinds' procedures take and give the value as a float or a
// double in the word's place.
template <typename Float>
struct FloatProcedures {
    static inline std::vector<std::string> log;
    static Float Get(REALarray, RBInteger index) { return static_cast<Float>(index) + Float(0.25); }
    static void Set(REALarray, Float value, RBInteger index) {
        log.push_back("set " + std::to_string(value) + " at " + std::to_string(index));
    }
    static void Insert(REALarray, RBInteger index, Float value) {
        log.push_back("insert " + std::to_string(value) + " at " + std::to_string(index));
    }
    static void *SelectGet(REALarray) { return reinterpret_cast<void *>(&Get); }
    static void *SelectSet(REALarray) { return reinterpret_cast<void *>(&Set); }
    static void *SelectInsert(REALarray) { return reinterpret_cast<void *>(&Insert); }
    static void Offer() {
        gEntries["RuntimeArrayDirectGetGetProc"] = reinterpret_cast<void *>(&SelectGet);
        gEntries["RuntimeArrayDirectGetSetProc"] = reinterpret_cast<void *>(&SelectSet);
        gEntries["RuntimeArrayDirectGetInsertProc"] = reinterpret_cast<void *>(&SelectInsert);
    }
};

template <typename Float, typename Get, typename Set, typename Insert>
void ExpectFloatForm(const Get &get, const Set &set, const Insert &insert) {
    FloatProcedures<Float>::Offer();
    auto array = reinterpret_cast<REALarray>(0x2000);
    Float value = 0;
    get(array, 3, &value);
    EXPECT_EQ(value, Float(3.25));
    set(array, 5, Float(-1.5));
    insert(array, 7, Float(2.5));
    EXPECT_EQ(FloatProcedures<Float>::log,
              (std::vector<std::string>{"set -1.500000 at 5", "insert 2.500000 at 7"}));
}

TEST_F(BindingTest, FloatingArrayElementsTravelAsFloatingValues) {
    ExpectFloatForm<double>(host::PluginDoubleArrayGetProc, host::PluginDoubleArraySetProc,
                            host::PluginDoubleArrayInsertProc);
    ExpectFloatForm<float>(host::PluginSingleArrayGetProc, host::PluginSingleArraySetProc,
                           host::PluginSingleArrayInsertProc);
}

// ---- The catalogue against the simulated host ---------------------------------

class HostBindingTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
        gPluginSDKVersion = 13;
    }
    void TearDown() override {
        HostTest::TearDown();
        gResolver = nullptr;
    }

    // A class of the plug-in with two properties, registered.
    static REALobject NewThing() {
        static REALpropertyDefinition properties[] = {
            {nullptr, "First", "Boolean"},
            {nullptr, "Second", "Integer"},
        };
        static REALclassDefinition thing{.version = 15,
                                         .name = "Thing",
                                         .dataSize = 16,
                                         .properties = properties,
                                         .propertyCount = 2};
        host::PluginRegisterClass(&thing);
        simhost::ClearCalls();
        return simhost::NewInstance("Thing");
    }

    static std::vector<std::string> CallNames() {
        std::vector<std::string> names;
        for (const auto &call : simhost::Calls()) names.push_back(call.entry);
        return names;
    }
};

template <typename Element>
std::function<void(REALarray)> Exercise(const host::ArrayGetProc<Element> &get,
                                        const host::ArraySetProc<Element> &set,
                                        const host::ArrayInsertProc<Element> &insert,
                                        int64_t value, std::vector<int64_t> &read) {
    return [&get, &set, &insert, value, &read](REALarray array) {
        set(array, 1, static_cast<Element>(value));
        insert(array, 0, static_cast<Element>(value));
        Element element{};
        get(array, 2, &element);
        read.push_back(static_cast<int64_t>(element));
    };
}

TEST_F(HostBindingTest, ArrayKindsKeepTheirElementsValue) {
    using simhost::ArrayType;
    std::vector<int64_t> read;
    const struct {
        const char *kind;
        ArrayType type;
        int64_t value;
        std::function<void(REALarray)> exercise;
    } cases[] = {
#define QVT_KIND(kind, type, value)                                                           \
    {#kind, simhost::type, value,                                                             \
     Exercise(host::Plugin##kind##ArrayGetProc, host::Plugin##kind##ArraySetProc,             \
              host::Plugin##kind##ArrayInsertProc, value, read)}
        QVT_KIND(Boolean, kArrayBoolean, 1),
        QVT_KIND(Int8, kArrayInt8, -100),
        QVT_KIND(UInt8, kArrayUInt8, 200),
        QVT_KIND(Int16, kArrayInt16, -30000),
        QVT_KIND(UInt16, kArrayUInt16, 0xFFFE),
        QVT_KIND(Int32, kArrayInt32, -7),
        QVT_KIND(Integer, kArrayInteger, INT32_MIN),
        QVT_KIND(UInt32, kArrayUInt32, 0xFFFFFFF0),
        QVT_KIND(Int64, kArrayInt64, -(int64_t{1} << 40)),
        QVT_KIND(UInt64, kArrayUInt64, INT64_MIN),
#undef QVT_KIND
    };
    for (const auto &c : cases) {
        read.clear();
        simhost::ClearCalls();
        REALarray array = simhost::NewArray(c.type, {0, 0});
        c.exercise(array);
        EXPECT_EQ(simhost::ArrayValues(array), (std::vector<int64_t>{c.value, 0, c.value})) << c.kind;
        EXPECT_EQ(read, std::vector<int64_t>{c.value}) << c.kind;
        for (const char *op : {"Get", "Set", "Insert"}) {
            EXPECT_EQ(simhost::CountCalls(std::string("Plugin") + c.kind + "Array" + op + "Proc"), 1u)
                << c.kind << op;
        }
        simhost::Release(array);
    }
}

TEST_F(HostBindingTest, CreateInstanceMakesOneOfTheClass) {
    EXPECT_EQ(host::CreateInstance(nullptr), nullptr);
    EXPECT_EQ(simhost::CountCalls("CreateInstance"), 0u);

    REALobject thing = NewThing();
    auto cls = simhost::ClassOf("Thing");
    REALobject made = Balanced([&] { return host::CreateInstance(cls); });
    EXPECT_EQ(simhost::Name(made), "Thing#2");
    simhost::Release(made);
    simhost::Release(thing);
}

TEST_F(HostBindingTest, GetEventInstanceReadsTheOldFormCopyOnVersion9) {
    uintptr_t copy[2] = {0, 42};  // the old form: declaration, host's word
    REALobject block = simhost::NewBlock(1);
    for (int32_t version : {9, 10, 13}) {
        gPluginSDKVersion = version;
        REALeventDefinition event{"Fired()", version == 9 ? reinterpret_cast<uintptr_t>(copy) : 7,
                                  0, nullptr};
        simhost::ClearCalls();
        EXPECT_EQ(host::GetEventInstance(block, &event), nullptr);
        ASSERT_EQ(simhost::Calls().size(), 1u);
        EXPECT_EQ(simhost::Calls()[0].args, simhost::Name(block) + (version == 9 ? " 42" : " 7"));
    }
    simhost::Release(block);
}

TEST_F(HostBindingTest, GraphicsFormsFollowTheHostVersion) {
    const struct {
        double version;
        const char *drawn;
        double width;
    } cases[] = {
        {2007.01, "nil \"abc\" 1 -2 30", 19.0},
        {2007.02, "nil \"abc\" 1 -2 30", 19.5},
        {2018.01, "nil \"abc\" 1 -2 30", 19.5},
        {2018.02, "nil \"abc\" 1.0 -2.0 30.0", 19.5},
    };
    for (const auto &c : cases) {
        simhost::Options options;
        options.version = gHostVersion = c.version;
        simhost::Reset(options);
        REALstring text = simhost::NewString("abc");
        host::RuntimeGraphicsDrawString(nullptr, text, 1, -2, 30);
        EXPECT_EQ(host::RuntimeGraphicsStringWidth(nullptr, text), c.width) << c.version;
        ASSERT_FALSE(simhost::Calls().empty());
        EXPECT_EQ(simhost::Calls()[0].args, c.drawn) << c.version;
        simhost::Release(text);
    }
}

TEST_F(HostBindingTest, SecondResolverIsFetchedOnceUnderConcurrency) {
    constexpr int kThreads = 8;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    std::vector<RBInteger> counts(kThreads, -1);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            counts[i] = host::REALCountClassProperties(nullptr);
        });
    }
    for (auto &t : threads) t.join();
    EXPECT_EQ(counts, std::vector<RBInteger>(kThreads, 0));
    auto log = simhost::ResolverLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "GetRBScriptResolver"), 1);
    EXPECT_EQ(simhost::CountCalls("RuntimeClassOf"), std::size_t{kThreads});
}

struct ClassPropertyCase {
    const char *name;
    std::vector<std::string> missing;
    enum Object { kNil, kBlock, kThing } object;
    RBInteger count;
    std::vector<std::string> calls;  // of two rounds
};
void PrintTo(const ClassPropertyCase &c, std::ostream *os) { *os << c.name; }

class ClassPropertyTest : public HostBindingTest,
                          public ::testing::WithParamInterface<ClassPropertyCase> {
protected:
    simhost::Options options() const override {
        simhost::Options o;
        o.missingEntries = GetParam().missing;
        return o;
    }
};

// Each case in a process of its own: the second resolver is fetched once.
TEST_P(ClassPropertyTest, CountGoesThroughTheObjectsClass) {
    const ClassPropertyCase &c = GetParam();
    REALobject thing = NewThing();
    REALobject block = simhost::NewBlock(1);
    REALobject object = c.object == c.kThing ? thing : c.object == c.kBlock ? block : nullptr;
    simhost::ClearCalls();
    EXPECT_EQ(host::REALCountClassProperties(object), c.count);
    EXPECT_EQ(host::REALCountClassProperties(object), c.count);
    EXPECT_EQ(CallNames(), c.calls);
    simhost::Release(block);
    simhost::Release(thing);
}

const std::string kAsk = "ScriptResolver", kClassOf = "RuntimeClassOf", kCount = "REALCountClassProperties";
INSTANTIATE_TEST_SUITE_P(
    Cases, ClassPropertyTest,
    ::testing::Values(
        ClassPropertyCase{"NoSecondResolver", {"GetRBScriptResolver"}, ClassPropertyCase::kThing, 0, {}},
        ClassPropertyCase{"NoOperation", {kCount}, ClassPropertyCase::kThing, 0, {kAsk, kAsk}},
        ClassPropertyCase{"NoRuntimeClassOf", {kClassOf}, ClassPropertyCase::kThing, 0, {kAsk, kAsk}},
        ClassPropertyCase{"NilObject", {}, ClassPropertyCase::kNil, 0, {kAsk, kAsk, kClassOf, kClassOf}},
        ClassPropertyCase{"HostsOwnClass", {}, ClassPropertyCase::kBlock, 0, {kAsk, kAsk, kClassOf, kClassOf}},
        ClassPropertyCase{"PluginClass", {}, ClassPropertyCase::kThing, 2,
                          {kAsk, kAsk, kClassOf, kCount, kClassOf, kCount}}),
    [](const auto &param) { return std::string(param.param.name); });

TEST_F(HostBindingTest, GetClassPropertyPassesTheOtherArgumentsOn) {
    REALobject thing = NewThing();
    const char *name = nullptr;
    const char *type = nullptr;
    REALproc getter = nullptr, setter = nullptr;
    EXPECT_TRUE(host::REALGetClassProperty(thing, RBInteger{1}, &name, &type, &getter, &setter));
    EXPECT_STREQ(name, "Second");
    EXPECT_STREQ(type, "Integer");
    EXPECT_FALSE(host::REALGetClassProperty(thing, RBInteger{2}, &name, &type, &getter, &setter));
    simhost::Release(thing);
}

}  // namespace
}  // namespace qvt

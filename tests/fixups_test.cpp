// Fix-ups for the host at hand: flags, scopes, the old record forms and the
// control's events.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "hostvalues/allocation.h"
#include "registration_fixture.h"
#include "shell/definitions.h"
#include "shell/fixups.h"

namespace qvt {
namespace {

using test::Lines;

class FixupsTest : public test::RegistrationTest {};

REALmethodDefinition MethodWithFlags(RBWord flags, const char *declaration = "M") {
    return {nullptr, nullptr, declaration, flags, 0, nullptr};
}

// The text a word of an old record points at, itself a list of words.
std::string TextAt(const uintptr_t *old, std::size_t word, std::size_t at) {
    return reinterpret_cast<const char *>(reinterpret_cast<const uintptr_t *>(old[word])[at]);
}

TEST_F(FixupsTest, FlagsFollowTheHostVersion) {
    const struct { double host; RBWord written, fixed; } cases[] = {
        {2015.0, 0x308, 0x4}, {2020.01, 0x308, 0x4}, {2015.0, 0x708, 0x708}, {2015.0, 0x208, 0x208},
        {2015.0, 0x1308, 0x1004}, {2020.02, 0x308, 0x308}, {2010.029, 0x40000, 0x4}, {2010.02, 0x40000, 0x0},
        {2015.0, 0x40308, 0x4}, {2025.0, 0x40020, 0x24}, {2005.0, 0x4, 0x4},
    };
    for (const auto &c : cases) {
        gHostVersion = c.host;
        RBWord once = c.written, twice;
        FixFlags(once);
        FixFlags(twice = once);
        EXPECT_EQ(std::pair(once, twice), std::pair(c.fixed, c.fixed)) << c.host << " " << std::hex << c.written;
    }
}

TEST_F(FixupsTest, ClassFlagsReachMethodsAndPropertiesOnly) {
    gHostVersion = 2015.0;
    REALmethodDefinition methods[2] = {MethodWithFlags(0x308), MethodWithFlags(0x308)};
    REALmethodDefinition shared[1] = {MethodWithFlags(0x308)};
    REALpropertyDefinition properties[1] = {}, sharedProperties[1] = {};
    properties[0].flags = sharedProperties[0].flags = 0x308;
    REALdelegateDefinition delegates[1] = {{"D", 0x308, 0, nullptr}};
    REALenumDefinition enums[1] = {};
    REALclassDefinition cls = {};
    enums[0].flags = cls.flags = 0x308;
    cls.methods = methods, cls.methodCount = 2;
    cls.sharedMethods = shared, cls.sharedMethodCount = 1;
    cls.properties = properties, cls.propertyCount = 1;
    cls.sharedProperties = sharedProperties, cls.sharedPropertyCount = 1;
    cls.delegates = delegates, cls.delegateCount = 1;
    cls.enums = enums, cls.enumCount = 1;
    FixClassFlags(&cls);
    for (RBWord flags : {cls.flags, methods[0].flags, methods[1].flags, shared[0].flags, properties[0].flags,
                         sharedProperties[0].flags}) EXPECT_EQ(flags, 0x4u);
    EXPECT_EQ(std::pair(delegates[0].flags, enums[0].flags), std::pair(RBWord{0x308}, RBWord{0x308}));

    REALmoduleDefinition module = {};
    REALmethodDefinition moduleMethods[1] = {MethodWithFlags(0x308)};
    module.flags = 0x308;
    module.methods = moduleMethods, module.methodCount = 1;
    module.propertyCount = 5;  // nil list: passed over
    FixModuleFlags(&module);
    EXPECT_EQ(std::pair(module.flags, moduleMethods[0].flags), std::pair(RBWord{0x308}, RBWord{0x4}));
}

TEST_F(FixupsTest, ModuleMembersWithoutScopeGetTheDefault) {
    REALmethodDefinition methods[3] = {MethodWithFlags(0x24), MethodWithFlags(0x4), MethodWithFlags(0x14)};
    REALpropertyDefinition properties[1] = {};
    REALenumDefinition enums[1] = {};
    properties[0].flags = 0x2, enums[0].flags = 0x80;
    REALmoduleDefinition module = {};
    module.methods = methods, module.methodCount = 3;
    module.properties = properties, module.propertyCount = 1;
    module.enums = enums, module.enumCount = 1;
    EXPECT_EQ(LinesOf([&] { FixScope(&module); }), Lines{});
    EXPECT_EQ((std::vector<RBWord>{methods[0].flags, methods[1].flags, methods[2].flags,
                                   properties[0].flags, enums[0].flags}),
              (std::vector<RBWord>{0x24, 0x44, 0x14, 0x42, 0x80}));

    REALmoduleDefinition nilLists = {};
    nilLists.methodCount = 1, nilLists.propertyCount = 2, nilLists.enumCount = 3;
    EXPECT_EQ(LinesOf([&] { FixScope(&nilLists); }),
              (Lines{"QVT Debug: Error: method array is nil while count is not zero!",
                     "QVT Debug: Error: property array is nil while count is not zero!",
                     "QVT Debug: Error: enum array is nil while count is not zero!"}));
}

// Records whose every word is its own index, so a copy shows which it kept.
template <typename Record, typename Fix>
void ExpectKeptWords(Fix fix, std::size_t kept) {
    constexpr std::size_t words = sizeof(Record) / sizeof(uintptr_t);
    std::vector<Record> records(3);
    std::vector<uintptr_t> values(3 * words);
    for (std::size_t k = 0; k < values.size(); ++k) values[k] = 100 * (k / words + 1) + k % words;
    std::memcpy(static_cast<void *>(records.data()), values.data(), 3 * sizeof(Record));
    uintptr_t *copy = fix(records.data(), RBWord{3});
    ASSERT_NE(copy, nullptr);
    for (std::size_t k = 0; k < 3 * kept; ++k) EXPECT_EQ(copy[k], 100 * (k / kept + 1) + k % kept) << "word " << k;
}

TEST_F(FixupsTest, ListFixUpsKeepTheLeadingWordsOfEachRecord) {
    ExpectKeptWords<REALmethodDefinition>(&FixMethods, 4);
    ExpectKeptWords<REALpropertyDefinition>(&FixProperties, 10);
    ExpectKeptWords<REALconstantDefinition>(&FixConstants, 3);
    ExpectKeptWords<REALstructureDefinition>(&FixStructures, 4);
    ExpectKeptWords<REALenumDefinition>(&FixEnums, 5);
    ExpectKeptWords<REALeventDefinition>(&FixEvents, 2);
}

TEST_F(FixupsTest, ListFixUpsReportABrokenPairByName) {
    REALconstantDefinition constant = {};
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<void *>(&constant));
    const std::string wrong = " called with wrong parameters: ";
    const std::string nil = test::PointerText(nullptr);
    const struct { std::function<uintptr_t *()> fix; std::string line; } cases[] = {
        {[] { return FixMethods(nullptr, 0); }, ""},
        {[] { return FixMethods(nullptr, 3); }, "Error: FixMethods" + wrong + nil + " 3"},
        {[] { return FixProperties(nullptr, 1); }, "Error: FixProperties" + wrong + nil + " 1"},
        {[&] { return FixConstants(&constant, 0); }, "Error: FixConstants" + wrong + address + " 0"},
        {[] { return FixStructures(nullptr, 2); }, "Error: FixStructures" + wrong + nil + " 2"},
        {[] { return FixEnums(nullptr, 4); }, "Error: FixEnums" + wrong + nil + " 4"},
        {[] { return FixEvents(nullptr, 5); }, "Error: FixEvents" + wrong + nil + " 5"},
    };
    for (const auto &c : cases) {
        uintptr_t *copy = reinterpret_cast<uintptr_t *>(1);
        EXPECT_EQ(LinesOf([&] { copy = c.fix(); }), c.line.empty() ? Lines{} : Lines{c.line});
        EXPECT_EQ(copy, nullptr) << c.line;
    }
}

TEST_F(FixupsTest, EventsPointAtTheirCopies) {
    REALeventDefinition events[2] = {{"Opening", 7, 0, nullptr}, {"Closing", 8, 0, nullptr}};
    uintptr_t *copy = FixEvents(events, 2);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::pair(events[0].hostSlot, events[1].hostSlot),
              std::pair(reinterpret_cast<uintptr_t>(copy), reinterpret_cast<uintptr_t>(copy + 2)));
    EXPECT_EQ((std::vector<uintptr_t>(copy, copy + 4)),
              (std::vector<uintptr_t>{uintptr_t(events[0].declaration), 7, uintptr_t(events[1].declaration), 8}));
}

TEST_F(FixupsTest, OldClassFormKeepsEveryWordInPlaceAndDropsAttributes) {
    OnHost(2011.0);
    REALmethodDefinition methods[2] = {MethodWithFlags(4, "A"), MethodWithFlags(4, "B")};
    REALmethodDefinition shared[1] = {MethodWithFlags(4, "S")};
    REALpropertyDefinition properties[1] = {}, sharedProperties[1] = {};
    properties[0].name = "P", sharedProperties[0].name = "SP";
    REALeventDefinition events[1] = {{"E", 0, 0, nullptr}};
    REALconstantDefinition constants[1] = {{"K", nullptr, nullptr, 0, nullptr}};
    REALattributeDefinition attributes[1] = {{"Hidden", ""}};
    auto *eventInstances = reinterpret_cast<REALeventInstanceDefinition *>(0x1230);
    REALclassDefinition cls = {
        15, "Cls", "Super", 16, 0, reinterpret_cast<void *>(0x55), reinterpret_cast<REALproc>(0x66), properties, 1,
        methods, 2, events, 1, eventInstances, 3, reinterpret_cast<void *>(0x77), attributes, 1, constants, 1, 0x4,
        sharedProperties, 1, shared, 1, nullptr, 0, nullptr, 0, 0};
    uintptr_t *old = FixClass(&cls);
    ASSERT_NE(old, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char *>(old[1]), "Cls");
    EXPECT_STREQ(reinterpret_cast<const char *>(old[2]), "Super");
    // Word, value: the counts and passed-through words; the attributes are gone.
    const std::pair<std::size_t, uintptr_t> words[] = {{0, 9},  {3, 16}, {5, 0x55}, {6, 0x66}, {8, 1}, {10, 2}, {12, 1},
        {13, 0x1230}, {14, 3}, {15, 0x77}, {16, 0}, {17, 0}, {19, 1}, {20, 4}, {22, 1}, {24, 1}};
    for (const auto &[word, value] : words) EXPECT_EQ(old[word], value) << "word " << word;
    // Word, index in its list, text: each list in its old stride.
    const std::tuple<std::size_t, std::size_t, const char *> texts[] = {
        {7, 1, "P"}, {9, 2, "A"}, {9, 4 + 2, "B"}, {11, 0, "E"}, {18, 0, "K"}, {21, 1, "SP"}, {23, 2, "S"}};
    for (const auto &[word, at, text] : texts) EXPECT_EQ(TextAt(old, word, at), text);
    EXPECT_EQ(events[0].hostSlot, old[11]);
    FreeMemory(old);
}

TEST_F(FixupsTest, OldModuleFormHasTwelveWords) {
    OnHost(0.0);
    REALmethodDefinition methods[1] = {MethodWithFlags(4, "M")};
    REALpropertyDefinition properties[1] = {};
    properties[0].name = "P";
    REALmoduleDefinition module = {};
    module.version = 15, module.name = "Mod";
    module.methods = methods, module.methodCount = 1;
    module.properties = properties, module.propertyCount = 1;
    module.structureCount = 2;  // broken pair: the list is nil, the count stays
    uintptr_t *old = nullptr;
    EXPECT_EQ(LinesOf([&] { old = FixModule(&module); }),
              Lines{"Error: FixStructures called with wrong parameters: " + test::PointerText(nullptr) + " 2"});
    ASSERT_NE(old, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char *>(old[1]), "Mod");
    EXPECT_EQ(TextAt(old, 2, 2), "M");
    EXPECT_EQ(TextAt(old, 6, 1), "P");
    const std::pair<std::size_t, uintptr_t> words[] = {{0, 9}, {3, 1}, {4, 0}, {7, 1}, {8, 0}, {9, 2}};
    for (const auto &[word, value] : words) EXPECT_EQ(old[word], value) << "word " << word;
    FreeMemory(old);
}

TEST_F(FixupsTest, ControlDataSizeIsRoundedToSixteen) {
    const std::pair<RBWord, RBWord> cases[] = {{0, 0}, {1, 16}, {16, 16}, {17, 32}};
    for (const auto &[written, rounded] : cases) {
        REALcontrolDefinition control = {};
        control.dataSize = written;
        FixControl(&control);
        EXPECT_EQ(control.dataSize, rounded) << written;
    }
}

// The host's five menu events are cut from a control with the flag; the
// rest are renamed, and nothing behind the list is touched.
TEST_F(FixupsTest, MenuEventsAreCutAndRenamed) {
    const std::vector<std::string> written = {"A", "B", "C", "D", "E", "EnableMenuItems", "GotFocus", "LostFocus", "lostfocus"};
    const std::vector<std::string> renamed = {"A", "B", "C", "D", "E", "MenuBarSelected", "FocusReceived", "FocusLost", "lostfocus"};
    const struct { RBWord flags, count; std::ptrdiff_t cut; const std::vector<std::string> &after; } cases[] = {
        {kFlagControlMenuEvents, 9, 5, renamed},
        {kFlagControlMenuEvents, 5, 5, written},
        {kFlagControlMenuEvents, 4, 0, written},
        {0, 9, 0, written},
    };
    for (const auto &c : cases) {
        std::vector<REALeventDefinition> events;
        for (const auto &name : written) events.push_back({name.c_str(), 0, 0, nullptr});
        REALcontrolDefinition control = {};
        control.flags = c.flags;
        control.events = events.data(), control.eventCount = c.count;
        FixControl(&control);
        EXPECT_EQ(control.events, events.data() + c.cut) << c.count;
        EXPECT_EQ(control.eventCount, c.count - static_cast<RBWord>(c.cut)) << c.count;
        std::vector<std::string> after;
        for (const auto &event : events) after.emplace_back(event.declaration);
        EXPECT_EQ(after, c.after) << c.count;
    }
}

}  // namespace
}  // namespace qvt

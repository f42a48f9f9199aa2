// Controls, interfaces and database records: each fault in its own words,
// the members of a desktop control, and the forms the host receives.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <type_traits>
#include <utility>
#include <string>
#include <vector>

#include "registration_fixture.h"
#include "shell/controls.h"
#include "shell/databases.h"
#include "shell/definitions.h"

namespace qvt {
namespace {

using test::Lines;

void Nothing() {}
REALproc Function() { return QVT_PROC(void(), Nothing); }

Lines Members(const simhost::RegistrationInfo &info) {
    Lines members;
    for (const auto &m : info.members) members.push_back(m.role + ": " + m.text);
    return members;
}

uintptr_t WordOf(const void *record, std::size_t word) {
    uintptr_t value = 0;
    std::memcpy(&value, static_cast<const unsigned char *>(record) + word * sizeof value,
                sizeof value);
    return value;
}

class ControlsTest : public test::RegistrationTest {
protected:
    REALmethodDefinition methods_[1] = {{Function(), nullptr, "M", REALTargetDesktop, 0, nullptr}};

    // A control that passes every check.
    REALcontrolDefinition Control() {
        REALcontrolDefinition c = {};
        c.version = 15, c.name = "Ctl", c.dataSize = 8, c.flags = 0;
        c.defaultWidth = 100, c.defaultHeight = 20;
        c.methods = methods_, c.methodCount = 1;
        return c;
    }
};

TEST_F(ControlsTest, EachFaultOfAControlInItsOwnWordsAndOrder) {
    static int some = 0;
    auto pointer = [](auto &field) {
        field = reinterpret_cast<std::remove_reference_t<decltype(field)>>(&some);
    };
    static REALmethodDefinition wrongTarget[1] = {{Function(), nullptr, "W", 0x304, 0, nullptr}};
    static REALpropertyDefinition variable[1] = {
        {nullptr, "V", "Int32", REALTargetDesktop, kDirectAccess, nullptr, 8, nullptr, 0, nullptr, 0, nullptr}};
    // Each fault alone; applied together, the lines come in this order.
    const struct {
        std::function<void(REALcontrolDefinition &)> fault;
        Lines lines;
        bool together = true;
    } cases[] = {
        {[](auto &c) { c.version = 14; }, {"Error: The control Ctl has the wrong kCurrentREALControlVersion: 14 vs. 15"}},
        {[](auto &c) { c.dataSize = 0; }, {"Error: The control Ctl has the dataSize being zero!"}},
        {[](auto &c) { c.defaultWidth = 0; }, {"Error: The control Ctl has the wrong defaultWidth value: 0"}},
        {[](auto &c) { c.defaultHeight = 0; }, {"Error: The control Ctl has the wrong defaultHeight value: 0"}},
        {[](auto &c) { c.forSystemUse = 3; }, {"Error: The control Ctl has the wrong forSystemUse value: 3"}},
        {[&](auto &c) { pointer(c.properties); }, {"Error: The control Ctl has the wrong propertyCount value: 0"}},
        {[&](auto &c) { pointer(c.methods), c.methodCount = 0; }, {"Error: The control Ctl has the wrong methodCount value: 0"}},
        {[&](auto &c) { pointer(c.events); }, {"Error: The control Ctl has the wrong eventCount value: 0"}},
        {[](auto &c) { c.eventInstanceCount = 1; }, {"Error: The control Ctl has the wrong eventInstanceCount value: 1"}},
        {[&](auto &c) { pointer(c.constants); }, {"Error: The control Ctl has the wrong constantCount value: 0"}},
        {[&](auto &c) { pointer(c.sharedMethods); }, {"Error: The control Ctl has the wrong sharedMethodCount value: 0"}},
        {[&](auto &c) { pointer(c.sharedProperties); }, {"Error: The control Ctl has the wrong sharedPropertyCount value: 0"}},
        {[&](auto &c) { pointer(c.attributes); }, {"Error: The control Ctl has the wrong attributeCount value: 0"}},
        {[&](auto &c) { pointer(c.delegates); }, {"Error: The control Ctl has the wrong delegateCount value: 0"}},
        {[&](auto &c) { pointer(c.enums); }, {"Error: The control Ctl has the wrong enumCount value: 0"}},
        // The list validators follow the pair rules.
        {[](auto &c) { c.constants = nullptr, c.constantCount = 2; }, {"Error: The control Ctl has the wrong constantCount value: 2", "Error: Constant Ctl.0 is NULL."}, false},
        {[](auto &c) { c.sharedMethods = wrongTarget, c.sharedMethodCount = 1; }, {"QVT Debug: Shared method in control missing REALTargetDesktop:  Ctl, W"}, false},
        // Direct access at offset 8 of 8 bytes of data, as written.
        {[](auto &c) { c.properties = variable, c.propertyCount = 1; }, {"Error: Offset for variable too big: Ctl.V 8 8"}, false},
    };
    Lines all;
    for (const auto &c : cases) {
        simhost::Reset();
        OnHost(2013.04);
        REALcontrolDefinition control = Control();
        c.fault(control);
        EXPECT_EQ(LinesOf([&] { RegisterControl(&control); }), c.lines) << c.lines.front();
        EXPECT_EQ(Kinds(), Lines{"Control"});
        if (c.together) all.insert(all.end(), c.lines.begin(), c.lines.end());
    }
    REALcontrolDefinition control = Control();
    for (const auto &c : cases) {
        if (c.together) c.fault(control);
    }
    simhost::Reset();
    OnHost(2013.04);
    EXPECT_EQ(LinesOf([&] { RegisterControl(&control); }), all);

    REALcontrolDefinition nameless = Control();
    nameless.name = nullptr;
    EXPECT_EQ(LinesOf([&] { RegisterControl(&nameless); }), Lines{"Error: A control without name."});
}

TEST_F(ControlsTest, NilRecordOrPartNameKeepsItFromTheHost) {
    REALcontrolDefinition control = Control();
    REALinterfaceDefinition ifc = {15, "Ifc", nullptr, 0, nullptr, 0};
    const struct {
        std::function<void()> call;
        const char *line;
        bool withoutPartName;
    } cases[] = {
        {[] { RegisterControl(nullptr); }, "Error: A control registered is nil.", false},
        {[] { RegisterInterface(nullptr); }, "Error: A interface registered is nil.", false},
        {[&] { RegisterControl(&control); }, "Error: gpartname is nil!? Ctl", true},
        {[&] { RegisterInterface(&ifc); }, "Error: gpartname is nil!? Ifc", true},
    };
    for (const auto &c : cases) {
        gpartname = c.withoutPartName ? nullptr : "Memory";
        EXPECT_EQ(LinesOf(c.call), Lines{c.line});
    }
    EXPECT_TRUE(simhost::Registrations().empty());
}

TEST_F(ControlsTest, MembersMustHaveExactlyTheirControlsTarget) {
    REALmethodDefinition methods[3] = {{Function(), nullptr, "D", 0x200, 0, nullptr},
                                       {Function(), nullptr, "All", 0x304, 0, nullptr},
                                       {Function(), nullptr, "I", 0x1400, 0, nullptr}};
    REALpropertyDefinition properties[2] = {{nullptr, "Debugging", "Boolean", 0x26, Function(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr},
                                            {nullptr, "P", "Boolean", 0x400, Function(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr}};
    REALcontrolDefinition control = Control();
    control.methods = methods, control.methodCount = 3;
    control.sharedMethods = methods + 1, control.sharedMethodCount = 1;
    control.properties = properties, control.propertyCount = 2;
    control.sharedProperties = properties, control.sharedPropertyCount = 2;
    EXPECT_EQ(LinesOf([&] { CheckControlDesktop(&control); }),
              (Lines{"QVT Debug: Method in control missing REALTargetDesktop:  Ctl, All",
                     "QVT Debug: Method in control missing REALTargetDesktop:  Ctl, I",
                     "QVT Debug: Shared method in control missing REALTargetDesktop:  Ctl, All",
                     "QVT Debug: Property in control missing REALTargetDesktop:  Ctl, Debugging",
                     "QVT Debug: Property in control missing REALTargetDesktop:  Ctl, P",
                     "QVT Debug: Shared property in control missing REALTargetDesktop:  Ctl, P"}));
    // The mobile check spares no "Debugging".
    EXPECT_EQ(LinesOf([&] { CheckControlIOS(&control); }),
              (Lines{"QVT Debug: Method in control missing REALTargetIOS:  Ctl, D",
                     "QVT Debug: Method in control missing REALTargetIOS:  Ctl, All",
                     "QVT Debug: Shared method in control missing REALTargetIOS:  Ctl, All",
                     "QVT Debug: Property in control missing REALTargetIOS:  Ctl, Debugging",
                     "QVT Debug: Shared property in control missing REALTargetIOS:  Ctl, Debugging"}));
}

// Five events the host brings itself, then two that it knows by other names.
std::vector<REALeventDefinition> MenuEvents() {
    return {{"A", 0, 0, nullptr}, {"B", 0, 0, nullptr}, {"C", 0, 0, nullptr}, {"D", 0, 0, nullptr},
            {"E", 0, 0, nullptr}, {"GotFocus", 0, 0, nullptr}, {"LostFocus", 0, 0, nullptr}};
}

TEST_F(ControlsTest, MenuEventsAreCutAndTheRestReachesTheHost) {
    REALcontrolDefinition control = Control();
    std::vector<REALeventDefinition> events = MenuEvents();
    control.flags = kFlagControlMenuEvents, control.dataSize = 17;
    control.events = events.data(), control.eventCount = 7;
    EXPECT_EQ(LinesOf([&] { RegisterControl(&control); }), Lines{});
    ASSERT_EQ(simhost::Registrations().size(), 1u);
    EXPECT_EQ(simhost::Registrations()[0].record, &control);
    const auto info = simhost::Inspect(simhost::Registrations()[0]);
    EXPECT_EQ(Members(info), (Lines{"method: M", "event: FocusReceived", "event: FocusLost"}));
    EXPECT_EQ(info.dataSize, 32u);
    EXPECT_EQ(control.version, 13u);
    EXPECT_EQ(control.forSystemUse, simhost::kInstanceDataOffset);
}

TEST_F(ControlsTest, OldHostsGetTheTwentyThreeWordForm) {
    OnHost(2011.0);
    static int marks[5] = {};
    REALpropertyDefinition property = {nullptr, "P", "Int32", 0x200, Function(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr};
    REALconstantDefinition constant = {"K = 1", nullptr, nullptr, 0, nullptr};
    REALdelegateDefinition delegate = {"Dl()", 4, 0, nullptr};
    REALcontrolDefinition control = Control();
    control.flags = kFlagControlMenuEvents, control.dataSize = 17;
    control.passed4 = &marks[0], control.passed5 = &marks[1], control.passed14 = &marks[2];
    control.passed18 = &marks[3];
    control.properties = &property, control.propertyCount = 1;
    std::vector<REALeventDefinition> events = MenuEvents();
    control.events = events.data(), control.eventCount = 7;
    control.constants = &constant, control.constantCount = 1;
    control.sharedMethods = methods_, control.sharedMethodCount = 1;
    control.delegates = &delegate, control.delegateCount = 1;
    const REALcontrolDefinition written = control;
    EXPECT_EQ(LinesOf([&] { RegisterControl(&control); }), Lines{});
    ASSERT_EQ(simhost::Registrations().size(), 1u);
    EXPECT_EQ(simhost::Registrations()[0].record, &control);

    // Word by word as the host reads it; the host has written word 15.
    EXPECT_EQ(WordOf(&control, 0), 9u);
    EXPECT_EQ(WordOf(&control, 2), 32u);
    for (std::size_t word : {1, 3, 4, 5, 6, 7, 9, 11, 14, 16, 17, 22}) {
        EXPECT_EQ(WordOf(&control, word), WordOf(&written, word)) << word;
    }
    EXPECT_EQ(control.eventCount, 2u);
    for (std::size_t word : {18, 19, 20}) EXPECT_EQ(WordOf(&control, word), 0u) << word;
    for (std::size_t word = 23; word < 31; ++word) {
        EXPECT_EQ(WordOf(&control, word), WordOf(&written, word)) << word;
    }
    EXPECT_EQ(control.forSystemUse, simhost::kInstanceDataOffset);
    // Short records: 10-word properties, 4-word methods, 2-word events, 3-word constants.
    for (std::size_t word : {8, 10, 12, 21}) EXPECT_NE(WordOf(&control, word), WordOf(&written, word)) << word;
    EXPECT_EQ(Members(simhost::Inspect(simhost::Registrations()[0])),
              (Lines{"method: M", "property: P as Int32", "constant: K = 1", "event: FocusReceived", "event: FocusLost"}));
    // The cut events point at their copies, where the host keeps its word.
    EXPECT_EQ(events[5].hostSlot, WordOf(&control, 12));
}

TEST_F(ControlsTest, InterfacesCheckTheirListsAndAttributes) {
    static int some = 0;
    REALattributeDefinition attributes[1] = {{nullptr, "v"}};
    REALmethodDefinition methods[2] = {{Function(), nullptr, "A()", 4, 0, nullptr}, {nullptr, nullptr, nullptr, 4, 0, nullptr}};
    const struct {
        REALinterfaceDefinition ifc;
        Lines lines;
    } cases[] = {
        {{15, "Ifc", methods, 2, nullptr, 0}, {}},  // the methods are not walked
        {{14, "Ifc", nullptr, 0, nullptr, 0}, {"Error: The interface Ifc has the wrong kCurrentREALControlVersion: 14 vs. 15"}},
        {{15, nullptr, nullptr, 0, nullptr, 0}, {"Error: A interface without name."}},
        {{15, "Ifc", nullptr, 1001, nullptr, 0}, {"Error: The interface Ifc has the wrong methodCount value: 1001"}},
        {{15, "Ifc", nullptr, 0, reinterpret_cast<REALattributeDefinition *>(&some), 0}, {"Error: The interface Ifc has the wrong attributeCount value: 0"}},
        {{15, "Ifc", nullptr, 0, attributes, 1}, {"Error: .Ifc has an attribute without name! Index: 0"}},
    };
    for (const auto &c : cases) {
        REALinterfaceDefinition ifc = c.ifc;
        EXPECT_EQ(LinesOf([&] { RegisterInterface(&ifc); }), c.lines);
        EXPECT_EQ(ifc.version, 13u);
    }
    EXPECT_EQ(Kinds(), Lines(std::size(cases), "Interface"));
}

TEST_F(ControlsTest, OldHostsGetTheFourWordInterface) {
    OnHost(2011.0);
    REALattributeDefinition attributes[1] = {{"Hidden", ""}};
    REALmethodDefinition methods[2] = {{Function(), nullptr, "A()", 4, 0, nullptr}, {Function(), nullptr, "B()", 4, 0, nullptr}};
    REALinterfaceDefinition ifc = {15, "Ifc", methods, 2, attributes, 1};
    EXPECT_EQ(LinesOf([&] { RegisterInterface(&ifc); }), Lines{});
    ASSERT_EQ(Kinds(), Lines{"Interface"});
    EXPECT_EQ(ifc.version, 9u);
    EXPECT_STREQ(ifc.name, "Ifc");
    EXPECT_NE(ifc.methods, methods);
    EXPECT_EQ(ifc.methodCount, 2u);
    EXPECT_EQ(std::pair(ifc.attributes, ifc.attributeCount), std::pair(attributes, RBWord{1}));
    EXPECT_EQ(Members(simhost::Inspect(simhost::Registrations()[0])), (Lines{"method: A()", "method: B()"}));
}

TEST_F(ControlsTest, DatabaseRecordsThatFailAreNotRegistered) {
    REALdbCursorDefinition cursor = {15, nullptr, Function()};
    REALdbEngineDefinition engine = {1, nullptr, Function()};
    const struct {
        std::function<void()> call;
        const char *line;  // nil: registered
    } cases[] = {
        {[] { RegisterDBCursor(nullptr); }, "QVT Debug: Error: A REALdbCursorDefinition registered is nil."},
        {[&] { cursor.closeCursor = nullptr; RegisterDBCursor(&cursor); }, "QVT Debug: Error: closeCursor is nil"},
        {[&] { cursor = {14, nullptr, Function()}; RegisterDBCursor(&cursor); }, "QVT Debug: Error: REALdbCursorDefinition.version is out of range 14"},
        {[&] { cursor.version = 15; RegisterDBCursor(&cursor); }, nullptr},
        {[] { RegisterDBEngine(nullptr); }, "QVT Debug: Error: A REALdbEngineDefinition registered is nil."},
        {[&] { engine.closeDatabase = nullptr; RegisterDBEngine(&engine); }, "QVT Debug: Error: REALdbEngineDefinition.closeDatabase is nil"},
        {[&] { engine = {3, nullptr, Function()}; RegisterDBEngine(&engine); }, "QVT Debug: Error: REALdbEngineDefinition.version is out of range 3"},
        {[&] { engine.version = 0; RegisterDBEngine(&engine); }, "QVT Debug: Error: REALdbEngineDefinition.version is out of range 0"},
        {[&] { engine.version = 1; RegisterDBEngine(&engine); }, nullptr},
        {[&] { engine.version = 2; RegisterDBEngine(&engine); }, nullptr},
    };
    for (const auto &c : cases) {
        simhost::Reset();
        gpartname = nullptr;  // not asked for
        EXPECT_EQ(LinesOf(c.call), c.line ? Lines{c.line} : Lines{});
        EXPECT_EQ(simhost::Registrations().size(), c.line ? 0u : 1u) << (c.line ? c.line : "");
    }
}

}  // namespace
}  // namespace qvt

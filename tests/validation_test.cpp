// Checks of definitions: each fault in its exact words and order, and the
// record on its way to the host all the same.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "registration_fixture.h"
#include "shell/definitions.h"
#include "shell/validation.h"

namespace qvt {
namespace {

using test::Lines;

Lines Members(const simhost::RegistrationInfo &info) {
    Lines members;
    for (const auto &m : info.members) members.push_back(m.role + ": " + m.text);
    return members;
}

class ValidationTest : public test::RegistrationTest {
protected:
    void SetUp() override {
        RegistrationTest::SetUp();
        // The direct route for class extensions.
        OnHost(3000.0);
    }
};

void Nothing() {}
REALproc Function() { return QVT_PROC(void(), Nothing); }

REALmethodDefinition MethodRecord(const char *declaration, RBWord flags = 4) {
    return {Function(), nullptr, declaration, flags, 0, nullptr};
}

REALpropertyDefinition PropertyRecord(const char *name, const char *type, REALproc getter,
                                      REALproc setter = nullptr, intptr_t offset = 0) {
    REALpropertyDefinition p = {};
    p.name = name, p.type = type, p.flags = 4;
    p.getter = getter, p.setter = setter, p.offset = offset;
    return p;
}

REALclassDefinition ClassRecord(const char *name, REALmethodDefinition *methods = nullptr,
                                RBWord methodCount = 0) {
    REALclassDefinition c = {};
    c.version = 15, c.name = name, c.flags = 4;
    c.methods = methods, c.methodCount = methodCount;
    return c;
}

TEST(PairRule, BothAbsentOrBothPresentWithinTheLimit) {
    int list = 0;
    const struct {
        const void *list;
        RBWord count;
        uint32_t limit;
        bool right;
    } cases[] = {
        {nullptr, 0, 1000, true}, {&list, 1000, 1000, true}, {&list, 1001, 1000, false},
        {nullptr, 3, 1000, false}, {&list, 0, 1000, false}, {nullptr, 0, 0, true},
        {&list, static_cast<RBWord>(0x1'0000'0001u), 1000, true},  // a count is its lower 32 bits
    };
    for (const auto &c : cases) {
        EXPECT_EQ(ListIsRight(c.list, c.count, c.limit), c.right)
            << c.list << " " << c.count << " " << c.limit;
    }
}

TEST_F(ValidationTest, ListsReportEachRecordInTheirOwnWords) {
    REALattributeDefinition attributes[3] = {{nullptr, "x"}, {"Hidden", nullptr}, {"Ok", ""}};
    REALmethodDefinition methods[4] = {MethodRecord(nullptr), {nullptr, nullptr, "NoFunction", 4, 0, nullptr}, {Function(), nullptr, "BrokenAttributes", 4, 2, nullptr}, {Function(), nullptr, "Fine", 4, 1, attributes + 2}};
    REALconstantDefinition constants[2] = {{nullptr, nullptr, nullptr, 0, nullptr}, {"K", nullptr, nullptr, 1001, nullptr}};
    REALeventDefinition events[2] = {{nullptr, 0, 0, nullptr}, {"E", 0, 3, nullptr}};
    REALdelegateDefinition delegates[2] = {{nullptr, 4, 0, nullptr}, {"D", 0, 0, nullptr}};
    // Lists at the host's limit of 10000, every record sound.
    const std::vector<REALattributeDefinition> fullAttributes(10000, {"Ok", ""});
    const std::vector<REALmethodDefinition> fullMethods(10000, MethodRecord("M"));
    const std::vector<REALconstantDefinition> fullConstants(10000, {"K", nullptr, nullptr, 0, nullptr});
    const std::vector<REALeventDefinition> fullEvents(10000, {"E", 0, 0, nullptr});
    const std::vector<REALdelegateDefinition> fullDelegates(10000, {"D", 4, 0, nullptr});
    const std::vector<REALpropertyDefinition> fullProperties(10000, PropertyRecord("P", "Double", Function(), Function()));
    const struct {
        std::function<void()> check;
        Lines lines;
    } cases[] = {
        {[&] { CheckAttributes("Pre", "Own", attributes, 3); }, {"Error: Pre.Own has an attribute without name! Index: 0", "Error: Pre.Own has an attribute without value! Name: Hidden Index: 1"}},
        {[&] { CheckAttributes("", "Own", attributes, 10001); }, {"Error: attribute count out of range for .Own: 10001."}},
        {[&] { CheckAttributes("", "Own", nullptr, 4); }, {}},
        {[&] { CheckMethods("Own", methods, 4); }, {"Error: The method Own.0 has nil declaration.", "Error: The method Own.NoFunction has nil function.", "Error: The method Own.BrokenAttributes has the wrong attributeCount value: 2"}},
        {[&] { CheckConstants("Own", constants, 2); }, {"Error: The constant Own.0 has nil declaration.", "Error: The constant Own.K has the wrong attributeCount value: 1001"}},
        {[&] { CheckConstants("Own", constants, 10001); }, {"Error: constant count out of range for Own: 10001."}},
        {[&] { CheckEvents("Own", events, 2); }, {"Error: The event Own.0 has nil declaration.", "Error: The event Own.E has the wrong attributeCount value: 3"}},
        {[&] { CheckEvents("Own", nullptr, 2); }, {}},
        {[&] { CheckEvents("Own", events, 10001); }, {"Error: event count out of range for Own: 10001."}},
        {[&] { CheckDelegates("Own", delegates, 2); }, {"Error: The delegate Own.0 has nil declaration.", "Warning: The delegate Own.D has 0 for flags."}},
        {[&] { CheckDelegates("Own", nullptr, 2); }, {}},
        {[&] { CheckDelegates("Own", delegates, 10001); }, {"Error: delegate count out of range for Own: 10001."}},
        {[&] { CheckAttributes("", "Own", fullAttributes.data(), 10000); }, {}},
        {[&] { CheckMethods("Own", fullMethods.data(), 10000); }, {}},
        {[&] { CheckMethods("Own", fullMethods.data(), 10001); }, {"Error: method count out of range for Own: 10001."}},
        {[&] { CheckConstants("Own", fullConstants.data(), 10000); }, {}},
        {[&] { CheckEvents("Own", fullEvents.data(), 10000); }, {}},
        {[&] { CheckDelegates("Own", fullDelegates.data(), 10000); }, {}},
        {[&] { CheckProperties("Own", fullProperties.data(), 10000); }, {}},
        {[&] { CheckProperties("Own", fullProperties.data(), 10001); }, {"Error: property count out of range for Own: 10001."}},
    };
    for (const auto &c : cases) EXPECT_EQ(LinesOf(c.check), c.lines);
}

TEST_F(ValidationTest, PropertiesAreCheckedFieldByField) {
    const REALproc direct = kDirectAccess;
    const REALproc real = Function();
    REALpropertyDefinition withEditor = PropertyRecord("Ed", "Integer", real);
    withEditor.editor = &withEditor;
    REALpropertyDefinition withEnums = PropertyRecord("En", "Integer", real);
    withEnums.enumCount = 2;
    REALpropertyDefinition withAttributes = PropertyRecord("At", "Integer", real);
    withAttributes.attributeCount = 1;
    const struct {
        REALpropertyDefinition property;
        Lines lines;
    } cases[] = {
        {PropertyRecord("D", "Double", direct), {"Error: The property Own.D needs custom getter."}},
        {PropertyRecord("D", "dOUBLE", real, direct), {"Error: The property Own.D needs custom setter."}},
        {PropertyRecord("D", "Double", real, real), {}},
        {PropertyRecord("I", "Int32", direct, direct, 6), {"Error: The property Own.I has unaligned offset 6.", "Error: The property Own.I has unaligned offset 6."}},
        {PropertyRecord("I", "Int32", direct, nullptr, 8), {}},
        {PropertyRecord("I", "Int32", real, nullptr, 6), {}},
        {PropertyRecord(nullptr, "Int32", real), {"Error: The property Own.0 has nil name."}},
        {PropertyRecord("G", "Int32", nullptr), {"Error: The property Own.G has nil getter."}},
        // Without a type the type tests are skipped.
        {PropertyRecord("T", nullptr, direct, direct, 6), {"Error: The property Own.0 has nil type."}},
        {withEditor, {"Error: The property Own.Ed has editor."}},
        {withEnums, {"Error: The property Own.En has wrong enumCount: 2"}},
        {withAttributes, {"Error: The property Own.At has attributes: 1"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(LinesOf([&] { CheckProperties("Own", &c.property, 1); }), c.lines);
    }
    EXPECT_EQ(LinesOf([&] { CheckProperties("Own", nullptr, 2); }), Lines{});
}

TEST_F(ValidationTest, ConsoleSafeMembersOfAConsoleUnsafeClass) {
    REALmethodDefinition methods[2] = {MethodRecord("M4", 0x4), MethodRecord("M204", 0x204)};
    REALmethodDefinition shared[1] = {MethodRecord("S4", 0x1004)};
    REALpropertyDefinition properties[1] = {PropertyRecord("Debugging", "Boolean", Function())};
    REALpropertyDefinition sharedProperties[2] = {PropertyRecord("Debugging", "Boolean", Function()), PropertyRecord("Other", "Boolean", Function())};
    REALclassDefinition cls = ClassRecord("Cls", methods, 2);
    cls.sharedMethods = shared, cls.sharedMethodCount = 1;
    cls.properties = properties, cls.propertyCount = 1;
    cls.sharedProperties = sharedProperties, cls.sharedPropertyCount = 2;
    for (RBWord consoleSafe : {0u, 4u}) {
        cls.flags = consoleSafe;
        EXPECT_EQ(LinesOf([&] { CheckClassMembers(&cls); }), Lines{});
    }
    cls.flags = 0x200;
    EXPECT_EQ(LinesOf([&] { CheckClassMembers(&cls); }),
              (Lines{"QVT Debug: Console-safe method in console-unsafe class:  Cls, M4",
               "QVT Debug: Console-safe shared method in console-unsafe class:  Cls, S4",
               "QVT Debug: Console-safe property in console-unsafe class:  Cls, Debugging",
               "QVT Debug: Console-safe shared property in console-unsafe class:  Cls, Other"}));

    REALmoduleDefinition module = {};
    module.name = "Mod", module.flags = 0x8;
    module.methods = methods, module.methodCount = 2;
    module.properties = sharedProperties, module.propertyCount = 1;
    EXPECT_EQ(LinesOf([&] { CheckModuleMembers(&module); }),
              (Lines{"QVT Debug: Console-safe method in console-unsafe module:  Mod, M4", "QVT Debug: Console-safe property in console-unsafe module:  Mod, Debugging"}));
}

TEST_F(ValidationTest, DirectAccessVariablesMustEndInsideTheData) {
    for (intptr_t offset : {12, 13, -4}) {
        REALpropertyDefinition property = PropertyRecord("V", "Int32", Function(), kDirectAccess, offset);
        REALclassDefinition cls = ClassRecord("Cls");
        cls.dataSize = 16, cls.properties = &property, cls.propertyCount = 1;
        const Lines expected = offset == 13 ? Lines{"Error: Offset for variable too big: Cls.V 13 16"} : Lines{};
        EXPECT_EQ(LinesOf([&] { CheckClassMembers(&cls); }), expected) << offset;
    }
}

TEST_F(ValidationTest, ClassFrontEndReportsInOrderAndRegistersAllTheSame) {
    OnHost(2015.0);
    int dummy = 0;
    auto *some = reinterpret_cast<REALpropertyDefinition *>(&dummy);
    REALclassDefinition cls = ClassRecord(nullptr);
    cls.version = 14, cls.forSystemUse = 8;
    cls.properties = some;  // count 0
    cls.methodCount = 2;    // nil list
    cls.eventCount = 1001, cls.eventInstanceCount = 1, cls.constantCount = 4001;
    cls.sharedPropertyCount = cls.sharedMethodCount = cls.attributeCount = 1;
    cls.delegateCount = cls.enumCount = 1;
    cls.superName = "BaseQVT", cls.dataSize = 17, cls.flags = 0x400;
    Lines lines = LinesOf([&] { RegisterClass(&cls); });
    Lines expected = {
        "Error: The class (null) has the wrong kCurrentREALControlVersion: 14 vs. 15",
        "Error: A class without name.",
        "Error: The class (null) has the wrong forSystemUse value: 8",
        "Error: The class (null) has the wrong propertyCount value: 0",
        "Error: The class (null) has the wrong methodCount value: 2",
        "Error: The class (null) has the wrong eventCount value: 1001",
        "Error: The class (null) has the wrong eventInstanceCount value: 1",
        "Error: The class (null) has the wrong constantCount value: 4001",
        "Error: The class (null) has the wrong sharedPropertyCounttionCount value: 1",
        "Error: The class (null) has the wrong sharedMethodCount value: 1",
        "Error: The class (null) has the wrong attributeCount value: 1",
        "Error: The class (null) has the wrong delegateCount value: 1",
        "Error: The class (null) has the wrong enumCount value: 1",
        "Warning: The subclass (null) of BaseQVT has data size: 17",
        "Warning: iOS only class registered for old Xojo: (null)",
        "Error: method (null).0 is NULL.", "Error: Constant (null).0 is NULL.", "Error: method (null).0 is NULL.",
    };
    EXPECT_EQ(lines, expected);
    // Reported, and registered all the same, with the data rounded up.
    ASSERT_EQ(simhost::Registrations().size(), 1u);
    EXPECT_EQ(simhost::Registrations()[0].record, &cls);
    EXPECT_EQ(cls.dataSize, 32u);
    EXPECT_EQ(cls.version, 13u);
    EXPECT_EQ(cls.forSystemUse, simhost::kInstanceDataOffset);
}

// Past the host's limit the list is still walked; far past it, not at all.
TEST_F(ValidationTest, LongMethodListsAreWalkedUpToTheirRange) {
    const struct {
        RBWord count;
        Lines lines;
    } cases[] = {
        {1000, {"Error: The method Cls.999 has nil declaration."}},
        {1001, {"Error: The class Cls has the wrong methodCount value: 1001", "Error: The method Cls.1000 has nil declaration."}},
        {20000, {"Error: The class Cls has the wrong methodCount value: 20000", "Error: method count out of range for Cls: 20000."}},
    };
    for (const auto &c : cases) {
        simhost::Reset();
        OnHost(2013.04);
        std::vector<REALmethodDefinition> methods(c.count, MethodRecord("M"));
        methods.back().declaration = nullptr;
        REALclassDefinition cls = ClassRecord("Cls", methods.data(), c.count);
        EXPECT_EQ(LinesOf([&] { RegisterClass(&cls); }), c.lines);
        EXPECT_EQ(simhost::Registrations().size(), 1u);
    }
}

TEST_F(ValidationTest, NothingReachesTheHostWithoutRecordOrPartName) {
    REALclassDefinition cls = ClassRecord("Cls");
    REALmoduleDefinition module = {};
    module.version = 15, module.name = "Mod";
    const struct {
        std::function<void()> call;
        std::string line;
        bool withoutPartName = false;
    } cases[] = {
        {[] { RegisterClass(nullptr); }, "Error: A class registered is nil."},
        {[] { RegisterClassExtension(nullptr); }, "Error: A class extension registered is nil."},
        {[] { RegisterModule(nullptr); }, "Error: A module registered is nil."},
        {[] { RegisterMethod(nullptr); }, "Error: A method registered is nil."},
        {[&] { RegisterClass(&cls); }, "Error: gpartname is nil!? Cls", true},
        {[&] { RegisterClassExtension(&cls); }, "Error: gpartname is nil!? Cls", true},
        {[&] { RegisterModule(&module); }, "Error: gpartname is nil!? Mod", true},
    };
    for (const auto &c : cases) {
        gpartname = c.withoutPartName ? nullptr : "Memory";
        EXPECT_EQ(LinesOf(c.call), Lines{c.line});
    }
    EXPECT_TRUE(simhost::Registrations().empty());
    EXPECT_EQ(cls.version, 15u);
}

TEST_F(ValidationTest, OldHostsGetTheOldFormsAtTheSameAddress) {
    OnHost(2011.0);
    REALmethodDefinition methods[2] = {MethodRecord("A"), MethodRecord("B")};
    REALpropertyDefinition properties[1] = {PropertyRecord("P", "Int32", Function())};
    REALclassDefinition cls = ClassRecord("Cls", methods, 2);
    cls.properties = properties, cls.propertyCount = 1;
    cls.dataSize = 16;
    EXPECT_EQ(LinesOf([&] { RegisterClass(&cls); }), Lines{});
    ASSERT_EQ(simhost::Registrations().size(), 1u);
    const auto registration = simhost::Registrations()[0];
    EXPECT_EQ(registration.record, &cls);
    EXPECT_EQ(cls.version, 9u);
    EXPECT_NE(cls.methods, methods);
    auto info = simhost::Inspect(registration);
    EXPECT_EQ(info.name, "Cls");
    EXPECT_EQ(info.dataSize, 16u);
    EXPECT_EQ(Members(info), (Lines{"method: A", "method: B", "property: P as Int32"}));
    EXPECT_EQ(methods[0].flags, 4u);

    simhost::Reset();
    OnHost(0.0);
    REALmoduleDefinition module = {};
    module.version = 15, module.name = "Mod";
    module.methods = methods, module.methodCount = 1;
    module.properties = &gDebuggingProperty, module.propertyCount = 1;
    EXPECT_EQ(LinesOf([&] { RegisterModule(&module); }), Lines{});
    ASSERT_EQ(Kinds(), Lines{"Module"});
    EXPECT_EQ(module.version, 9u);
    EXPECT_EQ(Members(simhost::Inspect(simhost::Registrations()[0])), (Lines{"method: A", "property: Debugging as Boolean"}));
}

TEST_F(ValidationTest, ClassExtensionFrontEndReportsInOrder) {
    OnHost(2012.5);
    int dummy = 0;
    REALclassDefinition ext = ClassRecord("memoryBlock");
    ext.version = 16, ext.superName = "Base", ext.dataSize = 17, ext.forSystemUse = 3;
    ext.methods = reinterpret_cast<REALmethodDefinition *>(&dummy);  // count 0
    ext.eventInstances = reinterpret_cast<REALeventInstanceDefinition *>(&dummy);
    ext.propertyCount = 1, ext.eventCount = 1, ext.constantCount = 2, ext.sharedPropertyCount = 3;
    ext.sharedMethodCount = 4, ext.attributeCount = 1001, ext.delegateCount = 5, ext.enumCount = 6;
    Lines expected = {
        "Error: The class extension memoryBlock has the wrong kCurrentREALControlVersion: 16 vs. 15",
        "Error: A class extension can't have super name: Base",
        "Error: The class extension memoryBlock has the dataSize value: 17",
        "Error: The class extension memoryBlock has the wrong forSystemUse value: 3",
        "Error: The class extension memoryBlock has the wrong propertyCount value: 1",
        "Error: The class extension memoryBlock has the wrong methodCount value: 0",
        "Error: The class extension memoryBlock has events: 1",
        "Error: The class extension memoryBlock has event instances: 0",
        "Error: The class extension memoryBlock has constants: 2",
        "Error: The class extension memoryBlock has shared Properties: 3",
        "Error: The class extension memoryBlock has shared Methods: 4",
        "Error: The class extension memoryBlock has wrong attributes: 1001",
        "Error: The class extension memoryBlock has delegates 5",
        "Error: The class extension memoryBlock has enums: 6",
        "Error: Constant memoryBlock.0 is NULL.",
        "Error: method memoryBlock.0 is NULL.",
        "Warning: The class extension memoryBlock has the propertyCount value: 1",
        "Warning: The class extension memoryBlock has the constantCount value: 2",
        "Warning: The class extension memoryBlock has the eventCount value: 1",
        "Warning: The class extension memoryBlock has the sharedProperties value: 3",
        "Warning: The class extension memoryBlock has the sharedMethods value: 4",
        "Error: The class extension name memoryBlock does not start with capital letter.",
    };
    EXPECT_EQ(LinesOf([&] { RegisterClassExtension(&ext); }), expected);
    ASSERT_EQ(Kinds(), Lines{"ClassExtension"});
    EXPECT_EQ(ext.version, 10u);
    EXPECT_EQ(ext.dataSize, 17u);  // an extension's data is not rounded
}

TEST_F(ValidationTest, ModuleFrontEndChecksVersionListsAndScopes) {
    OnHost(2013.04);
    int dummy = 0;
    REALmethodDefinition methods[1] = {MethodRecord("M", 0x4)};
    REALmoduleDefinition module = {};
    module.version = 14, module.name = "Mod";
    module.methods = methods, module.methodCount = 1;
    module.enums = reinterpret_cast<REALenumDefinition *>(&dummy);
    module.propertyCount = module.structureCount = module.attributeCount = 1;
    module.delegateCount = 1001;
    EXPECT_EQ(LinesOf([&] { RegisterModule(&module); }),
              (Lines{"Error: The module Mod has the wrong kCurrentREALControlVersion: 14 vs. 15",
                     "Error: The module Mod has the wrong propertyCount value: 1",
                     "Error: The module Mod has the wrong structureCount value: 1",
                     "Error: The module Mod has the wrong enumCount value: 0",
                     "Error: The module Mod has the wrong attributeCount value: 1",
                     "Error: The module Mod has the wrong delegateCount value: 1001",
                     "QVT Debug: Error: property array is nil while count is not zero!"}));
    ASSERT_EQ(Kinds(), Lines{"Module"});
    EXPECT_EQ(module.version, 13u);
    EXPECT_EQ(module.flags, 4u);
    EXPECT_EQ(methods[0].flags, 0x44u);
    // The version told, or fifteen, passes.
    for (RBWord version : {13u, 15u}) {
        REALmoduleDefinition fine = {};
        fine.version = version, fine.name = "Mod", fine.flags = 0x4;
        EXPECT_EQ(LinesOf([&] { RegisterModule(&fine); }), Lines{}) << version;
    }
}

TEST_F(ValidationTest, SingleMethodFrontEnd) {
    REALattributeDefinition attributes[1] = {{nullptr, "v"}};
    REALmethodDefinition method = {nullptr, nullptr, nullptr, 4, 1, attributes};
    EXPECT_EQ(LinesOf([&] { RegisterMethod(&method); }),
              (Lines{"Error: A method without declaration.", "Error: The method (null) has no function.", "Error: .(null) has an attribute without name! Index: 0"}));
    REALmethodDefinition broken = {Function(), nullptr, "F()", 4, 2, nullptr};
    EXPECT_EQ(LinesOf([&] { RegisterMethod(&broken); }),
              (Lines{"Error: The method F() has the wrong attributeCount value: 2"}));
    EXPECT_EQ(Kinds(), (Lines{"Method", "Method"}));
}

}  // namespace
}  // namespace qvt

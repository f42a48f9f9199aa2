// Class extensions and global methods as synthesised modules: declarations
// rewritten, entries laid out, and the route chosen by the host's version.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostvalues/allocation.h"
#include "registration_fixture.h"
#include "shell/definitions.h"
#include "shell/modules.h"
#include "shell/validation.h"

namespace qvt {
namespace {

using test::Lines;

class ModulesTest : public test::RegistrationTest {};

void Reader() {}
void Writer() {}
void Other() {}
const REALproc kReader = QVT_PROC(void(), Reader), kWriter = QVT_PROC(void(), Writer),
               kOther = QVT_PROC(void(), Other);

std::string Owned(char *text) {
    std::string copy = text != nullptr ? text : "<nil>";
    FreeMemory(text);
    return copy;
}

TEST(ExtendDeclaration, PutsTheReceiverFirstAndTheAssignedValueLast) {
    const struct {
        const char *declaration, *extended, *assigning;  // nullptr: not checked
    } cases[] = {
        {"GetBitQVT(Bit as UInt64) as Integer",
         "GetBitQVT(extends ref as MemoryBlock, Bit as UInt64) as Integer", nullptr},
        {"OSTypeQVT(offset as Integer) as String", nullptr,
         "OSTypeQVT(extends ref as MemoryBlock, offset as Integer, assigns value as String)"},
        {"Count as Integer", "Count(extends ref as MemoryBlock) as Integer",
         "Count(extends ref as MemoryBlock, assigns value as Integer)"},
        {"Close", "Close(extends ref as MemoryBlock)",
         "Close(extends ref as MemoryBlock, assigns value)"},
        {"FindByteQVT(values() as UInt8, StartByteOffset as Integer = 0) as Integer",
         "FindByteQVT(extends ref as MemoryBlock, values() as UInt8, StartByteOffset as Integer = "
         "0) as Integer",
         nullptr},
        // Empty brackets are not special.
        {"Reset()", "Reset(extends ref as MemoryBlock, )", nullptr},
        // An unclosed bracket: the blank is where the assigning form begins.
        {"Odd(a", nullptr, "Odd(extends(assigns value ref as MemoryBlock, a)"},
    };
    for (const auto &c : cases) {
        if (c.extended) {
            EXPECT_EQ(Owned(ExtendDeclaration(c.declaration, "MemoryBlock")), c.extended);
        }
        if (c.assigning) {
            EXPECT_EQ(Owned(ExtendSetterDeclaration(c.declaration, "MemoryBlock")), c.assigning);
        }
    }
    EXPECT_EQ(ExtendDeclaration(nullptr, "MemoryBlock"), nullptr);
}

REALmethodDefinition MethodRecord(REALproc function, const char *declaration,
                                  REALproc setter = nullptr) {
    return {function, setter, declaration, 4, 0, nullptr};
}

REALclassDefinition ExtensionRecord(REALmethodDefinition *methods, RBWord count) {
    REALclassDefinition c = {};
    c.version = 15;
    c.name = "Thing";
    c.methods = methods;
    c.methodCount = count;
    c.flags = 4;
    return c;
}

struct Entry {
    std::string declaration;
    REALproc function;
    RBWord flags;
    bool operator==(const Entry &) const = default;
};

std::vector<Entry> EntriesOf(const REALmoduleDefinition *module) {
    std::vector<Entry> entries;
    for (RBWord i = 0; i < module->methodCount; ++i) {
        const REALmethodDefinition &m = module->methods[i];
        EXPECT_EQ(m.setterFunction, nullptr);
        entries.push_back({m.declaration, m.function, m.flags});
    }
    return entries;
}

TEST_F(ModulesTest, AssigningEntryComesBeforeTheReadingOne) {
    REALattributeDefinition attributes[1] = {{"Hidden", ""}};
    REALmethodDefinition methods[4] = {
        MethodRecord(kOther, "First(a as Integer)"),
        MethodRecord(kReader, "Code(offset as Integer) as String", kWriter),
        MethodRecord(nullptr, "Skipped"),
        {kOther, nullptr, "Last", 4, 1, attributes},
    };
    REALclassDefinition ext = ExtensionRecord(methods, 4);
    EXPECT_EQ(LinesOf([&] { RegisterExtensionModule(&ext); }), Lines{});
    ASSERT_EQ(Kinds(), Lines{"Module"});
    auto *module = static_cast<const REALmoduleDefinition *>(simhost::Registrations()[0].record);
    EXPECT_STREQ(module->name, "ThingMemoryExtensionQVT");
    EXPECT_EQ(module->version, 13u);
    EXPECT_EQ(module->flags, 4u);
    EXPECT_EQ(module->properties, &gDebuggingProperty);
    EXPECT_EQ(module->propertyCount, 1u);
    EXPECT_EQ(EntriesOf(module),
              (std::vector<Entry>{
                  {"First(extends ref as Thing, a as Integer)", kOther, 0x14},
                  {"Code(extends ref as Thing, offset as Integer, assigns value as String)",
                   kWriter, 0x14},
                  {"Code(extends ref as Thing, offset as Integer) as String", kReader, 0x14},
                  {"Last(extends ref as Thing)", kOther, 0x14},
              }));
    EXPECT_EQ(module->methods[3].attributes, attributes);
    EXPECT_EQ(module->methods[3].attributeCount, 1u);
    // The table keeps what it had.
    EXPECT_EQ(methods[1].flags, 4u);
    EXPECT_STREQ(methods[1].declaration, "Code(offset as Integer) as String");
}

TEST_F(ModulesTest, ExtensionWithoutMethodsMakesNoHostCall) {
    REALclassDefinition ext = ExtensionRecord(nullptr, 0);
    EXPECT_EQ(LinesOf([&] { RegisterClassExtension(&ext); }), Lines{});
    EXPECT_TRUE(simhost::Registrations().empty());
    EXPECT_TRUE(simhost::ResolverLog().empty());
}

TEST_F(ModulesTest, ADeclarationThatCannotBeCopiedKeepsTheModuleFromTheHost) {
    REALmethodDefinition methods[2] = {MethodRecord(kReader, "Fine"), MethodRecord(kOther, nullptr)};
    REALclassDefinition ext = ExtensionRecord(methods, 2);
    LinesOf([&] { RegisterExtensionModule(&ext); });
    EXPECT_TRUE(simhost::Registrations().empty());
}

TEST_F(ModulesTest, NoRoomForTheMethodsKeepsTheModuleFromTheHost) {
    REALmethodDefinition noFunctions[1] = {MethodRecord(nullptr, "Nothing")};
    REALclassDefinition ext = ExtensionRecord(noFunctions, 1);
    REALmethodDefinition globals[1] = {MethodRecord(kReader, "G() as Integer")};
    EXPECT_EQ(LinesOf([&] {
                  RegisterExtensionModule(&ext);
                  RegisterMethods(globals, -1);
              }),
              (Lines{"QVT Debug: Warning: Failed to allocate memory for method definitions.",
                     "QVT Debug: Warning: Failed to allocate memory for method definitions."}));
    EXPECT_TRUE(simhost::Registrations().empty());
}

TEST_F(ModulesTest, RouteFollowsTheHostVersion) {
    const struct {
        double host;
        Lines kinds;
    } cases[] = {
        {2012.99, {"ClassExtension", "Method", "Method"}},
        {2013.0, {"Module", "Module"}},
        {2999.99, {"Module", "Module"}},
        {3000.0, {"ClassExtension", "Method", "Method"}},
    };
    for (const auto &c : cases) {
        simhost::Reset();
        OnHost(c.host);
        REALmethodDefinition methods[1] = {MethodRecord(kReader, "Read as Integer")};
        REALclassDefinition ext = ExtensionRecord(methods, 1);
        REALmethodDefinition globals[2] = {MethodRecord(kReader, "G1() as Integer"),
                                           MethodRecord(kOther, "G2(n as Int32)")};
        Lines lines = LinesOf([&] {
            RegisterClassExtension(&ext);
            RegisterMethods(globals, 2);
        });
        EXPECT_EQ(lines, Lines{}) << c.host;
        EXPECT_EQ(Kinds(), c.kinds) << c.host;
    }
}

TEST_F(ModulesTest, GlobalsModuleKeepsTheTablesTextsAndTheHiddenProperty) {
    REALmethodDefinition globals[2] = {
        {kReader, nullptr, "G1() as Integer", 0x40000, 0, nullptr},
        {kOther, kWriter, "G2(n as Int32)", 4, 0, nullptr}};
    RegisterMethods(globals, 2);
    ASSERT_EQ(Kinds(), Lines{"Module"});
    auto *module = static_cast<const REALmoduleDefinition *>(simhost::Registrations()[0].record);
    EXPECT_STREQ(module->name, "MemoryGlobalsQVT");
    ASSERT_EQ(module->methodCount, 2u);
    EXPECT_EQ(module->methods[0].declaration, globals[0].declaration);
    EXPECT_EQ(module->methods[1].setterFunction, kWriter);
    EXPECT_EQ(module->methods[0].flags, 0x14u);
    EXPECT_EQ(module->methods[1].flags, 0x14u);
    // The flags were fixed in the table itself, the scope only in the copies.
    EXPECT_EQ(globals[0].flags, 0x4u);
    EXPECT_EQ(globals[1].flags, 0x4u);
    EXPECT_EQ(module->properties, &gDebuggingProperty);
    EXPECT_EQ(gDebuggingProperty.flags, 0x26u);
    EXPECT_STREQ(gDebuggingProperty.attributes[0].name, "Hidden");
    auto property = simhost::FindProperty("Debugging", "MemoryGlobalsQVT");
    ASSERT_TRUE(property.has_value());
    EXPECT_EQ(property->type, "Boolean");
    auto set = reinterpret_cast<void (*)(REALobject, intptr_t, intptr_t)>(property->setter);
    auto get = reinterpret_cast<bool (*)(REALobject, intptr_t)>(property->getter);
    set(nullptr, 0, 2);
    EXPECT_TRUE(get(nullptr, 0));
    set(nullptr, 0, 0);
    EXPECT_FALSE(get(nullptr, 0));
}

TEST_F(ModulesTest, EmptyOrNilMethodArraysAreRefused) {
    REALmethodDefinition globals[1] = {MethodRecord(kReader, "G() as Integer")};
    EXPECT_EQ(LinesOf([] { RegisterMethods(nullptr, 3); }),
              Lines{"Error: A method array registered is nil."});
    EXPECT_EQ(LinesOf([&] { RegisterMethods(globals, 0); }),
              Lines{"Warning: A method array registered with count = 0."});
    EXPECT_TRUE(simhost::Registrations().empty());
}

}  // namespace
}  // namespace qvt

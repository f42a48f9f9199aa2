// Class extensions and global methods as synthesised modules: declarations
// rewritten, entries laid out, and the route chosen by the host's version.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
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
const REALproc kReader = QVT_PROC(void(), Reader), kWriter = QVT_PROC(void(), Writer), kOther = QVT_PROC(void(), Other);

std::string Owned(char *text) {
    std::string copy = text != nullptr ? text : "<nil>";
    FreeMemory(text);
    return copy;
}

TEST(ExtendDeclaration, PutsTheReceiverFirstAndTheAssignedValueLast) {
    const std::string ref = "(extends ref as MemoryBlock";
    const struct { const char *declaration; std::string extended, assigning; } cases[] = {  // empty: not checked
        {"GetBitQVT(Bit as UInt64) as Integer", "GetBitQVT" + ref + ", Bit as UInt64) as Integer", ""},
        {"OSType(offset as Integer) as String", "", "OSType" + ref + ", offset as Integer, assigns value as String)"},
        {"Count as Integer", "Count" + ref + ") as Integer", "Count" + ref + ", assigns value as Integer)"},
        {"Close", "Close" + ref + ")", "Close" + ref + ", assigns value)"},
        {"Find(values() as UInt8, At as Integer = 0)", "Find" + ref + ", values() as UInt8, At as Integer = 0)", ""},
        {"Reset()", "Reset" + ref + ", )", ""},  // empty brackets are not special
        // An unclosed bracket: the blank is where the assigning form begins.
        {"Odd(a", "", "Odd(extends(assigns value ref as MemoryBlock, a)"},
    };
    for (const auto &c : cases) {
        const std::string none;
        EXPECT_EQ(c.extended.empty() ? none : Owned(ExtendDeclaration(c.declaration, "MemoryBlock")), c.extended);
        EXPECT_EQ(c.assigning.empty() ? none : Owned(ExtendSetterDeclaration(c.declaration, "MemoryBlock")),
                  c.assigning);
    }
    EXPECT_EQ(ExtendDeclaration(nullptr, "MemoryBlock"), nullptr);
}

REALmethodDefinition MethodRecord(REALproc function, const char *declaration,
                                  REALproc setter = nullptr) {
    return {function, setter, declaration, 4, 0, nullptr};
}

REALclassDefinition ExtensionRecord(REALmethodDefinition *methods, RBWord count) {
    REALclassDefinition c = {};
    c.version = 15, c.name = "Thing", c.flags = 4;
    c.methods = methods, c.methodCount = count;
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
    EXPECT_EQ(std::tuple(module->version, module->flags, module->properties, module->propertyCount),
              std::tuple(RBWord{13}, RBWord{4}, &gDebuggingProperty, RBWord{1}));
    EXPECT_EQ(EntriesOf(module),
              (std::vector<Entry>{{"First(extends ref as Thing, a as Integer)", kOther, 0x14},
                                  {"Code(extends ref as Thing, offset as Integer, assigns value as String)", kWriter,
                                   0x14},
                                  {"Code(extends ref as Thing, offset as Integer) as String", kReader, 0x14},
                                  {"Last(extends ref as Thing)", kOther, 0x14}}));
    EXPECT_EQ(std::pair(module->methods[3].attributes, module->methods[3].attributeCount),
              std::pair(+attributes, RBWord{1}));
    // The table keeps what it had.
    EXPECT_EQ(std::pair(methods[1].flags, std::string(methods[1].declaration)),
              std::pair(RBWord{4}, std::string("Code(offset as Integer) as String")));
}

TEST_F(ModulesTest, RefusedTablesReachNoHost) {
    REALmethodDefinition uncopied[2] = {MethodRecord(kReader, "Fine"), MethodRecord(kOther, nullptr)};
    REALmethodDefinition noFunctions[1] = {MethodRecord(nullptr, "Nothing")};
    REALmethodDefinition globals[1] = {MethodRecord(kReader, "G() as Integer")};
    REALclassDefinition none = ExtensionRecord(nullptr, 0), cannotCopy = ExtensionRecord(uncopied, 2),
                        empty = ExtensionRecord(noFunctions, 1);
    const std::string noRoom = "QVT Debug: Warning: Failed to allocate memory for method definitions.";
    const struct { std::function<void()> call; std::optional<Lines> lines; } cases[] = {  // nullopt: not checked
        {[&] { RegisterClassExtension(&none); }, Lines{}},
        {[&] { RegisterExtensionModule(&cannotCopy); }, std::nullopt},
        {[&] { RegisterExtensionModule(&empty); }, Lines{noRoom}},
        {[&] { RegisterMethods(globals, -1); }, Lines{noRoom}},
        {[] { RegisterMethods(nullptr, 3); }, Lines{"Error: A method array registered is nil."}},
        {[&] { RegisterMethods(globals, 0); }, Lines{"Warning: A method array registered with count = 0."}},
    };
    for (const auto &c : cases) {
        const Lines lines = LinesOf(c.call);
        EXPECT_EQ(lines, c.lines.value_or(lines));
        EXPECT_TRUE(simhost::Registrations().empty());
    }
    EXPECT_TRUE(simhost::ResolverLog().empty());
}

TEST_F(ModulesTest, RouteFollowsTheHostVersion) {
    const Lines old = {"ClassExtension", "Method", "Method"}, modules = {"Module", "Module"};
    const std::pair<double, Lines> cases[] = {{2012.99, old}, {2013.0, modules}, {2999.99, modules}, {3000.0, old}};
    for (const auto &c : cases) {
        simhost::Reset();
        OnHost(c.first);
        REALmethodDefinition methods[1] = {MethodRecord(kReader, "Read as Integer")};
        REALclassDefinition ext = ExtensionRecord(methods, 1);
        REALmethodDefinition globals[2] = {MethodRecord(kReader, "G1() as Integer"),
                                           MethodRecord(kOther, "G2(n as Int32)")};
        EXPECT_EQ(LinesOf([&] { RegisterClassExtension(&ext), RegisterMethods(globals, 2); }), Lines{}) << c.first;
        EXPECT_EQ(Kinds(), c.second) << c.first;
    }
}

TEST_F(ModulesTest, GlobalsModuleKeepsTheTablesTextsAndTheHiddenProperty) {
    REALmethodDefinition globals[2] = {{kReader, nullptr, "G1() as Integer", 0x40000, 0, nullptr},
                                       {kOther, kWriter, "G2(n as Int32)", 4, 0, nullptr}};
    RegisterMethods(globals, 2);
    ASSERT_EQ(Kinds(), Lines{"Module"});
    auto *module = static_cast<const REALmoduleDefinition *>(simhost::Registrations()[0].record);
    EXPECT_STREQ(module->name, "MemoryGlobalsQVT");
    ASSERT_EQ(module->methodCount, 2u);
    EXPECT_EQ(module->methods[0].declaration, globals[0].declaration);
    EXPECT_EQ(module->methods[1].setterFunction, kWriter);
    // The flags were fixed in the table itself, the scope only in the copies.
    EXPECT_EQ((std::vector{module->methods[0].flags, module->methods[1].flags, globals[0].flags, globals[1].flags}),
              (std::vector<RBWord>{0x14, 0x14, 0x4, 0x4}));
    EXPECT_EQ(std::pair(module->properties, gDebuggingProperty.flags), std::pair(&gDebuggingProperty, RBWord{0x26}));
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

}  // namespace
}  // namespace qvt

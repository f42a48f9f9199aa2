// The whole load through REALPluginMain, as hosts of each age see it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "memory/bits.h"
#include "registration_fixture.h"
#include "shell/definitions.h"
#include "simhost/platform.h"

namespace qvt {
namespace {

using test::Lines;

class FullLoadTest : public test::RegistrationTest {
protected:
    void SetUp() override {
        simhost::platform::SetEnvironment("QVTDEBUG", nullptr);
        RegistrationTest::SetUp();
        simhost::ClearResolverLog();
    }
    void LoadOn(double version, bool known = true) {
        simhost::Options options;
        options.version = version;
        options.hasVersionEntry = known;
        simhost::Reset(options);
        // As in a fresh process: the version stays 0.0 when the host has no entry.
        gHostVersion = 0.0;
        log = LinesOf([] { REALPluginMain(&simhost::Resolve); });
    }
    static std::size_t ExpectedEntries() {
        std::size_t entries = 0;
        for (std::size_t i = 0; i < kMemoryBlockExtensionMethodCount; ++i) {
            entries += (gMemoryBlockExtensionMethods[i].function != nullptr) +
                       (gMemoryBlockExtensionMethods[i].setterFunction != nullptr);
        }
        return entries;
    }
    static std::vector<std::string> Declarations(const simhost::RegistrationInfo &info) {
        std::vector<std::string> declarations;
        for (const auto &m : info.members) {
            if (m.role == "method") declarations.push_back(m.text);
        }
        return declarations;
    }
    static std::vector<std::string> TableDeclarations(const REALmethodDefinition *table,
                                                      std::size_t count) {
        std::vector<std::string> declarations;
        for (std::size_t i = 0; i < count; ++i) declarations.push_back(table[i].declaration);
        return declarations;
    }

    Lines log;
};

enum class Route { Direct, Modules };

struct HostCase { const char *name; double version; bool known; int32_t told; Route route; };

// One load per test: the load writes into the static tables.
class EveryHost : public FullLoadTest, public ::testing::WithParamInterface<HostCase> {};

TEST_P(EveryHost, SeesItsRouteInOrderAndCallsThroughIt) {
    const HostCase &host = GetParam();
    LoadOn(host.version, host.known);
    EXPECT_EQ(simhost::RecordVersionTold(), host.told);
    Lines resolved = {"REALGetRBVersion", "RegisterPluginVersion"};
    Lines kinds;
    if (host.route == Route::Modules) {
        resolved.insert(resolved.end(), {"PluginRegisterModule", "PluginRegisterClass"});
        kinds = {"Module", "Class", "Module"};
    } else {
        resolved.insert(resolved.end(), {"PluginRegisterClassExtension", "PluginRegisterClass", "PluginRegisterMethod"});
        kinds = {"ClassExtension", "Class"};
        kinds.insert(kinds.end(), static_cast<std::size_t>(kGlobalMethodCount), "Method");
    }
    EXPECT_EQ(simhost::ResolverLog(), resolved);
    EXPECT_EQ(Kinds(), kinds);
    // A load of the plug-in's own tables finds nothing to report.
    EXPECT_EQ(log, Lines{});
    for (std::size_t i = 0; i < kMemoryBlockExtensionMethodCount; ++i) {
        EXPECT_EQ(gMemoryBlockExtensionMethods[i].flags, 4u);
    }
    for (intptr_t i = 0; i < kGlobalMethodCount; ++i) EXPECT_EQ(gGlobalMethods[i].flags, 4u);
    if (host.route == Route::Direct) {
        // The table's own record; the oldest form is a copy over the same record.
        auto registrations = simhost::Registrations();
        ASSERT_EQ(registrations.size(), 2 + static_cast<std::size_t>(kGlobalMethodCount));
        EXPECT_EQ(registrations[0].record, &gMemoryBlockExtension);
        EXPECT_EQ(gMemoryBlockExtension.version, static_cast<RBWord>(host.told));
        EXPECT_EQ(gMemoryBlockExtension.methods == gMemoryBlockExtensionMethods, host.told >= 10);
        EXPECT_EQ(Declarations(simhost::Inspect(registrations[0])),
                  TableDeclarations(gMemoryBlockExtensionMethods, kMemoryBlockExtensionMethodCount));
        for (intptr_t i = 0; i < kGlobalMethodCount; ++i) {
            EXPECT_EQ(registrations[2 + static_cast<std::size_t>(i)].record, &gGlobalMethods[i]);
        }
    }
    auto setBit = simhost::FindMethod("SetBitQVT(Bit as UInt64, Value as Boolean)", "MemoryBlock");
    auto getBit = simhost::FindMethod("GetBitQVT(Bit as UInt64) as Integer", "MemoryBlock");
    ASSERT_TRUE(setBit && getBit);
    EXPECT_EQ(getBit->function, QVT_PROC(intptr_t(REALobject, uint64_t), GetBitQVT));
    REALobject block = simhost::NewBlock(2);
    reinterpret_cast<void (*)(REALobject, uint64_t, bool)>(setBit->function)(block, 9, true);
    EXPECT_EQ(simhost::Bytes(block)[1], 0x40);
    EXPECT_EQ(reinterpret_cast<intptr_t (*)(REALobject, uint64_t)>(getBit->function)(block, 9), 1);
    simhost::Release(block);
    auto wrap = simhost::FindMethod("NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock");
    ASSERT_TRUE(wrap.has_value());
    EXPECT_EQ(wrap->receiverClass, "");
}

INSTANTIATE_TEST_SUITE_P(
    Load, EveryHost,
    ::testing::Values(HostCase{"Unknown", 0.0, false, 9, Route::Direct}, HostCase{"Host2011", 2011.0, true, 9, Route::Direct},
                      HostCase{"Host2012_5", 2012.5, true, 10, Route::Direct}, HostCase{"Host2013_0", 2013.0, true, 11, Route::Modules},
                      HostCase{"Host2013_04", 2013.04, true, 13, Route::Modules}, HostCase{"Host3000", 3000.0, true, 13, Route::Direct}),
    [](const ::testing::TestParamInfo<HostCase> &param) { return std::string(param.param.name); });

TEST_F(FullLoadTest, ModulesCarryRewrittenDeclarationsAndTheHiddenProperty) {
    LoadOn(2013.04);
    auto registrations = simhost::Registrations();
    ASSERT_EQ(registrations.size(), 3u);

    auto extension = simhost::Inspect(registrations[0]);
    EXPECT_EQ(extension.name, "MemoryBlockMemoryExtensionQVT");
    EXPECT_EQ(extension.Count("method"), ExpectedEntries());
    EXPECT_EQ(extension.Count("property"), 1u);
    EXPECT_EQ(extension.members.back().text, "Debugging as Boolean");
    const auto declarations = Declarations(extension);
    ASSERT_FALSE(declarations.empty());
    // Rewritten at the first "(" only: "values()" stays.
    EXPECT_EQ(declarations[0], "FindByteQVT(extends ref as MemoryBlock, values() as UInt8, StartByteOffset as Integer = 0) as Integer");
    for (const char *rewritten :
         {"GetBitQVT(extends ref as MemoryBlock, Bit as UInt64) as Integer",
          "InvertBytesQVT(extends ref as MemoryBlock, offset as integer, count as integer)"}) {
        EXPECT_NE(std::find(declarations.begin(), declarations.end(), rewritten),
                  declarations.end());
    }
    auto *module = static_cast<const REALmoduleDefinition *>(registrations[0].record);
    std::size_t row = 0;
    for (RBWord i = 0; i < module->methodCount; ++i) {
        EXPECT_EQ(module->methods[i].flags, 0x14u) << module->methods[i].declaration;
        // An assigning form is an entry of its own, ahead of its row's.
        const std::string declaration = module->methods[i].declaration;
        if (declaration.find(", assigns value") != std::string::npos) continue;
        ASSERT_LT(row, kMemoryBlockExtensionMethodCount);
        EXPECT_EQ(simhost::PlainDeclaration(module->methods[i].declaration),
                  gMemoryBlockExtensionMethods[row++].declaration);
    }
    EXPECT_EQ(row, kMemoryBlockExtensionMethodCount);

    EXPECT_EQ(registrations[1].record, &gMemoryBlockQVTClass);
    auto globals = simhost::Inspect(registrations[2]);
    EXPECT_EQ(globals.name, "MemoryGlobalsQVT");
    EXPECT_EQ(Declarations(globals),
              TableDeclarations(gGlobalMethods, static_cast<std::size_t>(kGlobalMethodCount)));
    EXPECT_EQ(globals.Count("property"), 1u);
    auto *globalsModule = static_cast<const REALmoduleDefinition *>(registrations[2].record);
    EXPECT_EQ(globalsModule->properties, module->properties);
}

TEST_F(FullLoadTest, DebuggingFlagAddsOnlyTheLoadingLine) {
    simhost::platform::SetEnvironment("QVTDEBUG", "1");
    LoadOn(2013.04);
    EXPECT_EQ(log, (Lines{"Loading Memory in Xojo 2013.04 and plugin SDK version 13..."}));
    EXPECT_EQ(simhost::ResolverLog(), (Lines{"REALGetRBVersion", "RegisterPluginVersion",
                                             "REALinRuntime", "PluginRegisterModule",
                                             "PluginRegisterClass"}));
    auto property = simhost::FindProperty("Debugging", "MemoryBlockMemoryExtensionQVT");
    ASSERT_TRUE(property.has_value());
    reinterpret_cast<void (*)(REALobject, intptr_t, intptr_t)>(property->setter)(nullptr, 0, 0);
    EXPECT_FALSE(Debugging());
}

TEST_F(FullLoadTest, NilResolverRegistersNothing) {
    REALPluginMain(nullptr);
    EXPECT_TRUE(simhost::Registrations().empty());
    EXPECT_EQ(gMemoryBlockExtension.version, 15u);
}

}  // namespace
}  // namespace qvt

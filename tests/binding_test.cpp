// The binding rule against a resolver the test controls.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

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

}  // namespace
}  // namespace qvt

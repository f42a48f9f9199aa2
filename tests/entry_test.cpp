// The load: versions, the debug switch, the "Loading" line and the part name.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "shell/entry.h"
#include "simhost/platform.h"

namespace qvt {
namespace {

using test::HostTest;
using test::StderrCapture;

TEST(RecordVersion, FollowsTheHostVersionAtEveryBoundary) {
    const struct {
        double host;
        int32_t record;
    } cases[] = {
        {0.0, 9},     {2011.99, 9},  {std::nextafter(2012.0, 0.0), 9}, {2012.0, 10},
        {2012.5, 10}, {2013.0, 11},  {2013.02, 11},                    {2013.03, 12},
        {2013.04, 13}, {2025.03, 13}, {3000.0, 13},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(RecordVersionForHost(c.host), c.record) << c.host;
    }
}

class LoadTest : public HostTest {
protected:
    void SetUp() override {
        simhost::platform::SetEnvironment("QVTDEBUG", nullptr);
        gDebugging = false;
        HostTest::SetUp();
    }
    simhost::Options options() const override { return hostOptions; }
    void Load() { REALPluginMain(&simhost::Resolve); }

    simhost::Options hostOptions;
};

TEST_F(LoadTest, TellsTheHostItsRecordVersion) {
    hostOptions.version = 2013.04;
    SetUp();
    Load();
    EXPECT_EQ(gHostVersion, 2013.04);
    EXPECT_EQ(gPluginSDKVersion, 13);
    EXPECT_EQ(simhost::RecordVersionTold(), 13);
    EXPECT_STREQ(gpartname, "Memory");
}

TEST_F(LoadTest, HostWithoutVersionEntryIsServedTheOldForm) {
    hostOptions.hasVersionEntry = false;
    SetUp();
    Load();
    EXPECT_EQ(gHostVersion, 0.0);
    EXPECT_EQ(simhost::RecordVersionTold(), 9);
}

TEST_F(LoadTest, NilResolverMakesNoHostCallAndNoOutput) {
    simhost::platform::SetEnvironment("QVTDEBUG", "1");
    StderrCapture output;
    REALPluginMain(nullptr);
    EXPECT_EQ(output.Take(), "");
    EXPECT_EQ(gPluginSDKVersion, 9);
    EXPECT_EQ(gpartname, nullptr);
    EXPECT_TRUE(simhost::ResolverLog().empty());
    EXPECT_TRUE(simhost::Calls().empty());
}

struct DebugSwitchCase {
    const char *name;
    const char *value;  // nullptr: unset
    bool on;
};
// Printed by its name: gtest would otherwise dump the padding bytes.
void PrintTo(const DebugSwitchCase &c, std::ostream *out) { *out << c.name; }

class DebugSwitchTest : public LoadTest, public ::testing::WithParamInterface<DebugSwitchCase> {};

TEST_P(DebugSwitchTest, SetsTheFlagOnlyForOneTrueOrYes) {
    if (GetParam().value) simhost::platform::SetEnvironment("QVTDEBUG", GetParam().value);
    StderrCapture output;
    Load();
    output.Take();
    EXPECT_EQ(Debugging(), GetParam().on);
}

INSTANTIATE_TEST_SUITE_P(Values, DebugSwitchTest,
                         ::testing::Values(DebugSwitchCase{"YES", "YES", true},
                                           DebugSwitchCase{"True", "True", true},
                                           DebugSwitchCase{"One", "1", true},
                                           DebugSwitchCase{"yes", "yes", true},
                                           DebugSwitchCase{"on", "on", false},
                                           DebugSwitchCase{"Zero", "0", false},
                                           DebugSwitchCase{"Empty", "", false},
                                           DebugSwitchCase{"TrailingBlank", "truE ", false},
                                           DebugSwitchCase{"Unset", nullptr, false}),
                         [](const auto &param) { return std::string(param.param.name); });

struct LoadingLineCase {
    const char *name;
    bool debug;
    bool inRuntime;
    bool hasInRuntime;
    bool lineExpected;
};

class LoadingLineTest : public LoadTest, public ::testing::WithParamInterface<LoadingLineCase> {};

TEST_P(LoadingLineTest, AppearsOnlyWithTheFlagOutsideTheRuntime) {
    const auto &c = GetParam();
    hostOptions.inRuntime = c.inRuntime;
    if (!c.hasInRuntime) hostOptions.missingEntries.push_back("REALinRuntime");
    SetUp();
    if (c.debug) simhost::platform::SetEnvironment("QVTDEBUG", "1");
    StderrCapture output;
    Load();
    EXPECT_EQ(output.Take(), c.lineExpected
                                 ? "Loading Memory in Xojo 2013.04 and plugin SDK version 13...\n"
                                 : "");
    const auto &asked = simhost::ResolverLog();
    const bool askedInRuntime =
        std::find(asked.begin(), asked.end(), "REALinRuntime") != asked.end();
    EXPECT_EQ(askedInRuntime, c.debug);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LoadingLineTest,
    ::testing::Values(LoadingLineCase{"FlagOff", false, false, true, false},
                      LoadingLineCase{"FlagOn", true, false, true, true},
                      LoadingLineCase{"FlagOnInRuntime", true, true, true, false},
                      LoadingLineCase{"FlagOnNoInRuntimeEntry", true, false, false, true}),
    [](const auto &param) { return std::string(param.param.name); });

TEST_F(LoadTest, EveryBlankInThePartNameIsReported) {
    StderrCapture output;
    PluginStart("My Memory Part");
    const std::string line =
        "QVT Debug: Warning: plugin name containts space character My Memory Part\n";
    EXPECT_EQ(output.Take(), line + line);
    EXPECT_STREQ(gpartname, "My Memory Part");
}

}  // namespace
}  // namespace qvt

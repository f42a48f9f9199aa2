// Raising host exceptions: classes, messages and the range-error texts.
#include <gtest/gtest.h>

#include "host_fixture.h"
#include "hostvalues/raise.h"
#include "shell/entry.h"

namespace qvt {
namespace {

class RaiseTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = hostOptions.version;
    }
    simhost::Options options() const override { return hostOptions; }
    simhost::Options hostOptions;
};

struct RangeCase {
    int64_t value, minimum, limit;
    const char *parameter;
    const char *method;
    const char *text;
};

TEST_F(RaiseTest, RangeErrorTexts) {
    const RangeCase cases[] = {
        {8, 0, 8, "Bit", "GetBitQVT",
         "The parameter Bit to method GetBitQVT is too big. Range is 0 to 7, but value is 8."},
        {-1, 0, 8, "Bit", "GetBitQVT",
         "The parameter Bit to method GetBitQVT is too small. Range is 0 to 7, but value is -1."},
        {3, 0, 8, "Bit", "GetBitQVT",
         "The parameter Bit to method GetBitQVT is too big. Range is 0 to 7, but value is 3."},
        {5, 0, 0, "offset", nullptr,
         "The parameter offset  is too big. Range is 0 to -1, but value is 5."},
        {5, 0, 4, nullptr, "MidQVT",
         "The parameter ? to method MidQVT is too big. Range is 0 to 3, but value is 5."},
        {INT64_MIN, INT64_MIN + 1, INT64_MAX, "n", "",
         "The parameter n  is too small. Range is -9223372036854775807 to 9223372036854775806, "
         "but value is -9223372036854775808."},
    };
    for (const auto &c : cases) {
        Balanced([&] { RaiseRangeError(c.value, c.minimum, c.limit, c.parameter, c.method); });
        EXPECT_EQ(OneException(), std::string("OutOfBoundsException: ") + c.text);
    }
}

TEST_F(RaiseTest, MessageAndNumberReachTheInstance) {
    Balanced([] { RaiseExceptionNumber("NilObjectException", "Memoryblock is nil?", 0x600, 42); });
    auto raised = simhost::TakeExceptions();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].className, "NilObjectException");
    EXPECT_EQ(raised[0].message, "Memoryblock is nil?");
    EXPECT_EQ(raised[0].errorNumber, 42);
}

TEST_F(RaiseTest, MessageIsAlwaysBuiltAsUTF8) {
    for (uint32_t encoding : {0x600u, 0u, 0x100u}) {
        simhost::ClearCalls();
        RaiseException("RuntimeException", "caf\xC3\xA9", encoding);
        EXPECT_EQ(OneException(), "RuntimeException: caf\xC3\xA9");
        bool builtAsUTF8 = false;
        for (const auto &call : simhost::Calls()) {
            if (call.entry == "REALBuildStringWithEncoding")
                builtAsUTF8 = call.args.find("encoding=134217984") != std::string::npos;
        }
        EXPECT_TRUE(builtAsUTF8) << encoding;
    }
}

TEST_F(RaiseTest, NullOrEmptyMessageRaisesWithNilMessage) {
    for (const char *message : {static_cast<const char *>(nullptr), ""}) {
        Balanced([&] { RaiseException("OutOfBoundsException", message, 0x600); });
        EXPECT_EQ(OneException(), "OutOfBoundsException: <nil>");
    }
}

TEST_F(RaiseTest, UnknownClassFallsBackToRuntimeException) {
    Balanced([] { RaiseException("NoSuchException", "text", 0x600); });
    EXPECT_EQ(OneException(), "RuntimeException: text");
}

TEST_F(RaiseTest, NothingIsRaisedWhenNoClassCanBeMade) {
    hostOptions.missingClasses = {"OutOfBoundsException", "RuntimeException"};
    SetUp();
    Balanced([] { RaiseException("OutOfBoundsException", "text", 0x600); });
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

}  // namespace
}  // namespace qvt

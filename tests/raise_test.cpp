// Raising host exceptions: classes, messages and the range-error texts.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

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

TEST_F(RaiseTest, MessageAsAHostStringStaysTheCallers) {
    REALstring message = simhost::NewString("given");
    Balanced([&] { RaiseExceptionString("OutOfMemoryException", message); });
    EXPECT_EQ(OneException(), "OutOfMemoryException: given");
    Balanced([&] { RaiseExceptionStringNumber("IllegalCastException", message, 9); });
    auto raised = simhost::TakeExceptions();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].message, "given");
    EXPECT_EQ(raised[0].errorNumber, 9);
    Balanced([] { RaiseExceptionString("RuntimeException", nullptr); });
    EXPECT_EQ(OneException(), "RuntimeException: <nil>");
    simhost::Release(message);
}

std::vector<std::string> ArgsOf(std::string_view entry) {
    std::vector<std::string> args;
    for (const auto &call : simhost::Calls()) {
        if (call.entry == entry) args.push_back(call.args);
    }
    return args;
}

std::vector<std::string> Words(const std::string &text) {
    std::vector<std::string> words;
    std::istringstream in(text);
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

TEST_F(RaiseTest, JoinedMessagesGiveBackWhatTheyBuiltWholeFirst) {
    REALstring parts[] = {simhost::NewString("a"), simhost::NewString("b"),
                          simhost::NewString("c")};
    for (bool fromTexts : {false, true}) {
        simhost::ClearCalls();
        Balanced([&] {
            if (fromTexts) {
                RaiseExceptionTexts("OutOfBoundsException", "x", "y", "z", hostabi::kEncodingUTF8);
            } else {
                RaiseExceptionStrings("OutOfBoundsException", parts[0], parts[1], parts[2]);
            }
        });
        EXPECT_EQ(OneException(),
                  fromTexts ? "OutOfBoundsException: xyz" : "OutOfBoundsException: abc");
        // The joins name every string: (first, second), then (first two, third).
        auto joins = ArgsOf("RuntimeAddString");
        ASSERT_EQ(joins.size(), 2u);
        auto inner = Words(joins[0]);
        auto outer = Words(joins[1]);
        std::string whole = Words(ArgsOf("REALSetPropValueString").at(0)).back();
        whole = whole.substr(whole.find('=') + 1);
        std::vector<std::string> expected = {whole, outer[0]};
        if (fromTexts) expected.insert(expected.end(), {inner[0], inner[1], outer[1]});
        EXPECT_EQ(ArgsOf("REALUnlockString"), expected);
    }
    for (REALstring part : parts) simhost::Release(part);
}

TEST_F(RaiseTest, OneLineFormsRaiseTheirClass) {
    const std::pair<const ClassRaiser *, const char *> raisers[] = {
        {&RaiseNilObjectException, "NilObjectException"},
        {&RaiseOutOfBoundsException, "OutOfBoundsException"},
        {&RaiseOutOfMemoryException, "OutOfMemoryException"},
        {&RaiseUnsupportedOperationException, "UnsupportedOperationException"},
        {&RaiseRuntimeException, "RuntimeException"},
        {&RaiseIllegalCastException, "IllegalCastException"},
    };
    for (const auto &raiser : raisers) {
        Balanced([&] { (*raiser.first)("m\xC3\xA9"); });
        EXPECT_EQ(OneException(), std::string(raiser.second) + ": m\xC3\xA9");
    }
    REALstring message = simhost::NewString("host");
    Balanced([&] {
        RaiseUnsupportedOperationException("text", 3);
        RaiseUnsupportedOperationException(message, 4);
    });
    auto raised = simhost::TakeExceptions();
    ASSERT_EQ(raised.size(), 2u);
    EXPECT_EQ(raised[0].className, "UnsupportedOperationException");
    EXPECT_EQ(raised[0].message, "text");
    EXPECT_EQ(raised[0].errorNumber, 3);
    EXPECT_EQ(raised[1].message, "host");
    EXPECT_EQ(raised[1].errorNumber, 4);
    simhost::Release(message);
}

}  // namespace
}  // namespace qvt

// Thrown failures turned into host exceptions, and the guard around the
// routine that builds every host string.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/strings.h"
#include "hostvalues/translate.h"
#include "shell/entry.h"

namespace qvt {
namespace {

class TranslateTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
};

template <typename Base>
struct WithText : Base {
    explicit WithText(const char *own) : Base(), own_(own) {}
    const char *what() const noexcept override { return own_; }
    const char *own_;
};

struct DerivedOverflow : std::overflow_error {
    using std::overflow_error::overflow_error;
};

struct Polymorphic {
    virtual ~Polymorphic() = default;
};
struct Other : Polymorphic {};

void FailACast() {
    Polymorphic base;
    Polymorphic &ref = base;
    (void)dynamic_cast<Other &>(ref);
}

struct TranslateCase {
    std::function<void()> fail;
    const char *raised;
};

TEST_F(TranslateTest, EachFailureRaisesItsClassAndText) {
    const TranslateCase cases[] = {
        {[] { throw WithText<std::bad_alloc>("bad allocation"); },
         "OutOfMemoryException: Failed to allocate memory: bad allocation"},
        {[] { throw WithText<std::bad_array_new_length>("n"); },
         "OutOfMemoryException: Failed to allocate memory: n"},
        {[] { throw std::out_of_range("abc"); },
         "OutOfBoundsException: C++ reports range error: abc"},
        {[] { throw std::range_error("r"); }, "OutOfBoundsException: C++ reports range error: r"},
        {[] { throw std::overflow_error("o"); },
         "OutOfBoundsException: C++ reports overflow error: o"},
        {[] { throw std::underflow_error("u"); },
         "OutOfBoundsException: C++ reports underflow error: u"},
        // A class of the caller's, derived from a row's class, takes that row.
        {[] { throw DerivedOverflow(""); },
         "OutOfBoundsException: C++ reports overflow error."},
        {FailACast, "IllegalCastException: C++ Illegal Cast Exception: std::bad_cast"},
        {[] { throw std::length_error("len"); }, "RuntimeException: C++ Exception: len"},
        {[] { throw std::invalid_argument("arg"); }, "RuntimeException: C++ Exception: arg"},
        {[] { throw WithText<std::exception>(""); }, "RuntimeException: C++ Exception."},
        {[] { throw WithText<std::exception>(nullptr); }, "RuntimeException: C++ Exception."},
    };
    gDebugging = true;
    test::StderrCapture output;
    for (const auto &c : cases) {
        try {
            c.fail();
            ADD_FAILURE() << "nothing thrown for " << c.raised;
        } catch (const std::exception &failure) {
            Balanced([&] { TranslateException(failure); });
        }
        EXPECT_EQ(OneException(), c.raised);
    }
    EXPECT_EQ(output.Take(), "");
}

struct GuardCase {
    std::function<void()> fail;
    const char *raised;
    const char *logged;
};

TEST_F(TranslateTest, FailureInsideBuildUnicodeStringGivesNil) {
    const GuardCase cases[] = {
        {[] { throw std::out_of_range("abc"); },
         "OutOfBoundsException: C++ reports range error: abc", ""},
        {[] { throw 7; }, "RuntimeException: Sorry, but there was an unnamed C++ Exception.",
         "QVT Debug: Unnamed C++ Exception.\n"},
    };
    gDebugging = true;
    for (const auto &c : cases) {
        simhost::ThrowOnNextCall("REALBuildStringWithEncoding", c.fail);
        test::StderrCapture output;
        EXPECT_EQ(Balanced([] { return REALBuildUnicodeString("text", 4, 0x8000100); }), nullptr);
        EXPECT_EQ(output.Take(), c.logged);
        EXPECT_EQ(OneException(), c.raised);
    }
}

TEST_F(TranslateTest, NothrowAllocationGivesNullOnFailure) {
    void *memory = NewMemoryNothrow(64);
    ASSERT_NE(memory, nullptr);
    ::operator delete(memory);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's operator new ends the process instead of throwing";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    GTEST_SKIP() << "a sanitizer's operator new ends the process instead of throwing";
#endif
#endif
    EXPECT_EQ(NewMemoryNothrow(SIZE_MAX), nullptr);
}

}  // namespace
}  // namespace qvt

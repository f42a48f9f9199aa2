// A fresh simulated host for each test, and the checks every test shares:
// no reference fault, and references balanced around each call.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "hostvalues/allocation_seam.h"
#include "simhost/platform.h"
#include "simhost/simhost.h"

namespace qvt::test {

// A fenced run fences the plug-in's own allocations too: a MemoryBlockQVT's
// memory, work buffers and copies. Set before main, so before the first.
inline constexpr seams::Allocator kFencedAllocator{&simhost::AllocateFenced, &simhost::FreeFenced,
                                                   &simhost::ReallocateFenced};
inline const bool gFencedAllocations = [] {
    if (simhost::FencedBlocks()) seams::gAllocator.store(&kFencedAllocator);
    return true;
}();

// Fences the plug-in's allocations for a scope in any run, for calls that
// give back all they allocate before the scope ends: a buffer sized one unit
// short then faults at once.
class FencedPluginMemory {
public:
    FencedPluginMemory() : was_(seams::gAllocator.exchange(&kFencedAllocator)) {}
    ~FencedPluginMemory() { seams::gAllocator.store(was_); }
    FencedPluginMemory(const FencedPluginMemory &) = delete;
    FencedPluginMemory &operator=(const FencedPluginMemory &) = delete;

private:
    const seams::Allocator *was_;
};

class HostTest : public ::testing::Test {
protected:
    void SetUp() override { simhost::Reset(options()); }
    void TearDown() override { EXPECT_EQ(simhost::Faults(), std::vector<std::string>{}); }

    virtual simhost::Options options() const { return {}; }

    // Runs `call` and checks that it left every reference as it found it,
    // but for the one a returned object or string carries for the caller.
    template <typename Call>
    auto Balanced(Call &&call) {
        const simhost::Snapshot before = simhost::TakeSnapshot();
        using Result = decltype(call());
        if constexpr (std::is_void_v<Result>) {
            call();
            EXPECT_EQ(simhost::CompareSnapshot(before), "");
        } else {
            Result result = call();
            std::vector<REALobject> objects;
            std::vector<REALstring> strings;
            if constexpr (std::is_same_v<Result, REALobject>) {
                if (result) objects.push_back(result);
            } else if constexpr (std::is_same_v<Result, REALstring>) {
                if (result) strings.push_back(result);
            }
            EXPECT_EQ(simhost::CompareSnapshot(before, objects, strings), "");
            return result;
        }
    }

    // The one exception the last call raised, as "Class: message".
    static std::string OneException() {
        auto raised = simhost::TakeExceptions();
        if (raised.size() != 1) return "raised " + std::to_string(raised.size()) + " exceptions";
        return raised[0].className + ": " + raised[0].message.value_or("<nil>");
    }
};

// A pointer as the platform's printf writes %p: "(nil)" for null with glibc,
// zero digits with Windows' runtime.
inline std::string PointerText(const void *p) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

// Captures what the plug-in writes to the debugger channel.
class StderrCapture {
public:
#if defined(_WIN32)
    StderrCapture() { simhost::platform::StartDebuggerCapture(); }
    std::string Take() { return simhost::platform::TakeDebuggerCapture(); }
#else
    StderrCapture() { ::testing::internal::CaptureStderr(); }
    std::string Take() { return ::testing::internal::GetCapturedStderr(); }
#endif
};

}  // namespace qvt::test

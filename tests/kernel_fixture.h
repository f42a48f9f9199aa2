// A host for the in-place kernels, and reading a block's bytes back.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <numeric>
#include <random>
#include <string_view>
#include <vector>

#include "host_fixture.h"
#include "shell/entry.h"

namespace qvt::test {

using Bytes = std::vector<uint8_t>;

// count bytes rising from `first`.
inline Bytes Counting(std::size_t count, uint8_t first = 1) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

// A declaration and the function the host must find under it.
struct RegisteredRow {
    const char *declaration;
    REALproc function;
};

// Loads the plug-in and finds each row's function under its declaration.
inline void ExpectRegistered(std::initializer_list<RegisteredRow> rows,
                             std::string_view receiverClass = "MemoryBlock") {
    REALPluginMain(&simhost::Resolve);
    for (const auto &row : rows) {
        auto method = simhost::FindMethod(row.declaration, receiverClass);
        ASSERT_TRUE(method.has_value()) << row.declaration;
        EXPECT_EQ(method->function, row.function) << row.declaration;
    }
}

inline Bytes RandomBytes(std::size_t count, std::mt19937 &random) {
    Bytes bytes(count);
    for (auto &b : bytes) b = static_cast<uint8_t>(random());
    return bytes;
}

class KernelTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
    }
    static Bytes Contents(REALobject block) {
        auto bytes = simhost::Bytes(block);
        return Bytes(bytes.begin(), bytes.end());
    }
    // Runs `call` balanced on a block holding `before` and gives back its bytes.
    template <typename Call>
    Bytes After(const Bytes &before, Call call) {
        REALobject block = simhost::NewBlock(before);
        Balanced([&] { call(block); });
        Bytes after = Contents(block);
        simhost::Release(block);
        return after;
    }
};

// For loops of many calls: the host keeps no call log.
class QuietKernelTest : public KernelTest {
protected:
    simhost::Options options() const override {
        simhost::Options o;
        o.logCalls = false;
        return o;
    }
};

}  // namespace qvt::test

// A host for the in-place kernels, and reading a block's bytes back.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "host_fixture.h"
#include "shell/entry.h"

namespace qvt::test {

using Bytes = std::vector<uint8_t>;

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

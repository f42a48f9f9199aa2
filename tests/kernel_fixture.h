// A host for the in-place kernels, and reading a block's bytes back.
#pragma once

#include <cstdint>
#include <vector>

#include "host_fixture.h"
#include "shell/entry.h"

namespace qvt::test {

using Bytes = std::vector<uint8_t>;

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

// Eight threads call methods on blocks of their own, all starting at once
// before any binding is resolved, so that every first use races: the entry
// slots, the second resolver, the block members loaded once, the cached LenB
// and the debug flag. Meant to run under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/block_members.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kThreads = 8;
constexpr int kRounds = 25;
constexpr const char *kOwnedClass = "MemoryBlockQVT";
const std::string kRangeError =
    "The parameter Bit to method GetBitQVT is too big. Range is 0 to 79, but value is 80.";

template <typename R, typename... A>
R Invoke(REALproc function, A... args) {
    return reinterpret_cast<R (*)(A...)>(function)(args...);
}

REALproc Method(const char *declaration, const char *receiver = "MemoryBlock") {
    auto method = simhost::FindMethod(declaration, receiver);
    return method ? method->function : nullptr;
}

Bytes Contents(REALobject block) {
    auto bytes = simhost::Bytes(block);
    return Bytes(bytes.begin(), bytes.end());
}

struct Methods {
    REALproc setBit = Method("SetBitQVT(Bit as UInt64)");
    REALproc getBit = Method("GetBitQVT(Bit as UInt64) as Integer");
    REALproc fill = Method("FillBytesQVT(offset as integer, count as integer, value as integer)");
    REALproc left = Method("LeftQVT(length as integer) as Memoryblock");
    REALproc append = Method("AppendQVT(other as Memoryblock) as Memoryblock");
    REALproc exclusiveOr =
        Method("BitwiseXOrQVT(Second as MemoryBlock, Dest as MemoryBlock = nil) as MemoryBlock");
    REALproc setString = Method("SetStringQVT(str as String, offset as Integer)");
    REALproc findString = Method(
        "FindStringQVT(srcOfs as Integer, maxBytes as Integer, target as String) as Integer");
    REALproc osType = Method("OSTypeQVT(offset as Integer) as String");
    REALproc construct = Method("Constructor(Size as Int64)", kOwnedClass);
    REALproc memory = simhost::FindProperty("Memory", kOwnedClass)->getter;
};

// One round on a thread's own blocks; every mismatch is a line in `errors`.
void Round(const Methods &m, int thread, int round, std::vector<std::string> &errors) {
    auto expect = [&](bool ok, const char *what) {
        if (!ok) errors.push_back(std::string(what) + " in round " + std::to_string(round));
    };
    using O = REALobject;
    using I = intptr_t;
    const auto mark = static_cast<uint8_t>(thread + 1);
    O block = simhost::NewBlock(Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9});

    Invoke<void, O, uint64_t>(m.setBit, block, 0);
    expect(Invoke<I, O, uint64_t>(m.getBit, block, 0) == 1, "GetBitQVT");
    Invoke<void, O, I, I, I>(m.fill, block, 2, 3, mark);
    O left = Invoke<O, O, I>(m.left, block, 3);
    expect(Contents(left) == Bytes{0x80, 1, mark}, "LeftQVT");
    O joined = Invoke<O, O, O>(m.append, left, block);
    expect(Contents(joined).size() == 13, "AppendQVT");
    O zeros = Invoke<O, O, O, O>(m.exclusiveOr, block, block, nullptr);
    expect(Contents(zeros) == Bytes(10, 0), "BitwiseXOrQVT");

    REALstring text = simhost::NewString("xyz");
    Invoke<void, O, REALstring, I>(m.setString, block, text, 5);
    expect(Invoke<I, O, I, I, REALstring>(m.findString, block, 0, 10, text) == 5, "FindStringQVT");
    REALstring code = Invoke<REALstring, O, I>(m.osType, block, 4);
    expect(simhost::StringBytes(code).size() == 4, "OSTypeQVT");
    expect(Invoke<I, O, uint64_t>(m.getBit, block, 80) == 0, "GetBitQVT out of range");

    O instance = simhost::NewInstance(kOwnedClass);
    Invoke<void, O, int64_t>(m.construct, instance, 16);
    O view = Invoke<O, O, intptr_t>(m.memory, instance, 0);
    expect(view != nullptr, "Memory");
    expect(host::REALCountClassProperties(instance) == 3, "REALCountClassProperties");
    const char *name = nullptr;
    const char *type = nullptr;
    REALproc getter = nullptr, setter = nullptr;
    host::REALGetClassProperty(instance, RBInteger{0}, &name, &type, &getter, &setter);
    expect(name != nullptr && std::strcmp(name, "Address") == 0, "REALGetClassProperty");

    O made = NewBlockByConstructor(8);
    expect(Contents(made).size() == 8, "NewBlockByConstructor");
    void *address = GetBlockPtrByConversion(made);
    expect(address == simhost::Bytes(made).data(), "GetBlockPtrByConversion");
    O wrapped = WrapPtrByConversion(address);
    expect(wrapped != nullptr, "WrapPtrByConversion");

    DebuggingSetter(nullptr, 0, (thread + round) % 2);
    static_cast<void>(DebuggingGetter(nullptr, 0));

    for (O o : {block, left, joined, zeros, view, instance, made, wrapped}) simhost::Release(o);
    simhost::Release(text);
    simhost::Release(code);
}

class ConcurrencyTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        REALPluginMain(&simhost::Resolve);
    }
    void TearDown() override {
        gDebugging.store(false);
        HostTest::TearDown();
    }


    // Runs `rounds` on every thread at once, `extra` after each round; each
    // thread's mismatches are a line in its list. Then checks what every
    // run must leave: one whole raise per round and references as before.
    template <typename Extra>
    void RunRounds(Extra extra) {
        const Methods methods;
        const simhost::Snapshot before = simhost::TakeSnapshot();
        std::vector<std::vector<std::string>> errors(kThreads);
        {
            // With the flag on, the methods log; the lines are not looked at here.
            test::StderrCapture quiet;
            std::latch start(kThreads);
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([&, t] {
                    start.arrive_and_wait();
                    for (int r = 0; r < kRounds; ++r) {
                        Round(methods, t, r, errors[t]);
                        extra(methods, errors[t]);
                    }
                });
            }
            for (auto &thread : threads) thread.join();
            gDebugging.store(false);
            quiet.Take();
        }
        for (int t = 0; t < kThreads; ++t) EXPECT_EQ(errors[t], std::vector<std::string>{}) << t;

        // Every thread's raise arrives whole, and nothing else was raised.
        auto raised = simhost::TakeExceptions();
        EXPECT_EQ(raised.size(), std::size_t{kThreads * kRounds});
        for (const auto &e : raised) {
            EXPECT_EQ(e.className + ": " + e.message.value_or("<nil>"),
                      "OutOfBoundsException: " + kRangeError);
        }
        EXPECT_EQ(simhost::CompareSnapshot(before), "");
    }
};

TEST_F(ConcurrencyTest, ThreadsRaceOnEveryFirstUse) {
    RunRounds([](const Methods &, std::vector<std::string> &) {});

    // What is guarded once was fetched once: the second resolver by each of
    // the two class-property operations, each member by its declaration.
    auto log = simhost::ResolverLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "GetRBScriptResolver"), 2);
    auto calls = simhost::Calls();
    for (const char *member : {"Constructor(bytes as Integer)", "Operator_Convert(value as Ptr)"}) {
        EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                                [&](const simhost::Call &c) {
                                    return c.entry == "REALLoadObjectMethod" &&
                                           c.args.find(member) != std::string::npos;
                                }),
                  1)
            << member;
    }
}

// Unlogged, the host answers block pointers, sizes and references without its
// lock: threads that share a block and a string must leave both as they were.
class UnloggedConcurrencyTest : public ConcurrencyTest {
protected:
    simhost::Options options() const override {
        simhost::Options o;
        o.logCalls = false;
        return o;
    }
};

TEST_F(UnloggedConcurrencyTest, SharedValuesKeepExactCounts) {
    static REALobject shared;
    static REALstring text;
    shared = simhost::NewBlock(Bytes(16, 0xFF));
    text = simhost::NewString("shared");
    RunRounds([](const Methods &m, std::vector<std::string> &errors) {
        for (uint64_t bit = 0; bit < 128; ++bit) {
            host::REALLockString(text);
            if (Invoke<intptr_t, REALobject, uint64_t>(m.getBit, shared, bit) != 1) errors.push_back("shared bit");
            host::REALUnlockString(text);
        }
    });
    EXPECT_EQ(simhost::RefCount(shared), 1);
    EXPECT_EQ(simhost::RefCount(text), 1);
    simhost::Release(shared);
    simhost::Release(text);
}

}  // namespace
}  // namespace qvt

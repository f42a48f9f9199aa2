// The search and compare methods on blocks of the simulated host: their
// results and exceptions, reads that stop at the end of the memory, and the
// fast paths against plain byte loops.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#include <unistd.h>
#define QVT_FENCED_PAGES 1
#endif

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "hostvalues/arrays.h"
#include "memory/search.h"
#include "shell/binding.h"
#include "shell/entry.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Of(std::string_view text) { return Bytes(text.begin(), text.end()); }

class SearchTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        gHostVersion = 2013.04;
        gArrayTested = false;
        gArrayDirect = false;
        abc = simhost::NewBlock(Of("ABCABC"));
    }
    void TearDown() override {
        simhost::Release(abc);
        HostTest::TearDown();
    }
    REALobject abc = nullptr;
};

TEST_F(SearchTest, TrustingSearchesReportPositionsFromTheBlockStart) {
    using Find = intptr_t (*)(REALobject, intptr_t, intptr_t, intptr_t);
    const Find byte = &FindByteQVT, other = &FindNotByteQVT;
    REALobject none = simhost::NewMemorylessBlock();
    const struct {
        Find find;
        REALobject block;
        intptr_t srcOfs, numBytes, value, expected;
    } cases[] = {
        {byte, abc, 0, 6, 67, 2}, {byte, abc, 3, 2, 67, -1}, {byte, abc, 0, 0, 65, -1}, {byte, abc, 0, -1, 65, -1}, {byte, abc, 0, 6, 321, 0},
        {byte, abc, 5, 1, 67, 5}, {other, abc, 3, 3, 65, 4}, {other, abc, 0, 1, 65, -1}, {other, abc, 0, 0, 66, -1}, {other, abc, 0, 6, 0x141, 1},
        {byte, nullptr, 0, 1, 0, -1}, {other, nullptr, 0, 1, 1, -1}, {byte, none, 0, 1, 0, -1}, {other, none, 0, 1, 1, -1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced([&] { return c.find(c.block, c.srcOfs, c.numBytes, c.value); }), c.expected)
            << c.block << ", " << c.srcOfs << ", " << c.numBytes << ", " << c.value;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(none);
}

TEST_F(SearchTest, FindStringClipsToTheBlockAndCodesBadArguments) {
    REALobject none = simhost::NewMemorylessBlock();
    const struct {
        REALobject block;
        intptr_t srcOfs, maxBytes;
        const char *target;
        intptr_t expected;
    } cases[] = {
        {abc, 0, 0, "CA", 2}, {abc, 3, 0, "AB", 3}, {abc, 4, 0, "AB", -1}, {abc, 0, 3, "ABC", 0}, {abc, 0, 2, "ABC", -1},
        {abc, 5, 0, "CX", -1}, {abc, 0, 100, "C", 2}, {abc, 1, 0, "BCAB", 1}, {abc, 0, 0, "ABCABC", 0}, {abc, 0, 0, "ABCABCA", -1},
        {abc, 6, 0, "A", -2}, {abc, -1, 0, "A", -2}, {abc, 0, -1, "A", -2}, {abc, 0, 0, "", -2}, {abc, 0, 0, nullptr, -2},
        {nullptr, 0, 5, "A", -2}, {none, 0, 5, "A", -2},
    };
    for (const auto &c : cases) {
        REALstring target = c.target ? simhost::NewString(c.target) : nullptr;
        EXPECT_EQ(Balanced([&] { return FindStringQVT(c.block, c.srcOfs, c.maxBytes, target); }), c.expected)
            << c.block << ", " << c.srcOfs << ", " << c.maxBytes << ", " << (c.target ? c.target : "nil");
        if (target) simhost::Release(target);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(none);
}

TEST_F(SearchTest, FindBytesTakesTheRestOfTheTargetForLengthZero) {
    REALobject xCAy = simhost::NewBlock(Of("xCAy"));
    REALobject xBCA = simhost::NewBlock(Of("xBCA"));
    uint8_t foreignBytes[] = {'C', 'A'};
    REALobject foreign = simhost::NewForeignBlock(foreignBytes);
    const struct {
        REALobject target;
        intptr_t srcOfs, maxBytes, targOfs, targLen, expected;
    } cases[] = {
        {xCAy, 0, 0, 1, 0, -1}, {xCAy, 0, 0, 1, 2, 2}, {xBCA, 1, 0, 2, 0, 2}, {xCAy, 0, 0, 4, 1, -2},
        {xCAy, 0, 0, -1, 1, -2}, {xCAy, 0, 0, 4, 0, -2}, {nullptr, 0, 0, 0, 1, -2},
        {foreign, 0, 0, 0, 2, -2}, {foreign, 0, 0, 0, 0, -2},  // unknown size: never searched
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced([&] {
                      return FindBytesQVT(abc, c.srcOfs, c.maxBytes, c.target, c.targOfs, c.targLen);
                  }),
                  c.expected)
            << c.srcOfs << ", " << c.targOfs << ", " << c.targLen;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    for (REALobject block : {xCAy, xBCA, foreign}) simhost::Release(block);
}

TEST_F(SearchTest, BytesEqualAndBytesZero) {
    REALobject other = simhost::NewBlock(1);
    REALobject memoryless = simhost::NewMemorylessBlock();
    REALobject zeroNine = simhost::NewBlock(Bytes{0, 0, 9});
    const struct {
        std::function<bool()> call;
        bool expected;
    } cases[] = {
        {[&] { return BytesEqualQVT(abc, 0, 3, abc, 3); }, true}, {[&] { return BytesEqualQVT(abc, 0, 4, abc, 2); }, false},
        {[&] { return BytesEqualQVT(abc, 0, 0, other, 0); }, true}, {[&] { return BytesEqualQVT(abc, 0, 1, nullptr, 0); }, false},
        {[&] { return BytesEqualQVT(nullptr, 0, 0, abc, 0); }, false}, {[&] { return BytesEqualQVT(abc, 0, 0, memoryless, 0); }, false},
        {[&] { return BytesEqualQVT(abc, 0, -1, abc, 0); }, false}, {[&] { return BytesZeroQVT(zeroNine, 1, 1); }, true},
        {[&] { return BytesZeroQVT(zeroNine, 1, 2); }, false}, {[&] { return BytesZeroQVT(zeroNine, 3, 0); }, true},
        {[&] { return BytesZeroQVT(nullptr, -1, -1); }, false}, {[&] { return BytesZeroQVT(memoryless, 0, 1); }, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(Balanced(cases[i].call), cases[i].expected) << "case " << i;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());

    const std::tuple<intptr_t, intptr_t, std::string> raising[] = {
        {-1, 1, "source offset < 0"}, {-1, -1, "source offset < 0"}, {0, -1, "length < 0"}};
    for (const auto &[srcOfs, numBytes, message] : raising) {
        EXPECT_FALSE(BytesZeroQVT(zeroNine, srcOfs, numBytes));
        EXPECT_EQ(OneException(), "OutOfBoundsException: " + message);
    }
    for (REALobject block : {other, memoryless, zeroNine}) simhost::Release(block);
}

struct ValuesCase {
    REALobject block;
    Bytes values;
    intptr_t offset;
    intptr_t expected;
    const char *exception;  // "" for none
};

REALarray ArrayOf(const Bytes &values) {
    return simhost::NewArray(simhost::kArrayUInt8, std::vector<int64_t>(values.begin(), values.end()));
}

void CheckFindByteWithValues(const ValuesCase &c, bool nilValues = false) {
    REALarray values = nilValues ? nullptr : ArrayOf(c.values);
    const simhost::Snapshot before = simhost::TakeSnapshot();
    EXPECT_EQ(FindByteQVT(c.block, values, c.offset), c.expected) << "offset " << c.offset;
    EXPECT_EQ(simhost::CompareSnapshot(before), "");
    auto raised = simhost::TakeExceptions();
    if (*c.exception) {
        ASSERT_EQ(raised.size(), 1u) << c.exception;
        EXPECT_EQ(raised[0].className + ": " + raised[0].message.value_or("<nil>"), c.exception);
    } else {
        EXPECT_TRUE(raised.empty()) << raised.size();
    }
    if (values) simhost::Release(values);
}

TEST_F(SearchTest, FindByteWithValuesFindsTheEarliestPosition) {
    REALobject empty = simhost::NewBlock(0);
    uint8_t foreignBytes[8] = {};
    REALobject foreign = simhost::NewForeignBlock(foreignBytes);
    REALobject memoryless = simhost::NewMemorylessBlock();
    const char *const tooBig6 = "OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 to 5, but value is 6.";
    const char *const unknownSize = "OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 to -1, but value is 0.";
    const ValuesCase cases[] = {
        {abc, {65, 67}, 1, 2, ""}, {abc, {67}, 3, 5, ""}, {abc, {90, 91}, 0, -1, ""}, {abc, {}, 0, -1, ""},
        {abc, {65}, 6, 0, tooBig6}, {abc, {}, 6, 0, tooBig6}, {empty, {65}, 0, 0, unknownSize}, {foreign, {0}, 0, 0, unknownSize},
        {abc, {65}, -1, 0, "OutOfBoundsException: The parameter offset to method FindByteQVT is too small. Range is 0 to 5, but value is -1."},
        {nullptr, {65}, 0, -1, "NilObjectException: Memoryblock is nil?"}, {memoryless, {65}, 0, -1, "NilObjectException: Memoryblock is nil?"},
    };
    for (const ValuesCase &c : cases) CheckFindByteWithValues(c);
    CheckFindByteWithValues({abc, {}, 0, 0, "NilObjectException: values array is nil"}, true);
    for (REALobject block : {empty, foreign, memoryless}) simhost::Release(block);
}

class BrokenHeaderSearchTest : public SearchTest {
protected:
    simhost::Options options() const override { simhost::Options o; o.oldArrayHeader = true; return o; }
};

TEST_F(BrokenHeaderSearchTest, FindByteWithValuesNeedsTheDirectWay) {
    CheckFindByteWithValues({abc, {65}, 0, 0, "NilObjectException: values array is nil"});
    CheckFindByteWithValues({abc, {}, 0, -1, ""});
    EXPECT_TRUE(gArrayTested);
    EXPECT_FALSE(gArrayDirect);
}

// ---- Reads stop at the end of the memory ----------------------------------

#ifdef QVT_FENCED_PAGES
// Blocks over fenced bytes report the size of the bytes, so that the
// methods that clip to a block's size can be run over them.
std::vector<std::pair<REALobject, RBInteger>> gFencedSizes;

RBInteger SizeOfFenced(REALobject block) {
    for (const auto &[fenced, size] : gFencedSizes) {
        if (fenced == block) return size;
    }
    return reinterpret_cast<RBInteger (*)(REALobject)>(simhost::Resolve("memoryBlockGetSize"))(block);
}

void *ResolveFencedSizes(const char *name) {
    if (std::strcmp(name, "memoryBlockGetSize") == 0) return reinterpret_cast<void *>(&SizeOfFenced);
    return simhost::Resolve(name);
}

// A foreign block whose bytes end where an inaccessible page begins, so a
// read past them faults.
struct FencedBlock {
    explicit FencedBlock(std::string_view contents) {
        base = static_cast<uint8_t *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(static_cast<void *>(base), MAP_FAILED);
        EXPECT_EQ(mprotect(base + page, page, PROT_NONE), 0);
        uint8_t *bytes = base + page - contents.size();
        std::memcpy(bytes, contents.data(), contents.size());
        block = simhost::NewForeignBlock(bytes);
        gFencedSizes.emplace_back(block, static_cast<RBInteger>(contents.size()));
    }
    ~FencedBlock() {
        simhost::Release(block);
        munmap(base, 2 * page);
    }
    FencedBlock(const FencedBlock &) = delete;
    FencedBlock &operator=(const FencedBlock &) = delete;

    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    uint8_t *base = nullptr;
    REALobject block = nullptr;
};

TEST_F(SearchTest, SearchesReadNothingPastTheirCountOrTheBlock) {
    gResolver = &ResolveFencedSizes;
    // The binding keeps the first entry it finds for the process.
    if (host::memoryBlockGetSize.Find() != &SizeOfFenced) GTEST_SKIP() << "needs its own process";
    gFencedSizes.clear();
    for (std::size_t n : {1, 7, 8, 9, 15, 16, 17}) {
        SCOPED_TRACE(n);
        const auto size = static_cast<intptr_t>(n);
        FencedBlock as(std::string(n, 'A')), copy(std::string(n, 'A'));
        FencedBlock zeros(std::string(n, '\0')), lastB(std::string(n - 1, 'A') + "B");
        REALstring bx = simhost::NewString("BX");
        REALstring z = simhost::NewString("Z");
        for (intptr_t start = 0; start < size; ++start) {
            const intptr_t rest = size - start;
            EXPECT_EQ(FindByteQVT(as.block, start, rest, 'Z'), -1);
            EXPECT_EQ(FindNotByteQVT(as.block, start, rest, 'A'), -1);
            EXPECT_TRUE(BytesZeroQVT(zeros.block, start, rest));
            EXPECT_TRUE(BytesEqualQVT(as.block, start, rest, copy.block, start));
            EXPECT_EQ(FindStringQVT(lastB.block, start, 0, bx), -1);
            EXPECT_EQ(FindStringQVT(as.block, start, 1000, z), -1);
            EXPECT_EQ(FindBytesQVT(as.block, start, 0, lastB.block, start, 0), -1);
            EXPECT_EQ(FindBytesQVT(lastB.block, 0, 0, lastB.block, start, 0), start);
            for (const Bytes &values : {Bytes{'Z'}, Bytes{'Z', 'Y'}}) {
                CheckFindByteWithValues({as.block, values, start, -1, ""});
            }
        }
        simhost::Release(bx);
        simhost::Release(z);
    }
    gFencedSizes.clear();
}
#endif

// ---- Fast paths against plain loops ---------------------------------------

// Position of the first match in [first, last), -1 for none.
intptr_t At(const Bytes &b, Bytes::const_iterator found, Bytes::const_iterator last) {
    return found == last ? -1 : found - b.begin();
}

class FastPathTest : public SearchTest {
protected:
    simhost::Options options() const override { simhost::Options o; o.logCalls = false; return o; }
};

// Words are 8 bytes, and starts up to 9 shift them through every alignment.
const std::size_t kSizes[] = {0, 1, 7, 8, 9, 15, 16, 17, 24, 25};

// One odd byte in a run of equal bytes, at every place, for every start and
// count: the word loops and their byte loops must agree with the plain walk.
TEST_F(FastPathTest, ByteRunsAgreeWithThePlainLoop) {
    for (std::size_t n : kSizes) {
        for (std::size_t odd = 0; odd <= n; ++odd) {  // odd == n: none
            Bytes bytes(n, 0);
            if (odd < n) bytes[odd] = 0x80;
            REALobject block = simhost::NewBlock(bytes);
            REALobject same = simhost::NewBlock(Bytes(n, 0));
            const auto size = static_cast<intptr_t>(n);
            for (intptr_t from = 0; from <= std::min<intptr_t>(size, 9); ++from) {
                for (intptr_t count = 0; from + count <= size; ++count) {
                    const auto first = bytes.begin() + from, last = first + count;
                    const intptr_t other =
                        At(bytes, std::find_if(first, last, [](uint8_t b) { return b != 0; }), last);
                    ASSERT_EQ(FindNotByteQVT(block, from, count, 0), other)
                        << n << " " << odd << " " << from << " " << count;
                    ASSERT_EQ(FindByteQVT(block, from, count, 0x80), other);
                    ASSERT_EQ(BytesZeroQVT(block, from, count), other == -1);
                    ASSERT_EQ(BytesEqualQVT(block, from, count, same, from), other == -1);
                    ASSERT_EQ(BytesEqualQVT(same, from, count, block, from), other == -1);
                }
            }
            simhost::Release(block);
            simhost::Release(same);
        }
    }
}

TEST_F(FastPathTest, SearchesAgreeWithThePlainLoop) {
    std::mt19937 random(20250302);
    for (std::size_t n : kSizes) {
        if (n == 0) continue;
        std::uniform_int_distribution<int> letter('A', 'C');
        Bytes bytes(n);
        for (auto &b : bytes) b = static_cast<uint8_t>(letter(random));
        REALobject block = simhost::NewBlock(bytes);
        const auto size = static_cast<intptr_t>(n);

        for (std::size_t round = 0; round < 24; ++round) {  // targets of 1 to 4 bytes
            Bytes target(1 + round % 4);
            for (auto &b : target) b = static_cast<uint8_t>(letter(random));
            REALobject targetBlock = simhost::NewBlock(target);
            REALstring targetString = simhost::NewString(std::string(target.begin(), target.end()));
            for (intptr_t from = 0; from < size; ++from) {
                for (intptr_t maxBytes = 0; from + maxBytes <= size; ++maxBytes) {
                    const auto last = maxBytes == 0 ? bytes.end() : bytes.begin() + from + maxBytes;
                    const intptr_t plain = At(bytes, std::search(bytes.begin() + from, last, target.begin(), target.end()), last);
                    ASSERT_EQ(FindStringQVT(block, from, maxBytes, targetString), plain);
                    ASSERT_EQ(FindBytesQVT(block, from, maxBytes, targetBlock, 0, 0), plain);
                }
            }
            simhost::Release(targetBlock);
            simhost::Release(targetString);
        }

        // Sets of values, the single value going by memchr.
        for (const Bytes &values : {Bytes{'B'}, Bytes{'C', 'A'}, Bytes{'D', 'C', 'C'}}) {
            REALarray array = ArrayOf(values);
            for (intptr_t from = 0; from < size; ++from) {
                ASSERT_EQ(FindByteQVT(block, array, from),
                          At(bytes, std::find_first_of(bytes.begin() + from, bytes.end(), values.begin(), values.end()), bytes.end()));
            }
            simhost::Release(array);
        }
        simhost::Release(block);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

}  // namespace
}  // namespace qvt

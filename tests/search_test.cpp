// The search and compare methods on blocks of the simulated host: their
// results and exceptions, reads that stop at the end of the memory, and the
// fast paths against plain byte loops.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
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
    const struct {
        Find find;
        intptr_t srcOfs, numBytes, value, expected;
    } cases[] = {
        {byte, 0, 6, 67, 2},  {byte, 3, 2, 67, -1},  {byte, 0, 0, 65, -1},  {byte, 0, -1, 65, -1},
        {byte, 0, 6, 321, 0}, {byte, 5, 1, 67, 5},   {other, 3, 3, 65, 4},  {other, 0, 1, 65, -1},
        {other, 0, 0, 66, -1}, {other, 0, 6, 0x141, 1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Balanced([&] { return c.find(abc, c.srcOfs, c.numBytes, c.value); }),
                  c.expected)
            << c.srcOfs << ", " << c.numBytes << ", " << c.value;
    }
    REALobject memoryless = simhost::NewMemorylessBlock();
    for (REALobject block : {static_cast<REALobject>(nullptr), memoryless}) {
        EXPECT_EQ(FindByteQVT(block, 0, 1, 0), -1);
        EXPECT_EQ(FindNotByteQVT(block, 0, 1, 1), -1);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(memoryless);
}

TEST_F(SearchTest, FindStringClipsToTheBlockAndCodesBadArguments) {
    const struct {
        intptr_t srcOfs, maxBytes;
        const char *target;
        intptr_t expected;
    } cases[] = {
        {0, 0, "CA", 2},  {3, 0, "AB", 3},   {4, 0, "AB", -1}, {0, 3, "ABC", 0}, {0, 2, "ABC", -1},
        {5, 0, "CX", -1}, {0, 100, "C", 2},  {1, 0, "BCAB", 1}, {0, 0, "ABCABC", 0},
        {0, 0, "ABCABCA", -1}, {6, 0, "A", -2}, {-1, 0, "A", -2}, {0, -1, "A", -2},
        {0, 0, "", -2},
    };
    for (const auto &c : cases) {
        REALstring target = simhost::NewString(c.target);
        EXPECT_EQ(Balanced([&] { return FindStringQVT(abc, c.srcOfs, c.maxBytes, target); }),
                  c.expected)
            << c.srcOfs << ", " << c.maxBytes << ", " << c.target;
        if (target) simhost::Release(target);
    }
    REALstring a = simhost::NewString("A");
    REALobject memoryless = simhost::NewMemorylessBlock();
    EXPECT_EQ(Balanced([&] { return FindStringQVT(nullptr, 0, 5, a); }), -2);
    EXPECT_EQ(Balanced([&] { return FindStringQVT(memoryless, 0, 5, a); }), -2);
    EXPECT_EQ(FindStringQVT(abc, 0, 0, nullptr), -2);
    EXPECT_TRUE(simhost::TakeExceptions().empty());
    simhost::Release(a);
    simhost::Release(memoryless);
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
        {xCAy, 0, 0, 1, 0, -1},  // CAy
        {xCAy, 0, 0, 1, 2, 2},   // CA
        {xBCA, 1, 0, 2, 0, 2},   // CA from 1
        {xCAy, 0, 0, 4, 1, -2},
        {xCAy, 0, 0, -1, 1, -2},
        {xCAy, 0, 0, 4, 0, -2},
        {nullptr, 0, 0, 0, 1, -2},
        {foreign, 0, 0, 0, 2, -2},  // unknown size: never searched
        {foreign, 0, 0, 0, 0, -2},
    };
    for (const auto &c : cases) {
        auto find = [&] {
            return FindBytesQVT(abc, c.srcOfs, c.maxBytes, c.target, c.targOfs, c.targLen);
        };
        EXPECT_EQ(Balanced(find), c.expected)
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
        {[&] { return BytesEqualQVT(abc, 0, 3, abc, 3); }, true},
        {[&] { return BytesEqualQVT(abc, 0, 4, abc, 2); }, false},
        {[&] { return BytesEqualQVT(abc, 0, 0, other, 0); }, true},
        {[&] { return BytesEqualQVT(abc, 0, 1, nullptr, 0); }, false},
        {[&] { return BytesEqualQVT(nullptr, 0, 0, abc, 0); }, false},
        {[&] { return BytesEqualQVT(abc, 0, 0, memoryless, 0); }, false},
        {[&] { return BytesEqualQVT(abc, 0, -1, abc, 0); }, false},
        {[&] { return BytesZeroQVT(zeroNine, 1, 1); }, true},
        {[&] { return BytesZeroQVT(zeroNine, 0, 2); }, true},
        {[&] { return BytesZeroQVT(zeroNine, 1, 2); }, false},
        {[&] { return BytesZeroQVT(zeroNine, 3, 0); }, true},
        {[&] { return BytesZeroQVT(nullptr, -1, -1); }, false},
        {[&] { return BytesZeroQVT(memoryless, 0, 1); }, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(Balanced(cases[i].call), cases[i].expected) << "case " << i;
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());

    const struct {
        intptr_t srcOfs, numBytes;
        const char *message;
    } raising[] = {
        {-1, 1, "source offset < 0"}, {-1, -1, "source offset < 0"}, {0, -1, "length < 0"}};
    for (const auto &r : raising) {
        EXPECT_FALSE(Balanced([&] { return BytesZeroQVT(zeroNine, r.srcOfs, r.numBytes); }));
        EXPECT_EQ(OneException(), std::string("OutOfBoundsException: ") + r.message);
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

void CheckFindByteWithValues(const ValuesCase &c, bool nilValues = false) {
    REALarray values =
        nilValues ? nullptr
                  : simhost::NewArray(simhost::kArrayUInt8, std::vector<int64_t>(c.values.begin(),
                                                                                  c.values.end()));
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
    const char *const tooBig6 =
        "OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 "
        "to 5, but value is 6.";
    const char *const unknownSize =
        "OutOfBoundsException: The parameter offset to method FindByteQVT is too big. Range is 0 "
        "to -1, but value is 0.";
    const ValuesCase cases[] = {
        {abc, {65, 67}, 1, 2, ""},
        {abc, {67}, 3, 5, ""},
        {abc, {90, 91}, 0, -1, ""},
        {abc, {}, 0, -1, ""},
        {abc, {65}, 6, 0, tooBig6},
        {abc, {}, 6, 0, tooBig6},
        {abc, {65}, -1, 0,
         "OutOfBoundsException: The parameter offset to method FindByteQVT is too small. Range "
         "is 0 to 5, but value is -1."},
        {empty, {65}, 0, 0, unknownSize},
        {foreign, {0}, 0, 0, unknownSize},
        {nullptr, {65}, 0, -1, "NilObjectException: Memoryblock is nil?"},
        {memoryless, {65}, 0, -1, "NilObjectException: Memoryblock is nil?"},
    };
    for (const ValuesCase &c : cases) CheckFindByteWithValues(c);
    CheckFindByteWithValues({abc, {}, 0, 0, "NilObjectException: values array is nil"},
                            true);
    for (REALobject block : {empty, foreign, memoryless}) simhost::Release(block);
}

class BrokenHeaderSearchTest : public SearchTest {
protected:
    simhost::Options options() const override {
        simhost::Options o;
        o.oldArrayHeader = true;
        return o;
    }
};

TEST_F(BrokenHeaderSearchTest, FindByteWithValuesNeedsTheDirectWay) {
    CheckFindByteWithValues({abc, {65}, 0, 0, "NilObjectException: values array is nil"});
    CheckFindByteWithValues({abc, {}, 0, -1, ""});
    EXPECT_TRUE(gArrayTested);
    EXPECT_FALSE(gArrayDirect);
}

// ---- Reads stop at the end of the memory ----------------------------------

// `count` bytes that end where an inaccessible page begins, so a read past
// them faults. Elsewhere, a buffer of exactly that size.
class FencedBytes {
public:
    explicit FencedBytes(std::size_t count) {
#ifdef QVT_FENCED_PAGES
        page_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void *base = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                          -1, 0);
        EXPECT_NE(base, MAP_FAILED);
        base_ = static_cast<uint8_t *>(base);
        EXPECT_EQ(mprotect(base_ + page_, page_, PROT_NONE), 0);
        bytes_ = base_ + page_ - count;
#else
        buffer_.resize(count);
        bytes_ = buffer_.data();
#endif
    }
    ~FencedBytes() {
#ifdef QVT_FENCED_PAGES
        munmap(base_, 2 * page_);
#endif
    }
    FencedBytes(const FencedBytes &) = delete;
    FencedBytes &operator=(const FencedBytes &) = delete;

    uint8_t *data() const { return bytes_; }

private:
#ifdef QVT_FENCED_PAGES
    std::size_t page_ = 0;
    uint8_t *base_ = nullptr;
#else
    std::vector<uint8_t> buffer_;
#endif
    uint8_t *bytes_ = nullptr;
};

// Blocks over fenced bytes report the size of the bytes, so that the
// methods that clip to a block's size can be run over them.
std::vector<std::pair<REALobject, RBInteger>> gFencedSizes;

RBInteger SizeOfFenced(REALobject block) {
    for (const auto &[fenced, size] : gFencedSizes) {
        if (fenced == block) return size;
    }
    auto hostSize = reinterpret_cast<RBInteger (*)(REALobject)>(
        simhost::Resolve("memoryBlockGetSize"));
    return hostSize(block);
}

void *ResolveFencedSizes(const char *name) {
    if (std::strcmp(name, "memoryBlockGetSize") == 0) {
        return reinterpret_cast<void *>(&SizeOfFenced);
    }
    return simhost::Resolve(name);
}

struct FencedBlock {
    FencedBytes bytes;
    REALobject block;

    explicit FencedBlock(std::string_view contents)
        : bytes(contents.size()), block(simhost::NewForeignBlock(bytes.data())) {
        std::memcpy(bytes.data(), contents.data(), contents.size());
        gFencedSizes.emplace_back(block, static_cast<RBInteger>(contents.size()));
    }
    ~FencedBlock() { simhost::Release(block); }
};

TEST_F(SearchTest, SearchesReadNothingPastTheirCountOrTheBlock) {
    gResolver = &ResolveFencedSizes;
    // The binding keeps the first entry it finds for the process.
    if (host::memoryBlockGetSize.Find() != &SizeOfFenced) GTEST_SKIP() << "needs its own process";
    gFencedSizes.clear();
    for (std::size_t n = 1; n <= 20; ++n) {
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

// ---- Fast paths against plain loops ---------------------------------------

intptr_t PlainFind(const Bytes &b, intptr_t from, intptr_t count, uint8_t value, bool equal) {
    for (intptr_t i = from; i < from + count; ++i) {
        if ((b[static_cast<std::size_t>(i)] == value) == equal) return i;
    }
    return -1;
}

class FastPathTest : public SearchTest {
protected:
    simhost::Options options() const override {
        simhost::Options o;
        o.logCalls = false;
        return o;
    }
};

// Words are 8 bytes, and starts up to 9 shift them through every alignment.
const std::size_t kSizes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17,
                              23, 24, 25};

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
                    const intptr_t other = PlainFind(bytes, from, count, 0, false);
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

        for (std::size_t length = 1; length <= 4; ++length) {
            for (int round = 0; round < 6; ++round) {
                Bytes target(length);
                for (auto &b : target) b = static_cast<uint8_t>(letter(random));
                REALobject targetBlock = simhost::NewBlock(target);
                REALstring targetString =
                    simhost::NewString(std::string(target.begin(), target.end()));
                for (intptr_t from = 0; from < size; ++from) {
                    for (intptr_t maxBytes = 0; from + maxBytes <= size; ++maxBytes) {
                        const intptr_t end = maxBytes == 0 ? size : from + maxBytes;
                        intptr_t plain = -1;
                        for (intptr_t p = from; p + static_cast<intptr_t>(length) <= end; ++p) {
                            if (std::equal(target.begin(), target.end(),
                                           bytes.begin() + p)) {
                                plain = p;
                                break;
                            }
                        }
                        ASSERT_EQ(FindStringQVT(block, from, maxBytes, targetString), plain);
                        ASSERT_EQ(FindBytesQVT(block, from, maxBytes, targetBlock, 0, 0), plain);
                    }
                }
                simhost::Release(targetBlock);
                simhost::Release(targetString);
            }
        }

        // Sets of values, the single value going by memchr.
        for (const Bytes &values : {Bytes{'B'}, Bytes{'C', 'A'}, Bytes{'D', 'C', 'C'}}) {
            REALarray array = simhost::NewArray(
                simhost::kArrayUInt8, std::vector<int64_t>(values.begin(), values.end()));
            for (intptr_t from = 0; from < size; ++from) {
                intptr_t plain = -1;
                for (intptr_t p = from; p < size && plain < 0; ++p) {
                    for (uint8_t v : values) {
                        if (bytes[static_cast<std::size_t>(p)] == v) {
                            plain = p;
                            break;
                        }
                    }
                }
                ASSERT_EQ(FindByteQVT(block, array, from), plain);
            }
            simhost::Release(array);
        }
        simhost::Release(block);
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

}  // namespace
}  // namespace qvt

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
#include "memory/scan.h"
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
    for (std::size_t n : {1, 7, 8, 9, 15, 16, 17, 31, 33, 65, 257, 289}) {
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


// ---- The scans on their own --------------------------------------------

// One odd byte, differing from the run in a low or a high bit, at places
// around the word, group, block and vector edges, for starts off any
// alignment, on every instruction set this processor has.
TEST(ScanTest, FirstOtherAgreesWithThePlainLoop) {
    std::vector<std::size_t> sizes;
    for (std::size_t n = 0; n <= 70; ++n) sizes.push_back(n);
    for (std::size_t edge : {128, 256, 288, 320, 512, 544}) {
        for (std::size_t n = edge - 9; n <= edge + 9; n += 3) sizes.push_back(n);
    }
    for (int set = 0; set <= static_cast<int>(scan::WidestInstructionSet()); ++set) {
        for (std::size_t n : sizes) {
            for (const uint8_t value : {0x00, 0xA5}) {
                for (std::size_t odd = 0; odd <= n; ++odd) {  // odd == n: none
                    if (odd >= 70 && n - odd >= 70 && odd % 29 != 0) continue;
                    const auto oddValue = static_cast<uint8_t>(value ^ (odd % 2 ? 0x80 : 0x01));
                    for (const std::size_t start : {0, 1, 7, 33}) {
                        // Bytes around the range differ, so a read past it shows.
                        Bytes bytes(start + n + 8, static_cast<uint8_t>(~value));
                        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(start), n, value);
                        if (odd < n) bytes[start + odd] = oddValue;
                        const auto on = static_cast<scan::InstructionSet>(set);
                        ASSERT_EQ(scan::FirstOther(bytes.data() + start, n, value, on), odd)
                            << set << " " << n << " " << odd << " " << start << " " << int{value};
                    }
                }
            }
        }
    }
}

// Small alphabets give near matches everywhere; periodic needles and runs of
// one byte are the cases Two-Way treats apart, and long runs of late
// failures hand the filter's search over to it midway.
TEST(ScanTest, SubstringSearchesAgreeWithThePlainSearch) {
    using Find = std::function<const uint8_t *(const uint8_t *, std::size_t, const uint8_t *, std::size_t)>;
    // Two-Way alone, then the filter on every instruction set this processor has.
    std::vector<Find> finds = {&scan::FindSubstringTwoWay};
    for (int set = 0; set <= static_cast<int>(scan::WidestInstructionSet()); ++set) {
        finds.push_back([set](const uint8_t *h, std::size_t n, const uint8_t *s, std::size_t m) {
            return scan::FindSubstring(h, n, s, m, static_cast<scan::InstructionSet>(set));
        });
    }
    const auto check = [&](const Bytes &hay, const Bytes &needle, std::size_t start) {
        const auto first = hay.begin() + static_cast<std::ptrdiff_t>(start);
        const intptr_t plain = At(hay, std::search(first, hay.end(), needle.begin(), needle.end()), hay.end());
        for (std::size_t f = 0; f < finds.size(); ++f) {
            const uint8_t *found = finds[f](hay.data() + start, hay.size() - start, needle.data(), needle.size());
            ASSERT_EQ(found ? found - hay.data() : -1, plain)
                << "search " << f << ": " << std::string(needle.begin(), needle.end()) << " in " << hay.size()
                << " from " << start;
        }
    };
    const auto text = [](std::string_view part, std::size_t times, std::string_view tail = "") {
        std::string s;
        for (std::size_t i = 0; i < times; ++i) s += part;
        return Of(s + std::string(tail));
    };
    const Bytes shaped[] = {text("ab", 6), text("aab", 4, "a"), text("a", 9, "b"), text("b", 1, std::string(9, 'a')),
                            text("a", 12), text("abaab", 3), text("a", 70, "b"), text("b", 1, std::string(70, 'a')),
                            text("abc", 3, "abd"), text("zyx", 1, "a")};
    std::mt19937 random(77);
    std::uniform_int_distribution<int> letter('a', 'b');
    const auto randomBytes = [&](std::size_t n) {
        Bytes b(n);
        for (auto &c : b) c = static_cast<uint8_t>(letter(random));
        return b;
    };
    for (std::size_t n : {0, 1, 2, 5, 8, 16, 31, 63, 64, 65, 66, 70, 127, 128, 129, 200, 300}) {
        Bytes hay = randomBytes(n);
        std::vector<Bytes> needles(std::begin(shaped), std::end(shaped));
        for (std::size_t m = 1; m <= 12; ++m) needles.push_back(randomBytes(m));
        // Pieces of the haystack itself, the last ones ending at its end.
        for (std::size_t m : {2, 5, 9, 17}) {
            if (m > n) continue;
            needles.emplace_back(hay.end() - static_cast<std::ptrdiff_t>(m), hay.end());
            const std::size_t at = random() % (n - m + 1);
            needles.emplace_back(hay.begin() + static_cast<std::ptrdiff_t>(at), hay.begin() + static_cast<std::ptrdiff_t>(at + m));
        }
        for (const Bytes &needle : needles) {
            for (std::size_t start : {0, 1, 3}) {
                if (start <= n) check(hay, needle, start);
            }
        }
    }
    // Vectors of 16, 32 and 64 positions: rests of every length behind
    // them, loads from any alignment, and a match in the first vector, at
    // the very end or nowhere.
    std::uniform_int_distribution<int> quad('a', 'd');
    for (std::size_t width : {16, 32, 64}) {
        for (std::size_t positions : {width - 1, width, width + 1, 2 * width - 1, 2 * width, 2 * width + 1, 3 * width + 5}) {
            for (std::size_t m : {2, 3, 9, 33}) {
                Bytes hay(positions + m - 1);
                for (auto &c : hay) c = static_cast<uint8_t>(quad(random));
                const Bytes last(hay.end() - static_cast<std::ptrdiff_t>(m), hay.end());
                const Bytes early(hay.begin() + 5, hay.begin() + 5 + static_cast<std::ptrdiff_t>(m));
                for (std::size_t start = 0; start < 66 && start + m <= hay.size(); ++start) {
                    check(hay, last, start);
                    check(hay, early, start);
                    check(hay, Bytes(m, 'e'), start);
                }
            }
        }
    }
    // A run of 'a' broken every 40 bytes: each candidate for 40 'a' fails
    // late, so the search moves to Two-Way; the run sits before, near or
    // far past that point, or nowhere.
    const Bytes forty(40, 'a');
    for (std::size_t at : {0, 100, 1000, 3000, 5000}) {
        Bytes hay = text(std::string(39, 'a') + "b", 100);
        if (at < hay.size()) std::fill_n(hay.begin() + static_cast<std::ptrdiff_t>(at), 41, 'a');
        check(hay, forty, 0);
        check(hay, text("a", 38, "b"), 7);
    }
    // The needle that makes a plain search quadratic, absent and at the end.
    Bytes run(1 << 16, 'a');
    const Bytes aThenB = text("a", 1000, "b");
    for (const intptr_t expected : {-1, (1 << 16) - 1001}) {
        if (expected >= 0) run.back() = 'b';
        for (const Find &find : finds) {
            const uint8_t *found = find(run.data(), run.size(), aThenB.data(), aThenB.size());
            EXPECT_EQ(found ? found - run.data() : -1, expected);
        }
    }
}

}  // namespace
}  // namespace qvt

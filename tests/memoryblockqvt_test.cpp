// The class MemoryBlockQVT as a host program meets it: instances made by the
// host, members called through what the load registered.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "hostvalues/blocks.h"
#include "memory/memoryblockqvt.h"
#include "shell/definitions.h"

namespace qvt {
namespace {

using Bytes = std::vector<uint8_t>;
using MemoryBlockQVT::Data;

constexpr const char *kClass = "MemoryBlockQVT";
const std::string kNilError = "NilObjectException: Memoryblock is nil";
const std::string kSizeError = "UnsupportedOperationException: Size must be greater than zero.";
const std::string kMemoryError = "OutOfMemoryException: Failed to allocate memory";

namespace M = MemoryBlockQVT;

class MemoryBlockQVTTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        REALPluginMain(&simhost::Resolve);
        instance = simhost::NewInstance(kClass);
        ASSERT_NE(instance, nullptr);
    }

    void TearDown() override {
        // The object's end gives back the memory's host block with it.
        simhost::Release(instance);
        EXPECT_EQ(simhost::LiveObjects(), 0u);
        HostTest::TearDown();
    }

    // The instance data where the host placed it.
    Data State() const {
        Data data;
        std::memcpy(&data, simhost::InstanceData(instance).data(), sizeof data);
        return data;
    }

    Bytes Contents() const {
        const Data data = State();
        const auto *bytes = static_cast<const uint8_t *>(data.address);
        return bytes ? Bytes(bytes, bytes + data.size) : Bytes{};
    }

    // Empty, or holding memory with the one reference to its host block.
    void ExpectConsistent() const {
        const Data data = State();
        if (data.size == 0) {
            EXPECT_TRUE(!data.address && !data.block);
            return;
        }
        ASSERT_TRUE(data.address && data.block);
        EXPECT_EQ(std::pair(simhost::RefCount(data.block), GetBlockPtr(data.block)), std::pair(1L, data.address));
    }

    void Fill(uint8_t first) {
        const Data data = State();
        for (int64_t i = 0; i < data.size; ++i)
            static_cast<uint8_t *>(data.address)[i] = static_cast<uint8_t>(first + i);
    }

    REALobject instance = nullptr;
};

TEST_F(MemoryBlockQVTTest, RegistersTheClassWithCloseAsDestructor) {
    const auto registrations = simhost::Registrations();
    auto at = std::find_if(registrations.begin(), registrations.end(),
                           [](const auto &r) { return r.kind == "Class"; });
    ASSERT_NE(at, registrations.end());
    EXPECT_EQ(at->record, &gMemoryBlockQVTClass);
    const auto info = simhost::Inspect(*at);
    // The data as this build lays it out, rounded up for the host.
    EXPECT_EQ(info.dataSize, (sizeof(Data) + 15) / 16 * 16);
    EXPECT_EQ(info.Count("method"), 9u);
    EXPECT_EQ(info.Count("property"), 3u);
    EXPECT_EQ(gMemoryBlockQVTClass.destructor, QVT_PROC(void(REALobject), M::Close));
    const struct { const char *declaration; REALproc function; } methods[] = {
        {"Resize(Size as Int64) as boolean", QVT_PROC(bool(REALobject, int64_t), M::Resize)},
        {"Create(size as Int64) as boolean", QVT_PROC(bool(REALobject, int64_t), M::Create)},
        {"Constructor", QVT_PROC(void(REALobject), M::Constructor)},
        {"Constructor(Size as Int64)", QVT_PROC(void(REALobject, int64_t), M::Constructor)},
        {"Constructor(Mem as MemoryBlock)", QVT_PROC(void(REALobject, REALobject), M::Constructor)},
        {"Constructor(Mem as MemoryBlock, Size as Int64, Offset as Int64 = 0)",
         QVT_PROC(void(REALobject, REALobject, int64_t, int64_t), M::Constructor)},
        {"Constructor(Str as String)", QVT_PROC(void(REALobject, REALstring), M::Constructor)},
        {"Constructor(Str as String, Size as Int64, Offset as Int64 = 0)",
         QVT_PROC(void(REALobject, REALstring, int64_t, int64_t), M::Constructor)},
    };
    for (const auto &m : methods) {
        auto found = simhost::FindMethod(m.declaration, kClass);
        ASSERT_TRUE(found.has_value()) << m.declaration;
        EXPECT_EQ(found->function, m.function) << m.declaration;
    }
    const struct { const char *name; REALproc getter; } properties[] = {
        {"Address", QVT_PROC(int64_t(REALobject, intptr_t), M::Address)},
        {"Size", QVT_PROC(int64_t(REALobject, intptr_t), M::Size)},
        {"Memory", QVT_PROC(REALobject(REALobject, intptr_t), M::Memory)}};
    for (const auto &p : properties) {
        auto found = simhost::FindProperty(p.name, kClass);
        ASSERT_TRUE(found.has_value()) << p.name;
        EXPECT_EQ(std::pair(found->getter, found->setter), std::pair(p.getter, REALproc{})) << p.name;
    }
}

TEST_F(MemoryBlockQVTTest, ConstructorsCopyOrFailWithTheirOwnError) {
    const uint8_t foreign[] = {9, 8, 7, 6, 5};
    REALobject six = simhost::NewBlock(Bytes{1, 2, 3, 4, 5, 6}), empty = simhost::NewBlock(0), nilBlock = nullptr;
    REALobject memoryless = simhost::NewMemorylessBlock();
    REALobject unknownSize = simhost::NewForeignBlock(const_cast<uint8_t *>(foreign));
    REALstring abc = simhost::NewString("abc"), withZero = simhost::NewString(std::string("a\0b", 3));
    REALstring latin = simhost::NewString("\xE4\xF6", hostabi::kEncodingLatin1), noText = simhost::NewString("");
    REALstring letters = simhost::NewString("abcdef"), nilString = nullptr;

    using Construct = std::function<void(REALobject)>;
    const struct { const char *name; Construct construct; Bytes bytes; std::string error; } cases[] = {
        {"Size 16", [&](REALobject o) { M::Constructor(o, int64_t{16}); }, Bytes(16, 0), ""},
        {"Size 0", [&](REALobject o) { M::Constructor(o, int64_t{0}); }, {}, kSizeError},
        // Too big for the allocator, so the memory error, not the size error.
        {"Size 2^31", [&](REALobject o) { M::Constructor(o, int64_t{0x80000000}); }, {}, kMemoryError},
        {"Mem", [&](REALobject o) { M::Constructor(o, six); }, {1, 2, 3, 4, 5, 6}, ""},
        {"Mem nil", [&](REALobject o) { M::Constructor(o, nilBlock); }, {}, kNilError},
        {"Mem empty", [&](REALobject o) { M::Constructor(o, empty); }, {}, kSizeError},
        {"Mem unknown size", [&](REALobject o) { M::Constructor(o, unknownSize); }, {}, kSizeError},
        {"Mem 3 at 2", [&](REALobject o) { M::Constructor(o, six, 3, 2); }, {3, 4, 5}, ""},
        {"Mem unknown size 3 at 1", [&](REALobject o) { M::Constructor(o, unknownSize, 3, 1); }, {8, 7, 6}, ""},
        {"Mem 0", [&](REALobject o) { M::Constructor(o, six, 0, 0); }, {}, kSizeError},
        {"Mem nil 0", [&](REALobject o) { M::Constructor(o, nilBlock, 0, 0); }, {}, kNilError},
        {"Mem memoryless 3", [&](REALobject o) { M::Constructor(o, memoryless, 3, 0); }, {}, kNilError},
        {"Str", [&](REALobject o) { M::Constructor(o, abc); }, {'a', 'b', 'c'}, ""},
        {"Str zero inside", [&](REALobject o) { M::Constructor(o, withZero); }, {'a', 0, 'b'}, ""},
        {"Str unconverted", [&](REALobject o) { M::Constructor(o, latin); }, {0xE4, 0xF6}, ""},
        {"Str nil", [&](REALobject o) { M::Constructor(o, nilString); }, {}, kNilError},
        {"Str empty", [&](REALobject o) { M::Constructor(o, noText); }, {}, kSizeError},
        {"Str 3 at 2", [&](REALobject o) { M::Constructor(o, letters, 3, 2); }, {'c', 'd', 'e'}, ""},
        {"Str nil 0", [&](REALobject o) { M::Constructor(o, nilString, 0, 0); }, {}, kNilError},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        // Every constructor with arguments starts by giving up what is held.
        ASSERT_TRUE(M::Create(instance, 8));
        const REALobject previous = State().block;
        c.construct(instance);
        EXPECT_EQ(c.error.empty() ? (simhost::TakeExceptions().empty() ? "" : "raised") : OneException(), c.error);
        EXPECT_EQ(Contents(), c.bytes);
        EXPECT_EQ(M::Size(instance, 0), static_cast<int64_t>(c.bytes.size()));
        EXPECT_EQ(simhost::RefCount(previous), 0);
        ExpectConsistent();
    }
    auto last = [](auto value) {
        EXPECT_EQ(simhost::RefCount(value), 1);
        simhost::Release(value);
    };
    for (REALobject block : {six, empty, memoryless, unknownSize}) last(block);
    for (REALstring string : {abc, withZero, latin, noText, letters}) last(string);
    EXPECT_EQ(simhost::OpenStringData(), 0u);
}

TEST_F(MemoryBlockQVTTest, CreateAlwaysGivesUpTheOldMemory) {
    for (const int64_t size : {1LL, 0LL, 0x80000000LL}) {
        SCOPED_TRACE(size);
        ASSERT_TRUE(M::Create(instance, 4));
        Fill(1);
        const Data before = State();
        EXPECT_EQ(M::Create(instance, size), size == 1);
        EXPECT_EQ(simhost::RefCount(before.block), 0);
        EXPECT_EQ(Contents(), Bytes(size == 1 ? 1 : 0, 0));
        ExpectConsistent();
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(MemoryBlockQVTTest, ResizeKeepsTheBytesOrChangesNothing) {
    for (const int64_t size : {32LL, 8LL, 0LL, 0x80000000LL}) {
        SCOPED_TRACE(size);
        const bool resized = size > 0 && size < 0x80000000LL;
        M::Constructor(instance, 16);
        Fill(1);
        const Bytes before = Contents();
        const Data was = State();
        if (resized) {
            EXPECT_TRUE(M::Resize(instance, size));
            // The memory may have moved: a new host block over it, the old one gone.
            EXPECT_NE(State().block, was.block);
            EXPECT_EQ(simhost::RefCount(was.block), 0);
            // Bytes gained are not cleared; only those kept are known.
            const auto kept = static_cast<std::ptrdiff_t>(std::min<int64_t>(size, 16));
            EXPECT_TRUE(std::equal(before.begin(), before.begin() + kept, Contents().begin()));
        } else {
            EXPECT_FALSE(Balanced([&] { return M::Resize(instance, size); }));
            EXPECT_EQ(std::pair(State().address, State().block), std::pair(was.address, was.block));
            EXPECT_EQ(Contents(), before);
        }
        EXPECT_EQ(M::Size(instance, 0), resized ? size : 16);
        ExpectConsistent();
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(MemoryBlockQVTTest, EmptyObjectCannotBeResizedOrClosedIntoTrouble) {
    Balanced([&] { M::Constructor(instance); });
    EXPECT_EQ(Balanced([&] { return std::pair(M::Address(instance, 0), M::Size(instance, 0)); }),
              std::pair(int64_t{0}, int64_t{0}));
    EXPECT_EQ(Balanced([&] { return M::Memory(instance, 0); }), nullptr);
    EXPECT_FALSE(Balanced([&] { return M::Resize(instance, 16); }));
    EXPECT_EQ(State().address, nullptr);
    Balanced([&] { M::Close(instance); });
    ASSERT_TRUE(M::Create(instance, 16));
    const REALobject block = State().block;
    M::Close(instance);
    EXPECT_EQ(simhost::RefCount(block), 0);
    Balanced([&] { M::Close(instance); });
    ExpectConsistent();
    EXPECT_EQ(M::Size(instance, 0), 0);
    // The object's end after an explicit Close runs in TearDown.
}

TEST_F(MemoryBlockQVTTest, PropertiesDescribeTheHeldMemory) {
    M::Constructor(instance, 16);
    const Data data = State();
    EXPECT_EQ(Balanced([&] { return M::Address(instance, 0); }),
              static_cast<int64_t>(reinterpret_cast<intptr_t>(data.address)));
    EXPECT_EQ(Balanced([&] { return M::Size(instance, 0); }), 16);
    // The same host object on each read, each with a reference of its own.
    REALobject first = Balanced([&] { return M::Memory(instance, 0); });
    REALobject second = Balanced([&] { return M::Memory(instance, 0); });
    EXPECT_EQ(std::pair(first, second), std::pair(data.block, data.block));
    EXPECT_EQ(simhost::RefCount(data.block), 3);
    for (REALobject o : {first, second}) simhost::Release(o);
    ExpectConsistent();
}

}  // namespace
}  // namespace qvt

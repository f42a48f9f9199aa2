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

template <typename Function>
Function *Registered(const char *declaration) {
    auto method = simhost::FindMethod(declaration, kClass);
    return method ? reinterpret_cast<Function *>(method->function) : nullptr;
}

template <typename Function>
Function *Getter(const char *property) {
    auto found = simhost::FindProperty(property, kClass);
    return found ? reinterpret_cast<Function *>(found->getter) : nullptr;
}

class MemoryBlockQVTTest : public test::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        REALPluginMain(&simhost::Resolve);
        resize = Registered<bool(REALobject, int64_t)>("Resize(Size as Int64) as boolean");
        close = Registered<void(REALobject)>("Close");
        create = Registered<bool(REALobject, int64_t)>("Create(size as Int64) as boolean");
        construct = Registered<void(REALobject)>("Constructor");
        constructSize = Registered<void(REALobject, int64_t)>("Constructor(Size as Int64)");
        constructMem = Registered<void(REALobject, REALobject)>("Constructor(Mem as MemoryBlock)");
        constructMemRange = Registered<void(REALobject, REALobject, int64_t, int64_t)>(
            "Constructor(Mem as MemoryBlock, Size as Int64, Offset as Int64 = 0)");
        constructStr = Registered<void(REALobject, REALstring)>("Constructor(Str as String)");
        constructStrRange = Registered<void(REALobject, REALstring, int64_t, int64_t)>(
            "Constructor(Str as String, Size as Int64, Offset as Int64 = 0)");
        address = Getter<int64_t(REALobject, intptr_t)>("Address");
        size = Getter<int64_t(REALobject, intptr_t)>("Size");
        memory = Getter<REALobject(REALobject, intptr_t)>("Memory");
        ASSERT_TRUE(resize && close && create && construct && constructSize && constructMem &&
                    constructMemRange && constructStr && constructStrRange && address && size &&
                    memory);
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
    static Data DataOf(REALobject object) {
        Data data;
        std::memcpy(&data, simhost::InstanceData(object).data(), sizeof data);
        return data;
    }
    Data State() const { return DataOf(instance); }

    Bytes Contents() const {
        const Data data = State();
        const auto *bytes = static_cast<const uint8_t *>(data.address);
        return bytes ? Bytes(bytes, bytes + data.size) : Bytes{};
    }

    // Empty, or holding memory with the one reference to its host block.
    void ExpectConsistent() const {
        const Data data = State();
        if (data.size == 0) {
            EXPECT_EQ(data.address, nullptr);
            EXPECT_EQ(data.block, nullptr);
            return;
        }
        ASSERT_NE(data.address, nullptr);
        ASSERT_NE(data.block, nullptr);
        EXPECT_EQ(simhost::RefCount(data.block), 1);
        EXPECT_EQ(GetBlockPtr(data.block), data.address);
    }

    void Fill(uint8_t first) {
        const Data data = State();
        for (int64_t i = 0; i < data.size; ++i)
            static_cast<uint8_t *>(data.address)[i] = static_cast<uint8_t>(first + i);
    }

    bool (*resize)(REALobject, int64_t) = nullptr;
    void (*close)(REALobject) = nullptr;
    bool (*create)(REALobject, int64_t) = nullptr;
    void (*construct)(REALobject) = nullptr;
    void (*constructSize)(REALobject, int64_t) = nullptr;
    void (*constructMem)(REALobject, REALobject) = nullptr;
    void (*constructMemRange)(REALobject, REALobject, int64_t, int64_t) = nullptr;
    void (*constructStr)(REALobject, REALstring) = nullptr;
    void (*constructStrRange)(REALobject, REALstring, int64_t, int64_t) = nullptr;
    int64_t (*address)(REALobject, intptr_t) = nullptr;
    int64_t (*size)(REALobject, intptr_t) = nullptr;
    REALobject (*memory)(REALobject, intptr_t) = nullptr;
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
    EXPECT_EQ(gMemoryBlockQVTClass.destructor, reinterpret_cast<REALproc>(close));
    for (const char *name : {"Address", "Size", "Memory"}) {
        EXPECT_EQ(simhost::FindProperty(name, kClass)->setter, nullptr) << name;
    }
}

TEST_F(MemoryBlockQVTTest, PlainConstructorLeavesTheObjectEmpty) {
    Balanced([&] { construct(instance); });
    EXPECT_EQ(Balanced([&] { return address(instance, 0); }), 0);
    EXPECT_EQ(Balanced([&] { return size(instance, 0); }), 0);
    EXPECT_EQ(Balanced([&] { return memory(instance, 0); }), nullptr);
}

TEST_F(MemoryBlockQVTTest, ConstructorsCopyOrFailWithTheirOwnError) {
    const uint8_t foreign[] = {9, 8, 7, 6, 5};
    REALobject six = simhost::NewBlock(Bytes{1, 2, 3, 4, 5, 6});
    REALobject empty = simhost::NewBlock(0);
    REALobject memoryless = simhost::NewMemorylessBlock();
    REALobject unknownSize = simhost::NewForeignBlock(const_cast<uint8_t *>(foreign));
    REALstring abc = simhost::NewString("abc");
    REALstring withZero = simhost::NewString(std::string("a\0b", 3));
    REALstring latin = simhost::NewString("\xE4\xF6", hostabi::kEncodingLatin1);
    REALstring noText = simhost::NewString("");
    REALstring letters = simhost::NewString("abcdef");
    REALobject nilBlock = nullptr;
    REALstring nilString = nullptr;

    using Construct = std::function<void(REALobject)>;
    const struct {
        const char *name;
        Construct construct;
        Bytes bytes;
        std::string error;
    } cases[] = {
        {"Size 16", [&](REALobject o) { constructSize(o, 16); }, Bytes(16, 0), ""},
        {"Size 0", [&](REALobject o) { constructSize(o, 0); }, {}, kSizeError},
        {"Size -1", [&](REALobject o) { constructSize(o, -1); }, {}, kSizeError},
        // Too big for the allocator, so the memory error, not the size error.
        {"Size 2^31", [&](REALobject o) { constructSize(o, 0x80000000); }, {}, kMemoryError},
        {"Mem", [&](REALobject o) { constructMem(o, six); }, {1, 2, 3, 4, 5, 6}, ""},
        {"Mem nil", [&](REALobject o) { constructMem(o, nilBlock); }, {}, kNilError},
        {"Mem empty", [&](REALobject o) { constructMem(o, empty); }, {}, kSizeError},
        {"Mem memoryless", [&](REALobject o) { constructMem(o, memoryless); }, {}, kSizeError},
        {"Mem unknown size", [&](REALobject o) { constructMem(o, unknownSize); }, {}, kSizeError},
        {"Mem 3 at 2", [&](REALobject o) { constructMemRange(o, six, 3, 2); }, {3, 4, 5}, ""},
        {"Mem 6 at 0", [&](REALobject o) { constructMemRange(o, six, 6, 0); }, {1, 2, 3, 4, 5, 6},
         ""},
        {"Mem unknown size 3 at 1", [&](REALobject o) { constructMemRange(o, unknownSize, 3, 1); },
         {8, 7, 6}, ""},
        {"Mem 0", [&](REALobject o) { constructMemRange(o, six, 0, 0); }, {}, kSizeError},
        {"Mem -1", [&](REALobject o) { constructMemRange(o, six, -1, 0); }, {}, kSizeError},
        {"Mem nil 0", [&](REALobject o) { constructMemRange(o, nilBlock, 0, 0); }, {}, kNilError},
        {"Mem memoryless 3", [&](REALobject o) { constructMemRange(o, memoryless, 3, 0); }, {},
         kNilError},
        {"Mem memoryless 0", [&](REALobject o) { constructMemRange(o, memoryless, 0, 0); }, {},
         kSizeError},
        {"Str", [&](REALobject o) { constructStr(o, abc); }, {'a', 'b', 'c'}, ""},
        {"Str zero inside", [&](REALobject o) { constructStr(o, withZero); }, {'a', 0, 'b'}, ""},
        {"Str unconverted", [&](REALobject o) { constructStr(o, latin); }, {0xE4, 0xF6}, ""},
        {"Str nil", [&](REALobject o) { constructStr(o, nilString); }, {}, kNilError},
        {"Str empty", [&](REALobject o) { constructStr(o, noText); }, {}, kSizeError},
        {"Str 3 at 2", [&](REALobject o) { constructStrRange(o, letters, 3, 2); },
         {'c', 'd', 'e'}, ""},
        {"Str 0", [&](REALobject o) { constructStrRange(o, letters, 0, 0); }, {}, kSizeError},
        {"Str nil 0", [&](REALobject o) { constructStrRange(o, nilString, 0, 0); }, {}, kNilError},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        // Every constructor with arguments starts by giving up what is held.
        ASSERT_TRUE(create(instance, 8));
        const REALobject previous = State().block;
        c.construct(instance);
        if (c.error.empty()) {
            EXPECT_TRUE(simhost::TakeExceptions().empty());
        } else {
            EXPECT_EQ(OneException(), c.error);
        }
        EXPECT_EQ(Contents(), c.bytes);
        EXPECT_EQ(size(instance, 0), static_cast<int64_t>(c.bytes.size()));
        EXPECT_EQ(simhost::RefCount(previous), 0);
        ExpectConsistent();
    }
    for (REALobject block : {six, empty, memoryless, unknownSize}) {
        EXPECT_EQ(simhost::RefCount(block), 1);
        simhost::Release(block);
    }
    for (REALstring string : {abc, withZero, latin, noText, letters}) {
        EXPECT_EQ(simhost::RefCount(string), 1);
        simhost::Release(string);
    }
    EXPECT_EQ(simhost::OpenStringData(), 0u);
}

TEST_F(MemoryBlockQVTTest, CreateAlwaysGivesUpTheOldMemory) {
    const struct {
        int64_t size;
        bool created;
    } cases[] = {{16, true}, {1, true}, {0, false}, {-1, false}, {0x80000000, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.size);
        ASSERT_TRUE(create(instance, 4));
        Fill(1);
        const Data before = State();
        EXPECT_EQ(create(instance, c.size), c.created);
        EXPECT_EQ(simhost::RefCount(before.block), 0);
        EXPECT_EQ(Contents(), c.created ? Bytes(static_cast<std::size_t>(c.size), 0) : Bytes{});
        ExpectConsistent();
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(MemoryBlockQVTTest, ResizeKeepsTheBytesOrChangesNothing) {
    const struct {
        int64_t size;
        bool resized;
    } cases[] = {{32, true}, {8, true}, {16, true}, {0, false}, {-1, false}, {0x80000000, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.size);
        constructSize(instance, 16);
        Fill(1);
        const Bytes before = Contents();
        const Data was = State();
        if (c.resized) {
            EXPECT_TRUE(resize(instance, c.size));
            // The memory may have moved: a new host block over it, the old one gone.
            EXPECT_NE(State().block, was.block);
            EXPECT_EQ(simhost::RefCount(was.block), 0);
            // Bytes gained are not cleared; only those kept are known.
            const auto kept = static_cast<std::ptrdiff_t>(std::min<int64_t>(c.size, 16));
            const Bytes after = Contents();
            EXPECT_EQ(Bytes(after.begin(), after.begin() + kept),
                      Bytes(before.begin(), before.begin() + kept));
        } else {
            EXPECT_FALSE(Balanced([&] { return resize(instance, c.size); }));
            EXPECT_EQ(State().address, was.address);
            EXPECT_EQ(State().block, was.block);
            EXPECT_EQ(Contents(), before);
        }
        EXPECT_EQ(size(instance, 0), c.resized ? c.size : 16);
        ExpectConsistent();
    }
    EXPECT_TRUE(simhost::TakeExceptions().empty());
}

TEST_F(MemoryBlockQVTTest, EmptyObjectCannotBeResizedOrClosedIntoTrouble) {
    EXPECT_FALSE(Balanced([&] { return resize(instance, 16); }));
    EXPECT_EQ(State().address, nullptr);
    Balanced([&] { close(instance); });
    ASSERT_TRUE(create(instance, 16));
    const REALobject block = State().block;
    close(instance);
    EXPECT_EQ(simhost::RefCount(block), 0);
    Balanced([&] { close(instance); });
    ExpectConsistent();
    EXPECT_EQ(size(instance, 0), 0);
    // The object's end after an explicit Close runs in TearDown.
}

TEST_F(MemoryBlockQVTTest, PropertiesDescribeTheHeldMemory) {
    constructSize(instance, 16);
    const Data data = State();
    EXPECT_EQ(Balanced([&] { return address(instance, 0); }),
              static_cast<int64_t>(reinterpret_cast<intptr_t>(data.address)));
    EXPECT_EQ(Balanced([&] { return size(instance, 0); }), 16);
    // The same host object on each read, each with a reference of its own.
    REALobject first = Balanced([&] { return memory(instance, 0); });
    REALobject second = Balanced([&] { return memory(instance, 0); });
    EXPECT_EQ(first, data.block);
    EXPECT_EQ(second, data.block);
    EXPECT_EQ(simhost::RefCount(data.block), 3);
    simhost::Release(first);
    simhost::Release(second);
    ExpectConsistent();
}

TEST_F(MemoryBlockQVTTest, ObjectsEndGivesBackItsHostBlock) {
    REALobject other = simhost::NewInstance(kClass);
    constructSize(other, 64);
    const REALobject block = DataOf(other).block;
    ASSERT_NE(block, nullptr);
    simhost::Release(other);
    EXPECT_EQ(simhost::RefCount(other), 0);
    EXPECT_EQ(simhost::RefCount(block), 0);
}

}  // namespace
}  // namespace qvt

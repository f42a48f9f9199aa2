#include "hostvalues/block_members.h"

#include <atomic>
#include <mutex>

#include "shell/binding.h"

namespace qvt {

namespace {

// A method of the class loaded once, through the first instance that asks;
// a nil answer stays too.
class OnceMethod {
public:
    constexpr explicit OnceMethod(const char *declaration) : declaration_(declaration) {}

    void *Get(REALobject instance) {
        std::call_once(once_, [&] { entry_ = host::REALLoadObjectMethod(instance, declaration_); });
        return entry_;
    }

private:
    const char *declaration_;
    std::once_flag once_;
    void *entry_ = nullptr;
};

constinit OnceMethod gConstructor{"Constructor(bytes as Integer)"};
constinit OnceMethod gConvertFromPtr{"Operator_Convert(value as Ptr)"};
// A plain slot: a race or a missing method only repeats the look-up.
constinit std::atomic<void *> gConvertToPtr{nullptr};

using Constructor = void (*)(REALobject, RBInteger);
using ConvertFromPtr = void (*)(REALobject, void *);
using ConvertToPtr = void *(*)(REALobject);

// What runs under the host's handler: its inputs and the block stored so far.
struct MemberCall {
    int64_t size = 0;
    const void *memory = nullptr;
    REALobject result = nullptr;
};

void Construct(void *argument) {
    auto &call = *static_cast<MemberCall *>(argument);
    REALobject instance = host::PluginNewInstance("MemoryBlock");
    if (!instance) return;
    if (auto constructor = reinterpret_cast<Constructor>(gConstructor.Get(instance))) {
        constructor(instance, static_cast<RBInteger>(call.size));
    }
    // 64-bit compare: a size cut down to the host's Integer is caught here.
    if (static_cast<int64_t>(host::memoryBlockGetSize(instance)) >= call.size) {
        call.result = instance;
    } else {
        host::REALUnlockObject(instance);
    }
}

void Convert(void *argument) {
    auto &call = *static_cast<MemberCall *>(argument);
    REALobject instance = host::PluginNewInstance("MemoryBlock");
    if (!instance) return;
    auto convert = reinterpret_cast<ConvertFromPtr>(gConvertFromPtr.Get(instance));
    if (!convert) {
        host::REALUnlockObject(instance);
        return;
    }
    convert(instance, const_cast<void *>(call.memory));
    call.result = instance;
}

// An exception raised meanwhile is the host's to deliver; the block stored
// before it is kept.
REALobject RunUnderHandler(void (*routine)(void *), MemberCall &call) {
    if (REALobject raised = host::PluginCallFunctionWithExceptionHandler(routine, &call)) {
        host::REALUnlockObject(raised);
    }
    return call.result;
}

}  // namespace

REALobject NewBlockByConstructor(int64_t size) {
    MemberCall call;
    call.size = size;
    return RunUnderHandler(Construct, call);
}

REALobject WrapPtrByConversion(const void *memory) {
    if (!memory) return nullptr;
    MemberCall call;
    call.memory = memory;
    return RunUnderHandler(Convert, call);
}

void *GetBlockPtrByConversion(REALobject block) {
    if (!block) return nullptr;
    void *entry = gConvertToPtr.load(std::memory_order_relaxed);
    if (!entry) {
        entry = host::REALLoadObjectMethod(block, "Operator_Convert() As Ptr");
        gConvertToPtr.store(entry, std::memory_order_relaxed);
    }
    return entry ? reinterpret_cast<ConvertToPtr>(entry)(block) : nullptr;
}

int64_t GetBlockSizeByProperty(REALobject block) {
    if (!block) return 0;
    RBInteger size = 0;
    if (!host::REALGetPropValueInteger(block, "Size", &size)) return 0;
    return size;
}

}  // namespace qvt

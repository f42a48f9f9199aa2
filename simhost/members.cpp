// MemoryBlock's public members as the host's language offers them, found by
// declaration, and calls under the host's exception handler.
#include <algorithm>
#include <string_view>
#include <utility>

#include "simhost/state.h"

namespace simhost::detail {

namespace {

ObjectRecord *UseBlock(const char *member, REALobject self) {
    ObjectRecord *o = UseObject(member, self);
    if (o != nullptr && o->kind != ObjectKind::Block) {
        Fault(std::string(member) + ": " + NameOf(o) + " is not a MemoryBlock");
        return nullptr;
    }
    return o;
}

// An exception the host raises itself: pending, holding only the host's
// references, as after RuntimeRaiseException.
void HostRaise(const char *className, std::string_view message) {
    ObjectRecord &exception = NewObject(ObjectKind::Exception, className, 0);
    StringRecord &text = NewStringRecord(message, hostabi::kEncodingUTF8);
    ++text.hostRefs;
    exception.message = &text;
    ++exception.hostRefs;
    exception.raisedOn = std::this_thread::get_id();
    State().pendingExceptions.push_back(&exception);
}

void Constructor(REALobject self, RBInteger bytes) {
    HostLock lock(State().mutex);
    LogCall("MemoryBlock.Constructor", NameOfObject(self) + " bytes=" + std::to_string(bytes));
    ObjectRecord *block = UseBlock("MemoryBlock.Constructor", self);
    if (block == nullptr) return;
    if (bytes < 0) {
        HostRaise("OutOfBoundsException", "A MemoryBlock cannot have a negative size");
        return;
    }
    RBInteger size = std::max<RBInteger>(0, bytes - State().options.constructorShortfall);
    BlockMemory memory = NewBlockMemory("MemoryBlock.Constructor", size);
    if (!memory) {
        HostRaise("OutOfMemoryException", "No memory for the MemoryBlock");
        return;
    }
    SetBlockMemory(*block, std::move(memory), size);
}

void ConvertFromPtr(REALobject self, void *value) {
    HostLock lock(State().mutex);
    LogCall("MemoryBlock.ConvertFromPtr", NameOfObject(self) +
                                                (value != nullptr ? " value=set" : " value=nil"));
    ObjectRecord *block = UseBlock("MemoryBlock.ConvertFromPtr", self);
    if (block == nullptr) return;
    SetBlockMemory(*block, BlockMemory(), -1);
    block->data = static_cast<uint8_t *>(value);
}

void *ConvertToPtr(REALobject self) {
    HostLock lock(State().mutex);
    LogCall("MemoryBlock.ConvertToPtr", NameOfObject(self));
    ObjectRecord *block = UseBlock("MemoryBlock.ConvertToPtr", self);
    return block != nullptr ? block->data : nullptr;
}

struct MemberMethod {
    const char *declaration;
    void *function;
};

// Each takes the instance first.
const MemberMethod kBlockMembers[] = {
    {"Constructor(bytes as Integer)", EntryAddress(&Constructor)},
    {"Operator_Convert(value as Ptr)", EntryAddress(&ConvertFromPtr)},
    {"Operator_Convert() As Ptr", EntryAddress(&ConvertToPtr)},
};

void *REALLoadObjectMethod(REALobject object, const char *declaration) {
    HostLock lock(State().mutex);
    CheckPresent("REALLoadObjectMethod");
    LogCall("REALLoadObjectMethod", NameOfObject(object) + " " +
                                        (declaration != nullptr ? Quote(declaration) : "nil"));
    ObjectRecord *o = UseObject("REALLoadObjectMethod", object);
    if (o == nullptr || declaration == nullptr || o->kind != ObjectKind::Block) return nullptr;
    for (const MemberMethod &member : kBlockMembers) {
        if (std::string_view(declaration) == member.declaration) return member.function;
    }
    return nullptr;
}

// Exceptions pending that the calling thread raised.
std::size_t PendingOfThisThread() {
    const auto &pending = State().pendingExceptions;
    return static_cast<std::size_t>(std::count_if(pending.begin(), pending.end(), [](auto *e) {
        return e->raisedOn == std::this_thread::get_id();
    }));
}

// The first exception raised during the call on the calling thread is
// caught: it leaves the pending ones and its reference becomes the caller's.
REALobject PluginCallFunctionWithExceptionHandler(void (*function)(void *), void *argument) {
    HostState &s = State();
    std::size_t pendingBefore = 0;
    {
        HostLock lock(s.mutex);
        CheckPresent("PluginCallFunctionWithExceptionHandler");
        LogCall("PluginCallFunctionWithExceptionHandler");
        if (function == nullptr) {
            Fault("PluginCallFunctionWithExceptionHandler: nil function");
            return nullptr;
        }
        pendingBefore = PendingOfThisThread();
    }
    function(argument);
    HostLock lock(s.mutex);
    std::size_t seen = 0;
    auto &pending = s.pendingExceptions;
    auto caught = std::find_if(pending.begin(), pending.end(), [&](auto *e) {
        return e->raisedOn == std::this_thread::get_id() && seen++ == pendingBefore;
    });
    if (caught == s.pendingExceptions.end()) return nullptr;
    ObjectRecord *exception = *caught;
    s.pendingExceptions.erase(caught);
    --exception->hostRefs;
    return HandleOf(*exception);
}

const Entry kEntries[] = {
    {"REALLoadObjectMethod", EntryAddress(&REALLoadObjectMethod)},
    {"PluginCallFunctionWithExceptionHandler",
     EntryAddress(&PluginCallFunctionWithExceptionHandler)},
};

}  // namespace

std::span<const Entry> MemberEntries() { return kEntries; }

}  // namespace simhost::detail

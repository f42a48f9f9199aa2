// Instances of classes the plug-in registered: zeroed class data at
// kInstanceDataOffset, and the class's destructor when the last reference goes.
#include "simhost/state.h"

namespace simhost::detail {

ObjectRecord *CreateInstance(std::string_view className) {
    const REALclassDefinition *cls = RegisteredClass(className);
    if (cls == nullptr) return nullptr;
    ObjectRecord &instance = NewObject(ObjectKind::Instance, std::string(className),
                                       kInstanceDataOffset + cls->dataSize);
    instance.cls = cls;
    return &instance;
}

void EndInstance(ObjectRecord &instance) {
    if (instance.cls == nullptr || instance.cls->destructor == nullptr) return;
    // The destructor may call back into the host; the lock is recursive and
    // the record stays where it is.
    reinterpret_cast<void (*)(REALobject)>(instance.cls->destructor)(HandleOf(instance));
}

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

REALobject NewInstance(std::string_view className) {
    HostLock lock(State().mutex);
    ObjectRecord *instance = CreateInstance(className);
    return instance != nullptr ? HandleOf(*instance) : nullptr;
}

std::span<uint8_t> InstanceData(REALobject handle) {
    HostLock lock(State().mutex);
    ObjectRecord *found = FindObject(handle);
    if (found == nullptr || found->kind != ObjectKind::Instance) return {};
    ObjectRecord &instance = *found;
    auto *base = reinterpret_cast<uint8_t *>(instance.body.get());
    return {base + kInstanceDataOffset, instance.bodySize - kInstanceDataOffset};
}

}  // namespace simhost

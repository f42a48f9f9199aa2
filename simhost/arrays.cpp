// Arrays: elements side by side behind a header that the plug-in may read in
// place, and the element procedures handed out by the selectors.
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "simhost/state.h"

namespace simhost::detail {

namespace {

struct Kind {
    const char *name;
    int32_t type;
    std::size_t width;
    bool isSigned;
};

constexpr Kind kKinds[] = {
    {"Integer", kArrayInteger, 4, true}, {"UInt8", kArrayUInt8, 1, false},
    {"Int8", kArrayInt8, 1, true},       {"Boolean", kArrayBoolean, 1, false},
    {"Int16", kArrayInt16, 2, true},     {"UInt16", kArrayUInt16, 2, false},
    {"Int32", kArrayInt32, 4, true},     {"UInt32", kArrayUInt32, 4, false},
    {"Int64", kArrayInt64, 8, true},     {"UInt64", kArrayUInt64, 8, false},
};
constexpr std::size_t kKindCount = std::size(kKinds);
constexpr RBInteger kMostElements = RBInteger{1} << 28;

const Kind *KindOf(int32_t type) {
    for (const Kind &k : kKinds) {
        if (k.type == type) return &k;
    }
    return nullptr;
}

constexpr std::size_t kHeaderWords = 16;
// Matches neither layout the plug-in knows.
constexpr hostabi::ArrayHeaderLayout kScrambledHeader{1, 5, 9, 13};

hostabi::ArrayHeaderLayout HeaderLayout() {
    const Options &o = State().options;
    if (o.oldArrayHeader) return kScrambledHeader;
    return o.version >= 2008.0 ? hostabi::kArrayHeader2008 : hostabi::kArrayHeaderOld;
}

}  // namespace

void SyncArrayHeader(ObjectRecord &array) {
    auto *words = reinterpret_cast<uintptr_t *>(array.body.get());
    hostabi::ArrayHeaderLayout layout = HeaderLayout();
    words[layout.refCount] = array.ended ? 0 : static_cast<uintptr_t>(array.refs);
    words[layout.dimensionCount] = 1;
    words[layout.ubound] = static_cast<uintptr_t>(static_cast<intptr_t>(array.elementCount) - 1);
    words[layout.data] = reinterpret_cast<uintptr_t>(array.elements.data());
}

ObjectRecord *CreateArray(int32_t type, RBInteger ubound) {
    const Kind *kind = KindOf(type);
    if (kind == nullptr || ubound < -1 || ubound >= kMostElements) return nullptr;
    auto count = static_cast<std::size_t>(ubound + 1);
    std::vector<uint8_t> elements;
    try {
        elements.reserve(std::max<std::size_t>(count, 1) * kind->width);
        elements.resize(count * kind->width);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    ObjectRecord &array = NewObject(ObjectKind::Array, std::string(kind->name) + "()",
                                    kHeaderWords * sizeof(uintptr_t));
    array.arrayType = type;
    array.elements = std::move(elements);
    array.elementCount = count;
    SyncArrayHeader(array);
    return &array;
}

int64_t ReadElement(const ObjectRecord &array, std::size_t index) {
    const Kind &kind = *KindOf(array.arrayType);
    const uint8_t *p = array.elements.data() + index * kind.width;
    switch (kind.width) {
        case 1: {
            uint8_t v = *p;
            if (kind.type == kArrayBoolean) return v != 0;
            return kind.isSigned ? int64_t{static_cast<int8_t>(v)} : int64_t{v};
        }
        case 2: {
            uint16_t v;
            std::memcpy(&v, p, 2);
            return kind.isSigned ? int64_t{static_cast<int16_t>(v)} : int64_t{v};
        }
        case 4: {
            uint32_t v;
            std::memcpy(&v, p, 4);
            return kind.isSigned ? int64_t{static_cast<int32_t>(v)} : int64_t{v};
        }
        default: {
            int64_t v;
            std::memcpy(&v, p, 8);
            return v;
        }
    }
}

void WriteElement(ObjectRecord &array, std::size_t index, int64_t value) {
    const Kind &kind = *KindOf(array.arrayType);
    if (kind.type == kArrayBoolean) value = value != 0;
    uint8_t *p = array.elements.data() + index * kind.width;
    uint64_t bits = static_cast<uint64_t>(value);
    // Little- and big-endian alike: copy the low-order bytes of the value.
    switch (kind.width) {
        case 1: {
            auto v = static_cast<uint8_t>(bits);
            std::memcpy(p, &v, 1);
            break;
        }
        case 2: {
            auto v = static_cast<uint16_t>(bits);
            std::memcpy(p, &v, 2);
            break;
        }
        case 4: {
            auto v = static_cast<uint32_t>(bits);
            std::memcpy(p, &v, 4);
            break;
        }
        default: std::memcpy(p, &bits, 8); break;
    }
}

namespace {

ObjectRecord *UseArray(const char *entry, REALarray handle) {
    ObjectRecord *o = UseObject(entry, handle);
    if (o != nullptr && o->kind != ObjectKind::Array) {
        Fault(std::string(entry) + ": " + NameOf(o) + " is not an array");
        return nullptr;
    }
    return o;
}

bool IndexInside(const char *entry, const ObjectRecord &array, RBInteger index, std::size_t limit) {
    if (index >= 0 && static_cast<std::size_t>(index) < limit) return true;
    Fault(std::string(entry) + ": index " + std::to_string(index) + " outside " + NameOf(&array));
    return false;
}

// An element travels as a word, or as itself where it is wider than a word
// (64-bit kinds in a 32-bit build), as the plug-in passes it.
template <typename Value>
Value ArrayElementGet(REALarray handle, RBInteger index) {
    HostLock lock(State().mutex);
    LogCall("ArrayElementGet", NameOfObject(handle) + " index=" + std::to_string(index));
    ObjectRecord *a = UseArray("ArrayElementGet", handle);
    if (a == nullptr || !IndexInside("ArrayElementGet", *a, index, a->elementCount)) return 0;
    return static_cast<Value>(ReadElement(*a, static_cast<std::size_t>(index)));
}

template <typename Value>
void ArrayElementSet(REALarray handle, Value value, RBInteger index) {
    HostLock lock(State().mutex);
    LogCall("ArrayElementSet", NameOfObject(handle) + " index=" + std::to_string(index) +
                                   " value=" + std::to_string(value));
    ObjectRecord *a = UseArray("ArrayElementSet", handle);
    if (a == nullptr || !IndexInside("ArrayElementSet", *a, index, a->elementCount)) return;
    WriteElement(*a, static_cast<std::size_t>(index), value);
}

template <typename Value>
void ArrayElementInsert(REALarray handle, RBInteger index, Value value) {
    HostLock lock(State().mutex);
    LogCall("ArrayElementInsert", NameOfObject(handle) + " index=" + std::to_string(index) +
                                      " value=" + std::to_string(value));
    ObjectRecord *a = UseArray("ArrayElementInsert", handle);
    if (a == nullptr || !IndexInside("ArrayElementInsert", *a, index, a->elementCount + 1)) return;
    std::size_t width = KindOf(a->arrayType)->width;
    a->elements.insert(a->elements.begin() + static_cast<std::ptrdiff_t>(index * width), width, 0);
    ++a->elementCount;
    WriteElement(*a, static_cast<std::size_t>(index), value);
    SyncArrayHeader(*a);
}

enum Operation { kGet, kSet, kInsert };
constexpr const char *kOperationNames[] = {"Get", "Set", "Insert"};

// Entry names of the selectors: the kinds' own, then the kind-blind second names.
const std::string &SelectorName(std::size_t kind, Operation op) {
    static const auto names = [] {
        std::vector<std::string> all;
        for (std::size_t k = 0; k <= kKindCount; ++k) {
            for (const char *o : kOperationNames) {
                all.push_back(k < kKindCount
                                  ? std::string("Plugin") + kKinds[k].name + "Array" + o + "Proc"
                                  : std::string("RuntimeArrayDirectGet") + o + "Proc");
            }
        }
        return all;
    }();
    return names[kind * 3 + op];
}

template <typename Value>
void *Procedure(Operation op) {
    switch (op) {
        case kGet: return EntryAddress(&ArrayElementGet<Value>);
        case kSet: return EntryAddress(&ArrayElementSet<Value>);
        case kInsert: return EntryAddress(&ArrayElementInsert<Value>);
    }
    return nullptr;
}

void *Select(std::size_t kind, Operation op, REALarray handle) {
    HostLock lock(State().mutex);
    const char *entry = SelectorName(kind, op).c_str();
    CheckPresent(entry);
    LogCall(entry, NameOfObject(handle));
    ObjectRecord *a = UseArray(entry, handle);
    if (a == nullptr) return nullptr;
    if (kind < kKindCount && kKinds[kind].type != a->arrayType) {
        Fault(std::string(entry) + ": " + NameOf(a) + " holds other elements");
        return nullptr;
    }
    if (KindOf(a->arrayType)->width > sizeof(intptr_t)) return Procedure<int64_t>(op);
    return Procedure<intptr_t>(op);
}

template <std::size_t K, Operation Op>
void *Selector(REALarray handle) {
    return Select(K, Op, handle);
}

template <std::size_t... K>
std::vector<Entry> SelectorEntries(std::index_sequence<K...>) {
    std::vector<Entry> out;
    ((out.push_back({SelectorName(K, kGet).c_str(), EntryAddress(&Selector<K, kGet>)}),
      out.push_back({SelectorName(K, kSet).c_str(), EntryAddress(&Selector<K, kSet>)}),
      out.push_back({SelectorName(K, kInsert).c_str(), EntryAddress(&Selector<K, kInsert>)})),
     ...);
    return out;
}

RBInteger RuntimeUBound(REALarray handle) {
    HostLock lock(State().mutex);
    CheckPresent("RuntimeUBound");
    LogCall("RuntimeUBound", NameOfObject(handle));
    ObjectRecord *a = UseArray("RuntimeUBound", handle);
    return a != nullptr ? static_cast<RBInteger>(a->elementCount) - 1 : 0;
}

REALarray RuntimeArrayCreateSingleDimBoundedArray(int32_t type, RBInteger ubound) {
    HostLock lock(State().mutex);
    CheckPresent("RuntimeArrayCreateSingleDimBoundedArray");
    LogCall("RuntimeArrayCreateSingleDimBoundedArray",
            "type=" + std::to_string(type) + " ubound=" + std::to_string(ubound));
    ObjectRecord *a = CreateArray(type, ubound);
    return a != nullptr ? reinterpret_cast<REALarray>(HandleOf(*a)) : nullptr;
}

}  // namespace

std::span<const Entry> ArrayEntries() {
    static const std::vector<Entry> entries = [] {
        std::vector<Entry> all = SelectorEntries(std::make_index_sequence<kKindCount + 1>{});
        all.push_back({"RuntimeUBound", EntryAddress(&RuntimeUBound)});
        all.push_back({"RuntimeArrayCreateSingleDimBoundedArray",
                       EntryAddress(&RuntimeArrayCreateSingleDimBoundedArray)});
        return all;
    }();
    return entries;
}

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

REALarray NewArray(int32_t type, const std::vector<int64_t> &values) {
    HostLock lock(State().mutex);
    ObjectRecord *a = CreateArray(type, static_cast<RBInteger>(values.size()) - 1);
    if (a == nullptr) return nullptr;
    for (std::size_t i = 0; i < values.size(); ++i) WriteElement(*a, i, values[i]);
    return reinterpret_cast<REALarray>(HandleOf(*a));
}

std::vector<int64_t> ArrayValues(REALarray handle) {
    HostLock lock(State().mutex);
    const ObjectRecord *found = FindObject(handle);
    if (found == nullptr) return {};
    const ObjectRecord &a = *found;
    if (a.kind != ObjectKind::Array || a.ended) return {};
    std::vector<int64_t> out;
    for (std::size_t i = 0; i < a.elementCount; ++i) out.push_back(ReadElement(a, i));
    return out;
}

}  // namespace simhost

// Bindings: every host service is reached by name through the resolver. A
// binding finds its entry on first use, keeps it in its slot, and gives a
// fixed result while the host has no such entry. The bindings themselves are
// listed in shell/catalogue.h, included at the end.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <type_traits>

#include "abi/plugin_abi.h"

namespace qvt {

// Looks the entry up while the slot is nil: the first name, then the second.
// A nil answer is stored too, so a missing entry is asked for on every call.
void *FindEntry(const char *name, const char *secondName, std::atomic<void *> &slot);

// The names and the slot of one binding.
class EntrySlot {
public:
    constexpr EntrySlot(const char *name, const char *secondName)
        : name_(name), secondName_(secondName) {}

    void *Find() const {
        void *entry = slot_.load(std::memory_order_relaxed);
        return entry ? entry : FindEntry(name_, secondName_, slot_);
    }

    const char *name() const { return name_; }

private:
    const char *name_;
    const char *secondName_;
    // One word, written without a lock: a race only repeats a look-up.
    mutable std::atomic<void *> slot_{nullptr};
};

template <typename Result>
struct MissingResult {
    Result value{};
};
template <>
struct MissingResult<void> {};

// What the host's entry answers for a binding's result: a bool is reduced,
// the host answering a word of which any non-zero value means true.
template <typename Result>
using HostAnswer = std::conditional_t<std::is_same_v<Result, bool>, intptr_t, Result>;

// Calls the entry at `address` with the arguments unchanged, or gives the
// result when missing.
template <typename Result, typename... Args>
Result CallEntry(void *address, const MissingResult<Result> &missing, Args... args) {
    auto entry = reinterpret_cast<HostAnswer<Result> (*)(Args...)>(address);
    if constexpr (std::is_void_v<Result>) {
        if (entry) entry(args...);
    } else if constexpr (std::is_same_v<Result, bool>) {
        return entry ? entry(args...) != 0 : missing.value;
    } else {
        return entry ? entry(args...) : missing.value;
    }
}

// A binding whose arguments are fixed: for operations this system calls.
template <typename Signature>
class HostBinding;

template <typename Result, typename... Args>
class HostBinding<Result(Args...)> {
public:
    using Entry = HostAnswer<Result> (*)(Args...);

    constexpr explicit HostBinding(const char *name, const char *secondName = nullptr)
        : slot_(name, secondName) {}

    Entry Find() const { return reinterpret_cast<Entry>(slot_.Find()); }

    Result operator()(Args... args) const { return CallEntry(slot_.Find(), missing_, args...); }

    const char *name() const { return slot_.name(); }

private:
    EntrySlot slot_;
    [[no_unique_address]] MissingResult<Result> missing_{};
};

// A binding that passes whatever it is given: for operations without a user
// here, whose arguments are the host's. Only the result type is fixed.
template <typename Result>
class HostCall {
public:
    constexpr explicit HostCall(const char *name, const char *secondName = nullptr,
                                MissingResult<Result> missing = {})
        : slot_(name, secondName), missing_(missing) {}

    template <typename... Args>
    Result operator()(Args... args) const {
        return CallEntry(slot_.Find(), missing_, args...);
    }

    void *Find() const { return slot_.Find(); }
    const char *name() const { return slot_.name(); }

private:
    EntrySlot slot_;
    [[no_unique_address]] MissingResult<Result> missing_{};
};

// The host's bool as it answers it: a word, not reduced.
using HostBool = intptr_t;

// The class-property operations are found through a second resolver, which
// the host hands out under "GetRBScriptResolver"; they take the object's
// class in place of the object.
class ScriptEntries {
public:
    constexpr explicit ScriptEntries(const char *name) : name_(name) {}

    struct Found {
        void *operation;
        void *classOf;  // RuntimeClassOf
    };
    // Both entries, either of them nil when the host lacks it.
    Found Find() const;

private:
    // Asks the second resolver for the operation, then for RuntimeClassOf.
    void AskBoth() const;

    const char *name_;
    mutable std::once_flag once_;
    mutable REALresolver resolver_ = nullptr;  // written under once_ only
    mutable std::atomic<void *> slot_{nullptr};
    mutable std::atomic<void *> classOf_{nullptr};
};

template <typename Result>
class ScriptBinding {
public:
    constexpr explicit ScriptBinding(const char *name) : entries_(name) {}

    template <typename... Args>
    Result operator()(REALobject object, Args... args) const {
        ScriptEntries::Found found = entries_.Find();
        // A host that has the operation and no RuntimeClassOf is served as
        // one that lacks both, rather than through a nil call.
        if (!found.operation || !found.classOf) return Result{};
        auto classOf = reinterpret_cast<REALclassRef (*)(REALobject)>(found.classOf);
        REALclassRef cls = classOf(object);
        if (!cls) return Result{};
        return CallEntry(found.operation, MissingResult<Result>{}, cls, args...);
    }

private:
    ScriptEntries entries_;
};

}  // namespace qvt

// One line per host operation, under the host's own name.
#define QVT_HOST_BINDING(name, signature, ...) \
    inline constinit ::qvt::HostBinding<signature> name{#name __VA_OPT__(, ) __VA_ARGS__}

#include "shell/catalogue.h"

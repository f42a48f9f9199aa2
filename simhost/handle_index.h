// Handles to records, readable without the host lock: the entries a method
// calls on every invocation find their record here in a probe or two. One
// writer at a time (the lock's holder) inserts; records are never taken out
// before a reset, so a reader never sees a slot go back. A table that grows
// is kept until the reset, as a reader may still be probing it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace simhost::detail {

template <typename Record>
class HandleIndex {
public:
    constexpr HandleIndex() = default;

    Record *Find(const void *handle) const {
        const Table *table = current_.load(std::memory_order_acquire);
        if (table == nullptr) return nullptr;
        for (std::size_t i = Home(handle, table->mask);; i = (i + 1) & table->mask) {
            const void *key = table->slots[i].key.load(std::memory_order_acquire);
            if (key == handle) return table->slots[i].record.load(std::memory_order_relaxed);
            if (key == nullptr) return nullptr;
        }
    }

    // With the host lock held.
    void Insert(const void *handle, Record *record) {
        Table *table = current_.load(std::memory_order_relaxed);
        if (table == nullptr) {
            table = NewTable(kFirstSize);
            current_.store(table, std::memory_order_release);
        }
        // Half full at most, so that a miss ends on an empty slot soon.
        if (2 * (count_ + 1) > table->mask + 1) table = Grow(*table);
        Put(*table, handle, record);
        ++count_;
    }

    // With the host lock held and no reader about: a reset.
    void Clear() {
        current_.store(nullptr, std::memory_order_release);
        tables_.clear();
        count_ = 0;
    }

private:
    static constexpr std::size_t kFirstSize = 1024;

    struct Slot {
        std::atomic<const void *> key{nullptr};
        std::atomic<Record *> record{nullptr};
    };
    struct Table {
        std::size_t mask = 0;
        std::unique_ptr<Slot[]> slots;
    };

    static std::size_t Home(const void *handle, std::size_t mask) {
        // Fibonacci hashing: heap addresses differ mostly in their middle bits.
        const uint64_t h = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle));
        return static_cast<std::size_t>((h * 0x9E3779B97F4A7C15u) >> 32) & mask;
    }

    // The record is stored before the key, so a reader that sees the key
    // sees its record.
    static void Put(Table &table, const void *handle, Record *record) {
        std::size_t i = Home(handle, table.mask);
        while (table.slots[i].key.load(std::memory_order_relaxed) != nullptr) i = (i + 1) & table.mask;
        table.slots[i].record.store(record, std::memory_order_relaxed);
        table.slots[i].key.store(handle, std::memory_order_release);
    }

    Table *NewTable(std::size_t size) {
        auto table = std::make_unique<Table>();
        table->mask = size - 1;
        table->slots = std::make_unique<Slot[]>(size);
        tables_.push_back(std::move(table));
        return tables_.back().get();
    }

    Table *Grow(const Table &old) {
        Table *table = NewTable(2 * (old.mask + 1));
        for (std::size_t i = 0; i <= old.mask; ++i) {
            if (const void *key = old.slots[i].key.load(std::memory_order_relaxed)) {
                Put(*table, key, old.slots[i].record.load(std::memory_order_relaxed));
            }
        }
        current_.store(table, std::memory_order_release);
        return table;
    }

    std::atomic<Table *> current_{nullptr};
    std::vector<std::unique_ptr<Table>> tables_;
    std::size_t count_ = 0;
};

}  // namespace simhost::detail

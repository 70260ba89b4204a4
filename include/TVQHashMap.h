// TVQHashMap: a hash table from 32-bit keys, except 0, to values.
//   Shape    CVQHashMapImpl with values of V: in the engine's pointers where they fit (numbers, pointers,
//            CVQString), in blocks of their own where not. Growth and the order of a walk are the engine's; single
//            entries are never removed. A map that is default-constructed or moved from is empty, holds no memory,
//            and is as good as any other.
//   Keys     go by their low bits: keys that are multiples of a large power of two share buckets.
//   Key 0    is never found. operator[] reports it (an assertion) and returns a value that belongs to no entry.
//   Invalid  a value in a block of its own stays where it is until the map is cleared, assigned to or destroyed. A
//            reference to one that lies in the engine's pointers, from operator[], survives one growth: it is good
//            through the next call of operator[], which may grow the map, and what is written through it until the
//            one after that is kept. Other references, pointers from `find`, and iterators are good until
//            operator[] inserts, or is called after it has. Moving a map invalidates iterators.
//   Errors   key 0 as said; see the engine for memory and for bucket counts that are too large.
//   Threads  one thread at a time, for reading too.
//
//   TVQHashMap<int> counts;
//   ++counts[4711];
//   for (const auto& [key, count] : counts) { ... }
#pragma once

#include <CVQHashMapImpl.h>
#include <TVQHashIterator.h>
#include <TVQSlot.h>

#include <cstddef>
#include <type_traits>
#include <utility>

template <class V>
class TVQHashMap {
    using Slot = TVQSlot<V>;

    template <class E>
    class TPosition;

public:
    /// What an iterator yields: the key, and the value to change.
    struct Entry {
        unsigned int key;
        V& value;
    };
    /// What an iterator over a constant table yields.
    struct ConstEntry {
        unsigned int key;
        const V& value;
    };
    using iterator = VQPrivate::TVQHashIterator<TPosition<Entry>>;
    using const_iterator = VQPrivate::TVQHashIterator<TPosition<ConstEntry>>;

    TVQHashMap() noexcept = default;
    /// With the smallest power of two of at least `buckets` buckets, and at least 2.
    explicit TVQHashMap(std::size_t buckets) : mEngine(buckets) {}

    /// The key's value, which is V() when it is new.
    V& operator[](unsigned int key) { return Slot::get(&mEngine.access(key)); }

    /// The key's value, or null.
    V* find(unsigned int key) {
        CVQHashMapItem* const item = mEngine.lookup(key);
        return item != nullptr ? &Slot::get(&mEngine.homeOf(item)->mValue) : nullptr;
    }
    const V* find(unsigned int key) const { return const_cast<TVQHashMap*>(this)->find(key); }

    /// Goes back to the number of buckets that the map was made with (2 by default, 128 for a copy of a map that
    /// has memory).
    void clear() { mEngine.clear(); }

    unsigned int size() const { return mEngine.count(); }
    bool isEmpty() const { return size() == 0; }
    /// The number of cells: buckets and half as many more.
    unsigned int capacity() const { return mEngine.capacity(); }

    iterator begin() { return iterator(TPosition<Entry>(mEngine)); }
    iterator end() { return iterator(); }
    const_iterator begin() const { return const_iterator(TPosition<ConstEntry>(mEngine)); }
    const_iterator end() const { return const_iterator(); }

    /// Equal are maps with the same keys and, for each, equal values; order does not count.
    friend bool operator==(const TVQHashMap& left, const TVQHashMap& right) {
        if (left.size() != right.size()) {
            return false;
        }
        for (const auto& [key, value] : left) {
            const V* const other = right.find(key);
            if (other == nullptr || !(*other == value)) {
                return false;
            }
        }
        return true;
    }
    friend bool operator!=(const TVQHashMap& left, const TVQHashMap& right) { return !(left == right); }

private:
    /// Counts its entries, which the engine would have to go through its array for.
    class CEngine final : public CVQHashMapImpl {
    public:
        CEngine() noexcept = default;
        explicit CEngine(std::size_t buckets) : CVQHashMapImpl(buckets) {}
        CEngine(const CEngine& other) : CVQHashMapImpl(other), mCount(other.mCount) {
            static_assert(kIsCopyable, "a map of values that cannot be copied cannot be copied");
        }
        CEngine(CEngine&& other) noexcept { takeAll(other); }
        CEngine& operator=(const CEngine& other) {
            static_assert(kIsCopyable, "a map of values that cannot be copied cannot be copied");
            CVQHashMapImpl::operator=(other);
            mCount = other.mCount;
            return *this;
        }
        CEngine& operator=(CEngine&& other) noexcept {
            if (this != &other) {
                destroyValues();
                takeAll(other);
            }
            return *this;
        }
        ~CEngine() override { destroyValues(); }

        void duplicateValue(void** value) const override {
            if constexpr (kIsCopyable) {
                Slot::copy(value);
            }
        }
        void destroyValue(void** value, unsigned int) override { Slot::destroy(value); }
        void constructValue(void** value, unsigned int) override {
            Slot::construct(value);
            mCount += isRefused(value) ? 0U : 1U;
        }

        unsigned int count() const { return mCount; }

        void clear() {
            CVQHashMapImpl::clear();
            mCount = 0;
        }

    private:
        static constexpr bool kIsCopyable = std::is_copy_constructible_v<V>;

        void destroyValues() noexcept {
            if constexpr (!Slot::kNothingToDestroy) {
                clearEntries();
            }
        }
        void takeAll(CEngine& other) noexcept {
            take(other);
            mCount = std::exchange(other.mCount, 0U);
        }

        unsigned int mCount = 0;
    };

    template <class E>
    class TPosition {
    public:
        using Entry = E;

        TPosition() = default;
        explicit TPosition(const CVQHashMapImpl& map) : mMap(&map), mItem(map.firstItem()) {}
        template <class Other, class = std::enable_if_t<std::is_same_v<Other, TVQHashMap::Entry>>>
        TPosition(const TPosition<Other>& other) : mMap(other.mMap), mItem(other.mItem) {}

        E entry() const { return E{mItem->mKey, Slot::get(&mMap->homeOf(mItem)->mValue)}; }
        void step() { mItem = mMap->nextItem(mItem); }
        friend bool operator==(const TPosition& left, const TPosition& right) { return left.mItem == right.mItem; }

    private:
        template <class Other>
        friend class TPosition;

        const CVQHashMapImpl* mMap = nullptr;
        CVQHashMapItem* mItem = nullptr;
    };

    CEngine mEngine;
};

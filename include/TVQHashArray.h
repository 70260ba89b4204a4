// TVQHashArray: a hash table of unique keys of any type, and a value for each.
//   Shape    CVQHashArrayImpl with items of K and V: in the engine's pointers where they fit (numbers, pointers,
//            CVQString), in blocks of their own where not. Growing, shrinking and the order of a walk are the
//            engine's. A table that is default-constructed or moved from is empty, holds no memory, and is as good
//            as any other.
//   Keys     are hashed and compared by `Key`, see TVQHashKey. K and V have to be copyable and may not throw.
//   Invalid  insert, remove, clear and assignment invalidate iterators, and pointers and references to keys and
//            values that lie in the engine's pointers. Assigning through a reference invalidates nothing. Moving a
//            table invalidates iterators.
//   Errors   none are reported; see the engine for memory and for bucket counts that are too large.
//   Threads  one thread at a time, for reading too.
//
//   TVQHashArray<CVQString, int> ages;
//   ages.insert("Ada", 36);
//   if (int* age = ages.find("Ada")) { ++*age; }
//   for (const auto& [name, age] : ages) { ... }
#pragma once

#include <CVQHashArrayImpl.h>
#include <TVQHashIterator.h>
#include <TVQHashKey.h>
#include <TVQSlot.h>

#include <cstddef>
#include <type_traits>

template <class K, class V, class Key = TVQHashKey<K>>
class TVQHashArray {
    using KeySlot = TVQSlot<K>;
    using ValueSlot = TVQSlot<V>;
    static_assert(std::is_copy_constructible_v<K> && std::is_copy_constructible_v<V>, "a table copies its items");

    template <class Value>
    class TPosition;

public:
    /// What an iterator yields: the key, and the value to change.
    struct Entry {
        const K& key;
        V& value;
    };
    /// What an iterator over a constant table yields.
    struct ConstEntry {
        const K& key;
        const V& value;
    };
    using iterator = VQPrivate::TVQHashIterator<TPosition<Entry>>;
    using const_iterator = VQPrivate::TVQHashIterator<TPosition<ConstEntry>>;

    TVQHashArray() noexcept = default;
    /// With the smallest power of two of at least `buckets` buckets.
    explicit TVQHashArray(std::size_t buckets) : mEngine(buckets) {}

    /// False, with nothing changed, when the key is there already.
    bool insert(const K& key, const V& value) {
        return mEngine.insertUnique(KeySlot::borrow(key), ValueSlot::borrow(value)) != nullptr;
    }

    /// The key's value, or null.
    V* find(const K& key) {
        CVQHashArrayItem* const item = mEngine.find(KeySlot::borrow(key));
        return item != nullptr ? &ValueSlot::get(&item->mValue) : nullptr;
    }
    const V* find(const K& key) const { return const_cast<TVQHashArray*>(this)->find(key); }

    /// False when the key is not there.
    bool remove(const K& key) { return mEngine.remove(KeySlot::borrow(key)); }

    /// Leaves two buckets.
    void clear() { mEngine.clear(); }

    unsigned int size() const { return mEngine.size(); }
    bool isEmpty() const { return size() == 0; }
    /// The number of buckets.
    unsigned int capacity() const { return mEngine.capacity(); }

    iterator begin() { return iterator(TPosition<Entry>(mEngine)); }
    iterator end() { return iterator(); }
    const_iterator begin() const { return const_iterator(TPosition<ConstEntry>(mEngine)); }
    const_iterator end() const { return const_iterator(); }

    /// Equal are tables with the same keys and, for each, equal values; order does not count.
    friend bool operator==(const TVQHashArray& left, const TVQHashArray& right) {
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
    friend bool operator!=(const TVQHashArray& left, const TVQHashArray& right) { return !(left == right); }

private:
    class CEngine final : public CVQHashArrayImpl {
    public:
        CEngine() noexcept = default;
        explicit CEngine(std::size_t buckets) : CVQHashArrayImpl(buckets) {}
        CEngine(const CEngine&) = default;
        CEngine(CEngine&& other) noexcept { take(other); }
        CEngine& operator=(const CEngine&) = default;
        CEngine& operator=(CEngine&& other) noexcept {
            if (this != &other) {
                destroy();
                take(other);
            }
            return *this;
        }
        ~CEngine() override { destroy(); }

        CVQHashArrayItem* find(const void* key) const { return lookupWith(*this, key); }
        CVQHashArrayItem* insertUnique(void* key, void* value) { return insertNewWith(*this, key, value); }

        unsigned int hash(const void* key) const override { return Key::hash(View(key).get()); }
        int comparisonKind() const override { return kIsIdentity ? kCompareByIdentity : 0; }
        bool equal(const void* itemKey, const void* key) const override {
            return Key::equal(View(itemKey).get(), View(key).get());
        }
        void destroyKey(CVQHashArrayItem* item) override { KeySlot::destroy(&item->mKey); }
        void destroyValue(void** value) override { ValueSlot::destroy(value); }
        void copyKey(void** key) const override { KeySlot::copy(key); }
        void copyValue(void** value) const override { ValueSlot::copy(value); }

    private:
        using View = typename KeySlot::CView;
        static constexpr bool kIsIdentity =
            KeySlot::kEqualAsPointers && std::is_scalar_v<K> && std::is_same_v<Key, TVQHashKey<K>>;
    };

    template <class E>
    class TPosition {
    public:
        using Entry = E;

        TPosition() = default;
        explicit TPosition(const CVQHashArrayImpl& table) : mTable(&table), mItem(table.firstItem(mCursor)) {}
        template <class Other, class = std::enable_if_t<std::is_same_v<Other, TVQHashArray::Entry>>>
        TPosition(const TPosition<Other>& other)
            : mTable(other.mTable), mCursor(other.mCursor), mItem(other.mItem) {}

        E entry() const { return E{KeySlot::get(&mItem->mKey), ValueSlot::get(&mItem->mValue)}; }
        void step() { mItem = mTable->nextItem(mItem, mCursor); }
        friend bool operator==(const TPosition& left, const TPosition& right) { return left.mItem == right.mItem; }

    private:
        template <class Other>
        friend class TPosition;

        const CVQHashArrayImpl* mTable = nullptr;
        CVQHashArrayItem* mCursor = nullptr;
        CVQHashArrayItem* mItem = nullptr;
    };

    CEngine mEngine;
};

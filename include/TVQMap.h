// TVQMap: values by key, in an array of entries that is sorted by key.
//   Units    sizes, capacities and positions count entries, in int.
//   Order    `Before` says which of two keys comes first. Two of which neither does are the same key.
//   Shape    a TVQVector of entries, key and value side by side. For some hundred entries, or for maps that are
//            filled once and searched often; filling takes time that grows with the square of the size.
//   Cost     finding takes log2(size) comparisons; inserting and erasing moves the entries behind as well: as bytes
//            where both K and V allow it (TVQIsRelocatable), else with a copy of each key.
//   Errors   `at` reports an index out of range as TVQVector does, and then leads to an entry of `K()` and `V()`.
//   Invalid  pointers, references and iterators as in TVQVector: `insert` and `erase` may end all of them.
//   Threads  one thread at a time.
#pragma once

#include <TVQVector.h>
#include <VQAlgorithm.h>

/// An entry of a TVQMap.
template <class K, class V>
struct TVQMapEntry {
    const K key{};
    V value{};
    bool operator==(const TVQMapEntry& other) const { return key == other.key && value == other.value; }
};

/// Beyond speed: what moves an entry by its constructor has to copy the key.
template <class K, class V>
struct TVQIsRelocatable<TVQMapEntry<K, V>>
    : std::bool_constant<TVQIsRelocatable<K>::value && TVQIsRelocatable<V>::value> {};

template <class K, class V, class Before = TVQBefore<K>>
class TVQMap {
public:
    using SEntry = TVQMapEntry<K, V>;

    using value_type = SEntry;
    using iterator = SEntry*;
    using const_iterator = const SEntry*;

    constexpr TVQMap() noexcept = default;
    explicit TVQMap(CVQIndex initialCapacity, CVQVectorBase::Growth growth = nullptr)
        : mEntries(initialCapacity, growth) {}

    int size() const noexcept { return mEntries.size(); }
    int capacity() const noexcept { return mEntries.capacity(); }
    bool isEmpty() const noexcept { return mEntries.isEmpty(); }
    void reserve(CVQIndex slots) { mEntries.reserve(slots); }
    void clear() { mEntries.clear(); }

    /// In the order of the keys.
    iterator begin() noexcept { return mEntries.begin(); }
    iterator end() noexcept { return mEntries.end(); }
    const_iterator begin() const noexcept { return mEntries.begin(); }
    const_iterator end() const noexcept { return mEntries.end(); }
    SEntry& at(CVQIndex index) { return mEntries[index]; }
    const SEntry& at(CVQIndex index) const { return mEntries[index]; }

    /// False, and nothing changes, when the key is there.
    bool insert(const K& key, const V& value) {
        const Place place = placeOf(key);
        if (!place.isFound) {
            mEntries.insert(indexOf(place), SEntry{key, value});
        }
        return !place.isFound;
    }

    /// The value, or null.
    V* find(const K& key) {
        const Place place = placeOf(key);
        return place.isFound ? &place.position->value : nullptr;
    }
    const V* find(const K& key) const { return const_cast<TVQMap*>(this)->find(key); }

    /// False when there is no such key. `key` may be that of the entry.
    bool erase(const K& key) {
        const Place place = placeOf(key);
        if (place.isFound) {
            mEntries.erase(indexOf(place));
        }
        return place.isFound;
    }

    /// Whether both have equal values under equal keys.
    bool operator==(const TVQMap& other) const { return mEntries == other.mEntries; }
    bool operator!=(const TVQMap& other) const { return !(*this == other); }

    void swap(TVQMap& other) noexcept { mEntries.swap(other.mEntries); }
    friend void swap(TVQMap& left, TVQMap& right) noexcept { left.swap(right); }

private:
    using Place = VQAlgorithm::SPlace<SEntry*>;

    Place placeOf(const K& key) {
        const auto keyOf = [](const SEntry& entry) -> const K& { return entry.key; };
        return VQAlgorithm::findUnique(begin(), end(), key, keyOf, Before());
    }
    int indexOf(const Place& place) { return static_cast<int>(place.position - begin()); }

    TVQVector<SEntry> mEntries;
};

template <class K, class V, class Before>
struct TVQIsRelocatable<TVQMap<K, V, Before>> : std::true_type {};

// HashEngines: the untyped hash engines completed for tests. Keys and values are numbers in the engines' pointers; each
// hook writes down that it was called, so that order and arguments can be compared.
#pragma once

#include <CVQHashArrayImpl.h>
#include <CVQHashMapImpl.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

inline void* content(std::uintptr_t number) {
    return reinterpret_cast<void*>(number);
}
inline unsigned number(const void* content) {
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(content));
}

/// The fields of an engine as they lie in memory.
template <class Fields, class Engine>
Fields fieldsOf(const Engine& engine) {
    static_assert(sizeof(Fields) == sizeof(Engine));
    Fields fields;
    std::memcpy(&fields, static_cast<const void*>(&engine), sizeof fields);
    return fields;
}

using Items = std::vector<std::pair<unsigned, unsigned>>;
using Calls = std::vector<std::string>;

/// Keys hash to themselves, shifted: keys with equal upper bits share every bucket.
class RecordingHashArray : public CVQHashArrayImpl {
public:
    explicit RecordingHashArray(std::size_t n, int kind = 0, unsigned shift = 0)
        : CVQHashArrayImpl(n), mKind(kind), mShift(shift) {}
    RecordingHashArray(const RecordingHashArray& other)
        : CVQHashArrayImpl(other), mKind(other.mKind), mShift(other.mShift) {}
    RecordingHashArray& operator=(const RecordingHashArray&) = default;
    ~RecordingHashArray() override { destroy(); }

    unsigned int hash(const void* key) const override { return number(key) >> mShift; }
    int comparisonKind() const override { return mKind; }
    bool equal(const void* itemKey, const void* key) const override {
        ++mComparisons;
        return itemKey == key;
    }
    void destroyKey(CVQHashArrayItem* item) override {
        mCalls.push_back("destroyKey " + std::to_string(number(item->mKey)));
    }
    void destroyValue(void** value) override { mCalls.push_back("destroyValue " + std::to_string(number(*value))); }
    void copyKey(void** key) const override { mCalls.push_back("copyKey " + std::to_string(number(*key))); }
    void copyValue(void** value) const override {
        mCalls.push_back("copyValue " + std::to_string(number(*value)));
        *value = content(number(*value) + mAddedByCopies);
    }

    CVQHashArrayItem* add(unsigned key, unsigned value) { return fastInsert(content(key), content(value)); }
    bool has(unsigned key) const { return lookup(content(key)) != nullptr; }

    /// What the table's own walk finds.
    Items items() const {
        Items all;
        for (CVQHashArrayItem* item = firstItem(); item != nullptr; item = nextItem(item))
            all.emplace_back(number(getKey(item)), number(getValue(item)));
        return all;
    }

    /// The calls since the last time.
    Calls takeCalls() const { return std::exchange(mCalls, {}); }

    mutable unsigned mComparisons = 0;
    unsigned mAddedByCopies = 0;

private:
    int mKind;
    unsigned mShift;
    mutable Calls mCalls;
};

class RecordingHashMap : public CVQHashMapImpl {
public:
    explicit RecordingHashMap(std::size_t n) : CVQHashMapImpl(n) {}
    RecordingHashMap(const RecordingHashMap&) = default;
    RecordingHashMap(RecordingHashMap&& other) noexcept { take(other); }
    RecordingHashMap& operator=(const RecordingHashMap&) = default;
    ~RecordingHashMap() override { clearEntries(); }

    void duplicateValue(void** value) const override {
        mCalls.push_back("duplicate " + std::to_string(number(*value)));
        *value = content(number(*value) + mAddedByCopies);
    }
    void destroyValue(void** value, unsigned int key) override {
        mCalls.push_back("destroy " + std::to_string(number(*value)) + " of " + std::to_string(key));
    }
    void constructValue(void** value, unsigned int key) override {
        mCalls.push_back("construct for " + std::to_string(key) + (*value == nullptr ? "" : ", not null"));
        *value = content(mConstructed);
    }

    void add(unsigned key, unsigned value) { insert(key, content(value)); }
    void set(unsigned key, unsigned value) { access(key) = content(value); }
    /// The value that a look-up shows; 0 when there is none.
    unsigned get(unsigned key) const {
        const CVQHashMapItem* const item = lookup(key);
        return item != nullptr ? number(getValue(item)) : 0;
    }

    Items items() const {
        Items all;
        for (CVQHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item))
            all.emplace_back(getKey(item), number(getValue(item)));
        return all;
    }

    Calls takeCalls() const { return std::exchange(mCalls, {}); }

    unsigned mConstructed = 0;
    unsigned mAddedByCopies = 0;

private:
    mutable Calls mCalls;
};

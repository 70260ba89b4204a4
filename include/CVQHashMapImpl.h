// CVQHashMapImpl: the untyped engine of hash tables with 32-bit keys. A template completes it with the hooks that
// know values; TVQHashMap is the one at hand.
//   Shape    one array: a power of two of buckets, then half as many overflow cells. A key's bucket is its low
//            bits. The first key of a bucket lies in the bucket's cell, the others in overflow cells, linked behind
//            it, the newest first. 72 bytes on the target, 12 a cell. Bucket 0 holds a reserved key, so that it is
//            never free. Nothing is ever removed but by `clear`.
//   Growth   when a key needs an overflow cell and none is left, the buckets double.
//   Order    that of the array: buckets ascending, then the overflow cells as they were taken.
//   Key 0    marks a free bucket and cannot be stored: it is never found. `insert` refuses it with an assertion and
//            stores nothing. So does `access`, which then returns the place of a value that belongs to no entry and
//            that the next such access, or `clear`, ends.
//   Invalid  items are valid until the table grows, is cleared or assigned to. A reference from `access` lives one
//            growth longer: the array that a growth replaces is kept until the next keyed access (`access`, or a
//            growth by `insert`), which first carries over what has been written through the references to the key
//            accessed last and to the entry created last. Until then their values are at home in that array:
//            `homeOf` knows, and copies and destruction ask it. `lookup` and `getValue` show the new array as it
//            is; what is written there to the key accessed last is lost.
//   Errors   none but that of key 0 (CVQHashMapImpl:1, :2). More than `kMaxBuckets` buckets end the process in a
//            fatal error where they are asked for; a failed allocation ends it in VQMemory::allocChecked.
//   Threads  one thread at a time, for reading too: a look-up writes its key into the end marker.
//   Hooks    may not throw, and may not call into the table that calls them. Values are moved as bytes.
//   Kept     hashmap-second-key: `insert` stores an equal key a second time; which one is found follows from the
//            order in the chain, and may be another one after a growth. Carrying over loses none: the value goes to
//            the one that is found, whose own goes where the entry accessed last has moved to.
//            hashmap-construct-empty-key: a value that is created in a free bucket is constructed with the empty
//            key in place of its own.
//            hashmap-copy-128: a copy goes back to 128 buckets when it is cleared, whatever its source does. Only a
//            copy of a table without an array does as its source would.
//            hashmap-carry-overwrites: the value that is carried over replaces what the new array holds, also when
//            nothing has been written to it.
#pragma once

#include <VQExport.h>

#include <cstddef>
#include <cstdint>

/// An entry as the table links it.
struct CVQHashMapItem {
    /// A pointer, or in its place a value of another type that fits.
    using Content VQ_MAY_ALIAS = void*;

    unsigned int mKey;
    Content mValue;
    CVQHashMapItem* mNext;  ///< the table's end marker for the last of a chain, and for a free bucket
};

class VQ_EXPORT CVQHashMapImpl {
public:
    static constexpr unsigned int kReservedKey = 1;
    static constexpr unsigned int kEmptyKey = 0;
    static constexpr std::size_t kInitialBucketsOfCopy = 128;

    /// The largest array whose size fits the target's 32 bits, and on wider hosts 2^30 buckets.
    static constexpr std::size_t kMaxBuckets = sizeof(void*) == 4 ? std::size_t{1} << 27 : std::size_t{1} << 30;

    /// The smallest power of two of at least `n` buckets, and at least 2; `clear` goes back to as many.
    explicit CVQHashMapImpl(std::size_t n);
    /// As many buckets as `source` now has. Its duplicateValue is called on each value that was taken over.
    CVQHashMapImpl(const CVQHashMapImpl& source);
    /// Destroys the present values, then does the same. `clear` keeps to this table's number of buckets.
    CVQHashMapImpl& operator=(const CVQHashMapImpl& source);

    /// Gives the table's memory back. The values are for the deriving class's destructor, by `clearEntries`: here
    /// its hooks are gone.
    virtual ~CVQHashMapImpl() { releaseStorage(); }
    /// Replaces a value that another table owns by a copy.
    virtual void duplicateValue(void** value) const = 0;
    virtual void destroyValue(void** value, unsigned int key) = 0;
    /// Gives the null in a new entry its first value. Kept: hashmap-construct-empty-key.
    virtual void constructValue(void** value, unsigned int key) = 0;

    /// An empty table with the smallest power of two of at least `n` buckets, and at least 2. The values of a
    /// former array are forgotten, not destroyed.
    void initTable(std::size_t n);

    /// The bucket for `key`.
    CVQHashMapItem* hash(unsigned int key) const { return mTable.mCells + (key & mTable.mMask); }

    /// Stores `value` as it is, without looking for an equal key. Grows only where there is no cell left.
    void insert(unsigned int key, void* value);

    /// The first item in chain order that has the key, or null.
    CVQHashMapItem* lookup(unsigned int key) const {
        CVQHashMapItem* const item = walk(hash(key), key);
        return item != &mSentinel ? item : nullptr;
    }

    /// The value of `key`, created if need be. See "Invalid" above for how long.
    void*& access(unsigned int key) {
        if (VQ_UNLIKELY(mPrevious.mCells != nullptr)) {
            settle();
        }
        return access(hash(key), key);
    }

    /// The rest of it: `bucket` is that of `key`, and no previous array is kept.
    void*& access(CVQHashMapItem* bucket, unsigned int key) {
        if (bucket->mKey == kEmptyKey) {
            return createInBucket(bucket, key);
        }
        CVQHashMapItem* const item = walk(bucket, key);
        if (VQ_LIKELY(item != &mSentinel)) {
            mLastKey = key;
            return item->mValue;
        }
        return createInChain(key);
    }

    /// Doubles the buckets and keeps the old array until the next keyed access.
    void rehash();
    /// Carries over what has been written to the array that the last growth replaced, and releases it.
    void deleteOldTable();

    /// Destroys all values and goes back to the initial number of buckets.
    void clear();
    /// Calls destroyValue for each entry; the entries stay.
    void clearEntries();

    CVQHashMapItem* firstItem() const { return nextItem(mTable.mCells); }
    /// Null at the end.
    CVQHashMapItem* nextItem(CVQHashMapItem* item) const {
        // An overflow cell in use never holds the empty key: this skips free buckets only.
        do {
            ++item;
        } while (item != mTable.mNextFree && item->mKey == kEmptyKey);
        return item != mTable.mNextFree ? item : nullptr;
    }

    /// The number of entries. Goes through all buckets.
    unsigned int size() const;
    /// The number of cells: buckets and half as many more.
    unsigned int capacity() const { return mTable.mBucketCount + mTable.mBucketCount / 2; }

    unsigned int getKey(const CVQHashMapItem* item) const { return item->mKey; }
    void* getValue(const CVQHashMapItem* item) const { return item->mValue; }

    /// The item where the value of `item` is at home: itself or, until the next keyed access, the one with its key
    /// in the array that the last growth replaced.
    CVQHashMapItem* homeOf(CVQHashMapItem* item) const {
        return VQ_LIKELY(mPrevious.mCells == nullptr) ? item : homeKept(item);
    }

protected:
    /// A table without an array, empty until its first insertion; then it takes its initial number of buckets, 2.
    CVQHashMapImpl() noexcept { forgetArrays(); }

    /// Takes over all that `other` has, which has no array afterwards. The values of a former array are forgotten.
    /// All cells are gone through: the ends of chains point into the table that they belong to.
    void take(CVQHashMapImpl& other) noexcept;

    /// Whether `value` is the place that a refused access returned, which is no entry's.
    bool isRefused(void* const* value) const { return value == &mSentinel.mValue; }

private:
    struct STable {
        CVQHashMapItem* mCells;
        CVQHashMapItem* mEnd;
        CVQHashMapItem* mNextFree;
        unsigned int mBucketCount;
        unsigned int mMask;
    };

    /// With more buckets than these a table is taken not to fit the processor's caches.
    static constexpr unsigned int kBucketsInCache = 1U << 14U;

    /// `yes` or `no`, without a jump.
    static CVQHashMapItem* choose(bool condition, CVQHashMapItem* yes, CVQHashMapItem* no) {
        const auto whenTrue = reinterpret_cast<std::uintptr_t>(yes);
        const auto whenFalse = reinterpret_cast<std::uintptr_t>(no);
        const std::uintptr_t mask = std::uintptr_t{0} - std::uintptr_t{condition};
        return reinterpret_cast<CVQHashMapItem*>(whenFalse ^ ((whenTrue ^ whenFalse) & mask));
    }

    /// The item that has the key, from `item` on, or the end marker.
    CVQHashMapItem* walk(CVQHashMapItem* item, unsigned int key) const {
        mSentinel.mKey = key;
        // About every third key is not the first of its bucket, so a jump is foretold wrongly as often. In the
        // caches that costs more than going the first two steps without one. Out of them it costs less: what the
        // processor begins on a guess is the next look-up's wait for memory.
        if (mTable.mMask < kBucketsInCache) {
            item = choose(item->mKey == key, item, item->mNext);
            item = choose(item->mKey == key, item, item->mNext);
        }
        while (item->mKey != key) {
            item = item->mNext;
        }
        return item;
    }

    bool hasArray() const { return mTable.mCells != &mSentinel; }
    CVQHashMapItem* keptLast() const;
    CVQHashMapItem* keptNewest() const;
    CVQHashMapItem* homeKept(CVQHashMapItem* item) const;
    CVQHashMapItem* claim(CVQHashMapItem* bucket, unsigned int key);
    CVQHashMapItem* bucketWithRoom(unsigned int key);
    void*& createInBucket(CVQHashMapItem* bucket, unsigned int key);
    void*& createInChain(unsigned int key);
    void*& refuse();
    void dropRefused();
    void settle();
    void allocateTable(std::size_t n);
    void takeBuckets(std::size_t n);
    void transfer(const CVQHashMapImpl& source);
    void forgetArrays() noexcept;
    void releaseStorage() noexcept;

    unsigned int mReservedKey = kReservedKey;
    unsigned int mEmptyKey = kEmptyKey;
    unsigned int mInitialBucketCount = 2;
    // Every chain ends here. Its key is the one looked up last, its value that of the last refused access.
    mutable CVQHashMapItem mSentinel{};
    STable mTable;
    STable mPrevious;  // no cells: nothing is kept. The end marker: there is no array either, see forgetArrays
    unsigned int mLastKey = kEmptyKey;
};

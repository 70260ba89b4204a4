// CVQHashArrayImpl: the untyped engine of hash tables with keys of any kind. A template completes it with the hooks
// that know keys and values; TVQHashArray is the one at hand.
//   Shape    an array of buckets, a power of two of them. The first item of a bucket lies in the array, so that a
//            chain of one needs no memory of its own; the others are nodes on the heap. 44 bytes on the target,
//            12 a bucket, 12 a node. Without an array (`init(0)`, after `destroy`, when moved from) a table is
//            empty and takes its first bucket with its first item.
//   Growth   at an average chain length of 2 the buckets double; see `fastInsert`. Tables of more than 1,024
//            buckets shrink by half once their items are half as many as their buckets, see `removeItem`.
//   Order    buckets ascending; in a bucket the item that came first, then the others, the newest before the older.
//            Growing, shrinking and copying go through a chain in its order, which turns its nodes round.
//   Invalid  an item (and the address of its value) is valid until something is inserted or removed: growing moves
//            all items, and removing the first of a bucket moves the second into its place. What keys and values
//            point to never moves.
//   Errors   none are reported. More than `kMaxBuckets` buckets end the process in a fatal error where they are
//            asked for; a failed allocation ends it in VQMemory::allocChecked.
//   Threads  one thread at a time, for reading too: a look-up writes its key into the end marker, a walk by
//            firstItem and nextItem keeps its place in the table.
//   Hooks    may not throw, and may not call into the table that calls them.
//   Kept     hasharray-second-key: `fastInsert` stores an equal key a second time; which one is found follows from
//            the order above.
//            hasharray-copy-turns: a copy has the chains behind its buckets' first items the other way round.
#pragma once

#include <VQExport.h>

#include <cstddef>

/// A bucket's cell in the array, and a node behind it.
struct CVQHashArrayItem {
    /// A pointer, or in its place a key or value of another type that fits.
    using Content VQ_MAY_ALIAS = void*;

    Content mKey;
    Content mValue;
    CVQHashArrayItem*
        mNext;  ///< the table's end marker for the last of a chain; null in the cell of an empty bucket
};

class VQ_EXPORT CVQHashArrayImpl {
public:
    /// The `comparisonKind` of keys that are equal when their pointers are: `equal` is not called for them.
    static constexpr int kCompareByIdentity = 3;

    /// The largest array whose size and thresholds fit the target's 32 bits, and on wider hosts 2^30.
    static constexpr std::size_t kMaxBuckets = sizeof(void*) == 4 ? std::size_t{1} << 28 : std::size_t{1} << 30;

    /// The smallest power of two of at least `n` buckets, and at least 1.
    explicit CVQHashArrayImpl(std::size_t n);
    /// As many buckets as `source`; its items, copied by its own hooks. Nothing grows.
    CVQHashArrayImpl(const CVQHashArrayImpl& source);
    /// Destroys the present items, then takes as many buckets and, by `fastInsert`, all items of `source`.
    CVQHashArrayImpl& operator=(const CVQHashArrayImpl& source);

    virtual unsigned int hash(const void* key) const = 0;
    virtual int comparisonKind() const = 0;
    virtual bool equal(const void* itemKey, const void* key) const = 0;
    /// `item` is about to go, or to be overwritten.
    virtual void destroyKey(CVQHashArrayItem* item) = 0;
    virtual void destroyValue(void** value) = 0;
    /// Replace a borrowed key or value by a copy that the table may own.
    virtual void copyKey(void** key) const = 0;
    virtual void copyValue(void** value) const = 0;
    /// Gives the table's memory back. The items are for the deriving class's destructor, by `destroy`: here its
    /// hooks are gone.
    virtual ~CVQHashArrayImpl() { releaseStorage(); }

    /// An empty table of exactly `count` buckets, which should be a power of two. The items of a former array are
    /// forgotten, not destroyed.
    void init(std::size_t count);
    /// Destroys all items and releases the array.
    void destroy();
    /// `destroy`, then `init(2)`.
    void clear();

    /// The bucket for `key`.
    CVQHashArrayItem* tableEntryFor(const void* key) const { return mBuckets + (hash(key) & mMask); }

    /// The first item in chain order that has the key, or null.
    CVQHashArrayItem* lookup(const void* key) const { return lookupWith(*this, key); }

    /// Inserts copies of both, without looking for an equal key. When that makes twice as many items as buckets,
    /// the table is first rebuilt with as many buckets as items.
    CVQHashArrayItem* fastInsert(void* key, void* value);

    /// As `fastInsert`, but null, with nothing changed, when there is an equal key.
    CVQHashArrayItem* insertNew(void* key, void* value) { return insertNewWith(*this, key, value); }

    /// Places a key and a value in `bucket` as they are, uncounted: into its cell when it is empty, otherwise into
    /// a new node directly behind the cell. Not for a table without an array.
    CVQHashArrayItem* insertAtPosition(CVQHashArrayItem* bucket, void* key, void* value);

    /// Removes the item that `lookup` finds. False when there is none.
    bool remove(const void* key);

    /// Destroys the item's key and value and takes it out of the table. When that leaves half as many items as
    /// there are buckets, in a table of more than 1,024, the table is rebuilt with as many buckets as items.
    void removeItem(CVQHashArrayItem* item);

    /// Moves all items into an array of exactly `count` buckets (at least 1), which should be a power of two. With
    /// at most half as many buckets as items the table grows no more, unless removing brings it under that first.
    void rehash(std::size_t count);

    /// The one walk that the table itself keeps: firstItem starts it, nextItem goes on behind the item that it is
    /// given. Null at the end.
    CVQHashArrayItem* firstItem() const { return firstItem(mCursor); }
    CVQHashArrayItem* nextItem(CVQHashArrayItem* item) const { return nextItem(item, mCursor); }

    /// The same for a walk that keeps its bucket in `cursor` itself, so that several can go on at a time.
    CVQHashArrayItem* firstItem(CVQHashArrayItem*& cursor) const {
        cursor = mBuckets;
        return cursor->mNext != nullptr ? cursor : nextBucket(cursor);
    }
    CVQHashArrayItem* nextItem(CVQHashArrayItem* item, CVQHashArrayItem*& cursor) const {
        CVQHashArrayItem* const next = item->mNext;
        return next != nullptr && next != &mSentinel ? next : nextBucket(cursor);
    }

    void* getKey(const CVQHashArrayItem* item) const { return item->mKey; }
    void* getValue(const CVQHashArrayItem* item) const { return item->mValue; }
    /// The number of items.
    unsigned int size() const { return mItemCount; }
    /// The number of buckets.
    unsigned int capacity() const { return mBucketCount; }

protected:
    /// A table without an array.
    CVQHashArrayImpl() noexcept { forgetArray(); }

    /// The bodies of the operations, for a deriving class that calls them with itself as `hooks`: when it is final,
    /// its hooks are called directly, and may be compiled in.
    template <class Hooks>
    CVQHashArrayItem* lookupWith(const Hooks& hooks, const void* key) const {
        return findInBucket(hooks, mBuckets + (hooks.hash(key) & mMask), key);
    }
    template <class Hooks>
    CVQHashArrayItem* insertNewWith(const Hooks& hooks, void* key, void* value) {
        CVQHashArrayItem* const bucket = mBuckets + (hooks.hash(key) & mMask);
        return findInBucket(hooks, bucket, key) == nullptr ? insertCounted(bucket, key, value) : nullptr;
    }

    /// Takes over the array of `other`, which has none afterwards. The items of a former array are forgotten. Every
    /// chain is walked to its end, which points into the table that it belongs to.
    void take(CVQHashArrayImpl& other) noexcept;

private:
    CVQHashArrayItem* nextBucket(CVQHashArrayItem*& cursor) const {
        const CVQHashArrayItem* const end = mBuckets + mBucketCount;
        while (cursor < end && ++cursor < end) {
            if (cursor->mNext != nullptr) {
                return cursor;
            }
        }
        return nullptr;
    }

    template <class Hooks>
    CVQHashArrayItem* findInBucket(const Hooks& hooks, CVQHashArrayItem* bucket, const void* key) const {
        CVQHashArrayItem* item = bucket;
        if (item->mNext == nullptr) {
            return nullptr;
        }
        mSentinel.mKey = const_cast<void*>(key);
        if (hooks.comparisonKind() == kCompareByIdentity) {
            while (item->mKey != key) {
                item = item->mNext;
            }
            return item != &mSentinel ? item : nullptr;
        }
        do {
            // Comparing waits for what the key points to; the next node may as well come meanwhile.
            CVQHashArrayItem* const next = item->mNext;
            __builtin_prefetch(next);
            if (hooks.equal(item->mKey, key)) {
                return item;
            }
            item = next;
        } while (item != &mSentinel);
        return nullptr;
    }

    CVQHashArrayItem* insertCounted(CVQHashArrayItem* bucket, void* key, void* value);
    template <class MakeNode>
    CVQHashArrayItem* place(CVQHashArrayItem* bucket, void* key, void* value, MakeNode makeNode);
    void forgetArray() noexcept;
    void releaseStorage() noexcept;

    mutable CVQHashArrayItem mSentinel{};  // every chain ends here; its key is the one looked up last
    CVQHashArrayItem* mBuckets;
    mutable CVQHashArrayItem* mCursor;
    unsigned int mBucketCount;
    unsigned int mMask;
    unsigned int mShrinkThreshold;
    unsigned int mGrowThreshold;
    unsigned int mItemCount;
};

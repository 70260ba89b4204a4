#include <CVQHashMapImpl.h>

#include <CVQAsserter.h>
#include <VQMemory.h>
#include <container/BucketCount.h>
#include <stream/toLength.h>

namespace {

constexpr char kUnit[] = "CVQHashMapImpl";
constexpr unsigned kLineInsertKeyZero = 1;
constexpr unsigned kLineAccessKeyZero = 2;
constexpr unsigned kLineTooManyBuckets = 3;

/// How many keys ahead a rebuilding table asks for their buckets: by then memory has answered.
constexpr std::ptrdiff_t kAhead = 8;

constexpr char kKeyZero[] = "Key 0 cannot be stored";

constexpr std::size_t cellsFor(std::size_t buckets) {
    return buckets + buckets / 2;
}

}  // namespace

static_assert(cellsFor(CVQHashMapImpl::kMaxBuckets) <= (~std::size_t{0} - 64) / sizeof(CVQHashMapItem), "its size");

CVQHashMapImpl::CVQHashMapImpl(std::size_t n) : CVQHashMapImpl() {
    initTable(n);
    mInitialBucketCount = mTable.mBucketCount;
}

CVQHashMapImpl::CVQHashMapImpl(const CVQHashMapImpl& source) : CVQHashMapImpl() {
    // Kept: hashmap-copy-128. Without an array there is no size to copy but the one to begin with.
    mInitialBucketCount = source.hasArray() ? toLength(kInitialBucketsOfCopy) : source.mInitialBucketCount;
    transfer(source);
}

CVQHashMapImpl& CVQHashMapImpl::operator=(const CVQHashMapImpl& source) {
    if (this != &source) {
        clearEntries();
        transfer(source);
    }
    return *this;
}

/// The values of a former array are forgotten.
void CVQHashMapImpl::transfer(const CVQHashMapImpl& source) {
    releaseStorage();
    if (!source.hasArray()) {
        return;
    }
    initTable(source.mTable.mBucketCount);
    for (CVQHashMapItem* item = source.firstItem(); item != nullptr; item = source.nextItem(item)) {
        CVQHashMapItem::Content value = source.homeOf(item)->mValue;
        source.duplicateValue(&value);
        insert(item->mKey, value);
    }
}

void CVQHashMapImpl::initTable(std::size_t n) {
    releaseStorage();
    takeBuckets(bucketCountFor(n, 2, kMaxBuckets));
}

/// What a former array held is in other hands. Nothing in the new one is set.
void CVQHashMapImpl::allocateTable(std::size_t n) {
    if (VQ_UNLIKELY(n > kMaxBuckets)) {
        doFatalError(kLineTooManyBuckets, kUnit, "Too many buckets");
    }
    const std::size_t count = cellsFor(n);
    auto* const cells = static_cast<CVQHashMapItem*>(VQMemory::allocChecked(count * sizeof(CVQHashMapItem)));
    mTable = {cells, cells + count, cells + n, toLength(n), toLength(n - 1)};
}

/// For a table without an array.
void CVQHashMapImpl::takeBuckets(std::size_t n) {
    allocateTable(n);
    mPrevious = {};
    for (CVQHashMapItem* bucket = mTable.mCells; bucket != mTable.mNextFree; ++bucket) {
        *bucket = {mEmptyKey, nullptr, &mSentinel};
    }
    mTable.mCells->mKey = mReservedKey;
}

void CVQHashMapImpl::insert(unsigned int key, void* value) {
    if (VQ_UNLIKELY(key == kEmptyKey)) {
        doAssert(kLineInsertKeyZero, kUnit, kKeyZero);
        return;
    }
    if (!hasArray()) {
        takeBuckets(mInitialBucketCount);
    }
    // Kept: hashmap-second-key.
    claim(bucketWithRoom(key), key)->mValue = value;
}

/// The bucket of `key`, in a table that has a cell left for it.
CVQHashMapItem* CVQHashMapImpl::bucketWithRoom(unsigned int key) {
    if (VQ_UNLIKELY(mTable.mNextFree == mTable.mEnd) && hash(key)->mKey != kEmptyKey) {
        rehash();
    }
    return hash(key);
}

/// A new entry of `key` in its bucket's cell or in the next free one, its value null.
CVQHashMapItem* CVQHashMapImpl::claim(CVQHashMapItem* bucket, unsigned int key) {
    CVQHashMapItem* cell = bucket;
    if (bucket->mKey != kEmptyKey) {
        cell = mTable.mNextFree++;
        cell->mNext = bucket->mNext;
        bucket->mNext = cell;
    }
    cell->mKey = key;
    cell->mValue = nullptr;
    return cell;
}

void*& CVQHashMapImpl::createInBucket(CVQHashMapItem* bucket, unsigned int key) {
    bucket->mKey = key;
    bucket->mValue = nullptr;
    // Kept: hashmap-construct-empty-key.
    constructValue(&bucket->mValue, kEmptyKey);
    mLastKey = key;
    return bucket->mValue;
}

void*& CVQHashMapImpl::createInChain(unsigned int key) {
    if (VQ_UNLIKELY(key == kEmptyKey)) {
        return refuse();
    }
    CVQHashMapItem* const cell = claim(bucketWithRoom(key), key);
    constructValue(&cell->mValue, key);
    return cell->mValue;
}

/// The end marker is no entry, so its value can stand in for one. It stays where it is when the table grows.
void*& CVQHashMapImpl::refuse() {
    doAssert(kLineAccessKeyZero, kUnit, kKeyZero);
    dropRefused();
    constructValue(&mSentinel.mValue, kEmptyKey);
    return mSentinel.mValue;
}

void CVQHashMapImpl::dropRefused() {
    if (mSentinel.mValue != nullptr) {
        destroyValue(&mSentinel.mValue, kEmptyKey);
        mSentinel.mValue = nullptr;
    }
}

void CVQHashMapImpl::rehash() {
    if (VQ_UNLIKELY(mPrevious.mCells != nullptr)) {
        settle();
    }
    const STable old = mTable;
    CVQHashMapItem* const last = lookup(mLastKey);
    allocateTable(std::size_t{2} * old.mBucketCount);

    // The first key of a bucket goes to the bucket with the same number or to that in the other half, which no other
    // old bucket's keys share. The one of the two that it does not go to is free; bucket 0 keeps the reserved key.
    CVQHashMapItem* const lower = mTable.mCells;
    CVQHashMapItem* const upper = lower + old.mBucketCount;
    for (unsigned i = 0; i < old.mBucketCount; ++i) {
        const CVQHashMapItem& cell = old.mCells[i];
        const bool goesUp = (cell.mKey & old.mBucketCount) != 0;
        lower[i] = {goesUp ? mEmptyKey : cell.mKey, cell.mValue, &mSentinel};
        upper[i] = {goesUp ? cell.mKey : mEmptyKey, cell.mValue, &mSentinel};
    }
    if (last != nullptr) {
        last->mNext = hash(last->mKey);
    }
    CVQHashMapItem* moved = nullptr;
    for (CVQHashMapItem* cell = old.mCells + old.mBucketCount; cell != old.mNextFree; ++cell) {
        if (old.mNextFree - cell > kAhead) {
            __builtin_prefetch(hash(cell[kAhead].mKey), /*to be written*/ 1);
        }
        moved = claim(hash(cell->mKey), cell->mKey);
        moved->mValue = cell->mValue;
        if (cell == last) {
            last->mNext = moved;
        }
    }
    // Nobody walks the old chains any more. Their links tell where the two entries are now whose old values may still
    // be written to, and the reserved cell which these are.
    const unsigned placeOfLast = last != nullptr ? toLength(static_cast<std::size_t>(last - old.mCells)) : 0;
    *old.mCells = {placeOfLast, moved != nullptr ? old.mNextFree[-1].mValue : nullptr, moved};
    mPrevious = old;
}

/// The old cell of the entry accessed last, or null. Its link leads to the new one.
CVQHashMapItem* CVQHashMapImpl::keptLast() const {
    const unsigned place = mPrevious.mCells->mKey;
    return place != 0 ? mPrevious.mCells + place : nullptr;
}

/// The old cell of the entry created last, or null: the one that took the last overflow cell. A reference to it is
/// not covered by the last key, which an access that creates an entry in a chain leaves alone. The reserved cell's
/// link leads to the new cell, and its value is the one that the entry had when the table grew.
CVQHashMapItem* CVQHashMapImpl::keptNewest() const {
    return mPrevious.mCells->mNext != nullptr ? mPrevious.mNextFree - 1 : nullptr;
}

CVQHashMapItem* CVQHashMapImpl::homeKept(CVQHashMapItem* item) const {
    if (item == mPrevious.mCells->mNext) {
        return keptNewest();
    }
    CVQHashMapItem* const last = keptLast();
    return last != nullptr && last->mNext == item ? last : item;
}

void CVQHashMapImpl::deleteOldTable() {
    if (mPrevious.mCells == nullptr || !hasArray()) {
        return;
    }
    const CVQHashMapItem* const newest = keptNewest();
    if (newest != nullptr && newest->mValue != mPrevious.mCells->mValue) {
        mPrevious.mCells->mNext->mValue = newest->mValue;
    }
    if (const CVQHashMapItem* const last = keptLast(); last != nullptr) {
        // Kept: hashmap-carry-overwrites. Of several entries of the key the growth may have put another one first:
        // that one's value then goes where the one accessed last would have gone.
        CVQHashMapItem* const first = walk(hash(last->mKey), last->mKey);
        last->mNext->mValue = first->mValue;
        first->mValue = last->mValue;
    }
    VQMemory::release(mPrevious.mCells);
    mPrevious = {};
}

/// For a keyed access that finds a previous array, or that there is none at all yet.
void CVQHashMapImpl::settle() {
    if (hasArray()) {
        deleteOldTable();
    } else {
        takeBuckets(mInitialBucketCount);
    }
}

void CVQHashMapImpl::clear() {
    clearEntries();
    initTable(mInitialBucketCount);
}

void CVQHashMapImpl::clearEntries() {
    for (CVQHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item)) {
        destroyValue(&homeOf(item)->mValue, item->mKey);
    }
    dropRefused();
}

unsigned int CVQHashMapImpl::size() const {
    unsigned int count = 0;
    for (CVQHashMapItem* item = firstItem(); item != nullptr; item = nextItem(item)) {
        ++count;
    }
    return count;
}

void CVQHashMapImpl::take(CVQHashMapImpl& other) noexcept {
    releaseStorage();
    mInitialBucketCount = other.mInitialBucketCount;
    if (!other.hasArray()) {
        return;
    }
    mTable = other.mTable;
    mPrevious = other.mPrevious;
    mLastKey = other.mLastKey;
    for (CVQHashMapItem* cell = mTable.mCells; cell != mTable.mNextFree; ++cell) {
        if (cell->mNext == &other.mSentinel) {
            cell->mNext = &mSentinel;
        }
    }
    other.forgetArrays();
}

/// The end marker does for an array: look-ups end at once, and walks have nothing to go through. It stands for the
/// previous array as well, so that the next access settles what there is before it looks at any bucket.
void CVQHashMapImpl::forgetArrays() noexcept {
    mTable = {&mSentinel, &mSentinel + 1, &mSentinel + 1, 0, 0};
    mPrevious = mTable;
    mLastKey = kEmptyKey;
}

void CVQHashMapImpl::releaseStorage() noexcept {
    if (hasArray()) {
        VQMemory::release(mTable.mCells);
        VQMemory::release(mPrevious.mCells);
    }
    forgetArrays();
}

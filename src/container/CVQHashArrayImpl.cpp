#include <CVQHashArrayImpl.h>

#include <CVQAsserter.h>
#include <VQMemory.h>
#include <container/BucketCount.h>
#include <stream/toLength.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr char kUnit[] = "CVQHashArrayImpl";
constexpr unsigned kLineTooManyBuckets = 1;

constexpr unsigned kLargestThatNeverShrinks = 1024;

/// How many buckets ahead a rebuilding table asks for keys and nodes: by then memory has answered.
constexpr unsigned kAhead = 8;

/// What a table without an array has for its buckets: one that stays empty, as the first item makes the table grow.
constexpr CVQHashArrayItem kEmptyBucket{};

CVQHashArrayItem* noArray() {
    return const_cast<CVQHashArrayItem*>(&kEmptyBucket);
}

CVQHashArrayItem* allocateItems(std::size_t count) {
    return static_cast<CVQHashArrayItem*>(VQMemory::allocChecked(count * sizeof(CVQHashArrayItem)));
}

}  // namespace

static_assert(CVQHashArrayImpl::kMaxBuckets <= (~std::size_t{0} - 64) / sizeof(CVQHashArrayItem),
              "an array's size");
static_assert(2 * CVQHashArrayImpl::kMaxBuckets <= 0xFFFFFFFFU, "the grow threshold");

CVQHashArrayImpl::CVQHashArrayImpl(std::size_t n) : CVQHashArrayImpl() {
    init(bucketCountFor(n, 1, kMaxBuckets));
}

CVQHashArrayImpl::CVQHashArrayImpl(const CVQHashArrayImpl& source) : CVQHashArrayImpl() {
    init(source.mBucketCount);
    // Kept: hasharray-copy-turns. The hooks of this table are not there yet; the source's are.
    CVQHashArrayItem* cursor = nullptr;
    for (CVQHashArrayItem* item = source.firstItem(cursor); item != nullptr; item = source.nextItem(item, cursor)) {
        CVQHashArrayItem::Content key = item->mKey;
        CVQHashArrayItem::Content value = item->mValue;
        source.copyKey(&key);
        source.copyValue(&value);
        insertAtPosition(mBuckets + (source.hash(key) & mMask), key, value);
        ++mItemCount;
    }
}

CVQHashArrayImpl& CVQHashArrayImpl::operator=(const CVQHashArrayImpl& source) {
    if (this != &source) {
        destroy();
        init(source.mBucketCount);
        CVQHashArrayItem* cursor = nullptr;
        for (CVQHashArrayItem* item = source.firstItem(cursor); item != nullptr;
             item = source.nextItem(item, cursor)) {
            fastInsert(item->mKey, item->mValue);
        }
    }
    return *this;
}

void CVQHashArrayImpl::init(std::size_t count) {
    if (VQ_UNLIKELY(count > kMaxBuckets)) {
        doFatalError(kLineTooManyBuckets, kUnit, "Too many buckets");
    }
    releaseStorage();
    if (count == 0) {
        return;
    }
    mBuckets = allocateItems(count);
    std::memset(static_cast<void*>(mBuckets), 0, count * sizeof(CVQHashArrayItem));
    mCursor = mBuckets;
    mBucketCount = toLength(count);
    mMask = mBucketCount - 1;
    mShrinkThreshold = mBucketCount > kLargestThatNeverShrinks ? mBucketCount / 2 : 0;
    mGrowThreshold = 2 * mBucketCount;
}

void CVQHashArrayImpl::destroy() {
    CVQHashArrayItem* cursor = nullptr;
    for (CVQHashArrayItem* item = firstItem(cursor); item != nullptr; item = nextItem(item, cursor)) {
        destroyKey(item);
        destroyValue(&item->mValue);
    }
    releaseStorage();
}

void CVQHashArrayImpl::clear() {
    destroy();
    init(2);
}

CVQHashArrayItem* CVQHashArrayImpl::fastInsert(void* key, void* value) {
    // Kept: hasharray-second-key. Callers that know their keys to be new save the search.
    return insertCounted(tableEntryFor(key), key, value);
}

CVQHashArrayItem* CVQHashArrayImpl::insertCounted(CVQHashArrayItem* bucket, void* key, void* value) {
    ++mItemCount;
    if (VQ_UNLIKELY(mItemCount == mGrowThreshold)) {
        rehash(mItemCount);
        bucket = tableEntryFor(key);
    }
    CVQHashArrayItem::Content ownKey = key;
    CVQHashArrayItem::Content ownValue = value;
    copyKey(&ownKey);
    copyValue(&ownValue);
    return insertAtPosition(bucket, ownKey, ownValue);
}

CVQHashArrayItem* CVQHashArrayImpl::insertAtPosition(CVQHashArrayItem* bucket, void* key, void* value) {
    return place(bucket, key, value, [] { return allocateItems(1); });
}

/// `makeNode` is asked for a node if the bucket is taken.
template <class MakeNode>
CVQHashArrayItem* CVQHashArrayImpl::place(CVQHashArrayItem* bucket, void* key, void* value, MakeNode makeNode) {
    if (bucket->mNext == nullptr) {
        *bucket = {key, value, &mSentinel};
        return bucket;
    }
    CVQHashArrayItem* const node = makeNode();
    *node = {key, value, bucket->mNext};
    bucket->mNext = node;
    return node;
}

bool CVQHashArrayImpl::remove(const void* key) {
    CVQHashArrayItem* const item = lookup(key);
    if (item == nullptr) {
        return false;
    }
    removeItem(item);
    return true;
}

void CVQHashArrayImpl::removeItem(CVQHashArrayItem* item) {
    CVQHashArrayItem* const bucket = tableEntryFor(item->mKey);
    destroyKey(item);
    destroyValue(&item->mValue);
    CVQHashArrayItem* node = item;
    if (item == bucket) {
        node = item->mNext;
        if (node != &mSentinel) {
            *bucket = *node;
        } else {
            *bucket = {};
            node = nullptr;
        }
    } else {
        CVQHashArrayItem* before = bucket;
        while (before->mNext != item) {
            before = before->mNext;
        }
        before->mNext = item->mNext;
    }
    VQMemory::release(node);
    --mItemCount;
    if (VQ_UNLIKELY(mItemCount == mShrinkThreshold) && mItemCount != 0) {
        rehash(mItemCount);
    }
}

void CVQHashArrayImpl::rehash(std::size_t count) {
    CVQHashArrayItem* const oldBuckets = mBuckets;
    const unsigned oldBucketCount = mBucketCount;
    const unsigned itemCount = mItemCount;
    forgetArray();
    init(std::max<std::size_t>(count, 1));
    mItemCount = itemCount;

    // The nodes of the old chains become those of the new ones, as far as these need any.
    CVQHashArrayItem* spare = nullptr;
    const auto takeNode = [&spare] {
        CVQHashArrayItem* const node = spare != nullptr ? spare : allocateItems(1);
        spare = spare != nullptr ? spare->mNext : nullptr;
        return node;
    };
    for (unsigned i = 0; i < oldBucketCount; ++i) {
        CVQHashArrayItem* const cell = oldBuckets + i;
        if (oldBucketCount - i > kAhead) {
            // What will be hashed, if the key is a pointer (if not, nothing comes of it), and the node after it.
            __builtin_prefetch(cell[kAhead].mKey);
            __builtin_prefetch(cell[kAhead].mNext);
        }
        if (cell->mNext == nullptr) {
            continue;
        }
        place(tableEntryFor(cell->mKey), cell->mKey, cell->mValue, takeNode);
        for (CVQHashArrayItem* item = cell->mNext; item != &mSentinel;) {
            CVQHashArrayItem* const next = item->mNext;
            void* const key = item->mKey;
            void* const value = item->mValue;
            item->mNext = spare;
            spare = item;
            place(tableEntryFor(key), key, value, takeNode);
            item = next;
        }
    }
    while (spare != nullptr) {
        CVQHashArrayItem* const next = spare->mNext;
        VQMemory::release(spare);
        spare = next;
    }
    if (oldBuckets != noArray()) {
        VQMemory::release(oldBuckets);
    }
}

void CVQHashArrayImpl::take(CVQHashArrayImpl& other) noexcept {
    releaseStorage();
    mBuckets = mCursor = other.mBuckets;
    mBucketCount = other.mBucketCount;
    mMask = other.mMask;
    mShrinkThreshold = other.mShrinkThreshold;
    mGrowThreshold = other.mGrowThreshold;
    mItemCount = other.mItemCount;
    for (unsigned i = 0; i < mBucketCount; ++i) {
        CVQHashArrayItem* item = mBuckets + i;
        if (item->mNext != nullptr) {
            while (item->mNext != &other.mSentinel) {
                item = item->mNext;
            }
            item->mNext = &mSentinel;
        }
    }
    other.forgetArray();
}

void CVQHashArrayImpl::forgetArray() noexcept {
    mBuckets = mCursor = noArray();
    mBucketCount = 0;
    mMask = 0;
    mShrinkThreshold = 0;
    mGrowThreshold = 1;
    mItemCount = 0;
}

void CVQHashArrayImpl::releaseStorage() noexcept {
    for (unsigned i = 0; i < mBucketCount; ++i) {
        CVQHashArrayItem* node = mBuckets[i].mNext;
        while (node != nullptr && node != &mSentinel) {
            CVQHashArrayItem* const next = node->mNext;
            VQMemory::release(node);
            node = next;
        }
    }
    if (mBuckets != noArray()) {
        VQMemory::release(mBuckets);
    }
    forgetArray();
}

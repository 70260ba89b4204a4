// Concerns: bucket counts and both thresholds on both sides; order in a bucket and between buckets, before and after
// growing, shrinking, removing and copying; which hooks are called, on whom, with what; look-ups by both kinds of
// comparison; walks; tables without an array; counts that are too large; random sequences against a plain model.
#include "container/HashEngines.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/SlogCapture.h"
#include "support/VirtualSlot.h"

#include <CVQHashArrayImpl.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sys/resource.h>
#include <type_traits>
#include <typeinfo>

namespace {

using support::slotOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

static_assert(sizeof(CVQHashArrayItem) == 3 * sizeof(void*), "key, value, next");
static_assert(offsetof(CVQHashArrayItem, mKey) == 0 && offsetof(CVQHashArrayItem, mValue) == sizeof(void*) &&
                  offsetof(CVQHashArrayItem, mNext) == 2 * sizeof(void*),
              "in this order");
static_assert(sizeof(void*) != 4 || sizeof(CVQHashArrayImpl) == 44, "the target's layout");
static_assert(std::is_abstract_v<CVQHashArrayImpl> && std::has_virtual_destructor_v<CVQHashArrayImpl>);

TEST(CVQHashArrayImpl, StartsWithTheSmallestPowerOfTwoOfBuckets) {
    const struct {
        std::size_t asked;
        unsigned buckets;
    } kRows[] = {{0, 1}, {1, 1}, {2, 2}, {3, 4}, {4, 4}, {5, 8}, {8, 8}, {9, 16}, {1000, 1024}, {1025, 2048}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.asked);
        const RecordingHashArray table(row.asked);
        EXPECT_EQ(row.buckets, table.capacity());
        EXPECT_EQ(0u, table.size());
        EXPECT_THAT(table.items(), IsEmpty());
    }
}

TEST(CVQHashArrayImpl, DoublesItsBucketsWhenTheItemsAreTwiceAsMany) {
    RecordingHashArray table(1);
    const unsigned kBucketsAfter[] = {1, 2, 2, 4, 4, 4, 4, 8, 8, 8, 8, 8, 8, 8, 8, 16};
    unsigned key = 0;
    for (const unsigned buckets : kBucketsAfter) {
        ++key;
        table.add(key, key);
        EXPECT_EQ(buckets, table.capacity()) << key;
        EXPECT_EQ(key, table.size());
    }
    for (; key > 0; --key)
        EXPECT_TRUE(table.has(key)) << key;
}

TEST(CVQHashArrayImpl, ShrinksALargeTableToHalfAndNeverBelow1024Buckets) {
    RecordingHashArray table(2048);
    for (unsigned key = 0; key < 1025; ++key)
        table.add(key, key);
    EXPECT_EQ(2048u, table.capacity());
    EXPECT_TRUE(table.remove(content(1024)));
    EXPECT_EQ(1024u, table.size());
    EXPECT_EQ(1024u, table.capacity());
    for (unsigned key = 0; key < 1023; ++key)
        EXPECT_TRUE(table.remove(content(key)));
    EXPECT_THAT(table.items(), ElementsAre(Pair(1023, 1023)));
    EXPECT_EQ(1024u, table.capacity());
}

TEST(CVQHashArrayImpl, ShrinksStepByStep) {
    RecordingHashArray table(8192);
    for (unsigned key = 0; key < 4097; ++key)
        table.add(key, key);
    for (unsigned key = 4096; key > 0; --key) {
        table.remove(content(key));
        const unsigned expected = key > 4096 ? 8192 : key > 2048 ? 4096 : key > 1024 ? 2048 : 1024;
        ASSERT_EQ(expected, table.capacity()) << key << " items left";
    }
    EXPECT_THAT(table.items(), ElementsAre(Pair(0, 0)));
}

TEST(CVQHashArrayImpl, DoesNotShrinkOnlyBecauseItIsNearlyEmpty) {
    RecordingHashArray table(4096);
    table.add(1, 1);
    table.add(2, 2);
    table.remove(content(1));
    table.remove(content(2));
    EXPECT_EQ(4096u, table.capacity()) << "the count met the threshold neither on the way up nor down";
}

TEST(CVQHashArrayImpl, ClearLeavesTwoBuckets) {
    RecordingHashArray table(64);
    table.add(1, 10);
    table.add(65, 20);
    table.takeCalls();
    table.clear();
    EXPECT_THAT(table.takeCalls(),
                ElementsAre("destroyKey 1", "destroyValue 10", "destroyKey 65", "destroyValue 20"));
    EXPECT_EQ(2u, table.capacity());
    EXPECT_EQ(0u, table.size());
    EXPECT_FALSE(table.has(1));
    table.add(1, 11);
    EXPECT_THAT(table.items(), ElementsAre(Pair(1, 11)));
}

TEST(CVQHashArrayImpl, ComparesKeysByIdentityForKindThree) {
    // Two objects of equal content: a key is the object.
    class Table : public RecordingHashArray {
    public:
        using RecordingHashArray::RecordingHashArray;
        unsigned int hash(const void*) const override { return 0; }
        bool equal(const void* itemKey, const void* key) const override {
            ++mComparisons;
            return *static_cast<const int*>(itemKey) == *static_cast<const int*>(key);
        }
    };
    int first = 7;
    int second = 7;
    Table byIdentity(4, 3);
    byIdentity.fastInsert(&first, nullptr);
    EXPECT_NE(nullptr, byIdentity.lookup(&first));
    EXPECT_EQ(nullptr, byIdentity.lookup(&second));
    EXPECT_EQ(0u, byIdentity.mComparisons);

    Table byContent(4, 0);
    byContent.fastInsert(&first, nullptr);
    EXPECT_EQ(byContent.lookup(&first), byContent.lookup(&second));
    EXPECT_NE(nullptr, byContent.lookup(&second));
    EXPECT_EQ(3u, byContent.mComparisons);
}

TEST(CVQHashArrayImpl, AnyOtherKindCallsEqualUntilItHolds) {
    for (const int kind : {-1, 0, 1, 2, 4}) {
        SCOPED_TRACE(kind);
        RecordingHashArray table(4, kind, 8);
        for (unsigned key = 1; key <= 4; ++key)
            table.add(key, key);
        table.mComparisons = 0;
        EXPECT_TRUE(table.has(4));  // directly behind the first
        EXPECT_EQ(2u, table.mComparisons);
        EXPECT_FALSE(table.has(5));
        EXPECT_EQ(6u, table.mComparisons) << "the end marker is not compared";
        EXPECT_FALSE(table.has(256)) << "an empty bucket";
        EXPECT_EQ(6u, table.mComparisons);
    }
}

TEST(CVQHashArrayImpl, ALookUpThatFailedIsNotRememberedInAnyChain) {
    for (const int kind : {0, 3}) {
        RecordingHashArray table(4, kind, 8);
        table.add(1, 1);
        EXPECT_FALSE(table.has(2));
        EXPECT_FALSE(table.has(2)) << "its key stands in the end marker now";
        EXPECT_TRUE(table.has(1));
    }
}

TEST(CVQHashArrayImpl, WalksBucketsUpwardsAndChainsFromTheFirstThenNewestToOldest) {
    RecordingHashArray table(4, 0, 4);
    for (const unsigned key : {0x20u, 0x00u, 0x01u, 0x02u, 0x21u, 0x41u})
        table.add(key, key);
    EXPECT_THAT(table.items(), ElementsAre(Pair(0x00, 0x00), Pair(0x41, 0x41), Pair(0x02, 0x02), Pair(0x01, 0x01),
                                           Pair(0x20, 0x20), Pair(0x21, 0x21)));
}

TEST(CVQHashArrayImpl, GrowingTurnsTheNodesOfAChainRound) {
    RecordingHashArray table(4, 0, 4);
    for (unsigned key = 1; key <= 7; ++key)
        table.add(key, key);
    EXPECT_THAT(table.items(),
                ElementsAre(Pair(1, 1), Pair(7, 7), Pair(6, 6), Pair(5, 5), Pair(4, 4), Pair(3, 3), Pair(2, 2)));
    table.takeCalls();
    table.add(8, 8);
    EXPECT_EQ(8u, table.capacity());
    EXPECT_THAT(table.takeCalls(), ElementsAre("copyKey 8", "copyValue 8")) << "moving items calls no hooks";
    EXPECT_THAT(table.items(), ElementsAre(Pair(1, 1), Pair(8, 8), Pair(2, 2), Pair(3, 3), Pair(4, 4), Pair(5, 5),
                                           Pair(6, 6), Pair(7, 7)));
}

// id: hasharray-second-key
TEST(CVQHashArrayImpl, Kept_FastInsertStoresAnEqualKeyASecondTime) {
    RecordingHashArray table(8, 0, 8);
    table.add(1, 100);
    table.add(2, 200);
    table.add(2, 201);
    EXPECT_EQ(3u, table.size());
    EXPECT_EQ(201u, number(table.getValue(table.lookup(content(2))))) << "the newer stands before the older";
    table.add(1, 101);
    EXPECT_EQ(100u, number(table.getValue(table.lookup(content(1))))) << "the first of a bucket stays first";
    EXPECT_TRUE(table.remove(content(2)));
    EXPECT_EQ(200u, number(table.getValue(table.lookup(content(2)))));
}

TEST(CVQHashArrayImpl, FastInsertReturnsTheItemWithItsCopies) {
    RecordingHashArray table(1);
    table.mAddedByCopies = 1000;
    for (unsigned key = 1; key <= 4; ++key) {
        const CVQHashArrayItem* const item = table.add(key, 10 * key);
        EXPECT_EQ(item, table.lookup(content(key)));
        EXPECT_EQ(key, number(table.getKey(item)));
        EXPECT_EQ(10 * key + 1000, number(table.getValue(item)));
    }
}

TEST(CVQHashArrayImpl, InsertNewLeavesAnEqualKeyAlone) {
    RecordingHashArray table(1);
    EXPECT_NE(nullptr, table.insertNew(content(1), content(10)));
    table.takeCalls();
    EXPECT_EQ(nullptr, table.insertNew(content(1), content(11)));
    EXPECT_THAT(table.takeCalls(), IsEmpty());
    EXPECT_NE(nullptr, table.insertNew(content(2), content(20)));
    EXPECT_EQ(2u, table.capacity());
    EXPECT_THAT(table.items(), ElementsAre(Pair(2, 20), Pair(1, 10)));
}

TEST(CVQHashArrayImpl, InsertAtPositionNeitherCountsNorCopies) {
    RecordingHashArray table(2);
    CVQHashArrayItem* const bucket = table.tableEntryFor(content(3));
    EXPECT_EQ(bucket, table.insertAtPosition(bucket, content(3), content(30)));
    CVQHashArrayItem* const second = table.insertAtPosition(bucket, content(5), content(50));
    EXPECT_NE(bucket, second);
    EXPECT_EQ(second, bucket->mNext);
    table.insertAtPosition(bucket, content(7), content(70));
    EXPECT_EQ(second, bucket->mNext->mNext);
    EXPECT_EQ(0u, table.size());
    EXPECT_THAT(table.takeCalls(), IsEmpty());
    EXPECT_THAT(table.items(), ElementsAre(Pair(3, 30), Pair(7, 70), Pair(5, 50)));
}

TEST(CVQHashArrayImpl, RemovingTheFirstOfABucketMovesTheNextIntoItsPlace) {
    RecordingHashArray table(4, 0, 8);
    CVQHashArrayItem* const bucket = table.add(1, 10);
    table.add(2, 20);
    table.add(3, 30);
    table.takeCalls();
    table.removeItem(bucket);
    EXPECT_THAT(table.takeCalls(), ElementsAre("destroyKey 1", "destroyValue 10"));
    EXPECT_EQ(bucket, table.lookup(content(3)));
    EXPECT_THAT(table.items(), ElementsAre(Pair(3, 30), Pair(2, 20)));
}

TEST(CVQHashArrayImpl, RemovingFromAChainJoinsItsNeighbours) {
    RecordingHashArray table(4, 0, 8);
    for (unsigned key = 1; key <= 4; ++key)
        table.add(key, key);
    EXPECT_TRUE(table.remove(content(3)));  // in the middle
    EXPECT_THAT(table.items(), ElementsAre(Pair(1, 1), Pair(4, 4), Pair(2, 2)));
    EXPECT_TRUE(table.remove(content(2)));  // the last
    EXPECT_THAT(table.items(), ElementsAre(Pair(1, 1), Pair(4, 4)));
    EXPECT_TRUE(table.remove(content(1)));
    EXPECT_TRUE(table.remove(content(4)));  // the only one
    EXPECT_THAT(table.items(), IsEmpty());
    EXPECT_EQ(0u, table.size());
}

TEST(CVQHashArrayImpl, RemovingAnAbsentKeyChangesNothing) {
    RecordingHashArray table(4, 0, 8);
    table.add(1, 10);
    table.takeCalls();
    EXPECT_FALSE(table.remove(content(2)));
    EXPECT_FALSE(table.remove(content(256)));
    EXPECT_THAT(table.takeCalls(), IsEmpty());
    EXPECT_EQ(1u, table.size());
}

// id: hasharray-copy-turns
TEST(CVQHashArrayImpl, Kept_ACopyHasTheChainsTheOtherWayRound) {
    RecordingHashArray source(4, 0, 4);
    for (const unsigned key : {0x01u, 0x02u, 0x03u, 0x04u, 0x11u})
        source.add(key, key);
    const RecordingHashArray copy(source);
    EXPECT_THAT(source.items(), ElementsAre(Pair(1, 1), Pair(4, 4), Pair(3, 3), Pair(2, 2), Pair(0x11, 0x11)));
    EXPECT_THAT(copy.items(), ElementsAre(Pair(1, 1), Pair(2, 2), Pair(3, 3), Pair(4, 4), Pair(0x11, 0x11)));
    RecordingHashArray assigned(1, 0, 4);
    assigned = source;
    EXPECT_EQ(copy.items(), assigned.items());
}

TEST(CVQHashArrayImpl, ACopyIsMadeByTheHooksOfItsSource) {
    RecordingHashArray source(4);
    source.add(1, 10);
    source.add(2, 20);
    source.takeCalls();
    source.mAddedByCopies = 5;
    const RecordingHashArray copy(source);
    EXPECT_THAT(source.takeCalls(), ElementsAre("copyKey 1", "copyValue 10", "copyKey 2", "copyValue 20"));
    EXPECT_THAT(copy.takeCalls(), IsEmpty());
    EXPECT_THAT(copy.items(), ElementsAre(Pair(1, 15), Pair(2, 25)));
    EXPECT_EQ(2u, copy.size());
    EXPECT_EQ(4u, copy.capacity());
}

TEST(CVQHashArrayImpl, ACopyDoesNotGrow) {
    RecordingHashArray source(2);
    for (unsigned key = 1; key <= 9; ++key)
        source.insertAtPosition(source.tableEntryFor(content(key)), content(key), content(key));
    const RecordingHashArray copy(source);
    EXPECT_EQ(9u, copy.size());
    EXPECT_EQ(2u, copy.capacity());
}

TEST(CVQHashArrayImpl, AssignmentDestroysWhatWasThereAndInsertsByItsOwnHooks) {
    RecordingHashArray source(4);
    source.add(1, 10);
    source.add(2, 20);
    RecordingHashArray target(32);
    target.add(3, 30);
    target.takeCalls();
    source.takeCalls();
    target = source;
    // The recorded calls are assigned as well: what is left is what the engine's assignment called afterwards.
    EXPECT_THAT(source.takeCalls(), IsEmpty());
    EXPECT_EQ(4u, target.capacity());
    EXPECT_THAT(target.items(), ElementsAre(Pair(1, 10), Pair(2, 20)));

    CVQHashArrayImpl& engine = target;
    engine = source;
    EXPECT_THAT(target.takeCalls(),
                ElementsAre("destroyKey 1", "destroyValue 10", "destroyKey 2", "destroyValue 20", "copyKey 1",
                            "copyValue 10", "copyKey 2", "copyValue 20"));
    EXPECT_THAT(source.takeCalls(), IsEmpty());
}

TEST(CVQHashArrayImpl, SelfAssignmentDoesNothing) {
    RecordingHashArray table(4);
    table.add(1, 10);
    table.takeCalls();
    CVQHashArrayImpl& engine = table;
    const CVQHashArrayImpl& same = table;
    engine = same;
    EXPECT_THAT(table.takeCalls(), IsEmpty());
    EXPECT_THAT(table.items(), ElementsAre(Pair(1, 10)));
}

TEST(CVQHashArrayImpl, NextItemWithoutAWalkStartsAtTheFirstBucket) {
    RecordingHashArray table(4);
    CVQHashArrayItem* const only = table.add(2, 20);
    EXPECT_EQ(only, table.firstItem());
    EXPECT_EQ(nullptr, table.nextItem(only));
    EXPECT_EQ(nullptr, table.nextItem(only)) << "the end stays the end";
}

TEST(CVQHashArrayImpl, AWalkAtItsEndStaysThere) {
    RecordingHashArray table(4);
    CVQHashArrayItem* const only = table.add(2, 20);
    CVQHashArrayItem* cursor = nullptr;
    EXPECT_EQ(only, table.firstItem(cursor));
    EXPECT_EQ(nullptr, table.nextItem(only, cursor));
    CVQHashArrayItem* const end = cursor;
    EXPECT_EQ(table.tableEntryFor(content(0)) + 4, end);
    EXPECT_EQ(nullptr, table.nextItem(only, cursor));
    EXPECT_EQ(end, cursor) << "not past the array";
}

TEST(CVQHashArrayImpl, ATableThatWasMadeTooSmallGrowsNoMore) {
    RecordingHashArray table(8);
    for (unsigned key = 0; key < 6; ++key)
        table.add(key, key);
    table.rehash(2);
    for (unsigned key = 6; key < 20; ++key)
        table.add(key, key);
    EXPECT_EQ(2u, table.capacity()) << "the threshold of 4 items was behind it";
    for (unsigned key = 0; key < 20; ++key)
        EXPECT_TRUE(table.has(key));
}

TEST(CVQHashArrayImpl, SeveralWalksGoOnAtATimeWithCursorsOfTheirOwn) {
    RecordingHashArray table(8);
    for (unsigned key = 0; key < 12; ++key)
        table.add(key, key);
    CVQHashArrayItem* outerCursor = nullptr;
    unsigned pairs = 0;
    for (auto* outer = table.firstItem(outerCursor); outer != nullptr; outer = table.nextItem(outer, outerCursor)) {
        CVQHashArrayItem* innerCursor = nullptr;
        for (auto* inner = table.firstItem(innerCursor); inner != nullptr;
             inner = table.nextItem(inner, innerCursor))
            ++pairs;
    }
    EXPECT_EQ(144u, pairs);
}

TEST(CVQHashArrayImpl, ATableWithoutAnArrayIsEmptyAndTakesItems) {
    RecordingHashArray table(16);
    table.add(1, 10);
    table.destroy();
    EXPECT_EQ(0u, table.capacity());
    EXPECT_EQ(0u, table.size());
    EXPECT_FALSE(table.has(1));
    EXPECT_FALSE(table.remove(content(1)));
    EXPECT_THAT(table.items(), IsEmpty());
    const RecordingHashArray copy(table);
    EXPECT_EQ(0u, copy.capacity());
    RecordingHashArray assigned(8);
    assigned.add(5, 5);
    assigned = table;
    EXPECT_EQ(0u, assigned.size());

    const unsigned kBucketsAfter[] = {1, 2, 2, 4};
    unsigned key = 0;
    for (const unsigned buckets : kBucketsAfter) {
        ++key;
        table.add(key, key);
        EXPECT_EQ(buckets, table.capacity());
    }
    EXPECT_THAT(table.items(), ElementsAre(Pair(4, 4), Pair(1, 1), Pair(2, 2), Pair(3, 3)));
    table.destroy();
    table.destroy();
    table.clear();
    EXPECT_EQ(2u, table.capacity());
    table.destroy();
    table.rehash(0);
    EXPECT_EQ(1u, table.capacity());
}

TEST(CVQHashArrayImpl, InitGivesBackTheArrayThatWasThere) {
    RecordingHashArray table(16, 0, 8);
    table.add(1, 10);
    table.add(2, 20);
    table.takeCalls();
    table.init(8);  // under the address sanitizer this would be a leak
    EXPECT_THAT(table.takeCalls(), IsEmpty());
    EXPECT_EQ(8u, table.capacity());
    EXPECT_THAT(table.items(), IsEmpty());
}

TEST(CVQHashArrayImpl, RehashTakesItsCountAsItIs) {
    RecordingHashArray table(4);
    for (unsigned key = 0; key < 6; ++key)
        table.add(key, key);
    table.rehash(1);
    EXPECT_EQ(1u, table.capacity());
    EXPECT_EQ(6u, table.size());
    for (unsigned key = 0; key < 6; ++key)
        EXPECT_TRUE(table.has(key));
    table.rehash(3);  // no power of two: fewer buckets are used, and all keys are found
    EXPECT_EQ(3u, table.capacity());
    for (unsigned key = 0; key < 6; ++key)
        EXPECT_TRUE(table.has(key));
    EXPECT_EQ(6u, table.items().size());
}

TEST(CVQHashArrayImpl, HasItsHooksInTheFixedSlots) {
    EXPECT_EQ(0, slotOf(&CVQHashArrayImpl::hash));
    EXPECT_EQ(1, slotOf(&CVQHashArrayImpl::comparisonKind));
    EXPECT_EQ(2, slotOf(&CVQHashArrayImpl::equal));
    EXPECT_EQ(3, slotOf(&CVQHashArrayImpl::destroyKey));
    EXPECT_EQ(4, slotOf(&CVQHashArrayImpl::destroyValue));
    EXPECT_EQ(5, slotOf(&CVQHashArrayImpl::copyKey));
    EXPECT_EQ(6, slotOf(&CVQHashArrayImpl::copyValue));
}

TEST(CVQHashArrayImpl, HasItsFieldsInTheFixedOrder) {
    struct Fields {
        const void* hooks;
        CVQHashArrayItem sentinel;
        CVQHashArrayItem* buckets;
        CVQHashArrayItem* cursor;
        unsigned bucketCount, mask, shrinkThreshold, growThreshold, itemCount;
    };
    RecordingHashArray table(2048);
    CVQHashArrayItem* const item = table.add(9, 9);
    table.lookup(content(9 + 2048));
    EXPECT_EQ(item, table.firstItem());
    Fields fields = fieldsOf<Fields, CVQHashArrayImpl>(table);
    EXPECT_EQ(content(9 + 2048), fields.sentinel.mKey);
    EXPECT_EQ(table.tableEntryFor(content(0)), fields.buckets);
    EXPECT_EQ(item, fields.cursor);
    EXPECT_EQ(2048u, fields.bucketCount);
    EXPECT_EQ(2047u, fields.mask);
    EXPECT_EQ(1024u, fields.shrinkThreshold);
    EXPECT_EQ(4096u, fields.growThreshold);
    EXPECT_EQ(1u, fields.itemCount);
    RecordingHashArray small(1024);
    fields = fieldsOf<Fields, CVQHashArrayImpl>(small);
    EXPECT_EQ(0u, fields.shrinkThreshold);
    EXPECT_EQ(2048u, fields.growThreshold);
}

TEST(CVQHashArrayImpl, AnArrayThatCannotBeHadEndsTheProcessAsTheAllocatorDoes) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the address space cannot be limited here";
    support::SlogCapture log;
    const support::ChildResult child = support::runInChild([] {
        const rlimit limit{1U << 30, 1U << 30};
        EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        RecordingHashArray table(std::size_t{1} << 27);
    });
    EXPECT_TRUE(child.exitedWith(EXIT_FAILURE)) << child;
    const std::size_t bytes = sizeof(CVQHashArrayItem) << 27;
    EXPECT_THAT(log.texts(), Contains(HasSubstr("failed to allocate " + std::to_string(bytes) + " bytes")));
}

TEST(CVQHashArrayImpl, ADerivedTableHasRunTimeTypeInformation) {
    const std::unique_ptr<CVQHashArrayImpl> table = std::make_unique<RecordingHashArray>(2);
    EXPECT_NE(nullptr, dynamic_cast<RecordingHashArray*>(table.get()));
    const CVQHashArrayImpl& asBase = *table;
    EXPECT_EQ(typeid(RecordingHashArray), typeid(asBase));
}

TEST(CVQHashArrayImpl, TooManyBucketsAreAFatalErrorWhereTheyAreAskedFor) {
    std::vector<std::size_t> tooMany = {CVQHashArrayImpl::kMaxBuckets + 1, 0x80000000U, 0x80000001U, 0xFFFFFFFFU,
                                        ~std::size_t{0}};
    if (sizeof(std::size_t) > 4)
        tooMany.push_back(static_cast<std::size_t>(0x100000001ULL));  // 1, if it were cut to 32 bits
    for (const std::size_t count : tooMany) {
        SCOPED_TRACE(count);
        const support::ChildResult constructed = support::runInChild([count] { RecordingHashArray table(count); });
        EXPECT_TRUE(constructed.exitedWith(EXIT_FAILURE)) << constructed;
        EXPECT_THAT(constructed.err, HasSubstr("CVQHashArrayImpl:1: FATAL ERROR \"Too many buckets\" occured"));
        const support::ChildResult rebuilt = support::runInChild([count] {
            RecordingHashArray table(1);
            table.rehash(count);
        });
        EXPECT_TRUE(rebuilt.exitedWith(EXIT_FAILURE)) << rebuilt;
    }
}

/// Buckets as plain sequences: the same rules, told another way.
class ArrayModel {
public:
    ArrayModel(std::size_t buckets, unsigned shift) : mBuckets(buckets), mShift(shift) {}

    void add(unsigned key, unsigned value) {
        ++mCount;
        if (mCount == 2 * mBuckets.size())
            rebuild(mCount);
        place(key, value);
    }
    bool remove(unsigned key) {
        Items& bucket = bucketOf(key);
        for (auto item = bucket.begin(); item != bucket.end(); ++item) {
            if (item->first == key) {
                bucket.erase(item);
                --mCount;
                if (mBuckets.size() > 1024 && mCount == mBuckets.size() / 2)
                    rebuild(mCount);
                return true;
            }
        }
        return false;
    }
    const unsigned* find(unsigned key) {
        for (const auto& item : bucketOf(key)) {
            if (item.first == key)
                return &item.second;
        }
        return nullptr;
    }
    /// What a copy looks like.
    void turn() { rebuild(mBuckets.size()); }
    void clear() {
        mBuckets.assign(2, {});
        mCount = 0;
    }
    Items items() const {
        Items all;
        for (const Items& bucket : mBuckets)
            all.insert(all.end(), bucket.begin(), bucket.end());
        return all;
    }
    std::size_t size() const { return mCount; }
    std::size_t capacity() const { return mBuckets.size(); }

private:
    Items& bucketOf(unsigned key) { return mBuckets[(key >> mShift) % mBuckets.size()]; }
    void place(unsigned key, unsigned value) {
        Items& bucket = bucketOf(key);
        bucket.insert(bucket.begin() + (bucket.empty() ? 0 : 1), {key, value});
    }
    void rebuild(std::size_t buckets) {
        const Items all = items();
        mBuckets.assign(buckets, {});
        for (const auto& item : all)
            place(item.first, item.second);
    }

    std::vector<Items> mBuckets;
    unsigned mShift;
    std::size_t mCount = 0;
};

void compareRandomly(unsigned seed, unsigned keys, unsigned steps, unsigned shift, unsigned compareEvery) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    RecordingHashArray table(seed % 7, seed % 2 == 0 ? 3 : 0, shift);
    ArrayModel model(table.capacity(), shift);
    for (unsigned step = 0; step < steps; ++step) {
        const unsigned key = random() % keys;
        // Phases of growing and of shrinking, so that the large tables reach both thresholds.
        const bool grows = step % (2 * keys) < keys;
        const unsigned choice = random() % 100;
        if (choice < (grows ? 70U : 15U)) {
            table.add(key, step);
            model.add(key, step);
        } else if (choice < 90) {
            ASSERT_EQ(model.remove(key), table.remove(content(key))) << step;
        } else if (choice < 98 || step % 64 != 0) {
            const unsigned* const expected = model.find(key);
            const CVQHashArrayItem* const item = table.lookup(content(key));
            ASSERT_EQ(expected != nullptr, item != nullptr) << step;
            ASSERT_TRUE(item == nullptr || *expected == number(item->mValue)) << step;
        } else if (choice == 98) {
            RecordingHashArray copy(table);
            table = copy;  // turned twice
            model.turn();
            model.turn();
        } else if (keys < 100) {
            table.clear();
            model.clear();
        }
        ASSERT_EQ(model.size(), table.size()) << step;
        ASSERT_EQ(model.capacity(), table.capacity()) << step;
        if (step % compareEvery == 0) {
            ASSERT_EQ(model.items(), table.items()) << step;
        }
    }
    ASSERT_EQ(model.items(), table.items());
}

TEST(CVQHashArrayImpl, RandomSequencesOnSmallTablesMatchAPlainModel) {
    for (unsigned seed = 1; seed <= 30; ++seed)
        compareRandomly(seed, 40, 600, seed % 4, 1);
}

TEST(CVQHashArrayImpl, RandomSequencesOnLargeTablesMatchAPlainModel) {
    compareRandomly(101, 6000, 40000, 0, 499);
    compareRandomly(102, 6000, 40000, 1, 499);
}

}  // namespace

// Concerns: bucket counts and growth; order of the array and in chains; which hooks are called with which key; the
// reference that survives a growth, for each way in which an access may come by it; key 0 and key 1; tables without an
// array; copies and clear; counts that are too large; random sequences against plain models.
#include "container/HashEngines.h"
#include "container/Reports.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/SlogCapture.h"
#include "support/VirtualSlot.h"

#include <CVQHashMapImpl.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
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

static_assert(sizeof(CVQHashMapItem) == 3 * sizeof(void*), "key, value, next");
static_assert(offsetof(CVQHashMapItem, mKey) == 0 && offsetof(CVQHashMapItem, mValue) == sizeof(void*) &&
                  offsetof(CVQHashMapItem, mNext) == 2 * sizeof(void*),
              "in this order");
static_assert(sizeof(void*) != 4 || sizeof(CVQHashMapImpl) == 72, "the target's layout");
static_assert(std::is_abstract_v<CVQHashMapImpl> && std::has_virtual_destructor_v<CVQHashMapImpl>);

TEST(CVQHashMapImpl, StartsWithTheSmallestPowerOfTwoOfBucketsAndHalfAsManyCellsMore) {
    const struct {
        std::size_t asked;
        unsigned cells;
    } kRows[] = {{0, 3}, {1, 3}, {2, 3}, {3, 6}, {4, 6}, {5, 12}, {100, 192}, {128, 192}, {129, 384}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.asked);
        const RecordingHashMap map(row.asked);
        EXPECT_EQ(row.cells, map.capacity());
        EXPECT_EQ(0u, map.size());
        EXPECT_THAT(map.items(), IsEmpty());
    }
}

TEST(CVQHashMapImpl, KeysGoByTheirLowBits) {
    RecordingHashMap map(4);
    EXPECT_EQ(map.hash(1), map.hash(5));
    EXPECT_EQ(map.hash(1), map.hash(0xFFFFFFFDU));
    EXPECT_EQ(map.hash(0) + 3, map.hash(7));
}

TEST(CVQHashMapImpl, InTwoBucketsEvenKeysUseOverflowCellsAndTheFirstWithoutOneDoublesThem) {
    RecordingHashMap map(2);
    map.set(2, 20);
    EXPECT_EQ(3u, map.capacity());
    EXPECT_NE(map.hash(2), map.lookup(2)) << "bucket 0 is never free";
    map.set(1, 10);
    EXPECT_EQ(3u, map.capacity()) << "bucket 1 was free";
    map.set(4, 40);
    EXPECT_EQ(6u, map.capacity());
    map.set(6, 60);
    EXPECT_EQ(6u, map.capacity()) << "key 2 has moved to a bucket of its own, and key 6 behind it";
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 10), Pair(2, 20), Pair(4, 40), Pair(6, 60)));
    map.set(8, 80);
    EXPECT_EQ(12u, map.capacity());
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 10), Pair(2, 20), Pair(4, 40), Pair(6, 60), Pair(8, 80)));
    EXPECT_EQ(5u, map.size());
}

TEST(CVQHashMapImpl, StoresKeyOneThoughBucketZeroHasItReserved) {
    RecordingHashMap map(2);
    EXPECT_EQ(nullptr, map.lookup(1));
    map.set(1, 10);
    map.set(2, 20);
    EXPECT_EQ(10u, map.get(1));
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 10), Pair(2, 20)));
}

TEST(CVQHashMapImpl, StoresTheLargestKeys) {
    RecordingHashMap map(2);
    const unsigned kKeys[] = {0xFFFFFFFFU, 0xFFFFFFFEU, 0x80000000U, 0x7FFFFFFFU};
    for (const unsigned key : kKeys)
        map.set(key, key >> 1U);
    for (const unsigned key : kKeys)
        EXPECT_EQ(key >> 1U, map.get(key));
    EXPECT_EQ(4u, map.size());
}

TEST(CVQHashMapImpl, WalksTheBucketsThenTheOverflowCellsAsTheyWereTaken) {
    RecordingHashMap map(8);
    for (const unsigned key : {3u, 11u, 1u, 19u, 9u})
        map.set(key, key);
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 1), Pair(3, 3), Pair(11, 11), Pair(19, 19), Pair(9, 9)));
    EXPECT_EQ(map.lookup(19), map.hash(3)->mNext) << "the newest stands directly behind the bucket";
}

TEST(CVQHashMapImpl, ALookUpThatFailedIsNotRememberedInAnyChain) {
    RecordingHashMap map(4);
    map.set(1, 10);
    EXPECT_EQ(nullptr, map.lookup(5));
    EXPECT_EQ(nullptr, map.lookup(5));
    EXPECT_EQ(nullptr, map.lookup(2));
    EXPECT_EQ(nullptr, map.lookup(2));
    EXPECT_EQ(1u, map.size());
}

TEST(CVQHashMapImpl, AccessFindsWhatIsThereAndConstructsWhatIsNot) {
    RecordingHashMap map(4);
    map.mConstructed = 7;
    EXPECT_EQ(content(7), map.access(1));
    map.access(1) = content(10);
    EXPECT_EQ(content(7), map.access(5));
    map.access(5) = content(50);
    EXPECT_EQ(content(10), map.access(1));
    EXPECT_EQ(content(50), map.access(5));
    EXPECT_EQ(2u, map.size());
}

// id: hashmap-construct-empty-key
TEST(CVQHashMapImpl, Kept_AValueInAFreeBucketIsConstructedWithTheEmptyKey) {
    RecordingHashMap map(2);
    map.access(1);
    map.access(2);
    map.access(4);  // grows: bucket 0 is taken as ever
    map.access(6);
    map.access(8);   // grows
    map.access(17);  // overflow cell, behind key 1
    map.access(7);   // a free bucket
    EXPECT_THAT(map.takeCalls(),
                ElementsAre("construct for 0", "construct for 2", "construct for 4", "construct for 6",
                            "construct for 8", "construct for 17", "construct for 0"));
}

TEST(CVQHashMapImpl, AValueThatGrowthBringsToAFreeBucketIsConstructedWithItsKey) {
    RecordingHashMap map(2);
    map.access(1);
    map.access(3);
    map.takeCalls();
    map.access(5);  // full: 4 buckets, of which 1 and 3 hold keys
    EXPECT_THAT(map.takeCalls(), ElementsAre("construct for 5"));
    RecordingHashMap other(2);
    other.access(1);
    other.access(2);
    other.takeCalls();
    other.access(3);  // full: bucket 3 of 4 is free
    EXPECT_EQ(6u, other.capacity());
    EXPECT_EQ(other.hash(3), other.lookup(3));
    EXPECT_THAT(other.takeCalls(), ElementsAre("construct for 3"));
}

// id: hashmap-second-key
TEST(CVQHashMapImpl, Kept_InsertStoresAnEqualKeyASecondTime) {
    RecordingHashMap map(8);
    map.add(1, 10);
    map.add(1, 11);
    map.add(1, 12);
    EXPECT_EQ(3u, map.size());
    EXPECT_EQ(10u, map.get(1)) << "the bucket's cell comes first";
    map.add(8, 80);
    map.add(8, 81);
    EXPECT_EQ(81u, map.get(8)) << "then the newest";
    EXPECT_THAT(map.takeCalls(), IsEmpty()) << "what is inserted is stored as it is";
}

TEST(CVQHashMapImpl, EntriesOfAnEqualKeyKeepTheirOwnValuesThroughAGrowth) {
    for (const bool accessed : {false, true}) {
        SCOPED_TRACE(accessed);
        RecordingHashMap map(4);
        map.add(1, 10);
        map.add(1, 11);
        map.add(1, 12);
        if (accessed)
            map.access(1);
        map.rehash();
        map.add(1, 13);  // after the growth
        map.takeCalls();
        EXPECT_THAT(RecordingHashMap(map).items(), ElementsAre(Pair(1, 10), Pair(1, 11), Pair(1, 12), Pair(1, 13)));
        map.takeCalls();
        map.clear();
        EXPECT_THAT(map.takeCalls(),
                    ElementsAre("destroy 10 of 1", "destroy 11 of 1", "destroy 12 of 1", "destroy 13 of 1"));
    }
}

TEST(CVQHashMapImpl, OfSeveralEntriesOfAKeyTheOneThatIsFoundGetsWhatIsCarriedOver) {
    RecordingHashMap map(4);
    map.add(4, 40);
    map.add(4, 41);
    void*& value = map.access(4);
    EXPECT_EQ(content(41), value) << "the newer stands before the older";
    map.rehash();
    value = content(42);
    map.deleteOldTable();
    EXPECT_EQ(42u, map.get(4));
    EXPECT_THAT(map.items(), ElementsAre(Pair(4, 42), Pair(4, 40))) << "nothing is lost, nothing is there twice";
}

TEST(CVQHashMapImpl, InsertGrowsOnlyWhereThereIsNoCellLeft) {
    RecordingHashMap map(2);
    map.add(2, 20);
    EXPECT_EQ(3u, map.capacity());
    map.add(4, 40);
    EXPECT_EQ(6u, map.capacity());
    for (unsigned key = 6; key <= 200; key += 2)
        map.add(key, key * 10);
    for (unsigned key = 2; key <= 200; key += 2)
        EXPECT_EQ(key * 10, map.get(key));
    EXPECT_EQ(100u, map.size());
}

TEST(CVQHashMapImpl, GrowthTakesBucketsFirstAndThenInsertsOverflowCells) {
    RecordingHashMap map(4);
    for (const unsigned key : {1u, 5u, 9u})
        map.set(key, key);
    map.set(13, 13);
    EXPECT_EQ(12u, map.capacity());
    // Key 5 moves from an overflow cell into bucket 5; key 9 stays behind key 1, and key 13 comes behind key 5.
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 1), Pair(5, 5), Pair(9, 9), Pair(13, 13)));
    EXPECT_EQ(map.hash(5), map.lookup(5));
    EXPECT_EQ(map.hash(1)->mNext, map.lookup(9));
}

// The three ways to come by a reference: found, created in a free bucket, created in a chain. In each the next access
// makes a table of two buckets, with one overflow cell, grow.

TEST(CVQHashMapImpl, AReferenceFromAFreeBucketSurvivesAGrowth) {
    RecordingHashMap map(2);
    map.set(2, 20);
    void*& value = map.access(1);
    value = content(10);
    map.access(4);
    EXPECT_EQ(6u, map.capacity());
    value = content(11);
    EXPECT_EQ(10u, map.get(1)) << "it still refers to the old array";
    EXPECT_EQ(&value, &map.homeOf(map.lookup(1))->mValue);
    map.access(2);
    EXPECT_EQ(11u, map.get(1));
    EXPECT_EQ(map.lookup(1), map.homeOf(map.lookup(1)));
}

TEST(CVQHashMapImpl, AReferenceThatWasFoundSurvivesAGrowth) {
    RecordingHashMap map(2);
    map.set(2, 20);
    map.set(1, 10);
    void*& value = map.access(2);
    map.access(4);
    EXPECT_EQ(6u, map.capacity());
    value = content(21);
    EXPECT_EQ(20u, map.get(2));
    map.access(1);
    EXPECT_EQ(21u, map.get(2));
}

TEST(CVQHashMapImpl, AReferenceFromAChainSurvivesAGrowth) {
    RecordingHashMap map(2);
    map.set(1, 10);
    void*& value = map.access(2);
    map.access(4);
    EXPECT_EQ(6u, map.capacity());
    value = content(21);
    EXPECT_EQ(0u, map.get(2));
    EXPECT_EQ(&value, &map.homeOf(map.lookup(2))->mValue);
    map.access(1);
    EXPECT_EQ(21u, map.get(2));
    EXPECT_EQ(10u, map.get(1));
}

TEST(CVQHashMapImpl, AReferenceFromOneGrowthSurvivesTheNext) {
    RecordingHashMap map(2);
    map.set(4, 40);
    void*& value = map.access(8);  // grows, and takes the last overflow cell of 4 buckets
    EXPECT_EQ(6u, map.capacity());
    map.access(16);
    EXPECT_EQ(12u, map.capacity());
    value = content(80);
    map.access(4);
    EXPECT_EQ(80u, map.get(8));
    EXPECT_EQ(40u, map.get(4));
}

// id: hashmap-carry-overwrites
TEST(CVQHashMapImpl, Kept_CarryingOverReplacesWhatTheNewArrayHolds) {
    RecordingHashMap map(2);
    map.set(2, 20);
    map.set(1, 10);
    map.access(4);
    map.lookup(1)->mValue = content(99);
    map.lookup(2)->mValue = content(98);
    map.access(2);
    EXPECT_EQ(10u, map.get(1)) << "the key accessed last, though nobody wrote to its old value";
    EXPECT_EQ(98u, map.get(2)) << "any other";
}

TEST(CVQHashMapImpl, WhatWasWrittenIsThereWhenTheMapIsCopiedBeforeTheNextAccess) {
    RecordingHashMap map(2);
    map.set(2, 20);
    void*& value = map.access(1);
    map.access(4) = content(40);
    value = content(11);
    const RecordingHashMap copy(map);
    EXPECT_THAT(copy.items(), ElementsAre(Pair(1, 11), Pair(2, 20), Pair(4, 40)));
    value = content(12);
    map.access(4);
    EXPECT_EQ(12u, map.get(1)) << "copying has left the reference alone";
}

TEST(CVQHashMapImpl, WhatWasWrittenIsWhatIsDestroyed) {
    RecordingHashMap map(2);
    map.set(2, 20);
    void*& value = map.access(1);
    map.access(4) = content(40);
    value = content(11);
    map.takeCalls();
    map.clear();
    EXPECT_THAT(map.takeCalls(), ElementsAre("destroy 11 of 1", "destroy 20 of 2", "destroy 40 of 4"));
    map.access(1);
    EXPECT_EQ(0u, map.get(1)) << "nothing is carried into a cleared map";
}

TEST(CVQHashMapImpl, AGrowthByInsertCarriesOverLikeAnAccess) {
    RecordingHashMap map(2);
    map.set(2, 20);
    void*& value = map.access(1);
    map.add(4, 40);  // grows
    value = content(11);
    for (unsigned key = 8; key <= 32; key += 4)
        map.add(key, key);  // grows again and again
    EXPECT_EQ(11u, map.get(1));
    EXPECT_EQ(20u, map.get(2));
    EXPECT_EQ(10u, map.size());
}

TEST(CVQHashMapImpl, DeletingTheOldTableByHandCarriesOverToo) {
    RecordingHashMap map(2);
    map.set(2, 20);
    void*& value = map.access(1);
    map.rehash();
    value = content(11);
    map.deleteOldTable();
    EXPECT_EQ(11u, map.get(1));
    map.deleteOldTable();
    map.rehash();
    map.rehash();
    EXPECT_EQ(24u, map.capacity());
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 11), Pair(2, 20)));
}

TEST(CVQHashMapImpl, KeyZeroIsNeverFoundNorStoredAndReported) {
    Reports reports;
    RecordingHashMap map(4);
    map.set(4, 40);
    EXPECT_EQ(nullptr, map.lookup(0));
    map.add(0, 1);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("CVQHashMapImpl", 1, "Key 0 cannot be stored")));
    map.mConstructed = 5;
    void*& value = map.access(0);
    EXPECT_EQ(content(5), value);
    value = content(6);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("CVQHashMapImpl", 2, "Key 0 cannot be stored")));
    EXPECT_EQ(nullptr, map.lookup(0));
    EXPECT_THAT(map.items(), ElementsAre(Pair(4, 40)));
    EXPECT_EQ(1u, map.size());

    map.takeCalls();
    EXPECT_EQ(content(5), map.access(0)) << "a new value each time";
    EXPECT_THAT(map.takeCalls(), ElementsAre("destroy 6 of 0", "construct for 0"));
    for (unsigned key = 8; key <= 64; key += 4)
        map.set(key, key);
    map.takeCalls();
    const RecordingHashMap copy(map);
    EXPECT_EQ(16u, copy.size());
    map.clear();
    EXPECT_EQ("destroy 5 of 0", map.takeCalls().back());
    reports.take();
}

TEST(CVQHashMapImpl, TheValueOfARefusedAccessStaysWhereItIsThroughGrowths) {
    Reports reports;
    RecordingHashMap map(2);
    map.set(2, 20);
    map.mConstructed = 5;
    void*& value = map.access(0);
    map.mConstructed = 0;
    map.set(4, 40);  // grows: the array before is kept, and key 2 was its newest
    map.lookup(2)->mValue = content(21);
    EXPECT_EQ(content(5), value);
    value = content(6);
    map.set(6, 60);
    map.set(8, 80);  // grows again
    EXPECT_EQ(12u, map.capacity());
    EXPECT_EQ(content(6), value);
    EXPECT_THAT(map.items(), ElementsAre(Pair(2, 21), Pair(4, 40), Pair(6, 60), Pair(8, 80)));
    map.takeCalls();
    map.clear();
    EXPECT_EQ("destroy 6 of 0", map.takeCalls().back());
    map.clear();
    EXPECT_THAT(map.takeCalls(), IsEmpty());
    EXPECT_EQ(1u, reports.take().size());
}

TEST(CVQHashMapImpl, ClearGoesBackToTheInitialBucketsAndDestroysInArrayOrder) {
    RecordingHashMap map(4);
    for (const unsigned key : {3u, 1u, 5u, 9u})
        map.set(key, 10 * key);
    map.rehash();
    map.takeCalls();
    map.clear();
    EXPECT_THAT(map.takeCalls(),
                ElementsAre("destroy 10 of 1", "destroy 30 of 3", "destroy 50 of 5", "destroy 90 of 9"));
    EXPECT_EQ(6u, map.capacity());
    EXPECT_EQ(0u, map.size());
    EXPECT_EQ(nullptr, map.lookup(1));
    map.set(1, 12);
    EXPECT_THAT(map.items(), ElementsAre(Pair(1, 12)));
}

// id: hashmap-copy-128
TEST(CVQHashMapImpl, Kept_ACopyGoesBackTo128BucketsWhenItIsCleared) {
    RecordingHashMap source(8);
    RecordingHashMap copy(source);
    EXPECT_EQ(12u, copy.capacity());
    copy.clear();
    EXPECT_EQ(192u, copy.capacity());
    RecordingHashMap assigned(4);
    assigned = source;
    EXPECT_EQ(12u, assigned.capacity());
    assigned.clear();
    EXPECT_EQ(6u, assigned.capacity());
}

TEST(CVQHashMapImpl, ACopyIsMadeByTheHookOfItsSource) {
    RecordingHashMap source(4);
    for (const unsigned key : {3u, 1u, 5u})
        source.set(key, 10 * key);
    source.takeCalls();
    source.mAddedByCopies = 2;
    const RecordingHashMap copy(source);
    EXPECT_THAT(source.takeCalls(), ElementsAre("duplicate 10", "duplicate 30", "duplicate 50"));
    EXPECT_THAT(copy.items(), ElementsAre(Pair(1, 12), Pair(3, 32), Pair(5, 52)));
    EXPECT_EQ(source.capacity(), copy.capacity());
}

TEST(CVQHashMapImpl, AssignmentDestroysWhatWasThere) {
    RecordingHashMap source(4);
    source.set(1, 10);
    source.takeCalls();
    RecordingHashMap target(2);
    target.set(2, 20);
    target.takeCalls();
    CVQHashMapImpl& engine = target;
    engine = source;
    EXPECT_THAT(target.takeCalls(), ElementsAre("destroy 20 of 2"));
    EXPECT_THAT(source.takeCalls(), ElementsAre("duplicate 10"));
    EXPECT_THAT(target.items(), ElementsAre(Pair(1, 10)));
    const CVQHashMapImpl& same = target;
    engine = same;
    EXPECT_THAT(target.takeCalls(), IsEmpty());
    EXPECT_THAT(target.items(), ElementsAre(Pair(1, 10)));
}

TEST(CVQHashMapImpl, WhatWasMovedFromTakesAnInsertAtOnce) {
    RecordingHashMap map(4);
    map.add(3, 30);
    const RecordingHashMap moved(std::move(map));
    map.add(5, 50);  // NOLINT(bugprone-use-after-move): what is left is under test
    EXPECT_THAT(map.items(), ElementsAre(Pair(5, 50)));
    EXPECT_EQ(6u, map.capacity()) << "as many buckets as it was made with";
    EXPECT_THAT(moved.items(), ElementsAre(Pair(3, 30)));
}

TEST(CVQHashMapImpl, InitTableForgetsWhatWasThereAndRoundsUp) {
    RecordingHashMap map(4);
    map.set(1, 10);
    map.takeCalls();
    map.initTable(5);
    EXPECT_THAT(map.takeCalls(), IsEmpty());
    EXPECT_EQ(12u, map.capacity());
    EXPECT_EQ(0u, map.size());
    map.initTable(0);
    EXPECT_EQ(3u, map.capacity());
}

// The destructor takes the places 0 and 1: one entry for objects, one for objects that `delete` frees.
TEST(CVQHashMapImpl, HasItsHooksInTheFixedSlots) {
    EXPECT_EQ(2, slotOf(&CVQHashMapImpl::duplicateValue));
    EXPECT_EQ(3, slotOf(&CVQHashMapImpl::destroyValue));
    EXPECT_EQ(4, slotOf(&CVQHashMapImpl::constructValue));
}

TEST(CVQHashMapImpl, HasItsFieldsInTheFixedOrder) {
    struct Table {
        CVQHashMapItem* cells;
        CVQHashMapItem* end;
        CVQHashMapItem* nextFree;
        unsigned bucketCount, mask;
    };
    struct Fields {
        const void* hooks;
        unsigned reservedKey, emptyKey, initialBucketCount;
        CVQHashMapItem sentinel;
        Table table, previous;
        unsigned lastKey;
    };
    RecordingHashMap map(4);
    for (const unsigned key : {1u, 5u, 3u})
        map.set(key, key);
    map.lookup(7);
    Fields fields = fieldsOf<Fields, CVQHashMapImpl>(map);
    EXPECT_EQ(1u, fields.reservedKey);
    EXPECT_EQ(0u, fields.emptyKey);
    EXPECT_EQ(4u, fields.initialBucketCount);
    EXPECT_EQ(7u, fields.sentinel.mKey);
    EXPECT_EQ(map.hash(0), fields.table.cells);
    EXPECT_EQ(fields.table.cells + 6, fields.table.end);
    EXPECT_EQ(fields.table.cells + 5, fields.table.nextFree);
    EXPECT_EQ(4u, fields.table.bucketCount);
    EXPECT_EQ(3u, fields.table.mask);
    EXPECT_EQ(nullptr, fields.previous.cells);
    EXPECT_EQ(3u, fields.lastKey);
    EXPECT_EQ(1u, fields.table.cells[0].mKey);
    EXPECT_EQ(0u, fields.table.cells[2].mKey) << "a free bucket";

    const Table before = fields.table;
    map.rehash();
    fields = fieldsOf<Fields, CVQHashMapImpl>(map);
    EXPECT_EQ(0, std::memcmp(&before, &fields.previous, sizeof before)) << "the array that the growth replaced";
    EXPECT_EQ(8u, fields.table.bucketCount);
    EXPECT_EQ(3u, fields.lastKey);
}

TEST(CVQHashMapImpl, AnArrayThatCannotBeHadEndsTheProcessAsTheAllocatorDoes) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the address space cannot be limited here";
    support::SlogCapture log;
    const support::ChildResult child = support::runInChild([] {
        const rlimit limit{1U << 30, 1U << 30};
        EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        RecordingHashMap map(std::size_t{1} << 26);
    });
    EXPECT_TRUE(child.exitedWith(EXIT_FAILURE)) << child;
    const std::size_t bytes = (3 * sizeof(CVQHashMapItem)) << 25;
    EXPECT_THAT(log.texts(), Contains(HasSubstr("failed to allocate " + std::to_string(bytes) + " bytes")));
}

TEST(CVQHashMapImpl, ADerivedTableHasRunTimeTypeInformation) {
    const std::unique_ptr<CVQHashMapImpl> map = std::make_unique<RecordingHashMap>(2);
    EXPECT_NE(nullptr, dynamic_cast<RecordingHashMap*>(map.get()));
    const CVQHashMapImpl& asBase = *map;
    EXPECT_EQ(typeid(RecordingHashMap), typeid(asBase));
}

TEST(CVQHashMapImpl, TooManyBucketsAreAFatalErrorWhereTheyAreAskedFor) {
    std::vector<std::size_t> tooMany = {CVQHashMapImpl::kMaxBuckets + 1, 0x80000000U, 0x80000001U, 0xFFFFFFFFU,
                                        ~std::size_t{0}};
    if (sizeof(std::size_t) > 4)
        tooMany.push_back(static_cast<std::size_t>(0x100000002ULL));  // 2, if it were cut to 32 bits
    for (const std::size_t count : tooMany) {
        SCOPED_TRACE(count);
        const support::ChildResult result = support::runInChild([count] { RecordingHashMap map(count); });
        EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
        EXPECT_THAT(result.err, HasSubstr("CVQHashMapImpl:3: FATAL ERROR \"Too many buckets\" occured"));
    }
}

/// The array as plain cells: the same rules, told another way.
class MapModel {
public:
    explicit MapModel(std::size_t buckets) : mBuckets(buckets) {}

    unsigned& access(unsigned key) {
        if (Cell* const found = find(key))
            return found->second;
        Cell* const cell = place(key, 0);
        return cell->second;
    }
    Items items() const {
        Items all;
        for (const auto& bucket : mBuckets) {
            if (bucket)
                all.push_back(*bucket);
        }
        all.insert(all.end(), mOverflow.begin(), mOverflow.end());
        return all;
    }
    std::size_t capacity() const { return mBuckets.size() * 3 / 2; }

private:
    using Cell = Items::value_type;

    Cell* find(unsigned key) {
        for (auto& bucket : mBuckets) {
            if (bucket && bucket->first == key)
                return &*bucket;
        }
        for (Cell& cell : mOverflow) {
            if (cell.first == key)
                return &cell;
        }
        return nullptr;
    }
    Cell* place(unsigned key, unsigned value) {
        const std::size_t bucket = key % mBuckets.size();
        const bool isFree = bucket != 0 && !mBuckets[bucket];
        if (!isFree && mOverflow.size() == mBuckets.size() / 2) {
            grow();
            return place(key, value);
        }
        if (isFree) {
            mBuckets[bucket] = Cell(key, value);
            return &*mBuckets[bucket];
        }
        mOverflow.emplace_back(key, value);
        return &mOverflow.back();
    }
    void grow() {
        const auto oldBuckets = std::exchange(mBuckets, decltype(mBuckets)(2 * mBuckets.size()));
        const auto oldOverflow = std::exchange(mOverflow, {});
        for (const auto& bucket : oldBuckets) {
            if (bucket)
                mBuckets[bucket->first % mBuckets.size()] = bucket;
        }
        for (const Cell& cell : oldOverflow)
            place(cell.first, cell.second);
    }

    std::vector<std::optional<Cell>> mBuckets;
    Items mOverflow;
};

TEST(CVQHashMapImpl, RandomAccessesMatchAPlainModel) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        RecordingHashMap map(seed % 20);
        MapModel model(map.capacity() * 2 / 3);
        const unsigned stride = 1U << seed % 5;
        for (unsigned step = 1; step <= 400; ++step) {
            const unsigned key = (1 + random() % 150) * stride;
            map.set(key, step);
            model.access(key) = step;
            ASSERT_EQ(model.capacity(), map.capacity()) << step;
            ASSERT_EQ(model.items(), map.items()) << step;
            ASSERT_EQ(model.items().size(), map.size()) << step;
        }
    }
}

TEST(CVQHashMapImpl, NoWriteThroughTheLastTwoReferencesIsEverLost) {
    unsigned growths = 0;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        RecordingHashMap map(2);
        std::map<unsigned, unsigned> truth;
        void** before = nullptr;
        unsigned keyBefore = 0;
        for (unsigned step = 1; step <= 150; ++step) {
            const unsigned key = (1 + random() % 100) * (1U << seed % 3);
            const unsigned capacity = map.capacity();
            void*& value = map.access(key);
            growths += map.capacity() != capacity ? 1 : 0;
            ASSERT_EQ(truth[key], number(value)) << step;
            if (before != nullptr && random() % 2 == 0) {
                *before = content(step);
                truth[keyBefore] = step;
            }
            if (random() % 2 == 0) {
                value = content(1000 + step);
                truth[key] = 1000 + step;
            }
            for (CVQHashMapItem* item = map.firstItem(); item != nullptr; item = map.nextItem(item))
                ASSERT_EQ(truth[item->mKey], number(map.homeOf(item)->mValue)) << step << ": " << item->mKey;
            before = &value;
            keyBefore = key;
        }
        ASSERT_EQ(truth.size(), map.size());
    }
    EXPECT_GT(growths, 500u);
}

TEST(CVQHashMapImpl, RandomInsertsOfEqualKeysLoseAndDoubleNoValue) {
    unsigned growths = 0;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        RecordingHashMap map(2);
        std::multiset<unsigned> truth;
        unsigned latest = 0;
        for (unsigned step = 1; step <= 80; ++step) {
            const unsigned key = (1 + random() % 6) << seed % 4;
            void*& value = map.access(key);
            if (value != nullptr)
                truth.erase(number(value));
            value = nullptr;
            const unsigned capacity = map.capacity();
            if (random() % 2 == 0) {
                map.add(random() % 2 == 0 ? key : 1 + random() % 20, ++latest);
                truth.insert(latest);
            }
            growths += map.capacity() != capacity ? 1 : 0;
            value = content(++latest);  // through the reference that an insertion may have left in the old array
            truth.insert(latest);

            std::multiset<unsigned> values;
            for (CVQHashMapItem* item = map.firstItem(); item != nullptr; item = map.nextItem(item))
                values.insert(number(map.homeOf(item)->mValue));
            ASSERT_EQ(truth, values) << step;
        }
        map.deleteOldTable();
        std::multiset<unsigned> values;
        for (const auto& item : map.items())
            values.insert(item.second);
        ASSERT_EQ(truth, values);
    }
    EXPECT_GT(growths, 100u);
}

}  // namespace

// Concerns: the edge cases of growth, get, insert, erase and resize; each operation's result and each report to the byte,
// at each of its limits; which handler is called with what; items that lie in the vector; the watcher's counters on
// every path; the older form; counts and sizes that nothing can hold; the layout.
#include "container/Reports.h"
#include "container/Watched.h"

#include <CVQVectorBase.h>
#include <VQContainerAssertions.h>
#include <VQMemory.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kSize = sizeof(int);

const std::string kGetReport = assertion("TVQVector", 444, "Invalid parameter");
const std::string kInsertReport = assertion("TVQVector.insert()", 302, "Invalid parameter");
const std::string kReserveReport = assertion("CVQVectorBase.internal_reserve()", 128, "Invalid parameter");

// Handlers for int that write down what they are asked to do. Copies leave the sources to be destroyed.
std::vector<std::string> sCalls;

void note(const char* what, int count) {
    sCalls.push_back(what + std::to_string(count));
}
bool copyInts(void* to, const void* from, int count) {
    note("copy ", count);
    std::memcpy(to, from, sizeof(int) * unsigned(count));
    return false;
}
bool takeInts(void* to, const void* from, int count) {
    note("take ", count);
    std::memcpy(to, from, sizeof(int) * unsigned(count));
    return true;
}
bool relocateInts(void* to, const void* from, int count) {
    note("relocate ", count);
    std::memmove(to, from, sizeof(int) * unsigned(count));
    return true;
}
void assignInts(void* to, const void* from, int count) {
    note("assign ", count);
    std::memmove(to, from, sizeof(int) * unsigned(count));
}
void destroyInts(void* elements, int count) {
    note("destroy ", count);
    std::memset(elements, 0xDD, sizeof(int) * unsigned(count));
}
bool equalInts(const void* mine, const void* theirs, int count) {
    note("equal ", count);
    return std::memcmp(mine, theirs, sizeof(int) * unsigned(count)) == 0;
}
bool matchInt(const void* element, const void* key) {
    return *static_cast<const int*>(element) == *static_cast<const int*>(key);
}
int growBy10(int required, int currentCapacity) {
    return currentCapacity + 10 < required ? required : currentCapacity + 10;
}
int growTooLittle(int required, int /*currentCapacity*/) {
    return required - 1;
}

std::vector<std::string> takeCalls() {
    return std::exchange(sCalls, {});
}

// An engine of ints that is destructed at its end.
struct Ints : CVQVectorBase {
    using CVQVectorBase::CVQVectorBase;
    Ints() = default;
    Ints(Ints&&) = default;
    Ints(std::initializer_list<int> values) {
        for (const int value : values)
            push(value);
        takeCalls();
    }
    ~Ints() { internal_destruct(internal_block(), nullptr); }

    void push(int value) { internal_push_back(kSize, &value, copyInts, destroyInts); }
    void insert(int pos, int n, const int* items) {
        internal_insert(pos, n, items, kSize, assignInts, copyInts, relocateInts);
    }
    void insertRelocating(int pos, int n, const int* items) {
        internal_insert(pos, n, items, kSize, nullptr, copyInts, relocateInts);
    }
    void erase(int first, int last) { internal_erase(first, last, kSize, assignInts, destroyInts); }
    void resize(int newSize, int fill = 0) { internal_resize(newSize, kSize, &fill, copyInts, destroyInts); }
    int* slots() { return static_cast<int*>(internal_block()->slots()); }
    std::vector<int> values() { return std::vector<int>(slots(), slots() + getSize()); }
};

Ints upTo(int count) {
    Ints ints;
    for (int i = 0; i < count; ++i)
        ints.push(i);
    takeCalls();
    return ints;
}

class CVQVectorBaseTest : public testing::Test {
protected:
    void SetUp() override { takeCalls(); }
};

// Edge cases

TEST_F(CVQVectorBaseTest, CapacitiesDoubleFromFour) {
    for (const auto& [count, capacity] : {std::pair{1, 4}, {4, 4}, {5, 8}, {8, 8}, {9, 16}, {17, 32}}) {
        Ints ints = upTo(count);
        EXPECT_EQ(count, ints.getSize());
        EXPECT_EQ(capacity, ints.getCapacity()) << count;
    }
}

TEST_F(CVQVectorBaseTest, AGrowthThatYieldsTooLittleIsReportedAndGetsWhatIsRequired) {
    Reports reports;
    Ints ints(0, growTooLittle, kSize);
    for (int i = 0; i < 4; ++i)
        ints.push(i);
    EXPECT_THAT(reports.take(), IsEmpty());
    ints.push(4);
    EXPECT_EQ(5, ints.getCapacity());
    EXPECT_THAT(reports.take(), ElementsAre(kReserveReport));
    EXPECT_THAT(ints.values(), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(CVQVectorBaseTest, AnIndexOutsideGetsNullAndAReport) {
    Reports reports;
    Ints ints = upTo(3);
    const Ints& constant = ints;
    EXPECT_EQ(ints.slots() + 2, ints.internal_get(2, kSize));
    EXPECT_EQ(ints.slots(), constant.internal_get(0, kSize));
    EXPECT_THAT(reports.take(), IsEmpty());
    for (const int index : {-1, 3, INT_MIN, INT_MAX}) {
        EXPECT_EQ(nullptr, ints.internal_get(index, kSize));
        EXPECT_EQ(nullptr, constant.internal_get(index, kSize));
        EXPECT_THAT(reports.take(), ElementsAre(kGetReport, assertion("TVQVector", 430, "Invalid parameter")));
    }
    Ints empty;
    EXPECT_EQ(nullptr, empty.internal_get(0, kSize));
    EXPECT_THAT(reports.take(), ElementsAre(kGetReport));
}

TEST_F(CVQVectorBaseTest, ErasesARangeWithItsLast) {
    Reports reports;
    Ints ints = upTo(5);
    ints.erase(2, 1);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 272, "Invalid parameter")));
    ints.erase(0, 5);
    ints.erase(-1, 0);
    EXPECT_EQ(std::vector<std::string>(2, assertion("TVQVector", 272, "Index out of range")), reports.take());
    EXPECT_THAT(takeCalls(), IsEmpty());
    EXPECT_EQ(5, ints.getSize());
    ints.erase(1, 1);
    EXPECT_THAT(ints.values(), ElementsAre(0, 2, 3, 4));
    ints.erase(1, 2);
    EXPECT_THAT(ints.values(), ElementsAre(0, 4));
    ints.erase(0, 1);
    EXPECT_THAT(ints.values(), IsEmpty());
    ints.erase(0, 0);
    Ints().erase(0, 0);
    EXPECT_EQ(std::vector<std::string>(2, assertion("TVQVector", 272, "Index out of range")), reports.take());
}

TEST_F(CVQVectorBaseTest, InsertsAtTheEndRefusesWhatLiesBehindAndIgnoresNothing) {
    Reports reports;
    const int items[] = {7, 8};
    Ints ints = upTo(3);
    ints.insert(3, 2, items);
    EXPECT_THAT(ints.values(), ElementsAre(0, 1, 2, 7, 8));
    ints.insert(0, 0, nullptr);
    ints.insert(-1, 0, nullptr);
    EXPECT_THAT(reports.take(), IsEmpty());
    takeCalls();
    ints.insert(6, 1, items);
    ints.insert(-1, 1, items);
    ints.insert(0, 1, nullptr);
    ints.insert(1, INT_MAX - 4, items);
    EXPECT_EQ(std::vector<std::string>(4, kInsertReport), reports.take());
    ints.insert(0, -1, items);
    ints.insert(99, INT_MIN, nullptr);
    EXPECT_EQ(std::vector<std::string>(2, assertion("TVQVector.insert()", 360, "Invalid parameter")),
              reports.take());
    EXPECT_THAT(takeCalls(), IsEmpty());
    EXPECT_THAT(ints.values(), ElementsAre(0, 1, 2, 7, 8));
    EXPECT_EQ(8, ints.getCapacity());
}

TEST_F(CVQVectorBaseTest, InsertsInPlaceInBothCasesOfTheTail) {
    const int items[] = {20, 21, 22};
    Ints shortTail = upTo(5);
    shortTail.insert(3, 3, items);
    EXPECT_THAT(shortTail.values(), ElementsAre(0, 1, 2, 20, 21, 22, 3, 4));
    EXPECT_THAT(takeCalls(), ElementsAre("copy 2", "copy 1", "assign 2"));

    Ints evenTail = upTo(5);
    evenTail.insert(2, 3, items);
    EXPECT_THAT(evenTail.values(), ElementsAre(0, 1, 20, 21, 22, 2, 3, 4));
    EXPECT_THAT(takeCalls(), ElementsAre("copy 3", "assign 3"));

    Ints longTail = upTo(10);
    longTail.insert(2, 3, items);
    EXPECT_THAT(longTail.values(), ElementsAre(0, 1, 20, 21, 22, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_THAT(takeCalls(), ElementsAre("copy 3", "assign 5", "assign 3"));
    EXPECT_EQ(16, longTail.getCapacity());

    Ints atTheEnd = upTo(5);
    atTheEnd.insert(5, 3, items);
    EXPECT_THAT(atTheEnd.values(), ElementsAre(0, 1, 2, 3, 4, 20, 21, 22));
    EXPECT_THAT(takeCalls(), ElementsAre("copy 3"));
}

TEST_F(CVQVectorBaseTest, ResizingKeepsTheCapacityAndFillsEachNewSlot) {
    Reports reports;
    Ints ints = upTo(10);
    ints.resize(3);
    EXPECT_EQ(16, ints.getCapacity());
    EXPECT_THAT(takeCalls(), ElementsAre("destroy 7"));
    ints.resize(6, 9);
    EXPECT_THAT(ints.values(), ElementsAre(0, 1, 2, 9, 9, 9));
    EXPECT_THAT(takeCalls(), ElementsAre("copy 1", "copy 1", "copy 1"));
    ints.resize(6, 5);
    EXPECT_THAT(takeCalls(), IsEmpty());
    ints.resize(18, 1);
    EXPECT_EQ(32, ints.getCapacity());
    EXPECT_EQ(18, std::accumulate(ints.slots() + 6, ints.slots() + 18, 6));
    EXPECT_THAT(reports.take(), IsEmpty());
    takeCalls();
    ints.resize(-1);
    EXPECT_EQ(18, ints.getSize());
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 225, "Invalid parameter")));
    ints.internal_resize(19, kSize, nullptr, copyInts, destroyInts);
    EXPECT_EQ(18, ints.getSize());
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 225, "Invalid parameter")));
    EXPECT_THAT(takeCalls(), IsEmpty());
    Ints().resize(0);
}

TEST_F(CVQVectorBaseTest, AGrowthFunctionAlwaysHasABlock) {
    const Ints ints(0, growBy10, kSize);
    ASSERT_NE(nullptr, ints.internal_block());
    EXPECT_EQ(4, ints.getCapacity());
    EXPECT_EQ(0, ints.getSize());
    EXPECT_EQ(&growBy10, ints.internal_block()->growth);
    EXPECT_EQ(4, Ints(-5, growBy10, kSize).getCapacity());
    EXPECT_EQ(1, Ints(1, growBy10, kSize).getCapacity());
}

// Construction

TEST_F(CVQVectorBaseTest, WithoutACapacityThereIsNoBlock) {
    EXPECT_EQ(nullptr, Ints().internal_block());
    EXPECT_EQ(nullptr, Ints(0, nullptr, kSize).internal_block());
    EXPECT_EQ(nullptr, Ints(INT_MIN, nullptr, kSize).internal_block());
    EXPECT_EQ(7, Ints(7, nullptr, kSize).getCapacity());
    EXPECT_EQ(0, Ints().getCapacity());
    EXPECT_EQ(0, Ints().getSize());
}

TEST_F(CVQVectorBaseTest, ACopyHasTheSizeAndTheGrowthOfItsSource) {
    const CVQVectorBase::SVectorData* const none = nullptr;
    EXPECT_EQ(nullptr, Ints(none, kSize).internal_block());

    Ints five = upTo(5);
    const Ints copy(std::as_const(five).internal_block(), kSize);
    EXPECT_EQ(5, copy.getSize());
    EXPECT_EQ(5, copy.getCapacity());
    EXPECT_EQ(nullptr, copy.internal_block()->growth);

    const Ints empty(9, nullptr, kSize);
    EXPECT_EQ(nullptr, Ints(empty.internal_block(), kSize).internal_block());

    const Ints growing(9, growBy10, kSize);
    const Ints growingCopy(growing.internal_block(), kSize);
    EXPECT_EQ(0, growingCopy.getSize());
    EXPECT_EQ(4, growingCopy.getCapacity());
    EXPECT_EQ(&growBy10, growingCopy.internal_block()->growth);

    // Its size exactly, also where a growth function would start with more.
    Ints two(0, growBy10, kSize);
    two.push(1);
    two.push(2);
    const Ints twoCopy(std::as_const(two).internal_block(), kSize);
    EXPECT_EQ(2, twoCopy.getSize());
    EXPECT_EQ(2, twoCopy.getCapacity());
}

TEST_F(CVQVectorBaseTest, DestructingDestroysTheElementsOnce) {
    CVQVectorBase::internal_destruct(nullptr, destroyInts);
    Ints ints = upTo(3);
    Ints other(std::move(ints));
    EXPECT_EQ(nullptr, ints.internal_block());
    CVQVectorBase taken(std::move(other));
    CVQVectorBase::internal_destruct(taken.internal_block(), destroyInts);
    EXPECT_THAT(takeCalls(), ElementsAre("destroy 3"));
    CVQVectorBase empty(4, nullptr, kSize);
    CVQVectorBase::internal_destruct(empty.internal_block(), destroyInts);
    EXPECT_THAT(takeCalls(), IsEmpty());
}

// Growing

TEST_F(CVQVectorBaseTest, TheDefaultCapacityIsTheSmallestPowerOfTwoThatSuffices) {
    const std::pair<int, int> kRows[] = {{INT_MIN, 4},
                                         {0, 4},
                                         {4, 4},
                                         {5, 8},
                                         {8, 8},
                                         {9, 16},
                                         {1000, 1024},
                                         {(1 << 29) + 1, 1 << 30},
                                         {1 << 30, 1 << 30},
                                         {(1 << 30) + 1, INT_MAX},
                                         {INT_MAX, INT_MAX}};
    for (const auto& [required, capacity] : kRows)
        EXPECT_EQ(capacity, CVQVectorBase::calculateActualCapacity(required, 12345)) << required;
}

TEST_F(CVQVectorBaseTest, AVectorsOwnGrowthSaysTheCapacity) {
    Ints ints(0, growBy10, kSize);
    for (int i = 0; i < 15; ++i)
        ints.push(i);
    EXPECT_EQ(24, ints.getCapacity());
    EXPECT_EQ(&growBy10, ints.internal_block()->growth);
}

TEST_F(CVQVectorBaseTest, AGrowthFunctionIsToldWhatIsRequiredAndWhatThereIs) {
    const auto noteGrowth = [](int required, int currentCapacity) {
        note("required ", required);
        note("current ", currentCapacity);
        return required + 1;
    };
    const int items[] = {7, 8, 9};
    Ints ints(2, noteGrowth, kSize);
    ints.internal_insert(0, 3, items, kSize, assignInts, takeInts, takeInts);
    EXPECT_THAT(takeCalls(), ElementsAre("required 3", "current 2", "take 3", "take 0", "take 0"));
    ints.resize(4);
    EXPECT_THAT(takeCalls(), ElementsAre("copy 1"));
    ints.push(5);
    EXPECT_THAT(takeCalls(), ElementsAre("required 5", "current 4", "copy 1", "copy 4", "destroy 4"));
    ints.resize(9);
    EXPECT_THAT(takeCalls(), testing::IsSupersetOf({"required 9", "current 6"}));
    EXPECT_EQ(nullptr, ints.internal_reserve(20, kSize, false, takeInts));
    EXPECT_THAT(takeCalls(), ElementsAre("required 20", "current 10", "take 9"));
    EXPECT_EQ(nullptr, ints.internal_reserve(50, kSize, true, takeInts));
    EXPECT_THAT(takeCalls(), ElementsAre("take 9"));
    EXPECT_EQ(50, ints.getCapacity());
}

TEST_F(CVQVectorBaseTest, ReservingLessThanThereIsChangesNothing) {
    Ints ints = upTo(5);
    const void* const block = ints.internal_block();
    EXPECT_EQ(nullptr, ints.internal_reserve(8, kSize, false, copyInts));
    EXPECT_EQ(nullptr, ints.internal_reserve(-8, kSize, false, copyInts));
    EXPECT_EQ(block, ints.internal_block());
    EXPECT_EQ(nullptr, Ints().internal_reserve(0, kSize, false, copyInts));
    EXPECT_THAT(takeCalls(), IsEmpty());
}

// id: vector-reserve-returns-old
TEST_F(CVQVectorBaseTest, Kept_ReserveReturnsTheOldBlockWhenItsElementsNeedTheCaller) {
    Ints copied = upTo(3);
    CVQVectorBase::SVectorData* const before = copied.internal_block();
    CVQVectorBase::SVectorData* old = copied.internal_reserve(5, kSize, false, copyInts);
    EXPECT_EQ(before, old);
    EXPECT_EQ(3, old->size);
    EXPECT_EQ(8, copied.getCapacity());
    EXPECT_THAT(copied.values(), ElementsAre(0, 1, 2));
    EXPECT_THAT(takeCalls(), ElementsAre("copy 3"));
    VQMemory::release(old);

    old = copied.internal_reserve(9, kSize, false, nullptr);
    ASSERT_NE(nullptr, old);
    EXPECT_EQ(3, copied.getSize());
    EXPECT_EQ(0, std::memcmp(old->slots(), std::data({0, 1, 2}), 3 * sizeof(int)));
    std::memcpy(copied.slots(), old->slots(), 3 * sizeof(int));
    VQMemory::release(old);

    EXPECT_EQ(nullptr, copied.internal_reserve(17, kSize, false, takeInts));
    EXPECT_THAT(takeCalls(), ElementsAre("take 3"));
    EXPECT_THAT(copied.values(), ElementsAre(0, 1, 2));
    EXPECT_EQ(nullptr, Ints(upTo(0)).internal_reserve(17, kSize, true, nullptr));
}

TEST_F(CVQVectorBaseTest, ReservingExactlyTakesSlotsAwayButNoElements) {
    Ints ints = upTo(9);
    EXPECT_EQ(nullptr, ints.internal_reserve(12, kSize, true, takeInts));
    EXPECT_EQ(12, ints.getCapacity());
    for (const int required : {9, 3, 0, -1, INT_MIN}) {
        EXPECT_EQ(nullptr, ints.internal_reserve(required, kSize, true, takeInts));
        EXPECT_EQ(9, ints.getCapacity());
        EXPECT_EQ(9, ints.getSize());
    }
    ints.erase(0, 8);
    EXPECT_EQ(nullptr, ints.internal_reserve(0, kSize, true, takeInts));
    EXPECT_EQ(nullptr, ints.internal_block());
    EXPECT_EQ(nullptr, ints.internal_reserve(0, kSize, true, takeInts));

    Ints growing(0, growBy10, kSize);
    EXPECT_EQ(nullptr, growing.internal_reserve(0, kSize, true, takeInts));
    EXPECT_EQ(4, growing.getCapacity());
    EXPECT_EQ(nullptr, growing.internal_reserve(5, kSize, true, takeInts));
    EXPECT_EQ(5, growing.getCapacity());
}

TEST_F(CVQVectorBaseTest, ReservingExactlyNothingHandsTheBlockOver) {
    for (const int required : {0, -1, INT_MIN}) {
        Ints ints = upTo(3);
        CVQVectorBase::SVectorData* const block = ints.internal_block();
        ASSERT_EQ(block, ints.internal_reserve(required, kSize, true, nullptr));
        EXPECT_EQ(nullptr, ints.internal_block());
        EXPECT_EQ(0, ints.getSize());
        EXPECT_EQ(3, block->size);
        EXPECT_EQ(0, std::memcmp(block->slots(), std::data({0, 1, 2}), 3 * sizeof(int)));
        CVQVectorBase::internal_destruct(block, destroyInts);
        EXPECT_THAT(takeCalls(), ElementsAre("destroy 3"));
        EXPECT_EQ(nullptr, ints.internal_reserve(required, kSize, true, nullptr));
    }
    Ints empty(9, nullptr, kSize);
    CVQVectorBase::SVectorData* const block = empty.internal_block();
    ASSERT_EQ(block, empty.internal_reserve(0, kSize, true, nullptr));
    VQMemory::release(block);

    Ints growing(0, growBy10, kSize);
    for (int i = 0; i < 6; ++i)
        growing.push(i);
    CVQVectorBase::SVectorData* const old = growing.internal_reserve(0, kSize, true, nullptr);
    ASSERT_NE(nullptr, old);
    EXPECT_EQ(6, growing.getCapacity());
    EXPECT_EQ(6, growing.getSize());
    VQMemory::release(old);
}

TEST_F(CVQVectorBaseTest, AnItemOfTheVectorIsPushedAlsoWhenTheVectorGrows) {
    for (const bool relocating : {false, true}) {
        for (const auto copy : {copyInts, takeInts}) {
            Ints ints = {10, 11, 12, 13};
            ints.internal_push_back(kSize, ints.slots() + 1, copy, destroyInts,
                                    relocating ? relocateInts : nullptr);
            EXPECT_THAT(ints.values(), ElementsAre(10, 11, 12, 13, 11));
            const char* const name = copy == copyInts ? "copy " : "take ";
            std::vector<std::string> expected = {std::string(name) + '1'};
            expected.push_back((relocating ? "relocate " : name) + std::string("4"));
            if (!relocating && copy == copyInts)
                expected.push_back("destroy 4");
            EXPECT_EQ(expected, takeCalls());
        }
    }
}

TEST_F(CVQVectorBaseTest, AFillOfTheVectorIsGoodAlsoWhenTheVectorGrows) {
    for (const auto relocate : {static_cast<CVQVectorBase::Relocate>(nullptr), &relocateInts}) {
        Ints ints = {10, 11, 12, 13};
        ints.internal_resize(6, kSize, ints.slots() + 2, copyInts, destroyInts, relocate);
        EXPECT_THAT(ints.values(), ElementsAre(10, 11, 12, 13, 12, 12));
        takeCalls();
    }
}

TEST_F(CVQVectorBaseTest, InsertingIntoAFullVectorMovesItsElementsOver) {
    Ints ints = {10, 11, 12, 13};
    ints.insert(1, 2, ints.slots() + 1);
    EXPECT_THAT(ints.values(), ElementsAre(10, 11, 12, 11, 12, 13));
    EXPECT_EQ(8, ints.getCapacity());
    EXPECT_THAT(takeCalls(), ElementsAre("copy 2", "relocate 1", "relocate 3"));
}

TEST_F(CVQVectorBaseTest, ItemsOfTheVectorAreInsertedInPlaceFromEverywhere) {
    for (int size = 1; size <= 8; ++size) {
        for (int pos = 0; pos <= size; ++pos) {
            for (int n = 1; n <= size; ++n) {
                for (int from = 0; from + n <= size; ++from) {
                    Ints assigning(20, nullptr, kSize);
                    Ints relocating(20, nullptr, kSize);
                    std::vector<int> expected;
                    for (int i = 0; i < size; ++i) {
                        assigning.push(i);
                        relocating.push(i);
                        expected.push_back(i);
                    }
                    const std::vector<int> items(expected.begin() + from, expected.begin() + from + n);
                    expected.insert(expected.begin() + pos, items.begin(), items.end());
                    assigning.insert(pos, n, assigning.slots() + from);
                    relocating.insertRelocating(pos, n, relocating.slots() + from);
                    ASSERT_EQ(expected, assigning.values()) << size << ' ' << pos << ' ' << n << ' ' << from;
                    ASSERT_EQ(expected, relocating.values()) << size << ' ' << pos << ' ' << n << ' ' << from;
                    ASSERT_EQ(20, assigning.getCapacity());
                }
            }
        }
    }
}

TEST_F(CVQVectorBaseTest, WithoutAssignElementsAreRelocatedInPlace) {
    const int items[] = {20, 21};
    Ints ints = upTo(5);
    ints.insertRelocating(1, 2, items);
    EXPECT_THAT(ints.values(), ElementsAre(0, 20, 21, 1, 2, 3, 4));
    EXPECT_THAT(takeCalls(), ElementsAre("relocate 4", "copy 2"));
    ints.internal_erase(1, 2, kSize, nullptr, destroyInts, relocateInts);
    EXPECT_THAT(ints.values(), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(takeCalls(), ElementsAre("destroy 2", "relocate 4"));
}

TEST_F(CVQVectorBaseTest, ErasingAssignsTheTailDownAndDestroysTheSurplus) {
    Ints ints = upTo(6);
    ints.erase(1, 2);
    EXPECT_THAT(takeCalls(), ElementsAre("assign 3", "destroy 2"));
    ints.erase(2, 3);
    EXPECT_THAT(takeCalls(), ElementsAre("destroy 2"));
    ints.internal_erase(0, 0, kSize, assignInts, nullptr);
    EXPECT_THAT(ints.values(), ElementsAre(3));
    EXPECT_EQ(8, ints.getCapacity());
}

// id: vector-pop-leaves
TEST_F(CVQVectorBaseTest, Kept_PoppingLeavesTheElementToTheCaller) {
    Ints ints = upTo(2);
    EXPECT_TRUE(ints.internal_pop_back());
    EXPECT_EQ(1, ints.slots()[1]);
    EXPECT_TRUE(ints.internal_pop_back());
    EXPECT_FALSE(ints.internal_pop_back());
    EXPECT_FALSE(Ints().internal_pop_back());
    EXPECT_THAT(takeCalls(), IsEmpty());
    EXPECT_EQ(4, ints.getCapacity());
}

// id: vector-report-texts
TEST_F(CVQVectorBaseTest, Kept_EachReportNamesItsOperationAndLine) {
    Reports reports;
    const int item = 0;
    Ints ints = upTo(1);
    ints.internal_get(1, kSize);
    std::as_const(ints).internal_get(1, kSize);
    ints.internal_replace(0, 2, &item);
    ints.internal_replace(0, -2, &item);
    ints.insert(2, 1, &item);
    ints.insert(0, -1, &item);
    ints.erase(1, 1);
    ints.resize(-1);
    EXPECT_THAT(reports.take(),
                ElementsAre(kGetReport, assertion("TVQVector", 430, "Invalid parameter"),
                            assertion("TVQVector.replace()", 375, "Invalid parameter"),
                            assertion("TVQVector.replace()", 385, "Invalid parameter"), kInsertReport,
                            assertion("TVQVector.insert()", 360, "Invalid parameter"),
                            assertion("TVQVector", 272, "Index out of range"),
                            assertion("TVQVector", 225, "Invalid parameter")));
}

TEST_F(CVQVectorBaseTest, AReplacementMustLieWithinTheElements) {
    Reports reports;
    const int items[8] = {};
    Ints ints = upTo(5);
    EXPECT_TRUE(ints.internal_replace(0, 5, items));
    EXPECT_TRUE(ints.internal_replace(4, 1, items));
    EXPECT_FALSE(ints.internal_replace(0, 0, items));
    EXPECT_FALSE(ints.internal_replace(-9, 0, nullptr));
    EXPECT_THAT(reports.take(), IsEmpty());
    EXPECT_FALSE(ints.internal_replace(0, 6, items));
    EXPECT_FALSE(ints.internal_replace(5, 1, items));
    EXPECT_FALSE(ints.internal_replace(-1, 1, items));
    EXPECT_FALSE(ints.internal_replace(0, 1, nullptr));
    EXPECT_FALSE(ints.internal_replace(INT_MAX, INT_MAX, items));
    EXPECT_FALSE(Ints().internal_replace(0, 1, items));
    EXPECT_EQ(std::vector<std::string>(6, assertion("TVQVector.replace()", 375, "Invalid parameter")),
              reports.take());
}

// Searching and comparing

TEST_F(CVQVectorBaseTest, FindsFromBothEnds) {
    Ints ints = {5, 7, 5, 7, 6};
    int key = 7;
    EXPECT_EQ(1, ints.internal_find(matchInt, kSize, &key));
    EXPECT_EQ(3, ints.internal_rfind(matchInt, kSize, &key));
    key = 6;
    EXPECT_EQ(4, ints.internal_find(matchInt, kSize, &key));
    key = 5;
    EXPECT_EQ(0, ints.internal_find(matchInt, kSize, &key));
    EXPECT_EQ(2, ints.internal_rfind(matchInt, kSize, &key));
    key = 8;
    EXPECT_EQ(-1, ints.internal_find(matchInt, kSize, &key));
    EXPECT_EQ(-1, ints.internal_rfind(matchInt, kSize, &key));
    EXPECT_EQ(-1, Ints().internal_find(matchInt, kSize, &key));
    EXPECT_EQ(-1, Ints().internal_rfind(matchInt, kSize, &key));
}

TEST_F(CVQVectorBaseTest, AsksOneElementAfterTheOtherWhetherItMatches) {
    const auto isNoted = [](const void* element, const void* key) {
        note("element ", *static_cast<const int*>(element));
        return *static_cast<const int*>(element) % 10 == *static_cast<const int*>(key);
    };
    const Ints ints = {15, 27, 35, 47, 56};
    const int key = 7;
    EXPECT_EQ(1, ints.internal_find(isNoted, kSize, &key));
    EXPECT_THAT(takeCalls(), ElementsAre("element 15", "element 27"));
    EXPECT_EQ(3, ints.internal_rfind(isNoted, kSize, &key));
    EXPECT_THAT(takeCalls(), ElementsAre("element 56", "element 47"));
}

TEST_F(CVQVectorBaseTest, ComparesItsOwnElementsWithTheOthers) {
    const auto isHalf = [](const void* mine, const void* theirs, int count) {
        return count == 2 && std::equal(static_cast<const int*>(mine), static_cast<const int*>(mine) + count,
                                        static_cast<const int*>(theirs), [](int l, int r) { return 2 * l == r; });
    };
    const Ints halves = {1, 2};
    const Ints wholes = {2, 4};
    EXPECT_TRUE(halves.internal_compare(wholes, isHalf));
    EXPECT_FALSE(wholes.internal_compare(halves, isHalf));
}

TEST_F(CVQVectorBaseTest, ComparesElementsOnlyWhereSizesAreEqual) {
    Ints none;
    Ints alsoNone(4, nullptr, kSize);
    Ints ints = {1, 2};
    EXPECT_TRUE(none.internal_compare(alsoNone, equalInts));
    EXPECT_TRUE(ints.internal_compare(ints, equalInts));
    EXPECT_FALSE(ints.internal_compare(none, equalInts));
    EXPECT_FALSE(none.internal_compare(ints, equalInts));
    EXPECT_FALSE(ints.internal_compare(Ints{1}, equalInts));
    EXPECT_THAT(takeCalls(), IsEmpty());
    EXPECT_TRUE(ints.internal_compare(Ints{1, 2}, equalInts));
    EXPECT_FALSE(Ints({1, 3}).internal_compare(ints, equalInts));
}

// The older form

// id: vector-older-form
TEST_F(CVQVectorBaseTest, Kept_AnObjectOfTheOlderFormHasACapacityAndNoSlots) {
    EXPECT_EQ(4, CVQVectorBase(0).getCapacity());
    EXPECT_EQ(4, CVQVectorBase(INT_MIN).getCapacity());
    EXPECT_EQ(1, CVQVectorBase(1).getCapacity());
    EXPECT_EQ(INT_MAX, CVQVectorBase(INT_MAX).getCapacity());
    EXPECT_EQ(0, CVQVectorBase(7).getSize());

    CVQVectorBase three(3);
    CVQVectorBase nine(9);
    swap(three, nine);
    EXPECT_EQ(9, three.getCapacity());
    EXPECT_EQ(3, nine.getCapacity());
}

TEST_F(CVQVectorBaseTest, TheOlderFormDoublesItsCapacityFromFour) {
    const struct {
        int line, capacity, required, result;
    } kRows[] = {
        {__LINE__, 0, 4, 4},
        {__LINE__, 1, 1, 1},
        {__LINE__, 1, 2, 4},
        {__LINE__, 3, 5, 8},
        {__LINE__, 5, 5, 5},
        {__LINE__, 5, 6, 10},
        {__LINE__, 5, 11, 20},
        {__LINE__, 9, INT_MIN, 9},
        {__LINE__, 4, 1 << 30, 1 << 30},
        {__LINE__, 4, (1 << 30) + 1, INT_MAX},
        {__LINE__, 3, INT_MAX, INT_MAX},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.result, CVQVectorBase(row.capacity).calcNewCapacity(row.required));
    }
    EXPECT_EQ(4, Ints().calcNewCapacity(0 + 1));
    EXPECT_EQ(16, upTo(5).calcNewCapacity(9));
}

TEST_F(CVQVectorBaseTest, TheMemberChecksReportForBothForms) {
    Reports reports;
    const int item = 0;
    const CVQVectorBase older(8);
    Ints three = upTo(3);
    EXPECT_TRUE(three.checkGet(2, 5));
    EXPECT_TRUE(three.checkResize(0, 5));
    EXPECT_TRUE(three.checkErase(0, 2, 5));
    EXPECT_TRUE(three.checkInsert(3, &item, 5));
    EXPECT_TRUE(older.checkResize(9, 5));
    EXPECT_TRUE(older.checkInsert(0, &item, 5));
    EXPECT_THAT(reports.take(), IsEmpty());

    EXPECT_FALSE(older.checkGet(0, 5));
    EXPECT_FALSE(three.checkGet(3, 5));
    EXPECT_FALSE(three.checkGet(-1, 5));
    EXPECT_FALSE(older.checkResize(-1, 5));
    EXPECT_FALSE(three.checkErase(2, 1, 5));
    EXPECT_FALSE(older.checkInsert(0, nullptr, 5));
    EXPECT_EQ(std::vector<std::string>(6, assertion("TVQVector", 5, "Invalid parameter")), reports.take());

    EXPECT_FALSE(older.checkErase(0, 0, 5));
    EXPECT_FALSE(three.checkErase(0, 3, 5));
    EXPECT_FALSE(three.checkErase(-1, 0, 5));
    EXPECT_FALSE(older.checkInsert(1, &item, 5));
    EXPECT_FALSE(three.checkInsert(-1, nullptr, 5));
    EXPECT_EQ(std::vector<std::string>(5, assertion("TVQVector", 5, "Index our of range")), reports.take());
}

TEST_F(CVQVectorBaseTest, AnObjectOfTheOlderFormGetsABlockOnceItNeedsOne) {
    const int item = 5;
    Ints pushed(100);
    pushed.push(item);
    EXPECT_EQ(4, pushed.getCapacity());
    Ints inserted(100);
    inserted.insert(0, 1, &item);
    EXPECT_THAT(inserted.values(), ElementsAre(5));
    Ints resized(100);
    resized.resize(2, 5);
    EXPECT_THAT(resized.values(), ElementsAre(5, 5));
    Ints reserved(100);
    EXPECT_EQ(nullptr, reserved.internal_reserve(3, kSize, true, nullptr));
    EXPECT_EQ(3, reserved.getCapacity());
}

// The watcher

TEST_F(CVQVectorBaseTest, TheWatcherCountsEveryPath) {
    runWatched([] {
        const auto counts = [] { return countsOf(kSize); };
        const int items[] = {1, 2, 3};
        Ints none;
        EXPECT_EQ(Counts(0, 0, 0), counts());
        {
            Ints ints;
            ints.push(1);
            EXPECT_EQ(Counts(1, 1, 4), counts());
            for (int i = 0; i < 4; ++i)
                ints.push(i);
            EXPECT_EQ(Counts(1, 5, 8), counts());
            ints.insert(2, 3, items);
            EXPECT_EQ(Counts(1, 8, 8), counts());
            ints.insert(2, 3, items);
            EXPECT_EQ(Counts(1, 11, 16), counts());
            ints.erase(1, 3);
            EXPECT_EQ(Counts(1, 8, 16), counts());
            ints.internal_pop_back();
            EXPECT_EQ(Counts(1, 7, 16), counts());
            ints.resize(20);
            EXPECT_EQ(Counts(1, 20, 32), counts());
            ints.resize(3);
            EXPECT_EQ(Counts(1, 3, 32), counts());
            {
                const Ints copy(std::as_const(ints).internal_block(), kSize);
                EXPECT_EQ(Counts(2, 6, 35), counts());
            }
            EXPECT_EQ(Counts(1, 3, 32), counts());
            // Copied, taken and left to the caller: the old block counts no more, however the caller ends it.
            CVQVectorBase::internal_destruct(ints.internal_reserve(40, kSize, true, copyInts), destroyInts);
            EXPECT_EQ(Counts(1, 3, 40), counts());
            EXPECT_EQ(nullptr, ints.internal_reserve(50, kSize, true, takeInts));
            EXPECT_EQ(Counts(1, 3, 50), counts());
            CVQVectorBase::SVectorData* const left = ints.internal_reserve(60, kSize, true, nullptr);
            EXPECT_EQ(nullptr, left->watch);
            VQMemory::release(left);
            EXPECT_EQ(Counts(1, 3, 60), counts());
            ints.insert(9, 1, items);
            ints.erase(3, 3);
            ints.resize(-1);
            EXPECT_EQ(Counts(1, 3, 60), counts());
            CVQVectorBase::SVectorData* const whole = ints.internal_reserve(0, kSize, true, nullptr);
            EXPECT_EQ(Counts(0, 0, 0), counts());
            CVQVectorBase::internal_destruct(whole, destroyInts);
            EXPECT_EQ(Counts(0, 0, 0), counts());
            ints.resize(2);
            EXPECT_EQ(Counts(1, 2, 4), counts());
            ints.resize(0);
            EXPECT_EQ(nullptr, ints.internal_reserve(0, kSize, true, copyInts));
            EXPECT_EQ(Counts(0, 0, 0), counts());
        }
        EXPECT_EQ(Counts(0, 0, 0), counts());
    });
}

TEST_F(CVQVectorBaseTest, ABlockKeepsTheWatcherThatItBeganWith) {
    runWatched([] {
        Ints watched = upTo(1);
        unsetenv("ENABLE_RAMWATCH");
        ASSERT_FALSE(CVQRamwatcher::evalIsEnabled());
        for (int i = 0; i < 4; ++i)
            watched.push(i);
        EXPECT_EQ(Counts(1, 5, 8), countsOf(kSize));
        {
            Ints unwatched = upTo(1);
            EXPECT_EQ(nullptr, unwatched.internal_block()->watch);
            setenv("ENABLE_RAMWATCH", "", 1);
            ASSERT_TRUE(CVQRamwatcher::evalIsEnabled());
            for (int i = 0; i < 4; ++i)
                unwatched.push(i);
            EXPECT_EQ(nullptr, unwatched.internal_block()->watch);
            EXPECT_EQ(Counts(1, 5, 8), countsOf(kSize));
        }
        EXPECT_EQ(Counts(1, 5, 8), countsOf(kSize));
    });
}

TEST_F(CVQVectorBaseTest, TheDummyElementIsLeftAsItWas) {
    runWatched([] {
        CVQRamwatcher::releaseElements();
        {
            Ints ints = upTo(5);
            EXPECT_EQ(&CVQRamwatcher::dummyElement, ints.internal_block()->watch);
            EXPECT_EQ(0u, CVQRamwatcher::dummyElement.instances);
            EXPECT_EQ(5u, CVQRamwatcher::dummyElement.counterA);
            EXPECT_EQ(8u, CVQRamwatcher::dummyElement.counterB);
        }
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.instances);
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.counterA);
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.counterB);
    });
}

TEST_F(CVQVectorBaseTest, NobodyIsWatchedUnlessAsked) {
    Ints ints = upTo(3);
    EXPECT_EQ(nullptr, ints.internal_block()->watch);
}

// What nothing can hold

/// The child's last words in the log.
void expectRefused(const std::function<void()>& body, const std::string& words) {
    support::SlogCapture log;
    support::ChildOptions options;
    options.environment = {{"VQ_ASSERTION_BACKTRACE_DIR", "/nowhere"},
                           {"VQ_ENABLE_ABORT_ON_FATAL_ERROR", ""},
                           {"VQ_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION", ""}};
    const support::ChildResult result = support::runInChild(body, options);
    EXPECT_TRUE(result.killedBy(SIGABRT)) << result;
    EXPECT_THAT(log.texts(), Contains(HasSubstr(words)));
}

const char* const kRefusal = "CVQVectorBase.internal_reserve():128: FATAL ERROR \"Invalid parameter\"";

TEST_F(CVQVectorBaseTest, AVectorThatIntCannotCountTakesNoMore) {
    // A size that only a corrupted header has, so that the test needs no 2 GiB.
    expectRefused(
        [] {
            Ints ints = upTo(3);
            ints.internal_block()->size = INT_MAX;
            ints.push(1);
        },
        kRefusal);
    Reports reports;
    Ints ints = upTo(3);
    const int item = 1;
    ints.internal_block()->size = INT_MAX;
    ints.insert(0, 1, &item);
    EXPECT_THAT(reports.take(), ElementsAre(kInsertReport));
    EXPECT_EQ(INT_MAX, ints.getSize());
    ints.internal_block()->size = 3;
}

TEST_F(CVQVectorBaseTest, AnElementSizeThatIsNoneIsAFatalError) {
    for (const int elementSize : {0, -1, INT_MIN}) {
        expectRefused([=] { Ints ints(1, nullptr, elementSize); }, kRefusal);
        expectRefused([=] { Ints().internal_reserve(5, elementSize, false, nullptr); }, kRefusal);
    }
}

TEST_F(CVQVectorBaseTest, BlocksThatNoAddressSpaceHoldsAreNeverShortened) {
    // On 32 bits the product would come out as 1, and the block as one of 17 bytes.
    const std::string words =
        sizeof(void*) == 4 ? "failed to allocate 4294967295 bytes" : "failed to allocate 4611686014132420641 bytes";
    expectRefused([] { Ints ints(INT_MAX, nullptr, INT_MAX); }, words);
    expectRefused([] { upTo(3).internal_reserve(INT_MAX, INT_MAX, false, nullptr); }, words);
    if (sizeof(void*) == 4)
        expectRefused([] { Ints ints((1 << 30) + 1, nullptr, 4); }, words);
}

// The layout

TEST_F(CVQVectorBaseTest, SlotsFollowTheHeaderInTheSameBlock) {
    Ints ints = upTo(3);
    const auto* const block = reinterpret_cast<const char*>(ints.internal_block());
    EXPECT_EQ(block + sizeof(CVQVectorBase::SVectorData), static_cast<const char*>(ints.internal_get(0, kSize)));
    EXPECT_EQ(block + sizeof(CVQVectorBase::SVectorData) + 8,
              static_cast<const char*>(ints.internal_get(2, kSize)));
    EXPECT_EQ(3, reinterpret_cast<const int*>(block)[0]);
    EXPECT_EQ(4, reinterpret_cast<const int*>(block)[1]);
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(ints.slots()) % alignof(std::max_align_t));
}

}  // namespace

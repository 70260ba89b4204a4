// Concerns: hooking and unhooking at both ends; moving ranges within and between lists, empty ones and ranges that start
// where they are to go; reversing; exchanging lists of none, one and several; reports of positions that are no element.
#include "container/Reports.h"

#include <CVQListBase.h>

#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(sizeof(CVQListNodeBase) == 2 * sizeof(void*) && offsetof(CVQListNodeBase, mPrevious) == 0 &&
                  offsetof(CVQListNodeBase, mNext) == sizeof(void*),
              "previous, next");
static_assert(sizeof(CVQListBase) == sizeof(CVQListNodeBase) && std::is_base_of_v<CVQListNodeBase, CVQListBase>);
static_assert(!std::is_copy_constructible_v<CVQListNodeBase> && !std::is_copy_constructible_v<CVQListBase>);

struct Node : CVQListNodeBase {
    explicit Node(int number) : mNumber(number) {}
    int mNumber;
};

/// A list of nodes numbered from `first` on.
struct NodeList {
    NodeList(int first, int count) {
        for (int i = 0; i < count; ++i) {
            mNodes.push_back(std::make_unique<Node>(first + i));
            mNodes.back()->hook(&mEnd);
        }
    }
    Node* operator[](std::size_t index) { return mNodes[index].get(); }

    CVQListBase mEnd;
    std::vector<std::unique_ptr<Node>> mNodes;
};

/// The numbers from front to back; the links back are checked on the way.
std::vector<int> numbersOf(const CVQListNodeBase& end) {
    std::vector<int> numbers;
    const CVQListNodeBase* node = &end;
    do {
        EXPECT_EQ(node, node->mNext->mPrevious);
        node = node->mNext;
        if (node != &end)
            numbers.push_back(static_cast<const Node*>(node)->mNumber);
    } while (node != &end && numbers.size() < 100);
    return numbers;
}

TEST(CVQListBase, IsAnEmptyRingAtFirst) {
    const CVQListBase list;
    EXPECT_EQ(&list, list.mNext);
    EXPECT_EQ(&list, list.mPrevious);
    EXPECT_TRUE(list.isEmpty());
}

TEST(CVQListBase, HookBeforeTheEndAppendsAndBeforeTheFirstPrepends) {
    CVQListBase list;
    Node first(1), second(2), third(3);
    second.hook(&list);
    third.hook(&list);
    first.hook(list.mNext);
    EXPECT_THAT(numbersOf(list), ElementsAre(1, 2, 3));
    EXPECT_FALSE(list.isEmpty());
    EXPECT_EQ(&first, list.mNext);
    EXPECT_EQ(&third, list.mPrevious);
    list.reset();
    EXPECT_TRUE(list.isEmpty());
}

TEST(CVQListBase, UnhookJoinsTheNeighboursAndLeavesItsOwnLinks) {
    NodeList list(1, 3);
    list[1]->unhook();
    EXPECT_THAT(numbersOf(list.mEnd), ElementsAre(1, 3));
    EXPECT_EQ(list[0], list[1]->mPrevious);
    EXPECT_EQ(list[2], list[1]->mNext);
    list[0]->unhook();
    list[2]->unhook();
    EXPECT_TRUE(list.mEnd.isEmpty());
}

TEST(CVQListBase, DestroyingANodeLeavesNullInItsLinksAndDoesNotUnlinkIt) {
    CVQListBase list;
    alignas(CVQListNodeBase) unsigned char storage[sizeof(CVQListNodeBase)];
    auto* const node = new (storage) CVQListNodeBase;
    node->hook(&list);
    node->~CVQListNodeBase();
    for (const unsigned char byte : storage)
        EXPECT_EQ(0, byte);
    EXPECT_EQ(node, list.mNext);
    list.reset();
}

TEST(CVQListBase, DestroyingAListLeavesNullInItsLinks) {
    alignas(CVQListBase) unsigned char storage[sizeof(CVQListBase)];
    auto* const list = new (storage) CVQListBase;
    list->~CVQListBase();
    for (const unsigned char byte : storage)
        EXPECT_EQ(0, byte);
}

TEST(CVQListBase, TransferMovesARangeFromAnotherList) {
    NodeList from(1, 5), to(11, 2);
    to[1]->transfer(from[1], from[3]);
    EXPECT_THAT(numbersOf(to.mEnd), ElementsAre(11, 2, 3, 12));
    EXPECT_THAT(numbersOf(from.mEnd), ElementsAre(1, 4, 5));
    to.mEnd.transfer(from.mEnd.mNext, &from.mEnd);
    EXPECT_THAT(numbersOf(to.mEnd), ElementsAre(11, 2, 3, 12, 1, 4, 5));
    EXPECT_TRUE(from.mEnd.isEmpty());
}

TEST(CVQListBase, TransferMovesARangeWithinAList) {
    NodeList list(1, 5);
    list[0]->transfer(list[2], list[4]);
    EXPECT_THAT(numbersOf(list.mEnd), ElementsAre(3, 4, 1, 2, 5));
    list.mEnd.transfer(list[2], list[0]);
    EXPECT_THAT(numbersOf(list.mEnd), ElementsAre(1, 2, 5, 3, 4));
}

TEST(CVQListBase, TransferOfAnEmptyRangeChangesNothing) {
    NodeList from(1, 2), to(11, 2);
    for (CVQListNodeBase* at : {static_cast<CVQListNodeBase*>(from[0]), static_cast<CVQListNodeBase*>(from[1]),
                                static_cast<CVQListNodeBase*>(&from.mEnd)}) {
        to[0]->transfer(at, at);
        to.mEnd.transfer(at, at);
        from[0]->transfer(at, at);
        EXPECT_THAT(numbersOf(from.mEnd), ElementsAre(1, 2));
        EXPECT_THAT(numbersOf(to.mEnd), ElementsAre(11, 12));
    }
}

TEST(CVQListBase, TransferToWhereTheRangeIsChangesNothing) {
    NodeList list(1, 4);
    list[3]->transfer(list[1], list[3]);  // before its own end
    EXPECT_THAT(numbersOf(list.mEnd), ElementsAre(1, 2, 3, 4));
    list[1]->transfer(list[1], list[3]);  // before its own first
    EXPECT_THAT(numbersOf(list.mEnd), ElementsAre(1, 2, 3, 4));
}

TEST(CVQListBase, ReverseTurnsTheListRound) {
    for (const int count : {0, 1, 2, 5}) {
        NodeList list(1, count);
        std::vector<int> expected = numbersOf(list.mEnd);
        list.mEnd.reverse();
        EXPECT_EQ(std::vector<int>(expected.rbegin(), expected.rend()), numbersOf(list.mEnd));
        EXPECT_EQ(count == 0, list.mEnd.isEmpty());
    }
}

TEST(CVQListBase, SwapExchangesTheElementsOfAnyTwoLists) {
    for (const int countA : {0, 1, 3}) {
        for (const int countB : {0, 1, 3}) {
            SCOPED_TRACE(testing::Message() << countA << ", " << countB);
            NodeList a(1, countA), b(11, countB);
            const std::vector<int> ofA = numbersOf(a.mEnd);
            const std::vector<int> ofB = numbersOf(b.mEnd);
            CVQListNodeBase::swap(a.mEnd, b.mEnd);
            EXPECT_EQ(ofB, numbersOf(a.mEnd));
            EXPECT_EQ(ofA, numbersOf(b.mEnd));
            EXPECT_EQ(countB == 0, a.mEnd.isEmpty());
            EXPECT_EQ(countA == 0, b.mEnd.isEmpty());
        }
    }
}

TEST(CVQListBase, SwapOfAListWithItselfChangesNothing) {
    for (const int count : {0, 1, 3}) {
        NodeList list(1, count);
        const std::vector<int> before = numbersOf(list.mEnd);
        CVQListNodeBase::swap(list.mEnd, list.mEnd);
        EXPECT_EQ(before, numbersOf(list.mEnd));
    }
}

TEST(CVQListBase, CheckNodeReportsTheEndPositionAndNull) {
    Reports reports;
    NodeList list(1, 2);
    EXPECT_FALSE(list.mEnd.checkNode(&list.mEnd, 5));
    EXPECT_FALSE(list.mEnd.checkNode(nullptr, 6));
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQList", 5, "Invalid iterator position"),
                                            assertion("TVQList", 6, "Invalid iterator position")));
    EXPECT_TRUE(list.mEnd.checkNode(list[0], 7));
    EXPECT_TRUE(list.mEnd.checkNode(list[1], 8));
}

}  // namespace

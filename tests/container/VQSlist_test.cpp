// Concerns: each function on a chain of none, one and several nodes; splices of nothing, of everything, and to places
// that would tie a chain into a ring.
#include <VQSlist.h>

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace VQPrivate;

static_assert(sizeof(CVQSlistNodeBase) == sizeof(void*), "next");

struct SlistNode : CVQSlistNodeBase {
    int mNumber = 0;
};

/// A head with nodes numbered from `first` on.
struct Chain {
    Chain(int first, std::size_t count) : mNodes(count) {
        CVQSlistNodeBase* last = &mHead;
        for (SlistNode& node : mNodes) {
            node.mNumber = first++;
            last = slistMakeLink(last, &node);
        }
    }
    SlistNode* operator[](std::size_t index) { return &mNodes[index]; }

    CVQSlistNodeBase mHead;
    std::vector<SlistNode> mNodes;
};

std::vector<int> numbersFrom(const CVQSlistNodeBase* node) {
    std::vector<int> numbers;
    for (; node != nullptr && numbers.size() < 100; node = node->mNext)
        numbers.push_back(static_cast<const SlistNode*>(node)->mNumber);
    return numbers;
}

TEST(VQSlist, MakeLinkInsertsBehindAndReturnsTheNode) {
    Chain chain(1, 2);
    SlistNode between;
    between.mNumber = 9;
    EXPECT_EQ(&between, slistMakeLink(chain[0], &between));
    EXPECT_THAT(numbersFrom(chain.mHead.mNext), ElementsAre(1, 9, 2));
}

TEST(VQSlist, PreviousFindsTheNodeBefore) {
    Chain chain(1, 3);
    EXPECT_EQ(&chain.mHead, slistPrevious(&chain.mHead, chain[0]));
    EXPECT_EQ(chain[1], slistPrevious(&chain.mHead, chain[2]));
    EXPECT_EQ(chain[2], slistPrevious(&chain.mHead, nullptr)) << "the last node";
    const CVQSlistNodeBase* const constHead = &chain.mHead;
    EXPECT_EQ(chain[0], slistPrevious(constHead, chain[1]));
    EXPECT_EQ(chain[2], slistPrevious(constHead, nullptr));
}

TEST(VQSlist, PreviousOfWhatIsNotThereIsNull) {
    Chain chain(1, 3), other(11, 1);
    CVQSlistNodeBase* const none = nullptr;
    EXPECT_EQ(nullptr, slistPrevious(&chain.mHead, other[0]));
    EXPECT_EQ(nullptr, slistPrevious(chain[1], chain[1])) << "behind it already";
    EXPECT_EQ(nullptr, slistPrevious(none, chain[0]));
    EXPECT_EQ(nullptr, slistPrevious(none, nullptr));
    Chain empty(0, 0);
    EXPECT_EQ(&empty.mHead, slistPrevious(&empty.mHead, nullptr)) << "without nodes the head is the last";
}

TEST(VQSlist, SpliceMovesARangeFromAnotherChain) {
    Chain from(1, 4), to(11, 2);
    slistSpliceAfter(to[0], from[0], from[2]);
    EXPECT_THAT(numbersFrom(to.mHead.mNext), ElementsAre(11, 2, 3, 12));
    EXPECT_THAT(numbersFrom(from.mHead.mNext), ElementsAre(1, 4));
}

TEST(VQSlist, SpliceMovesARangeWithinAChain) {
    Chain chain(1, 5);
    slistSpliceAfter(&chain.mHead, chain[1], chain[3]);
    EXPECT_THAT(numbersFrom(chain.mHead.mNext), ElementsAre(3, 4, 1, 2, 5));
    slistSpliceAfter(chain[4], &chain.mHead, chain[3]);
    EXPECT_THAT(numbersFrom(chain.mHead.mNext), ElementsAre(1, 2, 5, 3, 4));
}

TEST(VQSlist, SpliceBehindEitherEndOfTheRangeChangesNothing) {
    Chain chain(1, 4);
    slistSpliceAfter(chain[0], chain[0], chain[2]);
    slistSpliceAfter(chain[2], chain[0], chain[2]);
    EXPECT_THAT(numbersFrom(chain.mHead.mNext), ElementsAre(1, 2, 3, 4));
}

TEST(VQSlist, SpliceOfAnEmptyRangeChangesNothing) {
    Chain from(1, 3), to(11, 2);
    slistSpliceAfter(to[0], from[1], from[1]);
    slistSpliceAfter(from[2], from[1], from[1]);
    EXPECT_THAT(numbersFrom(from.mHead.mNext), ElementsAre(1, 2, 3));
    EXPECT_THAT(numbersFrom(to.mHead.mNext), ElementsAre(11, 12));
}

TEST(VQSlist, SpliceOfAWholeChainLeavesItsHeadEmpty) {
    Chain from(1, 3), to(11, 2);
    slistSpliceAfter(to[0], &from.mHead);
    EXPECT_THAT(numbersFrom(to.mHead.mNext), ElementsAre(11, 1, 2, 3, 12));
    EXPECT_EQ(nullptr, from.mHead.mNext);
    slistSpliceAfter(to[0], &from.mHead);
    EXPECT_THAT(numbersFrom(to.mHead.mNext), ElementsAre(11, 1, 2, 3, 12)) << "an empty chain";
    slistSpliceAfter(&from.mHead, &to.mHead);
    EXPECT_THAT(numbersFrom(from.mHead.mNext), ElementsAre(11, 1, 2, 3, 12)) << "to an empty chain";
}

TEST(VQSlist, SpliceOfAWholeChainIntoItselfChangesNothing) {
    Chain chain(1, 3);
    slistSpliceAfter(&chain.mHead, &chain.mHead);
    for (std::size_t i = 0; i < 3; ++i)
        slistSpliceAfter(chain[i], &chain.mHead);
    EXPECT_THAT(numbersFrom(chain.mHead.mNext), ElementsAre(1, 2, 3));
}

TEST(VQSlist, ReverseReturnsTheOldLastNodeAndTheOldFirstEndsTheChain) {
    Chain chain(1, 3);
    EXPECT_EQ(chain[2], slistReverse(chain[0]));
    EXPECT_THAT(numbersFrom(chain[2]), ElementsAre(3, 2, 1));
    EXPECT_EQ(nullptr, chain[0]->mNext);
    SlistNode single;
    EXPECT_EQ(&single, slistReverse(&single));
    EXPECT_EQ(nullptr, single.mNext);
    EXPECT_EQ(nullptr, slistReverse(nullptr));
}

TEST(VQSlist, SizeCountsFromTheNodeOn) {
    Chain chain(1, 3);
    EXPECT_EQ(3u, slistSize(chain[0]));
    EXPECT_EQ(1u, slistSize(chain[2]));
    EXPECT_EQ(4u, slistSize(&chain.mHead));
    EXPECT_EQ(0u, slistSize(nullptr));
}

}  // namespace

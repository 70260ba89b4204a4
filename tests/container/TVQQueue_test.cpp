// Concerns: random operations against std::deque with every construction counted; items of the queue itself; copies,
// moves and what they leave; the block, which must not grow with the number of elements that went through; reports.
#include "container/Elements.h"
#include "container/Reports.h"
#include "container/Watched.h"
#include "support/Sanitizers.h"

#include <TVQQueue.h>

#include <climits>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
std::deque<int> valuesOf(const TVQQueue<T>& queue) {
    std::deque<int> values;
    for (const T& element : queue)
        values.push_back(element.value());
    return values;
}

template <class T>
class TVQQueueTest : public testing::Test {};
using QueueKinds = testing::Types<CRooted, COwner>;
TYPED_TEST_SUITE(TVQQueueTest, QueueKinds);

TYPED_TEST(TVQQueueTest, AgreesWithAStandardDequeOverRandomOperations) {
    const int before = TypeParam::alive();
    for (unsigned seed = 0; seed < support::roundsHere(20u); ++seed) {
        std::mt19937 random(seed);
        TVQQueue<TypeParam> queue;
        std::deque<int> model;
        int next = 0;
        for (int step = 0; step < 2000; ++step) {
            // Phases in which the queue grows, and in which it shrinks.
            const bool growing = step / 200 % 2 == 0;
            switch (random() % 16) {
            case 0:
                if (!model.empty()) {
                    const int from = int(random() % model.size());
                    queue.push(queue.begin()[from]);
                    model.push_back(int(model[unsigned(from)]));
                }
                break;
            case 1: {
                TVQQueue<TypeParam> copy(queue);
                EXPECT_TRUE(copy == queue);
                queue = std::move(copy);
                EXPECT_TRUE(copy.isEmpty());
                break;
            }
            case 2:
                if (random() % 50 == 0) {
                    queue.clear();
                    model.clear();
                }
                break;
            default:
                if (random() % 10 < (growing ? 6u : 4u)) {
                    queue.push(TypeParam(++next));
                    model.push_back(next);
                } else {
                    ASSERT_EQ(!model.empty(), queue.pop());
                    if (!model.empty())
                        model.pop_front();
                }
            }
            ASSERT_EQ(model, valuesOf(queue)) << "seed " << seed << ", step " << step;
            ASSERT_EQ(int(model.size()), queue.size());
            ASSERT_EQ(model.empty(), queue.front() == nullptr);
            ASSERT_EQ(int(model.size()), TypeParam::alive() - before);
        }
    }
    EXPECT_EQ(before, TypeParam::alive());
}

TYPED_TEST(TVQQueueTest, PushesItsOwnElementWhileTheOthersMoveUp) {
    TVQQueue<TypeParam> queue;
    for (int i = 0; i < 4; ++i)
        queue.push(TypeParam(i));
    queue.pop();
    queue.push(queue.begin()[2]);
    EXPECT_THAT(valuesOf(queue), ElementsAre(1, 2, 3, 3));
    while (queue.size() > 1)
        queue.pop();
    queue.push(*queue.front());
    EXPECT_THAT(valuesOf(queue), ElementsAre(3, 3));
}

TYPED_TEST(TVQQueueTest, IsEmptyAtFirstAndAfterAMove) {
    TVQQueue<TypeParam> queue;
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(0, queue.size());
    EXPECT_FALSE(queue.pop());
    EXPECT_EQ(nullptr, queue.front());
    EXPECT_EQ(nullptr, std::as_const(queue).front());
    EXPECT_TRUE(queue == TVQQueue<TypeParam>(queue));
    queue.push(TypeParam(1));
    queue.push(TypeParam(2));
    queue.pop();
    TVQQueue<TypeParam> moved(std::move(queue));
    EXPECT_THAT(valuesOf(moved), ElementsAre(2));
    EXPECT_THAT(valuesOf(queue), IsEmpty());
    queue.push(TypeParam(3));
    EXPECT_THAT(valuesOf(queue), ElementsAre(3));
    swap(queue, moved);
    EXPECT_THAT(valuesOf(queue), ElementsAre(2));
    const TVQQueue<TypeParam>& itself = queue;
    queue = itself;
    EXPECT_THAT(valuesOf(queue), ElementsAre(2));
    EXPECT_TRUE(queue != moved);
    queue = moved;
    EXPECT_TRUE(queue == moved);
}

TEST(TVQQueue, AnIndexOutOfRangeGetsNullAndAReport) {
    Reports reports;
    TVQQueue<int> queue;
    for (int i = 0; i < 3; ++i)
        queue.push(i);
    queue.pop();
    EXPECT_EQ(1, *queue.get(0));
    EXPECT_EQ(2, *std::as_const(queue).get(1U));
    EXPECT_THAT(reports.take(), IsEmpty());
    for (const long long index : {-1LL, 2LL, LLONG_MAX}) {
        EXPECT_EQ(nullptr, queue.get(index));
        EXPECT_EQ(nullptr, std::as_const(queue).get(index));
        EXPECT_EQ(std::vector<std::string>(2, assertion("TVQQueue", 63, "Invalid parameter")), reports.take());
    }
}

TEST(TVQQueue, ItsBlockSuitsWhatItHoldsAtATimeAndIsGivenBack) {
    runWatched([] {
        {
            TVQQueue<int> queue;
            for (int i = 0; i < 10; ++i)
                queue.push(i);
            for (int i = 0; i < 100000; ++i) {
                queue.push(i);
                ASSERT_TRUE(queue.pop());
            }
            EXPECT_EQ(10, queue.size());
            EXPECT_LE(std::get<2>(countsOf(sizeof(int))), 32);
            while (queue.pop()) {
            }
            EXPECT_EQ(0, std::get<1>(countsOf(sizeof(int))));
        }
        EXPECT_EQ(Counts(0, 0, 0), countsOf(sizeof(int)));
    });
}

// The moves that pushing needs, counted: constant on average, whatever the queue's length.
struct SMoves {
    static int& count() {
        static int moves = 0;
        return moves;
    }
    SMoves() = default;
    SMoves(const SMoves&) { ++count(); }
    SMoves(SMoves&&) noexcept { ++count(); }
    ~SMoves() {}  // NOLINT: makes it an element that is not trivially copyable
};

TEST(TVQQueue, PushAndPopTakeConstantTimeOnAverage) {
    for (const int length : {1, 10, 1000, 10000}) {
        TVQQueue<SMoves> queue;
        for (int i = 0; i < length; ++i)
            queue.push(SMoves());
        SMoves::count() = 0;
        constexpr int kRounds = 50000;
        for (int i = 0; i < kRounds; ++i) {
            queue.push(SMoves());
            queue.pop();
        }
        EXPECT_LE(SMoves::count(), 5 * kRounds) << length;
    }
}

}  // namespace

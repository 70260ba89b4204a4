// Concerns: each operation against std::list; that elements stay where they are; positions that are none; lists that
// are copied, moved, moved from and swapped; elements that cannot be copied; lives of elements; algorithms.
#include "container/Lives.h"
#include "container/Reports.h"

#include <CVQString.h>
#include <TVQList.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <memory>
#include <numeric>
#include <random>

namespace {

using testing::ElementsAre;

static_assert(std::is_nothrow_move_constructible_v<TVQList<int>> &&
              std::is_nothrow_move_assignable_v<TVQList<int>>);
static_assert(std::is_same_v<std::iterator_traits<TVQList<int>::iterator>::iterator_category,
                             std::bidirectional_iterator_tag>);
static_assert(std::is_convertible_v<TVQList<int>::iterator, TVQList<int>::const_iterator> &&
              !std::is_convertible_v<TVQList<int>::const_iterator, TVQList<int>::iterator>);

const char* const kInvalid = "Invalid iterator position";

TEST(TVQList, GrowsAtBothEnds) {
    TVQList<int> list;
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(nullptr, list.front());
    EXPECT_EQ(nullptr, list.back());
    list.push_back(2);
    list.push_back(3);
    list.push_front(1);
    EXPECT_THAT(list, ElementsAre(1, 2, 3));
    EXPECT_EQ(3u, list.size());
    EXPECT_EQ(1, *list.front());
    EXPECT_EQ(3, *list.back());
    *list.front() = 10;
    EXPECT_TRUE(list.pop_front());
    EXPECT_TRUE(list.pop_back());
    EXPECT_THAT(list, ElementsAre(2));
    EXPECT_TRUE(list.pop_back());
    EXPECT_FALSE(list.pop_back());
    EXPECT_FALSE(list.pop_front());
    EXPECT_EQ(0u, list.size());
}

TEST(TVQList, InsertsBeforeAPositionAndReturnsWhere) {
    TVQList<int> list{1, 3};
    const auto two = list.insert(std::next(list.begin()), 2);
    EXPECT_EQ(2, *two);
    EXPECT_EQ(4, *list.insert(list.end(), 4));
    EXPECT_EQ(0, *list.insert(list.begin(), 0));
    EXPECT_THAT(list, ElementsAre(0, 1, 2, 3, 4));
    EXPECT_EQ(2, *two) << "still there";
}

TEST(TVQList, ErasesAndReturnsThePositionBehind) {
    TVQList<int> list{1, 2, 3, 4, 5};
    auto next = list.erase(std::next(list.begin()));
    EXPECT_EQ(3, *next);
    next = list.erase(next, std::prev(list.end()));
    EXPECT_EQ(5, *next);
    EXPECT_THAT(list, ElementsAre(1, 5));
    EXPECT_EQ(list.end(), list.erase(next));
    EXPECT_EQ(list.end(), list.erase(list.begin(), list.end()));
    EXPECT_EQ(list.end(), list.erase(list.end(), list.end())) << "nothing";
    EXPECT_TRUE(list.isEmpty());
}

TEST(TVQList, ReportsPositionsThatAreNoElement) {
    Reports reports;
    TVQList<int> list{1, 2, 3};
    TVQList<int> other{11};
    const TVQList<int>::const_iterator null;
    EXPECT_EQ(list.end(), list.erase(list.end()));
    EXPECT_EQ(list.end(), list.erase(null));
    EXPECT_EQ(list.end(), list.insert(null, 9));
    list.splice(null, other);
    list.splice(list.begin(), other, other.end());
    list.splice(list.begin(), other, null);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQList", 2, kInvalid), assertion("TVQList", 2, kInvalid),
                                            assertion("TVQList", 1, kInvalid), assertion("TVQList", 1, kInvalid),
                                            assertion("TVQList", 3, kInvalid), assertion("TVQList", 3, kInvalid)));
    EXPECT_THAT(list, ElementsAre(1, 2, 3));
    EXPECT_THAT(other, ElementsAre(11));
}

TEST(TVQList, ReportsRangesThatDoNotLeadToTheirEnd) {
    Reports reports;
    TVQList<int> list{1, 2, 3};
    TVQList<int> other{11, 12, 13};
    const TVQList<int>::const_iterator null;
    EXPECT_EQ(list.end(), list.erase(std::next(list.begin()), list.begin()));
    EXPECT_EQ(list.end(), list.erase(list.begin(), other.end()));
    EXPECT_EQ(list.end(), list.erase(list.begin(), null));
    EXPECT_EQ(list.end(), list.erase(null, list.end()));
    EXPECT_EQ(list.end(), list.erase(null, null));
    list.splice(list.begin(), other, std::next(other.begin()), other.begin());
    list.splice(list.begin(), other, list.begin(), other.end());
    list.splice(std::next(list.begin()), list, list.begin(), list.end());  // into itself
    EXPECT_EQ(std::vector<std::string>(8, assertion("TVQList", 4, kInvalid)), reports.take());
    EXPECT_THAT(list, ElementsAre(1, 2, 3));
    EXPECT_THAT(other, ElementsAre(11, 12, 13));
}

TEST(TVQList, SplicesWholeListsRangesAndElementsWithoutMovingThem) {
    TVQList<int> from{1, 2, 3, 4, 5, 6};
    TVQList<int> to{11, 12};
    const int* const third = &*std::next(from.begin(), 2);
    to.splice(std::next(to.begin()), from, std::next(from.begin(), 2));
    EXPECT_THAT(to, ElementsAre(11, 3, 12));
    EXPECT_EQ(third, &*std::next(to.begin()));
    to.splice(to.end(), from, std::next(from.begin()), std::prev(from.end()));
    EXPECT_THAT(to, ElementsAre(11, 3, 12, 2, 4, 5));
    EXPECT_THAT(from, ElementsAre(1, 6));
    EXPECT_EQ(6u, to.size());
    EXPECT_EQ(2u, from.size());
    to.splice(to.begin(), from);
    EXPECT_THAT(to, ElementsAre(1, 6, 11, 3, 12, 2, 4, 5));
    EXPECT_EQ(0u, from.size());
    to.splice(to.end(), TVQList<int>{7, 8});
    EXPECT_EQ(10u, to.size());
    EXPECT_EQ(8, *to.back());
    to.splice(to.begin(), from);
    to.splice(to.begin(), from, from.begin(), from.end());
    EXPECT_EQ(10u, to.size());
}

TEST(TVQList, SplicesWithinItself) {
    TVQList<int> list{1, 2, 3, 4};
    list.splice(list.begin(), list, std::prev(list.end()));
    EXPECT_THAT(list, ElementsAre(4, 1, 2, 3));
    list.splice(list.end(), list, list.begin(), std::next(list.begin(), 2));
    EXPECT_THAT(list, ElementsAre(2, 3, 4, 1));
    list.splice(list.begin(), list, list.begin());
    list.splice(std::next(list.begin()), list, list.begin());
    list.splice(list.begin(), list, list.begin(), list.end());
    list.splice(list.end(), list, list.begin(), list.end());
    list.splice(list.begin(), list);
    EXPECT_THAT(list, ElementsAre(2, 3, 4, 1));
    EXPECT_EQ(4u, list.size());
}

TEST(TVQList, ReversesAndComparesInOrder) {
    TVQList<int> list{1, 2, 3};
    const TVQList<int> same{1, 2, 3};
    EXPECT_TRUE(list == same);
    list.reverse();
    EXPECT_THAT(list, ElementsAre(3, 2, 1));
    EXPECT_TRUE(list != same);
    EXPECT_TRUE(list != (TVQList<int>{3, 2}));
    EXPECT_TRUE(TVQList<int>() == TVQList<int>());
}

TEST(TVQList, CopiesElementsAndMovesNone) {
    TVQList<CVQString> list{"a", "b"};
    const TVQList<CVQString> copy(list);
    EXPECT_EQ(copy, list);
    const CVQString* const first = list.front();
    TVQList<CVQString> moved(std::move(list));
    EXPECT_EQ(first, moved.front());
    EXPECT_TRUE(list.isEmpty());  // NOLINT(bugprone-use-after-move): what is left is under test
    list.push_back("new");
    EXPECT_EQ(1u, list.size());
    list = std::move(moved);
    EXPECT_EQ(first, list.front());
    EXPECT_TRUE(moved.isEmpty());  // NOLINT(bugprone-use-after-move)
    moved = copy;
    EXPECT_EQ(copy, moved);
    const TVQList<CVQString>& itself = moved;
    moved = itself;
    EXPECT_EQ(copy, moved);
    TVQList<CVQString>& same = moved;
    moved = std::move(same);
    EXPECT_EQ(copy, moved);
}

TEST(TVQList, SwapTakesIteratorsAlong) {
    TVQList<int> a{1, 2, 3};
    TVQList<int> b;
    const auto second = std::next(a.begin());
    a.swap(b);
    EXPECT_TRUE(a.isEmpty());
    EXPECT_EQ(3u, b.size());
    EXPECT_EQ(3, *b.erase(second));
    EXPECT_THAT(b, ElementsAre(1, 3));
}

TEST(TVQList, HoldsElementsThatCannotBeCopied) {
    TVQList<std::unique_ptr<int>> list;
    list.push_back(std::make_unique<int>(2));
    list.push_front(std::make_unique<int>(1));
    list.insert(list.end(), std::make_unique<int>(3));
    TVQList<std::unique_ptr<int>> moved(std::move(list));
    int sum = 0;
    for (const auto& element : moved)
        sum = sum * 10 + *element;
    EXPECT_EQ(123, sum);
}

TEST(TVQList, TakesCopiesOfItsOwnElements) {
    TVQList<CVQString> list{"x"};
    list.push_back(*list.front());
    list.push_front(*list.back());
    list.insert(list.begin(), *list.front());
    EXPECT_THAT(list, ElementsAre(CVQString("x"), CVQString("x"), CVQString("x"), CVQString("x")));
}

TEST(TVQList, EndsEachLifeOnce) {
    {
        TVQList<Life> list{1, 2, 3, 4};
        TVQList<Life> copy(list);
        copy.erase(copy.begin());
        list.splice(list.end(), copy);
        list = copy;
        list.push_back(5);
        copy = std::move(list);
        EXPECT_EQ(1u, Life::alive());
    }
    EXPECT_EQ(0u, Life::alive());
}

TEST(TVQList, ServesAlgorithms) {
    TVQList<int> list{3, 1, 2};
    EXPECT_EQ(6, std::accumulate(list.begin(), list.end(), 0));
    EXPECT_EQ(3, *std::max_element(list.begin(), list.end()));
    EXPECT_EQ(2, *std::prev(std::find(list.begin(), list.end(), 2), 0));
    std::replace(list.begin(), list.end(), 1, 7);
    EXPECT_THAT(std::vector<int>(std::make_reverse_iterator(list.end()), std::make_reverse_iterator(list.begin())),
                ElementsAre(2, 7, 3));
    const TVQList<int>& constant = list;
    EXPECT_EQ(1, std::count(constant.begin(), constant.end(), 7));
    std::reverse(list.begin(), list.end());
    EXPECT_THAT(list, ElementsAre(2, 7, 3));
}

TEST(TVQList, RandomSequencesMatchStdList) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        TVQList<int> lists[2];
        std::list<int> models[2];
        for (int step = 0; step < 500; ++step) {
            const unsigned which = random() % 2;
            TVQList<int>& list = lists[which];
            std::list<int>& model = models[which];
            TVQList<int>& source = lists[1 - which];
            std::list<int>& sourceModel = models[1 - which];
            const auto place = [&random](auto& of) { return static_cast<int>(random() % (of.size() + 1)); };
            const int at = place(model);
            switch (random() % 8) {
            case 0:
            case 1:
            case 2:
                list.insert(std::next(list.begin(), at), step);
                model.insert(std::next(model.begin(), at), step);
                break;
            case 3:
                if (at != int(model.size())) {
                    list.erase(std::next(list.begin(), at));
                    model.erase(std::next(model.begin(), at));
                }
                break;
            case 4: {
                const int end = at + place(model) * (int(model.size()) - at) / (int(model.size()) + 1);
                list.erase(std::next(list.begin(), at), std::next(list.begin(), end));
                model.erase(std::next(model.begin(), at), std::next(model.begin(), end));
                break;
            }
            case 5: {
                const int first = place(sourceModel);
                const int last =
                    first + place(sourceModel) * (int(sourceModel.size()) - first) / (int(sourceModel.size()) + 1);
                list.splice(std::next(list.begin(), at), source, std::next(source.begin(), first),
                            std::next(source.begin(), last));
                model.splice(std::next(model.begin(), at), sourceModel, std::next(sourceModel.begin(), first),
                             std::next(sourceModel.begin(), last));
                break;
            }
            case 6:
                list.reverse();
                model.reverse();
                break;
            case 7:
                list.swap(source);
                model.swap(sourceModel);
                break;
            }
            for (int i = 0; i < 2; ++i) {
                ASSERT_EQ(models[i].size(), lists[i].size()) << step;
                ASSERT_TRUE(std::equal(models[i].begin(), models[i].end(), lists[i].begin(), lists[i].end()))
                    << step;
            }
        }
    }
}

}  // namespace

// Concerns: random operations against std::set, elements counted; orders of the caller's own; elements that are their own
// keys; copies and moves; reports.
#include "container/Elements.h"
#include "container/Reports.h"

#include <CVQString.h>
#include <TVQSortedVector.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <set>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
class TVQSortedVectorTest : public testing::Test {};
using SortedVectorKinds = testing::Types<CRooted, COwner>;
TYPED_TEST_SUITE(TVQSortedVectorTest, SortedVectorKinds);

TYPED_TEST(TVQSortedVectorTest, AgreesWithAStandardSet) {
    const int before = TypeParam::alive();
    for (unsigned seed = 0; seed < 10; ++seed) {
        std::mt19937 random(seed);
        TVQSortedVector<TypeParam> sorted;
        std::set<int> model;
        for (int step = 0; step < 1000; ++step) {
            const int value = int(random() % 60);
            switch (random() % 4) {
            case 0:
                ASSERT_EQ(model.erase(value) == 1, sorted.erase(TypeParam(value)));
                break;
            case 1: {
                const int found = sorted.find(TypeParam(value));
                ASSERT_EQ(model.count(value) == 1, found >= 0);
                if (found >= 0) {
                    ASSERT_EQ(value, sorted[found].value());
                }
                break;
            }
            default:
                ASSERT_EQ(model.insert(value).second, sorted.insert(TypeParam(value)));
            }
            ASSERT_TRUE(std::equal(sorted.begin(), sorted.end(), model.begin(), model.end(),
                                   [](const TypeParam& element, int number) { return element.value() == number; }));
            ASSERT_EQ(int(model.size()), TypeParam::alive() - before);
        }
    }
    EXPECT_EQ(before, TypeParam::alive());
}

struct SLonger {
    bool operator()(const CVQString& left, const CVQString& right) const {
        return left.getByteLength() > right.getByteLength();
    }
};

TEST(TVQSortedVector, KeepsTheCallersOrder) {
    TVQSortedVector<CVQString, SLonger> texts;
    EXPECT_TRUE(texts.insert("bb"));
    EXPECT_TRUE(texts.insert("a"));
    EXPECT_TRUE(texts.insert("dddd"));
    EXPECT_FALSE(texts.insert("cc"));
    EXPECT_EQ(3, texts.size());
    EXPECT_STREQ("dddd", texts[0].c_str());
    EXPECT_STREQ("bb", texts[1].c_str());
    EXPECT_EQ(1, texts.find("xx"));
    EXPECT_EQ(-1, texts.find("xxx"));
    EXPECT_TRUE(texts.erase("yy"));
    EXPECT_EQ(2, texts.size());
}

TEST(TVQSortedVector, IsEmptyAtFirstAndAfterAMove) {
    Reports reports;
    TVQSortedVector<int> numbers;
    EXPECT_EQ(-1, numbers.find(1));
    EXPECT_FALSE(numbers.erase(1));
    EXPECT_TRUE(numbers.isEmpty());
    for (const int number : {5, 3, 9, 3})
        numbers.insert(number);
    TVQSortedVector<int> moved(std::move(numbers));
    EXPECT_THAT(moved, ElementsAre(3, 5, 9));
    EXPECT_TRUE(numbers.isEmpty());
    EXPECT_TRUE(numbers.insert(4));
    swap(numbers, moved);
    EXPECT_THAT(moved, ElementsAre(4));
    EXPECT_TRUE(moved != numbers);
    moved = numbers;
    EXPECT_TRUE(moved == numbers);
    numbers.clear();
    EXPECT_EQ(4, numbers.capacity());
    EXPECT_THAT(reports.take(), IsEmpty());
    EXPECT_EQ(nullptr, moved.get(3));
    EXPECT_EQ(0, moved[-1]);
    EXPECT_EQ(std::vector<std::string>(2, assertion("TVQVector", 430, "Invalid parameter")), reports.take());
}

TEST(TVQSortedVector, ErasesAnElementThatIsItsOwnKey) {
    TVQSortedVector<CVQString> texts;
    for (const char* text : {"b", "a", "c"})
        texts.insert(text);
    EXPECT_TRUE(texts.erase(texts[1]));
    EXPECT_FALSE(texts.insert(texts[0]));
    EXPECT_EQ(-1, texts.find("b"));
    EXPECT_EQ(2, texts.size());
}

}  // namespace

// Concerns: it hands out the pointers themselves, reports under its own name, and never touches what they point at.
#include "container/Elements.h"
#include "container/Reports.h"

#include <TVQPtrVector.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

TEST(TVQPtrVector, HoldsPointersAndOwnsNothing) {
    CRooted first(1);
    CRooted second(2);
    CRooted third(3);
    const int before = CRooted::alive();
    {
        TVQPtrVector<CRooted> pointers;
        pointers.push_back(&first);
        pointers.insert(0, &second);
        pointers.resize(4);
        EXPECT_EQ(&second, pointers.get(0));
        EXPECT_EQ(&first, pointers[1]);
        EXPECT_EQ(nullptr, pointers[2]);
        EXPECT_EQ(1, pointers.find(&first));
        EXPECT_EQ(0, pointers.rfind(&second));
        EXPECT_EQ(-1, pointers.find(&third));
        pointers.erase(2, 3);
        EXPECT_TRUE(pointers.pop_back());
        EXPECT_EQ(1, pointers.size());
        const TVQPtrVector<CRooted> copy(pointers);
        EXPECT_TRUE(copy == pointers);
        pointers.clear();
        EXPECT_TRUE(copy != pointers);
        EXPECT_EQ(2, copy[0]->value());
        pointers.push_back(&first);
        pointers[0] = &third;
        EXPECT_EQ(&third, pointers.get(0));
    }
    EXPECT_EQ(before, CRooted::alive());
}

TEST(TVQPtrVector, AnIndexOutOfRangeGetsNullAndAReportOfItsOwn) {
    Reports reports;
    int number = 5;
    TVQPtrVector<int> pointers;
    pointers.push_back(&number);
    for (const long long index : {-1LL, 1LL, 0x100000000LL}) {
        EXPECT_EQ(nullptr, pointers.get(index));
        EXPECT_EQ(nullptr, std::as_const(pointers)[index]);
        pointers[index] = &number;
        EXPECT_EQ(nullptr, pointers[index]);
        EXPECT_EQ(std::vector<std::string>(4, assertion("TVQPtrVector", 47, "Invalid parameter")), reports.take());
    }
    pointers.erase(1);
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 272, "Index out of range")));
}

TEST(TVQPtrVector, IteratesAndServesTheAlgorithms) {
    int numbers[] = {3, 1, 2};
    TVQPtrVector<int> pointers;
    for (int& number : numbers)
        pointers.push_back(&number);
    std::sort(pointers.begin(), pointers.end(), [](const int* left, const int* right) { return *left < *right; });
    std::vector<int> values;
    for (const int* pointer : pointers)
        values.push_back(*pointer);
    EXPECT_THAT(values, ElementsAre(1, 2, 3));
}

TEST(TVQPtrVector, MovesAndSwaps) {
    int number = 1;
    TVQPtrVector<int> pointers;
    pointers.push_back(&number);
    TVQPtrVector<int> moved(std::move(pointers));
    EXPECT_TRUE(pointers.isEmpty());
    swap(pointers, moved);
    EXPECT_EQ(&number, pointers[0]);
    moved = std::move(pointers);
    EXPECT_TRUE(pointers.isEmpty());
    EXPECT_EQ(1, moved.size());
}

}  // namespace

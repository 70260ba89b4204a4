// Concerns: building from every kind of range; sharing and its end, on many threads too; emptiness; reports.
#include "container/Elements.h"
#include "container/Reports.h"

#include <CVQString.h>
#include <TVQConstRefCountedVector.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <sstream>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
std::vector<int> valuesOf(const TVQConstRefCountedVector<T>& vector) {
    std::vector<int> values;
    for (const T& element : vector)
        values.push_back(element.value());
    return values;
}

TVQConstRefCountedVector<CRooted> vectorOf(const std::list<int>& values) {
    return TVQConstRefCountedVector<CRooted>(values.begin(), values.end());
}

TEST(TVQConstRefCountedVector, IsBuiltFromEveryKindOfRange) {
    const int array[] = {1, 2, 3};
    EXPECT_THAT(TVQConstRefCountedVector<int>(std::begin(array), std::end(array)), ElementsAre(1, 2, 3));
    EXPECT_THAT(valuesOf(vectorOf({4, 5})), ElementsAre(4, 5));
    std::istringstream stream("6 7 8 9 10");
    const TVQConstRefCountedVector<int> read{std::istream_iterator<int>(stream), std::istream_iterator<int>()};
    EXPECT_THAT(read, ElementsAre(6, 7, 8, 9, 10));
    TVQVector<CVQString> texts;
    texts.push_back("a");
    texts.push_back("b");
    const TVQConstRefCountedVector<CVQString> taken(std::move(texts));
    EXPECT_TRUE(texts.isEmpty());
    EXPECT_STREQ("b", taken[1].c_str());
    EXPECT_EQ(1, taken.find(CVQString("b")));
}

TEST(TVQConstRefCountedVector, CopiesShareTheElementsUntilTheLastIsGone) {
    const int before = CRooted::alive();
    {
        TVQConstRefCountedVector<CRooted> first = vectorOf({1, 2, 3});
        EXPECT_FALSE(first.isShared());
        EXPECT_EQ(before + 3, CRooted::alive());
        {
            const TVQConstRefCountedVector<CRooted> second(first);
            TVQConstRefCountedVector<CRooted> third;
            third = first;
            EXPECT_TRUE(first.isShared());
            EXPECT_EQ(first.data(), second.data());
            EXPECT_EQ(first.data(), third.data());
            EXPECT_EQ(before + 3, CRooted::alive());
            third =
                const_cast<const TVQConstRefCountedVector<CRooted>&>(third);  // to itself, unseen by the compiler
            EXPECT_EQ(first.data(), third.data());
            first.clear();
            EXPECT_TRUE(first.isEmpty());
            EXPECT_THAT(valuesOf(second), ElementsAre(1, 2, 3));
            first = std::move(third);
            EXPECT_TRUE(third.isEmpty());
            EXPECT_FALSE(third.isShared());
        }
        EXPECT_FALSE(first.isShared());
        EXPECT_THAT(valuesOf(first), ElementsAre(1, 2, 3));
        const TVQConstRefCountedVector<CRooted> moved(std::move(first));
        EXPECT_EQ(nullptr, first.data());
        EXPECT_EQ(3, moved.size());
    }
    EXPECT_EQ(before, CRooted::alive());
}

TEST(TVQConstRefCountedVector, NoElementsNeedNoBlock) {
    const TVQConstRefCountedVector<CRooted> none;
    const TVQConstRefCountedVector<CRooted> ofNone = vectorOf({});
    const TVQConstRefCountedVector<CRooted> ofEmpty{TVQVector<CRooted>(10)};
    for (const auto* vector : {&none, &ofNone, &ofEmpty}) {
        EXPECT_EQ(nullptr, vector->data());
        EXPECT_EQ(0, vector->size());
        EXPECT_TRUE(vector->isEmpty());
        EXPECT_FALSE(vector->isShared());
        EXPECT_THAT(valuesOf(*vector), IsEmpty());
        EXPECT_EQ(-1, vector->find(CRooted(1)));
        EXPECT_TRUE(*vector == none);
    }
}

TEST(TVQConstRefCountedVector, ComparesElements) {
    const TVQConstRefCountedVector<CRooted> vector = vectorOf({1, 2});
    EXPECT_TRUE(vector == vectorOf({1, 2}));
    EXPECT_TRUE(vector != vectorOf({1, 3}));
    EXPECT_TRUE(vector != vectorOf({1}));
    EXPECT_TRUE(vector != vectorOf({}));
}

TEST(TVQConstRefCountedVector, AnIndexOutOfRangeIsReportedUnderItsName) {
    Reports reports;
    const TVQConstRefCountedVector<CRooted> vector = vectorOf({1, 2});
    EXPECT_EQ(2, vector.get(1)->value());
    EXPECT_EQ(1, vector[0ULL].value());
    EXPECT_THAT(reports.take(), IsEmpty());
    for (const long long index : {-1LL, 2LL, 0x100000000LL}) {
        EXPECT_EQ(nullptr, vector.get(index));
        EXPECT_EQ(0, vector[index].value());
        EXPECT_EQ(std::vector<std::string>(2, assertion("TVQConstRefCountedVector", 58, "Invalid parameter")),
                  reports.take());
    }
}

TEST(TVQConstRefCountedVector, IsCopiedAndDroppedOnManyThreads) {
    for (int round = 0; round < 20; ++round) {
        TVQConstRefCountedVector<CVQString> shared;
        {
            TVQVector<CVQString> texts;
            for (int i = 0; i < 10; ++i)
                texts.push_back("a text that several threads read");
            shared = TVQConstRefCountedVector<CVQString>(std::move(texts));
        }
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([mine = shared]() mutable {
                for (int i = 0; i < 500; ++i) {
                    const TVQConstRefCountedVector<CVQString> copy(mine);
                    ASSERT_EQ(32u, copy[i % 10].getByteLength());
                }
                mine.clear();
            });
        }
        shared.clear();
        for (std::thread& thread : threads)
            thread.join();
    }
}

}  // namespace

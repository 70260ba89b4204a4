// Concerns: random operations against std::vector, for elements moved as bytes and for others, with every construction
// and destruction counted, also while the RAM watcher counts; items that lie in the vector; copies, moves and what they
// leave; iterators with <algorithm>; results and reports out of range; counts that int cannot hold.
#include "container/Elements.h"
#include "container/Reports.h"
#include "container/Watched.h"
#include "support/Sanitizers.h"

#include <CVQString.h>
#include <TVQVector.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
std::vector<int> valuesOf(const TVQVector<T>& vector) {
    std::vector<int> values;
    for (const T& element : vector)
        values.push_back(valueOf(element));
    return values;
}

template <class T>
TVQVector<T> vectorOf(std::initializer_list<int> values) {
    TVQVector<T> vector;
    for (const int value : values)
        vector.push_back(T(value));
    return vector;
}

// Random operations

template <class T>
class Walk {
public:
    explicit Walk(unsigned seed) : mRandom(seed) {}

    void run(int steps, bool watched) {
        for (int step = 0; step < steps; ++step) {
            takeStep();
            ASSERT_EQ(mModel, valuesOf(mVector)) << mLast << " at step " << step;
            ASSERT_GE(mVector.capacity(), mVector.size());
            if (mAliveBefore >= 0) {
                ASSERT_EQ(mVector.size(), alive<T>() - mAliveBefore) << mLast << " at step " << step;
            }
            if (watched) {
                ASSERT_EQ(Counts(mVector.capacity() != 0, mVector.size(), mVector.capacity()), countsOf(sizeof(T)))
                    << mLast << " at step " << step;
            }
        }
    }

private:
    using Model = std::vector<int>;

    int below(int limit) { return limit <= 0 ? 0 : int(mRandom() % unsigned(limit)); }
    int size() const { return mVector.size(); }
    Model::iterator at(int index) { return mModel.begin() + index; }

    void takeStep() {
        switch (below(14)) {
        case 0: {
            mLast = "push a copy";
            const T item(++mNext);
            mVector.push_back(item);
            mModel.push_back(mNext);
            break;
        }
        case 1:
            mLast = "push what is given away";
            mVector.push_back(T(++mNext));
            mModel.push_back(mNext);
            break;
        case 2:
            mLast = "push an element of its own";
            if (size() > 0) {
                const int from = below(size());
                mVector.push_back(mVector.data()[from]);
                mModel.push_back(int(mModel[unsigned(from)]));
            }
            break;
        case 3:
        case 4: {
            mLast = "insert from outside";
            const int pos = below(size() + 1);
            const int n = below(6);
            TVQVector<int> numbers;
            {
                std::vector<T> items;
                for (int i = 0; i < n; ++i) {
                    items.emplace_back(++mNext);
                    numbers.push_back(mNext);
                }
                mVector.insert(pos, n, items.data());
            }
            mModel.insert(at(pos), numbers.begin(), numbers.end());
            break;
        }
        case 5: {
            mLast = "insert elements of its own";
            const int pos = below(size() + 1);
            const int from = below(size() + 1);
            const int n = below(size() - from + 1);
            if (size() + n > 300)
                break;
            const Model items(at(from), at(from + n));
            mVector.insert(pos, n, mVector.data() + from);
            mModel.insert(at(pos), items.begin(), items.end());
            break;
        }
        case 6: {
            mLast = "insert one that is given away";
            const int pos = below(size() + 1);
            mVector.insert(pos, T(++mNext));
            mModel.insert(at(pos), mNext);
            break;
        }
        case 7:
            mLast = "erase a range";
            if (size() > 0) {
                const int first = below(size());
                const int last = std::min(first + below(8), size() - 1);
                mVector.erase(first, last);
                mModel.erase(at(first), at(last + 1));
            }
            break;
        case 8: {
            mLast = "pop";
            const bool there = size() > 0;
            ASSERT_EQ(there, mVector.pop_back());
            if (there)
                mModel.pop_back();
            break;
        }
        case 9: {
            mLast = "resize";
            const int newSize = std::max(0, size() + below(13) - 6);
            if (size() > 0 && below(2) == 0) {
                const int from = below(size());
                const int value = mModel[unsigned(from)];
                mVector.resize(newSize, mVector.data()[from]);
                mModel.resize(unsigned(newSize), value);
            } else {
                mVector.resize(newSize, T(++mNext));
                mModel.resize(unsigned(newSize), mNext);
            }
            break;
        }
        case 10:
            mLast = "reserve";
            mVector.reserve(below(2 * size() + 8));
            break;
        case 11: {
            mLast = "replace by elements of its own";
            const int n = below(size() + 1);
            const int pos = below(size() - n + 1);
            const int from = below(size() - n + 1);
            ASSERT_EQ(n > 0, mVector.replace(pos, n, mVector.data() + from));
            const Model items(at(from), at(from + n));
            std::copy(items.begin(), items.end(), at(pos));
            break;
        }
        case 12: {
            mLast = "copy, and move back";
            TVQVector<T> copy(mVector);
            ASSERT_EQ(mModel, valuesOf(copy));
            ASSERT_TRUE(copy == mVector);
            mVector.clear();
            mVector = std::move(copy);
            ASSERT_EQ(nullptr, copy.data());
            break;
        }
        default:
            mLast = "clear";
            if (below(20) == 0) {
                mVector.clear();
                mModel.clear();
            }
        }
    }

    const int mAliveBefore = alive<T>();
    std::mt19937 mRandom;
    int mNext = 0;
    TVQVector<T> mVector;
    Model mModel;
    std::string mLast;
};

template <class T>
class TVQVectorTest : public testing::Test {};
using VectorKinds = testing::Types<int, CRooted, COwner, CWide>;
TYPED_TEST_SUITE(TVQVectorTest, VectorKinds);

TYPED_TEST(TVQVectorTest, AgreesWithAStandardVectorOverRandomOperations) {
    const int aliveBefore = alive<TypeParam>();
    for (unsigned seed = 0; seed < support::roundsHere(20u); ++seed) {
        Walk<TypeParam>(seed).run(500, /*watched*/ false);
        if (testing::Test::HasFatalFailure())
            FAIL() << "seed " << seed;
    }
    EXPECT_EQ(aliveBefore, alive<TypeParam>());
}

TYPED_TEST(TVQVectorTest, AgreesWithAStandardVectorWhileTheWatcherCounts) {
    runWatched([] {
        for (unsigned seed = 100; seed < 105; ++seed) {
            Walk<TypeParam>(seed).run(500, /*watched*/ true);
            if (testing::Test::HasFatalFailure())
                FAIL() << "seed " << seed;
        }
        EXPECT_EQ(Counts(0, 0, 0), countsOf(sizeof(TypeParam)));
    });
}

TEST(TVQVector, CountsThatThreadsShareAddUp) {
    runWatched([] {
        // Without a table all threads count in one place.
        CVQRamwatcher::releaseElements();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([] {
                for (int round = 0; round < 5000; ++round) {
                    TVQVector<int> vector;
                    vector.resize(9);
                    vector.push_back(1);
                    vector.erase(0, 3);
                    const TVQVector<int> copy(vector);
                    vector.reserve(40);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.counterA);
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.counterB);
    });
}

TYPED_TEST(TVQVectorTest, IsEmptyAtFirstAndAfterAMove) {
    TVQVector<TypeParam> vector;
    EXPECT_EQ(0, vector.size());
    EXPECT_EQ(0, vector.capacity());
    EXPECT_TRUE(vector.isEmpty());
    EXPECT_EQ(nullptr, vector.data());
    EXPECT_EQ(vector.begin(), vector.end());
    EXPECT_FALSE(vector.pop_back());
    vector.clear();
    EXPECT_TRUE(vector == TVQVector<TypeParam>(vector));

    vector = vectorOf<TypeParam>({1, 2});
    const TVQVector<TypeParam> taken(std::move(vector));
    EXPECT_THAT(valuesOf(taken), ElementsAre(1, 2));
    EXPECT_THAT(valuesOf(vector), IsEmpty());
    EXPECT_EQ(nullptr, vector.data());
    vector.push_back(TypeParam(3));
    EXPECT_THAT(valuesOf(vector), ElementsAre(3));
}

TYPED_TEST(TVQVectorTest, CopiesAreTheirOwn) {
    TVQVector<TypeParam> vector = vectorOf<TypeParam>({1, 2, 3, 4, 5});
    TVQVector<TypeParam> copy(vector);
    EXPECT_EQ(5, copy.capacity());
    copy[0] = TypeParam(9);
    EXPECT_THAT(valuesOf(vector), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_FALSE(vector == copy);
    EXPECT_TRUE(vector != copy);
    vector = copy;
    EXPECT_TRUE(vector == copy);
    const TVQVector<TypeParam>& itself = vector;
    vector = itself;
    EXPECT_THAT(valuesOf(vector), ElementsAre(9, 2, 3, 4, 5));
    TVQVector<TypeParam>& alias = vector;
    vector = std::move(alias);
    EXPECT_THAT(valuesOf(vector), ElementsAre(9, 2, 3, 4, 5));
    TVQVector<TypeParam> other = vectorOf<TypeParam>({7});
    swap(vector, other);
    EXPECT_THAT(valuesOf(vector), ElementsAre(7));
    EXPECT_THAT(valuesOf(other), ElementsAre(9, 2, 3, 4, 5));
    other = TVQVector<TypeParam>();
    EXPECT_TRUE(other.isEmpty());
}

TYPED_TEST(TVQVectorTest, ClearingAndErasingKeepTheCapacity) {
    TVQVector<TypeParam> vector = vectorOf<TypeParam>({1, 2, 3, 4, 5});
    vector.erase(1);
    EXPECT_THAT(valuesOf(vector), ElementsAre(1, 3, 4, 5));
    vector.clear();
    EXPECT_TRUE(vector.isEmpty());
    EXPECT_EQ(8, vector.capacity());
    vector.reserve(20);
    EXPECT_EQ(20, vector.capacity());
    vector.reserve(0);
    EXPECT_EQ(20, vector.capacity());
}

TYPED_TEST(TVQVectorTest, FindsFromBothEnds) {
    const TVQVector<TypeParam> vector = vectorOf<TypeParam>({5, 7, 5, 7, 6});
    EXPECT_EQ(1, vector.find(TypeParam(7)));
    EXPECT_EQ(3, vector.rfind(TypeParam(7)));
    EXPECT_EQ(0, vector.find(TypeParam(5)));
    EXPECT_EQ(4, vector.rfind(TypeParam(6)));
    EXPECT_EQ(-1, vector.find(TypeParam(8)));
    EXPECT_EQ(-1, vector.rfind(TypeParam(8)));
    EXPECT_EQ(-1, TVQVector<TypeParam>().find(TypeParam(8)));
    EXPECT_EQ(-1, TVQVector<TypeParam>().rfind(TypeParam(8)));
}

TYPED_TEST(TVQVectorTest, ServesTheAlgorithms) {
    TVQVector<TypeParam> vector = vectorOf<TypeParam>({4, 2, 5, 1, 3});
    std::sort(vector.begin(), vector.end());
    EXPECT_THAT(valuesOf(vector), ElementsAre(1, 2, 3, 4, 5));
    std::rotate(vector.begin(), vector.begin() + 2, vector.end());
    EXPECT_THAT(valuesOf(vector), ElementsAre(3, 4, 5, 1, 2));
    const auto kept = std::remove(vector.begin(), vector.end(), TypeParam(5));
    vector.erase(kept - vector.begin(), vector.size() - 1);
    EXPECT_THAT(valuesOf(vector), ElementsAre(3, 4, 1, 2));
}

TYPED_TEST(TVQVectorTest, OutOfRangeTheResultIsNeutralAndReported) {
    Reports reports;
    TVQVector<TypeParam> vector = vectorOf<TypeParam>({1, 2});
    const TVQVector<TypeParam>& constant = vector;
    for (const int index : {-1, 2, INT_MIN, INT_MAX}) {
        EXPECT_EQ(nullptr, vector.get(index));
        EXPECT_EQ(nullptr, constant.get(index));
        EXPECT_EQ(0, valueOf(vector[index]));
        EXPECT_EQ(0, valueOf(constant[index]));
        const std::string report = assertion("TVQVector", 444, "Invalid parameter");
        const std::string constReport = assertion("TVQVector", 430, "Invalid parameter");
        EXPECT_THAT(reports.take(), ElementsAre(report, constReport, report, constReport));
    }
    // What is written there is gone the next time.
    vector[2] = TypeParam(77);
    EXPECT_EQ(0, valueOf(vector[2]));
    TVQVector<TypeParam>()[0] = TypeParam(78);
    EXPECT_EQ(3u, reports.take().size());
    EXPECT_EQ(2, valueOf(vector[1]));
    EXPECT_EQ(2, valueOf(*constant.get(1)));
}

TYPED_TEST(TVQVectorTest, MisuseIsReportedAndChangesNothing) {
    Reports reports;
    const TypeParam items[] = {TypeParam(7), TypeParam(8)};
    // Out of the compiler's sight, which would refuse some of this itself.
    const TypeParam* volatile none = nullptr;
    TVQVector<TypeParam> vector = vectorOf<TypeParam>({1, 2});
    vector.insert(3, items[0]);
    vector.insert(0, -1, items);
    vector.insert(0, 1, none);
    vector.erase(2);
    vector.erase(1, 0);
    vector.resize(-1);
    vector.reserve(-1);
    EXPECT_FALSE(vector.replace(1, 2, items));
    EXPECT_FALSE(vector.replace(0, 0, none));
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector.insert()", 302, "Invalid parameter"),
                                            assertion("TVQVector.insert()", 360, "Invalid parameter"),
                                            assertion("TVQVector.insert()", 302, "Invalid parameter"),
                                            assertion("TVQVector", 272, "Index out of range"),
                                            assertion("TVQVector", 272, "Invalid parameter"),
                                            assertion("TVQVector", 225, "Invalid parameter"),
                                            assertion("TVQVector", 128, "Invalid parameter"),
                                            assertion("TVQVector.replace()", 375, "Invalid parameter")));
    EXPECT_THAT(valuesOf(vector), ElementsAre(1, 2));
}

TEST(TVQVector, CountsThatIntCannotHoldAreRefused) {
    Reports reports;
    TVQVector<char> vector(0x100000003LL);
    EXPECT_EQ(0, vector.capacity());
    EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 61, "Invalid parameter")));
    EXPECT_EQ(0, TVQVector<char>(-1).capacity());
    EXPECT_EQ(4, TVQVector<char>(0x80000000U, [](int required, int) { return required; }).capacity());
    EXPECT_EQ(2u, reports.take().size());
    EXPECT_EQ(0, TVQVector<char>(0).capacity());
    EXPECT_THAT(reports.take(), IsEmpty());
    vector.push_back('x');
    for (const long long count : {0x80000000LL, 0x100000000LL, 0x100000001LL, LLONG_MAX}) {
        const char item = 'y';
        vector.resize(count);
        vector.reserve(count);
        vector.insert(0, count, &item);
        vector.insert(count, item);
        vector.erase(0, count);
        EXPECT_EQ(nullptr, vector.get(count));
        EXPECT_EQ('\0', vector[static_cast<unsigned long long>(count)]);
        EXPECT_EQ(7u, reports.take().size());
    }
    vector.reserve(0x80000000U);
    vector.resize(LLONG_MIN);
    EXPECT_EQ(2u, reports.take().size());
    EXPECT_EQ(1, vector.size());
    EXPECT_EQ('x', vector[0]);
    EXPECT_EQ('x', vector[0ULL]);
}

TEST(TVQVector, AGrowthFunctionSaysTheCapacity) {
    const auto byThree = [](int required, int current) { return std::max(required, current + 3); };
    TVQVector<int> vector(0, byThree);
    EXPECT_EQ(4, vector.capacity());
    for (int i = 0; i < 8; ++i)
        vector.push_back(i);
    EXPECT_EQ(10, vector.capacity());
    EXPECT_EQ(8, TVQVector<int>(vector).capacity());
    const TVQVector<int> moved(std::move(vector));
    EXPECT_EQ(10, moved.capacity());
    EXPECT_EQ(7, TVQVector<int>(7).capacity());
}

TEST(TVQVector, FillsWithZerosAndWithAnythingElse) {
    TVQVector<int> ints;
    ints.resize(300);
    ints.resize(600, 7);
    ints.resize(900, 0x1000000);
    ints.resize(1200, ints[899]);
    ints.resize(1500, ints[0]);
    for (int i = 0; i < 1500; ++i) {
        ASSERT_EQ(i < 300 || i >= 1200 ? 0 : i < 600 ? 7 : 0x1000000, ints[i]) << i;
    }
    TVQVector<double> numbers;
    numbers.resize(3, -0.0);
    EXPECT_TRUE(std::signbit(numbers[2]));
    TVQVector<char> bytes;
    bytes.resize(3);
    bytes.resize(5, 'x');
    EXPECT_EQ(0, std::memcmp(bytes.data(), "\0\0\0xx", 5));
}

// Large enough that the heap moves it by its pages: nothing is left where it was.
TEST(TVQVector, PushesAndInsertsItsOwnElementsWhileALargeBlockMoves) {
    TVQVector<int> vector;
    std::vector<int> model;
    for (int i = 0; i < 300000; ++i) {
        if (vector.size() < 2 || vector.size() < vector.capacity()) {
            vector.push_back(i);
            model.push_back(i);
        } else if (vector.capacity() % 3 == 1) {
            vector.insert(1, vector[vector.size() - 1]);
            model.insert(model.begin() + 1, int(model.back()));
        } else {
            vector.push_back(vector[vector.size() / 2]);
            model.push_back(int(model[model.size() / 2]));
        }
    }
    EXPECT_TRUE(std::equal(vector.begin(), vector.end(), model.begin(), model.end()));
}

TEST(TVQVector, HoldsWhatCanOnlyBeMoved) {
    TVQVector<std::unique_ptr<int>> vector;
    for (int i = 0; i < 20; ++i)
        vector.push_back(std::make_unique<int>(i));
    vector.insert(3, std::make_unique<int>(77));
    vector.erase(0, 1);
    EXPECT_TRUE(vector.pop_back());
    EXPECT_EQ(77, *vector[1]);
    EXPECT_EQ(18, vector.size());
    vector.push_back(std::move(vector[1]));
    EXPECT_EQ(77, *vector[18]);
    EXPECT_EQ(nullptr, vector[1]);
    const TVQVector<std::unique_ptr<int>> moved(std::move(vector));
    EXPECT_EQ(19, moved.size());
}

TEST(TVQVector, HoldsTextsAndVectors) {
    TVQVector<TVQVector<CVQString>> lines;
    for (int line = 0; line < 10; ++line) {
        TVQVector<CVQString> words;
        for (int word = 0; word < line; ++word)
            words.push_back(CVQString(std::to_string(line * word).c_str()));
        lines.push_back(words);
        lines.insert(0, words);
    }
    EXPECT_EQ(20, lines.size());
    EXPECT_TRUE(lines[0] == lines[19]);
    lines.erase(0, 18);
    EXPECT_EQ(9, lines[0].size());
    EXPECT_STREQ("72", lines[0][8].c_str());
}

TEST(TVQVector, AlignsItsElements) {
    struct alignas(std::max_align_t) SWide {
        char byte;
    };
    TVQVector<SWide> vector;
    for (int i = 0; i < 9; ++i) {
        vector.push_back(SWide{'x'});
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(&vector[i]) % alignof(SWide));
    }
}

TEST(TVQVector, IsOnePointer) {
    static_assert(sizeof(TVQVector<CVQString>) == sizeof(void*));
    static_assert(std::is_nothrow_move_constructible_v<TVQVector<int>>);
    static_assert(std::is_nothrow_move_assignable_v<TVQVector<int>>);
}

TEST(TVQVector, OutOfRangeTheResultIsNeutralInExitHandlersToo) {
    Reports reports;
    const support::ChildResult result = support::runInChild([] {
        // The thread's own objects are destroyed before the handler runs.
        EXPECT_EQ(0, TVQVector<COwner>()[0].value());
        ASSERT_EQ(0, std::atexit([] {
                      TVQVector<COwner> none;
                      none[0] = COwner(5);
                      EXPECT_EQ(0, none[0].value());
                      std::_Exit(testing::Test::HasFailure() ? support::kExpectationFailed : 0);
                  }));
        std::exit(1);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ(std::vector<std::string>(3, assertion("TVQVector", 444, "Invalid parameter")), reports.take());
}

TEST(TVQVector, TheNeutralElementGoesWithItsThread) {
    Reports reports;
    const int before = COwner::alive();
    std::thread([] { EXPECT_EQ(0, TVQVector<COwner>()[0].value()); }).join();
    EXPECT_EQ(before, COwner::alive());
    EXPECT_EQ(1u, reports.take().size());
}

// Set before the constructors of this unit run, and not undone by them.
extern TVQVector<int> sEarly;
[[maybe_unused]] const bool sFilledEarly = [] {
    sEarly.push_back(7);
    return true;
}();
TVQVector<int> sEarly;

TEST(TVQVector, IsReadyBeforeStaticConstructorsRun) {
    EXPECT_THAT(valuesOf(sEarly), ElementsAre(7));
}

}  // namespace

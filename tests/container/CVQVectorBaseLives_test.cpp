// Concerns: random operations of the engine against std::vector, in both of its ways to move elements (by assigning, by
// relocating), for elements moved as bytes and for others, with every life counted, also while the RAM watcher counts;
// blocks that are handed to the caller; items that lie in the vector; growth functions.
#include "container/Elements.h"
#include "container/Watched.h"

#include <CVQVectorBase.h>
#include <TVQElementOps.h>
#include <VQMemory.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

int growByThree(int required, int currentCapacity) {
    return std::max(required, currentCapacity + 3);
}

template <class T>
class EngineWalk {
public:
    EngineWalk(unsigned seed, CVQVectorBase::Growth growth)
        : mRandom(seed), mEngine(/*initialCapacity*/ 0, growth, Ops::kSize), mHasGrowth(growth != nullptr) {}
    EngineWalk(const EngineWalk&) = delete;
    EngineWalk& operator=(const EngineWalk&) = delete;
    ~EngineWalk() { CVQVectorBase::internal_destruct(mEngine.internal_block(), Ops::destroyer()); }

    void run(int steps, bool watched) {
        for (int step = 0; step < steps; ++step) {
            takeStep();
            ASSERT_EQ(mModel, values(mEngine)) << mLast << " at step " << step;
            ASSERT_GE(mEngine.getCapacity(), mEngine.getSize());
            if (mAliveBefore >= 0) {
                ASSERT_EQ(size(), alive<T>() - mAliveBefore) << mLast << " at step " << step;
            }
            if (watched) {
                ASSERT_EQ(Counts(mEngine.internal_block() != nullptr, size(), mEngine.getCapacity()),
                          countsOf(sizeof(T)))
                    << mLast << " at step " << step;
            }
        }
    }

private:
    using Ops = TVQElementOps<T>;
    using Block = CVQVectorBase::SVectorData;
    using Model = std::vector<int>;

    static std::vector<int> values(const CVQVectorBase& engine) {
        std::vector<int> result;
        result.reserve(unsigned(engine.getSize()));
        for (int i = 0; i < engine.getSize(); ++i)
            result.push_back(valueOf(*static_cast<const T*>(engine.internal_get(i, Ops::kSize))));
        return result;
    }

    int below(int limit) { return limit <= 0 ? 0 : int(mRandom() % unsigned(limit)); }
    bool oneOfTwo() { return below(2) == 0; }
    int size() const { return mEngine.getSize(); }
    Model::iterator at(int index) { return mModel.begin() + index; }
    const T* element(int index) { return Ops::slots(mEngine) + index; }
    CVQVectorBase::Assign assigning() { return oneOfTwo() ? &Ops::assign : nullptr; }
    CVQVectorBase::Relocate relocating() { return oneOfTwo() ? &Ops::relocate : nullptr; }

    void push(const T& item) {
        if constexpr (TVQIsRelocatable<T>::value) {
            if (oneOfTwo()) {
                mEngine.internal_append(Ops::kSize, &item, &Ops::copy);
                return;
            }
        }
        mEngine.internal_push_back(Ops::kSize, &item, &Ops::copy, Ops::destroyer(), relocating());
    }
    void insert(int pos, int n, const T* items) {
        mEngine.internal_insert(pos, n, items, Ops::kSize, assigning(), &Ops::copy, &Ops::relocate);
    }
    void resize(int newSize, const T& fill) {
        mEngine.internal_resize(newSize, Ops::kSize, &fill, &Ops::copy, Ops::destroyer(), relocating(),
                                oneOfTwo() ? &Ops::fill : nullptr);
    }

    void takeStep() {
        switch (below(13)) {
        case 0:
        case 1:
            mLast = "push a copy";
            push(T(++mNext));
            mModel.push_back(mNext);
            break;
        case 2:
            mLast = "push an element of its own";
            if (size() > 0) {
                const int from = below(size());
                push(*element(from));
                mModel.push_back(int(mModel[unsigned(from)]));
            }
            break;
        case 3: {
            mLast = "insert from outside";
            const int pos = below(size() + 1);
            std::vector<T> items;
            std::vector<int> numbers;
            for (int i = below(6); i > 0; --i) {
                items.emplace_back(++mNext);
                numbers.push_back(mNext);
            }
            insert(pos, int(items.size()), items.data());
            mModel.insert(at(pos), numbers.begin(), numbers.end());
            break;
        }
        case 4: {
            mLast = "insert elements of its own";
            const int pos = below(size() + 1);
            const int from = below(size() + 1);
            const int n = below(std::min(size() - from, 20) + 1);
            const Model items(at(from), at(from + n));
            if (n > 0)
                insert(pos, n, element(from));
            mModel.insert(at(pos), items.begin(), items.end());
            break;
        }
        case 5:
        case 6:
            mLast = "erase a range";
            if (size() > 0) {
                const int first = below(size());
                const int last = std::min(first + below(8), size() - 1);
                mEngine.internal_erase(first, last, Ops::kSize, assigning(), Ops::destroyer(), &Ops::relocate);
                mModel.erase(at(first), at(last + 1));
            }
            break;
        case 7:
            mLast = "pop";
            if (mEngine.internal_pop_back()) {
                element(size())->~T();
                mModel.pop_back();
            }
            break;
        case 8: {
            mLast = "resize";
            const int newSize = std::max(0, size() + below(13) - 6);
            if (size() > 0 && oneOfTwo()) {
                const int from = below(size());
                const int value = mModel[unsigned(from)];
                resize(newSize, *element(from));
                mModel.resize(unsigned(newSize), value);
            } else {
                resize(newSize, T(++mNext));
                mModel.resize(unsigned(newSize), mNext);
            }
            break;
        }
        case 9: {
            mLast = "reserve, and destroy what comes back";
            Block* const old = mEngine.internal_reserve(below(2 * size() + 8), Ops::kSize, oneOfTwo(), &Ops::copy);
            CVQVectorBase::internal_destruct(old, Ops::destroyer());
            break;
        }
        case 10: {
            mLast = "extend";
            const int required = below(2 * size() + 8);
            const int before = mEngine.getCapacity();
            const bool exact = oneOfTwo();
            if constexpr (TVQIsRelocatable<T>::value) {
                mEngine.internal_extend(required, Ops::kSize, exact);
                if (required <= before || (exact && required >= 4)) {
                    ASSERT_EQ(std::max(required, before), mEngine.getCapacity());
                }
                ASSERT_GE(mEngine.getCapacity(), required);
            }
            break;
        }
        case 11: {
            mLast = "reserve, and move what comes back";
            const int required = below(2 * size() + 8);
            Block* const old = mEngine.internal_reserve(required, Ops::kSize, oneOfTwo(), nullptr);
            if (old != nullptr && mEngine.internal_block() == nullptr) {
                ASSERT_EQ(0, required);
                ASSERT_FALSE(mHasGrowth);
                CVQVectorBase::internal_destruct(old, Ops::destroyer());
                mModel.clear();
            } else if (old != nullptr) {
                Ops::relocate(mEngine.internal_block()->slots(), old->slots(), old->size);
                VQMemory::release(old);
            }
            break;
        }
        default: {
            mLast = "copy";
            CVQVectorBase copy(std::as_const(mEngine).internal_block(), Ops::kSize);
            if (size() > 0)
                Ops::copy(Ops::slots(copy), element(0), size());
            ASSERT_EQ(mModel, values(copy));
            ASSERT_TRUE(copy.internal_compare(mEngine, &Ops::equal));
            CVQVectorBase::internal_destruct(copy.internal_block(), Ops::destroyer());
        }
        }
    }

    const int mAliveBefore = alive<T>();
    std::mt19937 mRandom;
    int mNext = 0;
    CVQVectorBase mEngine;
    bool mHasGrowth;
    Model mModel;
    std::string mLast;
};

template <class T>
void walk(unsigned firstSeed, unsigned count, bool watched) {
    const int aliveBefore = alive<T>();
    for (unsigned seed = firstSeed; seed < firstSeed + count; ++seed) {
        EngineWalk<T>(seed, seed % 2 == 0 ? nullptr : &growByThree).run(500, watched);
        if (testing::Test::HasFatalFailure())
            FAIL() << "seed " << seed;
    }
    EXPECT_EQ(aliveBefore, alive<T>());
}

template <class T>
class CVQVectorBaseLivesTest : public testing::Test {};
using Kinds = testing::Types<int, CRooted, COwner, CWide>;
TYPED_TEST_SUITE(CVQVectorBaseLivesTest, Kinds);

TYPED_TEST(CVQVectorBaseLivesTest, AgreeWithAStandardVectorOverRandomOperations) {
    walk<TypeParam>(0, 20, /*watched*/ false);
}

TYPED_TEST(CVQVectorBaseLivesTest, AgreeWithAStandardVectorWhileTheWatcherCounts) {
    runWatched([] {
        walk<TypeParam>(100, 6, /*watched*/ true);
        EXPECT_EQ(Counts(0, 0, 0), countsOf(sizeof(TypeParam)));
    });
}

// Appending to blocks that are lengthened shows in nothing but the time that it takes.
TEST(CVQVectorBaseLives, AppendingGrowsAsPushingDoes) {
    runWatched([] {
        using Ops = TVQElementOps<int>;
        for (const CVQVectorBase::Growth growth : {CVQVectorBase::Growth{nullptr}, &growByThree}) {
            CVQVectorBase pushed(/*initialCapacity*/ 0, growth, Ops::kSize);
            CVQVectorBase appended(/*initialCapacity*/ 0, growth, Ops::kSize);
            const auto item = [](CVQVectorBase& engine, const int& fresh) {
                const int size = engine.getSize();
                return size > 0 && size == engine.getCapacity() ? Ops::slots(engine) + size / 2 : &fresh;
            };
            for (int i = 0; i < 3000; ++i) {
                pushed.internal_push_back(Ops::kSize, item(pushed, i), &Ops::copy, nullptr, &Ops::relocate);
                appended.internal_append(Ops::kSize, item(appended, i), &Ops::copy);
                ASSERT_EQ(pushed.getCapacity(), appended.getCapacity());
                ASSERT_EQ(Counts(2, 2 * (i + 1), 2 * pushed.getCapacity()), countsOf(sizeof(int)));
            }
            EXPECT_EQ(growth, appended.internal_block()->growth);
            EXPECT_TRUE(pushed.internal_compare(appended, &Ops::equal));
            CVQVectorBase::internal_destruct(pushed.internal_block(), nullptr);
            CVQVectorBase::internal_destruct(appended.internal_block(), nullptr);
        }
    });
}

}  // namespace

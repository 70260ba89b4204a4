// Concerns: values in the engine's pointers and in blocks of their own; the reference that survives a growth, read and
// written by every other way too; key 0; copies, moves and what is left behind; lives of values; iterators and
// algorithms; random sequences against std::map.
#include "container/Lives.h"
#include "container/Reports.h"

#include <TVQHashMap.h>

#include <CVQString.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using IntMap = TVQHashMap<int>;
static_assert(std::is_nothrow_move_constructible_v<IntMap> && std::is_nothrow_move_assignable_v<IntMap> &&
              std::is_nothrow_default_constructible_v<IntMap>);
static_assert(std::is_convertible_v<IntMap::iterator, IntMap::const_iterator> &&
              !std::is_convertible_v<IntMap::const_iterator, IntMap::iterator>);

template <class V>
std::vector<std::pair<unsigned, V>> pairsOf(const TVQHashMap<V>& map) {
    std::vector<std::pair<unsigned, V>> pairs;
    for (const auto& [key, value] : map)
        pairs.emplace_back(key, value);
    return pairs;
}

TEST(TVQHashMap, CreatesAndFinds) {
    IntMap counts;
    EXPECT_TRUE(counts.isEmpty());
    EXPECT_EQ(0u, counts.capacity());
    EXPECT_EQ(nullptr, counts.find(3));
    EXPECT_THAT(pairsOf(counts), IsEmpty());
    EXPECT_EQ(0, counts[3]);
    EXPECT_EQ(3u, counts.capacity());
    ++counts[3];
    counts[4] = 40;
    EXPECT_EQ(1, *counts.find(3));
    *counts.find(3) = 30;
    const IntMap& constant = counts;
    EXPECT_EQ(30, *constant.find(3));
    EXPECT_EQ(nullptr, constant.find(5));
    EXPECT_EQ(2u, counts.size());
    counts.clear();
    EXPECT_TRUE(counts.isEmpty());
    EXPECT_EQ(nullptr, counts.find(3));
    EXPECT_EQ(3u, counts.capacity());
}

TEST(TVQHashMap, StartsWithTheBucketsAskedForAndGoesBackToThem) {
    TVQHashMap<int> map(100);
    EXPECT_EQ(192u, map.capacity());
    for (unsigned key = 1; key < 1000; ++key)
        map[key] = 1;
    map.clear();
    EXPECT_EQ(192u, map.capacity());
    EXPECT_EQ(3u, TVQHashMap<int>(0).capacity());
}

template <class V>
void keepsValues(const V& value) {
    TVQHashMap<V> map;
    for (unsigned key = 1; key < 100; ++key) {
        EXPECT_TRUE(map[key] == V()) << key;
        map[key] = value;
    }
    const TVQHashMap<V> copy(map);
    for (unsigned key = 1; key < 100; ++key) {
        ASSERT_NE(nullptr, copy.find(key));
        EXPECT_TRUE(*copy.find(key) == value) << key;
    }
    EXPECT_TRUE(copy == map);
    map[7] = V();
    EXPECT_TRUE(copy != map);
}

TEST(TVQHashMap, TakesValuesOfAnyKind) {
    static int object;
    keepsValues<int*>(&object);
    keepsValues<char>('x');
    keepsValues<double>(0.5);
    keepsValues<CVQString>("a text");
    keepsValues<std::string>("a text that is too long for a string's own place");
    keepsValues<std::vector<int>>({1, 2, 3});
    keepsValues<std::shared_ptr<int>>(std::make_shared<int>(1));
}

TEST(TVQHashMap, HoldsValuesThatCannotBeCopied) {
    TVQHashMap<std::unique_ptr<int>> map;
    for (unsigned key = 1; key < 50; ++key)
        map[key] = std::make_unique<int>(int(key));
    TVQHashMap<std::unique_ptr<int>> moved(std::move(map));
    EXPECT_EQ(7, **moved.find(7));
}

/// Fills `map` until one more even key makes it grow, and returns that key. Key 1 has been accessed last.
template <class V>
unsigned fillUp(TVQHashMap<V>& map) {
    map[1];
    for (unsigned key = 2;; key += 2) {
        TVQHashMap<V> trial(map);
        trial[key];
        if (trial.capacity() != map.capacity() && key > 20) {
            map[1];
            return key;
        }
        map[key];
    }
}

template <class V>
void survivesOneGrowth(const V& first, const V& second) {
    TVQHashMap<V> map;
    const unsigned next = fillUp(map);
    V& value = map[1];
    value = first;
    const unsigned before = map.capacity();
    map[next];
    ASSERT_EQ(2 * before, map.capacity());
    EXPECT_TRUE(value == first);
    value = second;
    EXPECT_TRUE(*map.find(1) == second) << "seen at once by find";
    EXPECT_EQ(&value, map.find(1));
    EXPECT_TRUE(TVQHashMap<V>(map).find(1) != nullptr && *TVQHashMap<V>(map).find(1) == second) << "by copies";
    EXPECT_EQ(1, std::count_if(map.begin(), map.end(), [&second](auto entry) { return entry.value == second; }));
    value = first;
    EXPECT_TRUE(map[1] == first);
    EXPECT_TRUE(*map.find(1) == first);
}

TEST(TVQHashMap, AReferenceSurvivesOneGrowth) {
    survivesOneGrowth<int>(1, 2);
    survivesOneGrowth<CVQString>("one", "two");
    survivesOneGrowth<std::string>("one", "two");
}

TEST(TVQHashMap, BothSidesOfAnAssignmentMayCreate) {
    TVQHashMap<CVQString> map;
    for (unsigned key = 1; key < 2000; ++key) {
        map[key] = "x";
        map[key + 5000] = map[key];
        map[key] = map[key + 9000];
        ASSERT_EQ(CVQString("x"), *map.find(key + 5000)) << key;
        ASSERT_EQ(CVQString(), *map.find(key)) << key;
    }
}

TEST(TVQHashMap, AMapMovedBeforeTheNextAccessTakesBothArraysAlong) {
    TVQHashMap<CVQString> map;
    const unsigned next = fillUp(map);
    CVQString& value = map[1];
    map[next];
    TVQHashMap<CVQString> moved(std::move(map));
    value = "written";
    EXPECT_EQ(CVQString("written"), *moved.find(1));
    moved[2];
    EXPECT_EQ(CVQString("written"), *moved.find(1));
}

TEST(TVQHashMap, AMapThatEndsBeforeTheNextAccessEndsTheWrittenValue) {
    for (const bool clears : {false, true}) {
        TVQHashMap<CVQString> map;
        const unsigned next = fillUp(map);
        CVQString& value = map[1];
        value = "one";
        map[next];
        value = "two";  // gives the first text's block back; the address sanitizer would see a second time
        if (clears)
            map.clear();
        else
            map = TVQHashMap<CVQString>();
        EXPECT_TRUE(map.isEmpty());
    }
}

TEST(TVQHashMap, KeyZeroIsReportedAndKeepsNothing) {
    Reports reports;
    {
        TVQHashMap<CVQString> map;
        map[0] = "lost";
        EXPECT_EQ(nullptr, map.find(0));
        EXPECT_EQ(0u, map.size());
        EXPECT_THAT(pairsOf(map), IsEmpty());
        EXPECT_EQ(CVQString(), map[0]);
        for (unsigned key = 2; key < 100; key += 2)
            map[key] = "x";
        map[0] = "lost again";
        EXPECT_EQ(49u, map.size());
        const TVQHashMap<CVQString> copy(map);
        EXPECT_TRUE(copy == map);
        TVQHashMap<CVQString> moved(std::move(map));
        EXPECT_EQ(49u, moved.size());
    }
    TVQHashMap<Life> lives;
    lives[0] = 1;
    lives[0] = 2;
    lives[3] = 3;
    EXPECT_EQ(2u, Life::alive());
    lives.clear();
    EXPECT_EQ(0u, Life::alive());
    EXPECT_EQ(std::vector<std::string>(5, assertion("CVQHashMapImpl", 2, "Key 0 cannot be stored")),
              reports.take());
}

TEST(TVQHashMap, AReferenceForKeyZeroIsGoodThroughAGrowth) {
    Reports reports;
    TVQHashMap<CVQString> map;
    const unsigned next = fillUp(map);
    for (auto entry : map)
        entry.value.format("value of %u", entry.key);
    CVQString& value = map[0];
    map[next].format("value of %u", next);
    value = "no value of the map";
    EXPECT_EQ(CVQString("no value of the map"), value);
    map[1];
    for (const auto& [key, text] : map)
        EXPECT_EQ("value of " + std::to_string(key), text.c_str());
    EXPECT_EQ(1u, reports.take().size());
}

TEST(TVQHashMap, ACopyOfAMapWithoutMemoryStartsAsSmallAsThatDoes) {
    const TVQHashMap<int> source;
    TVQHashMap<int> copy(source);
    EXPECT_EQ(0u, copy.capacity());
    copy[1] = 10;
    EXPECT_EQ(3u, copy.capacity());
    EXPECT_EQ(10, *copy.find(1));
}

TEST(TVQHashMap, CopiesAreIndependent) {
    TVQHashMap<std::string> map;
    map[1] = "1";
    map[2] = "2";
    TVQHashMap<std::string> copy(map);
    copy[1] = "9";
    copy[3] = "3";
    EXPECT_EQ("1", *map.find(1));
    EXPECT_EQ(2u, map.size());
    map = copy;
    EXPECT_EQ(3u, map.size());
    const auto& itself = map;
    map = itself;
    EXPECT_THAT(pairsOf(map), testing::UnorderedElementsAre(Pair(1, "9"), Pair(2, "2"), Pair(3, "3")));
    const TVQHashMap<std::string> empty;
    map = empty;
    EXPECT_TRUE(map.isEmpty());
    map[4] = "4";
    EXPECT_THAT(pairsOf(map), ElementsAre(Pair(4, "4")));
    const TVQHashMap<std::string> ofEmpty(empty);
    EXPECT_TRUE(ofEmpty.isEmpty());
}

TEST(TVQHashMap, AMovedMapIsWholeAndWhatIsLeftIsEmptyAndGood) {
    TVQHashMap<CVQString> map(4);
    for (unsigned key = 1; key < 100; ++key)
        map[key * 4] = std::to_string(key).c_str();
    const auto pairs = pairsOf(map);
    TVQHashMap<CVQString> moved(std::move(map));
    EXPECT_EQ(pairs, pairsOf(moved));
    EXPECT_EQ(99u, moved.size());
    EXPECT_EQ(nullptr, moved.find(3));
    EXPECT_EQ(0u, map.size());  // NOLINT(bugprone-use-after-move): what is left is under test
    EXPECT_EQ(0u, map.capacity());
    EXPECT_EQ(nullptr, map.find(4));
    EXPECT_EQ(nullptr, map.find(4)) << "a look-up is not remembered";
    EXPECT_THAT(pairsOf(map), IsEmpty());
    EXPECT_EQ(CVQString(), map[4]) << "nor by an access";
    EXPECT_EQ(1u, map.size());
    map = std::move(moved);
    EXPECT_EQ(pairs, pairsOf(map));
    TVQHashMap<CVQString>& same = map;
    map = std::move(same);
    EXPECT_EQ(pairs, pairsOf(map));
    moved.clear();  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(6u, moved.capacity()) << "as many buckets as the first map was made with";
    std::swap(map, moved);
    EXPECT_EQ(pairs, pairsOf(moved));
    EXPECT_TRUE(map.isEmpty());
}

TEST(TVQHashMap, EndsEachLifeOnce) {
    {
        TVQHashMap<Life> map;
        for (unsigned key = 1; key <= 300; ++key)
            map[key * 3] = int(key);
        EXPECT_EQ(300u, Life::alive());
        TVQHashMap<Life> copy(map);
        map = copy;
        copy = std::move(map);
        EXPECT_EQ(300u, Life::alive());
        map[5] = 5;
        copy.clear();
        EXPECT_EQ(1u, Life::alive());
    }
    EXPECT_EQ(0u, Life::alive());
}

TEST(TVQHashMap, ServesRangeForAndAlgorithms) {
    TVQHashMap<int> map(8);
    for (const unsigned key : {3u, 11u, 1u})
        map[key] = int(key);
    for (auto [key, value] : map)
        value *= 10;
    EXPECT_THAT(pairsOf(map), ElementsAre(Pair(1, 10), Pair(3, 30), Pair(11, 110))) << "the array's order";
    const TVQHashMap<int>& constant = map;
    EXPECT_EQ(150, std::accumulate(constant.begin(), constant.end(), 0,
                                   [](int sum, auto entry) { return sum + entry.value; }));
    const auto found = std::find_if(map.begin(), map.end(), [](auto entry) { return entry.key == 3; });
    EXPECT_EQ(30, found->value);
    const TVQHashMap<int>::const_iterator converted = found;
    EXPECT_EQ(3u, converted->key);
    EXPECT_EQ(3, std::distance(map.begin(), map.end()));
}

template <class V, class MakeValue>
void compareRandomly(MakeValue makeValue) {
    for (unsigned seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        TVQHashMap<V> map;
        std::map<unsigned, V> model;
        V* before = nullptr;
        unsigned keyBefore = 0;
        for (unsigned step = 1; step <= 1500; ++step) {
            const unsigned key = seed % 2 == 0 ? 1 + random() % 1000 : random() | 1U;
            if (random() % 4 == 0) {
                const V* const found = map.find(key);
                const auto expected = model.find(key);
                ASSERT_EQ(expected != model.end(), found != nullptr) << step;
                ASSERT_TRUE(found == nullptr || *found == expected->second) << step;
                continue;
            }
            V& value = map[key];
            ASSERT_TRUE(model[key] == value) << step;
            value = makeValue(step);
            model[key] = makeValue(step);
            // The reference before this one still counts, though the map may have grown meanwhile.
            if (before != nullptr && random() % 2 == 0) {
                *before = makeValue(100000 + step);
                model[keyBefore] = makeValue(100000 + step);
            }
            if (random() % 300 == 0) {
                map = TVQHashMap<V>(map);
                before = nullptr;
                continue;
            }
            before = &value;
            keyBefore = key;
        }
        ASSERT_EQ(model.size(), map.size());
        for (const auto& [key, value] : map)
            ASSERT_TRUE(model.at(key) == value) << key;
    }
}

TEST(TVQHashMap, RandomSequencesMatchStdMap) {
    compareRandomly<unsigned>([](unsigned number) { return number; });
    compareRandomly<CVQString>([](unsigned number) { return CVQString(std::to_string(number).c_str()); });
    compareRandomly<std::string>([](unsigned number) { return std::to_string(number); });
}

}  // namespace

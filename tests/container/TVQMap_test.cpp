// Concerns: random operations against std::map, keys and values counted; keys and values that are entries; equal keys;
// the order of texts; iteration; copies and moves; reports.
#include "container/Elements.h"
#include "container/Reports.h"
#include "support/Sanitizers.h"

#include <CVQString.h>
#include <TVQMap.h>

#include <algorithm>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
class TVQMapTest : public testing::Test {};
using MapKinds = testing::Types<CRooted, COwner>;
TYPED_TEST_SUITE(TVQMapTest, MapKinds);

TYPED_TEST(TVQMapTest, AgreesWithAStandardMap) {
    const int before = TypeParam::alive();
    for (unsigned seed = 0; seed < support::roundsHere(10u); ++seed) {
        std::mt19937 random(seed);
        TVQMap<TypeParam, TypeParam> map;
        std::map<int, int> model;
        for (int step = 0; step < 1000; ++step) {
            const int key = int(random() % 60);
            switch (random() % 5) {
            case 0:
                ASSERT_EQ(model.erase(key) == 1, map.erase(TypeParam(key)));
                break;
            case 1: {
                const auto expected = model.find(key);
                TypeParam* const found = map.find(TypeParam(key));
                ASSERT_EQ(expected != model.end(), found != nullptr);
                if (found != nullptr) {
                    ASSERT_EQ(expected->second, found->value());
                    *found = TypeParam(step);
                    expected->second = step;
                }
                break;
            }
            case 2: {
                TVQMap<TypeParam, TypeParam> copy(map);
                ASSERT_TRUE(copy == map);
                map = std::move(copy);
                ASSERT_TRUE(copy.isEmpty());
                break;
            }
            default:
                ASSERT_EQ(model.emplace(key, -step).second, map.insert(TypeParam(key), TypeParam(-step)));
            }
            ASSERT_TRUE(std::equal(
                map.begin(), map.end(), model.begin(), model.end(), [](const auto& entry, const auto& expected) {
                    return entry.key.value() == expected.first && entry.value.value() == expected.second;
                }));
            ASSERT_EQ(2 * int(model.size()), TypeParam::alive() - before);
        }
    }
    EXPECT_EQ(before, TypeParam::alive());
}

TEST(TVQMap, SortsTextsByBytes) {
    TVQMap<CVQString, int> map;
    int number = 0;
    for (const char* key : {"b", "", "Ä", "a", "B", "aa"})
        EXPECT_TRUE(map.insert(key, ++number));
    std::string keys;
    for (const auto& [key, value] : map)
        keys += std::string(key.c_str()) + ',';
    EXPECT_EQ(",B,a,aa,b,Ä,", keys);
    EXPECT_EQ(3, *map.find("Ä"));
    EXPECT_EQ(2, *std::as_const(map).find(""));
    EXPECT_EQ(nullptr, map.find("ab"));
    EXPECT_EQ(nullptr, std::as_const(map).find("z"));
}

TEST(TVQMap, AgreesWithAStandardMapOfTexts) {
    std::mt19937 random(1);
    TVQMap<CVQString, int> map;
    std::map<std::string, int> model;
    for (int step = 0; step < 5000; ++step) {
        // Few letters and syllables of up to a dozen bytes, so that keys begin like many others.
        std::string key;
        for (auto parts = random() % 5; parts > 0; --parts)
            key += std::string(random() % 12, "ab"[random() % 2]) + (random() % 2 != 0 ? "ß" : "");
        if (step % 4 == 3) {
            ASSERT_EQ(model.erase(key) == 1, map.erase(key.c_str()));
        } else {
            ASSERT_EQ(model.emplace(key, step).second, map.insert(key.c_str(), step));
        }
        ASSERT_EQ(int(model.size()), map.size());
    }
    ASSERT_LT(500u, model.size());
    EXPECT_TRUE(
        std::equal(map.begin(), map.end(), model.begin(), model.end(), [](const auto& entry, const auto& expected) {
            return entry.key.c_str() == expected.first && entry.value == expected.second;
        }));
    for (const auto& [key, value] : model)
        EXPECT_EQ(value, *map.find(key.c_str()));
}

TEST(TVQMap, KeepsTheFirstValueOfAKey) {
    TVQMap<int, CVQString> map;
    EXPECT_TRUE(map.insert(1, "first"));
    EXPECT_FALSE(map.insert(1, "second"));
    EXPECT_STREQ("first", map.find(1)->c_str());
    *map.find(1) = "third";
    EXPECT_STREQ("third", map.at(0).value.c_str());
    EXPECT_EQ(1, map.size());
}

TEST(TVQMap, ErasesAndInsertsByKeysAndValuesOfItsOwn) {
    TVQMap<CVQString, CVQString> map;
    for (const char* key : {"d", "a", "c", "b"})
        map.insert(key, key);
    EXPECT_TRUE(map.insert("e", *map.find("b")));
    EXPECT_TRUE(map.insert(map.at(0).value + "a", map.at(4).value));
    EXPECT_TRUE(map.erase(map.at(2).key));
    std::string entries;
    for (const auto& [key, value] : map)
        entries += std::string(key.c_str()) + '=' + value.c_str() + ' ';
    EXPECT_EQ("a=a aa=b c=c d=d e=b ", entries);
}

// Tells how often it was copied.
struct SCopied {
    static int& count() {
        static int copies = 0;
        return copies;
    }
    SCopied(int value = 0) : number(value) {}
    SCopied(const SCopied& other) : number(other.number) { ++count(); }
    bool operator<(const SCopied& other) const { return number < other.number; }

    int number;
};

}  // namespace

template <>
struct TVQIsRelocatable<SCopied> : std::true_type {};

namespace {

TEST(TVQMap, MovesRelocatableEntriesWithoutCopyingAKey) {
    TVQMap<SCopied, CVQString> map;
    for (int number = 100; number > 0; --number) {
        const int before = SCopied::count();
        map.insert(number, CVQString("text"));
        // Into an entry, and with it into its slot.
        EXPECT_LE(SCopied::count() - before, 2) << number;
    }
    const int before = SCopied::count();
    EXPECT_TRUE(map.erase(1));
    EXPECT_EQ(before, SCopied::count());
    EXPECT_EQ(99, map.size());
    EXPECT_EQ(2, map.at(0).key.number);
}

TEST(TVQMap, AnEntryOutOfRangeIsNeutralAndReported) {
    Reports reports;
    TVQMap<CVQString, int> map;
    map.insert("a", 1);
    EXPECT_EQ(1, map.at(0).value);
    EXPECT_THAT(reports.take(), IsEmpty());
    for (const long long index : {-1LL, 1LL, LLONG_MAX}) {
        EXPECT_TRUE(map.at(index).key.isEmpty());
        EXPECT_EQ(0, std::as_const(map).at(index).value);
        EXPECT_THAT(reports.take(), ElementsAre(assertion("TVQVector", 444, "Invalid parameter"),
                                                assertion("TVQVector", 430, "Invalid parameter")));
    }
}

TEST(TVQMap, ClearsSwapsAndCompares) {
    TVQMap<int, int> map(8);
    EXPECT_EQ(8, map.capacity());
    map.insert(2, 20);
    map.insert(1, 10);
    TVQMap<int, int> other(map);
    EXPECT_TRUE(map == other);
    *other.find(2) = 21;
    EXPECT_TRUE(map != other);
    swap(map, other);
    EXPECT_EQ(21, *map.find(2));
    map.clear();
    EXPECT_TRUE(map.isEmpty());
    EXPECT_EQ(nullptr, map.find(1));
    map.reserve(100);
    EXPECT_EQ(100, map.capacity());
}

}  // namespace

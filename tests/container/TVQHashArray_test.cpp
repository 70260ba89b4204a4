// Concerns: keys and values in the engine's pointers and in blocks of their own; equality of keys, of strings above all;
// copies, moves and what is left behind; lives of items; iterators and algorithms; spread of the hashes; random
// sequences against std::unordered_map.
#include "container/Lives.h"

#include <TVQHashArray.h>

#include <CVQByteStream.h>
#include <CVQString.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <unordered_map>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

using Ages = TVQHashArray<CVQString, int>;
static_assert(std::is_nothrow_move_constructible_v<Ages> && std::is_nothrow_move_assignable_v<Ages> &&
              std::is_nothrow_default_constructible_v<Ages>);
static_assert(TVQSlot<CVQString>::kInPlace && TVQSlot<void*>::kInPlace && TVQSlot<short>::kInPlace);
static_assert(!TVQSlot<std::string>::kInPlace && !TVQSlot<Life>::kInPlace);
static_assert(std::is_convertible_v<Ages::iterator, Ages::const_iterator> &&
              !std::is_convertible_v<Ages::const_iterator, Ages::iterator>);

template <class Table>
auto pairsOf(const Table& table) {
    std::vector<std::pair<std::decay_t<decltype(table.begin()->key)>, std::decay_t<decltype(table.begin()->value)>>>
        pairs;
    for (const auto& [key, value] : table)
        pairs.emplace_back(key, value);
    return pairs;
}

TEST(TVQHashArray, InsertsFindsAndRemoves) {
    Ages ages;
    EXPECT_TRUE(ages.isEmpty());
    EXPECT_EQ(0u, ages.capacity());
    EXPECT_EQ(nullptr, ages.find("Ada"));
    EXPECT_FALSE(ages.remove("Ada"));
    EXPECT_TRUE(ages.insert("Ada", 36));
    EXPECT_TRUE(ages.insert("Grace", 85));
    EXPECT_FALSE(ages.insert("Ada", 1)) << "it is there already";
    ASSERT_NE(nullptr, ages.find("Ada"));
    EXPECT_EQ(36, *ages.find("Ada"));
    *ages.find("Ada") = 37;
    const Ages& constant = ages;
    EXPECT_EQ(37, *constant.find("Ada"));
    EXPECT_EQ(nullptr, constant.find("ada"));
    EXPECT_EQ(2u, ages.size());
    EXPECT_TRUE(ages.remove("Ada"));
    EXPECT_EQ(nullptr, ages.find("Ada"));
    EXPECT_EQ(1u, ages.size());
    ages.clear();
    EXPECT_EQ(2u, ages.capacity());
    EXPECT_TRUE(ages.isEmpty());
}

TEST(TVQHashArray, StartsWithTheBucketsAskedFor) {
    EXPECT_EQ(8u, Ages(5).capacity());
    EXPECT_EQ(1u, Ages(0).capacity());
}

template <class K, class V>
void keepsItems(const std::vector<K>& keys, const std::vector<V>& values) {
    TVQHashArray<K, V> table;
    for (std::size_t i = 0; i < keys.size(); ++i)
        EXPECT_TRUE(table.insert(keys[i], values[i])) << i;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_FALSE(table.insert(keys[i], values[0])) << i;
        ASSERT_NE(nullptr, table.find(keys[i])) << i;
        EXPECT_EQ(values[i], *table.find(keys[i])) << i;
    }
    const TVQHashArray<K, V> copy(table);
    EXPECT_TRUE(copy == table);
    EXPECT_TRUE(table.remove(keys[0]));
    EXPECT_TRUE(copy != table);
    EXPECT_EQ(keys.size(), pairsOf(copy).size());
}

enum class Colour : unsigned char { kRed, kGreen, kBlue };

struct Point {
    short x, y;
    friend bool operator==(Point left, Point right) { return left.x == right.x && left.y == right.y; }
};

}  // namespace

template <>
struct TVQHashKey<Point> {
    static unsigned int hash(Point key) { return unsigned(key.x) * 31 + unsigned(key.y); }
    static bool equal(Point left, Point right) { return left == right; }
};

namespace {

TEST(TVQHashArray, TakesKeysAndValuesOfAnyKind) {
    static int objects[3];
    keepsItems<int, double>({0, -1, 7, 2147483647}, {0.5, 1.5, 2.5, 3.5});
    keepsItems<unsigned char, std::string>({0, 1, 255},
                                           {"a", "b", "a text that is too long for a string's own place"});
    keepsItems<long long, CVQString>({0, 1LL << 40, -(1LL << 40)}, {"a", "b", ""});
    keepsItems<int*, int*>({nullptr, &objects[0], &objects[2]}, {&objects[1], nullptr, &objects[0]});
    keepsItems<Colour, bool>({Colour::kRed, Colour::kGreen, Colour::kBlue}, {true, false, true});
    keepsItems<double, short>({0.25, -1.0, 1e300}, {short(1), short(2), short(3)});
    keepsItems<std::string, std::vector<int>>({"", "x", "yy"}, {{}, {1}, {1, 2}});
    keepsItems<CVQString, CVQString>({"", "x", "yy"}, {"1", "", "3"});
    keepsItems<Point, Point>({{0, 0}, {1, -1}, {-1, 1}}, {{1, 2}, {3, 4}, {5, 6}});
    EXPECT_TRUE((TVQHashArray<double, int>() == TVQHashArray<double, int>()));
}

TEST(TVQHashArray, FindsAKeyByValueNotByItsBytes) {
    TVQHashArray<double, int> table;
    table.insert(0.0, 1);
    EXPECT_NE(nullptr, table.find(-0.0)) << "equal, with other bytes";
}

TEST(TVQHashArray, StringsAreEqualWhenAllTheirBytesAre) {
    // Zero bytes come in by a stream only.
    const auto received = [](const std::string& bytes) {
        CVQByteStream stream;
        stream << unsigned(bytes.size());
        stream.write(bytes.data(), unsigned(bytes.size()));
        CVQString text;
        stream >> text;
        return text;
    };
    const CVQString first = received(std::string("a\0b", 3));
    const CVQString second = received(std::string("a\0c", 3));
    ASSERT_EQ(3u, first.getByteLength());
    TVQHashArray<CVQString, int> table;
    table.insert(first, 1);
    EXPECT_TRUE(table.insert(second, 2));
    EXPECT_EQ(1, *table.find(received(std::string("a\0b", 3))));
    EXPECT_EQ(2, *table.find(second));
    EXPECT_EQ(nullptr, table.find("a"));
}

TEST(TVQHashArray, HashesStringsOfEveryLengthByAllTheirBytes) {
    std::set<unsigned> hashes;
    unsigned texts = 0;
    for (std::size_t length = 0; length <= 40; ++length) {
        const std::string plain(length, 'a');
        hashes.insert(TVQHashKey<CVQString>::hash(plain.c_str()));
        ++texts;
        for (std::size_t i = 0; i < length; ++i) {
            std::string changed = plain;
            changed[i] = 'b';
            hashes.insert(TVQHashKey<CVQString>::hash(changed.c_str()));
            ++texts;
            EXPECT_EQ(VQPrivate::hashBytes(changed.data(), length), VQPrivate::hashBytes(changed.c_str(), length));
        }
    }
    EXPECT_EQ(texts, hashes.size());
}

/// How many of `keys` meet another one in a table of twice as many buckets, by the low bits of their hashes.
template <class K>
double sharedBuckets(const std::vector<K>& keys) {
    std::map<unsigned, unsigned> buckets;
    std::size_t count = 1;
    while (count < 2 * keys.size())
        count *= 2;
    for (const K& key : keys)
        ++buckets[TVQHashKey<K>::hash(key) % unsigned(count)];
    return 1.0 - double(buckets.size()) / double(keys.size());
}

TEST(TVQHashArray, SpreadsKeysThatAreAlike) {
    std::vector<CVQString> counted;
    std::vector<unsigned> steps;
    std::vector<const int*> neighbours;
    std::vector<unsigned long long> high;
    static int objects[16 * 2000];
    for (unsigned i = 0; i < 2000; ++i) {
        CVQString text;
        text.format("sensor/%05u", i);
        counted.push_back(text);
        steps.push_back(i << 12U);
        neighbours.push_back(&objects[16 * i]);
        high.push_back(static_cast<unsigned long long>(i) << 44U);
    }
    // 2000 keys at random in 4096 buckets share a bucket with an earlier one in about 21 of 100 cases.
    EXPECT_LT(sharedBuckets(counted), 0.28);
    EXPECT_LT(sharedBuckets(steps), 0.28);
    EXPECT_LT(sharedBuckets(neighbours), 0.28);
    EXPECT_LT(sharedBuckets(high), 0.28);
}

TEST(TVQHashArray, CopiesAreIndependent) {
    TVQHashArray<CVQString, std::string> table;
    table.insert("a", "1");
    table.insert("b", "2");
    TVQHashArray<CVQString, std::string> copy(table);
    *copy.find("a") = "9";
    copy.insert("c", "3");
    EXPECT_EQ("1", *table.find("a"));
    EXPECT_EQ(2u, table.size());
    table = copy;
    EXPECT_EQ("9", *table.find("a"));
    const auto& itself = table;
    table = itself;
    EXPECT_TRUE(table == copy);
    EXPECT_THAT(pairsOf(table), UnorderedElementsAre(Pair(CVQString("a"), "9"), Pair(CVQString("b"), "2"),
                                                     Pair(CVQString("c"), "3")));
}

TEST(TVQHashArray, AMovedTableIsWholeAndWhatIsLeftIsEmptyAndGood) {
    TVQHashArray<CVQString, std::string> table;
    for (int i = 0; i < 100; ++i)
        table.insert(std::to_string(i).c_str(), std::to_string(2 * i));
    const auto pairs = pairsOf(table);
    const std::string* const value = table.find("7");
    TVQHashArray<CVQString, std::string> moved(std::move(table));
    EXPECT_EQ(pairs, pairsOf(moved));
    EXPECT_EQ(value, moved.find("7"));
    EXPECT_EQ(nullptr, moved.find("100"));
    EXPECT_EQ(0u, table.size());  // NOLINT(bugprone-use-after-move): what is left is under test
    EXPECT_EQ(0u, table.capacity());
    EXPECT_EQ(nullptr, table.find("7"));
    EXPECT_THAT(pairsOf(table), IsEmpty());
    table.insert("x", "y");
    EXPECT_EQ("y", *table.find("x"));
    table = std::move(moved);
    EXPECT_EQ(pairs, pairsOf(table));
    EXPECT_EQ(nullptr, table.find("x"));
    TVQHashArray<CVQString, std::string>& same = table;
    table = std::move(same);
    EXPECT_EQ(pairs, pairsOf(table));
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(table.remove(std::to_string(i).c_str())) << i;
    std::swap(table, moved);
    EXPECT_TRUE(moved.isEmpty());
}

TEST(TVQHashArray, EqualityDoesNotDependOnOrder) {
    TVQHashArray<int, int> upwards, downwards(64);
    for (int i = 0; i < 50; ++i) {
        upwards.insert(i, i);
        downwards.insert(49 - i, 49 - i);
    }
    EXPECT_TRUE(upwards == downwards);
    *downwards.find(3) = 4;
    EXPECT_TRUE(upwards != downwards);
    *downwards.find(3) = 3;
    downwards.remove(3);
    downwards.insert(50, 3);
    EXPECT_FALSE(upwards == downwards);
}

TEST(TVQHashArray, TakesCopiesOfItsOwnItems) {
    TVQHashArray<CVQString, CVQString> table;
    table.insert("a", "a text");
    for (int i = 0; i < 40; ++i) {
        const CVQString& value = *table.find("a");
        EXPECT_TRUE(table.insert(std::to_string(i).c_str(), value));
    }
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(CVQString("a text"), *table.find(std::to_string(i).c_str()));
    for (auto entry = table.begin(); !table.isEmpty(); entry = table.begin())
        EXPECT_TRUE(table.remove(entry->key)) << "by its own key";
}

TEST(TVQHashArray, EndsEachLifeOnce) {
    {
        TVQHashArray<Life, Life> table;
        for (int i = 0; i < 300; ++i)
            table.insert(i, i);
        for (int i = 0; i < 300; i += 3)
            table.remove(i);
        EXPECT_EQ(400u, Life::alive());
        TVQHashArray<Life, Life> copy(table);
        EXPECT_EQ(800u, Life::alive());
        table = copy;
        copy = std::move(table);
        EXPECT_EQ(400u, Life::alive());
        table.insert(1, 1);
        copy.clear();
        EXPECT_EQ(2u, Life::alive());
    }
    EXPECT_EQ(0u, Life::alive());
}

TEST(TVQHashArray, ServesRangeForAndAlgorithms) {
    TVQHashArray<CVQString, int> table;
    table.insert("a", 1);
    table.insert("b", 2);
    table.insert("c", 3);
    for (auto [key, value] : table)
        value *= 10;
    for (auto entry : table)
        entry.value += 1;
    EXPECT_EQ(
        63, std::accumulate(table.begin(), table.end(), 0, [](int sum, auto entry) { return sum + entry.value; }));
    const TVQHashArray<CVQString, int>& constant = table;
    const auto found = std::find_if(constant.begin(), constant.end(), [](auto entry) { return entry.value == 21; });
    ASSERT_NE(constant.end(), found);
    EXPECT_EQ(CVQString("b"), found->key);
    EXPECT_EQ(3, std::distance(constant.begin(), constant.end()));
    auto walk = table.begin();
    const auto before = walk++;
    EXPECT_NE(before, walk);
    const Ages::const_iterator converted = before;
    EXPECT_EQ(converted, constant.begin());
}

TEST(TVQHashArray, WalksGoOnIndependently) {
    TVQHashArray<int, int> table;
    for (int i = 0; i < 20; ++i)
        table.insert(i, i);
    int pairs = 0;
    for (auto outer : table) {
        for (auto inner : table)
            pairs += outer.key != inner.key ? 1 : 0;
    }
    EXPECT_EQ(380, pairs);
}

/// Another idea of equality than the key's own.
struct IgnoringCase {
    static unsigned int hash(const std::string& key) { return unsigned(key.size()); }
    static bool equal(const std::string& left, const std::string& right) {
        return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                          [](char l, char r) { return std::tolower(l) == std::tolower(r); });
    }
};

TEST(TVQHashArray, GoesByTheKeyClassThatItIsGiven) {
    TVQHashArray<std::string, int, IgnoringCase> table;
    EXPECT_TRUE(table.insert("Key", 1));
    EXPECT_FALSE(table.insert("kEY", 2));
    EXPECT_EQ(1, *table.find("KEY"));
}

template <class K, class V, class MakeKey, class MakeValue>
void compareRandomly(MakeKey makeKey, MakeValue makeValue) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        TVQHashArray<K, V> table;
        std::unordered_map<unsigned, unsigned> model;
        for (unsigned step = 0; step < 6000; ++step) {
            const unsigned number = random() % 2500;
            const bool grows = step % 4000 < 2500;
            if (random() % 10 < (grows ? 8U : 2U)) {
                ASSERT_EQ(model.emplace(number, step).second, table.insert(makeKey(number), makeValue(step)))
                    << step;
            } else {
                ASSERT_EQ(model.erase(number) != 0, table.remove(makeKey(number))) << step;
            }
            ASSERT_EQ(model.size(), table.size());
        }
        for (const auto& [number, value] : model) {
            const V* const found = table.find(makeKey(number));
            ASSERT_NE(nullptr, found) << number;
            ASSERT_TRUE(makeValue(value) == *found) << number;
        }
        ASSERT_EQ(long(model.size()), long(std::distance(table.begin(), table.end())));
    }
}

TEST(TVQHashArray, RandomSequencesMatchStdUnorderedMap) {
    const auto text = [](unsigned number) { return CVQString(std::to_string(number).c_str()); };
    const auto longText = [](unsigned number) { return std::string(30, 'x') + std::to_string(number); };
    const auto plain = [](unsigned number) { return number; };
    compareRandomly<CVQString, CVQString>(text, text);
    compareRandomly<unsigned, unsigned>(plain, plain);
    compareRandomly<std::string, std::string>(longText, longText);
    compareRandomly<CVQString, std::string>(text, longText);
}

}  // namespace

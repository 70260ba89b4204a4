// Concerns: both searches in every range up to a size, with keys before, in, between and behind its elements; which
// order they ask, and how often.
#include <VQAlgorithm.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

TEST(VQAlgorithm, FindsTheFirstElementThatIsNotBeforeTheKey) {
    std::vector<int> numbers;
    for (int size = 0; size <= 20; ++size) {
        for (int key = -1; key <= 3 * size + 1; ++key) {
            const auto found = VQAlgorithm::lowerBound(numbers.begin(), numbers.end(), key, TVQBefore<int>());
            ASSERT_EQ(std::lower_bound(numbers.begin(), numbers.end(), key), found) << size << ' ' << key;
        }
        numbers.push_back(size / 2 * 3);  // each twice
    }
}

struct SPlain {
    int value;
    static inline int asked = 0;
    bool operator<(const SPlain& other) const { return ++asked, value < other.value; }
};

struct SCompared {
    int value;
    static inline int asked = 0;
    bool operator<(const SCompared& other) const { return value < other.value; }
    int compare(const SCompared& other) const noexcept { return ++asked, value - other.value; }
};

/// Ordered by its digits, which it compares only as far as is not known.
struct SDigits {
    int value;
    static inline int read = 0;
    bool operator<(const SDigits& other) const { return value < other.value; }
    int compare(const SDigits& other) const noexcept { return value - other.value; }
    int compareFrom(const SDigits& other, std::size_t& alike) const noexcept {
        const std::string mine = digits(), theirs = other.digits();
        EXPECT_EQ(mine.substr(0, alike), theirs.substr(0, alike));
        while (alike < mine.size() && (++read, mine[alike] == theirs[alike]))
            ++alike;
        return alike < mine.size() ? mine[alike] - theirs[alike] : 0;
    }

private:
    std::string digits() const { return std::to_string(2000 + value); }
};

template <class Number>
class VQAlgorithmFindUnique : public testing::Test {};
using Numbers = testing::Types<SPlain, SCompared, SDigits>;
TYPED_TEST_SUITE(VQAlgorithmFindUnique, Numbers);

TYPED_TEST(VQAlgorithmFindUnique, FindsEachKeyOrWhereItIsMissing) {
    const auto self = [](const TypeParam& number) -> const TypeParam& { return number; };
    std::vector<TypeParam> numbers;
    for (int size = 0; size <= 120; ++size) {
        for (int key = -1; key <= 2 * size; ++key) {
            const auto place = VQAlgorithm::findUnique(numbers.begin(), numbers.end(), TypeParam{key}, self,
                                                       TVQBefore<TypeParam>());
            const bool isThere = key >= 0 && key % 2 == 0 && key < 2 * size;
            ASSERT_EQ(isThere, place.isFound) << size << ' ' << key;
            ASSERT_EQ((key + 1) / 2, place.position - numbers.begin()) << size << ' ' << key;
        }
        numbers.push_back({2 * size});
    }
}

TEST(VQAlgorithm, AsksAnOrderThatComparesNoMoreOnceTheKeyIsFound) {
    const auto self = [](const auto& number) -> const auto& {
        return number;
    };
    const std::vector<SCompared> compared = {{0}, {1}, {2}};
    SCompared::asked = 0;
    VQAlgorithm::findUnique(compared.begin(), compared.end(), SCompared{1}, self, TVQBefore<SCompared>());
    EXPECT_EQ(1, SCompared::asked);
    const std::vector<SPlain> plain = {{0}, {1}, {2}};
    SPlain::asked = 0;
    VQAlgorithm::findUnique(plain.begin(), plain.end(), SPlain{1}, self, TVQBefore<SPlain>());
    EXPECT_EQ(3, SPlain::asked);
}

TEST(VQAlgorithm, ComparesWhatBothNeighboursBeginWithNoMore) {
    const auto self = [](const SDigits& number) -> const SDigits& { return number; };
    const std::vector<SDigits> numbers = {{100}, {110}, {120}, {130}, {140}, {150}, {160}};
    SDigits::read = 0;
    VQAlgorithm::findUnique(numbers.begin(), numbers.end(), SDigits{121}, self, TVQBefore<SDigits>());
    // 2130 and 2110 both begin with 21 as 2121 does: what lies between is read from the third digit on.
    EXPECT_EQ(3 + 3 + 2, SDigits::read);
}

TEST(VQAlgorithm, DoesNotTakeAnInheritedComparisonForATypesOwnOrder) {
    struct SBackward : SCompared {
        bool operator<(const SBackward& other) const { return other.value < value; }
    };
    std::vector<SBackward> numbers;
    for (const int value : {2, 1, 0})
        numbers.push_back({{value}});
    const auto self = [](const SBackward& number) -> const SBackward& { return number; };
    const auto place =
        VQAlgorithm::findUnique(numbers.begin(), numbers.end(), SBackward{{0}}, self, TVQBefore<SBackward>());
    EXPECT_TRUE(place.isFound);
    EXPECT_EQ(2, place.position - numbers.begin());

    struct SByLastDigit : SDigits {
        int compare(const SByLastDigit& other) const noexcept { return value % 10 - other.value % 10; }
    };
    std::size_t alike = 0;
    EXPECT_GT(0, TVQBefore<SByLastDigit>().compare({{20}}, {{11}}, alike));
}

}  // namespace

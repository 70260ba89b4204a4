// Concerns: both searches in every range up to a size, with keys before, in, between and behind its elements; which
// order they ask, and how often.
#include <VQAlgorithm.h>

#include <algorithm>
#include <gtest/gtest.h>
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

template <class Number>
class VQAlgorithmFindUnique : public testing::Test {};
using Numbers = testing::Types<SPlain, SCompared>;
TYPED_TEST_SUITE(VQAlgorithmFindUnique, Numbers);

TYPED_TEST(VQAlgorithmFindUnique, FindsEachKeyOrWhereItIsMissing) {
    const auto self = [](const TypeParam& number) -> const TypeParam& { return number; };
    std::vector<TypeParam> numbers;
    for (int size = 0; size <= 40; ++size) {
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
}

}  // namespace

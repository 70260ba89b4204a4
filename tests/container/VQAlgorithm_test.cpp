// Concerns: the search in every range up to a size, with keys before, in, between and behind its elements.
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

}  // namespace

// Concerns: results at the edges; exactly one last owner among many threads.
#include <VQAtomic.h>

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

TEST(VQAtomic, TestDecrementTellsWhetherOwnersRemain) {
    unsigned count = 2;
    EXPECT_TRUE(VQAtomic::testDecrement(count));
    EXPECT_EQ(1u, count);
    EXPECT_FALSE(VQAtomic::testDecrement(count));
    EXPECT_EQ(0u, count);
}

TEST(VQAtomic, TestDecrementComparesTheValueBeforeWithOneAlone) {
    unsigned count = 0;
    EXPECT_TRUE(VQAtomic::testDecrement(count));
    EXPECT_EQ(0xFFFFFFFFU, count);
}

TEST(VQAtomic, IncrementAddsAnOwner) {
    unsigned count = 1;
    VQAtomic::increment(count);
    EXPECT_EQ(2u, VQAtomic::load(count));
}

TEST(VQAtomic, FindsExactlyOneLastOwnerAmongThreads) {
    constexpr unsigned kThreads = 4;
    constexpr unsigned kRounds = 1000;
    std::vector<unsigned> counts(kRounds, kThreads);
    std::vector<unsigned> payload(kRounds, 0);  // written by every owner in turn, read by the last
    std::atomic<unsigned> last{0};
    std::atomic<unsigned> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (unsigned round = 0; round < kRounds; ++round) {
                __atomic_fetch_add(&payload[round], 1U, __ATOMIC_RELAXED);
                if (!VQAtomic::testDecrement(counts[round])) {
                    ++last;
                    // Not atomic on purpose: the last owner is behind all the others.
                    wrong += payload[round] != kThreads;
                    payload[round] = 0;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(kRounds, last);
    EXPECT_EQ(0u, wrong);
}

}  // namespace

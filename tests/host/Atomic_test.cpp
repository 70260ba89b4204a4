// Concerns: results, wrap-around, no lost step between threads.
#include <atomic.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

TEST(Atomic, AddValueReturnsThePreviousValue) {
    volatile unsigned word = 5;
    EXPECT_EQ(5u, atomic_add_value(&word, 3));
    EXPECT_EQ(8u, word);
}

TEST(Atomic, SubValueReturnsThePreviousValue) {
    volatile unsigned word = 5;
    EXPECT_EQ(5u, atomic_sub_value(&word, 3));
    EXPECT_EQ(2u, word);
}

TEST(Atomic, AddAddsAndReturnsNothing) {
    volatile unsigned word = 5;
    static_assert(std::is_void_v<decltype(atomic_add(&word, 1))>);
    atomic_add(&word, 4);
    EXPECT_EQ(9u, word);
}

TEST(Atomic, WrapsAround) {
    volatile unsigned word = 0xFFFFFFFF;
    EXPECT_EQ(0xFFFFFFFFu, atomic_add_value(&word, 2));
    EXPECT_EQ(1u, atomic_sub_value(&word, 2));
    EXPECT_EQ(0xFFFFFFFFu, word);
}

TEST(Atomic, LosesNoStepBetweenThreads) {
    volatile unsigned up = 0;
    volatile unsigned down = 0;
    constexpr unsigned kSteps = 100000;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (unsigned step = 0; step < kSteps; ++step) {
                atomic_add(&up, 1);
                atomic_sub_value(&down, 1);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(3 * kSteps, up);
    EXPECT_EQ(0u - 3 * kSteps, down);
}

}  // namespace

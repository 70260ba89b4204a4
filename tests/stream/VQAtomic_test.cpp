// Concerns: results at the edges; exactly one last owner among many threads; the private steps before and after the
// first thread starts, and beside a signal handler's; no step lost between processes.
#include "host/SignalStorm.h"
#include "support/ChildProcess.h"

#include <VQAtomic.h>

#include <atomic>
#include <gtest/gtest.h>
#include <sys/mman.h>
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

void expectTheSameFromPrivateSteps() {
    for (const unsigned before : {0U, 1U, 2U, 3U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        unsigned shared = before;
        unsigned own = before;
        VQAtomic::increment(shared);
        VQAtomic::incrementPrivate(own);
        EXPECT_EQ(shared, own);
        shared = own = before;
        EXPECT_EQ(VQAtomic::testDecrement(shared), VQAtomic::testDecrementPrivate(own)) << before;
        EXPECT_EQ(shared, own);
    }
}

TEST(VQAtomic, PrivateStepsDoAndTellTheSame) {
    expectTheSameFromPrivateSteps();
    std::thread([] {}).join();
    expectTheSameFromPrivateSteps();
}

TEST(VQAtomic, PrivateStepsBeforeTheFirstThreadAreBehindItsOwn) {
    constexpr unsigned kThreads = 3;
    constexpr unsigned kSteps = 100000;
    unsigned count = 0;
    for (unsigned step = 0; step < kSteps; ++step)
        VQAtomic::incrementPrivate(count);
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&count] {
            for (unsigned step = 0; step < kSteps; ++step) {
                VQAtomic::incrementPrivate(count);
                VQAtomic::incrementPrivate(count);
                VQAtomic::testDecrementPrivate(count);
            }
        });
        for (unsigned step = 0; step < kSteps; ++step)  // from the very start of the first one
            VQAtomic::testDecrementPrivate(count);
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(kSteps, count);
}

unsigned sCount;
unsigned sHandled;

TEST(VQAtomic, PrivateStepsAreNeverInterrupted) {
    // The handler leaves the count higher than it found it, so that a step that it interrupted would undo its own.
    constexpr unsigned kSignals = 500;
    sCount = 0;
    sHandled = 0;
    unsigned steps = 0;
    {
        const SignalStorm storm([](int) {
            VQAtomic::incrementPrivate(sCount);
            ++sHandled;
        });
        while (__atomic_load_n(&sHandled, __ATOMIC_RELAXED) < kSignals) {
            for (int i = 0; i < 100; ++i) {
                VQAtomic::incrementPrivate(sCount);
                VQAtomic::incrementPrivate(sCount);
                VQAtomic::testDecrementPrivate(sCount);
            }
            steps += 100;
        }
    }
    EXPECT_EQ(steps + sHandled, sCount);
}

TEST(VQAtomic, LosesNoStepBetweenProcessesOfOneThreadEach) {
    constexpr unsigned kSteps = 1000000;
    auto* const count = static_cast<unsigned*>(
        mmap(nullptr, sizeof(unsigned), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(count));
    const auto stepUp = [count] {
        for (unsigned step = 0; step < kSteps; ++step) {
            VQAtomic::increment(*count);
            VQAtomic::increment(*count);
            VQAtomic::testDecrement(*count);
        }
    };
    support::ChildProcess other(stepUp);
    stepUp();
    EXPECT_TRUE(other.finish().exitedWith(0));
    EXPECT_EQ(2 * kSteps, VQAtomic::load(*count));
    munmap(count, sizeof(unsigned));
}

}  // namespace

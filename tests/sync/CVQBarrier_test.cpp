// CVQBarrier. Concerns: who blocks and who is released; many rounds with threads that come back at once; breaking
// through, also while others arrive; processes; numbers that make no barrier.
#include <CVQBarrier.h>

#include <VQOperatingSystem.h>

#include "LockTesting.h"
#include "host/SignalStorm.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <new>
#include <sys/mman.h>
#include <sys/neutrino.h>

namespace {

using locktest::milliseconds;

/// Threads that wait at a barrier once.
class CArrivals {
public:
    explicit CArrivals(CVQBarrier& barrier) : mBarrier(barrier) {}
    ~CArrivals() {
        for (std::thread& thread : mThreads) {
            thread.join();
        }
    }
    CArrivals(const CArrivals&) = delete;
    CArrivals& operator=(const CArrivals&) = delete;

    void add(int threads) {
        for (int i = 0; i < threads; ++i) {
            mThreads.emplace_back([this] {
                ++arrived;
                mBarrier.wait();
                ++released;
            });
        }
        while (arrived != static_cast<int>(mThreads.size())) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(milliseconds(10));  // by now they sleep
    }
    void waitForReleased(int threads) const {
        while (released < threads) {
            std::this_thread::yield();
        }
    }

    std::atomic<int> arrived{0};
    std::atomic<int> released{0};

private:
    CVQBarrier& mBarrier;
    std::vector<std::thread> mThreads;
};

}  // namespace

TEST(CVQBarrier, ReleasesAllWhenTheLastArrives) {
    CVQBarrier barrier(3);
    for (int round = 0; round < 5; ++round) {
        CArrivals arrivals(barrier);
        arrivals.add(2);
        EXPECT_EQ(0, arrivals.released);
        barrier.wait();  // does not block
        arrivals.waitForReleased(2);
    }
}

TEST(CVQBarrier, ForOneThreadNeverBlocks) {
    CVQBarrier barrier(1);
    for (int i = 0; i < 1000; ++i) {
        barrier.wait();
    }
    barrier.breakThrough();
    barrier.wait();
}

TEST(CVQBarrier, ForNoThreadIsAnAssertionAndNeverBlocks) {
    support::AssertionLog log;
    {
        CVQBarrier barrier(0);
        EXPECT_EQ((std::vector<std::string>(2, "VQSemaphoreAccessQNX:140")), log.takeSites());
        barrier.wait();
        barrier.breakThrough();
        barrier.wait();
    }
}

TEST(CVQBarrier, ForMoreThreadsThanCanBeCountedIsAnAssertionAndNeverBlocks) {
    support::AssertionLog log;
    CVQBarrier barrier(0x80000000U);
    EXPECT_EQ((std::vector<std::string>(2, "VQSemaphoreAccessQNX:140")), log.takeSites());
    barrier.wait();
    barrier.breakThrough();
}

TEST(CVQBarrier, BreakingThroughReleasesWhoeverArrived) {
    CVQBarrier barrier(3);
    {
        CArrivals arrivals(barrier);
        arrivals.add(2);
        barrier.breakThrough();
        arrivals.waitForReleased(2);
    }
    CArrivals arrivals(barrier);  // the next round needs three again
    arrivals.add(2);
    EXPECT_EQ(0, arrivals.released);
    barrier.wait();
    arrivals.waitForReleased(2);
}

TEST(CVQBarrier, BreakingThroughAnEmptyRoundChangesNothing) {
    CVQBarrier barrier(2);
    for (int breaks = 0; breaks < 3; ++breaks) {
        barrier.breakThrough();
        CArrivals arrivals(barrier);
        arrivals.add(1);
        EXPECT_EQ(0, arrivals.released);
        barrier.wait();
    }
}

// Each thread adds to the count of its round, and finds it whole after the round. BARRIER_ROUNDS=10000000 goes
// through as many, by hand.
TEST(CVQBarrier, KeepsRoundsApartWhenThreadsReturnAtOnce) {
    const unsigned rounds = locktest::roundsOf("BARRIER_ROUNDS", 4000);
    for (const unsigned threads : {2u, 3u, 5u}) {
        CVQBarrier barrier(threads);
        std::vector<std::atomic<unsigned>> arrivals(rounds);
        std::vector<std::thread> workers;
        for (unsigned i = 0; i < threads; ++i) {
            workers.emplace_back([&] {
                for (std::atomic<unsigned>& arrived : arrivals) {
                    ++arrived;
                    barrier.wait();
                    ASSERT_EQ(threads, arrived);
                }
            });
        }
        for (std::thread& worker : workers) {
            worker.join();
        }
    }
}

// Each three arrivals end a round, and nobody else leaves. Three at least of the five can always arrive, so that the
// last arrival, which completes a round, comes.
TEST(CVQBarrier, MoreThreadsThanItIsForMakeRoundsInTurns) {
    constexpr int kThreads = 5, kRound = 3, kArrivals = 1000 * kRound;
    CVQBarrier barrier(kRound);
    std::atomic<int> arrived{0}, departed{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < kThreads; ++i) {
        workers.emplace_back([&] {
            while (++arrived <= kArrivals) {
                barrier.wait();
                const int departures = ++departed;
                EXPECT_LE(departures, arrived / kRound * kRound);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(kArrivals, departed);
    CArrivals arrivals(barrier);
    arrivals.add(5);
    arrivals.waitForReleased(3);
    EXPECT_EQ(3, arrivals.released);  // nothing is left over from before
    barrier.wait();
    arrivals.waitForReleased(5);
}

// No arrival may be forgotten, whichever side of the break it comes to: one thread alone at a barrier for two is
// released by breaking only, and comes back at once.
TEST(CVQBarrier, ArrivalsWhileItIsBrokenAreReleasedNowOrByTheNextBreak) {
    constexpr int kRounds = 3000;
    CVQBarrier barrier(3);
    std::atomic<int> unfinished{2};
    const auto work = [&] {
        for (int round = 0; round < kRounds; ++round) {
            barrier.wait();
        }
        --unfinished;
    };
    std::thread one(work);
    std::thread two(work);
    while (unfinished != 0) {
        barrier.breakThrough();
    }
    one.join();
    two.join();
    CArrivals arrivals(barrier);
    arrivals.add(2);
    EXPECT_EQ(0, arrivals.released);  // nothing is left over
    barrier.wait();
}

// A caught signal, and a time-out that a participant had armed before, release nobody.
TEST(CVQBarrier, SignalsAndArmedTimeoutsDoNotEndARound) {
    constexpr unsigned kThreads = 3;
    constexpr int kRounds = 300;
    CVQBarrier barrier(kThreads);
    std::vector<std::atomic<unsigned>> arrivals(kRounds);
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < kThreads; ++i) {
        workers.emplace_back([&, i] {
            const SignalStorm storm([](int) {});
            for (std::atomic<unsigned>& arrived : arrivals) {
                if (i == 0) {
                    VQOperatingSystem::sleepMs(1);  // the others wait meanwhile
                }
                ++arrived;
                VQOperatingSystem::setKernelTimeout(1, _NTO_TIMEOUT_MUTEX | _NTO_TIMEOUT_CONDVAR);
                barrier.wait();
                ASSERT_EQ(kThreads, arrived);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
}

namespace {

/// A barrier for two in memory that forked children share, and how often they have left it.
struct SSegment {
    CVQBarrier barrier{2, true};
    std::atomic<int> arrivals{0};
    std::atomic<int> departures{0};

    static SSegment* make() {
        return new (mmap(nullptr, sizeof(SSegment), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
            SSegment;
    }
    void pass() {
        ++arrivals;
        barrier.wait();
        ++departures;
    }
    void waitForArrivals(int number) const {
        while (arrivals != number) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(milliseconds(10));  // by now it sleeps
    }
    /// Nothing is destroyed: that would wait a while for those who were killed.
    void end() { munmap(this, sizeof(SSegment)); }
};

}  // namespace

TEST(CVQBarrier, AParticipantThatIsStoppedEndsTheRoundWhenItGoesOn) {
    SSegment* const segment = SSegment::make();
    support::ChildProcess other([segment] {
        for (int i = 0; i < 3; ++i) {
            segment->pass();
        }
    });
    segment->pass();
    other.send(SIGSTOP);
    std::thread self([segment] {
        segment->pass();
        segment->pass();
    });
    std::this_thread::sleep_for(milliseconds(30));
    other.send(SIGCONT);
    self.join();
    EXPECT_TRUE(other.finish().exitedWith(0));
    EXPECT_EQ(6, segment->departures);
    segment->end();
}

// Who is killed as it sleeps has arrived: its round ends without it, and nothing of it is left to later rounds,
// which another process takes part in.
TEST(CVQBarrier, RoundsGoOnAfterAParticipantWasKilledAsItSlept) {
    SSegment* const segment = SSegment::make();
    support::ChildProcess victim([segment] { segment->pass(); });
    segment->waitForArrivals(1);
    victim.send(SIGKILL);
    victim.finish();
    segment->pass();  // the second arrival: does not block
    constexpr int kRounds = 5;
    const auto go = [segment] {
        for (int i = 0; i < kRounds; ++i) {
            segment->pass();
        }
    };
    support::ChildProcess other(go);
    support::ChildProcess another(go);
    const auto result = other.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_TRUE(another.finish().exitedWith(0));
    EXPECT_EQ(1 + 2 * kRounds, segment->departures);
    segment->end();
}

TEST(CVQBarrier, BreakingThroughHelpsWhenAParticipantWasKilled) {
    SSegment* const segment = SSegment::make();
    for (int i = 1; i <= 4; ++i) {  // each sub-barrier serves twice
        support::ChildProcess victim([segment] { segment->pass(); });
        segment->waitForArrivals(i);
        victim.send(SIGKILL);
        victim.finish();
        segment->barrier.breakThrough();
    }
    support::ChildProcess survivor([segment] { segment->pass(); });
    segment->waitForArrivals(5);
    EXPECT_EQ(0, segment->departures);
    segment->barrier.breakThrough();
    const auto result = survivor.finish();
    EXPECT_TRUE(result.exitedWith(0)) << result;
    segment->end();
}

TEST(CVQBarrier, ServesProcesses) {
    constexpr int kRounds = 3000;
    struct Segment {
        CVQBarrier barrier{3, true};
        std::atomic<int> arrivals[kRounds] = {};
    };
    auto* const segment =
        new (mmap(nullptr, sizeof(Segment), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Segment;
    const auto work = [segment] {
        for (std::atomic<int>& arrived : segment->arrivals) {
            ++arrived;
            segment->barrier.wait();
            ASSERT_EQ(3, arrived);
        }
    };
    support::ChildProcess one(work);
    support::ChildProcess two(work);
    work();
    EXPECT_TRUE(one.finish().exitedWith(0));
    EXPECT_TRUE(two.finish().exitedWith(0));
    segment->~Segment();
    munmap(segment, sizeof(Segment));
}

// CVQProcessLock: excludes, is made once however many threads want to be first, and is free in a forked child.
#include "sync/CVQProcessLock.h"

#include "LockTesting.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <type_traits>
#include <unistd.h>
#include <vector>

using namespace locktest;

static_assert(std::is_trivially_destructible_v<CVQProcessLock>);

namespace {

/// Whether another thread gets the lock within a short time.
bool isFree(CVQProcessLock& lock) {
    auto entered = std::make_shared<std::atomic<bool>>(false);
    std::thread([&lock, entered] {
        lock.lock();
        *entered = true;
        lock.unlock();
    }).detach();
    for (int i = 0; i < 100 && !*entered; ++i) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    return *entered;
}

}  // namespace

TEST(CVQProcessLock, IsHeldUntilItIsUnlocked) {
    static CVQProcessLock lock;
    lock.lock();
    EXPECT_FALSE(isFree(lock));
    lock.unlock();
    EXPECT_TRUE(isFree(lock));
}

TEST(CVQProcessLock, IsMadeOnceHoweverManyThreadsAreTheFirst) {
    for (int round = 0; round < 50; ++round) {
        CVQProcessLock lock;
        std::atomic<int> arrived{0};
        long count = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                ++arrived;
                while (arrived < 4) {
                    std::this_thread::yield();
                }
                for (int turn = 0; turn < 20; ++turn) {
                    const std::lock_guard<CVQProcessLock> guard(lock);
                    ++count;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(80, count);
    }
}

TEST(CVQProcessLock, IsFreeInAForkedChildWhoeverHeldItInTheParent) {
    static CVQProcessLock lock;
    const CHolder holder([] { lock.lock(); }, [] { lock.unlock(); });
    const support::ChildResult r = support::runInChild([] {
        lock.lock();
        const support::ChildResult grandchild = support::runInChild([] {
            lock.lock();
            lock.unlock();
        });
        lock.unlock();
        lock.lock();
        lock.unlock();
        EXPECT_TRUE(grandchild.exitedWith(0)) << grandchild;
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_FALSE(isFree(lock));
}

TEST(CVQProcessLock, IsFreeInAChildWhoseForkHadBegunBeforeTheFirstUse) {
    static CVQProcessLock lock;
    static std::unique_ptr<CHolder> holder;
    // Handlers run while a fork goes on. In it, another thread of this process is the first to use such a lock.
    pthread_atfork(
        [] {
            static std::once_flag sFirst;
            std::call_once(sFirst,
                           [] { holder = std::make_unique<CHolder>([] { lock.lock(); }, [] { lock.unlock(); }); });
        },
        nullptr, nullptr);
    const support::ChildResult r = support::runInChild([] {
        lock.lock();
        lock.unlock();
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    holder.reset();
}

TEST(CVQProcessLock, AChildForkedByItsHolderMayUnlockIt) {
    static CVQProcessLock lock;
    lock.lock();
    const support::ChildResult r = support::runInChild([] {
        lock.unlock();
        lock.lock();
        lock.unlock();
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    lock.unlock();
}

TEST(CVQProcessLock, ChildrenForkedAtAnyMomentGetThrough) {
    static CVQProcessLock lock;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) {
                const std::lock_guard<CVQProcessLock> guard(lock);
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        const support::ChildResult r = support::runInChild([] {
            lock.lock();
            lock.unlock();
            _exit(0);
        });
        ASSERT_TRUE(r.exitedWith(0)) << r;
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// LockTesting: what the tests of the locks share.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace locktest {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// How many rounds a test goes: what the environment says, for runs by hand, else `fewer`.
inline unsigned roundsOf(const char* variable, unsigned fewer) {
    const char* const text = std::getenv(variable);
    return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : fewer;
}

/// How long `call` takes.
template <class Call>
milliseconds durationOf(Call call) {
    const auto begin = Clock::now();
    call();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

/// Another thread that holds a lock for the length of a scope.
class CHolder {
public:
    CHolder(std::function<void()> lock, std::function<void()> unlock)
        : mThread([this, lock = std::move(lock), unlock = std::move(unlock)] {
              lock();
              mState = HELD;
              while (mState != RELEASED) {
                  std::this_thread::sleep_for(milliseconds(1));
              }
              unlock();
          }) {
        while (mState != HELD) {
            std::this_thread::yield();
        }
    }
    explicit CHolder(_sync& mutex)
        : CHolder([&mutex] { pthread_mutex_lock(&mutex); }, [&mutex] { pthread_mutex_unlock(&mutex); }) {}
    ~CHolder() {
        mState = RELEASED;
        mThread.join();
    }
    CHolder(const CHolder&) = delete;
    CHolder& operator=(const CHolder&) = delete;

private:
    enum State { STARTING, HELD, RELEASED };
    std::atomic<State> mState{STARTING};
    std::thread mThread;
};

constexpr int kCountingThreads = 8;
constexpr int kCountingRounds = 2000;

/// Counts in threads that start together. Now and then one lets the others run in the middle of its turn: without
/// exclusion, counts get lost.
inline long countTogether(const std::function<void(int round)>& lock, const std::function<void()>& unlock) {
    long count = 0;
    std::atomic<int> arrived{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kCountingThreads; ++i) {
        threads.emplace_back([&, i] {
            ++arrived;
            while (arrived < kCountingThreads) {
                std::this_thread::yield();
            }
            for (int round = 0; round < kCountingRounds; ++round) {
                lock(round + i);
                const long before = count;
                if (round % 100 == i) {
                    std::this_thread::yield();
                }
                count = before + 1;
                unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return count;
}

/// What `attempt` says when another thread makes it.
inline bool inAnotherThread(const std::function<bool()>& attempt) {
    bool result = false;
    std::thread([&] { result = attempt(); }).join();
    return result;
}

}  // namespace locktest

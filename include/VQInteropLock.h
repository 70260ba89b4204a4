// VQInteropLock: this library's locks under std::lock_guard, std::unique_lock, std::scoped_lock and
// std::condition_variable_any.
//
//   Use      VQInterop::TVQLockable lockable(mutex);
//            const std::lock_guard guard(lockable);
//   Locks    CVQMutex, CVQBinarySemaphore, CVQCountingSemaphore, and the raw _sync and SEMHANDLE are TimedLockable.
//            CVQCriticalSection is BasicLockable: it can neither be tried nor waited for with a limit.
//   Shape    one reference. Any number of these, on any threads, may stand for one lock, which outlives them.
//   Units    time-outs of any std::chrono kind, waited for in milliseconds, rounded up: a wait never ends early,
//            however long.
//   Errors   a guard believes that it holds what `lock` has returned from. So a lock that refuses (a destroyed
//            semaphore, a recursive mutex locked too often) is a fatal error: the process ends (line 1 of
//            "VQInteropLock"). An armed kernel time-out ends a wait like a refusal: arm none before a guard. A refusal
//            of `try_lock` and its kind is a plain false, at once. A refused `unlock` is an assertion (line 2).
//   Why      the locks themselves fit std::lock_guard by their names alone, and it would go on without the lock.
//   Threads  those of the lock.
#pragma once

#include <CVQAsserter.h>
#include <CVQCriticalSection.h>
#include <VQInteropChrono.h>
#include <VQMutexAccess.h>
#include <VQSemaphoreAccess.h>

#include <chrono>

namespace VQPrivate {

/// How a kind of lock is called: `lock` as VQMutexAccess::lock, `unlock` with an error number.
template <class Lock>
struct TVQLockCalls {
    static constexpr bool kHasTimeout = true;
    static bool lock(Lock& lock, int timeoutMs) { return lock.lock(timeoutMs); }
    static int unlock(Lock& lock) { return lock.unlock(); }
};

template <>
struct TVQLockCalls<_sync> {
    static constexpr bool kHasTimeout = true;
    static bool lock(_sync& mutex, int timeoutMs) { return VQMutexAccess::lock(mutex, timeoutMs); }
    static int unlock(_sync& mutex) { return pthread_mutex_unlock(&mutex); }
};

template <>
struct TVQLockCalls<VQOSTypes::SEMHANDLE> {
    static constexpr bool kHasTimeout = true;
    static bool lock(VQOSTypes::SEMHANDLE& handle, int timeoutMs) {
        return VQSemaphoreAccess::lock(handle, timeoutMs);
    }
    static int unlock(VQOSTypes::SEMHANDLE& handle) { return VQSemaphoreAccess::unlock(handle); }
};

template <>
struct TVQLockCalls<CVQCriticalSection> {
    static constexpr bool kHasTimeout = false;
    static bool lock(CVQCriticalSection& section, int /*without limit*/) { return section.lock() == 0; }
    static int unlock(CVQCriticalSection& section) { return section.unlock(); }
};

}  // namespace VQPrivate

namespace VQInterop {

/// A lock of this library as std's guards take it.
template <class Lock>
class TVQLockable {
    using Calls = VQPrivate::TVQLockCalls<Lock>;
    static constexpr char kUnit[] = "VQInteropLock";
    static constexpr int kLineLock = 1;
    static constexpr unsigned kLineUnlock = 2;
    static constexpr int kWithoutLimit = -1;

public:
    explicit TVQLockable(Lock& lock VQ_LIFETIMEBOUND) noexcept : mLock(lock) {}

    /// Returns with the lock, or not at all.
    void lock() {
        if (VQ_UNLIKELY(!Calls::lock(mLock, kWithoutLimit))) {
            doFatalError(kLineLock, kUnit, "lock refused");
        }
    }

    void unlock() {
        if (VQ_UNLIKELY(Calls::unlock(mLock) != 0)) {
            doCheapAssert(kLineUnlock, kUnit);
        }
    }

    bool try_lock() {
        static_assert(Calls::kHasTimeout, "a CVQCriticalSection can only be waited for");
        return Calls::lock(mLock, 0);
    }

    template <class Rep, class Period>
    bool try_lock_for(const std::chrono::duration<Rep, Period>& duration) {
        using Clock = std::chrono::steady_clock;
        const int timeoutMs = toTimeoutMs(duration);
        if (VQ_LIKELY(timeoutMs < std::numeric_limits<int>::max())) {
            return Calls::lock(mLock, timeoutMs);
        }
        // The clock's own end, some centuries away, for what lies behind it.
        const auto now = Clock::now();
        const auto most = Clock::time_point::max() - now;
        const std::chrono::nanoseconds wanted(
            VQPrivate::saturatedCount<std::chrono::nanoseconds>(duration, VQPrivate::ERounding::UP));
        return try_lock_until(now + (wanted < most ? std::chrono::duration_cast<Clock::duration>(wanted) : most));
    }

    /// Waits by the deadline's own clock, which may be set meanwhile.
    template <class Clock, class Duration>
    bool try_lock_until(const std::chrono::time_point<Clock, Duration>& deadline) {
        static_assert(Calls::kHasTimeout, "a CVQCriticalSection can only be waited for");
        using Waited = std::chrono::steady_clock;
        for (;;) {
            const auto begin = Waited::now();
            const int timeoutMs = toTimeoutMs(deadline);
            if (Calls::lock(mLock, timeoutMs)) {
                return true;
            }
            // A wait that ends before its time was refused, and would be again.
            const bool isRefused = Waited::now() - begin < std::chrono::milliseconds(timeoutMs);
            if (isRefused || timeoutMs == 0 || toTimeoutMs(deadline) == 0) {
                return false;
            }
        }
    }

private:
    Lock& mLock;
};

}  // namespace VQInterop

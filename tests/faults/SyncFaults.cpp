#include "Faults.h"

#include <CVQBarrier.h>
#include <CVQCriticalSection.h>
#include <CVQMutex.h>
#include <CVQWaitCondition.h>
#include <VQConditionVariableAccess.h>
#include <VQMutexAccess.h>
#include <VQSemaphoreAccess.h>
#include <VQTriggerAccess.h>
#include <sync/CVQProcessLock.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <pthread.h>
#include <sys/neutrino.h>
#include <thread>

namespace {

using faults::Arm;
using faults::Row;
using faults::told;
using VQOSTypes::SEMHANDLE;
using VQOSTypes::TRIGGER_HANDLE;

constexpr unsigned kSomebodyWaits = 0x80000000;  // in a mutex's owner word

/// Another thread holds a mutex, until somebody waits for it or while this lives.
class Holder {
public:
    enum class Until { END, WAITED_FOR };

    explicit Holder(_sync& mutex, Until until = Until::END) : mMutex(mutex), mUntil(until) {
        mThread = std::thread([this] { hold(); });
        while (!mHolds)
            std::this_thread::yield();
    }
    ~Holder() {
        mLetGo = true;
        mThread.join();
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

private:
    // By the calls behind the inline functions: those of the library's objects have the fault.
    void hold() {
        SyncMutexLock_r(&mMutex);
        mHolds = true;
        while (!mLetGo && !(mUntil == Until::WAITED_FOR && isWaitedFor()))
            std::this_thread::yield();
        SyncMutexUnlock_r(&mMutex);
    }
    bool isWaitedFor() const { return (__atomic_load_n(&mMutex.__owner, __ATOMIC_RELAXED) & kSomebodyWaits) != 0; }

    _sync& mMutex;
    const Until mUntil;
    std::atomic<bool> mHolds{false};
    std::atomic<bool> mLetGo{false};
    std::thread mThread;
};

/// The next lock of this thread takes the long way, which the kernel's call is on.
void takeTheLongWay() {
    __nto_owner = 0;
}

/// How often this thread held `mutex`, which is free afterwards.
int timesHeld(_sync& mutex) {
    int times = 0;
    while (pthread_mutex_unlock(&mutex) == 0)
        ++times;
    return times;
}

std::string createMutex(const Arm& arm, bool recursive) {
    _sync mutex = {};
    arm();
    VQMutexAccess::create(mutex, /*unlocked*/ true, /*shared*/ true, recursive);
    return "lock " + told(VQMutexAccess::lock(mutex, 0));
}

std::string createdMutex(const Arm& arm) {
    return createMutex(arm, /*recursive*/ false);
}

/// What a handle is after `create`.
std::string createSemaphore(const Arm& arm) {
    SEMHANDLE handle = {};
    arm();
    VQSemaphoreAccess::create(handle, 1, 1, /*shared*/ true);
    return handle.valid != 0 ? "valid" : "invalid";
}

struct Semaphore {
    explicit Semaphore(int count) { VQSemaphoreAccess::create(handle, count, 2, /*shared*/ false); }
    SEMHANDLE handle = {};
};

std::string lockSemaphore(const Arm& arm, int count, int timeoutMs) {
    Semaphore semaphore(count);
    arm();
    const std::string result = told(VQSemaphoreAccess::lock(semaphore.handle, timeoutMs));
    return result + ", " + std::to_string(semaphore.handle.count) + " left, " +
           std::to_string(semaphore.handle.waiters) + " waiting";
}

std::string lockHeldSemaphore(const Arm& arm, int timeoutMs) {
    Semaphore semaphore(1);
    std::string result;
    {
        const Holder holder(semaphore.handle.mutex);
        arm();
        result = told(VQSemaphoreAccess::lock(semaphore.handle, timeoutMs));
    }
    return result + ", " + std::to_string(semaphore.handle.count) + " left";
}

std::string lockWaitingForTheMutex(const Arm& arm, int timeoutMs) {
    Semaphore semaphore(1);
    const Holder holder(semaphore.handle.mutex, Holder::Until::WAITED_FOR);
    arm();
    const std::string result = told(VQSemaphoreAccess::lock(semaphore.handle, timeoutMs));
    pthread_mutex_unlock(&semaphore.handle.mutex);
    return result + ", " + std::to_string(semaphore.handle.count) + " left";
}

std::string createCondition(const Arm& arm) {
    _sync condition = {};
    arm();
    return told(VQConditionVariableAccess::create(condition));
}

std::string waitForCondition(const Arm& arm, int timeoutMs) {
    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    CVQWaitCondition condition;
    mutex.lock();
    arm();
    const bool result = VQConditionVariableAccess::wait(condition, mutex, timeoutMs);
    const std::string says = (result ? "true " : "false ") + faults::errorName(errno);
    mutex.unlock();
    return says;
}

struct Trigger {
    Trigger() { VQTriggerAccess::create(handle); }
    ~Trigger() { VQTriggerAccess::destroy(handle); }
    TRIGGER_HANDLE handle = {};
};

std::string waitForTrigger(const Arm& arm) {
    Trigger trigger;
    VQTriggerAccess::signal(trigger.handle);
    arm();
    return told(VQTriggerAccess::wait(trigger.handle));
}

std::string waitForTriggerInTime(const Arm& arm) {
    Trigger trigger;
    VQTriggerAccess::signal(trigger.handle);
    arm();
    return told(VQTriggerAccess::wait(trigger.handle, 1000));
}

std::string tryTrigger(const Arm& arm) {
    Trigger trigger;
    VQTriggerAccess::signal(trigger.handle);
    arm();
    return told(VQTriggerAccess::tryWait(trigger.handle));
}

/// Two threads through a barrier, round after round: one of them meets the fault, and none stays behind.
std::string passBarrier(const Arm& arm) {
    CVQBarrier barrier(2, /*shared*/ false);
    const auto rounds = [&] {
        for (int i = 0; i < 200; ++i) {
            takeTheLongWay();
            barrier.wait();
        }
    };
    arm();
    std::thread other(rounds);
    rounds();
    other.join();
    return "passed";
}

}  // namespace

std::vector<Row> faults::syncRows() {
    return {
        // The steps after a refused attribute are taken all the same.
        {__LINE__, "VQMutexAccessQNX", "pthread_mutexattr_init", createdMutex,
         "lock true | 1 Failed tpthread_mutexattr_init: error=#"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutexattr_setrecursive",
         [](const Arm& arm) { return createMutex(arm, /*recursive*/ true); },
         "lock true | 1 Failed pthread_mutexattr_setrecursive: error=# Recursive: 1"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutexattr_setrecursive", createdMutex,
         "lock true | 1 Failed pthread_mutexattr_setrecursive: error=# Recursive: 0"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutexattr_setpshared", createdMutex,
         "lock true | 1 Failed pthread_mutexattr_setpshared: error=# shareable: 1"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutex_init", createdMutex,
         "lock true | 1 Failed to create mutex: error=# | VQMutexAccessQNX:76"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutexattr_destroy", createdMutex, "lock true"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutex_destroy",
         [](const Arm& arm) {
             CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
             arm();
             VQMutexAccess::destroy(mutex);
             return std::string("done");
         },
         "done | 1 Failed to destroy mutex: error=# | VQMutexAccessQNX:102"},
        {__LINE__, "VQMutexAccessQNX", "SyncMutexLock_r",
         [](const Arm& arm) {
             CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
             const Holder holder(mutex);
             arm();
             return VQMutexAccess::lock(mutex, -1) ? "true" : "false";
         },
         "false"},
        {__LINE__, "VQMutexAccessQNX", "__nto_mutex_trylock",
         [](const Arm& arm) {
             CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
             const Holder holder(mutex);
             arm();
             return VQMutexAccess::lock(mutex, 0) ? "true" : "false";
         },
         "false"},
        {__LINE__, "VQMutexAccessQNX", "pthread_mutex_timedlock_monotonic",
         [](const Arm& arm) {
             CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
             arm();
             return VQMutexAccess::lock(mutex, 1000) ? "true" : "false";
         },
         "false"},

        {__LINE__, "CVQCriticalSectionQNX", "pthread_mutex_init",
         [](const Arm& arm) {
             arm();
             CVQCriticalSection section;
             const int locked = section.lock();
             const int unlocked = section.unlock();
             return "lock " + std::to_string(locked) + ", unlock " + std::to_string(unlocked);
         },
         "lock 0, unlock 0 | 1 Failed to create CVQCriticalSection: error=#"},
        {__LINE__, "CVQCriticalSectionQNX", "pthread_mutex_destroy",
         [](const Arm& arm) {
             {
                 CVQCriticalSection section;
                 arm();
             }
             return std::string("done");
         },
         "done | 1 Failed to destroy CVQCriticalSection: error=#"},

        {__LINE__, "VQSemaphoreAccessQNX", "pthread_mutexattr_init", createSemaphore,
         "invalid | 1 Failed initializing mutex/condition attributes. | VQSemaphoreAccessQNX:140"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_condattr_init", createSemaphore,
         "invalid | 1 Failed initializing mutex/condition attributes. | VQSemaphoreAccessQNX:140"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_mutexattr_setpshared", createSemaphore,
         "invalid | 1 Failed initializing mutex/condition attributes. | VQSemaphoreAccessQNX:140"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_condattr_setpshared", createSemaphore,
         "invalid | 1 Failed initializing mutex/condition attributes. | VQSemaphoreAccessQNX:140"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_mutex_init", createSemaphore,
         "invalid | 1 Failed to create mutex: error=# | VQSemaphoreAccessQNX:140"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_cond_init", createSemaphore,
         "invalid | 1 Failed to create condition variable: error=# | VQSemaphoreAccessQNX:140"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_mutexattr_destroy", createSemaphore, "valid"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_condattr_destroy", createSemaphore, "valid"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_mutex_destroy",
         [](const Arm& arm) {
             Semaphore semaphore(1);
             arm();
             VQSemaphoreAccess::destroy(semaphore.handle);
             return semaphore.handle.valid != 0 ? "valid" : "invalid";
         },
         "invalid | 1 Failed to destroy semaphore: error=#"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_cond_destroy",
         [](const Arm& arm) {
             Semaphore semaphore(1);
             arm();
             VQSemaphoreAccess::destroy(semaphore.handle);
             return semaphore.handle.valid != 0 ? "valid" : "invalid";
         },
         "invalid"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexLock_r",
         [](const Arm& arm) { return lockHeldSemaphore(arm, -1); }, "false @, 1 left"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexLock_r",
         [](const Arm& arm) { return lockHeldSemaphore(arm, 1000); }, "false @, 1 left"},
        {__LINE__, "VQSemaphoreAccessQNX", "__nto_mutex_trylock",
         [](const Arm& arm) { return lockHeldSemaphore(arm, 0); }, "false @, 1 left"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexLock_r",
         [](const Arm& arm) {
             Semaphore semaphore(1);
             const Holder holder(semaphore.handle.mutex);
             arm();
             return faults::errorName(VQSemaphoreAccess::unlock(semaphore.handle)) + ", " +
                    std::to_string(semaphore.handle.count);
         },
         "@, 1"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_cond_wait",  // kept: semaphore-locks-again
         [](const Arm& arm) {
             Semaphore semaphore(0);
             _sync& mutex = semaphore.handle.mutex;
             VQMutexAccess::create(mutex, /*unlocked*/ true, /*shared*/ false, /*recursive*/ true);
             arm();
             const std::string said = told(VQSemaphoreAccess::lock(semaphore.handle, -1));
             return said + ", " + std::to_string(semaphore.handle.waiters) + " waiting, held " +
                    std::to_string(timesHeld(mutex));
         },
         "false @, 0 waiting, held 2"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_cond_wait",
         [](const Arm& arm) { return lockSemaphore(arm, 0, 1000); }, "false @, 0 left, 0 waiting"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout",
         [](const Arm& arm) { return lockSemaphore(arm, 1, 1000); }, "false @, 1 left, 0 waiting",
         "true, 0 left, 0 waiting"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout",  // for the condition, with the mutex held
         [](const Arm& arm) { return lockSemaphore(arm, 0, 20); }, "false @, 0 left, 0 waiting",
         "false ETIMEDOUT, 0 left, 0 waiting", 2},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexUnlock_r",
         [](const Arm& arm) { return lockWaitingForTheMutex(arm, -1); }, "false @, 0 left"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexUnlock_r",
         [](const Arm& arm) { return lockWaitingForTheMutex(arm, 5000); }, "false @, 0 left"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexUnlock_r",
         [](const Arm& arm) {
             Semaphore semaphore(1);
             const Holder holder(semaphore.handle.mutex, Holder::Until::WAITED_FOR);
             arm();
             const int error = VQSemaphoreAccess::unlock(semaphore.handle);
             pthread_mutex_unlock(&semaphore.handle.mutex);
             return faults::errorName(error) + ", " + std::to_string(semaphore.handle.count);
         },
         "@, 2"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexUnlock_r",  // of a single attempt
         [](const Arm& arm) {
             Semaphore semaphore(1);
             _sync& mutex = semaphore.handle.mutex;
             VQMutexAccess::create(mutex, /*unlocked*/ false, /*shared*/ false, /*recursive*/ true);
             arm();
             const std::string said = told(VQSemaphoreAccess::lock(semaphore.handle, 0));
             return said + ", " + std::to_string(semaphore.handle.count) + " left, held " +
                    std::to_string(timesHeld(mutex));
         },
         "false @, 0 left, held 2"},
        {__LINE__, "VQSemaphoreAccessQNX", "SyncMutexUnlock_r",  // told is the last call, which wakes
         [](const Arm& arm) {
             Semaphore semaphore(0);
             semaphore.handle.waiters = 1;
             const Holder holder(semaphore.handle.mutex, Holder::Until::WAITED_FOR);
             arm();
             const int error = VQSemaphoreAccess::unlock(semaphore.handle);
             return std::to_string(error) + ", " + std::to_string(semaphore.handle.count) + ", held " +
                    std::to_string(timesHeld(semaphore.handle.mutex));
         },
         "0, 1, held 1"},
        {__LINE__, "VQSemaphoreAccessQNX", "pthread_cond_signal",
         [](const Arm& arm) {
             Semaphore semaphore(0);
             std::thread waiter([&] { VQSemaphoreAccess::lock(semaphore.handle, 200); });
             for (bool waits = false; !waits; std::this_thread::yield()) {
                 pthread_mutex_lock(&semaphore.handle.mutex);
                 waits = semaphore.handle.waiters != 0;
                 pthread_mutex_unlock(&semaphore.handle.mutex);
             }
             arm();
             const int error = VQSemaphoreAccess::unlock(semaphore.handle);
             VQSemaphoreAccess::unlock(semaphore.handle);
             waiter.join();
             return faults::errorName(error);
         },
         "@"},

        {__LINE__, "VQConditionVariableAccessQNX", "pthread_condattr_init", createCondition, "false @"},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_condattr_setclock", createCondition, "false @"},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_cond_init", createCondition, "false @"},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_condattr_destroy", createCondition, "true"},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_cond_wait",
         [](const Arm& arm) { return waitForCondition(arm, -1); }, "false @", nullptr, 1, false,
         errorsBeside("pthread_cond_wait", {ETIMEDOUT})},
        {__LINE__,
         "VQConditionVariableAccessQNX",
         "pthread_cond_wait",
         [](const Arm& arm) { return waitForCondition(arm, -1); },
         "true ETIMEDOUT",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_cond_timedwait",
         [](const Arm& arm) { return waitForCondition(arm, 1000); }, "false @", nullptr, 1, false,
         errorsBeside("pthread_cond_timedwait", {ETIMEDOUT})},
        {__LINE__,
         "VQConditionVariableAccessQNX",
         "pthread_cond_timedwait",
         [](const Arm& arm) { return waitForCondition(arm, 1000); },
         "true ETIMEDOUT",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_cond_timedwait",
         [](const Arm& arm) { return waitForCondition(arm, 0); }, "false @"},
        {__LINE__, "VQConditionVariableAccessQNX", "pthread_cond_init",
         [](const Arm& arm) {
             arm();
             CVQWaitCondition condition;
             return std::string("created");
         },
         "signal ABRT | 1 cannot create wait condition (operating system error #, ?) - aborting process", nullptr,
         1,
         /*ends*/ true},
        {__LINE__, "CVQWaitCondition", "pthread_cond_destroy",
         [](const Arm& arm) {
             {
                 CVQWaitCondition condition;
                 arm();
             }
             return std::string("done");
         },
         "done | 2 cannot destroy wait condition (operating system error #, ?)"},

        {__LINE__, "VQTriggerAccessQNX", "sem_init",
         [](const Arm& arm) {
             TRIGGER_HANDLE trigger;
             arm();
             return told(VQTriggerAccess::create(trigger));
         },
         "false @"},
        {__LINE__, "VQTriggerAccessQNX", "sem_destroy",
         [](const Arm& arm) {
             Trigger trigger;
             arm();
             return told(VQTriggerAccess::destroy(trigger.handle));
         },
         "-1 @"},
        {__LINE__, "VQTriggerAccessQNX", "sem_getvalue",
         [](const Arm& arm) {
             Trigger trigger;
             arm();
             return told(VQTriggerAccess::signal(trigger.handle));
         },
         "false @"},
        {__LINE__, "VQTriggerAccessQNX", "sem_post",
         [](const Arm& arm) {
             Trigger trigger;
             arm();
             return told(VQTriggerAccess::signal(trigger.handle));
         },
         "false @"},
        {__LINE__, "VQTriggerAccessQNX", "sem_wait", waitForTrigger, "false @", "true"},
        {__LINE__, "VQTriggerAccessQNX", "sem_timedwait_monotonic", waitForTriggerInTime,
         "false @ | VQTriggerAccessQNX:119", nullptr, 1, false,
         errorsBeside("sem_timedwait_monotonic", {ETIMEDOUT})},
        {__LINE__,
         "VQTriggerAccessQNX",
         "sem_timedwait_monotonic",
         waitForTriggerInTime,
         "false @",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__, "VQTriggerAccessQNX", "sem_trywait", tryTrigger, "-1 @", "1", 1, false,
         errorsBeside("sem_trywait", {EAGAIN})},
        {__LINE__, "VQTriggerAccessQNX", "sem_trywait", tryTrigger, "0", nullptr, 1, false, {EAGAIN}},

        {__LINE__, "CVQProcessLock", "pthread_atfork",  // a child may find it locked then; the parent never notices
         [](const Arm& arm) {
             static CVQProcessLock lock;
             arm();
             lock.lock();
             lock.unlock();
             return std::string("locked");
         },
         "exit 0", nullptr, 1, /*ends*/ true},
        {__LINE__,
         "CVQProcessLock",
         "SyncMutexLock_r",  // of a time-out that its user had armed: it is held all the same
         [](const Arm& arm) {
             static CVQProcessLock lock;
             lock.lock();
             lock.unlock();
             arm();
             takeTheLongWay();
             lock.lock();
             std::atomic<bool> isAlone{true};
             std::atomic<bool> asks{false};
             std::thread other([&] {
                 asks = true;
                 lock.lock();
                 isAlone = false;
                 lock.unlock();
             });
             while (!asks)
                 std::this_thread::yield();
             std::this_thread::sleep_for(std::chrono::milliseconds(5));
             const bool wasAlone = isAlone;
             lock.unlock();
             other.join();
             return wasAlone ? "alone" : "in company";
         },
         "alone",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__, "CVQBarrier", "SyncMutexLock_r", passBarrier, "passed", nullptr, 1, false, {ETIMEDOUT}},
        {__LINE__, "CVQBarrier", "pthread_cond_wait", passBarrier, "passed", nullptr, 1, false, {ETIMEDOUT}},
    };
}

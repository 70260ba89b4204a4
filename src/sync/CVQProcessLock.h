// CVQProcessLock: guards process-wide state of the library itself.
//   Shape    a critical section that is created when it is first locked, and never destroyed; so a static lock
//            works before `main`, in any order of initialisation, and after `exit` began.
//   Fork     in a forked child the lock is a new one, and free, whoever held it in the parent.
//   Threads  any thread. Not recursive.
#pragma once

#include <CVQCriticalSection.h>

#include <atomic>
#include <new>

class CVQProcessLock {
public:
    constexpr CVQProcessLock() = default;
    CVQProcessLock(const CVQProcessLock&) = delete;
    CVQProcessLock& operator=(const CVQProcessLock&) = delete;

    void lock();
    void unlock();

private:
    CVQCriticalSection& section() {
        return *std::launder(static_cast<CVQCriticalSection*>(static_cast<void*>(mStorage)));
    }
    void createUnlessThere();

    std::atomic<unsigned> mState{0};
    alignas(CVQCriticalSection) unsigned char mStorage[sizeof(CVQCriticalSection)]{};
};

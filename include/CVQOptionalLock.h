// CVQOptionalLock: locks, for the length of a scope, a critical section that may not be there.
//   Shape    one pointer: the section that it locked, or null.
//   Errors   none.
//   Threads  one thread at a time. The optional keeps or lacks its section while the guard lives.
#pragma once

#include <CVQCriticalSection.h>
#include <TVQOptional.h>

#include <cerrno>

class CVQOptionalLock {
public:
    explicit CVQOptionalLock(TVQOptional<CVQCriticalSection, 8u, 4u>& section) : mLocked(section.get()) {
        if (mLocked != nullptr) {
            // A time-out that the caller had armed for something else ends one attempt, and is gone then.
            while (mLocked->lock() == ETIMEDOUT) {
            }
        }
    }
    ~CVQOptionalLock() {
        if (mLocked != nullptr) {
            mLocked->unlock();
        }
    }
    CVQOptionalLock(const CVQOptionalLock&) = delete;
    CVQOptionalLock& operator=(const CVQOptionalLock&) = delete;

private:
    CVQCriticalSection* const mLocked;
};

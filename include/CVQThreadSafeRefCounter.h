// CVQThreadSafeRefCounter: a reference count that objects derive from, changed by atomic steps only.
//   Shape    virtual table, then a 32-bit count, 0 at the start. Table: both destructors, lastReferenceRemoved.
//   Errors   none. Removing more references than were added wraps the count.
//   Threads  any thread. Exactly one sees the count reach 0 and calls lastReferenceRemoved; what all others did
//            to the object before lies behind it.
#pragma once

#include <VQAtomic.h>

class CVQThreadSafeRefCounter {
public:
    CVQThreadSafeRefCounter() = default;
    CVQThreadSafeRefCounter(const CVQThreadSafeRefCounter&) = delete;
    CVQThreadSafeRefCounter& operator=(const CVQThreadSafeRefCounter&) = delete;
    virtual ~CVQThreadSafeRefCounter() = default;

    void addReference() { VQAtomic::increment(mCount); }
    void removeReference() {
        if (!VQAtomic::testDecrement(mCount)) {
            lastReferenceRemoved();
        }
    }
    unsigned getReferenceCount() const { return VQAtomic::load(mCount); }

protected:
    /// Releases the object.
    virtual void lastReferenceRemoved() = 0;

private:
    unsigned mCount = 0;
};

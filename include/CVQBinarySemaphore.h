// CVQBinarySemaphore: owns a semaphore of one unit: posts beyond it are dropped.
//   Units    time-outs in milliseconds on the monotonic clock.
//   Shape    exactly one VQOSTypes::SEMHANDLE. Made shared, the object may lie in shared memory.
//   Errors   as VQSemaphoreAccess reports them.
//   Threads  any thread, any process that maps it when shared. Whoever made it destroys it.
#pragma once

#include <VQExport.h>
#include <VQSemaphoreAccess.h>

class VQ_EXPORT CVQBinarySemaphore {
public:
    /// `available`: the unit is there at the start. `shared`: between processes that map the object.
    explicit CVQBinarySemaphore(bool available, bool shared = false);
    ~CVQBinarySemaphore();
    CVQBinarySemaphore(const CVQBinarySemaphore&) = delete;
    CVQBinarySemaphore& operator=(const CVQBinarySemaphore&) = delete;

    /// Takes a unit. -1 waits without limit, 0 tries once. After false, VQOperatingSystem::getLastError() says why.
    bool lock(int timeoutMs = -1) { return VQSemaphoreAccess::lock(mHandle, timeoutMs); }
    /// Gives a unit. Returns the platform's error number, 0 for success.
    int unlock() { return VQSemaphoreAccess::unlock(mHandle); }

private:
    VQOSTypes::SEMHANDLE mHandle = VQOSTypes::sInvalidSemHandle;
};

static_assert(sizeof(CVQBinarySemaphore) == sizeof(VQOSTypes::SEMHANDLE),
              "a semaphore is its handle and nothing else");

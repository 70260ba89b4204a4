// CVQFileHandle: owns a file descriptor.
//   Shape    the descriptor, -1 while closed.
//   Errors   false, with the reason in `errno`; nothing is logged. A call that was interrupted is made again.
//   Threads  one thread at a time.
//   Kept     handle-close-true: `close` returns true also when the platform refused; the descriptor is kept then.
#pragma once

#include <CVQPath.h>
#include <VQExport.h>

class VQ_EXPORT CVQFileHandle {
public:
    constexpr CVQFileHandle() noexcept = default;
    CVQFileHandle(const CVQPath& path, unsigned flags) { open(path, flags); }
    ~CVQFileHandle() { close(); }
    CVQFileHandle(const CVQFileHandle&) = delete;
    CVQFileHandle& operator=(const CVQFileHandle&) = delete;

    /// Closes what is open first. `flags` are the platform's (O_RDWR and the like); a file that they create may be
    /// read, written and executed by all whom the process's umask allows it.
    bool open(const CVQPath& path, unsigned flags);
    /// Kept: handle-close-true.
    bool close();

    bool isOpen() const noexcept { return mDescriptor != -1; }
    int getDescriptor() const noexcept { return mDescriptor; }

private:
    int mDescriptor = -1;
};

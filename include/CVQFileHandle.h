// CVQFileHandle: owns a file descriptor, with reads and writes that may be given a time-out.
//   Units    time-outs in milliseconds; below 0 is without limit, 0 a single attempt that does not wait.
//   Shape    the descriptor, -1 while closed. What is opened is closed on exec.
//   Errors   false or -1, with the reason in `errno`; nothing is logged. A call that was interrupted is made again,
//            a time-out that passed meanwhile excepted.
//   Time-out covers calls that wait for somebody else (pipes, terminals, sockets, devices); files in storage take
//            as long as they take. The descriptor's own flags are never changed, and one in non-blocking mode stays
//            so.
//   Threads  one thread at a time.
//   Kept     handle-close-true: `close` returns true also when the platform refused; the descriptor is kept then.
#pragma once

#include <CVQPath.h>
#include <VQExport.h>

class VQ_EXPORT CVQFileHandle {
public:
    /// The platform's own numbers for the origins of `seek`.
    enum SeekDirection : int { SEEK_FROM_START = 0, SEEK_FROM_CURRENT = 1, SEEK_FROM_END = 2 };

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

    /// One transfer: the number of bytes; 0 with `errno` 0 for none (end of file), 0 with ETIMEDOUT for a time-out;
    /// -1 on error. A null pointer is EINVAL unless the size is 0.
    int read(void* buffer, unsigned size, int timeoutMs);
    int write(const void* data, unsigned size, int timeoutMs);
    /// Writes until all bytes are written; false after an error or a time-out (ETIMEDOUT), when some may be.
    bool writeN(const void* data, unsigned size, int timeoutMs);

    bool seek(long long offset, SeekDirection direction);
    /// The position, or -1.
    long long tell();
    bool truncate(unsigned long long size);
    /// Returns when what was written has reached the medium.
    bool sync();

    bool isOpen() const noexcept { return mDescriptor != -1; }
    int getDescriptor() const noexcept { return mDescriptor; }

private:
    int mDescriptor = -1;
};

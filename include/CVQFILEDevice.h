// CVQFILEDevice: a plain file behind a buffered standard stream.
//   Units    sizes in bytes.
//   Shape    the stream (null while closed), whether it was opened here, whether it has failed.
//   Errors   false or -1, with the reason in `errno`. Without an open file reads, writes and `sync` are assertions.
//   Modes    of the platform's open flags:
//              0                                                            r
//              none of O_TRUNC, O_APPEND, O_CREAT                           r+
//              O_APPEND without O_TRUNC        O_WRONLY a   O_RDWR a+       else none: the open fails
//              O_TRUNC, or O_CREAT alone       O_WRONLY w   O_RDWR w+       else none: the open fails
//   Threads  one thread at a time.
//   Kept     filedevice-write-only-reads: O_WRONLY alone opens for reading and writing.
//            filedevice-size-zero: a transfer of 0 bytes is -1, unless its pointer is null.
//            filedevice-interrupted-restarts: a transfer that was interrupted begins again at the buffer's
//            beginning, and is an error also when that succeeds; so are all that follow on the stream.
#pragma once

#include <CVQPath.h>
#include <VQExport.h>

#include <cstdio>

class VQ_EXPORT CVQFILEDevice {
public:
    CVQFILEDevice() noexcept = default;
    ~CVQFILEDevice();
    CVQFILEDevice(const CVQFILEDevice&) = delete;
    CVQFILEDevice& operator=(const CVQFILEDevice&) = delete;

    /// Closes what is open first. What is opened is closed on exec.
    bool open(const CVQPath& path, unsigned flags);
    /// The number of bytes, less than `size` at the end of the file; -1 on error. The last argument is not used.
    int read(void* buffer, unsigned size, int timeoutMs);
    int write(const void* data, unsigned size, int timeoutMs);
    /// Hands what is buffered to the file system.
    bool sync();
    /// True when nothing is open. When what is buffered cannot be written the file stays open, for another attempt;
    /// opening another file and the destructor close it all the same.
    bool close();

private:
    template <bool isRead, class Call>
    int transfer(const void* bytes, unsigned size, Call call);
    bool flush();
    void closeAnyway();
    bool release();

    std::FILE* mStream = nullptr;
    bool mIsOpened = false;
    bool mHasFailed = false;
};

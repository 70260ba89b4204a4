// CVQIODevice: a handle on a device: the platform's, or an object of this process that serves the same path.
//   Units    sizes in bytes; time-outs in milliseconds, -1 without limit, 0 a single attempt that does not wait.
//   Shape    last state, descriptor (-1: none), server (its id in VQIODeviceServerRegistry, -1: none).
//   Errors   -1 or false, 0 after a time-out, and the state says why: STATE_TIMEOUT, STATE_FAILED; the platform's
//            reason is the last error (VQOperatingSystem::getLastError). Nothing is logged; only a null path is an
//            assertion. A call that was interrupted is made again.
//   Exec     what is opened is closed on exec, and so are its copies; what ACCESS_DEFAULT opens is inherited.
//   Servers  a device that a server opened talks to it alone; results and states are the server's own. When the
//            server is gone the device is as one that is not open.
//   Threads  one thread at a time.
//   Kept     device-server-untold: the destructor does not tell a server.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQIODevice {
public:
    /// What a device is opened for. ACCESS_DEFAULT reads, and is inherited by programs that are started.
    enum AccessMode : int { ACCESS_DEFAULT = 0, ACCESS_READ = 1, ACCESS_WRITE = 2, ACCESS_READ_WRITE = 3 };
    /// How the last operation ended.
    enum State : unsigned { STATE_SUCCESS = 0, STATE_TIMEOUT = 1, STATE_FAILED = 3 };

    CVQIODevice() noexcept = default;
    /// A second handle on what `other` has open. STATE_FAILED, and nothing is open, when the server or the platform
    /// refuses.
    CVQIODevice(const CVQIODevice& other);
    ~CVQIODevice();
    CVQIODevice& operator=(const CVQIODevice&) = delete;

    /// Opens where getMountPoint(name) says. A device must be closed before it is opened again.
    bool open(const char* name, AccessMode mode);
    /// Opens `name` below getMountPoint(mountKey). A path of 1024 bytes or more is false, and the state stays.
    bool open(const char* mountKey, const char* name, AccessMode mode);
    bool doOpen(const char* path, AccessMode mode);

    /// The number of bytes, 0 after a time-out, below 0 after an error.
    int read(void* buffer, int size, int timeoutMs);
    int write(const void* data, int size, int timeoutMs);
    /// A command of the platform's devctl; `info` may be null.
    bool devctl(int command, void* data, int size, int* info, int timeoutMs);

    bool close();
    bool isOpened() const;
    unsigned getLastError() const;

    static const char* getMountPoint(const char* name);
    /// What getMountPoint calls. Set it once at start-up; by default names are paths.
    static const char* (*spDeviceIO2MountPointFunc)(const char* name);

private:
    template <class Call>
    int callUntil(int timeoutMs, Call call);
    template <class Transfer>
    int transferUntil(int timeoutMs, int size, Transfer transfer);

    unsigned mState = STATE_SUCCESS;
    int mDescriptor = -1;
    mutable int mServer = -1;
};

/// The path that a name is: the name.
VQ_EXPORT const char* getMountPointNullImpl(const char* name);

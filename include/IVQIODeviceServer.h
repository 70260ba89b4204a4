// IVQIODeviceServer: an object that serves a device to its own process.
//   Shape    a virtual table and nothing else. The order of the operations is binary interface; the destructor is
//            last.
//   Errors   the server's own: `onGetLastError` reports a CVQIODevice::State.
//   Threads  calls come from any thread, one at a time in the whole process. They must not open, close or use a
//            device of a server, nor make or destroy a server: that would wait for itself.
//   Lifetime registered from the end of this class's constructor to the beginning of its destructor. A derived
//            class is not complete at these moments: see to it that nobody uses the device then, or register it by
//            hand.
#pragma once

#include <CVQIODevice.h>
#include <VQExport.h>

class VQ_EXPORT IVQIODeviceServer {
public:
    /// Whether the server is reached by its path from its construction on, or has to be registered by hand.
    enum eUsage : int { USAGE_UNREGISTERED = 0, USAGE_REGISTERED = 1 };

    /// `name` is the whole path that is served.
    IVQIODeviceServer(eUsage usage, const char* name) { enterRegistry(usage, name); }
    IVQIODeviceServer(const IVQIODeviceServer&) = delete;
    IVQIODeviceServer& operator=(const IVQIODeviceServer&) = delete;

    virtual unsigned onGetLastError() = 0;
    virtual bool onOpen(const char* path, CVQIODevice::AccessMode mode) = 0;
    /// Whether a second handle may be had.
    virtual bool onDup() { return false; }
    virtual bool onIsOpened() = 0;
    virtual bool onClose() = 0;
    /// Bytes transferred, or -1. Time-outs as in CVQIODevice.
    virtual int onRead(void* buffer, int size, int timeoutMs) = 0;
    virtual int onWrite(const void* data, int size, int timeoutMs) = 0;
    virtual bool onDevctl(int command, void* data, int size, int* info, int timeoutMs) = 0;

    virtual ~IVQIODeviceServer() { leaveRegistry(); }

private:
    void enterRegistry(eUsage usage, const char* name);
    void leaveRegistry();
};

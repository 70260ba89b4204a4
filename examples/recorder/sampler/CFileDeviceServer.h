// CFileDeviceServer: serves a device of this process from a file of the system, so that what reads the device runs on a
// workstation as it does where a driver serves the path.
//   Shape    as of IVQIODeviceServer; read-only, one handle at a time. Each opening reads the file anew.
//   Errors   as of CVQFileHandle; `errno` is kept until the next operation.
//   Threads  as of IVQIODeviceServer.
#pragma once

#include <CVQFileHandle.h>
#include <CVQSimuIODeviceServer.h>

class CFileDeviceServer final : public CVQSimuIODeviceServer {
public:
    /// Serves `path` at once.
    CFileDeviceServer(const CVQString& path, const CVQString& file);
    ~CFileDeviceServer() override;

    unsigned onGetLastError() override { return mState; }
    bool onOpen(const char* path, CVQIODevice::AccessMode mode) override;
    bool onIsOpened() override { return mHandle.isOpen(); }
    bool onClose() override { return mHandle.close(); }
    int onRead(void* buffer, int size, int timeoutMs) override;
    int onWrite(const void* data, int size, int timeoutMs) override;
    bool onDevctl(int command, void* data, int size, int* info, int timeoutMs) override;

private:
    CVQPath mFile;
    CVQFileHandle mHandle;
    unsigned mState = CVQIODevice::STATE_SUCCESS;
};

#include "sampler/CFileDeviceServer.h"

#include <VQIODeviceServerRegistry.h>
#include <cerrno>
#include <fcntl.h>

CFileDeviceServer::CFileDeviceServer(const CVQString& path, const CVQString& file)
    : CVQSimuIODeviceServer(path.c_str()), mFile(file) {
    VQIODeviceServerRegistry::registerServer(USAGE_REGISTERED, path.c_str(), *this);
}

CFileDeviceServer::~CFileDeviceServer() {
    VQIODeviceServerRegistry::unRegisterServer(*this);
}

bool CFileDeviceServer::onOpen(const char* /*path*/, CVQIODevice::AccessMode mode) {
    const bool isGood = mode == CVQIODevice::ACCESS_READ && mHandle.open(mFile, O_RDONLY);
    mState = isGood ? CVQIODevice::STATE_SUCCESS : CVQIODevice::STATE_FAILED;
    return isGood;
}

int CFileDeviceServer::onRead(void* buffer, int size, int timeoutMs) {
    const int count = size < 0 ? -1 : mHandle.read(buffer, static_cast<unsigned>(size), timeoutMs);
    const bool isLate = count == 0 && errno == ETIMEDOUT;
    mState = count < 0 ? CVQIODevice::STATE_FAILED
             : isLate  ? CVQIODevice::STATE_TIMEOUT
                       : CVQIODevice::STATE_SUCCESS;
    return count;
}

int CFileDeviceServer::onWrite(const void* /*data*/, int /*size*/, int /*timeoutMs*/) {
    mState = CVQIODevice::STATE_FAILED;
    return -1;
}

bool CFileDeviceServer::onDevctl(int /*command*/, void* /*data*/, int /*size*/, int* /*info*/, int /*timeoutMs*/) {
    mState = CVQIODevice::STATE_FAILED;
    return false;
}

#include <CVQIODevice.h>

#include <cstdio>

const char* getMountPointNullImpl(const char* name) {
    return name;
}

const char* (*CVQIODevice::spDeviceIO2MountPointFunc)(const char*) = &getMountPointNullImpl;

const char* CVQIODevice::getMountPoint(const char* name) {
    return spDeviceIO2MountPointFunc(name);
}

bool CVQIODevice::open(const char* name, AccessMode mode) {
    return doOpen(getMountPoint(name), mode);
}

bool CVQIODevice::open(const char* mountKey, const char* name, AccessMode mode) {
    const char* const mountPoint = getMountPoint(mountKey);
    if (mountPoint == nullptr || name == nullptr) {
        return doOpen(nullptr, mode);
    }
    char path[1024];
    const int length = std::snprintf(path, sizeof path, "%s/%s", mountPoint, name);
    return length >= 0 && length < static_cast<int>(sizeof path) && doOpen(path, mode);
}

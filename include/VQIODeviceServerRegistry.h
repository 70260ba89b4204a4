// VQIODeviceServerRegistry: the device servers of this process, by the paths that they serve.
//   Shape    ids count up from 0 and are never given twice. Of servers for one path the one registered last serves
//            it.
//   Errors   false, -1 or STATE_FAILED for a handle that leads to no server; it is set to -1 then.
//   Threads  any thread. One lock is held during every operation, calls of servers included: a slow server delays
//            all. In a forked child the lock is free, and the servers are the child's copies.
#pragma once

#include <IVQIODeviceServer.h>
#include <VQExport.h>

namespace VQIODeviceServerRegistry {

/// Only USAGE_REGISTERED registers. A null name is the empty one.
VQ_EXPORT void registerServer(IVQIODeviceServer::eUsage usage, const char* name, IVQIODeviceServer& server);
/// Takes away the server's last registration.
VQ_EXPORT void unRegisterServer(IVQIODeviceServer& server);

/// Binds `handle` to the server of exactly this path and returns its answer; -1 and false when there is none.
VQ_EXPORT bool onOpen(int& handle, const char* path, CVQIODevice::AccessMode mode);
VQ_EXPORT bool onDup(int& handle);
VQ_EXPORT bool onIsOpened(int& handle);
VQ_EXPORT bool onClose(int& handle);
VQ_EXPORT int onRead(int& handle, void* buffer, int size, int timeoutMs);
VQ_EXPORT int onWrite(int& handle, const void* data, int size, int timeoutMs);
VQ_EXPORT bool onDevctl(int& handle, int command, void* data, int size, int* info, int timeoutMs);
VQ_EXPORT unsigned onGetLastError(int& handle);

}  // namespace VQIODeviceServerRegistry

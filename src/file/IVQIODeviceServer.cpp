#include <IVQIODeviceServer.h>

#include <VQIODeviceServerRegistry.h>

void IVQIODeviceServer::enterRegistry(eUsage usage, const char* name) {
    VQIODeviceServerRegistry::registerServer(usage, name, *this);
}

void IVQIODeviceServer::leaveRegistry() {
    VQIODeviceServerRegistry::unRegisterServer(*this);
}

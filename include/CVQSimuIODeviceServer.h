// CVQSimuIODeviceServer: the base of simulated devices, which no path leads to until they are registered by hand.
//   Shape, errors, threads  those of IVQIODeviceServer.
#pragma once

#include <IVQIODeviceServer.h>
#include <VQExport.h>

class VQ_EXPORT CVQSimuIODeviceServer : public IVQIODeviceServer {
public:
    explicit CVQSimuIODeviceServer(const char* name) : IVQIODeviceServer(USAGE_UNREGISTERED, name) {}
    ~CVQSimuIODeviceServer() override = default;
};

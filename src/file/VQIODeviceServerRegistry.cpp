#include <VQIODeviceServerRegistry.h>

#include <CVQString.h>
#include <TVQMap.h>
#include <sync/CVQProcessLock.h>

#include <cstring>
#include <mutex>

namespace {

struct Server {
    CVQString name;
    IVQIODeviceServer* object = nullptr;

    bool operator==(const Server& other) const { return name == other.name && object == other.object; }
};

using Servers = TVQMap<int, Server>;

/// Never destroyed: devices may be used while the process exits.
union ServersForEver {
    constexpr ServersForEver() : servers() {}
    ~ServersForEver() {}
    Servers servers;
};

VQ_CONSTINIT CVQProcessLock sLock;  // guards what follows, and is held while a server works
VQ_CONSTINIT ServersForEver sRegistered;
VQ_CONSTINIT int sNextId = 0;

using Guard = std::lock_guard<CVQProcessLock>;

/// The last entry that `isSought`, or null.
template <class Sought>
const Servers::SEntry* findLast(const Servers& servers, Sought isSought) {
    for (const auto* entry = servers.end(); entry != servers.begin();) {
        if (isSought(*--entry)) {
            return entry;
        }
    }
    return nullptr;
}

/// What `call` says of the handle's server; `otherwise` without one.
template <class Result, class Call>
Result askServer(int& handle, Result otherwise, Call call) {
    if (handle == -1 || handle == -2) {
        return otherwise;
    }
    const Guard guard(sLock);
    const Server* const server = sRegistered.servers.find(handle);
    if (server == nullptr) {
        handle = -1;
        return otherwise;
    }
    return call(*server->object);
}

}  // namespace

void VQIODeviceServerRegistry::registerServer(IVQIODeviceServer::eUsage usage, const char* name,
                                              IVQIODeviceServer& server) {
    if (usage != IVQIODeviceServer::USAGE_REGISTERED) {
        return;
    }
    const Guard guard(sLock);
    sRegistered.servers.insert(sNextId++, Server{CVQString(name != nullptr ? name : ""), &server});
}

void VQIODeviceServerRegistry::unRegisterServer(IVQIODeviceServer& server) {
    const Guard guard(sLock);
    Servers& servers = sRegistered.servers;
    if (const auto* entry = findLast(servers, [&](const auto& each) { return each.value.object == &server; })) {
        servers.erase(entry->key);
    }
    if (servers.isEmpty()) {
        Servers().swap(servers);
    }
}

bool VQIODeviceServerRegistry::onOpen(int& handle, const char* path, CVQIODevice::AccessMode mode) {
    handle = -1;
    const Guard guard(sLock);
    const auto* const entry = findLast(sRegistered.servers, [&](const auto& each) {
        return path != nullptr && std::strcmp(each.value.name.c_str(), path) == 0;
    });
    if (entry == nullptr) {
        return false;
    }
    handle = entry->key;
    return entry->value.object->onOpen(path, mode);
}

bool VQIODeviceServerRegistry::onDup(int& handle) {
    return askServer(handle, false, [](IVQIODeviceServer& server) { return server.onDup(); });
}

bool VQIODeviceServerRegistry::onIsOpened(int& handle) {
    return askServer(handle, false, [](IVQIODeviceServer& server) { return server.onIsOpened(); });
}

bool VQIODeviceServerRegistry::onClose(int& handle) {
    return askServer(handle, false, [](IVQIODeviceServer& server) { return server.onClose(); });
}

int VQIODeviceServerRegistry::onRead(int& handle, void* buffer, int size, int timeoutMs) {
    return askServer(handle, -1, [&](IVQIODeviceServer& server) { return server.onRead(buffer, size, timeoutMs); });
}

int VQIODeviceServerRegistry::onWrite(int& handle, const void* data, int size, int timeoutMs) {
    return askServer(handle, -1, [&](IVQIODeviceServer& server) { return server.onWrite(data, size, timeoutMs); });
}

bool VQIODeviceServerRegistry::onDevctl(int& handle, int command, void* data, int size, int* info, int timeoutMs) {
    return askServer(handle, false, [&](IVQIODeviceServer& server) {
        return server.onDevctl(command, data, size, info, timeoutMs);
    });
}

unsigned VQIODeviceServerRegistry::onGetLastError(int& handle) {
    return askServer(handle, unsigned{CVQIODevice::STATE_FAILED},
                     [](IVQIODeviceServer& server) { return server.onGetLastError(); });
}

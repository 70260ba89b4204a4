// DeviceServer: a device server that keeps a record of its calls and answers as told.
#pragma once

#include <IVQIODeviceServer.h>

#include <cstring>
#include <string>
#include <vector>

namespace files {

template <class Base>
class RecordingServer : public Base {
public:
    using Base::Base;

    unsigned onGetLastError() override { return state; }
    bool onOpen(const char* path, CVQIODevice::AccessMode mode) override {
        calls.push_back(std::string("open ") + path + " " + std::to_string(mode));
        return answer;
    }
    bool onDup() override {
        calls.emplace_back("dup");
        return answer;
    }
    bool onIsOpened() override { return answer; }
    bool onClose() override {
        calls.emplace_back("close");
        return answer;
    }
    int onRead(void* buffer, int size, int timeoutMs) override {
        calls.push_back("read " + std::to_string(size) + " " + std::to_string(timeoutMs));
        std::memset(buffer, 's', static_cast<std::size_t>(size));
        return count;
    }
    int onWrite(const void* data, int size, int timeoutMs) override {
        calls.push_back("write " + std::string(static_cast<const char*>(data), static_cast<std::size_t>(size)) +
                        " " + std::to_string(timeoutMs));
        return count;
    }
    bool onDevctl(int command, void*, int size, int* info, int timeoutMs) override {
        calls.push_back("devctl " + std::to_string(command) + " " + std::to_string(size) + " " +
                        std::to_string(timeoutMs));
        *info = 77;
        return answer;
    }

    std::vector<std::string> takeCalls() {
        std::vector<std::string> taken;
        taken.swap(calls);
        return taken;
    }

    bool answer = true;
    int count = 5;
    unsigned state = CVQIODevice::STATE_SUCCESS;
    std::vector<std::string> calls;
};

class DeviceServer : public RecordingServer<IVQIODeviceServer> {
public:
    explicit DeviceServer(const char* name, eUsage usage = USAGE_REGISTERED)
        : RecordingServer<IVQIODeviceServer>(usage, name) {}
};

}  // namespace files

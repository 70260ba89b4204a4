// Concerns: who is registered and found; the last one wins; handles and what becomes of them; answers without a server;
// the lock, threads and forked children; the server's interface.
#include <VQIODeviceServerRegistry.h>

#include <CVQSimuIODeviceServer.h>

#include "DeviceServer.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <memory>
#include <thread>

namespace {

using files::DeviceServer;
namespace Registry = VQIODeviceServerRegistry;
using Calls = std::vector<std::string>;

constexpr CVQIODevice::AccessMode kRead = CVQIODevice::ACCESS_READ;

class VQIODeviceServerRegistryTest : public testing::Test {
protected:
    /// A handle that is bound to the server of this path, or -1.
    static int bind(const char* path) {
        int handle = 4711;
        Registry::onOpen(handle, path, kRead);
        return handle;
    }

    support::AssertionLog mLog;
};

TEST_F(VQIODeviceServerRegistryTest, WithoutServersNothingIsFound) {
    EXPECT_EQ(-1, bind("/dev/a"));
    for (const int unbound : {-1, -2, 0, 1000000}) {
        int handle = unbound;
        char byte = 'x';
        EXPECT_FALSE(Registry::onDup(handle));
        EXPECT_FALSE(Registry::onIsOpened(handle));
        EXPECT_FALSE(Registry::onClose(handle));
        EXPECT_EQ(-1, Registry::onRead(handle, &byte, 1, 0));
        EXPECT_EQ(-1, Registry::onWrite(handle, &byte, 1, 0));
        EXPECT_FALSE(Registry::onDevctl(handle, 1, &byte, 1, nullptr, 0));
        EXPECT_EQ(3U, Registry::onGetLastError(handle));
        EXPECT_EQ(unbound == -2 ? -2 : -1, handle);
    }
}

TEST_F(VQIODeviceServerRegistryTest, AServerIsFoundByExactlyItsPath) {
    DeviceServer server("/dev/a");
    EXPECT_NE(-1, bind("/dev/a"));
    for (const char* const path : {"/dev/", "/dev/aa", "dev/a", "/dev/A", "//dev/a", "", "/dev/a/"}) {
        EXPECT_EQ(-1, bind(path)) << path;
    }
    EXPECT_EQ(-1, bind(nullptr));
    EXPECT_EQ(Calls({"open /dev/a 1"}), server.takeCalls());
}

TEST_F(VQIODeviceServerRegistryTest, OfTwoServersOfOnePathTheLastRegisteredWins) {
    DeviceServer first("/dev/a");
    {
        DeviceServer second("/dev/a");
        const DeviceServer other("/dev/b");
        bind("/dev/a");
        EXPECT_EQ(1U, second.calls.size());
        EXPECT_EQ(0U, first.calls.size());
    }
    bind("/dev/a");
    EXPECT_EQ(1U, first.calls.size());
}

TEST_F(VQIODeviceServerRegistryTest, OnlyUsageOneRegisters) {
    const DeviceServer unregistered("/dev/a", IVQIODeviceServer::USAGE_UNREGISTERED);
    const DeviceServer strange("/dev/a", static_cast<IVQIODeviceServer::eUsage>(2));
    EXPECT_EQ(-1, bind("/dev/a"));
    files::RecordingServer<CVQSimuIODeviceServer> simulated("/dev/a");
    EXPECT_EQ(-1, bind("/dev/a"));
    Registry::registerServer(IVQIODeviceServer::USAGE_REGISTERED, "/dev/a", simulated);
    EXPECT_NE(-1, bind("/dev/a"));
    EXPECT_EQ(1U, simulated.calls.size());
}

TEST_F(VQIODeviceServerRegistryTest, TheLastRegistrationOfAServerGoesFirst) {
    DeviceServer server("/dev/a");
    Registry::registerServer(IVQIODeviceServer::USAGE_REGISTERED, "/dev/b", server);
    Registry::unRegisterServer(server);
    EXPECT_EQ(-1, bind("/dev/b"));
    EXPECT_NE(-1, bind("/dev/a"));
    Registry::unRegisterServer(server);
    EXPECT_EQ(-1, bind("/dev/a"));
    Registry::unRegisterServer(server);
}

TEST_F(VQIODeviceServerRegistryTest, IdsAreNeverGivenTwice) {
    int last = -1;
    for (int i = 0; i < 5; ++i) {
        const DeviceServer server("/dev/a");
        const int handle = bind("/dev/a");
        EXPECT_GT(handle, last);
        last = handle;
    }
}

TEST_F(VQIODeviceServerRegistryTest, ARefusingServerBindsItsHandleAllTheSame) {
    DeviceServer server("/dev/a");
    server.answer = false;
    int handle = -1;
    EXPECT_FALSE(Registry::onOpen(handle, "/dev/a", kRead));
    EXPECT_NE(-1, handle);
}

TEST_F(VQIODeviceServerRegistryTest, TheHandleOfAServerThatIsGoneBecomesNone) {
    const DeviceServer other("/dev/b");  // so that the registry is not empty
    auto server = std::make_unique<DeviceServer>("/dev/a");
    int handle = bind("/dev/a");
    server.reset();
    EXPECT_EQ(3U, Registry::onGetLastError(handle));
    EXPECT_EQ(-1, handle);
}

TEST_F(VQIODeviceServerRegistryTest, HandlesThatWereNeverGivenBecomeNoneExceptMinusTwo) {
    const DeviceServer server("/dev/a");
    for (int handle : {-3, INT_MIN, INT_MAX}) {
        EXPECT_FALSE(Registry::onIsOpened(handle));
        EXPECT_EQ(-1, handle);
    }
    int handle = -2;
    EXPECT_FALSE(Registry::onIsOpened(handle));
    EXPECT_EQ(-2, handle);
}

TEST_F(VQIODeviceServerRegistryTest, ANullNameIsTheEmptyOne) {
    const DeviceServer server(nullptr);
    EXPECT_NE(-1, bind(""));
}

TEST_F(VQIODeviceServerRegistryTest, CallsOfServersComeOneAtATime) {
    class Slow : public DeviceServer {
    public:
        using DeviceServer::DeviceServer;
        int onRead(void*, int, int) override {
            isAlone = isAlone && ++busy == 1;
            std::this_thread::yield();
            --busy;
            return 0;
        }
        std::atomic<int> busy{0};
        std::atomic<bool> isAlone{true};
    };
    Slow server("/dev/a");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const DeviceServer own("/dev/own");
            int handle = bind("/dev/a");
            for (int round = 0; round < 300; ++round) {
                Registry::onRead(handle, nullptr, 0, 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(server.isAlone);
}

TEST_F(VQIODeviceServerRegistryTest, AForkedChildMayUseItsServersThoughTheParentWasUsingOne) {
    class Waiting : public DeviceServer {
    public:
        using DeviceServer::DeviceServer;
        int onRead(void*, int, int) override {
            isIn = true;
            while (!mayLeave) {
                std::this_thread::yield();
            }
            return 1;
        }
        std::atomic<bool> isIn{false};
        std::atomic<bool> mayLeave{false};
    };
    Waiting server("/dev/a");
    std::thread user([&] {
        int handle = bind("/dev/a");
        Registry::onRead(handle, nullptr, 0, 0);
    });
    while (!server.isIn) {
        std::this_thread::yield();
    }
    const auto result = support::runInChild([&] { EXPECT_NE(-1, bind("/dev/a")); });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    server.mayLeave = true;
    user.join();
}

TEST_F(VQIODeviceServerRegistryTest, AStaticServerServesFromBeforeMainToAfterExit) {
    struct AtExit {
        ~AtExit() {
            if (bind("/dev/static") == -1) {
                _exit(7);
            }
        }
    };
    const auto result = support::runInChild([] {
        static const AtExit last;
        static const DeviceServer* const server = new DeviceServer("/dev/static");
        EXPECT_NE(nullptr, server);
        exit(5);
    });
    EXPECT_TRUE(result.exitedWith(5)) << result;
}

TEST_F(VQIODeviceServerRegistryTest, TheOperationsStandInTheirOrder) {
    EXPECT_EQ(0, support::slotOf(&IVQIODeviceServer::onGetLastError));
    EXPECT_EQ(1, support::slotOf(&IVQIODeviceServer::onOpen));
    EXPECT_EQ(2, support::slotOf(&IVQIODeviceServer::onDup));
    EXPECT_EQ(3, support::slotOf(&IVQIODeviceServer::onIsOpened));
    EXPECT_EQ(4, support::slotOf(&IVQIODeviceServer::onClose));
    EXPECT_EQ(5, support::slotOf(&IVQIODeviceServer::onRead));
    EXPECT_EQ(6, support::slotOf(&IVQIODeviceServer::onWrite));
    EXPECT_EQ(7, support::slotOf(&IVQIODeviceServer::onDevctl));
    DeviceServer server("/dev/a");
    IVQIODeviceServer& base = server;
    EXPECT_NE(nullptr, dynamic_cast<DeviceServer*>(&base));
    EXPECT_FALSE(base.IVQIODeviceServer::onDup());
}

}  // namespace

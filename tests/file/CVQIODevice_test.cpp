// Concerns: opening by name and below a mount point; modes; states and last errors; time-outs on real devices; devctl on
// a pseudo-terminal; copies; devices of servers, also when the server disappears; descriptors.
#include <CVQIODevice.h>

#include <VQOperatingSystem.h>

#include "CallScript.h"
#include "Descriptors.h"
#include "DeviceServer.h"
#include "host/SignalStorm.h"
#include "support/AssertionLog.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <pty.h>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using files::DeviceServer;
using Calls = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using VQOperatingSystem::getLastError;

constexpr unsigned kSuccess = CVQIODevice::STATE_SUCCESS;
constexpr unsigned kTimeout = CVQIODevice::STATE_TIMEOUT;
constexpr unsigned kFailed = CVQIODevice::STATE_FAILED;

class CVQIODeviceTest : public testing::Test {
protected:
    ~CVQIODeviceTest() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    support::AssertionLog mLog;
    const std::set<int> mDescriptors = files::openDescriptors();
    support::TemporaryFolder mFolder;
};

/// A pseudo-terminal whose slave can be opened by its path.
class Terminal {
public:
    Terminal() {
        int slave;
        EXPECT_EQ(0, openpty(&mMaster, &slave, mPath, nullptr, nullptr));
        termios raw;
        tcgetattr(slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave, TCSANOW, &raw);
        mSlave = slave;
    }
    ~Terminal() {
        close(mMaster);
        close(mSlave);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    int master() const { return mMaster; }
    const char* path() const { return mPath; }

private:
    int mMaster;
    int mSlave;
    char mPath[64];
};

TEST_F(CVQIODeviceTest, StartsClosedAndFailsOnEverything) {
    CVQIODevice device;
    char byte = 'x';
    EXPECT_EQ(kSuccess, device.getLastError());
    EXPECT_FALSE(device.isOpened());
    for (const int timeoutMs : {-1, 0, 10}) {
        EXPECT_LT(device.read(&byte, 1, timeoutMs), 0);
        EXPECT_EQ(kFailed, device.getLastError());
        EXPECT_EQ(EBADF, getLastError());
        EXPECT_LT(device.write(&byte, 1, timeoutMs), 0);
        EXPECT_EQ(kFailed, device.getLastError());
        EXPECT_FALSE(device.devctl(TIOCGWINSZ, &byte, 1, nullptr, timeoutMs));
        EXPECT_EQ(kFailed, device.getLastError());
        EXPECT_EQ(EBADF, getLastError());
    }
    EXPECT_FALSE(device.close());
    EXPECT_EQ(kFailed, device.getLastError());
}

TEST_F(CVQIODeviceTest, WithoutServersNamesGoToThePlatform) {
    CVQIODevice device;
    EXPECT_TRUE(device.open("/dev/zero", CVQIODevice::ACCESS_READ_WRITE));
    EXPECT_TRUE(device.isOpened());
    EXPECT_EQ(kSuccess, device.getLastError());
    for (const int timeoutMs : {-1, 0, 1000}) {
        char bytes[4] = {1, 2, 3, 4};
        EXPECT_EQ(4, device.read(bytes, 4, timeoutMs));
        EXPECT_EQ(0, bytes[0] | bytes[3]);
        EXPECT_EQ(4, device.write(bytes, 4, timeoutMs));
        EXPECT_EQ(kSuccess, device.getLastError());
    }
    EXPECT_FALSE(device.open("/dev/null", CVQIODevice::ACCESS_READ));  // open already
    EXPECT_EQ(kFailed, device.getLastError());
    EXPECT_TRUE(device.isOpened());
    EXPECT_TRUE(device.close());
    EXPECT_EQ(kSuccess, device.getLastError());
    EXPECT_FALSE(device.isOpened());
    EXPECT_FALSE(device.open((mFolder / "none").c_str(), CVQIODevice::ACCESS_READ));
    EXPECT_EQ(ENOENT, getLastError());
    EXPECT_EQ(kFailed, device.getLastError());
}

TEST_F(CVQIODeviceTest, ModesSelectTheAccess) {
    const std::string path = mFolder.write("file", "text");
    const struct {
        CVQIODevice::AccessMode mode;
        bool mayRead, mayWrite;
    } kRows[] = {{CVQIODevice::ACCESS_DEFAULT, true, false},
                 {CVQIODevice::ACCESS_READ, true, false},
                 {CVQIODevice::ACCESS_WRITE, false, true},
                 {CVQIODevice::ACCESS_READ_WRITE, true, true}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.mode);
        CVQIODevice device;
        ASSERT_TRUE(device.open(path.c_str(), row.mode));
        {
            const CVQIODevice copy(device);
            EXPECT_EQ(mDescriptors.size() + 2, files::openDescriptors().size());
            for (const int descriptor : files::openDescriptors()) {
                EXPECT_TRUE(mDescriptors.count(descriptor) != 0 ||
                            files::isClosedOnExec(descriptor) == (row.mode != CVQIODevice::ACCESS_DEFAULT));
            }
        }
        char byte = 't';
        EXPECT_EQ(row.mayRead ? 1 : -1, device.read(&byte, 1, -1));
        EXPECT_EQ(row.mayWrite ? 1 : -1, device.write(&byte, 1, -1));
    }
    for (const int mode : {-1, 4, 1000}) {
        CVQIODevice device;
        EXPECT_FALSE(device.open(path.c_str(), static_cast<CVQIODevice::AccessMode>(mode)));
        EXPECT_EQ(EINVAL, getLastError());
        EXPECT_EQ(kFailed, device.getLastError());
    }
}

TEST_F(CVQIODeviceTest, ANullPathIsReported) {
    CVQIODevice device;
    EXPECT_FALSE(device.open(nullptr, CVQIODevice::ACCESS_READ));
    EXPECT_EQ(kFailed, device.getLastError());
    EXPECT_FALSE(device.open(nullptr, "zero", CVQIODevice::ACCESS_READ));
    EXPECT_FALSE(device.open("/dev", nullptr, CVQIODevice::ACCESS_READ));
    EXPECT_EQ((Calls{"CVQIODeviceQNX:111", "CVQIODeviceQNX:111", "CVQIODeviceQNX:111"}), mLog.takeSites());
}

TEST_F(CVQIODeviceTest, OpensBelowAMountPoint) {
    CVQIODevice device;
    EXPECT_TRUE(device.open("/dev", "zero", CVQIODevice::ACCESS_READ));
    EXPECT_TRUE(device.close());
    static std::string asked;
    CVQIODevice::spDeviceIO2MountPointFunc = [](const char* name) {
        asked = name;
        return "/dev";
    };
    EXPECT_TRUE(device.open("key", "null", CVQIODevice::ACCESS_READ));
    EXPECT_EQ("key", asked);
    EXPECT_STREQ("/dev", CVQIODevice::getMountPoint("other"));
    EXPECT_TRUE(device.close());
    CVQIODevice::spDeviceIO2MountPointFunc = &getMountPointNullImpl;
    EXPECT_STREQ("other", CVQIODevice::getMountPoint("other"));
}

TEST_F(CVQIODeviceTest, APathOf1024BytesIsRefusedAndLeavesTheState) {
    CVQIODevice device;
    EXPECT_FALSE(device.open("/dev", std::string(1024 - 5, 'x').c_str(), CVQIODevice::ACCESS_READ));
    EXPECT_EQ(kSuccess, device.getLastError());
    EXPECT_FALSE(device.open("/dev", std::string(1023 - 5, 'x').c_str(), CVQIODevice::ACCESS_READ));
    EXPECT_EQ(kFailed, device.getLastError());
}

TEST_F(CVQIODeviceTest, ATimeoutIsAStateAndNoBytes) {
    const Terminal terminal;
    CVQIODevice device;
    ASSERT_TRUE(device.open(terminal.path(), CVQIODevice::ACCESS_READ_WRITE));
    char bytes[8] = {};
    for (const int timeoutMs : {0, 1, 20}) {
        const Clock::time_point begin = Clock::now();
        EXPECT_EQ(0, device.read(bytes, sizeof bytes, timeoutMs));
        EXPECT_EQ(kTimeout, device.getLastError());
        EXPECT_EQ(ETIMEDOUT, getLastError());
        EXPECT_GE(Clock::now() - begin, milliseconds(timeoutMs));
    }
    ASSERT_EQ(2, write(terminal.master(), "ab", 2));
    EXPECT_EQ(2, device.read(bytes, sizeof bytes, 1000));
    EXPECT_EQ(kSuccess, device.getLastError());
    EXPECT_STREQ("ab", bytes);
    const std::vector<char> much(1 << 20);
    int written = 0;
    do {
        written = device.write(much.data(), 1 << 20, 5);
        EXPECT_GE(written, 0);
    } while (written > 0);
    EXPECT_EQ(kTimeout, device.getLastError());
}

TEST_F(CVQIODeviceTest, TheDeadlineHoldsUnderAStormOfSignals) {
    const SignalStorm storm([](int) {});
    const Terminal terminal;
    CVQIODevice device;
    ASSERT_TRUE(device.open(terminal.path(), CVQIODevice::ACCESS_READ_WRITE));
    char byte;
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(0, device.read(&byte, 1, 20));
    EXPECT_EQ(kTimeout, device.getLastError());
    EXPECT_GE(Clock::now() - begin, milliseconds(20));
    EXPECT_LT(Clock::now() - begin, milliseconds(1500));
}

TEST_F(CVQIODeviceTest, SignalsDoNotFailAnOpenThatWaitsForTheOtherSide) {
    const std::string path = mFolder.path() + "/fifo";
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    std::thread other([&] {
        std::this_thread::sleep_for(milliseconds(30));
        const int writer = open(path.c_str(), O_WRONLY);
        EXPECT_EQ(1, write(writer, "w", 1));
        close(writer);
    });
    char byte = 0;
    {
        const SignalStorm storm([](int) {});
        CVQIODevice device;
        EXPECT_TRUE(device.open(path.c_str(), CVQIODevice::ACCESS_READ));
        EXPECT_EQ(1, device.read(&byte, 1, -1));
    }
    EXPECT_EQ('w', byte);
    other.join();
}

// No command of an ordinary machine's devices waits, so signals meet devctl only where the platform is played.
TEST_F(CVQIODeviceTest, SignalsNeitherFailNorTearABlockedWrite) {
    const std::string path = mFolder.path() + "/fifo";
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    CVQIODevice device;
    ASSERT_TRUE(device.open(path.c_str(), CVQIODevice::ACCESS_READ_WRITE));
    std::vector<char> sent(1 << 18);
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<char>(i * 31 + i / 251);
    std::vector<char> received;
    std::thread slowReader([&] {
        const int reader = open(path.c_str(), O_RDONLY);
        std::vector<char> part(4096);
        while (received.size() < sent.size()) {
            std::this_thread::sleep_for(milliseconds(1));
            const ssize_t count = read(reader, part.data(), part.size());
            if (count <= 0)
                break;
            received.insert(received.end(), part.begin(), part.begin() + count);
        }
        close(reader);
    });
    {
        const SignalStorm storm([](int) {});
        for (std::size_t done = 0; done < sent.size();) {
            const int timeoutMs = done < sent.size() / 2 ? -1 : 5000;
            const int count = device.write(sent.data() + done, static_cast<int>(sent.size() - done), timeoutMs);
            EXPECT_EQ(kSuccess, device.getLastError()) << getLastError();
            if (count <= 0)
                break;
            done += static_cast<std::size_t>(count);
        }
    }
    EXPECT_TRUE(device.close());  // the reader ends also when bytes are missing
    slowReader.join();
    EXPECT_TRUE(sent == received);
}

TEST_F(CVQIODeviceTest, InterruptedCallsAreMadeAgain) {
    CVQIODevice device;
    {
        doubles::CallScript script("open", [](int nth) { return nth <= 2 ? EINTR : 0; });
        EXPECT_TRUE(device.open("/dev/zero", CVQIODevice::ACCESS_READ));
        EXPECT_EQ(3, script.calls());
    }
    {
        char byte;
        doubles::CallScript script("read", [](int nth) { return nth <= 2 ? EINTR : 0; });
        EXPECT_EQ(1, device.read(&byte, 1, -1));
        EXPECT_EQ(3, script.calls());
    }
    doubles::CallScript script("close", [](int nth) { return nth <= 2 ? EINTR : 0; });
    EXPECT_TRUE(device.close());
    EXPECT_EQ(3, script.calls());
}

TEST_F(CVQIODeviceTest, ACloseThatIsNotThereCountsAsDoneAndOthersDoNot) {
    for (const int error : {ENOSYS, EIO}) {
        CVQIODevice device;
        ASSERT_TRUE(device.open("/dev/zero", CVQIODevice::ACCESS_READ));
        doubles::CallScript script("close", [error](int) { return error; });
        script.actsAnyway = true;
        EXPECT_EQ(error == ENOSYS, device.close());
        EXPECT_EQ(error == ENOSYS ? kSuccess : kFailed, device.getLastError());
        EXPECT_FALSE(device.isOpened());
    }
}

TEST_F(CVQIODeviceTest, ErrorsOfDevicesAreFailures) {
    CVQIODevice full;
    ASSERT_TRUE(full.open("/dev/full", CVQIODevice::ACCESS_READ_WRITE));
    CVQIODevice null;
    ASSERT_TRUE(null.open("/dev/null", CVQIODevice::ACCESS_READ_WRITE));
    char byte = 'x';
    for (const int timeoutMs : {-1, 0, 10}) {
        EXPECT_EQ(-1, full.write(&byte, 1, timeoutMs));
        EXPECT_EQ(ENOSPC, getLastError());
        EXPECT_EQ(kFailed, full.getLastError());
        EXPECT_EQ(0, null.read(&byte, 1, timeoutMs));
        EXPECT_EQ(kSuccess, null.getLastError());
        EXPECT_EQ(-1, null.read(&byte, -1, timeoutMs));
        EXPECT_EQ(EINVAL, getLastError());
        EXPECT_EQ(-1, null.write(&byte, -1, timeoutMs));
        EXPECT_EQ(EINVAL, getLastError());
    }
}

TEST_F(CVQIODeviceTest, ARefusedTransferLeavesNoTimeOutToTheNext) {
    const Terminal terminal;
    CVQIODevice device;
    ASSERT_TRUE(device.open(terminal.path(), CVQIODevice::ACCESS_READ_WRITE));
    char byte = 'x';
    EXPECT_EQ(-1, device.write(&byte, -1, 10));
    EXPECT_EQ(-1, device.read(&byte, -1, 10));
    std::thread other([&] {
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_EQ(1, ::write(terminal.master(), "y", 1));
    });
    EXPECT_EQ(1, device.read(&byte, 1, -1));
    EXPECT_EQ('y', byte);
    other.join();
}

TEST_F(CVQIODeviceTest, CommandsReachTheDevice) {
    const Terminal terminal;
    CVQIODevice device;
    ASSERT_TRUE(device.open(terminal.path(), CVQIODevice::ACCESS_READ_WRITE));
    CVQIODevice null;
    ASSERT_TRUE(null.open("/dev/null", CVQIODevice::ACCESS_READ));
    for (const int timeoutMs : {-1, 0, 1000}) {
        winsize set = {12, 34, 0, 0};
        winsize told = {};
        int info = -1;
        EXPECT_TRUE(device.devctl(TIOCSWINSZ, &set, sizeof set, &info, timeoutMs));
        EXPECT_TRUE(device.devctl(TIOCGWINSZ, &told, sizeof told, nullptr, timeoutMs));
        EXPECT_EQ(0, info);
        EXPECT_EQ(34, told.ws_col);
        EXPECT_EQ(kSuccess, device.getLastError());
        EXPECT_FALSE(null.devctl(TIOCGWINSZ, &told, sizeof told, &info, timeoutMs));
        EXPECT_EQ(ENOTTY, getLastError());
        EXPECT_EQ(kFailed, null.getLastError());
    }
}

TEST_F(CVQIODeviceTest, ACopyIsASecondHandle) {
    const std::string path = mFolder.write("file", "text");
    CVQIODevice device;
    ASSERT_TRUE(device.open(path.c_str(), CVQIODevice::ACCESS_READ));
    {
        CVQIODevice copy(device);
        EXPECT_TRUE(copy.isOpened());
        EXPECT_EQ(kSuccess, copy.getLastError());
        for (const int descriptor : files::openDescriptors()) {
            EXPECT_TRUE(mDescriptors.count(descriptor) != 0 || files::isClosedOnExec(descriptor));
        }
        char byte;
        EXPECT_EQ(1, copy.read(&byte, 1, -1));
        EXPECT_EQ(1, device.read(&byte, 1, -1));
        EXPECT_EQ('e', byte);
        EXPECT_TRUE(copy.close());
    }
    EXPECT_TRUE(device.isOpened());
    const CVQIODevice closed;
    CVQIODevice none(closed);
    EXPECT_FALSE(none.isOpened());
    EXPECT_EQ(kFailed, none.getLastError());
}

TEST_F(CVQIODeviceTest, AServerGetsEverything) {
    DeviceServer server("/dev/zero");
    CVQIODevice device;
    EXPECT_TRUE(device.open("/dev", "zero", CVQIODevice::ACCESS_WRITE));
    EXPECT_EQ(mDescriptors, files::openDescriptors());
    char bytes[3] = {};
    int info = 0;
    EXPECT_EQ(5, device.read(bytes, 3, 11));
    EXPECT_EQ('s', bytes[2]);
    EXPECT_EQ(5, device.write("abc", 3, -1));
    EXPECT_TRUE(device.devctl(9, bytes, 3, &info, 12));
    EXPECT_EQ(77, info);
    EXPECT_TRUE(device.isOpened());
    server.state = 1;
    EXPECT_EQ(1U, device.getLastError());
    {
        const CVQIODevice copy(device);
        EXPECT_TRUE(copy.isOpened());
    }
    EXPECT_TRUE(device.close());
    EXPECT_EQ((Calls{"open /dev/zero 2", "read 3 11", "write abc -1", "devctl 9 3 12", "dup", "close"}),
              server.takeCalls());
}

TEST_F(CVQIODeviceTest, Kept_TheDestructorDoesNotTellAServer) {
    DeviceServer server("/dev/a");
    {
        CVQIODevice device;
        device.open("/dev/a", CVQIODevice::ACCESS_READ);
    }
    EXPECT_EQ(Calls{"open /dev/a 1"}, server.takeCalls());
}

TEST_F(CVQIODeviceTest, ARefusingServerFailsItsDevice) {
    DeviceServer server("/dev/zero");
    server.answer = false;
    server.count = -1;
    server.state = 3;
    CVQIODevice device;
    int info;
    EXPECT_FALSE(device.open("/dev/zero", CVQIODevice::ACCESS_READ));
    EXPECT_FALSE(device.isOpened());
    EXPECT_EQ(-1, device.write("x", 1, 0));
    EXPECT_FALSE(device.devctl(1, nullptr, 0, &info, 0));
    EXPECT_FALSE(device.close());
    EXPECT_EQ(kFailed, device.getLastError());
    CVQIODevice copy(device);
    EXPECT_EQ(kFailed, copy.getLastError());
    EXPECT_FALSE(copy.isOpened());
}

TEST_F(CVQIODeviceTest, ADeviceWhoseServerDisappearedFailsAndMayBeOpenedElsewhere) {
    const auto afterEach = [](auto use) {
        auto server = std::make_unique<DeviceServer>("/dev/zero");
        CVQIODevice device;
        EXPECT_TRUE(device.open("/dev/zero", CVQIODevice::ACCESS_READ));
        server.reset();
        use(device);
        EXPECT_EQ(kFailed, device.getLastError());
        EXPECT_FALSE(device.isOpened());
        EXPECT_TRUE(device.open("/dev/zero", CVQIODevice::ACCESS_READ));
        char byte = 'x';
        EXPECT_EQ(1, device.read(&byte, 1, 0));
        EXPECT_EQ(0, byte);
    };
    char byte = 'x';
    int info;
    afterEach([&](CVQIODevice& device) { EXPECT_EQ(-1, device.read(&byte, 1, 0)); });
    afterEach([&](CVQIODevice& device) { EXPECT_EQ(-1, device.write(&byte, 1, -1)); });
    afterEach([&](CVQIODevice& device) { EXPECT_FALSE(device.devctl(1, &byte, 1, &info, 5)); });
    afterEach([&](CVQIODevice& device) { EXPECT_FALSE(device.close()); });
    afterEach([&](CVQIODevice& device) { EXPECT_EQ(kFailed, CVQIODevice(device).getLastError()); });
}

}  // namespace

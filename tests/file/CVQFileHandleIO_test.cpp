// Concerns: read, write and writeN without and with a time-out, on files, pipes, FIFOs, sockets, terminals and devices;
// what they return and leave in errno; deadlines under rivals, full pipes and signals; the descriptor's own flags;
// position, size, sync; closed handles and wrong arguments.
#include <CVQFileHandle.h>

#include "Descriptors.h"
#include "host/SignalStorm.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void onSignal(int) {
}

/// A handle on the file that `descriptor` leads to; takes the descriptor.
class Handle : public CVQFileHandle {
public:
    explicit Handle(int descriptor) : CVQFileHandle("/dev/null", O_RDONLY) {
        EXPECT_EQ(getDescriptor(), dup2(descriptor, getDescriptor()));
        ::close(descriptor);
    }
};

struct Pair {
    Handle reader;
    Handle writer;
};

Pair makePipe() {
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    return {Handle(ends[0]), Handle(ends[1])};
}

Pair makeSockets(int type) {
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, type, 0, ends));
    return {Handle(ends[0]), Handle(ends[1])};
}

Pair makeTerminal() {
    int master;
    int slave;
    EXPECT_EQ(0, openpty(&master, &slave, nullptr, nullptr, nullptr));
    termios raw;
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    return {Handle(master), Handle(slave)};
}

Pair makeFifo() {
    const support::TemporaryFolder folder;
    const std::string path = folder / "fifo";
    EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
    const int reader = open(path.c_str(), O_RDWR);
    return {Handle(reader), Handle(open(path.c_str(), O_WRONLY))};
}

const struct Kind {
    const char* name;
    Pair (*make)();
} kKinds[] = {{"pipe", makePipe},
              {"FIFO", makeFifo},
              {"stream socket", [] { return makeSockets(SOCK_STREAM); }},
              {"datagram socket", [] { return makeSockets(SOCK_DGRAM); }},
              {"terminal", makeTerminal}};

class CVQFileHandleIO : public testing::Test {
protected:
    ~CVQFileHandleIO() override { EXPECT_EQ(mDescriptors, files::openDescriptors()); }

    const std::set<int> mDescriptors = files::openDescriptors();
    support::TemporaryFolder mFolder;
};

TEST_F(CVQFileHandleIO, AReadThatIsTimedOutReturnsNoneWithItsReason) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        char byte = 'x';
        for (const int timeoutMs : {10, 1, 0}) {
            const Clock::time_point begin = Clock::now();
            errno = 0;
            EXPECT_EQ(0, ends.reader.read(&byte, 1, timeoutMs));
            EXPECT_EQ(ETIMEDOUT, errno);
            EXPECT_GE(Clock::now() - begin, milliseconds(timeoutMs));
            EXPECT_LT(Clock::now() - begin, milliseconds(timeoutMs + 1000));
        }
        EXPECT_EQ('x', byte);
    }
}

TEST_F(CVQFileHandleIO, WhatIsThereIsReadWhateverTheTimeout) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        for (const int timeoutMs : {-1, 0, 1000}) {
            char bytes[8] = {};
            EXPECT_EQ(3, ends.writer.write("abc", 3, timeoutMs));
            EXPECT_EQ(3, ends.reader.read(bytes, sizeof bytes, timeoutMs));
            EXPECT_STREQ("abc", bytes);
        }
    }
}

TEST_F(CVQFileHandleIO, AReadWaitsForBytesThatComeInTime) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        for (const int timeoutMs : {-1, 10000}) {
            std::thread writer([&] {
                std::this_thread::sleep_for(milliseconds(5));
                EXPECT_EQ(1, ends.writer.write("b", 1, -1));
            });
            char byte = '\0';
            EXPECT_EQ(1, ends.reader.read(&byte, 1, timeoutMs));
            EXPECT_EQ('b', byte);
            writer.join();
        }
    }
}

TEST_F(CVQFileHandleIO, TheEndOfAFileIsNoneWithoutAReason) {
    CVQFileHandle handle((mFolder.write("file", "text")).c_str(), O_RDONLY);
    char bytes[8];
    for (const int timeoutMs : {-1, 0, 1000}) {
        ASSERT_TRUE(handle.seek(0, CVQFileHandle::SEEK_FROM_START));
        EXPECT_EQ(4, handle.read(bytes, sizeof bytes, timeoutMs));
        errno = EIO;
        EXPECT_EQ(0, handle.read(bytes, sizeof bytes, timeoutMs));
        EXPECT_EQ(0, errno);
    }
    Pair ends = makePipe();
    ends.writer.close();
    errno = EIO;
    EXPECT_EQ(0, ends.reader.read(bytes, sizeof bytes, 1000));
    EXPECT_EQ(0, errno);
}

TEST_F(CVQFileHandleIO, NullAndNothing) {
    CVQFileHandle handle((mFolder.write("file", "text")).c_str(), O_RDWR);
    char byte = '\0';
    for (const int timeoutMs : {-1, 0, 10}) {
        errno = 0;
        EXPECT_EQ(-1, handle.read(nullptr, 4, timeoutMs));
        EXPECT_EQ(EINVAL, errno);
        errno = 0;
        EXPECT_EQ(-1, handle.write(nullptr, 4, timeoutMs));
        EXPECT_EQ(EINVAL, errno);
        errno = 0;
        EXPECT_FALSE(handle.writeN(nullptr, 4, timeoutMs));
        EXPECT_EQ(EINVAL, errno);
        for (char* const bytes : {&byte, static_cast<char*>(nullptr)}) {
            errno = EIO;
            EXPECT_EQ(0, handle.read(bytes, 0, timeoutMs));
            EXPECT_EQ(0, errno);
            errno = EIO;
            EXPECT_EQ(0, handle.write(bytes, 0, timeoutMs));
            EXPECT_EQ(0, errno);
            errno = EIO;
            EXPECT_TRUE(handle.writeN(bytes, 0, timeoutMs));
            EXPECT_EQ(0, errno);
        }
    }
}

TEST_F(CVQFileHandleIO, AClosedHandleRefusesEverything) {
    CVQFileHandle handle;
    char byte = '\0';
    const auto isBadDescriptor = [] {
        const int error = errno;
        errno = 0;
        return error == EBADF;
    };
    for (const int timeoutMs : {-1, 0, 10}) {
        EXPECT_EQ(-1, handle.read(&byte, 1, timeoutMs));
        EXPECT_TRUE(isBadDescriptor());
        EXPECT_EQ(-1, handle.write(&byte, 1, timeoutMs));
        EXPECT_TRUE(isBadDescriptor());
        EXPECT_FALSE(handle.writeN(&byte, 1, timeoutMs));
        EXPECT_TRUE(isBadDescriptor());
    }
    EXPECT_FALSE(handle.seek(0, CVQFileHandle::SEEK_FROM_START));
    EXPECT_TRUE(isBadDescriptor());
    EXPECT_EQ(-1, handle.tell());
    EXPECT_TRUE(isBadDescriptor());
    EXPECT_FALSE(handle.truncate(0));
    EXPECT_TRUE(isBadDescriptor());
    EXPECT_FALSE(handle.sync());
    EXPECT_TRUE(isBadDescriptor());
}

TEST_F(CVQFileHandleIO, AFileIsReadAndWrittenWholeWithinAnyTimeout) {
    std::vector<char> written(3 << 20);
    for (std::size_t i = 0; i < written.size(); ++i) {
        written[i] = static_cast<char>(i * 2654435761U >> 13);
    }
    for (const int timeoutMs : {-1, 0, 1000}) {
        CVQFileHandle handle((mFolder / "file").c_str(), O_RDWR | O_CREAT | O_TRUNC);
        const unsigned size = static_cast<unsigned>(written.size());
        EXPECT_EQ(static_cast<int>(size), handle.write(written.data(), size, timeoutMs));
        EXPECT_EQ(size, handle.tell());
        // A file out of the cache is read from the medium, however long that takes.
        handle.sync();
        posix_fadvise(handle.getDescriptor(), 0, 0, POSIX_FADV_DONTNEED);
        ASSERT_TRUE(handle.seek(0, CVQFileHandle::SEEK_FROM_START));
        std::vector<char> read(size + 10);
        EXPECT_EQ(static_cast<int>(size), handle.read(read.data(), size + 10, timeoutMs));
        EXPECT_EQ(0, std::memcmp(read.data(), written.data(), size));
    }
}

TEST_F(CVQFileHandleIO, AWriteIntoAFullPipeIsTimedOut) {
    Pair ends = makePipe();
    std::vector<char> much(1 << 20);
    ASSERT_EQ(4096, fcntl(ends.writer.getDescriptor(), F_SETPIPE_SZ, 4096));
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(4096, ends.writer.write(much.data(), 1 << 20, 10));  // what there was room for
    EXPECT_GE(Clock::now() - begin, milliseconds(10));
    for (const int timeoutMs : {10, 0}) {
        errno = 0;
        EXPECT_EQ(0, ends.writer.write(much.data(), 1 << 20, timeoutMs));
        EXPECT_EQ(ETIMEDOUT, errno);
        errno = 0;
        EXPECT_FALSE(ends.writer.writeN(much.data(), 1, timeoutMs));
        EXPECT_EQ(ETIMEDOUT, errno);
    }
    EXPECT_LT(Clock::now() - begin, milliseconds(2000));
}

TEST_F(CVQFileHandleIO, WritesOfUpTo4096BytesIntoAPipeAreNotTornByATimeout) {
    Pair ends = makePipe();
    ASSERT_EQ(4096, fcntl(ends.writer.getDescriptor(), F_SETPIPE_SZ, 4096));
    const std::vector<char> bytes(4096);
    EXPECT_EQ(1, ends.writer.write(bytes.data(), 1, 10));
    EXPECT_EQ(0, ends.writer.write(bytes.data(), 4096, 10));
    EXPECT_EQ(ETIMEDOUT, errno);
    std::vector<char> read(8192);
    EXPECT_EQ(1, ends.reader.read(read.data(), 8192, 10));
}

TEST_F(CVQFileHandleIO, WriteNWaitsForASlowReader) {
    for (const int timeoutMs : {-1, 20000}) {
        for (const auto make :
             {+[] { return makePipe(); }, +[] { return makeSockets(SOCK_STREAM); }, makeTerminal}) {
            Pair ends = make();
            std::vector<char> written(300000);
            for (std::size_t i = 0; i < written.size(); ++i) {
                written[i] = static_cast<char>(i * 40503U >> 7);
            }
            std::vector<char> read;
            std::thread reader([&] {
                char part[1000];
                while (read.size() < written.size()) {
                    const int count = ends.reader.read(part, sizeof part, -1);
                    ASSERT_GT(count, 0);
                    read.insert(read.end(), part, part + count);
                }
            });
            EXPECT_TRUE(ends.writer.writeN(written.data(), static_cast<unsigned>(written.size()), timeoutMs));
            reader.join();
            EXPECT_EQ(written, read);
        }
    }
}

TEST_F(CVQFileHandleIO, WriteNTellsThatNotAllWasWrittenInTime) {
    Pair ends = makePipe();
    std::vector<char> much(1 << 20);
    errno = 0;
    EXPECT_FALSE(ends.writer.writeN(much.data(), 1 << 20, 20));
    EXPECT_EQ(ETIMEDOUT, errno);
    int inPipe = 0;
    EXPECT_GT(ends.reader.read(much.data(), 1 << 20, 0), inPipe);
}

TEST_F(CVQFileHandleIO, ADatagramThatDoesNotFitWaitsWithoutSpinning) {
    Pair ends = makeSockets(SOCK_DGRAM);
    const std::vector<char> bytes(60000);
    int sent = 0;
    while (ends.writer.write(bytes.data(), 60000, 0) == 60000) {
        ++sent;
    }
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GT(sent, 0);
    rusage before;
    rusage after;
    getrusage(RUSAGE_THREAD, &before);
    EXPECT_EQ(0, ends.writer.write(bytes.data(), 60000, 200));
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_EQ(ETIMEDOUT, errno);
    const auto micros = [](const rusage& usage) {
        return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000L + usage.ru_utime.tv_usec +
               usage.ru_stime.tv_usec;
    };
    EXPECT_LT(micros(after) - micros(before), 100000);
}

TEST_F(CVQFileHandleIO, TheDeadlineHoldsWhenAnotherReaderIsQuicker) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        std::atomic<bool> isOver{false};
        std::atomic<int> taken{0};
        // Both readers are woken by each byte; one of them finds nothing.
        std::thread rival([&] {
            char byte;
            while (!isOver) {
                taken += ends.reader.read(&byte, 1, 5);
            }
        });
        std::thread writer([&] {
            for (int i = 0; i < 200; ++i) {
                EXPECT_EQ(1, ends.writer.write("x", 1, -1));
                std::this_thread::yield();
            }
        });
        int own = 0;
        while (taken + own < 200) {
            char byte;
            const Clock::time_point begin = Clock::now();
            own += ends.reader.read(&byte, 1, 5);
            EXPECT_LT(Clock::now() - begin, milliseconds(1500));
        }
        writer.join();
        isOver = true;
        rival.join();
        EXPECT_EQ(200, taken + own);
    }
}

TEST_F(CVQFileHandleIO, TheDeadlineHoldsUnderAStormOfSignals) {
    const SignalStorm storm(onSignal);
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        char byte;
        const Clock::time_point begin = Clock::now();
        errno = 0;
        EXPECT_EQ(0, ends.reader.read(&byte, 1, 20));
        EXPECT_EQ(ETIMEDOUT, errno);
        EXPECT_GE(Clock::now() - begin, milliseconds(20));
        EXPECT_LT(Clock::now() - begin, milliseconds(1500));
    }
    Pair ends = makePipe();
    std::vector<char> much(1 << 20);
    EXPECT_FALSE(ends.writer.writeN(much.data(), 1 << 20, 20));
    EXPECT_EQ(ETIMEDOUT, errno);
}

TEST_F(CVQFileHandleIO, SignalsNeitherEndNorTearACallWithoutTimeout) {
    const SignalStorm storm(onSignal);
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        std::thread writer([&] {
            std::this_thread::sleep_for(milliseconds(10));
            EXPECT_TRUE(ends.writer.writeN("b", 1, -1));
        });
        char byte = '\0';
        EXPECT_EQ(1, ends.reader.read(&byte, 1, -1));
        EXPECT_EQ('b', byte);
        writer.join();
    }
}

TEST_F(CVQFileHandleIO, SignalsNeitherEndNorTearABlockedWriteOfMuch) {
    Pair ends = makePipe();
    std::vector<char> sent(1 << 20);
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<char>(i * 31 + i / 251);
    std::vector<char> received;
    std::thread reader([&] {  // slow: the pipe is full most of the time
        std::vector<char> part(16384);
        while (received.size() < sent.size()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const int count = ends.reader.read(part.data(), static_cast<unsigned>(part.size()), 5000);
            if (count <= 0)
                break;
            received.insert(received.end(), part.begin(), part.begin() + count);
        }
    });
    {
        const SignalStorm storm(onSignal);
        EXPECT_TRUE(ends.writer.writeN(sent.data(), static_cast<unsigned>(sent.size()), -1));
    }
    reader.join();
    EXPECT_TRUE(sent == received);
}

TEST_F(CVQFileHandleIO, SignalsThatTheThreadHasBlockedAreNoObstacle) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    sigset_t meant;
    pthread_sigmask(SIG_SETMASK, nullptr, &meant);
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        char byte;
        EXPECT_EQ(0, ends.reader.read(&byte, 1, 5));
        EXPECT_EQ(ETIMEDOUT, errno);
    }
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, &before, &after);
    for (int number = 1; number <= SIGRTMAX; ++number) {
        EXPECT_EQ(sigismember(&meant, number), sigismember(&after, number)) << number;
    }
}

TEST_F(CVQFileHandleIO, NoTimeoutTouchesTheDescriptorsFlags) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        const int descriptor = ends.reader.getDescriptor();
        const int before = fcntl(descriptor, F_GETFL);
        std::atomic<bool> isOver{false};
        std::thread watcher([&] {
            while (!isOver) {
                EXPECT_EQ(before, fcntl(descriptor, F_GETFL));
            }
        });
        char byte;
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(0, ends.reader.read(&byte, 1, 2));
        }
        isOver = true;
        watcher.join();
    }
}

TEST_F(CVQFileHandleIO, ANonBlockingDescriptorStaysOne) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        Pair ends = kind.make();
        fcntl(ends.reader.getDescriptor(), F_SETFL, O_NONBLOCK);
        char byte;
        for (const int timeoutMs : {-1, 0, 10000}) {
            errno = 0;
            EXPECT_EQ(-1, ends.reader.read(&byte, 1, timeoutMs));
            EXPECT_EQ(EAGAIN, errno);
        }
    }
}

TEST_F(CVQFileHandleIO, ABrokenPipeIsAnErrorWithinATimeoutToo) {
    signal(SIGPIPE, SIG_IGN);
    for (const auto make : {+[] { return makePipe(); }, +[] { return makeSockets(SOCK_STREAM); }}) {
        Pair ends = make();
        ends.reader.close();
        for (const int timeoutMs : {-1, 0, 1000}) {
            errno = 0;
            EXPECT_EQ(-1, ends.writer.write("x", 1, timeoutMs));
            EXPECT_EQ(EPIPE, errno);
            EXPECT_FALSE(ends.writer.writeN("xy", 2, timeoutMs));
            EXPECT_EQ(EPIPE, errno);
        }
    }
    signal(SIGPIPE, SIG_DFL);
}

TEST_F(CVQFileHandleIO, AHangUpEndsAReadThatWaits) {
    for (const auto make : {+[] { return makePipe(); }, +[] { return makeSockets(SOCK_STREAM); }}) {
        Pair ends = make();
        std::thread closer([&] {
            std::this_thread::sleep_for(milliseconds(5));
            shutdown(ends.writer.getDescriptor(), SHUT_RDWR);
            ends.writer.close();
        });
        char byte;
        errno = EIO;
        EXPECT_EQ(0, ends.reader.read(&byte, 1, 10000));
        EXPECT_EQ(0, errno);
        closer.join();
    }
}

TEST_F(CVQFileHandleIO, DevicesAnswerWithinATimeoutAsWithoutOne) {
    for (const int timeoutMs : {-1, 0, 1000}) {
        char bytes[100];
        std::memset(bytes, 'x', sizeof bytes);
        CVQFileHandle zero("/dev/zero", O_RDWR);
        EXPECT_EQ(100, zero.read(bytes, 100, timeoutMs));
        EXPECT_EQ(std::string(100, '\0'), std::string(bytes, 100));
        EXPECT_EQ(100, zero.write(bytes, 100, timeoutMs));
        CVQFileHandle null("/dev/null", O_RDWR);
        errno = EIO;
        EXPECT_EQ(0, null.read(bytes, 100, timeoutMs));
        EXPECT_EQ(0, errno);
        EXPECT_EQ(100, null.write(bytes, 100, timeoutMs));
        CVQFileHandle full("/dev/full", O_RDWR);
        EXPECT_EQ(100, full.read(bytes, 100, timeoutMs));
        EXPECT_EQ(-1, full.write(bytes, 100, timeoutMs));
        EXPECT_EQ(ENOSPC, errno);
        EXPECT_FALSE(full.writeN(bytes, 100, timeoutMs));
        EXPECT_EQ(ENOSPC, errno);
        Handle event(eventfd(0, 0));
        errno = 0;
        if (timeoutMs >= 0) {
            const std::uint64_t one = 1;
            EXPECT_EQ(0, event.read(bytes, 8, timeoutMs / 100));
            EXPECT_EQ(ETIMEDOUT, errno);
            EXPECT_EQ(8, event.write(&one, 8, timeoutMs));
            EXPECT_EQ(8, event.read(bytes, 8, timeoutMs));
        }
        CVQFileHandle folder("/", O_RDONLY);
        EXPECT_EQ(-1, folder.read(bytes, 1, timeoutMs));
        EXPECT_EQ(EISDIR, errno);
    }
}

TEST_F(CVQFileHandleIO, SizesBeyondAnIntAreNotMistakenForErrors) {
    if (sizeof(void*) == 4 || support::kIsSanitized) {
        GTEST_SKIP() << "no room for four gigabytes, or a checker that looks at each of them";
    }
    void* const bytes = mmap(nullptr, UINT_MAX, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, bytes);
    CVQFileHandle null("/dev/null", O_WRONLY);
    for (const int timeoutMs : {-1, 1000}) {
        EXPECT_GT(null.write(bytes, UINT_MAX, timeoutMs), 0);
        EXPECT_TRUE(null.writeN(bytes, UINT_MAX, timeoutMs));
    }
    munmap(bytes, UINT_MAX);
}

TEST_F(CVQFileHandleIO, AFullFileSystemEndsWriteNAfterWhatFitted) {
    const auto result = support::runInChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small = {1000, 1000};
        setrlimit(RLIMIT_FSIZE, &small);
        CVQFileHandle handle((mFolder / "file").c_str(), O_RDWR | O_CREAT);
        const char bytes[1500] = {};
        EXPECT_FALSE(handle.writeN(bytes, sizeof bytes, -1));
        EXPECT_EQ(EFBIG, errno);
        EXPECT_EQ(1000, handle.tell());
        EXPECT_FALSE(handle.truncate(2000));
        EXPECT_EQ(EFBIG, errno);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST_F(CVQFileHandleIO, SeeksFromEachOriginBeyondFourGigabytesToo) {
    CVQFileHandle handle((mFolder.write("file", "0123456789")).c_str(), O_RDWR);
    EXPECT_EQ(0, handle.tell());
    EXPECT_TRUE(handle.seek(4, CVQFileHandle::SEEK_FROM_START));
    EXPECT_TRUE(handle.seek(-1, CVQFileHandle::SEEK_FROM_CURRENT));
    EXPECT_EQ(3, handle.tell());
    EXPECT_TRUE(handle.seek(-2, CVQFileHandle::SEEK_FROM_END));
    EXPECT_EQ(8, handle.tell());
    EXPECT_FALSE(handle.seek(-1, CVQFileHandle::SEEK_FROM_START));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(8, handle.tell());
    EXPECT_TRUE(handle.seek(5LL << 32, CVQFileHandle::SEEK_FROM_START));
    EXPECT_EQ(5LL << 32, handle.tell());
    Pair ends = makePipe();
    EXPECT_FALSE(ends.reader.seek(0, CVQFileHandle::SEEK_FROM_START));
    EXPECT_EQ(-1, ends.reader.tell());
    EXPECT_EQ(ESPIPE, errno);
}

TEST_F(CVQFileHandleIO, TruncatesToSmallerAndLargerSizes) {
    const std::string path = mFolder.write("file", "0123456789");
    CVQFileHandle handle(path.c_str(), O_RDWR);
    EXPECT_TRUE(handle.truncate(3));
    EXPECT_EQ("012", support::readFile(path));
    EXPECT_TRUE(handle.truncate(5));
    EXPECT_EQ(std::string("012\0\0", 5), support::readFile(path));
    EXPECT_FALSE(handle.truncate(~0ULL));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_TRUE(handle.sync());
    EXPECT_FALSE(CVQFileHandle(path.c_str(), O_RDONLY).truncate(1));
}

TEST_F(CVQFileHandleIO, WhatIsOpenedIsClosedOnExec) {
    CVQFileHandle handle("/", O_RDONLY);
    EXPECT_TRUE(files::isClosedOnExec(handle.getDescriptor()));
}

TEST_F(CVQFileHandleIO, ATimeoutOfOneCallIsNotLeftForTheNext) {
    Pair ends = makePipe();
    char byte;
    EXPECT_EQ(0, ends.reader.read(&byte, 1, 1));
    std::thread writer([&] {
        std::this_thread::sleep_for(milliseconds(20));
        EXPECT_EQ(1, ends.writer.write("x", 1, 0));
    });
    EXPECT_EQ(1, ends.reader.read(&byte, 1, -1));
    writer.join();
}

TEST_F(CVQFileHandleIO, WaitsInManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            Pair ends = kKinds[static_cast<unsigned>(i) % std::size(kKinds)].make();
            char byte;
            for (int round = 0; round < 20; ++round) {
                EXPECT_EQ(0, ends.reader.read(&byte, 1, 1));
                EXPECT_EQ(1, ends.writer.write("x", 1, 1000));
                EXPECT_EQ(1, ends.reader.read(&byte, 1, 1000));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

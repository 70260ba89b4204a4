// Concerns: the bytes of each kind of record; limits; who sent it; errno; a logger that is missing, gone, back, slow or
// stuck; time-outs; descriptors, memory and stack; the syslog form.
#include "HeldElsewhere.h"
#include "Hostile.h"
#include "LogSocket.h"
#include "PrivateMounts.h"

#include "support/ChildProcess.h"
#include "support/Sanitizers.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/SlogRecord.h>
#include <sys/neutrino.h>
#include <sys/resource.h>
#include <sys/slog.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace std::chrono_literals;
using support::ScopedEnvironment;
using support::TemporaryFolder;

class Slog : public testing::Test {
protected:
    TemporaryFolder mFolder;
    std::string mPath = mFolder / "log";
    LogSocket mSocket{mPath};
    ScopedEnvironment mVariable{"NTO_SLOG", mPath};
};

template <class T>
T numberAt(const std::string& datagram, std::size_t offset) {
    T number = 0;
    if (datagram.size() >= offset + sizeof(number))
        std::memcpy(&number, datagram.data() + offset, sizeof(number));
    return number;
}

template <class T>
void append(std::string& bytes, T number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

/// A record as its description says, but for the time, which the caller compares with the clock.
std::string expectedRecord(uint16_t kind, uint32_t opcode, int32_t severity, uint64_t timeNs,
                           const std::string& content) {
    std::string bytes = "SLOG";
    append<uint16_t>(bytes, 1);
    append<uint16_t>(bytes, kind);
    append<uint32_t>(bytes, opcode);
    append<int32_t>(bytes, severity);
    append<int32_t>(bytes, getpid());
    append<int32_t>(bytes, gettid());
    append<uint64_t>(bytes, timeNs);
    append<uint32_t>(bytes, static_cast<uint32_t>(content.size()));
    append<uint32_t>(bytes, 0);
    return bytes + content;
}

uint64_t timeOf(const std::string& datagram) {
    return numberAt<uint64_t>(datagram, 24);
}

TEST_F(Slog, TextRecordHasExactlyTheseBytes) {
    const uint64_t before = host::nowNs(CLOCK_REALTIME);
    EXPECT_EQ(0, slogf(_SLOG_SETCODE(10000, 3), _SLOG_ERROR, "%d bottles of %s", 99, "beer"));
    const uint64_t after = host::nowNs(CLOCK_REALTIME);
    const std::string datagram = mSocket.receive();
    EXPECT_LE(before, timeOf(datagram));
    EXPECT_GE(after, timeOf(datagram));
    EXPECT_EQ(expectedRecord(1, 10000 + (3 << 20), 2, timeOf(datagram), "99 bottles of beer"), datagram);
    EXPECT_EQ("", mSocket.receive());
}

TEST_F(Slog, IntegerRecordHasExactlyTheseBytes) {
    EXPECT_EQ(0, slogi(7, _SLOG_DEBUG2, 3, 1, -2, 0x12345678));
    std::string content;
    for (const int value : {1, -2, 0x12345678})
        append(content, value);
    const std::string datagram = mSocket.receive();
    EXPECT_EQ(expectedRecord(2, 7, 7, timeOf(datagram), content), datagram);
}

TEST_F(Slog, DataRecordHasExactlyTheseBytes) {
    char data[] = {0, 1, '\n', '\xFF', 0};
    EXPECT_EQ(0, slogb(-1, _SLOG_SHUTDOWN, data, sizeof(data)));
    const std::string datagram = mSocket.receive();
    EXPECT_EQ(expectedRecord(3, 0xFFFFFFFF, 0, timeOf(datagram), std::string(data, sizeof(data))), datagram);
}

TEST_F(Slog, OpcodeHasTheMajorCodeBelowTheMinorOne) {
    EXPECT_EQ(10000, _SLOG_SETCODE(10000, 0));
    EXPECT_EQ(10000 + 0x100000, _SLOG_SETCODE(10000, 1));
    EXPECT_EQ(static_cast<int>(0xFFF00001), _SLOG_SETCODE(1, 0xFFF));
    EXPECT_EQ(10000, _SLOGC_PRIVATE_START);
    EXPECT_EQ(_SLOGC_PRIVATE_START, _SLOGC_TEST);
}

TEST_F(Slog, SeveritiesHaveTheNumbersOfThePlatform) {
    const int severities[] = {_SLOG_SHUTDOWN, _SLOG_CRITICAL, _SLOG_ERROR,  _SLOG_WARNING,
                              _SLOG_NOTICE,   _SLOG_INFO,     _SLOG_DEBUG1, _SLOG_DEBUG2};
    EXPECT_THAT(severities, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(Slog, PassesOnAnyNumberAsSeverity) {
    for (const int severity : {-1, 8, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(0, slogf(1, severity, "x"));
        EXPECT_EQ(severity, numberAt<int32_t>(mSocket.receive(), 12));
    }
}

TEST_F(Slog, TextMayBeEmpty) {
    EXPECT_EQ(0, slogf(1, 1, "%s", ""));
    EXPECT_EQ(sizeof(host::SlogRecord), mSocket.receive().size());
}

TEST_F(Slog, TextsUpToTheLimitArriveWholeAndLongerOnesCut) {
    for (const std::size_t length : {1024, 2046, 2047, 2048, 5000}) {
        EXPECT_EQ(0, slogf(1, 1, "%s", std::string(length, 'x').c_str()));
        const std::string datagram = mSocket.receive();
        const std::size_t kept = std::min<std::size_t>(length, 2047);
        EXPECT_EQ(std::string(kept, 'x'), datagram.substr(sizeof(host::SlogRecord))) << length;
        EXPECT_EQ(kept, numberAt<uint32_t>(datagram, 32));
    }
}

TEST_F(Slog, TextThatCannotBeFormattedIsAnError) {
    errno = 0;
    EXPECT_EQ(-1, slogf(1, 1, "%ls", L"\xDC00"));
    EXPECT_EQ(EILSEQ, errno);
    EXPECT_EQ("", mSocket.receive());
}

TEST_F(Slog, IntegersAreAtMost32) {
    EXPECT_EQ(0, slogi(1, 1, 32, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23,
                       24, 25, 26, 27, 28, 29, 30, 31, 32));
    const std::string datagram = mSocket.receive();
    EXPECT_EQ(sizeof(host::SlogRecord) + 128, datagram.size());
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(i + 1, numberAt<int>(datagram, sizeof(host::SlogRecord) + static_cast<std::size_t>(i) * 4));
    EXPECT_EQ(0, slogi(1, 1, 0));
    EXPECT_EQ(sizeof(host::SlogRecord), mSocket.receive().size());
    for (const int count : {33, -1, INT32_MIN, INT32_MAX}) {
        errno = 0;
        EXPECT_EQ(-1, slogi(1, 1, count));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_EQ("", mSocket.receive());
}

TEST_F(Slog, DataAreAtMost1020Bytes) {
    std::string data(1021, 'd');
    EXPECT_EQ(0, slogb(1, 1, data.data(), 1020));
    EXPECT_EQ(sizeof(host::SlogRecord) + 1020, mSocket.receive().size());
    EXPECT_EQ(0, slogb(1, 1, nullptr, 0));
    EXPECT_EQ(sizeof(host::SlogRecord), mSocket.receive().size());
    for (const int size : {1021, -1, INT32_MIN, INT32_MAX}) {
        errno = 0;
        EXPECT_EQ(-1, slogb(1, 1, data.data(), size));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_EQ("", mSocket.receive());
}

TEST_F(Slog, DataThatAreNotThereAreAFault) {
    EXPECT_EQ(-1, slogb(1, 1, nullptr, 4));
    EXPECT_EQ(EFAULT, errno);
}

TEST_F(Slog, NamesTheThreadThatLogged) {
    pid_t tid = 0;
    std::thread([&tid] {
        tid = gettid();
        slogf(1, 1, "x");
    }).join();
    const std::string datagram = mSocket.receive();
    EXPECT_EQ(getpid(), numberAt<int32_t>(datagram, 16));
    EXPECT_EQ(tid, numberAt<int32_t>(datagram, 20));
    EXPECT_NE(getpid(), tid);
}

TEST_F(Slog, NamesTheForkedChildThatLogged) {
    slogf(1, 1, "the parent knows its id by now");
    mSocket.receive();
    const auto result = support::runInChild([] { slogf(1, 1, "x"); });
    const std::string datagram = mSocket.receive();
    EXPECT_EQ(result.pid, numberAt<int32_t>(datagram, 16));
    EXPECT_EQ(result.pid, numberAt<int32_t>(datagram, 20));
}

TEST_F(Slog, KeepsErrnoWhenItSucceeds) {
    char data[4] = {};
    errno = 4711;
    EXPECT_EQ(0, slogf(1, 1, "x"));
    EXPECT_EQ(0, slogi(1, 1, 1, 1));
    EXPECT_EQ(0, slogb(1, 1, data, 4));
    EXPECT_EQ(4711, errno);
}

TEST_F(Slog, SaysThatThereIsNoLoggerWhenTheSocketIsMissing) {
    const ScopedEnvironment elsewhere("NTO_SLOG", mFolder / "nobody");
    errno = 0;
    EXPECT_EQ(-1, slogf(1, 1, "x"));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Slog, SaysThatThereIsNoLoggerWhenNobodyListensAndFindsTheNextOne) {
    const std::string path = mFolder / "restarted";
    const ScopedEnvironment there("NTO_SLOG", path);
    { const LogSocket first(path); }
    errno = 0;
    EXPECT_EQ(-1, slogf(1, 1, "x"));
    EXPECT_EQ(ENOENT, errno);
    LogSocket second(path);
    EXPECT_EQ(0, slogf(1, 1, "x"));
    EXPECT_NE("", second.receive());
}

TEST_F(Slog, SaysWhenTheNameCannotBeASocket) {
    const ScopedEnvironment there("NTO_SLOG", "/" + std::string(107, 'x'));
    EXPECT_EQ(-1, slogf(1, 1, "x"));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(Slog, SaysWhenThereIsNoDescriptorLeftAndRecovers) {
    const auto result = support::runInChild([] {
        const rlimit none = {0, 64};
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(-1, slogf(1, 1, "lost"));
        EXPECT_EQ(EMFILE, errno);
        const rlimit some = {64, 64};
        setrlimit(RLIMIT_NOFILE, &some);
        EXPECT_EQ(0, slogf(1, 1, "logged"));
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ("logged", mSocket.receive().substr(sizeof(host::SlogRecord)));
}

TEST_F(Slog, WorksWhenTheProcessHasClosedAllItsDescriptors) {
    const auto result = support::runInChild([] {
        slogf(1, 1, "before");
        for (int descriptor = 0; descriptor < 256; ++descriptor)
            close(descriptor);
        _exit(slogf(1, 1, "after") == 0 ? 0 : 1);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    mSocket.receive();
    EXPECT_EQ("after", mSocket.receive().substr(sizeof(host::SlogRecord)));
}

std::size_t openDescriptors() {
    DIR* const folder = opendir("/proc/self/fd");
    std::size_t count = 0;
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

TEST_F(Slog, LeavesNoDescriptorOpen) {
    const std::size_t before = openDescriptors();
    slogf(1, 1, "x");
    const ScopedEnvironment elsewhere("NTO_SLOG", mFolder / "nobody");
    slogf(1, 1, "x");
    EXPECT_EQ(before, openDescriptors());
}

// A logger that is behind

void fillQueue() {
    const uint64_t immediate = 0;
    do
        TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_SEND, nullptr, &immediate, nullptr);
    while (slogf(1, 1, "filler") == 0);
}

TEST_F(Slog, WaitsForALoggerThatIsBehind) {
    fillQueue();
    std::thread reader([this] {
        std::this_thread::sleep_for(20ms);
        mSocket.receive();
    });
    EXPECT_EQ(0, slogf(1, 1, "waited"));
    reader.join();
    std::string last;
    for (std::string next = mSocket.receive(); !next.empty(); next = mSocket.receive())
        last = next;
    EXPECT_EQ("waited", last.substr(sizeof(host::SlogRecord)));
}

TEST_F(Slog, GivesUpWhenTheLoggerStandsStill) {
    fillQueue();
    const uint64_t begin = monotonicNs();
    EXPECT_EQ(-1, slogf(1, 1, "x"));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_GE(monotonicNs() - begin, 1000 * kMs);
}

TEST_F(Slog, SaysThatThereIsNoLoggerWhenItEndsWhileOneWaitsForIt) {
    fillQueue();
    std::thread logger([this] {
        std::this_thread::sleep_for(20ms);
        mSocket.end();
    });
    EXPECT_EQ(-1, slogf(1, 1, "x"));
    EXPECT_EQ(ENOENT, errno);
    logger.join();
}

TEST_F(Slog, EndsItsWaitAtAnArmedTimeOut) {
    fillQueue();
    for (const int states : {_NTO_TIMEOUT_SEND, _NTO_TIMEOUT_REPLY, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY}) {
        const uint64_t begin = monotonicNs();
        const uint64_t wait = 15 * kMs;
        TimerTimeout(CLOCK_MONOTONIC, states, nullptr, &wait, nullptr);
        EXPECT_EQ(-1, slogf(1, 1, "x"));
        EXPECT_EQ(ETIMEDOUT, errno);
        EXPECT_GE(monotonicNs() - begin, wait);
        EXPECT_LT(monotonicNs() - begin, 900 * kMs);
    }
}

TEST_F(Slog, DeliversUnderAnExpiredTimeOutWhenItNeedNotWait) {
    TimerTimeout(CLOCK_MONOTONIC, _NTO_TIMEOUT_SEND, nullptr, nullptr, nullptr);
    EXPECT_EQ(0, slogf(1, 1, "x"));
}

// Hostile surroundings

TEST_F(Slog, NeedsNoHeap) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the heap of a sanitizer or an emulator does not run out";
    const auto result = support::runInChild([] {
        exhaustHeap();
        _exit(isAvailable(1) ? 2 : slogf(1, 1, "%s %d", "no heap", 1) == 0 ? 0 : 1);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_EQ("no heap 1", mSocket.receive().substr(sizeof(host::SlogRecord)));
}

TEST_F(Slog, NeedsLittleStack) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "a sanitizer takes stack of its own";
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 32768));
    pthread_t thread;
    char data[1020] = {};
    ASSERT_EQ(0, pthread_create(
                     &thread, &attributes,
                     [](void* bytes) -> void* {
                         slogf(1, 1, "%s %d %f", "text", 1, 1.5);
                         slogb(1, 1, bytes, 1020);
                         return nullptr;
                     },
                     data));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ("text 1 1.500000", mSocket.receive().substr(sizeof(host::SlogRecord)));
    EXPECT_EQ(sizeof(host::SlogRecord) + 1020, mSocket.receive().size());
}

TEST(SlogThreads, MixNoRecords) {
    support::SlogCapture log;
    std::vector<std::thread> threads;
    for (char letter = 'a'; letter < 'e'; ++letter)
        threads.emplace_back([letter] {
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(0, slogf(letter, 1, "%s", std::string(1000, letter).c_str()));
        });
    for (auto& thread : threads)
        thread.join();
    const auto records = log.records();
    EXPECT_EQ(200u, records.size());
    EXPECT_EQ(0u, log.malformed());
    for (const auto& record : records)
        EXPECT_EQ(std::string(1000, static_cast<char>(record.code)), record.text);
}

// What readers go by

TEST(SlogRecord, IsWholeOnlyWhenEveryPartFits) {
    host::SlogRecord record = {};
    record.magic = host::kSlogMagic;
    record.version = host::kSlogVersion;
    record.kind = host::SlogKind::TEXT;
    record.size = 5;
    constexpr std::size_t kHeader = sizeof(record);
    EXPECT_TRUE(host::isWholeSlogRecord(record, kHeader + 5));
    for (std::size_t size = 0; size < kHeader + 5; ++size)
        EXPECT_FALSE(host::isWholeSlogRecord(record, size)) << size;
    EXPECT_FALSE(host::isWholeSlogRecord(record, kHeader + 6));

    const auto with = [&record](auto change) {
        host::SlogRecord changed = record;
        change(changed);
        return host::isWholeSlogRecord(changed, kHeader + changed.size);
    };
    EXPECT_TRUE(with([](auto&) {}));
    EXPECT_FALSE(with([](auto& changed) { ++changed.magic; }));
    EXPECT_FALSE(with([](auto& changed) { ++changed.version; }));
    EXPECT_FALSE(with([](auto& changed) { changed.kind = host::SlogKind{0}; }));
    EXPECT_FALSE(with([](auto& changed) { changed.kind = host::SlogKind{4}; }));
    EXPECT_TRUE(with([](auto& changed) { changed.size = 0; }));
    EXPECT_TRUE(with([](auto& changed) { changed.size = host::kSlogTextMax; }));
    EXPECT_FALSE(with([](auto& changed) { changed.size = host::kSlogTextMax + 1; }));
    record.kind = host::SlogKind::INTS;
    EXPECT_FALSE(with([](auto&) {}));
    EXPECT_TRUE(with([](auto& changed) { changed.size = 128; }));
    EXPECT_FALSE(with([](auto& changed) { changed.size = 132; }));
    record.kind = host::SlogKind::BYTES;
    EXPECT_TRUE(with([](auto& changed) { changed.size = 1020; }));
    EXPECT_FALSE(with([](auto& changed) { changed.size = 1021; }));
}

TEST(SlogRecord, TellsMajorFromMinorCode) {
    host::SlogRecord record = {};
    record.opcode = static_cast<uint32_t>(_SLOG_SETCODE(10000, 4095));
    EXPECT_EQ(10000u, host::slogMajor(record));
    EXPECT_EQ(4095u, host::slogMinor(record));
}

// The machine's own log, when no socket is named

void inPrivateDev(const std::function<void()>& body) {
    support::ChildOptions options;
    options.environment = {{"NTO_SLOG", std::nullopt}};
    const auto result = support::runInChild(
        [&body] {
            if (!mountEmptyOver("/dev"))
                _exit(kNoMounts);
            body();
        },
        options);
    if (result.exitedWith(kNoMounts))
        GTEST_SKIP() << "no privilege to have a /dev of one's own";
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

std::string syslogHead(int priority) {
    return "<" + std::to_string(priority) + ">" + program_invocation_short_name + "[" + std::to_string(getpid()) +
           "]: ";
}

TEST(SlogToSyslog, SaysThatThereIsNoLoggerWhenThereIsNoSocket) {
    inPrivateDev([] {
        errno = 0;
        EXPECT_EQ(-1, slogf(1, 1, "x"));
        EXPECT_EQ(ENOENT, errno);
    });
}

TEST(SlogToSyslog, SendsTextWithTheFacilityUserAndTheMatchingLevel) {
    inPrivateDev([] {
        LogSocket socket("/dev/log");
        const int levels[] = {0, 2, 3, 4, 5, 6, 7, 7};
        for (int severity = 0; severity < 8; ++severity) {
            EXPECT_EQ(0, slogf(10000, severity, "severity %d", severity));
            EXPECT_EQ(syslogHead(8 + levels[severity]) + "severity " + std::to_string(severity), socket.receive());
        }
        for (const int severity : {-1, 8}) {
            EXPECT_EQ(0, slogf(10000, severity, "x"));
            EXPECT_EQ(syslogHead(8 + 7) + "x", socket.receive());
        }
    });
}

TEST(SlogToSyslog, IsWhereTheLogGoesWhenTheVariableIsEmptyToo) {
    inPrivateDev([] {
        LogSocket socket("/dev/log");
        setenv("NTO_SLOG", "", 1);
        EXPECT_EQ(0, slogf(10000, _SLOG_INFO, "x"));
        EXPECT_EQ(syslogHead(14) + "x", socket.receive());
    });
}

TEST(SlogToSyslog, SendsLongTextWhole) {
    inPrivateDev([] {
        LogSocket socket("/dev/log");
        const std::string text(1500, 'x');
        EXPECT_EQ(0, slogf(10000, _SLOG_INFO, "%s", text.c_str()));
        EXPECT_EQ(syslogHead(14) + text, socket.receive());
    });
}

TEST(SlogToSyslog, ShowsIntegersAndDataInHexadecimal) {
    inPrivateDev([] {
        LogSocket socket("/dev/log");
        EXPECT_EQ(0, slogi(10000, _SLOG_INFO, 3, 1, -1, 0xABC));
        EXPECT_EQ(syslogHead(14) + "1 ffffffff abc", socket.receive());
        char data[] = {'\x00', '\x7F', '\xFE'};
        EXPECT_EQ(0, slogb(10000, _SLOG_INFO, data, 3));
        EXPECT_EQ(syslogHead(14) + "007ffe", socket.receive());
        std::string much(1020, '\xA5');
        EXPECT_EQ(0, slogb(10000, _SLOG_INFO, much.data(), 1020));
        EXPECT_EQ(syslogHead(14).size() + 2040, socket.receive().size());
    });
}

}  // namespace

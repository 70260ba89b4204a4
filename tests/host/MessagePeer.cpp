// A process of its own for MessageWidths_test.cpp, whose partner may be a program for another processor.
//   serve FLAGS         has a channel, shows its process and channel, and obeys requests until pulse 0 ends it
//   call PID CHANNEL    tries all that a server does, and kills it in the end
//   unblock PID CHANNEL gives up a message that the server with _NTO_CHF_UNBLOCK then replies to; ends the server
//   count FILE TURN     locks and waits in shared memory, in turns with another one
//   pass FILE TURN      the same with semaphores and a barrier
//   locks               uses locks, strings and threads only, and shows the descriptors that it has then
// Exit status 0 when all went as it should; else a line on standard error says what did not.
#include "Hostile.h"
#include "SharedLocks.h"

#include "file/Descriptors.h"
#include "support/Sanitizers.h"

#include <CVQBarrier.h>
#include <CVQBinarySemaphore.h>
#include <CVQCriticalSection.h>
#include <CVQMutex.h>
#include <CVQString.h>
#include <CVQWaitCondition.h>
#include <VQTriggerAccess.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <set>
#include <string>
#include <sys/mman.h>
#include <sys/neutrino.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr uint64_t kMs = 1000000;
constexpr uint64_t kPatienceNs = 20000 * kMs;
constexpr int kLongest = support::kIsSanitized ? 4 << 20 : 64 << 20;
constexpr int kUnblockStatus = 77;

void require(bool isSo, int line, const char* what) {
    if (!isSo) {
        std::fprintf(stderr, "line %d: %s; errno is \"%s\"\n", line, what, std::strerror(errno));
        std::_Exit(1);
    }
}
#define REQUIRE(condition) require((condition), __LINE__, #condition)

/// More than the stack of the thread that watches has room for.
thread_local volatile char largeData[256 << 10];

enum Command : int32_t {
    ECHO,         // the same bytes, each one greater; their number is the status
    STATUS,       // `argument` is the status
    ERROR,        // `argument` is the error
    INFO,         // an Info
    ROOM,         // the next message is received with `argument` bytes of room
    HOLD,         // no reply
    PULSES,       // the pulses since the last such request
    DISCONNECTS,  // their number is the status
};

struct Request {
    int32_t command;
    int32_t argument;
};

struct Info {
    int32_t pid, tid, priority, msglen, srcmsglen, dstmsglen;
};

struct SeenPulse {
    int32_t code, value;
};

uint64_t nowNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 * kMs + static_cast<uint64_t>(now.tv_nsec);
}

void arm(int states, uint64_t ns) {
    REQUIRE(TimerTimeout(CLOCK_MONOTONIC, states, nullptr, &ns, nullptr) == 0);
}

// The server.

class Server {
public:
    explicit Server(unsigned flags) : mChannel(ChannelCreate(flags)) {
        REQUIRE(mChannel > 0);
        std::printf("%d %d\n", static_cast<int>(getpid()), mChannel);
        std::fflush(stdout);
    }

    void run() {
        for (;;) {
            arm(_NTO_TIMEOUT_RECEIVE, kPatienceNs);
            _msg_info info;
            const int room = std::exchange(mRoom, kLongest);
            const int id = MsgReceive(mChannel, mBytes.data(), room, &info);
            REQUIRE(id != -1);
            if (id != 0) {
                obey(id, info);
            } else if (!note(*reinterpret_cast<const _pulse*>(mBytes.data()))) {
                return;
            }
        }
    }

private:
    void obey(int id, const _msg_info& info) {
        Request request;
        std::memcpy(&request, mBytes.data(), sizeof request);
        const Info seen = {info.pid, info.tid, info.priority, info.msglen, info.srcmsglen, info.dstmsglen};
        switch (request.command) {
        case ECHO:
            for (int i = 0; i < info.msglen; ++i)
                ++mBytes[static_cast<std::size_t>(i)];
            REQUIRE(MsgReply(id, info.msglen, mBytes.data(), info.msglen) == 0);
            break;
        case STATUS:
            REQUIRE(MsgReply(id, request.argument, nullptr, 0) == 0);
            break;
        case ERROR:
            REQUIRE(MsgError(id, request.argument) == 0);
            break;
        case INFO:
            REQUIRE(MsgReply(id, 0, &seen, sizeof seen) == 0);
            break;
        case ROOM:
            mRoom = request.argument;
            REQUIRE(MsgReply(id, 0, nullptr, 0) == 0);
            break;
        case HOLD:
            break;
        case PULSES:
            REQUIRE(MsgReply(id, static_cast<int>(mPulses.size()), mPulses.data(),
                             static_cast<int>(mPulses.size() * sizeof mPulses[0])) == 0);
            mPulses.clear();
            break;
        case DISCONNECTS:
            REQUIRE(MsgReply(id, mDisconnects, nullptr, 0) == 0);
            break;
        default:
            REQUIRE(!"a known command");
        }
    }

    /// False for the pulse that ends the server.
    bool note(const _pulse& pulse) {
        if (pulse.code == _PULSE_CODE_DISCONNECT)
            ++mDisconnects;
        else if (pulse.code == _PULSE_CODE_UNBLOCK)
            REQUIRE(MsgReply(pulse.value.sival_int, kUnblockStatus, nullptr, 0) == 0);
        else
            mPulses.push_back({pulse.code, pulse.value.sival_int});
        return pulse.code != 0;
    }

    const int mChannel;
    int mRoom = kLongest;
    int mDisconnects = 0;
    std::vector<char> mBytes = std::vector<char>(kLongest);
    std::vector<SeenPulse> mPulses;
};

// The client.

struct Client {
    Client(int pid, int channel) : coid(ConnectAttach(0, pid, channel, _NTO_SIDE_CHANNEL, 0)) {
        REQUIRE(coid >= _NTO_SIDE_CHANNEL);
    }

    int ask(Command command, int argument = 0, void* reply = nullptr, std::size_t room = 0) const {
        const Request request = {command, argument};
        errno = 0;
        return MsgSend(coid, &request, sizeof request, reply, static_cast<int>(room));
    }

    void echo(std::size_t length, unsigned seed) const {
        std::vector<char> bytes(length < sizeof(Request) ? sizeof(Request) : length);
        const Request request = {ECHO, static_cast<int32_t>(seed)};
        std::memcpy(bytes.data(), &request, sizeof request);
        for (std::size_t i = sizeof request; i < length; ++i)
            bytes[i] = static_cast<char>(seed + i * 7);
        std::vector<char> back(bytes.size() + 1, 'x');
        REQUIRE(MsgSend(coid, bytes.data(), static_cast<int>(bytes.size()), back.data(),
                        static_cast<int>(back.size())) == static_cast<int>(bytes.size()));
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (back[i] != static_cast<char>(bytes[i] + 1))
                REQUIRE(!"each byte is one greater");
        REQUIRE(back.back() == 'x');
    }

    const int coid;
};

void tryLengths(const Client& client) {
    for (const std::size_t length : {8, 9, 4096, 65537, 1 << 20, (1 << 20) + 1, kLongest})
        client.echo(length, 11);

    Request request = {ECHO, 0x01020304};
    char* const bytes = reinterpret_cast<char*>(&request);
    const iovec sent[] = {{bytes, 1}, {bytes + 1, 0}, {bytes + 1, 7}};
    char first[3], second[5];
    const iovec room[] = {{first, sizeof first}, {second, sizeof second}};
    REQUIRE(MsgSendv(client.coid, sent, 3, room, 2) == 8);
    for (int i = 0; i < 8; ++i)
        REQUIRE((i < 3 ? first[i] : second[i - 3]) == bytes[i] + 1);

    char small[4] = {'x', 'x', 'x', 'x'};
    REQUIRE(MsgSend(client.coid, &request, sizeof request, small, 3) == 8);
    REQUIRE(small[2] == bytes[2] + 1 && small[3] == 'x');
    REQUIRE(client.ask(ROOM, 16) == 0);
    char longer[100] = {};
    std::memcpy(longer, &request, sizeof request);
    REQUIRE(MsgSend(client.coid, longer, sizeof longer, nullptr, 0) == 16);
}

void tryResults(const Client& client) {
    for (const int status : {0, 1, -2, INT_MAX, INT_MIN})
        REQUIRE(client.ask(STATUS, status) == status);
    REQUIRE(client.ask(ERROR, ENOSYS) == -1 && errno == ENOSYS);
    sched_param parameters = {};
    parameters.sched_priority = 25;
    REQUIRE(SchedSet(0, 0, SCHED_NOCHANGE, &parameters) != -1);
    Info info = {};
    REQUIRE(client.ask(INFO, 0, &info, sizeof info) == 0);
    REQUIRE(info.pid == getpid() && info.tid == gettid() && info.priority == 25);
    REQUIRE(info.msglen == sizeof(Request) && info.srcmsglen == sizeof(Request) && info.dstmsglen == sizeof info);
}

void tryPulses(const Client& client) {
    const SeenPulse sent[] = {{1, 0}, {127, -1}, {2, INT_MAX}, {3, INT_MIN}, {4, 0x12345678}};
    constexpr int kMoreUrgentThanRequests = 40;
    for (const SeenPulse& pulse : sent)
        REQUIRE(MsgSendPulse(client.coid, kMoreUrgentThanRequests, pulse.code, pulse.value) == 0);
    SeenPulse seen[8];
    REQUIRE(client.ask(PULSES, 0, seen, sizeof seen) == 5);
    for (int i = 0; i < 5; ++i)
        REQUIRE(seen[i].code == sent[i].code && seen[i].value == sent[i].value);
}

void tryTimeouts(const Client& client) {
    const uint64_t begin = nowNs();
    arm(_NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY, 30 * kMs);
    REQUIRE(client.ask(HOLD) == -1 && errno == ETIMEDOUT);
    REQUIRE(nowNs() - begin >= 30 * kMs);
}

void tryManyThreads(const Client& client) {
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < 25; ++i)
                client.echo(8 + (i * 37 + t) % 3000, t * 100 + i);
        });
    for (std::thread& thread : threads)
        thread.join();
}

void killOneThatIsConnected(int pid, int channel) {
    const pid_t child = fork();
    REQUIRE(child != -1);
    if (child == 0) {
        const Client client(pid, channel);
        client.echo(5000, 3);
        raise(SIGKILL);
    }
    int status;
    REQUIRE(waitpid(child, &status, 0) == child && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

void call(int pid, int channel) {
    killOneThatIsConnected(pid, channel);  // while this process has no thread
    const Client client(pid, channel);
    tryLengths(client);
    tryResults(client);
    tryPulses(client);
    tryTimeouts(client);
    tryManyThreads(client);
    for (const uint64_t begin = nowNs(); client.ask(DISCONNECTS) != 1; usleep(1000))
        REQUIRE(nowNs() - begin < kPatienceNs);
    std::thread killer([pid] {
        usleep(20000);
        kill(pid, SIGKILL);
    });
    REQUIRE(client.ask(HOLD) == -1 && errno == ESRCH);
    REQUIRE(client.ask(HOLD) == -1 && errno == EBADF);
    killer.join();
    REQUIRE(ConnectDetach(client.coid) == 0);
}

void unblock(int pid, int channel) {
    const Client client(pid, channel);
    arm(_NTO_TIMEOUT_REPLY, 10 * kMs);
    REQUIRE(client.ask(HOLD) == kUnblockStatus);
    REQUIRE(MsgSendPulse(client.coid, 10, 0, 0) == 0);
}

// Locks.

struct Shared {
    _sync mutex;
    _sync condition;
    uint32_t turn;
    uint32_t sum;
};

template <class T>
T* mapFile(const char* path) {
    const int file = open(path, O_RDWR | O_CLOEXEC);
    REQUIRE(file != -1);
    void* const mapped = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    REQUIRE(mapped != MAP_FAILED);
    close(file);
    return static_cast<T*>(mapped);
}

void count(const char* path, unsigned turn) {
    constexpr uint32_t kTurns = 2000;
    constexpr int kSteps = 20000;
    Shared* const shared = mapFile<Shared>(path);
    for (int i = 0; i < kSteps; ++i) {
        REQUIRE(pthread_mutex_lock(&shared->mutex) == 0);
        shared->sum = shared->sum + 1;
        REQUIRE(pthread_mutex_unlock(&shared->mutex) == 0);
    }
    REQUIRE(pthread_mutex_lock(&shared->mutex) == 0);
    while (shared->turn < kTurns) {
        if (shared->turn % 2 == turn) {
            ++shared->turn;
            REQUIRE(pthread_cond_signal(&shared->condition) == 0);
        } else {
            REQUIRE(pthread_cond_wait(&shared->condition, &shared->mutex) == 0);
        }
    }
    REQUIRE(pthread_cond_signal(&shared->condition) == 0);
    REQUIRE(pthread_mutex_unlock(&shared->mutex) == 0);
}

/// Without limit and within a time in turns.
int patienceOf(unsigned step) {
    return step % 2 == 0 ? -1 : 60000;
}

void pass(const char* path, unsigned turn) {
    SharedLocks& shared = *mapFile<SharedLocks>(path);
    for (unsigned i = 0; i < SharedLocks::kSteps; ++i) {
        REQUIRE(VQSemaphoreAccess::lock(shared.exclusive, patienceOf(i)));
        shared.sum = shared.sum + 1;
        REQUIRE(VQSemaphoreAccess::unlock(shared.exclusive) == 0);
    }
    for (unsigned i = 0; i < SharedLocks::kTurns; ++i) {
        REQUIRE(VQSemaphoreAccess::lock(shared.turns[turn], patienceOf(i)));
        REQUIRE(shared.turn % 2 == turn);
        ++shared.turn;
        REQUIRE(VQSemaphoreAccess::unlock(shared.turns[1 - turn]) == 0);
    }
    for (uint32_t& arrivals : shared.arrivals) {
        __atomic_fetch_add(&arrivals, 1, __ATOMIC_RELAXED);
        shared.barrier.wait();
        REQUIRE(__atomic_load_n(&arrivals, __ATOMIC_RELAXED) == 2);
    }
}

// Descriptors.

void show(const std::set<int>& descriptors) {
    for (const int descriptor : descriptors)
        std::printf("%d ", descriptor);
}

/// Each lock is waited for, too, for a while in vain and then until another thread lets go of it.
void useLocks() {
    static CVQMutex mutex(true, CVQMutex::RECURSIVE);
    static CVQCriticalSection section;
    static CVQBinarySemaphore semaphore(false);
    static CVQBarrier barrier(2);
    static CVQWaitCondition condition;
    static VQOSTypes::TRIGGER_HANDLE trigger;
    static bool isSignalled = false;
    REQUIRE(VQTriggerAccess::create(trigger));
    REQUIRE(mutex.lock());
    REQUIRE(section.lock() == 0);
    const int thread = ThreadCreate(
        0,
        [](void*) -> void* {
            REQUIRE(!mutex.lock(1));
            barrier.wait();
            REQUIRE(mutex.lock());
            isSignalled = true;
            REQUIRE(condition.signal() == 0);
            REQUIRE(mutex.unlock() == 0);
            REQUIRE(section.lock() == 0);
            REQUIRE(section.unlock() == 0);
            REQUIRE(semaphore.unlock() == 0);
            REQUIRE(VQTriggerAccess::signal(trigger));
            return nullptr;
        },
        nullptr, nullptr);
    REQUIRE(thread > 0);
    barrier.wait();
    while (!isSignalled)
        REQUIRE(condition.wait(mutex, 60000));
    REQUIRE(mutex.unlock() == 0);
    usleep(1000);
    REQUIRE(section.unlock() == 0);
    REQUIRE(semaphore.lock(60000));
    REQUIRE(!semaphore.lock(1));
    REQUIRE(VQTriggerAccess::wait(trigger, 60000));
    REQUIRE(!VQTriggerAccess::wait(trigger, 1));
    REQUIRE(ThreadJoin_r(thread, nullptr) == EOK);
}

void useStrings() {
    CVQString text;
    text.format("%d %s", 12, "words");
    text.append(" and more");
    REQUIRE(text == CVQString("12 words and more"));
}

void useLocksAndStrings() {
    const std::set<int> before = files::openDescriptors();
    useLocks();
    useStrings();
    const std::set<int> after = files::openDescriptors();
    show(after);
    REQUIRE(after == before);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    largeData[0] = 1;
    if (role == "serve" && argc == 3)
        Server(static_cast<unsigned>(std::atoi(argv[2]))).run();
    else if (role == "call" && argc == 4)
        call(std::atoi(argv[2]), std::atoi(argv[3]));
    else if (role == "unblock" && argc == 4)
        unblock(std::atoi(argv[2]), std::atoi(argv[3]));
    else if (role == "count" && argc == 4)
        count(argv[2], static_cast<unsigned>(std::atoi(argv[3])));
    else if (role == "pass" && argc == 4)
        pass(argv[2], static_cast<unsigned>(std::atoi(argv[3])));
    else if (role == "locks" && argc == 2)
        useLocksAndStrings();
    else
        REQUIRE(!"a known role");
}

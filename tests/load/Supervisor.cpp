#include "Supervisor.h"

#include "Report.h"
#include "Server.h"
#include "Worker.h"

#include "support/Sanitizers.h"

#include <CVQShMem.h>
#include <VQOperatingSystem.h>
#include <VQSharedMemoryAccess.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace load {
namespace {

constexpr unsigned long long kMs = 1000000, kSecond = 1000 * kMs;
constexpr unsigned long long kPatience = (support::kIsSanitized ? 120 : 30) * kSecond;

/// A segment of the library's, made here, whose object is built in it, and taken away in the end.
template <class T>
class CShared {
public:
    template <class... Arguments>
    explicit CShared(const char* name, Arguments... arguments) : mSegment(name, sizeof(T)) {
        if (mSegment.create(/*setSize*/ true) != CVQShMem::CREATED ||
            !mSegment.map(VQSharedMemoryAccess::MAPPING_READ_WRITE)) {
            std::fprintf(stderr, "load: no segment %s: %s\n", name, std::strerror(errno));
            std::exit(2);
        }
        mObject = new (mSegment.getAddress()) T(arguments...);
    }
    ~CShared() { mSegment.unlink(); }
    CShared(const CShared&) = delete;
    CShared& operator=(const CShared&) = delete;
    T& operator*() const { return *mObject; }

private:
    CVQShMem mSegment;
    T* mObject = nullptr;
};

struct SProcess {
    pid_t pid = 0;  // 0: does not run
    unsigned steps[kThreads] = {};
    unsigned long long movedNs[kThreads] = {};
};

struct SUnit {
    std::vector<int> members;
    unsigned generation = 0;
    std::unique_ptr<CShared<SMeeting>> meeting;
    unsigned long long endNs = 0;
    bool isStopping = false;
};

class CSupervisor {
public:
    explicit CSupervisor(const SOptions& options);
    ~CSupervisor();
    CSupervisor(const CSupervisor&) = delete;
    CSupervisor& operator=(const CSupervisor&) = delete;

    int run();

private:
    void spawn(int process, unsigned generation);
    void start(SUnit& unit);
    void look(SUnit& unit);
    void killAll(SUnit& unit);
    void stop(SUnit& unit);
    bool hasEnded(SUnit& unit);
    bool isOverdue(const SUnit& unit);
    void clean(int worker, unsigned generation, bool wasKilled);
    bool startServer();
    void endServer();
    void settleAll();
    void watch();
    void storm();
    void sample();
    bool reap(int process, bool isWaiting, int& status);
    unsigned pick(unsigned limit) { return static_cast<unsigned>(mRandom() % limit); }

    const SOptions mOptions;
    std::mt19937 mRandom;
    const int mErrors;  // the standard error of all processes
    CShared<SBoard> mShared;
    SBoard& mBoard;
    CReport mReport;
    SProcess mProcesses[kProcesses];
    SUnit mUnits[kUnits];
    unsigned long long mBeginNs = 0, mNextSampleNs = 0;
};

std::string boardName(int id) {
    char name[64];
    segmentName(name, id, 'b', 0, 0, 0);
    return name;
}

CSupervisor::CSupervisor(const SOptions& options)
    : mOptions(options), mRandom(options.seed), mErrors(memfd_create("load-errors", MFD_CLOEXEC)),
      mShared(boardName(getpid()).c_str()), mBoard(*mShared), mReport(mBoard) {
    mBoard.id = getpid();
    mBoard.fault = options.fault;
    mUnits[0].members = {0};
    mUnits[1].members = {1, 2};
    setenv("ENABLE_RAMWATCH", "1", 1);
    setenv("TSAN_OPTIONS", "halt_on_error=1:second_deadlock_stack=1:die_after_fork=0", 0);
    setenv("ASAN_OPTIONS", "detect_stack_use_after_return=1:quarantine_size_mb=16", 0);
}

CSupervisor::~CSupervisor() {
    for (SProcess& process : mProcesses) {
        if (process.pid != 0) {
            kill(process.pid, SIGKILL);
            waitpid(process.pid, nullptr, 0);
        }
    }
    close(mErrors);
}

void CSupervisor::spawn(int process, unsigned generation) {
    const std::string id = std::to_string(mBoard.id), index = std::to_string(process),
                      start = std::to_string(generation);
    const char* const words[] = {"load",        "--memtrace=1", "--process", id.c_str(),
                                 index.c_str(), start.c_str(),  nullptr};
    mBoard.newest[process] = generation;
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(mErrors, STDERR_FILENO);
        execv("/proc/self/exe", const_cast<char* const*>(words));
        _exit(127);
    }
    if (pid == -1) {
        mBoard.complain("no process: %s", std::strerror(errno));
        return;
    }
    SProcess& started = mProcesses[process];
    started.pid = pid;
    std::fill_n(started.movedNs, kThreads, nowNs());
}

void CSupervisor::start(SUnit& unit) {
    ++unit.generation;
    const int index = unitOf(unit.members[0]);
    char name[64];
    segmentName(name, mBoard.id, 'm', index, unit.generation, 0);
    unit.meeting = std::make_unique<CShared<SMeeting>>(name, static_cast<unsigned>(unit.members.size()) * 2);
    mBoard.stopUnit[index] = false;
    unit.isStopping = false;
    for (const int worker : unit.members) {
        SPlace& place = mBoard.place(worker, unit.generation);
        if (place.generation != 0) {
            mReport.settle(worker, place);
        }
        new (&place) SPlace();
        place.generation = unit.generation;
        spawn(worker, unit.generation);
    }
    // Some are hardly started, some live long, most in between.
    const unsigned kind = pick(8);
    const unsigned lifeMs = kind == 0 ? pick(30) : kind == 1 ? 2000 + pick(4000) : 200 + pick(1300);
    unit.endNs = nowNs() + lifeMs * kMs;
}

bool CSupervisor::reap(int process, bool isWaiting, int& status) {
    SProcess& ended = mProcesses[process];
    if (ended.pid == 0 || waitpid(ended.pid, &status, isWaiting ? 0 : WNOHANG) != ended.pid) {
        return false;
    }
    ended.pid = 0;
    return true;
}

void CSupervisor::killAll(SUnit& unit) {
    std::vector<int> victims = unit.members;
    std::shuffle(victims.begin(), victims.end(), mRandom);
    for (const int victim : victims) {
        if (mProcesses[victim].pid == 0) {
            continue;
        }
        kill(mProcesses[victim].pid, SIGKILL);
        usleep(pick(3000));
    }
    for (const int victim : victims) {
        if (mProcesses[victim].pid != 0) {
            int status = 0;
            while (!reap(victim, /*isWaiting*/ false, status)) {
                sample();  // the kernel may take half a minute to be done with it, and the server goes on
                usleep(500);
            }
            if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
                ++mReport.kills;
            } else {
                mBoard.complain("process %d ended by itself before it was killed: status %x", victim,
                                static_cast<unsigned>(status));
            }
        }
        clean(victim, unit.generation, /*wasKilled*/ true);
    }
}

/// A killed worker leaves what it was about to hand over, one segment at most; any other leaves none.
void CSupervisor::clean(int worker, unsigned generation, bool wasKilled) {
    SPlace& place = mBoard.place(worker, generation);
    mReport.wasKilled(worker, generation, wasKilled);
    place.isDead = true;
    const unsigned long long end = nowNs() + kPatience;
    // After a complaint the one who opens them may be gone.
    while (mBoard.openings[worker] != 0 && mBoard.complaints == 0) {
        if (nowNs() >= end) {
            mBoard.complain("the server does not get a segment of process %d, start %u open", worker, generation);
        }
        usleep(100);
    }
    char prefix[64];
    segmentName(prefix, mBoard.id, 's', worker, generation, 0);
    const std::string begin(prefix + 1, std::strlen(prefix) - 2);  // without slash and number
    unsigned left = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        const std::string name = entry.path().filename();
        if (name.compare(0, begin.size(), begin) == 0) {
            VQSharedMemoryAccess::unlink(("/" + name).c_str());
            ++left;
        }
    }
    mReport.segmentsLeft += left;
    if (left > (wasKilled ? 1 : 0)) {
        mBoard.complain("process %d, start %u leaks: %u segments", worker, generation, left);
    }
}

bool CSupervisor::hasEnded(SUnit& unit) {
    bool areAll = true;
    for (const int member : unit.members) {
        int status = 0;
        if (reap(member, /*isWaiting*/ false, status)) {
            if (status != 0) {
                mBoard.complain("process %d, start %u ended by itself: %s %d", member, unit.generation,
                                WIFSIGNALED(status) ? "signal" : "status",
                                WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
            } else if (!unit.isStopping) {
                mBoard.complain("process %d, start %u ended unasked", member, unit.generation);
            }
        }
        areAll = areAll && mProcesses[member].pid == 0;
    }
    return areAll;
}

void CSupervisor::stop(SUnit& unit) {
    mBoard.stopUnit[unitOf(unit.members[0])] = true;
    unit.isStopping = true;
    unit.endNs = nowNs() + 4 * kPatience;  // the kernel may take its time with their ends, too
}

/// Complains about a unit that was told to stop and runs on.
bool CSupervisor::isOverdue(const SUnit& unit) {
    const bool isLate = unit.isStopping && nowNs() >= unit.endNs;
    if (isLate) {
        mBoard.complain("unit %d, start %u does not stop", unitOf(unit.members[0]), unit.generation);
    }
    return isLate;
}

void CSupervisor::look(SUnit& unit) {
    if (hasEnded(unit)) {
        for (const int member : unit.members) {
            clean(member, unit.generation, /*wasKilled*/ false);
        }
        ++mReport.stops;
        start(unit);
    } else if (nowNs() >= unit.endNs) {
        if (!isOverdue(unit) && pick(4) == 0) {
            stop(unit);
            return;
        }
        killAll(unit);
        start(unit);
    }
}

/// Complains about threads that have not moved for long.
void CSupervisor::watch() {
    const unsigned long long limit = mOptions.fault == HANG ? 2 * kSecond : kPatience;
    const unsigned long long now = nowNs();
    for (int i = 0; i < kProcesses; ++i) {
        SProcess& process = mProcesses[i];
        for (int thread = 0; process.pid != 0 && thread < kThreads; ++thread) {
            const unsigned steps = mBoard.steps[i][thread];
            if (steps != process.steps[thread]) {
                process.steps[thread] = steps;
                process.movedNs[thread] = now;
            } else if (now - process.movedNs[thread] > limit) {
                mBoard.complain("process %d (%d), thread %d hangs", i, process.pid, thread);
                process.movedNs[thread] = now;
            }
        }
    }
}

/// A signal to a process as a whole, who has said that it expects them.
void CSupervisor::storm() {
    const int index = static_cast<int>(pick(kProcesses));
    const pid_t pid = mProcesses[index].pid;
    if (pid != 0 && mBoard.place(index, mBoard.newest[index]).pid == pid) {
        kill(pid, SIGUSR2);
    }
}

void CSupervisor::sample() {
    if (nowNs() >= mNextSampleNs) {
        mNextSampleNs = nowNs() + CReport::kSampleMs * kMs;
        mReport.sample(mProcesses[kServer].pid, (nowNs() - mBeginNs) / kMs);
    }
}

bool CSupervisor::startServer() {
    spawn(kServer, 0);
    int status = 0;
    const auto awaitLife = [&](unsigned life) {
        const unsigned long long end = nowNs() + kPatience;
        while (mBoard.serverLives < life && nowNs() < end && !reap(kServer, /*isWaiting*/ false, status)) {
            usleep(1000);
        }
        return mBoard.serverLives == life;
    };
    if (!awaitLife(1)) {
        return false;
    }
    spawn(0, 0);
    const bool isWelcome = reap(0, /*isWaiting*/ true, status) && status == 0;
    mReport.settle(0, mBoard.place(0, 0));
    mBoard.guestHasLeft = true;
    return isWelcome && awaitLife(2);
}

void CSupervisor::endServer() {
    mBoard.stopServer = true;
    const unsigned long long end = nowNs() + kPatience;
    int status = 0;
    while (!reap(kServer, /*isWaiting*/ false, status)) {
        if (nowNs() > end) {
            mBoard.complain("the server does not stop");
            return;
        }
        usleep(1000);
    }
    if (status != 0) {
        mBoard.complain("the server ended: status %x", static_cast<unsigned>(status));
    }
}

void CSupervisor::settleAll() {
    for (int worker = 0; worker < kWorkers; ++worker) {
        for (SPlace& place : mBoard.places[worker]) {
            if (place.generation != 0) {
                mReport.settle(worker, place);
            }
        }
    }
    mReport.settle(kServer, mBoard.place(kServer, 0));
}

int CSupervisor::run() {
    if (!startServer()) {
        mBoard.complain("the server does not start");
        return mReport.finish(mErrors, 0);
    }
    mBeginNs = mNextSampleNs = nowNs();
    const unsigned long long end = mBeginNs + mOptions.seconds * kSecond;
    for (SUnit& unit : mUnits) {
        start(unit);
    }
    // The kernel may take half a minute to start a process, too, and the server goes on: it is looked at as often as
    // in a run that nothing holds up.
    const unsigned long long looks = mOptions.seconds * 1000 / CReport::kSampleMs;
    while ((nowNs() < end || mReport.samples() < std::min(looks, CReport::kFewestSamples)) &&
           mBoard.complaints == 0) {
        for (SUnit& unit : mUnits) {
            look(unit);
        }
        int status = 0;
        if (reap(kServer, /*isWaiting*/ false, status)) {
            mBoard.complain("the server ended by itself: status %x", static_cast<unsigned>(status));
        }
        watch();
        storm();
        sample();
        usleep(2000);
    }
    const unsigned long long lastedMs = (nowNs() - mBeginNs) / kMs;
    for (SUnit& unit : mUnits) {
        if (!unit.isStopping) {
            stop(unit);
        }
        while (!hasEnded(unit) && !isOverdue(unit) && mBoard.complaints == 0) {
            usleep(1000);
        }
        for (const int member : unit.members) {
            if (mProcesses[member].pid == 0) {
                clean(member, unit.generation, /*wasKilled*/ false);
            }
        }
        unit.meeting.reset();
    }
    if (mProcesses[kServer].pid != 0 && mBoard.complaints == 0) {
        endServer();
        settleAll();
    }
    return mReport.finish(mErrors, lastedMs);
}

}  // namespace

int runProcess(int id, int process, unsigned generation) {
    CVQShMem segment(boardName(id).c_str(), sizeof(SBoard));
    if (!segment.attach() || !segment.map(VQSharedMemoryAccess::MAPPING_READ_WRITE)) {
        std::fprintf(stderr, "load: no board: %s\n", std::strerror(errno));
        return 1;
    }
    auto& board = *static_cast<SBoard*>(segment.getAddress());
    SPlace& place = board.place(process, generation);
    const CStormCount storm(board);
    place.pid = getpid();
    const SSelf self = {board, process, generation, place};
    if (process == kServer) {
        return runServer(self);
    }
    return generation == 0 ? runGuest(self) : runWorker(self);
}

int runLoad(const SOptions& options) {
    CSupervisor supervisor(options);
    return supervisor.run();
}

}  // namespace load

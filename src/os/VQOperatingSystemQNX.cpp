#include <VQOperatingSystem.h>

#include <CVQAsserter.h>
#include <TVQVector.h>
#include <VQSyslog.h>
#include <os/CErrnoKeeper.h>

#include <alloca.h>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <process.h>
#include <sys/neutrino.h>
#include <sys/syspage.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr char kUnit[] = "VQOperatingSystemQNX";
constexpr unsigned kLineMonotonicTime = 183;
constexpr unsigned kLineSpawn = 223;
constexpr unsigned kLineVsnprintf = 334;

constexpr unsigned long long kNsPerMs = 1000000;
constexpr unsigned long long kNoLimit = ~0ULL;
constexpr int kLastSignal = 64;
constexpr unsigned kMaxArguments = 14;

/// True when a block of `size` bytes may be taken from the stack, with room for the calls that follow.
bool fitsOnStack(std::size_t size) {
    const std::size_t needed = (size + 7) / 8 * 8 + 128;
    return needed > size && __stackavail() >= needed;
}

/// Ends each word of `text` with a zero byte, and writes where the words begin behind the first of `arguments`.
void split(char* text, char* (&arguments)[1 + kMaxArguments + 1]) {
    unsigned count = 1;
    char* rest;
    for (char* word = strtok_r(text, " ", &rest); word != nullptr && count <= kMaxArguments;
         word = strtok_r(nullptr, " ", &rest)) {
        arguments[count++] = word;
    }
    arguments[count] = nullptr;
}

bool addSignals(sigset_t& set, const int* signals, unsigned count) {
    if (signals == nullptr && count != 0) {
        errno = EFAULT;
        return false;
    }
    for (unsigned i = 0; i < count; ++i) {
        if (sigaddset(&set, signals[i]) != 0) {
            return false;
        }
    }
    return true;
}

/// The number of members, in ascending order in `numbers`; -1 when the platform refuses to tell.
int listSignals(const sigset_t& set, int* numbers) {
    int count = 0;
    for (int number = 1; number <= kLastSignal; ++number) {
        const int isMember = sigismember(&set, number);
        if (isMember == -1) {
            return -1;
        }
        if (isMember != 0) {
            numbers[count++] = number;
        }
    }
    return count;
}

template <class Call>
int withoutInterruption(Call call) {
    int result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

void removeAll(TVQVector<int>& numbers, int number) {
    for (int index; (index = numbers.find(number)) != -1;) {
        numbers.erase(index);
    }
}

}  // namespace

void VQOperatingSystem::setLastError(int error) {
    errno = error;
}

int VQOperatingSystem::getLastError() {
    return errno;
}

int VQOperatingSystem::getCurrentTID() {
    return gettid();
}

int VQOperatingSystem::getCurrentPID() {
    return getpid();
}

unsigned VQOperatingSystem::getRealTimeMs() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<unsigned>(now.tv_sec) * 1000U + static_cast<unsigned>(now.tv_nsec / 1000000);
}

void VQOperatingSystem::sleepMs(unsigned ms) {
    const unsigned long long end = getSysPageTime() + ms * kNsPerMs;
    while (ms != 0 && delay(ms) != 0) {
        // What is left is asked of the clock: `delay` tells it in whole milliseconds, and with a signal in each of
        // them that sum would never end.
        const unsigned long long now = getSysPageTime();
        ms = now < end ? static_cast<unsigned>((end - now + kNsPerMs - 1) / kNsPerMs) : 0;
    }
}

unsigned long long VQOperatingSystem::getSysPageTime() {
    // The target reads 32 bits at a time, and the kernel may count on between two reads.
    const auto& nsec = SYSPAGE_ENTRY(qtime)->nsec;
    std::uint64_t high, low;
    do {
        high = nsec >> 32;
        low = static_cast<std::uint32_t>(nsec);
    } while (VQ_UNLIKELY(nsec >> 32 != high));
    return high << 32 | low;
}

unsigned long long VQOperatingSystem::getClockValue(int clockId) {
    unsigned long long now;
    if (VQ_LIKELY(clockId == CLOCK_MONOTONIC)) {
        now = getSysPageTime();
    } else {
        std::uint64_t value;
        if (ClockTime(clockId, nullptr, &value) == -1) {
            return 0;
        }
        now = value;
    }
    return now != 0 ? now : 1;  // 0 is the failure
}

unsigned long long VQOperatingSystem::getMonotonicTime(unsigned long long* out) {
    const CErrnoKeeper keeper;
    const unsigned long long now = getClockValue(CLOCK_MONOTONIC);
    if (VQ_UNLIKELY(now == 0)) {
        doCheapAssert(kLineMonotonicTime, kUnit);
    }
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

unsigned long long VQOperatingSystem::calculateKernelTimeout(int timeoutMs) {
    if (timeoutMs < 0) {
        return kNoLimit;
    }
    const unsigned long long now = getClockValue(CLOCK_MONOTONIC);
    return now == 0 ? 0 : now + static_cast<unsigned>(timeoutMs) * kNsPerMs;
}

bool setKernelTimer(unsigned long long deadline, int flags) {
    const std::uint64_t time = deadline;
    return withoutInterruption([&] { return TimerTimeout(CLOCK_MONOTONIC, flags, nullptr, &time, nullptr); }) != -1;
}

bool VQOperatingSystem::setKernelTimeout(unsigned long long deadline, int flags) {
    return setKernelTimer(deadline, flags | static_cast<int>(TIMER_ABSTIME));
}

bool VQOperatingSystem::resetKernelTimeout() {
    return setKernelTimeout(0, 0);
}

int VQOperatingSystem::vsnprintf(char* buffer, int size, const char* format, std::va_list arguments) {
    if (buffer == nullptr && size != 0) {
        doCheapAssert(kLineVsnprintf, kUnit);
        return 0;
    }
    if (size <= 0) {
        return 0;
    }
    const int produced = std::vsnprintf(buffer, static_cast<std::size_t>(size), format, arguments);
    // Kept: vsnprintf-equal-size. Callers compare the result with the size to tell whether bytes were lost.
    return produced > size ? size - 1 : produced;
}

int VQOperatingSystem::setSignalMask(const int* signals, unsigned count, int* previous,
                                     VQOSTypes::SignalMaskMode mode) {
    sigset_t set;
    sigset_t old;
    if (sigemptyset(&set) != 0 || sigemptyset(&old) != 0 || !addSignals(set, signals, count) ||
        SignalProcmask(0, 0, mode, &set, &old) == -1) {
        return -1;
    }
    if (previous == nullptr) {
        return 0;
    }
    const int found = listSignals(old, previous);
    if (found == -1) {
        SignalProcmask_r(0, 0, VQOSTypes::SIGNAL_MASK_REPLACE, &old, nullptr);
    }
    return found;
}

int VQOperatingSystem::spawnProcess(const char* name, const char* arguments) {
    if (name == nullptr) {
        return -1;
    }
    char* words[1 + kMaxArguments + 1] = {const_cast<char*>(name)};
    if (arguments != nullptr && *arguments != '\0') {
        const std::size_t size = std::strlen(arguments) + 1;
        if (!fitsOnStack(size)) {
            doCheapAssert(kLineSpawn, kUnit);
            return -1;
        }
        split(static_cast<char*>(std::memcpy(alloca(size), arguments, size)), words);
    }
    // Kept: process-current-directory. The program is never searched for, and is told its bare name.
    const std::size_t nameSize = std::strlen(name) + 1;
    if (!fitsOnStack(nameSize + 2)) {
        return -1;
    }
    char* const path = static_cast<char*>(alloca(nameSize + 2));
    path[0] = '.';
    path[1] = '/';
    std::memcpy(path + 2, name, nameSize);
    return spawnvp(P_NOWAIT, path, words);
}

int VQOperatingSystem::joinProcess(int pid) {
    int status = 0;
    if (pid == -1 || withoutInterruption([&] { return waitpid(pid, &status, WEXITED); }) == -1) {
        return -1;
    }
    if (WIFEXITED(status)) {
        return static_cast<signed char>(
            WEXITSTATUS(status));  // Kept: process-exit-signed. 255 is -1, like an error.
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
}

int VQOperatingSystem::waitForProcesses(TVQVector<int>& pids) {
    if (pids.isEmpty()) {
        return 0;
    }
    while (!pids.isEmpty()) {
        int status = 0;
        const int pid = withoutInterruption([&] { return wait(&status); });
        if (pid == -1) {
            pids.clear();
            return -1;
        }
        removeAll(pids, pid);
        VQSyslog::logMsg(0, VQSyslog::INFO, "process %d has terminated with exit code %d", pid,
                         WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }
    return -1;  // Kept: process-wait-minus-one. No error: callers look at the log.
}

void VQOperatingSystem::waitAttachDebugger() {
}

#include <VQBacktrace.h>

#include <CVQAsserter.h>
#include <CVQString.h>
#include <VQExport.h>
#include <VQMemory.h>
#include <VQOperatingSystem.h>
#include <diag/CallingThread.h>
#include <os/CErrnoKeeper.h>
#include <sync/CVQProcessLock.h>

#include <backtrace.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr char kUnit[] = "VQBacktraceQNX";
constexpr unsigned kLineMessage = 509;
constexpr unsigned kLineDirectory = 515;
constexpr unsigned kLineExtension = 521;

constexpr int kMaxAddresses = 100;
constexpr int kAddressesPerLine = 6;
constexpr int kAddressDigits = 2 * sizeof(bt_addr_t);
constexpr int kMaxMapEntries = 50;
constexpr int kMaxMapEntriesOnStack = 27;
constexpr std::size_t kMapEntrySize = 150;
constexpr std::size_t kMapStackSize = 4096;
constexpr std::size_t kFileNameSize = 1024;
constexpr mode_t kFileMode = 0666;

static_assert(kMaxMapEntriesOnStack * kMapEntrySize <= kMapStackSize);
static_assert(sizeof(void*) != 4 || kAddressDigits == 8);

VQ_CONSTINIT std::atomic<VQBacktrace::InfoFunction> sInfoFunction{nullptr};
VQ_CONSTINIT CVQProcessLock sWriterLock;
VQ_CONSTINIT std::atomic<std::uint64_t> sWriter{0};  // the thread that holds it

/// One thread writes at a time, and is not cancelled meanwhile, as that would leave the lock behind. The thread
/// that already writes passes: waiting for itself would be for ever.
class CWriting {
public:
    CWriting() : mThread(callingThread()), mIsNested(sWriter.load(std::memory_order_relaxed) == mThread) {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mCancelState);
        if (!mIsNested) {
            sWriterLock.lock();
            sWriter.store(mThread, std::memory_order_relaxed);
        }
    }

    ~CWriting() {
        // In a child forked in between (by the info function), another thread may be the writer by now.
        std::uint64_t own = mThread;
        if (!mIsNested && sWriter.compare_exchange_strong(own, 0, std::memory_order_relaxed)) {
            sWriterLock.unlock();
        }
        pthread_setcancelstate(mCancelState, nullptr);
    }

    CWriting(const CWriting&) = delete;
    CWriting& operator=(const CWriting&) = delete;

    bool isNested() const { return mIsNested; }

private:
    const std::uint64_t mThread;
    const bool mIsNested;
    int mCancelState = PTHREAD_CANCEL_ENABLE;
};

/// Keeps a write beyond the file-size limit from ending the process: it fails with EFBIG only.
class CNoFileSizeSignal {
public:
    CNoFileSizeSignal() {
        sigset_t pending;
        sigemptyset(&pending);
        sigemptyset(&mSignal);
        sigaddset(&mSignal, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &mSignal, &mMaskBefore);
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGXFSZ) == 1;
    }

    ~CNoFileSizeSignal() {
        if (!mWasPending) {
            const timespec noWait{};
            while (sigtimedwait(&mSignal, nullptr, &noWait) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &mMaskBefore, nullptr);
    }

    CNoFileSizeSignal(const CNoFileSizeSignal&) = delete;
    CNoFileSizeSignal& operator=(const CNoFileSizeSignal&) = delete;

private:
    sigset_t mSignal;
    sigset_t mMaskBefore;
    bool mWasPending;
};

/// The calling thread's return addresses and the process's memory map, as text.
class CStackText {
public:
    CStackText() {
        bt_accessor_t accessor;
        bt_memmap_t map;
        if (bt_init_accessor(&accessor, BT_SELF) == -1) {
            return;
        }
        const bool hasMap = bt_load_memmap(&accessor, &map) != -1;
        bt_addr_t addresses[kMaxAddresses];
        formatAddresses(addresses, bt_get_backtrace(&accessor, addresses, kMaxAddresses));
        if (hasMap) {
            formatMap(map);
            bt_unload_memmap(&map);
        }
    }

    ~CStackText() { VQMemory::release(mHeapMap); }

    CStackText(const CStackText&) = delete;
    CStackText& operator=(const CStackText&) = delete;

    const char* addresses() const { return mAddresses; }

    /// Null where there is none.
    const char* map() const { return mMap; }

private:
    static constexpr std::size_t kAddressSize = kAddressDigits + 1;  // the digits and a blank
    static constexpr std::size_t kAddressesSize =
        kMaxAddresses * kAddressSize + (kMaxAddresses + kAddressesPerLine - 1) / kAddressesPerLine + 1;

    void formatAddresses(const bt_addr_t* addresses, int count) {
        char* out = mAddresses;
        for (int i = 0; i < count; ++i) {
            const char* const lineFeed = i % kAddressesPerLine == 0 ? "\n" : "";
            const auto room = static_cast<std::size_t>(mAddresses + sizeof mAddresses - out);
            out += std::snprintf(out, room, "%s%0*llX ", lineFeed, kAddressDigits,
                                 static_cast<unsigned long long>(addresses[i]));
        }
    }

    void formatMap(bt_memmap_t& map) {
        std::size_t size = sizeof mStackMap;
        char* text = mStackMap;
        if (map.count > kMaxMapEntriesOnStack) {
            map.count = std::min(map.count, kMaxMapEntries);
            size = static_cast<std::size_t>(map.count) * kMapEntrySize;
            // Not the checked form: it ends the process, and calls this unit to say why.
            mHeapMap = VQMemory::alloc(size);
            text = static_cast<char*>(mHeapMap);
        }
        if (text != nullptr) {
            // The printed text may come without a terminator, and its result says nothing.
            std::memset(text, 0, size);
            bt_sprn_memmap(&map, text, size);
            text[size - 1] = '\0';
            mMap = text;
        }
    }

    char mAddresses[kAddressesSize] = "";
    char mStackMap[kMapStackSize];
    void* mHeapMap = nullptr;
    const char* mMap = nullptr;
};

/// Writes all, or as much as the file takes.
void writeParts(int file, iovec* parts, int count) {
    while (count > 0) {
        const ssize_t written = writev(file, parts, count);
        if (written == -1 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        auto rest = static_cast<std::size_t>(written);
        for (; count > 0 && rest >= parts->iov_len; ++parts, --count) {
            rest -= parts->iov_len;
        }
        if (count > 0) {
            parts->iov_base = static_cast<char*>(parts->iov_base) + rest;
            parts->iov_len -= rest;
        }
    }
}

iovec part(const char* text) {
    return {const_cast<char*>(text), std::strlen(text)};
}

void writeFile(const char* name, bool append, const char* message, const char* identification,
               const CStackText& stack) {
    int file;
    do {
        // Kept: backtrace-no-truncate. A file that is not appended to keeps what lies behind the new text.
        file = open(name, O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : 0), kFileMode);
    } while (file == -1 && errno == EINTR);
    if (file == -1) {
        // Kept: backtrace-stdout.
        std::printf("Cannot open %s\n", name);
        std::fflush(stdout);  // the caller may be about to abort
        return;
    }

    // One call for all parts, so that records of processes which share the file follow each other whole.
    const char* const mapMargin = stack.map() != nullptr ? "\n\n" : "";
    // Kept: backtrace-libbacktrace. Readers of these files look for the words.
    iovec parts[] = {part("\n[QNX backtrace] INFO - "),
                     part(message),
                     part("\n\n"),
                     part(identification),
                     part("\n"
                          "data below is the actual callstack created with QNX libbacktrace.so\n"
                          "usable for analysis with proper project MAP file\n\n"),
                     part(stack.addresses()),
                     part(mapMargin),
                     part(stack.map() != nullptr ? stack.map() : ""),
                     part(mapMargin)};
    const CNoFileSizeSignal noSignal;
    writeParts(file, parts, static_cast<int>(std::size(parts)));
    close(file);
}

void doBacktraceInternal(const char* message, const char* directory, const char* extension, bool append,
                         VQBacktrace::InfoFunction infoFunction) {
    const CErrnoKeeper keepErrno;
    const CWriting writing;
    const CStackText stack;
    char name[kFileNameSize];
    // Kept: backtrace-name-1024. A longer name is cut.
    if (infoFunction != nullptr && !writing.isNested()) {
        CVQString baseName;
        const CVQString identification = infoFunction(baseName);
        std::snprintf(name, sizeof name, "%s/%s.%s", directory, baseName.c_str(), extension);
        writeFile(name, append, message, identification.c_str(), stack);
    } else {
        const int pid = VQOperatingSystem::getCurrentPID();
        char identification[sizeof "TID: -2147483648 PID: -2147483648"];
        std::snprintf(identification, sizeof identification, "TID: %d PID: %d", VQOperatingSystem::getCurrentTID(),
                      pid);
        std::snprintf(name, sizeof name, "%s/PID%d.%s", directory, pid, extension);
        writeFile(name, append, message, identification, stack);
    }
}

}  // namespace

void VQBacktrace::doBacktrace(const CVQString& message, const CVQString& directory, const CVQString& extension,
                              bool append) {
    doBacktraceInternal(message.c_str(), directory.c_str(), extension.c_str(), append,
                        sInfoFunction.load(std::memory_order_acquire));
}

void VQBacktrace::doBacktraceNoAlloc(const char* message, const char* directory, const char* extension,
                                     bool append) {
    if (message == nullptr) {
        doCheapAssert(kLineMessage, kUnit);
        return;
    }
    if (directory == nullptr) {
        doCheapAssert(kLineDirectory, kUnit);
        return;
    }
    if (extension == nullptr) {
        doCheapAssert(kLineExtension, kUnit);
        return;
    }
    doBacktraceInternal(message, directory, extension, append, nullptr);
}

void VQBacktrace::setInfos(InfoFunction infoFunction) {
    sInfoFunction.store(infoFunction, std::memory_order_release);
}

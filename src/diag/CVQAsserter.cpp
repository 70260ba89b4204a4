#include <CVQAsserter.h>

#include <CVQString.h>
#include <VQBacktrace.h>
#include <VQError.h>
#include <VQExport.h>
#include <VQSyslog.h>
#include <diag/CallingThread.h>
#include <os/CErrnoKeeper.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr char kAbortOnAssertion[] = "VQ_ENABLE_ABORT_ON_ASSERTION";
constexpr char kAbortOnFatalError[] = "VQ_ENABLE_ABORT_ON_FATAL_ERROR";
constexpr char kBacktraceMax[] = "VQ_ASSERTION_BACKTRACE_MAX";
constexpr char kBacktraceDir[] = "VQ_ASSERTION_BACKTRACE_DIR";
constexpr char kDefaultBacktraceDir[] = "/dev/shmem";
constexpr char kBacktraceExtension[] = "ass";
constexpr char kNoText[] = "???";

struct SAssertionCounters {
    std::atomic<unsigned> occurred;
    std::atomic<unsigned> expected;
};

VQ_CONSTINIT SAssertionCounters sAssertions{};
VQ_CONSTINIT std::atomic<int> sBacktraceCount{0};

/// VQ_ASSERTION_BACKTRACE_MAX as it stood when it was first needed. Several threads may read it then; the first
/// result stays. No guard variable, as a child forked during the reading would wait for it for ever.
int backtraceLimit() {
    constexpr std::int64_t kUnread = INT64_MIN;
    VQ_CONSTINIT static std::atomic<std::int64_t> sLimit{kUnread};

    std::int64_t limit = sLimit.load(std::memory_order_relaxed);
    if (limit == kUnread) {
        const auto current = static_cast<int>(VQPrivate::getMaxNumOfBacktraces());
        if (sLimit.compare_exchange_strong(limit, current, std::memory_order_relaxed)) {
            limit = current;
        }
    }
    return static_cast<int>(limit);
}

/// callingThread() while the thread reports an assertion, so that an assertion which the report itself raises is
/// recognised; in a child forked meanwhile it is nobody's number. The model is the one that allocates nothing on a
/// thread's first access.
VQ_CONSTINIT thread_local std::uint64_t sReporting __attribute__((tls_model("initial-exec"))) = 0;

class CReporting {
public:
    CReporting() : mBefore(sReporting), mThread(callingThread()) { sReporting = mThread; }
    ~CReporting() { sReporting = mBefore; }
    CReporting(const CReporting&) = delete;
    CReporting& operator=(const CReporting&) = delete;

    /// False inside another report of the same thread.
    bool isFirst() const { return mBefore != mThread; }

private:
    const std::uint64_t mBefore;
    const std::uint64_t mThread;
};

}  // namespace

unsigned VQPrivate::getMaxNumOfBacktraces() {
    const char* const text = std::getenv(kBacktraceMax);
    int limit = 0;
    if (text == nullptr || std::sscanf(text, "%d", &limit) != 1) {
        return 0;
    }
    return static_cast<unsigned>(limit);
}

void CVQAsserter::setExpectedAssertions(unsigned count) {
    sAssertions.expected.store(count, std::memory_order_relaxed);
}

unsigned CVQAsserter::getExpectedAssertions() {
    return sAssertions.expected.load(std::memory_order_relaxed);
}

// Kept: assert-occured-name. Test set-ups call both by this spelling.
void CVQAsserter::setOccuredAssertions(unsigned count) {
    sAssertions.occurred.store(count, std::memory_order_relaxed);
}

unsigned CVQAsserter::getOccuredAssertions() {
    return sAssertions.occurred.load(std::memory_order_relaxed);
}

bool CVQAsserter::logAssertion(unsigned line, const char* file, const char* text) {
    const unsigned before = sAssertions.occurred.fetch_add(1, std::memory_order_relaxed);
    if (getExpectedAssertions() > before) {
        return false;
    }
    const CErrnoKeeper keepErrno;
    if (text != nullptr) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "%s:%u: ASSERTION \"%s\" failed", file, line, text);
        std::fprintf(stderr, "\n%s:%u: ASSERTION \"%s\" failed\n", file, line, text);
    } else {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "%s:%u: ASSERTION failed", file, line);
        std::fprintf(stderr, "\n%s:%u: ASSERTION failed\n", file, line);
    }
    return true;
}

void CVQAsserter::logFatalError(unsigned line, const char* file, const char* text) {
    const CErrnoKeeper keepErrno;
    // Kept: fatal-occured-text. Log readers match the word as it is spelt here.
    if (text != nullptr) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "%s:%u: FATAL ERROR \"%s\" occured", file, line, text);
        std::fprintf(stderr, "\n%s:%u: FATAL ERROR \"%s\" occured\n", file, line, text);
    } else {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "%s:%u: FATAL ERROR occured", file, line);
        std::fprintf(stderr, "\n%s:%u: FATAL ERROR occured\n", file, line);
    }
}

void doAssert(unsigned line, const char* file, const char* text) {
    if (!CVQAsserter::logAssertion(line, file, text)) {
        return;
    }
    const CErrnoKeeper keepErrno;
    const char* const shownText = text != nullptr ? text : kNoText;
    // Kept: assert-two-forms. The first form is for people, this one for the tools that collect failures.
    VQSyslog::logMsg(0, VQSyslog::CRITICAL, "ASSERTION \"%s\" failed in %s %u", shownText, file, line);
    if (std::getenv(kAbortOnAssertion) != nullptr) {
        std::abort();
    }

    const CReporting reporting;
    if (!reporting.isFirst()) {
        return;
    }
    // Kept: assert-negative-limit. A negative limit is below every count.
    const int limit = backtraceLimit();
    if (limit != 0 && limit <= sBacktraceCount.load(std::memory_order_relaxed)) {
        return;
    }
    const char* const configuredDir = std::getenv(kBacktraceDir);
    const CVQString directory(configuredDir != nullptr ? configuredDir : kDefaultBacktraceDir);
    const CVQString extension(kBacktraceExtension);
    CVQString message;
    message.format("ASSERTION \"%s\" failed in %s %u", shownText, file, line);
    VQBacktrace::doBacktrace(message, directory, extension, true);
    sBacktraceCount.fetch_add(1, std::memory_order_relaxed);
}

void doCheapAssert(unsigned line, const char* file) {
    doAssert(line, file, nullptr);
}

void doFatalError(int line, const char* file, const char* text) {
    CVQAsserter::logFatalError(static_cast<unsigned>(line), file, text);
    // Kept: fatal-line-formats. The critical line prints the line number signed.
    if (std::getenv(kAbortOnFatalError) != nullptr) {
        // Kept: fatal-abort-quotes. This form always has the quoted text.
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "%s:%d: FATAL ERROR \"%s\" occured", file, line,
                         text != nullptr ? text : kNoText);
        std::abort();
    }
    if (text != nullptr) {
        VQError::criticalError(0, "%s:%d: FATAL ERROR \"%s\" occured", file, line, text);
    }
    VQError::criticalError(0, "%s:%d: FATAL ERROR occured", file, line);
}

void doCheapFatalError(int line, const char* file) {
    doFatalError(line, file, nullptr);
}

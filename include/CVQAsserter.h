// CVQAsserter: broken expectations (assertions) and states without a way on (fatal errors), reported at run time.
//   Use      a check site passes its line and its unit's base name: doCheapAssert(kLineInit, kUnit). Both are
//            identifiers in reports: a check keeps its number wherever its code moves. A check that holds costs
//            its own test only; the calls are out of line and marked as unlikely.
//   Steps    an assertion is counted; unless it was expected, it goes to the system log (severity error), to
//            standard error, and to the log again (severity critical). Then VQ_ENABLE_ABORT_ON_ASSERTION in the
//            environment aborts the process; without it the thread's backtrace is appended to a file, and the
//            caller goes on. A fatal error is reported in the same places and ends the process: through
//            VQError::criticalError, or by abort() where VQ_ENABLE_ABORT_ON_FATAL_ERROR is in the environment.
//            Of these two variables only presence counts.
//   Files    VQBacktrace writes them into VQ_ASSERTION_BACKTRACE_DIR (read each time; default /dev/shmem) with the
//            extension "ass". VQ_ASSERTION_BACKTRACE_MAX, read once, limits their number: 0, absent or not a number
//            is no limit. The message in the file is cut at 256 bytes.
//   Errors   none. errno is left as it was. A null `text` has its own form; `file` is printed as it is.
//   Threads  any thread, before main, during exit and in a forked child; not from a signal handler, as strings are
//            built. No assertion is lost from the count. Threads that assert at the same moment may each find the
//            limit not yet reached and write their file.
//   Nesting  an assertion that is raised while the same thread reports another one (the backtrace's info function
//            or a string asserts) is counted, logged and, if so asked, aborts like any other, but has no backtrace.
//   Kept     assert-occured-name: the accessors are spelt with a single "r".
//            fatal-occured-text: so is the word in the fatal-error texts.
//            assert-two-forms: an assertion is logged twice, in two forms and with two severities.
//            fatal-line-formats: "%u" in CVQAsserter's lines, "%d" in the critical fatal-error line.
//            fatal-abort-quotes: the aborting fatal error always quotes a text, "???" where there is none.
//            assert-negative-limit: a negative VQ_ASSERTION_BACKTRACE_MAX means no file at all.
#pragma once

#include <VQExport.h>

extern "C" {

/// Reports a broken expectation; `text` (may be null) is usually the failed expression. Returns unless aborting.
VQ_EXPORT VQ_COLD void doAssert(unsigned line, const char* file, const char* text);

/// The same without a text.
VQ_EXPORT VQ_COLD void doCheapAssert(unsigned line, const char* file);

/// Reports a state without a way on and ends the process; `text` may be null.
[[noreturn]] VQ_EXPORT VQ_COLD void doFatalError(int line, const char* file, const char* text);

/// The same without a text.
[[noreturn]] VQ_EXPORT VQ_COLD void doCheapFatalError(int line, const char* file);

}  // extern "C"

class VQ_EXPORT CVQAsserter {
public:
    CVQAsserter() = delete;

    /// The first `count` assertions, counted from the last setOccuredAssertions, are silent and have no effect but
    /// their count. 0 reports every one.
    static void setExpectedAssertions(unsigned count);
    static unsigned getExpectedAssertions();

    // Kept: assert-occured-name. Test set-ups everywhere call it by this spelling.
    static void setOccuredAssertions(unsigned count);
    static unsigned getOccuredAssertions();

    /// Counts the assertion. False when it was expected; otherwise the first log line and the line on standard
    /// error are written, and the caller handles it further.
    static bool logAssertion(unsigned line, const char* file, const char* text);

    /// The first log line of a fatal error, then, as its last act, the line on standard error.
    static void logFatalError(unsigned line, const char* file, const char* text);
};

namespace VQPrivate {

/// VQ_ASSERTION_BACKTRACE_MAX as it stands in the environment now; 0 when it is absent or not a number.
VQ_EXPORT unsigned getMaxNumOfBacktraces();

}  // namespace VQPrivate

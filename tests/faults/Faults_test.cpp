// Every call that the library makes of the platform, failing once with each error that it can give: the stated result
// and report of every operation that makes it. And that no call is forgotten.
#include "CallSites.h"
#include "Faults.h"
#include "support/ChildProcess.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace {

using faults::Arm;
using faults::Row;

std::vector<Row> allRows() {
    std::vector<Row> all;
    for (auto* room :
         {faults::syncRows, faults::osRows, faults::shmRows, faults::fileRows, faults::diagRows, faults::otherRows})
        for (Row& row : room())
            all.push_back(std::move(row));
    return all;
}

std::vector<std::string> allUnits() {
    std::set<std::string> units;
    for (const Row& row : allRows())
        units.insert(row.unit);
    // First: it prepares for forks once in a process.
    std::vector<std::string> ordered = {"CVQProcessLock"};
    units.erase(ordered.front());
    ordered.insert(ordered.end(), units.begin(), units.end());
    return ordered;
}

/// Without what makes names a process's own: "/marlix-test-12-3" is "/marlix-test", "process 12" is "process ".
std::string withoutNumbers(std::string text) {
    for (const std::string name : {"/marlix-test", "process "})
        for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos;) {
            at += name.size();
            const std::size_t end = text.find_first_not_of("-0123456789", at);
            text.erase(at, end == std::string::npos ? end : end - at);
        }
    return text;
}

/// " | Unit:line" for both lines of an assertion, " | severity text" for any other.
std::string reportsIn(const std::vector<support::LoggedRecord>& records) {
    static const std::string kTail = ": ASSERTION failed";
    std::string reports, second;
    for (const support::LoggedRecord& record : records) {
        const std::string prefix = "pid " + std::to_string(record.pid) + ": ";
        const bool hasPrefix = record.text.compare(0, prefix.size(), prefix) == 0;
        const std::string text = hasPrefix ? record.text.substr(prefix.size()) : record.text;
        if (record.severity == 1 && text == second) {
            second.clear();
            continue;
        }
        const std::size_t tail = text.size() < kTail.size() ? 0 : text.size() - kTail.size();
        if (record.severity == 2 && tail != 0 && text.compare(tail, kTail.size(), kTail) == 0) {
            const std::string site = text.substr(0, tail);
            const std::size_t colon = site.rfind(':');
            second = "ASSERTION \"???\" failed in " + site.substr(0, colon) + ' ' + site.substr(colon + 1);
            reports += " | " + site;
        } else {
            reports += " | " + std::to_string(record.severity) + ' ' + text;
        }
    }
    return withoutNumbers(second.empty() ? reports : reports + " (no second line)");
}

std::string expanded(const char* stated, int error) {
    std::string text;
    for (; *stated != '\0'; ++stated) {
        switch (*stated) {
        case '@':
            text += faults::errorName(error);
            break;
        case '#':
            text += std::to_string(error);
            break;
        case '?':
            text += std::strerror(error);
            break;
        default:
            text += *stated;
        }
    }
    return text;
}

std::string endOf(const support::ChildResult& result) {
    if (result.exited)
        return "exit " + std::to_string(result.exitCode);
    const char* const name = result.timedOut ? "timed out" : sigabbrev_np(result.signal);
    return std::string("signal ") + (name != nullptr ? name : "?");
}

class AnyFaults : public testing::Test {
protected:
    AnyFaults() { CVQAsserter::setOccuredAssertions(0); }

    /// How many faults were tried.
    int tryAllOf(const std::string& unit) {
        int tried = 0;
        for (const Row& row : allRows()) {
            if (row.unit != unit)
                continue;
            SCOPED_TRACE(row.line);
            const std::vector<int>& errors = row.errors.empty() ? faults::callNamed(row.call).errors : row.errors;
            for (const int error : errors) {
                tryOne(row, error);
                ++tried;
            }
        }
        return tried;
    }

private:
    void tryOne(const Row& row, int error) {
        const bool isInterruption = error == EINTR && row.interrupted != nullptr;
        const Arm arm(row.call, error, row.nth, isInterruption ? 2 : 1);
        mLog.clear();
        std::string found;
        if (row.ends)
            found = endOf(support::runInChild([&] { row.act(arm); }));
        else
            found = row.act(arm);
        found += reportsIn(mLog.records());
        EXPECT_EQ(expanded(isInterruption ? row.interrupted : row.stated, error), found)
            << row.call << " with " << faults::errorName(error);
        EXPECT_EQ(isInterruption ? 2 : 1, Arm::hits())
            << row.call << " with " << faults::errorName(error) << ": how often the call was met";
    }

    support::SlogCapture mLog;
    support::ScopedEnvironment mNoBacktraces{"VQ_ASSERTION_BACKTRACE_MAX", "-1"};
};

class Faults : public AnyFaults, public testing::WithParamInterface<std::string> {};

}  // namespace

TEST_P(Faults, GiveTheStatedResultsAndReports) {
    EXPECT_LT(0, tryAllOf(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Of, Faults, testing::ValuesIn(allUnits()), [](const auto& unit) { return unit.param; });

namespace {

/// Calls that have no row, and why.
const std::map<std::string, std::string> kNoFault = {
    {"abort", "does not return"},
    {"exit", "does not return"},
    {"_Exit", "does not return"},
    {"clock_gettime", "of the two clocks that are always there, into an object of the caller's: no error is left"},
    {"dirfd", "of an open directory: no error is left"},
    {"fileno", "of an open stream: no error is left"},
    {"ferror", "has no errors"},
    {"free", "has no errors"},
    {"fprintf", "of a report's last copy, on standard error: there is nobody left to tell"},
    {"fputs", "as fprintf, which compilers turn into it"},
    {"fputc", "as fprintf, which compilers turn into it"},
    {"printf", "of the words for people on standard output, whose loss is none of the program's"},
    {"puts", "as printf, which compilers turn into it"},
    {"putchar", "as printf, which compilers turn into it"},
    {"getenv", "has no errors; null is a variable that is not set"},
    {"getpid", "has no errors"},
    {"gettid", "has no errors"},
    {"time", "without an object to fill has no errors"},
    {"sched_yield", "has no errors"},
    {"sysconf", "of the size of a page has no errors"},
    {"delay", "has no errors; what is left after a signal is tested with VQOperatingSystem::sleepMs"},
    {"snprintf", "of numbers and names into memory: the formats have no errors"},
    {"__isoc99_sscanf", "reads memory; a text that is no number is tested with the limit of backtraces"},
    {"sscanf", "reads memory; a text that is no number is tested with the limit of backtraces"},
    {"pthread_setcancelstate", "with one of its two states has no errors"},
    {"pthread_sigmask", "with one of its three constants has no errors"},
    {"sigpending", "into an object of the caller's has no errors"},
    {"round", "has no errors"},
    {"strtoul", "reads memory; what is no number is tested with the start-up options"},
    {"strtol", "as sscanf"},
    {"__stackavail", "has no errors; too little is tested with VQOperatingSystem::spawnProcess"},
};

/// Calls of one unit that have no row there, and why.
const std::map<std::string, std::string> kNoFaultOfUnit = {
    {"CVQProcessLock SyncMutexUnlock_r", "in a forked child, the one case, it is tested with CVQProcessLock"},
    {"CLogicalTimerManager SyncMutexUnlock_r", "of a mutex that the thread holds: no error is left"},
};

/// Lines that make a call which has no row, or none with some of its errors, and why.
struct Exempt {
    const char* file;
    const char* text;
    const char* call;
    std::vector<int> errors;
    const char* why;
};

const char* const kHeld = "of a mutex that the thread holds: no error is left";
const char* const kOnlyTimeout = "of the barrier's own, which are whole: only a time-out that was armed is left";
const char* const kTraced = "of traced memory, which a process settles for at its start; VQMemory's tests have it";

const std::vector<Exempt> kNoFaultAt = {
    {"CVQBarrier.cpp",
     "while (pthread_mutex_lock(&mHandle.mutex) == ETIMEDOUT) {",
     "SyncMutexLock_r",
     {EAGAIN, EDEADLK, EINVAL},
     kOnlyTimeout},
    {"CVQBarrier.cpp",
     "pthread_cond_wait(&mHandle.condition, &mHandle.mutex);",
     "pthread_cond_wait",
     {EAGAIN, EFAULT, EINVAL, EPERM},
     kOnlyTimeout},
    {"CVQBarrier.cpp", "pthread_mutex_unlock(&mHandle.mutex);", "SyncMutexUnlock_r", {EINVAL, EPERM}, kHeld},
    {"CVQBarrier.cpp",
     "pthread_cond_broadcast(&mHandle.condition);",
     "pthread_cond_broadcast",
     {EFAULT, EINVAL},
     "of the barrier's own condition: no error is left"},
    {"CVQCriticalSection.h",
     "int lock() { return pthread_mutex_lock(&mSync); }",
     "SyncMutexLock_r",
     {EAGAIN, EDEADLK, EINVAL},
     "of the library's own sections, which are whole and locked once; users have their own copy of the function, "
     "whose results are tested with CVQCriticalSection"},
    {"CVQCriticalSection.h",
     "int unlock() { return pthread_mutex_unlock(&mSync); }",
     "SyncMutexUnlock_r",
     {EINVAL, EPERM},
     "as lock"},
    {"CVQMutex.h",
     "int unlock() { return pthread_mutex_unlock(this); }",
     "SyncMutexUnlock_r",
     {EINVAL, EPERM},
     "of users, who have their own copy; its results are tested with CVQMutex"},
    {"VQMemory.cpp",
     "return data.afterAllocation(std::malloc(wholeSize), size, data);",
     "malloc",
     {ENOMEM},
     kTraced},
    {"VQMemory.cpp",
     "return data.afterAllocation(std::realloc(rawBlock, wholeSize), size, data);",
     "realloc",
     {ENOMEM},
     kTraced},
    {"VQMutexAccessQNX.cpp",
     "pthread_mutex_lock(&mutex);",
     "SyncMutexLock_r",
     {EAGAIN, EDEADLK, EINVAL, ETIMEDOUT},
     "of a mutex that was made just before, free and with no time-out armed; that making it failed is reported"},
    {"VQOperatingSystemQNX.cpp",
     "SignalProcmask_r(0, 0, VQOSTypes::SIGNAL_MASK_REPLACE, &old, nullptr);",
     "SignalProcmask_r",
     {EAGAIN, EFAULT, EINVAL, EPERM, ESRCH},
     "puts back what a failure had changed; that failure's report stands"},
    {"VQSemaphoreAccessQNX.cpp",
     "pthread_mutex_destroy(&handle.mutex);",
     "pthread_mutex_destroy",
     {EBUSY, EINVAL},
     "of a mutex that was made just before and that nobody else knows: no error is left"},
    {"VQSemaphoreAccessQNX.cpp",
     "pthread_mutex_lock(&handle.mutex);",
     "SyncMutexLock_r",
     {EAGAIN, EDEADLK, EINVAL, ETIMEDOUT},
     "only after a wait that was refused, whose error stands; what comes of the second lock is dropped"},
};

const Exempt* exemptAt(const faults::Site& site) {
    const std::string file = site.first.substr(0, site.first.find(':'));
    const auto found = std::find_if(kNoFaultAt.begin(), kNoFaultAt.end(), [&](const Exempt& exempt) {
        return exempt.file == file && exempt.call == site.second && exempt.text == faults::textAt(site);
    });
    return found != kNoFaultAt.end() ? &*found : nullptr;
}

bool isExemptIn(const std::string& unit, const std::string& call) {
    return kNoFaultOfUnit.count(unit + ' ' + call) != 0 ||
           std::any_of(kNoFaultAt.begin(), kNoFaultAt.end(),
                       [&](const Exempt& exempt) { return exempt.file == unit + ".cpp" && exempt.call == call; });
}

/// What is data, or works on memory alone, or comes from the compiler.
bool isNoCall(const std::string& symbol) {
    static const char* const kBeginnings[] = {
        "__asan",   "__tsan", "__ubsan",   "__sanitizer", "__gcov",  "__cxa",  "__aeabi",     "__stack_chk",
        "_GLOBAL_", "__cpu",  "__dso",     "__popcount",  "_Unwind", "__tls",  "_ZSt",        "__errno_location",
        "_ZNSt",    "_ZNKSt", "_ZTV",      "_ZTI",        "_Zn",     "_Zd",    "__libc_sin",  "mem",
        "__mem",    "__str",  "__atomic_", "__sync",      "std",     "__gnu",  "__nto_qtime", "__nto_owner",
        "_argc",    "_argv",  "__div",     "__udiv",      "__mod",   "__umod", "__clz",       "__ctz"};
    static const std::set<std::string> kStrings = {"strchr",  "strcmp",    "strlen",   "strncmp",
                                                   "strnlen", "strrchr",   "strtok_r", "strcpy",
                                                   "stpcpy",  "rawmemchr", "bcmp"};
    return kStrings.count(symbol) != 0 ||
           std::any_of(std::begin(kBeginnings), std::end(kBeginnings), [&](const char* beginning) {
               return symbol.compare(0, std::strlen(beginning), beginning) == 0;
           });
}

}  // namespace

// The list of what the objects leave open is made by the build: "unit symbol" lines.
TEST(FaultTables, HaveARowForEachCallOfEachUnit) {
    std::map<std::string, std::string> nameOfSymbol;
    for (const faults::Call& call : faults::calls())
        nameOfSymbol[call.symbol] = call.name;
    std::set<std::pair<std::string, std::string>> rows;
    for (const Row& row : allRows())
        rows.emplace(row.unit, row.call);

    std::ifstream list(MARLIX_OPEN_SYMBOLS);
    ASSERT_TRUE(list.is_open()) << MARLIX_OPEN_SYMBOLS;
    std::string unit, symbol;
    int looked = 0;
    while (list >> unit >> symbol) {
        const auto known = nameOfSymbol.find(symbol);
        if (known == nameOfSymbol.end()) {
            EXPECT_TRUE(isNoCall(symbol) || kNoFault.count(symbol) != 0)
                << unit << " calls " << symbol << ", which has neither a row nor a reason";
            continue;
        }
        ++looked;
        EXPECT_TRUE(rows.count({unit, known->second}) != 0 || isExemptIn(unit, known->second))
            << unit << " calls " << known->second << ": a row, or else a reason";
    }
    EXPECT_LT(100, looked) << "the list is not what it should be";
}

// Where the table above could be content with a row for another place of the same unit.
TEST_F(AnyFaults, AreMetAtEachCallSiteWithEachError) {
    if (!faults::canTellSites())
        GTEST_SKIP() << "optimised code calls from elsewhere than its source text does";
    // Some of it is done once in a process, which is not to be this one.
    const support::ChildResult child = support::runInChild([&] {
        for (const std::string& unit : allUnits())
            tryAllOf(unit);
    });
    EXPECT_EQ("exit 0", endOf(child)) << child.out;
    const std::set<faults::Site> sites = faults::sitesOfLibrary();
    EXPECT_LT(100u, sites.size()) << "the list is not what it should be";
    std::map<faults::Site, std::set<int>> given = faults::errorsGivenAt(sites);
    std::set<const Exempt*> used;
    for (const faults::Site& site : sites) {
        std::string notGiven, notExempt;
        for (const int error : faults::callNamed(site.second).errors)
            if (given[site].count(error) == 0)
                notGiven += ' ' + faults::errorName(error);
        if (const Exempt* const exempt = exemptAt(site); exempt != nullptr) {
            used.insert(exempt);
            for (const int error : exempt->errors)
                notExempt += ' ' + faults::errorName(error);
        }
        EXPECT_EQ(notExempt, notGiven) << site.second << " in " << site.first << ": " << faults::textAt(site);
    }
    EXPECT_EQ(kNoFaultAt.size(), used.size()) << "a reason for what is no longer there";
}

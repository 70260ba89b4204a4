// Every call that the library makes of the platform, failing once with each error that it can give: the stated result
// and report of every operation that makes it. And that no call is forgotten.
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

/// The names of shared memory without what makes them a process's own: "/marlix-test-12-3" is "/marlix-test".
std::string withoutNumbers(std::string text) {
    static const std::string kName = "/marlix-test";
    for (std::size_t at = 0; (at = text.find(kName, at)) != std::string::npos;) {
        at += kName.size();
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

class Faults : public testing::TestWithParam<std::string> {
protected:
    Faults() { CVQAsserter::setOccuredAssertions(0); }

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

}  // namespace

TEST_P(Faults, GiveTheStatedResultsAndReports) {
    int tried = 0;
    for (const Row& row : allRows()) {
        if (row.unit != GetParam())
            continue;
        SCOPED_TRACE(row.line);
        const std::vector<int>& errors = row.errors.empty() ? faults::callNamed(row.call).errors : row.errors;
        for (const int error : errors) {
            tryOne(row, error);
            ++tried;
        }
    }
    EXPECT_LT(0, tried);
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
    {"CVQBarrier SyncMutexUnlock_r", "of a mutex that the thread holds: no error is left"},
    {"CVQBarrier pthread_cond_broadcast", "of the barrier's own condition: no error is left"},
    {"CVQProcessLock SyncMutexUnlock_r", "in a forked child, the one case, it is tested with CVQProcessLock"},
    {"CLogicalTimerManager SyncMutexUnlock_r", "of a mutex that the thread holds: no error is left"},
    {"VQOperatingSystemQNX SignalProcmask_r", "puts back what a failure had changed; that failure's report stands"},
};

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
        EXPECT_EQ(1u, rows.count({unit, known->second}) + kNoFaultOfUnit.count(unit + ' ' + known->second))
            << unit << " calls " << known->second << ": a row, or else a reason";
    }
    EXPECT_LT(100, looked) << "the list is not what it should be";
}

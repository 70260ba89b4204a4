// AssertionLog: the assertions that a piece of a test raises, by unit and line, in order.
//   Shape    "Unit:line" for each assertion with both its log lines; whatever else is logged stands there in full.
//   Errors   an assertion that nobody asked for fails the test at the end of the scope.
//   Threads  make it and ask it on the test's thread; any thread may assert.
// While it lives, assertions leave no backtrace files (where no assertion of the process had left one before).
#pragma once

#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace support {

class AssertionLog {
public:
    AssertionLog() = default;
    AssertionLog(const AssertionLog&) = delete;
    AssertionLog& operator=(const AssertionLog&) = delete;
    ~AssertionLog() {
        EXPECT_EQ(std::vector<std::string>(), takeSites()) << "assertions that the test did not expect";
        CVQAsserter::setOccuredAssertions(0);
    }

    /// What was raised and logged since the beginning or the last call.
    std::vector<std::string> takeSites() {
        static const std::string kTail = ": ASSERTION failed";
        std::vector<std::string> sites;
        std::string secondLine;
        for (const LoggedRecord& record : mLog.records()) {
            const std::string prefix = "pid " + std::to_string(record.pid) + ": ";
            const bool hasPrefix = record.text.compare(0, prefix.size(), prefix) == 0;
            const std::string text = hasPrefix ? record.text.substr(prefix.size()) : record.text;
            const std::size_t tail = text.size() < kTail.size() ? 0 : text.size() - kTail.size();
            if (record.severity == 1 && text == secondLine) {
                sites.back().erase(sites.back().size() - kIncomplete.size());
                secondLine.clear();
            } else if (record.severity == 2 && tail != 0 && text.compare(tail, kTail.size(), kTail) == 0) {
                const std::string site = text.substr(0, tail);
                const std::size_t colon = site.rfind(':');
                secondLine = "ASSERTION \"???\" failed in " + site.substr(0, colon) + ' ' + site.substr(colon + 1);
                sites.push_back(site + kIncomplete);
            } else {
                sites.push_back(text);
            }
        }
        mLog.clear();
        return sites;
    }

private:
    inline static const std::string kIncomplete = " without its second line";

    SlogCapture mLog;
    ScopedEnvironment mNoBacktraces{"VQ_ASSERTION_BACKTRACE_MAX", "-1"};
};

}  // namespace support

// Reports: the assertions that a piece of a container's test raises, with their texts, to the byte.
//   Shape    the first log line of each, as `assertion` writes it; whatever else is logged stands there in full.
//   Errors   an assertion that nobody asked for fails the test at the end of the scope.
//   Threads  make it and ask it on the test's thread.
#pragma once

#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"

#include <CVQAsserter.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

inline std::string assertion(const std::string& file, unsigned line, const std::string& text) {
    return file + ':' + std::to_string(line) + ": ASSERTION \"" + text + "\" failed";
}

class Reports {
public:
    Reports() = default;
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;
    ~Reports() {
        EXPECT_EQ(std::vector<std::string>(), take()) << "reports that the test did not expect";
        CVQAsserter::setOccuredAssertions(0);
    }

    /// What was reported since the beginning or the last call.
    std::vector<std::string> take() {
        std::vector<std::string> reports;
        for (const support::LoggedRecord& record : mLog.records()) {
            const std::string prefix = "pid " + std::to_string(record.pid) + ": ";
            const std::string text = record.text.compare(0, prefix.size(), prefix) == 0
                                         ? record.text.substr(prefix.size())
                                         : "no prefix: " + record.text;
            if (record.severity != 1 || text.compare(0, 10, "ASSERTION ") != 0)
                reports.push_back(text);
        }
        mLog.clear();
        return reports;
    }

private:
    support::SlogCapture mLog;
    support::ScopedEnvironment mNoBacktraces{"VQ_ASSERTION_BACKTRACE_MAX", "-1"};
};

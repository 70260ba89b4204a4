// CStopwatch: adds up the time of the scopes that it is given.
#pragma once

#include <chrono>

class CStopwatch {
public:
    using Clock = std::chrono::steady_clock;

    class CScope {
    public:
        explicit CScope(CStopwatch& watch) : mWatch(watch), mBegin(Clock::now()) {}
        CScope(const CScope&) = delete;
        CScope& operator=(const CScope&) = delete;
        ~CScope() { mWatch.mTotal += Clock::now() - mBegin; }

    private:
        CStopwatch& mWatch;
        Clock::time_point mBegin;
    };

    unsigned long long getMicros() const {
        return static_cast<unsigned long long>(
            std::chrono::duration_cast<std::chrono::microseconds>(mTotal).count());
    }

private:
    Clock::duration mTotal{};
};

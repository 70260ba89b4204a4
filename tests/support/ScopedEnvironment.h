// ScopedEnvironment: changes one environment variable for a scope and puts back what was there.
//   Threads  one thread at a time, as the environment itself.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace support {

class ScopedEnvironment {
public:
    /// No value removes the variable.
    ScopedEnvironment(std::string name, const std::optional<std::string>& value) : mName(std::move(name)) {
        if (const char* before = std::getenv(mName.c_str()))
            mBefore = before;
        put(value);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() { put(mBefore); }

private:
    void put(const std::optional<std::string>& value) const {
        if (value)
            setenv(mName.c_str(), value->c_str(), 1);
        else
            unsetenv(mName.c_str());
    }

    std::string mName;
    std::optional<std::string> mBefore;
};

}  // namespace support

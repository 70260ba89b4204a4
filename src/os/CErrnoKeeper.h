// CErrnoKeeper: puts errno back at the end of a scope. A report or a clean-up between a failed call and its caller
// must not replace the reason that the caller is about to read.
#pragma once

#include <cerrno>

class CErrnoKeeper {
public:
    CErrnoKeeper() : mError(errno) {}
    ~CErrnoKeeper() { errno = mError; }
    CErrnoKeeper(const CErrnoKeeper&) = delete;
    CErrnoKeeper& operator=(const CErrnoKeeper&) = delete;

private:
    const int mError;
};

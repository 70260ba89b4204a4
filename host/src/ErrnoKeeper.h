// ErrnoKeeper: leaves errno as it was, whatever the calls in between did to it.
#pragma once

#include <errno.h>

namespace host {

class ErrnoKeeper {
public:
    ErrnoKeeper() : mSaved(errno) {}
    ~ErrnoKeeper() { errno = mSaved; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

    /// Makes `error` what the caller of the emulated call finds in errno.
    void report(int error) { mSaved = error; }

private:
    int mSaved;
};

}  // namespace host

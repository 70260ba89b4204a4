// Errno: what the callers of emulated calls find in errno.
#pragma once

#include <errno.h>

namespace host {

/// The result of a call that fails.
inline int fail(int error) {
    errno = error;
    return -1;
}

/// That of a call of which only 0 is success.
inline int resultOf(int error) {
    return error == 0 ? 0 : fail(error);
}

/// Leaves errno as it was, whatever the calls in between did to it.
class ErrnoKeeper {
public:
    ErrnoKeeper() : mSaved(errno) {}
    ~ErrnoKeeper() { errno = mSaved; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

    /// Makes `error` what the caller finds.
    void report(int error) { mSaved = error; }

private:
    int mSaved;
};

}  // namespace host

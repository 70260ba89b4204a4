// TVQErrnoSafeFunction: a call that the operating system may interrupt, made again until it was not.
//
//   Use      `TVQErrnoSafeFunction(&::chdir)(path)`
//   Shape    one function pointer. `errno` is 0 before each attempt, so that it is 0 after a success, and tells the
//            reason of this call's failure and of no other.
//   Errors   those of the call, but for EINTR.
//   Threads  any thread.
//
// The four functions below read directories the same way.
//   Errors   opendir: null; readdir: the error number; closedir: -1. A directory that was interrupted in closing
//            counts as closed: its stream is gone, and a second attempt would be made on freed memory.
//   Kept     errnosafe-clears-errno: a call that succeeds leaves `errno` 0.
#pragma once

#include <VQExport.h>

#include <cerrno>
#include <dirent.h>

/// Failure is a result below 0.
struct CVQLtNullComp {
    template <class Result>
    bool operator()(Result result) const noexcept {
        return result < 0;
    }
};

template <class F, class Failed = CVQLtNullComp>
class TVQErrnoSafeFunction {
public:
    constexpr explicit TVQErrnoSafeFunction(F function) noexcept : mFunction(function) {}

    template <class... Arguments>
    auto operator()(Arguments... arguments) const {
        for (;;) {
            errno = 0;  // Kept: errnosafe-clears-errno. Also tells the end of a directory from a failure.
            const auto result = mFunction(arguments...);
            if (!Failed()(result) || errno != EINTR) {
                return result;
            }
        }
    }

private:
    F mFunction;
};

extern "C" {

VQ_EXPORT DIR* marlix_qnx_safe_opendir(const char* path);

/// Reads the next entry into `entry`, which has room for a name of NAME_MAX bytes behind its fixed part, and points
/// `*result` at it. Returns 0, at the end of the directory with a null `*result`, or the error number: ENAMETOOLONG
/// for a name that has no room. With a null `entry` or `result` nothing is read and `errno` is returned as it is.
VQ_EXPORT int marlix_qnx_safe_readdir_r(DIR* directory, struct dirent* entry, struct dirent** result);
VQ_EXPORT int marlix_qnx_safe_readdir64_r(DIR* directory, struct dirent64* entry, struct dirent64** result);

VQ_EXPORT int marlix_qnx_safe_closedir(DIR* directory);

}  // extern "C"

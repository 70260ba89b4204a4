// Wrapping: how a call is led through a function of its own. The linker leads the calls of `name` in the objects under
// test to `__wrap_name`; the build takes the names from the lines of a .cpp file that begin with CALL.
#pragma once

#include "Faults.h"

#include <cerrno>
#include <cstdarg>
#include <sys/mman.h>
#include <time.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace faults {

/// The error that this call of `name` is to fail with; 0: it is made. Notes where a call that fails comes from.
int errorOfNext(const char* name);

/// The kernel does not tell the process behind a socket.
extern bool hasOldKernel;
/// The clock is never set; this is what it would be.
extern timespec timeThatWasSet;

/// What an answer to the call `name` looks like that failed with `error`.
template <class Result>
Result failed(Failure how, int error) {
    if (how == Failure::VALUE) {
        if constexpr (std::is_same_v<Result, int>)
            return error;
    }
    errno = error;
    if constexpr (std::is_pointer_v<Result>)
        return how == Failure::NO_MAPPING ? reinterpret_cast<Result>(MAP_FAILED) : nullptr;
    else
        return how == Failure::NOTHING ? Result(0) : Result(-1);
}

struct Registered {
    Registered(const char* name, const char* symbol, Failure failure, std::vector<int> errors);
};

}  // namespace faults

// Errors by kind, for the lists.
#define PATH_ERRORS EACCES, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EIO, EINTR, ETIMEDOUT

// CALL(name, how it fails, type, parameters, arguments, errors...)
#define CALL_AS(name, symbol, failure, Result, parameters, arguments, ...)                                         \
    Result wrapped_##symbol parameters asm("__wrap_" #symbol);                                                     \
    const faults::Registered sRegistered_##symbol{#name, #symbol, faults::Failure::failure, {__VA_ARGS__}};        \
    Result wrapped_##symbol parameters {                                                                           \
        if (const int error = faults::errorOfNext(#name); error != 0)                                              \
            return faults::failed<Result>(faults::Failure::failure, error);                                        \
        return name arguments;                                                                                     \
    }
#define CALL(name, failure, Result, parameters, arguments, ...)                                                    \
    CALL_AS(name, name, failure, Result, parameters, arguments, __VA_ARGS__)
// The rest of a variable list goes on as two words, which is how all of these calls read it.
#define CALL_VARIABLE(name, failure, Fixed, ...)                                                                   \
    int wrapped_##name(Fixed first, int second, ...) asm("__wrap_" #name);                                         \
    const faults::Registered sRegistered_##name{#name, #name, faults::Failure::failure, {__VA_ARGS__}};            \
    int wrapped_##name(Fixed first, int second, ...) {                                                             \
        std::va_list rest;                                                                                         \
        va_start(rest, second);                                                                                    \
        void* const a = va_arg(rest, void*);                                                                       \
        void* const b = va_arg(rest, void*);                                                                       \
        va_end(rest);                                                                                              \
        if (const int error = faults::errorOfNext(#name); error != 0)                                              \
            return faults::failed<int>(faults::Failure::failure, error);                                           \
        return name(first, second, a, b);                                                                          \
    }

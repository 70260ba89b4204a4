// CVQFileStatus: what the file system knows of a file: type, permissions, owner, size, times.
//   Shape    the platform's `struct stat64`, with its fields and macros (S_ISDIR and the like); zeros until filled.
//   Errors   none.
//   Threads  plain value: one thread at a time.
#pragma once

#include <sys/stat.h>

class CVQFileStatus : public stat64 {
public:
    CVQFileStatus() noexcept : stat64() {}
};

static_assert(sizeof(CVQFileStatus) == sizeof(struct stat64), "filled by the platform");

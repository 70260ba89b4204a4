// VQSharedMemoryAccess: named shared-memory objects as the platform has them: descriptors, mappings, names.
//   Units    sizes and offsets in bytes, 32 bits.
//   Shape    a mode is two parts in one word: which of the modes below in its low byte, and bits that add to it.
//   Names    go to the platform as they are. Portable ones begin with their only slash.
//   Errors   -1, null or false, with the reason in `errno`; nothing is logged. A null name and a mode that is not
//            in the list are EINVAL.
//   Limits   what the object's end leaves of the last page reads as zero; touching the pages behind it ends the
//            process with SIGBUS, and so does touching memory that the system does not have any more.
//   Threads  any thread, any process.
//   Kept     shm-unlink-eexist: `unlink` takes EEXIST, and not ENOENT, for success.
#pragma once

#include <VQExport.h>

#include <cerrno>

namespace VQSharedMemoryAccess {

/// Modes of `open`. All open for reading and writing.
enum OpenMode : unsigned {
    OPEN_EXISTING = 0,
    OPEN_CREATE = 1,            // makes the object unless it is there
    OPEN_EXCLUSIVE = 2,         // the platform's O_EXCL alone, and the size is set
    OPEN_CREATE_EXCLUSIVE = 3,  // fails with EEXIST when it is there; else the size is set
    OPEN_SET_SIZE = 0x100       // to be added: the size is set, whatever the object had
};

/// Modes of `map`.
enum MapMode : unsigned {
    MAPPING_READ = 0,
    MAPPING_WRITE = 1,
    MAPPING_READ_WRITE = 2,
    MAPPING_INITIALISED = 0x100,  // to be added: without it memory that is new to the object may hold anything
    MAPPING_LAZY = 0x200          // to be added: memory is taken when it is first touched
};

/// The descriptor, closed on exec. An object that is made may be used by all whom the process's umask allows it.
VQ_EXPORT int open(const char* name, unsigned size, unsigned mode);
/// A mapping shared with all others of the object. A descriptor of -1 is EINVAL, too.
VQ_EXPORT void* map(int descriptor, unsigned size, unsigned offset, unsigned mode);
VQ_EXPORT bool unmap(void* address, unsigned size);
VQ_EXPORT bool close(int descriptor);
/// Takes the name away; what is open or mapped stays. Kept: shm-unlink-eexist.
VQ_EXPORT bool unlink(const char* name);

/// Puts `errno` back at the end of its scope.
struct SVQErrnoSafe {
    SVQErrnoSafe() : mError(errno) {}
    ~SVQErrnoSafe() { errno = mError; }
    SVQErrnoSafe(const SVQErrnoSafe&) = delete;
    SVQErrnoSafe& operator=(const SVQErrnoSafe&) = delete;

    const int mError;
};

}  // namespace VQSharedMemoryAccess

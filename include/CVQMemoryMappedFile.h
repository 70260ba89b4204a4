// CVQMemoryMappedFile: a file with one mapping, read-only and shared; or private memory when no file is open.
//   Units    sizes in bytes, 32 bits; offsets 64 bits, in whole pages.
//   Shape    as CVQFileHandle, then address (null while nothing is mapped) and size.
//   Errors   false with the reason in `errno`: EINVAL for a size of 0 and for an offset within a page, ENOSYS where
//            the file's system has no mappings. A mapping that cannot be taken back is a log line as well.
//   Limits   the mapping shows the file as it changes. What the file's end leaves of the last page reads as zero;
//            touching pages behind the end, also of a file that became shorter under its mapping, ends the process
//            with SIGBUS.
//   Lifetime the mapping outlives `open` of another file; `map`, `unmap`, `close` and the destructor end it.
//   Threads  one thread at a time.
#pragma once

#include <CVQFileHandle.h>
#include <VQExport.h>

class VQ_EXPORT CVQMemoryMappedFile : public CVQFileHandle {
public:
    CVQMemoryMappedFile() noexcept = default;
    /// Opens the file for reading.
    explicit CVQMemoryMappedFile(const CVQPath& path);
    ~CVQMemoryMappedFile();

    /// For reading.
    bool open(const CVQPath& path);
    bool close();

    /// Maps `size` bytes from `offset` on in place of a mapping that is there; without an open file zeroed memory
    /// that may be written. `isLazy`: memory is taken when it is first touched, where the platform knows the
    /// difference.
    bool map(unsigned long long offset, unsigned size, bool isLazy);
    /// True also when nothing is mapped. When it fails the mapping stays.
    bool unmap();

    void* getAddress() const noexcept { return mAddress; }
    unsigned getSize() const noexcept { return mSize; }

private:
    void* mAddress = nullptr;
    unsigned mSize = 0;
};

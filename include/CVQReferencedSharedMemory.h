// CVQReferencedSharedMemory: a segment that all its users count, so that the last one anywhere unlinks it.
//   Units    sizes in bytes, 32 bits; the count's 4 bytes are not among them.
//   Shape    the segment: at 0 the count (unsigned, 32 bits, native byte order), at 4 the data. The handle: virtual
//            table and the process's own count, then the mapping, where the count is, where the data are.
//   Use      hold handles in TVQRefCountPointer: all of one process together count as one user. Each object that is
//            made from a name or from a stream is a user of its own.
//   Errors   an opening that fails is a log line and an assertion; the data pointer is null then, and nothing is
//            left behind of an object that came to be only by it. So do openings of objects that are smaller, in
//            pages, than what is to be mapped, and sizes that leave no room for the count.
//   Lifetime a process that is killed while it holds a handle does not count down: its segment stays in the system
//            until somebody unlinks it (on the host, `shmview` finds such segments).
//   Threads  handles may be copied and dropped in any thread. Counts are atomic, among processes too; but nobody
//            may open a segment before its creator's constructor is done, or after its last user began to leave. Of
//            many processes that create the same segment at the same time, one makes it.
//   Kept     refshm-size-unmapped: the size of a segment that could not be mapped is 4294967292.
//
// A handle travels in a stream as the name's length (32 bits), the name's bytes and the data's size (32 bits).
// Writing counts the handle under way as a user, reading takes that user over: so write it once for each that is
// read. An empty pointer travels as an empty name. An empty name arrives as an empty pointer, and so does what is
// cut short.
#pragma once

#include <CVQThreadSafeRefCounter.h>
#include <TVQRefCountPointer.h>
#include <VQExport.h>

class CVQSharedMemory;
class IVQIStream;
class IVQOStream;

class VQ_EXPORT CVQReferencedSharedMemory : public CVQThreadSafeRefCounter {
public:
    /// `create`: makes the segment and is its first user; it must not be there. Otherwise it must be there.
    CVQReferencedSharedMemory(const char* name, unsigned size, bool create);
    ~CVQReferencedSharedMemory() override { leave(); }

    /// Empty when the segment could not be made.
    static TVQRefCountPointer<CVQReferencedSharedMemory> create(const char* name, unsigned size);

    /// Null when the segment could not be made or opened.
    void* getDataPtr() const noexcept { return mData; }
    /// Kept: refshm-size-unmapped.
    unsigned getSize() const;
    /// Users in all processes, and handles under way; 0 when the segment could not be made or opened.
    unsigned getSharedMemoryRefCount() const;

    void lastReferenceRemoved() override { delete this; }

    friend VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream,
                                            const TVQRefCountPointer<CVQReferencedSharedMemory>& handle);
    friend VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream,
                                                  TVQRefCountPointer<CVQReferencedSharedMemory>& handle);

private:
    void leave();

    CVQSharedMemory* mMemory = nullptr;
    unsigned* mCount = nullptr;
    void* mData = nullptr;
};

VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const TVQRefCountPointer<CVQReferencedSharedMemory>& handle);
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream,
                                       TVQRefCountPointer<CVQReferencedSharedMemory>& handle);

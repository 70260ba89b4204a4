// VQMemory: the one allocator of a process, over the C heap; behind `new` and `delete` as well.
//   Units    sizes in bytes.
//   Shape    every block is 8 bytes longer at its end than asked for. With "--memtrace=1" among the process's
//            arguments a hidden header holding the requested size lies in front of each block instead, and the
//            process keeps the sum of all requested sizes that are live. The pointer is aligned as `malloc`
//            aligns it, in both modes.
//   Errors   the plain forms return null with `errno` as the C heap left it. The checked forms and the throwing
//            operators never return null for a non-zero size: on exhaustion they append to the process's
//            backtrace file ("VQ_ASSERTION_BACKTRACE_DIR", default "/dev/shmem") and end it through
//            `VQError::criticalError`, or log and `abort()` when "VQ_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION" is
//            set. A thread that runs out a third time on that way (in the error handler, or in what runs at exit)
//            logs and aborts at once, without backtrace and handler. Nothing is ever thrown.
//   Threads  any thread, before `main` and after `exit` began too. The mode is settled once, by the first
//            allocation of the process.
//   Kept     alloc-zero-null: size 0 gives null from every entry, `operator new` included (docs/kept.md).
//            alloc-eight-longer: the 8 bytes at the end stay when nothing is traced.
//            alloc-clears-errno: every allocation first sets `errno` to 0.
//            realloc-drift: a traced `realloc` that the C heap refuses has already taken the block's size off the
//            total.
//
// A program that links the library has all its `new` and `delete` replaced: plain, array, nothrow, sized and
// aligned. A block of an aligned `new` goes back through the matching `delete` only; all others may be mixed freely
// with `release`.
#pragma once

#include <VQExport.h>

#include <cstddef>

/// What `VQMemory::getHeapInfo` knows about the heap.
struct SVQHeapInfo {
    /// Sum of the requested sizes of all live blocks while memory is traced, else 0. Stops at 4 GiB - 1.
    unsigned allocatedBytes;
};

namespace VQMemory {

/// Returns `size` bytes, or null when there are none left or `size` is 0.
VQ_EXPORT void* alloc(std::size_t size);
/// As `alloc`, but ends the process instead of returning null for a non-zero `size`.
VQ_EXPORT void* allocChecked(std::size_t size);
/// Same as `alloc`: no cache is kept.
VQ_EXPORT void* allocCached(std::size_t size);

/// Resizes `block`, keeping its content up to the smaller size. A null block is allocated; `size` 0 releases the
/// block and returns null. On exhaustion returns null, and `block` stays as it was.
VQ_EXPORT void* realloc(void* block, std::size_t size);
/// As `realloc`, but ends the process instead of returning null for a non-zero `size`.
VQ_EXPORT void* reallocChecked(void* block, std::size_t size);

/// Gives `block` back. Null does nothing.
VQ_EXPORT void release(void* block);
/// Same; `size` is ignored.
VQ_EXPORT void release(void* block, std::size_t size);

VQ_EXPORT SVQHeapInfo getHeapInfo();

}  // namespace VQMemory

/// The same operations under plain names, for use from plain-function code.
extern "C" {
VQ_EXPORT void* allocateMemory(std::size_t size);
VQ_EXPORT void* allocateCheckedMemory(std::size_t size);
VQ_EXPORT void* allocateCachedMemory(std::size_t size);
VQ_EXPORT void* reallocateMemory(void* block, std::size_t size);
VQ_EXPORT void* reallocateCheckedMemory(void* block, std::size_t size);
VQ_EXPORT void releaseMemory(void* block);
VQ_EXPORT void releaseMemoryEx(void* block, std::size_t size);
}

#include <VQMemory.h>

#include <VQBacktrace.h>
#include <VQError.h>
#include <VQStartupOptions.h>
#include <VQSyslog.h>
#include <diag/lengthenBlock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

// ---- The two modes ------------------------------------------------------------------------------------------------

/// Lies in front of a traced block, as long as the alignment that `new` promises.
struct alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) SBlockHeader {
    std::size_t requestedSize;
};

struct SVQMemTraceData {
    int traceLevel;
    std::atomic<std::size_t> allocatedBytes;  // wide, so that a 64-bit host does not lose count at 4 GiB
    std::size_t extraBytes;
    void* (*afterAllocation)(void* rawBlock, std::size_t size, SVQMemTraceData& data);
    void* (*beforeRelease)(void* block, SVQMemTraceData& data);
};

static_assert(sizeof(void*) != 4 || (sizeof(SBlockHeader) == 8 && sizeof(SVQMemTraceData) == 20),
              "five words, and a header of two");

void* enterBlock(void* rawBlock, std::size_t size, SVQMemTraceData& data) {
    if (rawBlock == nullptr) {
        return nullptr;
    }
    data.allocatedBytes.fetch_add(size, std::memory_order_relaxed);
    return new (rawBlock) SBlockHeader{size} + 1;
}

void* leaveBlock(void* block, SVQMemTraceData& data) {
    if (block == nullptr) {
        return nullptr;
    }
    SBlockHeader* const header = static_cast<SBlockHeader*>(block) - 1;
    data.allocatedBytes.fetch_sub(header->requestedSize, std::memory_order_relaxed);
    return header;
}

// Kept: alloc-eight-longer. Code may have come to lean on the spare bytes.
constexpr std::size_t kExtraBytes = 8;
VQ_CONSTINIT SVQMemTraceData sUnsettled{0, {0}, 0, nullptr, nullptr};
VQ_CONSTINIT SVQMemTraceData sPlain{0, {0}, kExtraBytes, nullptr, nullptr};
VQ_CONSTINIT SVQMemTraceData sTraced{1, {0}, sizeof(SBlockHeader), &enterBlock, &leaveBlock};

VQ_CONSTINIT std::atomic<SVQMemTraceData*> sTraceData{&sUnsettled};

/// The first allocation settles the mode for good: blocks of both modes could not be told apart.
SVQMemTraceData& settledTraceData() {
    SVQMemTraceData* settled = sTraceData.load(std::memory_order_relaxed);
    if (settled != &sUnsettled) {
        return *settled;
    }
    SVQMemTraceData* const chosen = VQStartupOptions::getMemoryTraceLevel() != 0 ? &sTraced : &sPlain;
    return sTraceData.compare_exchange_strong(settled, chosen) ? *chosen : *settled;
}

// ---- Blocks -------------------------------------------------------------------------------------------------------

void* outOfMemory() {
    errno = ENOMEM;
    return nullptr;
}

// Where the calling thread's errno is, once the mode is settled and not to trace: one look at it, instead of a call
// for errno and a look at the mode, is what nearly every allocation has to do before it calls the C heap.
VQ_CONSTINIT thread_local int* sPlainErrno __attribute__((tls_model("initial-exec"))) = nullptr;

VQ_COLD void* allocateTheLongWay(std::size_t size) {
    errno = 0;
    // Kept: alloc-zero-null. Callers take null for the empty block.
    if (size == 0) {
        return nullptr;
    }
    SVQMemTraceData& data = settledTraceData();
    std::size_t wholeSize;
    if (__builtin_add_overflow(size, data.extraBytes, &wholeSize)) {
        return outOfMemory();
    }
    if (data.afterAllocation != nullptr) {
        return data.afterAllocation(std::malloc(wholeSize), size, data);
    }
    sPlainErrno = &errno;
    return std::malloc(wholeSize);
}

inline void* allocate(std::size_t size) {
    int* const error = sPlainErrno;
    // One comparison sorts out both 0 and what would wrap.
    if (VQ_LIKELY(error != nullptr && size - 1 < SIZE_MAX - kExtraBytes)) {
        // Kept: alloc-clears-errno. Callers tell exhaustion from an empty request by errno.
        *error = 0;
        return std::malloc(size + kExtraBytes);
    }
    return allocateTheLongWay(size);
}

inline void release(void* block) {
    SVQMemTraceData& data = *sTraceData.load(std::memory_order_relaxed);
    if (VQ_UNLIKELY(data.beforeRelease != nullptr)) {
        block = data.beforeRelease(block, data);
    }
    std::free(block);
}

void* reallocate(void* block, std::size_t size) {
    if (block == nullptr) {
        return allocate(size);
    }
    errno = 0;
    if (size == 0) {
        release(block);
        return nullptr;
    }
    SVQMemTraceData& data = settledTraceData();
    std::size_t wholeSize;
    if (__builtin_add_overflow(size, data.extraBytes, &wholeSize)) {
        return outOfMemory();
    }
    if (data.afterAllocation == nullptr) {
        return std::realloc(block, wholeSize);
    }
    // Kept: realloc-drift. When the C heap refuses, the old block lives on uncounted.
    void* const rawBlock = data.beforeRelease(block, data);
    return data.afterAllocation(std::realloc(rawBlock, wholeSize), size, data);
}

/// What lies in front of an aligned block while memory is traced: its header, and before that whatever keeps the
/// block aligned.
constexpr std::size_t frontOf(std::size_t alignment) {
    return std::max(alignment, sizeof(SBlockHeader));
}

bool isAlignedAnyway(std::size_t alignment) {
    return alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__;
}

void* allocateAligned(std::size_t size, std::size_t alignment) {
    if (isAlignedAnyway(alignment) || size == 0) {
        return allocate(size);
    }
    errno = 0;
    SVQMemTraceData& data = settledTraceData();
    const bool traced = data.afterAllocation != nullptr;
    std::size_t wholeSize;
    if (__builtin_add_overflow(size, traced ? frontOf(alignment) : data.extraBytes, &wholeSize)) {
        return outOfMemory();
    }
    void* rawBlock = nullptr;
    if (const int error = posix_memalign(&rawBlock, alignment, wholeSize); error != 0) {
        errno = error;
        return nullptr;
    }
    if (!traced) {
        return rawBlock;
    }
    void* const header = static_cast<char*>(rawBlock) + frontOf(alignment) - sizeof(SBlockHeader);
    return data.afterAllocation(header, size, data);
}

void releaseAligned(void* block, std::size_t alignment) {
    SVQMemTraceData& data = settledTraceData();
    if (isAlignedAnyway(alignment) || data.beforeRelease == nullptr || block == nullptr) {
        release(block);
        return;
    }
    void* const header = data.beforeRelease(block, data);
    std::free(static_cast<char*>(header) + sizeof(SBlockHeader) - frontOf(alignment));
}

// ---- Exhaustion ---------------------------------------------------------------------------------------------------

// How many reports of exhaustion the calling thread is in. What ends the process (the error handler, what runs at
// exit) may ask for memory in its turn, and reports once more; beyond that it would go on for ever.
constexpr unsigned kMostNestedReports = 2;
VQ_CONSTINIT thread_local unsigned sNestedReports __attribute__((tls_model("initial-exec"))) = 0;

/// Builds no string and asks for no memory.
[[noreturn]] VQ_COLD void endExhausted(const char* attempt, std::size_t size) {
    const int error = errno;
    char message[80];
    std::snprintf(message, sizeof message, "failed to %s %zu bytes (err: %d)", attempt, size, error);

    if (++sNestedReports <= kMostNestedReports) {
        const char* const directory = std::getenv("VQ_ASSERTION_BACKTRACE_DIR");
        VQBacktrace::doBacktraceNoAlloc(message, directory != nullptr ? directory : "/dev/shmem", "ass",
                                        /*append*/ true);
        if (std::getenv("VQ_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION") == nullptr) {
            VQError::criticalError(0, "%s", message);
        }
    }
    VQSyslog::logMsg(0, VQSyslog::CRITICAL, "%s", message);
    std::abort();
}

inline void* allocateChecked(std::size_t size) {
    void* const block = allocate(size);
    if (VQ_UNLIKELY(block == nullptr && size != 0)) {
        endExhausted("allocate", size);
    }
    return block;
}

void* allocateCheckedAligned(std::size_t size, std::align_val_t alignment) {
    void* const block = allocateAligned(size, static_cast<std::size_t>(alignment));
    if (VQ_UNLIKELY(block == nullptr && size != 0)) {
        endExhausted("allocate", size);
    }
    return block;
}

void* reallocateChecked(void* block, std::size_t size, const char* attempt = "reallocate") {
    void* const resized = reallocate(block, size);
    if (VQ_UNLIKELY(resized == nullptr && size != 0)) {
        endExhausted(attempt, size);
    }
    return resized;
}

}  // namespace

void* VQMemory::alloc(std::size_t size) {
    return allocate(size);
}

void* VQMemory::allocChecked(std::size_t size) {
    return allocateChecked(size);
}

void* VQMemory::allocCached(std::size_t size) {
    return allocate(size);
}

void* VQMemory::realloc(void* block, std::size_t size) {
    return reallocate(block, size);
}

void* VQMemory::reallocChecked(void* block, std::size_t size) {
    return reallocateChecked(block, size);
}

void VQMemory::release(void* block) {
    ::release(block);
}

void VQMemory::release(void* block, std::size_t) {
    ::release(block);
}

void* lengthenBlock(void* block, std::size_t size) {
    return reallocateChecked(block, size, "allocate");
}

SVQHeapInfo VQMemory::getHeapInfo() {
    // Below zero only by the drift: then the wrapped figure of the target.
    const long long total =
        static_cast<std::ptrdiff_t>(settledTraceData().allocatedBytes.load(std::memory_order_relaxed));
    return {static_cast<unsigned>(std::min<long long>(total, UINT_MAX))};
}

void* allocateMemory(std::size_t size) {
    return allocate(size);
}

void* allocateCheckedMemory(std::size_t size) {
    return allocateChecked(size);
}

void* allocateCachedMemory(std::size_t size) {
    return allocate(size);
}

void* reallocateMemory(void* block, std::size_t size) {
    return reallocate(block, size);
}

void* reallocateCheckedMemory(void* block, std::size_t size) {
    return reallocateChecked(block, size);
}

void releaseMemory(void* block) {
    release(block);
}

void releaseMemoryEx(void* block, std::size_t) {
    release(block);
}

// ---- The global operators -----------------------------------------------------------------------------------------
// In this unit, so that a program linked with the static library takes all of them as soon as it takes the allocator.

VQ_EXPORT void* operator new(std::size_t size) {
    return allocateChecked(size);
}
VQ_EXPORT void* operator new[](std::size_t size) {
    return allocateChecked(size);
}
VQ_EXPORT void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
VQ_EXPORT void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
VQ_EXPORT void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocateCheckedAligned(size, alignment);
}
VQ_EXPORT void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocateCheckedAligned(size, alignment);
}
VQ_EXPORT void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, static_cast<std::size_t>(alignment));
}
VQ_EXPORT void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateAligned(size, static_cast<std::size_t>(alignment));
}

VQ_EXPORT void operator delete(void* block) noexcept {
    release(block);
}
VQ_EXPORT void operator delete[](void* block) noexcept {
    release(block);
}
VQ_EXPORT void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
VQ_EXPORT void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}
VQ_EXPORT void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
VQ_EXPORT void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
VQ_EXPORT void operator delete(void* block, std::align_val_t alignment) noexcept {
    releaseAligned(block, static_cast<std::size_t>(alignment));
}
VQ_EXPORT void operator delete[](void* block, std::align_val_t alignment) noexcept {
    releaseAligned(block, static_cast<std::size_t>(alignment));
}
VQ_EXPORT void operator delete(void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    releaseAligned(block, static_cast<std::size_t>(alignment));
}
VQ_EXPORT void operator delete[](void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    releaseAligned(block, static_cast<std::size_t>(alignment));
}
VQ_EXPORT void operator delete(void* block, std::size_t, std::align_val_t alignment) noexcept {
    releaseAligned(block, static_cast<std::size_t>(alignment));
}
VQ_EXPORT void operator delete[](void* block, std::size_t, std::align_val_t alignment) noexcept {
    releaseAligned(block, static_cast<std::size_t>(alignment));
}

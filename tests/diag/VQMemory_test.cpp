// VQMemory: sizes and totals, size 0, resizing, alignment, the eight bytes, errno; requests that wrap or that nobody
// has; many threads; forked children. Every test holds in both modes.
#include <VQMemory.h>

#include "MemoryTesting.h"
#include "support/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <TVQVector.h>
#include <VQStartupOptions.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <malloc.h>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace memorytest;

namespace {

// Volatile, so that no compiler sees a request that cannot be met.
constexpr std::size_t kHeader = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

/// What the C heap gave for `block`.
void* rawBlockOf(void* block) {
    return isTraced() ? static_cast<char*>(block) - kHeader : block;
}

}  // namespace

TEST(VQMemory, ThisProcessIsInTheModeThatItsArgumentsAskFor) {
    EXPECT_EQ(isTraced() ? 1 : 0, VQStartupOptions::getMemoryTraceLevel());
}

TEST(VQMemory, Kept_SizeZeroGivesNullFromEveryEntryAndLeavesErrnoZero) {  // id: alloc-zero-null
    using Entry = void* (*)(std::size_t);
    for (const Entry entry : {&VQMemory::alloc, &VQMemory::allocChecked, &VQMemory::allocCached, &allocateMemory,
                              &allocateCheckedMemory, &allocateCachedMemory}) {
        errno = EINVAL;
        void* const block = entry(0);
        const int error = errno;
        EXPECT_EQ(nullptr, block);
        EXPECT_EQ(0, error);
    }
    using Resize = void* (*)(void*, std::size_t);
    for (const Resize entry :
         {&VQMemory::realloc, &VQMemory::reallocChecked, &reallocateMemory, &reallocateCheckedMemory}) {
        errno = EINVAL;
        void* const block = entry(nullptr, 0);
        const int error = errno;
        EXPECT_EQ(nullptr, block);
        EXPECT_EQ(0, error);
    }
}

TEST(VQMemory, TotalIsTheSumOfTheRequestedSizesOfLiveBlocks) {
    const unsigned before = total();
    void* const hundred = allocateMemory(100);
    void* const twentyEight = allocateMemory(28);
    const unsigned withBoth = total() - before;
    releaseMemory(hundred);
    const unsigned withOne = total() - before;
    releaseMemory(twentyEight);
    const unsigned withNone = total() - before;
    EXPECT_EQ(counted(128), withBoth);
    EXPECT_EQ(counted(28), withOne);
    EXPECT_EQ(0u, withNone);
}

TEST(VQMemory, EveryEntryCountsAndEveryReleaseUncounts) {
    const unsigned before = total();
    void* const blocks[] = {VQMemory::alloc(1),
                            VQMemory::allocChecked(2),
                            VQMemory::allocCached(3),
                            allocateMemory(4),
                            allocateCheckedMemory(5),
                            allocateCachedMemory(6),
                            VQMemory::realloc(nullptr, 7),
                            VQMemory::reallocChecked(nullptr, 8),
                            reallocateMemory(nullptr, 9),
                            reallocateCheckedMemory(nullptr, 10)};
    const unsigned full = total() - before;
    EXPECT_EQ(std::end(blocks), std::find(std::begin(blocks), std::end(blocks), nullptr));
    for (std::size_t i = 0; i < std::size(blocks); ++i) {
        std::memset(blocks[i], 0x5A, i + 1);
        switch (i % 4) {
        case 0:
            VQMemory::release(blocks[i]);
            break;
        case 1:
            VQMemory::release(blocks[i], i + 1);
            break;
        case 2:
            releaseMemory(blocks[i]);
            break;
        case 3:
            releaseMemoryEx(blocks[i], 12345);  // the size is ignored
            break;
        }
    }
    const unsigned empty = total() - before;
    EXPECT_EQ(counted(55), full);
    EXPECT_EQ(0u, empty);
}

TEST(VQMemory, AVectorCountsForItsBlockAlsoWhenThatIsLengthened) {
    const unsigned before = total();
    {
        TVQVector<int> vector;
        for (int i = 0; i < 5000; ++i) {
            vector.push_back(i);
        }
        vector.reserve(9000);
        EXPECT_EQ(counted(sizeof(CVQVectorBase::SVectorData) + 9000 * sizeof(int)), total() - before);
    }
    EXPECT_EQ(before, total());
}

TEST(VQMemory, ReleaseOfNullDoesNothing) {
    const unsigned before = total();
    VQMemory::release(nullptr);
    VQMemory::release(nullptr, 100);
    releaseMemory(nullptr);
    releaseMemoryEx(nullptr, 100);
    EXPECT_EQ(before, total());
}

TEST(VQMemory, ReallocOfNullAllocates) {
    const unsigned before = total();
    void* const block = reallocateMemory(nullptr, 16);
    const unsigned with = total() - before;
    ASSERT_NE(nullptr, block);
    std::memset(block, 1, 16);
    releaseMemory(block);
    EXPECT_EQ(counted(16), with);
}

TEST(VQMemory, ReallocToZeroReleasesAndGivesNull) {
    for (const auto entry :
         {&VQMemory::realloc, &VQMemory::reallocChecked, &reallocateMemory, &reallocateCheckedMemory}) {
        const unsigned before = total();
        void* const block = allocateMemory(64);
        errno = EINVAL;
        void* const resized = entry(block, 0);
        const int error = errno;
        const unsigned after = total();
        EXPECT_EQ(nullptr, resized);
        EXPECT_EQ(0, error);
        EXPECT_EQ(before, after);
    }
}

TEST(VQMemory, ReallocKeepsContentAndTotal) {
    const unsigned before = total();
    std::size_t size = 1;
    auto* block = static_cast<unsigned char*>(allocateMemory(size));
    block[0] = 0;
    std::mt19937 random(7);
    for (int step = 0; step < 500; ++step) {
        const std::size_t newSize = 1 + random() % (step % 50 == 49 ? 300000 : 700);
        block = static_cast<unsigned char*>(step % 2 == 0 ? VQMemory::realloc(block, newSize)
                                                          : VQMemory::reallocChecked(block, newSize));
        const unsigned now = total() - before;
        ASSERT_EQ(counted(newSize), now);
        ASSERT_TRUE(isAligned(block, __STDCPP_DEFAULT_NEW_ALIGNMENT__));
        for (std::size_t i = 0; i < std::min(size, newSize); ++i) {
            ASSERT_EQ(static_cast<unsigned char>(i * 31), block[i]) << i << " of " << newSize;
        }
        size = newSize;
        for (std::size_t i = 0; i < size; ++i) {
            block[i] = static_cast<unsigned char>(i * 31);
        }
    }
    VQMemory::release(block);
    EXPECT_EQ(before, total());
}

TEST(VQMemory, BlocksAreAlignedAsNewPromises) {
    for (std::size_t size = 1; size < 600; ++size) {
        void* const block = VQMemory::alloc(size);
        ASSERT_TRUE(isAligned(block, __STDCPP_DEFAULT_NEW_ALIGNMENT__)) << size;
        std::memset(block, 0xFF, size);
        void* const resized = VQMemory::realloc(block, size * 3);
        ASSERT_TRUE(isAligned(resized, __STDCPP_DEFAULT_NEW_ALIGNMENT__)) << size;
        VQMemory::release(resized);
    }
}

TEST(VQMemory, Kept_BlocksAreEightBytesLongerThanAskedFor) {  // id: alloc-eight-longer
    for (std::size_t size = 1; size < 300; ++size) {
        void* const block = VQMemory::alloc(size);
        // In the trace mode the extra bytes are the header, in front, with the requested size in it.
        const std::size_t extra = isTraced() ? kHeader : 8;
        ASSERT_GE(malloc_usable_size(rawBlockOf(block)), size + extra) << size;
        if (isTraced()) {
            std::size_t requestedSize;
            std::memcpy(&requestedSize, rawBlockOf(block), sizeof requestedSize);
            ASSERT_EQ(size, requestedSize);
        } else {
            std::memset(block, 0xFF, size + 8);
        }
        VQMemory::release(block);
    }
}

TEST(VQMemory, Kept_EveryAllocationClearsErrno) {  // id: alloc-clears-errno
    errno = ERANGE;
    void* block = VQMemory::alloc(10);
    int error = errno;
    EXPECT_EQ(0, error);
    errno = ERANGE;
    block = VQMemory::realloc(block, 20);
    error = errno;
    EXPECT_EQ(0, error);
    VQMemory::release(block);
}

TEST(VQMemory, PlainFormsGiveNullAndENOMEMOnExhaustion) {
    const unsigned before = total();
    using Entry = void* (*)(std::size_t);
    for (const Entry entry : {&VQMemory::alloc, &VQMemory::allocCached, &allocateMemory, &allocateCachedMemory}) {
        errno = 0;
        void* const block = entry(vUnavailable);
        const int error = errno;
        EXPECT_EQ(nullptr, block);
        EXPECT_EQ(ENOMEM, error);
    }
    for (const auto entry : {&VQMemory::realloc, &reallocateMemory}) {
        errno = 0;
        void* const block = entry(nullptr, vUnavailable);
        const int error = errno;
        EXPECT_EQ(nullptr, block);
        EXPECT_EQ(ENOMEM, error);
    }
    EXPECT_EQ(before, total());
}

TEST(VQMemory, ARequestThatWrapsWithItsExtraBytesIsExhaustionAndNeverAShortBlock) {
    const unsigned before = total();
    for (std::size_t below = 0; below <= 64; ++below) {
        const volatile std::size_t size = SIZE_MAX - below;
        errno = 0;
        void* const block = VQMemory::alloc(size);
        const int error = errno;
        EXPECT_EQ(nullptr, block) << below;
        EXPECT_EQ(ENOMEM, error) << below;
    }
    EXPECT_EQ(before, total());
}

TEST(VQMemory, AReallocThatWrapsWithItsExtraBytesLeavesTheBlockAsItWas) {
    const std::size_t extra = isTraced() ? kHeader : 8;
    for (std::size_t below = 0; below < extra; ++below) {
        auto* const block = static_cast<char*>(VQMemory::alloc(24));
        std::memset(block, 0x3C, 24);
        const unsigned before = total();
        const volatile std::size_t size = SIZE_MAX - below;
        errno = 0;
        void* const resized = VQMemory::realloc(block, size);
        const int error = errno;
        const unsigned after = total();
        EXPECT_EQ(nullptr, resized) << below;
        EXPECT_EQ(ENOMEM, error) << below;
        EXPECT_EQ(std::string(24, 0x3C), std::string(block, 24));
        EXPECT_EQ(before, after);
        VQMemory::release(block);
    }
}

// In children, as they leave the total of their process wrong.

TEST(VQMemory, Kept_ATracedReallocThatFailsTakesTheSizeOffTheTotal) {  // id: realloc-drift
    const support::ChildResult r = support::runInChild([] {
        const unsigned before = total();
        auto* const block = static_cast<char*>(VQMemory::alloc(100));
        std::memset(block, 0x77, 100);
        errno = 0;
        void* const resized = VQMemory::realloc(block, vUnavailable);
        const int error = errno;
        const unsigned drifted = total();
        EXPECT_EQ(nullptr, resized);
        EXPECT_EQ(ENOMEM, error);
        EXPECT_EQ(0x77, block[99]);
        VQMemory::release(block);
        const unsigned after = total();
        EXPECT_EQ(before, drifted);
        EXPECT_EQ(before - counted(100), after);
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

TEST(VQMemory, ATotalThatDriftedBelowZeroIsTheWrappedFigure) {
    const support::ChildResult r = support::runInChild([] {
        constexpr std::size_t kSize = 16 << 20;  // more than all that the test itself holds
        const unsigned before = total();
        void* const block = VQMemory::alloc(kSize);
        void* const resized = VQMemory::realloc(block, vUnavailable);
        VQMemory::release(block);
        const unsigned after = total();
        EXPECT_EQ(nullptr, resized);
        EXPECT_EQ(before - counted(kSize), after);
        EXPECT_TRUE(!isTraced() || after > before);
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

TEST(VQMemory, RequestsOf4GiBAndMoreAreServedWholeAndStopTheTotalAtItsLast) {
    if (sizeof(std::size_t) == 4 || kIsSanitized) {
        GTEST_SKIP() << "needs a wide address space, not kept track of by a sanitizer";
    }
    const volatile auto size = static_cast<std::size_t>((1ULL << 32) + 100);
    const unsigned before = total();
    auto* const block = static_cast<volatile char*>(VQMemory::alloc(size));
    if (block == nullptr) {
        GTEST_SKIP() << "this machine has no 4 GiB of address space to give";
    }
    const unsigned with = total();
    block[0] = 1;
    block[size - 1] = 2;
    EXPECT_EQ(isTraced() ? UINT_MAX : 0, with);
    EXPECT_EQ(1, block[0]);
    VQMemory::release(const_cast<char*>(block));
    EXPECT_EQ(before, total());
}

TEST(VQMemory, ManyThreadsAllocateResizeAndReleaseAtOnce) {
    const unsigned before = total();
    std::atomic<int> broken{0};
    {
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < 8; ++seed) {
            threads.emplace_back([seed, &broken] {
                std::mt19937 random(seed);
                unsigned char* blocks[64] = {};
                for (int step = 0; step < 4000; ++step) {
                    unsigned char*& block = blocks[random() % 64];
                    if (block != nullptr && *block != seed) {
                        ++broken;
                    }
                    if (block != nullptr && random() % 2 == 0) {
                        VQMemory::release(block);
                        block = nullptr;
                    } else {
                        const std::size_t size = 1 + random() % 2000;
                        block = static_cast<unsigned char*>(VQMemory::reallocChecked(block, size));
                        std::memset(block, static_cast<int>(seed), size);
                    }
                }
                for (void* const block : blocks) {
                    VQMemory::release(block);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(0, broken);
    EXPECT_EQ(before, total());
}

TEST(VQMemory, AForkedChildAllocatesWhileItsParentsThreadsDo) {
    if (!kHeapSurvivesFork) {
        GTEST_SKIP() << "the sanitizer's heap stays locked in the child";
    }
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) {
                VQMemory::release(VQMemory::reallocChecked(VQMemory::alloc(40), 4000));
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        const support::ChildResult r = support::runInChild([] {
            const unsigned before = total();
            void* const block = VQMemory::allocChecked(1000);
            const unsigned with = total() - before;
            VQMemory::release(block);
            _exit(with == counted(1000) && total() == before ? 0 : 1);
        });
        EXPECT_TRUE(r.exitedWith(0)) << r;
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

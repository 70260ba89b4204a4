// The global operators: every form, size 0, alignments up to more than a page, what the standard library allocates,
// and allocations before main and after exit began.
#include <VQMemory.h>

#include "MemoryTesting.h"
#include "support/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <memory_resource>
#include <new>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

using namespace memorytest;

namespace {

/// Whether the compiler sees an operator called: it assumes that the throwing ones never give null, and may leave
/// out a pair of calls altogether.
template <class Function>
Function* unseen(Function* function) {
    Function* volatile hidden = function;
    return hidden;
}

using New = void* (*)(std::size_t);
using Delete = void (*)(void*);

struct SForm {
    const char* name;
    std::function<void*(std::size_t)> allocate;
    std::function<void(void*, std::size_t)> release;
};

void* newNothrow(std::size_t size) {
    return unseen<void*(std::size_t, const std::nothrow_t&) noexcept>(&operator new)(size, std::nothrow);
}
void* newArrayNothrow(std::size_t size) {
    return unseen<void*(std::size_t, const std::nothrow_t&) noexcept>(&operator new[])(size, std::nothrow);
}
void* newPlain(std::size_t size) {
    return unseen<void*(std::size_t)>(&operator new)(size);
}
void* newArray(std::size_t size) {
    return unseen<void*(std::size_t)>(&operator new[])(size);
}

const std::vector<SForm>& plainForms() {
    static const std::vector<SForm> forms = {
        {"plain", &newPlain, [](void* p, std::size_t) { operator delete(p); }},
        {"plain, sized", &newPlain, [](void* p, std::size_t n) { operator delete(p, n); }},
        {"array", &newArray, [](void* p, std::size_t) { operator delete[](p); }},
        {"array, sized", &newArray, [](void* p, std::size_t n) { operator delete[](p, n); }},
        {"nothrow", &newNothrow, [](void* p, std::size_t) { operator delete(p, std::nothrow); }},
        {"array, nothrow", &newArrayNothrow, [](void* p, std::size_t) { operator delete[](p, std::nothrow); }},
    };
    return forms;
}

std::vector<SForm> alignedForms(std::size_t alignment) {
    const std::align_val_t a{alignment};
    return {
        {"aligned", [a](std::size_t n) { return operator new(n, a); },
         [a](void* p, std::size_t) { operator delete(p, a); }},
        {"aligned, sized", [a](std::size_t n) { return operator new(n, a); },
         [a](void* p, std::size_t n) { operator delete(p, n, a); }},
        {"aligned array", [a](std::size_t n) { return operator new[](n, a); },
         [a](void* p, std::size_t) { operator delete[](p, a); }},
        {"aligned array, sized", [a](std::size_t n) { return operator new[](n, a); },
         [a](void* p, std::size_t n) { operator delete[](p, n, a); }},
        {"aligned, nothrow", [a](std::size_t n) { return operator new(n, a, std::nothrow); },
         [a](void* p, std::size_t) { operator delete(p, a, std::nothrow); }},
        {"aligned array, nothrow", [a](std::size_t n) { return operator new[](n, a, std::nothrow); },
         [a](void* p, std::size_t) { operator delete[](p, a, std::nothrow); }},
    };
}

struct alignas(64) SCacheLine {
    char bytes[64];
};

/// Allocates before `main`, and both ways after `exit` began.
struct SEarlyAndLate {
    SEarlyAndLate() : totalBefore(total()), block(new char[1234]), totalWith(total()) {}
    ~SEarlyAndLate() {
        const unsigned before = total();
        char* volatile late = new char[50];  // volatile, or the compiler leaves out the pair of calls
        const unsigned with = total();
        delete[] late;
        const unsigned without = total();
        delete[] block;
        const unsigned atEnd = total();
        if (isToldAtEnd) {
            std::printf("%u %u %u", with - before, with - without, without - atEnd);
        }
    }

    unsigned totalBefore;
    char* block;
    unsigned totalWith;
    bool isToldAtEnd = false;
};
SEarlyAndLate sEarlyAndLate;

class VQMemoryOperators : public testing::Test {
protected:
    void SetUp() override {
        if (!kOwnsOperators) {
            GTEST_SKIP() << "a sanitizer's own operators stand before those of a shared library";
        }
    }
};

}  // namespace

TEST_F(VQMemoryOperators, Kept_NewOfNoBytesIsNullAndLeavesErrnoZero) {  // id: alloc-zero-null
    std::vector<SForm> forms = plainForms();
    for (const std::size_t alignment : {8, 64, 4096}) {
        for (const SForm& form : alignedForms(alignment)) {
            forms.push_back(form);
        }
    }
    for (const SForm& form : forms) {
        errno = EINVAL;
        void* const block = form.allocate(0);
        const int error = errno;
        EXPECT_EQ(nullptr, block) << form.name;
        EXPECT_EQ(0, error) << form.name;
        form.release(block, 0);
    }
}

TEST_F(VQMemoryOperators, EveryFormGoesThroughTheAllocator) {
    for (const SForm& form : plainForms()) {
        for (const std::size_t size : {1, 24, 100, 5000, 300000}) {
            const unsigned before = total();
            errno = EINVAL;
            void* const block = form.allocate(size);
            const int error = errno;
            const unsigned with = total() - before;
            ASSERT_NE(nullptr, block);
            ASSERT_TRUE(isAligned(block, __STDCPP_DEFAULT_NEW_ALIGNMENT__));
            std::memset(block, 0xA5, size);
            form.release(block, size);
            const unsigned after = total();
            EXPECT_EQ(0, error) << form.name;
            EXPECT_EQ(counted(size), with) << form.name;
            EXPECT_EQ(before, after) << form.name;
        }
    }
}

TEST_F(VQMemoryOperators, EveryAlignedFormIsAlignedAndCounted) {
    for (std::size_t alignment = 1; alignment <= 65536; alignment *= 2) {
        for (const SForm& form : alignedForms(alignment)) {
            for (const std::size_t size : {1, 24, 100, 5000}) {
                const unsigned before = total();
                errno = EINVAL;
                void* const block = form.allocate(size);
                const int error = errno;
                const unsigned with = total() - before;
                ASSERT_NE(nullptr, block);
                ASSERT_TRUE(isAligned(block, alignment)) << form.name << ' ' << alignment;
                std::memset(block, 0xA5, size);
                form.release(block, size);
                const unsigned after = total();
                EXPECT_EQ(0, error) << form.name << ' ' << alignment;
                EXPECT_EQ(counted(size), with) << form.name << ' ' << alignment;
                EXPECT_EQ(before, after) << form.name << ' ' << alignment;
            }
        }
    }
}

TEST_F(VQMemoryOperators, MixedSizesAndAlignmentsDoNotTouchEachOther) {
    struct SBlock {
        unsigned char* bytes = nullptr;
        std::size_t size = 0;
        std::size_t alignment = 0;
        unsigned char pattern = 0;
    };
    const auto release = [](SBlock& block) {
        for (std::size_t i = 0; i < block.size; ++i) {
            ASSERT_EQ(block.pattern, block.bytes[i]);
        }
        operator delete (block.bytes, block.size, std::align_val_t{block.alignment});
        block = {};
    };
    std::mt19937 random(3);
    SBlock blocks[100];
    const unsigned before = total();
    for (int step = 0; step < 10000; ++step) {
        SBlock& block = blocks[random() % 100];
        if (block.bytes != nullptr) {
            release(block);
        }
        block.alignment = std::size_t{1} << random() % 14;
        block.size = 1 + random() % (step % 10 == 0 ? 20000 : 200);
        block.pattern = static_cast<unsigned char>(step);
        block.bytes = static_cast<unsigned char*>(operator new (block.size, std::align_val_t{block.alignment}));
        ASSERT_TRUE(isAligned(block.bytes, block.alignment));
        std::memset(block.bytes, block.pattern, block.size);
    }
    for (SBlock& block : blocks) {
        release(block);
    }
    EXPECT_EQ(before, total());
}

TEST_F(VQMemoryOperators, NothrowFormsGiveNullAndENOMEMOnExhaustion) {
    const unsigned before = total();
    errno = 0;
    void* block = newNothrow(vUnavailable);
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(nullptr, block);
    errno = 0;
    block = newArrayNothrow(vUnavailable);
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(nullptr, block);
    for (const std::size_t alignment : {8, 64, 4096}) {
        for (std::size_t below = 0; below < 2 * alignment; below += 3) {
            const volatile std::size_t size = SIZE_MAX - below;
            errno = 0;
            block = operator new (size, std::align_val_t{alignment}, std::nothrow);
            EXPECT_EQ(ENOMEM, errno);
            EXPECT_EQ(nullptr, block);
        }
        errno = 0;
        block = operator new[](vUnavailable, std::align_val_t{alignment}, std::nothrow);
        EXPECT_EQ(ENOMEM, errno);
        EXPECT_EQ(nullptr, block);
    }
    EXPECT_EQ(before, total());
}

TEST_F(VQMemoryOperators, NewAndReleaseMayBeMixed) {
    const unsigned before = total();
    VQMemory::release(newPlain(10));
    VQMemory::release(newArrayNothrow(10));
    operator delete(VQMemory::alloc(10));
    operator delete[](VQMemory::reallocChecked(newPlain(10), 20));
    EXPECT_EQ(before, total());
}

TEST_F(VQMemoryOperators, ObjectsOfTheStandardLibraryAreCounted) {
    const unsigned before = total();
    unsigned with = 0;
    {
        const std::string text(1000, 'x');
        const std::vector<int> numbers(1000);
        const std::map<int, int> sorted = {{1, 2}, {3, 4}};
        std::unordered_map<int, std::string> hashed = {{1, text}};
        const auto shared = std::make_shared<std::vector<char>>(500);
        const auto line = std::make_unique<SCacheLine>();
        const std::pmr::vector<int> pooled(100, std::pmr::new_delete_resource());
        for (const void* const block :
             {static_cast<const void*>(text.data()), static_cast<const void*>(numbers.data()),
              static_cast<const void*>(shared->data()), static_cast<const void*>(pooled.data())})
            look(block);
        ASSERT_TRUE(isAligned(line.get(), 64));
        with = total() - before;
    }
    EXPECT_EQ(before, total());
    if (isTraced()) {
        EXPECT_GE(with, 1001 + 4000 + 1001 + 500 + 64 + 400u);
    } else {
        EXPECT_EQ(0u, with);
    }
}

TEST_F(VQMemoryOperators, BlocksMadeBeforeMainAreCountedFromTheFirstOn) {
    EXPECT_EQ(counted(1234), sEarlyAndLate.totalWith - sEarlyAndLate.totalBefore);
}

TEST_F(VQMemoryOperators, BlocksAreServedAndTakenBackWhileTheProcessExits) {
    const support::ChildResult r = support::runInChild([] {
        sEarlyAndLate.isToldAtEnd = true;
        std::exit(0);
    });
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ(isTraced() ? "50 50 1234" : "0 0 0", r.out);
}

TEST_F(VQMemoryOperators, BlocksMadeByLibrariesThatAreLoadedEarlierAreCounted) {
    if (kIsSanitized) {
        GTEST_SKIP() << "a sanitizer's own operators stand before those of a shared library";
    }
    support::ChildResult r = support::runProgram(MARLIX_EARLY_PROGRAM, {"--memtrace=1"});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("777", r.out);
    r = support::runProgram(MARLIX_EARLY_PROGRAM);
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_EQ("0", r.out);
}

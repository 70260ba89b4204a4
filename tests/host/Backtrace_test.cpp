// Concerns: which addresses, how many; threads and handlers; refusals; the list of objects, its text and limits; use
// without heap and descriptors.
#include <backtrace.h>

#include "MessageTesting.h"
#include "SignalStorm.h"

#include "support/ChildProcess.h"
#include "support/Forker.h"
#include "support/Sanitizers.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

struct Stack {
    bt_addr_t addresses[100] = {};
    int count = 0;
    bt_addr_t returnAddress = 0;
};

/// Where code lies: 32-bit ARM marks Thumb code in the lowest bit of its addresses.
bt_addr_t place(const void* code) {
    constexpr bt_addr_t kMark = sizeof(void*) == 4 ? 1 : 0;
    return reinterpret_cast<bt_addr_t>(code) & ~kMark;
}

__attribute__((noinline)) void takeHere(Stack& stack) {
    bt_accessor_t accessor;
    ASSERT_EQ(0, bt_init_accessor(&accessor, BT_SELF));
    stack.count = bt_get_backtrace(&accessor, stack.addresses, 100);
    stack.returnAddress = place(__builtin_return_address(0));
}

__attribute__((noinline)) void takeDeep(Stack& stack, int depth) {
    if (depth == 0)
        takeHere(stack);
    else
        takeDeep(stack, depth - 1);
    __asm__ __volatile__("");  // no tail call
}

bool liesIn(bt_addr_t address, const void* function) {
    return address > place(function) && address - place(function) < 4096;
}

TEST(Backtrace, BeginsInTheCallingFunction) {
    Stack stack;
    takeHere(stack);
    ASSERT_GE(stack.count, 3);
    EXPECT_TRUE(liesIn(stack.addresses[0], reinterpret_cast<const void*>(&takeHere)));
    EXPECT_EQ(stack.returnAddress, stack.addresses[1]);
}

TEST(Backtrace, HasOneAddressForEachCall) {
    Stack shallow;
    Stack deep;
    takeDeep(shallow, 0);
    takeDeep(deep, 10);
    EXPECT_EQ(shallow.count + 10, deep.count);
    for (int i = 1; i <= 11; ++i)
        EXPECT_TRUE(liesIn(deep.addresses[i], reinterpret_cast<const void*>(&takeDeep))) << i;
}

TEST(Backtrace, StopsWhereTheRoomEnds) {
    bt_addr_t all[101];
    const int count = bt_get_backtrace(&bt_acc_self, all, 101);
    for (int length = 0; length <= count; ++length) {
        bt_addr_t some[101];
        std::fill_n(some, 101, bt_addr_t{1});
        EXPECT_EQ(length, bt_get_backtrace(&bt_acc_self, some, length));
        EXPECT_EQ(101 - length, std::count(some, some + 101, bt_addr_t{1}));
    }
    Stack deep;
    takeDeep(deep, 300);
    EXPECT_EQ(100, deep.count);
}

TEST(Backtrace, WorksInAThread) {
    Stack stack;
    std::thread([&stack] { takeHere(stack); }).join();
    ASSERT_GE(stack.count, 2);
    EXPECT_EQ(stack.returnAddress, stack.addresses[1]);
}

Stack handlersStack;

TEST(Backtrace, WorksInASignalHandler) {
    struct sigaction action = {};
    action.sa_handler = [](int) { takeHere(handlersStack); };
    sigaction(SIGUSR1, &action, nullptr);
    raise(SIGUSR1);
    ASSERT_GE(handlersStack.count, 2);
    EXPECT_EQ(handlersStack.returnAddress, handlersStack.addresses[1]);
}

std::atomic<int> walksInHandlers{0};

TEST(Backtrace, WorksInASignalHandlerThatInterruptsAnother) {
    const auto result = support::runInChild([] {
        SignalStorm storm([](int) {
            bt_addr_t addresses[100];
            bt_memmap_t map;
            if (bt_get_backtrace(&bt_acc_self, addresses, 100) > 3 && bt_load_memmap(&bt_acc_self, &map) == 0)
                ++walksInHandlers;
        });
        bt_addr_t addresses[100];
        bt_memmap_t map;
        while (walksInHandlers < 200) {
            ASSERT_GT(bt_get_backtrace(&bt_acc_self, addresses, 100), 3);
            ASSERT_EQ(0, bt_load_memmap(&bt_acc_self, &map));
        }
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Backtrace, KeepsErrnoWhenItSucceeds) {
    errno = 4711;
    Stack stack;
    takeHere(stack);
    static char text[BT_MEMMAP_MAX * 150 + 1];
    bt_memmap_t map;
    EXPECT_EQ(0, bt_load_memmap(&bt_acc_self, &map));
    EXPECT_EQ(0, bt_sprn_memmap(&map, text, sizeof(text)));
    EXPECT_EQ(0, bt_unload_memmap(&map));
    EXPECT_EQ(4711, errno);
}

TEST(Backtrace, LeavesTheSignalMaskAsItWas) {
    sigset_t blocked;
    sigset_t before;
    sigset_t after;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    Stack stack;
    takeHere(stack);
    if (const pid_t child = fork(); child == 0) {
        pthread_sigmask(SIG_SETMASK, nullptr, &after);
        _exit(sigismember(&after, SIGUSR2) == 1 && sigismember(&after, SIGUSR1) == 0 ? 0 : 1);
    } else {
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(1, sigismember(&after, SIGUSR2));
    EXPECT_EQ(0, sigismember(&after, SIGUSR1));
}

TEST(Backtrace, AcceptsTheCallingThreadByAnyName) {
    bt_accessor_t accessor;
    bt_addr_t address = 0;
    EXPECT_EQ(0, bt_init_accessor(&accessor, BT_THREAD, static_cast<int>(gettid())));
    EXPECT_EQ(1, bt_get_backtrace(&accessor, &address, 1));
    EXPECT_EQ(0, bt_init_accessor(&accessor, BT_PROCESS, getpid(), static_cast<int>(gettid())));
    EXPECT_EQ(1, bt_get_backtrace(&accessor, &address, 1));
    EXPECT_EQ(0, bt_release_accessor(&accessor));
}

TEST(Backtrace, AnAccessorThatNamesAThreadIsOfUseToThatThreadAlone) {
    bt_accessor_t named, self;
    const int own = static_cast<int>(gettid());
    ASSERT_EQ(0, bt_init_accessor(&self, BT_SELF));
    for (const int type : {BT_THREAD, BT_PROCESS}) {
        ASSERT_EQ(0, type == BT_THREAD ? bt_init_accessor(&named, type, own)
                                       : bt_init_accessor(&named, type, getpid(), own));
        std::thread([&] {
            bt_addr_t address;
            static bt_memmap_t map;
            errno = 0;
            EXPECT_EQ(-1, bt_get_backtrace(&named, &address, 1));
            EXPECT_EQ(EINVAL, errno);
            EXPECT_EQ(-1, bt_load_memmap(&named, &map));
            EXPECT_EQ(1, bt_get_backtrace(&self, &address, 1));
            EXPECT_EQ(1, bt_get_backtrace(&bt_acc_self, &address, 1));
        }).join();
    }
}

TEST(Backtrace, RefusesOtherThreadsAndSaysSo) {
    bt_accessor_t accessor;
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_EQ(-1, bt_init_accessor(&accessor, BT_THREAD, 1));
    EXPECT_EQ(EINVAL, errno);
    bt_addr_t address;
    bt_memmap_t map;
    errno = 0;
    EXPECT_EQ(-1, bt_get_backtrace(&accessor, &address, 1));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, bt_load_memmap(&accessor, &map));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, bt_init_accessor(&accessor, BT_PROCESS, static_cast<pid_t>(1), static_cast<int>(gettid())));
    EXPECT_EQ(EINVAL, errno);
    const std::string line = "neutrino host: a backtrace of another thread is not supported on Linux\n";
    EXPECT_EQ(line + line, testing::internal::GetCapturedStderr());
}

// The heap is not the handler's to use: it may have interrupted it.
TEST(Backtrace, IsRefusedInAHandlerThatInterruptsTheHeap) {
    const auto result = support::runInChild([] {
        constexpr int kEnough = 500;
        static volatile sig_atomic_t refusals;
        refusals = 0;
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        ASSERT_EQ(STDERR_FILENO, dup2(nowhere, STDERR_FILENO));
        struct sigaction action = {};
        action.sa_handler = [](int) {
            const int before = errno;
            bt_accessor_t accessor;
            bt_init_accessor(&accessor, BT_THREAD, 1);
            errno = before;
            refusals = refusals + 1;
            if (refusals == kEnough) {
                const itimerval never{};
                setitimer(ITIMER_REAL, &never, nullptr);
            }
        };
        ASSERT_EQ(0, sigaction(SIGALRM, &action, nullptr));
        const itimerval often{{0, 100}, {0, 100}};
        ASSERT_EQ(0, setitimer(ITIMER_REAL, &often, nullptr));
        while (refusals < kEnough) {
            void* volatile block = std::malloc(3000);
            void* volatile another = std::malloc(5000);
            std::free(block);
            std::free(another);
        }
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

TEST(Backtrace, RefusesNonsense) {
    bt_accessor_t accessor;
    bt_addr_t address;
    bt_memmap_t map;
    char text[8];
    const auto refused = [](int result) {
        const bool isRefused = result == -1 && errno == EINVAL;
        errno = 0;
        return isRefused;
    };
    EXPECT_TRUE(refused(bt_init_accessor(nullptr, BT_SELF)));
    EXPECT_TRUE(refused(bt_init_accessor(&accessor, 3)));
    EXPECT_TRUE(refused(bt_release_accessor(nullptr)));
    EXPECT_TRUE(refused(bt_get_backtrace(nullptr, &address, 1)));
    EXPECT_TRUE(refused(bt_get_backtrace(&bt_acc_self, nullptr, 1)));
    EXPECT_TRUE(refused(bt_get_backtrace(&bt_acc_self, &address, -1)));
    EXPECT_TRUE(refused(bt_load_memmap(nullptr, &map)));
    EXPECT_TRUE(refused(bt_load_memmap(&bt_acc_self, nullptr)));
    EXPECT_TRUE(refused(bt_sprn_memmap(nullptr, text, sizeof(text))));
    EXPECT_TRUE(refused(bt_sprn_memmap(&map, nullptr, 8)));
    EXPECT_TRUE(refused(bt_sprn_memmap(&map, text, 0)));
    EXPECT_TRUE(refused(bt_unload_memmap(nullptr)));
}

// The list of objects

class MemoryMap : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, bt_load_memmap(&bt_acc_self, &mMap)); }
    void TearDown() override { EXPECT_EQ(0, bt_unload_memmap(&mMap)); }

    const __bt_object_t* objectOf(bt_addr_t address) const {
        for (int i = 0; i < mMap.count; ++i)
            if (address - mMap.__objects[i].__text < mMap.__objects[i].__size)
                return &mMap.__objects[i];
        return nullptr;
    }

    bt_memmap_t mMap;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

TEST_F(MemoryMap, HasAnObjectForEveryAddressOfABacktrace) {
    Stack stack;
    takeHere(stack);
    for (int i = 0; i < stack.count; ++i)
        EXPECT_NE(nullptr, objectOf(stack.addresses[i])) << i;
}

TEST_F(MemoryMap, BeginsWithTheProgram) {
    ASSERT_GE(mMap.count, 4);
    EXPECT_STREQ(program_invocation_name, mMap.__objects[0].__name);
    EXPECT_EQ(&mMap.__objects[0], objectOf(place(reinterpret_cast<const void*>(&takeHere))));
}

TEST_F(MemoryMap, TellsTheFilesOwnAddresses) {
    void* const code = dlsym(RTLD_DEFAULT, "bt_sprn_memmap");
    Dl_info info;
    ASSERT_NE(0, dladdr(code, &info));
    const __bt_object_t* const object = objectOf(place(code));
    ASSERT_NE(nullptr, object);
    EXPECT_STREQ(info.dli_fname, object->__name);
    EXPECT_EQ(place(code) - reinterpret_cast<bt_addr_t>(info.dli_fbase),
              place(code) - object->__text + object->__offset);
}

TEST_F(MemoryMap, PrintsOneShortLineForEachObject) {
    std::string text(mMap.count * 150u + 1, '#');
    EXPECT_EQ(0, bt_sprn_memmap(&mMap, text.data(), text.size()));
    const auto lines = linesOf(text.c_str());
    ASSERT_EQ(static_cast<std::size_t>(mMap.count), lines.size());
    for (const auto& line : lines) {
        constexpr std::size_t kDigits = 2 * sizeof(void*);
        for (const std::size_t number : {0, 1, 2}) {
            const std::size_t begin = number * (kDigits + 1);
            EXPECT_EQ(begin + kDigits, line.find_first_not_of("0123456789ABCDEF", begin)) << line;
            EXPECT_EQ(' ', line[begin + kDigits]) << line;
        }
        EXPECT_GT(line.size(), 3 * (kDigits + 1));
        EXPECT_LT(line.size(), 149u);
    }
    EXPECT_EQ(mMap.__objects[1].__text, std::stoull(lines[1], nullptr, 16));
}

TEST_F(MemoryMap, PrintsOnlyAsManyAsItsCountSays) {
    char text[600];
    mMap.count = 2;
    EXPECT_EQ(0, bt_sprn_memmap(&mMap, text, sizeof(text)));
    EXPECT_EQ(2u, linesOf(text).size());
    mMap.count = 0;
    EXPECT_EQ(0, bt_sprn_memmap(&mMap, text, sizeof(text)));
    EXPECT_STREQ("", text);
}

TEST_F(MemoryMap, PrintsWholeLinesOnlyWhenTheRoomIsSmall) {
    std::string all(mMap.count * 150u + 1, '#');
    ASSERT_EQ(0, bt_sprn_memmap(&mMap, all.data(), all.size()));
    all.resize(std::strlen(all.c_str()));
    for (std::size_t size = 1; size <= all.size() + 1; ++size) {
        std::string some(size + 1, '#');
        errno = 0;
        const int result = bt_sprn_memmap(&mMap, some.data(), size);
        const int error = errno;
        const std::string printed = some.c_str();
        ASSERT_EQ(size == all.size() + 1 ? 0 : -1, result) << size;
        ASSERT_EQ(size == all.size() + 1 ? 0 : ENOSPC, error) << size;
        ASSERT_EQ(all.substr(0, printed.size()), printed) << size;
        ASSERT_TRUE(printed.empty() || printed.back() == '\n') << size;
        ASSERT_EQ('#', some[size]) << size;
    }
}

TEST_F(MemoryMap, ShortensLongNamesAtTheirBeginning) {
    const std::string name = "/" + std::string(200, 'd') + "/library.so";
    mMap.__objects[0].__name = name.c_str();
    mMap.count = 1;
    char text[300];
    EXPECT_EQ(0, bt_sprn_memmap(&mMap, text, sizeof(text)));
    EXPECT_EQ(149u, std::strlen(text));
    EXPECT_THAT(text, testing::EndsWith("ddd/library.so\n"));
}

TEST_F(MemoryMap, PrintsAForgedCountWithoutReadingOn) {
    std::string text(20000, '#');
    for (int i = 0; i < BT_MEMMAP_MAX; ++i)
        mMap.__objects[i] = {1, 2, 3, "x"};
    mMap.count = 1000;
    EXPECT_EQ(0, bt_sprn_memmap(&mMap, text.data(), text.size()));
    EXPECT_EQ(static_cast<std::size_t>(BT_MEMMAP_MAX), linesOf(text.c_str()).size());
    mMap.count = -1;
    EXPECT_EQ(0, bt_sprn_memmap(&mMap, text.data(), text.size()));
    EXPECT_STREQ("", text.c_str());
}

// A thread that forks waits with its locks for what this handler has interrupted.
TEST(Backtrace, InAHandlerComesBackWhileAnotherThreadForks) {
    if (support::kIsSanitized)
        GTEST_SKIP() << "a sanitizer's own locks wait for each other";
#if defined(__arm__)
    GTEST_SKIP() << "the tables of ARM hold at calls, and the handler comes anywhere";
#endif
    static std::atomic<int> walks;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        bt_addr_t addresses[20];
        bt_get_backtrace(&bt_acc_self, addresses, 20);
        ++walks;
    };
    sigaction(SIGUSR1, &action, nullptr);
    OwnChannel own;
    const std::function<void()> calls[] = {[&] {
                                               _pulse pulse;
                                               MsgSendPulse(own.coid, 10, 1, 0);
                                               MsgReceivePulse(own.chid, &pulse, sizeof pulse, nullptr);
                                           },
                                           [] {
                                               void* const volatile memory = std::malloc(3000);
                                               std::free(memory);
                                           }};
    const support::Forker forker;
    for (const auto& call : calls) {
        walks = 0;
        std::atomic<bool> isOver{false};
        std::thread caller([&] {
            while (!isOver)
                call();
        });
        const int times = &call == calls ? 200 : 5;  // the heap's lock lets it wait for a second
        for (int i = 1; i <= times; ++i) {
            ASSERT_EQ(0, pthread_kill(caller.native_handle(), SIGUSR1));
            while (walks < i)
                std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        isOver = true;
        caller.join();
    }
}

// The handler has interrupted what the walk waits for, and the fork waits for the walk.
TEST(Backtrace, WaitsForAForkInAHandlerThatHasTheLinkersList) {
    NEEDS_THREADS_AFTER_FORK();
    const auto result = support::runInChild([] {
        signal(SIGUSR1, [](int) {
            const pid_t child = fork();
            if (child == 0)
                _exit(0);
            waitpid(child, nullptr, 0);
        });
        static std::atomic<bool> isWithin{false};
        std::thread walker([] {
            while (!isWithin)
                usleep(1000);
            static bt_memmap_t map;
            EXPECT_EQ(0, bt_load_memmap(&bt_acc_self, &map));
        });
        const auto forkInHandler = [](dl_phdr_info*, std::size_t, void*) {
            isWithin = true;
            usleep(50000);
            raise(SIGUSR1);
            return 1;
        };
        dl_iterate_phdr(forkInHandler, nullptr);
        walker.join();
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

// And finds its signals as they were.
TEST(Backtrace, DoesNotWaitInAChildThatWasForkedAmongTheHostsConstructors) {
    const auto result = support::runProgram(HOST_STATIC_PROBE, {});
    EXPECT_TRUE(result.exitedWith(0)) << result;
    EXPECT_THAT(result.out, testing::EndsWith(" 0\n"));
}

TEST(Backtrace, NeedsNeitherHeapNorDescriptors) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the heap of a sanitizer or an emulator does not run out";
    const auto result = support::runInChild([] {
        static char text[8192];
        static bt_memmap_t map;
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        exhaustHeap();
        if (isAvailable(1))
            _exit(2);
        bt_addr_t addresses[100];
        const bool good = bt_get_backtrace(&bt_acc_self, addresses, 100) > 3 &&
                          bt_load_memmap(&bt_acc_self, &map) == 0 && map.count > 3 &&
                          bt_sprn_memmap(&map, text, sizeof(text)) == 0;
        _exit(good ? 0 : 1);
    });
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

}  // namespace

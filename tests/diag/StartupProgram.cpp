// Tells what the library makes of its arguments; a program of its own, as these are read once in a process.
#include <VQStartupOptions.h>

#include <CVQString.h>
#include <VQCommandLineOptions.h>
#include <VQMemory.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>

namespace {

struct SBeforeMain {
    bool breakEnabled = VQStartupOptions::isBreakEnabled();
    int level = VQStartupOptions::getMemoryTraceLevel();
    int count = VQCommandLineOptions::getARGC();
};
const SBeforeMain sBeforeMain;

/// Threads that all want to be the first to allocate.
void raceForTheFirstAllocation() {
    constexpr int kThreads = 8;
    static pthread_barrier_t barrier;
    pthread_t threads[kThreads];
    pthread_barrier_init(&barrier, nullptr, kThreads);
    for (pthread_t& thread : threads) {
        const auto run = [](void*) -> void* {
            pthread_barrier_wait(&barrier);
            return allocateMemory(100);
        };
        pthread_create(&thread, nullptr, run, nullptr);
    }
    void* blocks[kThreads];
    for (int i = 0; i < kThreads; ++i) {
        pthread_join(threads[i], &blocks[i]);
    }
    const unsigned with = VQMemory::getHeapInfo().allocatedBytes;
    for (void* const block : blocks) {
        releaseMemory(block);
    }
    std::printf("%u %u", with, VQMemory::getHeapInfo().allocatedBytes);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "race") == 0) {
        raceForTheFirstAllocation();
        return 0;
    }
    if (argc > 1 && std::strcmp(argv[1], "count") == 0) {
        std::printf("%d %d", sBeforeMain.count, VQCommandLineOptions::getARGC());
        std::atexit([] { std::printf(" %d", VQCommandLineOptions::getARGC()); });
        return 0;
    }
    std::printf("%d %d", VQStartupOptions::isBreakEnabled(), VQStartupOptions::getMemoryTraceLevel());
    if (sBeforeMain.breakEnabled != VQStartupOptions::isBreakEnabled() ||
        sBeforeMain.level != VQStartupOptions::getMemoryTraceLevel()) {
        std::printf(" but another answer before main");
    }
    std::printf(" [%s]", VQStartupOptions::getCommandLine().c_str());
    return 0;
}

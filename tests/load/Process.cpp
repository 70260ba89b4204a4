#include "Process.h"

#include <CVQBuffer.h>
#include <CVQByteStream.h>
#include <CVQRamwatcher.h>
#include <TVQVector.h>
#include <VQMemory.h>
#include <VQOperatingSystem.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <string>
#include <unistd.h>

namespace load {
namespace {

constexpr unsigned long long kMs = 1000000;
constexpr int kStackSize = 512 * 1024;

std::atomic<SBoard*> sBoard{nullptr};

void noteSignal(int) {
    sBoard.load()->signals.fetch_add(1, std::memory_order_relaxed);
}

void handle(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(SIGUSR1, &action, nullptr);
    sigaction(SIGUSR2, &action, nullptr);
}

/// SIGUSR1 every millisecond to the calling thread alone.
class CStorm {
public:
    CStorm() {
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGUSR1;
        event._sigev_un._tid = gettid();
        timer_create(CLOCK_MONOTONIC, &event, &mTimer);
        const itimerspec period = {{0, 1000000}, {0, 1000000}};
        timer_settime(mTimer, 0, &period, nullptr);
    }
    ~CStorm() { timer_delete(mTimer); }
    CStorm(const CStorm&) = delete;
    CStorm& operator=(const CStorm&) = delete;

private:
    timer_t mTimer = {};
};

int countEntries(const char* folder) {
    int count = 0;
    if (DIR* const entries = opendir(folder)) {
        while (readdir(entries) != nullptr) {
            ++count;
        }
        closedir(entries);
    }
    return count;
}

/// Of memory files and segments; the heap's own come and go as the C library likes. Left out are the pages of this
/// process's own channels, which later channels use again: there are as many as there ever were channels at a time.
int countMappings() {
    const std::string ownChannel = "/memfd:nto-channel-" + std::to_string(getpid()) + "-";
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    std::string line;
    while (std::getline(maps, line)) {
        const bool isShared =
            line.find("/memfd:") != std::string::npos || line.find("/dev/shm/") != std::string::npos;
        count += isShared && line.find(ownChannel) == std::string::npos ? 1 : 0;
    }
    return count;
}

unsigned countWatched() {
    TVQVector<CVQRamwatcher::sElement> rows;
    rows.resize(512);
    unsigned count = 512, instances = 0;
    CVQRamwatcher::dumpWatches(&rows[0], count);
    for (unsigned i = 0; i < count; ++i) {
        instances += rows[static_cast<int>(i)].instances % 100000;
    }
    return instances;
}

}  // namespace

CStormCount::CStormCount(SBoard& board) {
    sBoard = &board;
    handle(noteSignal);
}

CStormCount::~CStormCount() {
    handle(SIG_IGN);
}

CLoadThread::CLoadThread(const SSelf& self, int index, std::function<void(Number& steps)> body)
    : mBoard(self.board), mSteps(self.board.steps[self.process][index]), mBody(std::move(body)),
      mId(CVQThreadCtrl::startThread(*this, /*detached*/ false, CVQThreadCtrl::INHERITPRIORITY, kStackSize)) {
    if (mId == 0) {
        mBoard.complain("no thread: %s", std::strerror(errno));
    }
}

CLoadThread::~CLoadThread() {
    if (mId != 0 && CVQThreadCtrl::join(mId) != 0) {
        mBoard.complain("a thread cannot be joined");
    }
}

void CLoadThread::run() {
    const CStorm storm;
    mBody(mSteps);
}

SInventory SInventory::take() {
    CVQRamwatcher::evalIsEnabled();
    return {VQMemory::getHeapInfo().allocatedBytes, countWatched(), countEntries("/proc/self/fd"),
            countEntries("/proc/self/task"), countMappings()};
}

SInventory SInventory::takeSettled() {
    SInventory last = take();
    for (int tries = 0, same = 0; tries < 200 && same < 10; ++tries) {
        VQOperatingSystem::sleepMs(5);
        const SInventory now = take();
        same = now == last ? same + 1 : 0;
        last = now;
    }
    return last;
}

void SInventory::compare(const SSelf& self) const {
    SInventory now = take();
    for (int tries = 0; tries < 100 && !(now == *this); ++tries) {
        VQOperatingSystem::sleepMs(10);
        now = take();
    }
    const auto check = [&](const char* what, long before, long after) {
        if (before != after) {
            self.board.complain("process %d, start %u leaks: %s were %ld and are %ld", self.process,
                                self.generation, what, before, after);
        }
    };
    check("bytes of heap", heapBytes, now.heapBytes);
    check("watched instances", watched, now.watched);
    check("descriptors", descriptors, now.descriptors);
    check("threads", threads, now.threads);
    check("shared mappings", mappings, now.mappings);
}

void CHandOver::produceBatch(std::mt19937& random) {
    for (unsigned i = 0; i < kBatch; ++i) {
        CVQString text;
        text.format("text %u", mProduced);
        const CVQString copy = text;  // shared until the other side writes
        if (!mFree.lock(random() % 4 == 0 ? 1 : -1)) {
            mFree.lock();
        }
        mLock.lock();
        mRing[mProduced++ % kRing] = copy;
        mLock.unlock();
        mFilled.unlock();
        if (std::atoi(text.c_str() + 5) != static_cast<int>(mProduced - 1)) {
            mBoard.complain("a shared text was changed: \"%s\"", text.c_str());
        }
    }
    mMutex.lock();
    mOffer.format("batch up to %u", mProduced);
    mIsOffered = true;
    mChanged.signal();
    while (mIsOffered) {
        mChanged.wait(mMutex, random() % 4 == 0 ? 1 : -1);
    }
    mMutex.unlock();
    mBarrier.wait();
    mBoard.count(STRINGS, 2ULL * kBatch);
    mBoard.count(LOCKS, kBatch + 1);
    mBoard.count(CONDITIONS);
}

void CHandOver::consumeBatch() {
    for (unsigned i = 0; i < kBatch; ++i) {
        mFilled.lock();
        mLock.lock();
        CVQString text = mRing[mConsumed % kRing];
        mRing[mConsumed % kRing].clear();
        mLock.unlock();
        mFree.unlock();
        text.append(", seen");
        CVQString wanted;
        wanted.format("text %u, seen", mConsumed++);
        if (text != wanted) {
            mBoard.complain("handed over: \"%s\" in place of \"%s\"", text.c_str(), wanted.c_str());
        }
    }
    mMutex.lock();
    while (!mIsOffered) {
        mChanged.wait(mMutex);
    }
    CVQString wanted;
    wanted.format("batch up to %u", mConsumed);
    if (mOffer != wanted) {
        mBoard.complain("offered: \"%s\" in place of \"%s\"", mOffer.c_str(), wanted.c_str());
    }
    mIsOffered = false;
    mChanged.signal();
    mMutex.unlock();
    mBarrier.wait();
    mBoard.count(STRINGS, 2ULL * kBatch);
    mBoard.count(LOCKS, kBatch + 1);
    mBoard.count(SEMAPHORES, 2ULL * kBatch);
    mBoard.count(BARRIERS);
}

class CTimers::CCounted : public CLogicalTimer {
public:
    using CLogicalTimer::CLogicalTimer;
    void onTimeout() override { ++mFired; }
    unsigned mFired = 0;
};

class CTimers::CCountedKernel : public CTimer {
public:
    using CTimer::CTimer;
    void onTimeout() override { ++mFired; }
    unsigned mFired = 0;
};

struct CTimers::SBatch {
    static constexpr unsigned kDisturbed = 24, kSteadyMs = 3, kKernelMs = 2;

    CLogicalTimerManager logical{/*workTimeoutMs*/ 2, /*threadSafe*/ true};
    CTimerManager kernel{/*workTimeoutMs*/ 1};
    CCounted steady{logical};
    CCountedKernel steadyKernel{kernel};
    std::vector<std::unique_ptr<CCounted>> disturbed;
};

void CTimers::live(Number& steps, const std::function<bool()>& isStopped) {
    SBatch batch;
    for (unsigned i = 0; i < SBatch::kDisturbed; ++i) {
        batch.disturbed.push_back(std::make_unique<CCounted>(batch.logical));
    }
    // Each period that is over must have been one call: no fewer, whatever was in the way, and no more.
    const unsigned long long before = nowNs();
    batch.steady.start(SBatch::kSteadyMs, /*singleShot*/ false);
    batch.steadyKernel.start(SBatch::kKernelMs, /*singleShot*/ false);
    const unsigned long long after = nowNs();
    mMutex.lock();
    mBatch = &batch;
    mMutex.unlock();
    while (!isStopped() && nowNs() - after < 500 * kMs) {
        batch.logical.performWork();
        batch.kernel.performWork();
        ++steps;
    }
    mMutex.lock();
    mBatch = nullptr;
    mMutex.unlock();
    const auto due = [](unsigned long long since, unsigned periodMs) {
        return static_cast<unsigned>((nowNs() - since) / (periodMs * kMs));
    };
    const unsigned wanted = due(after, SBatch::kSteadyMs), wantedKernel = due(after, SBatch::kKernelMs);
    while (nowNs() - after < 20000 * kMs &&
           (batch.steady.mFired < wanted || batch.steadyKernel.mFired < wantedKernel)) {
        batch.logical.performWork();
        batch.kernel.performWork();
    }
    const unsigned most = due(before, SBatch::kSteadyMs), mostKernel = due(before, SBatch::kKernelMs);
    if (batch.steady.mFired < wanted || batch.steady.mFired > most) {
        mBoard.complain("a logical timer fired %u times of %u to %u", batch.steady.mFired, wanted, most);
    }
    if (batch.steadyKernel.mFired < wantedKernel || batch.steadyKernel.mFired > mostKernel) {
        mBoard.complain("a kernel timer fired %u times of %u to %u", batch.steadyKernel.mFired, wantedKernel,
                        mostKernel);
    }
    unsigned long long fired = batch.steady.mFired;
    for (const auto& timer : batch.disturbed) {
        fired += timer->mFired;
    }
    mBoard.count(LOGICAL_TIMERS, fired);
    mBoard.count(KERNEL_TIMERS, batch.steadyKernel.mFired);
    batch.steady.stop();
    batch.steadyKernel.stop();
}

void CTimers::disturb(std::mt19937& random) {
    mMutex.lock();
    if (mBatch != nullptr) {
        CCounted& timer = *mBatch->disturbed[random() % SBatch::kDisturbed];
        if (random() % 3 == 0) {
            timer.stop();
        } else {
            timer.start(1 + random() % 20, /*singleShot*/ random() % 2 == 0);
        }
    }
    mMutex.unlock();
}

void CTexts::work(std::mt19937& random) {
    mLock.lock();
    CVQString mine = mShared;
    mLock.unlock();
    const int number = std::atoi(mine.c_str());
    CVQString text;
    text.format("%d", number + 1);
    for (unsigned i = random() % 8; i > 0; --i) {
        text.append(" und so weiter \xC3\xA4\xC3\xB6\xC3\xBC");
    }
    TVQVector<CVQString> words;
    words.push_back(mine);
    words.push_back(text.getLeft(random() % 30));
    words.push_back(text.getRight(random() % 30));
    CVQByteStream stream;
    for (const CVQString& word : words) {
        stream << word;
    }
    const CVQBuffer buffer(stream);
    CVQByteStream back(buffer);
    for (const CVQString& word : words) {
        CVQString read;
        back >> read;
        if (read != word) {
            mBoard.complain("a stream gave \"%s\" back as \"%s\"", word.c_str(), read.c_str());
        }
    }
    mLock.lock();
    mShared = text;
    mLock.unlock();
    if (std::atoi(mine.c_str()) != number || std::atoi(text.c_str()) != number + 1) {
        mBoard.complain("a shared text was changed: \"%s\"", mine.c_str());
    }
    mBoard.count(STRINGS, 8);
    mBoard.count(BUFFERS, 2);
    mBoard.count(LOCKS, 2);
}

}  // namespace load

#include "Worker.h"

#include "Messages.h"

#include <CVQBuffer.h>
#include <CVQReferencedSharedMemory.h>
#include <CVQShMem.h>
#include <VQChannelAccess.h>
#include <VQMemory.h>
#include <VQMutexAccess.h>
#include <VQOperatingSystem.h>
#include <VQSharedMemoryAccess.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace load {
namespace {

constexpr unsigned kForEver = ~0U;
constexpr unsigned kHeldTimes = 16;        // a round's locks of the shared mutex, by each who meets
constexpr unsigned kLargest = 256 * 1024;  // of the blocks that large requests carry

std::mt19937 randomFor(const SSelf& self, unsigned thread) {
    return std::mt19937((self.generation * kProcesses + static_cast<unsigned>(self.process)) * kThreads + thread);
}

/// One life of the threads. A process has two: what the first one leaves is kept for good, what the second one adds
/// to that is a leak.
class CLife {
public:
    CLife(const SSelf& self, SMeeting& meeting, unsigned base, unsigned lastRound);
    CLife(const CLife&) = delete;
    CLife& operator=(const CLife&) = delete;

    void run();

private:
    void sendSmall(Number& steps);
    void sendLarge(Number& steps);
    void sendHandles(Number& steps);
    void answer(Number& steps);
    void changeTexts(Number& steps);
    void meet(Number& steps, bool isProducer);
    void beHeldUp(bool isPing, std::mt19937& random);
    bool isLeader(bool isProducer) const;
    bool attach(CSender& sender) const;

    const SSelf& mSelf;
    SBoard& mBoard;
    SMeeting& mMeeting;
    const unsigned mBase;       // rounds before this life
    const unsigned mLastRound;  // of this life, or kForEver
    std::atomic<bool> mIsStopped{false};
    CHandOver mHandOver;
    CTimers mTimers;
    CTexts mTexts;
};

CLife::CLife(const SSelf& self, SMeeting& meeting, unsigned base, unsigned lastRound)
    : mSelf(self), mBoard(self.board), mMeeting(meeting), mBase(base), mLastRound(lastRound), mHandOver(self.board),
      mTimers(self.board), mTexts(self.board) {
}

void CLife::run() {
    const int channel = ChannelCreate(_NTO_CHF_DISCONNECT | _NTO_CHF_UNBLOCK);
    if (channel == -1) {
        mBoard.complain("process %d: no channel: %s", mSelf.process, std::strerror(errno));
        return;
    }
    mSelf.place.channel = channel;
    {
        const CLoadThread small(mSelf, 0, [this](Number& steps) { sendSmall(steps); });
        const CLoadThread large(mSelf, 1, [this](Number& steps) { sendLarge(steps); });
        const CLoadThread handles(mSelf, 2, [this](Number& steps) { sendHandles(steps); });
        const CLoadThread receiver(mSelf, 3, [this](Number& steps) { answer(steps); });
        const CLoadThread timers(mSelf, 4, [this](Number& steps) {
            while (!mIsStopped)
                mTimers.live(steps, [this] { return mIsStopped.load(); });
        });
        const CLoadThread texts(mSelf, 5, [this](Number& steps) { changeTexts(steps); });
        {
            const CLoadThread producer(mSelf, 6, [this](Number& steps) { meet(steps, true); });
            const CLoadThread consumer(mSelf, 7, [this](Number& steps) { meet(steps, false); });
        }
        mIsStopped = true;
    }
    mSelf.place.channel = 0;
    ChannelDestroy(channel);
}

bool CLife::attach(CSender& sender) const {
    SPlace& server = mBoard.place(kServer, 0);
    if (!sender.attach(server.pid, server.channel)) {
        mBoard.complain("process %d cannot connect to the server: %s", mSelf.process, std::strerror(errno));
        return false;
    }
    return true;
}

void CLife::sendSmall(Number& steps) {
    CSender sender(mBoard, mSelf.process, mSelf.place, SMALL);
    if (!attach(sender)) {
        return;
    }
    std::mt19937 random = randomFor(mSelf, 0);
    while (!mIsStopped) {
        CVQByteStream content, reply;
        for (unsigned words = random() % 60; words > 0; --words) {
            content << static_cast<unsigned>(random());
        }
        sender.send(content, reply, -1);
        if (!(reply == content)) {
            mBoard.complain("process %d: a small reply differs from its request", mSelf.process);
        }
        if (random() % 4 == 0) {
            sender.sendPulse(mSelf.process);
        }
        mTimers.disturb(random);
        ++steps;
    }
}

void CLife::sendLarge(Number& steps) {
    CSender sender(mBoard, mSelf.process, mSelf.place, LARGE);
    if (!attach(sender)) {
        return;
    }
    std::mt19937 random = randomFor(mSelf, 1);
    while (!mIsStopped) {
        CVQBuffer block(random() % 8 == 0 ? random() % kLargest : random() % 4096);
        const unsigned value = static_cast<unsigned>(random());
        for (unsigned at = 0; at + sizeof(value) <= block.getSize(); at += 997) {
            block.copyTo(&value, sizeof(value), at);
        }
        CVQString text;
        text.format("block of %u bytes", block.getSize());
        CVQByteStream content, reply;
        content << text << block;
        const bool hasLimit = random() % 8 == 0;
        const int limitMs = hasLimit ? static_cast<int>(1 + random() % 4) : random() % 2 == 0 ? 60000 : -1;
        const CSender::EResult result = sender.send(content, reply, limitMs);
        if (result == CSender::ANSWERED) {
            CVQString backText;
            CVQBuffer backBlock;
            reply >> backText >> backBlock;
            text.append(", received");
            if (backText != text || backBlock != block) {
                mBoard.complain("process %d: wrong answer \"%.60s\"", mSelf.process, backText.c_str());
            }
        } else if (!hasLimit) {
            mBoard.complain("process %d: no answer to a large request", mSelf.process);
        }
        mBoard.count(BUFFERS, 2);
        ++steps;
    }
}

void CLife::sendHandles(Number& steps) {
    CSender sender(mBoard, mSelf.process, mSelf.place, HANDLES);
    if (!attach(sender)) {
        return;
    }
    std::mt19937 random = randomFor(mSelf, 2);
    for (unsigned i = mBase * 1000; !mIsStopped; ++i) {
        char name[64];
        segmentName(name, mBoard.id, 's', mSelf.process, mSelf.generation, i);
        const unsigned size = 64 + random() % 65536;
        auto segment = CVQReferencedSharedMemory::create(name, size);
        if (!segment) {
            mBoard.complain("process %d: no segment: %s", mSelf.process, std::strerror(errno));
            return;
        }
        std::memset(segment->getDataPtr(), static_cast<int>(random()), size);
        const unsigned sum = sumOf(segment->getDataPtr(), size);
        CVQByteStream content, reply;
        content << sum << segment;
        const bool isKept = random() % 2 == 0;
        if (!isKept) {
            segment = nullptr;  // the handle under way is the only user
        }
        sender.send(content, reply, -1);
        if (isKept && segment->getSharedMemoryRefCount() != 1) {
            mBoard.complain("process %d: a segment has %u users", mSelf.process,
                            segment->getSharedMemoryRefCount());
        }
        mBoard.count(SEGMENTS);
        if (mBoard.takeFault(LEAK_SEGMENT)) {
            for (unsigned lost = 1; lost <= 2; ++lost) {  // one might be a killed worker's
                segmentName(name, mBoard.id, 's', mSelf.process, mSelf.generation, ~lost);
                VQSharedMemoryAccess::close(
                    VQSharedMemoryAccess::open(name, 4096, VQSharedMemoryAccess::OPEN_CREATE_EXCLUSIVE));
            }
        }
        ++steps;
    }
}

void CLife::answer(Number& steps) {
    const std::unique_ptr<UArrival> arrival(new UArrival);
    SFlow& flow = mSelf.place.flows[BACK];
    while (!mIsStopped) {
        const int id = VQChannelAccess::receiveMessageOrPulse(mSelf.place.channel, arrival.get(), sizeof(UArrival),
                                                              /*timeoutMs*/ 20, nullptr);
        ++steps;
        if (id == 0 && !mBoard.takeSystemPulse(arrival->pulse.code)) {
            mBoard.complain("process %d: a pulse has the code %d", mSelf.process, arrival->pulse.code);
        }
        if (id == -1 && errno != ETIMEDOUT) {
            mBoard.complain("process %d cannot receive: %s", mSelf.process, std::strerror(errno));
            return;
        }
        if (id > 0) {
            const auto& request = arrival->request;
            if (request.header.length > kLongest ||
                sumOf(request.content, request.header.length) != request.header.sum) {
                mBoard.complain("process %d: a request has wrong bytes", mSelf.process);
                MsgError(id, EBADMSG);
                continue;
            }
            flow.accept(request.header.number);
            MsgReply(id, 0, &request, static_cast<int>(sizeof(SHeader) + request.header.length));
        }
    }
}

void CLife::changeTexts(Number& steps) {
    std::mt19937 random = randomFor(mSelf, 5);
    while (!mIsStopped) {
        mTexts.work(random);
        mTimers.disturb(random);
        if (random() % 64 == 0) {
            VQOperatingSystem::sleepMs(1);
        }
        ++steps;
    }
}

/// The first worker of a unit says when to go and looks after the sums.
bool CLife::isLeader(bool isProducer) const {
    return isProducer && (mSelf.process == 0 || mSelf.process == 1);
}

void CLife::beHeldUp(bool isPing, std::mt19937& random) {
    for (unsigned i = 0; i < kHeldTimes; ++i) {
        while (!VQMutexAccess::lock(mMeeting.mutex, random() % 4 == 0 ? 1 : -1)) {
        }
        const unsigned locked = mMeeting.locked;
        mMeeting.locked = locked + 1;
        pthread_mutex_unlock(&mMeeting.mutex);

        CVQCountingSemaphore& give = isPing ? mMeeting.ping : mMeeting.pong;
        CVQCountingSemaphore& take = isPing ? mMeeting.pong : mMeeting.ping;
        give.unlock();
        while (!take.lock(random() % 4 == 0 ? 1 : -1)) {
        }
    }
    mBoard.count(LOCKS, kHeldTimes);
    mBoard.count(SEMAPHORES, 2ULL * kHeldTimes);
    mMeeting.barrier.wait();
    mBoard.count(BARRIERS);
}

void CLife::meet(Number& steps, bool isProducer) {
    std::mt19937 random = randomFor(mSelf, isProducer ? 6 : 7);
    for (unsigned round = mBase + 1;; ++round) {
        if (isProducer) {
            mHandOver.produceBatch(random);
        } else {
            mHandOver.consumeBatch();
        }
        if (isLeader(isProducer) && mLastRound == kForEver && mBoard.stopUnit[unitOf(mSelf.process)] &&
            mMeeting.lastRound == kForEver) {
            mMeeting.lastRound = round;
        }
        beHeldUp(isProducer, random);
        if (isLeader(isProducer) && mMeeting.locked != round * kHeldTimes * mMeeting.participants) {
            mBoard.complain("a shared mutex was held %u times, %u were counted",
                            round * kHeldTimes * mMeeting.participants, mMeeting.locked.load());
        }
        const bool isLast = round >= (mLastRound != kForEver ? mLastRound : mMeeting.lastRound.load());
        mMeeting.barrier.wait();  // nobody changes the sums before they have been looked at
        mBoard.count(BARRIERS);
        ++steps;
        if (isLast) {
            return;
        }
    }
}

}  // namespace

void segmentName(char (&name)[64], int id, char kind, int process, unsigned generation, unsigned number) {
    std::snprintf(name, sizeof(name), "/marlix_load_%d_%c%d_%u_%u", id, kind, process, generation, number);
}

SMeeting::SMeeting(unsigned everybody) : barrier(everybody, /*shared*/ true), participants(everybody) {
    VQMutexAccess::create(mutex, /*unlocked*/ true, /*shared*/ true, /*recursive*/ false);
    locked = 0;
    lastRound = kForEver;
}

SMeeting::~SMeeting() {
    VQMutexAccess::destroy(mutex);
}

int runGuest(const SSelf& self) {
    SPlace& server = self.board.place(kServer, 0);
    CSender sender(self.board, self.process, self.place, SMALL);
    CVQByteStream content, reply;
    return sender.attach(server.pid, server.channel) && sender.send(content, reply, -1) == CSender::ANSWERED ? 0
                                                                                                             : 1;
}

int runWorker(const SSelf& self) {
    char name[64];
    segmentName(name, self.board.id, 'm', unitOf(self.process), self.generation, 0);
    CVQShMem segment(name, sizeof(SMeeting));
    if (!segment.attach() || !segment.map(VQSharedMemoryAccess::MAPPING_READ_WRITE)) {
        self.board.complain("process %d: no meeting: %s", self.process, std::strerror(errno));
        return 1;
    }
    auto& meeting = *static_cast<SMeeting*>(segment.getAddress());
    constexpr unsigned kFirstLife = 2;
    {
        CLife first(self, meeting, 0, kFirstLife);
        first.run();
    }
    const SInventory before = SInventory::takeSettled();
    {
        CLife second(self, meeting, kFirstLife, kForEver);
        second.run();
    }
    if (self.board.takeFault(LEAK_HEAP)) {
        [[maybe_unused]] void* volatile lost = VQMemory::alloc(24);
    }
    if (self.board.takeFault(LEAK_DESCRIPTOR)) {
        [[maybe_unused]] const volatile int lost = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    if (self.board.takeFault(ASSERT)) {
        CVQShMem unnamed("", 1);
    }
    if (self.board.takeFault(DIE)) {
        std::abort();
    }
    before.compare(self);
    return 0;
}

}  // namespace load

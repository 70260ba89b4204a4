#include "Server.h"

#include "Messages.h"

#include <CVQBuffer.h>
#include <CVQReferencedSharedMemory.h>
#include <VQChannelAccess.h>
#include <VQMemory.h>
#include <VQOperatingSystem.h>
#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace load {
namespace {

constexpr int kReceivers = 3;

class CLife {
public:
    /// A life ends when `isEnding` is set.
    CLife(const SSelf& self, const std::atomic<bool>& isEnding);
    CLife(const CLife&) = delete;
    CLife& operator=(const CLife&) = delete;

    void run();

private:
    void receive(Number& steps);
    void accept(int id, UArrival& arrival);
    void accept(const _pulse& pulse);
    void replyLarge(int id, UArrival& arrival);
    void takeSegment(SPlace& place, int worker, const UArrival& arrival);
    void reply(int id, const SHeader& request, const void* content, unsigned length);

    void sendBack(Number& steps);
    void sendLocal(Number& steps);
    void handOver(Number& steps, bool isProducer);
    void driveTimers(Number& steps);

    bool isStopped() const { return mIsEnding; }

    const SSelf& mSelf;
    SBoard& mBoard;
    const std::atomic<bool>& mIsEnding;
    int mChannel = -1;
    std::atomic<bool> mIsQuiet{false};  // nobody sends any more
    std::atomic<unsigned> mLastRound{~0U};
    CVQCriticalSection mAccounts[kProcesses];
    CHandOver mHandOver;
    CTimers mTimers;
    CTexts mTexts;
};

CLife::CLife(const SSelf& self, const std::atomic<bool>& isEnding)
    : mSelf(self), mBoard(self.board), mIsEnding(isEnding), mHandOver(self.board), mTimers(self.board),
      mTexts(self.board) {
}

void CLife::run() {
    mChannel = ChannelCreate(_NTO_CHF_DISCONNECT | _NTO_CHF_UNBLOCK);
    if (mChannel == -1) {
        mBoard.complain("no channel: %s", std::strerror(errno));
        return;
    }
    mSelf.place.channel = mChannel;
    ++mBoard.serverLives;
    {
        const CLoadThread receivers[kReceivers] = {{mSelf, 0, [this](Number& steps) { receive(steps); }},
                                                   {mSelf, 1, [this](Number& steps) { receive(steps); }},
                                                   {mSelf, 2, [this](Number& steps) { receive(steps); }}};
        {
            const CLoadThread back(mSelf, 3, [this](Number& steps) { sendBack(steps); });
            const CLoadThread local(mSelf, 4, [this](Number& steps) { sendLocal(steps); });
            const CLoadThread producer(mSelf, 5, [this](Number& steps) { handOver(steps, true); });
            const CLoadThread consumer(mSelf, 6, [this](Number& steps) { handOver(steps, false); });
            const CLoadThread timers(mSelf, 7, [this](Number& steps) { driveTimers(steps); });
        }
        mIsQuiet = true;
    }
    mSelf.place.channel = 0;
    ChannelDestroy(mChannel);
}

void CLife::receive(Number& steps) {
    const std::unique_ptr<UArrival> arrival(new UArrival);
    for (;;) {
        const int id = VQChannelAccess::receiveMessageOrPulse(mChannel, arrival.get(), sizeof(UArrival),
                                                              /*timeoutMs*/ 50, nullptr);
        ++steps;
        if (id > 0) {
            accept(id, *arrival);
        } else if (id == 0) {
            accept(arrival->pulse);
        } else if (errno != ETIMEDOUT) {
            mBoard.complain("the server cannot receive: %s", std::strerror(errno));
            return;
        } else if (mIsQuiet) {
            return;
        }
    }
}

void CLife::accept(int id, UArrival& arrival) {
    const SHeader& header = arrival.request.header;
    if (header.mark != kMark || header.process >= kProcesses || header.flow >= FLOWS || header.length > kLongest ||
        sumOf(arrival.request.content, header.length) != header.sum) {
        mBoard.complain("a request has wrong bytes");
        MsgError(id, EBADMSG);
        return;
    }
    SPlace& place = mBoard.place(static_cast<int>(header.process), header.generation);
    if (place.generation != header.generation) {
        mBoard.complain("a request of process %u, start %u comes in start %u", header.process, header.generation,
                        place.generation.load());
    }
    SFlow& flow = place.flows[header.flow];
    CVQCriticalSection& lock = mAccounts[header.process];
    const bool isLost = mBoard.takeFault(LOSE_REQUEST), isDoubled = mBoard.takeFault(DOUBLE_REQUEST);
    lock.lock();
    for (int times = isLost ? 0 : isDoubled ? 2 : 1; times > 0; --times) {
        flow.accept(header.number);
    }
    lock.unlock();
    if (header.flow == LARGE) {
        replyLarge(id, arrival);
        return;
    }
    if (header.flow == HANDLES) {
        takeSegment(place, static_cast<int>(header.process), arrival);
        reply(id, header, nullptr, 0);
        return;
    }
    reply(id, header, arrival.request.content, header.length);
}

void CLife::reply(int id, const SHeader& request, const void* content, unsigned length) {
    SHeader header = request;
    header.length = length;
    header.sum = sumOf(content, length);
    if (mBoard.takeFault(WRONG_REPLY)) {
        --header.number;
    }
    const iovec parts[] = {{&header, sizeof(header)}, {const_cast<void*>(content), length}};
    MsgReplyv(id, 0, parts, 2);  // a sender that is gone does not want it
}

void CLife::replyLarge(int id, UArrival& arrival) {
    CVQByteStream content, answer;
    content.write(arrival.request.content, arrival.request.header.length);
    CVQString text;
    CVQBuffer block;
    content >> text >> block;
    text.append(", received");
    answer << text << block;
    reply(id, arrival.request.header, answer.getData(), answer.getLength());
    mBoard.count(STRINGS, 2);
    mBoard.count(BUFFERS, 2);
}

/// The segments of a dead worker are unlinked when none of them is being opened here.
void CLife::takeSegment(SPlace& place, int worker, const UArrival& arrival) {
    CVQByteStream content;
    content.write(arrival.request.content, arrival.request.header.length);
    std::atomic<int>& openings = mBoard.openings[worker];
    ++openings;
    if (!place.isDead) {
        unsigned sum = 0;
        TVQRefCountPointer<CVQReferencedSharedMemory> segment;
        content >> sum >> segment;
        if (!segment || segment->getDataPtr() == nullptr ||
            sumOf(segment->getDataPtr(), segment->getSize()) != sum) {
            mBoard.complain("a segment of process %d did not arrive", worker);
        }
    }
    --openings;
}

void CLife::accept(const _pulse& pulse) {
    if (mBoard.takeSystemPulse(pulse.code)) {
        return;
    }
    if (pulse.code >= kProcesses) {
        mBoard.complain("a pulse has the code %d", pulse.code);
        return;
    }
    const auto value = static_cast<unsigned>(pulse.value.sival_int);
    const unsigned number = value & ((1U << kNumberBits) - 1);
    SPlace& place = mBoard.place(pulse.code, value >> kNumberBits);
    CVQCriticalSection& lock = mAccounts[pulse.code];
    lock.lock();
    SPulses& pulses = place.pulses;
    ++pulses.received;
    pulses.sum += number;
    if (number > pulses.highest) {
        pulses.highest = number;
    }
    lock.unlock();
}

void CLife::sendBack(Number& steps) {
    std::mt19937 random(mBoard.id);
    std::unique_ptr<CSender> peers[kWorkers];
    while (!isStopped()) {
        ++steps;
        const int worker = static_cast<int>(random() % kWorkers);
        std::unique_ptr<CSender>& peer = peers[worker];
        if (peer == nullptr) {
            SPlace& place = mBoard.place(worker, mBoard.newest[worker]);
            const int channel = place.channel;
            if (channel == 0) {
                VQOperatingSystem::sleepMs(1);
                continue;
            }
            peer = std::make_unique<CSender>(mBoard, worker, place, BACK);
            if (!peer->attach(place.pid, channel)) {
                peer.reset();
                VQOperatingSystem::sleepMs(1);
                continue;
            }
        }
        CVQByteStream content, answer;
        for (unsigned words = random() % (random() % 16 == 0 ? 20000 : 40); words > 0; --words) {
            content << static_cast<unsigned>(random());
        }
        const CSender::EResult result = peer->send(content, answer, -1);
        if (result == CSender::LAPSED) {
            peer.reset();
        } else if (!(answer == content)) {
            mBoard.complain("worker %d: a reply differs from its request", worker);
        }
    }
}

void CLife::sendLocal(Number& steps) {
    CSender sender(mBoard, kServer, mSelf.place, LOCAL);
    if (!sender.attach(0, mChannel)) {
        mBoard.complain("the server cannot connect to itself: %s", std::strerror(errno));
        return;
    }
    std::mt19937 random(mBoard.id + 1);
    while (!isStopped()) {
        CVQByteStream content, answer;
        for (unsigned words = random() % (random() % 16 == 0 ? 20000 : 40); words > 0; --words) {
            content << static_cast<unsigned>(random());
        }
        sender.send(content, answer, -1);
        if (!(answer == content)) {
            mBoard.complain("the server: a reply differs from its request");
        }
        mTexts.work(random);
        mTimers.disturb(random);
        if (mBoard.takeFault(HANG)) {
            for (;;)
                pause();
        }
        ++steps;
    }
}

void CLife::handOver(Number& steps, bool isProducer) {
    std::mt19937 random(mBoard.id + 2);
    for (unsigned round = 1; round <= mLastRound; ++round) {
        if (isProducer) {
            if (isStopped() && mLastRound == ~0U) {
                mLastRound = round;  // before the meeting at the round's end
            }
            mHandOver.produceBatch(random);
        } else {
            mHandOver.consumeBatch();
        }
        ++steps;
    }
}

void CLife::driveTimers(Number& steps) {
    while (!isStopped()) {
        mTimers.live(steps, [this] { return isStopped(); });
        mBoard.serverHeap = VQMemory::getHeapInfo().allocatedBytes;
        if (mBoard.fault == GROW && mBoard.serverLives == 2) {
            constexpr std::size_t kLost = 4 << 20;  // twice a second, less often on a busy machine
            [[maybe_unused]] void* volatile lost = std::memset(VQMemory::alloc(kLost), 1, kLost);
        }
        if (mBoard.takeFault(LEAK_THREAD)) {
            static class CIdle : public CVQThreadCtrl::IRunnable {
                void run() override {
                    for (;;)
                        pause();
                }
            } idle;
            CVQThreadCtrl::startThread(idle, /*detached*/ true);
        }
    }
}

}  // namespace

int runServer(const SSelf& self) {
    {
        CLife first(self, self.board.guestHasLeft);
        first.run();
    }
    const SInventory before = SInventory::takeSettled();
    {
        CLife second(self, self.board.stopServer);
        second.run();
    }
    before.compare(self);
    return 0;
}

}  // namespace load

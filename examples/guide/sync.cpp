// A queue between two threads: a semaphore counts what is in it, a critical section guards it.
#include <CVQCountingSemaphore.h>
#include <CVQCriticalSection.h>
#include <CVQThreadCtrl.h>
#include <TVQQueue.h>
#include <cerrno>
#include <cstdio>

namespace {

class CMailbox {
public:
    void put(int value) {
        mLock.lock();
        mValues.push(value);
        mLock.unlock();
        mCount.unlock();
    }

    /// False when nothing arrived in `timeoutMs`.
    bool get(int& value, int timeoutMs) {
        if (!mCount.lock(timeoutMs)) {
            return false;
        }
        mLock.lock();
        value = *mValues.front();
        mValues.pop();
        mLock.unlock();
        return true;
    }

private:
    CVQCriticalSection mLock;
    CVQCountingSemaphore mCount{0, 100};
    TVQQueue<int> mValues;
};

class CProducer : public CVQThreadCtrl::IRunnable {
public:
    explicit CProducer(CMailbox& mailbox) : mMailbox(mailbox) {}
    void run() override {
        for (int i = 1; i <= 3; ++i) {
            mMailbox.put(i * i);
        }
    }

private:
    CMailbox& mMailbox;
};

}  // namespace

int main() {
    CMailbox mailbox;
    CProducer producer(mailbox);
    const int thread = CVQThreadCtrl::startThread(producer);

    int value = 0;
    for (int i = 0; i < 3 && mailbox.get(value, 2000); ++i) {
        std::printf("got %d\n", value);
    }
    CVQThreadCtrl::join(thread);
    const bool more = mailbox.get(value, 20);
    std::printf("more: %s\n", more ? "yes" : errno == ETIMEDOUT ? "no, timed out" : "no");
}

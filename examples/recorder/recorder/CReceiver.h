// CReceiver: takes blocks from a channel, checks them and has them recorded before it answers.
//   Purpose  what a sampler sends is copied first and then checked, and the copy is recorded. It is trusted in one point
//            only: that it does not shorten its segment meanwhile, which would end this process (VQSharedMemoryAccess).
//   Errors   as stated; what is refused is logged.
//   Threads  `run` is for one thread; `stop` for any.
#pragma once

#include "recorder/CJournal.h"

struct _msg_info;

class CReceiver {
public:
    struct SCounts {
        unsigned recorded = 0;
        unsigned known = 0;
        unsigned refused = 0;
    };

    explicit CReceiver(CJournal& journal) : mJournal(journal) {}
    ~CReceiver();
    CReceiver(const CReceiver&) = delete;
    CReceiver& operator=(const CReceiver&) = delete;

    /// Makes the channel. False, with `errno`, when there is none to be had.
    bool open();
    int getChannel() const { return mChannel; }

    /// Receives until it is stopped. False, with `errno`, when it cannot go on.
    bool run();
    void stop() const;

    const SCounts& getCounts() const { return mCounts; }

private:
    void handle(int id, const char* message, const _msg_info& info);
    int record(const char* message, unsigned length, int& status);
    bool fetch(const char* message, unsigned length);

    CJournal& mJournal;
    int mChannel = -1;
    int mConnection = -1;  // to the channel, for `stop`
    SCounts mCounts;
    CVQRCMemoryBuffer mCopy{SBlock::kLargestSize};
    unsigned mCopySize = 0;
};

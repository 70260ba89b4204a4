#include "recorder/CReceiver.h"

#include "shared/Message.h"

#include <CVQReferencedSharedMemory.h>
#include <TVQRefCountPointer.h>
#include <VQChannelAccess.h>
#include <VQSyslog.h>
#include <cerrno>
#include <cstring>
#include <sys/neutrino.h>

namespace {

constexpr int kStopCode = 1;

/// A receive brings the one or the other.
union UArrival {
    _pulse pulse;
    char message[Message::kLongest];
};

}  // namespace

CReceiver::~CReceiver() {
    if (mConnection != -1) {
        ConnectDetach(mConnection);
    }
    if (mChannel != -1) {
        ChannelDestroy(mChannel);
    }
}

bool CReceiver::open() {
    mChannel = ChannelCreate(0);
    return mChannel != -1 && VQChannelAccess::attach(mConnection, mChannel, /*this process*/ 0, /*this node*/ 0);
}

bool CReceiver::run() {
    for (;;) {
        constexpr int kNoLimit = -1;
        UArrival arrival;
        _msg_info info;
        const int id = VQChannelAccess::receiveMessageOrPulse(mChannel, &arrival, sizeof(arrival), kNoLimit, &info);
        if (id > 0) {
            handle(id, arrival.message, info);
        } else if (id == 0 && arrival.pulse.code == kStopCode) {
            return true;
        } else if (id < 0) {
            return false;
        }
    }
}

void CReceiver::stop() const {
    constexpr int kPriority = 10;
    MsgSendPulse(mConnection, kPriority, kStopCode, 0);
}

/// The sampler may be gone when the reply comes. Then it asks again, or its next start does not need the answer.
void CReceiver::handle(int id, const char* message, const _msg_info& info) {
    int status = Message::RECORDED;
    const int error = record(message, static_cast<unsigned>(info.msglen), status);
    if (error == EOK) {
        ++(status == Message::KNOWN ? mCounts.known : mCounts.recorded);
        MsgReply(id, status, nullptr, 0);
        return;
    }
    ++mCounts.refused;
    VQSyslog::logMsg(0, VQSyslog::ERROR, "recorder: a block from process %d is not recorded: %s",
                     static_cast<int>(info.pid), std::strerror(error));
    MsgError(id, error);
}

/// EOK, or why not.
int CReceiver::record(const char* message, unsigned length, int& status) {
    if (!fetch(message, length)) {
        return EBADMSG;
    }
    CBlockReader reader(mCopy.getData(), mCopySize);
    if (reader.next() != CBlockReader::BLOCK || reader.getLength() != mCopySize) {
        return EBADMSG;
    }
    const SBlock& block = reader.getBlock();
    switch (mJournal.append(block, mCopy.getData())) {
    case CJournal::FAILED:
        return errno;
    case CJournal::KNOWN:
        VQSyslog::logMsg(0, VQSyslog::NOTICE, "recorder: block %u came again; it was recorded before",
                         block.sequence);
        status = Message::KNOWN;
        return EOK;
    default:
        return EOK;
    }
}

/// Copies the block out of the segment: what is checked can no longer change.
bool CReceiver::fetch(const char* message, unsigned length) {
    CVQByteStream stream(length);
    stream.write(message, length);
    TVQRefCountPointer<CVQReferencedSharedMemory> segment;
    stream >> segment >> mCopySize;
    if (segment.isNull() || segment->getDataPtr() == nullptr || stream.isEndOfData()) {
        return false;
    }
    if (mCopySize == 0 || mCopySize > segment->getSize() || mCopySize > mCopy.getSize()) {
        return false;
    }
    std::memcpy(mCopy.getBuffer(), segment->getDataPtr(), mCopySize);
    return true;
}

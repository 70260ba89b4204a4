#include "Messages.h"

#include <CVQCRC.h>
#include <VQChannelAccess.h>
#include <cerrno>
#include <cstring>

namespace load {

bool SHeader::isAnswerTo(const SHeader& request) const {
    return mark == kMark && process == request.process && generation == request.generation &&
           flow == request.flow && number == request.number;
}

unsigned sumOf(const void* bytes, unsigned length) {
    CVQCRC crc(CVQCRC::CRC32);
    if (length != 0) {
        crc.addBytes(static_cast<const unsigned char*>(bytes), length);
    }
    return crc.getCRC();
}

CSender::CSender(SBoard& board, int process, SPlace& place, EFlow flow)
    : mBoard(board), mProcess(process), mPlace(place), mFlow(place.flows[flow]), mTrips(board.trips[flow]),
      mFlowIndex(static_cast<unsigned>(flow)), mNumber(mFlow.intended), mPulse(place.pulses.sent), mRoom(kLongest) {
}

bool CSender::attach(int pid, int channel) {
    return VQChannelAccess::attach(mConnection, channel, pid, /*this node*/ 0);
}

void CSender::detach() {
    if (isAttached() && ConnectDetach(mConnection) == -1) {
        mBoard.complain("a connection cannot be detached: %s", std::strerror(errno));
    }
    mConnection = -1;
}

CSender::EResult CSender::send(const CVQByteStream& content, CVQByteStream& answer, int timeoutMs) {
    const unsigned length = content.getLength();
    SHeader request = {kMark,  static_cast<unsigned>(mProcess), mPlace.generation, mFlowIndex, ++mNumber,
                       length, sumOf(content.getData(), length)};
    SHeader reply = {};
    const iovec message[] = {{&request, sizeof(request)}, {const_cast<unsigned char*>(content.getData()), length}};
    const iovec room[] = {{&reply, sizeof(reply)}, {mRoom.getBuffer(), mRoom.getSize()}};
    mFlow.intended = mNumber;
    const unsigned long long begin = nowNs();
    const int status = timeoutMs < 0 ? VQChannelAccess::sendv(mConnection, message, 2, room, 2)
                                     : VQChannelAccess::sendv(mConnection, message, 2, room, 2, timeoutMs);
    if (status >= 0) {
        mTrips.note(nowNs() - begin);
        mBoard.count(MESSAGES);
        mFlow.answered = mFlow.answered + 1;
        if (!reply.isAnswerTo(request) || sumOf(mRoom.getData(), reply.length) != reply.sum) {
            mBoard.complain("process %d, start %u, flow %u: request %u got the reply to %u of process %u, start %u",
                            mProcess, request.generation, mFlowIndex, mNumber, reply.number, reply.process,
                            reply.generation);
        }
        answer = CVQByteStream();
        answer.write(mRoom.getData(), reply.length);
        return ANSWERED;
    }
    if (errno == ETIMEDOUT && timeoutMs >= 0) {
        mFlow.timedOut = mFlow.timedOut + 1;
        mFlow.intended = --mNumber;
        return TIMED_OUT;
    }
    if (errno != ESRCH && errno != EBADF) {
        mBoard.complain("process %d, flow %u: a send fails: %s", mProcess, mFlowIndex, std::strerror(errno));
    }
    // The receiver is gone, so its account is final: it accepted this request, or the number is still to be used.
    if (mFlow.accepted == mNumber) {
        mFlow.lapsed = mFlow.lapsed + 1;
    } else {
        mFlow.intended = --mNumber;
    }
    return LAPSED;
}

bool CSender::sendPulse(int code) {
    constexpr int kPriority = 10;
    SPulses& pulses = mPlace.pulses;
    const unsigned number = mPulse + 1;
    pulses.intended = number;
    const bool isDoubled = mBoard.takeFault(DOUBLE_PULSE);
    for (int times = mBoard.takeFault(LOSE_PULSE) ? 0 : isDoubled ? 2 : 1; times > 0; --times) {
        if (MsgSendPulse(mConnection, kPriority, code, pulseValue(mPlace.generation, number)) == -1) {
            if (errno != EAGAIN) {
                mBoard.complain("process %d: a pulse fails: %s", mProcess, std::strerror(errno));
            }
            return false;
        }
    }
    mPulse = number;
    pulses.sent = number;
    mBoard.count(PULSES);
    return true;
}

}  // namespace load

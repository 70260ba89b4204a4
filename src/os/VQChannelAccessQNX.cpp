#include <VQChannelAccess.h>

#include <VQOperatingSystem.h>

#include <cerrno>
#include <sys/neutrino.h>

namespace {

constexpr int kNoTimeout = -1;

struct SAttempt {
    int result;
    bool interrupted;
};

/// A receiver may reply with status -1, which leaves errno as it was: an EINTR from long ago must not have the message
/// sent again.
template <class Call>
SAttempt attempt(Call call) {
    const int before = errno;
    errno = 0;
    const int result = call();
    const bool interrupted = result == -1 && errno == EINTR;
    if (errno == 0) {
        errno = before;
    }
    return {result, interrupted};
}

template <class Call>
int repeatInterrupted(Call call) {
    SAttempt last;
    do {
        last = attempt(call);
    } while (last.interrupted);
    return last.result;
}

enum class Pulses { DELIVER, DROP };

/// `call` receives once; it gives the receive id, 0 for a pulse, or -1.
template <class Call>
int receiveUntil(int timeoutMs, Pulses pulses, Call call) {
    const bool isTimed = timeoutMs != kNoTimeout;
    const unsigned long long deadline = isTimed ? VQOperatingSystem::calculateKernelTimeout(timeoutMs) : 0;
    if (isTimed && deadline == 0) {
        return -1;
    }
    for (;;) {
        // Armed again each time: the call before has used the time-out up, however it ended.
        if (isTimed && !VQOperatingSystem::setKernelTimeout(deadline, _NTO_TIMEOUT_RECEIVE)) {
            return -1;
        }
        const int result = call();
        const bool isInterrupted = result == -1 && errno == EINTR;
        const bool isDropped = result == 0 && pulses == Pulses::DROP;
        if (!isInterrupted && !isDropped) {
            return result;
        }
    }
}

}  // namespace

bool VQChannelAccess::attach(int& coid, const int& chid, int pid, unsigned nd) {
    coid = ConnectAttach(nd, pid, chid, _NTO_SIDE_CHANNEL, _NTO_COF_CLOEXEC);
    return coid != -1;
}

int VQChannelAccess::send(const int& coid, const void* msg, int msgSize, void* reply, int replySize) {
    return repeatInterrupted([&] { return MsgSend(coid, msg, msgSize, reply, replySize); });
}

int VQChannelAccess::sendv(const int& coid, const iovec* msg, int msgParts, const iovec* reply, int replyParts) {
    return repeatInterrupted([&] { return MsgSendv(coid, msg, msgParts, reply, replyParts); });
}

int VQChannelAccess::sendv(const int& coid, const iovec* msg, int msgParts, const iovec* reply, int replyParts,
                           int timeoutMs) {
    if (timeoutMs == kNoTimeout) {
        return sendv(coid, msg, msgParts, reply, replyParts);
    }
    const unsigned long long deadline = VQOperatingSystem::calculateKernelTimeout(timeoutMs);
    if (deadline == 0) {
        return -1;
    }
    for (;;) {
        if (!VQOperatingSystem::setKernelTimeout(deadline, _NTO_TIMEOUT_SEND | _NTO_TIMEOUT_REPLY)) {
            return -1;
        }
        const SAttempt last = attempt([&] { return MsgSendv(coid, msg, msgParts, reply, replyParts); });
        if (!last.interrupted) {
            // Kept: channel-negative-status.
            return last.result >= 0 ? last.result : -1;
        }
        if (VQOperatingSystem::getClockValue(CLOCK_MONOTONIC) >= deadline) {
            VQOperatingSystem::setLastError(ETIMEDOUT);
            return -1;
        }
    }
}

int VQChannelAccess::receivePulse(const int& chid, void* pulse, int size, int timeoutMs) {
    return receiveUntil(timeoutMs, Pulses::DELIVER, [&] { return MsgReceivePulse(chid, pulse, size, nullptr); });
}

int VQChannelAccess::receive(const int& chid, void* msg, int size, int timeoutMs, _msg_info* info) {
    return receiveUntil(timeoutMs, Pulses::DROP, [&] { return MsgReceive(chid, msg, size, info); });
}

int VQChannelAccess::receivev(const int& chid, const iovec* msg, int parts, int timeoutMs, _msg_info* info) {
    return receiveUntil(timeoutMs, Pulses::DROP, [&] { return MsgReceivev(chid, msg, parts, info); });
}

int VQChannelAccess::receiveMessageOrPulse(const int& chid, void* msg, int size, int timeoutMs, _msg_info* info) {
    return receiveUntil(timeoutMs, Pulses::DELIVER, [&] { return MsgReceive(chid, msg, size, info); });
}

int VQChannelAccess::receiveMessageOrPulsev(const int& chid, const iovec* msg, int parts, int timeoutMs,
                                            _msg_info* info) {
    return receiveUntil(timeoutMs, Pulses::DELIVER, [&] { return MsgReceivev(chid, msg, parts, info); });
}

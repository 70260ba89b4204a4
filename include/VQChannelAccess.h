// VQChannelAccess: message passing over channels: attach, send and wait for the reply, receive messages and pulses.
//   Purpose  what every caller would write around the kernel's calls: the retry after an interruption, and one
//            deadline that holds over all retries.
//   Units    time-outs in milliseconds: -1 waits without limit, so does any other negative one; 0 does not wait.
//   Shape    ids as the kernel gives them. `info` is the kernel's record of who sent, and may be null.
//   Errors   -1 and errno: ETIMEDOUT at the deadline; what the kernel says otherwise, but never EINTR. A clock that
//            cannot be read gives -1 at once.
//   Threads  any thread; the time-out that is armed here is the calling thread's, and its next kernel call's.
//   Kept     channel-negative-status: a negative status that a receiver replies with is a send's result without a
//            time-out, and -1 under one.
//
// Receivers that ask for _NTO_CHF_UNBLOCK keep a sender whose message they took until they reply: no time-out ends
// that wait. A pulse that arrives needs room for the whole of struct _pulse, also where it is dropped: shorter
// buffers end the receive with EFAULT.
#pragma once

#include <VQExport.h>

#include <sys/uio.h>

struct _msg_info;

namespace VQChannelAccess {

/// Stores in `coid` a connection to the channel `chid` of the process `pid` on the node `nd`, or -1. 0 is this
/// process, and this node. The connection does not last beyond exec.
VQ_EXPORT bool attach(int& coid, const int& chid, int pid, unsigned nd);

/// The status that the receiver replied with.
VQ_EXPORT int send(const int& coid, const void* msg, int msgSize, void* reply, int replySize);
VQ_EXPORT int sendv(const int& coid, const iovec* msg, int msgParts, const iovec* reply, int replyParts);
VQ_EXPORT int sendv(const int& coid, const iovec* msg, int msgParts, const iovec* reply, int replyParts,
                    int timeoutMs);

/// 0, with a pulse stored. Messages stay in the channel.
VQ_EXPORT int receivePulse(const int& chid, void* pulse, int size, int timeoutMs);

/// The receive id, above 0, to reply to. Pulses that arrive meanwhile are dropped.
VQ_EXPORT int receive(const int& chid, void* msg, int size, int timeoutMs, _msg_info* info);
VQ_EXPORT int receivev(const int& chid, const iovec* msg, int parts, int timeoutMs, _msg_info* info);

/// The receive id, or 0 for a pulse.
VQ_EXPORT int receiveMessageOrPulse(const int& chid, void* msg, int size, int timeoutMs, _msg_info* info);
VQ_EXPORT int receiveMessageOrPulsev(const int& chid, const iovec* msg, int parts, int timeoutMs, _msg_info* info);

}  // namespace VQChannelAccess

// Messages: Neutrino's channels, connections, messages and pulses. Host only; include <sys/neutrino.h>.
//   Shape    a channel is where messages and pulses queue, more urgent ones first, else in the order of their
//            arrival. A connection leads to a channel of this process or another. A message is copied when it is
//            received and its answer when it is replied; a short buffer takes what fits.
//   Units    lengths in bytes, below 2 GiB (else EINVAL); to another process at most 64 MiB (EMSGSIZE). Priorities 0
//            to 63.
//   Errors   -1 and errno. EINTR: a handler ran; one that was installed with SA_RESTART goes mostly unnoticed where
//            a wait for this process's own threads has no limit. Buffers are not checked: a bad address ends the process.
//   Threads  any thread, but not a signal handler. A forked child has no channels and no connections.
#pragma once

#include <signal.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/uio.h>

typedef struct iovec iov_t;  // NOLINT(modernize-use-using): a header for C as well
#define SETIOV(iov, base, length) ((iov)->iov_base = (void*)(base), (iov)->iov_len = (size_t)(length))

// Flags of a channel. Others fail with ENOTSUP.
#define _NTO_CHF_FIXED_PRIORITY 0x0001
#define _NTO_CHF_UNBLOCK 0x0002
#define _NTO_CHF_DISCONNECT 0x0008
#define _NTO_CHF_SENDER_LEN 0x0020
#define _NTO_CHF_REPLY_LEN 0x0080

#define _NTO_SIDE_CHANNEL 0x40000000
#define _NTO_COF_CLOEXEC 0x0001

#define _NTO_MI_UNBLOCK_REQ 0x0100  // in _msg_info::flags: the sender wants to be released

struct _pulse {
    uint16_t type;
    uint16_t subtype;
    int8_t code;
    uint8_t zero[3];
    union sigval value;
    int32_t scoid;
};

#define _PULSE_TYPE 0
#define _PULSE_SUBTYPE 0
#define _PULSE_CODE_UNBLOCK (-32)     // value: the receive id
#define _PULSE_CODE_DISCONNECT (-33)  // scoid: who is gone
#define _PULSE_CODE_MINAVAIL 0        // a program's own codes
#define _PULSE_CODE_MAXAVAIL 127

struct _msg_info {
    uint32_t nd;
    uint32_t srcnd;
    pid_t pid;  // of the sender, and so on
    int32_t tid;
    int32_t chid;
    int32_t scoid;  // the sender's connection as the receiver names it
    int32_t coid;
    int32_t msglen;     // bytes that were received
    int32_t srcmsglen;  // bytes that were sent
    int32_t dstmsglen;  // room for the reply
    int16_t priority;
    int16_t flags;
    uint32_t reserved;
};

#pragma GCC visibility push(default)
#ifdef __cplusplus
static_assert(sizeof(_msg_info) == 48, "Neutrino's size");
static_assert(sizeof(void*) != 4 || sizeof(_pulse) == 16, "Neutrino's size");
extern "C" {
#endif

/// The channel's id. EAGAIN when memory or descriptors are short, ENOTSUP for flags that the host does not have.
int ChannelCreate(unsigned flags);
/// Who sends to it or receives from it fails with ESRCH, later sends with EBADF. EINVAL for an unknown id.
int ChannelDestroy(int chid);

/// A connection to the channel `chid` of the process `pid`; 0 is the caller's own. The id lies above all descriptors,
/// and the connection ends at exec, whatever `index` and `flags` say. ESRCH: no such process or channel; EPERM: that of
/// another user; EINVAL: another node; EAGAIN: memory, descriptors or threads are short, or, after 2 s, thousands of
/// others still wait to be let in; EFBIG: the process's limit for the size of files is too low to connect to others.
int ConnectAttach(uint32_t nd, pid_t pid, int chid, unsigned index, int flags);
/// Threads that send on it fail with EBADF. EINVAL for an unknown id.
int ConnectDetach(int coid);

/// Sends a message and waits for the reply; the result is the status in it. EBADF: no such connection, or its channel
/// is gone; ESRCH: the channel went, or its process died, meanwhile; ETIMEDOUT under an armed SEND or REPLY
/// time-out; EINTR; EINVAL for lengths that are none; EMSGSIZE: too long for another process; EAGAIN: memory is short,
/// here or there, or too many messages wait. A sender whose message was received on a channel with _NTO_CHF_UNBLOCK
/// waits on until the receiver, which gets a pulse, replies.
int MsgSend(int coid, const void* message, int bytes, void* reply, int replyBytes);
int MsgSendv(int coid, const struct iovec* message, int parts, const struct iovec* reply, int replyParts);

/// Sends a pulse, which waits for nobody. EAGAIN: too many of them wait; EBADF; EINVAL for a priority above 63.
int MsgSendPulse(int coid, int priority, int code, int value);

/// Waits for a message, whose receive id is the result, or a pulse: 0. ESRCH: no such channel, or it was destroyed
/// meanwhile; ETIMEDOUT under an armed RECEIVE time-out; EFAULT: a pulse, which is lost, did not fit. `info` may be
/// null and is written for messages only.
int MsgReceive(int chid, void* message, int bytes, struct _msg_info* info);
int MsgReceivev(int chid, const struct iovec* message, int parts, struct _msg_info* info);
/// Waits for a pulse alone; messages stay.
int MsgReceivePulse(int chid, void* pulse, int bytes, struct _msg_info* info);

/// Ends a sender's wait. ESRCH: nobody waits under this id (any more); EAGAIN: memory is short, and the sender's call
/// fails so, too; EINVAL as above.
int MsgReply(int rcvid, int status, const void* reply, int bytes);
int MsgReplyv(int rcvid, int status, const struct iovec* reply, int parts);
/// The sender's call fails with `error`; EOK is a reply of status 0 and no bytes.
int MsgError(int rcvid, int error);

/// Reads more of a received message, from `offset`; writes to its reply before the wait ends. The bytes moved. ESRCH
/// and EINVAL as above; EAGAIN: memory is short, and nothing was written.
int MsgRead(int rcvid, void* message, int bytes, int offset);
int MsgReadv(int rcvid, const struct iovec* message, int parts, int offset);
int MsgWrite(int rcvid, const void* reply, int bytes, int offset);
int MsgWritev(int rcvid, const struct iovec* reply, int parts, int offset);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#include "Connection.h"

#include "ErrnoKeeper.h"
#include "ThreadState.h"
#include "Unsupported.h"

#include <errno.h>
#include <stdlib.h>

namespace host {

IdTable<Connection> connections = {nullptr, 0, 0};

namespace {

constexpr unsigned kFlags =
    _NTO_CHF_FIXED_PRIORITY | _NTO_CHF_UNBLOCK | _NTO_CHF_DISCONNECT | _NTO_CHF_SENDER_LEN | _NTO_CHF_REPLY_LEN;

// Locking consumes the time-out that the forking thread has armed; its parent keeps it.
ArmedTimeout armedAtFork = {0, {0}};

void lockBeforeFork() {
    const ArmedTimeout armed = takeTimeouts();
    lockChannels();
    armedAtFork = armed;
}

void unlockInParent() {
    const ArmedTimeout armed = armedAtFork;
    unlockChannels();
    if (armed.states != 0)
        armTimeout(armed.states, armed.deadline);
}

void forgetInChild() {
    forgetChannels();
    connections = {nullptr, 0, 0};
}

void registerForkHandlers() {
    pthread_atfork(lockBeforeFork, unlockInParent, forgetInChild);
}

pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

/// Before a process's first channel or connection.
void prepareForFork() {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
}

int fail(int error) {
    errno = error;
    return -1;
}

int attach(int chid) {
    const ErrnoKeeper keeper;
    const ChannelGuard guard;
    Channel* const channel = channels.find(chid);
    if (channel == nullptr)
        return -ESRCH;
    Connection* const connection = static_cast<Connection*>(calloc(1, sizeof(Connection)));
    if (connection == nullptr)
        return -EAGAIN;
    connection->channel = channel;
    connection->id = connections.add(connection);
    if (connection->id < 0) {
        free(connection);
        return -EAGAIN;
    }
    ++channel->references;
    return connection->id;
}

}  // namespace

Connection* findConnection(int coid) {
    return coid < _NTO_SIDE_CHANNEL ? nullptr : connections.find(coid - _NTO_SIDE_CHANNEL);
}

}  // namespace host

using namespace host;

int ChannelCreate(unsigned flags) {
    dropTimeout();
    if ((flags & ~kFlags) != 0)
        return fail(unsupported("ChannelCreate with a flag other than FIXED_PRIORITY, UNBLOCK, DISCONNECT, "
                                "SENDER_LEN and REPLY_LEN",
                                ENOTSUP));
    ErrnoKeeper keeper;
    prepareForFork();
    const ChannelGuard guard;
    Channel* const channel = newChannel(flags);
    if (channel == nullptr) {
        keeper.report(EAGAIN);
        return -1;
    }
    return channel->id;
}

int ChannelDestroy(int chid) {
    dropTimeout();
    const ChannelGuard guard;
    Channel* const channel = channels.find(chid);
    if (channel == nullptr)
        return fail(EINVAL);
    destroyChannel(channel);
    return 0;
}

int ConnectAttach(uint32_t nd, pid_t pid, int chid, unsigned, int) {
    dropTimeout();
    if (nd != 0)
        return fail(EINVAL);
    if (pid != 0 && pid != getpid())
        return fail(ESRCH);
    prepareForFork();
    const int id = attach(chid);
    return id < 0 ? fail(-id) : _NTO_SIDE_CHANNEL | id;
}

int ConnectDetach(int coid) {
    dropTimeout();
    const ChannelGuard guard;
    Connection* const connection = findConnection(coid);
    if (connection == nullptr)
        return fail(EINVAL);
    connections.remove(connection->id);
    finishMessages(connection->channel, coid, EBADF);
    sayDisconnected(connection->channel, coid);
    releaseChannel(connection->channel);
    free(connection);
    return 0;
}

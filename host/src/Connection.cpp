#include "Connection.h"

#include "Backtrace.h"
#include "Ending.h"
#include "Errno.h"
#include "ThreadState.h"
#include "Unsupported.h"
#include "Watcher.h"

#include <errno.h>
#include <stdlib.h>

namespace host {

IdTable<Connection> connections = {nullptr, 0, 0};

namespace {

constexpr unsigned kFlags =
    _NTO_CHF_FIXED_PRIORITY | _NTO_CHF_UNBLOCK | _NTO_CHF_DISCONNECT | _NTO_CHF_SENDER_LEN | _NTO_CHF_REPLY_LEN;

// Locking consumes the time-out that the forking thread has armed; its parent keeps it.
ArmedTimeout armedAtFork = {0, {0}};
// By handlers of signals that interrupted the lock's holder, which a fork is, too.
unsigned forksWithin = 0;

void lockBeforeFork() {
    if (holdsChannels()) {
        ++forksWithin;
        return;
    }
    findOwnBeforeFork();
    const ArmedTimeout armed = takeTimeouts();
    lockChannels();
    armedAtFork = armed;
}

void unlockInParent() {
    if (forksWithin != 0) {
        --forksWithin;
        return;
    }
    const ArmedTimeout armed = armedAtFork;
    unlockChannels();
    if (armed.states != 0)
        armTimeout(armed.states, armed.deadline);
}

void forgetInChild() {
    forksWithin = 0;
    forgetWatcher();
    for (int id = 0; id < connections.capacity; ++id)
        if (Connection* const connection = connections.find(id)) {
            // Those that are not dead are found by their ids.
            if (connection->link != nullptr && connection->link->isDead) {
                close(connection->link->file);
                free(connection->link);
            }
            free(connection);
        }
    connections.clear(0);
    forgetLinks();
    forgetChannels();
}

void registerForkHandlers() {
    processId = getpid();
    prepareWalksForFork();
    pthread_atfork(lockBeforeFork, unlockInParent, forgetInChild);
}

pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

/// At load time, or earlier with the process's first channel or connection: a fork that has begun does not run in its
/// child what is registered meanwhile.
__attribute__((constructor(102))) void prepareForFork() {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
}

/// Null without memory.
Connection* newConnection() {
    Connection* const connection = static_cast<Connection*>(calloc(1, sizeof(Connection)));
    if (connection == nullptr)
        return nullptr;
    connection->id = connections.add(connection);
    if (connection->id >= 0)
        return connection;
    free(connection);
    return nullptr;
}

void removeConnection(Connection* connection) {
    connections.remove(connection->id);
    free(connection);
}

/// -1 without memory, descriptors or ids.
int makeChannel(unsigned flags) {
    const ChannelGuard guard;
    const Channel* const channel = newChannel(flags);
    return channel != nullptr ? channel->id : -1;
}

/// The connection's number, or an error number negated.
int attachHere(int chid) {
    const ChannelGuard guard;
    Channel* const channel = channels.find(chid);
    if (channel == nullptr)
        return -ESRCH;
    Connection* const connection = newConnection();
    if (connection == nullptr)
        return -EAGAIN;
    connection->channel = channel;
    ++channel->references;
    return connection->id;
}

int attachElsewhere(pid_t pid, int chid) {
    OutLink* link;
    if (const int error = newOutLink(pid, chid, link); error != 0)
        return -error;
    const ChannelGuard guard;
    Connection* const connection = newConnection();
    if (connection == nullptr) {
        discard(link);
        return -EAGAIN;
    }
    connection->link = link;
    if (const int error = announce(link, _NTO_SIDE_CHANNEL | connection->id); error != 0) {
        removeConnection(connection);
        discard(link);
        return -error;
    }
    ++link->references;
    return connection->id;
}

}  // namespace

}  // namespace host

using namespace host;

int ChannelCreate(unsigned flags) {
    dropTimeout();
    if ((flags & ~kFlags) != 0)
        return fail(unsupported("ChannelCreate with a flag other than FIXED_PRIORITY, UNBLOCK, DISCONNECT, "
                                "SENDER_LEN and REPLY_LEN",
                                ENOTSUP));
    ErrnoKeeper keeper;
    const EndsLater untilReturned;
    prepareForFork();
    if (const int id = makeChannel(flags); id >= 0)
        return unlessEnding(id, ChannelDestroy);
    keeper.report(EAGAIN);
    return -1;
}

int ChannelDestroy(int chid) {
    dropTimeout();
    ErrnoKeeper keeper;
    const ChannelGuard guard;
    Channel* const channel = channels.find(chid);
    if (channel == nullptr) {
        keeper.report(EINVAL);
        return -1;
    }
    destroyChannel(channel);
    return 0;
}

int ConnectAttach(uint32_t nd, pid_t pid, int chid, unsigned, int) {
    dropTimeout();
    if (nd != 0)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    const EndsLater untilReturned;
    prepareForFork();
    const int id = pid == 0 || pid == getpid() ? attachHere(chid) : attachElsewhere(pid, chid);
    if (id >= 0)
        return unlessEnding(_NTO_SIDE_CHANNEL | id, ConnectDetach);
    keeper.report(-id);
    return -1;
}

int ConnectDetach(int coid) {
    dropTimeout();
    ErrnoKeeper keeper;
    const int priority = callerPriority();
    const ChannelGuard guard;
    Connection* const connection = findConnection(coid);
    if (connection == nullptr) {
        keeper.report(EINVAL);
        return -1;
    }
    Link* const link = connection->link;
    if (link != nullptr) {
        dropLink(link, EBADF);
    } else {
        update(connection->channel);
        finishMessages(connection->channel, coid, EBADF);
        sayDisconnected(connection->channel, coid, priority);
        releaseChannel(connection->channel);
    }
    removeConnection(connection);  // before its link, which a forked child would look for
    if (link != nullptr)
        releaseLink(link);
    return 0;
}

// Connection: what a connection id stands for. Guarded by the channels' lock.
#pragma once

#include "Channel.h"
#include "Link.h"

namespace host {

struct Connection {
    int id;
    Channel* channel;  // of this process, or null
    OutLink* link;     // to another's
};

extern IdTable<Connection> connections;

inline Connection* findConnection(int coid) {
    return coid < _NTO_SIDE_CHANNEL ? nullptr : connections.find(coid - _NTO_SIDE_CHANNEL);
}

}  // namespace host

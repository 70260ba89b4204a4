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

Connection* findConnection(int coid);

}  // namespace host

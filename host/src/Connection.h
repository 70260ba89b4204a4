// Connection: what a connection id stands for. Guarded by the channels' lock.
#pragma once

#include "Channel.h"

namespace host {

struct Connection {
    int id;
    Channel* channel;
};

extern IdTable<Connection> connections;

Connection* findConnection(int coid);

}  // namespace host

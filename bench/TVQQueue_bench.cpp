// TVQQueue beside the queues in TVQQueue_peers.cpp.
#include "TVQQueue_workload.h"

#include <TVQQueue.h>

namespace {

struct OurQueue {
    using Queue = TVQQueue<int>;
    static void push(Queue& queue, int number) { queue.push(number); }
    static int front(const Queue& queue) { return *queue.front(); }
    static void pop(Queue& queue) { queue.pop(); }
};
MARLIX_BENCH_QUEUE("ours", OurQueue)

}  // namespace

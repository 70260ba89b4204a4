// TVQQueue_workload: elements in at the back and out at the front, as messages wait for their turn.
#pragma once

#include "Bench.h"

namespace bench {

/// One iteration is an element in and the oldest one out, while as many wait as the argument says.
template <class Kind>
void pushAndPop(benchmark::State& state) {
    const int depth = static_cast<int>(state.range(0));
    typename Kind::Queue queue;
    for (int i = 0; i < depth; ++i)
        Kind::push(queue, i);
    int next = depth;
    bool inOrder = true;
    for (auto _ : state) {
        Kind::push(queue, next);
        inOrder = inOrder && Kind::front(queue) == next - depth;
        Kind::pop(queue);
        next = next + 1;
        benchmark::DoNotOptimize(&queue);
        benchmark::ClobberMemory();
    }
    check(inOrder, "order of the elements");
}

/// The members of the standard's queues.
template <class QueueType>
struct StandardQueue {
    using Queue = QueueType;
    static void push(Queue& queue, int number) { queue.push_back(number); }
    static int front(const Queue& queue) { return queue.front(); }
    static void pop(Queue& queue) { queue.pop_front(); }
};

}  // namespace bench

#define MARLIX_BENCH_QUEUE(contender, Kind)                                                                        \
    MARLIX_BENCH("TVQQueue_PushPop", contender, 0, 10, 1000) {                                                     \
        bench::pushAndPop<Kind>(state);                                                                            \
    }

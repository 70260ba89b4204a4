// The queues that one would pick instead of TVQQueue.
#include "TVQQueue_workload.h"

#include <deque>

#if BENCH_QT
#include <QQueue>
#endif
#if BENCH_BOOST
#include <boost/container/deque.hpp>
#endif

namespace {

using StandardQueue = bench::StandardQueue<std::deque<int>>;
MARLIX_BENCH_QUEUE("std::deque", StandardQueue)

#if BENCH_QT
using QtQueue = bench::StandardQueue<QQueue<int>>;
MARLIX_BENCH_QUEUE("QQueue", QtQueue)
#endif

#if BENCH_BOOST
using BoostQueue = bench::StandardQueue<boost::container::deque<int>>;
MARLIX_BENCH_QUEUE("boost::container::deque", BoostQueue)
#endif

}  // namespace

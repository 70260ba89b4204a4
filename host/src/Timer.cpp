#include "Timer.h"

#include "Connection.h"
#include "Ending.h"
#include "Errno.h"
#include "ThreadState.h"
#include "Unsupported.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/neutrino.h>
#include <sys/prctl.h>

namespace host {
namespace {

// Below that a timer of which nobody takes the pulses fills the memory.
constexpr uint64_t kLeastIntervalNs = 1000;
// Expiries that one timer makes up for at once. Older ones are lost, as on Neutrino when it has no pulses left.
constexpr uint64_t kMostMissed = 1u << 20;

// A thread that wakes up more often gets nothing else done. As much Linux lets any thread oversleep.
constexpr uint64_t kLeastSleepNs = 50000;

IdTable<Timer> timers = {nullptr, 0, 0};

uint64_t add(uint64_t time, uint64_t duration) {
    return time > UINT64_MAX - duration ? UINT64_MAX : time + duration;
}

bool isSooner(const Timer* left, const Timer* right) {
    return left->expiry.ns != right->expiry.ns ? left->expiry.ns < right->expiry.ns : left->turn < right->turn;
}

void queuePulseOf(const Timer* timer) {
    const Connection* const connection = findConnection(timer->coid);
    if (connection == nullptr || connection->channel != timer->channel || timer->channel->isDestroyed)
        return;
    // Whoever sleeps for the channel wakes up by itself.
    queuePulse(timer->channel, timer->priority, timer->code, timer->value, timer->coid);
}

/// The timer's next expiry after one that has been queued.
Deadline nextExpiry(Timer* timer, uint64_t now) {
    const uint64_t next = add(timer->expiry.ns, timer->intervalNs - timer->lateNs);
    timer->lateNs = 0;
    if (next >= now)
        return {next};
    const uint64_t missed = (now - next) / timer->intervalNs + 1;
    return {missed <= kMostMissed ? next : next + (missed - kMostMissed) * timer->intervalNs};
}

/// Sets when a timer expires first. Of periods that were over before it was set it does not make up for any.
void armFirst(Timer* timer, bool isAbsolute, const _itimer& set) {
    // A relative time is one of a clock that reads 0 now.
    const uint64_t reading = isAbsolute ? nowNs(timer->clock) : 0;
    const uint64_t now =
        isAbsolute && timer->clock == CLOCK_MONOTONIC ? reading : nowNs(CLOCK_MONOTONIC);  // the later one
    const uint64_t passed = set.nsec < reading ? reading - set.nsec : 0;
    timer->intervalNs = set.interval_nsec;
    timer->lateNs = set.interval_nsec != 0 ? passed % set.interval_nsec : 0;
    timer->channel->timers.arm(timer, {passed != 0 ? now : add(now, set.nsec - reading)});
}

void set(Timer* timer, bool isAbsolute, const _itimer& wanted) {
    Channel* const channel = timer->channel;
    TimerHeap& heap = channel->timers;
    const Deadline before = heap.next();
    if (timer->place != 0)
        heap.disarm(timer);
    if (wanted.nsec == 0)
        return;
    _itimer bounded = wanted;
    if (bounded.interval_nsec != 0 && bounded.interval_nsec < kLeastIntervalNs)
        bounded.interval_nsec = kLeastIntervalNs;
    armFirst(timer, isAbsolute, bounded);
    // They sleep until a later time.
    if (heap.next().ns < before.ns && isAnyAsleep(channel))
        callAllReceivers(channel);
}

_itimer settingOf(const Timer* timer) {
    if (timer->place == 0)
        return {0, 0};
    const uint64_t now = nowNs(CLOCK_MONOTONIC);
    const uint64_t left = timer->expiry.ns > now ? timer->expiry.ns - now : 1;
    return {left, timer->intervalNs};
}

/// The id, or an error number negated.
int create(clockid_t clock, const sigevent& event) {
    const ChannelGuard guard;
    const Connection* const connection = findConnection(event.sigev_coid);
    if (connection == nullptr)
        return -EBADF;
    if (connection->channel == nullptr)
        return -ENOTSUP;
    Channel* const channel = connection->channel;
    Timer* const timer = static_cast<Timer*>(calloc(1, sizeof(Timer)));
    const bool hasRoom = timer != nullptr && channel->timers.addUser();
    const int id = hasRoom ? timers.add(timer) : -1;
    if (id < 0) {
        if (hasRoom)
            channel->timers.removeUser();
        free(timer);
        return -EAGAIN;
    }
    timer->id = id;
    timer->clock = clock;
    timer->channel = channel;
    timer->coid = event.sigev_coid;
    timer->priority = event.sigev_priority;
    timer->code = event.sigev_code;
    timer->value = event.sigev_value;
    ++channel->references;
    return id;
}

}  // namespace

bool TimerHeap::addUser() {
    if (users == capacity) {
        const unsigned larger = capacity == 0 ? 4 : 2 * capacity;
        void* const block = realloc(timers, larger * sizeof(void*));
        if (block == nullptr)
            return false;
        timers = static_cast<Timer**>(block);
        capacity = larger;
    }
    ++users;
    return true;
}

void TimerHeap::put(unsigned index, Timer* timer) {
    timers[index] = timer;
    timer->place = index + 1;
}

void TimerHeap::siftUp(unsigned index, Timer* timer) {
    while (index != 0 && isSooner(timer, timers[(index - 1) / 2])) {
        put(index, timers[(index - 1) / 2]);
        index = (index - 1) / 2;
    }
    put(index, timer);
}

void TimerHeap::siftDown(unsigned index, Timer* timer) {
    for (unsigned child; (child = 2 * index + 1) < count; index = child) {
        if (child + 1 < count && isSooner(timers[child + 1], timers[child]))
            ++child;
        if (!isSooner(timers[child], timer))
            break;
        put(index, timers[child]);
    }
    put(index, timer);
}

void TimerHeap::arm(Timer* timer, Deadline expiry) {
    timer->expiry = expiry;
    timer->turn = ++turns;
    siftUp(count++, timer);
}

void TimerHeap::disarm(Timer* timer) {
    const unsigned index = timer->place - 1;
    Timer* const last = timers[--count];
    timer->place = 0;
    if (last == timer)
        return;
    if (index != 0 && isSooner(last, timers[(index - 1) / 2]))
        siftUp(index, last);
    else
        siftDown(index, last);
}

void queueDue(Channel* channel, uint64_t until) {
    const ErrnoKeeper keeper;
    TimerHeap& heap = channel->timers;
    if (heap.next().ns > until)
        return;
    const uint64_t now = nowNs(CLOCK_MONOTONIC);
    const uint64_t last = until < now ? until : now;
    while (heap.next().ns <= last) {
        Timer* const timer = heap.timers[0];
        queuePulseOf(timer);
        heap.disarm(timer);
        if (timer->intervalNs != 0)
            heap.arm(timer, nextExpiry(timer, now));
    }
}

Deadline wakingTime(const TimerHeap& heap, uint64_t now) {
    static __thread bool isExact __attribute__((tls_model("initial-exec"))) = false;
    if (!isExact) {
        isExact = true;
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    }
    const uint64_t soonest = now + kLeastSleepNs;
    return heap.next().ns < soonest ? Deadline{soonest} : heap.next();
}

void forgetTimers() {
    for (int id = 0; id < timers.capacity; ++id)
        free(timers.find(id));
    timers.clear(0);
}

}  // namespace host

using namespace host;

int TimerCreate(clockid_t clock, const sigevent* event) {
    dropTimeout();
    if (clock != CLOCK_MONOTONIC && clock != CLOCK_REALTIME)
        return fail(EINVAL);
    if (event == nullptr || event->sigev_notify != SIGEV_PULSE)
        return fail(unsupported("TimerCreate with an event other than SIGEV_PULSE", ENOTSUP));
    if (event->sigev_priority < 1 || event->sigev_priority >= kPriorities)
        return fail(EINVAL);
    ErrnoKeeper keeper;
    int id;
    {
        const EndsLater untilReturned;
        id = create(clock, *event);
        if (id >= 0)
            return unlessEnding(id, TimerDestroy);
    }
    keeper.report(id == -ENOTSUP ? unsupported("a timer that sends to another process", ENOTSUP) : -id);
    return -1;
}

int TimerSettime(int id, int flags, const _itimer* wanted, _itimer* old) {
    dropTimeout();
    ErrnoKeeper keeper;
    const ChannelGuard guard;
    Timer* const timer = timers.find(id);
    if (timer == nullptr) {
        keeper.report(EINVAL);
        return -1;
    }
    // What has expired under the former setting stays so.
    update(timer->channel);
    if (old != nullptr)
        *old = settingOf(timer);
    if (wanted != nullptr)
        set(timer, (flags & TIMER_ABSTIME) != 0, *wanted);
    return 0;
}

int TimerDestroy(int id) {
    dropTimeout();
    ErrnoKeeper keeper;
    const ChannelGuard guard;
    Timer* const timer = timers.find(id);
    if (timer == nullptr) {
        keeper.report(EINVAL);
        return -1;
    }
    Channel* const channel = timer->channel;
    update(channel);
    if (timer->place != 0)
        channel->timers.disarm(timer);
    channel->timers.removeUser();
    timers.remove(id);
    free(timer);
    releaseChannel(channel);
    return 0;
}

// Timer: what expires by itself, and then has a pulse for a channel of this process. Guarded by the channels' lock.
//   Lazy     nobody acts at an expiry. Whoever is about to look at a channel's queue, or to add to it, has the
//            pulses queued first that are due by then; who sleeps for the channel sleeps no longer than to its next
//            expiry. As pulses are seen by receiving only, that is as good as a kernel that queues them in time.
#pragma once

#include "Deadline.h"

#include <signal.h>

namespace host {

struct Channel;

struct Timer {
    int id;
    clockid_t clock;
    Channel* channel;
    int coid;
    int priority;
    int code;
    sigval value;
    Deadline expiry;  // of the monotonic clock
    uint64_t intervalNs;
    uint64_t lateNs;  // of an expiry that was over when the timer was set: how much the next one comes sooner
    uint64_t turn;    // among equal expiries
    unsigned place;   // in the channel's heap, from 1; 0: disarmed
};

/// The armed timers of a channel; the one that expires next lies first. All zero is empty.
struct TimerHeap {
    Timer** timers;
    unsigned count;
    unsigned capacity;
    unsigned users;  // timers that may be armed here
    uint64_t turns;

    /// Room for one more timer. False without memory.
    bool addUser();
    void removeUser() { --users; }

    Deadline next() const { return count == 0 ? Deadline::never() : timers[0]->expiry; }
    void arm(Timer* timer, Deadline expiry);
    void disarm(Timer* timer);

private:
    void siftUp(unsigned index, Timer* timer);
    void siftDown(unsigned index, Timer* timer);
    void put(unsigned index, Timer* timer);
};

/// Queues the pulses of what has expired at the channel, up to a time, where a timer is armed. Leaves errno alone.
void queueDue(Channel* channel, uint64_t until);

/// Until when a thread may sleep that waits for the next expiry, of which there is one. It is given exact timers:
/// Linux otherwise lets it sleep some 50 microseconds more. What expires that soon is served together, though.
Deadline wakingTime(const TimerHeap& heap, uint64_t now);

/// In a forked child.
void forgetTimers();

}  // namespace host

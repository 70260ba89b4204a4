// Ending: threads that ThreadDestroy ends, wherever they are.
//   A signal ends a thread on the spot, except
//     where it holds the channels' lock     it ends when it gives that up;
//     where it EndsLater                    having begun what others see, it ends when that is done;
//     where something is Unfinished         in the wait within, it takes back first what it had begun; or goes on where
//                                           the wait is about to be over.
//   So whatever waits without limit is an Unfinished one's wait, and the rest of an EndsLater takes no time to speak of.
#pragma once

#include <signal.h>

namespace host {

/// The signal has come, and the thread goes on nevertheless.
extern __thread volatile sig_atomic_t mustEnd __attribute__((tls_model("initial-exec")));
/// How many EndsLater the thread is in, without those whose wait may be ended.
extern __thread volatile sig_atomic_t endsLater __attribute__((tls_model("initial-exec")));

/// For a thread that must end: does so if it may here.
void endIfDue();
/// Takes back what is unfinished, and ends without unwinding and without the C library's part of it.
[[noreturn]] void endOwnThread();

/// Before the first thread is started. False when no thread could say that it ends.
bool prepareEnds();
/// For a thread that begins: its end, by itself, is noted.
void beToldOfTheEnd();

/// The signal that ends another thread. It is among those that an emulator passes on.
inline int endingSignal() {
    return SIGRTMAX - 4;
}
/// Before the first one is sent.
void installEndingSignal();

class EndsLater {
public:
    EndsLater() { enter(); }
    ~EndsLater() { leave(); }
    EndsLater(const EndsLater&) = delete;
    EndsLater& operator=(const EndsLater&) = delete;

protected:
    static void enter() {
        endsLater = endsLater + 1;
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
    }
    static void leave() {
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
        endsLater = endsLater - 1;
        if (mustEnd != 0)
            endIfDue();
    }
};

/// Within an EndsLater: the id of what a call has made. A thread that must end learns it no more, so that nobody could
/// ever use or destroy it; it is destroyed, and the result is -1.
template <class Destroy>
int unlessEnding(int id, Destroy destroy) {
    if (mustEnd == 0)
        return id;
    destroy(id);
    return -1;
}

class Unfinished : EndsLater {
public:
    /// Called in the thread that ends, with all signals blocked. It may wait, and take locks.
    using TakeBack = void (*)(void* what);
    /// Called in a signal handler: true once the wait ends by itself, soon, and may be at something that no thread must
    /// be ended in.
    using IsEnding = bool (*)(const void* what);

    Unfinished(TakeBack takeBack, void* what, IsEnding isEnding = nullptr)
        : mTakeBack(takeBack), mWhat(what), mIsEnding(isEnding) {}

    /// Calls `wait`, within which the thread may be ended.
    template <class Wait>
    auto during(Wait wait) {
        const Window open(this);
        return wait();
    }

    /// Of all that the calling thread is in the waits of, the innermost first.
    static void takeAllBack();
    /// Whether one of the waits, which handlers' may be within, must be left to its end.
    static bool mustGoOn() {
        for (const Unfinished* one = innermost; one != nullptr; one = one->mOuter)
            if (one->mIsEnding != nullptr && one->mIsEnding(one->mWhat))
                return true;
        return false;
    }

private:
    class Window {
    public:
        explicit Window(Unfinished* own) {
            own->mOuter = innermost;
            innermost = own;
            leave();
        }
        ~Window() {
            enter();
            innermost = innermost->mOuter;
        }
        Window(const Window&) = delete;
        Window& operator=(const Window&) = delete;
    };

    static __thread Unfinished* innermost __attribute__((tls_model("initial-exec")));

    const TakeBack mTakeBack;
    void* const mWhat;
    const IsEnding mIsEnding;
    Unfinished* mOuter = nullptr;
};

}  // namespace host

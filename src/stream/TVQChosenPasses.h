// TVQChosenPasses: a set of passes that exists in several forms, of which one suits the processor.
//   Choice   made at the first use, by asking the processor; every later use is one load. `choose` gives the same
//            answer each time, so that it does not matter who asks first.
//   Threads  any thread, before main as well: constant-initialised, nothing is allocated or locked.
#pragma once

#include <atomic>

template <class Passes, const Passes& (*choose)()>
class TVQChosenPasses {
public:
    const Passes& operator()() {
        const Passes* chosen = mChosen.load(std::memory_order_relaxed);
        if (chosen == nullptr) {
            chosen = &choose();
            mChosen.store(chosen, std::memory_order_relaxed);
        }
        return *chosen;
    }

private:
    std::atomic<const Passes*> mChosen{nullptr};
};

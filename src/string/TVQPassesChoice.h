// TVQPassesChoice: passes that are built for more than one kind of x86-64, chosen at the first use.
//   Choice   by the given function, which asks the processor and gives the same answer each time: it does not
//            matter who comes first. Every later use is one load.
//   Threads  any thread, before main as well: nothing is allocated or locked.
#pragma once

#include <atomic>

template <class Passes>
class TVQPassesChoice {
public:
    using Choose = const Passes& (*)();

    explicit constexpr TVQPassesChoice(Choose choose) : mChoose(choose) {}

    const Passes& get() {
        const Passes* chosen = mChosen.load(std::memory_order_relaxed);
        if (chosen == nullptr) {
            __builtin_cpu_init();  // there are users before main, perhaps before the compiler's own initialiser ran
            chosen = &mChoose();
            mChosen.store(chosen, std::memory_order_relaxed);
        }
        return *chosen;
    }

private:
    Choose mChoose;
    std::atomic<const Passes*> mChosen{nullptr};
};

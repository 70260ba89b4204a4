// TVQPassesChoice: passes that are built for more than one kind of x86-64, chosen at the first use.
#pragma once

#include <atomic>

template <class Passes>
class TVQPassesChoice {
public:
    constexpr TVQPassesChoice(const Passes& everywhere, const Passes& withAVX2)
        : mEverywhere(everywhere), mWithAVX2(withAVX2) {}

    const Passes& get() {
        const Passes* chosen = mChosen.load(std::memory_order_relaxed);
        if (chosen == nullptr) {
            __builtin_cpu_init();  // text is built before main, perhaps before the compiler's own initialiser ran
            chosen = __builtin_cpu_supports("avx2") != 0 ? &mWithAVX2 : &mEverywhere;
            mChosen.store(chosen, std::memory_order_relaxed);
        }
        return *chosen;
    }

private:
    const Passes& mEverywhere;
    const Passes& mWithAVX2;
    std::atomic<const Passes*> mChosen{nullptr};
};

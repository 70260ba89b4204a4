#include <VQOperatingSystem.h>

#include <CVQAsserter.h>

#include <atomic>

namespace {

constexpr char kUnit[] = "VQOperatingSystem";
constexpr unsigned kLineTimeDiff = 47;

std::atomic<unsigned long long> sMonotonicBias{0};  // 0: nobody asked yet; the clock never reads 0

}  // namespace

unsigned long long VQOperatingSystem::getMonotonicBias(unsigned long long* out) {
    unsigned long long bias = sMonotonicBias.load(std::memory_order_relaxed);
    if (VQ_UNLIKELY(bias == 0)) {
        const unsigned long long now = getMonotonicTime();
        if (sMonotonicBias.compare_exchange_strong(bias, now, std::memory_order_relaxed)) {
            bias = now;
        }
    }
    if (out != nullptr) {
        *out = bias;
    }
    return bias;
}

unsigned long long VQOperatingSystem::timeDiffMonotonic(unsigned long long then) {
    const unsigned long long now = getMonotonicTime();
    if (then > now) {
        doCheapAssert(kLineTimeDiff, kUnit);
        return 0;
    }
    return now - then;
}

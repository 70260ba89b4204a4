#include <VQOperatingSystem.h>

#include <CVQAsserter.h>

#include <atomic>

namespace {

constexpr char kUnit[] = "VQOperatingSystem";
constexpr unsigned kLineTimeDiff = 47;

std::atomic<unsigned long long> sMonotonicBias{0};
std::atomic<bool> sHasMonotonicBias{false};

}  // namespace

unsigned long long VQOperatingSystem::getMonotonicBias(unsigned long long* out) {
    if (!sHasMonotonicBias.load(std::memory_order_acquire)) {
        sMonotonicBias.store(getMonotonicTime(), std::memory_order_relaxed);
        sHasMonotonicBias.store(true, std::memory_order_release);
    }
    const unsigned long long bias = sMonotonicBias.load(std::memory_order_relaxed);
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

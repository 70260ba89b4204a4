// OnTheClock: the time as the tests of timers count it.
#pragma once

#include "support/Units.h"

#include <VQOperatingSystem.h>

#include <chrono>
#include <thread>

inline unsigned long long now() {
    return VQOperatingSystem::getMonotonicTime();
}

inline void sleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// CallingThread: who is calling, for telling whether a thread is already inside a report.
#pragma once

#include <VQOperatingSystem.h>

#include <cstdint>

/// A number of the calling thread's own, never 0. With the process in it, a thread of a forked child is not taken
/// for one of the parent's whose number came along.
inline std::uint64_t callingThread() {
    return static_cast<std::uint64_t>(static_cast<unsigned>(VQOperatingSystem::getCurrentPID())) << 32 |
           static_cast<unsigned>(VQOperatingSystem::getCurrentTID());
}

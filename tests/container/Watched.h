// Watched: runs a piece of a test in a child whose RAM watcher counts, and reads what it counted.
#pragma once

#include "support/ChildProcess.h"

#include <CVQRamwatcher.h>

#include <functional>
#include <gtest/gtest.h>
#include <tuple>

/// Instances, live elements, reserved slots.
using Counts = std::tuple<int, int, int>;

inline void runWatched(const std::function<void()>& body) {
    support::ChildOptions options;
    options.environment = {{"ENABLE_RAMWATCH", ""}};
    const support::ChildResult result = support::runInChild(
        [&body] {
            ASSERT_TRUE(CVQRamwatcher::evalIsEnabled());
            body();
        },
        options);
    EXPECT_TRUE(result.exitedWith(0)) << result;
}

/// What the calling thread's vectors of this element size have in the watcher's table.
inline Counts countsOf(std::size_t elementSize) {
    for (unsigned i = 0; i < CVQRamwatcher::mIndex && i < 512; ++i) {
        const CVQRamwatcher::sElement& element = CVQRamwatcher::elements.load()[i];
        if (element.key == elementSize)
            return {int(element.instances), int(element.counterA), int(element.counterB)};
    }
    return {0, 0, 0};
}

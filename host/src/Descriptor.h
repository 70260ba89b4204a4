// Descriptor: owns a file descriptor for the length of a call.
#pragma once

#include "Errno.h"

#include <fcntl.h>
#include <unistd.h>

namespace host {

/// Moves what open, socket and the like returned above the standard streams: a process that closed one of those would
/// otherwise find its output in here.
inline int aboveStandardStreams(int opened) {
    if (opened < 0 || opened > STDERR_FILENO)
        return opened;
    const int moved = fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const ErrnoKeeper keeper;
    close(opened);
    return moved;
}

class Descriptor {
public:
    /// Takes what open, socket and the like returned.
    explicit Descriptor(int opened) : mDescriptor(aboveStandardStreams(opened)) {}
    ~Descriptor() {
        if (isOpen()) {
            const ErrnoKeeper keeper;
            close(mDescriptor);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return mDescriptor >= 0; }
    int get() const { return mDescriptor; }
    /// Hands it over.
    int release() {
        const int descriptor = mDescriptor;
        mDescriptor = -1;
        return descriptor;
    }

private:
    int mDescriptor;
};

}  // namespace host

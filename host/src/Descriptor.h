// Descriptor: owns a file descriptor for the length of a call.
#pragma once

#include "ErrnoKeeper.h"

#include <fcntl.h>
#include <unistd.h>

namespace host {

class Descriptor {
public:
    /// Takes what open, socket and the like returned and moves it above the standard streams: a process that closed
    /// one of those would otherwise find its output in here.
    explicit Descriptor(int opened) : mDescriptor(opened) {
        if (opened >= 0 && opened <= STDERR_FILENO) {
            mDescriptor = fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            const ErrnoKeeper keeper;
            close(opened);
        }
    }
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

private:
    int mDescriptor;
};

}  // namespace host

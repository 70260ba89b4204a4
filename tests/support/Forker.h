// Forker: a thread that forks all the time, for a scope. Each child ends at once.
#pragma once

#include <atomic>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace support {

class Forker {
public:
    Forker() = default;
    ~Forker() {
        mIsOver = true;
        mThread.join();
    }
    Forker(const Forker&) = delete;
    Forker& operator=(const Forker&) = delete;

private:
    std::atomic<bool> mIsOver{false};
    std::thread mThread{[this] {
        while (!mIsOver) {
            const pid_t child = fork();
            if (child == 0)
                _exit(0);
            if (child > 0)
                waitpid(child, nullptr, 0);
        }
    }};
};

}  // namespace support

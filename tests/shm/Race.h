// Race: processes that begin at the same moment.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace shmtest {

/// Starts `count` processes that run `body` at the same moment; returns their exit codes, or the signals that ended them,
/// negated.
template <class Body>
std::vector<int> race(int count, Body body) {
    int gate[2];
    EXPECT_EQ(0, pipe(gate));
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            close(gate[1]);
            char byte;
            if (read(gate[0], &byte, 1) != 0) {  // ends when the parent opens the gate
                _exit(90);
            }
            _exit(body());
        }
        children.push_back(child);
    }
    close(gate[0]);
    close(gate[1]);
    std::vector<int> codes;
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        codes.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
    }
    return codes;
}

}  // namespace shmtest

// Descriptors: which are open in this process, so that a test sees what is left over, and what a child would inherit.
#pragma once

#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <set>

namespace files {

inline std::set<int> openDescriptors() {
    std::set<int> descriptors;
    DIR* const directory = opendir("/proc/self/fd");
    const int own = dirfd(directory);
    while (const dirent* const entry = readdir(directory)) {
        const int descriptor = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && descriptor != own)
            descriptors.insert(descriptor);
    }
    closedir(directory);
    return descriptors;
}

inline bool isClosedOnExec(int descriptor) {
    return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

}  // namespace files

// PrivateMounts: folders of the system that a test process may fill as it likes, because nobody else sees them.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

/// Puts an empty folder in the place of `path`, for the calling process alone. False without the privilege or folder.
inline bool mountEmptyOver(const char* path, const char* options = nullptr) {
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", path, "tmpfs", 0, options) == 0;
}

/// The exit code of a child that cannot have such mounts here.
constexpr int kNoMounts = 77;

#include <VQFileOperations.h>

#include <TVQErrnoSafeFunction.h>
#include <VQOperatingSystem.h>
#include <os/CErrnoKeeper.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPathSize = 1024;

/// Counts the attempts of createUniqueFile.
VQ_CONSTINIT std::atomic<unsigned> sUniqueNumber{0};

template <class F, class... Arguments>
bool succeeds(F function, Arguments... arguments) {
    return TVQErrnoSafeFunction<F>(function)(arguments...) >= 0;
}

const char* osPath(const CVQPath& path) {
    return path.getOSSpecific().c_str();
}

bool failWith(int error) {
    errno = error;
    return false;
}

/// Removes a tree. All levels share one path, to which each adds its names, and one entry: a level has done with it
/// before it goes deeper.
class CVQTreeRemover {
public:
    /// `path` has `length` bytes and fits.
    CVQTreeRemover(const char* path, std::size_t length) { std::memcpy(mPath, path, length + 1); }

    /// What mPath names, which has `length` bytes.
    bool remove(std::size_t length) {
        if (succeeds(&::unlink, mPath)) {
            return true;
        }
        // A link that may not be removed leads to things that are not to be removed at all.
        if (isLink()) {
            return false;
        }
        DIR* const directory = marlix_qnx_safe_opendir(mPath);
        if (directory == nullptr) {
            return false;  // Kept: remove-opendir-reason.
        }
        const bool isEmpty = removeEntries(directory, length);
        mPath[length] = '\0';
        if (!isEmpty) {
            const CErrnoKeeper keepReason;
            marlix_qnx_safe_closedir(directory);
            return false;
        }
        marlix_qnx_safe_closedir(directory);
        return succeeds(&::rmdir, mPath);
    }

private:
    bool isLink() const {
        const CErrnoKeeper keepReason;
        struct stat64 status;
        return succeeds(&::lstat64, mPath, &status) && S_ISLNK(status.st_mode);
    }

    bool removeEntries(DIR* directory, std::size_t length) {
        for (;;) {
            dirent64* found;
            if (const int error = marlix_qnx_safe_readdir64_r(directory, &mEntry.entry, &found); error != 0) {
                return failWith(error);
            }
            if (found == nullptr) {
                return true;
            }
            const char* const name = found->d_name;
            if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
                continue;
            }
            const std::size_t nameLength = std::strlen(name);
            if (length + 1 + nameLength >= kPathSize) {
                return failWith(ENAMETOOLONG);  // a name that was cut would be another's
            }
            // Most entries are files, and found sooner from their directory than from the root. What cannot be removed
            // this way, for whatever reason, is then treated by its path.
            if (succeeds(&::unlinkat, ::dirfd(directory), name, 0)) {
                continue;
            }
            mPath[length] = '/';
            std::memcpy(mPath + length + 1, name, nameLength + 1);
            if (!remove(length + 1 + nameLength)) {
                return false;
            }
        }
    }

    char mPath[kPathSize];
    union {
        dirent64 entry;
        char room[offsetof(dirent64, d_name) + NAME_MAX + 1];  // where d_name is declared without any
    } mEntry;
};

}  // namespace

bool VQFileOperations::changeDir(const CVQPath& path) {
    return succeeds(&::chdir, osPath(path));
}

bool VQFileOperations::remove(const CVQPath& path) {
    return succeeds(&::remove, osPath(path));
}

bool VQFileOperations::rename(const CVQPath& from, const CVQPath& to) {
    return succeeds(&::rename, osPath(from), osPath(to));
}

bool VQFileOperations::createSymlink(const CVQPath& target, const CVQPath& link) {
    return succeeds(&::symlink, osPath(target), osPath(link));
}

bool VQFileOperations::makeDir(const CVQPath& path, int mode) {
    return succeeds(&::mkdir, osPath(path), static_cast<mode_t>(mode));
}

bool VQFileOperations::setPermissions(const CVQPath& path, int mode) {
    return succeeds(&::chmod, osPath(path), static_cast<mode_t>(mode));
}

bool VQFileOperations::getFileStatus(const CVQPath& path, CVQFileStatus& status) {
    return succeeds(&::stat64, osPath(path), &status);
}

bool VQFileOperations::getSymlinkStatus(const CVQPath& path, CVQFileStatus& status) {
    return succeeds(&::lstat64, osPath(path), &status);
}

bool VQFileOperations::isGranted(const CVQPath& path, unsigned mode, bool* otherError) {
    const bool isGranted = succeeds(&::access, osPath(path), static_cast<int>(mode));
    if (otherError != nullptr) {
        *otherError = !isGranted && errno != EACCES;
    }
    return isGranted;
}

CVQPath VQFileOperations::getCurrentDir() {
    char buffer[kPathSize];
    const char* path;
    do {
        errno = 0;
        path = ::getcwd(buffer, sizeof buffer);
    } while (path == nullptr && errno == EINTR);
    return CVQPath(path);
}

bool VQFileOperations::makeDirRecursive(const CVQPath& path, int mode) {
    const CVQPath branch = path.getBranch();
    if (!branch.isRoot() && !branch.getString().isEmpty()) {
        if (!makeDirRecursive(branch, mode) && errno != EEXIST) {
            return false;
        }
        return makeDir(path, mode);
    }
    CVQFileStatus status;
    if (!getFileStatus(branch, status)) {
        return makeDir(path, mode);
    }
    return S_ISDIR(status.st_mode) || failWith(ENOTDIR);  // Kept: mkdir-first-level.
}

bool VQFileOperations::recursiveRemove(const CVQPath& path) {
    const char* const text = osPath(path);
    const std::size_t length = std::strlen(text);
    if (length >= kPathSize) {
        return failWith(ENAMETOOLONG);
    }
    return CVQTreeRemover(text, length).remove(length);
}

bool VQFileOperations::createUniqueFile(CVQPath& pattern, CVQFileHandle& handle) {
    const CVQString leaf = pattern.getLeaf();  // empty when the pattern is invalid
    const char* const star = std::strrchr(leaf.c_str(), '*');
    if (star == nullptr) {
        return failWith(EINVAL);
    }
    const CVQPath branch = pattern.getBranch();
    const int prefixLength = static_cast<int>(star - leaf.c_str());
    handle.close();
    do {
        char name[kPathSize];
        // Kept: unique-bare-pattern. Without a branch the name begins with the separator.
        const int length =
            std::snprintf(name, sizeof name, "%s/%.*s%d-%d-%u-%u%s", osPath(branch), prefixLength, leaf.c_str(),
                          VQOperatingSystem::getCurrentPID(), VQOperatingSystem::getCurrentTID(),
                          static_cast<unsigned>(std::time(nullptr)),
                          sUniqueNumber.fetch_add(1, std::memory_order_relaxed), star + 1);
        if (length < 0 || static_cast<std::size_t>(length) >= sizeof name) {
            return failWith(EINVAL);
        }
        pattern = name;
        if (handle.open(pattern, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC)) {
            return true;
        }
    } while (errno == EEXIST);
    return false;
}

bool VQFileOperations::getFileSystemType(const CVQPath& path, char* out, unsigned size) {
    if (size == 0 || out == nullptr) {
        return failWith(EINVAL);
    }
    struct statvfs status;
    if (!succeeds(&::statvfs, osPath(path), &status)) {
        return false;
    }
    const std::size_t length = strnlen(status.f_basetype, std::min<std::size_t>(size, sizeof status.f_basetype));
    std::memcpy(out, status.f_basetype, length);
    std::memset(out + length, 0, size - length);
    if (length == size) {
        return failWith(EINVAL);
    }
    for (std::size_t i = 0; i < length; ++i) {
        if (out[i] >= 'A' && out[i] <= 'Z') {
            out[i] = static_cast<char>(out[i] - 'A' + 'a');
        }
    }
    return true;
}

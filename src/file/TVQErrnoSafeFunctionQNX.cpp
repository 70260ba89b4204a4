#include <TVQErrnoSafeFunction.h>

#include <climits>
#include <cstddef>
#include <cstring>

namespace {

struct CVQNullComp {
    bool operator()(const void* result) const noexcept { return result == nullptr; }
};

template <class F>
TVQErrnoSafeFunction<F, CVQNullComp> untilNotInterrupted(F function) {
    return TVQErrnoSafeFunction<F, CVQNullComp>(function);
}

template <class Entry>
int readEntry(Entry* (*read)(DIR*), DIR* directory, Entry* entry, Entry** result) {
    if (entry == nullptr || result == nullptr) {
        return errno;
    }
    *result = nullptr;
    const Entry* const found = untilNotInterrupted(read)(directory);
    if (found == nullptr) {
        return errno;
    }
    const std::size_t length = std::strlen(found->d_name);
    if (length > NAME_MAX) {
        return ENAMETOOLONG;
    }
    // The fixed part alone: behind it the entry is only as long as its name.
    std::memcpy(entry, found, offsetof(Entry, d_name));
    std::memcpy(entry->d_name, found->d_name, length + 1);
    *result = entry;
    return errno;
}

}  // namespace

DIR* marlix_qnx_safe_opendir(const char* path) {
    return untilNotInterrupted(&::opendir)(path);
}

int marlix_qnx_safe_readdir_r(DIR* directory, struct dirent* entry, struct dirent** result) {
    return readEntry(&::readdir, directory, entry, result);
}

int marlix_qnx_safe_readdir64_r(DIR* directory, struct dirent64* entry, struct dirent64** result) {
    return readEntry(&::readdir64, directory, entry, result);
}

int marlix_qnx_safe_closedir(DIR* directory) {
    errno = 0;
    const int result = ::closedir(directory);
    if (result < 0 && errno == EINTR) {
        errno = 0;
        return 0;
    }
    return result;
}

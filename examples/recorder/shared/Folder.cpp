#include "shared/Folder.h"

#include <CVQFileHandle.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>

namespace {

constexpr int kReadTimeoutMs = 2000;
constexpr long long kLargestFile = 1LL << 30;

/// 0 for any other name.
unsigned numberOf(const char* name) {
    const bool isOne = std::strspn(name, "0123456789") == 8 && std::strcmp(name + 8, ".rec") == 0;
    return isOne ? static_cast<unsigned>(std::strtoul(name, nullptr, 10)) : 0;
}

bool readAll(CVQFileHandle& file, unsigned char* bytes, unsigned size) {
    for (unsigned done = 0; done < size;) {
        const int got = file.read(bytes + done, size - done, kReadTimeoutMs);
        if (got <= 0) {
            errno = errno != 0 ? errno : EIO;  // it became shorter meanwhile
            return false;
        }
        done += static_cast<unsigned>(got);
    }
    return true;
}

}  // namespace

CVQPath Folder::getFile(const CVQPath& folder, unsigned number) {
    CVQString name;
    name.format("%08u.rec", number);
    return folder / CVQPath(name);
}

bool Folder::listFiles(const CVQPath& folder, TVQVector<unsigned>& numbers) {
    DIR* const directory = opendir(folder.getString().c_str());
    if (directory == nullptr) {
        return false;
    }
    // The form with 64 bits: file systems number their entries so, whatever the width of this process.
    errno = 0;
    while (const dirent64* const entry = readdir64(directory)) {
        if (const unsigned number = numberOf(entry->d_name)) {
            numbers.push_back(number);
        }
        errno = 0;
    }
    const int error = errno;
    closedir(directory);
    std::sort(numbers.begin(), numbers.end());
    errno = error;
    return error == 0;
}

bool Folder::load(const CVQPath& path, CVQRCMemoryBuffer& bytes) {
    CVQFileHandle file;
    if (!file.open(path, O_RDONLY) || !file.seek(0, CVQFileHandle::SEEK_FROM_END)) {
        return false;
    }
    const long long size = file.tell();
    if (size < 0 || size >= kLargestFile) {
        errno = size < 0 ? errno : EFBIG;
        return false;
    }
    bytes = CVQRCMemoryBuffer(static_cast<std::size_t>(size));
    return file.seek(0, CVQFileHandle::SEEK_FROM_START) &&
           readAll(file, bytes.getBuffer(), static_cast<unsigned>(size));
}

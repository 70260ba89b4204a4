#include "shared/InputFile.h"

#include <VQFileOperations.h>
#include <cerrno>
#include <unistd.h>

bool isReadableFile(const CVQPath& path, CVQFileStatus& status) {
    if (!VQFileOperations::isGranted(path, R_OK, nullptr) || !VQFileOperations::getFileStatus(path, status)) {
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return false;
    }
    return true;
}

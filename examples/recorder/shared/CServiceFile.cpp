#include "shared/CServiceFile.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kTimeoutMs = 1000;

CVQString readFrom(CVQFileHandle& file) {
    char text[256];
    const int length = file.read(text, sizeof(text), kTimeoutMs);
    return CVQString(text, length > 0 ? static_cast<unsigned>(length) : 0U);
}

}  // namespace

bool CServiceFile::own(const CVQPath& path) {
    return mFile.open(path, O_RDWR | O_CREAT) && lockf(mFile.getDescriptor(), F_TLOCK, 0) == 0;
}

CVQString CServiceFile::read() {
    mFile.seek(0, CVQFileHandle::SEEK_FROM_START);
    return readFrom(mFile);
}

bool CServiceFile::write(const CVQString& line) {
    return mFile.truncate(0) && mFile.seek(0, CVQFileHandle::SEEK_FROM_START) &&
           mFile.writeN(line.c_str(), line.getByteLength(), kTimeoutMs);
}

CVQString CServiceFile::readLine(const CVQPath& path) {
    CVQFileHandle file(path, O_RDONLY);
    return readFrom(file);
}

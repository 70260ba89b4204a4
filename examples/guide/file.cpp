// Paths, a file that nobody else has, and a read that does not wait for ever.
#include <CVQFileHandle.h>
#include <CVQFileStatus.h>
#include <CVQPath.h>
#include <CVQString.h>
#include <VQFileOperations.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

int main() {
    CVQPath path("measured//today/");
    path.canonify();
    path /= "run-*.txt";
    std::printf("%s in %s\n", path.getLeaf().c_str(), path.getBranch().getString().c_str());

    VQFileOperations::makeDir("measured", 0700);
    VQFileOperations::makeDir("measured/today", 0700);
    CVQFileHandle file;
    if (!VQFileOperations::createUniqueFile(path, file)) {
        return 1;
    }
    const char text[] = "230 V";
    file.writeN(text, sizeof(text), /*timeoutMs*/ -1);
    file.seek(0, CVQFileHandle::SEEK_FROM_START);
    char back[16];
    const int count = file.read(back, sizeof(back), -1);
    std::printf("%d bytes: %s\n", count, back);
    file.close();
    VQFileOperations::recursiveRemove("measured");

    CVQFileStatus status;
    const bool isThere = VQFileOperations::getFileStatus(path, status);
    std::printf("still there: %s\n", isThere ? "yes" : "no");

    const char* const pipe = "quiet";
    if (mkfifo(pipe, 0600) == 0) {
        CVQFileHandle reader(pipe, O_RDWR);  // a writer as well, so that the pipe has no end
        const int arrived = reader.read(back, sizeof(back), /*timeoutMs*/ 50);
        std::printf("pipe: %d bytes, %s\n", arrived, errno == ETIMEDOUT ? "timed out" : "no time-out");
        VQFileOperations::remove(pipe);
    }
}

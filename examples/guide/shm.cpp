// A segment that two processes share, by a handle that travels as bytes. The last user anywhere takes it away.
#include <CVQByteStream.h>
#include <CVQReferencedSharedMemory.h>
#include <CVQString.h>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Segment = TVQRefCountPointer<CVQReferencedSharedMemory>;

void write(const Segment& segment, const char* text) {
    std::snprintf(static_cast<char*>(segment->getDataPtr()), segment->getSize(), "%s", text);
}

/// The other process: it knows nothing but the bytes that reached it.
void receive(const CVQByteStream& arrived) {
    Segment segment;
    arrived >> segment;
    std::printf("child reads \"%s\"\n", static_cast<const char*>(segment->getDataPtr()));
    write(segment, "and back");
}

}  // namespace

int main() {
    CVQString name;
    name.format("/guide-%d", static_cast<int>(getpid()));
    const Segment segment = CVQReferencedSharedMemory::create(name.c_str(), 4096);
    if (segment.isNull()) {
        return EXIT_FAILURE;
    }
    write(segment, "from the parent");

    CVQByteStream message;
    message << segment;  // the handle under way counts as a user
    std::printf("users: %u\n", segment->getSharedMemoryRefCount());
    std::fflush(stdout);

    const pid_t child = fork();
    if (child == 0) {
        receive(message);
        std::fflush(stdout);
        _exit(EXIT_SUCCESS);
    }
    waitpid(child, nullptr, 0);
    std::printf("parent reads \"%s\", users: %u\n", static_cast<const char*>(segment->getDataPtr()),
                segment->getSharedMemoryRefCount());
}
